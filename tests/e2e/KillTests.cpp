// Kills clipwright (SIGKILL) at random moments of an in-place run, an undo or a redo over many files:
// afterwards every file must be whole, its old or its new version, and undo must bring back every old one.

#include "CommandLineRunner.h"

#include "TestAudio.h"

#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QThread>

#include <gtest/gtest.h>

#include <random>

#include <csignal>

namespace {

constexpr int kFiles = 50;

int rounds() {
    const int fromEnvironment = qEnvironmentVariableIntValue("CLIPWRIGHT_KILL_ROUNDS");
    return fromEnvironment > 0 ? fromEnvironment : 20;
}

QStringList temporaryFiles(const QString& folder) {
    return QDir(folder).entryList({".*.cwtmp"}, QDir::Files | QDir::Hidden);
}

// kFiles seconds of noise, kept pristine in one folder and copied into another for each round.
class ManyFiles {
public:
    explicit ManyFiles(const CommandLineRunner& runner)
        : m_runner(runner), m_pristine(QDir(runner.work()).filePath("pristine")),
          m_files(QDir(runner.work()).filePath("files")) {
        QDir().mkpath(m_pristine);
        QDir().mkpath(m_files);
        for (int i = 0; i < kFiles; ++i) {
            TestAudio::Sound sound;
            sound.frames = 44100;
            sound.seed = uint32_t(i + 1);
            sound.signal = TestAudio::Signal::Noise;
            sound.amplitude = 0.3;
            m_names.append(QStringLiteral("take%1.wav").arg(i, 2, 10, QLatin1Char('0')));
            EXPECT_TRUE(TestAudio::write(QDir(m_pristine).filePath(m_names.last()), sound));
        }
    }
    void reset() const {
        for (const QString& name : m_names) {
            QFile::remove(QDir(m_files).filePath(name));
            QFile::copy(QDir(m_pristine).filePath(name), QDir(m_files).filePath(name));
        }
        QDir(m_runner.undoFolder()).removeRecursively();
    }
    QString path(int i) const { return QDir(m_files).filePath(m_names[i]); }
    QString pristinePath(int i) const { return QDir(m_pristine).filePath(m_names[i]); }
    const QString& folder() const { return m_files; }
    QStringList arguments(const QStringList& command) const {
        QStringList all = command;
        for (int i = 0; i < kFiles; ++i)
            all.append(path(i));
        return all;
    }

private:
    const CommandLineRunner& m_runner;
    QString m_pristine, m_files;
    QStringList m_names;
};

} // namespace

