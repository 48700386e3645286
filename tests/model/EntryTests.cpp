#include "ModelTestSupport.h"

#include "TWFileEntry.h"
#include "TWFolderEntry.h"
#include "TWGroupEntry.h"
#include "TWLocalizedStrings.h"
#include "TWServerEntry.h"

#include "LXAudioFile.h"
#include "LXWaveformCache.h"
#include "TestAudio.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <atomic>
#include <cmath>
#include <thread>

using ModelTest::writeAudio;
using ModelTest::writeBytes;

namespace {

class FileEntryTest : public ModelTest::Fixture {};

QByteArray junk(int size) {
    QByteArray bytes(size, '\0');
    for (int i = 0; i < size; ++i)
        bytes[i] = char((i * 37 + 11) & 0xFF);
    return bytes;
}

} // namespace

// Admission ------------------------------------------------------------------------------------------------

TEST_F(FileEntryTest, AdmitsAudioByContentOrExtensionAndRefusesTheRest) {
    const QString wav = writeAudio(path("kick.wav"));
    auto entry = TWFileEntry::create(wav);
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->name(), QStringLiteral("kick.wav"));

    // The content decides: a WAV without an extension, an AIFF named ".snd".
    const QString noExtension = writeAudio(path("plain"));
    EXPECT_TRUE(TWFileEntry::create(noExtension));
    QFile::rename(writeAudio(path("loop.aif")), path("loop.snd"));
    EXPECT_TRUE(TWFileEntry::create(path("loop.snd")));

    // Text is refused whatever it is called, unless the extension is an audio one.
    EXPECT_FALSE(TWFileEntry::create(writeBytes(path("notes.txt"), "hello")));
    EXPECT_FALSE(TWFileEntry::create(path("missing.txt")));
    auto fake = TWFileEntry::create(writeBytes(path("fake.wav"), "hello"));
    ASSERT_TRUE(fake);
    EXPECT_EQ(fake->status(), TWStatus::Unsupported) << "a .wav that is not audio shows as unsupported";

    // REX loops are admitted by extension and shown as unsupported; REX2 needs the library we lack.
    auto rex = TWFileEntry::create(writeBytes(path("groove.rex"), junk(256)));
    ASSERT_TRUE(rex);
    EXPECT_EQ(rex->status(), TWStatus::Unsupported);
    EXPECT_TRUE(TWFileEntry::create(writeBytes(path("beat.rcy"), junk(256))));
    EXPECT_FALSE(TWFileEntry::create(writeBytes(path("groove.rx2"), junk(256))));
}

TEST_F(FileEntryTest, AdmitsOtherFormatsTheFrameworkReadsByTheirContent) {
    if (!TestAudio::haveTool(QStringLiteral("sox"))) GTEST_SKIP() << "sox is not installed";
    for (const char* name : {"tone.flac", "tone.ogg", "tone.caf", "tone.au", "tone.w64"}) {
        const QString file = path(QString::fromLatin1(name));
        ASSERT_TRUE(TestAudio::generateWithSox(file, {"-n", "-r", "44100", "-c", "1"},
                                               {"synth", "0.1", "sine", "440"}));
        auto entry = TWFileEntry::create(file);
        ASSERT_TRUE(entry) << name;
        EXPECT_EQ(entry->status(), TWStatus::Ready) << name;
        EXPECT_EQ(entry->rate(), 44100) << name;
        EXPECT_EQ(entry->channels(), 1) << name;
    }
}

TEST_F(FileEntryTest, SplitSetMembersFoldOntoTheLeadMember) {
    TestAudio::Sound sound;
    sound.frames = 441;
    sound.channels = 6;
    sound.interleaved = false;
    auto lead = TestAudio::write(path("take"), sound);
    ASSERT_TRUE(lead);
    ASSERT_TRUE(QFile::exists(path("take.Rs")));

    auto entry = TWFileEntry::create(path("take.Rs"));
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->path(), path("take.L"));
    EXPECT_EQ(entry->channels(), 6);
    EXPECT_EQ(entry->name(), QStringLiteral("take"));

    // Suffixes are case-sensitive: "rs" is an ordinary extension.
    QFile::copy(path("take.R"), path("other.rs"));
    auto lower = TWFileEntry::create(path("other.rs"));
    ASSERT_TRUE(lower);
    EXPECT_EQ(lower->path(), path("other.rs"));
}

