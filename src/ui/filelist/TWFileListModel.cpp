#include "ui/filelist/TWFileListModel.h"

#include "model/TWDragAndDrop.h"
#include "model/TWFileEntry.h"
#include "model/TWFormatters.h"
#include "model/TWGroupEntry.h"
#include "model/TWServerEntry.h"
#include "model/TWWorkspace.h"
#include "ui/filelist/TWEntryIcons.h"
#include "ui/filelist/TWFileListColumns.h"

#include <QGuiApplication>
#include <QMimeData>
#include <QPalette>
#include <QSet>
#include <QUrl>

#include <algorithm>
#include <cmath>
#include <functional>

namespace {

constexpr int kNameColumn = 0;
constexpr int kStatusColumn = 1;

QList<TWEntryPtr> entriesOfRows(const TWFileListModel& model, const QModelIndexList& indexes) {
    QList<TWEntryPtr> entries;
    QSet<const TWEntry*> seen;
    for (const QModelIndex& index : indexes) {
        TWEntry* entry = model.entry(index);
        if (index.isValid() && !seen.contains(entry)) {
            seen.insert(entry);
            entries.append(entry->shared_from_this());
        }
    }
    return entries;
}

// The local files a drop from outside names.
QStringList localPaths(const QMimeData& data) {
    QStringList paths;
    for (const QUrl& url : data.urls())
        if (url.isLocalFile()) paths.append(url.toLocalFile());
    return paths;
}

} // namespace

TWFileListModel::TWFileListModel(TWWorkspace& workspace, QObject* parent)
    : TWEntryItemModel(workspace, parent), m_workspace(workspace), m_keys(TWFileListColumns::keys()) {
    connect(&workspace, &TWWorkspace::entryChanged, this,
            [this](TWEntry* entry) { entryChanged(entry, false); });
    connect(&workspace, &TWWorkspace::entryAndChildrenChanged, this,
            [this](TWEntry* entry) { entryChanged(entry, true); });
    connect(&workspace, &TWWorkspace::entriesReloaded, this,
            [this] { entryChanged(m_workspace.rootGroup().get(), true); });
}

void TWFileListModel::entryChanged(TWEntry* entry, bool withChildren) {
    const int lastColumn = int(m_keys.size()) - 1;
    const QModelIndex index = indexOfEntry(entry);
    if (index.isValid()) emit dataChanged(index, this->index(index.row(), lastColumn, index.parent()));
    if (!withChildren || (!index.isValid() && entry != m_workspace.rootGroup().get())) return;
    // One range per container: a view repaints what it shows of each.
    const std::function<void(TWEntry&, const QModelIndex&)> children = [&](TWEntry& container,
                                                                           const QModelIndex& parent) {
        if (container.entryCount() == 0) return;
        emit dataChanged(this->index(0, 0, parent),
                         this->index(int(container.entryCount()) - 1, lastColumn, parent));
        for (const TWEntryPtr& child : container.entries())
            if (!child->isLeaf() && child->entryCount() > 0) children(*child, indexOfEntry(child.get()));
    };
    children(*entry, index);
}

int TWFileListModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() && parent.column() != 0 ? 0 : int(m_keys.size());
}

QVariant TWFileListModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid()) return {};
    const TWEntry& entry = *this->entry(index);
    const int column = index.column();
    if (column == kStatusColumn) return statusData(entry, role);
    if (column == kNameColumn) {
        switch (role) {
        case Qt::DisplayRole:
        case Qt::EditRole:
            return entry.name();
        case Qt::DecorationRole:
            return TWEntryIcons::icon(entry.image());
        case Qt::ToolTipRole:
            return entry.path().isEmpty() ? entry.name() : entry.path();
        case Qt::ForegroundRole:
            if (entry.color() == TWEntryColor::Grey)
                return QGuiApplication::palette().brush(QPalette::Disabled, QPalette::Text);
            return {};
        default:
            return {};
        }
    }
    const QString& key = m_keys.at(column);
    switch (role) {
    case Qt::DisplayRole: {
        const QVariant value = entry.infoValue(key);
        return value.isValid() ? m_workspace.formatters().stringForKey(key, value) : QString();
    }
    case Qt::TextAlignmentRole:
        return TWFileListColumns::isText(key) ? QVariant() : QVariant(Qt::AlignRight | Qt::AlignVCenter);
    default:
        return {};
    }
}

QVariant TWFileListModel::statusData(const TWEntry& entry, int role) const {
    const float status = entry.status();
    switch (role) {
    case StatusRole:
        return status;
    case Qt::DecorationRole: {
        const QString image = TWEntryIcons::imageOfStatus(status);
        return image.isEmpty() ? QVariant() : QVariant(TWEntryIcons::icon(image));
    }
    case Qt::AccessibleTextRole:
    case Qt::ToolTipRole: {
        if (TWStatus::state(status) == 0) return {};
        const float progress = status - std::trunc(status);
        const QString words = TWStatus::description(status);
        return progress > 0.0f && TWStatus::state(status) != int(TWStatus::Waiting)
                   ? QStringLiteral("%1, %2 %").arg(words).arg(int(progress * 100.0f))
                   : words;
    }
    default:
        return {};
    }
}

