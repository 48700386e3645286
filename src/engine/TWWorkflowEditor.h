#pragma once

#include "engine/TWWorkflowFile.h"

#include "lx/LXResult.h"

#include <QObject>
#include <QVariantList>

#include <memory>
#include <vector>

class TWPreferences;

// The workflow being edited: an ordered list of actions, without any drawing. The window's workflow view
// shows it and calls these edits; a run receives instructions(); the player hears the actions' live
// previews. Main thread only.
//
// Indexes are positions in the list; an index out of range is clamped for insertions and ignored for
// removals and moves.
class TWWorkflowEditor : public QObject {
    Q_OBJECT
public:
    // The preference holding the editor's saved states, written at each run and applied when the
    // window opens.
    static inline const QString kWorkflowKey = QStringLiteral("Workflow");

    TWWorkflowEditor();
    ~TWWorkflowEditor() override;
    TWWorkflowEditor(const TWWorkflowEditor&) = delete;
    TWWorkflowEditor& operator=(const TWWorkflowEditor&) = delete;

    QVariantList state() const;        // the actions' saved states, in order
    QVariantList instructions() const; // what a run receives, in order
    // Replaces every action with those made from the saved states; unknown classes are skipped and
    // returned by name.
    QStringList setState(const QVariantList& states);

    // Inserts the actions made from the saved states one after the other from index on; the actions there
    // stay. Returns the classes skipped.
    QStringList insertWorkflow(const QVariantList& states, qsizetype index);
    // A new action of the class with its default settings, or nullptr (nothing inserted) when the class is
    // unknown.
    TWAction* insertActionOfClass(const QString& className, qsizetype index);
    TWAction* addActionOfClass(const QString& className);
    void removeAction(qsizetype index);
    void removeAllActions();
    // Dragging a panel: moves the action at `index` up (or down) to the place of the action at `target`.
    void slideUpAction(qsizetype index, qsizetype target);
    void slideDownAction(qsizetype index, qsizetype target);
    // The first action has no previous action, so its source cannot be the previous results: 2 becomes 1.
    // Called after every removal and move; a workflow read as it stands keeps what its file says.
    void validateActionSources();

    bool isFirstAction(const TWAction* action) const;
    bool hasActions() const { return !m_actions.empty(); }
    qsizetype count() const { return qsizetype(m_actions.size()); }
    TWAction* actionAt(qsizetype index) const;       // nullptr out of range
    qsizetype indexOf(const TWAction* action) const; // -1 when not held

    // Workflow files. Opening replaces the workflow with the file's, an unreadable file giving an empty
    // one; the result says what was skipped and why (its actions have been moved into the editor).
    LXStatus saveWorkflow(const QString& path) const;
    TWWorkflow openWorkflow(const QString& path);
    // Files dropped on the editor: each is read as a workflow file and its actions inserted from index on,
    // in the order given. Returns the number of actions inserted.
    qsizetype insertWorkflowFiles(const QStringList& paths, qsizetype index);

    // The "Workflow" preference: the state written when a run starts and applied when the window opens.
    // Writing leaves synchronizing the preferences to the caller.
    void writeToPreferences(TWPreferences& preferences) const;
    QStringList readFromPreferences(const TWPreferences& preferences);

signals:
    // Actions came, went or moved (not sent for a change of one action's settings, which its panel tells).
    void actionsChanged();

private:
    void moveAction(qsizetype from, qsizetype to);

    std::vector<std::unique_ptr<TWAction>> m_actions;
};
