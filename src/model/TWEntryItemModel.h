#pragma once

#include "model/TWEntry.h"

#include <QAbstractItemModel>
#include <QPersistentModelIndex>

#include <memory>
#include <utility>

class TWWorkspace;

// The workspace's tree as an item model: one row per entry, one column (the name), kept in step by the
// workspace's entries... signals. The window's file list adds its columns (columnCount and data); it
// holds no widgets.
//
// A container whose children are replaced wholesale in a new order (a sort) is a layout change of
// that container: persistent indexes follow the entries that stay, and those of entries that left become
// invalid. Main thread.
class TWEntryItemModel : public QAbstractItemModel {
    Q_OBJECT
public:
    explicit TWEntryItemModel(TWWorkspace& workspace, QObject* parent = nullptr);

    TWEntry* entry(const QModelIndex& index) const; // the root for an invalid index
    // Invalid for the root and for an entry that is not in the tree.
    QModelIndex indexOfEntry(const TWEntry* entry, int column = 0) const;

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;

private:
    void beginLayoutChange(const QList<TWEntry*>& parents);
    void endLayoutChange();

    TWWorkspace& m_workspace;
    TWEntry* m_root;
    QList<QPersistentModelIndex> m_layoutParents;
    QList<std::pair<QModelIndex, std::weak_ptr<TWEntry>>> m_changing; // during a layout change
    bool m_moveAsLayout = false;
};
