#include "shell/cli/TWCommandLine.h"

#include "shell/cli/TWActionCommands.h"

#include <QCoreApplication>

namespace TWCommandLine {

const QList<Command>& commands() {
    static const QList<Command> list = [] {
        QList<Command> all = {infoCommand(),    findCommand(), runCommand(),  workflowsCommand(),
                              actionsCommand(), undoCommand(), redoCommand(), flushUndoCommand()};
        all += actionCommandList();
        return all;
    }();
    return list;
}

int fail(Context& context, const QString& message, int status) {
    context.err << "clipwright: " << message << Qt::endl;
    return status;
}

int usageError(Context& context, const QString& command, const QString& message) {
    context.err << "clipwright " << command << ": " << message << Qt::endl
                << "Try 'clipwright " << command << " --help'." << Qt::endl;
    return kUsageError;
}

namespace {

void printOverview(QTextStream& out) {
    out << "Usage: clipwright COMMAND [OPTIONS] [FILE...]\n\n"
           "Manages and batch-processes audio files. Each command has its own --help.\n\n"
           "Commands:\n";
    QStringList unavailable;
    for (const Command& command : commands()) {
        if (command.available)
            out << "  " << command.name.leftJustified(26) << command.summary << '\n';
        else
            unavailable.append(command.name);
    }
    if (!unavailable.isEmpty()) {
        out << "\nNot available in this version:\n ";
        int column = 1;
        for (const QString& name : unavailable) {
            if (column + name.size() + 1 > 80) {
                out << "\n ";
                column = 1;
            }
            out << ' ' << name;
            column += int(name.size()) + 1;
        }
        out << '\n';
    }
    out << "\nOptions:\n"
           "  --help      show this text, or a command's help after the command\n"
           "  --version   show the version\n";
}

} // namespace

int run(const TWSession& session, const QStringList& arguments) {
    QTextStream out(stdout);
    QTextStream err(stderr);
    Context context{session, out, err};
    if (arguments.isEmpty() || arguments.first() == u"--help" || arguments.first() == u"-h" ||
        arguments.first() == u"help") {
        const QString topic = arguments.value(1);
        for (const Command& command : commands())
            if (command.name == topic) {
                out << command.help;
                return kSuccess;
            }
        printOverview(arguments.isEmpty() ? err : out);
        return arguments.isEmpty() ? kUsageError : kSuccess;
    }
    if (arguments.first() == u"--version") {
        out << "clipwright " << QCoreApplication::applicationVersion() << '\n';
        return kSuccess;
    }
    for (const Command& command : commands()) {
        if (command.name != arguments.first()) continue;
        const QStringList rest = arguments.mid(1);
        if (rest.contains(QStringLiteral("--help")) || rest.contains(QStringLiteral("-h"))) {
            out << command.help;
            return kSuccess;
        }
        return command.run(rest, context);
    }
    err << "clipwright: '" << arguments.first() << "' is not a command." << Qt::endl;
    printOverview(err);
    return kUsageError;
}

} // namespace TWCommandLine
