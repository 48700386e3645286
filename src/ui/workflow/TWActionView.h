#pragma once

#include <QFrame>

class QCheckBox;
class QComboBox;
class QLabel;
class QToolButton;
class TWAction;
class TWDestinationPopUp;
class TWPanelModel;
class TWPanelView;

// One action of the workflow as a panel that folds: a header with the disclosure arrow, the active check
// box, the action's name, the preview check box (for actions that preview) and buttons to move or remove
// it; folded open, where its files come from, where its results go and its own controls. The action
// belongs to the workflow editor and must outlive the view.
class TWActionView final : public QFrame {
    Q_OBJECT
public:
    explicit TWActionView(TWAction& action, QWidget* parent = nullptr);
    ~TWActionView() override;

    TWAction& action() const { return m_action; }
    TWPanelView& panel() const { return *m_panel; }
    // The first action has no previous action whose results it could take.
    void setFirst(bool first);
    // Shows the action's settings anew (its instructions or state were replaced).
    void refresh();

signals:
    void removeRequested();
    void moveRequested(int by); // -1 up, +1 down
    void previewChanged();
    void settingsChanged(); // a value of the action's panel

private:
    void fillSources();

    TWAction& m_action;
    TWPanelModel* m_model = nullptr;
    QToolButton* m_disclosure = nullptr;
    QCheckBox* m_active = nullptr;
    QLabel* m_title = nullptr;
    QCheckBox* m_preview = nullptr;
    QWidget* m_body = nullptr;
    QComboBox* m_source = nullptr;
    TWDestinationPopUp* m_destination = nullptr;
    TWPanelView* m_panel = nullptr;
    bool m_first = false;
};
