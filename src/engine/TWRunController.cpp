#include "engine/TWRunController.h"

#include "engine/TWCommonKeys.h"
#include "engine/TWUndoJournal.h"
#include "engine/TWWorkThread.h"

#include "model/TWFileEntry.h"
#include "model/TWGroupEntry.h"
#include "model/TWLocalizedStrings.h"
#include "model/TWWorkspace.h"
#include "platform/TWDesktop.h"
#include "platform/TWHandOver.h"
#include "platform/TWInteraction.h"
#include "platform/TWPreferences.h"

#include <QThread>
#include <QTimer>
#include <QUndoCommand>
#include <QUndoStack>

namespace {

// One in-place action run on the undo stack, a step of the undo journal: files switched with their kept
// copies, or descriptive changes set back by running instructions. The action has already happened when
// the step is pushed, so the first redo does nothing; after that undo and redo are the same switch.
class TWUndoProcessCommand : public QUndoCommand {
public:
    TWUndoProcessCommand(TWRunController& controller, qint64 step, const QString& name)
        : QUndoCommand(name), m_controller(controller), m_step(step) {}
    void undo() override { m_controller.undoProcess(m_step, true); }
    void redo() override {
        if (m_pushed) m_controller.undoProcess(m_step, false);
        m_pushed = true;
    }

private:
    TWRunController& m_controller;
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

TWRunController::TWRunController(const TWEngineContext& context, QObject* parent)
    : QObject(parent), m_context(context) {
    TWWorkspace& workspace = m_context.workspace;
    workspace.setRunService(this);
    connect(&workspace, &TWWorkspace::analyzeEntriesRequested, this, &TWRunController::analyzeEntries);
    connect(&workspace, &TWWorkspace::analyzeSelectionRequested, this,
            &TWRunController::analyzeSelectedEntries);
    connect(&workspace, &TWWorkspace::renameFileRequested, this,
            [this](const QVariantMap& instructions) { performInstructions({instructions}, true); });
}

TWRunController::~TWRunController() {
    stopWorkThread();
    if (m_context.workspace.runService() == this) m_context.workspace.setRunService(nullptr);
}

void TWRunController::onOwnThread(std::function<void()> work) {
    if (QThread::currentThread() == thread())
        work();
    else
        TWHandOver(this, std::move(work));
}

int32_t TWRunController::stopCode() const {
    return m_context.workspace.stopWorking();
}

// Work thread ----------------------------------------------------------------------------------------------

void TWRunController::startWorkThread() {
    if (m_workThread) return;
    m_workThread = new QThread(this);
    m_workThread->setObjectName(QStringLiteral("Clipwright work"));
    m_worker = new TWWorkThread(*this);
    m_worker->moveToThread(m_workThread);
    connect(m_workThread, &QThread::finished, m_worker, &QObject::deleteLater);
    m_workThread->start();
    analyzeEntries();
}

void TWRunController::stopWorkThread() {
    if (!m_workThread) return;
    m_workThread->quit();
    m_workThread->wait();
    delete m_workThread;
    m_workThread = nullptr;
    m_worker = nullptr; // deleted when its thread finished
}

TWRunRequest TWRunController::requestFor(const QVariantList& instructions) const {
    TWWorkspace& workspace = m_context.workspace;
    TWRunRequest request;
    request.instructions = instructions;
    request.fileEntries = workspace.fileEntries();
    request.selection = workspace.selectedFileEntries();
    for (const QVariant& item : instructions)
        request.pathEntries.append(fileEntriesOf(workspace.entriesFromPaths(TWKeys::paths(item.toMap()))));
    return request;
}

void TWRunController::performInstructions(const QVariantList& instructions, bool inWorkThread) {
    if (!inWorkThread) {
        beginProcess();
        endProcess(runHere(instructions));
        return;
    }
    startWorkThread();
    TWWorkThread* worker = m_worker;
    TWHandOver(worker,
               [worker, request = requestFor(instructions)] { worker->performInstructions(request); });
}

std::optional<TWActionError> TWRunController::runHere(const QVariantList& instructions) {
    TWRunRequest request = requestFor(instructions);
    request.respectActive = false;
    m_context.workspace.setStopWorking(LXContinue);
    const std::optional<TWActionError> error = TWWorkThread::run(*this, request);
    m_context.workspace.setStopWorking(LXContinue);
    return error;
}

void TWRunController::analyzeEntries() {
    if (m_headless || !m_context.preferences.boolValue(QStringLiteral("Auto Analyze")) || m_working ||
        !m_worker)
        return;
    QList<TWFileEntryPtr> entries;
    m_context.workspace.rootGroup()->collectEntriesToAnalyze(entries);
    if (entries.isEmpty()) return;
    setWorking(true); // a run asked for meanwhile waits for this pass anyway
    TWWorkThread* worker = m_worker;
    TWHandOver(worker, [worker, entries] { worker->analyzeEntries(entries); });
}

void TWRunController::analyzeSelectedEntries() {
    startWorkThread();
    QList<TWFileEntryPtr> entries;
    for (const TWFileEntryPtr& entry : m_context.workspace.selectedFileEntries())
        if (TWStatus::state(entry->status()) == int(TWStatus::Ready)) entries.append(entry);
    if (entries.isEmpty()) return;
    TWWorkThread* worker = m_worker;
    TWHandOver(worker, [worker, entries] { worker->analyzeEntries(entries); });
}

void TWRunController::setWorking(bool working) {
    if (m_working == working) return;
    m_working = working;
    emit workingChanged(working);
}

// Reports ---------------------------------------------------------------------------------------------------

// The stop code is reset by the thread that runs the work (TWWorkThread, or performInstructions here), not
// by these reports, which arrive late and would wipe out a stop asked for in the meantime.
void TWRunController::beginProcess() {
    onOwnThread([this] {
        setWorking(true);
        m_lastErrorDescription.clear();
        emit processBegan();
    });
}

void TWRunController::endProcess(const std::optional<TWActionError>& error) {
    onOwnThread([this, error] {
        setWorking(false);
        m_lastErrorDescription = error ? error->localizedDescription() : QString();
        endWithTitle(QStringLiteral("Process"), error ? std::optional<LXError>(*error) : std::nullopt);
        QTimer::singleShot(1000, this, [this] { m_context.workspace.refreshSmartGroupEntries(); });
    });
}

void TWRunController::endAnalysis() {
    onOwnThread([this] {
        setWorking(false);
        endWithTitle(QStringLiteral("Analysis"), std::nullopt);
    });
}

void TWRunController::applyAfterRunPreferences() {
    const bool disablePreviews =
        m_context.preferences.boolValue(QStringLiteral("Disable Previews After Process"));
    const bool removeAll = m_context.preferences.boolValue(QStringLiteral("Remove All After Process"));
    onOwnThread([this, disablePreviews, removeAll] {
        if (disablePreviews) emit previewsDisabled();
        if (removeAll) m_context.workspace.removeAll();
    });
}

void TWRunController::endWithTitle(const QString& noun, const std::optional<LXError>& error) {
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

void TWRunController::willProcessWithAction(const TWActionBegan& began) {
    onOwnThread([this, began] {
        m_progressTitle = began.title;
        m_progressMaximum = began.maximum;
        m_progressValue = 0;
        emit progressChanged(m_progressTitle, m_progressValue, m_progressMaximum);
    });
}

void TWRunController::willProcessEntry(const TWFileEntryPtr& entry) {
    // Here, on the thread about to change the file, and not after the hand-over: once this returns the
    // player no longer reads it.
    if (TWPlaybackService* playback = m_context.workspace.playbackService())
        playback->stopPlaybackOfPath(entry->path());
    onOwnThread([this, entry] {
        TWWorkspace& workspace = m_context.workspace;
        workspace.reloadEntry(entry.get());
        emit entryProcessing(entry.get());
    });
}

void TWRunController::didProcessEntry(const TWFileEntryPtr& entry) {
    onOwnThread([this, entry] {
        m_context.workspace.reloadEntry(entry.get());
        m_progressValue = std::min(m_progressValue + 1, m_progressMaximum);
        emit progressChanged(m_progressTitle, m_progressValue, m_progressMaximum);
    });
}

void TWRunController::didProcessWithAction(const TWActionEnded& ended) {
    onOwnThread([this, ended] {
        const bool undoEnabled = m_context.preferences.boolValue(QStringLiteral("Undo Enabled"));
        if (ended.undoStep && undoEnabled)
            undoStack().push(new TWUndoProcessCommand(*this, *ended.undoStep, ended.actionName));
        if (ended.putBack) {
            // Quietly: the cancelled run's own end is still on its way to whoever waits for it.
            (void)runRecordingUndo(ended.undoInstructions, false);
            return;
        }
        if (!ended.undoInstructions.isEmpty()) {
            if (m_recordedUndo)
                m_recordedUndo->append(ended.undoInstructions);
            else if (undoEnabled)
                recordInstructionsStep(ended.undoInstructions, ended.actionName);
        }
        if (ended.results.isEmpty()) return;
        m_scriptResults.append(ended.results);
        emit scriptResultsAdded(ended.results);
    });
}

void TWRunController::reportFile(const TWFileReport& report) {
    onOwnThread([this, report] { emit fileReported(report); });
}

void TWRunController::notice(const QString& text) {
    onOwnThread([this, text] { emit noticed(text); });
}

QStringList TWRunController::takeScriptResults() {
    return std::exchange(m_scriptResults, {});
}

// Undo
// -------------------------------------------------------------------------------------------------------

QUndoStack& TWRunController::undoStack() {
    if (!m_undoStack) m_undoStack = new QUndoStack(this);
    return *m_undoStack;
}

void TWRunController::recordInstructionsStep(const QVariantList& undo, const QString& actionName) {
    const LXResult<qint64> step = m_context.journal.recordInstructions(actionName, undo);
    if (step) {
        undoStack().push(new TWUndoProcessCommand(*this, *step, actionName));
        return;
    }
    // The changes are made; only their undo is lost, which the user must hear of.
    TWAlert alert;
    alert.style = TWAlertStyle::Warning;
    alert.title = TWLocalizedString(QStringLiteral("Undo Failed"));
    alert.message = QStringLiteral("'%1' cannot be undone: %2").arg(actionName, step.error().description());
    m_context.interaction.runAlert(alert);
}

QVariantList TWRunController::runInstructionsForUndo(const QVariantList& instructions) {
    return runRecordingUndo(instructions, false);
}

void TWRunController::undoProcess(qint64 step, bool undo) {
    TWWorkspace& workspace = m_context.workspace;
    const LXStatus switched = m_context.journal.switchStep(step, undo, false, [&workspace](const TWSaveInfo& record) {
        for (const TWEntryPtr& entry : workspace.rootGroup()->entriesWithPath(record.formerLeadPath())) {
            entry->setPath(record.currentLeadPath());
            if (auto file = std::dynamic_pointer_cast<TWFileEntry>(entry))
                file->refreshNow();
            else
                entry->refresh();
            workspace.reloadEntry(entry.get());
        }
    }, [this](const QVariantList& instructions) { return runRecordingUndo(instructions, true); });
    if (!switched) {
        TWAlert alert;
        alert.style = TWAlertStyle::Critical;
        alert.title = TWLocalizedString(QStringLiteral("Undo Failed"));
        alert.message = switched.error().description();
        m_context.interaction.runAlert(alert);
    }
    QTimer::singleShot(1000, this, [this] { m_context.workspace.refreshSmartGroupEntries(); });
}

void TWRunController::undoInstructions(const QVariantList& instructions) {
    performInstructions(instructions, false);
}

QVariantList TWRunController::runRecordingUndo(const QVariantList& instructions, bool announce) {
    std::optional<QVariantList> outer = std::exchange(m_recordedUndo, QVariantList());
    // A file that cannot be set back must not keep the others from it.
    const TWRunOptions options = std::exchange(m_options, TWRunOptions{true, false, false});
    if (announce)
        performInstructions(instructions, false);
    else
        (void)runHere(instructions);
    m_options = options;
    QVariantList recorded = std::move(*m_recordedUndo);
    m_recordedUndo = std::move(outer);
    QTimer::singleShot(1000, this, [this] { m_context.workspace.refreshSmartGroupEntries(); });
    return recorded;
}

bool TWRunController::flushUndoWithInteraction(bool interactive) {
    if (interactive) {
        TWAlert alert;
        // A question, not an error; and one that cannot be taken back, so Return keeps the folder.
        alert.style = TWAlertStyle::Warning;
        alert.title = TWLocalizedString(QStringLiteral("Flush Undo Alert"));
        alert.message = TWLocalizedString(QStringLiteral("Flush Undo Message"));
        alert.buttons = {TWLocalizedString(QStringLiteral("Yes")), TWLocalizedString(QStringLiteral("No"))};
        alert.defaultButton = 1;
        if (m_context.interaction.runAlert(alert) != 0) return false;
    }
    if (const LXStatus removed = m_context.journal.removeAll(); !removed) {
        TWAlert alert;
        alert.style = TWAlertStyle::Critical;
        alert.title = TWLocalizedString(QStringLiteral("Flush Undo Alert"));
        alert.message = removed.error().description();
        m_context.interaction.runAlert(alert);
        return false;
    }
    undoStack().clear();
    return true;
}
