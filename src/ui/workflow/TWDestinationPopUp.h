#pragma once

#include <QComboBox>

class TWAction;

// Where an action's results go, as one pop-up: in place, beside the source, or into a folder: the
// Desktop, the home folder, Documents, Music, the folder chosen now if it is none of these, and
// "Other...", which asks for a folder (TWInteraction's open panel; cancelled, the choice stays).
class TWDestinationPopUp final : public QComboBox {
    Q_OBJECT
public:
    explicit TWDestinationPopUp(TWAction& action, QWidget* parent = nullptr);

    // Shows the action's destination anew (its instructions were replaced).
    void refresh();

private:
    void choose(int item);

    TWAction& m_action;
};
