#pragma once

#include "engine/TWSaveInfo.h"

#include "lx/LXResult.h"

#include <QList>
#include <QMutex>
#include <QString>

#include <functional>
#include <optional>

// The undo steps of in-place runs, kept on disk in the undo folder so that they outlive the process: the
// command line undoes the last run of an earlier invocation, and a run killed half-way leaves a step that
// undoes the files it had replaced.
//
// The file is an append-only log of JSON lines: a record is on disk before the file it describes is
// replaced, and a line torn by a crash is ignored on reading. Thread-safe: the work thread records saves
// while the main thread undoes.
class TWUndoJournal {
public:
    struct Step {
        qint64 id = 0;
        QString actionName;
        QList<TWSaveInfo> records;
        bool undone = false;
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
    void closeStep(qint64 step);
    // Forgets a step whose saves were put back (a cancelled run).
    void discardStep(qint64 step);

    QList<Step> steps() const;
    std::optional<Step> lastDoneStep() const;    // what undo would undo
    std::optional<Step> firstUndoneStep() const; // what redo would redo: none once a later step is done

    // Switches every file of the step (undo and redo alike) and records the new state. repoint is called
    // for each record switched, to show the entries the new paths.
    LXStatus switchStep(qint64 id, const std::function<void(const TWSaveInfo&)>& repoint = {});

    // Deletes every undo copy and the journal itself.
    LXStatus removeAll();

private:
    QList<Step> load() const;
    LXStatus append(const QVariantMap& line);
    QList<Step>::iterator find(QList<Step>& steps, qint64 id) const;

    QString m_path;
    mutable QMutex m_mutex;
};
