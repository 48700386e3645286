#include "platform/TWScriptedInteraction.h"

#include <QMutexLocker>

void TWScriptedInteraction::answerAlerts(QList<int> answers) {
    QMutexLocker lock(&m_mutex);
    m_alertAnswers.append(std::move(answers));
}

void TWScriptedInteraction::answerOpenPanels(QList<QStringList> answers) {
    QMutexLocker lock(&m_mutex);
    m_openAnswers.append(std::move(answers));
}

void TWScriptedInteraction::answerSavePanels(QStringList answers) {
    QMutexLocker lock(&m_mutex);
    m_saveAnswers.append(std::move(answers));
}

void TWScriptedInteraction::answerCheckBoxes(QList<bool> answers) {
    QMutexLocker lock(&m_mutex);
    m_checkBoxAnswers.append(std::move(answers));
}

QList<TWAlert> TWScriptedInteraction::alerts() const {
    QMutexLocker lock(&m_mutex);
    return m_alerts;
}

QList<TWOpenPanelOptions> TWScriptedInteraction::openPanels() const {
    QMutexLocker lock(&m_mutex);
    return m_openPanels;
}

QList<TWSavePanelOptions> TWScriptedInteraction::savePanels() const {
    QMutexLocker lock(&m_mutex);
    return m_savePanels;
}

int TWScriptedInteraction::showAlert(const TWAlert& alert) {
    QMutexLocker lock(&m_mutex);
    m_alerts.append(alert);
    if (m_alertAnswers.isEmpty()) return 0;
    const int answer = m_alertAnswers.takeFirst();
    // An answer past the alert's buttons is a mistake in the script; the default keeps the run sane.
    const qsizetype buttons = alert.buttons.isEmpty() ? 1 : alert.buttons.size();
    return answer >= 0 && answer < buttons ? answer : 0;
}

QStringList TWScriptedInteraction::runOpenPanel(const TWOpenPanelOptions& options) {
    QMutexLocker lock(&m_mutex);
    m_openPanels.append(options);
    return m_openAnswers.isEmpty() ? QStringList() : m_openAnswers.takeFirst();
}

QString TWScriptedInteraction::runSavePanel(const TWSavePanelOptions& options) {
    QMutexLocker lock(&m_mutex);
    m_savePanels.append(options);
    return m_saveAnswers.isEmpty() ? QString() : m_saveAnswers.takeFirst();
}

TWOpenPanelAnswer TWScriptedInteraction::runOpenPanelWithCheckBox(const TWOpenPanelOptions& options) {
    TWOpenPanelAnswer answer{runOpenPanel(options), options.checkBoxChecked};
    QMutexLocker lock(&m_mutex);
    if (!options.checkBoxTitle.isEmpty() && !m_checkBoxAnswers.isEmpty())
        answer.checkBoxChecked = m_checkBoxAnswers.takeFirst();
    return answer;
}
