#include "ModelTestSupport.h"

#include "TWFileEntry.h"
#include "TWGroupEntry.h"
#include "TWPreferences.h"
#include "TWWorkspacePanels.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QThread>

using ModelTest::writeAudio;

namespace {

// The panel commands on real files, with a recording program standing in for the applications they start.
class WorkspacePanelTest : public ModelTest::Fixture {
protected:
    void SetUp() override {
        Fixture::SetUp();
        m_savedPath = qgetenv("PATH");
        m_recorder = path(QStringLiteral("bin/record"));
        m_record = path(QStringLiteral("record.txt"));
        QDir().mkpath(path(QStringLiteral("bin")));
        QFile script(m_recorder);
        ASSERT_TRUE(script.open(QIODevice::WriteOnly));
        script.write(QStringLiteral("#!/bin/sh\nfor a in \"$@\"; do printf '%s\\n' \"$a\"; done >> '%1'\n")
                         .arg(m_record)
                         .toUtf8());
        script.close();
        script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        TWPreferences::shared().removeValue(QStringLiteral("Other Editor Name"));
    }
    void TearDown() override {
        qputenv("PATH", m_savedPath);
        for (const QString& desktop : std::as_const(m_desktopFiles))
            QFile::remove(desktop);
        TWPreferences::shared().removeValue(QStringLiteral("Other Editor Name"));
        Fixture::TearDown();
    }

    // An application, in the user's applications folder, whose program records its arguments.
    QString installApplication(const QString& id, const QString& name) {
        const QString applications = qEnvironmentVariable("XDG_DATA_HOME") + QStringLiteral("/applications");
        QDir().mkpath(applications);
        const QString desktop = applications + u'/' + id + QStringLiteral(".desktop");
        QFile file(desktop);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(QStringLiteral("[Desktop Entry]\nType=Application\nName=%1\nExec=\"%2\" %F\n")
                       .arg(name, m_recorder)
                       .toUtf8());
        m_desktopFiles.append(desktop);
        return desktop;
    }

    // The started program runs detached: there is nothing to wait on but its record.
    QStringList recorded(qsizetype lines) const {
        QElapsedTimer timer;
        timer.start();
        QStringList found;
        while (timer.elapsed() < 10000) {
            QFile file(m_record);
            if (file.open(QIODevice::ReadOnly))
                found = QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
            if (found.size() >= lines) break;
            QThread::msleep(20);
        }
        return found;
    }

    TWFileEntryPtr file(const QString& name) const {
        auto entry = TWFileEntry::create(writeAudio(path(name)));
        workspace().rootGroup()->addEntry(entry);
        return entry;
    }

    QByteArray m_savedPath;
    QString m_recorder, m_record;
    QStringList m_desktopFiles;
};

} // namespace

TEST_F(WorkspacePanelTest, AddToListAddsTheChosenItemsAfterTheSelectedRow) {
    auto first = file(QStringLiteral("a.wav"));
    file(QStringLiteral("z.wav"));
    const QString folder = makeDirectory(QStringLiteral("kit"));
    writeAudio(folder + QStringLiteral("/kick.wav"));
    const QString added = writeAudio(path(QStringLiteral("new.aif")));
    workspace().setSelectedEntries({first});

    m_interaction.answerOpenPanels({{folder, path(QStringLiteral("missing.wav")), added}});
    EXPECT_EQ(TWWorkspacePanels::addToList(workspace()).size(), 2);
    ASSERT_EQ(m_interaction.openPanels().size(), 1);
    const TWOpenPanelOptions panel = m_interaction.openPanels().first();
    EXPECT_TRUE(panel.chooseFiles && panel.chooseDirectories && panel.allowsMultipleSelection);
    for (const char* type : {"clipwright", "aiff", "wav", "caf", "rx2"})
        EXPECT_TRUE(panel.types.contains(QLatin1String(type))) << type;
    EXPECT_EQ(ModelTest::describeTree(*workspace().rootGroup()),
              (QStringList{"TWFileEntry " + path("a.wav"), "TWFolderEntry " + folder,
                           "  TWFileEntry " + folder + "/kick.wav", "TWFileEntry " + added,
                           "TWFileEntry " + path("z.wav")}));

    // A cancelled panel adds nothing.
    EXPECT_TRUE(TWWorkspacePanels::addToList(workspace()).isEmpty());
    EXPECT_EQ(workspace().rootGroup()->entryCount(), 4);
}

