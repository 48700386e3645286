// The model's and the engine's tests run inside a QCoreApplication (smart groups use timers, the
// workspace queued calls, runs a work thread) and in a home of their own, so that no test reads or writes
// the real user's preferences, trash, undo folder, caches or metadata index.

#include "IsolatedHome.h"
#include "platform/TWPreferences.h"
#include "platform/TWSupportFolders.h"

#include "lx/LXWaveformCache.h"

#include <QCoreApplication>
#ifdef CLIPWRIGHT_TEST_WIDGETS
#include <QApplication>
#endif
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

int main(int argc, char** argv) {
    QTemporaryDir home;
    if (!home.isValid()) return 1;
    // The smart group tests need the metadata index to see the application's support folder (in the
    // data folder, not hidden), to show that its files are never listed.
    useIsolatedHome(home);
    // The trash misbehaves when the data folder is missing.
    QDir().mkpath(home.filePath(QStringLiteral("data")));

#ifdef CLIPWRIGHT_TEST_WIDGETS // the window's tests: widgets, drawn off screen unless a display is chosen
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
#else
    QCoreApplication app(argc, argv);
#endif
    ::testing::InitGoogleTest(&argc, argv);
    TWPreferences::shared().registerDefaults(TWPreferences::standardDefaults());
    LXWaveformCache::shared().setDirectory(home.filePath(QStringLiteral(".cache/Clipwright/waveforms")));
    (void)TWSupportFolders::createStandardFolders();
    return RUN_ALL_TESTS();
}
