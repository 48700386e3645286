#include "ModelTestSupport.h"

#include "model/TWFileEntry.h"
#include "model/TWFolderEntry.h"
#include "model/TWGroupEntry.h"
#include "model/TWLocalizedStrings.h"
#include "model/TWServerEntry.h"

#include "lx/LXTemporaryFile.h"

#include <QDir>
#include <QFile>

#include <unistd.h>

using ModelTest::writeAudio;

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
    ModelTest::writeBytes(directory + "/notes.txt", "not audio");
    makeDirectory(QStringLiteral("Drums/Empty"));
    makeDirectory(QStringLiteral("Drums/Toms"));
    writeAudio(directory + "/Toms/tom 10.wav");
    writeAudio(directory + "/Toms/tom 9.wav");

    auto folder = TWFolderEntry::create(directory);
    EXPECT_EQ(folder->name(), QStringLiteral("Drums"));
    EXPECT_EQ(childNames(*folder), (QStringList{"Empty", "kick.aif", "snare.wav", "Toms"}));
    auto toms = folder->entryWithPath(directory + "/Toms", false);
    ASSERT_TRUE(toms);
    EXPECT_EQ(childNames(*toms), (QStringList{"tom 9.wav", "tom 10.wav"}));
    EXPECT_EQ(toms->parent(), folder.get());

    // The rows follow the disk: changes by hand are ignored, but deleting a row deletes its file. A server
    // takes no rows either.
    folder->addEntry(TWFileEntry::create(writeAudio(path("c.wav"))));
    folder->removeEntry(toms.get());
    folder->removeAllEntries();
    EXPECT_EQ(folder->entryCount(), 4);
    ASSERT_TRUE(folder->deleteEntry(folder->entryAtIndex(2)));
    EXPECT_EQ(childNames(*folder), (QStringList{"Empty", "kick.aif", "Toms"}));
    EXPECT_FALSE(QFile::exists(directory + "/snare.wav"));
    TWServerEntry server;
    server.addEntry(TWFileEntry::create(path("c.wav")));
    EXPECT_EQ(server.entryCount(), 0);
}

TEST_F(FolderTest, HidesTheTemporaryFilesOfWritersAtWorkOrKilled) {
    const QString directory = makeDirectory(QStringLiteral("Takes"));
    QFile whole(writeAudio(directory + "/a.wav"));
    ASSERT_TRUE(whole.open(QIODevice::ReadOnly));
    const QByteArray audio = whole.readAll();
    auto writing = LXCreateTemporaryFile(directory, QStringLiteral("a.wav"));
    ASSERT_TRUE(writing);
    ASSERT_EQ(::write(writing->lock.get(), audio.constData(), size_t(audio.size())), audio.size());
    ASSERT_TRUE(QFile::copy(writing->path, directory + "/.b.wav.0badf00d.cwtmp")); // a killed run's

    EXPECT_EQ(childNames(*TWFolderEntry::create(directory)), QStringList{"a.wav"});
}

TEST_F(FolderTest, RefreshFollowsTheDiskAndAMissingFolderComesBack) {
    const QString directory = makeDirectory(QStringLiteral("Loops"));
    for (const char* name : {"a.wav", "b.wav", "c.wav"})
        writeAudio(directory + u'/' + QString::fromLatin1(name));
    auto folder = TWFolderEntry::create(directory);
    ASSERT_EQ(childNames(*folder), (QStringList{"a.wav", "b.wav", "c.wav"}));
    const TWEntryPtr a = folder->entryAtIndex(0);

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

    // A folder gone missing keeps its row, shows -1 and no children, and comes back with its files.
    ASSERT_TRUE(QDir().rename(directory, path("Elsewhere")));
    folder->refresh();
    EXPECT_EQ(folder->status(), -1.0f);
    EXPECT_EQ(folder->color(), TWEntryColor::Grey);
    EXPECT_EQ(folder->entryCount(), 0);
    EXPECT_EQ(folder->name(), QStringLiteral("Loops"));
    ASSERT_TRUE(QDir().rename(path("Elsewhere"), directory));
    folder->refresh();
    EXPECT_EQ(folder->status(), 0.0f);
    EXPECT_EQ(childNames(*folder), (QStringList{"a.wav", "0 intro.wav", "z.wav"}));
}

TEST_F(FolderTest, MoveCopyTrashAndDeleteWorkOnTheWholeDirectory) {
    const QString directory = makeDirectory(QStringLiteral("Kit"));
    writeAudio(directory + "/a.wav");
    const QString into = makeDirectory(QStringLiteral("Into"));
    auto root = std::make_shared<TWGroupEntry>();
    auto folder = TWFolderEntry::create(directory);
    root->addEntry(folder);

    folder->moveToPath(into);
    folder->moveToPath(into); // where it is
    EXPECT_TRUE(m_interaction.alerts().isEmpty());
    EXPECT_EQ(folder->entryAtIndex(0)->path(), into + "/Kit/a.wav");
    EXPECT_TRUE(QFile::exists(into + "/Kit/a.wav"));
    makeDirectory(QStringLiteral("Taken/Kit"));
    folder->moveToPath(path("Taken"));

    auto group = std::make_shared<TWGroupEntry>();
    const QString copies = makeDirectory(QStringLiteral("Copies"));
    folder->copyToPath(copies, group.get());
    ASSERT_EQ(group->entryCount(), 1);
    EXPECT_EQ(group->entryAtIndex(0)->path(), copies + "/Kit");
    EXPECT_TRUE(QFile::exists(copies + "/Kit/a.wav"));
    folder->copyToPath(path("missing"), group.get());
    ASSERT_EQ(m_interaction.alerts().size(), 2);
    EXPECT_EQ(m_interaction.alerts().at(0).message, TWLocalizedString("Move Failed Exists").arg("Kit"));
    EXPECT_EQ(m_interaction.alerts().at(1).message,
              TWLocalizedString("Copy Failed No Directory").arg("missing"));

    folder->moveToTrash();
    EXPECT_EQ(root->entryCount(), 0);
    EXPECT_FALSE(QFile::exists(into + "/Kit"));
    EXPECT_TRUE(QFile::exists(qEnvironmentVariable("XDG_DATA_HOME") + "/Trash/files/Kit/a.wav"));
    ASSERT_TRUE(group->entryAtIndex(0)->deleteFiles());
    EXPECT_FALSE(QFile::exists(copies + "/Kit"));
}
