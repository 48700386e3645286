// The workspace's runs, progress and undo: the side of TWWorkspace that talks to the work thread.

#include "model/TWWorkspace.h"

#include "engine/TWHandOver.h"
#include "engine/TWUndoJournal.h"
#include "engine/TWWorkThread.h"

#include "model/TWFileEntry.h"
#include "model/TWGroupEntry.h"
#include "model/TWLocalizedStrings.h"
#include "platform/TWDesktop.h"
#include "platform/TWInteraction.h"
#include "platform/TWPreferences.h"

#include <QThread>
#include <QTimer>
#include <QUndoCommand>
#include <QUndoStack>

namespace {

// One in-place run on the undo stack. The action has already happened when the step is pushed, so the
// first redo does nothing; after that undo and redo are the same switch of files.
class TWUndoProcessCommand : public QUndoCommand {
public:
    TWUndoProcessCommand(qint64 step, const QString& name) : QUndoCommand(name), m_step(step) {}
    void undo() override { TWWorkspace::workspace().undoProcess(m_step); }
    void redo() override {
        if (m_pushed) TWWorkspace::workspace().undoProcess(m_step);
        m_pushed = true;
    }

private:
    qint64 m_step;
    bool m_pushed = false;
};

QList<TWFileEntryPtr> fileEntriesOf(const QList<TWEntryPtr>& entries) {
    QList<TWFileEntryPtr> files;
    for (const TWEntryPtr& entry : entries)
        entry->addFileEntriesToArray(files);
    return files;
}

} // namespace

// Work thread ----------------------------------------------------------------------------------------------

void TWWorkspace::startWorkThread() {
    if (m_workThread) return;
    m_workThread = new QThread(this);
    m_workThread->setObjectName(QStringLiteral("Clipwright work"));
    m_worker = new TWWorkThread;
    m_worker->moveToThread(m_workThread);
    connect(m_workThread, &QThread::finished, m_worker, &QObject::deleteLater);
    connect(this, &TWWorkspace::analyzeEntriesRequested, this, &TWWorkspace::analyzeEntries);
    connect(this, &TWWorkspace::analyzeSelectionRequested, this, &TWWorkspace::analyzeSelectedEntries);
    connect(this, &TWWorkspace::renameFileRequested, this,
            [this](const QVariantMap& instructions) { performInstructions({instructions}, true); });
    m_workThread->start();
    analyzeEntries();
}

void TWWorkspace::stopWorkThread() {
    if (!m_workThread) return;
    disconnect(this, &TWWorkspace::analyzeEntriesRequested, this, nullptr);
    disconnect(this, &TWWorkspace::analyzeSelectionRequested, this, nullptr);
    disconnect(this, &TWWorkspace::renameFileRequested, this, nullptr);
    m_workThread->quit();
    m_workThread->wait();
    delete m_workThread;
    m_workThread = nullptr;
    m_worker = nullptr; // deleted when its thread finished
}

void TWWorkspace::performInstructions(const QVariantList& instructions, bool inWorkThread) {
    TWRunRequest request;
    request.instructions = instructions;
    request.fileEntries = fileEntries();
    request.selection = selectedFileEntries();
    for (const QVariant& item : instructions)
        request.pathEntries.append(
            fileEntriesOf(entriesFromPaths(item.toMap().value(QStringLiteral("paths")).toStringList())));
    if (!inWorkThread) {
        request.respectActive = false;
        setStopWorking(LXContinue);
        beginProcess();
        const std::optional<TWActionError> error = TWWorkThread::run(request);
        setStopWorking(LXContinue);
        endProcess(error ? std::optional<LXError>(*error) : std::nullopt,
                   error ? error->localizedDescription() : QString());
        return;
    }
    startWorkThread();
    TWWorkThread* worker = m_worker;
    TWHandOver(worker, [worker, request] { worker->performInstructions(request); });
}

void TWWorkspace::analyzeEntries() {
    if (m_headless || !TWPreferences::shared().boolValue(QStringLiteral("Auto Analyze")) || isWorking() ||
        !m_worker)
        return;
    QList<TWFileEntryPtr> entries;
    m_rootGroup->collectEntriesToAnalyze(entries);
    if (entries.isEmpty()) return;
    setWorking(true); // a run asked for meanwhile waits for this pass anyway
    TWWorkThread* worker = m_worker;
    TWHandOver(worker, [worker, entries] { worker->analyzeEntries(entries); });
}

void TWWorkspace::analyzeSelectedEntries() {
    startWorkThread();
    QList<TWFileEntryPtr> entries;
    for (const TWFileEntryPtr& entry : selectedFileEntries())
        if (TWStatus::state(entry->status()) == int(TWStatus::Ready)) entries.append(entry);
    if (entries.isEmpty()) return;
    TWWorkThread* worker = m_worker;
    TWHandOver(worker, [worker, entries] { worker->analyzeEntries(entries); });
}

// Reports from the work thread
// -------------------------------------------------------------------------------

