#include "lx/LXFile.h"

#include "lx/LXAudioFormat.h"
#include "lx/LXFileDescriptor.h"

#include <QDir>
#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>
#include <QUrl>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio> // renameat2
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace LXFile {

namespace {

constexpr char kCreatorAttribute[] = "user.clipwright.creator";

// 1 MiB blocks: large enough that the per-call cost vanishes next to the disk, small enough to keep
// memory flat when a batch copies many files at once.
constexpr size_t kCopyBlockBytes = size_t(1) << 20;

QByteArray native(const QString& path) {
    return QFile::encodeName(path);
}

QString childPath(const QString& directory, const QString& name) {
    return directory.endsWith(u'/') ? directory + name : directory + u'/' + name;
}

QString parentPath(const QString& path) {
    return QFileInfo(path).absolutePath();
}

// Closes now and reports what close() says: on network file systems a failed write can surface here.
bool closeChecked(LXFileDescriptor& fd) {
    return ::close(fd.release()) == 0;
}

LXFileDescriptor openPath(const QString& path, int flags, mode_t mode = 0) {
    int fd;
    do
        fd = ::open(native(path).constData(), flags | O_CLOEXEC, mode);
    while (fd < 0 && errno == EINTR);
    return LXFileDescriptor(fd);
}

bool statPath(const QString& path, struct stat* st) {
    return ::stat(native(path).constData(), st) == 0;
}
bool lstatPath(const QString& path, struct stat* st) {
    return ::lstat(native(path).constData(), st) == 0;
}

// Names in a directory, unsorted, without "." and "..".
LXResult<QStringList> directoryNames(const QString& path) {
    std::unique_ptr<DIR, int (*)(DIR*)> dir(::opendir(native(path).constData()), ::closedir);
    if (!dir) return LXFileError::fromErrno(QStringLiteral("Cannot read the folder"), path);
    QStringList names;
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(dir.get());
        if (!entry) break;
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
        names.append(QFile::decodeName(entry->d_name));
    }
    if (errno != 0) return LXFileError::fromErrno(QStringLiteral("Cannot read the folder"), path);
    return names;
}

// Carries every extended attribute the process can read and set over to a copy: the user's (the creator
// code among them), ACLs (system.posix_acl_*) and, with the rights for it, security.* and trusted.*. A
// target file system without extended attributes still gets the data, so failures are ignored.
void copyExtendedAttributes(int from, int to) {
    const ssize_t length = ::flistxattr(from, nullptr, 0);
    if (length <= 0) return;
    std::vector<char> names(static_cast<size_t>(length));
    const ssize_t got = ::flistxattr(from, names.data(), names.size());
    if (got <= 0) return;
    std::vector<char> value;
    for (const char* name = names.data(); name < names.data() + got; name += std::strlen(name) + 1) {
        const ssize_t size = ::fgetxattr(from, name, nullptr, 0);
        if (size < 0) continue;
        value.resize(size_t(size));
        const ssize_t valueLength = ::fgetxattr(from, name, value.data(), value.size());
        if (valueLength >= 0) (void)::fsetxattr(to, name, value.data(), size_t(valueLength), 0);
    }
}

// Owner and group first (a change of owner clears the setuid and setgid bits), then the attributes
// (while the target is still writable: setting user.* attributes needs write permission), then the mode.
bool copyOwnerAttributesAndMode(int from, int to, const struct stat& st) {
    (void)::fchown(to, st.st_uid, st.st_gid); // EPERM for another's file when not privileged
    copyExtendedAttributes(from, to);
    return ::fchmod(to, st.st_mode & 07777) == 0;
}

// Copies the bytes from one descriptor to another: copy_file_range first (no trip through user space,
// and a reflink on file systems that share blocks), plain reads and writes where the kernel refuses.
LXStatus copyContents(int from, int to, const QString& source, const QString& target) {
    bool kernelCopy = true;
    int64_t copied = 0;
    std::vector<char> buffer;
    for (;;) {
        if (kernelCopy) {
            const ssize_t n = ::copy_file_range(from, nullptr, to, nullptr, kCopyBlockBytes, 0);
            if (n > 0) {
                copied += n;
                continue;
            }
            if (n == 0) return {};
            if (errno == EINTR) continue;
            if (copied == 0 && (errno == EXDEV || errno == ENOSYS || errno == EINVAL || errno == EOPNOTSUPP ||
                                errno == EPERM || errno == ETXTBSY)) {
                kernelCopy = false;
                buffer.resize(kCopyBlockBytes);
                continue;
            }
            return LXFileError::fromErrno(QStringLiteral("Cannot copy to '%1'").arg(target), source);
        }
        const ssize_t n = ::read(from, buffer.data(), buffer.size());
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return LXFileError::fromErrno(QStringLiteral("Cannot read the file"), source);
        if (n == 0) return {};
        for (ssize_t done = 0; done < n;) {
            const ssize_t w = ::write(to, buffer.data() + done, size_t(n - done));
            if (w < 0 && errno == EINTR) continue;
            if (w < 0) return LXFileError::fromErrno(QStringLiteral("Cannot write the file"), target);
            done += w;
        }
    }
}

LXStatus copyEntry(const QString& from, const QString& to);

LXStatus copyFile(const QString& from, const QString& to, const struct stat& st) {
    LXFileDescriptor source = openPath(from, O_RDONLY);
    if (!source.isOpen()) return LXFileError::fromErrno(QStringLiteral("Cannot open the file"), from);
    LXFileDescriptor target = openPath(to, O_WRONLY | O_CREAT | O_EXCL, 0600);
    if (!target.isOpen()) return LXFileError::fromErrno(QStringLiteral("Cannot create the file"), to);

    LXStatus status = copyContents(source.get(), target.get(), from, to);
    if (status) {
        // Permissions after the data: a read-only source must not make the copy unwritable half-way.
        const std::array<timespec, 2> times = {st.st_atim, st.st_mtim};
        if (!copyOwnerAttributesAndMode(source.get(), target.get(), st))
            status = LXFileError::fromErrno(QStringLiteral("Cannot set the permissions"), to);
        else if (::futimens(target.get(), times.data()) != 0)
            status = LXFileError::fromErrno(QStringLiteral("Cannot set the modification date"), to);
        else
            status = syncDescriptor(target.get(), to);
    }
    if (status && !closeChecked(target))
        status = LXFileError::fromErrno(QStringLiteral("Cannot write the file"), to);
    if (!status) ::unlink(native(to).constData());
    return status;
}

LXStatus copySymbolicLink(const QString& from, const QString& to, const struct stat& st) {
    std::vector<char> target(size_t(std::max<off_t>(st.st_size, 0)) + 1);
    for (;;) {
        const ssize_t n = ::readlink(native(from).constData(), target.data(), target.size());
        if (n < 0) return LXFileError::fromErrno(QStringLiteral("Cannot read the link"), from);
        if (size_t(n) < target.size()) {
            target[size_t(n)] = '\0';
            break;
        }
        target.resize(target.size() * 2); // the link changed since lstat
    }
    if (::symlink(target.data(), native(to).constData()) != 0)
        return LXFileError::fromErrno(QStringLiteral("Cannot create the link"), to);
    const std::array<timespec, 2> times = {st.st_atim, st.st_mtim};
    ::utimensat(AT_FDCWD, native(to).constData(), times.data(), AT_SYMLINK_NOFOLLOW);
    return {};
}

LXStatus copyDirectory(const QString& from, const QString& to, const struct stat& st) {
    // Owner-only until the contents are in, so nobody sees (or writes into) a half-made copy.
    if (::mkdir(native(to).constData(), 0700) != 0)
        return LXFileError::fromErrno(QStringLiteral("Cannot create the folder"), to);
    auto names = directoryNames(from);
    if (!names) return names.error();
    for (const QString& name : *names)
        LX_TRY(copyEntry(childPath(from, name), childPath(to, name)));

    LXFileDescriptor source = openPath(from, O_RDONLY | O_DIRECTORY);
    LXFileDescriptor target = openPath(to, O_RDONLY | O_DIRECTORY);
    if (!target.isOpen()) return LXFileError::fromErrno(QStringLiteral("Cannot open the folder"), to);
    if (source.isOpen()) copyExtendedAttributes(source.get(), target.get());
    LX_TRY(syncDescriptor(target.get(), to));
    // The date last: adding the entries above changed it.
    const std::array<timespec, 2> times = {st.st_atim, st.st_mtim};
    if (::fchmod(target.get(), st.st_mode & 07777) != 0)
        return LXFileError::fromErrno(QStringLiteral("Cannot set the permissions"), to);
    if (::futimens(target.get(), times.data()) != 0)
        return LXFileError::fromErrno(QStringLiteral("Cannot set the modification date"), to);
    return {};
}

LXStatus copyEntry(const QString& from, const QString& to) {
    struct stat st;
    if (!lstatPath(from, &st)) return LXFileError::fromErrno(QStringLiteral("Cannot copy"), from);
    if (S_ISDIR(st.st_mode)) return copyDirectory(from, to, st);
    if (S_ISLNK(st.st_mode)) return copySymbolicLink(from, to, st);
    if (S_ISREG(st.st_mode)) return copyFile(from, to, st);
    return LXFileError(QStringLiteral("Cannot copy a device, pipe or socket"), from, EINVAL);
}

// A name beside the target for a copy that is renamed into place once whole. Hidden, and unique
// within this process and against other processes by the pid.
QString temporarySibling(const QString& path) {
    static std::atomic<unsigned> counter{0};
    const QFileInfo info(path);
    return childPath(
        info.absolutePath(),
        QStringLiteral(".%1.%2-%3.moving").arg(info.fileName()).arg(::getpid()).arg(counter.fetch_add(1)));
}

LXStatus syncParentDirectory(const QString& path) {
    return syncPath(parentPath(path));
}

// mkdir -p with a mode for the directories it makes.
LXStatus makeDirectories(const QString& path, mode_t mode) {
    struct stat st;
    if (statPath(path, &st)) {
        if (S_ISDIR(st.st_mode)) return {};
        return LXFileError(QStringLiteral("Cannot create the folder: a file of that name exists"), path,
                           EEXIST);
    }
    const QString parent = parentPath(path);
    if (parent != path) LX_TRY(makeDirectories(parent, mode));
    if (::mkdir(native(path).constData(), mode) != 0 && errno != EEXIST)
        return LXFileError::fromErrno(QStringLiteral("Cannot create the folder"), path);
    if (!statPath(path, &st) || !S_ISDIR(st.st_mode))
        return LXFileError(QStringLiteral("Cannot create the folder: a file of that name exists"), path,
                           EEXIST);
    return {};
}

QString trashDirectory() {
    QString dataHome = qEnvironmentVariable("XDG_DATA_HOME");
    if (dataHome.isEmpty() || QDir::isRelativePath(dataHome))
        dataHome = QDir::homePath() + QStringLiteral("/.local/share");
    return QDir::cleanPath(dataHome + QStringLiteral("/Trash"));
}

// "take.wav", "take.2.wav", "take.3.wav", ...: the extension stays last so the trash still shows the
// file's kind.
QString numberedName(const QString& name, int number) {
    if (number <= 1) return name;
    const qsizetype dot = name.lastIndexOf(u'.');
    if (dot <= 0) return QStringLiteral("%1.%2").arg(name).arg(number);
    return QStringLiteral("%1.%2%3").arg(name.left(dot)).arg(number).arg(name.mid(dot));
}

} // namespace

