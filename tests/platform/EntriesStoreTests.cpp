// The file list's own file: moved out of the preferences once and without loss, and never overwritten
// when it is damaged.

#include "IsolatedHome.h"

#include "platform/TWEntriesStore.h"
#include "platform/TWPreferences.h"
#include "platform/TWPropertyList.h"

#include <QDateTime>
#include <QDir>

#include <gtest/gtest.h>

namespace {

// A stored tree as the workspace writes it.
QVariantMap fileList(int files) {
    QVariantList children;
    for (int i = 0; i < files; ++i)
        children.append(
            QVariantMap{{"Class", "TWFileEntry"}, {"path", QStringLiteral("/srv/Séance/%1.wav").arg(i)}});
    children.append(QVariantMap{{"Class", "TWSmartGroupEntry"}, {"name", "Loops"}, {"liveUpdates", false}});
    return {{"Class", "TWGroupEntry"}, {"name", "root"}, {"entries", children}};
}

// The files kept beside the list: kind ("damaged", "replaced") and bytes.
QMultiMap<QString, QByteArray> keptAside(const QString& list) {
    QMultiMap<QString, QByteArray> kept;
    const QDir folder = QFileInfo(list).dir();
    for (const QString& name : folder.entryList({QStringLiteral("Entries.plist.*")}, QDir::Files))
        kept.insert(name.section(u'.', 2).section(u'-', 0, 0), readFile(folder.filePath(name)));
    return kept;
}

} // namespace

TEST(EntriesStore, AListInThePreferencesMovesToItsOwnFileOnceAndNothingIsLost) {
    IsolatedHome home;
    const QString preferences = home.path(QStringLiteral(".config/Clipwright/Clipwright.plist"));
    const QString list = TWEntriesStore::pathBeside(preferences);
    auto earlierVersionWrites = [&](const QVariantMap& values) {
        writeFile(preferences, TWPropertyList::toXml(values));
    };
    earlierVersionWrites({{"Time Format", qint64(2)}, {"Entries", fileList(300)}});

    EXPECT_EQ(TWPreferences(preferences).integerValue(QStringLiteral("Time Format")), 2);
    EXPECT_EQ(TWPropertyList::readFile(preferences)->toMap(), (QVariantMap{{"Time Format", qint64(2)}}));
    EXPECT_EQ(TWEntriesStore(list).load().value(), fileList(300));
    // From then on the preferences leave the list's file alone.
    const QDateTime modified = QFileInfo(list).lastModified();
    { const TWPreferences again(preferences); }
    EXPECT_EQ(QFileInfo(list).lastModified(), modified);

    // A move cut short before the preferences were written keeps nothing aside. After an earlier version
    // ran again, its list wins, and what it replaces, another list or a damaged file, is kept.
    earlierVersionWrites({{"Entries", fileList(300)}});
    { const TWPreferences again(preferences); }
    EXPECT_TRUE(keptAside(list).isEmpty());
    const QByteArray other = TWPropertyList::toXml(fileList(1)),
                     damaged = "<?xml version=\"1.0\"?><plist><dict>";
    for (const QByteArray& replaced : {other, damaged}) {
        writeFile(list, replaced);
        earlierVersionWrites({{"Entries", fileList(300)}});
        { const TWPreferences again(preferences); }
    }
    EXPECT_EQ(TWEntriesStore(list).load().value(), fileList(300));
    EXPECT_EQ(keptAside(list), (QMultiMap<QString, QByteArray>{{"damaged", damaged}, {"replaced", other}}));
    EXPECT_FALSE(TWPropertyList::readFile(preferences)->toMap().contains("Entries"));
}

TEST(EntriesStore, ADamagedListIsKeptAsideAndNeverOverwritten) {
    IsolatedHome home;
    const QString list = home.path(QStringLiteral(".config/Clipwright/Entries.plist"));
    const QByteArray damaged = "bplist00\x01\x02garbage";
    writeFile(list, damaged);

    TWEntriesStore store(list);
    const LXResult<QVariantMap> loaded = store.load();
    ASSERT_FALSE(loaded);
    EXPECT_TRUE(loaded.error().message().contains(list)) << loaded.error().description().toStdString();
    ASSERT_TRUE(store.save(fileList(2)));
    ASSERT_TRUE(store.save(fileList(2))); // its own file is replaced without a copy
    writeFile(list, "not a list");        // damaged by something else since: kept as well
    ASSERT_TRUE(store.save(fileList(2)));
    EXPECT_EQ(keptAside(list),
              (QMultiMap<QString, QByteArray>{{"damaged", damaged}, {"damaged", "not a list"}}));
    EXPECT_EQ(TWEntriesStore(list).load().value(), fileList(2));
}
