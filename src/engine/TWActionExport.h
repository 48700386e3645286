#pragma once

#include "engine/TWAction.h"

class TWInteraction;

// The base of actions that write files of a format of their own (encoders): the per-file loop with its
// outputs written by the action to a path. Each file is written under a hidden temporary name in its
// destination folder and takes its final name only when it is complete, so a stop, a cancel or a crash
// never leaves a partial export under a real name. The final name is the source's with the export's
// extension, replacing a file of that name but never the source itself. The results are the source
// entries; exports replace nothing, so there is nothing to undo, and a cancel deletes what the run made.
class TWActionExport : public TWAction {
public:
    bool onlyMakesNewFiles() const override { return true; }

protected:
    virtual QString extension() const { return {}; } // of the files written, without the dot
    // Encodes the file into a file at path (which exists, empty). Named apart from the writer's hook, which
    // exports never use, so that overriding it hides nothing.
    virtual TWOutcome processAudioFileToPath(LXAudioFile& file, TWFileEntry& entry,
                                             const QVariantMap& instructions, const QString& path);
    // Where a hook asks the user something during a run (an encoder that is not installed).
    TWInteraction& interaction() const;

private:
    friend class TWExportOutputs;
    std::unique_ptr<TWFileOutputs> makeOutputs(TWActionRun& run) override;

    TWInteraction* m_interaction = nullptr; // the running run's
};
