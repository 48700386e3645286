#include "shell/cli/TWRunner.h"

#include "shell/TWSession.h"
#include "shell/cli/TWCommandLine.h"
#include "shell/cli/TWProgressBar.h"
#include "shell/cli/TWReportFile.h"

#include "engine/TWRunController.h"

#include "model/TWFileEntry.h"
#include "model/TWGroupEntry.h"
#include "model/TWWorkspace.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/LXFile.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QFileInfo>
#include <QSet>

#include <atomic>
#include <csignal>
#include <optional>
#include <unistd.h>

namespace {

// Ctrl-C: the first stops, the second cancels; a termination (SIGTERM, a closed terminal) cancels at
// once, so the files are left as they were before the running action. The handler only stores into the
// workspace's stop code (a lock-free atomic) and writes a line: both safe in a signal handler.
std::atomic<int> interrupts{0};
TWWorkspace* interrupted = nullptr; // the workspace whose stop code a signal sets, while a run is on
bool announceInterrupts = true;     // false with --quiet

void onInterrupt(int signal) {
    const int count = signal == SIGINT ? interrupts.fetch_add(1) + 1 : 2;
    TWWorkspace& workspace = *interrupted;
    if (count == 1) {
        workspace.stopWorkflow();
        static const char text[] = "\nStopping after the current file (Ctrl-C again to cancel)...\n";
        if (announceInterrupts) (void)!::write(STDERR_FILENO, text, sizeof text - 1);
    } else {
        workspace.cancelWorkflow();
        static const char text[] = "\nCancelling: putting back the files of the running action...\n";
        if (announceInterrupts) (void)!::write(STDERR_FILENO, text, sizeof text - 1);
    }
}

class InterruptGuard {
public:
    InterruptGuard(TWWorkspace& workspace, bool announce) {
        interrupted = &workspace;
        interrupts = 0;
        announceInterrupts = announce;
        struct sigaction action = {};
        action.sa_handler = onInterrupt;
        sigemptyset(&action.sa_mask);
        for (size_t i = 0; i < std::size(kSignals); ++i)
            ::sigaction(kSignals[i], &action, &m_previous[i]);
    }
    ~InterruptGuard() {
        for (size_t i = 0; i < std::size(kSignals); ++i)
            ::sigaction(kSignals[i], &m_previous[i], nullptr);
    }

private:
    static constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
    struct sigaction m_previous[std::size(kSignals)] = {};
};

// Why the file at path cannot be processed: on a read-only disk, or unreadable.
QString reasonUnusable(const QString& path) {
    if (LXFile::existsAtPath(path) && LXFile::isOnReadOnlyFileSystem(path))
        return QStringLiteral("'%1' is on a read-only file system, from which the file list takes no files "
                              "(copy it to a writable disk first)")
            .arg(path);
    return TWRunner::reasonUnreadable(path);
}

TWFileReport refusal(const QString& path, const QString& reason = {}) {
    TWFileReport report;
    report.input = path;
    report.outcome = TWFileReport::Outcome::Skipped;
    report.note = reason.isEmpty() ? reasonUnusable(path) : reason;
    return report;
}

// Why a rewrite of the file would have to change its encoding, if it would: nothing may lose its codec
// silently.
std::optional<QString> reencoding(const QString& path) {
    const auto opened = LXAudioFile::open(path);
    if (!opened) return std::nullopt; // the run reports it
    const std::optional<QString> what = LXAudioFileWriter::reencodingOf((*opened)->description());
    if (!what) return std::nullopt;
    return QStringLiteral("'%1' holds %2, which this program cannot write back; --accept-reencode rewrites "
                          "it in the nearest encoding it can write")
        .arg(path, *what);
}

// What a dry run says of a file: "Normalize: would change '/w/a.wav' (gain +3.01 dB)".
QString plan(const TWFileReport& report) {
    const QString& input = report.input;
    const QString output = report.outputs.value(0);
    QString text;
    if (report.outcome == TWFileReport::Outcome::Untried)
        text = QStringLiteral("not tried on '%1': a dry run cannot run this action").arg(input);
    else if (report.outcome == TWFileReport::Outcome::Changed)
        text = output.isEmpty() || output == input
                   ? QStringLiteral("would change '%1'").arg(input)
                   : QStringLiteral("would write '%1' from '%2'").arg(output, input);
    else if (output.isEmpty())
        text = QStringLiteral("would leave '%1' unchanged").arg(input);
    else
        text = QStringLiteral("would copy '%1' to '%2' unchanged").arg(input, output);
    QStringList notes;
    if (!report.note.isEmpty()) notes.append(report.note);
    if (!report.lost.isEmpty()) notes.append(QStringLiteral("left behind: ") + report.lost);
    if (report.after.clipped() > 0)
        notes.append(QStringLiteral("%1 samples would clip").arg(report.after.clipped()));
    if (!notes.isEmpty()) text += QStringLiteral(" (%1)").arg(notes.join(QStringLiteral("; ")));
    return report.actionName + QStringLiteral(": ") + text;
}

} // namespace

