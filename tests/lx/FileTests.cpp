// File-system services on real files in a temporary folder (and /dev/shm as a second file system).

#include "TestAudio.h"
#include "lx/LXAudioFormat.h"
#include "lx/LXFile.h"

#include <QDir>
#include <QFile>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QUrl>

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class FileServices : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(m_dir.isValid()); }

    QString path(const QString& name) const { return m_dir.filePath(name); }

    static void writeFile(const QString& path, const QByteArray& bytes, mode_t mode = 0644) {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
        file.write(bytes);
        file.close();
        ASSERT_EQ(::chmod(QFile::encodeName(path).constData(), mode), 0);
    }
    static QByteArray readFile(const QString& path) {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
    }
    // Modification time at seconds + 0.25 s, so that the milliseconds are checked too.
    static void setTime(const QString& path, time_t seconds, int flags = 0) {
        const std::array<timespec, 2> times = {timespec{seconds, 0}, timespec{seconds, 250000000}};
        ASSERT_EQ(::utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times.data(), flags), 0);
    }
    static qint64 timeOf(const QString& path) {
        return LXFile::modificationDateOfFileAtPath(path).toMSecsSinceEpoch();
    }
    static mode_t modeOf(const QString& path) {
        struct stat st = {};
        ::lstat(QFile::encodeName(path).constData(), &st);
        return st.st_mode & 07777;
    }
    static void link(const QString& target, const QString& path) {
        ASSERT_EQ(::symlink(QFile::encodeName(target).constData(), QFile::encodeName(path).constData()), 0);
    }

    QTemporaryDir m_dir;
};

TEST_F(FileServices, TypeCodeComesFromTheContentNotTheName) {
    if (!TestAudio::haveTool(QStringLiteral("sox"))) GTEST_SKIP() << "sox is not installed";
    const struct {
        const char* name;
        QStringList options;
        uint32_t type;
    } made[] = {
        {"x.wav", {}, LXFormat::WAVE},
        {"x.aiff", {}, LXFormat::AIFF},
        {"x.aifc", {"-t", "aifc"}, LXFormat::AIFC},
        {"x.caf", {}, LXFormat::CAF},
        {"x.au", {}, LXFormat::AU},
        {"x.w64", {}, LXFormat::W64},
        {"x.flac", {}, LXFormat::FLAC},
        {"x.ogg", {}, LXFormat::Ogg},
        {"x.mp3", {}, LXFormat::MP3},
    };
    for (const auto& m : made) {
        const QString file = path(QString::fromLatin1(m.name));
        ASSERT_TRUE(TestAudio::generateWithSox(file, QStringList{"-n", "-r", "44100"} + m.options,
                                               {"synth", "0.2", "sine", "440"}));
        ASSERT_TRUE(QFile::rename(file, file + ".dat")); // only the content can tell now
        EXPECT_EQ(LXFile::typeCodeAtPath(file + ".dat"), m.type) << m.name;
    }

    auto raw = [](const auto& literal) { return QByteArray(literal, sizeof literal - 1); }; // keeps NULs
    const QByteArray junk(64, 'j');
    // An ID3v2 tag of 20 bytes (its size in 7-bit bytes) in front of MPEG frames, or of FLAC.
    const QByteArray id3 = raw("ID3\x04\x00\x00\x00\x00\x00\x14") + QByteArray(20, '\0');
    const struct {
        const char* name;
        QByteArray bytes;
        uint32_t type;
    } handMade[] = {
        {"rf64", raw("RF64\xff\xff\xff\xffWAVEds64") + junk, LXFormat::RF64},
        {"bw64", raw("BW64\xff\xff\xff\xffWAVEds64") + junk, LXFormat::RF64},
        {"rifx", raw("RIFX\x00\x00\x00\x40WAVEfmt ") + junk, LXFormat::WAVE},
        {"id3-mp3", id3 + readFile(path("x.mp3.dat")), LXFormat::MP3},
        {"id3-flac", id3 + readFile(path("x.flac.dat")), LXFormat::FLAC},
        {"mpeg-frame", raw("\xff\xfb\x90\x64") + junk, LXFormat::MP3},
        {"ogg-opus", raw("OggS") + QByteArray(24, '\0') + raw("OpusHead") + junk, LXFormat::Opus},
        {"adts-aac", raw("\xff\xf1\x50\x80") + junk, 0},
        {"riff-avi", raw("RIFF\x00\x00\x00@AVI ") + junk, 0},
        {"text", "Hello, this is not audio at all.", 0},
        {"short", "RI", 0},
    };
    for (const auto& h : handMade) {
        writeFile(path(QString::fromLatin1(h.name)), h.bytes);
        EXPECT_EQ(LXFile::typeCodeAtPath(path(QString::fromLatin1(h.name))), h.type) << h.name;
    }
    EXPECT_EQ(LXFile::typeCodeAtPath(path("missing.wav")), 0u);
    EXPECT_EQ(LXFile::typeCodeAtPath(m_dir.path()), 0u);
    // A FIFO nobody writes to: answered at once rather than when a writer comes along.
    ASSERT_EQ(::mkfifo(QFile::encodeName(path("fifo")).constData(), 0600), 0);
    EXPECT_EQ(LXFile::typeCodeAtPath(path("fifo")), 0u);
}

