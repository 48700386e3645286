// The processing loop's contract with the hooks it calls and the destinations it confirms, on real files.

#include "EngineTestSupport.h"

#include "lx/LXLevels.h"

using namespace EngineTest;

namespace {

// Records what the loop asks of it; copies each file to each output unchanged in format.
class TWTestProbe : public TWAction {
public:
    QString className() const override { return QStringLiteral("TWTestProbe"); }
    QString verb() const override { return QStringLiteral("Probing..."); }
    QStringList requiredInstructionKeys() const override { return {}; }

    int32_t preCode = LXContinue;
    int32_t processCode = LXContinue;
    int outputs = 1;
    int preCalls = 0, postCalls = 0, countCalls = 0;
    QList<int> indices;
    QStringList processed;

protected:
    TWOutcome preProcessWithEntries(const QList<TWFileEntryPtr>&, const QVariantMap&) override {
        ++preCalls;
        return TWOutcome::fromCode(preCode);
    }
    int numberOfNewEntriesForAudioFile(LXAudioFile&, TWFileEntry&, const QVariantMap&) override {
        ++countCalls;
        return outputs;
    }
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap&, LXAudioFileWriter& writer,
                               int index) override {
        indices.append(index);
        processed.append(file.path());
        if (processCode != LXContinue) return TWOutcome::fromCode(processCode);
        return file.copyToWriter(writer);
    }
    void postProcess() override { ++postCalls; }
};

class Loop : public Fixture {
protected:
    QVariantMap probe(bool toNewFile = false, const QString& directory = {}) {
        return instructions("TWTestProbe", {}, toNewFile, directory);
    }
};

} // namespace

TEST_F(Loop, NoEntriesStillRunsTheHooksAndReportsProgress) {
    RunLog log(runs());
    TWTestProbe action;
    EXPECT_FALSE(run(action, {}, probe()));
    EXPECT_EQ(action.preCalls, 1);
    EXPECT_EQ(action.postCalls, 1);
    ASSERT_EQ(log.progress.size(), 1);
    EXPECT_EQ(log.progress[0].title, QStringLiteral("Probing..."));
    EXPECT_EQ(log.progress[0].maximum, 0);
}

TEST_F(Loop, AFailingPreparationOpensNoFile) {
    const TWFileEntryPtr a = addFile("a.wav");
    TWTestProbe action;
    action.preCode = LXInvalidParameter;
    const auto error = run(action, {a}, probe());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), LXInvalidParameter);
    EXPECT_EQ(error->failureReason(), QStringLiteral("a parameter given to the action was invalid."));
    EXPECT_EQ(error->phase(), QStringLiteral("Processing the files"));
    EXPECT_EQ(action.countCalls, 0);
    EXPECT_EQ(action.postCalls, 1);
    EXPECT_NE(TWStatus::state(a->status()), int(TWStatus::Processing));
}

TEST_F(Loop, UnreadableFilesAreSkippedAndSplitsGiveOneEntryPerOutput) {
    const TWFileEntryPtr a = addFile("a.wav");
    const TWFileEntryPtr bad = add(ModelTest::writeDamagedWav(path("bad.wav")));
    const TWFileEntryPtr b = addFile("b.wav");
    ASSERT_TRUE(bad);
    TWTestProbe action;
    action.outputs = 3;
    QList<TWFileEntryPtr> results;
    ASSERT_FALSE(run(action, {a, bad, b}, probe(true), &results));
    EXPECT_EQ(action.processed,
              (QStringList{a->path(), a->path(), a->path(), b->path(), b->path(), b->path()}));
    EXPECT_EQ(action.indices, (QList<int>{0, 1, 2, 0, 1, 2}));
    ASSERT_EQ(results.size(), 6);
    QStringList made;
    for (const TWFileEntryPtr& entry : results)
        made.append(QFileInfo(entry->path()).fileName());
    EXPECT_EQ(made, (QStringList{"a-1.wav", "a-2.wav", "a-3.wav", "b-1.wav", "b-2.wav", "b-3.wav"}));
    for (const TWFileEntryPtr& entry : results)
        EXPECT_EQ(bytesOf(entry->path()), bytesOf(a->path()));
    // Each source is followed by its three outputs in the tree, and is no longer shown as processing.
    const auto& root = workspace().rootGroup()->entries();
    ASSERT_EQ(root.size(), 9);
    EXPECT_EQ(root[0], a);
    EXPECT_TRUE(results.mid(0, 3).contains(std::dynamic_pointer_cast<TWFileEntry>(root[1])));
    EXPECT_TRUE(results.mid(0, 3).contains(std::dynamic_pointer_cast<TWFileEntry>(root[3])));
    EXPECT_EQ(root[4], bad);
    EXPECT_EQ(root[5], b);
    for (const TWFileEntryPtr& entry : {a, b})
        EXPECT_NE(TWStatus::state(entry->status()), int(TWStatus::Processing));
}

