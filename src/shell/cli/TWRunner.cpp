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
#include <unistd.h>

namespace {

// Ctrl-C: the first stops, the second cancels; a termination (SIGTERM, a closed terminal) cancels at
// once, so the files are left as they were before the running action. The handler only stores into the
// workspace's stop code (a lock-free atomic) and writes a line: both safe in a signal handler.
std::atomic<int> interrupts{0};
TWWorkspace* interrupted = nullptr; // the workspace whose stop code a signal sets, while a run is on

void onInterrupt(int signal) {
    const int count = signal == SIGINT ? interrupts.fetch_add(1) + 1 : 2;
    TWWorkspace& workspace = *interrupted;
    if (count == 1) {
        workspace.stopWorkflow();
        static const char text[] = "\nStopping after the current file (Ctrl-C again to cancel)...\n";
        (void)!::write(STDERR_FILENO, text, sizeof text - 1);
    } else {
        workspace.cancelWorkflow();
        static const char text[] = "\nCancelling: putting back the files of the running action...\n";
        (void)!::write(STDERR_FILENO, text, sizeof text - 1);
    }
}

class InterruptGuard {
public:
    explicit InterruptGuard(TWWorkspace& workspace) {
        interrupted = &workspace;
        interrupts = 0;
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

Outcome run(TWRunController& runs, const QVariantList& instructions) {
    InterruptGuard interrupts(runs.context().workspace);
    TWProgressBar bar(runs);
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
    bar.clear();

    Outcome outcome;
    outcome.results = runs.takeScriptResults();
    outcome.results.removeDuplicates(); // each action reports its results; a file changed twice is one line
    if (!runs.lastErrorDescription().isEmpty()) outcome.error = runs.lastErrorDescription();
    return outcome;
}

} // namespace TWRunner
