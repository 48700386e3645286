#include "ModelTestSupport.h"

#include "TWAddPosition.h"
#include "TWDragAndDrop.h"
#include "TWFileEntry.h"
#include "TWFolderEntry.h"
#include "TWGroupEntry.h"
#include "TWLocalizedStrings.h"
#include "TWPreferences.h"
#include "TWServerEntry.h"
#include "TWSmartGroupEntry.h"

#include <QDir>
#include <QFile>

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
    ASSERT_TRUE(workspace().saveEntries()) << TWPreferences::shared().lastError().toStdString();
    const QString preferences = TWPreferences::shared().path();
    ASSERT_TRUE(QFile::exists(preferences));

    workspace().removeAll();
    TWPreferences::shared().setPath(preferences); // read back from the file itself
    workspace().loadEntries();
    ASSERT_TRUE(waitForSmartGroups());
    EXPECT_EQ(ModelTest::describeTree(root()), before);
    EXPECT_EQ(root().name(), QStringLiteral("root"));
    const auto smartAgain = root().entriesOfClass<TWSmartGroupEntry>();
    ASSERT_EQ(smartAgain.size(), 1);
    EXPECT_EQ(smartAgain.first()->queryText(), smart->queryText());
    // Statuses come back from the files, not from the stored tree.
    const QList<TWFileEntryPtr> files = workspace().fileEntries();
    EXPECT_EQ(files.size(), before.filter(QStringLiteral("TWFileEntry")).size());
    for (const TWFileEntryPtr& entry : files)
        EXPECT_EQ(entry->status(), TWStatus::Ready) << entry->path().toStdString();
}

