#pragma once

#include "model/TWEntry.h"

#include <optional>

// Where the add commands put new entries, decided by the selected rows (given in row order).
namespace TWAddPosition {

// No selection: yes. One row: no for an immutable container, else yes exactly when the row's parent
// accepts children. Two or more rows: no.
bool canAddEntries(const QList<TWEntryPtr>& selected);
// The root, or with one row selected, that row when it is a container, else the row's parent.
TWEntry* parentForEntryAdd(const QList<TWEntryPtr>& selected, TWEntry* root);
// The end of the root with no selection; with one row, 0 for a container (the top) and the row's index
// plus one for a file; with two or more rows none, and the add commands then add nothing.
std::optional<qsizetype> indexForEntryAdd(const QList<TWEntryPtr>& selected, TWEntry* root);

} // namespace TWAddPosition
