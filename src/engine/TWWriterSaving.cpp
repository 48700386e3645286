#include "engine/TWWriterSaving.h"

#include "platform/TWInteraction.h"
#include "platform/TWSupportFolders.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/LXAudioFilename.h"
#include "lx/LXFile.h"
#include "lx/LXWaveformCache.h"

#include <QDir>
#include <QFileInfo>

namespace {

// The writer decides the layout and the extension; the builder only lends its directory and stem. An
// interleaved output from a split set ("take.L") is named like one file, "take.wav".
void configure(LXAudioFilename& builder, const LXAudioFileWriter& writer) {
    builder.setScheme(writer.isInterleaved() ? LXAudioFilename::Interleaved : LXAudioFilename::SplitChannels);
    builder.setNumberOfFiles(writer.numberOfFiles());
    builder.setExtension(writer.formatExtension());
}

// The first free path for file `file` of the output: the builder's own name, or the first free numbered
// one (with forceCounting, numbered from 1).
QString freePathFor(LXAudioFilename& builder, int file, bool forceCounting) {
    builder.setNumber(forceCounting ? 1 : LXAudioFilename::kNoNumber);
    int next = forceCounting ? 2 : 1;
    QString path = builder.pathForChannel(file);
    while (LXFile::existsAtPath(path)) {
        builder.setNumber(next++);
        path = builder.pathForChannel(file);
    }
    return path;
}

enum class Conflict { Rename, Cancel };

// The output's new name is taken by another file: rename (through a save panel) or give up.
std::optional<QString> resolveConflict(const QString& path, TWInteraction& interaction) {
    TWAlert alert;
    alert.style = TWAlertStyle::Informational;
    alert.title = QStringLiteral("File Exists Alert");
    alert.message = QStringLiteral("File Exists Message");
    alert.buttons = {QStringLiteral("Rename"), QStringLiteral("Cancel")};
    if (interaction.runAlert(alert) != int(Conflict::Rename)) return std::nullopt;
    const QFileInfo info(path);
    TWSavePanelOptions panel;
    panel.directory = info.path();
    panel.name = info.fileName();
    panel.requiredExtension = info.suffix();
    const QString chosen = interaction.runSavePanel(panel);
    if (chosen.isEmpty()) return std::nullopt;
    return LXFile::conformPath(chosen);
}

// The names a file has besides `path` and the undo folder's copies of it (an in-place save, ours or a
// concurrent run's, links the old file there for a moment). Undo copies are named after the file.
int64_t otherNamesOf(const QString& path) {
    const int64_t links = LXFile::linkCountAtPath(path);
    if (links <= 1) return 0;
    const std::optional<LXFile::LXFileIdentity> identity = LXFile::identityOfPath(path);
    const QDir undo(TWSupportFolders::undoDirectory());
    int64_t undoCopies = 0;
    const QStringList names = undo.entryList({QFileInfo(path).completeBaseName() + QStringLiteral("_*")},
                                             QDir::Files | QDir::Hidden);
    for (const QString& name : names)
        if (LXFile::identityOfPath(undo.filePath(name)) == identity) ++undoCopies;
    return links - 1 - undoCopies;
}

// A file with several hard links is refused: replacing it by rename would change it under this name only
// and leave the others holding the old audio, silently.
LXStatus refuseHardLinks(const QStringList& paths) {
    for (const QString& path : paths)
        if (const int64_t others = otherNamesOf(path); others > 0)
            return LXError(LXErrWriteFailed,
                           (others == 1
                                ? QStringLiteral("the file has another name (a hard link)")
                                : QStringLiteral("the file has %1 other names (hard links)").arg(others)) +
                               QStringLiteral(", which a change in place would leave holding the old audio; "
                                              "save it as a new file instead"),
                           path);
    return {};
}

// The new files take the permissions, owner, group and extended attributes of the file they replace or
// come from (a split set's later files those of the last source file).
LXStatus giveAttributes(const LXAudioFileWriter& writer, int file, const QStringList& sources) {
    if (sources.isEmpty()) return {};
    return LXFile::copyAttributesOfPath(sources.at(std::min<qsizetype>(file, sources.size() - 1)),
                                        writer.temporaryPath(file));
}

} // namespace

