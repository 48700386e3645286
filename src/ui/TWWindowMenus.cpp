// The window's menus: the commands that do not belong to one area.

#include "ui/TWWindow.h"

#include "engine/TWRunController.h"
#include "engine/TWWorkflowEditor.h"
#include "engine/TWWorkflowFile.h"
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
    file->addAction(QStringLiteral("&Open Workflow..."), QKeySequence(QStringLiteral("Ctrl+Shift+O")), this,
                    [this] {
                        TWOpenPanelOptions options;
                        options.title = QStringLiteral("Open Workflow");
                        options.types = {TWWorkflowFile::kExtension};
                        const QStringList paths = TWInteraction::current().runOpenPanel(options);
                        if (!paths.isEmpty()) openWorkflow(paths.first());
                    });
    file->addAction(QStringLiteral("&Save Workflow..."), QKeySequence::Save, this, [this] {
        TWSavePanelOptions options;
        options.title = QStringLiteral("Save Workflow");
        options.name = QStringLiteral("Workflow.twwf");
        options.requiredExtension = TWWorkflowFile::kExtension;
        const QString path = TWInteraction::current().runSavePanel(options);
        if (path.isEmpty()) return;
        if (const LXStatus saved = TWWorkflowFile::write(path, m_editor->state()); !saved)
            TWInteraction::current().runAlert({TWAlertStyle::Warning, QStringLiteral("Workflow Not Saved"),
                                               saved.error().description(), {}, 0});
    });
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
