// Create Archive: the files go into one zip archive, made by the `zip` program, in the chosen folder or
// the first file's. One file gives an archive of its own name (take.wav, take.zip); several give
// "Archive", then "Archive_01", "Archive_02" ... while the name is taken. The files are only read.

#include "engine/TWActionRegistry.h"
#include "engine/TWActionRun.h"
#include "engine/TWHandOnAction.h"

#include "model/TWFileEntry.h"

#include "lx/LXFile.h"

#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <cerrno>

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

        QProcess zipper;
        zipper.start(zip, arguments);
        if (!zipper.waitForStarted())
            return LXError(LXErrUnsupported,
                           QStringLiteral("cannot be made: zip: %1").arg(zipper.errorString()), named);
        // A stop lets the archive be finished; a cancel ends it at once.
        while (!zipper.waitForFinished(100))
            if (run().stopRequested().kind() == TWOutcome::Kind::Cancelled) {
                zipper.kill();
                zipper.waitForFinished();
                return TWOutcome::cancelled();
            }
        if (zipper.exitStatus() != QProcess::NormalExit || zipper.exitCode() != 0) {
            const QString said =
                QString::fromLocal8Bit(zipper.readAllStandardError()).simplified().replace(made, named);
            return LXError(LXErrWriteFailed,
                           QStringLiteral("cannot be made: zip exit status %1%2")
                               .arg(zipper.exitCode())
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