// Reading
// ----------------------------------------------------------------------------------------------------

TEST_F(FileEntryTest, ReadsTheFilesInformationAndGroupsFailures) {
    auto entry = TWFileEntry::create(writeAudio(path("a.wav"), 22050));
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->status(), TWStatus::Ready) << "no overview before analysis";
    EXPECT_EQ(entry->rate(), 44100);
    EXPECT_EQ(entry->channels(), 2);
    EXPECT_EQ(entry->samples(), 22050);
    EXPECT_EQ(entry->range(), 16);
    EXPECT_NEAR(entry->length(), 0.5, 1e-6);
    EXPECT_EQ(entry->fileSize(), QFileInfo(path("a.wav")).size());
    EXPECT_EQ(entry->color(), TWEntryColor::Grey);
    EXPECT_EQ(entry->max(), -1.0f);
    EXPECT_TRUE(std::isnan(entry->rms()));
    EXPECT_EQ(entry->gain(), 0) << "absent numbers read as 0";

    // A readable file whose sizes disagree with its length is a warning, not damage.
    auto truncated = TWFileEntry::create(ModelTest::writeTruncatedWav(path("cut.wav")));
    ASSERT_TRUE(truncated);
    EXPECT_EQ(truncated->status(), TWStatus::Ready);
    EXPECT_GT(truncated->samples(), 0);

    // A WAV with a format chunk and no audio chunk is damaged: only path and name remain.
    auto bad = TWFileEntry::create(ModelTest::writeDamagedWav(path("bad.wav")));
    ASSERT_TRUE(bad);
    EXPECT_EQ(bad->status(), TWStatus::Bad);
    EXPECT_EQ(bad->info().size(), 2);
    EXPECT_EQ(bad->name(), QStringLiteral("bad.wav"));
    EXPECT_FALSE(bad->audioFile()) << "only states 1, 3, 5 and 7 give a readable file";
    EXPECT_TRUE(entry->audioFile());
}

TEST_F(FileEntryTest, RefreshFollowsTheFileGoingAndComingBack) {
    const QString file = writeAudio(path("a.wav"));
    auto entry = TWFileEntry::create(file);
    ASSERT_TRUE(entry);
    ASSERT_EQ(entry->status(), TWStatus::Ready);

    ASSERT_TRUE(QFile::rename(file, path("away.wav")));
    entry->refresh();
    entry->refresh();
    EXPECT_EQ(entry->status(), TWStatus::NotFound);
    EXPECT_EQ(entry->statusAt(1), TWStatus::Ready) << "-1 is pushed once, over the earlier status";
    EXPECT_EQ(entry->statusAt(2), 0.0f);
    EXPECT_EQ(entry->info().size(), 2);

    // Back with the same date: the -1 goes and the information is read again.
    ASSERT_TRUE(QFile::rename(path("away.wav"), file));
    entry->refresh();
    EXPECT_EQ(entry->status(), TWStatus::Ready);
    EXPECT_EQ(entry->samples(), 441);

    // Unchanged: refresh does not read the file.
    entry->setInfoValue(QStringLiteral("samples"), 7);
    entry->refresh();
    EXPECT_EQ(entry->samples(), 7);
    entry->refreshNow();
    EXPECT_EQ(entry->samples(), 441);
}

