// clipwright on batches with files it cannot use or that break while it works, silence and clipping,
// and runs that only say what they would do or write a report: what the user is told and what is left on
// disk, checked with sox.

#include "CommandLineRunner.h"

#include "TestAudio.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <cmath>

namespace {

// Half a second of digital silence in 32-bit float: normalizing it divides by zero.
QString makeSilence(const CommandLineRunner& runner, const QString& name) {
    const QString path = QDir(runner.work()).filePath(name);
    EXPECT_TRUE(TestAudio::generateWithSox(path, {"-n", "-r", "44100", "-e", "floating-point", "-b", "32"},
                                           {"trim", "0", "0.5"}));
    return path;
}

QString writeFile(const CommandLineRunner& runner, const QString& name, const QByteArray& bytes) {
    QFile file(QDir(runner.work()).filePath(name));
    EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
    return file.fileName();
}

// Three seconds of FLAC with 4000 bytes in the middle overwritten: its decoder loses sync there.
QString makeDamagedFlac(const CommandLineRunner& runner, const QString& name) {
    const QString sound = QDir(runner.work()).filePath("whole.flac");
    EXPECT_TRUE(TestAudio::generateWithSox(sound, {"-n", "-r", "44100"}, {"synth", "3", "sine", "440"}));
    QByteArray bytes = readBytes(sound);
    QFile::remove(sound);
    bytes.replace(bytes.size() / 2, 4000, QByteArray(4000, '\x55'));
    return writeFile(runner, name, bytes);
}

} // namespace

TEST(BatchErrors, FilesThatCannotBeUsedAreNamedWithTheReasonAndKeepGoingSkipsThem) {
    CommandLineRunner runner;
    const QString sine = runner.makeMonoSine("sine.wav", 0.5);
    const QString text = writeFile(runner, "notes.txt", "hello\n");
    const QString empty = writeFile(runner, "empty.wav", {});
    const QByteArray before = readBytes(sine);

    auto result = runner.run({"normalize", "--level", "-1", sine, text, empty});
    EXPECT_EQ(result.exitCode, 8);
    EXPECT_TRUE(result.err.contains("'" + text + "' is not an audio file")) << result.err.toStdString();
    EXPECT_TRUE(result.err.contains("'" + empty + "': the file is empty")) << result.err.toStdString();
    EXPECT_EQ(readBytes(sine), before);

    result = runner.run({"normalize", "--level", "-1", "--keep-going", sine, text, empty});
    EXPECT_EQ(result.exitCode, 3) << result.err.toStdString();
    EXPECT_EQ(result.lines(), QStringList{sine});
    EXPECT_TRUE(result.err.contains("skipped 2 files:\n  '" + text + "' is not an audio file\n  '" + empty))
        << result.err.toStdString();
    EXPECT_NEAR(peakDecibels(sine), -1.0, 0.01);

    // Only a read-only mount stops root: one of our own, where unprivileged namespaces are allowed.
    QDir(runner.work()).mkdir("cd");
    const QString onDisc = runner.makeMonoSine("cd/take.wav", 0.5);
    const QStringList readOnly{"unshare",
                               "-rm",
                               "sh",
                               "-c",
                               "mount -o bind,ro \"$1\" \"$1\" && shift && exec \"$@\"",
                               "sh",
                               QFileInfo(onDisc).path()};
    result = runner.run({"normalize", "--level", "-1", onDisc}, readOnly);
    if (result.err.contains("unshare") || result.err.contains("mount"))
        GTEST_SKIP() << "no mount namespace here: " << result.err.toStdString();
    EXPECT_EQ(result.exitCode, 8);
    EXPECT_TRUE(result.err.contains("'" + onDisc + "' is on a read-only file system"))
        << result.err.toStdString();
    EXPECT_FALSE(result.err.contains("not an audio file")) << result.err.toStdString();
    // Showing a file changes nothing: info reads it where it is.
    result = runner.run({"info", "--no-analyze", onDisc}, readOnly);
    EXPECT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_TRUE(result.out.startsWith(onDisc + "\n")) << result.out.toStdString();
}

