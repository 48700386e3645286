// The block loop on real files: direction, and failures that carry their reason.

#include "TestAudio.h"
#include "lx/LXAnalysis.h"
#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/LXProcess.h"
#include "lx/dsp/LXGain.h"
#include "lx/dsp/LXReverse.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace TestAudio;

// Read backwards and reversed block by block, a file comes out reversed sample for sample, for every
// encoding and a length that is no whole number of blocks.
TEST(Process, ReverseIsBitExactForEveryEncoding) {
    QTemporaryDir dir;
    for (const bool aiff : {false, true})
        for (const int bits : {8, 16, 24, 32, 0}) { // 0: 32-bit float
            const uint32_t format = aiff ? (bits ? LXFormat::AIFF : LXFormat::AIFC) : LXFormat::WAVE;
            const Sound sound{.signal = Signal::Noise,
                              .channels = 2,
                              .frames = 40009,
                              .format = format,
                              .encoding = bits ? LXSampleEncoding::pcm(bits, aiff, bits == 8 && !aiff)
                                               : LXSampleEncoding::ieeeFloat(32, aiff),
                              .amplitude = 0.99};
            const QString name = QStringLiteral("%1.%2").arg(bits).arg(LXFormat::extension(format));
            SCOPED_TRACE(name.toStdString());
            auto written = write(dir.filePath(name), sound);
            ASSERT_TRUE(written);
            auto file = LXAudioFile::open(*written);
            ASSERT_TRUE(file);
            LXAudioFileWriter writer(**file);
            LXReverse reverse;
            const LXStatus done = LXProcess(**file, reverse, writer, {.pieces = {}, .direction = LXDirection::Backward});
            ASSERT_TRUE(done) << done.error().description().toStdString();
            ASSERT_TRUE(writer.saveFile(0, dir.filePath("reversed-" + name)));

            auto reversed = LXAudioFile::open(dir.filePath("reversed-" + name));
            ASSERT_TRUE(reversed);
            ASSERT_EQ((*reversed)->frames(), sound.frames);
            std::vector<double> got(size_t(sound.frames * 2));
            ASSERT_TRUE((*reversed)->readFrames(0, sound.frames, got.data()));
            const std::vector<double> want = expectedExact(sound);
            for (int64_t f = 0; f < sound.frames; ++f)
                for (int c = 0; c < 2; ++c)
                    ASSERT_EQ(got[size_t(f * 2 + c)], want[size_t((sound.frames - 1 - f) * 2 + c)]) << f;
        }
}

// A file that shrinks under a run (another program truncating it) fails the run with the reader's
// error, which names the file and says why.
TEST(Process, AReadFailureNamesTheFile) {
    QTemporaryDir dir;
    auto written = write(dir.filePath("shrinking.wav"), {.frames = 100000});
    ASSERT_TRUE(written);
    auto file = LXAudioFile::open(*written);
    ASSERT_TRUE(file);
    ASSERT_TRUE(QFile::resize(*written, 50000 * 4));
    LXAudioFileWriter writer(**file);
    const LXStatus copied = (*file)->copyToWriter(writer);
    ASSERT_FALSE(copied);
    EXPECT_EQ(copied.error().path(), *written);
    EXPECT_TRUE(copied.error().description().contains("shrinking.wav"))
        << copied.error().description().toStdString();
    EXPECT_NE(copied.error().errnum(), 0);
}

// An Ogg stream cut short: libsndfile does not know its length and gives the largest count there is.
// The file is as long as the audio that decodes, its analysis is finite, and a run writes that much.
TEST(Process, AStreamCutShortIsReadAsFarAsItGoes) {
    if (!haveTool(QStringLiteral("sox"))) GTEST_SKIP() << "sox is not installed";
    QTemporaryDir dir;
    const QString whole = dir.filePath(QStringLiteral("whole.ogg"));
    ASSERT_TRUE(generateWithSox(whole, {"-n", "-r", "44100", "-c", "2"}, {"synth", "20", "whitenoise"}));
    QFile source(whole);
    ASSERT_TRUE(source.open(QIODevice::ReadOnly));
    const QByteArray bytes = source.readAll();
    for (const qsizetype cut : {qsizetype(8000), bytes.size() / 3}) {
        const QString path = dir.filePath(QStringLiteral("cut%1.ogg").arg(cut));
        SCOPED_TRACE(path.toStdString());
        QFile out(path);
        ASSERT_TRUE(out.open(QIODevice::WriteOnly) && out.write(bytes.left(cut)) == cut);
        out.close();
        auto file = LXAudioFile::open(path);
        ASSERT_TRUE(file);
        ASSERT_TRUE(LXAnalyze(**file, 1));
        const int64_t decoded = (*file)->frames();
        ASSERT_LT(decoded, int64_t(20 * 44100));

        LXAudioFileWriter writer(**file);
        LXGain half(0.5);
        ASSERT_TRUE(LXProcess(**file, half, writer, {}));
        ASSERT_TRUE(writer.saveFile(0, dir.filePath("out.wav")));
        auto written = LXAudioFile::open(dir.filePath("out.wav"));
        ASSERT_TRUE(written);
        EXPECT_EQ((*written)->frames(), decoded);
    }
}
