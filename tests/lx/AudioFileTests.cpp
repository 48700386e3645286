// LXAudioFile and LXAudioFileWriter on real files, with sox as the independent reader.

#include "LXAudioFile.h"
#include "LXAudioFileWriter.h"
#include "LXPcmContainer.h"
#include "LXWaveformCache.h"
#include "TestAudio.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <cmath>

using namespace TestAudio;

namespace {

class AudioFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(dir.isValid());
        LXWaveformCache::shared().setDirectory(dir.filePath(QStringLiteral("cache")));
    }
    QString path(const QString& name) const { return dir.filePath(name); }

    std::unique_ptr<LXAudioFile> open(const QString& p) {
        auto file = LXAudioFile::open(p);
        EXPECT_TRUE(file) << (file ? "" : file.error().description().toStdString());
        return file ? std::move(*file) : nullptr;
    }

    // Saves the writer's only file at p.
    void save(LXAudioFileWriter& writer, const QString& p) {
        auto saved = writer.saveFile(0, p);
        ASSERT_TRUE(saved) << saved.error().description().toStdString();
    }

    // Writes the sound at name and opens it.
    std::unique_ptr<LXAudioFile> make(const QString& name, const Sound& sound) {
        auto written = write(path(name), sound);
        EXPECT_TRUE(written) << (written ? "" : written.error().description().toStdString());
        return written ? open(*written) : nullptr;
    }

    Decoded sox(const QString& p) {
        auto decoded = readWithSox(p);
        EXPECT_TRUE(decoded) << (decoded ? "" : decoded.error().description().toStdString());
        return decoded ? *decoded : Decoded{};
    }

    QTemporaryDir dir;
};

class StopAfterBlocks : public LXProgressDelegate {
public:
    explicit StopAfterBlocks(int blocks, int32_t code) : m_left(blocks), m_code(code) {}
    void reset() override {}
    int32_t update(float) override { return --m_left > 0 ? LXContinue : m_code; }

private:
    int m_left;
    int32_t m_code;
};

struct EncodingCase {
    const char* name;
    uint32_t format;
    LXSampleEncoding encoding;
};

const EncodingCase kEncodings[] = {
    {"wav8", LXFormat::WAVE, LXSampleEncoding::pcm(8, false, true)},
    {"wav16", LXFormat::WAVE, LXSampleEncoding::pcm(16, false)},
    {"wav24", LXFormat::WAVE, LXSampleEncoding::pcm(24, false)},
    {"wav32", LXFormat::WAVE, LXSampleEncoding::pcm(32, false)},
    {"wavfloat", LXFormat::WAVE, LXSampleEncoding::ieeeFloat(32, false)},
    {"aif8", LXFormat::AIFF, LXSampleEncoding::pcm(8, true)},
    {"aif16", LXFormat::AIFF, LXSampleEncoding::pcm(16, true)},
    {"aif24", LXFormat::AIFF, LXSampleEncoding::pcm(24, true)},
    {"aif32", LXFormat::AIFF, LXSampleEncoding::pcm(32, true)},
    {"aiffloat", LXFormat::AIFC, LXSampleEncoding::ieeeFloat(32, true)},
};

} // namespace

