// LXAudioFile and LXAudioFileWriter on real files, with sox as the independent reader: samples through
// every operation, files as other programs and accidents leave them, and metadata through whole files
// (read back by sndfile-info as well). The bit-exact test also cross-checks the test-audio generator.

#include "TestAudio.h"
#include "lx/LXAnalysis.h"
#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/LXLevels.h"
#include "lx/LXPcmContainer.h"
#include "lx/LXProcess.h"
#include "lx/LXWaveformCache.h"
#include "lx/dsp/LXGain.h"

#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

using namespace TestAudio;

namespace {

std::string why(const LXError& error) {
    return error.description().toStdString();
}

LXStatus applyGain(LXAudioFile& file, double factor, LXAudioFileWriter& writer) {
    LXGain gain(factor);
    return LXProcess(file, gain, writer);
}

QByteArray readAll(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

void writeAll(const QString& path, const QByteArray& bytes) {
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    ASSERT_EQ(f.write(bytes), bytes.size());
}

void put32(QByteArray& b, qsizetype at, uint32_t v, bool bigEndian = false) {
    for (int i = 0; i < 4; ++i)
        b[at + i] = char(uint8_t(v >> (bigEndian ? 24 - 8 * i : 8 * i)));
}

class AudioFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(dir.isValid());
        LXWaveformCache::shared().setDirectory(dir.filePath(QStringLiteral("cache")));
    }
    QString path(const QString& name) const { return dir.filePath(name); }

