#include "shell/playback/TWPlayer.h"

#include "shell/playback/TWAudioOutput.h"
#include "shell/playback/TWMidiInput.h"

#include "engine/TWAction.h"
#include "engine/TWWorkflowEditor.h"
#include "model/TWFileEntry.h"
#include "model/TWWorkspace.h"
#include "platform/TWHandOver.h"
#include "platform/TWPreferences.h"

#include <algorithm>
#include <cmath>

namespace {

// A position this close to the range's end counts as the end: "Continue" then starts over.
constexpr double kContinueTolerance = 0.001;

const QString kAutoplay = QStringLiteral("Autoplay");
const QString kContinue = QStringLiteral("Continue");
const QString kRepeat = QStringLiteral("Repeat");
const QString kAutoscroll = QStringLiteral("Autoscroll");
const QString kVolume = QStringLiteral("Volume");
const QString kVarispeed = QStringLiteral("Varispeed");
const QString kMidiEnabled = QStringLiteral("MIDI Enabled");
const QString kMidiPort = QStringLiteral("MIDI Port");
const QString kMidiChannel = QStringLiteral("MIDI Channel");
const QString kOverrideBaseNote = QStringLiteral("MIDI Override Base Note");
const QString kLatencyCompensation = QStringLiteral("Playback Latency Compensation");

} // namespace

TWPlayer::TWPlayer(TWWorkspace& workspace, TWPreferences& preferences, std::unique_ptr<TWAudioOutput> output)
    : m_workspace(workspace), m_preferences(preferences), m_output(std::move(output)),
      m_stream(std::make_unique<LXPlaybackStream>(static_cast<LXPlaybackDelegate*>(this))),
      m_midi(std::make_unique<TWMidiInput>(this, [this](bool on, int channel, int note) {
          if (on)
              midiNoteOn(channel, note);
          else
              midiNoteOff(channel, note);
      })) {
    m_master.setLayers({&m_layer});
    m_stream->construct(m_master);
    connect(&workspace, &TWWorkspace::stopPlaybackRequested, this, &TWPlayer::stop);
    workspace.setPlaybackService(this);
}

TWPlayer::~TWPlayer() {
    if (m_workspace.playbackService() == this) m_workspace.setPlaybackService(nullptr);
    m_midi.reset();
    m_output->stop();
    m_stream.reset(); // its thread ends before the layers it reads go
}

LXStatus TWPlayer::construct() {
    LX_TRY(m_output->open(*m_stream));
    if (m_preferences.contains(kVolume)) m_stream->setVolume(float(m_preferences.doubleValue(kVolume)));
    if (m_preferences.contains(kVarispeed)) m_stream->setVarispeed(double(m_preferences.integerValue(kVarispeed)));
    LX_TRY(m_output->start());
    m_constructed = true;
    return {};
}

// Live previews ----------------------------------------------------------------------------------------------

void TWPlayer::setWorkflowEditor(const TWWorkflowEditor* editor) {
    if (m_editor) disconnect(m_editor, nullptr, this, nullptr);
    m_editor = editor;
    if (editor) {
        connect(editor, &TWWorkflowEditor::actionsChanged, this, &TWPlayer::updateLivePreviews);
        connect(editor, &QObject::destroyed, this, [this] {
            m_editor = nullptr;
            updateLivePreviews();
        });
    }
    updateLivePreviews();
}

