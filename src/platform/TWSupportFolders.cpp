#include "platform/TWSupportFolders.h"

#include "lx/LXFile.h"

#include <QStandardPaths>

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

QString workflowsDirectory() {
    return supportDirectory() + QStringLiteral("/Workflows");
}

QString scriptsDirectory() {
    return supportDirectory() + QStringLiteral("/Scripts");
}

LXStatus createStandardFolders() {
    for (const QString& folder : {undoDirectory(), tempDirectory(), workflowsDirectory(), scriptsDirectory()})
        LX_TRY(LXFile::createDirectoryAtPath(folder));
    return {};
}

} // namespace TWSupportFolders