    std::unique_ptr<LXAudioFile> open(const QString& p) {
        auto file = LXAudioFile::open(p);
        EXPECT_TRUE(file) << (file ? "" : why(file.error()));
        return file ? std::move(*file) : nullptr;
    }
    // Writes the sound at name and opens it.
    std::unique_ptr<LXAudioFile> make(const QString& name, const Sound& sound) {
        auto written = write(path(name), sound);
        EXPECT_TRUE(written) << (written ? "" : why(written.error()));
        return written ? open(*written) : nullptr;
    }
    // Saves the writer's only file under name and returns its path.
    QString save(LXAudioFileWriter& writer, const QString& name) {
        auto saved = writer.saveFile(0, path(name));
        EXPECT_TRUE(saved) << (saved ? "" : why(saved.error()));
        return path(name);
    }
    Decoded sox(const QString& p) {
        auto decoded = readWithSox(p);
        EXPECT_TRUE(decoded) << (decoded ? "" : why(decoded.error()));
        return decoded ? *decoded : Decoded{};
    }
    // Our reading of the file equals sox's, frame for frame.
    void expectSameAsSox(const QString& p) {
        auto file = open(p);
        ASSERT_TRUE(file);
        const Decoded decoded = sox(p);
        ASSERT_EQ(file->numberOfChannels(), decoded.channels);
        ASSERT_EQ(file->frames(), decoded.frames());
        std::vector<double> ours(decoded.samples.size());
        ASSERT_TRUE(file->readFrames(0, file->frames(), ours.data()));
        for (size_t i = 0; i < ours.size(); ++i)
            ASSERT_NEAR(ours[i], decoded.samples[i], 1e-9) << "sample " << i;
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

} // namespace

// ---- Samples

// Every depth of both native formats: a written file holds exactly the expected samples as sox reads
// them, and copies, copied ranges and unchanged rewrites give back the same values.
TEST_F(AudioFileTest, WrittenCopiedAndRewrittenSamplesAreBitExact) {
    for (const bool aiff : {false, true})
        for (const int bits : {8, 16, 24, 32, 0}) { // 0: 32-bit float
            const uint32_t format = aiff ? (bits ? LXFormat::AIFF : LXFormat::AIFC) : LXFormat::WAVE;
            const LXSampleEncoding encoding = bits ? LXSampleEncoding::pcm(bits, aiff, bits == 8 && !aiff)
                                                   : LXSampleEncoding::ieeeFloat(32, aiff);
            const QString name = QStringLiteral("%1.%2").arg(bits).arg(LXFormat::extension(format));
            SCOPED_TRACE(name.toStdString());
            // Noise: every bit of every sample in play, in a length that is no whole number of blocks.
            const Sound sound{.signal = Signal::Noise,
                              .rate = 48000,
                              .channels = 3,
                              .frames = 30011,
                              .format = format,
                              .encoding = encoding,
                              .amplitude = 0.99};
            auto file = make(name, sound);
            ASSERT_TRUE(file);
            const Decoded original = sox(file->path());
            ASSERT_EQ(original.channels, 3);
            ASSERT_EQ(original.rate, 48000);
            const std::vector<double> want = expectedExact(sound);
            ASSERT_EQ(original.samples.size(), want.size());
            // sox holds samples as 32-bit integers: a float comes back rounded to a multiple of 2^-31.
            const double tolerance = bits ? 0.0 : std::ldexp(1.0, -31);
            for (size_t i = 0; i < want.size(); ++i)
                ASSERT_NEAR(original.samples[i], want[i], tolerance) << "sample " << i;

            LXAudioFileWriter copy(*file), rewrite(*file), part(*file);
            ASSERT_TRUE(file->copyToWriter(copy));
            EXPECT_EQ(sox(save(copy, "copy-" + name)).samples, original.samples);
            ASSERT_TRUE(applyGain(*file, 1.0, rewrite));
            EXPECT_EQ(sox(save(rewrite, "rewrite-" + name)).samples, original.samples);
            ASSERT_TRUE(file->copyRange(LXRange::fromFrames(1234, 20000, sound.rate), part));
            EXPECT_EQ(sox(save(part, "range-" + name)).samples,
                      std::vector<double>(original.samples.begin() + 1234 * 3,
                                          original.samples.begin() + 20000 * 3));
        }
}

TEST_F(AudioFileTest, GainMatchesSoxWithinOneLsb) {
    auto file = make("noise.wav", {.signal = Signal::Noise, .frames = 100000, .amplitude = 0.9});
    ASSERT_TRUE(file);
    LXAudioFileWriter writer(*file);
    ASSERT_TRUE(applyGain(*file, std::pow(10.0, -6.0206 / 20.0), writer));
    const Decoded ours = sox(save(writer, "ours.wav"));

    int exitCode = 0;
    runTool("sox", {"-D", "-v", "0.5", path("noise.wav"), path("sox.wav")}, &exitCode);
    ASSERT_EQ(exitCode, 0);
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
    for (uint32_t format : {LXFormat::WAVE, LXFormat::AIFF})
        for (int bits : {8, 16, 24, 32}) {
            SCOPED_TRACE(QStringLiteral("%1 bits %2").arg(bits).arg(LXFormat::name(format)).toStdString());
            LXAudioFileWriter writer(*file);
            writer.setFormat(format);
            writer.setDepth(bits);
            ASSERT_TRUE(file->copyToWriter(writer));
            const Decoded decoded =
                sox(save(writer, QStringLiteral("clipped%1.%2").arg(bits).arg(LXFormat::extension(format))));
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
    EXPECT_EQ(block, expected(sound));
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
    const Sound sound{.channels = 3, .encoding = LXSampleEncoding::pcm(24, false), .interleaved = false};
    ASSERT_TRUE(write(path("take"), sound));
    auto file = open(path("take.R")); // any member stands for the set
    ASSERT_TRUE(file);
    EXPECT_EQ(file->numberOfChannels(), 3);
    EXPECT_EQ(file->pathForChannel(2), path("take.C"));
    const std::vector<float> want = expected(sound);
    std::vector<float> got(want.size());
    ASSERT_TRUE(file->readFrames(0, sound.frames, got.data()));
    EXPECT_EQ(got, want);

    // Each member holds its own channel, and written back as a set, each keeps it.
    LXAudioFileWriter writer(*file);
    ASSERT_TRUE(file->copyToWriter(writer));
    ASSERT_EQ(writer.numberOfFiles(), 3);
    for (int c = 0; c < 3; ++c) {
        const QString member = file->pathForChannel(c);
        ASSERT_TRUE(writer.saveFile(c, QString(member).replace("take", "copy")));
        const Decoded theirs = sox(member);
        ASSERT_EQ(theirs.frames(), sound.frames);
        for (int64_t f = 0; f < sound.frames; ++f)
            ASSERT_EQ(float(theirs.samples[size_t(f)]), want[size_t(f * 3 + c)]) << "channel " << c;
        EXPECT_EQ(sox(QString(member).replace("take", "copy")).samples, theirs.samples);
    }
}

// ---- Operations

// A writer works in a hidden file beside its target and leaves nothing unless saved. A killed writer
// leaves its file behind; the next run in that folder removes it, but never the file of a writer that
// is still at work, however old.
TEST_F(AudioFileTest, TemporaryFilesStayHiddenAndAbandonedOnesAreSwept) {
    auto file = make("a.wav", {});
    ASSERT_TRUE(file);
    const QStringList before = QDir(dir.path()).entryList(QDir::Files | QDir::Hidden);
    {
        LXAudioFileWriter writer(*file);
        ASSERT_TRUE(file->copyToWriter(writer));
        const QFileInfo temporary(writer.temporaryPath(0));
        EXPECT_TRUE(temporary.exists());
        EXPECT_EQ(temporary.path(), dir.path());
        EXPECT_TRUE(temporary.fileName().startsWith('.'));
    }
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), before)
        << "an unsaved writer leaves nothing";
    LXAudioFileWriter saved(*file);
    ASSERT_TRUE(file->copyToWriter(saved));
    save(saved, "b.wav");
    saved.deleteOutput(); // saved files included
    EXPECT_FALSE(QFile::exists(path("b.wav")));

