#include "engine/TWHandOnAction.h"

#include "engine/TWActionRun.h"

#include "model/TWFileEntry.h"

#include "lx/LXAudioFile.h"

QStringList TWHandOnAction::filesOf(const TWFileEntry& entry) {
    const auto file = LXAudioFile::open(entry.path());
    return file ? (*file)->paths() : QStringList{entry.path()};
}

TWOutcome TWHandOnAction::handOnEntry(const TWFileEntryPtr&, const QVariantMap&) {
    return TWOutcome::success();
}

TWOutcome TWHandOnAction::handOnEntries(const QList<TWFileEntryPtr>&, const QVariantMap&) {
    return TWOutcome::success();
}

std::optional<TWActionError> TWHandOnAction::processEntries(TWRunController& runs,
                                                            const QList<TWFileEntryPtr>& entries,
                                                            const QVariantMap& instructions,
                                                            QList<TWFileEntryPtr>& results) {
    TWActionRun run(*this, runs, instructions);
    if (auto error = run.confirm(entries, false)) return error;
    if (run.options().dryRun) {
        run.reportUntried(entries, results);
        return std::nullopt;
    }

    results.append(entries);
    m_run = &run;
    TWOutcome outcome;
    if (handsOnTogether()) {
        run.willProcess(1);
        outcome = preProcessWithEntries(entries, instructions);
        if (outcome.goesOn()) {
            {
                std::vector<std::unique_ptr<TWBusyEntry>> busy;
                for (const TWFileEntryPtr& entry : entries) {
                    busy.push_back(std::make_unique<TWBusyEntry>(*entry));
                    run.willProcessEntry(entry);
                }
                outcome = handOnEntries(entries, instructions);
            }
            for (const TWFileEntryPtr& entry : entries)
                run.didProcessEntry(entry);
        }
    } else {
        run.willProcess(entries.size());
        outcome = preProcessWithEntries(entries, instructions);
        for (const TWFileEntryPtr& entry : entries) {
            if (!outcome.goesOn()) break;
            {
                TWBusyEntry busy(*entry);
                run.willProcessEntry(entry);
                outcome = handOnEntry(entry, instructions);
            }
            run.didProcessEntry(entry);
            if (outcome.goesOn()) outcome = run.stopRequested();
        }
    }
    run.didProcess(results);
    postProcess();
    m_run = nullptr;
    return TWActionRun::errorFor(outcome, processingPhase());
}
