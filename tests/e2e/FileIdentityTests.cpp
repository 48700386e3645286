// clipwright changing files that are more than their audio: permissions, owners and extended attributes,
// symbolic and hard links, and one file reached by several paths. Levels are checked with sox.

#include "CommandLineRunner.h"

#include "TestAudio.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <cmath>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

struct stat statOf(const QString& path) {
    struct stat st {};
    EXPECT_EQ(::stat(QFile::encodeName(path).constData(), &st), 0) << path.toStdString();
    return st;
}

QByteArray attributeOf(const QString& path, const char* name) {
    char value[256];
    const ssize_t n = ::getxattr(QFile::encodeName(path).constData(), name, value, sizeof value);
    return n < 0 ? QByteArray() : QByteArray(value, n);
}

// A test file and the mode it is given.
struct Kept {
    QString name;
    mode_t mode;
};

} // namespace

TEST(FileAttributes, ModeOwnerAndExtendedAttributesSurviveInPlaceChangesUndoAndNewFiles) {
    CommandLineRunner runner;
    // Another owner and group only where the test may give them (it runs as root in CI).
    const bool privileged = ::geteuid() == 0;
    const QList<Kept> files{{"private.wav", 0600}, {"readonly.wav", 0444}, {"shared.wav", 02775}};
    QStringList paths;
    for (const Kept& kept : files) {
        const QString path = runner.makeMonoSine(kept.name, 0.2);
        const QByteArray native = QFile::encodeName(path);
        ASSERT_EQ(::setxattr(native.constData(), "user.origin", "field recording", 15, 0), 0);
        if (privileged) {
            ASSERT_EQ(::chown(native.constData(), 1234, 2345), 0);
        }
        ASSERT_EQ(::chmod(native.constData(), kept.mode), 0);
        paths.append(path);
    }
    // An ACL (as the kernel stores it: version 2, then tag, permissions and id per entry) that lets user
    // 4321 read the shared file.
    const QByteArray acl = QByteArray::fromHex("02000000"
                                               "01000700ffffffff"
                                               "02000400e1100000"
                                               "04000700ffffffff"
                                               "10000700ffffffff"
                                               "20000500ffffffff");
    const bool hasAcl = ::setxattr(QFile::encodeName(paths[2]).constData(), "system.posix_acl_access",
                                   acl.constData(), size_t(acl.size()), 0) == 0;
    const auto expectKept = [&](const QString& path, mode_t mode, const char* when) {
        const struct stat st = statOf(path);
        EXPECT_EQ(st.st_mode & 07777, mode) << path.toStdString() << " " << when;
        if (privileged) {
            EXPECT_EQ(st.st_uid, 1234u) << path.toStdString() << " " << when;
            EXPECT_EQ(st.st_gid, 2345u) << path.toStdString() << " " << when;
        }
        EXPECT_EQ(attributeOf(path, "user.origin"), "field recording") << path.toStdString() << " " << when;
        if (hasAcl && path == paths[2]) {
            EXPECT_EQ(attributeOf(path, "system.posix_acl_access").toHex(), acl.toHex()) << when;
        }
    };

    auto result = runner.run(QStringList{"change-gain", "--level", "-6"} + paths);
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    for (qsizetype i = 0; i < files.size(); ++i) {
        EXPECT_NEAR(peakDecibels(paths[i]), -12.04, 0.1);
        expectKept(paths[i], files[i].mode, "after the change");
    }
    ASSERT_EQ(runner.run({"undo"}).exitCode, 0);
    for (qsizetype i = 0; i < files.size(); ++i) {
        EXPECT_NEAR(peakDecibels(paths[i]), -6.02, 0.1);
        expectKept(paths[i], files[i].mode, "after undo");
    }

    result = runner.run({"change-gain", "--level", "-6", "--to-new-file", paths[0]});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    ASSERT_EQ(result.lines().size(), 1);
    expectKept(result.lines().first(), files[0].mode, "in a new file");
}

TEST(FileLinks, ASymbolicLinkStaysALinkToTheChangedFileAndAHardLinkedFileIsRefused) {
    CommandLineRunner runner;
    const QDir work(runner.work());
    ASSERT_TRUE(work.mkpath("takes") && work.mkpath("set"));
    const QString real = runner.makeMonoSine("takes/real.wav", 0.2);
    const QString link = work.filePath("set/link.wav");
    ASSERT_TRUE(QFile::link("../takes/real.wav", link));

    // Given by the link, then found through it in a folder.
    auto result = runner.run({"change-gain", "--level", "-6", link});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_EQ(result.lines(), QStringList{link});
    EXPECT_EQ(QFileInfo(link).symLinkTarget().toStdString(), real.toStdString());
    EXPECT_NEAR(peakDecibels(real), -12.04, 0.1);
    ASSERT_EQ(runner.run({"undo"}).exitCode, 0);
    EXPECT_EQ(QFileInfo(link).symLinkTarget().toStdString(), real.toStdString());
    EXPECT_NEAR(peakDecibels(real), -6.02, 0.1);
    result = runner.run({"change-gain", "--level", "-6", work.filePath("set")});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_EQ(QFileInfo(link).symLinkTarget().toStdString(), real.toStdString());
    EXPECT_NEAR(peakDecibels(real), -12.04, 0.1);

    // Replacing one name of a hard-linked file would leave the other with the old audio.
    const QString other = work.filePath("takes/other-name.wav");
    ASSERT_EQ(::link(QFile::encodeName(real).constData(), QFile::encodeName(other).constData()), 0);
    const QByteArray before = readBytes(real);
    result = runner.run({"change-gain", "--level", "-6", other});
    EXPECT_EQ(result.exitCode, 8);
    EXPECT_TRUE(result.err.contains("other-name.wav") && result.err.contains("hard link"))
        << result.err.toStdString();
    EXPECT_EQ(readBytes(real), before);
    EXPECT_EQ(statOf(real).st_nlink, 2u);
    // A dry run says so too, rather than that it would change the file.
    result = runner.run({"change-gain", "--dry-run", "--level", "-6", other});
    EXPECT_EQ(result.exitCode, 8);
    EXPECT_TRUE(result.err.contains("hard link")) << result.err.toStdString();
}

TEST(FileIdentity, AFileReachedByManyPathsIsChangedOnceAndAFolderLoopEnds) {
    CommandLineRunner runner;
    const QDir work(runner.work());
    ASSERT_TRUE(work.mkpath("session/takes"));
    const QString take = runner.makeMonoSine("session/takes/take.wav", 0.2);
    // A link to the folder's own subfolder, and one from the subfolder back up to the folder: a loop.
    ASSERT_TRUE(QFile::link("takes", work.filePath("session/also-takes")));
    ASSERT_TRUE(QFile::link("..", work.filePath("session/takes/up")));

    const auto result = runner.run({"change-gain", "--level", "-6", work.filePath("session"), take,
                                    work.filePath("session/./also-takes/take.wav")});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_EQ(result.lines().size(), 1) << result.out.toStdString();
    EXPECT_NEAR(peakDecibels(take), -12.04, 0.1);
    EXPECT_TRUE(QFileInfo(work.filePath("session/also-takes")).isSymLink());
}