// Asking an action for its entry sets the entry to the action's settings. The chain changes only where
// the workflow did: an entry that stays is not prepared again, which would make it forget what it heard.
void TWPlayer::updateLivePreviews() {
    std::vector<std::shared_ptr<LXEffectEntry>> wanted;
    for (qsizetype i = 0; m_editor && i < m_editor->count(); ++i)
        if (std::shared_ptr<LXEffectEntry> entry = m_editor->actionAt(i)->livePreviewEntry())
            wanted.push_back(std::move(entry));
    for (auto held = m_livePreviews.begin(); held != m_livePreviews.end();) {
        if (std::find(wanted.begin(), wanted.end(), *held) != wanted.end()) {
            ++held;
            continue;
        }
        m_layer.deleteAudioUnit(held->get());
        held = m_livePreviews.erase(held);
    }
    for (size_t i = 0; i < wanted.size(); ++i) {
        if (i < m_livePreviews.size() && m_livePreviews[i] == wanted[i]) continue;
        const auto moved = std::find(m_livePreviews.begin() + qsizetype(i), m_livePreviews.end(), wanted[i]);
        if (moved != m_livePreviews.end()) {
            m_layer.deleteAudioUnit(moved->get());
            m_livePreviews.erase(moved);
        }
        m_layer.addAudioUnitEntry(wanted[i], int(i));
        m_livePreviews.insert(m_livePreviews.begin() + qsizetype(i), wanted[i]);
    }
}

// The play range ---------------------------------------------------------------------------------------------

LXRange TWPlayer::playRange() {
    loadSelectedFile();
    LXRange range(0.0, totalTime());
    for (qsizetype i = 0; m_editor && i < m_editor->count(); ++i) {
        const TWAction* action = m_editor->actionAt(i);
        const QList<double>& values = action->previewValues().values;
        if (values.isEmpty()) continue;
        const QString name = action->className();
        if (name == u"TWActionTrimEndBelow" || name == u"TWActionTrimEndFor") {
            range.setEnd(values.at(0));
        } else if (name == u"TWActionTrimBeginningBelow" || name == u"TWActionTrimBeginningTo") {
            range.setStart(values.at(0));
        } else if ((name == u"TWActionTrimAroundLoop" || name == u"TWActionShorten") && values.size() > 1) {
            range.setStart(values.at(0));
            range.setEnd(values.at(1));
        }
    }
    if (!m_selection.isEmpty()) range = LXRange(m_selection.start(), m_selection.end());
    return range;
}

void TWPlayer::play() {
    LXRange range = playRange();
    if (!(range.length() > 0)) return;
    m_stream->setPlaybackRepeatRange(m_preferences.boolValue(kRepeat) ? range : LXRange(), 0);
    // Only the tolerance around the end is looked at: a position past the end still resumes there.
    if (m_preferences.boolValue(kContinue) && !(range.start() > m_playTime) &&
        std::abs(m_playTime - range.end()) > kContinueTolerance)
        range.setStart(m_playTime);
    playRange(range);
}

void TWPlayer::playAll() {
    loadSelectedFile();
    playRange(LXRange(0.0, totalTime()));
}

void TWPlayer::playFrom(double seconds) {
    loadSelectedFile();
    playRange(LXRange(seconds, totalTime()));
}

void TWPlayer::playRange(const LXRange& range, int midiNote) {
    loadSelectedFile();
    if (!m_constructed || !m_layer.hasAudioFile()) return;
    updateLivePreviews();
    m_layer.preparePlaybackRange(range);
    m_master.preparePlaybackRange(range);
    m_master.setLatencyCompensation(m_preferences.boolValue(kLatencyCompensation) ? m_layer.latency() : 0.0);
    m_currentMIDINote = midiNote;
    m_stream->setMidiPlaybackNote(midiNote);
    m_stream->startPlayback();
}

void TWPlayer::stop() {
    if (!m_stream->isPlaying()) return;
    m_stream->stopPlayback();
    m_playTime = m_stream->position();
}

void TWPlayer::updateRepeats() {
    m_stream->setPlaybackRepeatRange(m_preferences.boolValue(kRepeat) ? playRange() : LXRange(), 0);
}

void TWPlayer::stopPlaybackOfPath(const QString& path) {
    {
        std::lock_guard lock(m_pathMutex);
        if (path.isEmpty() || path != m_loadedPath) return;
    }
    m_stream->stopPlayback();
}

