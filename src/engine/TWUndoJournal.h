#pragma once

#include "engine/TWSaveInfo.h"

#include "lx/LXResult.h"

#include <QList>
#include <QMutex>
#include <QString>
#include <QVariantList>

#include <functional>
#include <optional>

// The undo steps of in-place runs, kept on disk in the undo folder so that they outlive the process: the
// command line undoes the last run of an earlier invocation, and a run killed half-way leaves a step that
// undoes the files it had replaced.
//
// The file is an append-only log of JSON lines: a record is on disk before the file it describes is
// replaced, and a line torn by a crash is ignored on reading. Thread-safe: the work thread records saves
// while the main thread undoes.
//
// Undo and redo switch a step's files as one transaction: the plan (every record as it is to be, its
// kept copies named in advance) goes on record first, each file's switch as it is made, the step's new
// state last. A switch interrupted at any point is finished by the next undo, redo or run, from the plan
// and what the disk shows.
//
// Steps are undone in the order their runs ended (a run killed half-way: its last save), not begun: a
// run holds every file it changed until it ends (TWFileLocks), so for each file that is the order of its
// changes even when runs overlap.
class TWFileLocks;

class TWUndoJournal {
public:
    struct Step {
        qint64 id = 0;
        QString actionName;
        QList<TWSaveInfo> records;
        bool undone = false;
        qint64 order = 0;    // the last line about it: the later, the sooner undone (or redone)
        qint64 runOrder = 0; // the last line of its run: a run after an undo ends the redo
        bool closed = false; // its run ended (not one still going, or killed)
        // An undo or redo begun and not finished: the records as they are to be, and which are so already.
        struct Switch {
            bool undone = false;
            QList<TWSaveInfo> planned;
            QList<bool> made;
        };
        std::optional<Switch> interrupted;
        // A step of descriptive changes (names, metadata) keeps no copies: it holds the instructions that
        // switch it (while done, those that set the old values back; once undone, those that redo it).
        QVariantList instructions;
        bool hasChanges() const { return !records.isEmpty() || !instructions.isEmpty(); }
        qsizetype fileCount() const { return records.isEmpty() ? instructions.size() : records.size(); }
    };

    explicit TWUndoJournal(const QString& path);
    static TWUndoJournal& shared(); // "Journal" in the undo folder
    QString path() const { return m_path; }

    // Both fail when the line cannot be written to the disk whole: a file whose save is not on record
    // must not be replaced.
    LXResult<qint64> beginStep(const QString& actionName);
    LXStatus recordSave(qint64 step, const TWSaveInfo& info);
    // Takes back a recorded save that did not happen (its new files could not take their paths).
    void forgetSave(qint64 step, const TWSaveInfo& info);
    // Ends a step whose saves stay (a run that ended, stopped or failed): the steps undone before it can
    // no longer be redone, so their copies are deleted. Not before: a cancelled run leaves them as they were.
    // With a size limit (bytes, 0 for none), the oldest steps are then dropped, their copies deleted, until
    // the kept copies fit; never the step itself.
    struct Trim {
        int steps = 0;
        qint64 bytes = 0;
    };
    Trim closeStep(qint64 step, qint64 sizeLimit = 0);
    // Records a closed step of descriptive changes with the instructions that set them back.
    LXResult<qint64> recordInstructions(const QString& actionName, const QVariantList& undo);
    // Forgets a step whose saves were put back (a cancelled run).
    void discardStep(qint64 step);

    QList<Step> steps() const;
    std::optional<Step> lastDoneStep() const;    // what undo would undo
    std::optional<Step> firstUndoneStep() const; // what redo would redo: none once a later step is done

    using Repoint = std::function<void(const TWSaveInfo&)>;
    // Runs instructions of descriptive changes and returns those that set back what they changed.
    using RunInstructions = std::function<QVariantList(const QVariantList&)>;
    // Switches every file of the step (undo and redo alike) and records the new state, unless the step is
    // in the state wanted already. repoint is called
    // for each record switched, to show the entries the new paths. A switch interrupted earlier is finished
    // first. When a file cannot be switched (gone, changed since, its kept copy gone, or held by a run now)
    // nothing is changed and the error names every such file, unless `force`: then the files held by a run
    // still stop it, the others are switched, a file gone has its former version put back, and a file
    // whose kept copy is gone leaves the step as it is.
    // `undone`: the state wanted (undo: true), so that a switch asked twice does not go back and forth.
    // A step of descriptive changes is switched by running its instructions through `run`, with no lock
    // held (the actions they run take their own); the instructions they leave switch it back.
    LXStatus switchStep(qint64 id, bool undone, bool force = false, const Repoint& repoint = {},
                        const RunInstructions& run = {});
    // Finishes an interrupted undo or redo: the step as it now is, or nothing when none was interrupted.
    LXResult<std::optional<Step>> finishInterrupted(bool force = false, const Repoint& repoint = {});

    // Deletes every undo copy and the journal itself; refused while a run or an undo holds files.
    LXStatus removeAll();

private:
    QList<Step> load() const;
    LXStatus append(const QVariantMap& line);
    QList<Step>::iterator find(QList<Step>& steps, qint64 id) const;
    LXStatus finishSwitch(Step& step, bool force, const Repoint& repoint, TWFileLocks& locks);
    LXStatus switchInstructions(const Step& step, bool undone, bool force, const RunInstructions& run);

    QString m_path;
    mutable QMutex m_mutex;
};