TEST_F(FileServices, MoveReplacesAnExistingTargetAndCrossesFileSystems) {
    ASSERT_TRUE(LXFile::createDirectoryAtPath(path("a")));
    ASSERT_TRUE(LXFile::createDirectoryAtPath(path("b")));
    writeFile(path("a/one.wav"), "one");
    writeFile(path("b/two.wav"), "old");
    ASSERT_TRUE(LXFile::movePath(path("a/one.wav"), path("b/two.wav")));
    EXPECT_FALSE(LXFile::existsAtPath(path("a/one.wav")));
    EXPECT_EQ(readFile(path("b/two.wav")), "one");
    EXPECT_EQ(LXFile::contentsOfDirectoryAtPath(path("b")), QStringList{"two.wav"});

    auto missing = LXFile::movePath(path("nothing.wav"), path("a/x.wav"));
    ASSERT_FALSE(missing);
    EXPECT_TRUE(missing.error().isFileError());
    EXPECT_EQ(missing.error().errnum(), ENOENT);
    EXPECT_EQ(missing.error().path(), path("nothing.wav"));

    // From another file system, over an existing file: copied, renamed into place, source deleted.
    QTemporaryDir other(QStringLiteral("/dev/shm/lxfile-XXXXXX"));
    struct stat here = {}, there = {};
    if (!other.isValid() || ::stat(QFile::encodeName(other.path()).constData(), &there) != 0 ||
        ::stat(QFile::encodeName(m_dir.path()).constData(), &here) != 0 || here.st_dev == there.st_dev)
        GTEST_SKIP() << "no second file system at /dev/shm";
    const QString far = other.filePath("far.wav");
    const QByteArray big(3 << 20, 'f'); // several copy blocks
    writeFile(far, big, 0640);
    setTime(far, 1000000000);
    ASSERT_TRUE(LXFile::movePath(far, path("b/two.wav")));
    EXPECT_FALSE(LXFile::existsAtPath(far));
    EXPECT_EQ(readFile(path("b/two.wav")), big);
    EXPECT_EQ(modeOf(path("b/two.wav")), mode_t(0640));
    EXPECT_EQ(timeOf(path("b/two.wav")), 1000000000250);
    EXPECT_EQ(LXFile::contentsOfDirectoryAtPath(path("b")), QStringList{"two.wav"}); // no temporary left

    ASSERT_TRUE(LXFile::createDirectoryAtPath(other.filePath("tree/inner")));
    writeFile(other.filePath("tree/inner/x"), "x");
    ASSERT_TRUE(LXFile::movePath(other.filePath("tree"), path("tree")));
    EXPECT_EQ(readFile(path("tree/inner/x")), "x");
    EXPECT_FALSE(LXFile::existsAtPath(other.filePath("tree")));
}