TEST(BatchErrors, ADamagedFileEndsTheRunNamingItAndKeepGoingGoesPastIt) {
    CommandLineRunner runner;
    const QString damaged = makeDamagedFlac(runner, "snare.flac");
    const QString after = runner.makeMonoSine("after.wav", 0.5);
    const QByteArray before = readBytes(after);

    auto result = runner.run({"change-gain", "--level", "-3", damaged, after});
    EXPECT_EQ(result.exitCode, 8);
    EXPECT_TRUE(
        result.err.contains(QRegularExpression("'snare.flac': the FLAC stream is damaged at frame \\d+ \\(")))
        << result.err.toStdString();
    EXPECT_EQ(readBytes(after), before); // the run ended at the damaged file

    result = runner.run({"change-gain", "--level", "-3", "--keep-going", damaged, after});
    EXPECT_EQ(result.exitCode, 3) << result.err.toStdString();
    EXPECT_EQ(result.lines(), QStringList{after});
    EXPECT_TRUE(result.err.contains("skipped 1 file:\n  'snare.flac': the FLAC stream is damaged"))
        << result.err.toStdString();
    EXPECT_NEAR(peakDecibels(after), -9.02, 0.01);
}

TEST(Levels, SilenceIsLeftAsItIsAndClippedSamplesAreCountedAsSoxCountsThem) {
    CommandLineRunner runner;
    const QString silence = makeSilence(runner, "silence.wav");
    const QByteArray before = readBytes(silence);
    auto result = runner.run({"normalize", "--level", "-1", silence});
    EXPECT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_TRUE(result.err.contains("'" + silence + "': left unchanged: it is silent"))
        << result.err.toStdString();
    EXPECT_EQ(readBytes(silence), before); // not a file of NaN

    // +12 dB on a sine at half scale: sox's own count of the samples its gain clips is the oracle.
    const QString loud = runner.makeMonoSine("loud.wav", 0.5);
    QString soxWarnings;
    TestAudio::runTool("sox", {loud, "-n", "vol", "12dB"}, nullptr, &soxWarnings);
    const QRegularExpressionMatch soxCount = QRegularExpression("clipped (\\d+) samples").match(soxWarnings);
    ASSERT_TRUE(soxCount.hasMatch()) << soxWarnings.toStdString();
    const qint64 expected = soxCount.captured(1).toLongLong();

    result = runner.run({"change-gain", "--level", "12", loud});
    EXPECT_EQ(result.exitCode, 0) << result.err.toStdString();
    const QRegularExpressionMatch ours =
        QRegularExpression("'" + QRegularExpression::escape(loud) + "': (\\d+) samples clipped")
            .match(result.err);
    ASSERT_TRUE(ours.hasMatch()) << result.err.toStdString();
    EXPECT_NEAR(ours.captured(1).toLongLong(), expected, expected / 1000.0);

    // info counts the samples at full scale in what was written.
    result = runner.run({"info", "--json", loud});
    const qint64 shown = QJsonDocument::fromJson(result.out.toUtf8())[0]["clipped"].toInteger();
    EXPECT_NEAR(shown, expected, expected / 100.0);
}

TEST(DryRun, SaysWhatEachFileWouldBecomeAndWritesNothing) {
    CommandLineRunner runner;
    const QString sine = runner.makeMonoSine("sine.wav", 0.5);
    const QString silence = makeSilence(runner, "silence.wav");
    const QDateTime modified = QFileInfo(sine).lastModified();
    const QByteArray before = readBytes(sine);
    const QStringList files = QDir(runner.work()).entryList(QDir::Files | QDir::Hidden);

    auto result = runner.run({"normalize", "--level", "0", "--dry-run", sine, silence});
    EXPECT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_EQ(result.lines(),
              (QStringList{"Normalize: would change '" + sine + "' (gain +6.02 dB)",
                           "Normalize: would leave '" + silence + "' unchanged (it is silent)"}));
    result = runner.run({"change-gain", "--level", "9", "--to-new-file", "--dry-run", sine});
    EXPECT_EQ(result.exitCode, 0) << result.err.toStdString();
    const QString copy = QDir(runner.work()).filePath("sine-1.wav");
    EXPECT_TRUE(
        result.out.startsWith("Change Gain: would write '" + copy + "' from '" + sine + "' (gain +9.00 dB; "))
        << result.out.toStdString();
    EXPECT_TRUE(result.out.contains(QRegularExpression("; \\d+ samples would clip\\)\n$")))
        << result.out.toStdString();

    EXPECT_EQ(readBytes(sine), before);
    EXPECT_EQ(QFileInfo(sine).lastModified(), modified);
    EXPECT_EQ(QDir(runner.work()).entryList(QDir::Files | QDir::Hidden), files);
    EXPECT_EQ(runner.run({"undo"}).exitCode, 8); // no step was recorded
}

