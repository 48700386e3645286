#include "ui/filelist/TWFileListView.h"

#include "model/TWWorkspace.h"
#include "ui/filelist/TWFileListColumns.h"
#include "ui/filelist/TWFileListMenu.h"
#include "ui/filelist/TWFileListModel.h"
#include "ui/filelist/TWStatusDelegate.h"

#include <QContextMenuEvent>
#include <QDrag>
#include <QHeaderView>
#include <QMenu>
#include <QMimeData>
#include <QSet>
#include <QSignalBlocker>
#include <QTimer>

#include <algorithm>
#include <functional>
#include <memory>

namespace {

constexpr int kStatusWidth = 56;

// The rows from the top down to the entry: ordering by them is the order rows stand in on screen.
QList<qsizetype> rowPath(const TWEntry* entry) {
    QList<qsizetype> path;
    for (; entry && entry->parent(); entry = entry->parent())
        path.prepend(entry->row());
    return path;
}

} // namespace

TWFileListView::TWFileListView(TWWorkspace& workspace, QWidget* parent)
    : QTreeView(parent), m_workspace(workspace), m_model(new TWFileListModel(workspace, this)) {
    setObjectName(QStringLiteral("fileList"));
    setAccessibleName(tr("File list"));
    // Connected before setModel, so these run ahead of the selection model's own handlers, which may
    // report a selection change in the middle of a change to the rows.
    const auto begin = [this] { ++m_modelChanges; };
    const auto end = [this] {
        if (--m_modelChanges > 0 || !m_handOnPending) return;
        QMetaObject::invokeMethod(
            this,
            [this] {
                if (m_handOnPending && m_modelChanges == 0) handOnSelection();
            },
            Qt::QueuedConnection);
    };
    connect(m_model, &QAbstractItemModel::rowsAboutToBeInserted, this, begin);
    connect(m_model, &QAbstractItemModel::rowsAboutToBeRemoved, this, begin);
    connect(m_model, &QAbstractItemModel::rowsAboutToBeMoved, this, begin);
    connect(m_model, &QAbstractItemModel::layoutAboutToBeChanged, this, begin);
    connect(m_model, &QAbstractItemModel::modelAboutToBeReset, this, begin);
    connect(m_model, &QAbstractItemModel::rowsInserted, this, end);
    connect(m_model, &QAbstractItemModel::rowsRemoved, this, end);
    connect(m_model, &QAbstractItemModel::rowsMoved, this, end);
    connect(m_model, &QAbstractItemModel::layoutChanged, this, end);
    connect(m_model, &QAbstractItemModel::modelReset, this, end);
    setModel(m_model);

    // A hundred thousand rows are laid out by their count, not by asking each for its height.
    setUniformRowHeights(true);
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setAllColumnsShowFocus(true);
    setEditTriggers(QAbstractItemView::EditKeyPressed | QAbstractItemView::SelectedClicked);
    setTextElideMode(Qt::ElideMiddle);
    setDragDropMode(QAbstractItemView::DragDrop);
    setDefaultDropAction(Qt::CopyAction);
    setDropIndicatorShown(true);
    setItemDelegateForColumn(m_model->columnOfKey(QLatin1String(TWFileListColumns::kStatus)),
                             new TWStatusDelegate(this));

    QHeaderView* header = this->header();
    header->setSectionsMovable(true);
    header->setSectionsClickable(true);
    header->setSortIndicatorShown(true);
    header->setStretchLastSection(false);
    header->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(header, &QHeaderView::customContextMenuRequested, this, &TWFileListView::showHeaderMenu);
    m_menu = new TWFileListMenu(workspace, *this);
    restoreViewOptions();

    // Column changes are kept once they settle: a drag of a column's edge resizes it many times.
    m_saveTimer = new QTimer(this);
    m_saveTimer->setSingleShot(true);
    m_saveTimer->setInterval(500);
    connect(m_saveTimer, &QTimer::timeout, this, &TWFileListView::saveViewOptions);
    connect(header, &QHeaderView::sectionMoved, m_saveTimer, qOverload<>(&QTimer::start));
    connect(header, &QHeaderView::sectionResized, m_saveTimer, qOverload<>(&QTimer::start));
    connect(header, &QHeaderView::sortIndicatorChanged, this, [this](int section, Qt::SortOrder order) {
        m_model->sort(section, order);
        m_saveTimer->start();
    });

    connect(selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
        if (m_mirroring) return;
        if (m_modelChanges > 0)
            m_handOnPending = true;
        else
            handOnSelection();
    });
    connect(&workspace, &TWWorkspace::selectionChanged, this, [this] {
        if (!m_handingOn) mirrorSelection();
        m_menu->update();
    });

    connect(this, &QTreeView::expanded, this, [this](const QModelIndex& index) {
        m_model->entry(index)->setExpanded(true);
        m_workspace.updateFilesTableInfoText();
    });
    connect(this, &QTreeView::collapsed, this, [this](const QModelIndex& index) {
        m_model->entry(index)->setExpanded(false);
        m_workspace.updateFilesTableInfoText();
    });
    connect(m_model, &QAbstractItemModel::rowsInserted, this,
            [this](const QModelIndex& where, int first, int last) {
                TWEntry* container = m_model->entry(where);
                for (int row = first; row <= last; ++row)
                    if (const TWEntryPtr child = container->entryAtIndex(row); child && !child->isLeaf())
                        syncExpansion(m_model->index(row, 0, where));
            });
    connect(&workspace, &TWWorkspace::entriesReloaded, this, [this] { syncExpansion({}); });
    connect(&workspace, &TWWorkspace::entryAndChildrenChanged, this, [this](TWEntry* entry) {
        if (const QModelIndex index = m_model->indexOfEntry(entry); index.isValid()) syncExpansion(index);
    });
    connect(&workspace, &TWWorkspace::editNameRequested, this, &TWFileListView::editName);
    syncExpansion({});
    mirrorSelection();
}