TEST(KillDuringRun, EveryFileIsOldOrNewAndUndoBringsTheOldOnesBack) {
    CommandLineRunner runner;
    const ManyFiles files(runner);
    const auto reset = [&] { files.reset(); };
    const QStringList arguments = files.arguments({"change-gain", "--level", "-6"});

    // The new version of every file, and how long a whole run takes.
    reset();
    QElapsedTimer timer;
    timer.start();
    ASSERT_EQ(runner.run(arguments).exitCode, 0);
    const qint64 runMs = std::max<qint64>(timer.elapsed(), 50);
    QList<QByteArray> oldBytes, newBytes;
    for (int i = 0; i < kFiles; ++i) {
        oldBytes.append(readBytes(files.pristinePath(i)));
        newBytes.append(readBytes(files.path(i)));
    }

    std::mt19937 random(20261122);
    std::uniform_int_distribution<qint64> moment(0, runMs * 11 / 10);
    int roundsWithNone = 0, roundsWithSome = 0, roundsWithAll = 0, temporaryLeft = 0, temporaryBefore = 0;
    for (int round = 0; round < rounds(); ++round) {
        reset();
        QProcess process;
        process.setProcessEnvironment(runner.environment());
        process.start(CommandLineRunner::program(), arguments);
        ASSERT_TRUE(process.waitForStarted());
        process.waitForFinished(int(moment(random)));
        process.kill();
        process.waitForFinished();

        int changed = 0;
        for (int i = 0; i < kFiles; ++i) {
            const QByteArray bytes = readBytes(files.path(i));
            const bool isOld = bytes == oldBytes[i], isNew = bytes == newBytes[i];
            ASSERT_TRUE(isOld || isNew)
                << "round " << round << ": " << files.path(i).toStdString() << " is neither whole version";
            changed += isNew ? 1 : 0;
        }
        (changed == 0 ? roundsWithNone : changed == kFiles ? roundsWithAll : roundsWithSome) += 1;
        const QStringList temporary = temporaryFiles(files.folder());
        temporaryLeft += int(temporary.size()) - temporaryBefore;
        temporaryBefore = int(temporary.size());

        const auto undone = runner.run({"undo"});
        if (changed > 0) {
            ASSERT_EQ(undone.exitCode, 0) << "round " << round << ": " << undone.err.toStdString();
        }
        for (int i = 0; i < kFiles; ++i)
            ASSERT_EQ(readBytes(files.path(i)), oldBytes[i])
                << "round " << round << ": " << files.path(i).toStdString();
    }
    std::printf("[ figures  ] %d kills over runs of %lld ms: %d before any file, %d part-way, %d after all; "
                "%d hidden temporary files left behind\n",
                rounds(), static_cast<long long>(runMs), roundsWithNone, roundsWithSome, roundsWithAll,
                temporaryLeft);

    // The next run in the folder removes what the killed ones left, once it is a few seconds old.
    for (const QString& name : temporaryFiles(files.folder())) {
        QFile file(QDir(files.folder()).filePath(name));
        ASSERT_TRUE(file.open(QIODevice::ReadWrite));
        ASSERT_TRUE(file.setFileTime(QDateTime::currentDateTimeUtc().addSecs(-60),
                                     QFileDevice::FileModificationTime));
    }
    ASSERT_EQ(runner.run(arguments).exitCode, 0);
    EXPECT_EQ(temporaryFiles(files.folder()), QStringList());
}

// Kills undo and redo at random moments; the next undo or redo (either, chosen at random) finishes or
// turns back what the killed one began: every file whole at every moment, and all of them old or all new.
TEST(KillDuringUndo, TheNextUndoOrRedoFinishesWhatTheKilledOneBegan) {
    CommandLineRunner runner;
    const ManyFiles files(runner);
    files.reset();
    ASSERT_EQ(runner.run(files.arguments({"change-gain", "--level", "-6"})).exitCode, 0);
    QList<QByteArray> oldBytes, newBytes;
    for (int i = 0; i < kFiles; ++i) {
        oldBytes.append(readBytes(files.pristinePath(i)));
        newBytes.append(readBytes(files.path(i)));
    }
    // Kills aimed at the switching itself: after the program has started (as long as listing the steps
    // takes) and before an undo would have ended.
    QElapsedTimer timer;
    timer.start();
    ASSERT_EQ(runner.run({"undo", "--list"}).exitCode, 0);
    const qint64 startMs = timer.restart();
    ASSERT_EQ(runner.run({"undo"}).exitCode, 0);
    ASSERT_EQ(runner.run({"redo"}).exitCode, 0);
    const qint64 switchMs = std::max<qint64>(timer.elapsed() / 2, startMs + 5);

    std::mt19937 random(20261124);
    std::uniform_int_distribution<qint64> moment(startMs * 8 / 10, switchMs * 11 / 10);
    const QString journal = runner.undoFolder() + "/Journal";
    // How many files hold the new version; each must hold one version whole.
    const auto countNew = [&](int round) {
        int count = 0;
        for (int i = 0; i < kFiles; ++i) {
            const QByteArray bytes = readBytes(files.path(i));
            EXPECT_TRUE(bytes == oldBytes[i] || bytes == newBytes[i]) << "round " << round << ": " << i;
            count += bytes == newBytes[i];
        }
        return count;
    };
    bool isNew = true;
    int partWay = 0, nothingToDo = 0, undoKills = 0;
    for (int round = 0; round < 2 * rounds(); ++round) {
        const char* killed = isNew ? "undo" : "redo";
        undoKills += isNew;
        QProcess process;
        process.setProcessEnvironment(runner.environment());
        const qint64 journalSize = QFileInfo(journal).size();
        process.start(CommandLineRunner::program(), {killed});
        ASSERT_TRUE(process.waitForStarted());
        if (round % 2 == 0) {
            process.waitForFinished(int(moment(random)));
        } else {
            // Once the switch is on record, a moment into it: switching fifty files takes milliseconds.
            QElapsedTimer waited;
            waited.start();
            while (QFileInfo(journal).size() == journalSize && process.state() == QProcess::Running &&
                   waited.elapsed() < 5000)
                QThread::usleep(50);
            QThread::usleep(unsigned(random() % 3000));
        }
        process.kill();
        process.waitForFinished();
        const int newAfterKill = countNew(round);
        partWay += newAfterKill > 0 && newAfterKill < kFiles;

        const bool undo = random() % 2 == 0;
        const auto next = runner.run({undo ? "undo" : "redo"});
        if (next.exitCode != 0) {
            // Only when there was nothing to do that way: the killed command had not begun, or had ended.
            ASSERT_TRUE(next.err.contains(undo ? "nothing to undo" : "nothing to redo"))
                << "round " << round << ": " << next.err.toStdString();
            ++nothingToDo;
        }
        const int nowNew = countNew(round);
        ASSERT_TRUE(nowNew == kFiles || nowNew == 0)
            << "round " << round << " (" << killed << ", then " << (undo ? "undo" : "redo") << "): " << nowNew
            << " files new";
        if (next.exitCode == 0) {
            ASSERT_EQ(nowNew == kFiles, !undo) << "round " << round;
        }
        isNew = nowNew == kFiles;
    }
    // However it ends, the way back to the originals is open.
    if (isNew) {
        ASSERT_EQ(runner.run({"undo"}).exitCode, 0);
    }
    EXPECT_EQ(countNew(-1), 0);
    std::printf("[ figures  ] %d kills of undo and %d of redo (%lld ms each, half of them timed from the "
                "journal): %d part-way; %d followed by a command with nothing to do\n",
                undoKills, 2 * rounds() - undoKills, static_cast<long long>(switchMs), partWay, nothingToDo);
}