TEST_F(WorkspaceTest, LoadingSkipsEntriesOfUnknownClasses) {
    const QString a = writeAudio(path("a.wav")), b = writeAudio(path("b.wav"));
    const QVariantMap stored{
        {"Class", "TWGroupEntry"},
        {"name", "root"},
        {"entries", QVariantList{QVariantMap{{"Class", "TWFileEntry"}, {"path", a}},
                                 QVariantMap{{"Class", "TWBogusEntry"}, {"path", a}},
                                 QVariantMap{{"Class", "TWGroupEntry"},
                                             {"name", "Kept"},
                                             {"entries", QVariantList{QVariantMap{{"path", b}}}}},
                                 QVariantMap{{"Class", "TWFileEntry"}, {"path", b}}}}};
    TWPreferences::shared().setValue(QStringLiteral("Entries"), stored);
    workspace().loadEntries();
    EXPECT_EQ(ModelTest::describeTree(root()),
              (QStringList{"TWFileEntry " + a, "TWGroupEntry Kept", "TWFileEntry " + b}));
    EXPECT_EQ(root().entryAtIndex(0)->status(), TWStatus::Ready) << "loading refreshes";

    TWPreferences::shared().removeValue(QStringLiteral("Entries"));
    workspace().loadEntries();
    EXPECT_EQ(root().entryCount(), 0);
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

    ASSERT_EQ(added.size(), 3);
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

TEST_F(WorkspaceTest, AddPositionFollowsTheSelection) {
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

    const QString n1 = writeAudio(path("n1.wav")), n2 = writeAudio(path("n2.wav"));
    workspace().setSelectedEntries({r1});
    ASSERT_EQ(workspace().addFilesAfterSelectedEntry({n1}).size(), 1);
    EXPECT_EQ(root().entryAtIndex(3)->path(), n1) << "after the selected file";
    workspace().setSelectedEntries({g});
    ASSERT_EQ(workspace().addFilesAfterSelectedEntry({n2}).size(), 1);
    EXPECT_EQ(g->entryAtIndex(0)->path(), n2) << "at the top of the selected group";
    workspace().setSelectedEntries({r1, r2});
    EXPECT_TRUE(workspace().addFilesAfterSelectedEntry({n1}).isEmpty());
    EXPECT_EQ(workspace().newGroup(), nullptr);
    workspace().setSelectedEntries({ff});
    EXPECT_TRUE(workspace().addFilesAfterSelectedEntry({n1}).isEmpty()) << "a folder takes nothing by hand";
}

TEST_F(WorkspaceTest, NewGroupsGoToTheAddPosition) {
    auto r1 = file(QStringLiteral("r1.wav"));
    file(QStringLiteral("r2.wav"));
    TWEntry* editing = nullptr;
    QObject::connect(&workspace(), &TWWorkspace::editNameRequested, &workspace(),
                     [&](TWEntry* entry) { editing = entry; });
    workspace().setSelectedEntries({r1});
    auto made = workspace().newGroup();
    QObject::disconnect(&workspace(), nullptr, &workspace(), nullptr);
    ASSERT_TRUE(made);
    EXPECT_EQ(root().indexOfEntry(made.get()), 1);
    EXPECT_EQ(made->name(), QStringLiteral("New Group"));
    EXPECT_EQ(editing, made.get());
    EXPECT_EQ(workspace().selectedEntries(), QList<TWEntryPtr>{made});

    auto smart = std::make_shared<TWSmartGroupEntry>();
    smart->setPath(makeDirectory(QStringLiteral("nothing here")));
    EXPECT_TRUE(workspace().newSmartGroup(smart));
    EXPECT_EQ(made->entryAtIndex(0), smart) << "into the selected group, at its top";
    EXPECT_TRUE(made->isExpanded());
    EXPECT_TRUE(ModelTest::runUntil([&] { return smart->status() == 3.0f; })) << "a new group runs its query";

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

TEST_F(WorkspaceTest, DeleteAsksFirstAndRemovesEveryRowOfTheFile) {
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
    const TWAlert asked = m_interaction.alerts().at(0);
    EXPECT_EQ(asked.style, TWAlertStyle::Critical);
    EXPECT_EQ(asked.title, TWLocalizedString("Delete Files Alert"));
    EXPECT_EQ(asked.message, TWLocalizedString("Delete Files Message"));
    EXPECT_EQ(asked.buttons, (QStringList{"Yes", "No"}));
    EXPECT_EQ(ModelTest::describeTree(root()), before);
    EXPECT_TRUE(QFile::exists(shared));
    EXPECT_TRUE(QFile::exists(folderPath + "/x.wav"));

    m_interaction.answerAlerts({0}); // "Yes"
    EXPECT_TRUE(workspace().deleteSelected());
    EXPECT_FALSE(QFile::exists(shared));
    EXPECT_FALSE(QFile::exists(folderPath + "/x.wav"));
    EXPECT_EQ(ModelTest::describeTree(root()),
              (QStringList{"TWGroupEntry g1", "TWGroupEntry g2", "  TWFileEntry " + path("other.wav"),
                           "TWFolderEntry " + folderPath, "  TWFileEntry " + folderPath + "/y.wav"}));
    EXPECT_TRUE(workspace().selectedEntries().isEmpty());
    EXPECT_TRUE(QFile::exists(path("other.wav")));
}

TEST_F(WorkspaceTest, TrashMovesTheFilesToTheUsersTrash) {
    auto a = file(QStringLiteral("trashed.wav"));
    auto b = file(QStringLiteral("kept.wav"));
    workspace().setSelectedEntries({a});
    workspace().moveToTrash();
    EXPECT_FALSE(QFile::exists(path("trashed.wav")));
    const QString trash = qEnvironmentVariable("XDG_DATA_HOME") + "/Trash";
    EXPECT_TRUE(QFile::exists(trash + "/files/trashed.wav"));
    EXPECT_TRUE(QFile::exists(trash + "/info/trashed.wav.trashinfo"));
    EXPECT_EQ(root().entries(), QList<TWEntryPtr>{b});
    EXPECT_TRUE(workspace().selectedEntries().isEmpty());
}

TEST_F(WorkspaceTest, MoveToAndCopyToWorkOnTheSelection) {
    auto a = file(QStringLiteral("a.wav")), b = file(QStringLiteral("b.wav"));
    const QString into = makeDirectory(QStringLiteral("into"));
    workspace().setSelectedEntries({a, b});
    workspace().moveTo(into);
    EXPECT_TRUE(m_interaction.alerts().isEmpty());
    EXPECT_EQ(a->path(), into + "/a.wav");
    EXPECT_EQ(b->path(), into + "/b.wav");
    EXPECT_EQ(a->status(), TWStatus::Ready);

    workspace().moveTo(path("missing"));
    ASSERT_EQ(m_interaction.alerts().size(), 2) << "one alert for each entry";
    EXPECT_EQ(m_interaction.alerts().at(0).message,
              TWLocalizedString("Move Failed No Directory").arg("missing"));

    const QString copies = makeDirectory(QStringLiteral("copies"));
    auto copied = workspace().copyTo(copies, true);
    ASSERT_TRUE(copied);
    EXPECT_EQ(copied->name(), QStringLiteral("Copied items"));
    EXPECT_EQ(root().entries().last(), copied);
    EXPECT_TRUE(copied->isExpanded());
    EXPECT_EQ(workspace().selectedEntries(), QList<TWEntryPtr>{copied});
    EXPECT_EQ(ModelTest::describeTree(*copied),
              (QStringList{"TWFileEntry " + copies + "/a.wav", "TWFileEntry " + copies + "/b.wav"}));
    EXPECT_EQ(copied->entryAtIndex(0)->status(), TWStatus::Ready) << "read by the refresh after copying";

    // Copying onto the copies fails for each file and makes no group entries.
    workspace().setSelectedEntries({a, b});
    auto again = workspace().copyTo(copies, true);
    EXPECT_EQ(again->entryCount(), 0);
    ASSERT_EQ(m_interaction.alerts().size(), 4);
    EXPECT_EQ(m_interaction.alerts().at(3).message, TWLocalizedString("Copy Failed Exists").arg("b.wav"));

    const QString loose = makeDirectory(QStringLiteral("loose"));
    workspace().setSelectedEntries({a});
    EXPECT_EQ(workspace().copyTo(loose, false), nullptr);
    EXPECT_TRUE(QFile::exists(loose + "/a.wav"));
}

TEST_F(WorkspaceTest, ConvertToGroupKeepsThePlaceAndTheChildren) {
    file(QStringLiteral("first.wav"));
    const QString folderPath = makeDirectory(QStringLiteral("Kit"));
    writeAudio(folderPath + "/x.wav");
    auto folder = TWFolderEntry::create(folderPath);
    root().addEntry(folder);
    const TWEntryPtr x = folder->entryAtIndex(0);
    workspace().setSelectedEntries({folder});
    workspace().convertToGroup();
    auto converted = std::dynamic_pointer_cast<TWGroupEntry>(root().entryAtIndex(1));
    ASSERT_TRUE(converted);
    EXPECT_EQ(converted->name(), QStringLiteral("Kit"));
    EXPECT_EQ(converted->entries(), QList<TWEntryPtr>{x});
    EXPECT_EQ(x->parent(), converted.get());
    EXPECT_EQ(workspace().selectedEntries(), QList<TWEntryPtr>{converted});
}

TEST_F(WorkspaceTest, RenamingAFolderMovesItsDirectoryAndEveryRowFollows) {
    const QString folderPath = makeDirectory(QStringLiteral("Before"));
    writeAudio(folderPath + "/x.wav");
    auto f1 = TWFolderEntry::create(folderPath), f2 = TWFolderEntry::create(folderPath);
    root().addEntry(f1);
    group(QStringLiteral("g"))->addEntry(f2);
    workspace().renameEntry(f1, QStringLiteral("After"));
    EXPECT_TRUE(QFile::exists(path("After/x.wav")));
    EXPECT_EQ(f1->path(), path("After"));
    EXPECT_EQ(f2->entryAtIndex(0)->path(), path("After/x.wav"));

    auto a = file(QStringLiteral("a.wav"));
    QVariantMap asked;
    QObject::connect(&workspace(), &TWWorkspace::renameFileRequested, &workspace(),
                     [&](const QVariantMap& instructions) { asked = instructions; });
    workspace().renameEntry(a, QStringLiteral("b"));
    QObject::disconnect(&workspace(), nullptr, &workspace(), nullptr);
    EXPECT_EQ(asked.value("class"), QStringLiteral("TWActionRenameFromTokens"));
    EXPECT_EQ(asked.value("source"), 1);
    EXPECT_EQ(asked.value("expression"), QStringLiteral("b"));
    EXPECT_EQ(asked.value("destination").toMap().value("toNewFile"), false);
}

TEST_F(WorkspaceTest, SelectionGathersTheFilesUnderTheSelectedRows) {
    auto g = group(QStringLiteral("g"));
    auto a = file(QStringLiteral("a.wav"), g.get()), b = file(QStringLiteral("b.wav"), g.get());
    auto c = file(QStringLiteral("c.wav"));
    int changes = 0;
    QObject::connect(&workspace(), &TWWorkspace::selectionChanged, &workspace(), [&] { ++changes; });
    workspace().setSelectedEntries({g, b, c});
    QObject::disconnect(&workspace(), nullptr, &workspace(), nullptr);
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(workspace().selectedFileEntries(), (QList<TWFileEntryPtr>{a, b, c}));
    EXPECT_EQ(workspace().selectedFileEntry(), a);
    EXPECT_TRUE(workspace().selectedAudioFile());
    EXPECT_EQ(workspace().fileEntries(), (QList<TWFileEntryPtr>{a, b, c}));
    EXPECT_EQ(workspace().entriesFromPaths({path("c.wav"), path("none.wav"), path("a.wav")}),
              (QList<TWEntryPtr>{c, a}));
    workspace().clearSelection();
    EXPECT_EQ(workspace().selectedFileEntry(), nullptr);
}

TEST_F(WorkspaceTest, InfoTextCountsTheVisibleRows) {
    EXPECT_EQ(workspace().infoText(), QStringLiteral("0 items"));
    auto a = file(QStringLiteral("a.wav"));
    EXPECT_EQ(workspace().infoText(), QStringLiteral("1 item"));
    auto g = group(QStringLiteral("g"));
    file(QStringLiteral("b.wav"), g.get());
    file(QStringLiteral("c.wav"), g.get());
    EXPECT_EQ(workspace().infoText(), QStringLiteral("2 items")) << "a closed group hides its rows";
    g->setExpanded(true);
    EXPECT_EQ(workspace().infoText(), QStringLiteral("4 items"));
    workspace().setSelectedEntries({a});
    EXPECT_EQ(workspace().infoText(), QStringLiteral("1 of 4 selected"));
}

TEST_F(WorkspaceTest, DragAndDropRules) {
    using TWDragAndDrop::Operation;
    auto g1 = group(QStringLiteral("g1")), g2 = group(QStringLiteral("g2"));
    auto a = file(QStringLiteral("a.wav"), g1.get()), b = file(QStringLiteral("b.wav"), g1.get());
    auto c = file(QStringLiteral("c.wav"), g1.get());
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

    EXPECT_TRUE(TWDragAndDrop::canWriteRows({a, b}));
    EXPECT_TRUE(TWDragAndDrop::canWriteRows({g1, e}));
    EXPECT_FALSE(TWDragAndDrop::canWriteRows({a, d})) << "different parents";
    EXPECT_FALSE(TWDragAndDrop::canWriteRows({x})) << "a folder's rows stay";
    EXPECT_FALSE(TWDragAndDrop::canWriteRows({}));

    struct EntryDrop {
        const char* what;
        TWEntry* target;
        qsizetype index;
        QList<TWEntryPtr> dragged;
        Operation expected;
    };
    const EntryDrop entryDrops[] = {
        {"into another group", g2.get(), 0, {a, b}, Operation::Generic},
        {"onto a group itself", g2.get(), TWDragAndDrop::kDropOnItem, {a}, Operation::Generic},
        {"into the root", nullptr, 1, {a}, Operation::Generic},
        {"onto a file", e.get(), TWDragAndDrop::kDropOnItem, {a}, Operation::None},
        {"onto itself", g1.get(), TWDragAndDrop::kDropOnItem, {g1}, Operation::None},
        {"inside itself", h.get(), 0, {g1}, Operation::None},
        {"into a folder", f.get(), 0, {a}, Operation::None},
        {"within its own folder", f.get(), 0, {x}, Operation::Generic},
        {"into a smart group", s.get(), 0, {e}, Operation::None},
    };
    for (const EntryDrop& drop : entryDrops)
        EXPECT_EQ(TWDragAndDrop::validateDrop(drop.target, drop.index, drop.dragged, &root()), drop.expected)
            << drop.what;

    const QStringList paths{writeAudio(path("new1.wav")), writeAudio(path("new2.wav"))};
    struct FileDrop {
        const char* what;
        TWEntry* target;
        qsizetype index;
        Operation expected;
    };
    const FileDrop fileDrops[] = {
        {"into the root", nullptr, 0, Operation::Generic},
        {"into a group", g1.get(), 2, Operation::Generic},
        {"onto a group", g1.get(), TWDragAndDrop::kDropOnItem, Operation::Generic},
        {"onto a file", e.get(), TWDragAndDrop::kDropOnItem, Operation::None},
        {"into a folder", f.get(), 0, Operation::None},
        {"into a smart group", s.get(), 0, Operation::None},
    };
    for (const FileDrop& drop : fileDrops)
        EXPECT_EQ(TWDragAndDrop::validateDrop(drop.target, drop.index, paths, &root()), drop.expected)
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
    EXPECT_FALSE(TWDragAndDrop::acceptDrop(g1.get(), 0, QList<TWEntryPtr>{g1}, &root()));

    const QStringList paths{writeAudio(path("n1.wav")), writeAudio(path("n2.wav"))};
    EXPECT_TRUE(TWDragAndDrop::acceptDrop(g2.get(), 1, paths, &root()));
    EXPECT_EQ(ModelTest::describeTree(*g2),
              (QStringList{"TWFileEntry " + path("a.wav"), "TWFileEntry " + paths.at(0),
                           "TWFileEntry " + paths.at(1), "TWFileEntry " + path("d.wav")}));
}
