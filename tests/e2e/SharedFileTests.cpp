// In-place work on files that others touch too: runs at the same time over the same files, files changed
// or deleted by another program before an undo, and an undo folder kept under its size limit.

#include "CommandLineRunner.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSet>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace {

int concurrentRounds() {
    const int fromEnvironment = qEnvironmentVariableIntValue("CLIPWRIGHT_CONCURRENT_ROUNDS");
    return fromEnvironment > 0 ? fromEnvironment : 4;
}

// The files a run reported changed, from its --report file.
QSet<QString> changedIn(const QString& report) {
    QSet<QString> changed;
    QFile file(report);
    if (!file.open(QIODevice::ReadOnly)) return changed;
    while (!file.atEnd()) {
        const QJsonObject line = QJsonDocument::fromJson(file.readLine()).object();
        if (line.value("outcome").toString() == "changed") changed.insert(line.value("input").toString());
    }
    return changed;
}

} // namespace

// Two or three runs of different gains over the same thirty files, each in its own order: every file
// carries exactly the gains of the runs that say they changed it, the others say why they left it, and
// undoing every step leads back to the original bytes.
TEST(SharedFiles, RunsAtTheSameTimeLoseNoChangeAndUndoLeadsBackToTheOriginals) {
    CommandLineRunner runner;
    constexpr int kFiles = 30;
    QStringList paths;
    QList<QByteArray> originals;
    for (int i = 0; i < kFiles; ++i) {
        paths.append(runner.makeMonoSine(QStringLiteral("take%1.wav").arg(i, 2, 10, QLatin1Char('0')), 0.2));
        originals.append(readBytes(paths.last()));
    }
    const double originalPeak = peakDecibels(paths.first());
    std::mt19937 random(20261124);
    int refused = 0, changes = 0;
    for (const int runs : {2, 3}) {
        for (int round = 0; round < concurrentRounds(); ++round) {
            QList<QProcess*> processes;
            for (int run = 0; run < runs; ++run) {
                QStringList order = paths;
                std::shuffle(order.begin(), order.end(), random);
                auto* process = new QProcess;
                process->setProcessEnvironment(runner.environment());
                process->start(CommandLineRunner::program(),
                               QStringList{"change-gain", "--level", QString::number(-(run + 1)), "--keep-going",
                                           "--report", QDir(runner.work()).filePath(QString::number(run))} +
                                   order);
                processes.append(process);
            }
            QList<QSet<QString>> changed;
            for (int run = 0; run < runs; ++run) {
                QProcess* process = processes[run];
                ASSERT_TRUE(process->waitForFinished(60000));
                const QString err = QString::fromLocal8Bit(process->readAllStandardError());
                ASSERT_TRUE(process->exitCode() == 0 || process->exitCode() == 3) << err.toStdString();
                if (process->exitCode() == 3) {
                    ASSERT_TRUE(err.contains("is changing it now")) << err.toStdString();
                }
                changed.append(changedIn(QDir(runner.work()).filePath(QString::number(run))));
                delete process;
            }
            for (const QString& path : paths) {
                double gain = 0;
                int by = 0;
                for (int run = 0; run < runs; ++run)
                    if (changed[run].contains(path)) gain -= run + 1, ++by;
                changes += by;
                refused += runs - by;
                EXPECT_NEAR(peakDecibels(path), originalPeak + gain, 0.02)
                    << runs << " runs, round " << round << ": " << path.toStdString();
            }
            for (int undo = 0; runner.run({"undo"}).exitCode == 0; ++undo)
                ASSERT_LE(undo, runs);
            for (int i = 0; i < kFiles; ++i)
                ASSERT_EQ(readBytes(paths[i]), originals[i]) << runs << " runs, round " << round << ": " << i;
        }
    }
    std::printf("[ figures  ] 2 and 3 runs at once, %d rounds each over %d files: %d changes made, %d files "
                "refused as another run held them\n",
                concurrentRounds(), kFiles, changes, refused);
}

