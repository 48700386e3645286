#pragma once

#include "model/TWEntry.h"
#include "model/TWWorkspace.h"
#include "platform/TWInteraction.h"
#include "platform/TWScriptedInteraction.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <functional>
#include <ostream>

// Readable failures: GoogleTest finds this by argument-dependent lookup for QString and QStringList.
inline void PrintTo(const QString& text, std::ostream* os) {
    *os << '"' << text.toStdString() << '"';
}

// Helpers shared by the model's tests.
namespace ModelTest {

// A short stereo 16-bit WAV (or AIFF, by the extension) of `frames` frames at 44.1 kHz.
QString writeAudio(const QString& path, int64_t frames = 441);
// A file holding exactly these bytes.
QString writeBytes(const QString& path, const QByteArray& bytes);

// Runs the event loop until the condition holds or the time is up (then false). Each pass waits for the
// next event, so nothing spins.
bool runUntil(const std::function<bool()>& condition, int timeoutMs = 30000);

// A WAV with a format chunk and no audio chunk: the framework calls it damaged.
QString writeDamagedWav(const QString& path);

// Makes a folder one in which nothing can be made, renamed or deleted, or undoes that. Root writes anywhere,
// except into an immutable folder (chattr +i), so root gets that instead of a mode.
void lockDirectory(const QString& path, bool locked);

// One line per entry below `entry`, depth first: "  TWFileEntry /tmp/x/a.wav", "TWGroupEntry Drums".
QStringList describeTree(const TWEntry& entry, int depth = 0);

// Resets the workspace (an empty tree, no selection, name order, the continue code) and answers every
// question from a script; the files live in a fresh temporary folder.
class Fixture : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    QString path(const QString& relative) const { return m_dir.filePath(relative); }
    QString makeDirectory(const QString& relative) const;
    TWWorkspace& workspace() const { return TWWorkspace::workspace(); }

    QTemporaryDir m_dir;
    TWScriptedInteraction m_interaction;
};

} // namespace ModelTest
