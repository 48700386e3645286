#include "ui/filelist/TWFileListMenu.h"

#include "model/TWFileEntry.h"
#include "model/TWFolderEntry.h"
#include "model/TWGroupEntry.h"
#include "model/TWSmartGroupEntry.h"
#include "model/TWWorkspace.h"
#include "model/TWWorkspacePanels.h"

#include <QAction>
#include <QKeySequence>
#include <QMenu>
#include <QWidget>

#include <algorithm>

namespace {

template <typename Predicate> bool any(const QList<TWEntryPtr>& entries, Predicate predicate) {
    return std::any_of(entries.cbegin(), entries.cend(),
                       [&](const TWEntryPtr& entry) { return predicate(*entry); });
}

} // namespace

TWFileListMenu::TWFileListMenu(TWWorkspace& workspace, QWidget& owner)
    : QObject(&owner), m_workspace(workspace), m_owner(owner) {
    const auto command = [this](const char* name, const QString& text, auto call) {
        auto* action = new QAction(text, this);
        action->setObjectName(QLatin1String(name));
        action->setShortcutContext(Qt::WidgetWithChildrenShortcut);
        connect(action, &QAction::triggered, this, call);
        m_owner.addAction(action);
        m_sections.last().append(action);
        return action;
    };
    m_sections.append(QList<QAction*>());
    command("addToList", tr("Add to List…"), [this] {
        TWWorkspacePanels::addToList(m_workspace);
    })->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_A));
    command("newGroup", tr("New Group"), [this] {
        m_workspace.newGroup();
    })->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_N));
    command("convertToGroup", tr("Convert to Group"), [this] { m_workspace.convertToGroup(); });
    m_sections.append(QList<QAction*>());
    command("remove", tr("Remove from List"), [this] {
        m_workspace.remove();
    })->setShortcut(QKeySequence::Delete);
    command("removeAll", tr("Remove All"), [this] { m_workspace.removeAll(); });
    command("moveToTrash", tr("Move to Trash"), [this] {
        m_workspace.moveToTrash();
    })->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Backspace));
    command("delete", tr("Delete Files…"), [this] {
        m_workspace.deleteSelected();
    })->setShortcut(QKeySequence(Qt::SHIFT | Qt::Key_Delete));
    m_sections.append(QList<QAction*>());
    command("moveTo", tr("Move To…"), [this] { TWWorkspacePanels::moveTo(m_workspace); });
    command("copyTo", tr("Copy To…"), [this] { TWWorkspacePanels::copyTo(m_workspace); });
    m_sections.append(QList<QAction*>());
    command("open", tr("Open"), [this] { m_workspace.openInFinder(); });
    command("showInFileManager", tr("Show in File Manager"), [this] { m_workspace.showInFinder(); });
    command("openRinglet", tr("Open in Ringlet"), [this] { TWWorkspacePanels::openRinglet(m_workspace); });
    command("openOtherEditor", tr("Open in Other Editor"),
            [this] { TWWorkspacePanels::openOtherEditor(m_workspace); });
    command("changeOtherEditor", tr("Change Other Editor…"),
            [this] { TWWorkspacePanels::changeOtherEditor(m_workspace); });
    m_sections.append(QList<QAction*>());
    command("repair", tr("Repair"), [this] { m_workspace.repair(); });
    command("analyze", tr("Analyze"), [this] { m_workspace.analyze(); });
    command("refreshSmartGroup", tr("Refresh Smart Group"), [this] { m_workspace.refreshSmartGroup(); });
    command("refresh", tr("Refresh"), [this] {
        m_workspace.refreshEntries();
    })->setShortcut(QKeySequence::Refresh);
    update();
}

QAction* TWFileListMenu::action(const QString& objectName) const {
    return findChild<QAction*>(objectName, Qt::FindDirectChildrenOnly);
}

void TWFileListMenu::update() {
    const QList<TWEntryPtr>& selected = m_workspace.selectedEntries();
    const bool some = !selected.isEmpty();
    const bool files = !m_workspace.selectedFileEntries().isEmpty();
    const bool busy = m_workspace.isWorking();
    const bool hasPath = any(selected, [](const TWEntry& entry) { return !entry.path().isEmpty(); });
    const auto set = [this](const char* name, bool enabled) {
        action(QLatin1String(name))->setEnabled(enabled);
    };
    set("addToList", m_workspace.canAddEntries());
    set("newGroup", m_workspace.canAddEntries() && m_workspace.indexForEntryAdd().has_value());
    set("convertToGroup", any(selected, [](const TWEntry& entry) {
            return dynamic_cast<const TWFolderEntry*>(&entry) ||
                   dynamic_cast<const TWSmartGroupEntry*>(&entry);
        }));
    set("remove", any(selected, [](const TWEntry& entry) {
            return entry.isRemovable() && entry.parent() && !entry.parent()->containerIsImmutable();
        }));
    set("removeAll", m_workspace.rootGroup()->entryCount() > 0);
    set("moveToTrash", hasPath && !busy);
    set("delete", some && !busy);
    set("moveTo", hasPath && !busy);
    set("copyTo", hasPath);
    for (const char* name :
         {"open", "showInFileManager", "openRinglet", "openOtherEditor", "changeOtherEditor"})
        set(name, hasPath);
    set("repair", any(selected, [](const TWEntry& entry) {
            return dynamic_cast<const TWFileEntry*>(&entry) && entry.status() == TWStatus::Bad;
        }));
    set("analyze", files && !busy);
    set("refreshSmartGroup",
        any(selected, [](const TWEntry& entry) { return dynamic_cast<const TWSmartGroupEntry*>(&entry); }));
}

QMenu* TWFileListMenu::makeMenu(QWidget* parent) const {
    auto* menu = new QMenu(parent);
    menu->setAccessibleName(tr("File list commands"));
    for (const QList<QAction*>& section : m_sections) {
        if (!menu->isEmpty()) menu->addSeparator();
        menu->addActions(section);
    }
    return menu;
}