TEST_F(FileEntryTest, StatusStackIsEightDeep) {
    TWFileEntry entry;
    EXPECT_EQ(entry.status(), 0.0f);
    entry.pushStatus(4);
    entry.pushStatus(4);
    EXPECT_EQ(entry.statusAt(1), 0.0f) << "pushing the current status again changes nothing";

    TWFileEntry deep;
    for (int i = 1; i <= 9; ++i)
        deep.pushStatus(float(i));
    EXPECT_EQ(deep.status(), 9.0f);
    EXPECT_EQ(deep.statusAt(7), 2.0f) << "the ninth push loses the first value";
    for (int i = 9; i >= 3; --i) {
        EXPECT_EQ(deep.status(), float(i));
        deep.popStatus();
    }
    EXPECT_EQ(deep.status(), 2.0f);
    deep.popStatus();
    EXPECT_EQ(deep.status(), 0.0f);
    deep.popStatus();
    EXPECT_EQ(deep.status(), 0.0f) << "an empty stack reads 0";

    entry.setStatus(3);
    EXPECT_EQ(entry.status(), 3.0f);
    EXPECT_EQ(entry.statusAt(1), 0.0f) << "setStatus replaces the top only";
    EXPECT_EQ(entry.color(), TWEntryColor::Black);
    // Entries at work (2, 4 and 6, with their progress) stay; the rest may go.
    for (float status : {2.0f, 4.5f, 6.0f, -3.0f, -1.0f, 1.0f, 3.0f, 5.0f, 7.0f}) {
        entry.setStatus(status);
        EXPECT_EQ(entry.isRemovable(), status < 2.0f || int(status) % 2 == 1) << status;
    }
}

TEST_F(FileEntryTest, AnalysisStoresLevelsAndAnOverview) {
    auto entry = TWFileEntry::create(writeAudio(path("a.wav"), 44100));
    ASSERT_TRUE(entry);
    QList<TWFileEntryPtr> toAnalyze;
    workspace().rootGroup()->addEntry(entry);
    workspace().rootGroup()->collectEntriesToAnalyze(toAnalyze);
    ASSERT_EQ(toAnalyze.size(), 1);

    EXPECT_TRUE(entry->analyze());
    EXPECT_EQ(entry->status(), TWStatus::ReadyWithOverview);
    EXPECT_NEAR(entry->max(), 0.5f, 0.01f);
    EXPECT_FALSE(std::isnan(entry->rms()));
    EXPECT_EQ(entry->color(), TWEntryColor::Black);
    toAnalyze.clear();
    workspace().rootGroup()->collectEntriesToAnalyze(toAnalyze);
    EXPECT_TRUE(toAnalyze.isEmpty());

    // A new entry on the same file finds the overview.
    auto again = TWFileEntry::create(entry->path());
    EXPECT_EQ(again->status(), TWStatus::ReadyWithOverview);
}

TEST_F(FileEntryTest, StoppedAnalysisLeavesTheEntryReady) {
    auto entry = TWFileEntry::create(writeAudio(path("a.wav"), 44100 * 4));
    ASSERT_TRUE(entry);
    workspace().setStopWorking(LXStopped);
    EXPECT_FALSE(entry->analyze());
    workspace().setStopWorking(LXContinue);
    EXPECT_EQ(entry->status(), TWStatus::Ready);
}

// Progress
// ----------------------------------------------------------------------------------------------------

TEST_F(FileEntryTest, UpdateRedrawsTwiceASecondAndAlwaysAnswersTheStopCode) {
    auto entry = std::make_shared<TWFileEntry>();
    entry->setStatus(TWStatus::Processing);
    int redraws = 0;
    QObject::connect(&workspace(), &TWWorkspace::entryChanged, &workspace(),
                     [&](TWEntry* changed) { redraws += changed == entry.get(); });

    entry->reset();
    EXPECT_EQ(entry->update(0.25f), LXContinue);
    EXPECT_EQ(entry->status(), 4.0f) << "within 0.5 s of reset nothing is shown";

    entry->setLastUpdateTime(TWFileEntry::currentTime() - 1.0);
    workspace().setStopWorking(LXStopped);
    EXPECT_EQ(entry->update(0.25f), LXStopped);
    EXPECT_FLOAT_EQ(entry->status(), 4.25f);
    EXPECT_EQ(entry->update(0.5f), LXStopped) << "the second call inside 0.5 s still answers the code";
    EXPECT_FLOAT_EQ(entry->status(), 4.25f);
    EXPECT_EQ(redraws, 1);

    entry->setLastUpdateTime(0);
    EXPECT_EQ(entry->update(3.0f), LXStopped);
    EXPECT_FLOAT_EQ(entry->status(), 5.0f) << "progress is capped at 1";

    LXError error(0, QString());
    workspace().setStopWorking(LXCancelled);
    EXPECT_FALSE(entry->update(0.1f, &error));
    EXPECT_EQ(error.code(), LXCancelled);
    EXPECT_EQ(error.domain(), LXError::Domain::Progress);
    workspace().setStopWorking(LXContinue);
    EXPECT_TRUE(entry->update(0.1f, &error));
    QObject::disconnect(&workspace(), &TWWorkspace::entryChanged, &workspace(), nullptr);
}

