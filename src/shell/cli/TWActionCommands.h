#pragma once

#include "shell/cli/TWCommandLine.h"

// One command per script command of the actions: "change-gain", "normalize", "fade-in" ...
namespace TWCommandLine {

struct ActionCommand {
    QString name;      // "fade-in"
    QString className; // the action it runs; for a command that chooses, the first choice
    // Commands that choose their action by which of two options is given, tested in this order.
    QString firstOption, secondOption, secondClassName;
    QString missingChoiceMessage;
    QString examples; // lines of --help after the options, when the options alone do not show the use
};

const QList<ActionCommand>& actionCommands();
// The Command for each of them, for the command list.
QList<Command> actionCommandList();
// An action's keys as options, each with its help, whether it is required, its default and its range,
// for --help and `clipwright actions`.
QList<Option> keyOptions(const QString& className);

} // namespace TWCommandLine