    const QString abandoned = path(".take.0badf00d.cwtmp");
    writeAll(abandoned, {});
    LXAudioFileWriter live(dir.path());
    ASSERT_TRUE(live.beginWrite());
    for (const QString& p : {abandoned, live.temporaryPath(0)}) {
        QFile old(p);
        ASSERT_TRUE(old.open(QIODevice::ReadWrite));
        ASSERT_TRUE(old.setFileTime(QDateTime::currentDateTimeUtc().addSecs(-3600),
                                    QFileDevice::FileModificationTime));
    }
    LXAudioFileWriter::removeAbandonedTemporaryFiles(dir.path());
    EXPECT_FALSE(QFile::exists(abandoned));
    EXPECT_TRUE(QFile::exists(live.temporaryPath(0)));
}

TEST_F(AudioFileTest, DelegateCodeEndsAnOperation) {
    auto file = make("long.wav", {.frames = 200000}); // several blocks
    ASSERT_TRUE(file);
    for (int32_t code : {LXStopped, LXCancelled}) {
        StopAfterBlocks delegate(2, code);
        file->setProgressDelegate(&delegate);
        LXAudioFileWriter writer(*file);
        const LXStatus gained = applyGain(*file, 0.5, writer);
        ASSERT_FALSE(gained);
        EXPECT_EQ(gained.error().code(), code);
        EXPECT_EQ(gained.error().domain(), LXError::Domain::Progress);
        auto peak = LXMaximumFrom(*file, 0, file->frames(), file->channelSet());
        ASSERT_FALSE(peak);
        EXPECT_EQ(peak.error().code(), code);
    }
}

TEST_F(AudioFileTest, CopyRangeMovesLabelsWithTheAudio) {
    auto file = make("labels.wav", {.rate = 1000, .frames = 1000});
    ASSERT_TRUE(file);
    LXAudioFileWriter writer(*file);
    writer.markerList().addMarkerWithPosition(0.1, "before");
    writer.markerList().addMarkerWithPosition(0.5, "inside");
    writer.regionList().addRegionWithRange(LXRange(0.2, 0.4), "overlap");
    ASSERT_TRUE(file->copyRange(LXRange(0.25, 0.75), writer));
    ASSERT_EQ(writer.markerList().count(), 1);
    EXPECT_DOUBLE_EQ(writer.markerList().labelAtIndex(0).start, 0.25);
    ASSERT_EQ(writer.regionList().count(), 1);
    EXPECT_DOUBLE_EQ(writer.regionList().labelAtIndex(0).start, 0.0);
    EXPECT_NEAR(writer.regionList().labelAtIndex(0).length, 0.15, 1e-12);
}

