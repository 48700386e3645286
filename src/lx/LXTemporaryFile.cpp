#include "lx/LXTemporaryFile.h"

#include "lx/LXAudioFileWriter.h"

#include <QFile>
#include <QRandomGenerator>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>

bool LXIsTemporaryFileName(const QString& name) {
    return name.startsWith(u'.') && name.endsWith(QLatin1String(LXAudioFileWriter::kTemporarySuffix));
}

LXResult<LXTemporaryFile> LXCreateTemporaryFile(const QString& directory, const QString& baseName) {
    for (int attempt = 0; attempt < 100; ++attempt) {
        const QString path = QStringLiteral("%1/.%2.%3%4")
                                 .arg(directory, baseName)
                                 .arg(QRandomGenerator::global()->generate(), 8, 16, QLatin1Char('0'))
                                 .arg(LXAudioFileWriter::kTemporarySuffix);
        LXFileDescriptor fd(
            ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
        if (fd.isOpen()) {
            (void)::flock(fd.get(), LOCK_EX | LOCK_NB);
            return LXTemporaryFile{path, std::move(fd)};
        }
        if (errno != EEXIST)
            return LXFileError::fromErrno(QStringLiteral("cannot create a file in the folder"), directory);
    }
    return LXError(LXErrWriteFailed, QStringLiteral("cannot find a free temporary name"), directory);
}