TEST_F(FileEntryTest, ProgressFromAWorkThreadReachesTheMainThreadOnly) {
    auto entry = std::make_shared<TWFileEntry>();
    entry->setStatus(TWStatus::Processing);
    std::atomic<int> redraws{0};
    std::atomic<bool> onMainThread{true};
    const Qt::HANDLE mainThread = QThread::currentThreadId();
    QObject::connect(&workspace(), &TWWorkspace::entryChanged, &workspace(), [&](TWEntry* changed) {
        onMainThread = onMainThread && QThread::currentThreadId() == mainThread;
        redraws += changed == entry.get();
    });

    // The work thread reports while the main thread draws the status.
    std::atomic<bool> done{false};
    std::thread worker([&] {
        for (int i = 0; i < 200; ++i) {
            entry->setLastUpdateTime(0); // every call redraws
            (void)entry->update(float(i) / 200.0f);
            entry->pushStatus(TWStatus::Waiting);
            entry->popStatus();
        }
        done = true;
    });
    // At least one read, however fast the worker: on a loaded machine it may be done before the first.
    float seen = 0;
    do
        seen = std::max(seen, entry->status());
    while (!done);
    worker.join();
    EXPECT_GE(seen, 4.0f);
    EXPECT_TRUE(ModelTest::runUntil([&] { return redraws.load() == 200; }));
    EXPECT_TRUE(onMainThread);

    // A request for an entry released before the main thread gets to it is dropped.
    auto gone = std::make_shared<TWFileEntry>();
    std::thread([&] { workspace().reloadEntry(gone.get()); }).join();
    gone.reset();
    QCoreApplication::processEvents();
    EXPECT_EQ(redraws.load(), 200);
    QObject::disconnect(&workspace(), &TWWorkspace::entryChanged, &workspace(), nullptr);
}

// Tree operations ------------------------------------------------------------------------------------------

TEST_F(FileEntryTest, TreeQueriesWalkChildrenInOrder) {
    const QString a = writeAudio(path("a.wav")), b = writeAudio(path("b.wav"));
    auto root = std::make_shared<TWGroupEntry>();
    auto g1 = std::make_shared<TWGroupEntry>(), g2 = std::make_shared<TWGroupEntry>();
    auto a1 = TWFileEntry::create(a), b1 = TWFileEntry::create(b), a2 = TWFileEntry::create(a);
    root->addEntry(g1);
    root->addEntry(g2);
    g1->addEntry(b1);
    g2->addEntry(a1);
    root->addEntry(a2);
    EXPECT_EQ(a1->parent(), g2.get());

    EXPECT_EQ(root->entryWithPath(a, false), a2) << "shallow: only the children";
    EXPECT_EQ(root->entryWithPath(a, true), a1) << "deep: each child's subtree before the next child";
    EXPECT_EQ(root->entriesWithPath(a), (QList<TWEntryPtr>{a1, a2}));
    EXPECT_EQ(root->entryAtIndex(3), nullptr);
    EXPECT_EQ(root->indexOfEntry(a2.get()), 2);
    EXPECT_TRUE(root->containsEntry(b1.get()));
    EXPECT_FALSE(g2->containsEntry(b1.get()));
    EXPECT_EQ(root->entriesOfClass<TWGroupEntry>().size(), 2);

    QList<TWFileEntryPtr> files;
    root->addFileEntriesToArray(files);
    root->addFileEntriesToArray(files);
    EXPECT_EQ(files, (QList<TWFileEntryPtr>{b1, a1, a2})) << "each entry once, depth first";
    QStringList paths;
    root->addFileEntryPathsToArray(paths);
    EXPECT_EQ(paths, (QStringList{b, a})) << "each path once";

    root->insertEntries({a1, b1}, 1);
    EXPECT_EQ(root->entryAtIndex(1), a1);
    EXPECT_EQ(root->entryAtIndex(2), b1);
    root->removeEntries({a1, b1});
    EXPECT_EQ(root->entryCount(), 3);
    EXPECT_EQ(a1->parent(), root.get()) << "a removed child keeps its parent link";
}

