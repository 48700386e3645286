// The file list's model over a real workspace of generated files: Qt's own checker through every kind of
// change the list makes, ordinary changes told as rows that come, go and move, columns through the shared
// formatters, sorting by measured values, and drops of files and rows.

#include "ModelTestSupport.h"
#include "TestAudio.h"

#include "model/TWDragAndDrop.h"
#include "model/TWFileEntry.h"
#include "model/TWFormatters.h"
#include "model/TWGroupEntry.h"
#include "model/TWSmartGroupEntry.h"
#include "ui/filelist/TWFileListModel.h"

#include <QAbstractItemModelTester>
#include <QFile>
#include <QMimeData>
#include <QSignalSpy>
#include <QUrl>

using ModelTest::writeAudio;

namespace {

using FileListModelTest = ModelTest::Fixture;

QStringList namesIn(const TWFileListModel& model, const QModelIndex& parent = {}) {
    QStringList names;
    for (int row = 0; row < model.rowCount(parent); ++row)
        names << model.index(row, 0, parent).data().toString();
    return names;
}

QMimeData* urisOf(const QStringList& paths) {
    auto* data = new QMimeData;
    QList<QUrl> urls;
    for (const QString& path : paths)
        urls << QUrl::fromLocalFile(path);
    data->setUrls(urls);
    return data;
}

} // namespace

TEST_F(FileListModelTest, FollowsEveryChangeUnderQtsCheckerAndTellsOrdinaryChangesAsRows) {
    const QString folder = makeDirectory(QStringLiteral("Folder")),
                  pool = makeDirectory(QStringLiteral("Pool"));
    QStringList loose;
    for (const char* name : {"a.wav", "b.wav", "c.wav", "d.wav"})
        loose << writeAudio(path(QLatin1String(name)));
    for (int i = 0; i < 3; ++i) {
        writeAudio(folder + QStringLiteral("/snare %1.wav").arg(i));
        writeAudio(pool + QStringLiteral("/loop %1.wav").arg(i));
    }
    TWWorkspace& ws = workspace();
    TWEntry& root = *ws.rootGroup();
    TWFileListModel model(ws);
    const QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    QSignalSpy layouts(&model, &QAbstractItemModel::layoutChanged),
        resets(&model, &QAbstractItemModel::modelReset), inserted(&model, &QAbstractItemModel::rowsInserted),
        removed(&model, &QAbstractItemModel::rowsRemoved), moved(&model, &QAbstractItemModel::rowsMoved);

    // Files and a folder added, a group made; a persistent index follows its file through all that comes.
    ws.addFiles(loose + QStringList{folder});
    ASSERT_EQ(namesIn(model), (QStringList{"a.wav", "b.wav", "c.wav", "d.wav", "Folder"}));
    const QPersistentModelIndex d = model.index(3, 0);
    auto group = std::make_shared<TWGroupEntry>();
    root.insertEntry(group, 0);

    // Rows dragged into the group: a move each, and the workspace's drag ends with the drop.
    std::unique_ptr<QMimeData> dragged(model.mimeData({model.index(1, 0), model.index(2, 0)}));
    ASSERT_TRUE(dragged->hasFormat(TWDragAndDrop::kEntryPasteboardType));
    EXPECT_EQ(dragged->urls(), (QList<QUrl>{QUrl::fromLocalFile(loose[0]), QUrl::fromLocalFile(loose[1])}));
    EXPECT_FALSE(model.canDropMimeData(dragged.get(), Qt::MoveAction, -1, 0, model.index(2, 0)))
        << "onto a file";
    ASSERT_TRUE(model.dropMimeData(dragged.get(), Qt::MoveAction, 0, 0, model.index(0, 0)));
    ws.endDrag();
    EXPECT_EQ(namesIn(model, model.index(0, 0)), (QStringList{"a.wav", "b.wav"}));
    EXPECT_EQ(moved.size(), 2);

    // A row removed from the list.
    ws.setSelectedEntries({root.entryAtIndex(1)}); // c.wav
    ws.remove();
    EXPECT_EQ(namesIn(model), (QStringList{"New Group", "d.wav", "Folder"}));

    // The folder read again after a file came and one went: one insertion and one removal in it.
    const QModelIndex folderIndex = model.index(2, 0);
    ASSERT_EQ(model.rowCount(folderIndex), 3);
    const int insertedBefore = int(inserted.size()), removedBefore = int(removed.size());
    writeAudio(folder + QStringLiteral("/kick.wav"));
    ASSERT_TRUE(QFile::remove(folder + QStringLiteral("/snare 1.wav")));
    ws.refreshEntries();
    EXPECT_EQ(namesIn(model, folderIndex), (QStringList{"kick.wav", "snare 0.wav", "snare 2.wav"}));
    EXPECT_EQ(inserted.size() - insertedBefore, 1);
    EXPECT_EQ(removed.size() - removedBefore, 1);
    EXPECT_EQ(removed.last().at(0).toModelIndex(), QModelIndex(folderIndex));

    // A smart group fills itself, then finds one more file.
    auto smart = std::make_shared<TWSmartGroupEntry>();
    smart->setPath(pool);
    smart->setPredicate({QVariantMap{{"key", "Name"}, {"comparator", "LIKE[cd]"}, {"value", "loop"}}});
    root.addEntry(smart);
    smart->refreshSmartGroup();
    ASSERT_TRUE(ModelTest::runUntil([&] { return smart->entryCount() == 3 && smart->status() == 3.0f; }));
    writeAudio(pool + QStringLiteral("/loop 9.wav"));
    ws.refreshSmartGroupEntries();
    ASSERT_TRUE(ModelTest::runUntil([&] { return smart->entryCount() == 4 && smart->status() == 3.0f; }));

    // A redisplay request reaches every column of the row.
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    const auto rowChanged = [&] {
        return std::any_of(changed.cbegin(), changed.cend(), [&](const QList<QVariant>& arguments) {
            return arguments.at(0).toModelIndex() == d && arguments.at(1).toModelIndex().row() == d.row() &&
                   arguments.at(1).toModelIndex().column() == model.columnCount() - 1;
        });
    };
    ws.reloadEntry(model.entry(d));
    EXPECT_TRUE(ModelTest::runUntil(rowChanged));

    EXPECT_TRUE(d.isValid());
    EXPECT_EQ(d.data().toString(), "d.wav");
    EXPECT_EQ(layouts.size(), 0) << "no change here reorders or replaces a container";
    EXPECT_EQ(resets.size(), 0);
}

