// The clipwright program on generated files: each level action against sox, undo and redo across
// invocations, and the errors a user sees.

#include "CommandLineRunner.h"

#include "TestAudio.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace {

constexpr double kLsb16 = 1.0 / 32768.0;

TestAudio::Sound stereo(double amplitude) {
    TestAudio::Sound sound;
    sound.signal = TestAudio::Signal::Sine;
    sound.frames = 22050;
    sound.amplitude = amplitude;
    return sound;
}

QString makeFile(const CommandLineRunner& runner, const QString& name, const TestAudio::Sound& sound) {
    auto written = TestAudio::write(QDir(runner.work()).filePath(name), sound);
    EXPECT_TRUE(written) << (written ? "" : written.error().description().toStdString());
    return written ? *written : QString();
}

TestAudio::Decoded decode(const QString& path) {
    auto decoded = TestAudio::readWithSox(path);
    EXPECT_TRUE(decoded) << path.toStdString();
    return decoded ? *decoded : TestAudio::Decoded{};
}

double peak(const TestAudio::Decoded& decoded, int channel = -1) {
    double level = 0;
    for (int64_t i = 0; i < int64_t(decoded.samples.size()); ++i)
        if (channel < 0 || i % decoded.channels == channel)
            level = std::max(level, std::fabs(decoded.samples[size_t(i)]));
    return level;
}

double largestDifference(const TestAudio::Decoded& a, const TestAudio::Decoded& b) {
    if (a.samples.size() != b.samples.size()) return INFINITY;
    double difference = 0;
    for (size_t i = 0; i < a.samples.size(); ++i)
        difference = std::max(difference, std::fabs(a.samples[i] - b.samples[i]));
    return difference;
}

} // namespace

TEST(CommandLine, ChangeGainToANewFileMatchesSox) {
    CommandLineRunner runner;
    const QString source = makeFile(runner, "a.wav", stereo(0.5));
    const auto result = runner.run({"change-gain", "--level", "-6", "--to-new-file", source});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    // The source keeps its name; the new file takes the first free numbered one.
    ASSERT_EQ(result.lines(), QStringList{QDir(runner.work()).filePath("a-1.wav")});

    const double gain = std::pow(10.0, double(-6.0f / 20.0f));
    const QString reference = QDir(runner.work()).filePath("reference.wav");
    int status = -1;
    TestAudio::runTool("sox", {"-D", "-v", QString::number(gain, 'g', 17), source, reference}, &status);
    ASSERT_EQ(status, 0);
    EXPECT_LE(largestDifference(decode(result.lines().first()), decode(reference)), kLsb16 * 1.01);
}

TEST(CommandLine, NormalizeReachesTheTargetByPeakRmsAndGroup) {
    CommandLineRunner runner;
    const QString quiet = makeFile(runner, "quiet.wav", stereo(0.25));
    const QString middle = makeFile(runner, "middle.wav", stereo(0.5));
    const QString loud = makeFile(runner, "loud.wav", stereo(0.8));

    auto result = runner.run({"normalize", "--level", "-1", quiet});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_NEAR(peak(decode(quiet)), std::pow(10.0, -1.0 / 20.0), kLsb16);

    // A sine's RMS is its peak over the square root of two.
    result = runner.run({"normalize", "--level", "-20", "--rms", "--to-new-file", middle});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_NEAR(peak(decode(result.lines().value(0))), 0.1 * std::sqrt(2.0), 2 * kLsb16);

    // Grouped, the loudest file sets one gain for all: the levels keep their proportions.
    const QStringList group = {QDir(runner.work()).filePath("g1.wav"),
                               QDir(runner.work()).filePath("g2.wav")};
    QFile::copy(middle, group[0]);
    QFile::copy(loud, group[1]);
    result = runner.run({"normalize", "--level", "0", "--grouping", group[0], group[1]});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_NEAR(peak(decode(group[1])), 1.0, 2 * kLsb16);
    EXPECT_NEAR(peak(decode(group[0])), 0.5 / 0.8, 2 * kLsb16);
}

