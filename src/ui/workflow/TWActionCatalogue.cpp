#include "ui/workflow/TWActionCatalogue.h"

#include "engine/TWActionRegistry.h"

#include <QMimeData>

#include <algorithm>

namespace {

struct Family {
    const char* folder; // as the registry names it: the folder of the actions' source
    const char* title;
};

// In the order a workflow usually goes: the sound first, then what describes it, then what leaves.
constexpr Family kFamilies[] = {
    {"level", "Level"},         {"edit", "Edit"},         {"dynamics", "Dynamics"}, {"convert", "Convert"},
    {"time", "Time and Pitch"}, {"plugins", "Plug-ins"},  {"combine", "Combine"},   {"analysis", "Analysis"},
    {"labels", "Labels"},       {"metadata", "Metadata"}, {"rename", "Rename"},     {"export", "Export"},
    {"delivery", "Delivery"},
};

} // namespace

TWActionCatalogue::TWActionCatalogue(QWidget* parent) : QTreeWidget(parent) {
    setHeaderHidden(true);
    setAccessibleName(QStringLiteral("Actions"));
    setDragEnabled(true);
    setDragDropMode(QAbstractItemView::DragOnly);
    setSelectionMode(QAbstractItemView::SingleSelection);

    QHash<QString, QList<std::pair<QString, QString>>> byFamily; // folder -> (name, class)
    for (const QString& className : TWActionRegistry::classNames())
        if (const std::unique_ptr<TWAction> action = TWActionRegistry::make(className))
            byFamily[TWActionRegistry::family(className)].append({action->name(), className});
    const auto addFamily = [this](const QString& title, QList<std::pair<QString, QString>> actions) {
        if (actions.isEmpty()) return;
        std::sort(actions.begin(), actions.end());
        auto* family = new QTreeWidgetItem(this, {title});
        family->setFlags(Qt::ItemIsEnabled);
        for (const auto& [name, className] : std::as_const(actions)) {
            auto* item = new QTreeWidgetItem(family, {name});
            item->setData(0, kClassRole, className);
            item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled);
        }
    };
    for (const Family& family : kFamilies)
        addFamily(QString::fromLatin1(family.title), byFamily.take(QString::fromLatin1(family.folder)));
    // Actions of a folder this list does not know yet still show, under their folder's name.
    QStringList others = byFamily.keys();
    others.sort();
    for (const QString& folder : std::as_const(others))
        addFamily(folder.isEmpty() ? QStringLiteral("Other") : folder.left(1).toUpper() + folder.mid(1),
                  byFamily.value(folder));
    expandAll();

    // Activated: a double click, Return, or a single click where the desktop opens items so.
    connect(this, &QTreeWidget::itemActivated, this, [this](QTreeWidgetItem* item) {
        if (item && item->data(0, kClassRole).isValid())
            emit actionChosen(item->data(0, kClassRole).toString());
    });
}

QTreeWidgetItem* TWActionCatalogue::itemForClass(const QString& className) const {
    for (int f = 0; f < topLevelItemCount(); ++f)
        for (int i = 0; i < topLevelItem(f)->childCount(); ++i)
            if (topLevelItem(f)->child(i)->data(0, kClassRole).toString() == className)
                return topLevelItem(f)->child(i);
    return nullptr;
}

QStringList TWActionCatalogue::mimeTypes() const {
    return {kMimeType};
}

QMimeData* TWActionCatalogue::mimeData(const QList<QTreeWidgetItem*>& items) const {
    if (items.isEmpty() || !items.first()->data(0, kClassRole).isValid()) return nullptr;
    auto* mime = new QMimeData;
    mime->setData(kMimeType, items.first()->data(0, kClassRole).toString().toUtf8());
    return mime;
}
