// LV2 effects, in this process and in the plug-in host, rendered into files through the process stream.

#include "TestAudio.h"
#include "TestPlugins.h"
#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/LXProcessStream.h"
#include "lx/plugins/LXAudioUnitEntry.h"
#include "lx/plugins/LXHostedAudioUnitEntry.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace TestAudio;
using namespace TestPlugins;

namespace {

class AudioUnits : public ::testing::Test {
protected:
    static void SetUpTestSuite() { useTestPlugins(); }

    QString input(const QString& name, Sound sound) {
        sound.rate = 48000;
        sound.encoding = LXSampleEncoding::ieeeFloat(32, false);
        auto written = write(dir.filePath(name), sound);
        EXPECT_TRUE(written);
        return written ? *written : QString();
    }
    LXResult<QString> render(LXEffectEntry& entry, const QString& from, const QVariantMap& instructions,
                             const QString& name) {
        auto file = LXAudioFile::open(from);
        if (!file) return file.error();
        LXAudioFileWriter writer(**file);
        LX_TRY(LXProcessStream(entry).processAudioFile(**file, instructions, writer));
        LX_TRY(writer.saveFile(0, dir.filePath(name)));
        return dir.filePath(name);
    }
    static std::vector<float> samples(const QString& path, int* channels = nullptr) {
        auto file = LXAudioFile::open(path);
        if (!file) return {};
        std::vector<float> all(size_t((*file)->frames() * (*file)->numberOfChannels()));
        EXPECT_TRUE((*file)->readFrames(0, (*file)->frames(), all.data()));
        if (channels) *channels = (*file)->numberOfChannels();
        return all;
    }
    static std::unique_ptr<LXAudioUnitEntry> make(const char* component) {
        auto made = LXAudioUnitEntry::make(QString::fromLatin1(component));
        EXPECT_TRUE(made) << (made ? "" : made.error().description().toStdString());
        return made ? std::move(*made) : nullptr;
    }
    static QVariantMap settings(const char* component, const QVariantMap& parameters) {
        return {{"Component", QString::fromLatin1(component)}, {"Parameters", parameters}};
    }

