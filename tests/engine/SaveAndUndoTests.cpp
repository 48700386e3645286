// In-place saves and their undo: format changes that rename the file, the name-conflict question,
// metadata through rewrites, undo and redo (through the undo stack and the on-disk journal), and
// cancel and stop in the middle of a run.

#include "EngineTestSupport.h"

#include "lx/dsp/LXGain.h"

#include <QFileInfo>
#include <QTemporaryDir>

using namespace EngineTest;

namespace {

const QString kGain = QStringLiteral("TWActionChangeGain");

QString undoFolder() {
    return TWSupportFolders::undoDirectory();
}

// The top-level chunks of a RIFF file: id and payload.
QList<LXChunk> riffChunks(const QByteArray& bytes) {
    QList<LXChunk> chunks;
    qsizetype at = 12;
    while (at + 8 <= bytes.size()) {
        const quint32 size = quint32(uchar(bytes[at + 4])) | quint32(uchar(bytes[at + 5])) << 8 |
                             quint32(uchar(bytes[at + 6])) << 16 | quint32(uchar(bytes[at + 7])) << 24;
        chunks.append({bytes.mid(at, 4), bytes.mid(at + 8, qsizetype(size))});
        at += 8 + qsizetype(size) + (size & 1);
    }
    return chunks;
}

QList<LXChunk> chunksBesideAudio(const QString& path) {
    QList<LXChunk> chunks = riffChunks(bytesOf(path));
    chunks.removeIf([](const LXChunk& chunk) { return chunk.id == "data"; });
    return chunks;
}

LXAnnotations richAnnotations(double rate) {
    LXAnnotations a;
    a.metadata = LXMetadata(QVariantMap{{"title", "Take \u00e9"},
                                        {"artist", "Artist"},
                                        {"copyright", "(C) 2024"},
                                        {"comments", "Comment"},
                                        {"description", "Desc"},
                                        {"originator", "Orig"},
                                        {"codingHistory", "A=PCM,F=44100\r\n"},
                                        {"baseNote", 62},
                                        {"detune", 7},
                                        {"tempo", 128.0},
                                        {"beats", qint64(8)},
                                        {"timeSignature", "4/4"},
                                        {"iXML", "<BWFXML><PROJECT>Clip</PROJECT></BWFXML>"}});
    a.labels.markers.addMarkerWithPosition(100 / rate, "Hit");
    a.labels.regions.addRegionWithRange(LXRange::rangeWithLocation(400 / rate, 800 / rate), "Phrase");
    a.labels.loops.addLoopWithType(LXLoopType::Forward, LXRange(1000 / rate, 3000 / rate));
    a.unknownChunks.append({"zzzz", QByteArray("\x01\x02\x03\x04\x05", 5)});
    return a;
}

class SaveAndUndo : public Fixture {
protected:
    QList<QByteArray> bytes(const QList<TWFileEntryPtr>& entries) {
        QList<QByteArray> list;
        for (const TWFileEntryPtr& entry : entries)
            list.append(bytesOf(entry->path()));
        return list;
    }
    QList<TWFileEntryPtr> addFiles(int count) {
        QList<TWFileEntryPtr> files;
        for (int i = 0; i < count; ++i)
            files.append(addFile(QStringLiteral("f%1.wav").arg(i)));
        return files;
    }
};

} // namespace

