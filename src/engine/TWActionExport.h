#pragma once

#include "engine/TWAction.h"

// The base of actions that write files of their own format (encoders, archives, uploads): the action
// writes each file to a path in the temporary folder, and the loop moves it to the destination. Exports
// replace nothing, so there is nothing to undo.
class TWActionExport : public TWAction {
public:
    std::optional<TWActionError> processEntries(const QList<TWFileEntryPtr>& entries,
                                                const QVariantMap& instructions,
                                                QList<TWFileEntryPtr>& results) override;

protected:
    virtual QString extension() const { return {}; } // of the files written, without the dot
    virtual int32_t processAudioFile(LXAudioFile& file, TWFileEntry& entry, const QVariantMap& instructions,
                                     const QString& path);
    using TWAction::processAudioFile;
};
