#include "ui/progress/TWProgressView.h"

#include "engine/TWFileReport.h"
#include "engine/TWRunController.h"
#include "model/TWEntry.h"
#include "model/TWWorkspace.h"

#include <QFileInfo>
#include <QGridLayout>
#include <QLabel>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>

#include <climits>

TWProgressView::TWProgressView(TWWorkspace& workspace, TWRunController& runs, QWidget* parent)
    : QWidget(parent), m_workspace(workspace) {
    setAccessibleName(QStringLiteral("Progress"));
    m_title = new QLabel(this);
    m_file = new QLabel(this);
    m_file->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_bar = new QProgressBar(this);
    m_bar->setAccessibleName(QStringLiteral("Progress of the run"));
    m_stop = new QPushButton(QStringLiteral("Stop"), this);
    m_stop->setToolTip(QStringLiteral("Stop after the current file, keeping what was done"));
    m_cancel = new QPushButton(QStringLiteral("Cancel"), this);
    m_cancel->setToolTip(QStringLiteral("Stop now and put back the files changed in place"));
    m_problems = new QListWidget(this);
    m_problems->setAccessibleName(QStringLiteral("Files that failed or were skipped"));
    m_problems->hide();
    auto* layout = new QGridLayout(this);
    layout->addWidget(m_title, 0, 0, 1, 3);
    layout->addWidget(m_bar, 1, 0);
    layout->addWidget(m_stop, 1, 1);
    layout->addWidget(m_cancel, 1, 2);
    layout->addWidget(m_file, 2, 0, 1, 3);
    layout->addWidget(m_problems, 3, 0, 1, 3);
    m_stop->setEnabled(false);
    m_cancel->setEnabled(false);

    connect(m_stop, &QPushButton::clicked, this, [this] { m_workspace.stopWorkflow(); });
    connect(m_cancel, &QPushButton::clicked, this, [this] { m_workspace.cancelWorkflow(); });
    connect(&runs, &TWRunController::processBegan, this, &TWProgressView::began);
    connect(&runs, &TWRunController::progressChanged, this, [this](const QString& title, qint64 value, qint64 maximum) {
        m_title->setText(title);
        m_bar->setRange(0, int(std::min<qint64>(maximum, INT_MAX)));
        m_bar->setValue(int(std::min<qint64>(value, INT_MAX)));
    });
    connect(&runs, &TWRunController::entryProcessing, this,
            [this](TWEntry* entry) { m_file->setText(entry ? entry->name() : QString()); });
    connect(&runs, &TWRunController::fileReported, this, &TWProgressView::reported);
    connect(&runs, &TWRunController::processEnded, this, &TWProgressView::ended);
}

QString TWProgressView::title() const {
    return m_title->text();
}

QStringList TWProgressView::problems() const {
    QStringList lines;
    for (int i = 0; i < m_problems->count(); ++i) lines.append(m_problems->item(i)->text());
    return lines;
}

void TWProgressView::began() {
    m_problems->clear();
    m_problems->hide();
    m_file->clear();
    m_stop->setEnabled(true);
    m_cancel->setEnabled(true);
}

void TWProgressView::reported(const TWFileReport& report) {
    using Outcome = TWFileReport::Outcome;
    if (report.outcome != Outcome::Failed && report.outcome != Outcome::Skipped) return;
    const QString what = report.outcome == Outcome::Failed ? QStringLiteral("failed") : QStringLiteral("skipped");
    const QString name = QFileInfo(report.input).fileName();
    QString why = report.note; // an error's description names the file: the line does already
    if (const QString named = QStringLiteral("'%1': ").arg(name); why.startsWith(named)) why.remove(0, named.size());
    m_problems->addItem(QStringLiteral("%1 %2%3").arg(name, what, why.isEmpty() ? QString() : QStringLiteral(": ") + why));
    m_problems->item(m_problems->count() - 1)->setToolTip(report.input);
    m_problems->show();
}

void TWProgressView::ended(const QString& title, bool failed) {
    m_title->setText(title);
    m_file->clear();
    m_stop->setEnabled(false);
    m_cancel->setEnabled(false);
    if (!failed) m_bar->setValue(m_bar->maximum());
}
