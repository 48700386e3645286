#pragma once

#include "lx/LXFileDescriptor.h"
#include "lx/LXResult.h"

#include <QString>

// A hidden file beside its final path (".name.<random>.cwtmp"), created exclusively and locked (flock)
// for as long as its descriptor stays open. A file no running writer holds is left over from one that
// died, and LXAudioFileWriter::removeAbandonedTemporaryFiles may delete it. Saving is a rename onto the
// final path, on the same file system.
struct LXTemporaryFile {
    QString path;
    LXFileDescriptor lock; // open for writing
};

LXResult<LXTemporaryFile> LXCreateTemporaryFile(const QString& directory, const QString& baseName);
// Whether a file name (no folder) is of that pattern, a writer's at work or one a killed writer left.
bool LXIsTemporaryFileName(const QString& name);