TEST(Report, OneJsonLinePerFileAndActionWithLevelsInDecibels) {
    CommandLineRunner runner;
    const QString sine = runner.makeMonoSine("sine.wav", 0.5);
    const QString silence = makeSilence(runner, "silence.wav");
    const QString text = writeFile(runner, "notes.txt", "hello\n");
    // Normalize to -1 dB, then 3 dB louder: the second action clips.
    const QString workflow = writeFile(runner, "louder.twwf", R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0"><array>
<dict><key>class</key><string>TWActionNormalize</string><key>active</key><true/>
 <key>instructions</key><dict><key>class</key><string>TWActionNormalize</string><key>source</key><integer>1</integer>
 <key>destination</key><dict><key>toNewFile</key><false/></dict><key>level</key><real>-1</real></dict></dict>
<dict><key>class</key><string>TWActionChangeGain</string><key>active</key><true/>
 <key>instructions</key><dict><key>class</key><string>TWActionChangeGain</string><key>source</key><integer>2</integer>
 <key>destination</key><dict><key>toNewFile</key><false/></dict><key>level</key><real>3</real></dict></dict>
</array></plist>)");
    const QString report = QDir(runner.work()).filePath("report.jsonl");

    const auto result =
        runner.run({"run", "--keep-going", "--report", report, workflow, sine, silence, text});
    EXPECT_EQ(result.exitCode, 3) << result.err.toStdString();
    QList<QJsonObject> lines;
    for (const QByteArray& line : readBytes(report).split('\n'))
        if (!line.isEmpty()) lines.append(QJsonDocument::fromJson(line).object());
    ASSERT_EQ(lines.size(), 5) << readBytes(report).toStdString();

    EXPECT_EQ(lines[0]["input"].toString(), text);
    EXPECT_EQ(lines[0]["outcome"].toString(), "skipped");
    EXPECT_TRUE(lines[0]["action"].isNull());

    const QJsonObject normalized = lines[1];
    EXPECT_EQ(normalized["action"].toString(), "Normalize");
    EXPECT_EQ(normalized["input"].toString(), sine);
    EXPECT_EQ(normalized["outputs"].toVariant().toStringList(), QStringList{sine});
    EXPECT_EQ(normalized["outcome"].toString(), "changed");
    EXPECT_NEAR(normalized["peakBefore"].toDouble(), -6.02, 0.01);
    EXPECT_NEAR(normalized["rmsBefore"].toDouble(), -9.03, 0.01);
    EXPECT_NEAR(normalized["peakAfter"].toDouble(), -1.0, 0.01);
    EXPECT_NEAR(normalized["rmsAfter"].toDouble(), -4.01, 0.01);
    EXPECT_EQ(normalized["clipped"].toInteger(), 0);
    EXPECT_GE(normalized["seconds"].toDouble(), 0.0);

    EXPECT_EQ(lines[2]["input"].toString(), silence);
    EXPECT_EQ(lines[2]["outcome"].toString(), "unchanged");
    EXPECT_TRUE(lines[2]["peakBefore"].isNull());

    const QJsonObject louder = lines[3];
    EXPECT_EQ(louder["action"].toString(), "Change Gain");
    EXPECT_NEAR(louder["peakBefore"].toDouble(), -1.0, 0.01);
    EXPECT_NEAR(louder["peakAfter"].toDouble(), 0.0, 1e-9);
    EXPECT_GT(louder["clipped"].toInteger(), 0);
    EXPECT_TRUE(result.err.contains(
        QStringLiteral("'%1': %2 samples clipped").arg(sine).arg(louder["clipped"].toInteger())))
        << result.err.toStdString();
    EXPECT_EQ(lines[4]["action"].toString(), "Change Gain");
    EXPECT_EQ(lines[4]["input"].toString(), silence);
}
