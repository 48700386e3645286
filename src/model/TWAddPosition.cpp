#include "model/TWAddPosition.h"

namespace TWAddPosition {

bool canAddEntries(const QList<TWEntryPtr>& selected) {
    if (selected.isEmpty()) return true;
    if (selected.size() > 1) return false;
    const TWEntry& row = *selected.first();
    if (!row.isLeaf() && row.containerIsImmutable()) return false;
    const TWEntry* parent = row.parent();
    return parent && !parent->containerIsImmutable();
}

TWEntry* parentForEntryAdd(const QList<TWEntryPtr>& selected, TWEntry* root) {
    if (selected.size() != 1) return root;
    TWEntry* row = selected.first().get();
    if (!row->isLeaf()) return row;
    return row->parent() ? row->parent() : root;
}

std::optional<qsizetype> indexForEntryAdd(const QList<TWEntryPtr>& selected, TWEntry* root) {
    if (selected.isEmpty()) return root->entryCount();
    if (selected.size() > 1) return std::nullopt;
    const TWEntry& row = *selected.first();
    if (!row.isLeaf()) return 0;
    const TWEntry* parent = row.parent();
    const qsizetype index = parent ? parent->indexOfEntry(&row) : -1;
    if (index < 0) return std::nullopt;
    return index + 1;
}

} // namespace TWAddPosition