// The creator code lives in an extended attribute; a file system without them skips that part.
TEST_F(FileServices, CopyKeepsTreesModesDatesLinksAndCreator) {
    ASSERT_TRUE(LXFile::createDirectoryAtPath(path("src/deep/deeper")));
    writeFile(path("src/big.wav"), QByteArray((3 << 20) + 17, 'b'));
    writeFile(path("src/deep/deeper/.hidden"), "h");
    writeFile(path("src/deep/read-only.txt"), "r", 0444);
    link(QStringLiteral("deep/read-only.txt"), path("src/link"));
    setTime(path("src/big.wav"), 1200000000);
    ASSERT_EQ(::chmod(QFile::encodeName(path("src/deep")).constData(), 0750), 0);
    setTime(path("src/deep"), 1300000000);
    EXPECT_EQ(LXFile::creatorCodeAtPath(path("src/big.wav")), 0u);
    auto creator = LXFile::setCreatorCodeAtPath(path("src/big.wav"), LXFourCC("CLPW"));
    const bool haveCreator =
        creator || (creator.error().errnum() != ENOTSUP && creator.error().errnum() != EOPNOTSUPP);
    EXPECT_TRUE(haveCreator) << creator.error().description().toStdString();

    ASSERT_TRUE(LXFile::copyPath(path("src"), path("dst")));
    EXPECT_EQ(readFile(path("dst/big.wav")), readFile(path("src/big.wav")));
    EXPECT_EQ(readFile(path("dst/deep/deeper/.hidden")), "h");
    EXPECT_EQ(modeOf(path("dst/deep/read-only.txt")), mode_t(0444));
    EXPECT_EQ(modeOf(path("dst/deep")), mode_t(0750));
    EXPECT_EQ(timeOf(path("dst/big.wav")), 1200000000250);
    EXPECT_EQ(timeOf(path("dst/deep")), 1300000000250);
    EXPECT_EQ(QFile::symLinkTarget(path("dst/link")), path("dst/deep/read-only.txt"));
    if (haveCreator) {
        EXPECT_EQ(LXFile::creatorCodeAtPath(path("dst/big.wav")), LXFourCC("CLPW"));
        ASSERT_TRUE(LXFile::setCreatorCodeAtPath(path("dst/big.wav"), 0));
        EXPECT_EQ(LXFile::creatorCodeAtPath(path("dst/big.wav")), 0u);
        EXPECT_TRUE(LXFile::setCreatorCodeAtPath(path("dst/big.wav"), 0)); // nothing to remove: fine
    }

    writeFile(path("taken.wav"), "taken");
    auto refused = LXFile::copyPath(path("src/big.wav"), path("taken.wav"));
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().errnum(), EEXIST);
    EXPECT_EQ(readFile(path("taken.wav")), "taken");
    EXPECT_FALSE(LXFile::copyPath(path("nothing"), path("copy")));
    EXPECT_FALSE(LXFile::existsAtPath(path("copy")));
}

TEST_F(FileServices, DeleteRemovesTreesButNeverWhatLinksPointAt) {
    ASSERT_TRUE(LXFile::createDirectoryAtPath(path("keep")));
    writeFile(path("keep/precious.wav"), "p");
    ASSERT_TRUE(LXFile::createDirectoryAtPath(path("tree/sub")));
    writeFile(path("tree/sub/a.wav"), "a", 0444);
    writeFile(path("tree/.hidden"), "h");
    link(path("keep"), path("tree/sub/link-to-keep"));

    ASSERT_TRUE(LXFile::emptyDirectoryAtPath(path("tree")));
    EXPECT_TRUE(LXFile::existsAtPath(path("tree")));
    EXPECT_TRUE(LXFile::contentsOfDirectoryAtPath(path("tree")).isEmpty());

    link(path("keep"), path("tree/link"));
    ASSERT_TRUE(LXFile::deleteFileAtPath(path("tree")));
    EXPECT_FALSE(LXFile::existsAtPath(path("tree")));
    EXPECT_EQ(readFile(path("keep/precious.wav")), "p");
    EXPECT_TRUE(LXFile::deleteFileAtPath(path("tree"))); // already gone: fine
    EXPECT_FALSE(LXFile::emptyDirectoryAtPath(path("tree")));
}

