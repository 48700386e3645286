// The pitch detector and the tempo meter on generated tones and clicks, and the file operations that
// run them (LXAudioFile::pitch, tempoGuess) on files sox wrote.

#include "TestAudio.h"
#include "lx/LXAudioFile.h"
#include "lx/dsp/LXPitchDetector.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <vector>

namespace {

constexpr double kRate = 44100;

enum class Timbre { Saw, Square, Piano };

// One second of a harmonic tone: a band-limited saw or square, or a struck string whose partials are
// slightly stretched (as a piano's are) and die away faster the higher they are, under 30 ms of noise.
std::vector<float> tone(Timbre timbre, int note, uint32_t seed) {
    const double f0 = 440.0 * std::pow(2.0, (note - 69) / 12.0);
    std::mt19937 random(seed);
    std::normal_distribution<float> noise(0.0f, 0.5f);
    std::vector<float> out(static_cast<size_t>(kRate));
    for (size_t i = 0; i < out.size(); ++i) {
        const double t = double(i) / kRate;
        double s = 0.0;
        for (int k = 1; k <= 60; ++k) {
            const double stretch = timbre == Timbre::Piano ? std::sqrt(1.0 + 0.0004 * k * k) : 1.0;
            const double f = k * f0 * stretch;
            if (f >= 0.45 * kRate) break;
            if (timbre == Timbre::Square && k % 2 == 0) continue;
            const double decay = timbre == Timbre::Piano ? std::exp(-t * (1.0 + 0.6 * k)) : 1.0;
            s += decay * std::sin(2.0 * std::numbers::pi * f * t) / k;
        }
        out[i] = float(0.3 * s) +
                 (timbre == Timbre::Piano && t < 0.03 ? noise(random) * float(1.0 - t / 0.03) : 0.0f);
    }
    return out;
}

std::optional<int> detect(const std::vector<float>& mono) {
    LXPitchDetector detector(int64_t(mono.size()));
    detector.prepare(1, kRate, {0});
    for (size_t at = 0; at < mono.size(); at += 16384)
        detector.measure(mono.data() + at, int64_t(std::min<size_t>(16384, mono.size() - at)));
    return detector.note();
}

class Estimates : public testing::Test {
protected:
    QTemporaryDir dir;
    std::unique_ptr<LXAudioFile> soxFile(const QString& name, const QStringList& args,
                                         const QStringList& effects) {
        const QString path = dir.filePath(name);
        EXPECT_TRUE(TestAudio::generateWithSox(path, args, effects));
        auto file = LXAudioFile::open(path);
        EXPECT_TRUE(file) << name.toStdString();
        return file ? std::move(*file) : nullptr;
    }
};

} // namespace

// 100 tones from MIDI 24 to 108, the three timbres in turn: at least 98 read their own note.
TEST(PitchDetector, HarmonicTonesReadTheirNote) {
    int exact = 0;
    for (int i = 0; i < 100; ++i) {
        const int note = 24 + i * 84 / 99;
        const auto heard = detect(tone(Timbre(i % 3), note, uint32_t(i)));
        if (heard == note) {
            ++exact;
        } else {
            ADD_FAILURE() << "note " << note << " timbre " << i % 3 << " read " << heard.value_or(-1);
        }
    }
    RecordProperty("exact", exact);
    EXPECT_GE(exact, 98);
}

// Silence and noise have no pitch; one channel's tone is found when that channel is asked for, and the
// other channel's noise is not heard in it.
TEST_F(Estimates, PitchOfChannelsAndRanges) {
    const auto silence = soxFile("silence.wav", {"-n", "-r", "44100", "-c", "1"}, {"trim", "0", "1"});
    ASSERT_TRUE(silence);
    EXPECT_EQ(*silence->pitch(0, silence->frames(), {0}), std::nullopt);

    // Left: white noise; right: a 220 Hz saw (A3, MIDI 57).
    const auto stereo = soxFile("stereo.wav", {"-n", "-r", "44100", "-c", "2"},
                                {"synth", "2", "whitenoise", "sawtooth", "220", "vol", "0.5"});
    ASSERT_TRUE(stereo);
    EXPECT_EQ(*stereo->pitch(0, stereo->frames(), {1}), 57);
    EXPECT_EQ(*stereo->pitch(44100, stereo->frames(), {1}), 57) << "a range";
    EXPECT_EQ(*stereo->pitch(0, stereo->frames(), {0}), std::nullopt) << "noise";
}

// A click track at 120 BPM reads within 1 BPM; a single struck note and silence read 0.
TEST_F(Estimates, TempoOfClicksAndOneShots) {
    // 20 clicks of 10 ms (a decaying 1 kHz burst) half a second apart.
    const auto clicks = soxFile("clicks.wav", {"-n", "-r", "44100", "-c", "1"},
                                {"synth", "0.01", "sine", "1000", "fade", "q", "0", "0.01", "0.01", "pad",
                                 "0", "0.49", "repeat", "19"});
    ASSERT_TRUE(clicks);
    const auto bpm = clicks->tempoGuess();
    ASSERT_TRUE(bpm);
    RecordProperty("clicks", std::to_string(*bpm));
    EXPECT_NEAR(*bpm, 120.0, 1.0);

    const auto pluck = soxFile("pluck.wav", {"-n", "-r", "44100", "-c", "2"}, {"synth", "2", "pluck", "220"});
    ASSERT_TRUE(pluck);
    EXPECT_EQ(*pluck->tempoGuess(), 0.0);
    EXPECT_EQ(*pluck->pitch(0, pluck->frames(), pluck->channelSet()), 57);
}
