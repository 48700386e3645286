#include "ui/workflow/TWDestinationPopUp.h"

#include "engine/TWAction.h"

#include "platform/TWInteraction.h"

#include <QDir>
#include <QFileInfo>
#include <QSignalBlocker>
#include <QStandardItemModel>
#include <QStyle>

namespace {

// An item's data: the tag, and for a folder its path.
constexpr int kTagRole = Qt::UserRole;
constexpr int kPathRole = Qt::UserRole + 1;
constexpr int kOther = -1;

QStringList standardFolders() {
    const QString home = QDir::homePath();
    return {QDir(home).filePath(QStringLiteral("Desktop")), home,
            QDir(home).filePath(QStringLiteral("Documents")), QDir(home).filePath(QStringLiteral("Music"))};
}

} // namespace

TWDestinationPopUp::TWDestinationPopUp(TWAction& action, QWidget* parent)
    : QComboBox(parent), m_action(action) {
    setAccessibleName(QStringLiteral("Destination"));
    connect(this, &QComboBox::activated, this, &TWDestinationPopUp::choose);
    refresh();
}

void TWDestinationPopUp::refresh() {
    const QSignalBlocker blocker(this);
    clear();
    const auto add = [this](const QString& title, int tag, const QString& path = {}) {
        addItem(title);
        setItemData(count() - 1, tag, kTagRole);
        setItemData(count() - 1, path, kPathRole);
    };
    add(QStringLiteral("Replace the file"), int(TWDestinationTag::InPlace));
    // An action that only makes new files never replaces its input.
    if (m_action.onlyMakesNewFiles())
        if (auto* items = qobject_cast<QStandardItemModel*>(model())) items->item(0)->setEnabled(false);
    add(QStringLiteral("New file beside the source"), int(TWDestinationTag::BesideSource));
    insertSeparator(count());
    const QString current =
        m_action.destinationTag() == TWDestinationTag::ChosenDirectory ? m_action.directory() : QString();
    const QIcon folderIcon = style()->standardIcon(QStyle::SP_DirIcon);
    QStringList folders = standardFolders();
    if (!current.isEmpty() && !folders.contains(current)) folders.append(current);
    for (const QString& folder : std::as_const(folders)) {
        add(QFileInfo(folder).fileName(), int(TWDestinationTag::ChosenDirectory), folder);
        setItemIcon(count() - 1, folderIcon);
        setItemData(count() - 1, folder, Qt::ToolTipRole);
    }
    insertSeparator(count());
    add(QStringLiteral("Other..."), kOther);

    for (int i = 0; i < count(); ++i) {
        const QVariant tag = itemData(i, kTagRole);
        if (!tag.isValid() || tag.toInt() != int(m_action.destinationTag())) continue;
        if (tag.toInt() == int(TWDestinationTag::ChosenDirectory) &&
            itemData(i, kPathRole).toString() != current)
            continue;
        setCurrentIndex(i);
        break;
    }
}

void TWDestinationPopUp::choose(int item) {
    const int tag = itemData(item, kTagRole).toInt();
    QString folder = itemData(item, kPathRole).toString();
    if (tag == kOther) {
        TWOpenPanelOptions options;
        options.title = QStringLiteral("Choose directory");
        options.prompt = QStringLiteral("Choose");
        options.chooseFiles = false;
        options.chooseDirectories = true;
        options.canCreateDirectories = true;
        options.directory = m_action.directory().isEmpty() ? QDir::homePath() : m_action.directory();
        const QStringList chosen = TWInteraction::current().runOpenPanel(options);
        if (chosen.isEmpty()) { // cancelled: the destination stays as it was
            refresh();
            return;
        }
        folder = chosen.first();
    }
    m_action.setDestination(folder.isEmpty() ? TWDestinationTag(tag) : TWDestinationTag::ChosenDirectory,
                            folder);
    refresh();
}
