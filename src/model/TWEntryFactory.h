#pragma once

#include "model/TWEntry.h"

// Makes entries from the class names stored under "Class", so that a stored tree can be rebuilt.
namespace TWEntryFactory {

// A new, empty entry of the named class, or nullptr for a name no entry class answers to.
TWEntryPtr createEntry(const QString& className);
// An entry rebuilt from its state (its "Class", then setState); nullptr, with a warning, for an
// unknown class. The entry gets `parent` before setState so it can find its place in the tree.
TWEntryPtr entryFromState(const QVariantMap& state, TWEntry* parent);
QStringList classNames();

} // namespace TWEntryFactory
