// Archives and uploads through the clipwright program: archives checked with unzip, uploads received by
// real FTP and WebDAV servers on this machine. The local files never change, and no password reaches
// what the program prints or writes.

#include "CommandLineRunner.h"
#include "TestAudio.h"
#include "TestServers.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QThread>

#include <gtest/gtest.h>

namespace {

const QString kUser = "ana";
const QString kPassword = "Pw-7f3kq9";
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
    // Sends the files into the server's folder: FTP takes the account as options, WebDAV from the
    // preferences.
    CommandLineRunner::Result send(const TestServer& server, const QString& folder, const QStringList& files,
                                   const QString& password = kPassword) const {
        if (server.kind() == TestServer::Kind::Ftp)
            return cli.run(QStringList{"send-ftp", "--server", server.address(), "--username", kUser,
                                       "--password", password, "--path", folder} +
                           files);
        const QString preferences = cli.environment().value("XDG_CONFIG_HOME") + "/Clipwright";
        QDir().mkpath(preferences);
        QFile file(preferences + "/Clipwright.plist");
        EXPECT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(
            QString("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
                    "<key>WebDAV Server</key><string>http://%1</string><key>WebDAV User</key><string>%2"
                    "</string><key>WebDAV Password</key><string>%3</string></dict></plist>\n")
                .arg(server.address(), kUser, password)
                .toUtf8());
        file.close();
        return cli.run(QStringList{"send-idisk", "--path", folder} + files);
    }

    // A split set ("take.L", "take.R"): its entry is "take.L", and it goes whole.
    QString makeSplit() const {
        EXPECT_TRUE(TestAudio::write(path("take"),
                                     {.rate = 8000, .channels = 2, .frames = 800, .interleaved = false}));
        return path("take.L");
    }

private:
    int m_made = 0;
};

} // namespace

TEST_F(DeliveryCommands, UploadsLandWholeInNestedFoldersWhateverTheirNames) {
    auto result = cli.run({"send-idisk", make("first.wav")});
    EXPECT_EQ(result.exitCode, 8);
    EXPECT_TRUE(result.err.contains("set the preferences \"WebDAV Server\"")) << result.err.toStdString();

    const QString split = makeSplit();
    for (const TestServer::Kind kind : {TestServer::Kind::Ftp, TestServer::Kind::WebDAV}) {
        QTemporaryDir root;
        const TestServer server(kind, root.path(), kUser, kPassword);
        ASSERT_TRUE(server.isRunning());
        const QStringList files = {make(kNames[0]), make(kNames[1])};
        // The same folder with and without its slashes.
        result = send(server, "/a b/ñ #1/", {files[0], split});
        ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
        EXPECT_EQ(result.lines(), (QStringList{files[0], split})); // the files handed on, as they were
        ASSERT_EQ(send(server, "a b/ñ #1", {files[1]}).exitCode, 0);
        for (const QString& file : files + QStringList{split, path("take.R")})
            EXPECT_EQ(readBytes(root.filePath("a b/ñ #1/" + QFileInfo(file).fileName())), readBytes(file));

        result = send(server, "elsewhere", files, "Wrong-Pw-1");
        EXPECT_EQ(result.exitCode, 8);
        EXPECT_TRUE(result.err.contains("'take one.wav': could not be sent to " + server.address() + ": ") &&
                    result.err.contains("the server refused the user name or password"))
            << result.err.toStdString();
        EXPECT_FALSE(result.err.contains("Wrong-Pw-1"));
    }
}

TEST_F(DeliveryCommands, AServerThatGoesAwayFailsTheFileAndNoPasswordIsShown) {
    QTemporaryDir root;
    TestServer server(TestServer::Kind::Ftp, root.path(), kUser, kPassword, 200000); // 200 KB/s
    ASSERT_TRUE(server.isRunning());
    const QString big = make(kNames[0], 20); // 1.7 MB
    const QByteArray bytes = readBytes(big);
    const QString report = path("report.json");
    const QStringList arguments{"send-ftp",   "--server", server.address(), "--username", kUser,
                                "--password", kPassword,  "--report",       report,       big};
    const auto result = cli.run(arguments + QStringList{"--dry-run"});
    EXPECT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_FALSE((result.out + result.err).contains(kPassword) ||
                 readBytes(report).contains(kPassword.toUtf8()));

    // The server dies once part of the file has arrived; then nobody answers.
    QProcess sending;
    sending.setProcessEnvironment(cli.environment());
    sending.start(CommandLineRunner::program(), arguments);
    QElapsedTimer waited;
    waited.start();
    while (QFileInfo(root.filePath(kNames[0])).size() <= 0 && waited.elapsed() < 20000)
        QThread::msleep(20);
    server.kill();
    ASSERT_TRUE(sending.waitForFinished(30000));
    const auto again = cli.run(arguments);
    for (const QString& said : {QString::fromUtf8(sending.readAllStandardError()), again.err}) {
        EXPECT_TRUE(said.contains("'take one.wav': could not be sent to " + server.address()))
            << said.toStdString();
        EXPECT_FALSE(said.contains(kPassword) || readBytes(report).contains(kPassword.toUtf8()));
    }
    EXPECT_EQ(sending.exitCode(), 8);
    EXPECT_EQ(again.exitCode, 8);
    EXPECT_LT(QFileInfo(root.filePath(kNames[0])).size(), bytes.size());
    EXPECT_EQ(readBytes(big), bytes);
}

TEST_F(DeliveryCommands, ArchivesHoldEveryFileAndNeverReplaceOne) {
    const QStringList files = {make(kNames[0]), make(kNames[1]), makeSplit()};
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
    for (const QString& file : files + QStringList{path("take.R")}) // under its full path, less the "/"
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