bool existsAtPath(const QString& path) {
    struct stat st;
    return statPath(path, &st);
}

bool existsAtPath(const QString& path, bool* isDirectory) {
    struct stat st;
    const bool exists = statPath(path, &st);
    if (isDirectory) *isDirectory = exists && S_ISDIR(st.st_mode);
    return exists;
}

LXStatus canWriteInDirectory(const QString& path) {
    struct stat st;
    if (!statPath(path, &st)) return LXFileError::fromErrno(QStringLiteral("cannot reach the folder"), path);
    if (!S_ISDIR(st.st_mode)) return LXFileError(QStringLiteral("is not a folder"), path, ENOTDIR);
    if (::access(native(path).constData(), W_OK | X_OK) != 0)
        return LXFileError::fromErrno(QStringLiteral("cannot write in the folder"), path);
    return {};
}

bool isOnReadOnlyFileSystem(const QString& path) {
    struct statvfs st;
    return ::statvfs(native(path).constData(), &st) == 0 && (st.f_flag & ST_RDONLY) != 0;
}

QStringList contentsOfDirectoryAtPath(const QString& path) {
    auto names = directoryNames(path);
    if (!names) return {};
    names->sort();
    return *names;
}

uint32_t typeCodeAtPath(const QString& path) {
    // O_NONBLOCK: a FIFO must not hang the caller until someone writes into it.
    LXFileDescriptor fd = openPath(path, O_RDONLY | O_NONBLOCK);
    struct stat st;
    if (!fd.isOpen() || ::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) return 0;
    unsigned char h[36] = {};
    const ssize_t n = ::pread(fd.get(), h, sizeof h, 0);
    if (n < 4) return 0;
    auto at = [&](int offset, const char* magic) {
        return offset + 4 <= n && std::memcmp(h + offset, magic, 4) == 0;
    };

    if ((at(0, "RIFF") || at(0, "RIFX")) && at(8, "WAVE")) return LXFormat::WAVE;
    if ((at(0, "RF64") || at(0, "BW64")) && at(8, "WAVE")) return LXFormat::RF64;
    if (at(0, "FORM") && at(8, "AIFF")) return LXFormat::AIFF;
    if (at(0, "FORM") && at(8, "AIFC")) return LXFormat::AIFC;
    if (at(0, "caff")) return LXFormat::CAF;
    if (at(0, ".snd") || at(0, "dns.")) // big- and little-endian Sun/NeXT
        return LXFormat::AU;
    static const unsigned char w64Riff[16] = {'r',  'i',  'f',  'f',  0x2E, 0x91, 0xCF, 0x11,
                                              0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00};
    if (n >= 28 && std::memcmp(h, w64Riff, 16) == 0 && at(24, "wave")) return LXFormat::W64;
    if (at(0, "fLaC")) return LXFormat::FLAC;
    // An Ogg stream's first page holds one packet, the codec's identification header, after a
    // 27-byte page header and a one-byte segment table.
    if (at(0, "OggS")) return at(28, "Opus") && at(32, "Head") ? LXFormat::Opus : LXFormat::Ogg;

    if (n >= 10 && std::memcmp(h, "ID3", 3) == 0) {
        // An ID3v2 tag (size in 7-bit bytes, plus a footer when flagged) usually precedes MPEG audio,
        // now and then FLAC.
        const int64_t size = (int64_t(h[6] & 0x7F) << 21) | (int64_t(h[7] & 0x7F) << 14) |
                             (int64_t(h[8] & 0x7F) << 7) | int64_t(h[9] & 0x7F);
        const int64_t behind = 10 + size + ((h[5] & 0x10) ? 10 : 0);
        unsigned char next[4] = {};
        if (::pread(fd.get(), next, sizeof next, behind) == 4 && std::memcmp(next, "fLaC", 4) == 0)
            return LXFormat::FLAC;
        return LXFormat::MP3;
    }
    // An MPEG audio frame header: 11 sync bits, then no reserved version, layer, bit rate or rate
    // (which keeps AAC's ADTS, layer 0, and random data that starts with 0xFF out).
    const int version = (h[1] >> 3) & 3, layer = (h[1] >> 1) & 3;
    const int bitrate = h[2] >> 4, rate = (h[2] >> 2) & 3;
    if (h[0] == 0xFF && (h[1] & 0xE0) == 0xE0 && version != 1 && layer != 0 && bitrate != 15 && rate != 3)
        return LXFormat::MP3;
    return 0;
}

