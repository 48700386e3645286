#pragma once

#include <QWidget>

class QAbstractButton;
class QSlider;
class TWPlayer;
class TWPreferences;
class TWWorkspace;

// The transport: play (which stops a playback), stop, the previous and next file of the list, the
// volume, varispeed in cents (Shift snaps to whole semitones, a double click returns to 0), and the four
// playback options ("Autoplay", "Continue", "Repeat", "Autoscroll"), shown from and kept in the
// preferences through the player.
class TWTransportView final : public QWidget {
    Q_OBJECT
public:
    TWTransportView(TWWorkspace& workspace, TWPlayer& player, TWPreferences& preferences, QWidget* parent = nullptr);

    // The file entry before or after the one selected, in the list's order, selected.
    void selectNeighbour(int step);

private:
    void optionsChanged();

    TWWorkspace& m_workspace;
    TWPlayer& m_player;
    QAbstractButton* m_play = nullptr;
    QAbstractButton* m_options[4] = {};
    QSlider* m_volume = nullptr;
    QSlider* m_varispeed = nullptr;
};
