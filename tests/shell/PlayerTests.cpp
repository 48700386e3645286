// The player on the null output: what it plays of a real file, sample for sample, over the range the
// workflow's previews and the selection decide; volume, varispeed and MIDI transposition measured on the
// output; the effect chain's delay; the work thread stopping a playback. Run under ThreadSanitizer too.

#include "PlayerTestSupport.h"

#include "engine/TWPanelModel.h"
#include "engine/TWWorkflowEditor.h"
#include "lx/plugins/LXAudioUnitEntry.h"
#include "shell/playback/TWNullOutput.h"

#include <QCoreApplication>

#include <cstdlib>
#include <new>

using namespace PlayerTest;

namespace {

constexpr int64_t kRate = 44100;

// Counts the allocations made on a thread while it says so: the audio callback must make none.
thread_local bool t_countAllocations = false;
std::atomic<int> g_allocations{0};

class NullPlayer : public Fixture {
protected:
    void SetUp() override {
        Fixture::SetUp();
        auto output = std::make_unique<TWNullOutput>(double(kRate), 512);
        m_output = output.get();
        ASSERT_TRUE(makePlayer(std::move(output)).construct());
        QObject::connect(m_player.get(), &TWPlayer::playbackStopped, [this] { ++m_stops; });
    }
    // Five seconds of the pattern (a 600 Hz sine and a triangle), selected.
    QString selectPattern(double seconds = 5.0) {
        m_path = path(QStringLiteral("pattern.wav"));
        selectFile("pattern.wav", {.frames = int64_t(seconds * kRate)});
        return m_path;
    }
    // A workflow whose trims keep 1.5 s to 4.0 s of the five-second file, their previews shown.
    void trimTo1_5And4_0() {
        auto file = LXAudioFile::open(m_path);
        ASSERT_TRUE(file);
        TWAction* beginning = m_editor.addActionOfClass("TWActionTrimBeginningTo");
        beginning->setInstructions({{"units", 1}, {"beginningTo", 1.5}});
        TWAction* end = m_editor.addActionOfClass("TWActionTrimEndFor");
        end->setInstructions({{"units", 1}, {"endFor", 1.0}});
        beginning->updatePreviewForAudioFile(**file);
        end->updatePreviewForAudioFile(**file);
        m_player->setWorkflowEditor(&m_editor);
    }
    // Renders the frames and returns them, the output emptied.
    std::vector<float> render(int64_t frames) {
        m_output->clear();
        m_output->renderFrames(frames);
        return m_output->rendered();
    }
    // Renders past the end of the playback and returns what was played before silence, once the main
    // thread has heard of the end (news of an earlier stop delivered first, so as not to be taken for it).
    std::vector<float> renderToEnd(int64_t atMost) {
        QCoreApplication::processEvents();
        const int stops = m_stops;
        std::vector<float> out = render(atMost);
        EXPECT_TRUE(ModelTest::runUntil([&] { return m_stops > stops; }, 5000));
        EXPECT_FALSE(m_player->isPlaying());
        while (!out.empty() && out.back() == 0.0f)
            out.pop_back();
        out.resize((out.size() + 1) / 2 * 2);
        return out;
    }
    void expectFileFrames(const std::vector<float>& played, int64_t start) {
        const std::vector<float> file = framesOf(m_path, start, int64_t(played.size()) / 2);
        ASSERT_EQ(played.size(), file.size());
        EXPECT_TRUE(played == file) << "not the file's frames from " << start;
    }