namespace TWExtension {

LXResult<QString> saveNewFileToPath(LXAudioFileWriter& writer, const QString& proposedPath,
                                    bool forceCounting, const QStringList& sourcePaths) {
    LXAudioFilename builder(proposedPath);
    configure(builder, writer);
    for (int file = 0; file < writer.numberOfFiles(); ++file) {
        LX_TRY(giveAttributes(writer, file, sourcePaths));
        LX_TRY(writer.saveFile(file, freePathFor(builder, file, forceCounting)));
    }
    return writer.savedPath(0);
}

QString newFilePath(const LXAudioFileWriter& writer, const QString& proposedPath, bool forceCounting) {
    LXAudioFilename builder(proposedPath);
    configure(builder, writer);
    return freePathFor(builder, 0, forceCounting);
}

QString inPlacePath(const LXAudioFileWriter& writer, const LXAudioFile& source) {
    LXAudioFilename builder = source.filename();
    configure(builder, writer);
    return builder.pathForChannel(0);
}

LXStatus checkInPlace(const LXAudioFile& source) {
    TWSaveInfo info;
    info.addCurrentPathsFromAudioFile(source);
    QStringList paths;
    for (const QString& path : info.currentPaths())
        paths.append(LXFile::resolvedLinkPath(path));
    return refuseHardLinks(paths);
}

LXResult<std::optional<TWSaveInfo>> saveInPlaceOf(LXAudioFileWriter& writer, const LXAudioFile& source,
                                                  bool keepUndo, TWInteraction& interaction,
                                                  const TWCommitHooks& hooks) {
    LXAudioFilename builder = source.filename();
    configure(builder, writer);
    TWSaveInfo info;
    info.addCurrentPathsFromAudioFile(source);
    const QStringList givenPaths = info.currentPaths();
    // A symbolic link stays a link: the file it leads to is the one replaced (and kept for undo).
    QStringList oldPaths;
    for (const QString& path : givenPaths)
        oldPaths.append(LXFile::resolvedLinkPath(path));
    LX_TRY(checkInPlace(source));

    QStringList newPaths;
    for (int file = 0; file < writer.numberOfFiles(); ++file) {
        QString path = builder.pathForChannel(file);
        if (const qsizetype given = givenPaths.indexOf(path); given >= 0) path = oldPaths.at(given);
        if (!oldPaths.contains(path) && LXFile::existsAtPath(path)) {
            const std::optional<QString> chosen = resolveConflict(path, interaction);
            if (!chosen) {
                writer.deleteOutput();
                return std::optional<TWSaveInfo>();
            }
            path = *chosen;
        }
        newPaths.append(path);
    }

    // The old files are linked into the undo folder before anything is replaced, and each new file takes
    // its path by an atomic rename: at every moment both versions are whole somewhere.
    QStringList undoPaths;
    if (keepUndo) {
        for (const QString& path : oldPaths) {
            auto copy = TWSaveInfo::copyPathToUndo(path);
            if (!copy) {
                TWSaveInfo::removeFilesAtPaths(undoPaths);
                return copy.error();
            }
            undoPaths.append(*copy);
        }
    }
    info.setPaths(newPaths, oldPaths, undoPaths);
    // The new files are finished before they go on record, so that the record knows them as they will
    // be (an undo later notices whether someone changed them since).
    QStringList finished;
    for (int file = 0; file < writer.numberOfFiles(); ++file) {
        if (const LXStatus given = giveAttributes(writer, file, oldPaths); !given) {
            TWSaveInfo::removeFilesAtPaths(undoPaths);
            writer.deleteOutput();
            return given.error();
        }
        finished.append(writer.temporaryPath(file));
    }
    info.stampCurrentFrom(finished);
    if (hooks.beforeCommit) {
        if (const LXStatus recorded = hooks.beforeCommit(info); !recorded) {
            // Nothing is replaced yet: the undo copies are only extra names of the old files.
            TWSaveInfo::removeFilesAtPaths(undoPaths);
            writer.deleteOutput();
            return recorded.error();
        }
    }

    for (int file = 0; file < writer.numberOfFiles(); ++file) {
        if (const LXStatus saved = writer.saveFile(file, newPaths[file]); !saved) {
            // The first files may be in place already: put every old file back.
            for (qsizetype i = 0; i < undoPaths.size(); ++i)
                (void)LXFile::movePath(undoPaths[i], oldPaths[i]);
            for (const QString& path : newPaths)
                if (!oldPaths.contains(path)) (void)LXFile::deleteFileAtPath(path);
            if (hooks.abandoned) hooks.abandoned(info);
            return saved.error();
        }
    }
    LXWaveformCache& cache = LXWaveformCache::shared();
    for (qsizetype i = 0; i < oldPaths.size(); ++i) {
        if (i < undoPaths.size())
            cache.moveEntry(oldPaths[i], undoPaths[i]);
        else
            cache.removeEntryAtPath(oldPaths[i]);
        if (!newPaths.contains(oldPaths[i])) (void)LXFile::deleteFileAtPath(oldPaths[i]);
    }
    return std::optional<TWSaveInfo>(info);
}

} // namespace TWExtension
