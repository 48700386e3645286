#include "shell/TWSession.h"

#include "engine/TWRunController.h"
#include "engine/TWUndoJournal.h"

#include "model/TWWorkspace.h"
#include "platform/TWInteraction.h"
#include "platform/TWPreferences.h"
#include "platform/TWSupportFolders.h"

#include "lx/LXAudioFileWriter.h"
#include "lx/LXFile.h"

TWSession::TWSession(FrontEnd frontEnd, TWInteraction& interaction) {
    TWPreferences& preferences = TWPreferences::shared();
    preferences.registerDefaults(TWPreferences::standardDefaults());
    LXAudioFileWriter::setRetainUnrecognizedDataDefault(
        preferences.boolValue(QStringLiteral("Retain Unrecognized Data")));
    LXFile::setSynchronousWrites(preferences.boolValue(QStringLiteral("Synchronous Writes")));
    (void)TWSupportFolders::createStandardFolders();
    TWInteraction::setCurrent(&interaction);

    m_runs = std::make_unique<TWRunController>(
        TWEngineContext{TWWorkspace::workspace(), preferences, TWUndoJournal::shared(), interaction});
    // A command runs once and ends: no desktop notices, no analysis of the files it was given.
    m_runs->setHeadless(frontEnd == FrontEnd::CommandLine);
}

TWSession::~TWSession() {
    m_runs.reset(); // stops the work thread first: it may still ask something of the user
    TWInteraction::setCurrent(nullptr);
}

TWWorkspace& TWSession::workspace() const {
    return m_runs->context().workspace;
}

TWUndoJournal& TWSession::journal() const {
    return m_runs->context().journal;
}
