// Metadata set in place on WAV, AIFF, FLAC and MP3 files, read back by ffprobe and sndfile-info, undone and
// redone in later invocations; the audio never changes.

#include "CommandLineRunner.h"
#include "TestAudio.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

namespace {

QString titleTag(const QString& file) {
    return TestAudio::runTool("ffprobe", {"-v", "error", "-show_entries", "format_tags=title", "-of",
                                          "default=nw=1:nk=1", file})
        .trimmed();
}

// The decoded audio, as ffmpeg hashes it.
QString audioHash(const QString& file) {
    return TestAudio::runTool("ffmpeg", {"-v", "error", "-i", file, "-map", "0:a", "-f", "md5", "-"}).trimmed();
}

// What info says of the file, less what a rewrite may change without changing what the file says.
QJsonObject described(const CommandLineRunner& cli, const QString& file) {
    QJsonObject info = QJsonDocument::fromJson(cli.run({"info", "--json", file}).out.toUtf8()).array()[0].toObject();
    for (const char* key : {"fileSize", "display", "status"})
        info.remove(key);
    return info;
}

} // namespace

TEST(MetadataCommands, FieldsAreSetInEveryFormatAndUndoneExactly) {
    CommandLineRunner cli;
    const QDir work(cli.work());
    QStringList files;
    for (const char* name : {"a.wav", "b.aiff", "c.flac", "d.mp3"}) {
        files.append(work.filePath(name));
        ASSERT_TRUE(TestAudio::generateWithSox(files.last(), {"-n", "-r", "44100", "-c", "1"},
                                               {"synth", "0.5", "sine", "440"}));
    }
    QList<QJsonObject> before;
    QStringList hashes;
    for (const QString& file : files) {
        before.append(described(cli, file));
        hashes.append(audioHash(file));
    }

    auto result = cli.run({"set-property", "--key", "title", "--value", "AC/DC live", files[0], files[1], files[2],
                           files[3]});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    for (const QString& file : files)
        EXPECT_EQ(titleTag(file), "AC/DC live") << file.toStdString();
    for (int i = 0; i < files.size(); ++i)
        EXPECT_EQ(audioHash(files[i]), hashes[i]) << files[i].toStdString();

    // A note name through the note formatter; a tempo that brings a loop chunk and its meter along.
    result = cli.run({"set-midi-property", "--key", "baseNote", "--value", "C#3", files[0], files[1]});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_TRUE(TestAudio::runTool("sndfile-info", {files[0]}).contains("Midi Note    : 61"));
    result = cli.run({"set-musical-property", "--key", "tempo", "--value", "120.125", files[0]});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_DOUBLE_EQ(described(cli, files[0])["tempo"].toDouble(), 120.125);

    // MP3 has no place for a base note: the file is named, skipped and left as it was.
    const QByteArray mp3 = [&] {
        QFile f(files[3]);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }();
    result = cli.run({"set-midi-property", "--keep-going", "--key", "baseNote", "--value", "60", files[3]});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_TRUE(result.err.contains("d.mp3")) << result.err.toStdString();
    EXPECT_TRUE(result.err.contains("no place for Base Note")) << result.err.toStdString();
    QFile after(files[3]);
    ASSERT_TRUE(after.open(QIODevice::ReadOnly));
    EXPECT_EQ(after.readAll(), mp3);

    for (int step = 0; step < 3; ++step) {
        result = cli.run({"undo"});
        ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    }
    for (int i = 0; i < files.size(); ++i)
        EXPECT_EQ(described(cli, files[i]), before[i]) << files[i].toStdString();

    ASSERT_EQ(cli.run({"redo"}).exitCode, 0);
    EXPECT_EQ(titleTag(files[2]), "AC/DC live");
    EXPECT_EQ(cli.run({"set-property", "--key", "baseNote", "--value", "x", files[0]}).exitCode, 2)
        << "a MIDI field is not a text field";
    EXPECT_EQ(cli.run({"set-midi-property", "--key", "baseNote", "--value", "H9", files[0]}).exitCode, 8)
        << "not a note";
}

// Notes heard in plucked strings become their base notes; a silent file keeps none and says why.
TEST(MetadataCommands, BaseNotesComeFromThePitchHeard) {
    CommandLineRunner cli;
    const QDir work(cli.work());
    QStringList files;
    for (int note : {36, 57, 81}) {
        files.append(work.filePath(QStringLiteral("note%1.wav").arg(note)));
        const double hertz = 440.0 * std::pow(2.0, (note - 69) / 12.0);
        ASSERT_TRUE(TestAudio::generateWithSox(files.last(), {"-n", "-r", "44100", "-c", "1"},
                                               {"synth", "1", "pluck", QString::number(hertz)}));
    }
    const QString silent = work.filePath("silent.wav");
    ASSERT_TRUE(TestAudio::generateWithSox(silent, {"-n", "-r", "44100", "-c", "1"}, {"trim", "0", "1"}));

    const auto result = cli.run({"set-base-note-from-pitch", files[0], files[1], files[2], silent});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_TRUE(result.err.contains("no steady pitch")) << result.err.toStdString();
    for (const QString& file : files)
        EXPECT_EQ(described(cli, file)["baseNote"].toInt(), QFileInfo(file).baseName().mid(4).toInt());
    EXPECT_FALSE(described(cli, silent).contains("baseNote"));

    ASSERT_EQ(cli.run({"undo"}).exitCode, 0);
    EXPECT_FALSE(described(cli, files[1]).contains("baseNote"));
}
