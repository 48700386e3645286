// clipwright undo / redo: the in-place runs of earlier invocations, from the undo journal on disk.

#include "shell/cli/TWCommandLine.h"

#include "engine/TWUndoJournal.h"

#include "engine/TWRunController.h"
#include "platform/TWSupportFolders.h"
#include "shell/TWSession.h"

#include <QDir>

#include <unistd.h>

namespace TWCommandLine {

namespace {

int switchStep(Context& context, bool undo) {
    TWUndoJournal& journal = context.session.journal();
    const std::optional<TWUndoJournal::Step> step = undo ? journal.lastDoneStep() : journal.firstUndoneStep();
    if (!step)
        return fail(context, undo ? QStringLiteral("there is nothing to undo")
                                  : QStringLiteral("there is nothing to redo"));
    QStringList paths;
    const LXStatus switched =
        journal.switchStep(step->id, [&paths](const TWSaveInfo& record) { paths += record.currentPaths(); });
    if (!switched) return fail(context, switched.error().description());
    if (!context.isQuiet())
        context.err << (undo ? "Undid " : "Redid ") << '\'' << step->actionName << "' on "
                    << step->records.size() << (step->records.size() == 1 ? " file" : " files") << Qt::endl;
    for (const QString& path : paths)
        context.out << path << '\n';
    return kSuccess;
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
                           "changes back. The replaced versions are kept in the undo folder (%1).\n")
                .arg(undoFolder()),
            {},
            {},
            [](const Arguments& arguments, Context& context) {
                if (!arguments.operands.isEmpty())
                    return usageError(context, QStringLiteral("undo"), "takes no files");
                return switchStep(context, true);
            }};
}

Command redoCommand() {
    return {QStringLiteral("redo"),
            QStringLiteral("redo the change last undone"),
            {QStringLiteral("[OPTIONS]")},
            QStringLiteral("Replaces the files again with the versions that 'clipwright undo' put aside,\n"
                           "and prints their paths.\n"),
            {},
            {},
            [](const Arguments& arguments, Context& context) {
                if (!arguments.operands.isEmpty())
                    return usageError(context, QStringLiteral("redo"), "takes no files");
                return switchStep(context, false);
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
