#include "ui/details/TWDetailsView.h"

#include "engine/TWActionRegistry.h"
#include "engine/TWCommonKeys.h"
#include "engine/TWRunController.h"
#include "model/TWFormatters.h"
#include "model/TWWorkspace.h"

#include "lx/LXMetadata.h"

#include <QHeaderView>

namespace {

enum Column { Title = 0, Value = 1 };

// The property actions and the fields each offers in its "key" pop-up.
QHash<QString, QString> writersOfFields() {
    QHash<QString, QString> writers;
    for (const char* className : {"TWActionSetMetadata", "TWActionSetMIDIProperty", "TWActionSetMusicalProperty"}) {
        const std::unique_ptr<TWAction> action = TWActionRegistry::make(QString::fromLatin1(className));
        if (!action) continue;
        for (const TWInstructionKey& key : action->instructionKeys())
            if (key.name == u"key")
                for (const TWChoice& field : key.details.choices) writers.insert(field.value.toString(), className);
    }
    return writers;
}

} // namespace

TWDetailsView::TWDetailsView(TWWorkspace& workspace, TWRunController& runs, QWidget* parent)
    : QTableWidget(0, 2, parent), m_workspace(workspace), m_runs(runs), m_writers(writersOfFields()) {
    setAccessibleName(QStringLiteral("Details"));
    setHorizontalHeaderLabels({QStringLiteral("Field"), QStringLiteral("Value")});
    horizontalHeader()->setStretchLastSection(true);
    verticalHeader()->hide();
    setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed);
    connect(this, &QTableWidget::itemChanged, this, &TWDetailsView::edited);
    connect(&workspace, &TWWorkspace::entryChanged, this, [this](TWEntry* entry) {
        if (entry == m_entry.get()) reload();
    });
    connect(&workspace, &TWWorkspace::entriesReloaded, this, &TWDetailsView::reload);
    connect(&runs, &TWRunController::processEnded, this, &TWDetailsView::reload); // a refused edit shows no more
}

void TWDetailsView::setEntry(const TWFileEntryPtr& entry) {
    m_entry = entry;
    reload();
}

void TWDetailsView::reload() {
    m_filling = true;
    setRowCount(0);
    if (m_entry) {
        // The fields that have a value, and the empty ones an edit can fill, in the metadata table's order.
        QHash<QString, QString> texts;
        for (const TWFormatters::Row& row : m_workspace.formatters().displayRows(m_entry->info()))
            texts.insert(row.key, row.text);
        for (const QString& title : LXMetadata::titlesForCategoryMask(~0u)) {
            const QString key = LXMetadata::keyForTitle(title);
            const bool writable = m_writers.contains(key);
            if (!texts.contains(key) && !writable) continue;
            const int row = rowCount();
            insertRow(row);
            auto* titleItem = new QTableWidgetItem(title);
            titleItem->setFlags(Qt::ItemIsEnabled);
            auto* value = new QTableWidgetItem(texts.value(key));
            value->setData(Qt::UserRole, key);
            value->setFlags(writable ? Qt::ItemIsEnabled | Qt::ItemIsEditable : Qt::ItemIsEnabled);
            setItem(row, Title, titleItem);
            setItem(row, Value, value);
        }
    }
    m_filling = false;
}

void TWDetailsView::edited(QTableWidgetItem* item) {
    if (m_filling || !m_entry || item->column() != Value) return;
    const QString key = item->data(Qt::UserRole).toString();
    const QString className = m_writers.value(key);
    if (className.isEmpty()) return;
    QVariantMap instructions{{QStringLiteral("class"), className},
                             {QStringLiteral("source"), qint64(TWSource::Paths)},
                             {QStringLiteral("paths"), QStringList{m_entry->path()}},
                             {QStringLiteral("key"), key},
                             {QStringLiteral("value"), item->text()}};
    m_runs.performInstructions({instructions}, true);
}
