// clipwright actions: every action with its name, keys, required keys and defaults.

#include "shell/cli/TWActionCommands.h"

#include "engine/TWActionRegistry.h"

namespace TWCommandLine {

Command actionsCommand() {
    return {QStringLiteral("actions"),
            QStringLiteral("list the actions and their options"),
            {QStringLiteral("[OPTIONS]")},
            QStringLiteral("Lists each action command with its name, its options (the action's instruction\n"
                           "keys, as workflow files spell them), which are required and their defaults.\n"),
            {},
            {},
            [](const Arguments& arguments, Context& context) {
                if (!arguments.operands.isEmpty())
                    return usageError(context, QStringLiteral("actions"), "takes no arguments");
                QStringList unavailable;
                for (const ActionCommand& command : actionCommands()) {
                    const std::unique_ptr<TWAction> action = TWActionRegistry::make(command.className);
                    if (!action) {
                        unavailable.append(command.name);
                        continue;
                    }
                    context.out << command.name << " (" << action->name() << ", " << action->className()
                                << ")\n";
                    const QString keys = describeOptions(keyOptions(command.className));
                    context.out << (keys.isEmpty() ? QStringLiteral("  no options of its own\n") : keys);
                    const QStringList required = action->requiredInstructionKeys();
                    context.out << "  required: "
                                << (required.isEmpty() ? QStringLiteral("none") : required.join(", "))
                                << "\n\n";
                }
                if (!unavailable.isEmpty())
                    context.out << "Not available yet: " << unavailable.join(", ") << '\n';
                return kSuccess;
            }};
}

} // namespace TWCommandLine
