#include "engine/TWCombiningAction.h"

#include "engine/TWActionRun.h"

#include "model/TWFileEntry.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"

void TWCombiningAction::gatherFromAudioFile(LXAudioFile&, const TWFileEntry&, LXAudioFileWriter&) {}

LXResult<std::unique_ptr<LXAudioFile>> TWCombiningAction::openInput(const TWFileEntryPtr& entry) {
    auto opened = LXAudioFile::open(entry->path());
    if (opened) (*opened)->setProgressDelegate(entry.get());
    return opened;
}

std::optional<TWActionError> TWCombiningAction::processEntries(TWRunController& runs,
                                                               const QList<TWFileEntryPtr>& entries,
                                                               const QVariantMap& instructions,
                                                               QList<TWFileEntryPtr>& results) {
    TWActionRun run(*this, runs, instructions);
    if (auto error = run.confirm(entries.mid(0, 1), true)) return error;
    if (run.options().dryRun) {
        run.reportUntried(entries, results);
        return std::nullopt;
    }
    run.sweepTemporaryFiles(entries.mid(0, 1));

    run.willProcess(1); // the whole run is one step
    TWOutcome outcome = preProcessWithEntries(entries, instructions);
    QList<TWFileEntryPtr> inputs;
    if (outcome.goesOn()) {
        std::vector<std::unique_ptr<TWBusyEntry>> busy; // until the output is saved or discarded
        LXAudioFileWriter writer;
        for (const TWFileEntryPtr& entry : entries) {
            auto opened = openInput(entry);
            if (!opened) continue;
            inputs.append(entry);
            busy.push_back(std::make_unique<TWBusyEntry>(*entry));
            run.willProcessEntry(entry);
            gatherFromAudioFile(**opened, *entry, writer);
        }
        if (!inputs.isEmpty()) {
            setUpWriter(inputs, writer);
            writer.setDirectory(run.folderFor(*inputs.first()));
            outcome = run.stopRequested();
            if (outcome.goesOn()) outcome = combine(inputs, instructions, writer);
            if (outcome.goesOn()) {
                auto made = run.newEntryFromSource(writer, inputs.first());
                if (made)
                    results.append(*made);
                else
                    outcome = made.error();
            }
            if (!outcome.goesOn()) writer.deleteOutput();
        }
    }
    for (const TWFileEntryPtr& entry : std::as_const(inputs))
        run.didProcessEntry(entry);
    run.didProcess(results);
    postProcess();
    return TWActionRun::errorFor(outcome, processingPhase());
}
