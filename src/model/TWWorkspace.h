#pragma once

#include "model/TWEntry.h"
#include "model/TWEntryObserver.h"
#include "model/TWPlaybackService.h"
#include "model/TWRunService.h"

#include <QObject>
#include <QStringList>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>

#include "lx/LXAudioFile.h"
#include "lx/LXError.h"

class TWFileEntry;
class TWFormatters;
class TWGroupEntry;
class TWSmartGroupEntry;
class TWEntriesStore;

// The one workspace: the root of the entry tree, the selection, the shared formatters, the stop code,
// and every command that changes the file list. Runs, analysis and undo keep their names here but are
// carried out by the run service (the engine's run controller). It never touches a widget: the window
// (and the command line) observe it through its signals and call its commands.
//
// Every change to the tree's structure, whoever makes it, is announced by the entries... signals below,
// before and after, as an item model needs them; the other signals ask for redisplay only.
//
// Threads: the commands, the tree's structure and the selection belong to the main thread. The work
// thread reads stopWorking() (atomic), may call reloadEntry()/reloadEntryAndChildren() (queued to the
// main thread) and copies selectedFileEntries() or fileEntries() on the main thread when a run starts.
class TWWorkspace : public QObject, private TWEntryObserver {
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

    // Runs, analysis and undo: handed to the run service (the engine's run controller, set at start-up);
    // without one they do nothing.
    void setRunService(TWRunService* service) { m_runService = service; }
    TWRunService* runService() const { return m_runService; }
    void performInstructions(const QVariantList& instructions, bool inWorkThread);
    void stopWorkflow() { setStopWorking(LXStopped); }
    void cancelWorkflow() { setStopWorking(LXCancelled); }
    void analyzeEntries();
    void analyzeSelectedEntries();
    void undoInstructions(const QVariantList& instructions);
    bool flushUndoWithInteraction(bool interactive);
    bool isWorking() const;

    // Playback: handed to the player (set at start-up; without one nothing plays). The service may be
    // read from the work thread, to stop a playback before a file changes.
    void setPlaybackService(TWPlaybackService* service) { m_playbackService.store(service); }
    TWPlaybackService* playbackService() const { return m_playbackService.load(); }
    LXRange playRange();
    void play();
    void playAll();
    void playFrom(double seconds);
    void playRange(const LXRange& range, int midiNote = TWPlaybackService::kNoMidiNote);
    void stop();
    void updateRepeats();

    // Persistence: the file list's own file (TWEntriesStore), read when the window opens and written when
    // it closes; nothing else reads it.
    bool saveEntries();             // writes the root's state
    void loadEntries();             // rebuilds the tree from the stored state, then refreshes every entry
    TWEntriesStore& entriesStore(); // beside the preferences

signals:
    // The children of parent change: rows first..last (inclusive) come or go; rows first..last of
    // sourceParent go before destinationRow of destinationParent (counted before the move); or parent's
    // children are replaced wholesale (entriesReset). The "AboutTo" signal comes while the tree is still
    // as it was. Main thread.
    void entriesAboutToBeInserted(TWEntry* parent, qsizetype first, qsizetype last);
    void entriesInserted(TWEntry* parent, qsizetype first, qsizetype last);
    void entriesAboutToBeRemoved(TWEntry* parent, qsizetype first, qsizetype last);
    void entriesRemoved(TWEntry* parent, qsizetype first, qsizetype last);
    void entriesAboutToBeMoved(TWEntry* sourceParent, qsizetype first, qsizetype last,
                               TWEntry* destinationParent, qsizetype destinationRow);
    void entriesMoved(TWEntry* sourceParent, qsizetype first, qsizetype last, TWEntry* destinationParent,
                      qsizetype destinationRow);
    void entriesAboutToBeReset(TWEntry* parent);
    void entriesReset(TWEntry* parent);

    // Redisplay: an entry's own data, or also its children's, or every row's, may have changed.
    void entryChanged(TWEntry* entry);
    void entryAndChildrenChanged(TWEntry* entry);
    void entriesReloaded();
    void selectionChanged();
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

private:
    TWWorkspace();
    ~TWWorkspace() override;
    void postReload(TWEntry* entry, bool withChildren);
    void visibleRows(const TWEntry& entry, qsizetype& count) const;

    // TWEntryObserver: the root's changes, as signals.
    void willInsertEntries(TWEntry& parent, qsizetype first, qsizetype last) override;
    void didInsertEntries(TWEntry& parent, qsizetype first, qsizetype last) override;
    void willRemoveEntries(TWEntry& parent, qsizetype first, qsizetype last) override;
    void didRemoveEntries(TWEntry& parent, qsizetype first, qsizetype last) override;
    void willMoveEntries(TWEntry& source, qsizetype first, qsizetype last, TWEntry& destination,
                         qsizetype destinationRow) override;
    void didMoveEntries(TWEntry& source, qsizetype first, qsizetype last, TWEntry& destination,
                        qsizetype destinationRow) override;
    void willResetEntries(TWEntry& parent) override;
    void didResetEntries(TWEntry& parent) override;

    std::shared_ptr<TWGroupEntry> m_rootGroup;
    QList<TWEntryPtr> m_selectedEntries;
    QList<TWFileEntryPtr> m_selectedFileEntries;
    std::unique_ptr<TWFormatters> m_formatters;
    mutable std::mutex m_sortMutex;
    QList<TWSortDescriptor> m_sortDescriptors;
    std::atomic<int32_t> m_stopWorking;
    TWEntry* m_draggingParent = nullptr;
    QList<TWEntryPtr> m_draggingEntries;
    std::unique_ptr<TWEntriesStore> m_entriesStore;

    TWRunService* m_runService = nullptr;
    std::atomic<TWPlaybackService*> m_playbackService{nullptr};
};