TEST_F(AudioFileTest, AnalysisIsCachedAndFollowsMoves) {
    auto file = make("tone.wav", {.signal = Signal::Sine, .amplitude = 0.5});
    ASSERT_TRUE(file);
    EXPECT_FALSE(file->hasWaveformsOfType(0));
    ASSERT_TRUE(LXAnalyze(*file, 1));
    EXPECT_TRUE(file->hasWaveformsOfType(0));
    const QVariantMap info = file->fileEntry();
    EXPECT_NEAR(info.value("max").toDouble(), 0.5, 1e-4);
    EXPECT_NEAR(info.value("rms").toDouble(), 0.5 / std::sqrt(2.0), 1e-3);
    EXPECT_EQ(info.value("clipped").toInt(), 0);

    ASSERT_TRUE(QDir().mkpath(path("moved")));
    ASSERT_TRUE(file->moveToPath(path("moved/tone.wav")));
    EXPECT_TRUE(file->hasWaveformsOfType(0));
    ASSERT_TRUE(file->deleteFiles());
    EXPECT_FALSE(LXWaveformCache::shared().hasEntryForPath(path("moved/tone.wav")));
}

TEST_F(AudioFileTest, DuplicatePicksTheFirstFreeName) {
    auto file = make("kick.wav", {});
    ASSERT_TRUE(file);
    EXPECT_EQ(file->duplicateToPath(path("kick.wav")).value(), path("kick-1.wav"));
    EXPECT_EQ(file->duplicateToPath(path("kick.wav")).value(), path("kick-2.wav"));
    EXPECT_EQ(sox(path("kick-2.wav")).samples, sox(path("kick.wav")).samples);
}

// A WAV file that outgrows the RIFF size limit turns into RF64 in place, metadata included; the limit
// is lowered here so the test need not write 4 GB.
TEST_F(AudioFileTest, WavBecomesRf64PastTheSizeLimit) {
    const Sound sound{.frames = 50000}; // 200 KB of audio
    LXSetRiffSizeLimit(100000);
    auto restore = qScopeGuard([] { LXSetRiffSizeLimit(0xFFFFFFFFLL); });
    auto file = make("big.wav", sound);
    ASSERT_TRUE(file);
    EXPECT_EQ(file->format(), LXFormat::RF64);
    const Decoded decoded = sox(file->path());
    EXPECT_EQ(std::vector<float>(decoded.samples.begin(), decoded.samples.end()), expected(sound));

    LXAudioFileWriter writer(*file);
    writer.markerList().addMarkerWithPosition(0.5, "kept");
    writer.metadata().setValue("title", "large");
    EXPECT_TRUE(file->copyToWriter(writer));
    auto copy = open(save(writer, "big-copy.wav"));
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->format(), LXFormat::RF64);
    EXPECT_EQ(copy->metadata().string("title"), "large");
    ASSERT_EQ(copy->markerList().count(), 1);
    EXPECT_DOUBLE_EQ(copy->markerList().labelAtIndex(0).start, 0.5);
}

// ---- Odd and damaged files: each reads correctly or fails with a readable LXError, never crashes.

TEST_F(AudioFileTest, ReadsWhatOtherProgramsWrite) {
    const struct {
        const char* name;
        QStringList options, effects;
    } files[] = {
        {"rifx.wav", {"-B", "-b", "16", "-r", "8000"}, {"sine", "440"}}, // big-endian WAV
        {"extensible.wav",
         {"-c", "4", "-b", "24", "-r", "8000"},
         {"sine", "440", "sine", "660", "square", "100", "noise"}},
        {"float.aifc", {"-e", "floating-point", "-b", "32", "-r", "22050"}, {"sine", "440"}},
    };
    for (const auto& f : files) {
        ASSERT_TRUE(generateWithSox(path(f.name), QStringList{"-n"} + f.options,
                                    QStringList{"synth", "0.5"} + f.effects));
        SCOPED_TRACE(f.name);
        expectSameAsSox(path(f.name));
    }
    if (!haveTool("ffmpeg")) return;
    int exitCode = 0;
    runTool("ffmpeg",
            {"-v", "error", "-f", "lavfi", "-i", "sine=d=0.5", "-rf64", "always", "-y", path("rf64.wav")},
            &exitCode);
    ASSERT_EQ(exitCode, 0);
    auto file = open(path("rf64.wav"));
    ASSERT_TRUE(file);
    EXPECT_EQ(file->format(), LXFormat::RF64);
    expectSameAsSox(path("rf64.wav"));
}