    TWNullOutput* m_output = nullptr;
    int m_stops = 0;
    TWWorkflowEditor m_editor;
    QString m_path;
};

// Zero crossings upwards of the left channel per second of output.
double frequencyOf(const std::vector<float>& stereo) {
    int crossings = 0;
    for (size_t i = 2; i < stereo.size(); i += 2)
        crossings += stereo[i - 2] < 0.0f && stereo[i] >= 0.0f;
    return crossings / (double(stereo.size() / 2) / kRate);
}

// The peak of the left channel over output frames [from, to), in dBFS.
double peakDecibels(const std::vector<float>& stereo, int64_t from, int64_t to) {
    float peak = 0.0f;
    for (int64_t frame = from; frame < to; ++frame)
        peak = std::max(peak, std::abs(stereo[size_t(frame) * 2]));
    return 20.0 * std::log10(peak);
}

qsizetype controlOf(const TWPanelModel& panel, const QString& key) {
    const QList<TWControl>& controls = panel.controls();
    return std::find_if(controls.begin(), controls.end(), [&](const TWControl& c) { return c.key == key; }) - controls.begin();
}

// An effect with a delay: the signal comes out `delay` frames late, as through a look-ahead limiter.
class DelayEntry final : public LXEffectEntry {
public:
    explicit DelayEntry(int delay) : m_delay(delay) {}
    LXStatus prepare(double, int channels, int64_t) override {
        m_channels = channels;
        m_line.assign(size_t(m_delay * channels), 0.0f);
        return {};
    }
    void process(float* interleaved, int64_t frames) override {
        for (int64_t i = 0; i < frames * m_channels; ++i) {
            const float in = interleaved[i];
            interleaved[i] = m_line[m_at];
            m_line[m_at] = in;
            m_at = (m_at + 1) % m_line.size();
        }
    }
    void process(double*, int64_t) override {} // the player plays floats
    void reset() override {
        std::fill(m_line.begin(), m_line.end(), 0.0f);
        m_at = 0;
    }
    int64_t latency() const override { return m_delay; }

private:
    int m_delay, m_channels = 2;
    std::vector<float> m_line;
    size_t m_at = 0;
};

} // namespace