// Copies, copied ranges and unchanged rewrites give back the source's exact sample values, for every
// depth of both native formats.
TEST_F(AudioFileTest, CopiesRangesAndRewritesAreBitExact) {
    for (const EncodingCase& c : kEncodings) {
        SCOPED_TRACE(c.name);
        // Noise: every bit of every sample in play.
        const Sound sound{.signal = Signal::Noise,
                          .channels = 3,
                          .frames = 30000,
                          .format = c.format,
                          .encoding = c.encoding,
                          .amplitude = 0.99};
        const QString ext = LXFormat::extension(c.format);
        auto source = write(path(QStringLiteral("%1.%2").arg(c.name, ext)), sound);
        ASSERT_TRUE(source) << source.error().description().toStdString();
        const Decoded original = sox(*source);
        ASSERT_EQ(original.frames(), sound.frames);

        auto file = open(*source);
        ASSERT_TRUE(file);
        EXPECT_EQ(file->depth(), c.encoding.bits);
        EXPECT_EQ(file->isFloat(), c.encoding.isFloat());

        LXAudioFileWriter copy(*file);
        ASSERT_EQ(file->copyToWriter(copy), LXContinue);
        save(copy, path(QStringLiteral("%1-copy.%2").arg(c.name, ext)));
        EXPECT_EQ(sox(copy.savedPath(0)).samples, original.samples);

        LXAudioFileWriter rewrite(*file);
        ASSERT_EQ(file->changeAmplitude({{"gain", 1.0}}, rewrite), LXContinue);
        save(rewrite, path(QStringLiteral("%1-rewrite.%2").arg(c.name, ext)));
        EXPECT_EQ(sox(rewrite.savedPath(0)).samples, original.samples);

        LXAudioFileWriter part(*file);
        ASSERT_EQ(file->copyRange(LXRange::fromFrames(1234, 20000, sound.rate), part), LXContinue);
        save(part, path(QStringLiteral("%1-range.%2").arg(c.name, ext)));
        const Decoded range = sox(part.savedPath(0));
        const std::vector<double> slice(original.samples.begin() + 1234 * 3,
                                        original.samples.begin() + 20000 * 3);
        EXPECT_EQ(range.samples, slice);
    }
}

TEST_F(AudioFileTest, GainMatchesSoxWithinOneLsb) {
    auto file = make("noise.wav", {.signal = Signal::Noise, .frames = 100000, .amplitude = 0.9});
    ASSERT_TRUE(file);
    LXAudioFileWriter writer(*file);
    const double gain = std::pow(10.0, -6.0206 / 20.0);
    ASSERT_EQ(file->changeAmplitude({{"gain", gain}}, writer), LXContinue);
    save(writer, path("ours.wav"));

    int exitCode = 0;
    runTool("sox", {"-D", "-v", "0.5", path("noise.wav"), path("sox.wav")}, &exitCode);
    ASSERT_EQ(exitCode, 0);
    const Decoded ours = sox(path("ours.wav"));
    const Decoded theirs = sox(path("sox.wav"));
    ASSERT_EQ(ours.samples.size(), theirs.samples.size());
    double worst = 0;
    for (size_t i = 0; i < ours.samples.size(); ++i)
        worst = std::max(worst, std::abs(ours.samples[i] - theirs.samples[i]) * 32768.0);
    EXPECT_LE(worst, 1.0);
}

TEST_F(AudioFileTest, FloatToIntegerClipsInsteadOfWrapping) {
    // Beyond full scale at both ends.
    auto file = make("loud.wav", {.signal = Signal::Ramp,
                                  .channels = 1,
                                  .encoding = LXSampleEncoding::ieeeFloat(32, false),
                                  .amplitude = 1.5});
    ASSERT_TRUE(file);
    for (int bits : {8, 16, 24, 32}) {
        SCOPED_TRACE(bits);
        LXAudioFileWriter writer(*file);
        writer.setDepth(bits);
        ASSERT_EQ(file->copyToWriter(writer), LXContinue);
        const QString out = path(QStringLiteral("clipped%1.wav").arg(bits));
        save(writer, out);
        const Decoded decoded = sox(out);
        ASSERT_FALSE(decoded.samples.empty());
        EXPECT_DOUBLE_EQ(decoded.samples.front(), -1.0);
        EXPECT_NEAR(decoded.samples.back(), 1.0, 1.0 / 128);
        // Monotonic: a wrapped sample would jump from the top to the bottom.
        for (size_t i = 1; i < decoded.samples.size(); ++i)
            ASSERT_GE(decoded.samples[i], decoded.samples[i - 1]) << "at frame " << i;
    }
}