uint32_t creatorCodeAtPath(const QString& path) {
    unsigned char code[4];
    if (::getxattr(native(path).constData(), kCreatorAttribute, code, sizeof code) != ssize_t(sizeof code))
        return 0;
    return (uint32_t(code[0]) << 24) | (uint32_t(code[1]) << 16) | (uint32_t(code[2]) << 8) |
           uint32_t(code[3]);
}

LXStatus setCreatorCodeAtPath(const QString& path, uint32_t creator) {
    const QByteArray name = native(path);
    if (creator == 0) {
        if (::removexattr(name.constData(), kCreatorAttribute) != 0 && errno != ENODATA)
            return LXFileError::fromErrno(QStringLiteral("Cannot remove the creator code"), path);
        return {};
    }
    const unsigned char code[4] = {uint8_t(creator >> 24), uint8_t(creator >> 16), uint8_t(creator >> 8),
                                   uint8_t(creator)};
    if (::setxattr(name.constData(), kCreatorAttribute, code, sizeof code, 0) != 0)
        return LXFileError::fromErrno(QStringLiteral("Cannot set the creator code"), path);
    return {};
}

LXStatus copyAttributesOfPath(const QString& from, const QString& to) {
    LXFileDescriptor source = openPath(from, O_RDONLY);
    struct stat st;
    if (!source.isOpen() || ::fstat(source.get(), &st) != 0)
        return LXFileError::fromErrno(QStringLiteral("Cannot read the permissions"), from);
    LXFileDescriptor target = openPath(to, O_RDONLY | O_NOFOLLOW);
    if (!target.isOpen()) return LXFileError::fromErrno(QStringLiteral("Cannot open the file"), to);
    if (!copyOwnerAttributesAndMode(source.get(), target.get(), st))
        return LXFileError::fromErrno(QStringLiteral("Cannot set the permissions"), to);
    return {};
}

