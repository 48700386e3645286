#include "engine/TWActionExport.h"

#include "model/TWFileEntry.h"
#include "platform/TWSupportFolders.h"

#include "lx/LXAudioFile.h"
#include "lx/LXFile.h"

#include <QFileInfo>

int32_t TWActionExport::processAudioFile(LXAudioFile&, TWFileEntry&, const QVariantMap&, const QString&) {
    return LXContinue;
}

std::optional<TWActionError> TWActionExport::processEntries(const QList<TWFileEntryPtr>& entries,
                                                            const QVariantMap& instructions,
                                                            QList<TWFileEntryPtr>& results) {
    if (!requiredInstructionKeysExist(instructions))
        return TWActionError::errorWithCode(LXMissingInstructions, TWActionPhase::ConfirmingInstructions);
    const QString directory = instructions.value(QStringLiteral("destination"))
                                  .toMap()
                                  .value(QStringLiteral("directory"))
                                  .toString();
    const QString temporaryFolder = TWSupportFolders::tempDirectory();
    (void)LXFile::createDirectoryAtPath(temporaryFolder);
    QStringList written;
    std::optional<LXError> cause;

    notifyWillProcessWithAction(entries.size());
    int32_t code = preProcessWithEntries(entries, instructions);
    for (const TWFileEntryPtr& entry : entries) {
        if (code != LXContinue) break;
        auto opened = LXAudioFile::open(entry->path());
        if (!opened) {
            // Unlike the sample actions, an export that cannot read a file fails: the user asked for it.
            cause = opened.error();
            code = opened.error().code();
            break;
        }
        LXAudioFile& file = **opened;
        file.setProgressDelegate(entry.get());
        entry->pushStatus(TWStatus::Processing);
        notifyWillProcessEntry(entry);
        const QString temporary =
            temporaryFolder + u'/' + QFileInfo(entry->path()).completeBaseName() + u'.' + extension();
        code = processAudioFile(file, *entry, instructions, temporary);
        if (code == LXContinue) {
            const QString folder = directory.isEmpty() ? QFileInfo(entry->path()).path() : directory;
            const QString target = folder + u'/' + QFileInfo(temporary).fileName();
            if (const LXStatus moved = LXFile::movePath(temporary, target); !moved) {
                cause = moved.error();
                code = moved.error().code();
                (void)LXFile::deleteFileAtPath(temporary);
            } else {
                written.append(target);
                results.append(entry);
            }
        } else {
            if (file.lastError() && file.lastError()->code() == code) cause = file.lastError();
            (void)LXFile::deleteFileAtPath(temporary);
        }
        entry->popStatus();
        notifyDidProcessEntry(entry);
    }
    if (code == LXCancelled)
        for (const QString& path : written)
            (void)LXFile::deleteFileAtPath(path);
    notifyDidProcessWithAction({}, results, {});
    postProcess();
    if (code == LXContinue) return std::nullopt;
    return cause ? TWActionError::errorWithCode(code, TWActionPhase::ProcessingFiles, *cause)
                 : TWActionError::errorWithCode(code, TWActionPhase::ProcessingFiles);
}
