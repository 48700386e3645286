// Labels made at divisions and on beats, removed by kind, and the pieces between them extracted, read back
// by the tests' own chunk reader (label_positions.py) and soxi.

#include "CommandLineRunner.h"
#include "TestAudio.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

namespace {

// The labels of a file as label_positions.py prints them, without the lists it leaves empty.
QString labelsOf(const QString& file) {
    int exitCode = -1;
    QString line = TestAudio::runTool("python3", {E2E_SOURCE_DIR "/label_positions.py", file}, &exitCode).trimmed();
    EXPECT_EQ(exitCode, 0);
    return line.remove(QStringLiteral(" R:")).remove(QStringLiteral(" L:")).trimmed();
}

} // namespace

// On a file of 1000 frames at 1000 frames a second.
TEST(LabelCommands, LabelsAreMadeRemovedAndCutAt) {
    CommandLineRunner cli;
    const QDir work(cli.work());
    const QString file = work.filePath("take.wav"), beats = work.filePath("beats.wav");
    ASSERT_TRUE(TestAudio::generateWithSox(file, {"-r", "1000", "-c", "1", "-n", "-b", "16"},
                                           {"synth", "1000s", "sine", "100"}));
    ASSERT_TRUE(QFile::copy(file, beats));
    const auto run = [&](const QStringList& arguments) {
        const auto result = cli.run(arguments);
        EXPECT_EQ(result.exitCode, 0) << arguments.join(' ').toStdString() << ": " << result.err.toStdString();
        return result.lines();
    };

    run({"make-labels-at-divisions", "--divisions", "4", "--type", "MARK", file});
    EXPECT_EQ(labelsOf(file), "M:0,250,500,750");
    run({"make-labels-for-tempo", "--tempo", "120", "--beat", "EIGH", "--type", "0", beats}); // an eighth is 0.25 s
    EXPECT_EQ(labelsOf(beats), "M:0,250,500,750");
    EXPECT_EQ(cli.run({"make-labels-at-divisions", "--divisions", "1", "--type", "MARK", file}).exitCode, 8);

    // Cut at the markers: the one at the start makes no piece.
    const QStringList pieces = run({"extract-labels", "--labelType", "MARK", file});
    ASSERT_EQ(pieces.size(), 4);
    for (const QString& piece : pieces)
        EXPECT_EQ(TestAudio::runTool("soxi", {"-s", piece}).trimmed(), "250") << piece.toStdString();

    run({"remove-labels", "--types", "SLIC,REGN", file});
    EXPECT_EQ(labelsOf(file), "M:0,250,500,750") << "other kinds stay";
    run({"remove-labels", "--types", "MARK", file});
    EXPECT_EQ(labelsOf(file), "M:");
    EXPECT_TRUE(run({"extract-labels", "--labelType", "MARK", file}).isEmpty()) << "no markers, no pieces";
}

// With tempo 0 and none stated, the beats are those heard: a click track at 120 BPM gets a marker
// every half second (within 1 %, about 1 BPM); a single plucked note has no beat and is left alone.
TEST(LabelCommands, LabelsForTempoHearTheBeatOfAFileThatStatesNone) {
    CommandLineRunner cli;
    const QDir work(cli.work());
    const QString clicks = work.filePath("clicks.wav"), pluck = work.filePath("pluck.wav");
    ASSERT_TRUE(
        TestAudio::generateWithSox(clicks, {"-n", "-r", "44100", "-c", "1"},
                                   {"synth", "0.01", "whitenoise", "pad", "0", "0.49", "repeat", "19"}));
    ASSERT_TRUE(
        TestAudio::generateWithSox(pluck, {"-n", "-r", "44100", "-c", "1"}, {"synth", "1", "pluck", "220"}));
    const auto result =
        cli.run({"make-labels-for-tempo", "--tempo", "0", "--beat", "QRTR", "--type", "MARK", clicks, pluck});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();

    const QStringList markers = labelsOf(clicks).mid(2).split(',');
    ASSERT_GE(markers.size(), 20) << markers.join(',').toStdString();
    EXPECT_NEAR(markers[19].toDouble(), 19 * 22050.0, 19 * 22050.0 * 0.01);
    EXPECT_EQ(labelsOf(pluck), "M:");
}
