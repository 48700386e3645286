#pragma once

#include "model/TWEntry.h"

#include <QTreeView>

class QTimer;
class TWFileListMenu;
class TWFileListModel;
class TWWorkspace;

// The window's file list: the workspace's tree in a QTreeView over a TWFileListModel of its own.
//
// The selection goes to the workspace (which drives playback and the waveform) as the selected rows in
// the order they stand, and the workspace's own changes of it (a drop, a new group, a removal) come back.
// Expanding a row sets its entry's flag, and entries the workspace expands open here. Names are edited in
// place through the workspace's rename command; rows are dragged between groups, files and folders from
// the desktop's file manager are added where they are dropped, and rows dragged out give their paths.
// The context menu holds the workspace's file commands; the header's menu shows and hides columns, and
// the columns, their order, widths and the sort are kept in the preferences (TWFileListColumns).
//
// Made by the window with the session's workspace; it names itself "fileList". Main thread.
class TWFileListView final : public QTreeView {
    Q_OBJECT
public:
    explicit TWFileListView(TWWorkspace& workspace, QWidget* parent = nullptr);
    ~TWFileListView() override;

    TWFileListModel& fileListModel() const { return *m_model; }
    TWFileListMenu& commands() const { return *m_menu; }
    // Writes the columns and the sort to the preferences (also done when they change).
    void saveViewOptions() const;
    // Every row shown, as one range per container: the base class walks every row and column.
    void selectAll() override;

protected:
    void contextMenuEvent(QContextMenuEvent* event) override;
    void startDrag(Qt::DropActions supportedActions) override;

private:
    void restoreViewOptions();
    void showHeaderMenu(const QPoint& position);
    QList<TWEntryPtr> selectedRowsInOrder() const; // as they stand on screen
    void handOnSelection();
    void mirrorSelection();
    void syncExpansion(const QModelIndex& parent);
    void editName(TWEntry* entry);

    TWWorkspace& m_workspace;
    TWFileListModel* m_model = nullptr;
    TWFileListMenu* m_menu = nullptr;
    QTimer* m_saveTimer = nullptr;
    int m_modelChanges = 0;       // model changes begun and not yet ended
    bool m_handOnPending = false; // a selection change came while the model was changing
    bool m_mirroring = false;     // the view's selection is being set from the workspace's
    bool m_handingOn = false;     // the workspace's selection is being set from the view's
};