TEST_F(Loop, AHookFailureEndsTheActionKeepsWhatWasSavedAndLeavesTheEntryAtRest) {
    const TWFileEntryPtr a = addFile("a.wav");
    const float resting = a->status();
    TWTestProbe action;
    action.processCode = -7;
    const auto error = run(action, {a, addFile("b.wav")}, probe(true));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), -7);
    EXPECT_EQ(error->localizedDescription(),
              QStringLiteral(
                  "An action error occurred while processing the files: an undefined error occurred: -7"));
    EXPECT_EQ(action.processed, QStringList{a->path()}); // the second file is never started
    EXPECT_EQ(action.postCalls, 1);
    EXPECT_EQ(filesIn(m_dir.path()), (QStringList{"a.wav", "b.wav"}));
    EXPECT_EQ(a->status(), resting);
    EXPECT_TRUE(run(action, {a}, probe()));
    EXPECT_EQ(a->status(), resting) << "failed in place";
    TWTestProbe noOutputs;
    noOutputs.outputs = 0;
    EXPECT_FALSE(run(noOutputs, {a}, probe(true)));
    EXPECT_EQ(a->status(), resting) << "no output";
}

TEST_F(Loop, AFailureReadingAFileSaysWhichFileAndWhy) {
    // Measures each file before the loop, as a normalize does; the file shrinks once it is open.
    class Measuring : public TWTestProbe {
        TWOutcome preProcessWithEntries(const QList<TWFileEntryPtr>& entries, const QVariantMap&) override {
            auto file = LXAudioFile::open(entries.first()->path());
            if (!file) return file.error();
            QFile(entries.first()->path()).resize(100);
            auto peak = LXMaximumFrom(**file, 0, (*file)->frames(), (*file)->channelSet());
            if (!peak) return peak.error();
            return TWOutcome::success();
        }
    } action;
    const TWFileEntryPtr a = addFile("kick.wav", small());
    const auto error = run(action, {a}, probe());
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->localizedDescription().contains("'kick.wav': "))
        << error->localizedDescription().toStdString();
    EXPECT_FALSE(error->localizedDescription().contains("undefined"))
        << error->localizedDescription().toStdString();
}