TEST_F(SaveAndUndo, AFormatChangeInPlaceRepointsEveryEntryAndUndoesBack) {
    const TWFileEntryPtr x = addFile("x.wav");
    const auto group = workspace().addFilesToNewGroup({x->path()});
    ASSERT_TRUE(group);
    const TWEntryPtr twin = group->entryAtIndex(0);
    ASSERT_TRUE(twin && twin != x);
    const QByteArray original = bytesOf(x->path());
    const std::vector<double> before = soxSamples(x->path());

    TWTestGainToAiff action;
    ASSERT_FALSE(run(action, {x}, instructions("TWTestGainToAiff", {{"level", -6.0}})));
    EXPECT_EQ(x->path(), path("x.aif"));
    EXPECT_EQ(twin->path(), path("x.aif"));
    EXPECT_EQ(filesIn(m_dir.path()), QStringList{"x.aif"});
    EXPECT_EQ(x->format(), qint64(LXFormat::AIFF));
    expectScaled(before, soxSamples(path("x.aif")), LXAmplitudeOfLevel(-6.0));
    const QByteArray changed = bytesOf(path("x.aif"));

    ASSERT_EQ(runs().undoStack().count(), 1);
    for (int round = 0; round < 2; ++round) {
        runs().undoStack().undo();
        EXPECT_EQ(filesIn(m_dir.path()), QStringList{"x.wav"});
        EXPECT_EQ(bytesOf(path("x.wav")), original);
        EXPECT_EQ(x->path(), path("x.wav"));
        EXPECT_EQ(twin->path(), path("x.wav"));
        runs().undoStack().redo();
        EXPECT_EQ(filesIn(m_dir.path()), QStringList{"x.aif"});
        EXPECT_EQ(bytesOf(path("x.aif")), changed);
        EXPECT_EQ(twin->path(), path("x.aif"));
    }
}

TEST_F(SaveAndUndo, ANameTakenByAnotherFileIsAskedAbout) {
    const TWFileEntryPtr x = addFile("x.wav");
    ASSERT_TRUE(TestAudio::generateWithSox(path("x.aif"), {"-n", "-r", "44100", "-c", "1"},
                                           {"synth", "0.05", "sine", "300"}));
    const QByteArray wav = bytesOf(path("x.wav"));
    const QByteArray aif = bytesOf(path("x.aif"));

    m_interaction.answerAlerts({1}); // "Cancel"
    TWTestGainToAiff action;
    ASSERT_FALSE(run(action, {x}, instructions("TWTestGainToAiff", {{"level", -6.0}})));
    ASSERT_EQ(m_interaction.alerts().size(), 1);
    EXPECT_EQ(m_interaction.alerts()[0].title, QStringLiteral("File Exists Alert"));
    EXPECT_EQ(m_interaction.alerts()[0].buttons, (QStringList{"Rename", "Cancel"}));
    EXPECT_EQ(bytesOf(path("x.wav")), wav);
    EXPECT_EQ(bytesOf(path("x.aif")), aif);
    EXPECT_EQ(x->path(), path("x.wav"));
    EXPECT_EQ(filesIn(m_dir.path()), (QStringList{"x.aif", "x.wav"})); // no output left behind
    EXPECT_EQ(filesIn(undoFolder()), QStringList{});
    EXPECT_EQ(runs().undoStack().count(), 0);

    // "Rename", then a name chosen in the save panel.
    m_interaction.answerAlerts({0});
    m_interaction.answerSavePanels({path("y.aif")});
    TWTestGainToAiff renaming;
    ASSERT_FALSE(run(renaming, {x}, instructions("TWTestGainToAiff", {{"level", -6.0}})));
    EXPECT_EQ(x->path(), path("y.aif"));
    EXPECT_EQ(bytesOf(path("x.aif")), aif);
    EXPECT_EQ(filesIn(m_dir.path()), (QStringList{"x.aif", "y.aif"}));
    runs().undoStack().undo();
    EXPECT_EQ(filesIn(m_dir.path()), (QStringList{"x.aif", "x.wav"}));
    EXPECT_EQ(bytesOf(path("x.wav")), wav);
}

