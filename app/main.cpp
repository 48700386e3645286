#include "LXAudioFileWriter.h"
#include "TWCommandLine.h"
#include "TWPreferences.h"
#include "TWSupportFolders.h"

#include <QCoreApplication>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Clipwright"));
    QCoreApplication::setApplicationVersion(QStringLiteral(CLIPWRIGHT_VERSION));

    TWPreferences& preferences = TWPreferences::shared();
    preferences.registerDefaults(TWPreferences::standardDefaults());
    LXAudioFileWriter::setRetainUnrecognizedDataDefault(preferences.boolValue(QStringLiteral("Retain Unrecognized Data")));
    (void)TWSupportFolders::createStandardFolders();

    // FIXME: with no command this will open the window once it exists.
    return TWCommandLine::run(app.arguments().mid(1));
}
