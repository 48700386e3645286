#pragma once

#include "model/TWEntryItemModel.h"

#include <QStringList>

class TWWorkspace;

// The workspace's tree with the file list's columns (TWFileListColumns): each entry's name with its image
// and colour, its status with its progress, and its information through the workspace's formatters.
// Rows follow the workspace's change notices (TWEntryItemModel); redisplay requests become dataChanged.
//
// Editing a name goes through the workspace's rename command; sorting sets the workspace's sort order,
// which sorts every container's children within it. Drags carry the entries' paths as text/uri-list
// (and, inside the list, the private entry type while the workspace holds the drag); drops of local files
// add them, drops of the list's own rows move them. Main thread; data() reads only what the entries hold
// in memory, never a file.
class TWFileListModel : public TWEntryItemModel {
    Q_OBJECT
public:
    // The status column's value: the entry's status as a float (state and progress).
    static constexpr int StatusRole = Qt::UserRole + 1;

    explicit TWFileListModel(TWWorkspace& workspace, QObject* parent = nullptr);

    QString keyOfColumn(int column) const { return m_keys.value(column); }
    int columnOfKey(const QString& key) const { return int(m_keys.indexOf(key)); }

    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    void sort(int column, Qt::SortOrder order = Qt::AscendingOrder) override;

    QStringList mimeTypes() const override;
    // Begins the workspace's drag when the rows may move: the caller ends it once the drag is over.
    QMimeData* mimeData(const QModelIndexList& indexes) const override;
    bool canDropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                         const QModelIndex& parent) const override;
    bool dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                      const QModelIndex& parent) override;
    Qt::DropActions supportedDropActions() const override;
    Qt::DropActions supportedDragActions() const override;

private:
    void entryChanged(TWEntry* entry, bool withChildren);
    QVariant statusData(const TWEntry& entry, int role) const;

    TWWorkspace& m_workspace;
    QStringList m_keys;
};
