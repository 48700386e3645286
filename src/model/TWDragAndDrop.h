#pragma once

#include "model/TWEntry.h"

// Drag and drop of rows inside the file table and of files from outside, as plain rules over the tree,
// so that the table's delegate only translates its view's arguments.
namespace TWDragAndDrop {

// The private type of an internal drag; its data is empty, the dragged entries stay in the model.
inline constexpr const char* kEntryPasteboardType = "TWEntryPboardType";
// The child index of a drop onto an item itself rather than between its children.
inline constexpr qsizetype kDropOnItem = -1;

enum class Operation { None, Generic };

// Rows may be dragged when they share one parent that accepts changes.
bool canWriteRows(const QList<TWEntryPtr>& entries);

// target nullptr means the root. A drop onto a file itself is refused.
Operation validateDrop(TWEntry* target, qsizetype childIndex, const QStringList& filePaths, TWEntry* root);
Operation validateDrop(TWEntry* target, qsizetype childIndex, const QList<TWEntryPtr>& draggedEntries,
                       TWEntry* root);

// Adds the files at the index (the end for kDropOnItem) through the workspace.
bool acceptDrop(TWEntry* target, qsizetype childIndex, const QStringList& filePaths, TWEntry* root);
// Moves the entries to the index of the target, keeping their order; they become the selection.
bool acceptDrop(TWEntry* target, qsizetype childIndex, const QList<TWEntryPtr>& draggedEntries,
                TWEntry* root);

} // namespace TWDragAndDrop
