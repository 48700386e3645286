#pragma once

#include <QWidget>

#include <vector>

class QPushButton;
class QScrollArea;
class QVBoxLayout;
class TWActionCatalogue;
class TWActionView;
class TWRunController;
class TWWorkflowEditor;

// The workflow being edited, as the window shows it: the action catalogue by family on one side (a double
// click or a drag adds an action), the workflow's actions in order as folding panels on the other, each
// removable and movable, and a button that runs the workflow on the work thread. The editor holds the
// actions; this view only draws them and calls its edits. Main thread; the editor and the run controller
// must outlive the view.
class TWWorkflowEditorView final : public QWidget {
    Q_OBJECT
public:
    TWWorkflowEditorView(TWWorkflowEditor& editor, TWRunController& runs, QWidget* parent = nullptr);
    ~TWWorkflowEditorView() override;

    TWActionCatalogue& catalogue() const { return *m_catalogue; }
    QPushButton& runButton() const { return *m_run; }
    const std::vector<TWActionView*>& actionViews() const { return m_views; } // in the workflow's order

    // The editor's actions were replaced from elsewhere (a workflow opened, the preference read at start):
    // the panels are made anew.
    void reload();
    // Edits of the workflow, each shown at once. An unknown class inserts nothing (nullptr).
    TWActionView* insertAction(const QString& className, qsizetype index);
    void removeAction(qsizetype index);
    void moveAction(qsizetype index, int by);
    // Keeps the workflow in the "Workflow" preference, then hands its instructions to the work thread.
    void run();

signals:
    // An action's preview was turned on or off, or the actions changed: the waveform's previews are stale.
    void previewsChanged();
    // A value of an action's panel changed: what is heard of a previewed action follows it.
    void settingsChanged();

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    TWActionView* makeView(qsizetype index);
    // Lays the panels out in the editor's order and says which is first.
    void arrange();
    void updateRunButton();
    qsizetype dropIndex(const QPoint& position) const;

    TWWorkflowEditor& m_editor;
    TWRunController& m_runs;
    TWActionCatalogue* m_catalogue = nullptr;
    QScrollArea* m_scroll = nullptr;
    QVBoxLayout* m_list = nullptr;
    QPushButton* m_run = nullptr;
    std::vector<TWActionView*> m_views;
};