QVariant TWFileListModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || section < 0 || section >= m_keys.size()) return {};
    if (role == Qt::DisplayRole) return TWFileListColumns::title(m_keys.at(section));
    if (role == Qt::TextAlignmentRole && section > kStatusColumn &&
        !TWFileListColumns::isText(m_keys.at(section)))
        return QVariant(Qt::AlignRight | Qt::AlignVCenter);
    return {};
}

Qt::ItemFlags TWFileListModel::flags(const QModelIndex& index) const {
    if (!index.isValid()) return Qt::ItemIsDropEnabled; // the root: drops between top-level rows
    const TWEntry* entry = this->entry(index);
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled;
    if (!entry->isLeaf()) flags |= Qt::ItemIsDropEnabled;
    // A server has no name of its own to change.
    if (index.column() == kNameColumn && !dynamic_cast<const TWServerEntry*>(entry))
        flags |= Qt::ItemIsEditable;
    return flags;
}

bool TWFileListModel::setData(const QModelIndex& index, const QVariant& value, int role) {
    if (!index.isValid() || index.column() != kNameColumn || role != Qt::EditRole) return false;
    const QString name = value.toString();
    if (name.isEmpty()) return false;
    const TWEntryPtr entry = this->entry(index)->shared_from_this();
    // A file is renamed by a workflow over the selection: the row edited is what it renames.
    if (dynamic_cast<TWFileEntry*>(entry.get()) && !m_workspace.selectedEntries().contains(entry))
        m_workspace.setSelectedEntries({entry});
    m_workspace.renameEntry(entry, name);
    return true;
}

void TWFileListModel::sort(int column, Qt::SortOrder order) {
    if (column < 0 || column >= m_keys.size()) return;
    m_workspace.setSortDescriptors({TWSortDescriptor{m_keys.at(column), order == Qt::AscendingOrder}});
}

QStringList TWFileListModel::mimeTypes() const {
    return {QStringLiteral("text/uri-list"), QLatin1String(TWDragAndDrop::kEntryPasteboardType)};
}

QMimeData* TWFileListModel::mimeData(const QModelIndexList& indexes) const {
    const QList<TWEntryPtr> entries = entriesOfRows(*this, indexes);
    if (entries.isEmpty()) return nullptr;
    auto* data = new QMimeData;
    // Outside the list the rows are their files: a group gives the files it holds.
    QStringList paths;
    for (const TWEntryPtr& entry : entries) {
        if (!entry->path().isEmpty())
            paths.append(entry->path());
        else
            entry->addFileEntryPathsToArray(paths);
    }
    paths.removeDuplicates();
    QList<QUrl> urls;
    urls.reserve(paths.size());
    for (const QString& path : std::as_const(paths))
        urls.append(QUrl::fromLocalFile(path));
    data->setUrls(urls);
    if (m_workspace.beginDrag(entries)) data->setData(QLatin1String(TWDragAndDrop::kEntryPasteboardType), {});
    return data;
}

bool TWFileListModel::canDropMimeData(const QMimeData* data, Qt::DropAction, int row, int,
                                      const QModelIndex& parent) const {
    if (!data) return false;
    TWEntry* target = parent.isValid() ? entry(parent) : nullptr;
    TWEntry* root = m_workspace.rootGroup().get();
    if (data->hasFormat(QLatin1String(TWDragAndDrop::kEntryPasteboardType)) &&
        !m_workspace.draggingEntries().isEmpty())
        return TWDragAndDrop::validateDrop(target, row, m_workspace.draggingEntries(), root) !=
               TWDragAndDrop::Operation::None;
    return TWDragAndDrop::validateDrop(target, row, localPaths(*data), root) !=
           TWDragAndDrop::Operation::None;
}

bool TWFileListModel::dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                                   const QModelIndex& parent) {
    if (!canDropMimeData(data, action, row, column, parent)) return false;
    TWEntry* target = parent.isValid() ? entry(parent) : nullptr;
    TWEntry* root = m_workspace.rootGroup().get();
    if (data->hasFormat(QLatin1String(TWDragAndDrop::kEntryPasteboardType)) &&
        !m_workspace.draggingEntries().isEmpty()) {
        const QList<TWEntryPtr> dragged = m_workspace.draggingEntries();
        return TWDragAndDrop::acceptDrop(target, row, dragged, root);
    }
    return TWDragAndDrop::acceptDrop(target, row, localPaths(*data), root);
}

Qt::DropActions TWFileListModel::supportedDropActions() const {
    return Qt::CopyAction | Qt::MoveAction | Qt::LinkAction;
}

Qt::DropActions TWFileListModel::supportedDragActions() const {
    return Qt::CopyAction | Qt::MoveAction | Qt::LinkAction;
}
