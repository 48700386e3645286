// The file list as the user meets it, off screen: names edited in place rename the files on disk, the
// selection travels both ways between the view and the workspace, the keyboard moves it, entries the
// workspace expands open, and the columns come back as they were left.

#include "ModelTestSupport.h"

#include "model/TWFileEntry.h"
#include "model/TWGroupEntry.h"
#include "platform/TWPreferences.h"
#include "shell/TWSession.h"
#include "ui/filelist/TWFileListColumns.h"
#include "ui/filelist/TWFileListMenu.h"
#include "ui/filelist/TWFileListModel.h"
#include "ui/filelist/TWFileListView.h"

#include <QAction>
#include <QFile>
#include <QHeaderView>
#include <QLineEdit>
#include <QTest>

using ModelTest::writeAudio;

namespace {

using FileListViewTest = ModelTest::Fixture;

QModelIndex nameCell(const TWFileListView& view, const TWEntryPtr& entry) {
    return view.fileListModel().indexOfEntry(entry.get());
}

} // namespace

TEST_F(FileListViewTest, ANameEditedInPlaceRenamesTheFileOnDisk) {
    TWSession session(TWSession::FrontEnd::Window, m_interaction);
    const QString old = writeAudio(path(QStringLiteral("take 1.wav")));
    writeAudio(path(QStringLiteral("take 2.wav")));
    TWWorkspace& ws = session.workspace();
    ws.addFiles({old, path(QStringLiteral("take 2.wav"))});
    TWFileListView view(ws);
    view.show();
    const TWEntryPtr entry = ws.rootGroup()->entryAtIndex(0);
    const QModelIndex index = nameCell(view, entry);

    // Whatever was selected, the row edited is the one renamed.
    ws.setSelectedEntries({ws.rootGroup()->entryAtIndex(1)});
    view.edit(index);
    auto* editor = view.findChild<QLineEdit*>();
    ASSERT_NE(editor, nullptr);
    EXPECT_EQ(editor->text(), "take 1.wav");
    editor->selectAll();
    QTest::keyClicks(editor, QStringLiteral("kick.wav"));
    QTest::keyClick(editor, Qt::Key_Return);

    const QString renamed = path(QStringLiteral("kick.wav"));
    EXPECT_TRUE(ModelTest::runUntil([&] { return QFile::exists(renamed) && !QFile::exists(old); }));
    EXPECT_TRUE(QFile::exists(path(QStringLiteral("take 2.wav"))));
    EXPECT_TRUE(ModelTest::runUntil([&] { return index.data().toString() == "kick.wav"; }));
}

TEST_F(FileListViewTest, SelectionTravelsBothWaysAndTheKeyboardMovesIt) {
    QStringList paths;
    for (const char* name : {"a.wav", "b.wav", "c.wav"})
        paths << writeAudio(path(QLatin1String(name)));
    TWWorkspace& ws = workspace();
    ws.addFiles(paths);
    TWFileListView view(ws);
    view.show();
    const QList<TWEntryPtr> rows = ws.rootGroup()->entries();

    // Ctrl-clicks in reverse order still hand the rows over in the order they stand.
    view.selectionModel()->select(nameCell(view, rows[2]),
                                  QItemSelectionModel::Select | QItemSelectionModel::Rows);
    view.selectionModel()->select(nameCell(view, rows[0]),
                                  QItemSelectionModel::Select | QItemSelectionModel::Rows);
    EXPECT_EQ(ws.selectedEntries(), (QList<TWEntryPtr>{rows[0], rows[2]}));

    view.setFocus();
    view.setCurrentIndex(nameCell(view, rows[0]));
    QTest::keyClick(&view, Qt::Key_Down);
    EXPECT_EQ(ws.selectedEntries(), (QList<TWEntryPtr>{rows[1]}));
    QTest::keyClick(&view, Qt::Key_Down, Qt::ShiftModifier);
    EXPECT_EQ(ws.selectedEntries(), (QList<TWEntryPtr>{rows[1], rows[2]}));

    // The workspace's own choice shows in the view.
    ws.setSelectedEntries({rows[0]});
    EXPECT_EQ(view.selectionModel()->selectedRows(), (QModelIndexList{nameCell(view, rows[0])}));

    // Files added into a group open it; removing through the menu's command empties the selection.
    auto group = ws.addFilesToNewGroup({paths[1]});
    EXPECT_TRUE(view.isExpanded(nameCell(view, group)));
    view.selectAll();
    EXPECT_EQ(ws.selectedEntries(),
              (QList<TWEntryPtr>{rows[0], rows[1], rows[2], group, group->entryAtIndex(0)}));
    ws.setSelectedEntries({rows[0]});
    QAction* remove = view.commands().action(QStringLiteral("remove"));
    ASSERT_TRUE(remove->isEnabled());
    remove->trigger();
    EXPECT_TRUE(ws.selectedEntries().isEmpty());
    EXPECT_FALSE(view.selectionModel()->hasSelection());
    EXPECT_EQ(ws.rootGroup()->entryCount(), 3);
    EXPECT_FALSE(remove->isEnabled());
}

TEST_F(FileListViewTest, ColumnsTheirOrderWidthsAndTheSortComeBack) {
    TWWorkspace& ws = workspace();
    const auto columnOf = [](const TWFileListView& view, const char* key) {
        return view.fileListModel().columnOfKey(QLatin1String(key));
    };
    {
        TWFileListView view(ws);
        QHeaderView* header = view.header();
        EXPECT_FALSE(header->isSectionHidden(columnOf(view, "max")));
        EXPECT_TRUE(header->isSectionHidden(columnOf(view, "composer")));
        header->setSectionHidden(columnOf(view, "composer"), false);
        header->setSectionHidden(columnOf(view, "format"), true);
        header->moveSection(header->visualIndex(columnOf(view, "max")), 1);
        header->resizeSection(columnOf(view, "max"), 77);
        header->setSortIndicator(columnOf(view, "rate"), Qt::DescendingOrder);
        EXPECT_EQ(ws.sortDescriptors(), (QList<TWSortDescriptor>{{QStringLiteral("rate"), false}}));
    }
    const QVariantMap stored = TWPreferences::shared().value(TWFileListColumns::kPreference).toMap();
    EXPECT_EQ(stored.value("sortKey").toString(), "rate");

    ws.setSortDescriptors({{QStringLiteral("name"), true}});
    TWFileListView view(ws);
    QHeaderView* header = view.header();
    EXPECT_EQ(header->visualIndex(columnOf(view, "max")), 1);
    EXPECT_EQ(header->sectionSize(columnOf(view, "max")), 77);
    EXPECT_FALSE(header->isSectionHidden(columnOf(view, "composer")));
    EXPECT_TRUE(header->isSectionHidden(columnOf(view, "format")));
    EXPECT_EQ(header->sortIndicatorSection(), columnOf(view, "rate"));
    EXPECT_EQ(ws.sortDescriptors(), (QList<TWSortDescriptor>{{QStringLiteral("rate"), false}}));
    TWPreferences::shared().removeValue(TWFileListColumns::kPreference);
}
