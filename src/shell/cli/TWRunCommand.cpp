// clipwright run: a workflow file (or a workflow of the library, by title) over files; clipwright
// workflows: the library's workflows.

#include "shell/TWSession.h"
#include "shell/cli/TWCommandLine.h"
#include "shell/cli/TWRunner.h"

#include "engine/TWActionRegistry.h"
#include "engine/TWRunController.h"
#include "engine/TWWorkflowFile.h"
#include "engine/TWWorkflowLibrary.h"
#include "model/TWWorkspace.h"

#include "lx/LXFile.h"

namespace TWCommandLine {

namespace {

// A path to a workflow file, or the title of a workflow in the library (user workflows first).
std::optional<QVariantList> findWorkflow(const QString& argument, Context& context) {
    if (LXFile::existsAtPath(LXFile::conformPath(argument))) {
        TWWorkflow workflow = TWWorkflowFile::read(LXFile::conformPath(argument));
        if (!workflow.message.isEmpty()) {
            fail(context, workflow.message);
            return std::nullopt;
        }
        for (const QString& skipped : workflow.skippedClasses)
            context.err << "clipwright: skipping an action this version does not know ("
                        << (skipped.isEmpty() ? QStringLiteral("no class") : skipped) << ")" << Qt::endl;
        return workflow.state();
    }
    const TWWorkflowLibrary library(context.session.runs().context().preferences);
    for (TWWorkflowLibrary::Group group : {TWWorkflowLibrary::User, TWWorkflowLibrary::Factory})
        for (const TWWorkflowLibrary::Item& item : library.group(group).items)
            if (item.title == argument) return item.workflow;
    fail(context, QStringLiteral("'%1' is neither a workflow file nor a workflow in the library "
                                 "(see 'clipwright workflows')")
                      .arg(argument));
    return std::nullopt;
}

int runWorkflow(const Arguments& arguments, Context& context) {
    const QStringList& operands = arguments.operands;
    if (operands.size() < 2)
        return usageError(context, QStringLiteral("run"), "needs a workflow and at least one file");
    const std::optional<QVariantList> states = findWorkflow(operands.first(), context);
    if (!states) return kCommandFailed;
    const QVariantList instructions = TWWorkflowFile::instructionsFromStates(*states);
    if (instructions.isEmpty()) return fail(context, "the workflow has no action this version can run");

    QList<TWFileReport> refused;
    TWWorkspace& workspace = context.session.workspace();
    TWRunner::addFiles(workspace, operands.mid(1), refused, arguments.has(QStringLiteral("accept-reencode")));
    if (!refused.isEmpty() && !arguments.has(QStringLiteral("keep-going")))
        return TWRunner::refuse(context, refused);
    // The files are the selection (source 1) and all the entries (source 0).
    workspace.setSelectedEntries(workspace.entries());

    return TWRunner::conclude(context,
                              TWRunner::run(context, instructions, runOptionsFrom(arguments), refused));
}

int listWorkflows(const Arguments& arguments, Context& context) {
    if (!arguments.operands.isEmpty())
        return usageError(context, QStringLiteral("workflows"), "takes no files");
    const TWWorkflowLibrary library(context.session.runs().context().preferences);
    if (arguments.has(QStringLiteral("names"))) {
        for (const TWWorkflowLibrary::Item& group : library.groups())
            for (const TWWorkflowLibrary::Item& item : group.items)
                context.out << item.title << '\n';
        return kSuccess;
    }
    for (const TWWorkflowLibrary::Item& group : library.groups()) {
        context.out << group.title << (group.items.isEmpty() ? QStringLiteral(" (none)") : QString()) << '\n';
        for (const TWWorkflowLibrary::Item& item : group.items) {
            QStringList names;
            for (const QVariant& state : item.workflow) {
                // An action this version lacks is named by its class.
                const QString className = state.toMap().value(QStringLiteral("class")).toString();
                const std::unique_ptr<TWAction> action = TWActionRegistry::make(className);
                names.append(action ? action->name() : QString(className).remove(QStringLiteral("TWAction")));
            }
            context.out << "  " << item.title.leftJustified(32) << ' ' << names.join(QStringLiteral(", "));
            if (!item.problem.isEmpty()) context.out << "  (" << item.problem << ')';
            context.out << '\n';
        }
    }
    context.out << "\nUser workflows live in " << library.userDirectory() << '\n';
    return kSuccess;
}

} // namespace

Command runCommand() {
    return {
        QStringLiteral("run"),
        QStringLiteral("run a workflow over files"),
        {QStringLiteral("[OPTIONS] WORKFLOW FILE...")},
        QStringLiteral("Runs a workflow over the files (and the audio files in folders): WORKFLOW is a\n"
                       "workflow file (.twwf) or the title of a workflow in the library (see\n"
                       "'clipwright workflows'). The files are both the selection and the whole list, so\n"
                       "actions whose source is the selection or all files process them; each action's\n"
                       "results go to the next. Prints the paths the actions produced, one a line.\n"),
        runOptions(),
        QStringLiteral("In a dry run each action is described on the files as they are, not on what the\n"
                       "actions before it would have made of them.\n\n"
                       "Ctrl-C stops after the current file; a second Ctrl-C cancels and puts back the\n"
                       "files the running action replaced. In-place changes can be undone with\n"
                       "'clipwright undo' (one step per action). Exit status: 0 done, 3 some files\n"
                       "skipped (--keep-going), 8 failed, 2 usage error.\n"),
        runWorkflow};
}

Command workflowsCommand() {
    return {
        QStringLiteral("workflows"),
        QStringLiteral("list the factory and user workflows"),
        {QStringLiteral("[OPTIONS]")},
        QStringLiteral("Lists the workflows of the library, factory and user, with their actions.\n"
                       "A user workflow is any .twwf file in the folder named at the end.\n"),
        {flag(QStringLiteral("names"), QStringLiteral("only the titles, one a line, as 'run' takes them"))},
        {},
        listWorkflows};
}

} // namespace TWCommandLine
