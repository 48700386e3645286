#include "ModelTestSupport.h"

#include "model/TWFileEntry.h"
#include "model/TWFolderEntry.h"
#include "model/TWGroupEntry.h"
#include "model/TWLocalizedStrings.h"

#include "TestAudio.h"
#include "lx/LXAudioFile.h"
#include "lx/LXWaveformCache.h"

#include <QCoreApplication>
#include <QFile>
#include <QThread>

#include <atomic>
#include <cmath>
#include <thread>

using ModelTest::writeAudio;
using ModelTest::writeBytes;

namespace {

class FileEntryTest : public ModelTest::Fixture {};

} // namespace

TEST_F(FileEntryTest, AdmitsAudioByContentOrExtensionAndRefusesTheRest) {
    // The content decides: a WAV without an extension, an AIFF named ".snd".
    EXPECT_TRUE(TWFileEntry::create(writeAudio(path("plain"))));
    QFile::rename(writeAudio(path("loop.aif")), path("loop.snd"));
    EXPECT_TRUE(TWFileEntry::create(path("loop.snd")));
    // Text is refused whatever it is called, unless the extension is an audio one.
    EXPECT_FALSE(TWFileEntry::create(writeBytes(path("notes.txt"), "hello")));
    EXPECT_FALSE(TWFileEntry::create(path("missing.txt")));
    // REX loops are admitted by extension and shown as unsupported; REX2 needs the library we lack.
    const QByteArray junk(256, '\x5b');
    for (const char* name : {"fake.wav", "groove.rex", "beat.rcy"}) {
        auto entry = TWFileEntry::create(writeBytes(path(QString::fromLatin1(name)), junk));
        ASSERT_TRUE(entry) << name;
        EXPECT_EQ(entry->status(), TWStatus::Unsupported) << name;
    }
    EXPECT_FALSE(TWFileEntry::create(writeBytes(path("groove.rx2"), junk)));

    // Other formats the framework reads, by their content.
    if (!TestAudio::haveTool(QStringLiteral("sox"))) GTEST_SKIP() << "sox is not installed";
    for (const char* name : {"tone.flac", "tone.ogg", "tone.caf", "tone.au", "tone.w64"}) {
        const QString file = path(QString::fromLatin1(name));
        ASSERT_TRUE(TestAudio::generateWithSox(file, {"-n", "-r", "44100", "-c", "1"},
                                               {"synth", "0.1", "sine", "440"}));
        auto entry = TWFileEntry::create(file);
        ASSERT_TRUE(entry) << name;
        EXPECT_EQ(entry->status(), TWStatus::Ready) << name;
        EXPECT_EQ(entry->channels(), 1) << name;
    }
}

TEST_F(FileEntryTest, ASplitSetIsOneEntryUnderItsLeadMember) {
    const QString directory = makeDirectory(QStringLiteral("Surround"));
    ASSERT_TRUE(TestAudio::write(directory + "/take", {.channels = 6, .frames = 441, .interleaved = false}));
    auto entry = TWFileEntry::create(directory + "/take.Rs");
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->path(), directory + "/take.L");
    EXPECT_EQ(entry->channels(), 6);
    EXPECT_EQ(entry->name(), QStringLiteral("take"));

    auto folder = TWFolderEntry::create(directory);
    ASSERT_EQ(folder->entryCount(), 1);
    EXPECT_EQ(folder->entryAtIndex(0)->path(), directory + "/take.L");
    folder->refresh();
    EXPECT_EQ(folder->entryCount(), 1);

    // Suffixes are case-sensitive: "rs" is an ordinary extension.
    QFile::copy(directory + "/take.R", path("other.rs"));
    auto lower = TWFileEntry::create(path("other.rs"));
    ASSERT_TRUE(lower);
    EXPECT_EQ(lower->path(), path("other.rs"));
}

