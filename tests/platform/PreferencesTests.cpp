#include "IsolatedHome.h"
#include "platform/TWPreferences.h"
#include "platform/TWPropertyList.h"

#include <gtest/gtest.h>

#include <thread>
#include <unistd.h>
#include <vector>

TEST(Preferences, RegisteredDefaultsAnswerForKeysNotSet) {
    IsolatedHome home;
    TWPreferences preferences;
    EXPECT_EQ(preferences.path(), home.path(QStringLiteral(".config/Clipwright/Clipwright.plist")));
    EXPECT_TRUE(preferences.lastError().isEmpty()) << preferences.lastError().toStdString();
    EXPECT_TRUE(preferences.boolValue(QStringLiteral("Undo Enabled")));

    preferences.registerDefaults({{QStringLiteral("Time Format"), qint64(2)}});
    EXPECT_EQ(preferences.integerValue(QStringLiteral("Time Format")), 2);
    EXPECT_TRUE(preferences.boolValue(QStringLiteral("Undo Enabled"))); // added to, not replaced

    preferences.setValue(QStringLiteral("Undo Enabled"), false);
    EXPECT_FALSE(preferences.boolValue(QStringLiteral("Undo Enabled")));
    preferences.removeValue(QStringLiteral("Undo Enabled"));
    EXPECT_TRUE(preferences.boolValue(QStringLiteral("Undo Enabled")));

    // A number the user wrote by hand as a real or a string still answers as an integer.
    preferences.setValue(QStringLiteral("Double Click Action"), 2.0);
    EXPECT_EQ(preferences.integerValue(QStringLiteral("Double Click Action")), 2);
    preferences.setValue(QStringLiteral("Double Click Action"), QStringLiteral("1"));
    EXPECT_EQ(preferences.integerValue(QStringLiteral("Double Click Action")), 1);
}

TEST(Preferences, NestedEntriesSurviveSynchronizeAndReload) {
    IsolatedHome home;
    const QString path = home.path(QStringLiteral("prefs/Clipwright.plist"));
    const QVariantMap file{{QStringLiteral("Class"), QStringLiteral("TWFileEntry")},
                           {QStringLiteral("Path"), QStringLiteral("/samples/kick.wav")},
                           {QStringLiteral("Status"), -1.5}};
    const QVariantList entries{QVariantMap{{QStringLiteral("Children"),
                                            QVariantList{QVariantMap{{QStringLiteral("Expanded"), true},
                                                                     {QStringLiteral("Children"),
                                                                      QVariantList{file, QVariantList{}}}},
                                                         file}}},
                               qint64(-3)};
    {
        TWPreferences preferences(path);
        preferences.setValue(QStringLiteral("Entries"), entries);
        preferences.setValue(QStringLiteral("Workflow"), QStringLiteral("gone soon"));
        ASSERT_TRUE(preferences.synchronize()) << preferences.lastError().toStdString();
        preferences.setValue(QStringLiteral("Auto Analyze"), false); // written when it goes away
    }
    // One plain property list whose top-level keys are the preference keys.
    auto stored = TWPropertyList::readFile(path);
    ASSERT_TRUE(stored) << stored.error().description().toStdString();
    EXPECT_EQ(stored->toMap().keys(), (QStringList{QStringLiteral("Auto Analyze"), QStringLiteral("Entries"),
                                                   QStringLiteral("Workflow")}));

    TWPreferences reloaded(path);
    EXPECT_TRUE(reloaded.lastError().isEmpty());
    // Types too: QVariant's == would let a real pass for an integer and a string for a bool.
    EXPECT_EQ(TWPropertyList::toXml(reloaded.value(QStringLiteral("Entries"))),
              TWPropertyList::toXml(entries));
    EXPECT_FALSE(reloaded.boolValue(QStringLiteral("Auto Analyze")));
    reloaded.removeValue(QStringLiteral("Workflow"));
    ASSERT_TRUE(reloaded.synchronize());
    EXPECT_FALSE(TWPropertyList::readFile(path)->toMap().contains(QStringLiteral("Workflow")));
}

TEST(Preferences, SynchronizeKeepsWhatAnotherProcessWrote) {
    IsolatedHome home;
    const QString path = home.path(QStringLiteral("Clipwright.plist"));
    TWPreferences first(path), second(path);
    first.setValue(QStringLiteral("Time Format"), qint64(1));
    ASSERT_TRUE(first.synchronize());
    second.setValue(QStringLiteral("Range Format"), qint64(3));
    ASSERT_TRUE(second.synchronize());

    EXPECT_EQ(second.integerValue(QStringLiteral("Time Format")), 1); // picked up by the merge
    ASSERT_TRUE(first.synchronize());                                 // nothing to write: rereads
    EXPECT_EQ(first.integerValue(QStringLiteral("Range Format")), 3);
    const QVariantMap file = TWPropertyList::readFile(path)->toMap();
    EXPECT_EQ(file.value(QStringLiteral("Time Format")).toLongLong(), 1);
    EXPECT_EQ(file.value(QStringLiteral("Range Format")).toLongLong(), 3);
}

