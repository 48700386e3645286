// Compress and Expand through the clipwright program: the static curve of each against sox's
// measurement of tones made by sox, a failed file that puts the batch back, and undo.

#include "CommandLineRunner.h"
#include "TestAudio.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <cmath>

namespace {

const QList<double> kLevels = {-60, -50, -40, -30, -24, -18, -12, -6}; // dBFS, 0.5 s each
constexpr double kStep = 0.5;

class DynamicsCommands : public testing::Test {
protected:
    CommandLineRunner cli;

    QString path(const QString& name) const { return QDir(cli.work()).filePath(name); }

    // A 1 kHz tone, 24-bit mono at 48 kHz, stepping through the levels, made and joined by sox.
    QString stepsFile(const QString& name) const {
        QStringList parts;
        for (const double level : kLevels) {
            const QString part = path(QStringLiteral("part%1.wav").arg(parts.size()));
            EXPECT_TRUE(TestAudio::generateWithSox(part, {"-n", "-r", "48000", "-b", "24", "-c", "1"},
                                                   {"synth", QString::number(kStep), "sine", "1000", "vol",
                                                    QStringLiteral("%1dB").arg(level)}));
            parts.append(part);
        }
        int exit = -1;
        TestAudio::runTool("sox", parts + QStringList{path(name)}, &exit);
        EXPECT_EQ(exit, 0);
        return path(name);
    }
    // Two seconds of stereo noise at 44.1 kHz, 16-bit.
    QString noiseFile(const QString& name, double seconds) const {
        EXPECT_TRUE(TestAudio::generateWithSox(path(name), {"-n", "-r", "44100", "-b", "16", "-c", "2"},
                                               {"synth", QString::number(seconds), "pinknoise", "vol", "0.5"}));
        return path(name);
    }
    // The peak level sox measures over the settled end of each step (its last 0.2 s).
    static QList<double> settledPeaks(const QString& file) {
        QList<double> peaks;
        for (int i = 0; i < kLevels.size(); ++i) {
            QString stats; // sox writes them on stderr
            TestAudio::runTool("sox", {file, "-n", "trim", QString::number(i * kStep + 0.3), "0.2", "stats"},
                               nullptr, &stats);
            const QRegularExpressionMatch m = QRegularExpression(R"(Pk lev dB\s+(-?[\d.]+|-inf))").match(stats);
            peaks.append(m.hasMatch() ? m.captured(1).toDouble() : NAN);
        }
        return peaks;
    }
    void run(const QStringList& arguments) const {
        const auto result = cli.run(QStringList(arguments) << "-q");
        ASSERT_EQ(result.exitCode, 0) << arguments.join(' ').toStdString() << ": " << result.err.toStdString();
    }
};

} // namespace

// Above the threshold (dB below full scale) the output rises 1 dB for each ratio's worth of input, the
// ratio being 40 / headroom and the headroom (1 - amount) x 40; below it nothing changes but the makeup
// gain. Checked at 2:1, 10:1 and 400:1 (a limiter) within 0.5 dB.
TEST_F(DynamicsCommands, CompressionFollowsTheStaticCurve) {
    if (!TestAudio::haveTool("sox")) GTEST_SKIP() << "sox is not installed";
    const QString source = stepsFile("steps.wav");
    struct Setting {
        double threshold, amount, gain;
    };
    for (const Setting& s : {Setting{20, 0.5, 0}, Setting{30, 0.9, 0}, Setting{10, 1.0, 4}}) {
        SCOPED_TRACE(testing::Message() << "threshold " << s.threshold << " amount " << s.amount);
        const QString file = path("compressed.wav");
        QFile::remove(file);
        ASSERT_TRUE(QFile::copy(source, file));
        run({"compress", "--threshold", QString::number(s.threshold), "--amount", QString::number(s.amount),
             "--gain", QString::number(s.gain), "--attack", "0.005", "--release", "0.05", file});
        const double ratio = 40.0 / std::max(0.1, (1 - s.amount) * 40.0);
        const QList<double> peaks = settledPeaks(file);
        for (int i = 0; i < kLevels.size(); ++i) {
            const double over = kLevels[i] + s.threshold;
            const double expected = (over > 0 ? kLevels[i] - over + over / ratio : kLevels[i]) + s.gain;
            EXPECT_NEAR(peaks[i], expected, 0.5) << "at " << kLevels[i] << " dBFS";
        }
    }
}

