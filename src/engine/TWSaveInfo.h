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
};