std::optional<LXFileIdentity> identityOfPath(const QString& path) {
    struct stat st;
    if (!statPath(path, &st)) return std::nullopt;
    return LXFileIdentity{uint64_t(st.st_dev), uint64_t(st.st_ino)};
}

std::optional<LXFileVersion> versionOfPath(const QString& path) {
    struct stat st;
    if (!statPath(path, &st)) return std::nullopt;
    const auto nanoseconds = [](const struct timespec& time) {
        return int64_t(time.tv_sec) * 1000000000 + time.tv_nsec;
    };
    return LXFileVersion{{uint64_t(st.st_dev), uint64_t(st.st_ino)},
                         int64_t(st.st_size),
                         nanoseconds(st.st_mtim),
                         nanoseconds(st.st_ctim)};
}

QByteArray fingerprintOfPath(const QString& path) {
    constexpr qint64 kEnd = 64 * 1024;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return {};
    QCryptographicHash hash(QCryptographicHash::Sha1);
    hash.addData(file.read(kEnd));
    if (file.size() > kEnd && file.seek(std::max(kEnd, file.size() - kEnd))) hash.addData(file.read(kEnd));
    return hash.result();
}

int64_t linkCountAtPath(const QString& path) {
    struct stat st;
    return statPath(path, &st) ? int64_t(st.st_nlink) : 0;
}