// Below the threshold the output falls `ratio` dB for each dB of input: at 1:3 below -40 dBFS, -50 dBFS
// comes out at -70 and -60 at -100; at and above the threshold the tone is untouched.
TEST_F(DynamicsCommands, ExpansionFollowsTheRatioBelowTheThreshold) {
    if (!TestAudio::haveTool("sox")) GTEST_SKIP() << "sox is not installed";
    const QString file = stepsFile("steps.wav");
    run({"expand", "--threshold", "40", "--ratio", "3", file});
    const QList<double> peaks = settledPeaks(file);
    for (int i = 0; i < kLevels.size(); ++i) {
        const double under = std::min(0.0, kLevels[i] + 40);
        EXPECT_NEAR(peaks[i], kLevels[i] + 2 * under, 0.5) << "at " << kLevels[i] << " dBFS";
    }
}

// A file that cannot be written (the third of five is larger than the file size the process may write,
// so its output fails with "File too large") cancels the run: the two files already compressed in place
// are put back byte for byte, and the rest were never touched. No temporary file is left behind.
TEST_F(DynamicsCommands, AFailedFileCancelsTheRunAndPutsTheBatchBack) {
    if (!TestAudio::haveTool("sox")) GTEST_SKIP() << "sox is not installed";
    QStringList files;
    QList<QByteArray> before;
    for (int i = 0; i < 5; ++i) {
        files.append(noiseFile(QStringLiteral("take%1.wav").arg(i), i == 2 ? 10.0 : 1.0));
        before.append(readBytes(files.last()));
    }
    // 1 MiB: each short file's output (176 KB) fits, the long one's (1.7 MB) does not. A size limit
    // signals the process, which would end it; ignored, the write fails instead, as on a full disk.
    const QStringList limited = {"bash", "-c", R"(trap '' XFSZ; ulimit -f 1024; exec "$0" "$@")"};
    const auto result = cli.run(QStringList{"compress", "--threshold", "30", "--amount", "0.8", "-q"} + files, limited);
    EXPECT_NE(result.exitCode, 0);
    EXPECT_TRUE(result.err.contains("'take2.wav': ")) << result.err.toStdString();
    EXPECT_TRUE(result.err.contains("File too large", Qt::CaseInsensitive)) << result.err.toStdString();
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(readBytes(files[i]), before[i]) << files[i].toStdString();
    EXPECT_EQ(QDir(cli.work()).entryList(QDir::Files | QDir::Hidden).filter(QStringLiteral("take")).size(), 5);
}

// A successful run changes every file alike (no file inherits the detector of the one before) and one
// undo puts them all back.
TEST_F(DynamicsCommands, UndoRestoresACompressedBatch) {
    if (!TestAudio::haveTool("sox")) GTEST_SKIP() << "sox is not installed";
    const QString first = noiseFile("first.wav", 2.0);
    const QString second = path("second.wav");
    ASSERT_TRUE(QFile::copy(first, second));
    const QByteArray original = readBytes(first);
    run({"compress", "--threshold", "30", "--amount", "1", first, second});
    EXPECT_NE(readBytes(first), original);
    EXPECT_EQ(readBytes(first), readBytes(second));
    const auto undone = cli.run({"undo"});
    ASSERT_EQ(undone.exitCode, 0) << undone.err.toStdString();
    EXPECT_EQ(readBytes(first), original);
    EXPECT_EQ(readBytes(second), original);
}
