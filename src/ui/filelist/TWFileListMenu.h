#pragma once

#include <QList>
#include <QObject>

class QAction;
class QMenu;
class QWidget;
class TWWorkspace;

// The file list's commands as actions: adding, grouping, removing, deleting, moving and copying files,
// opening them elsewhere, repairing, analysing and refreshing, each the workspace's own command (or its
// panel's) over the selection. Their shortcuts work while the list has the focus; each is enabled only
// when the selection gives it something to do (update(), called before the menu shows and when the
// selection changes). Main thread.
class TWFileListMenu final : public QObject {
    Q_OBJECT
public:
    TWFileListMenu(TWWorkspace& workspace, QWidget& owner);

    void update();
    // A menu of every action, grouped; the caller owns it.
    QMenu* makeMenu(QWidget* parent) const;
    QAction* action(const QString& objectName) const;

private:
    TWWorkspace& m_workspace;
    QWidget& m_owner;
    QList<QList<QAction*>> m_sections;
};
