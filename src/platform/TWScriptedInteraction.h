#pragma once

#include "platform/TWInteraction.h"

#include <QList>
#include <QMutex>

// Answers from queues filled in advance, and remembers every alert it was shown. Used by tests and by
// scripted runs. When a queue is empty it answers like TWDefaultInteraction (default button, cancel).
class TWScriptedInteraction : public TWInteraction {
public:
    void answerAlerts(QList<int> answers);
    void answerOpenPanels(QList<QStringList> answers);
    void answerSavePanels(QStringList answers);
    // States of the check boxes of panels that show one; without an answer a box keeps its state.
    void answerCheckBoxes(QList<bool> answers);
    QList<TWAlert> alerts() const; // every alert shown, in order
    QList<TWOpenPanelOptions> openPanels() const;
    QList<TWSavePanelOptions> savePanels() const;

    int showAlert(const TWAlert& alert) override;
    QStringList runOpenPanel(const TWOpenPanelOptions& options) override;
    QString runSavePanel(const TWSavePanelOptions& options) override;
    TWOpenPanelAnswer runOpenPanelWithCheckBox(const TWOpenPanelOptions& options) override;

private:
    mutable QMutex m_mutex;
    QList<int> m_alertAnswers;
    QList<QStringList> m_openAnswers;
    QStringList m_saveAnswers;
    QList<bool> m_checkBoxAnswers;
    QList<TWAlert> m_alerts;
    QList<TWOpenPanelOptions> m_openPanels;
    QList<TWSavePanelOptions> m_savePanels;
};
