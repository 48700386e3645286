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
LXStatus createStandardFolders();
} // namespace TWSupportFolders
