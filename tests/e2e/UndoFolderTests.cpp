// clipwright and its undo folder: a journal that cannot be written, what the folder lets others see, and
// what it lists.

#include "CommandLineRunner.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace {

constexpr qint64 kJournalLimit = 1 << 20;

// A journal that fills the largest file the run may write, less `room` bytes: every later line of the
// journal hits the limit (EFBIG, as a full disk would give ENOSPC), even for root.
void fillJournal(const CommandLineRunner& runner, qint64 room) {
    QDir().mkpath(runner.undoFolder());
    QFile journal(runner.undoFolder() + "/Journal");
    ASSERT_TRUE(journal.open(QIODevice::WriteOnly | QIODevice::Truncate));
    journal.write(QByteArray(kJournalLimit - room, '\n'));
}

QStringList undoCopies(const CommandLineRunner& runner) {
    return QDir(runner.undoFolder()).entryList({"*.wav"}, QDir::Files);
}

mode_t modeOf(const QString& path) {
    struct stat st;
    return ::stat(QFile::encodeName(path).constData(), &st) == 0 ? st.st_mode & 07777 : 07777;
}

} // namespace

TEST(UndoFolder, AJournalThatCannotBeWrittenStopsTheSaveAndKeepsNoStrandedCopy) {
    CommandLineRunner runner;
    const QString file = runner.makeSine("take.wav");
    const QByteArray original = readBytes(file);
    const QStringList limited{
        "sh", "-c", "trap '' XFSZ; exec prlimit --fsize=" + QString::number(kJournalLimit) + " \"$@\"", "sh"};

    // No room for the step's first line, then room for it but not for the file's record (a torn line).
    for (const qint64 room : {0, 100}) {
        fillJournal(runner, room);
        const auto result = runner.run({"change-gain", "--level", "-3", file}, limited);
        if (result.err.contains("prlimit")) GTEST_SKIP() << result.err.toStdString();
        EXPECT_EQ(result.exitCode, 8) << room;
        EXPECT_TRUE(
            result.err.contains("'take.wav': left as it was, since its undo record could not be kept: "
                                "cannot write the undo journal: File too large"))
            << result.err.toStdString();
        EXPECT_EQ(readBytes(file), original) << room;
        EXPECT_EQ(undoCopies(runner), QStringList()) << room;
        EXPECT_EQ(runner.run({"undo"}).exitCode, 8) << room; // nothing was done
    }

    // The torn line does not swallow the next run's records: it undoes.
    ASSERT_EQ(runner.run({"change-gain", "--level", "-3", file}).exitCode, 0);
    ASSERT_NE(readBytes(file), original);
    ASSERT_EQ(runner.run({"undo"}).exitCode, 0);
    EXPECT_EQ(readBytes(file), original);
}

TEST(UndoFolder, IsPrivateAndATooOpenOneIsTightened) {
    CommandLineRunner runner;
    const QString file = runner.makeSine("take.wav");
    const QString folder = runner.undoFolder();
    for (const bool loosened : {false, true}) {
        if (loosened) { // as an earlier version left them
            ::chmod(QFile::encodeName(folder).constData(), 0755);
            ::chmod(QFile::encodeName(folder + "/Journal").constData(), 0644);
        }
        ASSERT_EQ(runner.run({"change-gain", "--level", "-1", file}).exitCode, 0);
        EXPECT_EQ(modeOf(folder), 0700u) << loosened;
        EXPECT_EQ(modeOf(folder + "/Journal"), 0600u) << loosened;
        EXPECT_EQ(modeOf(folder + "/.Journal.lock"), 0600u) << loosened; // empty, but made private too
    }
}

TEST(UndoFolder, FlushUndoOnATerminalAsksAWarningThatReturnAnswersNo) {
    CommandLineRunner runner;
    const QString file = runner.makeSine("take.wav");
    ASSERT_EQ(runner.run({"change-gain", "--level", "-1", file}).exitCode, 0);
    ASSERT_EQ(undoCopies(runner).size(), 1);

    const QString kept = runner.runOnTerminal({"flush-undo"}, "\n");
    EXPECT_TRUE(kept.contains("Warning: Empty the undo folder?")) << kept.toStdString();
    EXPECT_FALSE(kept.contains("Error")) << kept.toStdString();
    EXPECT_TRUE(kept.contains("1) Yes   2) No\r\nChoose 1-2 [2]:")) << kept.toStdString();
    EXPECT_TRUE(kept.contains("the undo folder was left as it was")) << kept.toStdString();
    EXPECT_EQ(undoCopies(runner).size(), 1);

    const QString flushed = runner.runOnTerminal({"flush-undo"}, "yes\n");
    EXPECT_TRUE(flushed.contains("The undo folder is empty.")) << flushed.toStdString();
    EXPECT_EQ(undoCopies(runner), QStringList());
}

TEST(UndoFolder, UndoListShowsTheStepsNewestFirstWithTheirFilesAndChangesNothing) {
    CommandLineRunner runner;
    const QString file = runner.makeSine("take.wav");
    ASSERT_EQ(runner.run({"change-gain", "--level", "-1", file}).exitCode, 0);
    ASSERT_EQ(runner.run({"normalize", "--level", "-2", file}).exitCode, 0);
    ASSERT_EQ(runner.run({"undo"}).exitCode, 0);
    const QByteArray bytes = readBytes(file);

    const auto listed = runner.run({"undo", "--list"});
    EXPECT_EQ(listed.exitCode, 0) << listed.err.toStdString();
    const QString time = "\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d";
    const QString kept = "  " + QRegularExpression::escape(file) + "  \\d+(\\.\\d+)? KiB kept\n";
    EXPECT_TRUE(QRegularExpression("^" + time + "  Normalize  \\(undone\\)\n" + kept + time +
                                   "  Change Gain\n" + kept + "$")
                    .match(listed.out)
                    .hasMatch())
        << listed.out.toStdString();
    EXPECT_EQ(readBytes(file), bytes);
    EXPECT_TRUE(runner.run({"undo", "--help"}).out.contains("-l, --list"));
}

TEST(UndoFolder, UndoRemovesTheHiddenFilesOfAKilledWriterBesideItsFiles) {
    CommandLineRunner runner;
    const QString file = runner.makeSine("take.wav");
    ASSERT_EQ(runner.run({"change-gain", "--level", "-1", file}).exitCode, 0);
    // What a writer killed a minute ago leaves: no process holds its lock.
    QFile leftover(QDir(runner.work()).filePath(".take.wav.k1ll3d.cwtmp"));
    ASSERT_TRUE(leftover.open(QIODevice::WriteOnly));
    leftover.write("RIFF");
    leftover.flush();
    leftover.setFileTime(QDateTime::currentDateTime().addSecs(-60), QFileDevice::FileModificationTime);
    leftover.close();

    ASSERT_EQ(runner.run({"undo"}).exitCode, 0);
    EXPECT_FALSE(leftover.exists());
}