TEST_F(AudioFileTest, ReadSampleMatchesBlockReadsAndIsSilentOutside) {
    const Sound sound{.frames = 10000};
    auto file = make("pattern.wav", sound);
    ASSERT_TRUE(file);
    std::vector<float> block(size_t(sound.frames * 2));
    ASSERT_TRUE(file->readFrames(0, sound.frames, block.data()));
    for (int64_t f = sound.frames - 1; f >= 0; f -= 7) // backwards, across cache blocks
        for (int c = 0; c < 2; ++c)
            ASSERT_EQ(file->readSample(f, c), block[size_t(f * 2 + c)]);
    EXPECT_EQ(file->readSample(sound.frames, 0), 0.0f);
    EXPECT_EQ(file->readSample(5, 2), 0.0f);
    EXPECT_EQ(file->readSample(-1, 0), 0.0f);

    std::vector<float> tail(200, 1.0f);
    auto got = file->readFrames(sound.frames - 50, 100, tail.data());
    ASSERT_TRUE(got);
    EXPECT_EQ(*got, 50);
    EXPECT_EQ(tail[150], 0.0f);
}

TEST_F(AudioFileTest, SplitSetOpensAsOneFileOfSeveralChannels) {
    const Sound sound{.channels = 3, .interleaved = false};
    auto lead = write(path("take"), sound);
    ASSERT_TRUE(lead) << lead.error().description().toStdString();
    EXPECT_TRUE(QFile::exists(path("take.L")));
    EXPECT_TRUE(QFile::exists(path("take.R")));
    EXPECT_TRUE(QFile::exists(path("take.C")));

    auto file = open(path("take.R")); // any member stands for the set
    ASSERT_TRUE(file);
    EXPECT_EQ(file->numberOfChannels(), 3);
    EXPECT_FALSE(file->isInterleaved());
    EXPECT_EQ(file->pathForChannel(2), path("take.C"));
    const std::vector<float> want = expected(sound);
    std::vector<float> got(want.size());
    ASSERT_TRUE(file->readFrames(0, sound.frames, got.data()));
    EXPECT_EQ(got, want);

    // Written back as a set, each member keeps its channel.
    LXAudioFileWriter writer(*file);
    ASSERT_EQ(file->copyToWriter(writer), LXContinue);
    ASSERT_EQ(writer.numberOfFiles(), 3);
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(writer.saveFile(i, file->filename().pathForChannel(i).replace("take", "copy")));
    EXPECT_EQ(sox(path("copy.C")).samples, sox(path("take.C")).samples);
}

TEST_F(AudioFileTest, WriterKeepsItsOutputHiddenUntilSaved) {
    auto file = make("a.wav", {});
    ASSERT_TRUE(file);
    const QStringList before = QDir(dir.path()).entryList(QDir::Files | QDir::Hidden);
    {
        LXAudioFileWriter writer(*file);
        ASSERT_EQ(file->copyToWriter(writer), LXContinue);
        EXPECT_TRUE(QFile::exists(writer.temporaryPath(0)));
        EXPECT_EQ(QFileInfo(writer.temporaryPath(0)).path(), dir.path());
        EXPECT_TRUE(QFileInfo(writer.temporaryPath(0)).fileName().startsWith('.'));
    }
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), before)
        << "an unsaved writer leaves nothing";

    LXAudioFileWriter writer(*file);
    ASSERT_EQ(file->copyToWriter(writer), LXContinue);
    save(writer, path("b.wav"));
    writer.deleteOutput();
    EXPECT_FALSE(QFile::exists(path("b.wav")));
}

TEST_F(AudioFileTest, DelegateCodeEndsAnOperation) {
    auto file = make("long.wav", {.frames = 200000}); // several blocks
    ASSERT_TRUE(file);
    for (int32_t code : {LXStopped, LXCancelled}) {
        StopAfterBlocks delegate(2, code);
        file->setProgressDelegate(&delegate);
        LXAudioFileWriter writer(*file);
        EXPECT_EQ(file->changeAmplitude({{"gain", 0.5}}, writer), code);
        auto peak = file->maximumFrom(0, file->frames(), file->channelSet());
        ASSERT_FALSE(peak);
        EXPECT_EQ(peak.error().code(), code);
    }
}