// The selected file entry's file goes into the layer when it is not there yet.
void TWPlayer::loadSelectedFile() {
    const TWFileEntryPtr entry = m_workspace.selectedFileEntry();
    const QString path = entry ? entry->path() : QString();
    if (path == m_layer.path() && (path.isEmpty() || m_layer.hasAudioFile())) return;
    stop();
    m_layer.setAudioFile(entry ? entry->audioFile() : nullptr);
    m_playTime = 0.0;
    std::lock_guard lock(m_pathMutex);
    m_loadedPath = m_layer.path();
    m_loadedEntry = m_layer.hasAudioFile() ? entry : nullptr;
}

// Transport ------------------------------------------------------------------------------------------------

void TWPlayer::playCommand() {
    if (m_stream->isPlaying())
        stop();
    else
        play();
}

void TWPlayer::volume(float volume) {
    m_stream->setVolume(volume);
    m_preferences.setValue(kVolume, double(m_stream->volume()));
}

int TWPlayer::varispeed(int value, Modifier modifier) {
    if (modifier == Modifier::Shift) value = value / 100 * 100;
    if (modifier == Modifier::Command) value = 0;
    m_stream->setVarispeed(value);
    const int shown = int(m_stream->varispeed());
    m_preferences.setValue(kVarispeed, qint64(shown));
    return shown;
}

void TWPlayer::playbackControlChanged(bool autoplay, bool resume, bool repeat, bool autoscroll) {
    m_preferences.setValue(kAutoplay, autoplay);
    m_preferences.setValue(kContinue, resume);
    m_preferences.setValue(kRepeat, repeat);
    m_preferences.setValue(kAutoscroll, autoscroll);
    if (m_stream->isPlaying())
        m_stream->setPlaybackRepeatRange(repeat ? LXRange(0.0, totalTime()) : LXRange(0.0, 0.0), 0);
}

LXStatus TWPlayer::updateMIDI() {
    m_midi->disconnect();
    if (!m_preferences.boolValue(kMidiEnabled)) return {};
    return m_midi->connect(int(m_preferences.integerValue(kMidiPort)));
}

bool TWPlayer::isMIDIConnected() const {
    return m_midi->isConnected();
}

void TWPlayer::midiNoteOn(int channel, int note) {
    const qint64 accepted = m_preferences.integerValue(kMidiChannel);
    if (accepted != 0 && accepted != channel) return;
    loadSelectedFile();
    const int base = m_preferences.boolValue(kOverrideBaseNote) ? 60 : (m_layer.midiBaseNote() & 0xFF);
    m_stream->setMidiBaseNote(base);
    playRange(LXRange(0.0, totalTime()), note);
}

void TWPlayer::midiNoteOff(int channel, int note) {
    const qint64 accepted = m_preferences.integerValue(kMidiChannel);
    if (accepted != 0 && accepted != channel) return;
    if (note == m_currentMIDINote) stop();
}

// The stream's news -----------------------------------------------------------------------------------------

void TWPlayer::playback(double seconds) {
    TWHandOver(this, [this, seconds] {
        m_playTime = seconds;
        emit playbackPositionChanged(seconds);
    });
}

// The status changes on the thread that starts or stops the playback, before it returns: the work thread
// that stops a playback to change the file pushes its own status next, and must find the stack at rest.
void TWPlayer::playbackDidStart() {
    TWFileEntryPtr entry;
    {
        std::lock_guard lock(m_pathMutex);
        m_playingStatus.reset();
        m_playingEntry = entry = m_loadedEntry;
        if (entry) m_playingStatus.emplace(*entry, TWStatus::Playing);
    }
    if (entry) m_workspace.reloadEntry(entry.get());
    TWHandOver(this, [this] { emit playbackStarted(); });
}

void TWPlayer::playbackDidStop() {
    TWFileEntryPtr entry;
    {
        std::lock_guard lock(m_pathMutex);
        m_playingStatus.reset();
        entry = std::move(m_playingEntry);
    }
    if (entry) m_workspace.reloadEntry(entry.get());
    TWHandOver(this, [this] { emit playbackStopped(); });
}
