#pragma once

#include "engine/TWActionError.h"
#include "engine/TWEngineContext.h"
#include "engine/TWFileReport.h"

#include "model/TWEntry.h"
#include "model/TWRunService.h"

#include <QObject>
#include <QStringList>
#include <QVariantList>

#include <optional>

class QThread;
class QUndoStack;
class TWWorkThread;
struct TWRunRequest;

// What a running action tells the controller, as plain values (they cross threads).
struct TWActionBegan {
    QString title;      // the action's verb: "Normalizing..."
    qint64 maximum = 0; // the steps the progress counts: entries, or 1 for a run made as one step
};

struct TWActionEnded {
    QString actionName;
    QStringList results;            // the paths the action produced
    std::optional<qint64> undoStep; // the undo journal's step of its in-place saves, if it made any
    QVariantList undoInstructions;  // instructions that set its descriptive changes back, if any
    bool putBack = false;           // a cancelled run: run undoInstructions at once, record nothing
};

// How a front end wants its runs carried out, beyond what the instructions say.
struct TWRunOptions {
    bool keepGoing = false;     // a file that fails is skipped (its report says why) and the run goes on
    bool dryRun = false;        // files are processed into nothing: the reports say what a run would do
    bool measureLevels = false; // reports carry each file's levels before the action (one more reading)
};

// Runs, progress and undo: the engine's side of the workspace. It owns the work thread that serves one
// request at a time (a workflow run or an analysis pass), the progress a front end shows, the undo stack
// (one step per action that changed files), and the results a waiting script command collects. Lives on
// the main thread; runs report to it from the work thread through the report functions below, which hand
// the report over and never wait.
class TWRunController : public QObject, public TWRunService {
    Q_OBJECT
public:
    explicit TWRunController(const TWEngineContext& context, QObject* parent = nullptr);
    ~TWRunController() override; // stops the work thread after the request it is serving

    const TWEngineContext& context() const { return m_context; }

    // Runs --------------------------------------------------------------------------------------------
    void performInstructions(const QVariantList& instructions, bool inWorkThread) override;
    // Analyses the entries that still need it (when "Auto Analyze" is on and nothing runs), or the
    // selected ones, on the work thread.
    void analyzeEntries() override;
    void analyzeSelectedEntries() override;
    bool isWorking() const override { return m_working; }
    // Headless (the command line): no desktop notices at the end and no automatic analysis of new entries,
    // which a one-off command would only wait for.
    void setHeadless(bool headless) { m_headless = headless; }
    bool isHeadless() const { return m_headless; }
    void stopWorkThread();
    // The stop code the running work answers at its next progress report: the workspace's.
    int32_t stopCode() const;
    // Set between runs; the runs read them on the work thread.
    void setRunOptions(const TWRunOptions& options) { m_options = options; }
    const TWRunOptions& runOptions() const { return m_options; }

    // Progress and results -------------------------------------------------------------------------------
    QString progressTitle() const { return m_progressTitle; }
    qint64 progressValue() const { return m_progressValue; }
    qint64 progressMaximum() const { return m_progressMaximum; }
    // The description of the last run's error; empty after a run that succeeded.
    QString lastErrorDescription() const { return m_lastErrorDescription; }
    // The result paths of the actions run since the last take (what a waiting script command returns).
    QStringList takeScriptResults();

    // Undo -----------------------------------------------------------------------------------------------
    QUndoStack& undoStack();
    void undoProcess(qint64 step, bool undo); // switches the step's files: undo and redo alike
    // Runs the instructions of a step of descriptive changes here and now and returns those that set back
    // what they changed (the undo journal's RunInstructions).
    QVariantList runInstructionsForUndo(const QVariantList& instructions);
    // Runs instructions that set names or metadata back, here and now.
    void undoInstructions(const QVariantList& instructions) override;
    // Deletes every kept copy and forgets every step, after asking when interactive; false when the user
    // said no.
    bool flushUndoWithInteraction(bool interactive) override;

    // Reports from the running work: any thread; delivered on the controller's thread ----------------------
    void beginProcess();
    void endProcess(const std::optional<TWActionError>& error);
    void endAnalysis();
    // "Disable Previews After Process" and "Remove All After Process", after a run on the work thread.
    void applyAfterRunPreferences();
    void willProcessWithAction(const TWActionBegan& began);
    void willProcessEntry(const TWFileEntryPtr& entry);
    void didProcessEntry(const TWFileEntryPtr& entry);
    void didProcessWithAction(const TWActionEnded& ended);
    void reportFile(const TWFileReport& report);
    void notice(const QString& text);

signals:
    void workingChanged(bool working);
    void processBegan();
    void progressChanged(const QString& title, qint64 value, qint64 maximum);
    void entryProcessing(TWEntry* entry);
    // "Process successful", "Process stopped", "Process cancelled", "Error: ..."; failed for any error.
    void processEnded(const QString& title, bool failed);
    void scriptResultsAdded(const QStringList& paths);
    void fileReported(const TWFileReport& report);
    void noticed(const QString& text); // from a run, for the user: the undo folder trimmed
    void previewsDisabled();

private:
    void startWorkThread();
    void setWorking(bool working);
    void onOwnThread(std::function<void()> work);
    void endWithTitle(const QString& noun, const std::optional<LXError>& error);
    // The entries a run of the instructions draws on, as they are now.
    TWRunRequest requestFor(const QVariantList& instructions) const;
    // Runs the instructions here and now, every action whatever its "active", without reporting a run.
    std::optional<TWActionError> runHere(const QVariantList& instructions);
    // Runs them collecting the undo instructions their descriptive changes leave instead of putting them on
    // the undo stack (an undo or redo of such changes, or a cancelled run put back); announce reports the
    // run's beginning and end.
    QVariantList runRecordingUndo(const QVariantList& instructions, bool announce);
    // Puts a run's descriptive changes on the undo journal and the undo stack.
    void recordInstructionsStep(const QVariantList& undo, const QString& actionName);

    TWEngineContext m_context;
    QThread* m_workThread = nullptr;
    TWWorkThread* m_worker = nullptr;  // lives on m_workThread
    QUndoStack* m_undoStack = nullptr; // a child of the controller
    bool m_working = false;
    bool m_headless = false;
    TWRunOptions m_options;
    QStringList m_scriptResults;
    QString m_lastErrorDescription;
    QString m_progressTitle;
    qint64 m_progressValue = 0;
    qint64 m_progressMaximum = 0;
    std::optional<QVariantList> m_recordedUndo; // while runRecordingUndo runs
};
