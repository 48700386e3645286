#include "model/TWEntryItemModel.h"

#include "model/TWGroupEntry.h"
#include "model/TWWorkspace.h"

TWEntryItemModel::TWEntryItemModel(TWWorkspace& workspace, QObject* parent)
    : QAbstractItemModel(parent), m_workspace(workspace), m_root(workspace.rootGroup().get()) {
    connect(&workspace, &TWWorkspace::entriesAboutToBeInserted, this,
            [this](TWEntry* container, qsizetype first, qsizetype last) {
                beginInsertRows(indexOfEntry(container), int(first), int(last));
            });
    connect(&workspace, &TWWorkspace::entriesInserted, this, [this] { endInsertRows(); });
    connect(&workspace, &TWWorkspace::entriesAboutToBeRemoved, this,
            [this](TWEntry* container, qsizetype first, qsizetype last) {
                beginRemoveRows(indexOfEntry(container), int(first), int(last));
            });
    connect(&workspace, &TWWorkspace::entriesRemoved, this, [this] { endRemoveRows(); });
    connect(&workspace, &TWWorkspace::entriesAboutToBeMoved, this,
            [this](TWEntry* source, qsizetype first, qsizetype last, TWEntry* destination, qsizetype row) {
                // Qt refuses some moves a tree allows (into a row's own subtree); those become layouts.
                m_moveAsLayout = !beginMoveRows(indexOfEntry(source), int(first), int(last),
                                                indexOfEntry(destination), int(row));
                if (m_moveAsLayout) beginLayoutChange({source, destination});
            });
    connect(&workspace, &TWWorkspace::entriesMoved, this, [this] {
        if (m_moveAsLayout)
            endLayoutChange();
        else
            endMoveRows();
    });
    // A reset keeps the entries that stay where they are for the view: its selection and expanded rows.
    connect(&workspace, &TWWorkspace::entriesAboutToBeReset, this,
            [this](TWEntry* container) { beginLayoutChange({container}); });
    connect(&workspace, &TWWorkspace::entriesReset, this, [this] { endLayoutChange(); });
}

TWEntry* TWEntryItemModel::entry(const QModelIndex& index) const {
    return index.isValid() ? static_cast<TWEntry*>(index.internalPointer()) : m_root;
}

QModelIndex TWEntryItemModel::indexOfEntry(const TWEntry* entry, int column) const {
    if (!entry || entry == m_root || entry->observer() != m_root->observer()) return {};
    return createIndex(int(entry->row()), column, const_cast<TWEntry*>(entry));
}

QModelIndex TWEntryItemModel::index(int row, int column, const QModelIndex& parent) const {
    if (column < 0 || column >= columnCount(parent) || (parent.isValid() && parent.column() != 0)) return {};
    const TWEntryPtr child = entry(parent)->entryAtIndex(row);
    return child ? createIndex(row, column, child.get()) : QModelIndex();
}

QModelIndex TWEntryItemModel::parent(const QModelIndex& child) const {
    if (!child.isValid()) return {};
    TWEntry* parent = entry(child)->parent();
    if (!parent || parent == m_root) return {};
    return createIndex(int(parent->row()), 0, parent);
}

int TWEntryItemModel::rowCount(const QModelIndex& parent) const {
    if (parent.isValid() && parent.column() != 0) return 0;
    return int(entry(parent)->entryCount());
}

int TWEntryItemModel::columnCount(const QModelIndex&) const {
    return 1;
}

QVariant TWEntryItemModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || role != Qt::DisplayRole) return {};
    return entry(index)->name();
}

void TWEntryItemModel::beginLayoutChange(const QList<TWEntry*>& parents) {
    m_layoutParents.clear();
    for (TWEntry* parent : parents)
        if (parent != m_root) m_layoutParents.append(indexOfEntry(parent));
    emit layoutAboutToBeChanged(m_layoutParents);
    // Every persistent index names an entry of the tree, alive until the change is told.
    const QModelIndexList persistent = persistentIndexList();
    m_changing.clear();
    m_changing.reserve(persistent.size());
    for (const QModelIndex& index : persistent)
        m_changing.append({index, entry(index)->weak_from_this()});
}

void TWEntryItemModel::endLayoutChange() {
    QModelIndexList from, to;
    from.reserve(m_changing.size());
    to.reserve(m_changing.size());
    for (const auto& [index, weak] : std::as_const(m_changing)) {
        from.append(index);
        const TWEntryPtr entry = weak.lock();
        to.append(entry ? indexOfEntry(entry.get(), index.column()) : QModelIndex());
    }
    m_changing.clear();
    changePersistentIndexList(from, to);
    emit layoutChanged(std::exchange(m_layoutParents, {}));
}