TEST_F(FileListModelTest, ColumnsShowTheSharedFormattersTextAndTheStatusWithItsProgress) {
    const QString file = writeAudio(path(QStringLiteral("tone.wav")));
    TWWorkspace& ws = workspace();
    ws.addFiles({file, path(QStringLiteral("nothing here.wav"))});
    TWFileListModel model(ws);
    const auto cell = [&](const char* key, int role = Qt::DisplayRole) {
        return model.index(0, model.columnOfKey(QLatin1String(key))).data(role);
    };
    const TWEntryPtr entry = ws.rootGroup()->entryAtIndex(0);
    for (const char* key : {"rate", "channels", "length", "range", "fileSize"})
        EXPECT_EQ(cell(key).toString(),
                  ws.formatters().stringForKey(QLatin1String(key), entry->infoValue(key)))
            << key;
    EXPECT_EQ(cell("rate").toString(), "44.1 kHz");
    EXPECT_EQ(model.headerData(model.columnOfKey("max"), Qt::Horizontal).toString(), "Peak");
    EXPECT_EQ(model.headerData(model.columnOfKey("baseNote"), Qt::Horizontal).toString(), "Base Note");

    auto* fileEntry = static_cast<TWFileEntry*>(entry.get());
    fileEntry->pushStatus(TWStatus::Processing);
    fileEntry->setStatus(TWStatus::Processing + 0.25f);
    EXPECT_FLOAT_EQ(cell("status", TWFileListModel::StatusRole).toFloat(), 4.25f);
    EXPECT_EQ(cell("status", Qt::AccessibleTextRole).toString(), "being processed, 25 %");
    fileEntry->popStatus();
    EXPECT_TRUE(cell("status", Qt::DecorationRole).isNull()) << "a readable file shows no status image";
    EXPECT_FALSE(cell("name", Qt::DecorationRole).isNull());
    EXPECT_EQ(ws.rootGroup()->entryCount(), 1) << "a missing path adds nothing";
}