TEST_F(AudioFileTest, BalanceBringsChannelsToTheLoudest) {
    ASSERT_TRUE(make("quiet.wav", {.signal = Signal::Sine, .amplitude = 0.25}));
    // Make the right channel half as loud with sox, then balance it back.
    int exitCode = 0;
    runTool("sox", {"-D", path("quiet.wav"), path("lopsided.wav"), "remix", "1", "2v0.5"}, &exitCode);
    ASSERT_EQ(exitCode, 0);
    auto file = open(path("lopsided.wav"));
    for (bool rms : {false, true}) {
        LXAudioFileWriter writer(*file);
        ASSERT_EQ(file->balance(writer, rms), LXContinue);
        const QString out = path(rms ? "rms.wav" : "peak.wav");
        save(writer, out);
        auto balanced = open(out);
        const float left = *balanced->maximumFrom(0, balanced->frames(), {0});
        const float right = *balanced->maximumFrom(0, balanced->frames(), {1});
        EXPECT_NEAR(left, 0.25, 1e-4);
        EXPECT_NEAR(right, left, 2.0 / 32768);
    }
}

TEST_F(AudioFileTest, CopyRangeMovesLabelsWithTheAudio) {
    auto file = make("labels.wav", {.rate = 1000, .frames = 1000});
    ASSERT_TRUE(file);
    LXAudioFileWriter writer(*file);
    writer.markerList().addMarkerWithPosition(0.1, "before");
    writer.markerList().addMarkerWithPosition(0.5, "inside");
    writer.regionList().addRegionWithRange(LXRange(0.2, 0.4), "overlap");
    ASSERT_EQ(file->copyRange(LXRange(0.25, 0.75), writer), LXContinue);
    ASSERT_EQ(writer.markerList().count(), 1);
    EXPECT_DOUBLE_EQ(writer.markerList().labelAtIndex(0).start, 0.25);
    ASSERT_EQ(writer.regionList().count(), 1);
    EXPECT_DOUBLE_EQ(writer.regionList().labelAtIndex(0).start, 0.0);
    EXPECT_NEAR(writer.regionList().labelAtIndex(0).length, 0.15, 1e-12);
}

TEST_F(AudioFileTest, AnalysisIsCachedAndFollowsMoves) {
    const Sound sound{.signal = Signal::Sine, .amplitude = 0.5};
    auto file = make("tone.wav", sound);
    ASSERT_TRUE(file);
    EXPECT_FALSE(file->hasWaveformsOfType(0));
    ASSERT_TRUE(file->analyze(1));
    EXPECT_TRUE(file->hasWaveformsOfType(0));
    const QVariantMap info = file->fileEntry();
    EXPECT_NEAR(info.value("max").toDouble(), 0.5, 1e-4);
    EXPECT_NEAR(info.value("rms").toDouble(), 0.5 / std::sqrt(2.0), 1e-3);
    EXPECT_EQ(info.value("clipped").toInt(), 0);
    EXPECT_EQ(info.value("channels").toInt(), 2);
    EXPECT_EQ(info.value("samples").toLongLong(), sound.frames);

    ASSERT_TRUE(QDir().mkpath(path("moved")));
    ASSERT_TRUE(file->moveToPath(path("moved/tone.wav")));
    EXPECT_EQ(file->path(), path("moved/tone.wav"));
    EXPECT_TRUE(file->hasWaveformsOfType(0));
    ASSERT_TRUE(file->deleteFiles());
    EXPECT_FALSE(LXWaveformCache::shared().hasEntryForPath(path("moved/tone.wav")));
}

TEST_F(AudioFileTest, DuplicatePicksTheFirstFreeName) {
    auto file = make("kick.wav", {});
    ASSERT_TRUE(file);
    auto first = file->duplicateToPath(path("kick.wav"));
    ASSERT_TRUE(first);
    EXPECT_EQ(*first, path("kick-1.wav"));
    auto second = file->duplicateToPath(path("kick.wav"));
    ASSERT_TRUE(second);
    EXPECT_EQ(*second, path("kick-2.wav"));
    EXPECT_EQ(sox(*second).samples, sox(path("kick.wav")).samples);
}

