#include "engine/TWWorkThread.h"

#include "engine/TWAction.h"
#include "engine/TWActionRegistry.h"
#include "engine/TWCommonKeys.h"
#include "engine/TWRunController.h"

#include "model/TWFileEntry.h"
#include "model/TWWorkspace.h"

#include "lx/LXFile.h"

#include <set>
#include <utility>

namespace {

// A file reached by several paths (a symbolic link, a linked folder, two spellings of one path) is
// processed once, under the first entry that reaches it: a second pass would apply a gain twice. Files
// that cannot be found keep their entries, so that the run reports them.
QList<TWFileEntryPtr> eachFileOnce(const QList<TWFileEntryPtr>& entries) {
    std::set<std::pair<uint64_t, uint64_t>> seen;
    QList<TWFileEntryPtr> once;
    once.reserve(entries.size());
    for (const TWFileEntryPtr& entry : entries) {
        const std::optional<LXFile::LXFileIdentity> identity = LXFile::identityOfPath(entry->path());
        if (!identity || seen.insert({identity->device, identity->inode}).second) once.append(entry);
    }
    return once;
}

} // namespace

std::optional<TWActionError> TWWorkThread::run(TWRunController& controller, const TWRunRequest& request) {
    QList<TWFileEntryPtr> results;
    std::optional<TWActionError> error;
    for (qsizetype i = 0; i < request.instructions.size() && !error; ++i) {
        const QVariantMap instructions = request.instructions.at(i).toMap();
        QList<TWFileEntryPtr> input;
        switch (TWKeys::source(instructions)) {
        case TWSource::AllEntries:
            input = request.fileEntries;
            break;
        case TWSource::Selection:
            input = request.selection;
            break;
        case TWSource::PreviousResults:
            input = results; // empty for the first action
            break;
        case TWSource::Paths:
            input = request.pathEntries.value(i);
            break;
        default:
            break;
        }
        input = eachFileOnce(input);
        results.clear();
        std::unique_ptr<TWAction> action = TWActionRegistry::make(TWKeys::actionClass(instructions));
        if (!action || input.isEmpty()) continue;
        if (request.respectActive && !TWKeys::active(instructions)) {
            results = input; // an inactive action hands its input on unchanged
            continue;
        }
        action->setInstructions(instructions);
        error = action->processEntries(controller, input, instructions, results);
    }
    return error;
}

void TWWorkThread::performInstructions(const TWRunRequest& request) {
    TWWorkspace& workspace = m_controller.context().workspace;
    // The stop code is reset here, on the thread that reads it: the main thread's beginProcess may arrive
    // after the first file is under way, and a reset there would wipe out a stop asked for meanwhile.
    workspace.setStopWorking(LXContinue);
    m_controller.beginProcess();
    const std::optional<TWActionError> error = run(m_controller, request);
    workspace.setStopWorking(LXContinue);
    m_controller.endProcess(error);
    m_controller.applyAfterRunPreferences();
}

void TWWorkThread::analyzeEntries(const QList<TWFileEntryPtr>& entries) {
    TWWorkspace& workspace = m_controller.context().workspace;
    workspace.setStopWorking(LXContinue);
    m_controller.beginProcess();
    m_controller.willProcessWithAction({QStringLiteral("Analyzing..."), entries.size()});
    for (const TWFileEntryPtr& entry : entries) {
        m_controller.willProcessEntry(entry);
        if (!entry->analyze()) break;
        m_controller.didProcessEntry(entry);
    }
    workspace.setStopWorking(LXContinue);
    m_controller.didProcessWithAction({});
    m_controller.endAnalysis();
}
