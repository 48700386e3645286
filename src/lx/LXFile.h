#pragma once

#include "lx/LXResult.h"

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <optional>

// File-system services the rest of the framework and the application use. Paths are absolute.
// Every failure is an LXFileError that names the path and the system's reason.
namespace LXFile {

bool existsAtPath(const QString& path);
bool existsAtPath(const QString& path, bool* isDirectory);
// Success when files can be made in the directory; otherwise the reason (missing, not a folder, no
// permission, a read-only file system).
LXStatus canWriteInDirectory(const QString& path);
bool isOnReadOnlyFileSystem(const QString& path);           // a CD, a read-only mount
QStringList contentsOfDirectoryAtPath(const QString& path); // names, sorted, without "." and ".."

// The four-character type code of the file, from its content ("WAVE", "AIFF", "AIFC", "caff",
// "NeXT", "W64 ", "flac", "OggS", "Opus", "MPG3"), 0 when not recognised or unreadable.
uint32_t typeCodeAtPath(const QString& path);
// The creator code kept in the user extended attribute "user.clipwright.creator", 0 when none.
uint32_t creatorCodeAtPath(const QString& path);
LXStatus setCreatorCodeAtPath(const QString& path, uint32_t creator);

// Gives the file at `to` the permissions (setuid, setgid and sticky bits included), owner, group and
// extended attributes of the file at `from`, following links. POSIX ACLs travel as the attributes
// system.posix_acl_access and system.posix_acl_default. An owner, group or attribute the process may not
// set, or the target's file system cannot hold, is left out: the file's data matters more. Fails only
// when `from` cannot be read or the permissions cannot be set.
LXStatus copyAttributesOfPath(const QString& from, const QString& to);

// What names a file on the system: its device and inode, the same for every path that reaches it
// (symbolic links followed, hard links, two spellings of one path).
struct LXFileIdentity {
    uint64_t device = 0;
    uint64_t inode = 0;
    bool operator==(const LXFileIdentity&) const = default;
};
std::optional<LXFileIdentity> identityOfPath(const QString& path); // nullopt when missing
// Which version of a file is at a path: its identity, size and modification and change times in
// nanoseconds. Every write, rename, link and change of attributes sets the change time, which users cannot
// set, so two equal versions are the same content even when another program set the old modification time
// back (touch -r) or wrote twice within the file system's time granularity.
struct LXFileVersion {
    LXFileIdentity identity;
    int64_t size = -1;
    int64_t modifiedNs = 0;
    int64_t changedNs = 0;
    bool operator==(const LXFileVersion&) const = default;
};
std::optional<LXFileVersion> versionOfPath(const QString& path); // following links; nullopt when missing
// A hash of the file's first and last 64 KiB: nearly every edit of a sound file touches one of them (its
// header, chunks at the end, the audio), and it costs the same for a short file and a long one. Empty
// when the file cannot be read.
QByteArray fingerprintOfPath(const QString& path);
int64_t linkCountAtPath(const QString& path); // hard links, following symbolic ones
// Where a symbolic link finally leads, as an absolute path; the path itself when it is no link or
// leads nowhere.
QString resolvedLinkPath(const QString& path);

// Modification date, without following a final symbolic link; invalid when the path is missing.
QDateTime modificationDateOfFileAtPath(const QString& path);
int64_t sizeOfFileAtPath(const QString& path); // -1 when missing

// Moves a file or directory; an existing file at the target is replaced (atomically on the same file
// system, by copy and delete across file systems).
LXStatus movePath(const QString& from, const QString& to);
// Renames a file, never replacing one: a name that is taken fails with EEXIST and the taken path, leaving
// both files as they were. Within one file system (EXDEV otherwise).
LXStatus renameWithoutReplacing(const QString& from, const QString& to);
// Copies a file or a directory tree; fails when the target exists.
LXStatus copyPath(const QString& from, const QString& to);
// Deletes a file, or a directory and everything in it. A missing path is not an error.
LXStatus deleteFileAtPath(const QString& path);
LXStatus createDirectoryAtPath(const QString& path); // with missing parents
LXStatus emptyDirectoryAtPath(const QString& path);  // deletes the contents, keeps the directory
// Moves to the freedesktop trash of the user ($XDG_DATA_HOME/Trash).
LXStatus moveToTrash(const QString& path);

// Absolute, clean path: "~/x/../y.wav" -> "/home/u/y.wav". Symbolic links are kept.
QString conformPath(const QString& path);

// Flushes a file's data, or a directory's entries, to the disk, when writes are synchronous; otherwise
// leaves them to the system's write-back. Files reach their names by an atomic rename over the old one,
// which the file systems we run on (ext4, xfs, btrfs) order after the file's data, and the old version
// stays linked in the undo folder; an fsync per file made a batch of short files five times slower.
LXStatus syncPath(const QString& path);
LXStatus syncDescriptor(int fd, const QString& path);
void setSynchronousWrites(bool on); // the preference "Synchronous Writes"; off by default
bool synchronousWrites();

} // namespace LXFile
