// Workflow runs on the work thread, as the window starts them: the input of each action by its source,
// inactive actions, how a run ends, and what happens to the list afterwards. Run under ThreadSanitizer too.

#include "EngineTestSupport.h"

#include "lx/dsp/LXGain.h"

#include <QThread>

using namespace EngineTest;

namespace {

QVariantMap gain(int source, double level, const QVariantMap& extra = {}) {
    QVariantMap map = instructions("TWActionChangeGain", {{"level", level}});
    map.insert("source", source);
    for (auto it = extra.begin(); it != extra.end(); ++it)
        map.insert(it.key(), it.value());
    return map;
}

// The samples as our own reader sees them. Not sox here: a fork while the work thread runs leaves
// ThreadSanitizer unable to follow the process (sox is the oracle of the level tests).
std::vector<double> samplesOf(const QString& path) {
    auto file = LXAudioFile::open(path);
    EXPECT_TRUE(file) << path.toStdString();
    if (!file) return {};
    std::vector<double> samples(static_cast<size_t>((*file)->frames() * (*file)->numberOfChannels()));
    EXPECT_TRUE((*file)->readFrames(0, (*file)->frames(), samples.data()));
    return samples;
}

class WorkThread : public Fixture {
protected:
    void TearDown() override {
        runs().stopWorkThread();
        Fixture::TearDown();
    }
    // Hands the list to the work thread and waits for the end of the run; the title it ended with.
    QString runAndWait(const QVariantList& list, const std::function<void()>& meanwhile = {}) {
        RunLog log(runs());
        runs().performInstructions(list, true);
        if (meanwhile) meanwhile();
        EXPECT_TRUE(ModelTest::runUntil([&] { return !log.endings.isEmpty(); }));
        EXPECT_FALSE(runs().isWorking());
        return log.endings.value(0);
    }
};

} // namespace

TEST_F(WorkThread, EachActionTakesTheInputItsSourceNames) {
    const TWFileEntryPtr a = addFile("a.wav");
    const TWFileEntryPtr b = addFile("b.wav");
    const std::vector<double> aBefore = samplesOf(a->path());
    const std::vector<double> bBefore = samplesOf(b->path());
    workspace().setSelectedEntries({a});
    const QVariantList list{
        gain(0, -6.0),                                      // a and b
        gain(1, -6.0),                                      // the selection when the run began: a
        gain(2, 20.0, {{"active", false}}),                 // inactive: hands a on untouched
        gain(2, -6.0),                                      // a again
        gain(3, -6.0, {{"paths", QStringList{b->path()}}}), // b
    };
    const QString title = runAndWait(list, [&] { workspace().setSelectedEntries({b}); });
    EXPECT_EQ(title, QStringLiteral("Process successful"));
    const double g = LXAmplitudeOfLevel(-6.0);
    expectScaled(aBefore, samplesOf(a->path()), g * g * g, 2.0 / 32768);
    expectScaled(bBefore, samplesOf(b->path()), g * g, 2.0 / 32768);
    EXPECT_EQ(runs().undoStack().count(), 4);
    EXPECT_EQ(runs().takeScriptResults(),
              (QStringList{a->path(), b->path(), a->path(), a->path(), b->path()}));
    EXPECT_EQ(runs().progressValue(), 1);
    EXPECT_EQ(runs().progressMaximum(), 1);

    // A first action with source 2 has nothing to work on, and neither has the next one with source 2.
    const QByteArray aBytes = bytesOf(a->path());
    EXPECT_EQ(runAndWait({gain(2, -6.0), gain(2, -6.0)}), QStringLiteral("Process successful"));
    EXPECT_EQ(bytesOf(a->path()), aBytes);
}

TEST_F(WorkThread, TheTitleSaysHowTheRunEnded) {
    const TWFileEntryPtr a = addFile("a.wav");
    workspace().setSelectedEntries({a});
    const QByteArray original = bytesOf(a->path());
    QVariantMap stopping = instructions("TWTestStoppingGain", {{"level", -6.0}});
    stopping.insert("source", 1);
    TWTestStoppingGain::atCall = 1;

    TWTestStoppingGain::code = LXCancelled;
    EXPECT_EQ(runAndWait({stopping, gain(1, -6.0)}), QStringLiteral("Process cancelled"));
    EXPECT_EQ(bytesOf(a->path()), original); // the second action never ran
    EXPECT_EQ(workspace().stopWorking(), LXContinue);

    TWTestStoppingGain::code = LXStopped;
    EXPECT_EQ(runAndWait({gain(1, -6.0), stopping, gain(1, -6.0)}), QStringLiteral("Process stopped"));
    EXPECT_EQ(runs().undoStack().count(), 1); // the first action only
    runs().undoStack().undo();
    EXPECT_EQ(bytesOf(a->path()), original);

    QVariantMap noLevel = gain(1, 0);
    noLevel.remove("level");
    EXPECT_EQ(runAndWait({noLevel}), QStringLiteral("Error: required instructions are missing."));
    EXPECT_EQ(runs().lastErrorDescription(),
              QStringLiteral(
                  "An action error occurred while confirming the instructions: required instructions are "
                  "missing."));
    EXPECT_EQ(runAndWait({gain(1, -6.0)}), QStringLiteral("Process successful"));
    EXPECT_TRUE(runs().lastErrorDescription().isEmpty());
}

TEST_F(WorkThread, ACancelAskedForBeforeTheMainThreadHeardOfTheRunStillCounts) {
    const TWFileEntryPtr a = addFile("a.wav");
    workspace().setSelectedEntries({a});
    const QByteArray original = bytesOf(a->path());
    QVariantMap cancelling = instructions("TWTestStoppingGain", {{"level", -6.0}});
    cancelling.insert("source", 1);
    TWTestStoppingGain::atCall = 1;
    TWTestStoppingGain::code = LXCancelled;
    // The action cancels before the main thread has taken the run's beginning, and goes on only once it has.
    QSemaphore began;
    TWTestStoppingGain::hold = &began;
    const auto connection =
        QObject::connect(&runs(), &TWRunController::processBegan, [&] { began.release(); });
    RunLog log(runs());
    runs().performInstructions({cancelling}, true);
    while (!TWTestStoppingGain::codeSet)
        QThread::yieldCurrentThread(); // no events: beginProcess waits
    EXPECT_TRUE(ModelTest::runUntil([&] { return !log.endings.isEmpty(); }));
    QObject::disconnect(connection);
    EXPECT_EQ(log.endings.value(0), QStringLiteral("Process cancelled"));
    EXPECT_EQ(bytesOf(a->path()), original);
}

TEST_F(WorkThread, RemoveAllAfterProcessEmptiesTheListEvenAfterAFailure) {
    TWPreferences::shared().setValue("Remove All After Process", true);
    const TWFileEntryPtr a = addFile("a.wav");
    workspace().setSelectedEntries({a});
    EXPECT_EQ(runAndWait({gain(1, -6.0)}), QStringLiteral("Process successful"));
    EXPECT_TRUE(ModelTest::runUntil([&] { return workspace().entries().isEmpty(); }));
    EXPECT_TRUE(workspace().selectedEntries().isEmpty());

    const TWFileEntryPtr b = add(a->path());
    workspace().setSelectedEntries({b});
    QVariantMap noLevel = gain(1, 0);
    noLevel.remove("level");
    EXPECT_NE(runAndWait({noLevel}), QStringLiteral("Process successful"));
    EXPECT_TRUE(ModelTest::runUntil([&] { return workspace().entries().isEmpty(); }));
    TWPreferences::shared().removeValue("Remove All After Process");
}
