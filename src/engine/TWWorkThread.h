#pragma once

#include "engine/TWActionError.h"

#include "model/TWEntry.h"

#include <QObject>
#include <QVariantList>

#include <optional>

class TWRunController;

// One run as the main thread hands it over: the instructions and the entries they may draw on, taken
// when the run was asked for, so that changing the selection during a run changes nothing.
struct TWRunRequest {
    QVariantList instructions;
    QList<TWFileEntryPtr> fileEntries;        // source 0
    QList<TWFileEntryPtr> selection;          // source 1
    QList<QList<TWFileEntryPtr>> pathEntries; // source 3: for each instructions dictionary, its "paths"
    bool respectActive = true;                // false: every action runs, whatever its "active"
};

// Lives on the work thread and serves one request at a time: workflow runs and analysis passes. It talks
// back only through the controller's reports, which hand over to the main thread and never wait.
class TWWorkThread : public QObject {
    Q_OBJECT
public:
    explicit TWWorkThread(TWRunController& controller) : m_controller(controller) {}

    // The run itself, on the calling thread: each action in turn over its input, the results of one the
    // input of the next (source 2). Ends at the first error, which it returns.
    static std::optional<TWActionError> run(TWRunController& controller, const TWRunRequest& request);

    // On the work thread: the run between beginProcess and endProcess, then the after-run preferences.
    void performInstructions(const TWRunRequest& request);
    // On the work thread: analyses each entry until one fails.
    void analyzeEntries(const QList<TWFileEntryPtr>& entries);

private:
    TWRunController& m_controller;
};