TWFileListView::~TWFileListView() {
    if (m_saveTimer->isActive()) saveViewOptions();
}

// Columns ---------------------------------------------------------------------------------------------------

void TWFileListView::restoreViewOptions() {
    const TWFileListColumns::ViewOptions options = TWFileListColumns::loadViewOptions();
    QHeaderView* header = this->header();
    const QSignalBlocker blocker(header);
    for (int column = 0; column < m_model->columnCount(); ++column)
        header->setSectionHidden(column, true);
    int visual = 0;
    for (const TWFileListColumns::Shown& shown : options.columns) {
        const int column = m_model->columnOfKey(shown.key);
        header->moveSection(header->visualIndex(column), visual++);
        header->setSectionHidden(column, false);
        const int width = shown.width > 0                                          ? shown.width
                          : shown.key == QLatin1String(TWFileListColumns::kStatus) ? kStatusWidth
                                                                                   : 0;
        if (width > 0) header->resizeSection(column, width);
    }
    header->setSortIndicator(m_model->columnOfKey(options.sortKey),
                             options.ascending ? Qt::AscendingOrder : Qt::DescendingOrder);
    const QList<TWSortDescriptor> sort{{options.sortKey, options.ascending}};
    if (m_workspace.sortDescriptors() != sort) m_workspace.setSortDescriptors(sort);
}

void TWFileListView::saveViewOptions() const {
    const QHeaderView* header = this->header();
    TWFileListColumns::ViewOptions options;
    for (int visual = 0; visual < header->count(); ++visual) {
        const int column = header->logicalIndex(visual);
        if (!header->isSectionHidden(column))
            options.columns.append({m_model->keyOfColumn(column), header->sectionSize(column)});
    }
    options.sortKey = m_model->keyOfColumn(header->sortIndicatorSection());
    options.ascending = header->sortIndicatorOrder() == Qt::AscendingOrder;
    TWFileListColumns::saveViewOptions(options);
}

void TWFileListView::showHeaderMenu(const QPoint& position) {
    QMenu menu(this);
    menu.setAccessibleName(tr("Columns"));
    QHeaderView* header = this->header();
    for (int column = 0; column < m_model->columnCount(); ++column) {
        QAction* action = menu.addAction(m_model->headerData(column, Qt::Horizontal).toString());
        action->setCheckable(true);
        action->setChecked(!header->isSectionHidden(column));
        action->setEnabled(m_model->keyOfColumn(column) != QLatin1String(TWFileListColumns::kName));
        connect(action, &QAction::toggled, this, [this, header, column](bool shown) {
            header->setSectionHidden(column, !shown);
            saveViewOptions();
        });
    }
    menu.exec(header->viewport()->mapToGlobal(position));
}

// Selection -------------------------------------------------------------------------------------------------

