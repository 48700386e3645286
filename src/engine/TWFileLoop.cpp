// The per-file loop: each file of the entries turns into outputs through the action's hooks, kept in
// place (with undo) or as new files. Every action of this shape shares it, exports included.
//
// A file goes through three steps. Opened: claimed and announced. Made: its levels measured and the
// action's outputs made (the heavy part). Kept: the outputs saved and the file reported. Opening and
// keeping happen on the run's thread in the entries' order, so undo, results and reports read as if the
// files were done one after another; making runs for as many files at once as there are cores when the
// action allows it, each file on a thread of its own, else in turn on the run's thread.

#include "engine/TWAction.h"
#include "engine/TWActionRun.h"
#include "engine/TWFileOutputs.h"

#include "model/TWFileEntry.h"

#include "lx/LXAudioFile.h"
#include "lx/LXProcess.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QThread>

#include <algorithm>
#include <deque>
#include <future>

namespace {

constexpr int kMostFilesAtOnce = 4; // beyond this, the disk rather than the cores sets the pace

TWFileReport::Outcome reportedOutcome(TWOutcome::Kind kind) {
    switch (kind) {
    case TWOutcome::Kind::Stopped:
        return TWFileReport::Outcome::Stopped;
    case TWOutcome::Kind::Cancelled:
        return TWFileReport::Outcome::Cancelled;
    default:
        return TWFileReport::Outcome::Failed;
    }
}

// One file from its opening to its report.
struct TWFileJob {
    TWFileEntryPtr entry;
    QString identity; // the file itself, whatever link or second entry names it
    TWFileReport report;
    QElapsedTimer clock;
    std::unique_ptr<LXAudioFile> file; // none when it could not be claimed or opened
    std::optional<TWBusyEntry> busy;
    TWOutcome outcome; // of measuring and making
    std::vector<TWMade> made;
    std::future<void> making;
};

} // namespace

class TWFileLoop {
public:
    TWFileLoop(TWActionRun& run, TWFileOutputs& outputs, QList<TWFileEntryPtr>& results, qsizetype files)
        : m_run(run), m_action(run.action()), m_outputs(outputs), m_results(results),
          m_lanes(m_action.canProcessFilesConcurrently()
                      ? int(std::clamp<qsizetype>(QThread::idealThreadCount(), 1, std::min<qsizetype>(
                                                                                      files, kMostFilesAtOnce)))
                      : 1) {}

    TWOutcome run(const QList<TWFileEntryPtr>& entries, TWOutcome outcome) {
        std::deque<std::unique_ptr<TWFileJob>> inFlight;
        for (const TWFileEntryPtr& entry : entries) {
            // Room for one more file, and never one file twice at once: the second pass works on the first's
            // result (an entry listed twice, a link and its target).
            const QString identity = identityOf(entry->path());
            while (outcome.goesOn() && !inFlight.empty() &&
                   (int(inFlight.size()) >= m_lanes || holds(inFlight, identity))) {
                outcome = keep(*inFlight.front());
                inFlight.pop_front();
            }
            if (!outcome.goesOn()) break;
            inFlight.push_back(open(entry, identity));
            TWFileJob& job = *inFlight.back();
            if (!job.file) continue;
            if (m_lanes > 1)
                job.making = std::async(std::launch::async, [this, &job] { make(job); });
            else
                make(job);
        }
        // Files begun after the one that ended the run are left as they were, and not reported.
        for (; !inFlight.empty(); inFlight.pop_front()) {
            if (outcome.goesOn())
                outcome = keep(*inFlight.front());
            else
                drop(*inFlight.front());
        }
        return outcome;
    }

private:
    static QString identityOf(const QString& path) {
        const QString canonical = QFileInfo(path).canonicalFilePath();
        return canonical.isEmpty() ? path : canonical;
    }
    static bool holds(const std::deque<std::unique_ptr<TWFileJob>>& jobs, const QString& identity) {
        return std::any_of(jobs.begin(), jobs.end(), [&](const auto& job) { return job->identity == identity; });
    }