// A WAV file that outgrows the RIFF size limit turns into RF64 in place, metadata included; the limit
// is lowered here so the test need not write 4 GB.
TEST_F(AudioFileTest, WavBecomesRf64PastTheSizeLimit) {
    const Sound sound{.frames = 50000}; // 200 KB of audio
    LXSetRiffSizeLimit(100000);
    auto source = write(path("big.wav"), sound);
    LXSetRiffSizeLimit(0xFFFFFFFFLL);
    ASSERT_TRUE(source);
    auto file = open(*source);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->format(), LXFormat::RF64);
    EXPECT_EQ(file->frames(), sound.frames);
    const Decoded decoded = sox(*source);
    ASSERT_EQ(decoded.frames(), sound.frames);
    const std::vector<float> want = expected(sound);
    for (size_t i = 0; i < want.size(); ++i)
        ASSERT_EQ(float(decoded.samples[i]), want[i]) << i;

    LXSetRiffSizeLimit(100000);
    LXAudioFileWriter writer(*file);
    writer.markerList().addMarkerWithPosition(0.5, "kept");
    writer.metadata().setValue("title", "large");
    EXPECT_EQ(file->copyToWriter(writer), LXContinue);
    LXSetRiffSizeLimit(0xFFFFFFFFLL);
    save(writer, path("big-copy.wav"));
    auto copy = open(path("big-copy.wav"));
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->format(), LXFormat::RF64);
    EXPECT_EQ(copy->metadata().string("title"), "large");
    ASSERT_EQ(copy->markerList().count(), 1);
    EXPECT_DOUBLE_EQ(copy->markerList().labelAtIndex(0).start, 0.5);
}

// Chunks we do not know survive a rewrite in the same container family, but a WAV chunk means
// nothing in an AIFF file, so a conversion leaves them behind.
TEST_F(AudioFileTest, UnknownChunksFollowRewritesButNotConversions) {
    const Sound sound{.frames = 1000};
    LXAudioFileWriter writer(dir.path());
    writer.annotations().unknownChunks.append({"zzzz", QByteArray("private data of another program")});
    const std::vector<double> samples = generate(sound);
    ASSERT_TRUE(writer.writeFrames(samples.data(), sound.frames));
    ASSERT_TRUE(writer.endWrite());
    save(writer, path("chunky.wav"));
    auto file = open(path("chunky.wav"));
    ASSERT_EQ(file->annotations().unknownChunks.size(), 1);

    LXAudioFileWriter rewrite(*file);
    ASSERT_EQ(file->changeAmplitude({{"gain", 0.5}}, rewrite), LXContinue);
    save(rewrite, path("rewritten.wav"));
    EXPECT_EQ(open(path("rewritten.wav"))->annotations().unknownChunks, file->annotations().unknownChunks);

    LXAudioFileWriter conversion(*file);
    conversion.setFormat(LXFormat::AIFF);
    ASSERT_EQ(file->copyToWriter(conversion), LXContinue);
    save(conversion, path("converted.aif"));
    EXPECT_TRUE(open(path("converted.aif"))->annotations().unknownChunks.isEmpty());
    EXPECT_EQ(sox(path("converted.aif")).samples, sox(path("chunky.wav")).samples);
}

// A killed writer leaves its hidden temporary file behind; the next run in that folder removes it, but
// never the file of a writer that is still at work, however old.
TEST(AudioFileWriter, AbandonedTemporaryFilesAreRemovedAndLiveOnesKept) {
    QTemporaryDir dir;
    const QString abandoned = dir.filePath(".take.0badf00d.cwtmp");
    QFile file(abandoned);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.close();
    LXAudioFileWriter live(dir.path());
    ASSERT_TRUE(live.beginWrite());
    const QString working = live.temporaryPath(0);
    const QDateTime longAgo = QDateTime::currentDateTimeUtc().addSecs(-3600);
    for (const QString& path : {abandoned, working}) {
        QFile old(path);
        ASSERT_TRUE(old.open(QIODevice::ReadWrite));
        ASSERT_TRUE(old.setFileTime(longAgo, QFileDevice::FileModificationTime));
    }

    LXAudioFileWriter::removeAbandonedTemporaryFiles(dir.path());
    EXPECT_FALSE(QFile::exists(abandoned));
    EXPECT_TRUE(QFile::exists(working));
}
