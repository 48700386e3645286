#include "ModelTestSupport.h"

#include "TWEntryFactory.h"
#include "TWFileEntry.h"
#include "TWFolderEntry.h"
#include "TWGroupEntry.h"
#include "TWLocalizedStrings.h"
#include "TWServerEntry.h"
#include "TWSmartGroupEntry.h"

#include "TestAudio.h"

#include <QDir>
#include <QFile>

using ModelTest::writeAudio;
using ModelTest::writeBytes;

namespace {

class FolderTest : public ModelTest::Fixture {
protected:
    QStringList childNames(const TWEntry& entry) const {
        QStringList names;
        for (const TWEntryPtr& child : entry.entries())
            names.append(child->name());
        return names;
    }
};

} // namespace

TEST_F(FolderTest, ListsAudioFilesAndSubfoldersInNameOrder) {
    const QString directory = makeDirectory(QStringLiteral("Drums"));
    writeAudio(directory + "/snare.wav");
    writeAudio(directory + "/kick.aif");
    writeBytes(directory + "/notes.txt", "not audio");
    makeDirectory(QStringLiteral("Drums/Empty"));
    makeDirectory(QStringLiteral("Drums/Toms"));
    writeAudio(directory + "/Toms/tom 10.wav");
    writeAudio(directory + "/Toms/tom 9.wav");

    auto folder = TWFolderEntry::create(directory);
    EXPECT_EQ(folder->name(), QStringLiteral("Drums"));
    EXPECT_EQ(folder->status(), 0.0f);
    EXPECT_EQ(folder->color(), TWEntryColor::Black);
    EXPECT_TRUE(folder->containerIsImmutable());
    EXPECT_EQ(childNames(*folder), (QStringList{"Empty", "kick.aif", "snare.wav", "Toms"}));
    auto toms = folder->entryWithPath(directory + "/Toms", false);
    ASSERT_TRUE(toms);
    EXPECT_EQ(childNames(*toms), (QStringList{"tom 9.wav", "tom 10.wav"}));
    EXPECT_EQ(toms->parent(), folder.get());
}

TEST_F(FolderTest, RefreshFollowsRenamesAdditionsAndRemovalsOnDisk) {
    const QString directory = makeDirectory(QStringLiteral("Loops"));
    for (const char* name : {"a.wav", "b.wav", "c.wav"})
        writeAudio(directory + u'/' + QString::fromLatin1(name));
    auto folder = TWFolderEntry::create(directory);
    ASSERT_EQ(childNames(*folder), (QStringList{"a.wav", "b.wav", "c.wav"}));
    const TWEntryPtr a = folder->entryAtIndex(0), c = folder->entryAtIndex(2);

    ASSERT_TRUE(QFile::rename(directory + "/b.wav", directory + "/z.wav"));
    ASSERT_TRUE(QFile::remove(directory + "/c.wav"));
    writeAudio(directory + "/0 intro.wav", 882);
    folder->refresh();
    EXPECT_EQ(childNames(*folder), (QStringList{"0 intro.wav", "a.wav", "z.wav"}));
    EXPECT_EQ(folder->entryAtIndex(1), a) << "children still on disk are kept, not made again";
    EXPECT_EQ(folder->entryAtIndex(0)->samples(), 882);

    // A changed file is read again; the folder's sort order is the workspace's.
    writeAudio(directory + "/a.wav", 4410);
    workspace().setSortDescriptors({{QStringLiteral("samples"), false}});
    folder->refresh();
    EXPECT_EQ(a->samples(), 4410);
    EXPECT_EQ(childNames(*folder), (QStringList{"a.wav", "0 intro.wav", "z.wav"}));
}

TEST_F(FolderTest, AMissingFolderShowsNotFoundAndComesBack) {
    const QString directory = makeDirectory(QStringLiteral("Gone"));
    writeAudio(directory + "/a.wav");
    makeDirectory(QStringLiteral("Gone/Sub"));
    writeAudio(directory + "/Sub/b.wav");
    auto folder = TWFolderEntry::create(directory);
    ASSERT_EQ(folder->entryCount(), 2);

    ASSERT_TRUE(QDir().rename(directory, path("Elsewhere")));
    folder->refresh();
    EXPECT_EQ(folder->status(), -1.0f);
    EXPECT_EQ(folder->color(), TWEntryColor::Grey);
    EXPECT_EQ(folder->entryCount(), 0);
    EXPECT_EQ(folder->name(), QStringLiteral("Gone")) << "the row stays";

    ASSERT_TRUE(QDir().rename(path("Elsewhere"), directory));
    folder->refresh();
    EXPECT_EQ(folder->status(), 0.0f);
    EXPECT_EQ(childNames(*folder), (QStringList{"a.wav", "Sub"}));
    EXPECT_EQ(folder->entryAtIndex(1)->entryCount(), 1);
}

