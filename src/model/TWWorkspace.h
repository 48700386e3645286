#pragma once

#include "model/TWEntry.h"

#include <QObject>
#include <QStringList>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>

#include "lx/LXAudioFile.h"
#include "lx/LXError.h"

class QThread;
class QUndoStack;
class TWFileEntry;
class TWWorkThread;
class TWFormatters;
class TWGroupEntry;
class TWSmartGroupEntry;

// The one workspace: the root of the entry tree, the selection, the shared formatters, the stop code,
// and every command that changes the file list. It never touches a widget: the window (and the command
// line) observe it through its signals and call its commands.
//
// Threads: the commands, the tree's structure and the selection belong to the main thread. The work
// thread reads stopWorking() (atomic), may call reloadEntry()/reloadEntryAndChildren() (queued to the
// main thread) and copies selectedFileEntries() or fileEntries() on the main thread when a run starts.
class TWWorkspace : public QObject {
    Q_OBJECT
public:
    static TWWorkspace& workspace();

    // The tree -----------------------------------------------------------------------------------------
    std::shared_ptr<TWGroupEntry> rootGroup() const { return m_rootGroup; }
    const QList<TWEntryPtr>& entries() const;
    // Every file entry of the tree, depth first, each once.
    QList<TWFileEntryPtr> fileEntries() const;
    // For each path the first entry of the tree with that path; paths not in the tree are skipped.
    QList<TWEntryPtr> entriesFromPaths(const QStringList& paths) const;

    TWFormatters& formatters() const { return *m_formatters; }
    // The file table's sort order; folders, servers and smart groups sort their children with it.
    QList<TWSortDescriptor> sortDescriptors() const;
    void setSortDescriptors(const QList<TWSortDescriptor>& descriptors);

    // Selection (the selected rows, in row order) -----------------------------------------------------
    const QList<TWEntryPtr>& selectedEntries() const { return m_selectedEntries; }
    void setSelectedEntries(const QList<TWEntryPtr>& entries);
    void clearSelection() { setSelectedEntries({}); }
    // The file entries under the selection, each once: a container gives all its file entries.
    const QList<TWFileEntryPtr>& selectedFileEntries() const { return m_selectedFileEntries; }
    TWFileEntryPtr selectedFileEntry() const; // the first, or nullptr
    std::unique_ptr<LXAudioFile> selectedAudioFile() const;

    // Work ---------------------------------------------------------------------------------------------
    // The code every progress delegate answers: LXContinue (-1002) to go on, LXStopped, LXCancelled...
    int32_t stopWorking() const { return m_stopWorking.load(std::memory_order_relaxed); }
    void setStopWorking(int32_t code) { m_stopWorking.store(code, std::memory_order_relaxed); }
    bool isWorking() const { return m_isWorking.load(std::memory_order_relaxed); }
    void setWorking(bool working);

    // Redisplay requests; safe from any thread (delivered on the main thread, never waiting). An entry
    // released before delivery is not announced.
    void reloadEntry(TWEntry* entry);
    void reloadEntryAndChildren(TWEntry* entry);
    void reloadAll();

    // Add position ---------------------------------------------------------------------------------------
    bool canAddEntries() const;
    TWEntry* parentForEntryAdd() const;
    std::optional<qsizetype> indexForEntryAdd() const;

    // File commands (main thread) ------------------------------------------------------------------------
    // Adds files, folders and old ".clipwright" lists to target (nullptr: the root) from index (-1: the
    // end), in order. A ".twwf" workflow adds nothing and is announced by workflowFileDropped. Missing
    // paths and refused files are skipped; items on a read-only volume are skipped with one alert.
    QList<TWEntryPtr> addFiles(const QStringList& paths, TWEntry* target = nullptr, qsizetype index = -1);
    QList<TWEntryPtr> addFilesAfterSelectedEntry(const QStringList& paths);
    std::shared_ptr<TWGroupEntry> addFilesToNewGroup(const QStringList& paths);
    std::shared_ptr<TWGroupEntry> newGroup(); // nullptr when adding is not allowed here
    // Puts a smart group (edited and confirmed by the caller) at the add position; false when adding is
    // not allowed. A group whose query never ran is run.
    bool newSmartGroup(const std::shared_ptr<TWSmartGroupEntry>& entry);
    void refreshSmartGroup(); // the selected smart groups
    void convertToGroup();    // each selected entry becomes a plain group with its name and children
    void remove();            // removes the selected rows that may go; files stay on disk
    void removeAll();
    bool deleteSelected(); // asks, then deletes the files of the selected rows; true when it went ahead
    void moveToTrash();
    void moveTo(const QString& directory);
    // Copies the selected entries into the directory; with intoNewGroup the copies are collected in a new
    // group "Copied items" appended to the root (returned).
    std::shared_ptr<TWGroupEntry> copyTo(const QString& directory, bool intoNewGroup);
    void openInFinder();
    void showInFinder();
    void openWithApplication(const QString& application);
    void repair();
    void analyze();
    void refreshEntries();
    void refreshSmartGroupEntries();
    // A name typed in the table: a folder renames its directory, a file asks for a rename workflow
    // (renameFileRequested), any other entry takes the name.
    void renameEntry(const TWEntryPtr& entry, const QString& name);

    // "%1 of %2 selected" or "%1 item(s)". Rows are the root's children and, below an expanded
    // container, its children: what an outline view shows.
    QString infoText() const;
    qsizetype visibleRowCount() const;
    void updateFilesTableInfoText();

