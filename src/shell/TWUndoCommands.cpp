// clipwright undo / redo: the in-place runs of earlier invocations, from the undo journal on disk.

#include "TWCommandLine.h"

#include "TWUndoJournal.h"

namespace TWCommandLine {

namespace {

int switchStep(Context& context, bool undo) {
    TWUndoJournal& journal = TWUndoJournal::shared();
    const std::optional<TWUndoJournal::Step> step = undo ? journal.lastDoneStep() : journal.firstUndoneStep();
    if (!step) return fail(context, undo ? QStringLiteral("there is nothing to undo") : QStringLiteral("there is nothing to redo"));
    QStringList paths;
    const LXStatus switched =
        journal.switchStep(step->id, [&paths](const TWSaveInfo& record) { paths += record.currentPaths(); });
    if (!switched) return fail(context, switched.error().description());
    context.err << (undo ? "Undid " : "Redid ") << '\'' << step->actionName << "' on " << step->records.size()
                << (step->records.size() == 1 ? " file" : " files") << Qt::endl;
    for (const QString& path : paths) context.out << path << '\n';
    return kSuccess;
}

} // namespace

Command undoCommand() {
    return {QStringLiteral("undo"), QStringLiteral("undo the last in-place change"),
            QStringLiteral("Usage: clipwright undo\n\n"
                           "Puts back the files that the last command or workflow replaced in place, and\n"
                           "prints their paths. Repeat to go further back; 'clipwright redo' brings the\n"
                           "changes back. The replaced versions are kept in the undo folder (%1).\n")
                .arg(TWUndoJournal::shared().path().section(u'/', 0, -2)),
            [](const QStringList& arguments, Context& context) {
                if (!arguments.isEmpty()) return usageError(context, QStringLiteral("undo"), "takes no arguments");
                return switchStep(context, true);
            }};
}

Command redoCommand() {
    return {QStringLiteral("redo"), QStringLiteral("redo the change last undone"),
            QStringLiteral("Usage: clipwright redo\n\n"
                           "Replaces the files again with the versions that 'clipwright undo' put aside,\n"
                           "and prints their paths.\n"),
            [](const QStringList& arguments, Context& context) {
                if (!arguments.isEmpty()) return usageError(context, QStringLiteral("redo"), "takes no arguments");
                return switchStep(context, false);
            }};
}

} // namespace TWCommandLine
