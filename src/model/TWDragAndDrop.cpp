#include "model/TWDragAndDrop.h"

#include "model/TWWorkspace.h"

namespace TWDragAndDrop {

bool canWriteRows(const QList<TWEntryPtr>& entries) {
    if (entries.isEmpty()) return false;
    const TWEntry* parent = entries.first()->parent();
    if (!parent || parent->containerIsImmutable()) return false;
    for (const TWEntryPtr& entry : entries)
        if (entry->parent() != parent) return false;
    return true;
}

Operation validateDrop(TWEntry* target, qsizetype childIndex, const QStringList& filePaths, TWEntry* root) {
    Q_UNUSED(childIndex); // a file takes no drop at any index: it has no children
    TWEntry* into = target ? target : root;
    if (filePaths.isEmpty() || into->isLeaf()) return Operation::None;
    return into->containerIsImmutable() ? Operation::None : Operation::Generic;
}

Operation validateDrop(TWEntry* target, qsizetype childIndex, const QList<TWEntryPtr>& draggedEntries,
                       TWEntry* root) {
    TWEntry* into = target ? target : root;
    Q_UNUSED(childIndex);
    if (draggedEntries.isEmpty() || into->isLeaf()) return Operation::None;
    for (const TWEntryPtr& dragged : draggedEntries)
        if (dragged.get() == into || dragged->containsEntry(into)) return Operation::None;
    // Inside an immutable container only its own rows move (and then nothing changes).
    if (into->containerIsImmutable() && into != draggedEntries.first()->parent()) return Operation::None;
    return Operation::Generic;
}

bool acceptDrop(TWEntry* target, qsizetype childIndex, const QStringList& filePaths, TWEntry* root) {
    if (validateDrop(target, childIndex, filePaths, root) == Operation::None) return false;
    TWEntry* into = target ? target : root;
    TWWorkspace::workspace().addFiles(filePaths, into == root ? nullptr : into, childIndex);
    return true;
}

bool acceptDrop(TWEntry* target, qsizetype childIndex, const QList<TWEntryPtr>& draggedEntries,
                TWEntry* root) {
    if (validateDrop(target, childIndex, draggedEntries, root) == Operation::None ||
        !canWriteRows(draggedEntries))
        return false;
    TWEntry* into = target ? target : root;
    qsizetype index = childIndex;
    if (index != kDropOnItem) {
        for (const TWEntryPtr& dragged : draggedEntries) {
            const qsizetype at = into->indexOfEntry(dragged.get());
            if (at >= 0 && at < childIndex) --index;
        }
    }
    into->moveEntries(draggedEntries, index == kDropOnItem ? -1 : index);
    TWWorkspace& workspace = TWWorkspace::workspace();
    workspace.reloadAll();
    workspace.setSelectedEntries(draggedEntries);
    return true;
}

} // namespace TWDragAndDrop