TEST_F(Loop, DestinationsAndInstructionsAreConfirmedBeforeAnythingIsTouched) {
    const TWFileEntryPtr a = addFile("a.wav");
    const QByteArray original = bytesOf(a->path());
    RunLog log(runs());
    const auto expectError = [&](const QVariantMap& ins, int32_t code, const QString& phase,
                                 const QString& reason) {
        const auto error = run(ins, {a});
        ASSERT_TRUE(error) << phase.toStdString();
        EXPECT_EQ(error->code(), code);
        EXPECT_EQ(error->phase(), phase);
        EXPECT_EQ(error->failureReason(), reason);
    };
    QVariantMap noLevel = instructions("TWActionChangeGain");
    expectError(noLevel, LXMissingInstructions, TWActionPhase::ConfirmingInstructions,
                "required instructions are missing.");
    QVariantMap noDestination = instructions("TWActionChangeGain", {{"level", -6.0}});
    noDestination.remove("destination");
    expectError(noDestination, LXMissingInstructions, TWActionPhase::ConfirmingInstructions,
                "required instructions are missing.");
    expectError(instructions("TWActionChangeGain", {{"level", -6.0}}, true, path("nowhere")),
                LXMissingDestination, TWActionPhase::ConfirmingDestination,
                "the destination directory does not exist.");
    expectError(instructions("TWActionChangeGain", {{"level", -6.0}}, true, a->path()), LXMissingDestination,
                TWActionPhase::ConfirmingDestination, "the destination directory does not exist.");

    // A folder nobody may write to. Root writes anywhere, except into an immutable folder.
    const QString locked = makeDirectory("locked");
    const TWFileEntryPtr inside = add(ModelTest::writeAudio(locked + "/c.wav"));
    ModelTest::lockDirectory(locked, true);
    const auto error = run(instructions("TWActionChangeGain", {{"level", -6.0}}), {a, inside});
    ModelTest::lockDirectory(locked, false);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), LXReadOnlyDestination);
    EXPECT_EQ(error->phase(), TWActionPhase::ConfirmingDestination);

    EXPECT_EQ(log.progress.size(), 0); // nothing was announced
    EXPECT_EQ(bytesOf(a->path()), original);
    EXPECT_EQ(filesIn(m_dir.path()), QStringList{"a.wav"});
}

TEST_F(Loop, FilesMadeAtOnceAreKeptInOrderAndOneFileIsNeverMadeTwiceAtOnce) {
    QList<TWFileEntryPtr> entries;
    for (const char* name : {"a.wav", "b.wav", "c.wav", "d.wav", "e.wav"})
        entries.append(addFile(name));
    // The same file again, and through a link, each right after it: each pass must work on the one
    // before's result.
    ASSERT_TRUE(QFile::link(entries[1]->path(), path("link.wav")));
    entries.insert(1, entries[0]);
    entries.insert(3, add(path("link.wav")));
    const double before = peakOf(soxSamples(entries[0]->path()), 2);
    QList<TWFileEntryPtr> results;
    ASSERT_FALSE(run(instructions("TWActionChangeGain", {{"level", -6.0}}), entries, &results));
    EXPECT_EQ(results, entries);
    EXPECT_NEAR(20 * std::log10(peakOf(soxSamples(entries[0]->path()), 2) / before), -12.0, 0.01);
    EXPECT_NEAR(20 * std::log10(peakOf(soxSamples(entries[2]->path()), 2) / before), -12.0, 0.01);
    EXPECT_NEAR(20 * std::log10(peakOf(soxSamples(entries[4]->path()), 2) / before), -6.0, 0.01);

    // One file fails: those before it are kept, and what was begun after it goes without a trace.
    class Failing : public TWTestProbe {
        bool canProcessFilesConcurrently() const override { return true; }
        int numberOfNewEntriesForAudioFile(LXAudioFile&, TWFileEntry&, const QVariantMap&) override { return 1; }
        TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap&, LXAudioFileWriter& writer,
                                   int) override {
            if (file.path().endsWith("c.wav")) return TWOutcome::fromCode(LXInvalidParameter);
            return file.copyToWriter(writer);
        }
    } failing;
    results.clear();
    const QList<TWFileEntryPtr> files{entries[0], entries[2], entries[4], entries[5], entries[6]};
    ASSERT_TRUE(run(failing, files, probe(true), &results));
    EXPECT_EQ(results.size(), 2);
    EXPECT_EQ(filesIn(m_dir.path()),
              (QStringList{"a-1.wav", "a.wav", "b-1.wav", "b.wav", "c.wav", "d.wav", "e.wav", "link.wav"}));
    for (const TWFileEntryPtr& entry : entries)
        EXPECT_NE(TWStatus::state(entry->status()), int(TWStatus::Processing));
}