TEST_F(FolderTest, ASplitSetIsListedOnceUnderItsLeadMember) {
    const QString directory = makeDirectory(QStringLiteral("Surround"));
    TestAudio::Sound sound;
    sound.frames = 441;
    sound.channels = 4;
    sound.interleaved = false;
    ASSERT_TRUE(TestAudio::write(directory + "/take", sound));
    auto folder = TWFolderEntry::create(directory);
    ASSERT_EQ(folder->entryCount(), 1);
    EXPECT_EQ(folder->entryAtIndex(0)->path(), directory + "/take.L");
    EXPECT_EQ(folder->entryAtIndex(0)->channels(), 4);
    folder->refresh();
    EXPECT_EQ(folder->entryCount(), 1);
}

TEST_F(FolderTest, MoveCopyTrashAndDeleteWorkOnTheWholeDirectory) {
    const QString directory = makeDirectory(QStringLiteral("Kit"));
    writeAudio(directory + "/a.wav");
    const QString into = makeDirectory(QStringLiteral("Into"));
    auto root = std::make_shared<TWGroupEntry>();
    auto folder = TWFolderEntry::create(directory);
    root->addEntry(folder);

    folder->moveToPath(into);
    EXPECT_TRUE(m_interaction.alerts().isEmpty());
    EXPECT_EQ(folder->path(), into + "/Kit");
    EXPECT_EQ(folder->entryAtIndex(0)->path(), into + "/Kit/a.wav");
    EXPECT_TRUE(QFile::exists(into + "/Kit/a.wav"));

    folder->moveToPath(into); // where it is
    makeDirectory(QStringLiteral("Taken/Kit"));
    folder->moveToPath(path("Taken"));
    ASSERT_EQ(m_interaction.alerts().size(), 1);
    EXPECT_EQ(m_interaction.alerts().at(0).message, TWLocalizedString("Move Failed Exists").arg("Kit"));

    auto group = std::make_shared<TWGroupEntry>();
    const QString copies = makeDirectory(QStringLiteral("Copies"));
    folder->copyToPath(copies, group.get());
    ASSERT_EQ(group->entryCount(), 1);
    EXPECT_EQ(group->entryAtIndex(0)->path(), copies + "/Kit");
    EXPECT_EQ(group->entryAtIndex(0)->entryCount(), 0) << "read at the next refresh";
    EXPECT_TRUE(QFile::exists(copies + "/Kit/a.wav"));
    folder->copyToPath(path("missing"), group.get());
    ASSERT_EQ(m_interaction.alerts().size(), 2);
    EXPECT_EQ(m_interaction.alerts().at(1).message,
              TWLocalizedString("Copy Failed No Directory").arg("missing"));

    folder->moveToTrash();
    EXPECT_EQ(root->entryCount(), 0);
    EXPECT_FALSE(QFile::exists(into + "/Kit"));
    EXPECT_TRUE(QFile::exists(qEnvironmentVariable("XDG_DATA_HOME") + "/Trash/files/Kit/a.wav"));

    auto copy = group->entryAtIndex(0);
    copy->deleteFiles();
    EXPECT_FALSE(QFile::exists(copies + "/Kit"));
}

TEST_F(FolderTest, GroupsStoreTheirChildrenAndName) {
    const QString directory = makeDirectory(QStringLiteral("Stored"));
    writeAudio(directory + "/a.wav");
    auto group = std::make_shared<TWGroupEntry>();
    EXPECT_EQ(group->name(), QStringLiteral("New Group"));
    group->setName(QStringLiteral("Favourites"));
    group->setName(QString());
    EXPECT_EQ(group->name(), QStringLiteral("Favourites")) << "a null name keeps the old one";
    group->addEntry(TWFileEntry::create(directory + "/a.wav"));
    group->addEntry(TWFolderEntry::create(directory));
    auto inner = std::make_shared<TWGroupEntry>();
    group->addEntry(inner);
    group->addEntry(std::make_shared<TWServerEntry>());

    const QVariantMap state = group->state();
    EXPECT_EQ(state.value("Class"), QStringLiteral("TWGroupEntry"));
    EXPECT_EQ(state.value("name"), QStringLiteral("Favourites"));
    ASSERT_EQ(state.value("entries").toList().size(), 4);
    EXPECT_EQ(state.value("entries").toList().at(1).toMap(),
              (QVariantMap{{"Class", "TWFolderEntry"}, {"path", directory}}));

    TWEntryPtr rebuilt = TWEntryFactory::entryFromState(state, nullptr);
    ASSERT_TRUE(rebuilt);
    EXPECT_EQ(ModelTest::describeTree(*rebuilt),
              (QStringList{"TWFileEntry " + directory + "/a.wav", "TWFolderEntry " + directory,
                           "TWGroupEntry New Group", "TWServerEntry "}));
    EXPECT_EQ(rebuilt->entryAtIndex(1)->entryCount(), 0) << "a folder reads its contents at the next refresh";
    EXPECT_EQ(rebuilt->entryAtIndex(0)->parent(), rebuilt.get());
    rebuilt->refresh();
    EXPECT_EQ(rebuilt->entryAtIndex(1)->entryCount(), 1);
    EXPECT_EQ(rebuilt->entryAtIndex(0)->status(), TWStatus::Ready);

    QVariantMap unnamed = state;
    unnamed.remove("name");
    TWGroupEntry plain;
    plain.setState(unnamed);
    EXPECT_EQ(plain.name(), QStringLiteral("New Group"));
}
