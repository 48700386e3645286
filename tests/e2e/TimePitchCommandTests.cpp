// Time and pitch changed through Rubber Band: lengths exact to the frame, the pitch heard after a shift,
// labels, tempo and base note carried along.

#include "CommandLineRunner.h"
#include "TestAudio.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

namespace {

QJsonObject infoOf(const CommandLineRunner& cli, const QString& file, const QString& option = {}) {
    QStringList arguments{"info", "--json"};
    if (!option.isEmpty()) arguments.append(option);
    return QJsonDocument::fromJson(cli.run(arguments + QStringList{file}).out.toUtf8()).array()[0].toObject();
}

} // namespace

TEST(TimePitchCommands, PitchTempoAndLengthComeOutExact) {
    CommandLineRunner cli;
    const QDir work(cli.work());
    const QString tone = work.filePath("tone.wav"), loop = work.filePath("loop.wav"), take = work.filePath("take.wav");
    for (const QString& file : {tone, loop, take})
        ASSERT_TRUE(TestAudio::generateWithSox(file, {"-n", "-r", "44100", "-b", "16", "-c", "2"},
                                               {"synth", "2", "sine", "440"}));

    // An octave up keeps the length and reads A 880 Hz; the base note follows.
    ASSERT_EQ(cli.run({"set-midi-property", "--key", "baseNote", "--value", "69", tone}).exitCode, 0);
    auto result = cli.run({"change-pitch", "--cents", "1200", tone});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    QJsonObject info = infoOf(cli, tone, "--pitch");
    EXPECT_EQ(info["samples"].toInt(), 88200);
    EXPECT_EQ(info["pitch"].toInt(), 81);
    EXPECT_EQ(info["baseNote"].toInt(), 81);

    // A loop stated at 120 BPM taken to 90 lasts 4/3 as long and states 90.
    ASSERT_EQ(cli.run({"set-musical-property", "--key", "tempo", "--value", "120", loop}).exitCode, 0);
    result = cli.run({"change-tempo", "--tempo", "90", loop});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    info = infoOf(cli, loop);
    EXPECT_EQ(info["samples"].toInt(), 117600);
    EXPECT_DOUBLE_EQ(info["tempo"].toDouble(), 90.0);

    // Markers land on the same moment of the stretched audio; 200 is read as a percentage.
    ASSERT_EQ(cli.run({"make-labels-at-divisions", "--divisions", "4", "--type", "MARK", take}).exitCode, 0);
    ASSERT_EQ(cli.run({"change-length", "--length", "3", take}).exitCode, 0);
    EXPECT_EQ(TestAudio::runTool("python3", {E2E_SOURCE_DIR "/label_positions.py", take}).trimmed(),
              "M:0,33075,66150,99225 R: L:");
    ASSERT_EQ(cli.run({"change-speed", "--factor", "200", "--retainPitch", "no", take}).exitCode, 0);
    info = infoOf(cli, take, "--pitch");
    EXPECT_EQ(info["samples"].toInt(), 66150);
    EXPECT_EQ(info["pitch"].toInt(), 81) << "twice as fast, an octave up";

    // A file with no tempo stated or heard stays as it is.
    const QString hum = work.filePath("hum.wav");
    ASSERT_TRUE(TestAudio::generateWithSox(hum, {"-n", "-r", "44100", "-c", "1"}, {"synth", "1", "sine", "100"}));
    EXPECT_EQ(cli.run({"change-tempo", "--tempo", "90", hum}).exitCode, 0);
    EXPECT_EQ(infoOf(cli, hum)["samples"].toInt(), 44100);
}