// Headers as other writers and accidents leave them: the audio and the chunks after it read as written,
// sizes that disagree with the file give a repairable warning, and the repair satisfies sox too.
TEST_F(AudioFileTest, HeadersOthersGetWrongAreReadAndRepaired) {
    const Sound stereo{.frames = 5000};
    auto sizes = [](uint32_t riff, uint32_t data) { // and nothing after the audio
        return [=](QByteArray& b) {
            const qsizetype at = b.indexOf("data");
            b.truncate(at + 8 + 5000 * 4);
            put32(b, 4, riff);
            put32(b, at + 4, data);
        };
    };
    const struct {
        const char* name;
        Sound sound;
        std::function<void(QByteArray&)> damage;
        bool warns;
    } cases[] = {
        {"streamed.wav", stereo, sizes(0xFFFFFFFF, 0xFFFFFFFF), true},
        {"overshoot.wav", stereo, sizes(0x7FFFF024, 0x7FFFF000), true},
        {"crashed.wav", stereo, sizes(36, 0), true}, // a recorder that never came back to write its sizes
        {"big-form.aif",
         {.format = LXFormat::AIFF, .encoding = LXSampleEncoding::pcm(16, true)},
         [](QByteArray& b) { put32(b, 4, uint32_t(b.size() + 100000), true); },
         true},
        {"no-version-chunk.aifc",
         {.format = LXFormat::AIFC, .encoding = LXSampleEncoding::ieeeFloat(32, true)},
         [](QByteArray& b) {
             ASSERT_EQ(b.indexOf("FVER"), 12);
             b.remove(12, 12);
             put32(b, 4, uint32_t(b.size() - 8), true);
         },
         false},
        {"unpadded.wav", // an odd-sized data chunk without its pad byte
         {.channels = 1, .frames = 1001, .encoding = LXSampleEncoding::pcm(8, false, true)},
         [](QByteArray& b) {
             const qsizetype pad = b.indexOf("data") + 8 + 1001;
             ASSERT_EQ(b[pad], '\0');
             b.remove(pad, 1);
             put32(b, 4, uint32_t(b.size() - 8));
         },
         false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto source = make(QStringLiteral("source-%1").arg(c.name), c.sound);
        ASSERT_TRUE(source);
        LXAudioFileWriter writer(*source);
        writer.metadata().setValue("title", "after the audio");
        ASSERT_TRUE(source->copyToWriter(writer));
        QByteArray bytes = readAll(save(writer, c.name));
        c.damage(bytes);
        writeAll(path(c.name), bytes);

        auto file = open(path(c.name));
        ASSERT_TRUE(file);
        ASSERT_EQ(file->warning().has_value(), c.warns);
        const std::vector<float> want = expected(c.sound);
        std::vector<float> got(want.size());
        ASSERT_TRUE(file->readFrames(0, c.sound.frames, got.data()));
        EXPECT_EQ(got, want);
        if (!c.warns) {
            EXPECT_EQ(file->metadata().string("title"), "after the audio");
            continue;
        }
        EXPECT_EQ(file->warning()->code(), LXErrRepairable);
        ASSERT_TRUE(LXAudioFile::repairAtPath(path(c.name)));
        auto repaired = open(path(c.name));
        ASSERT_TRUE(repaired);
        EXPECT_FALSE(repaired->warning().has_value());
        EXPECT_EQ(runTool("soxi", {"-s", path(c.name)}).trimmed().toLongLong(), c.sound.frames);
    }
}

TEST_F(AudioFileTest, DamagedFilesGiveReadableErrors) {
    const Sound wav{.frames = 1000};
    const Sound aif{.frames = 1000, .format = LXFormat::AIFF, .encoding = LXSampleEncoding::pcm(24, true)};
    ASSERT_TRUE(write(path("good.wav"), wav));
    ASSERT_TRUE(write(path("good.aif"), aif));
    // Every truncation of the header region: an error or a readable file, never a crash.
    for (const char* source : {"good.wav", "good.aif"}) {
        const QByteArray bytes = readAll(path(source));
        for (qsizetype cut = 0; cut < 120; ++cut) {
            writeAll(path("cut"), bytes.left(cut));
            auto file = LXAudioFile::open(path("cut"));
            if (file) {
                EXPECT_LE((*file)->frames(), wav.frames);
            } else {
                EXPECT_FALSE(file.error().description().isEmpty());
            }
        }
    }

    // Nonsense in the format chunk, and a chunk far larger than the file.
    QByteArray bytes = readAll(path("good.wav"));
    const qsizetype fmt = bytes.indexOf("fmt ");
    bytes[fmt + 10] = 0, bytes[fmt + 11] = 0;
    writeAll(path("nochannels.wav"), bytes);
    auto file = LXAudioFile::open(path("nochannels.wav"));
    ASSERT_FALSE(file);
    EXPECT_EQ(file.error().code(), LXErrBadHeader);
    EXPECT_TRUE(file.error().description().contains("channels")) << why(file.error());
    EXPECT_GE(file.error().offset(), 0);
    bytes = readAll(path("good.wav")).insert(12, QByteArray("LIST\xff\xff\xff\x7f", 8));
    writeAll(path("huge.wav"), bytes);
    file = LXAudioFile::open(path("huge.wav"));
    EXPECT_FALSE(file && (*file)->frames() > wav.frames);

    // Random garbage behind a valid magic.
    QRandomGenerator random(42);
    for (int round = 0; round < 200; ++round) {
        QByteArray garbage(int(random.bounded(8, 400)), '\0');
        for (char& ch : garbage)
            ch = char(random.bounded(256));
        garbage.replace(0, 12, QByteArray(round % 2 ? "RIFF\0\0\0\0WAVE" : "FORM\0\0\0\0AIFF", 12));
        writeAll(path("garbage"), garbage);
        auto g = LXAudioFile::open(path("garbage"));
        if (!g) {
            EXPECT_FALSE(g.error().description().isEmpty());
        }
    }
    EXPECT_TRUE(LXAudioFile::open(path("does not exist.wav")).error().isFileError());
}

// ---- Metadata through whole files

namespace {

LXAnnotations annotations() {
    LXAnnotations a;
    for (const char* key :
         {"artist", "author", "copyright", "comments", "description", "originator", "annotation", "genre"})
        a.metadata.setValue(key, key);
    const QVariantMap values = {{"title", "Take \u00e9"},
                                {"baseNote", 62},
                                {"detune", 7},
                                {"lowNote", 40},
                                {"highNote", 90},
                                {"lowVelocity", 20},
                                {"highVelocity", 110},
                                {"gain", -3},
                                {"tempo", 128.0},
                                {"timeReference", qint64(123456789012)},
                                {"loudnessValue", -23.5},
                                {"codingHistory", "A=PCM,F=44100\r\n"}};
    a.metadata.addMetadata(LXMetadata(values), true);
    a.labels.markers.addMarkerWithPosition(TestAudio::seconds(441), "Hit");
    a.labels.markers.addMarkerWithPosition(TestAudio::seconds(22050), "Middle");
    a.labels.slices.addSliceWithPosition(TestAudio::seconds(11025));
    a.labels.regions.addRegionWithRange(
        LXRange::rangeWithLocation(TestAudio::seconds(4410), TestAudio::seconds(8820)), "Phrase");
    a.labels.loops.addLoopWithType(LXLoopType::Forward,
                                   LXRange(TestAudio::seconds(30000), TestAudio::seconds(40000)));
    a.labels.loops.addLoopWithType(LXLoopType::Alternating,
                                   LXRange(TestAudio::seconds(20000), TestAudio::seconds(30000)), 3);
    a.unknownChunks.append({"zzzz", QByteArray("\x01\x02\x03", 3)});
    return a;
}

class MetadataFile : public AudioFileTest, public testing::WithParamInterface<uint32_t> {
protected:
    QString annotated(const char* name, const LXAnnotations& a) {
        LXAudioFileWriter writer(dir.path());
        writer.setFormat(GetParam());
        writer.annotations() = a;
        const Sound sound{.channels = 1};
        writer.setChannels(sound.channels);
        const std::vector<double> samples = generate(sound);
        EXPECT_TRUE(writer.writeFrames(samples.data(), sound.frames));
        EXPECT_TRUE(writer.endWrite());
        return save(writer, QString::fromLatin1(name) + "." + LXFormat::extension(GetParam()));
    }
};

void expectInLog(const QString& log, const QStringList& lines) {
    const QString flat = log.simplified();
    for (const QString& line : lines)
        EXPECT_TRUE(flat.contains(line)) << line.toStdString() << "\n" << log.toStdString();
}

} // namespace

// An unchanged rewrite keeps everything, unknown chunks byte for byte unless told to drop them; a
// rewrite with other samples keeps them too, but a conversion to the other container drops them (a
// chunk of one means nothing in the other) and keeps the rest.
TEST_P(MetadataFile, AnnotationsSurviveRewritesAndConversions) {
    const LXAnnotations a = annotations();
    auto file = open(annotated("first", a));
    ASSERT_TRUE(file);
    auto expectSame = [&](const LXAnnotations& got, bool unknown) {
        for (const QString& key : a.metadata.keys())
            EXPECT_EQ(got.metadata.value(key), a.metadata.value(key)) << key.toStdString();
        EXPECT_EQ(got.labels, a.labels);
        EXPECT_EQ(got.unknownChunks, unknown ? a.unknownChunks : QList<LXChunk>{});
    };
    expectSame(file->annotations(), true);

    const uint32_t other = GetParam() == LXFormat::WAVE ? LXFormat::AIFF : LXFormat::WAVE;
    const struct {
        const char* name;
        bool retain, gain;
        uint32_t format;
    } rewrites[] = {{"kept", true, false, GetParam()},
                    {"dropped", false, false, GetParam()},
                    {"gain", true, true, GetParam()},
                    {"converted", true, false, other}};
    for (const auto& r : rewrites) {
        SCOPED_TRACE(r.name);
        LXAudioFileWriter writer(*file);
        writer.setWriteUnusedChunks(r.retain);
        writer.setFormat(r.format);
        ASSERT_TRUE(r.gain ? applyGain(*file, 0.5, writer) : file->copyToWriter(writer));
        auto copy = open(save(writer, QString::fromLatin1(r.name) + "." + LXFormat::extension(r.format)));
        ASSERT_TRUE(copy);
        expectSame(copy->annotations(), r.retain && r.format == GetParam());
        if (r.format == GetParam()) {
            EXPECT_EQ(copy->metadata(), file->metadata());
        }
    }
}

TEST_P(MetadataFile, SndfileInfoSeesLabelsAndInstrument) {
    if (!haveTool("sndfile-info")) GTEST_SKIP() << "needs sndfile-info";
    const QString p = annotated("checked", annotations());
    int status = 0;
    const QString info = runTool("sndfile-info", {p}, &status);
    ASSERT_EQ(status, 0) << info.toStdString();
    const QString instrument = runTool("sndfile-info", {"--instrument", p});
    expectInLog(instrument, {"Base note : 62", "Mode : fwd Start : 30000 End : 40000"});
    if (GetParam() == LXFormat::WAVE) {
        expectInLog(info, {"INAM : Take \u00e9", "IART : artist", "ICOP : copyright", "ICMT : comments",
                           "Count : 4 Cue ID : 1 Pos : 441", "Cue ID : 2 Pos : 22050",
                           "Cue ID : 3 Pos : 11025", "Cue ID : 4 Pos : 4410", "labl : 1 : Hit",
                           "Midi Note : 62", "Loop Count : 2", "Type : 0 Start : 30000 End : 39999",
                           "Type : 1 Start : 20000 End : 29999 Fraction : 0 Count : 3", "zzzz : 3"});
        expectInLog(instrument, {"Mode : alt Start : 20000 End : 30000 Count : 3"});
        expectInLog(runTool("sndfile-info", {"--broadcast", p}),
                    {"Description : description", "Originator : originator", "Time ref : 0x1cbe991a14",
                     "BWF version : 2", "Loudness value : -23.50 LUFS", "Coding history : A=PCM,F=44100"});
    } else {
        expectInLog(info,
                    {"NAME : Take \u00e9", "AUTH : author", "ANNO : annotation", "string : comments",
                     "Mark ID : 1 Position : 441 Name : Hit", "Mark ID : 2 Position : 22050 Name : Middle",
                     "Mark ID : 3 Position : 30000", "Mark ID : 4 Position : 40000", "Base Note : 62",
                     "Detune : 7", "Low Note : 40 High Note : 90 Low Vel. : 20 High Vel. : 110",
                     "Sustain mode : 801 => forward begin : 3 end : 4", "AppSig : CLPW"});
        // libsndfile reads gain and ranges from AIFF INST only (it skips the WAV inst chunk).
        expectInLog(instrument, {"Gain : -3", "Velocity : 20 - 110", "Key : 40 - 90"});
    }
}

INSTANTIATE_TEST_SUITE_P(Format, MetadataFile, testing::Values(LXFormat::WAVE, LXFormat::AIFF),
                         [](const auto& p) { return LXFormat::name(p.param).toStdString(); });

TEST_F(AudioFileTest, ReadsWhatSndfileMetadataSetWrote) {
    if (!haveTool("sndfile-metadata-set")) GTEST_SKIP() << "needs sndfile-metadata-set";
    ASSERT_TRUE(generateWithSox(path("plain.wav"), {"-n", "-r", "44100", "-b", "16", "-c", "1"},
                                {"synth", "0.1", "sine", "440"}));
    // Each option, its value, and the key and value it must read back as.
    const std::tuple<const char*, QString, const char*, QVariant> tags[] = {
        {"--bext-description", QStringLiteral("Desc \u00e9"), "description", QStringLiteral("Desc \u00e9")},
        {"--bext-originator", "Orig", "originator", "Orig"},
        {"--bext-orig-ref", "REF123", "originatorReference", "REF123"},
        {"--bext-orig-date", "2024-01-02", "originationDate", "2024-01-02"},
        {"--bext-orig-time", "10:11:12", "originationTime", "10:11:12"},
        {"--bext-time-ref", "123456789012", "timeReference", qint64(123456789012)},
        {"--bext-loudness-value", "-23.5", "loudnessValue", -23.5},
        {"--str-title", "Title", "title", "Title"},
        {"--str-artist", "Artist", "artist", "Artist"},
        {"--str-comment", "Comment", "comments", "Comment"},
        {"--str-album", "Album", "album", "Album"},
        {"--str-copyright", "(C) Me", "copyright", "(C) Me"},
        {"--str-date", "2024", "creationDate", "2024"},
    };
    QStringList args{"--bext-coding-hist", "A=PCM,F=44100"};
    for (const auto& [option, value, key, read] : tags)
        args << QString::fromLatin1(option) << value;
    int status = 0;
    runTool("sndfile-metadata-set", args << path("plain.wav") << path("tagged.wav"), &status);
    ASSERT_EQ(status, 0);
    auto file = open(path("tagged.wav"));
    ASSERT_TRUE(file);
    const LXMetadata& m = file->metadata();
    for (const auto& [option, value, key, read] : tags)
        EXPECT_EQ(m.value(QString::fromLatin1(key)), read) << key;
    EXPECT_EQ(m.value("bextVersion"), 2);
    EXPECT_TRUE(m.string("codingHistory").startsWith("A=PCM,F=44100\r\n"))
        << m.string("codingHistory").toStdString();
    EXPECT_TRUE(file->annotations().unknownChunks.isEmpty());
}
