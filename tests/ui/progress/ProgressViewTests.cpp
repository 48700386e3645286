// The progress view over a real run: its title through to the end, and a file that failed on its line.

#include "TestAudio.h"
#include "engine/TWRunController.h"
#include "model/TWWorkspace.h"
#include "platform/TWScriptedInteraction.h"
#include "shell/TWSession.h"
#include "ui/progress/TWProgressView.h"

#include <QFile>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

TEST(Progress, FollowsARunToItsEndAndListsTheFilesThatFailed) {
    TWScriptedInteraction interaction;
    TWSession session(TWSession::FrontEnd::Window, interaction);
    session.runs().setHeadless(true); // no analysis of the new entries in between
    TWProgressView progress(session.workspace(), session.runs());
    QTemporaryDir dir;
    const QString good = *TestAudio::write(dir.filePath("good.wav"), {});
    const QString bad = dir.filePath("bad.wav");
    const QString goodCopy = *TestAudio::write(dir.filePath("copy.wav"), {});
    QFile garbage(bad);
    ASSERT_TRUE(garbage.open(QIODevice::WriteOnly));
    garbage.write(QByteArray(4096, 'x'));
    garbage.close();
    session.workspace().addFiles({good, bad, goodCopy});

    session.runs().setRunOptions({.keepGoing = true});
    QSignalSpy ended(&session.runs(), &TWRunController::processEnded);
    session.runs().performInstructions({QVariantMap{{"class", "TWActionChangeGain"},
                                                    {"source", qint64(3)},
                                                    {"paths", QStringList{good, bad, goodCopy}},
                                                    {"destination", QVariantMap{{"toNewFile", false}}},
                                                    {"level", -3.0}}},
                                       true);
    ASSERT_TRUE(ended.wait(10000));
    EXPECT_EQ(progress.title(), "Process successful");
    ASSERT_EQ(progress.problems().size(), 1);
    EXPECT_EQ(progress.problems().first(), "bad.wav skipped: is not an audio file this program can read");
    EXPECT_FALSE(progress.findChild<QPushButton*>()->isEnabled()); // nothing left to stop
}
