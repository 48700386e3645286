#include "ModelTestSupport.h"

#include "TWFileEntry.h"
#include "TWGroupEntry.h"
#include "TWSmartGroupEntry.h"
#include "TWSupportFolders.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>

using ModelTest::writeAudio;
using ModelTest::writeBytes;

namespace {

const QString kSuffix = QStringLiteral(" && (kMDItemContentTypeTree = \"public.audio\")");

QVariantMap criterion(const QString& key, const QString& comparator, const QString& value) {
    return {{"key", key}, {"comparator", comparator}, {"value", value}};
}

class SmartGroupTest : public ModelTest::Fixture {
protected:
    // Runs the group's query and waits for its end.
    bool run(TWSmartGroupEntry& group) {
        group.refreshSmartGroup();
        return finish(group);
    }
    bool finish(TWSmartGroupEntry& group) {
        return ModelTest::runUntil([&] { return group.status() == 3.0f || group.status() < 0; });
    }
    QStringList childPaths(const TWEntry& entry) const {
        QStringList paths;
        for (const TWEntryPtr& child : entry.entries())
            paths.append(child->path());
        return paths;
    }
};

} // namespace

TEST(SmartGroupQuery, TextJoinsTheCriteriaAndAddsTheAudioSuffix) {
    EXPECT_EQ(TWSmartGroupEntry::queryText({criterion("Name", "LIKE[cd]", "drum")}, true),
              "(Name LIKE[cd] '*drum*')" + kSuffix);

    const QVariantList two = {criterion("Name", "BEGINSWITH[cd]", "a"),
                              criterion("AudioSampleRate", ">", "44100")};
    EXPECT_EQ(TWSmartGroupEntry::queryText(two, false),
              "(Name BEGINSWITH[cd] 'a') OR (AudioSampleRate > '44100')" + kSuffix)
        << "no parentheses around the pair: the suffix binds to the last criterion";
    EXPECT_EQ(TWSmartGroupEntry::queryText(two, true),
              "(Name BEGINSWITH[cd] 'a') AND (AudioSampleRate > '44100')" + kSuffix);
    EXPECT_EQ(TWSmartGroupEntry::queryText({criterion("Name", "ENDSWITH[cd]", "O'Neil\\")}, true),
              "(Name ENDSWITH[cd] 'O\\'Neil\\\\')" + kSuffix);

    TWSmartGroupEntry group;
    EXPECT_EQ(group.name(), QStringLiteral("New Smart Group"));
    EXPECT_EQ(group.path(), QDir::homePath());
    EXPECT_TRUE(group.liveUpdates());
    EXPECT_EQ(group.status(), 0.0f);
    EXPECT_EQ(group.queryText(), "(Name LIKE[cd] '*bongo*')" + kSuffix);
    EXPECT_TRUE(group.containerIsImmutable());
    EXPECT_FALSE(group.isLeaf());
}

TEST_F(SmartGroupTest, FindsMatchingAudioFilesAndKeepsThoseStillFound) {
    const QString scope = makeDirectory(QStringLiteral("Library"));
    makeDirectory(QStringLiteral("Library/Kit"));
    writeAudio(scope + "/Drum 1.wav");
    writeAudio(scope + "/Kit/drum 2.aif");
    writeAudio(scope + "/snare.wav");
    writeBytes(scope + "/drum notes.txt", "not audio");

    auto group = std::make_shared<TWSmartGroupEntry>();
    group->setPath(scope);
    group->setPredicate({criterion("Name", "LIKE[cd]", "drum")});
    bool redisplayed = false;
    QObject::connect(&workspace(), &TWWorkspace::entryAndChildrenChanged, &workspace(),
                     [&](TWEntry* entry) { redisplayed = redisplayed || entry == group.get(); });
    group->refreshSmartGroup();
    EXPECT_GE(group->status(), 6.0f);
    EXPECT_LT(group->status(), 7.0f);
    ASSERT_TRUE(finish(*group)) << group->lastError().toStdString();
    EXPECT_EQ(group->status(), 3.0f);
    EXPECT_TRUE(redisplayed);
    EXPECT_EQ(childPaths(*group), (QStringList{scope + "/Drum 1.wav", scope + "/Kit/drum 2.aif"}));
    const TWEntryPtr first = group->entryAtIndex(0);
    EXPECT_EQ(first->parent(), group.get());
    EXPECT_EQ(first->status(), TWStatus::Ready);

    ASSERT_TRUE(QFile::remove(scope + "/Kit/drum 2.aif"));
    writeAudio(scope + "/drum 3.wav");
    ASSERT_TRUE(run(*group));
    EXPECT_EQ(childPaths(*group), (QStringList{scope + "/Drum 1.wav", scope + "/drum 3.wav"}));
    EXPECT_EQ(group->entryAtIndex(0), first) << "a child still found is the same object";
    QObject::disconnect(&workspace(), &TWWorkspace::entryAndChildrenChanged, &workspace(), nullptr);
}