TEST(Preferences, ADamagedFileIsReportedAndKeptAsideUntouched) {
    IsolatedHome home;
    const QString folder = home.path(QStringLiteral("config"));
    const QString path = folder + QStringLiteral("/Clipwright.plist");
    const QByteArray damaged[] = {
        "<?xml version=\"1.0\"?>\n<plist version=\"1.0\">\n<dict>\n<key>Entries</key>\n<array>\n<dict>",
        QByteArray("\x00\x01garbage\xff", 10),
        TWPropertyList::toXml(QVariantList{QStringLiteral("an array, not a dictionary")}),
    };
    for (const QByteArray& bytes : damaged) {
        SCOPED_TRACE(bytes.left(20).toStdString());
        QDir(folder).removeRecursively();
        writeFile(path, bytes);

        TWPreferences preferences(path);
        const QString error = preferences.lastError();
        EXPECT_TRUE(error.contains(path) && error.contains(QStringLiteral("damaged"))) << error.toStdString();
        EXPECT_TRUE(preferences.boolValue(QStringLiteral("Undo Enabled"))); // the defaults answer
        EXPECT_FALSE(preferences.contains(QStringLiteral("Entries")));

        // Nothing to write: the file stays as it is, where it is.
        EXPECT_TRUE(preferences.synchronize());
        EXPECT_EQ(readFile(path), bytes);

        preferences.setValue(QStringLiteral("Auto Analyze"), false);
        ASSERT_TRUE(preferences.synchronize()) << preferences.lastError().toStdString();
        const QStringList aside =
            QDir(folder).entryList({QStringLiteral("Clipwright.plist.damaged-*")}, QDir::Files);
        ASSERT_EQ(aside.size(), 1);
        EXPECT_EQ(readFile(folder + u'/' + aside[0]), bytes);
        EXPECT_TRUE(preferences.lastError().contains(aside[0])) << preferences.lastError().toStdString();
        auto written = TWPropertyList::readFile(path);
        ASSERT_TRUE(written) << written.error().description().toStdString();
        EXPECT_EQ(written->toMap(), (QVariantMap{{QStringLiteral("Auto Analyze"), false}}));
    }
}

TEST(Preferences, AFailedWriteIsReportedAndRetried) {
    if (geteuid() == 0) GTEST_SKIP() << "permissions do not stop root";
    IsolatedHome home;
    const QString folder = home.path(QStringLiteral("locked"));
    const QString path = folder + QStringLiteral("/Clipwright.plist");
    QDir().mkpath(folder);
    TWPreferences preferences(path);
    preferences.setValue(QStringLiteral("Undo Enabled"), false);

    QFile::setPermissions(folder, QFile::ReadOwner | QFile::ExeOwner);
    EXPECT_FALSE(preferences.synchronize());
    EXPECT_TRUE(preferences.lastError().contains(path)) << preferences.lastError().toStdString();
    EXPECT_FALSE(preferences.boolValue(QStringLiteral("Undo Enabled"))); // still in memory

    QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    EXPECT_TRUE(preferences.synchronize()) << preferences.lastError().toStdString();
    EXPECT_FALSE(TWPreferences(path).boolValue(QStringLiteral("Undo Enabled")));
}

TEST(Preferences, ManyThreadsReadWriteAndSynchronize) {
    IsolatedHome home;
    const QString path = home.path(QStringLiteral("Clipwright.plist"));
    TWPreferences preferences(path);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&preferences, t] {
            const QString key = QStringLiteral("Thread %1").arg(t);
            for (int i = 0; i < 50; ++i) {
                preferences.setValue(key, qint64(i));
                EXPECT_EQ(preferences.integerValue(key), i);
                EXPECT_TRUE(preferences.boolValue(QStringLiteral("Undo Enabled")));
                if (i % 10 == 0) {
                    EXPECT_TRUE(preferences.synchronize());
                }
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    ASSERT_TRUE(preferences.synchronize());
    const QVariantMap file = TWPropertyList::readFile(path)->toMap();
    for (int t = 0; t < 4; ++t)
        EXPECT_EQ(file.value(QStringLiteral("Thread %1").arg(t)).toLongLong(), 49);
}