// Ctrl-C during a run stops after the current file (the files done stay done and can be undone); a
// cancel puts back the files the action replaced.
TEST(KillDuringRun, CtrlCStopsAndATerminationCancels) {
    CommandLineRunner runner;
    const ManyFiles files(runner);
    const QStringList arguments = files.arguments({"change-gain", "--level", "-6"});
    const auto changedFiles = [&] {
        int changed = 0;
        for (int i = 0; i < kFiles; ++i)
            changed += readBytes(files.path(i)) != readBytes(files.pristinePath(i));
        return changed;
    };
    const auto interrupt = [&](int signal) {
        files.reset();
        QProcess process;
        process.setProcessEnvironment(runner.environment());
        process.start(CommandLineRunner::program(), arguments);
        EXPECT_TRUE(process.waitForStarted());
        // Once the first file is done, so that the run is surely under way.
        for (int waited = 0; changedFiles() == 0 && waited < 30000; waited += 5)
            process.waitForFinished(5);
        ::kill(pid_t(process.processId()), signal);
        process.waitForFinished(60000);
        EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(process.exitCode(), 8);
        return QString::fromLocal8Bit(process.readAllStandardError());
    };

    QString err = interrupt(SIGINT);
    EXPECT_TRUE(err.contains("the action was stopped.")) << err.toStdString();
    const int stoppedAfter = changedFiles();
    EXPECT_GT(stoppedAfter, 0);
    EXPECT_LT(stoppedAfter, kFiles);
    ASSERT_EQ(runner.run({"undo"}).exitCode, 0);
    EXPECT_EQ(changedFiles(), 0);

    // A second Ctrl-C cancels; so does a termination, which the test can send without racing the stop.
    err = interrupt(SIGTERM);
    EXPECT_TRUE(err.contains("the action was cancelled.")) << err.toStdString();
    EXPECT_EQ(changedFiles(), 0);
    EXPECT_EQ(runner.run({"undo"}).exitCode, 8); // a cancelled run leaves nothing to undo
}