QString resolvedLinkPath(const QString& path) {
    struct stat st;
    if (!lstatPath(path, &st) || !S_ISLNK(st.st_mode)) return path;
    const QString resolved = QFileInfo(path).canonicalFilePath();
    return resolved.isEmpty() ? path : resolved;
}

QDateTime modificationDateOfFileAtPath(const QString& path) {
    struct stat st;
    if (!lstatPath(path, &st)) return {};
    // In UTC: a local time would consult the time zone (tzset) on whichever thread asks, racing the others.
    return QDateTime::fromMSecsSinceEpoch(qint64(st.st_mtim.tv_sec) * 1000 + st.st_mtim.tv_nsec / 1000000,
                                          Qt::UTC);
}

int64_t sizeOfFileAtPath(const QString& path) {
    struct stat st;
    return statPath(path, &st) ? int64_t(st.st_size) : -1;
}

LXStatus movePath(const QString& from, const QString& to) {
    if (::rename(native(from).constData(), native(to).constData()) == 0) {
        // The new name only survives a crash once its directory is on the disk.
        LX_TRY(syncParentDirectory(to));
        if (parentPath(from) != parentPath(to)) LX_TRY(syncParentDirectory(from));
        return {};
    }
    if (errno != EXDEV) return LXFileError::fromErrno(QStringLiteral("Cannot move to '%1'").arg(to), from);

    // Another file system: copy beside the target, then rename the whole copy over it, so that an
    // existing target is replaced in one step and never seen half-written; then delete the source.
    const QString temporary = temporarySibling(to);
    LXStatus copied = copyEntry(from, temporary);
    if (!copied) {
        (void)deleteFileAtPath(temporary);
        return copied;
    }
    if (::rename(native(temporary).constData(), native(to).constData()) != 0) {
        const LXFileError error = LXFileError::fromErrno(QStringLiteral("Cannot move to '%1'").arg(to), from);
        (void)deleteFileAtPath(temporary);
        return error;
    }
    LX_TRY(syncParentDirectory(to));
    return deleteFileAtPath(from);
}

