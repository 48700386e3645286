#pragma once

#include "shell/cli/TWOptions.h"
#include "shell/cli/TWRunner.h"

#include <QString>
#include <QStringList>
#include <QTextStream>

#include <functional>

class TWSession;

// The `clipwright` command line: one command per action and per model query, each with its own --help.
// Exit status: 0 on success, 8 when a command failed, 2 for a usage error, 3 when a run went on past
// files it could not process (--keep-going).
namespace TWCommandLine {

constexpr int kSuccess = 0;
constexpr int kUsageError = 2;
constexpr int kSomeSkipped = 3;
constexpr int kCommandFailed = 8;

struct Context {
    const TWSession& session;
    QTextStream& out;
    QTextStream& err;
    TWRunner::Verbosity verbosity = TWRunner::Verbosity::Normal;
    bool isQuiet() const { return verbosity == TWRunner::Verbosity::Quiet; }
};

struct Command {
    QString name;
    QString summary;       // one line for the command list
    QStringList usage;     // what follows "clipwright NAME" on each usage line
    QString description;   // the paragraphs of --help before the options
    QList<Option> options; // the command's own; every command also takes commonOptions()
    QString notes;         // the paragraphs after the options
    std::function<int(const Arguments& arguments, Context& context)> run;
    bool available = true; // false: listed apart, its action is not built yet
};

// Runs the command named by the first argument; arguments exclude the program's name.
int run(const TWSession& session, const QStringList& arguments);

// The commands, in the order `clipwright --help` lists them.
const QList<Command>& commands();

// The program itself: its usage, description, own options (--help, --version, ...) and notes.
const Command& program();
// --help, --quiet and --verbose, which every command takes after its own options.
const QList<Option>& commonOptions();
// --keep-going, --dry-run and --report FILE, which the commands that run actions take among their own.
const QList<Option>& runOptions();
TWRunner::Options runOptionsFrom(const Arguments& arguments);
// The whole --help text of a command.
QString helpText(const Command& command);

// The manual page, in man(7) roff, written from the same tables as --help.
QString manualPage();
// The completion script for "bash" or "zsh", written from the same tables; empty for another shell.
QString completionScript(const QString& shell);

// For commands: "clipwright: <message>" on stderr, then the status to return.
int fail(Context& context, const QString& message, int status = kCommandFailed);
int usageError(Context& context, const QString& command, const QString& message);

Command infoCommand();
Command findCommand();
Command actionsCommand();
Command pluginsCommand();
Command undoCommand();
Command redoCommand();
Command flushUndoCommand();
Command runCommand();
Command workflowsCommand();

} // namespace TWCommandLine