// Counting replaces the program's allocator, which AddressSanitizer must own: under it nothing is counted.
#if !defined(__SANITIZE_ADDRESS__)
void* operator new(std::size_t size) {
    if (t_countAllocations) g_allocations.fetch_add(1);
    if (void* memory = std::malloc(size ? size : 1)) return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
#endif

TEST_F(NullPlayer, TrimPreviewsNarrowThePlayRangeAndASelectionReplacesIt) {
    selectPattern();
    EXPECT_DOUBLE_EQ(m_player->playRange().start(), 0.0);
    EXPECT_DOUBLE_EQ(m_player->playRange().end(), 5.0);

    trimTo1_5And4_0();
    EXPECT_DOUBLE_EQ(workspace().playRange().start(), 1.5);
    EXPECT_DOUBLE_EQ(workspace().playRange().end(), 4.0);
    workspace().play();
    EXPECT_TRUE(m_player->isPlaying());
    std::vector<float> played = renderToEnd(3 * kRate);
    EXPECT_EQ(played.size(), size_t(2.5 * kRate) * 2);
    expectFileFrames(played, int64_t(1.5 * kRate));
    EXPECT_DOUBLE_EQ(m_player->playTime(), 4.0);

    m_player->setSelectionRange(LXRange(0.5, 1.0));
    EXPECT_DOUBLE_EQ(m_player->playRange().start(), 0.5);
    EXPECT_DOUBLE_EQ(m_player->playRange().end(), 1.0);
    m_player->play();
    played = renderToEnd(kRate);
    EXPECT_EQ(played.size(), size_t(0.5 * kRate) * 2);
    expectFileFrames(played, int64_t(0.5 * kRate));
    EXPECT_EQ(m_player->stream().underruns(), 0);
}

TEST_F(NullPlayer, ContinueResumesWhereItStoppedUnlessWithinAMillisecondOfTheEnd) {
    selectPattern();
    TWPreferences::shared().setValue("Continue", true);
    m_player->play();
    render(2 * kRate);
    m_player->playCommand(); // stops
    EXPECT_FALSE(m_player->isPlaying());
    EXPECT_DOUBLE_EQ(m_player->playTime(), 2.0);
    m_player->playCommand();
    expectFileFrames(render(kRate / 10), 2 * kRate);
    m_player->stop();

    trimTo1_5And4_0();
    // 22 frames (0.5 ms) before the end counts as the end: the range starts over.
    m_player->playFrom(1.5);
    render(int64_t(2.5 * kRate) - 22);
    m_player->stop();
    EXPECT_NEAR(m_player->playTime(), 4.0, 0.001);
    m_player->play();
    expectFileFrames(render(kRate / 10), int64_t(1.5 * kRate));
    // 2 ms before the end resumes there.
    m_player->playFrom(1.5);
    render(int64_t(2.5 * kRate) - 88);
    m_player->stop();
    m_player->play();
    expectFileFrames(renderToEnd(kRate / 10), int64_t(4.0 * kRate) - 88);
}

TEST_F(NullPlayer, RepeatPlaysTheRangeOverAndOverUntilTurnedOff) {
    selectPattern(2.0);
    TWPreferences::shared().setValue("Repeat", true);
    m_player->setSelectionRange(LXRange(1.0, 1.1));
    m_player->play();
    const std::vector<float> played = render(3 * kRate / 10 + 100);
    const size_t loop = size_t(kRate / 10) * 2;
    const std::vector<float> once(played.begin(), played.begin() + loop);
    expectFileFrames(once, kRate);
    for (int pass = 1; pass < 3; ++pass)
        EXPECT_TRUE(std::equal(once.begin(), once.end(), played.begin() + pass * loop)) << "pass " << pass;

    m_player->playbackControlChanged(false, false, false, false);
    renderToEnd(kRate);
    EXPECT_FALSE(m_player->isPlaying()) << "the loop under way plays out, then playback ends";
}

TEST_F(NullPlayer, VolumeScalesAndVarispeedChangesSpeedAndPitchTogether) {
    selectPattern(1.0);
    m_player->volume(0.5f);
    EXPECT_DOUBLE_EQ(TWPreferences::shared().doubleValue("Volume"), 0.5);
    m_player->playAll();
    std::vector<float> played = render(kRate / 10);
    std::vector<float> file = framesOf(m_path, 0, kRate / 10);
    for (float& sample : file)
        sample *= 0.5f;
    EXPECT_TRUE(played == file);
    m_player->volume(1.0f);

    // Cents: an octave up plays the second in half the time, the 600 Hz sine at 1200 Hz.
    EXPECT_EQ(m_player->varispeed(1200), 1200);
    m_player->playAll();
    played = renderToEnd(kRate);
    EXPECT_NEAR(double(played.size() / 2), kRate / 2.0, 2.0);
    EXPECT_NEAR(frequencyOf(played), 1200.0, 10.0);
    m_player->varispeed(-1200);
    m_player->playAll();
    played = renderToEnd(3 * kRate);
    EXPECT_NEAR(double(played.size() / 2), 2.0 * kRate, 2.0);
    EXPECT_NEAR(frequencyOf(played), 300.0, 5.0);

    // The slider's modifiers: Shift keeps whole semitones, truncated toward zero; Command resets.
    EXPECT_EQ(m_player->varispeed(250, TWPlayer::Modifier::Shift), 200);
    EXPECT_EQ(m_player->varispeed(-150, TWPlayer::Modifier::Shift), -100);
    EXPECT_EQ(TWPreferences::shared().integerValue("Varispeed"), -100);
    EXPECT_EQ(m_player->varispeed(700, TWPlayer::Modifier::Command), 0);
}

TEST_F(NullPlayer, MidiNotesPlayTheWholeFileTransposedOnTheChosenChannel) {
    selectPattern(1.0);
    m_player->setSelectionRange(LXRange(0.2, 0.4)); // a MIDI playback ignores it
    TWPreferences::shared().setValue("MIDI Channel", 3);
    m_player->midiNoteOn(2, 72);
    EXPECT_FALSE(m_player->isPlaying()) << "another channel";
    m_player->midiNoteOn(3, 72);
    EXPECT_EQ(m_player->currentMIDINote(), 72);
    const std::vector<float> start = render(kRate / 10);
    EXPECT_NEAR(frequencyOf(start), 1200.0, 20.0) << "an octave above the base note 60";
    m_player->midiNoteOff(3, 71);
    EXPECT_TRUE(m_player->isPlaying()) << "the note off of another note";
    m_player->midiNoteOff(3, 72);
    EXPECT_FALSE(m_player->isPlaying());

    TWPreferences::shared().setValue("MIDI Channel", 0);
    m_player->midiNoteOn(9, 60);
    EXPECT_NEAR(double(renderToEnd(2 * kRate).size() / 2), double(kRate), 2.0) << "the base note: the whole second";
}

TEST_F(NullPlayer, TheEffectChainsDelayIsCompensatedAtTheStart) {
    selectPattern(1.0);
    auto delay = std::make_shared<DelayEntry>(300);
    m_player->layer().addAudioUnitEntry(delay, 0);
    EXPECT_DOUBLE_EQ(m_player->layer().latency(), 300.0 / kRate);

    m_player->playAll();
    expectFileFrames(render(kRate / 10), 0);
    m_player->stop();

    TWPreferences::shared().setValue("Playback Latency Compensation", false);
    m_player->playAll();
    std::vector<float> played = render(kRate / 10);
    EXPECT_TRUE(std::all_of(played.begin(), played.begin() + 600, [](float s) { return s == 0.0f; }));
    played.erase(played.begin(), played.begin() + 600);
    expectFileFrames(played, 0);
    m_player->stop();

    m_player->layer().deleteAudioUnit(delay.get());
    EXPECT_DOUBLE_EQ(m_player->layer().latency(), 0.0);
}

// By design the callback touches only atomics and memory made beforehand (LXRealtimeGate, LXPlaybackRing);
// this holds it to that, over a playback's start, its repeats, an underrun and its end.
TEST_F(NullPlayer, TheAudioCallbackNeverAllocates) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "AddressSanitizer owns the allocator, so allocations cannot be counted";
#endif
    selectPattern(0.5);
    m_player->layer().addAudioUnitEntry(std::make_shared<DelayEntry>(64), 0);
    TWPreferences::shared().setValue("Repeat", true);
    m_player->setSelectionRange(LXRange(0.1, 0.2));
    m_player->play();
    std::vector<float> block(1024 * 2);
    t_countAllocations = true;
    ::operator delete(::operator new(4)); // a call, which unlike a new-expression is never left out
    t_countAllocations = false;
    ASSERT_EQ(g_allocations.exchange(0), 1) << "the counting allocator is not in use";
    for (int i = 0; i < 200; ++i) {
        if (i % 8 == 0) m_player->stream().waitForBuffers();
        t_countAllocations = true;
        m_player->stream().render(block.data(), 1024);
        t_countAllocations = false;
    }
    m_player->playbackControlChanged(false, false, false, false);
    for (int i = 0; i < 200; ++i) {
        m_player->stream().waitForBuffers();
        t_countAllocations = true;
        m_player->stream().render(block.data(), 1024);
        t_countAllocations = false;
    }
    EXPECT_EQ(g_allocations.load(), 0);
}