TEST(CommandLine, BalanceBringsEachChannelToTheLoudest) {
    CommandLineRunner runner;
    TestAudio::Sound sound;
    sound.signal = TestAudio::Signal::Pattern; // a sine on the left, a triangle on the right
    sound.frames = 22050;
    sound.amplitude = 0.4;
    const QString source = makeFile(runner, "uneven.wav", sound);
    // Halve the right channel so the two differ by 6 dB.
    const QString uneven = QDir(runner.work()).filePath("uneven-2.wav");
    int status = -1;
    TestAudio::runTool("sox", {"-D", source, uneven, "remix", "1", "2v0.5"}, &status);
    ASSERT_EQ(status, 0);

    const auto result = runner.run({"balance", "--to-new-file", uneven});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    const TestAudio::Decoded balanced = decode(result.lines().value(0));
    EXPECT_NEAR(peak(balanced, 0), peak(balanced, 1), 2 * kLsb16);
    EXPECT_NEAR(peak(balanced, 0), peak(decode(uneven), 0), kLsb16); // the loudest channel is untouched
}

TEST(CommandLine, UndoAndRedoAcrossInvocationsGiveBackTheExactBytes) {
    CommandLineRunner runner;
    const QString first = makeFile(runner, "one.wav", stereo(0.3));
    const QString second = makeFile(runner, "two.aif", stereo(0.2));
    const QByteArray before1 = readBytes(first), before2 = readBytes(second);

    ASSERT_EQ(runner.run({"normalize", "--level", "-3", first, second}).exitCode, 0);
    const QByteArray after1 = readBytes(first), after2 = readBytes(second);
    ASSERT_NE(after1, before1);
    for (int round = 0; round < 3; ++round) {
        const auto undone = runner.run({"undo"});
        ASSERT_EQ(undone.exitCode, 0) << undone.err.toStdString();
        EXPECT_EQ(readBytes(first), before1);
        EXPECT_EQ(readBytes(second), before2);
        ASSERT_EQ(runner.run({"redo"}).exitCode, 0);
        EXPECT_EQ(readBytes(first), after1);
        EXPECT_EQ(readBytes(second), after2);
    }
    // A new change after an undo drops the redo; the earlier steps stay.
    ASSERT_EQ(runner.run({"undo"}).exitCode, 0);
    ASSERT_EQ(runner.run({"change-gain", "--level", "3", first}).exitCode, 0);
    EXPECT_EQ(runner.run({"redo"}).exitCode, 8);
    ASSERT_EQ(runner.run({"undo"}).exitCode, 0);
    EXPECT_EQ(readBytes(first), before1);
}

TEST(CommandLine, ErrorsAreOneReadableLineAndChangeNothing) {
    CommandLineRunner runner;
    const QString file = makeFile(runner, "keep.wav", stereo(0.3));
    const QByteArray bytes = readBytes(file);

    auto result = runner.run({"change-gain", file});
    EXPECT_EQ(result.exitCode, 8);
    EXPECT_TRUE(result.err.contains("required instructions are missing.")) << result.err.toStdString();

    result = runner.run({"change-gain", "--level", "loud", file});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_TRUE(result.err.contains("'loud' is not a valid number for --level")) << result.err.toStdString();

    result = runner.run({"normalize", "--level", "-1", "--louder", file});
    EXPECT_EQ(result.exitCode, 2);

    result = runner.run({"normalize", "--level", "-1", file, QDir(runner.work()).filePath("missing.wav")});
    EXPECT_EQ(result.exitCode, 8);
    EXPECT_TRUE(result.err.contains("does not exist")) << result.err.toStdString();

    result = runner.run(
        {"change-gain", "--level", "-3", "--directory", QDir(runner.work()).filePath("nowhere"), file});
    EXPECT_EQ(result.exitCode, 8);
    EXPECT_TRUE(result.err.contains("the destination directory does not exist.")) << result.err.toStdString();

    EXPECT_EQ(readBytes(file), bytes);
    EXPECT_EQ(runner.run({"undo"}).exitCode, 8); // nothing was changed, so nothing to undo
}

