#pragma once

#include "model/TWFileEntry.h"
#include "model/TWPlaybackService.h"

#include "lx/LXResult.h"
#include "lx/playback/LXAudioFileLayer.h"
#include "lx/playback/LXMasterLayer.h"
#include "lx/playback/LXPlaybackStream.h"

#include <QObject>
#include <QPointer>

#include <memory>
#include <mutex>
#include <optional>

class TWAudioOutput;
class TWMidiInput;
class TWPreferences;
class TWWorkflowEditor;
class TWWorkspace;

// The workspace's player: the selected file entry's audio file in a file layer, mixed by the master layer
// into a playback stream that an output plays. It keeps the transport's state (the last position, the
// note that started the playback) and the playback preferences ("Autoplay", "Continue", "Repeat",
// "Autoscroll", "Volume", "Varispeed", "MIDI Enabled", "MIDI Port", "MIDI Channel", "MIDI Override Base
// Note", "Playback Latency Compensation"). The stream's news reach it on the main thread, and go on as signals;
// while a file plays, its entry shows the playing state (7), pushed on its status stack and popped when
// the playback stops, whichever thread stops it.
//
// Main thread, except stopPlaybackOfPath, which the work thread calls: a player is set on the workspace
// and removed only while no run is under way.
class TWPlayer final : public QObject, public TWPlaybackService, private LXPlaybackDelegate {
    Q_OBJECT
public:
    TWPlayer(TWWorkspace& workspace, TWPreferences& preferences, std::unique_ptr<TWAudioOutput> output);
    ~TWPlayer() override;

    // Opens the output and builds the graph, then restores "Volume" and "Varispeed" when set, and starts
    // the output. A failure leaves playback unavailable (nothing plays) and says why.
    LXStatus construct();
    // The workflow being edited (nullptr: none): its trim previews narrow the play range, and its actions'
    // live previews (TWAction::livePreviewEntry) play at the head of the file layer's chain, in the
    // workflow's order, while the actions are in it.
    void setWorkflowEditor(const TWWorkflowEditor* editor);
    // Brings the live previews up to the workflow: entries added, removed or moved where its actions were,
    // and every entry set to its action's settings and preview switch. Called when the workflow's actions
    // change and before each playback; the window calls it when a panel's value changes
    // (TWPanelModel::valueChanged). Safe while playing: the callback sees the chain change between blocks.
    void updateLivePreviews();
    // The waveform view's selection, in seconds (empty: none).
    void setSelectionRange(const LXRange& range) { m_selection = range; }

    // TWPlaybackService
    LXRange playRange() override;
    void play() override;
    void playAll() override;
    void playFrom(double seconds) override;
    void playRange(const LXRange& range, int midiNote = kNoMidiNote) override;
    void stop() override;
    void updateRepeats() override;
    bool isPlaying() const override { return m_stream->isPlaying(); }
    void stopPlaybackOfPath(const QString& path) override;

    // Transport commands. varispeed() answers the value the slider shows, in cents.
    enum class Modifier { None, Shift, Command };
    void playCommand(); // play: stops a playback, or plays
    void volume(float volume);
    int varispeed(int value, Modifier modifier = Modifier::None);
    void playbackControlChanged(bool autoplay, bool resume, bool repeat, bool autoscroll);

    // Listens to the MIDI source "MIDI Port" names while "MIDI Enabled" is on (after letting go of the
    // one before); a source that is not there connects nothing.
    LXStatus updateMIDI();
    bool isMIDIConnected() const;
    // MIDI audition: channel 1 to 16, note 0 to 127. A note on plays the whole file transposed from its
    // base note to the note; only the note off of the note playing stops it.
    void midiNoteOn(int channel, int note);
    void midiNoteOff(int channel, int note);

    double playTime() const { return m_playTime; }
    int currentMIDINote() const { return m_currentMIDINote; }
    double totalTime() const { return m_layer.totalTime(); }
    LXPlaybackStream& stream() { return *m_stream; }
    LXMasterLayer& masterLayer() { return m_master; }
    LXAudioFileLayer& layer() { return m_layer; }
    TWAudioOutput& output() { return *m_output; }

signals:
    void playbackPositionChanged(double seconds);
    void playbackStarted();
    void playbackStopped();

private:
    void loadSelectedFile();
    // LXPlaybackDelegate, on the stream's thread: handed to the main thread.
    void playback(double seconds) override;
    void playbackDidStart() override;
    void playbackDidStop() override;

    TWWorkspace& m_workspace;
    TWPreferences& m_preferences;
    std::unique_ptr<TWAudioOutput> m_output;
    LXAudioFileLayer m_layer;
    LXMasterLayer m_master;
    std::unique_ptr<LXPlaybackStream> m_stream;
    std::unique_ptr<TWMidiInput> m_midi;
    QPointer<const TWWorkflowEditor> m_editor;
    std::vector<std::shared_ptr<LXEffectEntry>> m_livePreviews; // the head of m_layer's chain, in order
    LXRange m_selection;
    double m_playTime = 0.0;
    int m_currentMIDINote = kNoMidiNote;
    bool m_constructed = false;

    // The file the layer holds and the entry shown playing, for the threads that stop a playback.
    std::mutex m_pathMutex;
    QString m_loadedPath;
    TWFileEntryPtr m_loadedEntry;
    TWFileEntryPtr m_playingEntry;
    std::optional<TWPushedStatus> m_playingStatus;
};
