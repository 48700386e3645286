// The loop shapes besides the per-file writer loop, through small probe actions: exports, one file of
// all, descriptive changes undone by instructions, and handing files on.

#include "EngineTestSupport.h"
#include "ShapeProbes.h"

#include <QDir>

using namespace EngineTest;

namespace {

class Shapes : public Fixture {
protected:
    QStringList hiddenFilesIn(const QString& folder) const {
        return QDir(folder).entryList(QDir::Files | QDir::Hidden).filter(QRegularExpression("^\\."));
    }
};

} // namespace

TEST_F(Shapes, AnExportTakesItsNameOnlyWhenCompleteAndACancelDeletesWhatItMade) {
    const TWFileEntryPtr a = addFile("a.wav");
    TestAudio::Sound longer = small();
    longer.frames = 44100; // long enough to be stopped half-way
    const TWFileEntryPtr b = addFile("b.wav", longer);
    const QString out = makeDirectory("out");
    ModelTest::writeBytes(out + "/a.wav", "old");
    QList<TWFileEntryPtr> results;
    ASSERT_FALSE(run(instructions("TWTestExportProbe", {}, true, out), {a}, &results));
    EXPECT_EQ(results, QList<TWFileEntryPtr>{a});           // the source: an export adds nothing to the list
    EXPECT_EQ(bytesOf(out + "/a.wav"), bytesOf(a->path())); // what was there is replaced
    EXPECT_EQ(runs().undoStack().count(), 0);

    // Stopped in the middle of b: a stays, and no part of b is left under any name; a cancel takes a too.
    for (const int32_t code : {LXStopped, LXCancelled}) {
        const auto connection =
            QObject::connect(&runs(), &TWRunController::entryProcessing, [&](TWEntry* entry) {
                if (entry == b.get()) workspace().setStopWorking(code);
            });
        const auto error = run(instructions("TWTestExportProbe", {}, true, out), {a, b}, &results);
        QObject::disconnect(connection);
        workspace().setStopWorking(LXContinue);
        ASSERT_TRUE(error);
        EXPECT_EQ(error->code(), code);
        EXPECT_EQ(filesIn(out), code == LXStopped ? QStringList{"a.wav"} : QStringList{});
        EXPECT_TRUE(hiddenFilesIn(out).isEmpty()) << hiddenFilesIn(out).join(' ').toStdString();
    }
}

TEST_F(Shapes, OneFileOfAllLeavesOutWhatCannotBeReadAndIsNamedAfterTheFirst) {
    const TWFileEntryPtr bad = add(ModelTest::writeDamagedWav(path("bad.wav")));
    const TWFileEntryPtr a = addFile("a.wav");
    const TWFileEntryPtr b = addFile("b.wav");
    RunLog log(runs());
    QList<TWFileEntryPtr> results;
    ASSERT_FALSE(run(instructions("TWTestJoinProbe", {}, true), {bad, a, b}, &results));
    ASSERT_EQ(results.size(), 1);
    EXPECT_EQ(QFileInfo(results.first()->path()).fileName(), QStringLiteral("a-1.wav"));
    auto joined = LXAudioFile::open(results.first()->path());
    ASSERT_TRUE(joined);
    EXPECT_EQ((*joined)->frames(), 2 * 4410);
    EXPECT_EQ(log.progress.last().maximum, 1); // the whole run is one step
    for (const TWFileEntryPtr& entry : {bad, a, b})
        EXPECT_NE(TWStatus::state(entry->status()), int(TWStatus::Processing));
}

TEST_F(Shapes, DescriptiveChangesAreUndoneAndRedoneByInstructions) {
    const TWFileEntryPtr a = addFile("a.wav");
    const TWFileEntryPtr b = addFile("b.wav");
    QVariantMap prefix = instructions("TWTestRenameProbe");
    prefix.remove("destination");
    ASSERT_FALSE(run(prefix, {a, b}));
    EXPECT_EQ(filesIn(m_dir.path()), (QStringList{"x-a.wav", "x-b.wav"}));
    ASSERT_EQ(runs().undoStack().count(), 1);
    runs().undoStack().undo();
    EXPECT_EQ(filesIn(m_dir.path()), (QStringList{"a.wav", "b.wav"}));
    EXPECT_EQ(a->path(), path("a.wav"));
    runs().undoStack().redo();
    EXPECT_EQ(filesIn(m_dir.path()), (QStringList{"x-a.wav", "x-b.wav"}));
    runs().undoStack().undo();
    EXPECT_EQ(filesIn(m_dir.path()), (QStringList{"a.wav", "b.wav"}));
    EXPECT_EQ(runs().undoStack().count(), 1); // undoing and redoing adds no steps
}

TEST_F(Shapes, HandingOnKeepsTheEntriesAsResultsAndRecordsNothingToUndo) {
    const TWFileEntryPtr a = addFile("a.wav");
    const TWFileEntryPtr b = addFile("b.wav");
    QVariantMap copy = instructions("TWTestCopyProbe");
    copy.remove("destination");
    QList<TWFileEntryPtr> results;
    ASSERT_FALSE(run(copy, {a, b}, &results));
    EXPECT_EQ(results, (QList<TWFileEntryPtr>{a, b}));
    EXPECT_EQ(filesIn(path("handed")), (QStringList{"a.wav", "b.wav"}));
    EXPECT_EQ(runs().undoStack().count(), 0);
}
