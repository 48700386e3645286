#include "engine/TWFileLocks.h"

#include "platform/TWSupportFolders.h"

#include "lx/LXFile.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstring>

#include <fcntl.h>

namespace {

// The file's real path: links followed, the folder's spelling made canonical (the file may be missing).
QString realPath(const QString& path) {
    const QFileInfo info(LXFile::resolvedLinkPath(path));
    const QString folder = QFileInfo(info.absolutePath()).canonicalFilePath();
    return (folder.isEmpty() ? info.absolutePath() : folder) + u'/' + info.fileName();
}

off_t offsetFor(const QString& path) {
    const QByteArray digest = QCryptographicHash::hash(realPath(path).toUtf8(), QCryptographicHash::Sha1);
    quint64 value = 0;
    std::memcpy(&value, digest.constData(), sizeof value);
    return off_t(value >> 2); // positive, with room for the byte itself
}

QString lockFilePath() {
    return TWSupportFolders::undoDirectory() + QStringLiteral("/.Files.lock");
}

} // namespace

bool TWFileLocks::tryLock(const QString& path) {
    if (!m_fd.isOpen()) {
        const QString folder = TWSupportFolders::undoDirectory();
        if (!TWSupportFolders::createPrivateDirectory(folder)) return false;
        m_fd = LXFileDescriptor(::open(QFile::encodeName(lockFilePath()).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
        if (!m_fd.isOpen()) return false;
    }
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = offsetFor(path);
    lock.l_len = 1;
    return ::fcntl(m_fd.get(), F_OFD_SETLK, &lock) == 0;
}

bool TWFileLocks::anyHeld() {
    const LXFileDescriptor fd(::open(QFile::encodeName(lockFilePath()).constData(), O_RDWR | O_CLOEXEC));
    if (!fd.isOpen()) return false; // no lock file: nobody ever held a file
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET; // l_start and l_len 0: the whole range
    return ::fcntl(fd.get(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}
