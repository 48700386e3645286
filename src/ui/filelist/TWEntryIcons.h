#pragma once

#include <QIcon>
#include <QString>

// The icon of an entry's image name ("entry_folder", "entry_status_bad", ...): the desktop theme's icon
// for it, or the style's own where the theme has none. Empty for an unknown name. Main thread.
namespace TWEntryIcons {
QIcon icon(const QString& image);
// The image of a status that shows as one ("entry_status_not_found"), empty for the others.
QString imageOfStatus(float status);
} // namespace TWEntryIcons