TEST_F(WorkspacePanelTest, MoveToAndCopyToAskForTheDestination) {
    auto a = file(QStringLiteral("a.wav")), b = file(QStringLiteral("b.wav"));
    const QString moved = makeDirectory(QStringLiteral("moved"));
    workspace().setSelectedEntries({a, b});

    EXPECT_FALSE(TWWorkspacePanels::moveTo(workspace())) << "cancelled";
    EXPECT_TRUE(QFile::exists(path("a.wav")));
    m_interaction.answerOpenPanels({{moved}});
    EXPECT_TRUE(TWWorkspacePanels::moveTo(workspace()));
    const TWOpenPanelOptions panel = m_interaction.openPanels().last();
    EXPECT_EQ(panel.title, QStringLiteral("Choose destination directory"));
    EXPECT_EQ(panel.prompt, QStringLiteral("Choose"));
    EXPECT_TRUE(!panel.chooseFiles && panel.chooseDirectories && panel.canCreateDirectories);
    EXPECT_FALSE(QFile::exists(path("a.wav")));
    EXPECT_EQ(a->path(), moved + "/a.wav");
    EXPECT_EQ(b->path(), moved + "/b.wav");

    // The check box puts the copies in a new group and keeps its state for the next copy.
    const QString first = makeDirectory(QStringLiteral("first")),
                  second = makeDirectory(QStringLiteral("second")),
                  third = makeDirectory(QStringLiteral("third"));
    m_interaction.answerOpenPanels({{first}, {second}, {third}});
    m_interaction.answerCheckBoxes({true});
    ASSERT_TRUE(TWWorkspacePanels::copyTo(workspace()));
    EXPECT_FALSE(m_interaction.openPanels().last().checkBoxTitle.isEmpty());
    EXPECT_FALSE(m_interaction.openPanels().last().checkBoxChecked);
    auto group = std::dynamic_pointer_cast<TWGroupEntry>(workspace().rootGroup()->entries().last());
    ASSERT_TRUE(group);
    EXPECT_EQ(group->name(), QStringLiteral("Copied items"));
    EXPECT_EQ(ModelTest::describeTree(*group),
              (QStringList{"TWFileEntry " + first + "/a.wav", "TWFileEntry " + first + "/b.wav"}));
    EXPECT_TRUE(QFile::exists(moved + "/a.wav")) << "the originals stay";

    workspace().setSelectedEntries({a});
    ASSERT_TRUE(TWWorkspacePanels::copyTo(workspace()));
    EXPECT_TRUE(m_interaction.openPanels().last().checkBoxChecked);
    EXPECT_EQ(workspace().rootGroup()->entryCount(), 4) << "a second group";

    workspace().setSelectedEntries({a});
    m_interaction.answerCheckBoxes({false});
    ASSERT_TRUE(TWWorkspacePanels::copyTo(workspace()));
    EXPECT_TRUE(QFile::exists(third + "/a.wav"));
    EXPECT_EQ(workspace().rootGroup()->entryCount(), 4) << "no group without the check box";
    EXPECT_TRUE(m_interaction.alerts().isEmpty());
}

TEST_F(WorkspacePanelTest, RingletOpensTheSelectionOrOffersItsDownload) {
    auto a = file(QStringLiteral("a.wav"));
    workspace().setSelectedEntries({a});
    // Without Ringlet: "Later" does nothing, "Download" hands the page to xdg-open (here, the recorder).
    QFile::link(m_recorder, path(QStringLiteral("bin/xdg-open")));
    qputenv("PATH", QFile::encodeName(path(QStringLiteral("bin"))) + ':' + m_savedPath);
    m_interaction.answerAlerts({1, 0});
    EXPECT_FALSE(TWWorkspacePanels::openRinglet(workspace()));
    ASSERT_EQ(m_interaction.alerts().size(), 1);
    const TWAlert alert = m_interaction.alerts().first();
    EXPECT_EQ(alert.title, QStringLiteral("Ringlet not installed"));
    EXPECT_TRUE(alert.message.startsWith(QStringLiteral("A free version of Ringlet is available")));
    EXPECT_EQ(alert.buttons, (QStringList{"Download", "Later"}));
    EXPECT_FALSE(TWWorkspacePanels::openRinglet(workspace()));
    const QStringList download = recorded(1);
    ASSERT_EQ(download.size(), 1);
    EXPECT_TRUE(download.first().startsWith(QStringLiteral("https://"))) << download.first().toStdString();

    QFile::remove(m_record);
    installApplication(QStringLiteral("com.example.Ringlet"), QStringLiteral("Ringlet"));
    EXPECT_TRUE(TWWorkspacePanels::openRinglet(workspace()));
    EXPECT_EQ(recorded(1), QStringList{a->path()});
    EXPECT_EQ(m_interaction.alerts().size(), 2);
}

TEST_F(WorkspacePanelTest, TheOtherEditorIsAskedForOnceAndRemembered) {
    auto a = file(QStringLiteral("a.wav"));
    workspace().setSelectedEntries({a});
    const QString editor = installApplication(QStringLiteral("org.example.Editor"), QStringLiteral("Editor"));

    TWWorkspacePanels::openOtherEditor(workspace()); // nothing set: asks, and the panel is cancelled
    ASSERT_EQ(m_interaction.openPanels().size(), 1);
    EXPECT_EQ(m_interaction.openPanels().first().title, QStringLiteral("Choose Audio File Editor"));
    EXPECT_FALSE(TWPreferences::shared().contains(QStringLiteral("Other Editor Name")));

    m_interaction.answerOpenPanels({{editor}});
    EXPECT_TRUE(TWWorkspacePanels::changeOtherEditor(workspace()));
    EXPECT_EQ(TWPreferences::shared().stringValue(QStringLiteral("Other Editor Name")),
              QStringLiteral("org.example.Editor"));
    EXPECT_EQ(recorded(1), QStringList{a->path()});

    TWWorkspacePanels::openOtherEditor(workspace());
    EXPECT_EQ(recorded(2), (QStringList{a->path(), a->path()}));
    EXPECT_EQ(m_interaction.openPanels().size(), 2) << "a stored editor is not asked for again";

    // A program chosen instead of a desktop file is stored by its path.
    m_interaction.answerOpenPanels({{m_recorder}});
    EXPECT_TRUE(TWWorkspacePanels::changeOtherEditor(workspace()));
    EXPECT_EQ(TWPreferences::shared().stringValue(QStringLiteral("Other Editor Name")), m_recorder);
    EXPECT_EQ(recorded(3).size(), 3);
}