    std::unique_ptr<TWFileJob> open(const TWFileEntryPtr& entry, const QString& identity) {
        auto job = std::make_unique<TWFileJob>();
        job->clock.start();
        job->entry = entry;
        job->identity = identity;
        job->report.input = entry->path();
        const LXStatus claimed = m_outputs.claim(entry->path());
        auto opened = claimed ? LXAudioFile::open(entry->path())
                              : LXResult<std::unique_ptr<LXAudioFile>>(claimed.error());
        if (!opened) { // a file that cannot be opened (or changed now) gives nothing and ends nothing
            job->report.outcome = TWFileReport::Outcome::Skipped;
            job->report.note = opened.error().description();
            return job;
        }
        job->file = std::move(*opened);
        job->file->setProgressDelegate(entry.get());
        job->busy.emplace(*entry);
        m_run.willProcessEntry(entry);
        return job;
    }

    // On any thread: touches only the job, the file's entry and what the outputs allow.
    void make(TWFileJob& job) {
        LXAudioFile& file = *job.file;
        if (m_run.options().measureLevels) {
            LXSignalMeter before(file.encoding());
            job.outcome = LXMeasure(file, before, 0, file.frames(), file.channelSet());
            if (job.outcome.goesOn()) job.report.before = before;
        }
        const int count = job.outcome.goesOn()
                              ? m_action.numberOfNewEntriesForAudioFile(file, *job.entry, m_run.instructions())
                              : 0;
        for (int index = 0; index < count; ++index) {
            TWMade made = m_outputs.make(file, *job.entry, *job.busy, index, job.report);
            if (!made.outcome.goesOn() && made.outcome.kind() != TWOutcome::Kind::Unchanged) {
                job.outcome = made.outcome;
                break;
            }
            job.made.push_back(std::move(made));
        }
    }

    TWOutcome keep(TWFileJob& job) {
        if (job.making.valid()) job.making.get();
        TWFileReport& report = job.report;
        if (!job.file) {
            m_run.reportFile(report);
            return TWOutcome::success();
        }
        TWOutcome outcome;
        for (TWMade& made : job.made) {
            outcome = m_outputs.keep(*job.file, job.entry, made, m_results, report);
            if (!outcome.goesOn()) break;
        }
        if (outcome.goesOn()) outcome = job.outcome;
        release(job);
        if (!outcome.goesOn()) {
            report.outcome = reportedOutcome(outcome.kind());
            report.note = TWActionRun::errorFor(outcome, TWActionPhase::ProcessingFiles)->failureReason();
            if (outcome.kind() == TWOutcome::Kind::Failed && m_run.options().keepGoing) {
                report.outcome = TWFileReport::Outcome::Skipped;
                outcome = TWOutcome::success();
            }
        }
        report.seconds = double(job.clock.nsecsElapsed()) / 1e9;
        m_run.reportFile(report);
        if (outcome.goesOn()) outcome = m_run.stopRequested(); // also between files that needed no work
        return outcome;
    }

    // A file begun while another ended the run: what was made for it goes, unkept.
    void drop(TWFileJob& job) {
        if (job.making.valid()) job.making.get();
        if (job.file) release(job);
    }

    void release(TWFileJob& job) {
        job.made.clear();
        job.busy.reset();
        job.file.reset();
        m_run.didProcessEntry(job.entry);
    }

    TWActionRun& m_run;
    TWAction& m_action;
    TWFileOutputs& m_outputs;
    QList<TWFileEntryPtr>& m_results;
    const int m_lanes; // files made at once
};

std::optional<TWActionError> TWAction::processEntries(TWRunController& runs,
                                                      const QList<TWFileEntryPtr>& entries,
                                                      const QVariantMap& instructions,
                                                      QList<TWFileEntryPtr>& results) {
    TWActionRun run(*this, runs, instructions);
    if (auto error = run.confirm(entries, true)) return error;
    if (!run.options().dryRun) run.sweepTemporaryFiles(entries);
    const std::unique_ptr<TWFileOutputs> outputs = makeOutputs(run);

    run.willProcess(entries.size());
    TWFileLoop loop(run, *outputs, results, entries.size());
    const TWOutcome outcome = loop.run(entries, preProcessWithEntries(entries, instructions));

    if (outcome.kind() == TWOutcome::Kind::Cancelled)
        outputs->takeBack(); // nothing to undo and nothing to report
    else
        run.didProcess(results, outputs->finish());
    postProcess();
    return TWActionRun::errorFor(outcome, TWActionPhase::ProcessingFiles);
}
