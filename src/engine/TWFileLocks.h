#pragma once

#include "lx/LXFileDescriptor.h"

#include <QString>

// Claims on the files that in-place work changes, across threads and processes: a run holds each file
// it replaces until its undo step is closed, an undo or redo holds the files it switches. Another
// holder's file is refused, never waited for: two runs waiting on each other's files would wait forever.
//
// Each claim is an open-file-description lock on one byte of the hidden ".Files.lock" in the undo
// folder, at an offset hashed from the file's real path (links followed, so every name of a file makes
// the same claim). The system releases them when the holder closes the lock file or dies, and two
// holders in one process exclude each other as two processes do. Not thread-safe: one holder per thread.
class TWFileLocks {
public:
    TWFileLocks() = default;
    TWFileLocks(TWFileLocks&&) = default;
    TWFileLocks& operator=(TWFileLocks&&) = default;

    // True when the file is now held here (or already was); false when another holder has it, or the
    // lock file cannot be used (then nothing is held and nothing is safe to change).
    bool tryLock(const QString& path);
    void releaseAll() { m_fd.reset(); }
    // Whether anyone holds a file now (the undo folder may not be emptied then).
    static bool anyHeld();

private:
    LXFileDescriptor m_fd;
};