QList<TWEntryPtr> TWFileListView::selectedRowsInOrder() const {
    // From the ranges: asking the selection model for its rows tests every column of every row.
    QItemSelection ranges = selectionModel()->selection();
    const bool oneParent = std::all_of(ranges.cbegin(), ranges.cend(), [&](const QItemSelectionRange& range) {
        return range.parent() == ranges.first().parent();
    });
    if (oneParent) { // the usual case: ranges of one container, in order of their first rows
        std::sort(
            ranges.begin(), ranges.end(),
            [](const QItemSelectionRange& a, const QItemSelectionRange& b) { return a.top() < b.top(); });
        QList<TWEntryPtr> entries;
        int next = 0; // the first row not yet taken: ranges may overlap
        for (const QItemSelectionRange& range : std::as_const(ranges)) {
            const TWEntry* parent = m_model->entry(range.parent());
            for (int row = std::max(next, range.top()); row <= range.bottom(); ++row)
                if (const TWEntryPtr entry = parent->entryAtIndex(row)) entries.append(entry);
            next = std::max(next, range.bottom() + 1);
        }
        return entries;
    }
    QSet<TWEntry*> seen;
    QList<std::pair<QList<qsizetype>, TWEntryPtr>> rows;
    for (const QItemSelectionRange& range : std::as_const(ranges)) {
        TWEntry* parent = m_model->entry(range.parent());
        for (int row = range.top(); row <= range.bottom(); ++row) {
            const TWEntryPtr entry = parent->entryAtIndex(row);
            if (!entry || seen.contains(entry.get())) continue;
            seen.insert(entry.get());
            rows.append({rowPath(entry.get()), entry});
        }
    }
    std::sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    QList<TWEntryPtr> entries;
    entries.reserve(rows.size());
    for (const auto& row : std::as_const(rows))
        entries.append(row.second);
    return entries;
}

void TWFileListView::selectAll() {
    QItemSelection all;
    const int lastColumn = m_model->columnCount() - 1;
    const std::function<void(const QModelIndex&)> add = [&](const QModelIndex& parent) {
        const TWEntry* container = m_model->entry(parent);
        if (container->entryCount() == 0) return;
        all.append(QItemSelectionRange(m_model->index(0, 0, parent),
                                       m_model->index(int(container->entryCount()) - 1, lastColumn, parent)));
        for (const TWEntryPtr& child : container->entries())
            if (!child->isLeaf() && child->isExpanded()) add(m_model->indexOfEntry(child.get()));
    };
    add({});
    selectionModel()->select(all, QItemSelectionModel::ClearAndSelect);
}

void TWFileListView::handOnSelection() {
    m_handOnPending = false;
    const QList<TWEntryPtr> entries = selectedRowsInOrder();
    if (entries == m_workspace.selectedEntries()) return;
    m_handingOn = true;
    m_workspace.setSelectedEntries(entries);
    m_handingOn = false;
}

void TWFileListView::mirrorSelection() {
    QItemSelection selection;
    const int lastColumn = m_model->columnCount() - 1;
    for (const TWEntryPtr& entry : m_workspace.selectedEntries()) {
        const QModelIndex index = m_model->indexOfEntry(entry.get());
        if (!index.isValid()) continue;
        // Runs of rows become one range each.
        if (!selection.isEmpty() && selection.last().parent() == index.parent() &&
            selection.last().bottom() + 1 == index.row()) {
            selection.last() = QItemSelectionRange(selection.last().topLeft(),
                                                   m_model->index(index.row(), lastColumn, index.parent()));
            continue;
        }
        selection.append(QItemSelectionRange(index, m_model->index(index.row(), lastColumn, index.parent())));
    }
    m_mirroring = true;
    selectionModel()->select(selection, QItemSelectionModel::ClearAndSelect);
    if (!selection.isEmpty())
        selectionModel()->setCurrentIndex(selection.first().topLeft(), QItemSelectionModel::NoUpdate);
    m_mirroring = false;
}

// Rows ------------------------------------------------------------------------------------------------------

void TWFileListView::syncExpansion(const QModelIndex& index) {
    TWEntry* entry = m_model->entry(index);
    if (index.isValid() && isExpanded(index) != entry->isExpanded()) setExpanded(index, entry->isExpanded());
    if (index.isValid() && !entry->isExpanded()) return;
    const QList<TWEntryPtr>& children = entry->entries();
    for (qsizetype row = 0; row < children.size(); ++row)
        if (!children.at(row)->isLeaf()) syncExpansion(m_model->index(int(row), 0, index));
}

void TWFileListView::editName(TWEntry* entry) {
    const QModelIndex index = m_model->indexOfEntry(entry);
    if (!index.isValid()) return;
    scrollTo(index);
    selectionModel()->setCurrentIndex(index, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    edit(index);
}

void TWFileListView::contextMenuEvent(QContextMenuEvent* event) {
    m_menu->update();
    const std::unique_ptr<QMenu> menu(m_menu->makeMenu(this));
    menu->exec(event->globalPos());
}

void TWFileListView::startDrag(Qt::DropActions) {
    QModelIndexList rows;
    for (const TWEntryPtr& entry : selectedRowsInOrder())
        rows.append(m_model->indexOfEntry(entry.get()));
    QMimeData* dragged = m_model->mimeData(rows);
    if (!dragged) return;
    // Our own loop: the base class would ask the model to remove the rows after a move, and a drop here
    // has already moved them. The file manager takes the paths as a copy.
    auto* drag = new QDrag(this);
    drag->setMimeData(dragged);
    drag->exec(Qt::CopyAction | Qt::MoveAction | Qt::LinkAction, Qt::CopyAction);
    m_workspace.endDrag();
}