// Undo never silently overwrites what another program did after the run, nor fails half-way over a file
// that is gone: it names them and changes nothing, or with --force keeps the edit for redo and brings the
// deleted file's earlier version back.
TEST(SharedFiles, UndoNamesFilesChangedOrGoneSinceAndChangesNothingUnlessForced) {
    CommandLineRunner runner;
    const QString a = runner.makeMonoSine("a.wav", 0.2), b = runner.makeMonoSine("b.wav", 0.2),
                  c = runner.makeMonoSine("c.wav", 0.2);
    const QByteArray oldA = readBytes(a), oldB = readBytes(b), oldC = readBytes(c);
    ASSERT_EQ(runner.run({"change-gain", "--level", "-6", a, b, c}).exitCode, 0);
    const QByteArray newA = readBytes(a);
    // Another program rewrites b.wav after the run.
    ASSERT_EQ(QProcess::execute("sox", {"-n", "-r", "44100", "-b", "16", b, "synth", "0.2", "sine", "220"}), 0);
    const QByteArray edited = readBytes(b);

    auto result = runner.run({"undo"});
    EXPECT_EQ(result.exitCode, 8);
    EXPECT_TRUE(result.err.contains("nothing was changed, as 1 of the 3 files cannot be switched:\n  '" + b +
                                    "': it was changed since, by another program or run"))
        << result.err.toStdString();
    EXPECT_TRUE(result.err.contains("--force")) << result.err.toStdString();
    EXPECT_EQ(readBytes(a), newA);
    EXPECT_EQ(readBytes(b), edited);

    ASSERT_EQ(runner.run({"undo", "--force"}).exitCode, 0);
    EXPECT_EQ(readBytes(a), oldA);
    EXPECT_EQ(readBytes(b), oldB);
    ASSERT_EQ(runner.run({"redo"}).exitCode, 0);
    EXPECT_EQ(readBytes(a), newA);
    EXPECT_EQ(readBytes(b), edited); // the other program's version, kept

    // A file deleted since.
    ASSERT_TRUE(QFile::remove(c));
    result = runner.run({"undo"});
    EXPECT_EQ(result.exitCode, 8);
    EXPECT_TRUE(result.err.contains("'" + c + "': it is no longer there")) << result.err.toStdString();
    EXPECT_EQ(readBytes(a), newA);
    ASSERT_EQ(runner.run({"undo", "--force"}).exitCode, 0);
    EXPECT_EQ(readBytes(a), oldA);
    EXPECT_EQ(readBytes(c), oldC);
}

// Undo and redo walk the steps as a stack: the last run first, then back again in the order undone.
TEST(SharedFiles, UndoAndRedoWalkSeveralSteps) {
    CommandLineRunner runner;
    const QString file = runner.makeMonoSine("take.wav", 0.2);
    QList<QByteArray> versions{readBytes(file)};
    for (const char* level : {"-1", "-2", "-3"}) {
        ASSERT_EQ(runner.run({"change-gain", "--level", level, file}).exitCode, 0);
        versions.append(readBytes(file));
    }
    for (int version = 2; version >= 0; --version) {
        ASSERT_EQ(runner.run({"undo"}).exitCode, 0);
        EXPECT_EQ(readBytes(file), versions[version]) << version;
    }
    for (int version = 1; version <= 3; ++version) {
        ASSERT_EQ(runner.run({"redo"}).exitCode, 0);
        EXPECT_EQ(readBytes(file), versions[version]) << version;
    }
    EXPECT_EQ(runner.run({"redo"}).exitCode, 8);
    // A run after an undo ends the redo.
    ASSERT_EQ(runner.run({"undo"}).exitCode, 0);
    ASSERT_EQ(runner.run({"change-gain", "--level", "-1", file}).exitCode, 0);
    EXPECT_EQ(runner.run({"redo"}).exitCode, 8);
}

// The oldest steps go, with a notice, once the kept copies pass the "Undo Folder Limit" (megabytes).
TEST(SharedFiles, TheUndoFolderIsKeptUnderItsLimit) {
    CommandLineRunner runner;
    const QString config = runner.environment().value("XDG_CONFIG_HOME") + "/Clipwright";
    QDir().mkpath(config);
    QFile preferences(config + "/Clipwright.plist");
    ASSERT_TRUE(preferences.open(QIODevice::WriteOnly));
    preferences.write(R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0"><dict><key>Undo Folder Limit</key><integer>1</integer></dict></plist>
)");
    preferences.close();
    const QString file = runner.makeMonoSine("long.wav", 8); // 706 kB: two kept copies pass 1 MB
    ASSERT_EQ(runner.run({"change-gain", "--level", "-1", file}).exitCode, 0);
    const auto second = runner.run({"change-gain", "--level", "-1", file});
    ASSERT_EQ(second.exitCode, 0);
    EXPECT_TRUE(second.err.contains("Dropped the oldest undo step (689.1 KiB) to keep the undo folder under "
                                    "1 MiB (the preference \"Undo Folder Limit\")."))
        << second.err.toStdString();
    EXPECT_EQ(runner.run({"undo"}).exitCode, 0);
    EXPECT_EQ(runner.run({"undo"}).exitCode, 8);
}