    // An internal drag: the rows' common parent and the rows, while the drag lasts.
    bool beginDrag(const QList<TWEntryPtr>& entries);
    void endDrag();
    TWEntry* draggingParent() const { return m_draggingParent; }
    const QList<TWEntryPtr>& draggingEntries() const { return m_draggingEntries; }

    // Runs, progress and undo (TWWorkspaceActions.cpp, in the engine) ---------------------------------------
    // Starts the work thread that serves runs and analysis passes, one request at a time.
    void startWorkThread();
    // Stops it, after the request it is serving (set the stop code first to end that sooner).
    void stopWorkThread();
    // Runs a list of instructions dictionaries: handed to the work thread (returns at once), or run here
    // and now, every action regardless of "active", without the after-run preferences.
    void performInstructions(const QVariantList& instructions, bool inWorkThread);
    void stopWorkflow() { setStopWorking(LXStopped); }
    void cancelWorkflow() { setStopWorking(LXCancelled); }
    // Hands the entries that still need it (or the selection) to the work thread for analysis; the
    // former only when "Auto Analyze" is on and nothing runs.
    void analyzeEntries();
    void analyzeSelectedEntries();

    // The work thread's and the processing loop's reports, always delivered on the main thread.
    void beginProcess();
    // The run's error, if any (its message is the failure reason), and its whole description.
    void endProcess(const std::optional<LXError>& error, const QString& description = {});
    // The description of the last run's error; empty after a run that succeeded.
    QString lastErrorDescription() const { return m_lastErrorDescription; }
    // Headless (the command line): no desktop notices at the end of runs and no automatic analysis of new
    // entries, which a one-off command would only wait for.
    void setHeadless(bool headless) { m_headless = headless; }
    bool isHeadless() const { return m_headless; }
    void endAnalysis();
    void willProcessWithAction(const QVariantMap& info); // "title", "maximum"
    void willProcessEntry(const TWFileEntryPtr& entry);
    void didProcessEntry(const TWFileEntryPtr& entry);
    // "actionName", "results" (paths), "undoStep" (the undo journal's step, absent when there is nothing
    // to undo), "undoSelector".
    void didProcessWithAction(const QVariantMap& info);
    void disablePreviews() { emit previewsDisabled(); }

    // Undo and redo of in-place runs: one step on the undo stack per action run.
    QUndoStack& undoStack();
    void undoProcess(qint64 step); // switches the step's files (undo and redo alike)
    // Runs instructions that restore names or metadata, here and now; they record their own redo step.
    void undoInstructions(const QVariantList& instructions);
    // Deletes every kept copy and forgets every step, after asking when interactive; false when the
    // user said no.
    bool flushUndoWithInteraction(bool interactive);

    // The result paths of the actions run since the last take (what a waiting script command returns).
    QStringList takeScriptResults();
    QString progressTitle() const { return m_progressTitle; }
    qint64 progressValue() const { return m_progressValue; }
    qint64 progressMaximum() const { return m_progressMaximum; }

    // Persistence under the preference "Entries" ---------------------------------------------------------
    bool saveEntries(); // writes the root's state and synchronises the preferences
    void loadEntries(); // rebuilds the tree from the preferences, then refreshes every entry

signals:
    void entryChanged(TWEntry* entry);
    void entryAndChildrenChanged(TWEntry* entry);
    void entriesReloaded(); // the whole tree may have changed
    void selectionChanged();
    void workingChanged(bool working);
    void infoTextChanged(const QString& text);
    void workflowFileDropped(const QString& path);
    // The window selects the new row and starts editing its name.
    void editNameRequested(TWEntry* entry);
    // Commands that reach beyond the file list: playback, the analysis of new entries (status 1) and of
    // the selection, and a one-action rename workflow (its instructions).
    void stopPlaybackRequested();
    void analyzeEntriesRequested();
    void analyzeSelectionRequested();
    void renameFileRequested(const QVariantMap& instructions);
    // Runs: began, the progress view's title/value/maximum changed, an entry is being processed, ended
    // (title "Process successful", "Process stopped", "Error: ..."; failed for any error).
    void processBegan();
    void progressChanged(const QString& title, qint64 value, qint64 maximum);
    void entryProcessing(TWEntry* entry);
    void processEnded(const QString& title, bool failed);
    void scriptResultsAdded(const QStringList& paths);
    void previewsDisabled();

private:
    TWWorkspace();
    ~TWWorkspace() override;
    void postReload(TWEntry* entry, bool withChildren);
    void visibleRows(const TWEntry& entry, qsizetype& count) const;

    std::shared_ptr<TWGroupEntry> m_rootGroup;
    QList<TWEntryPtr> m_selectedEntries;
    QList<TWFileEntryPtr> m_selectedFileEntries;
    std::unique_ptr<TWFormatters> m_formatters;
    mutable std::mutex m_sortMutex;
    QList<TWSortDescriptor> m_sortDescriptors;
    std::atomic<int32_t> m_stopWorking;
    std::atomic<bool> m_isWorking{false};
    TWEntry* m_draggingParent = nullptr;
    QList<TWEntryPtr> m_draggingEntries;

    // Run state (main thread only).
    QThread* m_workThread = nullptr;
    TWWorkThread* m_worker = nullptr;  // lives on m_workThread
    QUndoStack* m_undoStack = nullptr; // a child of the workspace
    QStringList m_scriptResults;
    QString m_lastErrorDescription;
    bool m_headless = false;
    QString m_progressTitle;
    qint64 m_progressValue = 0;
    qint64 m_progressMaximum = 0;
    void endWithTitle(const QString& noun, const std::optional<LXError>& error);
};