TEST_F(FileEntryTest, ReadsTheFileAgainWhenItComesBackAndTellsWarningsFromDamage) {
    auto entry = TWFileEntry::create(writeAudio(path("a.wav"), 22050));
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->status(), TWStatus::Ready) << "no overview before analysis";
    EXPECT_EQ(entry->samples(), 22050);
    EXPECT_NEAR(entry->length(), 0.5, 1e-6);
    EXPECT_TRUE(std::isnan(entry->rms()));
    EXPECT_EQ(entry->gain(), 0) << "absent numbers read as 0";
    EXPECT_TRUE(entry->audioFile());

    // Refresh follows the file going and coming back, and reads it only when it changed.
    ASSERT_TRUE(QFile::rename(path("a.wav"), path("away.wav")));
    entry->refresh();
    entry->refresh();
    EXPECT_EQ(entry->status(), TWStatus::NotFound);
    EXPECT_EQ(entry->statusAt(1), TWStatus::Ready) << "-1 is pushed once, over the earlier status";
    EXPECT_EQ(entry->statusAt(2), 0.0f);
    ASSERT_TRUE(QFile::rename(path("away.wav"), path("a.wav")));
    entry->setInfoValue(QStringLiteral("samples"), 7);
    entry->refresh();
    EXPECT_EQ(entry->status(), TWStatus::Ready);
    EXPECT_EQ(entry->samples(), 22050) << "back with the same date: read again";
    entry->setInfoValue(QStringLiteral("samples"), 7);
    entry->refresh();
    EXPECT_EQ(entry->samples(), 7) << "unchanged: not read";
    entry->refreshNow();
    EXPECT_EQ(entry->samples(), 22050);

    // A recording cut off, whose sizes claim more than the file holds, is a warning, not damage.
    QFile::resize(writeAudio(path("cut.wav"), 4410), 8000);
    auto truncated = TWFileEntry::create(path("cut.wav"));
    ASSERT_TRUE(truncated);
    EXPECT_EQ(truncated->status(), TWStatus::Ready);
    EXPECT_GT(truncated->samples(), 0);

    // A WAV with a format chunk and no audio chunk is damaged: only path and name remain.
    auto bad = TWFileEntry::create(ModelTest::writeDamagedWav(path("bad.wav")));
    ASSERT_TRUE(bad);
    EXPECT_EQ(bad->status(), TWStatus::Bad);
    EXPECT_EQ(bad->info().size(), 2);
    EXPECT_FALSE(bad->audioFile()) << "only states 1, 3, 5 and 7 give a readable file";
}

TEST_F(FileEntryTest, AnalysisStoresLevelsAndAnOverviewUnlessStopped) {
    auto entry = TWFileEntry::create(writeAudio(path("a.wav"), 44100 * 4));
    workspace().rootGroup()->addEntry(entry);
    workspace().setStopWorking(LXStopped);
    EXPECT_FALSE(entry->analyze());
    workspace().setStopWorking(LXContinue);
    EXPECT_EQ(entry->status(), TWStatus::Ready);
    QList<TWFileEntryPtr> toAnalyze;
    workspace().rootGroup()->collectEntriesToAnalyze(toAnalyze);
    ASSERT_EQ(toAnalyze.size(), 1);

    EXPECT_TRUE(entry->analyze());
    EXPECT_EQ(entry->status(), TWStatus::ReadyWithOverview);
    EXPECT_NEAR(entry->max(), 0.5f, 0.01f);
    EXPECT_FALSE(std::isnan(entry->rms()));
    toAnalyze.clear();
    workspace().rootGroup()->collectEntriesToAnalyze(toAnalyze);
    EXPECT_TRUE(toAnalyze.isEmpty());
    // A new entry on the same file finds the overview.
    EXPECT_EQ(TWFileEntry::create(entry->path())->status(), TWStatus::ReadyWithOverview);

    // Rewritten in place by another program, quieter, at the same size and with its times set back: the
    // entry reads it again and the cache no longer gives the former levels.
    TestAudio::Sound quieter;
    quieter.frames = 44100 * 4;
    quieter.amplitude = 0.125;
    ASSERT_TRUE(TestAudio::write(path("quieter.wav"), quieter));
    ASSERT_TRUE(TestAudio::rewriteKeepingTimes(entry->path(), path("quieter.wav")));
    entry->refresh();
    EXPECT_EQ(entry->status(), TWStatus::Ready);
    ASSERT_TRUE(entry->analyze());
    EXPECT_NEAR(entry->max(), 0.125f, 0.01f);
}