LXStatus renameWithoutReplacing(const QString& from, const QString& to) {
    const QByteArray source = native(from), target = native(to);
    // A name that is taken is the error of the file that holds it.
    const auto failed = [&] {
        if (errno == EEXIST) return LXFileError(QStringLiteral("The name is taken"), to, EEXIST);
        return LXFileError::fromErrno(QStringLiteral("Cannot rename to '%1'").arg(to), from);
    };
    if (::renameat2(AT_FDCWD, source.constData(), AT_FDCWD, target.constData(), RENAME_NOREPLACE) != 0) {
        if (errno != EINVAL && errno != ENOSYS) return failed();
        // A file system without the flag: a hard link takes the new name only while it is free.
        if (::link(source.constData(), target.constData()) != 0) return failed();
        if (::unlink(source.constData()) != 0) {
            const LXFileError error = LXFileError::fromErrno(QStringLiteral("Cannot rename"), from);
            ::unlink(target.constData());
            return error;
        }
    }
    return syncParentDirectory(to);
}

LXStatus copyPath(const QString& from, const QString& to) {
    struct stat st;
    if (lstatPath(to, &st))
        return LXFileError(
            QStringLiteral("Cannot copy '%1': the target exists").arg(QFileInfo(from).fileName()), to,
            EEXIST);
    LXStatus status = copyEntry(from, to);
    if (!status) {
        // Unless someone else's file appeared there meanwhile (the copy creates its target exclusively).
        if (!(status.error().errnum() == EEXIST && status.error().path() == to)) (void)deleteFileAtPath(to);
        return status;
    }
    return syncParentDirectory(to);
}

LXStatus deleteFileAtPath(const QString& path) {
    struct stat st;
    if (!lstatPath(path, &st))
        return errno == ENOENT ? LXStatus() : LXFileError::fromErrno(QStringLiteral("Cannot delete"), path);
    if (S_ISDIR(st.st_mode)) {
        LX_TRY(emptyDirectoryAtPath(path));
        if (::rmdir(native(path).constData()) != 0 && errno != ENOENT)
            return LXFileError::fromErrno(QStringLiteral("Cannot delete the folder"), path);
        return {};
    }
    if (::unlink(native(path).constData()) != 0 && errno != ENOENT)
        return LXFileError::fromErrno(QStringLiteral("Cannot delete the file"), path);
    return {};
}

LXStatus createDirectoryAtPath(const QString& path) {
    return makeDirectories(QDir::cleanPath(path), 0777);
}

LXStatus emptyDirectoryAtPath(const QString& path) {
    auto names = directoryNames(path);
    if (!names) return names.error();
    for (const QString& name : *names)
        LX_TRY(deleteFileAtPath(childPath(path, name)));
    return {};
}

