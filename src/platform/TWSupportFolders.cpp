#include "platform/TWSupportFolders.h"

#include "lx/LXFile.h"

#include <cerrno>

#include <QFile>
#include <QStandardPaths>

#include <sys/stat.h>

namespace TWSupportFolders {

// Spelled out rather than AppDataLocation, which depends on the organization and application names the
// process happens to have set (none in tests and tools, two levels when both are set).
QString supportDirectory() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           QStringLiteral("/Clipwright");
}

QString undoDirectory() {
    return supportDirectory() + QStringLiteral("/Undo");
}

QString tempDirectory() {
    return supportDirectory() + QStringLiteral("/Temp");
}

QString channelMatricesDirectory() {
    return supportDirectory() + QStringLiteral("/Channel Matrices");
}

QString workflowsDirectory() {
    return supportDirectory() + QStringLiteral("/Workflows");
}

QString scriptsDirectory() {
    return supportDirectory() + QStringLiteral("/Scripts");
}

LXStatus createStandardFolders() {
    for (const QString& folder : {tempDirectory(), workflowsDirectory(), scriptsDirectory()})
        LX_TRY(LXFile::createDirectoryAtPath(folder));
    return createPrivateDirectory(undoDirectory());
}

LXStatus createPrivateDirectory(const QString& path) {
    const QByteArray native = QFile::encodeName(path);
    if (::mkdir(native.constData(), 0700) != 0) {
        if (errno == ENOENT) { // a parent is missing
            LX_TRY(LXFile::createDirectoryAtPath(path));
        } else if (errno != EEXIST) {
            return LXFileError::fromErrno(QStringLiteral("Cannot create the folder"), path);
        }
    }
    struct stat st;
    if (::stat(native.constData(), &st) != 0)
        return LXFileError::fromErrno(QStringLiteral("Cannot create the folder"), path);
    if ((st.st_mode & 077) != 0 && ::chmod(native.constData(), st.st_mode & 0700) != 0)
        return LXFileError::fromErrno(QStringLiteral("Cannot make the folder private"), path);
    return {};
}

} // namespace TWSupportFolders
