#pragma once

#include "lx/LXResult.h"

#include <QString>

// The program's folders under the application data location (~/.local/share/Clipwright).
namespace TWSupportFolders {
QString supportDirectory();
QString undoDirectory();
QString tempDirectory();
QString workflowsDirectory();
QString scriptsDirectory();
QString channelMatricesDirectory(); // the user's own, beside the ones the program brings
LXStatus createStandardFolders();
// Creates the folder (with missing parents) readable by its owner only, and tightens it when found
// looser: the undo folder holds the earlier versions of the user's files and a list of their paths.
LXStatus createPrivateDirectory(const QString& path);
} // namespace TWSupportFolders
