#include "ModelTestSupport.h"

#include "model/TWAddPosition.h"
#include "model/TWDragAndDrop.h"
#include "model/TWFileEntry.h"
#include "model/TWFolderEntry.h"
#include "model/TWGroupEntry.h"
#include "model/TWLocalizedStrings.h"
#include "model/TWServerEntry.h"
#include "model/TWSmartGroupEntry.h"
#include "model/TWWorkspacePanels.h"
#include "platform/TWEntriesStore.h"
#include "platform/TWPreferences.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QThread>

#include <sys/statvfs.h>

using ModelTest::writeAudio;
using ModelTest::writeBytes;

namespace {

class WorkspaceTest : public ModelTest::Fixture {
protected:
    TWGroupEntry& root() const { return *workspace().rootGroup(); }
    std::shared_ptr<TWGroupEntry> group(const QString& name, TWEntry* parent = nullptr) const {
        auto made = std::make_shared<TWGroupEntry>();
        made->setName(name);
        (parent ? parent : &root())->addEntry(made);
        return made;
    }
    TWFileEntryPtr file(const QString& name, TWEntry* parent = nullptr) const {
        const QString at = path(name);
        if (!QFile::exists(at)) writeAudio(at);
        auto made = TWFileEntry::create(at);
        EXPECT_TRUE(made) << at.toStdString();
        (parent ? parent : &root())->addEntry(made);
        return made;
    }
    bool waitForSmartGroups() const {
        return ModelTest::runUntil([this] {
            for (const auto& smart : root().entriesOfClass<TWSmartGroupEntry>())
                if (smart->status() != 3.0f) return false;
            return true;
        });
    }
};

// The panel commands, with a recording program standing in for the applications they start.
class WorkspacePanelTest : public WorkspaceTest {
protected:
    void SetUp() override {
        WorkspaceTest::SetUp();
        m_savedPath = qgetenv("PATH");
        m_recorder = path(QStringLiteral("bin/record"));
        m_record = path(QStringLiteral("record.txt"));
        QDir().mkpath(path(QStringLiteral("bin")));
        writeBytes(m_recorder,
                   QStringLiteral("#!/bin/sh\nfor a in \"$@\"; do printf '%s\\n' \"$a\"; done >> '%1'\n")
                       .arg(m_record)
                       .toUtf8());
        QFile::setPermissions(m_recorder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        TWPreferences::shared().removeValue(QStringLiteral("Other Editor Name"));
    }
    void TearDown() override {
        qputenv("PATH", m_savedPath);
        for (const QString& desktop : std::as_const(m_desktopFiles))
            QFile::remove(desktop);
        TWPreferences::shared().removeValue(QStringLiteral("Other Editor Name"));
        WorkspaceTest::TearDown();
    }

    // An application, in the user's applications folder, whose program records its arguments.
    QString installApplication(const QString& id, const QString& name) {
        const QString applications = qEnvironmentVariable("XDG_DATA_HOME") + QStringLiteral("/applications");
        QDir().mkpath(applications);
        m_desktopFiles.append(applications + u'/' + id + QStringLiteral(".desktop"));
        return writeBytes(m_desktopFiles.last(),
                          QStringLiteral("[Desktop Entry]\nType=Application\nName=%1\nExec=\"%2\" %F\n")
                              .arg(name, m_recorder)
                              .toUtf8());
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

    QByteArray m_savedPath;
    QString m_recorder, m_record;
    QStringList m_desktopFiles;
};

} // namespace

TEST_F(WorkspaceTest, ALargeTreeSurvivesSavingAndLoading) {
    const QString pool = makeDirectory(QStringLiteral("pool"));
    auto poolPath = [&](int i) {
        return pool + QStringLiteral("/%1 %2.wav").arg(i % 4 == 0 ? "loop" : "hit").arg(i);
    };
    for (int i = 0; i < 40; ++i)
        writeAudio(poolPath(i));
    auto poolFile = [&](int i) { return TWFileEntry::create(poolPath(i)); };
    for (int g = 0; g < 10; ++g) {
        auto outer = group(QStringLiteral("Group %1").arg(g));
        for (int i = 0; i < 20; ++i)
            outer->addEntry(poolFile((g * 7 + i) % 40));
        auto inner = group(QStringLiteral("Inner %1").arg(g), outer.get());
        for (int i = 0; i < 5; ++i)
            inner->addEntry(poolFile((g + i * 3) % 40));
    }
    const QString folder = makeDirectory(QStringLiteral("Folder A"));
    makeDirectory(QStringLiteral("Folder A/Sub"));
    for (int i = 0; i < 30; ++i)
        writeAudio(folder + QStringLiteral("/take %1.wav").arg(i));
    for (int i = 0; i < 10; ++i)
        writeAudio(folder + QStringLiteral("/Sub/part %1.aif").arg(i));
    root().addEntry(TWFolderEntry::create(folder));
    auto smart = std::make_shared<TWSmartGroupEntry>();
    smart->setName(QStringLiteral("Loops"));
    smart->setPath(pool);
    smart->setPredicate({QVariantMap{{"key", "Name"}, {"comparator", "LIKE[cd]"}, {"value", "loop"}}});
    root().addEntry(smart);
    smart->refreshSmartGroup();
    root().addEntry(std::make_shared<TWServerEntry>());
    for (int i = 0; i < 20; ++i)
        root().addEntry(poolFile(i));
    ASSERT_TRUE(waitForSmartGroups());
    ASSERT_EQ(smart->entryCount(), 10);

    const QStringList before = ModelTest::describeTree(root());
    ASSERT_GT(before.size(), 300);
    ASSERT_TRUE(workspace().saveEntries());

    workspace().removeAll();
    workspace().loadEntries();
    ASSERT_TRUE(waitForSmartGroups());
    EXPECT_EQ(ModelTest::describeTree(root()), before);
    EXPECT_EQ(root().entriesOfClass<TWSmartGroupEntry>().first()->queryText().value(),
              smart->queryText().value());
    // Statuses come back from the files, not from the stored tree.
    for (const TWFileEntryPtr& entry : workspace().fileEntries())
        EXPECT_EQ(entry->status(), TWStatus::Ready) << entry->path().toStdString();

    // Entries of a class this version does not know, or of none, are left out; the rest load.
    TWEntriesStore store(workspace().entriesStore().path());
    QVariantMap stored = store.load().value();
    QVariantList entries = stored.value("entries").toList();
    entries.insert(1, QVariantMap{{"Class", "TWBogusEntry"}, {"path", pool}});
    entries.append(QVariantMap{{"path", pool}});
    stored.insert("entries", entries);
    ASSERT_TRUE(store.save(stored));
    workspace().removeAll();
    workspace().loadEntries();
    ASSERT_TRUE(waitForSmartGroups());
    EXPECT_EQ(ModelTest::describeTree(root()), before);
}

TEST_F(WorkspaceTest, AddingKeepsTheOrderSkipsWhatItCannotUseAndExpandsTheTarget) {
    const QString folder = makeDirectory(QStringLiteral("Folder"));
    writeAudio(folder + "/inside.wav");
    const QString b = writeAudio(path("b.wav")), a = writeAudio(path("a.wav"));
    const QString workflow = writeBytes(path("flow.twwf"), "<plist/>");
    const QString damagedList = writeBytes(path("old.clipwright"), "\x04\x0bstreamtyped garbage");
    auto target = group(QStringLiteral("Target"));
    file(QStringLiteral("existing.wav"), target.get());

    QStringList workflows;
    int analysisRequests = 0;
    QObject::connect(&workspace(), &TWWorkspace::workflowFileDropped, &workspace(),
                     [&](const QString& dropped) { workflows.append(dropped); });
    QObject::connect(&workspace(), &TWWorkspace::analyzeEntriesRequested, &workspace(),
                     [&] { ++analysisRequests; });
    const QList<TWEntryPtr> added = workspace().addFiles(
        {folder, b, path("missing.wav"), writeBytes(path("notes.txt"), "text"), workflow, damagedList, a},
        target.get(), 0);
    QObject::disconnect(&workspace(), nullptr, &workspace(), nullptr);

    EXPECT_EQ(added.size(), 3);
    EXPECT_EQ(ModelTest::describeTree(*target),
              (QStringList{"TWFolderEntry " + folder, "  TWFileEntry " + folder + "/inside.wav",
                           "TWFileEntry " + b, "TWFileEntry " + a, "TWFileEntry " + path("existing.wav")}));
    EXPECT_TRUE(target->isExpanded());
    EXPECT_EQ(workflows, QStringList{workflow}) << "a workflow file is handed on and adds no row";
    EXPECT_EQ(analysisRequests, 1);
    EXPECT_TRUE(m_interaction.alerts().isEmpty());

    // Paths are made absolute and clean; a target of nullptr is the root, -1 its end.
    const QList<TWEntryPtr> more = workspace().addFiles({path("Folder/../b.wav")});
    ASSERT_EQ(more.size(), 1);
    EXPECT_EQ(more.first()->path(), b);
    EXPECT_EQ(root().entries().last(), more.first());
}

TEST_F(WorkspaceTest, ItemsOnAReadOnlyVolumeAreSkippedWithOneAlert) {
    // Only a read-only mount stops root, and we cannot mount one: use one the machine has, if any.
    QString readOnly;
    for (const char* candidate : {"/sys/power", "/sys/kernel/mm", "/proc/sys/kernel"}) {
        struct statvfs st;
        if (::statvfs(candidate, &st) == 0 && (st.f_flag & ST_RDONLY)) {
            readOnly = QString::fromLatin1(candidate);
            break;
        }
    }
    if (readOnly.isEmpty()) GTEST_SKIP() << "no read-only volume here";
    const QString a = writeAudio(path("a.wav"));
    const QList<TWEntryPtr> added = workspace().addFiles({readOnly, a, readOnly + "/.."});
    ASSERT_EQ(added.size(), 1);
    EXPECT_EQ(added.first()->path(), a);
    ASSERT_EQ(m_interaction.alerts().size(), 1);
    EXPECT_EQ(m_interaction.alerts().at(0).title, QStringLiteral("Some items were not added to the list."));
}

TEST_F(WorkspaceTest, AddPositionAndNewGroupsFollowTheSelection) {
    auto g = group(QStringLiteral("g"));
    auto gf = file(QStringLiteral("gf.wav"), g.get());
    const QString folderPath = makeDirectory(QStringLiteral("f"));
    writeAudio(folderPath + "/ff.wav");
    auto f = TWFolderEntry::create(folderPath);
    root().addEntry(f);
    auto ff = f->entryAtIndex(0);
    auto r1 = file(QStringLiteral("r1.wav")), r2 = file(QStringLiteral("r2.wav"));
    auto s = std::make_shared<TWSmartGroupEntry>();
    root().addEntry(s);

    struct Row {
        const char* what;
        QList<TWEntryPtr> selection;
        bool canAdd;
        TWEntry* parent;
        std::optional<qsizetype> index;
    };
    const Row rows[] = {
        {"nothing selected", {}, true, &root(), 5}, {"a file of the root", {r1}, true, &root(), 3},
        {"a group", {g}, true, g.get(), 0},         {"a file in a group", {gf}, true, g.get(), 1},
        {"a folder", {f}, false, f.get(), 0},       {"a file in a folder", {ff}, false, f.get(), 1},
        {"a smart group", {s}, false, s.get(), 0},  {"two rows", {r1, r2}, false, &root(), std::nullopt},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(TWAddPosition::canAddEntries(row.selection), row.canAdd) << row.what;
        EXPECT_EQ(TWAddPosition::parentForEntryAdd(row.selection, &root()), row.parent) << row.what;
        EXPECT_EQ(TWAddPosition::indexForEntryAdd(row.selection, &root()), row.index) << row.what;
    }

    const QString n1 = writeAudio(path("n1.wav"));
    workspace().setSelectedEntries({g});
    ASSERT_EQ(workspace().addFilesAfterSelectedEntry({n1}).size(), 1);
    EXPECT_EQ(g->entryAtIndex(0)->path(), n1) << "at the top of the selected group";
    workspace().setSelectedEntries({r1, r2});
    EXPECT_TRUE(workspace().addFilesAfterSelectedEntry({n1}).isEmpty());
    EXPECT_EQ(workspace().newGroup(), nullptr);

    // A new group goes after the selected row, is selected and named by the user.
    TWEntry* editing = nullptr;
    QObject::connect(&workspace(), &TWWorkspace::editNameRequested, &workspace(),
                     [&](TWEntry* entry) { editing = entry; });
    workspace().setSelectedEntries({r1});
    auto made = workspace().newGroup();
    QObject::disconnect(&workspace(), nullptr, &workspace(), nullptr);
    ASSERT_TRUE(made);
    EXPECT_EQ(root().indexOfEntry(made.get()), 3);
    EXPECT_EQ(editing, made.get());
    EXPECT_EQ(workspace().selectedEntries(), QList<TWEntryPtr>{made});
    // A new smart group goes to the top of the selected group, and runs its query.
    auto smart = std::make_shared<TWSmartGroupEntry>();
    smart->setPath(makeDirectory(QStringLiteral("nothing here")));
    EXPECT_TRUE(workspace().newSmartGroup(smart));
    EXPECT_EQ(made->entryAtIndex(0), smart);
    EXPECT_TRUE(made->isExpanded());
    EXPECT_TRUE(ModelTest::runUntil([&] { return smart->status() == 3.0f; }));
    auto grouped = workspace().addFilesToNewGroup({path("r1.wav"), path("r2.wav")});
    EXPECT_EQ(root().entries().last(), grouped);
    EXPECT_EQ(grouped->entryCount(), 2);
}

TEST_F(WorkspaceTest, RemoveLeavesBusyEntriesAndFolderContents) {
    auto a = file(QStringLiteral("a.wav")), busy = file(QStringLiteral("busy.wav"));
    auto g = group(QStringLiteral("g"));
    auto c = file(QStringLiteral("c.wav"), g.get());
    const QString folderPath = makeDirectory(QStringLiteral("f"));
    writeAudio(folderPath + "/x.wav");
    auto f = TWFolderEntry::create(folderPath);
    root().addEntry(f);
    busy->pushStatus(TWStatus::Processing);

    workspace().setSelectedEntries({a, busy, c, f->entryAtIndex(0)});
    workspace().remove();
    EXPECT_EQ(ModelTest::describeTree(root()),
              (QStringList{"TWFileEntry " + path("busy.wav"), "TWGroupEntry g", "TWFolderEntry " + folderPath,
                           "  TWFileEntry " + folderPath + "/x.wav"}));
    EXPECT_TRUE(workspace().selectedEntries().isEmpty());
    EXPECT_TRUE(QFile::exists(path("a.wav"))) << "files stay on disk";

    workspace().removeAll();
    EXPECT_EQ(root().entryCount(), 0);
}

TEST_F(WorkspaceTest, DeleteAsksFirstTrashDoesNotAndBothRemoveTheRows) {
    const QString shared = writeAudio(path("shared.wav"));
    auto top = file(QStringLiteral("shared.wav"));
    auto g1 = group(QStringLiteral("g1")), g2 = group(QStringLiteral("g2"));
    file(QStringLiteral("shared.wav"), g1.get());
    file(QStringLiteral("shared.wav"), g2.get());
    auto other = file(QStringLiteral("other.wav"), g2.get());
    const QString folderPath = makeDirectory(QStringLiteral("f"));
    writeAudio(folderPath + "/x.wav");
    writeAudio(folderPath + "/y.wav");
    auto f = TWFolderEntry::create(folderPath);
    root().addEntry(f);
    const QStringList before = ModelTest::describeTree(root());

    workspace().setSelectedEntries({top, f->entryAtIndex(0)});
    m_interaction.answerAlerts({1}); // "No"
    EXPECT_FALSE(workspace().deleteSelected());
    ASSERT_EQ(m_interaction.alerts().size(), 1);
    EXPECT_EQ(m_interaction.alerts().at(0).title, TWLocalizedString("Delete Files Alert"));
    EXPECT_EQ(m_interaction.alerts().at(0).buttons, (QStringList{"Yes", "No"}));
    EXPECT_EQ(ModelTest::describeTree(root()), before);
    EXPECT_TRUE(QFile::exists(shared) && QFile::exists(folderPath + "/x.wav"));

    m_interaction.answerAlerts({0}); // "Yes"
    EXPECT_TRUE(workspace().deleteSelected());
    EXPECT_FALSE(QFile::exists(shared) || QFile::exists(folderPath + "/x.wav"));
    EXPECT_EQ(ModelTest::describeTree(root()),
              (QStringList{"TWGroupEntry g1", "TWGroupEntry g2", "  TWFileEntry " + path("other.wav"),
                           "TWFolderEntry " + folderPath, "  TWFileEntry " + folderPath + "/y.wav"}));

    // The trash asks nothing: the file goes to the freedesktop trash, with its information.
    workspace().setSelectedEntries({other});
    workspace().moveToTrash();
    EXPECT_FALSE(QFile::exists(path("other.wav")));
    const QString trash = qEnvironmentVariable("XDG_DATA_HOME") + "/Trash";
    EXPECT_TRUE(QFile::exists(trash + "/files/other.wav") &&
                QFile::exists(trash + "/info/other.wav.trashinfo"));
    EXPECT_EQ(g2->entryCount(), 0);
    EXPECT_TRUE(workspace().selectedEntries().isEmpty());
    EXPECT_EQ(m_interaction.alerts().size(), 2);
}

TEST_F(WorkspaceTest, DeleteKeepsTheRowOfAFileThatStaysAndRefreshesEachFolderOnce) {
    const QString folderPath = makeDirectory(QStringLiteral("f"));
    for (const char* name : {"/x.wav", "/y.wav", "/z.wav"})
        writeAudio(folderPath + QLatin1String(name));
    auto f = TWFolderEntry::create(folderPath);
    root().addEntry(f);
    const QString locked = makeDirectory(QStringLiteral("locked"));
    auto kept = file(QStringLiteral("locked/k.wav"));
    int folderChanges = 0;
    QObject::connect(&workspace(), &TWWorkspace::entryAndChildrenChanged, &workspace(),
                     [&](TWEntry* entry) { folderChanges += entry == f.get(); });

    workspace().setSelectedEntries({f->entryAtIndex(0), f->entryAtIndex(1), kept});
    m_interaction.answerAlerts({0, 0});
    ModelTest::lockDirectory(locked, true);
    EXPECT_TRUE(workspace().deleteSelected());
    ModelTest::lockDirectory(locked, false);
    QObject::disconnect(&workspace(), &TWWorkspace::entryAndChildrenChanged, &workspace(), nullptr);

    EXPECT_TRUE(QFile::exists(kept->path()));
    EXPECT_EQ(ModelTest::describeTree(root()),
              (QStringList{"TWFolderEntry " + folderPath, "  TWFileEntry " + folderPath + "/z.wav",
                           "TWFileEntry " + kept->path()}));
    EXPECT_EQ(folderChanges, 1);
    ASSERT_EQ(m_interaction.alerts().size(), 2);
    EXPECT_EQ(m_interaction.alerts().at(1).title, QStringLiteral("Some items could not be deleted."));
    EXPECT_TRUE(m_interaction.alerts().at(1).message.startsWith("'k.wav': Cannot delete the file"))
        << m_interaction.alerts().at(1).message.toStdString();
}

TEST_F(WorkspaceTest, RenamingAFolderMovesItsDirectoryAndConvertingItKeepsThePlaceAndTheChildren) {
    const QString folderPath = makeDirectory(QStringLiteral("Before"));
    writeAudio(folderPath + "/x.wav");
    auto f1 = TWFolderEntry::create(folderPath), f2 = TWFolderEntry::create(folderPath);
    auto a = file(QStringLiteral("a.wav"));
    root().addEntry(f1);
    group(QStringLiteral("g"))->addEntry(f2);
    workspace().renameEntry(f1, QStringLiteral("After"));
    EXPECT_TRUE(QFile::exists(path("After/x.wav")));
    EXPECT_EQ(f1->path(), path("After"));
    EXPECT_EQ(f2->entryAtIndex(0)->path(), path("After/x.wav")) << "every row of the folder follows";

    const TWEntryPtr x = f1->entryAtIndex(0);
    workspace().setSelectedEntries({f1});
    workspace().convertToGroup();
    auto converted = std::dynamic_pointer_cast<TWGroupEntry>(root().entryAtIndex(1));
    ASSERT_TRUE(converted);
    EXPECT_EQ(converted->name(), QStringLiteral("After"));
    EXPECT_EQ(converted->entries(), QList<TWEntryPtr>{x});
    EXPECT_EQ(workspace().selectedEntries(), QList<TWEntryPtr>{converted});

    // A file is renamed by the rename action, asked for with the new name.
    QVariantMap asked;
    QObject::connect(&workspace(), &TWWorkspace::renameFileRequested, &workspace(),
                     [&](const QVariantMap& instructions) { asked = instructions; });
    workspace().renameEntry(a, QStringLiteral("b"));
    QObject::disconnect(&workspace(), nullptr, &workspace(), nullptr);
    EXPECT_EQ(asked.value("class"), QStringLiteral("TWActionRenameFromTokens"));
    EXPECT_EQ(asked.value("expression"), QStringLiteral("b"));
}

TEST_F(WorkspaceTest, SelectionGathersTheFilesUnderTheSelectedRowsAndInfoTextCountsVisibleRows) {
    EXPECT_EQ(workspace().infoText(), QStringLiteral("0 items"));
    auto g = group(QStringLiteral("g"));
    auto a = file(QStringLiteral("a.wav"), g.get()), b = file(QStringLiteral("b.wav"), g.get());
    auto c = file(QStringLiteral("c.wav"));
    EXPECT_EQ(workspace().infoText(), QStringLiteral("2 items")) << "a closed group hides its rows";
    int changes = 0;
    QObject::connect(&workspace(), &TWWorkspace::selectionChanged, &workspace(), [&] { ++changes; });
    workspace().setSelectedEntries({g, b, c});
    QObject::disconnect(&workspace(), nullptr, &workspace(), nullptr);
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(workspace().selectedFileEntries(), (QList<TWFileEntryPtr>{a, b, c}));
    EXPECT_EQ(workspace().entriesFromPaths({path("c.wav"), path("none.wav"), path("a.wav")}),
              (QList<TWEntryPtr>{c, a}));
    g->setExpanded(true);
    EXPECT_EQ(workspace().infoText(), QStringLiteral("3 of 4 selected"));
}

TEST_F(WorkspaceTest, DragAndDropRules) {
    using TWDragAndDrop::Operation;
    auto g1 = group(QStringLiteral("g1")), g2 = group(QStringLiteral("g2"));
    auto a = file(QStringLiteral("a.wav"), g1.get()), b = file(QStringLiteral("b.wav"), g1.get());
    auto h = group(QStringLiteral("h"), g1.get());
    auto d = file(QStringLiteral("d.wav"), g2.get());
    const QString folderPath = makeDirectory(QStringLiteral("f"));
    writeAudio(folderPath + "/x.wav");
    auto f = TWFolderEntry::create(folderPath);
    root().addEntry(f);
    auto x = f->entryAtIndex(0);
    auto e = file(QStringLiteral("e.wav"));
    auto s = std::make_shared<TWSmartGroupEntry>();
    root().addEntry(s);

    EXPECT_TRUE(TWDragAndDrop::canWriteRows({g1, e}));
    EXPECT_FALSE(TWDragAndDrop::canWriteRows({a, d})) << "different parents";
    EXPECT_FALSE(TWDragAndDrop::canWriteRows({x})) << "a folder's rows stay";

    // Rows dragged, or files from outside when no rows are given.
    const QStringList files{writeAudio(path("new1.wav")), writeAudio(path("new2.wav"))};
    const struct {
        const char* what;
        TWEntry* target;
        qsizetype index;
        QList<TWEntryPtr> rows;
        Operation expected;
    } drops[] = {
        {"rows into another group", g2.get(), 0, {a, b}, Operation::Generic},
        {"a group onto itself", g1.get(), TWDragAndDrop::kDropOnItem, {g1}, Operation::None},
        {"a group inside itself", h.get(), 0, {g1}, Operation::None},
        {"rows into a folder", f.get(), 0, {a}, Operation::None},
        {"rows within their own folder", f.get(), 0, {x}, Operation::Generic},
        {"rows into a smart group", s.get(), 0, {e}, Operation::None},
        {"files into the root", nullptr, 0, {}, Operation::Generic},
        {"files onto a group", g1.get(), TWDragAndDrop::kDropOnItem, {}, Operation::Generic},
        {"files into a folder", f.get(), 0, {}, Operation::None},
    };
    for (const auto& drop : drops)
        EXPECT_EQ(drop.rows.isEmpty()
                      ? TWDragAndDrop::validateDrop(drop.target, drop.index, files, &root())
                      : TWDragAndDrop::validateDrop(drop.target, drop.index, drop.rows, &root()),
                  drop.expected)
            << drop.what;
}

TEST_F(WorkspaceTest, DroppedRowsMoveAndBecomeTheSelection) {
    auto g1 = group(QStringLiteral("g1")), g2 = group(QStringLiteral("g2"));
    auto a = file(QStringLiteral("a.wav"), g1.get()), b = file(QStringLiteral("b.wav"), g1.get());
    auto c = file(QStringLiteral("c.wav"), g1.get());
    auto d = file(QStringLiteral("d.wav"), g2.get());

    ASSERT_TRUE(workspace().beginDrag({a, b}));
    EXPECT_EQ(workspace().draggingParent(), g1.get());
    // To the end of their own group: the index counts the rows being moved, which are taken out first.
    EXPECT_TRUE(TWDragAndDrop::acceptDrop(g1.get(), 3, workspace().draggingEntries(), &root()));
    workspace().endDrag();
    EXPECT_EQ(g1->entries(), (QList<TWEntryPtr>{c, a, b}));
    EXPECT_EQ(workspace().selectedEntries(), (QList<TWEntryPtr>{a, b}));

    EXPECT_TRUE(TWDragAndDrop::acceptDrop(g2.get(), 0, QList<TWEntryPtr>{a}, &root()));
    EXPECT_EQ(g2->entries(), (QList<TWEntryPtr>{a, d}));
    EXPECT_EQ(a->parent(), g2.get());
    EXPECT_TRUE(
        TWDragAndDrop::acceptDrop(nullptr, TWDragAndDrop::kDropOnItem, QList<TWEntryPtr>{c}, &root()));
    EXPECT_EQ(root().entries().last(), c);

    const QStringList paths{writeAudio(path("n1.wav")), writeAudio(path("n2.wav"))};
    EXPECT_TRUE(TWDragAndDrop::acceptDrop(g2.get(), 1, paths, &root()));
    EXPECT_EQ(ModelTest::describeTree(*g2),
              (QStringList{"TWFileEntry " + path("a.wav"), "TWFileEntry " + paths.at(0),
                           "TWFileEntry " + paths.at(1), "TWFileEntry " + path("d.wav")}));
}

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
    EXPECT_TRUE(panel.types.contains(QLatin1String("clipwright")) &&
                panel.types.contains(QLatin1String("wav")));
    EXPECT_EQ(ModelTest::describeTree(root()),
              (QStringList{"TWFileEntry " + path("a.wav"), "TWFolderEntry " + folder,
                           "  TWFileEntry " + folder + "/kick.wav", "TWFileEntry " + added,
                           "TWFileEntry " + path("z.wav")}));
    EXPECT_TRUE(TWWorkspacePanels::addToList(workspace()).isEmpty()) << "a cancelled panel adds nothing";
    EXPECT_EQ(root().entryCount(), 4);
}

TEST_F(WorkspacePanelTest, MoveToAndCopyToAskForTheDestinationAndSayWhatFailed) {
    auto a = file(QStringLiteral("a.wav")), b = file(QStringLiteral("b.wav"));
    const QString moved = makeDirectory(QStringLiteral("moved"));
    workspace().setSelectedEntries({a, b});
    EXPECT_FALSE(TWWorkspacePanels::moveTo(workspace())) << "cancelled";
    EXPECT_TRUE(QFile::exists(path("a.wav")));
    m_interaction.answerOpenPanels({{moved}, {path("missing")}});
    EXPECT_TRUE(TWWorkspacePanels::moveTo(workspace()));
    const TWOpenPanelOptions panel = m_interaction.openPanels().last();
    EXPECT_EQ(panel.title, QStringLiteral("Choose destination directory"));
    EXPECT_TRUE(!panel.chooseFiles && panel.chooseDirectories && panel.canCreateDirectories);
    EXPECT_FALSE(QFile::exists(path("a.wav")));
    EXPECT_EQ(b->path(), moved + "/b.wav");
    EXPECT_EQ(a->status(), TWStatus::Ready);
    EXPECT_TRUE(m_interaction.alerts().isEmpty());
    TWWorkspacePanels::moveTo(workspace());
    ASSERT_EQ(m_interaction.alerts().size(), 2) << "one alert for each entry";
    EXPECT_EQ(m_interaction.alerts().at(0).message,
              TWLocalizedString("Move Failed No Directory").arg("missing"));

    // The check box puts the copies in a new group and keeps its state for the next copy.
    const QString first = makeDirectory(QStringLiteral("first")),
                  loose = makeDirectory(QStringLiteral("loose"));
    m_interaction.answerOpenPanels({{first}, {first}, {loose}});
    m_interaction.answerCheckBoxes({true});
    ASSERT_TRUE(TWWorkspacePanels::copyTo(workspace()));
    EXPECT_FALSE(m_interaction.openPanels().last().checkBoxChecked);
    auto copied = std::dynamic_pointer_cast<TWGroupEntry>(root().entries().last());
    ASSERT_TRUE(copied);
    EXPECT_EQ(copied->name(), QStringLiteral("Copied items"));
    EXPECT_EQ(workspace().selectedEntries(), QList<TWEntryPtr>{copied});
    EXPECT_EQ(ModelTest::describeTree(*copied),
              (QStringList{"TWFileEntry " + first + "/a.wav", "TWFileEntry " + first + "/b.wav"}));
    EXPECT_EQ(copied->entryAtIndex(0)->status(), TWStatus::Ready) << "read by the refresh after copying";
    EXPECT_TRUE(QFile::exists(moved + "/a.wav")) << "the originals stay";

    // Copying onto the copies fails for each file and makes no group entries.
    workspace().setSelectedEntries({a, b});
    ASSERT_TRUE(TWWorkspacePanels::copyTo(workspace()));
    EXPECT_TRUE(m_interaction.openPanels().last().checkBoxChecked);
    EXPECT_EQ(root().entries().last()->entryCount(), 0);
    ASSERT_EQ(m_interaction.alerts().size(), 4);
    EXPECT_EQ(m_interaction.alerts().at(3).message, TWLocalizedString("Copy Failed Exists").arg("b.wav"));

    workspace().setSelectedEntries({a});
    m_interaction.answerCheckBoxes({false});
    ASSERT_TRUE(TWWorkspacePanels::copyTo(workspace()));
    EXPECT_TRUE(QFile::exists(loose + "/a.wav"));
    EXPECT_EQ(root().entryCount(), 4) << "no group without the check box";
}

// Ringlet is opened when installed and offered for download when not; the other editor is asked for once.
TEST_F(WorkspacePanelTest, ExternalEditorsAreOfferedAskedForAndRemembered) {
    auto a = file(QStringLiteral("a.wav"));
    workspace().setSelectedEntries({a});
    // Without Ringlet: "Later" does nothing, "Download" hands the page to xdg-open (here, the recorder).
    QFile::link(m_recorder, path(QStringLiteral("bin/xdg-open")));
    qputenv("PATH", QFile::encodeName(path(QStringLiteral("bin"))) + ':' + m_savedPath);
    m_interaction.answerAlerts({1, 0});
    EXPECT_FALSE(TWWorkspacePanels::openRinglet(workspace()));
    ASSERT_EQ(m_interaction.alerts().size(), 1);
    EXPECT_EQ(m_interaction.alerts().first().title, QStringLiteral("Ringlet not installed"));
    EXPECT_EQ(m_interaction.alerts().first().buttons, (QStringList{"Download", "Later"}));
    EXPECT_FALSE(TWWorkspacePanels::openRinglet(workspace()));
    const QStringList download = recorded(1);
    ASSERT_EQ(download.size(), 1);
    EXPECT_TRUE(download.first().startsWith(QStringLiteral("https://"))) << download.first().toStdString();
    QFile::remove(m_record);
    installApplication(QStringLiteral("com.example.Ringlet"), QStringLiteral("Ringlet"));
    EXPECT_TRUE(TWWorkspacePanels::openRinglet(workspace()));
    EXPECT_EQ(recorded(1), QStringList{a->path()});
    QFile::remove(m_record);

    const QString editor = installApplication(QStringLiteral("org.example.Editor"), QStringLiteral("Editor"));
    TWWorkspacePanels::openOtherEditor(workspace()); // nothing set: asks, and the panel is cancelled
    ASSERT_EQ(m_interaction.openPanels().size(), 1);
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
    EXPECT_EQ(m_interaction.alerts().size(), 2);
}
