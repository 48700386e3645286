#pragma once

#include "lx/LXResult.h"

#include <QStringList>
#include <QVariantMap>

class LXAudioFile;

// The record of one in-place save: where the files are now (current), where they were before the last
// change (former) and the copies of the former files kept in the undo folder (undo; undoPaths[i] belongs
// to formerPaths[i]). A split set has one path per channel; the first path of a list is its lead path.
//
// switchPaths() is its own inverse: undo and redo are the same operation. Every change keeps a whole
// file at every path that should have one: copies are linked into the undo folder first and files come
// back with an atomic rename over what is there, so a crash at any moment loses neither version.
class TWSaveInfo {
public:
    const QStringList& currentPaths() const { return m_current; }
    const QStringList& formerPaths() const { return m_former; }
    const QStringList& undoPaths() const { return m_undo; }
    QString currentLeadPath() const { return m_current.value(0); }
    QString formerLeadPath() const { return m_former.value(0); }

    void addCurrentPathsFromAudioFile(const LXAudioFile& file);

    // A copy of the file under a fresh name in the undo folder ("name_<microseconds>.ext"), by a hard
    // link where the file system allows it, else by copying. The file stays where it is.
    static LXResult<QString> copyPathToUndo(const QString& path);
    // The name an undo copy of path gets at the given time.
    static QString undoName(const QString& path, double microseconds);

    // What the files at the current paths were when this record was made: size, modification time and a
    // fingerprint (LXFile::fingerprintOfPath). A file that no longer matches was changed by someone else.
    const QStringList& currentStamps() const { return m_stamps; }
    void stampCurrentFrom(const QStringList& paths); // the files that take the current paths
    static QString stampOf(const QString& path);     // empty when the file is missing

    // Why switchPaths() cannot be made now, in words (empty when it can): a current file gone or changed
    // since, a kept copy gone. A record whose save never happened (its current file is still the kept
    // copy: a run killed before its rename) gives neverSaved.
    QString obstacle() const;
    bool neverSaved() const;
    bool canRestore() const; // the kept copies are all there (the current files may not be)
    bool currentFilesExist() const;

    // A switch made resumable: planSwitch() gives the record as it will be (kept copies named in advance;
    // withoutCopies: the current files are gone and only the former ones come back), which goes on record
    // before switchTo() makes it so. switchTo() can be repeated after an interruption at any point, and
    // finishes what the last attempt began.
    TWSaveInfo planSwitch(bool withoutCopies = false) const;
    LXStatus switchTo(const TWSaveInfo& planned);

    // Sets the record for a save that replaces `former` by `current`, with the undo copies of `former`.
    void setPaths(const QStringList& current, const QStringList& former, const QStringList& undo);
    // Swaps the saved files and the kept copies: the current files go to the undo folder, the former
    // ones come back.
    LXStatus switchPaths();
    // Puts the former files back and deletes the current ones (a cancelled save).
    LXStatus restorePaths();
    // Moves the undo copies back to the former paths, without touching the current paths.
    LXStatus moveUndoPathsToFormer();
    void removeUndoPaths();
    static void removeFilesAtPaths(const QStringList& paths);

    QVariantMap toPropertyList() const;
    static TWSaveInfo fromPropertyList(const QVariantMap& map);
    bool operator==(const TWSaveInfo&) const = default;

private:
    QStringList m_current;
    QStringList m_former;
    QStringList m_undo;
    QStringList m_stamps; // of the current files, when known
};