    QTemporaryDir dir;
};

TEST_F(AudioUnits, InstalledEffectsAreDescribedAndThoseThatCannotRunHereLeftOut) {
    const QList<LXAudioUnitDescription> units = LXInstalledAudioUnits();
    const auto find = [&](const QString& uri) {
        return std::find_if(units.begin(), units.end(), [&](const auto& unit) { return unit.component == uri; });
    };
    ASSERT_NE(find(kDubDelay), units.end());
    EXPECT_NE(find(kFaulty), units.end());
    // The convolvers need a worker thread this host does not offer; instruments have no audio input.
    EXPECT_EQ(find("http://gareus.org/oss/lv2/convoLV2#Mono"), units.end());
    EXPECT_EQ(find("http://drobilla.net/plugins/mda/DX10"), units.end());

    const LXAudioUnitDescription& delay = *find(kDubDelay);
    EXPECT_EQ(delay.audioInputs, 2);
    const QList<LXAudioUnitPort> controls = delay.controlInputs();
    ASSERT_EQ(controls.size(), 7);
    EXPECT_EQ(controls[1].symbol, "feedback");
    EXPECT_FLOAT_EQ(controls[1].defaultValue, 0.7f);
    EXPECT_FLOAT_EQ(controls[1].maximum, 1.0f);

    const auto modes = LXFindAudioUnit(kNoDelay);
    ASSERT_TRUE(modes);
    EXPECT_EQ(modes->controlInputs()[1].scalePoints.size(), 4);
    EXPECT_EQ(modes->controlInputs()[0].unit, "frames");

    const auto missing = LXFindAudioUnit("urn:nowhere");
    ASSERT_FALSE(missing);
    EXPECT_TRUE(missing.error().message().contains("urn:nowhere"));
}

// A plug-in that reports its latency: with compensation the output is the input, sample for sample, in
// this process and in the host alike; without, it comes that many frames late.
TEST_F(AudioUnits, LatencyIsReportedAndCompensatedSampleExact) {
    const QString noise = input("noise.wav", {.signal = Signal::Noise, .channels = 2, .frames = 48000});
    const std::vector<float> want = samples(noise);
    auto local = make(kNoDelay);
    ASSERT_TRUE(local);
    local->setParameter("delay", 1000);
    LXHostedAudioUnitEntry hosted(settings(kNoDelay, {{"delay", 1000}}));
    for (LXEffectEntry* entry : {static_cast<LXEffectEntry*>(local.get()), static_cast<LXEffectEntry*>(&hosted)}) {
        for (const bool compensate : {true, false}) {
            const auto out = render(*entry, noise, {{"latencyCompensation", compensate}}, "out.wav");
            ASSERT_TRUE(out) << out.error().description().toStdString();
            EXPECT_EQ(entry->latency(), 1000);
            const std::vector<float> got = samples(*out);
            ASSERT_EQ(got.size(), want.size());
            const size_t late = compensate ? 0 : 2000; // samples of 1000 stereo frames
            for (size_t i = 0; i < got.size(); ++i)
                ASSERT_EQ(got[i], i < late ? 0.0f : want[i - late]) << i << (compensate ? " aligned" : " late");
        }
    }
}

TEST_F(AudioUnits, SavedSettingsGiveTheSameSoundInANewInstanceAndInTheHost) {
    const QString noise = input("noise.wav", {.signal = Signal::Noise, .channels = 2, .frames = 24000});
    auto first = make(kDubDelay);
    ASSERT_TRUE(first);
    first->setParameter("delay", 0.3f);
    first->setParameter("feedback", 0.5f);
    first->setParameter("fx_mix", 0.6f);
    first->setParameter("output", 7.0f); // beyond its range: kept at 1
    EXPECT_FLOAT_EQ(first->parameter("output"), 1.0f);
    const QVariantMap saved = first->state();
    EXPECT_EQ(saved["Name"], "MDA DubDelay");
    EXPECT_TRUE(saved["State"].toString().contains("feedback"));
    const auto reference = render(*first, noise, {}, "first.wav");
    ASSERT_TRUE(reference);

    auto second = make(kDubDelay);
    ASSERT_TRUE(second);
    ASSERT_TRUE(second->setState(saved));
    EXPECT_FLOAT_EQ(second->parameter("feedback"), 0.5f);
    LXHostedAudioUnitEntry hosted(saved);
    for (LXEffectEntry* entry : {static_cast<LXEffectEntry*>(second.get()), static_cast<LXEffectEntry*>(&hosted)}) {
        const auto again = render(*entry, noise, {}, "again.wav");
        ASSERT_TRUE(again) << again.error().description().toStdString();
        EXPECT_EQ(samples(*again), samples(*reference));
    }

    // A value edited by hand in the saved parameters wins over the same value inside the state.
    QVariantMap edited = saved;
    edited["Parameters"] = QVariantMap{{"feedback", 0.2}};
    ASSERT_TRUE(second->setState(edited));
    EXPECT_FLOAT_EQ(second->parameter("feedback"), 0.2f);
    EXPECT_FLOAT_EQ(second->parameter("delay"), 0.3f);
    EXPECT_FALSE(second->setState(settings(kNoDelay, {})));
}

TEST_F(AudioUnits, ATailIsKeptWhenAskedUpToItsMaximumAndChannelsFollowTheOutputCount) {
    const QString mono = input("mono.wav", {.signal = Signal::Noise, .channels = 1, .frames = 12000});
    auto delay = make(kDubDelay);
    ASSERT_TRUE(delay);
    delay->setParameter("delay", 0.05f);
    delay->setParameter("feedback", 0.95f);
    const auto frames = [&](const QString& path, int* channels = nullptr) {
        int count = 0;
        const size_t size = samples(path, &count).size();
        if (channels) *channels = count;
        return int64_t(size) / std::max(count, 1);
    };

    const auto cut = render(*delay, mono, {{"retainTail", false}}, "cut.wav");
    ASSERT_TRUE(cut);
    EXPECT_EQ(frames(*cut), 12000);
    const auto tail = render(*delay, mono, {{"retainTail", true}, {"retainTailMax", 30.0}}, "tail.wav");
    ASSERT_TRUE(tail);
    const int64_t withTail = frames(*tail);
    EXPECT_GT(withTail, 12000 + 48000);      // this feedback rings for seconds
    EXPECT_LT(withTail, 12000 + 30 * 48000); // and dies out before the maximum
    const auto capped = render(*delay, mono, {{"retainTail", true}, {"retainTailMax", 0.5}}, "capped.wav");
    ASSERT_TRUE(capped);
    EXPECT_NEAR(frames(*capped), 12000 + 24000, 2); // up to its last audible frame

    // A mono file through a stereo effect into two channels; two channels narrowed into one average them.
    int channels = 0;
    const auto wide = render(*delay, mono, {{"outputChannels", 2}}, "wide.wav");
    ASSERT_TRUE(wide);
    EXPECT_EQ(frames(*wide, &channels), 12000);
    EXPECT_EQ(channels, 2);
    EXPECT_EQ(readWithSox(*wide)->channels, 2);
    const QString stereo = input("stereo.wav", {.signal = Signal::Noise, .channels = 2, .frames = 12000});
    auto plain = make(kNoDelay); // mono: one instance a channel, delay 0
    ASSERT_TRUE(plain);
    const auto narrow = render(*plain, stereo, {{"outputChannels", 1}}, "narrow.wav");
    ASSERT_TRUE(narrow);
    const std::vector<float> both = samples(stereo), one = samples(*narrow, &channels);
    ASSERT_EQ(channels, 1);
    ASSERT_EQ(one.size(), 12000u);
    for (size_t f = 0; f < one.size(); ++f) ASSERT_FLOAT_EQ(one[f], (both[2 * f] + both[2 * f + 1]) / 2) << f;
}

TEST_F(AudioUnits, AHostThatCrashesOrHangsEndsTheRenderWithTheReasonAndANewOneStarts) {
    const QString loud = input("loud.wav", {.signal = Signal::Ramp, .channels = 1, .frames = 48000, .amplitude = 1.0});
    const QString quiet = input("quiet.wav", {.signal = Signal::Noise, .channels = 1, .frames = 48000});
    qputenv("CLIPWRIGHT_PLUGIN_TIMEOUT", "1");
    for (const double mode : {0.0, 1.0}) {
        LXHostedAudioUnitEntry faulty(settings(kFaulty, {{"mode", mode}}));
        const auto failed = render(faulty, loud, {}, "failed.wav");
        ASSERT_FALSE(failed);
        const QString why = failed.error().message();
        EXPECT_TRUE(why.contains(mode == 0 ? "'Faulty Test Effect' quit unexpectedly" : "stopped responding"))
            << why.toStdString();
        const auto recovered = render(faulty, quiet, {}, "recovered.wav");
        ASSERT_TRUE(recovered) << recovered.error().description().toStdString();
        EXPECT_EQ(samples(*recovered), samples(quiet));
    }
    qunsetenv("CLIPWRIGHT_PLUGIN_TIMEOUT");
}

} // namespace
