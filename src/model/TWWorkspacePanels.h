#pragma once

#include "model/TWEntry.h"

#include <QList>

class TWWorkspace;

// The file commands that first ask the user through a panel or an alert (TWInteraction), then hand the
// answer to the workspace's own commands. Main thread, like every file command.
namespace TWWorkspacePanels {

// Files, folders and old file lists chosen in an open panel go after the selected row. Returns what was
// added (nothing when the panel was cancelled).
QList<TWEntryPtr> addToList(TWWorkspace& workspace);
// The selected entries move (or are copied) into a directory chosen in a panel; false when cancelled.
// The copy panel's check box collects the copies in a new group "Copied items"; it keeps its state from
// one copy to the next, as the window's panel does.
bool moveTo(TWWorkspace& workspace);
bool copyTo(TWWorkspace& workspace);
// Opens the selection in Ringlet when a desktop file names it; otherwise offers its download page.
// True when Ringlet was found.
bool openRinglet(TWWorkspace& workspace);
// Opens the selection with the editor stored under "Other Editor Name", asking for one when none is set.
void openOtherEditor(TWWorkspace& workspace);
// Asks for an application (a .desktop file, or a program), stores it under "Other Editor Name" and opens
// the selection with it; false when cancelled.
bool changeOtherEditor(TWWorkspace& workspace);

} // namespace TWWorkspacePanels
