// Files as other programs and accidents leave them: odd chunk layouts, wrong sizes, damage. Each must
// read correctly or fail with a readable LXError, never crash.

#include "LXAudioFile.h"
#include "LXAudioFileWriter.h"
#include "LXWaveformCache.h"
#include "TestAudio.h"

#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace TestAudio;

namespace {

QByteArray readAll(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

void writeAll(const QString& path, const QByteArray& bytes) {
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    ASSERT_EQ(f.write(bytes), bytes.size());
}

void putLE32(QByteArray& b, qsizetype at, uint32_t v) {
    for (int i = 0; i < 4; ++i)
        b[at + i] = char(uint8_t(v >> (8 * i)));
}

void putBE32(QByteArray& b, qsizetype at, uint32_t v) {
    for (int i = 0; i < 4; ++i)
        b[at + i] = char(uint8_t(v >> (24 - 8 * i)));
}

class OddFileTest : public ::testing::Test {
protected:
    void SetUp() override { LXWaveformCache::shared().setDirectory(dir.filePath("cache")); }
    QString path(const QString& name) const { return dir.filePath(name); }

    // Our reading of the file equals sox's, frame for frame.
    void expectSameAsSox(const QString& p) {
        auto file = LXAudioFile::open(p);
        ASSERT_TRUE(file) << file.error().description().toStdString();
        auto decoded = readWithSox(p);
        ASSERT_TRUE(decoded) << decoded.error().description().toStdString();
        ASSERT_EQ((*file)->numberOfChannels(), decoded->channels);
        ASSERT_EQ((*file)->frames(), decoded->frames());
        std::vector<double> ours(decoded->samples.size());
        ASSERT_TRUE((*file)->readFrames(0, (*file)->frames(), ours.data()));
        for (size_t i = 0; i < ours.size(); ++i)
            ASSERT_NEAR(ours[i], decoded->samples[i], 1e-9) << "sample " << i;
    }

    QString writeWav(const QString& name, Sound sound = {}) {
        auto written = write(path(name), sound);
        EXPECT_TRUE(written);
        return written ? *written : QString();
    }

    QTemporaryDir dir;
};

} // namespace

TEST_F(OddFileTest, FilesOtherProgramsWrite) {
    // RIFX (big-endian WAV), WAVE_FORMAT_EXTENSIBLE, RF64 and AIFC from sox and ffmpeg.
    ASSERT_TRUE(generateWithSox(path("rifx.wav"), {"-n", "-B", "-b", "16", "-r", "8000"}, {"synth", "0.5", "sine", "440"}));
    expectSameAsSox(path("rifx.wav"));
    ASSERT_TRUE(generateWithSox(path("ext.wav"), {"-n", "-c", "4", "-b", "24", "-r", "8000"},
                                {"synth", "0.5", "sine", "440", "sine", "660", "square", "100", "noise"}));
    expectSameAsSox(path("ext.wav"));
    ASSERT_TRUE(generateWithSox(path("sox.aifc"), {"-n", "-e", "floating-point", "-b", "32", "-r", "22050"},
                                {"synth", "0.5", "sine", "440"}));
    expectSameAsSox(path("sox.aifc"));
    if (haveTool("ffmpeg")) {
        int exitCode = 0;
        runTool("ffmpeg", {"-v", "error", "-f", "lavfi", "-i", "sine=d=0.5", "-rf64", "always", "-y", path("rf64.wav")},
                &exitCode);
        ASSERT_EQ(exitCode, 0);
        auto file = LXAudioFile::open(path("rf64.wav"));
        ASSERT_TRUE(file);
        EXPECT_EQ((*file)->format(), LXFormat::RF64);
        expectSameAsSox(path("rf64.wav"));
    }
}

TEST_F(OddFileTest, OddDataChunkWithoutItsPadByte) {
    Sound sound;
    sound.channels = 1;
    sound.frames = 1001;
    sound.encoding = LXSampleEncoding::pcm(8, false, true);
    LXAudioFileWriter writer(dir.path());
    writer.setEncoding(sound.encoding);
    writer.setChannels(1);
    writer.metadata().setValue("title", "after the audio");
    const std::vector<double> samples = generate(sound);
    ASSERT_TRUE(writer.writeFrames(samples.data(), sound.frames));
    ASSERT_TRUE(writer.endWrite());
    ASSERT_TRUE(writer.saveFile(0, path("padded.wav")));

    QByteArray bytes = readAll(path("padded.wav"));
    const qsizetype data = bytes.indexOf("data");
    ASSERT_GT(data, 0);
    const qsizetype pad = data + 8 + 1001;
    ASSERT_EQ(bytes[pad], '\0');
    bytes.remove(pad, 1);
    putLE32(bytes, 4, uint32_t(bytes.size() - 8));
    writeAll(path("unpadded.wav"), bytes);

    auto file = LXAudioFile::open(path("unpadded.wav"));
    ASSERT_TRUE(file) << file.error().description().toStdString();
    EXPECT_EQ((*file)->frames(), 1001);
    EXPECT_EQ((*file)->metadata().string("title"), "after the audio");
    std::vector<float> got(1001);
    ASSERT_TRUE((*file)->readFrames(0, 1001, got.data()));
    EXPECT_EQ(got, expected(sound));
}

TEST_F(OddFileTest, SizesThatOvershootTheFileAreReadAndRepaired) {
    Sound sound;
    sound.frames = 5000;
    const QString source = writeWav("source.wav", sound);
    const QByteArray original = readAll(source);
    const qsizetype data = original.indexOf("data");
    const std::vector<float> want = expected(sound);

    struct Case {
        const char* name;
        uint32_t riff;
        uint32_t dataSize;
    };
    const Case cases[] = {
        {"streamed", 0xFFFFFFFF, 0xFFFFFFFF},
        {"overshoot", 0x7FFFF024, 0x7FFFF000},
        {"crashed", 36, 0}, // a recorder that never came back to write its sizes
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        QByteArray bytes = original.left(data + 8 + sound.frames * 4); // no metadata after the audio
        putLE32(bytes, 4, c.riff);
        putLE32(bytes, data + 4, c.dataSize);
        const QString p = path(QStringLiteral("%1.wav").arg(c.name));
        writeAll(p, bytes);

        auto file = LXAudioFile::open(p);
        ASSERT_TRUE(file) << file.error().description().toStdString();
        ASSERT_TRUE((*file)->warning().has_value());
        EXPECT_EQ((*file)->warning()->code(), LXErrRepairable);
        EXPECT_EQ((*file)->frames(), sound.frames);
        std::vector<float> got(want.size());
        ASSERT_TRUE((*file)->readFrames(0, sound.frames, got.data()));
        EXPECT_EQ(got, want);

        ASSERT_TRUE(LXAudioFile::repairAtPath(p));
        auto repaired = LXAudioFile::open(p);
        ASSERT_TRUE(repaired);
        EXPECT_FALSE((*repaired)->warning().has_value());
        int exitCode = 0;
        EXPECT_EQ(runTool("soxi", {"-s", p}, &exitCode).trimmed(), "5000");
    }
}

TEST_F(OddFileTest, AiffWithLargeFormSizeAndAifcWithoutVersionChunk) {
    Sound sound;
    sound.format = LXFormat::AIFF;
    sound.encoding = LXSampleEncoding::pcm(16, true);
    const QString aiff = path("big-form.aif");
    ASSERT_TRUE(write(aiff, sound));
    QByteArray bytes = readAll(aiff);
    putBE32(bytes, 4, uint32_t(bytes.size() + 100000));
    writeAll(aiff, bytes);
    auto file = LXAudioFile::open(aiff);
    ASSERT_TRUE(file) << file.error().description().toStdString();
    EXPECT_EQ((*file)->frames(), sound.frames);
    EXPECT_TRUE((*file)->warning().has_value());

    sound.format = LXFormat::AIFC;
    sound.encoding = LXSampleEncoding::ieeeFloat(32, true);
    const QString aifc = path("no-fver.aif");
    ASSERT_TRUE(write(aifc, sound));
    bytes = readAll(aifc);
    const qsizetype fver = bytes.indexOf("FVER");
    ASSERT_EQ(fver, 12);
    bytes.remove(fver, 12);
    putBE32(bytes, 4, uint32_t(bytes.size() - 8));
    writeAll(aifc, bytes);
    file = LXAudioFile::open(aifc);
    ASSERT_TRUE(file) << file.error().description().toStdString();
    EXPECT_FALSE((*file)->warning().has_value());
    std::vector<float> got(size_t(sound.frames * 2));
    ASSERT_TRUE((*file)->readFrames(0, sound.frames, got.data()));
    EXPECT_EQ(got, expected(sound));
}

TEST_F(OddFileTest, DamagedFilesGiveReadableErrors) {
    Sound sound;
    sound.frames = 1000;
    const QString wav = writeWav("good.wav", sound);
    sound.format = LXFormat::AIFF;
    sound.encoding = LXSampleEncoding::pcm(24, true);
    const QString aif = path("good.aif");
    ASSERT_TRUE(write(aif, sound));

    // Every truncation of the header region: an error or a readable file, never a crash.
    for (const QString& source : {wav, aif}) {
        const QByteArray bytes = readAll(source);
        for (qsizetype cut = 0; cut < 120; ++cut) {
            const QString p = path("cut");
            writeAll(p, bytes.left(cut));
            auto file = LXAudioFile::open(p);
            if (!file) {
                EXPECT_FALSE(file.error().description().isEmpty());
            } else {
                EXPECT_LE((*file)->frames(), sound.frames);
            }
        }
    }

    // Wrong sizes and nonsense in the format chunk.
    QByteArray bytes = readAll(wav);
    const qsizetype fmt = bytes.indexOf("fmt ");
    QByteArray noChannels = bytes;
    noChannels[fmt + 10] = 0, noChannels[fmt + 11] = 0;
    writeAll(path("nochannels.wav"), noChannels);
    auto file = LXAudioFile::open(path("nochannels.wav"));
    ASSERT_FALSE(file);
    EXPECT_EQ(file.error().code(), LXErrBadHeader);
    EXPECT_TRUE(file.error().description().contains("channels")) << file.error().description().toStdString();
    EXPECT_GE(file.error().offset(), 0);

    QByteArray hugeChunk = bytes;
    hugeChunk.insert(12, QByteArray("LIST\xff\xff\xff\x7f", 8));
    writeAll(path("huge.wav"), hugeChunk);
    file = LXAudioFile::open(path("huge.wav"));
    EXPECT_FALSE(file && (*file)->frames() > sound.frames);

    // Random garbage behind a valid magic.
    QRandomGenerator random(42);
    for (int round = 0; round < 200; ++round) {
        QByteArray garbage(int(random.bounded(8, 400)), '\0');
        for (char& ch : garbage)
            ch = char(random.bounded(256));
        garbage.replace(0, 12, round % 2 ? QByteArray("RIFF\0\0\0\0WAVE", 12) : QByteArray("FORM\0\0\0\0AIFF", 12));
        writeAll(path("garbage"), garbage);
        auto g = LXAudioFile::open(path("garbage"));
        if (!g) {
            EXPECT_FALSE(g.error().description().isEmpty());
        }
    }

    auto missing = LXAudioFile::open(path("does not exist.wav"));
    ASSERT_FALSE(missing);
    EXPECT_TRUE(missing.error().isFileError());
}