TEST_F(FileServices, TrashFollowsTheFreedesktopLayout) {
    const QByteArray savedHome = qgetenv("HOME"), savedData = qgetenv("XDG_DATA_HOME");
    const bool hadData = qEnvironmentVariableIsSet("XDG_DATA_HOME");
    auto restore = qScopeGuard([&] {
        qputenv("HOME", savedHome);
        if (hadData)
            qputenv("XDG_DATA_HOME", savedData);
        else
            qunsetenv("XDG_DATA_HOME");
    });
    qputenv("HOME", QFile::encodeName(path("home")));
    qputenv("XDG_DATA_HOME", QFile::encodeName(path("data"))); // does not exist yet

    const QString name = QStringLiteral("kick drum é #1.wav"),
                  second = QStringLiteral("kick drum é #1.2.wav");
    ASSERT_TRUE(LXFile::createDirectoryAtPath(path("one")));
    ASSERT_TRUE(LXFile::createDirectoryAtPath(path("two")));
    writeFile(path("one/" + name), "first");
    writeFile(path("two/" + name), "second");
    const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
    ASSERT_TRUE(LXFile::moveToTrash(path("one/" + name)));
    ASSERT_TRUE(LXFile::moveToTrash(path("two/" + name)));
    EXPECT_FALSE(LXFile::existsAtPath(path("one/" + name)));

    const QString trash = path("data/Trash");
    EXPECT_EQ(modeOf(trash + "/files"), mode_t(0700));
    EXPECT_EQ(readFile(trash + "/files/" + name), "first");
    EXPECT_EQ(readFile(trash + "/files/" + second), "second");
    const QStringList info =
        QString::fromUtf8(readFile(trash + "/info/" + second + ".trashinfo")).split('\n');
    ASSERT_GE(info.size(), 3);
    EXPECT_EQ(info[0], QStringLiteral("[Trash Info]"));
    ASSERT_TRUE(info[1].startsWith(QStringLiteral("Path=")));
    EXPECT_FALSE(info[1].contains(u' ')); // percent-encoded
    EXPECT_EQ(QUrl::fromPercentEncoding(info[1].mid(5).toLatin1()), path("two/" + name));
    ASSERT_TRUE(info[2].startsWith(QStringLiteral("DeletionDate=")));
    const QDateTime deleted = QDateTime::fromString(info[2].mid(13), QStringLiteral("yyyy-MM-ddTHH:mm:ss"));
    EXPECT_TRUE(deleted >= before && deleted <= QDateTime::currentDateTime()) << info[2].toStdString();

    qunsetenv("XDG_DATA_HOME"); // then it is ~/.local/share/Trash; folders go whole
    ASSERT_TRUE(LXFile::createDirectoryAtPath(path("folder/inside")));
    ASSERT_TRUE(LXFile::moveToTrash(path("folder")));
    EXPECT_TRUE(LXFile::existsAtPath(path("home/.local/share/Trash/files/folder/inside")));
    EXPECT_TRUE(LXFile::existsAtPath(path("home/.local/share/Trash/info/folder.trashinfo")));
    EXPECT_EQ(LXFile::moveToTrash(path("nothing.wav")).error().errnum(), ENOENT);
}

TEST_F(FileServices, PathsDatesAndFolders) {
    const QString home = QDir::homePath();
    EXPECT_EQ(LXFile::conformPath(QStringLiteral("~")), home);
    EXPECT_EQ(LXFile::conformPath(QStringLiteral("~/x/../y.wav")), home + QStringLiteral("/y.wav"));
    EXPECT_EQ(LXFile::conformPath(QStringLiteral("/a//b/./c/")), QStringLiteral("/a/b/c"));
    EXPECT_EQ(LXFile::conformPath(QStringLiteral("rel/x.wav")),
              QDir::currentPath() + QStringLiteral("/rel/x.wav"));
    link(m_dir.path(), path("link"));
    EXPECT_EQ(LXFile::conformPath(path("link/./x.wav")), path("link/x.wav")); // links stay

    ASSERT_TRUE(LXFile::createDirectoryAtPath(path("n/e/s/t")));
    writeFile(path("n/file"), "12345");
    EXPECT_TRUE(LXFile::createDirectoryAtPath(path("n/file/sub")).error().isFileError());
    writeFile(path("n/.dot"), "");
    EXPECT_EQ(LXFile::contentsOfDirectoryAtPath(path("n")), (QStringList{".dot", "e", "file"}));

    // The date of a link is its own, not its target's.
    setTime(path("n/file"), 1000000000);
    link(path("n/file"), path("n/link"));
    setTime(path("n/link"), 1100000000, AT_SYMLINK_NOFOLLOW);
    EXPECT_EQ(timeOf(path("n/file")), 1000000000250);
    EXPECT_EQ(timeOf(path("n/link")), 1100000000250);
    EXPECT_FALSE(LXFile::modificationDateOfFileAtPath(path("missing")).isValid());
}

} // namespace
