#include "shell/cli/TWRunner.h"

#include "shell/cli/TWProgressBar.h"

#include "engine/TWRunController.h"

#include "model/TWFileEntry.h"
#include "model/TWGroupEntry.h"
#include "model/TWWorkspace.h"

#include "lx/LXFile.h"

#include <QCoreApplication>
#include <QEventLoop>

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

} // namespace

namespace TWRunner {

QStringList addFiles(TWWorkspace& workspace, const QStringList& paths, QTextStream& err, bool* allAdmitted) {
    QStringList admitted;
    *allAdmitted = true;
    for (const QString& argument : paths) {
        const QString path = LXFile::conformPath(argument);
        if (!LXFile::existsAtPath(path)) {
            err << "clipwright: '" << argument << "' does not exist" << Qt::endl;
            *allAdmitted = false;
            continue;
        }
        const QList<TWEntryPtr> added = workspace.addFiles({path});
        if (added.isEmpty()) {
            err << "clipwright: '" << argument << "' is not an audio file" << Qt::endl;
            *allAdmitted = false;
            continue;
        }
        for (const TWEntryPtr& entry : added)
            entry->addFileEntryPathsToArray(admitted);
    }
    return admitted;
}

Outcome run(TWRunController& runs, const QVariantList& instructions, Verbosity verbosity, QTextStream& err) {
    InterruptGuard interrupts(runs.context().workspace, verbosity != Verbosity::Quiet);
    QObject reports; // the receiver of the verbose lines' connections
    std::optional<TWProgressBar> bar;
    // Connected before the bar is made, so that a file's line is written before the bar is drawn again.
    if (verbosity == Verbosity::Verbose) {
        const auto say = [&err, &bar](const QString& line) {
            if (bar) bar->clear();
            err << line << Qt::endl;
        };
        QObject::connect(&runs, &TWRunController::entryProcessing, &reports, [&runs, say](TWEntry* entry) {
            QString verb = runs.progressTitle();
            if (verb.endsWith(QStringLiteral("..."))) verb.chop(3);
            say(verb + u' ' + entry->path());
        });
        QObject::connect(&runs, &TWRunController::scriptResultsAdded, &reports,
                         [say](const QStringList& paths) {
                             for (const QString& path : paths)
                                 say(QStringLiteral("Wrote ") + path);
                         });
    }
    if (verbosity != Verbosity::Quiet) bar.emplace(runs);
    QEventLoop loop;
    bool ended = false;
    const auto connection = QObject::connect(&runs, &TWRunController::processEnded, &loop, [&] {
        ended = true;
        loop.quit();
    });
    (void)runs.takeScriptResults();
    runs.performInstructions(instructions, true);
    if (!ended) loop.exec();
    QObject::disconnect(connection);
    // Reports handed over just before the end are delivered before the results are taken.
    QCoreApplication::processEvents();
    bar.reset();

    Outcome outcome;
    outcome.results = runs.takeScriptResults();
    outcome.results.removeDuplicates(); // each action reports its results; a file changed twice is one line
    if (!runs.lastErrorDescription().isEmpty()) outcome.error = runs.lastErrorDescription();
    return outcome;
}

} // namespace TWRunner
