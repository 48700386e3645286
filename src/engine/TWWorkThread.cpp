#include "engine/TWWorkThread.h"

#include "engine/TWAction.h"
#include "engine/TWActionRegistry.h"
#include "engine/TWHandOver.h"

#include "model/TWFileEntry.h"
#include "model/TWWorkspace.h"
#include "platform/TWPreferences.h"

namespace {

void toMainThread(std::function<void()> work) {
    TWHandOver(&TWWorkspace::workspace(), std::move(work));
}

} // namespace

std::optional<TWActionError> TWWorkThread::run(const TWRunRequest& request) {
    QList<TWFileEntryPtr> results;
    std::optional<TWActionError> error;
    for (qsizetype i = 0; i < request.instructions.size() && !error; ++i) {
        const QVariantMap instructions = request.instructions.at(i).toMap();
        QList<TWFileEntryPtr> input;
        switch (instructions.value(QStringLiteral("source"), 1).toInt()) {
        case 0:
            input = request.fileEntries;
            break;
        case 1:
            input = request.selection;
            break;
        case 2:
            input = results;
            break; // empty for the first action
        case 3:
            input = request.pathEntries.value(i);
            break;
        default:
            break;
        }
        results.clear();
        std::unique_ptr<TWAction> action =
            TWActionRegistry::make(instructions.value(QStringLiteral("class")).toString());
        if (!action || input.isEmpty()) continue;
        if (request.respectActive && !instructions.value(QStringLiteral("active"), true).toBool()) {
            results = input; // an inactive action hands its input on unchanged
            continue;
        }
        action->setInstructions(instructions);
        error = action->processEntries(input, instructions, results);
    }
    return error;
}

void TWWorkThread::performInstructions(const TWRunRequest& request) {
    // The stop code is reset here, on the thread that reads it: the main thread's beginProcess may arrive
    // after the first file is under way, and a reset there would wipe out a stop asked for meanwhile.
    TWWorkspace::workspace().setStopWorking(LXContinue);
    toMainThread([] { TWWorkspace::workspace().beginProcess(); });
    const std::optional<TWActionError> error = run(request);
    TWWorkspace::workspace().setStopWorking(LXContinue);
    std::optional<LXError> reported;
    QString description;
    if (error) {
        reported = *error;
        description = error->localizedDescription();
    }
    toMainThread([reported, description] { TWWorkspace::workspace().endProcess(reported, description); });
    const TWPreferences& preferences = TWPreferences::shared();
    if (preferences.boolValue(QStringLiteral("Disable Previews After Process")))
        toMainThread([] { TWWorkspace::workspace().disablePreviews(); });
    if (preferences.boolValue(QStringLiteral("Remove All After Process")))
        toMainThread([] { TWWorkspace::workspace().removeAll(); });
}

void TWWorkThread::analyzeEntries(const QList<TWFileEntryPtr>& entries) {
    TWWorkspace::workspace().setStopWorking(LXContinue);
    toMainThread([] { TWWorkspace::workspace().beginProcess(); });
    const QVariantMap info{{QStringLiteral("title"), QStringLiteral("Analyzing...")},
                           {QStringLiteral("maximum"), qint64(entries.size())}};
    toMainThread([info] { TWWorkspace::workspace().willProcessWithAction(info); });
    for (const TWFileEntryPtr& entry : entries) {
        toMainThread([entry] { TWWorkspace::workspace().willProcessEntry(entry); });
        if (!entry->analyze()) break;
        toMainThread([entry] { TWWorkspace::workspace().didProcessEntry(entry); });
    }
    TWWorkspace::workspace().setStopWorking(LXContinue);
    toMainThread([] {
        TWWorkspace& workspace = TWWorkspace::workspace();
        workspace.didProcessWithAction({});
        workspace.endAnalysis();
    });
}
