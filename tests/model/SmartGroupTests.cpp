#include "ModelTestSupport.h"

#include "model/TWFileEntry.h"
#include "model/TWSmartGroupEntry.h"
#include "platform/TWSupportFolders.h"

#include "TestAudio.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>

using ModelTest::writeAudio;

namespace {

const QString kSuffix = QStringLiteral(" && (kMDItemContentTypeTree = \"public.audio\")");

QVariantMap criterion(const QString& key, const QString& comparator, const QString& value) {
    return {{"key", key}, {"comparator", comparator}, {"value", value}};
}
const QVariantMap kNameHasDrum = criterion("Name", "LIKE[cd]", "drum");

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
    // The children's paths relative to the scope, sorted.
    static QStringList found(const TWEntry& group, const QString& scope) {
        QStringList paths;
        for (const TWEntryPtr& child : group.entries())
            paths.append(QDir(scope).relativeFilePath(child->path()));
        paths.sort();
        return paths;
    }
};

} // namespace

TEST(SmartGroupQuery, TextJoinsTheCriteriaAndAddsTheAudioSuffix) {
    const QVariantList two = {criterion("Name", "BEGINSWITH[cd]", "a"),
                              criterion("AudioSampleRate", ">", "44100")};
    const auto text = [](const QVariantList& criteria, bool all) {
        const LXResult<QString> made = TWSmartGroupEntry::queryText(criteria, all);
        return made ? *made : QStringLiteral("error: ") + made.error().message();
    };
    EXPECT_EQ(text({kNameHasDrum}, true), "(Name LIKE[cd] '*drum*')" + kSuffix);
    EXPECT_EQ(text(two, false), "(Name BEGINSWITH[cd] 'a') OR (AudioSampleRate > '44100')" + kSuffix)
        << "no parentheses around the pair: the suffix binds to the last criterion";
    EXPECT_EQ(text(two, true), "(Name BEGINSWITH[cd] 'a') AND (AudioSampleRate > '44100')" + kSuffix);
    EXPECT_EQ(text({criterion("Name", "ENDSWITH[cd]", "O'Neil\\")}, true),
              "(Name ENDSWITH[cd] 'O\\'Neil\\\\')" + kSuffix);
    // A key or an operator cannot carry query text of its own.
    EXPECT_EQ(text({criterion("Name = 'x') OR (Name", "LIKE[cd]", "a")}, true),
              "error: unknown key 'Name = 'x') OR (Name'");
    EXPECT_EQ(text({criterion("Name", "= 'x') OR (Name =", "a")}, true),
              "error: '= 'x') OR (Name =' is not an operator");
}

