// Kills clipwright (SIGKILL) at random moments of an in-place run over many files: afterwards every file
// must be whole, its old or its new version, and 'clipwright undo' must bring back every old one.

#include "CommandLineRunner.h"

#include "TestAudio.h"

#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QThread>

#include <gtest/gtest.h>

#include <random>

namespace {

constexpr int kFiles = 50;

int rounds() {
    const int fromEnvironment = qEnvironmentVariableIntValue("CLIPWRIGHT_KILL_ROUNDS");
    return fromEnvironment > 0 ? fromEnvironment : 20;
}

int countTemporaryFiles(const QString& folder) {
    int count = 0;
    for (QDirIterator it(folder, {".*.cwtmp"}, QDir::Files | QDir::Hidden); it.hasNext(); it.next()) ++count;
    return count;
}

} // namespace

TEST(KillDuringRun, EveryFileIsOldOrNewAndUndoBringsTheOldOnesBack) {
    CommandLineRunner runner;
    const QString pristine = QDir(runner.work()).filePath("pristine");
    const QString files = QDir(runner.work()).filePath("files");
    QDir().mkpath(pristine);
    QDir().mkpath(files);
    QStringList names;
    for (int i = 0; i < kFiles; ++i) {
        TestAudio::Sound sound;
        sound.frames = 44100;
        sound.seed = uint32_t(i + 1);
        sound.signal = TestAudio::Signal::Noise;
        sound.amplitude = 0.3;
        names.append(QStringLiteral("take%1.wav").arg(i, 2, 10, QLatin1Char('0')));
        ASSERT_TRUE(TestAudio::write(QDir(pristine).filePath(names.last()), sound));
    }
    const auto reset = [&] {
        for (const QString& name : names) {
            QFile::remove(QDir(files).filePath(name));
            QFile::copy(QDir(pristine).filePath(name), QDir(files).filePath(name));
        }
        QDir(runner.undoFolder()).removeRecursively();
    };
    QStringList arguments = {"change-gain", "--level", "-6"};
    for (const QString& name : names) arguments.append(QDir(files).filePath(name));

    // The new version of every file, and how long a whole run takes.
    reset();
    QElapsedTimer timer;
    timer.start();
    ASSERT_EQ(runner.run(arguments).exitCode, 0);
    const qint64 runMs = std::max<qint64>(timer.elapsed(), 50);
    QList<QByteArray> oldBytes, newBytes;
    for (const QString& name : names) {
        oldBytes.append(readBytes(QDir(pristine).filePath(name)));
        newBytes.append(readBytes(QDir(files).filePath(name)));
    }

    std::mt19937 random(20261122);
    std::uniform_int_distribution<qint64> moment(0, runMs * 11 / 10);
    int roundsWithNone = 0, roundsWithSome = 0, roundsWithAll = 0, temporaryLeft = 0;
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
            const QByteArray bytes = readBytes(QDir(files).filePath(names[i]));
            const bool isOld = bytes == oldBytes[i], isNew = bytes == newBytes[i];
            ASSERT_TRUE(isOld || isNew) << "round " << round << ": " << names[i].toStdString() << " is neither whole version";
            changed += isNew ? 1 : 0;
        }
        (changed == 0 ? roundsWithNone : changed == kFiles ? roundsWithAll : roundsWithSome) += 1;
        temporaryLeft += countTemporaryFiles(files);

        const auto undone = runner.run({"undo"});
        if (changed > 0) {
            ASSERT_EQ(undone.exitCode, 0) << "round " << round << ": " << undone.err.toStdString();
        }
        for (int i = 0; i < kFiles; ++i)
            ASSERT_EQ(readBytes(QDir(files).filePath(names[i])), oldBytes[i]) << "round " << round << ": " << names[i].toStdString();
    }
    std::printf("[ figures  ] %d kills over runs of %lld ms: %d before any file, %d part-way, %d after all; "
                "%d temporary files left behind\n",
                rounds(), static_cast<long long>(runMs), roundsWithNone, roundsWithSome, roundsWithAll, temporaryLeft);
}
