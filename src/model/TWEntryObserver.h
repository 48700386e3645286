#pragma once

#include <QtGlobal>

class TWEntry;

// Told of every change to the children of a container in one tree, before and after it, with what an
// item model needs: rows are indexes in the container's children; `last` is inclusive.
//
// A tree has at most one observer, set on its root (TWEntry::setObserver); a change below the root
// reaches it through the parents. Changes in a subtree that is not (or no longer) in the tree are not
// told. Each "will" is followed by its "did" before any other change is told, and every entry named in a
// "will" stays alive until the matching "did". Called on the thread that changes the tree: the main
// thread.
class TWEntryObserver {
public:
    // Rows first..last of parent are new.
    virtual void willInsertEntries(TWEntry& parent, qsizetype first, qsizetype last) = 0;
    virtual void didInsertEntries(TWEntry& parent, qsizetype first, qsizetype last) = 0;
    // Rows first..last of parent go.
    virtual void willRemoveEntries(TWEntry& parent, qsizetype first, qsizetype last) = 0;
    virtual void didRemoveEntries(TWEntry& parent, qsizetype first, qsizetype last) = 0;
    // Rows first..last of source go to destination, before what is at destinationRow there now (counted
    // before the move, as QAbstractItemModel::beginMoveRows counts).
    virtual void willMoveEntries(TWEntry& source, qsizetype first, qsizetype last, TWEntry& destination,
                                 qsizetype destinationRow) = 0;
    virtual void didMoveEntries(TWEntry& source, qsizetype first, qsizetype last, TWEntry& destination,
                                qsizetype destinationRow) = 0;
    // The children of parent are replaced wholesale (a folder read again, a sort, a rebuilt tree): some
    // may stay, in another order, some go, some are new.
    virtual void willResetEntries(TWEntry& parent) = 0;
    virtual void didResetEntries(TWEntry& parent) = 0;

protected:
    ~TWEntryObserver() = default;
};
