#include "engine/TWDescriptiveAction.h"

#include "engine/TWActionRun.h"
#include "engine/TWFileLocks.h"
#include "engine/TWFileReport.h"
#include "engine/TWWriterSaving.h"

#include "model/TWFileEntry.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/LXAudioFormat.h"

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
    m_run = &run;

    run.willProcess(entries.size());
    TWOutcome outcome = preProcessWithEntries(entries, instructions);
    QVariantList undo;
    for (const TWFileEntryPtr& entry : entries) {
        if (!outcome.goesOn()) break;
        TWFileReport report;
        report.input = entry->path();
        const qsizetype undoBefore = undo.size(), resultsBefore = results.size();
        {
            TWBusyEntry busy(*entry);
            run.willProcessEntry(entry);
            outcome = changeEntry(entry, instructions, undo, results);
        }
        run.didProcessEntry(entry);
        for (qsizetype i = resultsBefore; i < results.size(); ++i)
            report.outputs.append(results.at(i)->path());
        report.outputs.removeDuplicates();
        report.note = outcome.note();
        const bool changed = undo.size() > undoBefore ||
                             std::any_of(report.outputs.cbegin(), report.outputs.cend(),
                                         [&report](const QString& path) { return path != report.input; });
        report.outcome = changed ? TWFileReport::Outcome::Changed : TWFileReport::Outcome::Unchanged;
        if (m_skipped) {
            report.outcome = TWFileReport::Outcome::Skipped;
            report.note = std::exchange(m_skipped, std::nullopt)->description();
        }
        if (outcome.kind() == TWOutcome::Kind::Unchanged) outcome = TWOutcome::success();
        if (!outcome.goesOn()) {
            // A file whose change failed is left as it was, like the files after it unless asked to go on.
            switch (outcome.kind()) {
            case TWOutcome::Kind::Stopped:
                report.outcome = TWFileReport::Outcome::Stopped;
                break;
            case TWOutcome::Kind::Cancelled:
                report.outcome = TWFileReport::Outcome::Cancelled;
                break;
            default:
                report.outcome = skipsFailedFiles() || run.options().keepGoing ? TWFileReport::Outcome::Skipped
                                                                               : TWFileReport::Outcome::Failed;
            }
            report.note = TWActionRun::errorFor(outcome, processingPhase())->failureReason();
            if (report.outcome == TWFileReport::Outcome::Skipped) outcome = TWOutcome::success();
        }
        run.reportFile(report);
        if (outcome.goesOn()) outcome = run.stopRequested();
    }
    run.didProcess(results, {}, undo, outcome.kind() == TWOutcome::Kind::Cancelled);
    postProcess();
    m_run = nullptr;
    return TWActionRun::errorFor(outcome, processingPhase());
}

TWOutcome TWDescriptiveAction::skip(const LXError& why) {
    m_skipped = why;
    return TWOutcome::unchanged();
}

TWOutcome TWDescriptiveAction::saveMetadata(LXAudioFile& file, const LXMetadata& metadata) {
    LXAudioFileWriter writer(file);
    QStringList keys = metadata.keys() + file.metadata().keys();
    keys.removeDuplicates();
    for (const QString& key : keys)
        if (metadata.value(key) != file.metadata().value(key) && !writer.canHold(key))
            return LXError(LXErrUnsupported,
                           QStringLiteral("%1 files have no place for %2")
                               .arg(LXFormat::name(file.format()), LXMetadata::titleForKey(key)),
                           file.path());
    LX_TRY(TWExtension::checkInPlace(file));
    TWFileLocks locks;
    if (!locks.tryLock(file.path()))
        return LXError(LXErrWriteFailed, QStringLiteral("a clipwright run is changing it now"), file.path());
    writer.metadata() = metadata;
    const bool samples = LXFormat::isNative(file.format()) && file.description().codec == LXCodec::None;
    if (samples) {
        LX_TRY(file.copyToWriter(writer));
        LX_TRY(writer.endWrite());
    } else {
        LX_TRY(writer.copyVerbatim(file));
    }
    const auto saved = TWExtension::saveInPlaceOf(writer, file, false, run().context().interaction);
    if (!saved) return saved.error();
    if (!*saved) return TWOutcome::cancelled();
    run().repointEntries(file.path(), file.path());
    return TWOutcome::success();
}
