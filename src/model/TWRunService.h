#pragma once

#include <QVariantList>

// The workspace's runs, analysis and undo, as the engine's run controller carries them out. The workspace
// keeps these operations under their names and hands them on, so that it holds only the tree, the
// selection and the file commands; the model never reaches into the engine. Main thread.
class TWRunService {
public:
    virtual ~TWRunService() = default;
    // Hands the instructions to the work thread, or runs them here and now (every action regardless of
    // "active", without the after-run preferences).
    virtual void performInstructions(const QVariantList& instructions, bool inWorkThread) = 0;
    virtual void analyzeEntries() = 0;
    virtual void analyzeSelectedEntries() = 0;
    virtual void undoInstructions(const QVariantList& instructions) = 0;
    virtual bool flushUndoWithInteraction(bool interactive) = 0;
    virtual bool isWorking() const = 0;
};
