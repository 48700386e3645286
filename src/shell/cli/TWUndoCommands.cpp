// clipwright undo / redo: the in-place runs of earlier invocations, from the undo journal on disk.

#include "shell/cli/TWCommandLine.h"

#include "engine/TWUndoJournal.h"

#include "engine/TWRunController.h"
#include "platform/TWSupportFolders.h"
#include "shell/TWSession.h"
#include "shell/cli/TWRunner.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QLocale>

#include <unistd.h>

namespace TWCommandLine {

namespace {

void tell(Context& context, bool undo, const TWUndoJournal::Step& step, const QStringList& paths,
          const char* prefix = "") {
    if (!context.isQuiet())
        context.err << prefix << (undo ? "Undid " : "Redid ") << '\'' << step.actionName << "' on "
                    << step.fileCount() << (step.fileCount() == 1 ? " file" : " files") << Qt::endl;
    for (const QString& path : paths)
        context.out << path << '\n';
}

// The files a step of descriptive changes names: those its instructions would change next.
QStringList instructionPaths(const QVariantList& instructions) {
    QStringList paths;
    for (const QVariant& instruction : instructions)
        paths += instruction.toMap().value(QStringLiteral("paths")).toStringList();
    return paths;
}

int switchStep(Context& context, bool undo, bool force) {
    TWUndoJournal& journal = context.session.journal();
    QStringList paths;
    const auto collect = [&paths](const TWSaveInfo& record) { paths += record.currentPaths(); };
    // Descriptive changes are set back by running actions, whose own errors name the files they could not
    // change; the paths printed are those of the files set back.
    TWRunController& runs = context.session.runs();
    const auto run = [&context, &runs, &paths](const QVariantList& instructions) {
        // The actions take their files from the workspace, which a command starts without.
        QList<TWFileReport> refused;
        TWRunner::addFiles(context.session.workspace(), instructionPaths(instructions), refused, false);
        for (const TWFileReport& report : refused)
            (void)fail(context, report.note);
        QObject receiver;
        QObject::connect(&runs, &TWRunController::fileReported, &receiver, [&context](const TWFileReport& report) {
            if (report.outcome == TWFileReport::Outcome::Failed || report.outcome == TWFileReport::Outcome::Skipped)
                (void)fail(context, QStringLiteral("'%1': %2").arg(report.input, report.note));
        });
        QVariantList reverse = runs.runInstructionsForUndo(instructions);
        paths += instructionPaths(reverse);
        return reverse;
    };
    // An undo or redo killed half-way is finished first; when it went the way asked, that is the answer.
    const auto finished = journal.finishInterrupted(force, collect);
    if (!finished) return fail(context, finished.error().description());
    if (*finished && (*finished)->undone == undo) {
        tell(context, undo, **finished, paths, "Finished an interrupted command: ");
        return kSuccess;
    }
    paths.clear();
    const std::optional<TWUndoJournal::Step> step = undo ? journal.lastDoneStep() : journal.firstUndoneStep();
    if (!step)
        return fail(context, undo ? QStringLiteral("there is nothing to undo")
                                  : QStringLiteral("there is nothing to redo"));
    if (const LXStatus switched = journal.switchStep(step->id, undo, force, collect, run); !switched) {
        QString why = switched.error().description();
        if (!force && switched.error().code() == LXErrWriteFailed && why.startsWith(QStringLiteral("nothing")))
            why += QStringLiteral("\n--force switches the others: a file changed since is kept for %1, a "
                                  "file gone gets its earlier version back")
                       .arg(undo ? QStringLiteral("redo") : QStringLiteral("undo"));
        return fail(context, why);
    }
    tell(context, undo, *step, paths);
    return kSuccess;
}

// The journal's steps, newest first: when each began (its number is that time), the action, and per file
// its path and the size of the kept copies, which undo (or for an undone step, redo) puts in its place.
int listSteps(Context& context) {
    const QList<TWUndoJournal::Step> steps = context.session.journal().steps();
    bool any = false;
    for (auto step = steps.rbegin(); step != steps.rend(); ++step) {
        if (!step->hasChanges()) continue; // a run that replaced nothing
        any = true;
        context.out << QDateTime::fromMSecsSinceEpoch(step->id).toString(
                           QStringLiteral("yyyy-MM-dd HH:mm:ss"))
                    << "  " << step->actionName << (step->undone ? "  (undone)" : "") << '\n';
        for (const TWSaveInfo& record : step->records) {
            qint64 bytes = 0;
            bool missing = false;
            for (const QString& copy : record.undoPaths()) {
                const QFileInfo info(copy);
                missing = missing || !info.exists();
                bytes += info.size();
            }
            context.out << "  " << record.currentLeadPath() << "  ";
            if (record.undoPaths().isEmpty() || missing)
                context.out << "no kept copy";
            else
                context.out << QLocale::c().formattedDataSize(bytes) << " kept";
            context.out << '\n';
        }
        for (const QString& path : instructionPaths(step->instructions))
            context.out << "  " << path << "  names or metadata\n";
    }
    if (!any && !context.isQuiet()) context.err << "There is nothing to undo or redo." << Qt::endl;
    return kSuccess;
}

// Without it a step whose files cannot all be switched changes none of them.
Option forceFlag() {
    return flag(QStringLiteral("force"),
                QStringLiteral("switch the files that can be, when others cannot: a file changed since by "
                               "another program is kept for the way back, a file gone gets its earlier "
                               "version back, a file whose kept copy is gone is left out"));
}

// The undo folder as a reader of the help or the manual page would type it: under "~".
QString undoFolder() {
    const QString folder = TWSupportFolders::undoDirectory();
    const QString home = QDir::homePath() + u'/';
    return folder.startsWith(home) ? QStringLiteral("~/") + folder.mid(home.size()) : folder;
}

} // namespace

Command undoCommand() {
    return {QStringLiteral("undo"),
            QStringLiteral("undo the last in-place change"),
            {QStringLiteral("[OPTIONS]")},
            QStringLiteral("Puts back the files that the last command or workflow replaced in place, and\n"
                           "prints their paths. Repeat to go further back; 'clipwright redo' brings the\n"
                           "changes back. The replaced versions are kept in the undo folder (%1).\n"
                           "A step is switched whole or not at all: when a file was changed by another\n"
                           "program since, is gone, or is being changed by a run, nothing is changed\n"
                           "and each such file is named (see --force). An undo or redo that was\n"
                           "interrupted is finished by the next undo, redo or in-place run.\n")
                .arg(undoFolder()),
            {flag(QStringLiteral("list"),
                  QStringLiteral("show the steps newest first, each with its action, time and files with "
                                 "the size of their kept copies, and change nothing"),
                  u'l'),
             forceFlag()},
            {},
            [](const Arguments& arguments, Context& context) {
                if (!arguments.operands.isEmpty())
                    return usageError(context, QStringLiteral("undo"), "takes no files");
                if (arguments.has(QStringLiteral("list"))) return listSteps(context);
                return switchStep(context, true, arguments.has(QStringLiteral("force")));
            }};
}

Command redoCommand() {
    return {QStringLiteral("redo"),
            QStringLiteral("redo the change last undone"),
            {QStringLiteral("[OPTIONS]")},
            QStringLiteral("Replaces the files again with the versions that 'clipwright undo' put aside,\n"
                           "and prints their paths.\n"),
            {forceFlag()},
            {},
            [](const Arguments& arguments, Context& context) {
                if (!arguments.operands.isEmpty())
                    return usageError(context, QStringLiteral("redo"), "takes no files");
                return switchStep(context, false, arguments.has(QStringLiteral("force")));
            }};
}

Command flushUndoCommand() {
    return {
        QStringLiteral("flush-undo"),
        QStringLiteral("delete the kept earlier versions of files"),
        {QStringLiteral("[OPTIONS]")},
        QStringLiteral("Empties the undo folder: the earlier versions of every file changed in place are\n"
                       "deleted, and nothing done so far can be undone. Asks first on a terminal,\n"
                       "where Return answers No; elsewhere it needs --yes.\n"),
        {flag(QStringLiteral("yes"), QStringLiteral("do not ask first"), u'y')},
        {},
        [](const Arguments& arguments, Context& context) {
            if (!arguments.operands.isEmpty())
                return usageError(context, QStringLiteral("flush-undo"), "takes no files");
            const bool ask = !arguments.has(QStringLiteral("yes"));
            if (ask && ::isatty(STDIN_FILENO) != 1)
                return usageError(context, QStringLiteral("flush-undo"),
                                  "needs --yes when not run from a terminal");
            const bool flushed = context.session.runs().flushUndoWithInteraction(ask);
            if (!flushed) return fail(context, "the undo folder was left as it was");
            if (!context.isQuiet()) context.err << "The undo folder is empty." << Qt::endl;
            return kSuccess;
        }};
}

} // namespace TWCommandLine
