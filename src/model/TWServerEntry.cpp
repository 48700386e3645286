#include "model/TWServerEntry.h"

#include "model/TWWorkspace.h"

TWServerEntry::TWServerEntry() {
    m_isLeaf = false;
    m_containerIsImmutable = true;
}

void TWServerEntry::refresh() {
    sortEntriesWithDescriptors(TWWorkspace::workspace().sortDescriptors());
}