namespace TWRunner {

QString reasonUnreadable(const QString& path) {
    if (!LXFile::existsAtPath(path)) return QStringLiteral("'%1' does not exist").arg(path);
    const auto opened = LXAudioFile::open(path);
    if (opened) return QStringLiteral("'%1' cannot be processed").arg(path);
    const LXError& error = opened.error();
    if (error.code() == LXErrUnsupported && QFileInfo(path).size() > 0)
        return QStringLiteral("'%1' is not an audio file").arg(path);
    QString reason = QStringLiteral("'%1': %2").arg(path, error.message());
    if (error.offset() >= 0) reason += QStringLiteral(" (at byte %1)").arg(error.offset());
    return reason;
}

QStringList addFiles(TWWorkspace& workspace, const QStringList& paths, QList<TWFileReport>& refused,
                     bool acceptReencode) {
    QStringList admitted;
    for (const QString& argument : paths) {
        const QString path = LXFile::conformPath(argument);
        // The workspace's own alert for a read-only disk would only repeat the refusal's reason.
        const QList<TWEntryPtr> added = LXFile::existsAtPath(path) && !LXFile::isOnReadOnlyFileSystem(path)
                                            ? workspace.addFiles({path})
                                            : QList<TWEntryPtr>();
        if (added.isEmpty()) {
            refused.append(refusal(path));
            continue;
        }
        QList<TWFileEntryPtr> files;
        for (const TWEntryPtr& entry : added)
            entry->addFileEntriesToArray(files);
        for (const TWFileEntryPtr& file : std::as_const(files)) {
            // Missing, damaged or unsupported as the entry found it.
            if (TWStatus::state(file->status()) < 0)
                refused.append(refusal(file->path()));
            else if (const std::optional<QString> why = acceptReencode ? std::nullopt : reencoding(file->path()))
                refused.append(refusal(file->path(), *why));
            else
                file->addFileEntryPathsToArray(admitted);
        }
    }
    return admitted;
}

int refuse(TWCommandLine::Context& context, const QList<TWFileReport>& refused) {
    for (const TWFileReport& report : refused)
        TWCommandLine::fail(context, report.note);
    return TWCommandLine::fail(context, QStringLiteral("nothing was processed"));
}

Outcome run(TWCommandLine::Context& context, const QVariantList& instructions, const Options& options,
            const QList<TWFileReport>& refused) {
    TWRunController& runs = context.session.runs();
    Outcome outcome;
    outcome.dryRun = options.dryRun;
    outcome.reports = refused;
    TWReportFile reportFile;
    if (!options.reportPath.isEmpty() && !reportFile.open(options.reportPath)) {
        outcome.error = QStringLiteral("cannot write the report '%1': %2")
                            .arg(options.reportPath, reportFile.errorString());
        return outcome;
    }
    QSet<QString> refusedPaths;
    for (const TWFileReport& report : refused) {
        reportFile.write(report);
        refusedPaths.insert(report.input);
    }

    InterruptGuard interrupts(runs.context().workspace, !context.isQuiet());
    QObject receiver; // of the connections below, which end with it
    std::optional<TWProgressBar> bar;
    // Connected before the bar is made, so that a file's line is written before the bar is drawn again.
    if (context.verbosity == Verbosity::Verbose) {
        const auto say = [&context, &bar](const QString& line) {
            if (bar) bar->clear();
            context.err << line << Qt::endl;
        };
        QObject::connect(&runs, &TWRunController::entryProcessing, &receiver, [&runs, say](TWEntry* entry) {
            QString verb = runs.progressTitle();
            if (verb.endsWith(QStringLiteral("..."))) verb.chop(3);
            say(verb + u' ' + entry->path());
        });
        QObject::connect(&runs, &TWRunController::scriptResultsAdded, &receiver,
                         [say](const QStringList& paths) {
                             for (const QString& path : paths)
                                 say(QStringLiteral("Wrote ") + path);
                         });
    }
    QObject::connect(&runs, &TWRunController::noticed, &receiver, [&context](const QString& text) {
        if (!context.isQuiet()) context.err << "clipwright: " << text << Qt::endl;
    });
    QObject::connect(&runs, &TWRunController::fileReported, &receiver, [&](const TWFileReport& report) {
        // A refused file that a workflow still met (in a folder it was given) was reported already.
        if (report.outcome == TWFileReport::Outcome::Skipped && refusedPaths.contains(report.input)) return;
        reportFile.write(report);
        outcome.reports.append(report);
    });
    if (!context.isQuiet()) bar.emplace(runs);
    QEventLoop loop;
    bool ended = false;
    QObject::connect(&runs, &TWRunController::processEnded, &loop, [&] {
        ended = true;
        loop.quit();
    });
    runs.setRunOptions({options.keepGoing, options.dryRun, !options.reportPath.isEmpty()});
    LXAudioFileWriter::setAcceptReencodingDefault(options.acceptReencode);
    (void)runs.takeScriptResults();
    runs.performInstructions(instructions, true);
    if (!ended) loop.exec();
    LXAudioFileWriter::setAcceptReencodingDefault(false);
    // Reports handed over just before the end are delivered before the results are taken.
    QCoreApplication::processEvents();
    runs.setRunOptions({});
    bar.reset();

    outcome.results = runs.takeScriptResults();
    outcome.results.removeDuplicates(); // each action reports its results; a file changed twice is one line
    if (!runs.lastErrorDescription().isEmpty()) outcome.error = runs.lastErrorDescription();
    return outcome;
}

int conclude(TWCommandLine::Context& context, const Outcome& outcome) {
    QList<const TWFileReport*> skipped;
    for (const TWFileReport& report : outcome.reports) {
        if (report.outcome == TWFileReport::Outcome::Skipped) {
            skipped.append(&report);
        } else if (report.dryRun) {
            if (report.outcome == TWFileReport::Outcome::Changed ||
                report.outcome == TWFileReport::Outcome::Unchanged ||
                report.outcome == TWFileReport::Outcome::Untried)
                context.out << plan(report) << '\n';
        } else if (!context.isQuiet()) {
            if (report.outcome == TWFileReport::Outcome::Unchanged && !report.note.isEmpty())
                context.err << "clipwright: '" << report.input << "': left unchanged: " << report.note
                            << Qt::endl;
            if (!report.lost.isEmpty())
                context.err << "clipwright: '" << report.outputs.value(0, report.input)
                            << "': left behind: " << report.lost << Qt::endl;
            if (report.after.clipped() > 0)
                context.err << "clipwright: '" << report.outputs.value(0, report.input)
                            << "': " << report.after.clipped() << " samples clipped" << Qt::endl;
        }
    }
    if (!outcome.dryRun)
        for (const QString& path : outcome.results)
            context.out << path << '\n';
    context.out.flush();
    if (!skipped.isEmpty()) {
        context.err << "clipwright: skipped " << skipped.size()
                    << (skipped.size() == 1 ? " file:" : " files:") << Qt::endl;
        for (const TWFileReport* report : std::as_const(skipped))
            context.err << "  " << report->note << Qt::endl;
    }
    if (outcome.error) return TWCommandLine::fail(context, *outcome.error);
    return skipped.isEmpty() ? TWCommandLine::kSuccess : TWCommandLine::kSomeSkipped;
}

} // namespace TWRunner