TEST_F(FileEntryTest, ImmutableContainersIgnoreChangesButNotDeletion) {
    const QString directory = makeDirectory(QStringLiteral("folder"));
    writeAudio(directory + "/a.wav");
    writeAudio(directory + "/b.wav");
    auto folder = TWFolderEntry::create(directory);
    ASSERT_EQ(folder->entryCount(), 2);
    folder->addEntry(TWFileEntry::create(writeAudio(path("c.wav"))));
    folder->removeEntry(folder->entryAtIndex(0).get());
    folder->removeAllEntries();
    EXPECT_EQ(folder->entryCount(), 2);

    folder->deleteEntry(folder->entryAtIndex(0));
    EXPECT_EQ(folder->entryCount(), 1);
    EXPECT_FALSE(QFile::exists(directory + "/a.wav"));

    TWServerEntry server;
    server.addEntry(TWFileEntry::create(path("c.wav")));
    EXPECT_EQ(server.entryCount(), 0);
    EXPECT_EQ(server.state(), (QVariantMap{{"Class", "TWServerEntry"}}));
}

TEST_F(FileEntryTest, SortingFollowsTheDescriptorsInEverySubtree) {
    auto root = std::make_shared<TWGroupEntry>();
    auto group = std::make_shared<TWGroupEntry>();
    group->setName(QStringLiteral("Kicks"));
    root->addEntry(group);
    for (const char* name : {"kick 10.wav", "Kick 2.wav", "kick 1.wav"})
        group->addEntry(TWFileEntry::create(writeAudio(path(QString::fromLatin1(name)))));
    auto longer = TWFileEntry::create(writeAudio(path("long.wav"), 44100));
    auto shorter = TWFileEntry::create(writeAudio(path("short.wav"), 441));
    root->addEntry(longer);
    root->addEntry(shorter);

    root->sortEntriesWithDescriptors({{QStringLiteral("name"), true}});
    QStringList names;
    for (const TWEntryPtr& child : group->entries())
        names.append(child->name());
    EXPECT_EQ(names, (QStringList{"kick 1.wav", "Kick 2.wav", "kick 10.wav"}));

    root->sortEntriesWithDescriptors({{QStringLiteral("length"), false}});
    EXPECT_EQ(root->entryAtIndex(0), longer);
    EXPECT_EQ(root->entryAtIndex(1), shorter);
    EXPECT_EQ(root->entryAtIndex(2), group)
        << "an entry without the key sorts first, so last when descending";
}

// File commands
// ----------------------------------------------------------------------------------------------

