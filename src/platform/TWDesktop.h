#pragma once

#include "lx/LXResult.h"

#include <QString>

// What the desktop does for us: trash, open, reveal in the file manager, notices.
namespace TWDesktop {
LXStatus moveToTrash(const QString& path);
bool openPath(const QString& path);   // xdg-open
bool openUrl(const QString& url);     // in the browser, through xdg-open
bool revealPath(const QString& path); // the file manager shows and selects the item, else its folder opens
bool openWithApplication(const QString& path, const QString& application); // by .desktop name or file name
// The .desktop file of an installed application, found by desktop-file id or by its Name; empty when none.
QString findApplication(const QString& application);
void postNotice(const QString& title, const QString& text); // nothing without a session bus
} // namespace TWDesktop
