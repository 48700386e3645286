// clipwright info on files made by sox and ffmpeg: what --json says, folders, and files it cannot show.

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
#include <unistd.h>

TEST(Info, JsonNamesTheFormatAndGivesLevelsInDecibels) {
    CommandLineRunner runner;
    const QString sine = runner.makeSine("sine.wav");
    const QString silence = QDir(runner.work()).filePath("silence.aif");
    ASSERT_TRUE(TestAudio::generateWithSox(silence, {"-n", "-r", "44100", "-c", "1"}, {"trim", "0", "0.5"}));
    const QString opus = QDir(runner.work()).filePath("tone.opus");
    int status = -1;
    TestAudio::runTool(
        "ffmpeg", {"-v", "error", "-f", "lavfi", "-i", "sine=440:d=1", "-c:a", "libopus", opus}, &status);
    ASSERT_EQ(status, 0);

    const auto result = runner.run({"info", "--json", sine, silence, opus});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    const QJsonArray files = QJsonDocument::fromJson(result.out.toUtf8()).array();
    ASSERT_EQ(files.size(), 3) << result.out.toStdString();

    const QJsonObject wave = files[0].toObject();
    EXPECT_EQ(wave["format"].toInteger(), 0x57415645); // 'WAVE'
    EXPECT_EQ(wave["formatName"].toString(), "WAVE");
    // A sine at half scale: its peak at -6.02 dB, its RMS 3.01 dB lower.
    EXPECT_NEAR(wave["decibels"]["max"].toDouble(), 20 * std::log10(0.5), 0.01);
    EXPECT_NEAR(wave["decibels"]["rms"].toDouble(), 20 * std::log10(0.5 / std::sqrt(2.0)), 0.01);
    EXPECT_EQ(wave["display"]["Peak"].toString(), "-6.02 dB");

    const QJsonObject quiet = files[1].toObject();
    EXPECT_EQ(quiet["formatName"].toString(), "AIFF");
    EXPECT_TRUE(quiet["decibels"]["max"].isNull());
    EXPECT_TRUE(quiet["decibels"]["rms"].isNull());

    // libsndfile reads Opus as an Ogg container of Opus packets: the format is Opus all the same.
    EXPECT_EQ(files[2]["formatName"].toString(), "Opus");
    EXPECT_EQ(files[2]["display"]["Format"].toString(), "Opus");
    const auto table = runner.run({"info", opus});
    EXPECT_TRUE(table.out.contains(QRegularExpression("Format +Opus\n"))) << table.out.toStdString();
}

TEST(Info, AFolderShowsItsAudioFilesAndWhatCannotBeShownIsNamedWithItsReason) {
    CommandLineRunner runner;
    const QDir work(runner.work());
    ASSERT_TRUE(work.mkpath("takes/old"));
    const QString wave = runner.makeSine("takes/a.wav");
    const QString flac = work.filePath("takes/old/b.flac");
    ASSERT_TRUE(TestAudio::generateWithSox(flac, {"-n", "-r", "48000"}, {"synth", "0.5", "sine", "300"}));
    const auto write = [&](const QString& name, const QByteArray& bytes) {
        QFile file(work.filePath(name));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
        return file.fileName();
    };
    write("takes/notes.txt", "not listed: a folder shows its audio files only\n");

    auto result = runner.run({"info", "--json", "--no-analyze", work.filePath("takes")});
    EXPECT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_EQ(result.err, "");
    QStringList paths;
    for (const QJsonValue& file : QJsonDocument::fromJson(result.out.toUtf8()).array())
        paths.append(file["path"].toString());
    EXPECT_EQ(paths, (QStringList{wave, flac}));

    const QString text = write("notes.txt", "hello\n");
    const QString empty = write("empty.wav", {});
    const QString locked = write("locked.wav", readBytes(wave));
    const bool canLock = ::geteuid() != 0 && QFile::setPermissions(locked, QFileDevice::WriteOwner);
    result = runner.run({"info", "-q", wave, text, empty, work.filePath("missing.aif"), locked});
    EXPECT_EQ(result.exitCode, 8);
    EXPECT_TRUE(result.out.contains(wave)) << result.out.toStdString(); // the others are still shown
    for (const QString& line : QStringList{"notes.txt' is not an audio file", "missing.aif' does not exist",
                                           "'" + empty + "': the file is empty"})
        EXPECT_TRUE(result.err.contains(line)) << line.toStdString() << '\n' << result.err.toStdString();
    if (canLock) {
        EXPECT_TRUE(result.err.contains("'" + locked + "': ")) << result.err.toStdString();
        EXPECT_TRUE(result.err.contains("Permission denied")) << result.err.toStdString();
    }
}

// Another program rewrites the analysed file in place with a quieter take of the same size and sets the old
// times back (as touch -r does): the cached peak must not be used.
TEST(Info, ARewriteThatKeepsSizeAndTimeIsAnalysedAgain) {
    CommandLineRunner runner;
    const QString take = runner.makeMonoSine("take.wav", 0.5); // peak -6.02 dB
    const QString quieter = QDir(runner.work()).filePath("quieter.wav");
    ASSERT_TRUE(TestAudio::generateWithSox(quieter, {"-n", "-r", "44100", "-b", "16"},
                                           {"synth", "0.5", "sine", "440", "vol", "0.125"})); // -18.06 dB
    ASSERT_EQ(runner.run({"info", take}).exitCode, 0);

    ASSERT_TRUE(TestAudio::rewriteKeepingTimes(take, quieter));

    const auto result = runner.run({"normalize", "--level", "-1", take});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_NEAR(peakDecibels(take), -1.0, 0.05);
}

// --pitch and --tempo are measured only when asked: a plucked A3 reads "pitch" 57 and no tempo (null), a
// click track at 120 BPM its tempo and no pitch; without the flags neither key is there.
TEST(Info, PitchAndTempoAreEstimatedWhenAsked) {
    CommandLineRunner runner;
    const QDir work(runner.work());
    const QString pluck = work.filePath("pluck.wav"), clicks = work.filePath("clicks.flac");
    ASSERT_TRUE(
        TestAudio::generateWithSox(pluck, {"-n", "-r", "48000", "-c", "2"}, {"synth", "2", "pluck", "220"}));
    ASSERT_TRUE(
        TestAudio::generateWithSox(clicks, {"-n", "-r", "44100", "-c", "1"},
                                   {"synth", "0.01", "whitenoise", "pad", "0", "0.49", "repeat", "19"}));

    const auto result = runner.run({"info", "--json", "--pitch", "--tempo", pluck, clicks});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    const QJsonArray files = QJsonDocument::fromJson(result.out.toUtf8()).array();
    ASSERT_EQ(files.size(), 2) << result.out.toStdString();
    EXPECT_EQ(files[0]["pitch"].toInt(), 57);
    EXPECT_TRUE(files[0]["tempoGuess"].isNull());
    EXPECT_EQ(files[0]["display"]["Tempo Guess"].toString(), "none");
    EXPECT_TRUE(files[1]["pitch"].isNull());
    EXPECT_NEAR(files[1]["tempoGuess"].toDouble(), 120.0, 1.0);

    const auto plain = runner.run({"info", pluck});
    ASSERT_EQ(plain.exitCode, 0);
    EXPECT_FALSE(plain.out.contains("Pitch"));
    const auto text = runner.run({"info", "--pitch", pluck});
    EXPECT_TRUE(text.out.contains(QRegularExpression("\n  Pitch +A")));
}
