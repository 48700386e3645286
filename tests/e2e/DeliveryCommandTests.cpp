// Archives through the clipwright program, checked with unzip. The local files never change.

#include "CommandLineRunner.h"
#include "TestAudio.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <gtest/gtest.h>

namespace {

// Awkward names: spaces, letters beyond ASCII, "#" and "%" (which a URL must escape).
const QStringList kNames = {"take one.wav", "ñandú #2 100%.wav"};

class DeliveryCommands : public testing::Test {
protected:
    CommandLineRunner cli;

    QString path(const QString& name) const { return QDir(cli.work()).filePath(name); }
    // A sine, different for each file, so a file that took another's place shows.
    QString make(const QString& name, double seconds = 0.1) {
        EXPECT_TRUE(TestAudio::generateWithSox(
            path(name), {"-n", "-r", "44100", "-b", "16", "-c", "1"},
            {"synth", QString::number(seconds), "sine", QString::number(200 + 10 * ++m_made)}));
        return path(name);
    }

private:
    int m_made = 0;
};

} // namespace

TEST_F(DeliveryCommands, ArchivesHoldEveryFileAndNeverReplaceOne) {
    const QStringList files = {make(kNames[0]), make(kNames[1])};
    auto result = cli.run(QStringList{"create-archive"} + files);
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_EQ(result.lines(), files);
    EXPECT_TRUE(result.err.contains("wrote the archive '" + path("Archive.zip") + "'"))
        << result.err.toStdString();
    int status = -1;
    TestAudio::runTool("unzip", {"-tq", path("Archive.zip")}, &status);
    EXPECT_EQ(status, 0);
    TestAudio::runTool("unzip", {"-q", path("Archive.zip"), "-d", path("unzipped")}, &status);
    EXPECT_EQ(status, 0);
    for (const QString& file : files) // stored under its full path, without the leading "/"
        EXPECT_EQ(readBytes(path("unzipped") + file), readBytes(file)) << file.toStdString();

    // Archive and Archive_01 are taken: the next is Archive_02, and neither of the others changes.
    const QByteArray archive = readBytes(path("Archive.zip"));
    ASSERT_TRUE(QFile::copy(path("Archive.zip"), path("Archive_01.zip")));
    ASSERT_EQ(cli.run(QStringList{"create-archive"} + files).exitCode, 0);
    EXPECT_TRUE(QFileInfo::exists(path("Archive_02.zip")));
    EXPECT_EQ(readBytes(path("Archive.zip")), archive);

    // One file: an archive of its own name beside it.
    ASSERT_EQ(cli.run({"create-archive", make("take.wav")}).exitCode, 0);
    EXPECT_TRUE(QFileInfo::exists(path("take.zip")));
}

TEST_F(DeliveryCommands, AnArchiveThatFailsLeavesNothingBehind) {
    const QStringList files = {make("a.wav"), make("b.wav")};
    const auto contents = [&] {
        return QDir(cli.work()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    };
    const QStringList before = contents();
    // A zip that writes half an archive and fails, as on a full disk; then no zip at all.
    QTemporaryDir bin, empty;
    QFile fake(bin.filePath("zip"));
    ASSERT_TRUE(fake.open(QIODevice::WriteOnly));
    fake.write(
        "#!/bin/sh\necho partial > \"$3\"\necho 'zip I/O error: No space left on device' >&2\nexit 14\n");
    fake.close();
    fake.setPermissions(QFile::ReadOwner | QFile::ExeOwner);
    for (const QString& folder : {bin.path(), empty.path()}) {
        QProcess archiving;
        QProcessEnvironment environment = cli.environment();
        environment.insert("PATH", folder);
        archiving.setProcessEnvironment(environment);
        archiving.start(CommandLineRunner::program(), QStringList{"create-archive"} + files);
        ASSERT_TRUE(archiving.waitForFinished(30000));
        EXPECT_EQ(archiving.exitCode(), 8);
        const QString said = QString::fromUtf8(archiving.readAllStandardError());
        EXPECT_TRUE(said.contains("'Archive.zip': cannot be made: ")) << said.toStdString();
        EXPECT_TRUE(
            said.contains(folder == bin.path() ? "No space left on device" : "'zip' is not installed"));
        EXPECT_EQ(contents(), before);
    }
}
