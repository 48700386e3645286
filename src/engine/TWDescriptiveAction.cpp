#include "engine/TWDescriptiveAction.h"

#include "engine/TWActionRun.h"

#include "model/TWFileEntry.h"

std::optional<TWActionError> TWDescriptiveAction::processEntries(TWRunController& runs,
                                                                 const QList<TWFileEntryPtr>& entries,
                                                                 const QVariantMap& instructions,
                                                                 QList<TWFileEntryPtr>& results) {
    TWActionRun run(*this, runs, instructions);
    if (auto error = run.confirm(entries, false)) return error;
    if (run.options().dryRun) {
        run.reportUntried(entries, results);
        return std::nullopt;
    }

    run.willProcess(entries.size());
    TWOutcome outcome = preProcessWithEntries(entries, instructions);
    QVariantList undo;
    for (const TWFileEntryPtr& entry : entries) {
        if (!outcome.goesOn()) break;
        {
            TWBusyEntry busy(*entry);
            run.willProcessEntry(entry);
            outcome = changeEntry(entry, instructions, undo, results);
        }
        run.didProcessEntry(entry);
        if (outcome.goesOn()) outcome = run.stopRequested();
    }
    run.didProcess(results, {}, undo, outcome.kind() == TWOutcome::Kind::Cancelled);
    postProcess();
    return TWActionRun::errorFor(outcome, processingPhase());
}