TEST_F(FileEntryTest, MoveAndCopyReportWhyTheyFailed) {
    const QString file = writeAudio(path("a.wav"));
    const QString into = makeDirectory(QStringLiteral("into"));
    writeAudio(into + "/taken.wav");
    auto entry = TWFileEntry::create(file);

    entry->moveToPath(path("")); // its own directory
    EXPECT_TRUE(m_interaction.alerts().isEmpty());
    EXPECT_EQ(entry->path(), file);

    entry->moveToPath(path("nowhere"));
    ASSERT_EQ(m_interaction.alerts().size(), 1);
    EXPECT_EQ(m_interaction.alerts().at(0).title, TWLocalizedString("Move Failed Alert"));
    EXPECT_EQ(m_interaction.alerts().at(0).message,
              TWLocalizedString("Move Failed No Directory").arg(QStringLiteral("nowhere")));
    EXPECT_EQ(m_interaction.alerts().at(0).style, TWAlertStyle::Informational);

    auto taken = TWFileEntry::create(writeAudio(path("taken.wav")));
    taken->moveToPath(into);
    ASSERT_EQ(m_interaction.alerts().size(), 2);
    EXPECT_EQ(
        m_interaction.alerts().at(1).message,
        QStringLiteral("\"taken.wav\" could not be moved because a file with that name already exists."));
    EXPECT_EQ(taken->path(), path("taken.wav"));

    taken->copyToPath(into, nullptr);
    ASSERT_EQ(m_interaction.alerts().size(), 3);
    EXPECT_EQ(m_interaction.alerts().at(2).title, TWLocalizedString("Copy Failed Alert"));
    EXPECT_EQ(m_interaction.alerts().at(2).message, TWLocalizedString("Copy Failed Exists").arg("taken.wav"));

    // A move into a folder nobody may create files in (not even root) fails in the file system.
    entry->moveToPath(QStringLiteral("/proc"));
    ASSERT_EQ(m_interaction.alerts().size(), 4);
    EXPECT_TRUE(
        m_interaction.alerts().at(3).message.startsWith(TWLocalizedString("Move Failed").arg("a.wav")))
        << m_interaction.alerts().at(3).message.toStdString();
    EXPECT_EQ(entry->path(), file);
    EXPECT_TRUE(QFile::exists(file));
}

TEST_F(FileEntryTest, MoveCarriesTheOverviewAndCopyMakesAnUnreadEntry) {
    const QString file = writeAudio(path("a.wav"));
    const QString into = makeDirectory(QStringLiteral("into"));
    auto entry = TWFileEntry::create(file);
    ASSERT_TRUE(entry->analyze());

    entry->moveToPath(into);
    EXPECT_TRUE(m_interaction.alerts().isEmpty());
    EXPECT_EQ(entry->path(), into + "/a.wav");
    EXPECT_EQ(entry->info().value("path").toString(), into + "/a.wav");
    EXPECT_FALSE(QFile::exists(file));
    EXPECT_TRUE(LXWaveformCache::shared().hasEntryForPath(into + "/a.wav"));

    auto group = std::make_shared<TWGroupEntry>();
    const QString copies = makeDirectory(QStringLiteral("copies"));
    entry->copyToPath(copies, group.get());
    ASSERT_EQ(group->entryCount(), 1);
    auto copy = std::dynamic_pointer_cast<TWFileEntry>(group->entryAtIndex(0));
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->path(), copies + "/a.wav");
    EXPECT_EQ(copy->status(), 0.0f) << "read at the next refresh";
    copy->refresh();
    EXPECT_EQ(copy->samples(), 441);
    EXPECT_TRUE(QFile::exists(into + "/a.wav"));

    // Files the framework cannot read still move.
    auto bad = TWFileEntry::create(ModelTest::writeDamagedWav(path("bad.wav")));
    ASSERT_EQ(bad->status(), TWStatus::Bad);
    bad->moveToPath(into);
    EXPECT_EQ(bad->path(), into + "/bad.wav");
    EXPECT_TRUE(QFile::exists(into + "/bad.wav"));
}

TEST_F(FileEntryTest, RepairActsOnDamagedFilesOnlyAndSaysWhenItFails) {
    auto good = TWFileEntry::create(writeAudio(path("good.wav")));
    good->repair();
    EXPECT_TRUE(m_interaction.alerts().isEmpty());

    auto bad = TWFileEntry::create(writeBytes(path("bad.wav"), QByteArray("RIFF\x04\0\0\0WAVE", 12)));
    ASSERT_EQ(bad->status(), TWStatus::Bad);
    bad->repair();
    ASSERT_EQ(m_interaction.alerts().size(), 1);
    EXPECT_EQ(m_interaction.alerts().at(0).title, QStringLiteral("'bad.wav' could not be repaired."));
    EXPECT_EQ(m_interaction.alerts().at(0).message, QStringLiteral("All attempts at repair failed."));
    EXPECT_EQ(bad->status(), TWStatus::Bad);
}
