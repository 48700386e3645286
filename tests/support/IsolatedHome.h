#pragma once

#include <QFile>
#include <QTemporaryDir>

// Gives a test or bench program a home of its own (preferences, support folders, caches, the trash), so
// that it never reads or writes the real user's. Before the application object is made. The data
// folder is not hidden: the metadata index leaves hidden folders out.
inline void useIsolatedHome(const QTemporaryDir& home) {
    qputenv("HOME", QFile::encodeName(home.path()));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.filePath(QStringLiteral(".config"))));
    qputenv("XDG_DATA_HOME", QFile::encodeName(home.filePath(QStringLiteral("data"))));
    qputenv("XDG_CACHE_HOME", QFile::encodeName(home.filePath(QStringLiteral(".cache"))));
}