LXStatus moveToTrash(const QString& path) {
    // Written here rather than through QFile::moveToTrash, which moves the file into the current
    // directory when the data folder is missing, and reports success.
    const QString source = conformPath(path);
    struct stat st;
    if (!lstatPath(source, &st))
        return LXFileError::fromErrno(QStringLiteral("Cannot move to the trash"), source);

    const QString trash = trashDirectory();
    const QString files = trash + QStringLiteral("/files");
    const QString info = trash + QStringLiteral("/info");
    LX_TRY(makeDirectories(files, 0700));
    LX_TRY(makeDirectories(info, 0700));

    // The .trashinfo file is created first and exclusively: it reserves the name against other
    // programs trashing at the same time, as the freedesktop trash requires.
    const QString name = QFileInfo(source).fileName();
    QString trashedName;
    QString infoPath;
    LXFileDescriptor infoFile;
    for (int number = 1; number < 100000 && !infoFile.isOpen(); ++number) {
        trashedName = numberedName(name, number);
        infoPath = childPath(info, trashedName + QStringLiteral(".trashinfo"));
        infoFile = openPath(infoPath, O_WRONLY | O_CREAT | O_EXCL, 0600);
        if (!infoFile.isOpen()) {
            if (errno != EEXIST)
                return LXFileError::fromErrno(QStringLiteral("Cannot write to the trash"), infoPath);
            continue;
        }
        struct stat existing;
        if (lstatPath(childPath(files, trashedName), &existing)) { // left by a program that does not reserve
            infoFile.reset();
            ::unlink(native(infoPath).constData());
        }
    }
    if (!infoFile.isOpen())
        return LXFileError(QStringLiteral("Cannot find a free name in the trash"), source, EEXIST);

    const QByteArray text =
        "[Trash Info]\nPath=" + QUrl::toPercentEncoding(source, "/") + "\nDeletionDate=" +
        QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss")).toLatin1() + "\n";
    const bool written = ::write(infoFile.get(), text.constData(), size_t(text.size())) == text.size();
    if (!written || !closeChecked(infoFile)) {
        const LXFileError error =
            LXFileError::fromErrno(QStringLiteral("Cannot write to the trash"), infoPath);
        ::unlink(native(infoPath).constData());
        return error;
    }

    // A file on another file system is copied into the home trash (movePath's fallback) rather than
    // into a per-volume .Trash-uid folder: slower for large files, but always where the user looks.
    LXStatus moved = movePath(source, childPath(files, trashedName));
    if (!moved) ::unlink(native(infoPath).constData());
    return moved;
}

QString conformPath(const QString& path) {
    if (path.isEmpty()) return {};
    QString p = path;
    if (p == u"~")
        p = QDir::homePath();
    else if (p.startsWith(QStringLiteral("~/")))
        p = QDir::homePath() + p.mid(1);
    if (QDir::isRelativePath(p)) p = QDir::currentPath() + u'/' + p;
    return QDir::cleanPath(p);
}

namespace {
std::atomic<bool> synchronous{false};
} // namespace

void setSynchronousWrites(bool on) {
    synchronous.store(on, std::memory_order_relaxed);
}

bool synchronousWrites() {
    return synchronous.load(std::memory_order_relaxed);
}

LXStatus syncDescriptor(int fd, const QString& path) {
    if (!synchronousWrites()) return {};
    if (::fsync(fd) != 0 && errno != EINVAL) // EINVAL: a file system that cannot sync (a pipe, /proc)
        return LXFileError::fromErrno(QStringLiteral("Cannot flush to the disk"), path);
    return {};
}

LXStatus syncPath(const QString& path) {
    LXFileDescriptor fd = openPath(path, O_RDONLY);
    if (!fd.isOpen()) return LXFileError::fromErrno(QStringLiteral("Cannot open to flush to the disk"), path);
    return syncDescriptor(fd.get(), path);
}

} // namespace LXFile