TEST(CommandLine, AWorkflowRunsLikeItsCommandsAndSkipsUnknownActions) {
    CommandLineRunner runner;
    const QString viaWorkflow = makeFile(runner, "w.wav", stereo(0.3));
    const QString viaCommand = makeFile(runner, "c.wav", stereo(0.3));
    auto result = runner.run({"run", "Normalize to -1 dB peak", viaWorkflow});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_EQ(result.lines(), QStringList{viaWorkflow});
    ASSERT_EQ(runner.run({"normalize", "--level", "-1", viaCommand}).exitCode, 0);
    EXPECT_EQ(readBytes(viaWorkflow), readBytes(viaCommand));

    // A file from a newer version: its unknown action is skipped, the known one runs.
    const QString workflow = QDir(runner.work()).filePath("mixed.twwf");
    QFile file(workflow);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0"><array>
<dict><key>class</key><string>TWActionFromTheFuture</string><key>instructions</key><dict/></dict>
<dict><key>class</key><string>TWActionChangeGain</string><key>active</key><true/>
 <key>instructions</key><dict><key>class</key><string>TWActionChangeGain</string><key>source</key><integer>1</integer>
 <key>destination</key><dict><key>toNewFile</key><true/></dict><key>level</key><real>-6</real></dict></dict>
</array></plist>)");
    file.close();
    result = runner.run({"run", workflow, viaCommand});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_TRUE(result.err.contains("TWActionFromTheFuture")) << result.err.toStdString();
    EXPECT_EQ(result.lines(), QStringList{QDir(runner.work()).filePath("c-1.wav")});

    // Not a workflow at all: one clear line, nothing touched.
    const QString text = QDir(runner.work()).filePath("notes.twwf");
    QFile notes(text);
    ASSERT_TRUE(notes.open(QIODevice::WriteOnly));
    notes.write("buy milk\n");
    notes.close();
    const QByteArray before = readBytes(viaCommand);
    result = runner.run({"run", text, viaCommand});
    EXPECT_EQ(result.exitCode, 8);
    EXPECT_TRUE(result.err.contains("not a property list")) << result.err.toStdString();
    EXPECT_EQ(readBytes(viaCommand), before);
}

TEST(CommandLine, CommandsNeverReadTheStoredFileList) {
    // Only the window reads the file list: a damaged one stays exactly as it is, and commands work.
    CommandLineRunner runner;
    const QString file = makeFile(runner, "take.wav", stereo(0.3));
    const QString folder = runner.environment().value("XDG_CONFIG_HOME") + "/Clipwright";
    const QString list = folder + "/Entries.plist";
    QDir().mkpath(folder);
    QFile damaged(list);
    ASSERT_TRUE(damaged.open(QIODevice::WriteOnly) &&
                damaged.write("<?xml version=\"1.0\"?><plist><dict>") > 0);
    damaged.close();
    const QDateTime modified = QFileInfo(list).lastModified();

    const auto info = runner.run({"info", file});
    EXPECT_EQ(info.exitCode, 0) << info.err.toStdString();
    EXPECT_TRUE(info.out.contains("44.1 kHz")) << info.out.toStdString();
    EXPECT_FALSE(info.err.contains("Entries")) << info.err.toStdString(); // reading it would warn
    EXPECT_EQ(runner.run({"change-gain", "--level", "-1", file}).exitCode, 0);
    EXPECT_EQ(readBytes(list), "<?xml version=\"1.0\"?><plist><dict>");
    EXPECT_EQ(QFileInfo(list).lastModified(), modified);
    EXPECT_EQ(QDir(folder).entryList({"Entries.plist*"}, QDir::Files), QStringList{"Entries.plist"});
}