TEST_F(SaveAndUndo, EveryChunkSurvivesAGainInPlaceAndToANewFile) {
    const double rate = 44100;
    {
        LXAudioFileWriter writer(m_dir.path());
        writer.setRate(rate);
        writer.setChannels(2);
        writer.setDepth(24);
        writer.annotations() = richAnnotations(rate);
        const std::vector<double> samples = TestAudio::generate(small());
        ASSERT_TRUE(writer.writeFrames(samples.data(), small().frames));
        ASSERT_TRUE(writer.endWrite());
        ASSERT_TRUE(writer.saveFile(0, path("rich.wav")));
    }
    const TWFileEntryPtr entry = add(path("rich.wav"));
    EXPECT_EQ(entry->barsBeats(), "2 bars") << "the acid chunk's beats";
    const QList<LXChunk> chunks = chunksBesideAudio(entry->path());
    QList<QByteArray> ids;
    for (const LXChunk& chunk : chunks)
        ids.append(chunk.id);
    for (const char* id : {"fmt ", "LIST", "bext", "cue ", "smpl", "acid", "iXML", "zzzz"})
        EXPECT_TRUE(ids.contains(id)) << id;
    const LXAnnotations annotations = (*LXAudioFile::open(entry->path()))->annotations();

    QList<TWFileEntryPtr> results;
    ASSERT_FALSE(run(instructions(kGain, {{"level", -6.0}}, true), {entry}, &results));
    ASSERT_FALSE(run(instructions(kGain, {{"level", -6.0}}), {entry}));
    ASSERT_EQ(results.size(), 1);
    for (const QString& output : {entry->path(), results[0]->path()}) {
        SCOPED_TRACE(output.toStdString());
        auto file = LXAudioFile::open(output);
        ASSERT_TRUE(file);
        EXPECT_EQ((*file)->annotations(), annotations);
        EXPECT_EQ(chunksBesideAudio(output), chunks); // every chunk but the audio, byte for byte
        if (TestAudio::haveTool("sndfile-info")) {
            const QString info = TestAudio::runTool("sndfile-info", {output}).simplified();
            for (const char* seen :
                 {"bext :", "cue :", "ltxt :", "smpl :", "acid :", "iXML :", "zzzz : 5", "labl : 1 : Hit"})
                EXPECT_TRUE(info.contains(QLatin1String(seen))) << seen << "\n" << info.toStdString();
        }
    }
}

TEST_F(SaveAndUndo, UndoAndRedoGiveBackTheExactBytesAnyNumberOfTimes) {
    const QList<TWFileEntryPtr> files = addFiles(2);
    const QList<QByteArray> original = bytes(files);
    ASSERT_FALSE(run(instructions(kGain, {{"level", -6.0}}), files));
    const QList<QByteArray> changed = bytes(files);
    ASSERT_NE(changed, original);
    ASSERT_EQ(runs().undoStack().count(), 1);
    EXPECT_EQ(runs().undoStack().undoText(), QStringLiteral("Change Gain"));
    const qsizetype kept = filesIn(undoFolder()).size();
    EXPECT_EQ(kept, 2);

    for (int round = 0; round < 3; ++round) {
        runs().undoStack().undo();
        EXPECT_EQ(bytes(files), original) << "undo " << round;
        EXPECT_EQ(filesIn(undoFolder()).size(), kept);
        runs().undoStack().redo();
        EXPECT_EQ(bytes(files), changed) << "redo " << round;
    }

    // The command line's way: a journal object of its own on the same file, as a later process has.
    for (int round = 0; round < 3; ++round) {
        TWUndoJournal journal(TWUndoJournal::shared().path());
        const auto done = journal.lastDoneStep();
        ASSERT_TRUE(done);
        EXPECT_EQ(done->actionName, QStringLiteral("Change Gain"));
        EXPECT_EQ(done->records.size(), 2);
        ASSERT_TRUE(journal.switchStep(done->id, true));
        EXPECT_EQ(bytes(files), original);
        EXPECT_FALSE(TWUndoJournal(journal.path()).lastDoneStep());
        const auto undone = TWUndoJournal(journal.path()).firstUndoneStep();
        ASSERT_TRUE(undone);
        ASSERT_TRUE(TWUndoJournal(journal.path()).switchStep(undone->id, false));
        EXPECT_EQ(bytes(files), changed);
    }
    // The undo stack and the journal agree on where the files are.
    runs().undoStack().undo();
    EXPECT_EQ(bytes(files), original);
}