TEST_F(NullPlayer, AWorkflowRunStopsPlaybackOfTheFileItIsAboutToChange) {
    const QString playing = selectPattern(1.0);
    const TWFileEntryPtr other = addFile("other.wav");
    m_player->playAll();
    auto gainOn = [&](const QString& file) {
        EngineTest::RunLog log(runs());
        QVariantMap gain = EngineTest::instructions("TWActionChangeGain", {{"level", -6.0}});
        gain.insert("paths", QStringList{file});
        runs().performInstructions({gain}, true);
        EXPECT_TRUE(ModelTest::runUntil([&] { return !log.endings.isEmpty(); }));
    };
    gainOn(other->path());
    EXPECT_TRUE(m_player->isPlaying()) << "another file";
    const float resting = workspace().selectedFileEntry()->statusAt(1);
    gainOn(playing);
    EXPECT_FALSE(m_player->isPlaying());
    EXPECT_EQ(workspace().selectedFileEntry()->status(), resting) << "neither playing nor busy";
    runs().stopWorkThread();
}

// The entry shows it is playing from the start to the stop, whether stopped or played to its end, and the
// workspace redisplays it at both.
TEST_F(NullPlayer, TheEntryShowsItIsPlayingUntilThePlaybackStops) {
    selectPattern(0.5);
    const TWFileEntryPtr entry = workspace().selectedFileEntry();
    const float resting = entry->status();
    int redisplays = 0;
    QObject::connect(&workspace(), &TWWorkspace::entryChanged, [&](TWEntry* changed) { redisplays += changed == entry.get(); });
    m_player->playAll();
    EXPECT_EQ(entry->status(), TWStatus::Playing);
    EXPECT_EQ(entry->statusAt(1), resting);
    m_player->stop();
    EXPECT_EQ(entry->status(), resting);
    EXPECT_TRUE(ModelTest::runUntil([&] { return redisplays == 2; }));

    m_player->playAll();
    renderToEnd(kRate);
    EXPECT_EQ(entry->status(), resting) << "stopped by the stream's thread at the end";
    EXPECT_NE(entry->statusAt(1), TWStatus::Playing);
}

