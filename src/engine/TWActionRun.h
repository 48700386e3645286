#pragma once

#include "engine/TWActionError.h"
#include "engine/TWOutcome.h"
#include "engine/TWRunController.h"

#include "model/TWEntry.h"
#include "model/TWFileEntry.h"

#include <QList>
#include <QVariantMap>

#include <optional>

class LXAudioFile;
class LXAudioFileWriter;
class TWAction;

// One action's run over its entries: what every shape of loop shares. It reads the destination, confirms
// it and the instructions, reports to the run controller (the beginning, each entry, the end with the
// results and what undoes them), makes the entries of new files, and turns an outcome into the action's
// error. A shape makes one on the thread that runs the action.
class TWActionRun {
public:
    TWActionRun(TWAction& action, TWRunController& runs, const QVariantMap& instructions);

    TWAction& action() const { return m_action; }
    const QVariantMap& instructions() const { return m_instructions; }
    const TWEngineContext& context() const { return m_runs.context(); }
    QString directory() const { return m_directory; } // the chosen folder, or empty
    bool toNewFile() const { return m_toNewFile; }    // forced for actions that only make new files
    // Where the new files of an entry go: the chosen folder, or the entry's own.
    QString folderFor(const TWFileEntry& entry) const;

    // Confirms, before anything is announced or touched, the destination (a chosen folder must exist;
    // without one, with checkSources, the folder of every entry must be writable), then the instructions.
    std::optional<TWActionError> confirm(const QList<TWFileEntryPtr>& entries, bool checkSources) const;
    // Removes what killed runs left in the folders this run writes to.
    void sweepTemporaryFiles(const QList<TWFileEntryPtr>& entries) const;

    // Reports.
    void willProcess(qsizetype steps);
    void willProcessEntry(const TWFileEntryPtr& entry);
    void didProcessEntry(const TWFileEntryPtr& entry);
    // The end, with the results and what undoes the run: a step of the undo journal or instructions (which
    // the controller runs at once instead when putBack: a cancelled run of descriptive changes).
    void didProcess(const QList<TWFileEntryPtr>& results, std::optional<qint64> undoStep = {},
                    const QVariantList& undoInstructions = {}, bool putBack = false);

    const TWRunOptions& options() const { return m_runs.runOptions(); }
    // What became of one file: the report goes to the controller under the action's name.
    void reportFile(TWFileReport report);
    void notice(const QString& text); // something the user should know that is no file's report
    // A dry run of a shape that cannot process into nothing (it combines, renames or hands files on): each
    // entry is reported untried and handed on as it is.
    void reportUntried(const QList<TWFileEntryPtr>& entries, QList<TWFileEntryPtr>& results);

    // The stop or cancel asked for since the run began, or success.
    TWOutcome stopRequested() const;
    // The action's error for an outcome that did not go on, in the phase given; nothing for success.
    static std::optional<TWActionError> errorFor(const TWOutcome& outcome, const QString& phase);

    // New files: the writer saved under the first free name (or the unchanged source copied) in the
    // entry's destination, as an entry inserted after the source unless "addToList" is NO.
    LXResult<TWFileEntryPtr> newEntryFromSource(LXAudioFileWriter& writer, const TWFileEntryPtr& entry);
    LXResult<TWFileEntryPtr> newEntryFromSource(LXAudioFile& file, const TWFileEntryPtr& entry);
    // Where those would put the output, without saving anything (a dry run).
    QString newFilePathFor(const LXAudioFileWriter& writer, const TWFileEntry& entry) const;
    QString newFilePathFor(const LXAudioFile& file, const TWFileEntry& entry) const;
    // The entry of a new file at path (made by the action itself), joining the tree after its source
    // unless "addToList" is NO.
    TWFileEntryPtr adoptNewFile(const QString& path, const TWFileEntryPtr& source);
    // Shows every entry of the tree whose path is `from` at `to` (on the main thread).
    void repointEntries(const QString& from, const QString& to);

private:
    void onMainThread(std::function<void()> work) const;
    QString proposedPathFor(const TWFileEntry& entry) const; // the entry's name in its destination

    TWAction& m_action;
    TWRunController& m_runs;
    QVariantMap m_instructions;
    QVariantMap m_destination;
    QString m_directory;
    bool m_toNewFile = false;
};

// Marks an entry as being processed for as long as it lives (an entry listed twice is pushed once).
class TWBusyEntry : public TWPushedStatus {
public:
    explicit TWBusyEntry(TWFileEntry& entry) : TWPushedStatus(entry, TWStatus::Processing) {}
};
