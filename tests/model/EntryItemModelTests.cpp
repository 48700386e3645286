// The tree as an item model under Qt's own consistency checker, through a long deterministic sequence of
// every kind of change the file list makes. After each step every persistent index must still name its
// entry, at the row the entry knows.

#include "ModelTestSupport.h"

#include "model/TWDragAndDrop.h"
#include "model/TWEntryItemModel.h"
#include "model/TWFileEntry.h"
#include "model/TWFolderEntry.h"
#include "model/TWGroupEntry.h"
#include "model/TWSmartGroupEntry.h"

#include <QAbstractItemModelTester>
#include <QDir>
#include <QFile>

#include <random>

using ModelTest::writeAudio;

namespace {

using EntryItemModelTest = ModelTest::Fixture;

QList<TWEntryPtr> allEntries(const TWEntry& entry) {
    QList<TWEntryPtr> found;
    for (const TWEntryPtr& child : entry.entries())
        found << child << allEntries(*child);
    return found;
}

} // namespace

TEST_F(EntryItemModelTest, EveryChangeToTheTreeSatisfiesQtsModelCheckerAndPersistentIndexesFollow) {
    makeDirectory(QStringLiteral("loose"));
    makeDirectory(QStringLiteral("Folder/Sub"));
    QStringList loose;
    for (int i = 0; i < 8; ++i)
        loose << writeAudio(path(QStringLiteral("loose/take %1.wav").arg(i)));
    const QString folder = makeDirectory(QStringLiteral("Folder")),
                  pool = makeDirectory(QStringLiteral("Pool"));
    for (int i = 0; i < 3; ++i) {
        writeAudio(folder + QStringLiteral("/Sub/snare %1.wav").arg(i));
        writeAudio(pool + QStringLiteral("/loop %1.wav").arg(i));
    }
    TWEntryItemModel model(workspace());
    // A failure of the checker ends the program with its reason (each test runs in a process of its own).
    const QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    TWWorkspace& ws = workspace();
    TWEntry& root = *ws.rootGroup();
    std::mt19937 random(20240611);
    auto pick = [&random](qsizetype count) {
        return qsizetype(random() % quint32(std::max<qsizetype>(count, 1)));
    };
    auto newSmartGroup = [&pool] {
        auto smart = std::make_shared<TWSmartGroupEntry>();
        smart->setPath(pool);
        smart->setPredicate({QVariantMap{{"key", "Name"}, {"comparator", "LIKE[cd]"}, {"value", "loop"}}});
        return smart;
    };
    auto anyContainer = [&](bool mutableOnly) {
        QList<TWEntry*> found = {&root};
        for (const TWEntryPtr& entry : allEntries(root))
            if (!entry->isLeaf() && !(mutableOnly && entry->containerIsImmutable()))
                found.append(entry.get());
        return found.at(pick(found.size()));
    };

    for (int step = 0; step < 160 && !HasFatalFailure(); ++step) {
        for (const QString& file : std::as_const(loose))
            if (!QFile::exists(file)) writeAudio(file);
        const QList<TWEntryPtr> everything = allEntries(root);
        QList<std::pair<QPersistentModelIndex, std::weak_ptr<TWEntry>>> tracked;
        for (const TWEntryPtr& entry : everything)
            tracked.append({model.indexOfEntry(entry.get()), entry});
        const TWEntryPtr any = everything.isEmpty() ? nullptr : everything.at(pick(everything.size()));
        const auto file = std::dynamic_pointer_cast<TWFileEntry>(any);
        const bool looseFile = file && file->path().contains("/loose/") && file->row() >= 0;
        QList<TWEntryPtr> some;
        for (const TWEntryPtr& entry : everything)
            if (random() % 3 == 0) some.append(entry);
        const int kind = everything.size() > 60 ? 2 : int(random() % 11);
        switch (kind) {
        case 0: { // files and the folder, anywhere in a group
            QStringList paths = loose.mid(pick(loose.size()), 1 + pick(3));
            if (random() % 4 == 0) paths.append(folder);
            TWEntry* target = anyContainer(true);
            ws.addFiles(paths, target, pick(target->entryCount() + 2) - 1);
            break;
        }
        case 1: { // a group or a smart group
            const auto smart = newSmartGroup();
            TWEntry* target = anyContainer(true);
            target->insertEntry(random() % 3 ? TWEntryPtr(std::make_shared<TWGroupEntry>()) : smart,
                                pick(target->entryCount() + 1));
            if (smart->parent()) smart->refreshSmartGroup();
            break;
        }
        case 2: // selected rows, one row, a whole group, or a file deleted from the disk
            if (random() % 4 == 0) {
                anyContainer(false)->removeAllEntries();
            } else if (random() % 3 == 0 && any) {
                any->parent()->removeEntry(any.get());
            } else if (random() % 3 == 0 && looseFile) {
                ASSERT_TRUE(file->parent()->deleteEntry(file));
            } else {
                ws.setSelectedEntries(some);
                ws.remove();
            }
            break;
        case 3:
            ws.setSortDescriptors(
                {{random() % 2 ? QStringLiteral("name") : QStringLiteral("path"), random() % 2 == 0}});
            break;
        case 4: // the folder changes on disk
            if (root.entriesOfClass<TWFolderEntry>().isEmpty()) ws.addFiles({folder});
            if (random() % 3 == 0) {
                QDir(folder + "/Sub").removeRecursively();
            } else if (random() % 2) {
                QFile::remove(folder + "/Sub/snare " + QString::number(pick(3)) + ".wav");
            } else {
                QDir().mkpath(folder + "/Sub");
                writeAudio(folder + QStringLiteral("/Sub/new %1.wav").arg(step));
            }
            ws.refreshEntries();
            break;
        case 5: // the smart groups find something else
            if (root.entriesOfClass<TWSmartGroupEntry>().isEmpty()) root.addEntry(newSmartGroup());
            if (random() % 2)
                writeAudio(pool + QStringLiteral("/loop %1.wav").arg(step));
            else
                QFile::remove(pool + "/loop " + QString::number(pick(step + 3)) + ".wav");
            ws.refreshSmartGroupEntries();
            break;
        case 6: // folders and smart groups become plain groups
            ws.setSelectedEntries(some);
            ws.convertToGroup();
            break;
        case 7: // the window closes and opens again
            ASSERT_TRUE(ws.saveEntries());
            ws.loadEntries();
            break;
        case 8: { // rows dragged elsewhere
            TWEntry* source = anyContainer(true);
            QList<TWEntryPtr> dragged;
            for (const TWEntryPtr& child : source->entries())
                if (random() % 3 == 0) dragged.append(child);
            if (!ws.beginDrag(dragged)) break;
            TWEntry* into = anyContainer(false);
            const qsizetype at =
                random() % 5 == 0 ? TWDragAndDrop::kDropOnItem : pick(into->entryCount() + 1);
            TWDragAndDrop::acceptDrop(into == &root ? nullptr : into, at, ws.draggingEntries(), &root);
            ws.endDrag();
            break;
        }
        default: // file commands: trash, copies into a new group
            if (!looseFile) break;
            ws.setSelectedEntries({file});
            QDir(path("Copies")).removeRecursively();
            if (random() % 2 == 0) {
                ws.moveToTrash();
                break;
            }
            makeDirectory("Copies");
            ws.copyTo(path("Copies"), true);
            break;
        }
        ASSERT_TRUE(ModelTest::runUntil([&] {
            for (const auto& smart : root.entriesOfClass<TWSmartGroupEntry>())
                if (smart->isGathering()) return false;
            return true;
        }));
        // Qt moved each index as it was told; the entry's own row must agree. A sort or a move keeps every
        // entry's index; nothing keeps one for an entry that left the tree.
        for (const auto& [index, weak] : std::as_const(tracked)) {
            const TWEntryPtr entry = weak.lock();
            const bool inTree = entry && entry->observer() == root.observer();
            if (index.isValid())
                EXPECT_TRUE(inTree && index == model.indexOfEntry(entry.get())) << "step " << step;
            else
                EXPECT_FALSE(inTree && (kind == 3 || kind == 8)) << "step " << step;
        }
    }
}