// A compressor in the edited workflow is heard at the head of the chain, following its panel while playing,
// bypassed with its preview off, and gone with the action; several play in the workflow's order.
TEST_F(NullPlayer, TheWorkflowsLivePreviewsPlayAtTheHeadOfTheChain) {
    m_path = path(QStringLiteral("tone.wav"));
    selectFile("tone.wav", {.signal = TestAudio::Signal::Sine, .frames = 3 * kRate, .amplitude = 0.5});
    TWAction* compress = m_editor.addActionOfClass("TWActionCompress");
    compress->setInstructions({{"threshold", 20.0}, {"amount", 0.5}}); // 2:1 above -20 dBFS
    TWPanelModel panel(*compress);
    QObject::connect(&panel, &TWPanelModel::valueChanged, m_player.get(), &TWPlayer::updateLivePreviews);
    panel.setPreview(true);
    m_player->setWorkflowEditor(&m_editor);
    ASSERT_EQ(m_player->layer().audioUnitEntries().size(), 1u);

    // The static curve: a tone 14 dB over the threshold comes out 7 dB over it, once the attack is past.
    m_player->playAll();
    std::vector<float> played = render(kRate / 2);
    EXPECT_NEAR(peakDecibels(played, kRate / 4, kRate / 2), -13.01, 0.05);
    // No compression from the next block on; heard once the release has brought the gain back.
    panel.setValue(controlOf(panel, "amount"), 0.0);
    played = render(kRate / 2);
    EXPECT_NEAR(peakDecibels(played, kRate / 4, kRate / 2), -6.02, 0.05);
    m_player->stop();

    panel.setValue(controlOf(panel, "amount"), 0.5);
    panel.setPreview(false);
    m_player->playAll();
    expectFileFrames(render(kRate / 2), 0);

    const TWAction* expand = m_editor.insertActionOfClass("TWActionExpand", 0);
    using Chain = std::vector<std::shared_ptr<LXEffectEntry>>;
    const std::shared_ptr<LXEffectEntry> expander = m_player->layer().audioUnitEntries().front();
    const std::shared_ptr<LXEffectEntry> compressor = m_player->layer().audioUnitEntries().back();
    EXPECT_EQ(m_player->layer().audioUnitEntries().size(), 2u);
    m_editor.slideDownAction(0, 1);
    EXPECT_EQ(m_player->layer().audioUnitEntries(), (Chain{compressor, expander}));
    m_editor.removeAction(m_editor.indexOf(expand));
    m_editor.removeAction(0); // while playing
    EXPECT_TRUE(m_player->layer().audioUnitEntries().empty());
    render(kRate / 10);
    EXPECT_EQ(compressor.use_count(), 1) << "the action and the chain let go of it";
}

// A plug-in previewed live: the real LV2 delay line in the chain, its reported latency taken out at the
// start so the file is heard bit for bit, while its settings are saved and changed during the playback.
TEST_F(NullPlayer, APlugInsLivePreviewPlaysWithItsLatencyTakenOut) {
    selectPattern(1.0);
    TWAction* plugin = m_editor.addActionOfClass("TWActionAudioUnit");
    plugin->setInstructions(
        {{"settings", QVariantMap{{"Component", "http://gareus.org/oss/lv2/nodelay"}, {"Parameters", QVariantMap{{"delay", 300}}}}}});
    plugin->setPreview(true);
    m_player->setWorkflowEditor(&m_editor);
    ASSERT_EQ(m_player->layer().audioUnitEntries().size(), 1u);
    auto& entry = static_cast<LXAudioUnitEntry&>(*m_player->layer().audioUnitEntries().front());
    EXPECT_DOUBLE_EQ(m_player->layer().latency(), 300.0 / kRate);

    m_player->playAll();
    std::vector<float> played = render(kRate / 10);
    const QVariantMap saved = entry.state(); // while it plays: the blocks go on
    const std::vector<float> more = render(kRate / 10);
    played.insert(played.end(), more.begin(), more.end());
    expectFileFrames(played, 0);
    EXPECT_TRUE(saved["State"].toString().contains("delay"));
    m_player->stop();
}
