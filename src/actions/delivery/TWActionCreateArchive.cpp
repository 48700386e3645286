// Create Archive: the files go into one zip archive, made by the `zip` program, in the chosen folder or
// the first file's. One file gives an archive of its own name (take.wav, take.zip); several give
// "Archive", then "Archive_01", "Archive_02" ... while the name is taken. The files are only read.

#include "engine/TWActionRegistry.h"
#include "engine/TWActionRun.h"
#include "engine/TWHandOnAction.h"

#include "model/TWFileEntry.h"

#include "lx/LXFile.h"

#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace {

// How a child process ended: its exit code (-1 when it did not exit normally) and what it wrote on
// stderr; or that it could not start (errnum) or was killed because the run was cancelled.
struct ChildResult {
    int errnum = 0;
    bool cancelled = false;
    int exitCode = -1;
    QByteArray standardError;
};

// Runs the program with its output discarded and waits for it, asking `cancelled` every tenth of a
// second. A plain spawn rather than QProcess: the work thread has no event loop to lend one.
ChildResult runChild(const QString& program, const QStringList& arguments, const std::function<bool()>& cancelled) {
    ChildResult result;
    int pipeEnds[2];
    if (pipe2(pipeEnds, O_CLOEXEC | O_NONBLOCK) != 0) {
        result.errnum = errno;
        return result;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], STDERR_FILENO);
    std::vector<QByteArray> held{QFile::encodeName(program)};
    for (const QString& argument : arguments)
        held.push_back(QFile::encodeName(argument));
    std::vector<char*> argv;
    for (QByteArray& argument : held)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    pid_t child = 0;
    result.errnum = posix_spawn(&child, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(pipeEnds[1]);
    const auto drain = [&] {
        char buffer[4096];
        for (ssize_t got; (got = read(pipeEnds[0], buffer, sizeof buffer)) > 0;)
            result.standardError.append(buffer, got);
    };
    if (result.errnum == 0) {
        int status = 0;
        while (waitpid(child, &status, WNOHANG) == 0) {
            drain();
            if (!result.cancelled && cancelled()) {
                kill(child, SIGKILL);
                result.cancelled = true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        drain();
        if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
    }
    close(pipeEnds[0]);
    return result;
}

} // namespace

class TWActionCreateArchive : public TWHandOnAction {
public:
    QString className() const override { return QStringLiteral("TWActionCreateArchive"); }
    QString name() const override { return QStringLiteral("Create Archive"); }
    QString verb() const override { return QStringLiteral("Creating Archive..."); }
    bool onlyMakesNewFiles() const override { return true; }

protected:
    QString processingPhase() const override { return QStringLiteral("Creating the archive"); }
    bool handsOnTogether() const override { return true; }

    TWOutcome handOnEntries(const QList<TWFileEntryPtr>& entries, const QVariantMap&) override {
        if (entries.isEmpty()) return TWOutcome::success();
        if (TWOutcome stop = run().stopRequested(); !stop.goesOn()) return stop;
        const QString folder = run().directory().isEmpty() ? QFileInfo(entries.first()->path()).absolutePath()
                                                           : run().directory();
        const QString baseName = entries.size() == 1 ? QFileInfo(entries.first()->path()).completeBaseName()
                                                     : QStringLiteral("Archive");
        const QString named = folder + u'/' + baseName + QStringLiteral(".zip");

        const QString zip = QStandardPaths::findExecutable(QStringLiteral("zip"));
        if (zip.isEmpty())
            return LXError(LXErrUnsupported,
                           QStringLiteral("cannot be made: the program 'zip' is not installed"), named);
        // zip writes into a hidden folder beside the archive, so that the archive takes its name only when
        // whole, never over another file, and a failed or cancelled run leaves nothing behind.
        QTemporaryDir work(folder + QStringLiteral("/.Archive-XXXXXX"));
        if (!work.isValid())
            return LXError(LXErrWriteFailed, QStringLiteral("cannot be made: %1").arg(work.errorString()),
                           named);
        const QString made = work.filePath(baseName + QStringLiteral(".zip"));
        // -MM: a file that cannot be read fails the archive rather than being left out of it.
        QStringList arguments{QStringLiteral("-q"), QStringLiteral("-MM"), made};
        for (const TWFileEntryPtr& entry : entries)
            arguments.append(filesOf(*entry));

        // A stop lets the archive be finished; a cancel ends it at once.
        const ChildResult zipped = runChild(zip, arguments, [this] {
            return run().stopRequested().kind() == TWOutcome::Kind::Cancelled;
        });
        if (zipped.errnum != 0)
            return LXError(LXErrUnsupported,
                           QStringLiteral("cannot be made: zip: %1").arg(QString::fromLocal8Bit(strerror(zipped.errnum))),
                           named);
        if (zipped.cancelled) return TWOutcome::cancelled();
        if (zipped.exitCode != 0) {
            const QString said = QString::fromLocal8Bit(zipped.standardError).simplified().replace(made, named);
            return LXError(LXErrWriteFailed,
                           QStringLiteral("cannot be made: zip exit status %1%2")
                               .arg(zipped.exitCode)
                               .arg(said.isEmpty() ? QString() : QStringLiteral(": ") + said),
                           named);
        }

        for (int number = 0;; ++number) {
            const QString name = number == 0
                                     ? baseName
                                     : QStringLiteral("%1_%2").arg(baseName).arg(number, 2, 10, QChar(u'0'));
            const QString path = folder + u'/' + name + QStringLiteral(".zip");
            const LXStatus renamed = LXFile::renameWithoutReplacing(made, path);
            if (renamed) {
                run().notice(QStringLiteral("wrote the archive '%1'").arg(path));
                return TWOutcome::success();
            }
            if (renamed.error().errnum() != EEXIST) return renamed.error();
        }
    }
};

TW_REGISTER_ACTION(TWActionCreateArchive)