TEST_F(SaveAndUndo, CancelPutsBackTheFilesOfTheRunAndStopKeepsThem) {
    const QList<TWFileEntryPtr> files = addFiles(4);
    const QList<QByteArray> original = bytes(files);

    TWTestStoppingGain::code = LXCancelled;
    TWTestStoppingGain cancelling;
    auto error = run(cancelling, files, instructions("TWTestStoppingGain", {{"level", -6.0}}));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), LXCancelled);
    EXPECT_EQ(error->phase(), TWActionPhase::ProcessingFiles);
    EXPECT_EQ(bytes(files), original);
    EXPECT_EQ(filesIn(m_dir.path()), (QStringList{"f0.wav", "f1.wav", "f2.wav", "f3.wav"}));
    EXPECT_EQ(filesIn(undoFolder()), QStringList{});
    EXPECT_EQ(runs().undoStack().count(), 0);
    EXPECT_FALSE(TWUndoJournal(TWUndoJournal::shared().path()).lastDoneStep());
    for (const TWFileEntryPtr& file : files)
        EXPECT_NE(TWStatus::state(file->status()), int(TWStatus::Processing));

    workspace().setStopWorking(LXContinue);
    TWTestStoppingGain::code = LXStopped;
    TWTestStoppingGain stopping;
    error = run(stopping, files, instructions("TWTestStoppingGain", {{"level", -6.0}}));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), LXStopped);
    const QList<QByteArray> after = bytes(files);
    EXPECT_NE(after[0], original[0]);
    EXPECT_NE(after[1], original[1]);
    EXPECT_EQ(after[2], original[2]);
    EXPECT_EQ(after[3], original[3]);
    EXPECT_EQ(filesIn(m_dir.path()).size(), 4);
    ASSERT_EQ(runs().undoStack().count(), 1);
    runs().undoStack().undo();
    EXPECT_EQ(bytes(files), original);
}

TEST_F(SaveAndUndo, ACancelledRunLeavesTheRedoOfAnEarlierRunIntact) {
    const QList<TWFileEntryPtr> files = addFiles(3);
    const QList<QByteArray> original = bytes(files);
    ASSERT_FALSE(run(instructions(kGain, {{"level", -6.0}}), {files[0]}));
    const QByteArray changed = bytesOf(files[0]->path());
    runs().undoStack().undo();
    ASSERT_EQ(bytesOf(files[0]->path()), original[0]);

    // Cancelled on its second file, after replacing the first.
    TWTestStoppingGain::code = LXCancelled;
    TWTestStoppingGain::atCall = 2;
    TWTestStoppingGain cancelling;
    ASSERT_TRUE(run(cancelling, {files[1], files[2]}, instructions("TWTestStoppingGain", {{"level", -6.0}})));
    EXPECT_EQ(bytes(files), original);

    ASSERT_TRUE(runs().undoStack().canRedo());
    runs().undoStack().redo();
    EXPECT_TRUE(m_interaction.alerts().isEmpty()) << m_interaction.alerts().value(0).message.toStdString();
    EXPECT_EQ(bytesOf(files[0]->path()), changed);
}

TEST(UndoJournal, ASaveTakenBackLeavesTheStepsOtherSavesAsTheyWere) {
    QTemporaryDir folder;
    TWUndoJournal journal(folder.filePath("Journal"));
    const auto step = journal.beginStep("Change Gain");
    ASSERT_TRUE(step);
    TWSaveInfo kept, failed;
    kept.setPaths({"/w/a.wav"}, {"/w/a.wav"}, {folder.filePath("a_1.wav")});
    failed.setPaths({"/w/b.flac", "/w/b.R.flac"}, {"/w/b.wav", "/w/b.R.wav"},
                    {folder.filePath("b_2.wav"), folder.filePath("b.R_3.wav")});
    ASSERT_TRUE(journal.recordSave(*step, kept));
    ASSERT_TRUE(journal.recordSave(*step, failed));
    journal.forgetSave(*step, failed);

    const auto last = TWUndoJournal(journal.path()).lastDoneStep();
    ASSERT_TRUE(last);
    ASSERT_EQ(last->records.size(), 1);
    EXPECT_EQ(last->records[0].currentPaths(), QStringList{"/w/a.wav"});
}