TEST_F(FileListModelTest, SortingByPeakOrdersByTheMeasuredValueWithinEachContainer) {
    // As text, "-0.92 dB" < "-10.46 dB" < "-26.02 dB" < "-6.02 dB": only the numbers give the right order.
    const std::pair<const char*, double> levels[] = {
        {"w.wav", 0.9}, {"x.wav", 0.05}, {"y.wav", 0.3}, {"z.wav", 0.5}};
    QStringList paths;
    for (const auto& [name, amplitude] : levels) {
        TestAudio::Sound sound;
        sound.signal = TestAudio::Signal::Sine;
        sound.frames = 4410;
        sound.amplitude = amplitude;
        const auto written = TestAudio::write(path(QLatin1String(name)), sound);
        ASSERT_TRUE(written.ok());
        paths << *written;
    }
    TWWorkspace& ws = workspace();
    auto group = ws.addFilesToNewGroup(paths.mid(0, 2));
    ws.addFiles(paths.mid(2));
    for (const TWFileEntryPtr& file : ws.fileEntries())
        ASSERT_TRUE(file->analyze().ok());
    TWFileListModel model(ws);
    const int peak = model.columnOfKey(QStringLiteral("max"));
    EXPECT_EQ(model.index(0, peak, model.index(0, 0)).data().toString(), "-0.92 dB");

    model.sort(peak, Qt::AscendingOrder);
    const QModelIndex groupIndex = model.indexOfEntry(group.get());
    EXPECT_EQ(namesIn(model, groupIndex), (QStringList{"x.wav", "w.wav"}));
    QStringList top = namesIn(model);
    top.removeAll(QStringLiteral("New Group"));
    EXPECT_EQ(top, (QStringList{"y.wav", "z.wav"}));

    model.sort(peak, Qt::DescendingOrder);
    EXPECT_EQ(namesIn(model, groupIndex), (QStringList{"w.wav", "x.wav"}));
    EXPECT_EQ(ws.sortDescriptors(), (QList<TWSortDescriptor>{{QStringLiteral("max"), false}}));
}

TEST_F(FileListModelTest, DroppedFilesAndFoldersAreAddedWhereTheyFall) {
    const QString folder = makeDirectory(QStringLiteral("Dropped"));
    writeAudio(folder + QStringLiteral("/in folder.wav"));
    const QString one = writeAudio(path(QStringLiteral("one.wav"))),
                  two = writeAudio(path(QStringLiteral("two.wav")));
    TWWorkspace& ws = workspace();
    auto group = std::make_shared<TWGroupEntry>();
    ws.rootGroup()->addEntry(group);
    TWFileListModel model(ws);
    const QModelIndex groupIndex = model.index(0, 0);

    const std::unique_ptr<QMimeData> files(urisOf({two, folder, one}));
    ASSERT_TRUE(model.canDropMimeData(files.get(), Qt::CopyAction, -1, 0, groupIndex));
    ASSERT_TRUE(model.dropMimeData(files.get(), Qt::CopyAction, -1, 0, groupIndex));
    EXPECT_EQ(namesIn(model, groupIndex), (QStringList{"two.wav", "Dropped", "one.wav"}))
        << "in the order dropped";
    EXPECT_EQ(model.rowCount(model.index(1, 0, groupIndex)), 1);
    EXPECT_TRUE(group->isExpanded());

    // Between top-level rows, and never into a folder, which fills itself.
    const std::unique_ptr<QMimeData> again(urisOf({one}));
    ASSERT_TRUE(model.dropMimeData(again.get(), Qt::CopyAction, 0, 0, {}));
    EXPECT_EQ(namesIn(model), (QStringList{"one.wav", "New Group"}));
    EXPECT_FALSE(
        model.canDropMimeData(again.get(), Qt::CopyAction, 0, 0, model.index(1, 0, model.index(1, 0))));
}
