// Loudness in clipwright info and loudness normalization, on real recordings, with ffmpeg's ebur128
// filter as the independent meter.

#include "CommandLineRunner.h"
#include "TestAudio.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <cmath>

namespace {

struct Loudness {
    double integrated = NAN; // LUFS
    double truePeak = NAN;   // dBTP
};

// ffmpeg's summary: "I: -23.0 LUFS" and, under "True peak:", "Peak: -5.9 dBFS".
Loudness ffmpegLoudness(const QString& file) {
    int status = -1;
    QString log;
    TestAudio::runTool("ffmpeg", {"-nostats", "-hide_banner", "-i", file, "-af", "ebur128=peak=true", "-f",
                                  "null", "-"},
                       &status, &log);
    EXPECT_EQ(status, 0) << log.toStdString();
    const int summary = log.lastIndexOf(QStringLiteral("Summary:"));
    Loudness loudness;
    const auto integrated = QRegularExpression(R"(I:\s+(-?[\d.]+|-inf) LUFS)").match(log, summary);
    const auto peak = QRegularExpression(R"(Peak:\s+(-?[\d.]+|-inf) dBFS)").match(log, summary);
    if (integrated.hasMatch()) loudness.integrated = integrated.captured(1).toDouble();
    if (peak.hasMatch()) loudness.truePeak = peak.captured(1).toDouble();
    return loudness;
}

class LoudnessCommands : public testing::Test {
protected:
    CommandLineRunner cli;

    QString path(const QString& name) const { return QDir(cli.work()).filePath(name); }
    // Real recordings of different kinds: a drum loop and a choir (stereo FLAC, 44.1 kHz) and speech
    // (mono WAV, 8 kHz).
    QStringList recordings() const {
        const QStringList sources{"/usr/share/sonic-pi/samples/loop_amen.flac",
                                  "/usr/share/sonic-pi/samples/ambi_choir.flac",
                                  "/usr/share/asterisk/sounds/en_US_f_Allison/vm-goodbye.wav"};
        QStringList copies;
        for (const QString& source : sources) {
            if (!QFile::exists(source)) continue;
            const QString copy = path(QFileInfo(source).fileName());
            QFile::remove(copy);
            EXPECT_TRUE(QFile::copy(source, copy));
            QFile::setPermissions(copy, QFile::ReadOwner | QFile::WriteOwner);
            copies.append(copy);
        }
        return copies;
    }
    // 30 s of stereo silence: long enough to pull a length-weighted mean down if it took part.
    QString makeSilence() const {
        EXPECT_TRUE(TestAudio::generateWithSox(path("silence.wav"), {"-n", "-r", "44100", "-c", "2"},
                                               {"trim", "0", "30"}));
        return path("silence.wav");
    }
};

} // namespace

// A 1 kHz stereo sine at -23 dBFS reads -23.0 LUFS, its true peak at -23 dB and a range of 0 LU;
// silence reads -inf (null in JSON).
TEST_F(LoudnessCommands, InfoShowsLoudnessRangeAndTruePeak) {
    ASSERT_TRUE(TestAudio::generateWithSox(path("tone.wav"), {"-n", "-r", "48000", "-b", "24", "-c", "2"},
                                           {"synth", "10", "sine", "1000", "vol", "-23dB"}));
    ASSERT_TRUE(TestAudio::generateWithSox(path("silence.wav"), {"-n", "-r", "48000", "-c", "2"},
                                           {"trim", "0", "2"}));
    const auto result = cli.run({"info", "--json", "--loudness", path("tone.wav"), path("silence.wav")});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    const QJsonArray files = QJsonDocument::fromJson(result.out.toUtf8()).array();
    ASSERT_EQ(files.size(), 2) << result.out.toStdString();
    EXPECT_NEAR(files[0]["loudness"].toDouble(), -23.0, 0.1);
    EXPECT_NEAR(files[0]["loudnessRange"].toDouble(), 0.0, 0.1);
    EXPECT_NEAR(files[0]["decibels"]["truePeak"].toDouble(), -23.0, 0.1);
    EXPECT_EQ(files[0]["display"]["Loudness"].toString(), "-23.0 LUFS");
    EXPECT_TRUE(files[1]["loudness"].isNull());
    EXPECT_EQ(files[1]["display"]["Loudness"].toString(), "-inf LUFS");
}

// Each file lands within 0.1 LU of the target as ffmpeg measures it, unless the true-peak ceiling holds
// it back, and no file's true peak passes the ceiling. A silent file is left alone, with the reason.
TEST_F(LoudnessCommands, NormalizeBringsEachFileToTheTargetUnderTheCeiling) {
    const QStringList files = recordings();
    if (files.size() < 3) GTEST_SKIP() << "sonic-pi-samples or asterisk-core-sounds-en-wav is not installed";
    const QByteArray silence = readBytes(makeSilence());
    for (const double target : {-23.0, -12.0}) {
        SCOPED_TRACE(target);
        const auto result = cli.run(QStringList{"normalize", "--loudness", "yes", "--level",
                                                QString::number(target), "--truePeakCeiling", "-1"}
                                    << files << path("silence.wav"));
        ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
        EXPECT_TRUE(result.out.contains("it is silent") || result.err.contains("it is silent"))
            << result.out.toStdString() << result.err.toStdString();
        for (const QString& file : files) {
            SCOPED_TRACE(file.toStdString());
            const Loudness after = ffmpegLoudness(file);
            EXPECT_LE(after.truePeak, -1.0 + 0.3); // meters disagree on true peaks by tenths of a dB
            if (after.truePeak < -1.5) EXPECT_NEAR(after.integrated, target, 0.1);
            else EXPECT_LE(after.integrated, target + 0.1);
        }
    }
    EXPECT_EQ(readBytes(path("silence.wav")), silence);
}

// Grouped, every file gets the same gain, which brings their length-weighted energy mean to the target; a
// silent file takes no part and stays as it is.
TEST_F(LoudnessCommands, GroupedNormalizeGivesEveryFileTheSameGain) {
    const QStringList files = recordings();
    if (files.size() < 3) GTEST_SKIP() << "sonic-pi-samples or asterisk-core-sounds-en-wav is not installed";
    const QByteArray silence = readBytes(makeSilence());
    std::vector<double> before;
    for (const QString& file : files)
        before.push_back(ffmpegLoudness(file).integrated);
    const auto result = cli.run(QStringList{"normalize", "--loudness", "yes", "--level", "-30", "--grouping",
                                            "yes", "--truePeakCeiling", "0"}
                                << files << path("silence.wav"));
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    double energy = 0.0, seconds = 0.0, gain = NAN;
    for (qsizetype i = 0; i < files.size(); ++i) {
        const double after = ffmpegLoudness(files[i]).integrated;
        if (std::isnan(gain)) gain = after - before[size_t(i)];
        EXPECT_NEAR(after - before[size_t(i)], gain, 0.15) << files[i].toStdString();
        const double length = TestAudio::runTool("soxi", {"-D", files[i]}).toDouble();
        energy += length * std::pow(10.0, after / 10.0);
        seconds += length;
    }
    EXPECT_NEAR(10.0 * std::log10(energy / seconds), -30.0, 0.1);
    EXPECT_EQ(readBytes(path("silence.wav")), silence);
}