TEST_F(FileEntryTest, ProgressRedrawsTwiceASecondOnTheMainThreadAndAlwaysAnswersTheStopCode) {
    auto entry = std::make_shared<TWFileEntry>();
    entry->setStatus(TWStatus::Processing);
    std::atomic<int> redraws{0};
    std::atomic<bool> onMainThread{true};
    const Qt::HANDLE mainThread = QThread::currentThreadId();
    QObject::connect(&workspace(), &TWWorkspace::entryChanged, &workspace(), [&](TWEntry* changed) {
        onMainThread = onMainThread && QThread::currentThreadId() == mainThread;
        redraws += changed == entry.get();
    });
    entry->reset();
    EXPECT_EQ(entry->update(0.25f), LXContinue);
    EXPECT_EQ(entry->status(), 4.0f) << "within 0.5 s of reset nothing is shown";
    entry->setLastUpdateTime(TWFileEntry::currentTime() - 1.0);
    workspace().setStopWorking(LXStopped);
    EXPECT_EQ(entry->update(0.25f), LXStopped);
    EXPECT_EQ(entry->update(0.5f), LXStopped) << "the second call inside 0.5 s still answers the code";
    EXPECT_FLOAT_EQ(entry->status(), 4.25f);
    EXPECT_EQ(redraws, 1);
    entry->setLastUpdateTime(0);
    (void)entry->update(3.0f);
    EXPECT_FLOAT_EQ(entry->status(), 5.0f) << "progress is capped at 1";
    LXError error(0, QString());
    workspace().setStopWorking(LXCancelled);
    EXPECT_FALSE(entry->update(0.1f, &error));
    EXPECT_EQ(error.code(), LXCancelled);
    workspace().setStopWorking(LXContinue);

    // A work thread reports while the main thread draws the status.
    redraws = 0;
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

TEST_F(FileEntryTest, TreeQueriesWalkChildrenInOrderAndSortEverySubtree) {
    const QString a = writeAudio(path("a.wav")), b = writeAudio(path("b.wav"), 44100);
    auto root = std::make_shared<TWGroupEntry>();
    auto g1 = std::make_shared<TWGroupEntry>(), g2 = std::make_shared<TWGroupEntry>();
    auto a1 = TWFileEntry::create(a), b1 = TWFileEntry::create(b), a2 = TWFileEntry::create(a);
    root->addEntry(g1);
    root->addEntry(g2);
    g1->addEntry(b1);
    g2->addEntry(a1);
    root->addEntry(a2);
    EXPECT_EQ(root->entryWithPath(a, false), a2) << "shallow: only the children";
    EXPECT_EQ(root->entryWithPath(a, true), a1) << "deep: each child's subtree before the next child";
    EXPECT_EQ(root->entriesWithPath(a), (QList<TWEntryPtr>{a1, a2}));
    EXPECT_FALSE(g2->containsEntry(b1.get()));

    QList<TWFileEntryPtr> files;
    root->addFileEntriesToArray(files);
    root->addFileEntriesToArray(files);
    EXPECT_EQ(files, (QList<TWFileEntryPtr>{b1, a1, a2})) << "each entry once, depth first";
    QStringList paths;
    root->addFileEntryPathsToArray(paths);
    EXPECT_EQ(paths, (QStringList{b, a})) << "each path once";

    for (const char* name : {"kick 10.wav", "Kick 2.wav", "kick 1.wav"})
        g1->addEntry(TWFileEntry::create(writeAudio(path(QString::fromLatin1(name)))));
    root->sortEntriesWithDescriptors({{QStringLiteral("name"), true}});
    QStringList names;
    for (const TWEntryPtr& child : g1->entries())
        names.append(child->name());
    EXPECT_EQ(names, (QStringList{"b.wav", "kick 1.wav", "Kick 2.wav", "kick 10.wav"}));
    root->sortEntriesWithDescriptors({{QStringLiteral("length"), false}});
    EXPECT_EQ(g1->entryAtIndex(0), b1);
    EXPECT_EQ(root->entryAtIndex(0), a2) << "an entry without the key sorts first, so last when descending";
}

// File commands -------------------------------------------------------------------------------------------

TEST_F(FileEntryTest, MoveAndCopyReportWhyTheyFailed) {
    const QString file = writeAudio(path("a.wav"));
    const QString into = makeDirectory(QStringLiteral("into"));
    writeAudio(into + "/taken.wav");
    auto entry = TWFileEntry::create(file);
    auto taken = TWFileEntry::create(writeAudio(path("taken.wav")));
    entry->moveToPath(path("")); // its own directory: nothing to do, nothing to say
    EXPECT_TRUE(m_interaction.alerts().isEmpty());

    entry->moveToPath(path("nowhere"));
    taken->moveToPath(into);
    taken->copyToPath(into, nullptr);
    // A move into a folder nobody may create files in (not even root) fails in the file system.
    entry->moveToPath(QStringLiteral("/proc"));
    const QList<TWAlert> alerts = m_interaction.alerts();
    ASSERT_EQ(alerts.size(), 4);
    EXPECT_EQ(alerts[0].title, TWLocalizedString("Move Failed Alert"));
    EXPECT_EQ(alerts[0].message,
              TWLocalizedString("Move Failed No Directory").arg(QStringLiteral("nowhere")));
    EXPECT_EQ(alerts[0].style, TWAlertStyle::Informational);
    EXPECT_EQ(
        alerts[1].message,
        QStringLiteral("\"taken.wav\" could not be moved because a file with that name already exists."));
    EXPECT_EQ(alerts[2].title, TWLocalizedString("Copy Failed Alert"));
    EXPECT_EQ(alerts[2].message, TWLocalizedString("Copy Failed Exists").arg("taken.wav"));
    EXPECT_TRUE(alerts[3].message.startsWith(TWLocalizedString("Move Failed").arg("a.wav")))
        << alerts[3].message.toStdString();
    EXPECT_EQ(entry->path(), file);
    EXPECT_EQ(taken->path(), path("taken.wav"));
    EXPECT_TRUE(QFile::exists(file));

    // A split set stops as a whole when only one member's name is taken: nothing moves, nothing is copied.
    ASSERT_TRUE(TestAudio::write(path("take"), {.frames = 441, .interleaved = false}));
    auto set = TWFileEntry::create(path("take.L"));
    writeBytes(into + "/take.R", "kept");
    set->moveToPath(into);
    set->copyToPath(into, nullptr);
    ASSERT_EQ(m_interaction.alerts().size(), 6);
    EXPECT_EQ(m_interaction.alerts()[4].message, TWLocalizedString("Move Failed Exists").arg("take.R"));
    EXPECT_EQ(m_interaction.alerts()[5].message, TWLocalizedString("Copy Failed Exists").arg("take.R"));
    EXPECT_TRUE(QFile::exists(path("take.L")) && QFile::exists(path("take.R")) &&
                !QFile::exists(into + "/take.L"));
    QFile kept(into + "/take.R");
    ASSERT_TRUE(kept.open(QIODevice::ReadOnly));
    EXPECT_EQ(kept.readAll(), "kept");
}

TEST_F(FileEntryTest, MoveCarriesTheOverviewAndCopyMakesAnUnreadEntry) {
    const QString into = makeDirectory(QStringLiteral("into"));
    auto entry = TWFileEntry::create(writeAudio(path("a.wav")));
    ASSERT_TRUE(entry->analyze());
    entry->moveToPath(into);
    EXPECT_TRUE(m_interaction.alerts().isEmpty());
    EXPECT_EQ(entry->info().value("path").toString(), into + "/a.wav");
    EXPECT_FALSE(QFile::exists(path("a.wav")));
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

    // Files the framework cannot read still move, but repair says when it fails.
    auto bad = TWFileEntry::create(writeBytes(path("bad.wav"), QByteArray("RIFF\x04\0\0\0WAVE", 12)));
    ASSERT_EQ(bad->status(), TWStatus::Bad);
    bad->moveToPath(into);
    EXPECT_TRUE(QFile::exists(into + "/bad.wav"));
    entry->repair(); // nothing to repair
    EXPECT_TRUE(m_interaction.alerts().isEmpty());
    bad->repair();
    ASSERT_EQ(m_interaction.alerts().size(), 1);
    EXPECT_EQ(m_interaction.alerts().at(0).title, QStringLiteral("'bad.wav' could not be repaired."));
    EXPECT_EQ(m_interaction.alerts().at(0).message, QStringLiteral("All attempts at repair failed."));
    EXPECT_EQ(bad->status(), TWStatus::Bad);
}