// The stop code is reset by the thread that runs the work (TWWorkThread, or performInstructions here), not
// by these reports, which arrive late and would wipe out a stop asked for in the meantime.
void TWWorkspace::beginProcess() {
    setWorking(true);
    m_lastErrorDescription.clear();
    emit processBegan();
}

void TWWorkspace::endProcess(const std::optional<LXError>& error, const QString& description) {
    setWorking(false);
    m_lastErrorDescription = error ? (description.isEmpty() ? error->description() : description) : QString();
    endWithTitle(QStringLiteral("Process"), error);
    QTimer::singleShot(1000, this, [this] { refreshSmartGroupEntries(); });
}

void TWWorkspace::endAnalysis() {
    setWorking(false);
    endWithTitle(QStringLiteral("Analysis"), std::nullopt);
}

void TWWorkspace::endWithTitle(const QString& noun, const std::optional<LXError>& error) {
    QString title;
    if (!error)
        title = QStringLiteral("%1 successful").arg(noun);
    else if (error->code() == LXStopped)
        title = QStringLiteral("%1 stopped").arg(noun);
    else if (error->code() == LXCancelled)
        title = QStringLiteral("%1 cancelled").arg(noun);
    else
        title = QStringLiteral("Error: %1").arg(error->message());
    m_progressTitle = title;
    emit processEnded(title, error.has_value());
    if (!m_headless)
        TWDesktop::postNotice(noun == u"Process" ? QStringLiteral("Workflow completed")
                                                 : QStringLiteral("Analysis completed"),
                              title);
}

void TWWorkspace::willProcessWithAction(const QVariantMap& info) {
    m_progressTitle = info.value(QStringLiteral("title")).toString();
    m_progressMaximum = info.value(QStringLiteral("maximum")).toLongLong();
    m_progressValue = 0;
    emit progressChanged(m_progressTitle, m_progressValue, m_progressMaximum);
}

void TWWorkspace::willProcessEntry(const TWFileEntryPtr& entry) {
    if (selectedFileEntry() == entry && TWStatus::state(entry->status()) == int(TWStatus::Playing))
        emit stopPlaybackRequested();
    reloadEntry(entry.get());
    emit entryProcessing(entry.get());
}

void TWWorkspace::didProcessEntry(const TWFileEntryPtr& entry) {
    reloadEntry(entry.get());
    m_progressValue = std::min(m_progressValue + 1, m_progressMaximum);
    emit progressChanged(m_progressTitle, m_progressValue, m_progressMaximum);
}

void TWWorkspace::didProcessWithAction(const QVariantMap& info) {
    if (info.contains(QStringLiteral("undoStep")) &&
        TWPreferences::shared().boolValue(QStringLiteral("Undo Enabled")))
        undoStack().push(new TWUndoProcessCommand(info.value(QStringLiteral("undoStep")).toLongLong(),
                                                  info.value(QStringLiteral("actionName")).toString()));
    const QStringList results = info.value(QStringLiteral("results")).toStringList();
    if (results.isEmpty()) return;
    m_scriptResults.append(results);
    emit scriptResultsAdded(results);
}

QStringList TWWorkspace::takeScriptResults() {
    return std::exchange(m_scriptResults, {});
}

// Undo
// ---------------------------------------------------------------------------------------------------------

QUndoStack& TWWorkspace::undoStack() {
    if (!m_undoStack) m_undoStack = new QUndoStack(this);
    return *m_undoStack;
}

void TWWorkspace::undoProcess(qint64 step) {
    const LXStatus switched = TWUndoJournal::shared().switchStep(step, [this](const TWSaveInfo& record) {
        for (const TWEntryPtr& entry : m_rootGroup->entriesWithPath(record.formerLeadPath())) {
            entry->setPath(record.currentLeadPath());
            if (auto file = std::dynamic_pointer_cast<TWFileEntry>(entry))
                file->refreshNow();
            else
                entry->refresh();
            reloadEntry(entry.get());
        }
    });
    if (!switched) {
        TWAlert alert;
        alert.style = TWAlertStyle::Critical;
        alert.title = TWLocalizedString(QStringLiteral("Undo Failed"));
        alert.message = switched.error().description();
        TWInteraction::current().runAlert(alert);
    }
    QTimer::singleShot(1000, this, [this] { refreshSmartGroupEntries(); });
}

void TWWorkspace::undoInstructions(const QVariantList& instructions) {
    performInstructions(instructions, false);
}

bool TWWorkspace::flushUndoWithInteraction(bool interactive) {
    if (interactive) {
        TWAlert alert;
        alert.style = TWAlertStyle::Critical;
        alert.title = TWLocalizedString(QStringLiteral("Flush Undo Alert"));
        alert.message = TWLocalizedString(QStringLiteral("Flush Undo Message"));
        alert.buttons = {TWLocalizedString(QStringLiteral("Yes")), TWLocalizedString(QStringLiteral("No"))};
        if (TWInteraction::current().runAlert(alert) != 0) return false;
    }
    (void)TWUndoJournal::shared().removeAll();
    undoStack().clear();
    return true;
}