TEST_F(SmartGroupTest, FindsExactlyTheFilesTheCriteriaDescribeAndKeepsThoseStillFound) {
    const QString scope = makeDirectory(QStringLiteral("Library"));
    makeDirectory(QStringLiteral("Library/Drum Kit"));
    writeAudio(scope + "/Drum 1.wav");
    ASSERT_TRUE(
        TestAudio::write(scope + "/Drum Kit/drum 2.aif", {.rate = 48000,
                                                          .channels = 1,
                                                          .frames = 480,
                                                          .format = LXFormat::AIFF,
                                                          .encoding = LXSampleEncoding::pcm(16, true)}));
    ASSERT_TRUE(TestAudio::write(scope + "/snare.wav", {.rate = 96000, .channels = 2, .frames = 960}));
    ModelTest::writeBytes(scope + "/drum notes.txt", "not audio");

    const QVariantMap fastRate = criterion("AudioSampleRate", ">", "44100");
    const QVariantMap stereo = criterion("AudioChannelCount", "=", "2");
    const struct {
        QVariantList criteria;
        bool all;
        QStringList found;
    } cases[] = {
        {{kNameHasDrum}, true, {"Drum 1.wav", "Drum Kit/drum 2.aif"}}, // not the text file or the folder
        {{fastRate}, true, {"Drum Kit/drum 2.aif", "snare.wav"}},
        {{stereo}, true, {"Drum 1.wav", "snare.wav"}},
        {{kNameHasDrum, fastRate}, true, {"Drum Kit/drum 2.aif"}},
        // With OR the audio suffix binds to the last criterion only: the name finds the folder too.
        {{kNameHasDrum, stereo}, false, {"Drum 1.wav", "Drum Kit", "Drum Kit/drum 2.aif", "snare.wav"}},
    };
    auto group = std::make_shared<TWSmartGroupEntry>();
    group->setPath(scope);
    for (const auto& c : cases) {
        group->setPredicate(c.criteria);
        group->setCriteriaOperator(c.all);
        ASSERT_TRUE(run(*group)) << group->lastError().toStdString();
        EXPECT_EQ(found(*group, scope), c.found) << group->queryText()->toStdString();
    }

    group->setPredicate({kNameHasDrum});
    group->setCriteriaOperator(true);
    bool redisplayed = false;
    QObject::connect(&workspace(), &TWWorkspace::entryAndChildrenChanged, &workspace(),
                     [&](TWEntry* entry) { redisplayed = redisplayed || entry == group.get(); });
    group->refreshSmartGroup();
    EXPECT_GE(group->status(), 6.0f) << "the spinner turns while it gathers";
    ASSERT_TRUE(finish(*group)) << group->lastError().toStdString();
    EXPECT_EQ(group->status(), 3.0f);
    EXPECT_TRUE(redisplayed);
    const TWEntryPtr first = group->entryAtIndex(0);
    EXPECT_EQ(first->parent(), group.get());
    EXPECT_EQ(first->status(), TWStatus::Ready);

    ASSERT_TRUE(QFile::remove(scope + "/Drum Kit/drum 2.aif"));
    writeAudio(scope + "/drum 3.wav");
    ASSERT_TRUE(run(*group));
    EXPECT_EQ(found(*group, scope), (QStringList{"Drum 1.wav", "drum 3.wav"}));
    EXPECT_EQ(group->entryAtIndex(0), first) << "a child still found is the same object";
    QObject::disconnect(&workspace(), &TWWorkspace::entryAndChildrenChanged, &workspace(), nullptr);

    // Criteria that make no query leave the group empty and say why; good ones run again.
    group->setPredicate({criterion("Colour", "=", "red")});
    group->refreshSmartGroup();
    EXPECT_EQ(group->status(), -2.0f);
    EXPECT_EQ(group->entryCount(), 0);
    EXPECT_TRUE(group->lastError().contains("Colour")) << group->lastError().toStdString();
    EXPECT_FALSE(group->isGathering());
    group->setPredicate({kNameHasDrum});
    ASSERT_TRUE(run(*group));
    EXPECT_TRUE(group->lastError().isEmpty());
    EXPECT_EQ(group->entryCount(), 2);
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
    EXPECT_EQ(found(group, music), (QStringList{"bongo.wav"}));
    QFile::remove(music + "/bongo.wav");
    QFile::remove(support + "/Undo/bongo.wav");
}

TEST_F(SmartGroupTest, StateRoundTripsAndWithoutLiveUpdatesARefreshLeavesTheChildren) {
    const QString scope = makeDirectory(QStringLiteral("Stored"));
    writeAudio(scope + "/hat 1.wav");
    TWSmartGroupEntry group;
    group.setName(QStringLiteral("Hats"));
    group.setPath(scope);
    group.setPredicate(
        {criterion("Name", "BEGINSWITH[cd]", "hat"), criterion("AudioChannelCount", "=", "2")});
    group.setCriteriaOperator(true);
    group.setLiveUpdates(false);

    TWSmartGroupEntry rebuilt;
    rebuilt.setState(group.state());
    EXPECT_EQ(rebuilt.state(), group.state());
    EXPECT_EQ(*rebuilt.queryText(), *group.queryText());
    ASSERT_TRUE(finish(rebuilt)) << rebuilt.lastError().toStdString();
    EXPECT_EQ(found(rebuilt, scope), (QStringList{"hat 1.wav"}));

    writeAudio(scope + "/hat 2.wav");
    rebuilt.refresh();
    EXPECT_EQ(rebuilt.status(), 3.0f) << "no query ran";
    EXPECT_EQ(rebuilt.entryCount(), 1);
    rebuilt.setLiveUpdates(true);
    rebuilt.refresh();
    ASSERT_TRUE(finish(rebuilt));
    EXPECT_EQ(rebuilt.entryCount(), 2);
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
}
