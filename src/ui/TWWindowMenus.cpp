// The window's menus: the commands that do not belong to one area.

#include "ui/TWWindow.h"

#include "engine/TWRunController.h"
#include "model/TWWorkspace.h"
#include "platform/TWInteraction.h"
#include "shell/TWSession.h"

#include <QApplication>
#include <QMenuBar>
#include <QUndoStack>

void TWWindow::buildMenus() {
    TWWorkspace& workspace = m_session.workspace();

    QMenu* file = menuBar()->addMenu(QStringLiteral("&File"));
    QAction* add = file->addAction(QStringLiteral("&Add Files..."), this, [&workspace] {
        TWOpenPanelOptions options;
        options.title = QStringLiteral("Add Files");
        options.prompt = QStringLiteral("Add");
        options.chooseDirectories = true;
        options.allowsMultipleSelection = true;
        const QStringList paths = TWInteraction::current().runOpenPanel(options);
        if (!paths.isEmpty()) workspace.addFilesAfterSelectedEntry(paths);
    });
    add->setShortcut(QKeySequence::Open);
    file->addAction(QStringLiteral("New &Group"), QKeySequence(QStringLiteral("Ctrl+Shift+N")), this,
                    [&workspace] { workspace.newGroup(); });
    file->addSeparator();
    file->addAction(QStringLiteral("&Quit"), QKeySequence::Quit, qApp, &QApplication::quit);

    QMenu* edit = menuBar()->addMenu(QStringLiteral("&Edit"));
    QUndoStack& undo = m_session.runs().undoStack();
    QAction* undoAction = undo.createUndoAction(this, QStringLiteral("&Undo"));
    undoAction->setShortcut(QKeySequence::Undo);
    QAction* redoAction = undo.createRedoAction(this, QStringLiteral("&Redo"));
    redoAction->setShortcut(QKeySequence::Redo);
    edit->addAction(undoAction);
    edit->addAction(redoAction);
    edit->addSeparator();
    edit->addAction(QStringLiteral("&Remove from List"), QKeySequence::Delete, this, [&workspace] { workspace.remove(); });
    edit->addAction(QStringLiteral("Move to &Trash"), QKeySequence(QStringLiteral("Ctrl+Backspace")), this,
                    [&workspace] { workspace.moveToTrash(); });

    QMenu* run = menuBar()->addMenu(QStringLiteral("&Process"));
    run->addAction(QStringLiteral("&Analyze"), this, [&workspace] { workspace.analyzeSelectedEntries(); });
    run->addAction(QStringLiteral("&Stop"), QKeySequence(QStringLiteral("Ctrl+.")), this,
                   [&workspace] { workspace.stopWorkflow(); });
}
