#pragma once

#include "engine/TWSaveInfo.h"

#include "lx/LXResult.h"

#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

class LXAudioFile;
class LXAudioFileWriter;
class TWInteraction;

// Saving a finished writer's output: as a new file that overwrites nothing, or in place of its source.
namespace TWExtension {

// Saves under the proposed path, or the first free numbered name beside it ("a-1.wav", "a-2.wav" ...;
// with forceCounting the first try is already numbered 1). Each file of a split set takes the first free
// name of its own. The extension follows the writer's format. The new files take the permissions, owner,
// group and extended attributes of the source files (sourcePaths, when given). Returns the lead path.
LXResult<QString> saveNewFileToPath(LXAudioFileWriter& writer, const QString& proposedPath,
                                    bool forceCounting, const QStringList& sourcePaths = {});

// The lead paths the two saves would give the output, without saving (a dry run).
QString newFilePath(const LXAudioFileWriter& writer, const QString& proposedPath, bool forceCounting);
QString inPlacePath(const LXAudioFileWriter& writer, const LXAudioFile& source);
// Why the source cannot be replaced in place (another hard link to it), before anything is written.
LXStatus checkInPlace(const LXAudioFile& source);

// Called with the finished record just before the new files take their paths, so a journal can hold
// what undoing the save needs before the save can have happened. An error stops the save with nothing
// replaced; abandoned is then called with the same record if the new files could not take their paths.
struct TWCommitHooks {
    std::function<LXStatus(const TWSaveInfo&)> beforeCommit;
    std::function<void(const TWSaveInfo&)> abandoned;
};

// Replaces the source's files with the writer's output, which takes their permissions, owner, group and
// extended attributes. A source reached through a symbolic link is replaced where the link leads (the
// record holds that path), and the link stays; a source with other hard links is refused. With keepUndo the
// old files are kept in the undo folder (the record says where). When the output's name differs from the
// source's (another format) and a file has that name already, the user is asked (through interaction) to
// rename or cancel; nullopt when the user abandons the save, in which case nothing on disk has changed and
// the output is deleted.
LXResult<std::optional<TWSaveInfo>> saveInPlaceOf(LXAudioFileWriter& writer, const LXAudioFile& source,
                                                  bool keepUndo, TWInteraction& interaction,
                                                  const TWCommitHooks& hooks = {});

} // namespace TWExtension