TEST_F(SmartGroupTest, NeverListsTheApplicationsOwnFiles) {
    const QString support = TWSupportFolders::supportDirectory();
    ASSERT_TRUE(support.startsWith(QDir::homePath()));
    ASSERT_TRUE(QDir().mkpath(support + "/Undo"));
    writeAudio(support + "/Undo/bongo.wav");
    const QString music = QDir::homePath() + "/Music";
    ASSERT_TRUE(QDir().mkpath(music));
    writeAudio(music + "/bongo.wav");

    TWSmartGroupEntry group; // Name contains "bongo" in the home folder
    ASSERT_TRUE(run(group)) << group.lastError().toStdString();
    EXPECT_EQ(childPaths(group), (QStringList{music + "/bongo.wav"}));
    QFile::remove(music + "/bongo.wav");
    QFile::remove(support + "/Undo/bongo.wav");
}

TEST_F(SmartGroupTest, WithoutLiveUpdatesARefreshLeavesTheChildren) {
    const QString scope = makeDirectory(QStringLiteral("Static"));
    writeAudio(scope + "/bongo 1.wav");
    TWSmartGroupEntry group;
    group.setPath(scope);
    ASSERT_TRUE(run(group));
    ASSERT_EQ(group.entryCount(), 1);

    writeAudio(scope + "/bongo 2.wav");
    group.setLiveUpdates(false);
    group.refresh();
    EXPECT_EQ(group.status(), 3.0f) << "no query ran";
    EXPECT_EQ(group.entryCount(), 1);

    group.setLiveUpdates(true);
    group.refresh();
    ASSERT_TRUE(finish(group));
    EXPECT_EQ(group.entryCount(), 2);
}

TEST_F(SmartGroupTest, CriteriaThatMakeNoQueryLeaveTheGroupEmptyAndSaySo) {
    const QString scope = makeDirectory(QStringLiteral("Broken"));
    writeAudio(scope + "/bongo.wav");
    TWSmartGroupEntry group;
    group.setPath(scope);
    ASSERT_TRUE(run(group));
    ASSERT_EQ(group.entryCount(), 1);

    group.setPredicate({criterion("Colour", "=", "red")});
    group.refreshSmartGroup();
    EXPECT_EQ(group.status(), -2.0f);
    EXPECT_EQ(group.entryCount(), 0);
    EXPECT_TRUE(group.lastError().contains("Colour")) << group.lastError().toStdString();
    EXPECT_FALSE(group.isGathering());

    group.setPredicate({criterion("Name", "LIKE[cd]", "bongo")});
    ASSERT_TRUE(run(group));
    EXPECT_TRUE(group.lastError().isEmpty());
    EXPECT_EQ(group.entryCount(), 1);
}

TEST_F(SmartGroupTest, TheSpinnerTurnsATwelfthATick) {
    TWSmartGroupEntry group;
    group.setPath(makeDirectory(QStringLiteral("Spin")));
    group.refreshSmartGroup();
    for (int i = 1; i < 12; ++i) {
        group.updateProgress();
        EXPECT_NEAR(group.status(), 6.0f + float(i) / 12.0f, 1e-5f);
    }
    group.updateProgress();
    EXPECT_EQ(group.status(), 6.0f) << "a full turn starts again";
    ASSERT_TRUE(finish(group));
}

TEST_F(SmartGroupTest, StateRoundTripsAndRunsTheQuery) {
    const QString scope = makeDirectory(QStringLiteral("Stored"));
    writeAudio(scope + "/hat.wav");
    TWSmartGroupEntry group;
    group.setName(QStringLiteral("Hats"));
    group.setPath(scope);
    group.setPredicate(
        {criterion("Name", "BEGINSWITH[cd]", "hat"), criterion("AudioChannelCount", "=", "2")});
    group.setCriteriaOperator(true);
    group.setLiveUpdates(false);
    const QVariantMap state = group.state();
    EXPECT_EQ(state.value("Class"), QStringLiteral("TWSmartGroupEntry"));
    EXPECT_EQ(state.value("scope"), scope);
    EXPECT_EQ(state.value("criteriaOperator"), true);
    EXPECT_EQ(state.value("liveUpdates"), false);

    TWSmartGroupEntry rebuilt;
    rebuilt.setState(state);
    EXPECT_EQ(rebuilt.name(), QStringLiteral("Hats"));
    EXPECT_EQ(rebuilt.queryText(), group.queryText());
    EXPECT_FALSE(rebuilt.liveUpdates());
    ASSERT_TRUE(finish(rebuilt)) << rebuilt.lastError().toStdString();
    EXPECT_EQ(childPaths(rebuilt), (QStringList{scope + "/hat.wav"}));
    EXPECT_EQ(rebuilt.state(), state);
}

TEST_F(SmartGroupTest, ReleasingAGroupWhileItGathersIsSafe) {
    const QString scope = makeDirectory(QStringLiteral("Busy"));
    for (int i = 0; i < 20; ++i)
        writeAudio(scope + QStringLiteral("/bongo %1.wav").arg(i));
    auto group = std::make_shared<TWSmartGroupEntry>();
    group->setPath(scope);
    group->refreshSmartGroup();
    group.reset();
    QCoreApplication::processEvents();
    SUCCEED();
}
