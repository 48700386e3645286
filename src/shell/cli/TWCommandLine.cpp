#include "shell/cli/TWCommandLine.h"

#include "shell/cli/TWActionCommands.h"

#include <QCoreApplication>

namespace TWCommandLine {

const QList<Command>& commands() {
    static const QList<Command> list = [] {
        QList<Command> all = {infoCommand(),    findCommand(), runCommand(),  workflowsCommand(),
                              actionsCommand(), pluginsCommand(), undoCommand(), redoCommand(), flushUndoCommand()};
        all += actionCommandList();
        return all;
    }();
    return list;
}

const QList<Option>& commonOptions() {
    static const QList<Option> options = {
        flag(QStringLiteral("help"), QStringLiteral("show the command's help"), u'h'),
        flag(QStringLiteral("quiet"), QStringLiteral("no progress bar and no messages but errors"), u'q'),
        flag(QStringLiteral("verbose"), QStringLiteral("say on stderr what is done to each file"), u'v'),
    };
    return options;
}

const QList<Option>& runOptions() {
    static const QList<Option> options = {
        flag(QStringLiteral("keep-going"),
             QStringLiteral("skip the files that cannot be read or processed, go on with the rest, list them "
                            "at the end and exit with status 3")),
        flag(QStringLiteral("accept-reencode"),
             QStringLiteral("rewrite files whose codec cannot be written back (MPEG Layer 2, say) in the "
                            "container's plain samples; without it such files are refused before anything "
                            "runs")),
        flag(QStringLiteral("dry-run"),
             QStringLiteral("say what each action would do to each file (the gain it would apply, the new "
                            "file's name, the samples that would clip) and write nothing")),
        valued(QStringLiteral("report"), QStringLiteral("FILE"),
               QStringLiteral("write a JSON line to FILE for each file and action: input, outputs, outcome, "
                              "peak and RMS before and after in dBFS, clipped samples, seconds")),
    };
    return options;
}

TWRunner::Options runOptionsFrom(const Arguments& arguments) {
    return {arguments.has(QStringLiteral("keep-going")), arguments.has(QStringLiteral("dry-run")),
            arguments.value(QStringLiteral("report")), arguments.has(QStringLiteral("accept-reencode"))};
}

QString helpText(const Command& command) {
    QString text;
    for (const QString& usage : command.usage)
        text += (text.isEmpty() ? QStringLiteral("Usage: ") : QStringLiteral("       ")) +
                QStringLiteral("clipwright %1 %2\n").arg(command.name, usage);
    text += u'\n' + command.description + QStringLiteral("\nOptions:\n") +
            describeOptions(command.options + commonOptions());
    if (!command.notes.isEmpty()) text += u'\n' + command.notes;
    return text;
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

const Command& program() {
    static const Command command{
        QStringLiteral("clipwright"),
        QStringLiteral("manage and batch-process audio files"),
        {QStringLiteral("COMMAND [OPTIONS] [FILE...]")},
        QStringLiteral("Manages and batch-processes audio files. Each command has its own --help.\n"),
        {flag(QStringLiteral("help"), QStringLiteral("show this text, or a command's help after the command"),
              u'h'),
         flag(QStringLiteral("version"), QStringLiteral("show the version")),
         flag(QStringLiteral("man"), QStringLiteral("write the manual page (roff) to stdout")),
         valued(QStringLiteral("completion"), QStringLiteral("SHELL"),
                QStringLiteral("write the completion script for bash or zsh to stdout: "
                               "eval \"$(clipwright --completion bash)\" in ~/.bashrc"))},
        QStringLiteral("Options and files may come in any order; '--' ends the options. A value may follow\n"
                       "its option or be joined to it: '--level -6' or '--level=-6'.\n"
                       "Exit status: 0 done, 8 a command failed, 2 a usage error, 3 a run skipped files\n"
                       "(--keep-going).\n"),
        {}};
    return command;
}

namespace {

void printOverview(QTextStream& out) {
    out << "Usage: clipwright " << program().usage.first() << "\n\n"
        << program().description << "\nCommands:\n";
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
    out << "\nOptions:\n" << describeOptions(program().options) << '\n' << program().notes;
}

const Command* commandNamed(const QString& name) {
    for (const Command& command : commands())
        if (command.name == name) return &command;
    return nullptr;
}

// clipwright --help [COMMAND], --version.
int runProgramOptions(const QStringList& arguments, Context& context) {
    QString error;
    const std::optional<Arguments> parsed = parseArguments(program().options, arguments, &error);
    if (!parsed) {
        context.err << "clipwright: " << error << Qt::endl << "Try 'clipwright --help'." << Qt::endl;
        return kUsageError;
    }
    if (parsed->has(QStringLiteral("help"))) {
        if (const Command* command = commandNamed(parsed->operands.value(0))) {
            context.out << helpText(*command);
            return kSuccess;
        }
        printOverview(context.out);
        return kSuccess;
    }
    if (parsed->has(QStringLiteral("man")) && parsed->operands.isEmpty()) {
        context.out << manualPage();
        return kSuccess;
    }
    if (parsed->has(QStringLiteral("completion")) && parsed->operands.isEmpty()) {
        const QString shell = parsed->value(QStringLiteral("completion"));
        const QString script = completionScript(shell);
        if (script.isEmpty()) {
            context.err << "clipwright: cannot complete for '" << shell << "': bash or zsh." << Qt::endl;
            return kUsageError;
        }
        context.out << script;
        return kSuccess;
    }
    if (parsed->has(QStringLiteral("version")) && parsed->operands.isEmpty()) {
        context.out << "clipwright " << QCoreApplication::applicationVersion() << '\n';
        return kSuccess;
    }
    context.err << "clipwright: the command comes first: clipwright COMMAND [OPTIONS] [FILE...]" << Qt::endl
                << "Try 'clipwright --help'." << Qt::endl;
    return kUsageError;
}

} // namespace

int run(const TWSession& session, const QStringList& arguments) {
    QTextStream out(stdout);
    QTextStream err(stderr);
    Context context{session, out, err};
    if (arguments.isEmpty()) {
        printOverview(err);
        return kUsageError;
    }
    if (arguments.first() == u"help")
        return runProgramOptions(QStringList{QStringLiteral("--help")} + arguments.mid(1), context);
    if (arguments.first().startsWith(u'-')) return runProgramOptions(arguments, context);
    const Command* command = commandNamed(arguments.first());
    if (!command) {
        err << "clipwright: '" << arguments.first() << "' is not a command." << Qt::endl;
        printOverview(err);
        return kUsageError;
    }
    QString error;
    const std::optional<Arguments> parsed =
        parseArguments(command->options + commonOptions(), arguments.mid(1), &error);
    if (parsed && parsed->has(QStringLiteral("help"))) {
        out << helpText(*command);
        return kSuccess;
    }
    if (!command->available)
        return fail(context, QStringLiteral("'%1' is not available in this version: its action has not been "
                                            "built yet.")
                                 .arg(command->name));
    if (!parsed) return usageError(context, command->name, error);
    for (const auto& [name, value] : parsed->options) // the last of them counts
        if (name == u"quiet" || name == u"verbose")
            context.verbosity = name == u"quiet" ? TWRunner::Verbosity::Quiet : TWRunner::Verbosity::Verbose;
    return command->run(*parsed, context);
}

} // namespace TWCommandLine
