#include "model/TWEntry.h"

#include "model/TWEntryObserver.h"
#include "model/TWFileEntry.h"
#include "model/TWFormatters.h"
#include "model/TWWorkspace.h"

#include <QSet>

#include <algorithm>
#include <cmath>
#include <limits>
#include <type_traits>

TWEntry::TWEntry() = default;

TWEntry::~TWEntry() {
    // Children still held elsewhere (the selection, a run on the work thread) must not point back here.
    for (const TWEntryPtr& child : std::as_const(m_entries))
        if (child->parent() == this) child->setParent(nullptr);
}

// Tree -------------------------------------------------------------------------------------------------

TWEntryPtr TWEntry::entryAtIndex(qsizetype index) const {
    return index >= 0 && index < m_entries.size() ? m_entries.at(index) : nullptr;
}

qsizetype TWEntry::indexOfEntry(const TWEntry* entry) const {
    if (!entry || entry->parent() != this) return -1;
    // A removed child keeps its parent link and its old row: the list has the last word.
    const qsizetype row = entry->m_row;
    return row >= 0 && row < m_entries.size() && m_entries.at(row).get() == entry ? row : -1;
}

qsizetype TWEntry::row() const {
    const TWEntry* parent = this->parent();
    return parent ? parent->indexOfEntry(this) : -1;
}

TWEntryObserver* TWEntry::observer() const {
    const TWEntry* entry = this;
    while (const TWEntry* parent = entry->parent()) {
        if (parent->indexOfEntry(entry) < 0) return nullptr; // it left the tree
        entry = parent;
    }
    return entry->m_observer;
}

void TWEntry::renumberFrom(qsizetype first) {
    for (qsizetype i = first; i < m_entries.size(); ++i)
        m_entries.at(i)->m_row = i;
}

void TWEntry::insertAt(qsizetype index, const QList<TWEntryPtr>& entries) {
    if (entries.isEmpty()) return;
    TWEntryObserver* const observer = this->observer();
    const qsizetype last = index + entries.size() - 1;
    if (observer) observer->willInsertEntries(*this, index, last);
    for (const TWEntryPtr& entry : entries)
        entry->setParent(this);
    if (entries.size() == 1) {
        m_entries.insert(index, entries.first());
    } else {
        QList<TWEntryPtr> merged;
        merged.reserve(m_entries.size() + entries.size());
        merged.append(m_entries.first(index));
        merged.append(entries);
        merged.append(m_entries.sliced(index));
        m_entries = std::move(merged);
    }
    renumberFrom(index);
    if (observer) observer->didInsertEntries(*this, index, last);
}

void TWEntry::removeAt(qsizetype first, qsizetype count) {
    if (count <= 0) return;
    TWEntryObserver* const observer = this->observer();
    if (observer) observer->willRemoveEntries(*this, first, first + count - 1);
    const QList<TWEntryPtr> removed = m_entries.mid(first, count); // alive until the observer is told
    m_entries.remove(first, count);
    renumberFrom(first);
    if (observer) observer->didRemoveEntries(*this, first, first + count - 1);
}

QList<TWEntryPtr> TWEntry::takeAllEntries() {
    const QList<TWEntryPtr> taken = m_entries;
    removeAt(0, m_entries.size());
    return taken;
}

void TWEntry::replaceEntries(const QList<TWEntryPtr>& entries) {
    if (entries == m_entries) return;
    TWEntryObserver* const observer = this->observer();
    if (observer && replaceByRows(entries)) return;
    if (observer) observer->willResetEntries(*this);
    const QList<TWEntryPtr> previous = std::exchange(m_entries, entries); // alive until told
    for (const TWEntryPtr& entry : std::as_const(m_entries))
        entry->setParent(this);
    renumberFrom(0);
    if (observer) observer->didResetEntries(*this);
}

bool TWEntry::replaceByRows(const QList<TWEntryPtr>& entries) {
    // Each run renumbers the rows after it: beyond this many, one reset costs less.
    constexpr qsizetype kMostRuns = 64;
    QSet<const TWEntry*> incoming;
    incoming.reserve(entries.size());
    for (const TWEntryPtr& entry : entries)
        incoming.insert(entry.get());
    if (incoming.size() != entries.size()) return false;
    using Run = std::pair<qsizetype, qsizetype>; // first row, count
    QList<Run> removals, insertions;
    const auto extend = [](QList<Run>& runs, qsizetype row) {
        if (!runs.isEmpty() && runs.last().first + runs.last().second == row)
            ++runs.last().second;
        else
            runs.append({row, 1});
        return runs.size() <= kMostRuns;
    };
    for (qsizetype row = 0; row < m_entries.size(); ++row)
        if (!incoming.contains(m_entries.at(row).get()) && !extend(removals, row)) return false;
    // The children that stay must come in the order they stand in now.
    qsizetype next = 0;
    for (qsizetype row = 0; row < entries.size(); ++row) {
        const TWEntry* entry = entries.at(row).get();
        if (indexOfEntry(entry) < 0) {
            if (!extend(insertions, row)) return false;
            continue;
        }
        while (next < m_entries.size() && !incoming.contains(m_entries.at(next).get()))
            ++next;
        if (next == m_entries.size() || m_entries.at(next).get() != entry) return false;
        ++next;
    }
    for (auto run = removals.crbegin(); run != removals.crend(); ++run)
        removeAt(run->first, run->second);
    for (const auto& [first, count] : std::as_const(insertions))
        insertAt(first, entries.mid(first, count));
    return true;
}

void TWEntry::addEntry(const TWEntryPtr& entry) {
    if (m_containerIsImmutable || !entry) return;
    insertAt(m_entries.size(), {entry});
}

void TWEntry::insertEntry(const TWEntryPtr& entry, qsizetype index) {
    if (m_containerIsImmutable || !entry) return;
    insertAt(index < 0 || index > m_entries.size() ? m_entries.size() : index, {entry});
}

void TWEntry::insertEntries(const QList<TWEntryPtr>& entries, qsizetype index) {
    if (m_containerIsImmutable) return;
    if (index < 0 || index > m_entries.size()) index = m_entries.size();
    QList<TWEntryPtr> inserted = entries;
    inserted.removeAll(nullptr);
    insertAt(index, inserted);
}

void TWEntry::removeEntry(const TWEntry* entry) {
    if (m_containerIsImmutable) return;
    const qsizetype index = indexOfEntry(entry);
    if (index >= 0) removeAt(index, 1);
}

void TWEntry::removeEntries(const QList<TWEntryPtr>& entries) {
    for (const TWEntryPtr& entry : entries)
        removeEntry(entry.get());
}

void TWEntry::removeAllEntries() {
    if (!m_containerIsImmutable) removeAt(0, m_entries.size());
}

LXStatus TWEntry::deleteEntry(const TWEntryPtr& entry) {
    if (!entry) return {};
    const TWEntryPtr keep = entry;
    LX_TRY(keep->deleteFiles());
    const qsizetype index = indexOfEntry(keep.get());
    if (index >= 0) removeAt(index, 1);
    return {};
}

void TWEntry::moveEntries(const QList<TWEntryPtr>& entries, qsizetype index) {
    if (m_containerIsImmutable) return;
    QList<TWEntryPtr> moving;
    QSet<const TWEntry*> movingSet;
    for (const TWEntryPtr& entry : entries) {
        if (!entry || entry.get() == this || entry->containsEntry(this) || movingSet.contains(entry.get()))
            continue;
        const TWEntry* from = entry->parent();
        if (from && from->indexOfEntry(entry.get()) >= 0 && from->containerIsImmutable()) continue;
        moving.append(entry);
        movingSet.insert(entry.get());
    }
    // The entries end up just before the child that stands at index once they are out: each is moved
    // after the one before it, so the children that stay keep their order and every step is one move.
    const TWEntry* before = nullptr;
    if (index >= 0) {
        for (const TWEntryPtr& child : std::as_const(m_entries)) {
            if (movingSet.contains(child.get())) continue;
            if (index-- == 0) {
                before = child.get();
                break;
            }
        }
    }
    const TWEntry* previous = nullptr;
    for (const TWEntryPtr& entry : std::as_const(moving)) {
        const qsizetype destinationRow = previous ? indexOfEntry(previous) + 1
                                         : before ? indexOfEntry(before)
                                                  : m_entries.size();
        moveOne(entry, destinationRow);
        previous = entry.get();
    }
}

void TWEntry::moveOne(const TWEntryPtr& entry, qsizetype destinationRow) {
    TWEntry* const source = entry->parent();
    const qsizetype from = source ? source->indexOfEntry(entry.get()) : -1;
    if (from < 0) {
        insertAt(destinationRow, {entry});
        return;
    }
    if (source == this && (destinationRow == from || destinationRow == from + 1)) return; // in place
    TWEntryObserver* const observer = this->observer();
    if (observer != source->observer()) { // from another tree, or from none
        source->removeAt(from, 1);
        insertAt(destinationRow, {entry});
        return;
    }
    if (observer) observer->willMoveEntries(*source, from, from, *this, destinationRow);
    const TWEntryPtr held = entry;
    source->m_entries.removeAt(from);
    const qsizetype to = source == this && destinationRow > from ? destinationRow - 1 : destinationRow;
    entry->setParent(this);
    m_entries.insert(to, entry);
    if (source == this) {
        for (qsizetype i = std::min(from, to); i <= std::max(from, to); ++i)
            m_entries.at(i)->m_row = i;
    } else {
        source->renumberFrom(from);
        renumberFrom(to);
    }
    if (observer) observer->didMoveEntries(*source, from, from, *this, destinationRow);
}

namespace {

QVariant sortValue(const TWEntry& entry, const QString& key) {
    if (key == QLatin1String("name")) return entry.name();
    if (key == QLatin1String("path")) return entry.path();
    if (key == QLatin1String("status")) return double(entry.status());
    return entry.infoValue(key);
}

bool isNumber(const QVariant& value) {
    switch (value.typeId()) {
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Float:
    case QMetaType::Double:
        return true;
    default:
        return false;
    }
}

// Text the way a file manager orders names: case-insensitive, and runs of digits by their number, so
// "kick 2" comes before "kick 10". Names equal but for case fall back to a plain comparison so the order
// is total.
int compareNames(const QString& a, const QString& b) {
    qsizetype i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        const bool digitA = a.at(i).isDigit(), digitB = b.at(j).isDigit();
        if (digitA && digitB) {
            while (i < a.size() && a.at(i) == u'0' && i + 1 < a.size() && a.at(i + 1).isDigit())
                ++i;
            while (j < b.size() && b.at(j) == u'0' && j + 1 < b.size() && b.at(j + 1).isDigit())
                ++j;
            qsizetype endA = i, endB = j;
            while (endA < a.size() && a.at(endA).isDigit())
                ++endA;
            while (endB < b.size() && b.at(endB).isDigit())
                ++endB;
            if (endA - i != endB - j) return endA - i < endB - j ? -1 : 1;
            const int order = QStringView(a).mid(i, endA - i).compare(QStringView(b).mid(j, endB - j));
            if (order != 0) return order;
            i = endA;
            j = endB;
            continue;
        }
        if (digitA || digitB) // digits before letters
            return digitA ? -1 : 1;
        qsizetype endA = i, endB = j;
        while (endA < a.size() && !a.at(endA).isDigit())
            ++endA;
        while (endB < b.size() && !b.at(endB).isDigit())
            ++endB;
        const int order =
            QStringView(a).mid(i, endA - i).compare(QStringView(b).mid(j, endB - j), Qt::CaseInsensitive);
        if (order != 0) return order;
        i = endA;
        j = endB;
    }
    if (i < a.size() || j < b.size()) return i < a.size() ? 1 : -1;
    return a.compare(b);
}

// Missing values first, numbers by value, text by compareNames.
int compareValues(const QVariant& a, const QVariant& b) {
    if (!a.isValid() || !b.isValid()) return int(a.isValid()) - int(b.isValid());
    if (isNumber(a) && isNumber(b)) {
        const double x = a.toDouble(), y = b.toDouble();
        return x < y ? -1 : (y < x ? 1 : 0);
    }
    return compareNames(a.toString(), b.toString());
}

} // namespace

void TWEntry::sortEntries(QList<TWEntryPtr>& entries, const QList<TWSortDescriptor>& descriptors) {
    if (descriptors.isEmpty() || entries.size() < 2) return;
    // Each entry's values read once: reading one takes the entry's lock, and a sort of 100,000 rows
    // compares each entry some thirty times.
    struct Keyed {
        QVariantList values;
        TWEntryPtr entry;
    };
    QList<Keyed> keyed;
    keyed.reserve(entries.size());
    for (const TWEntryPtr& entry : std::as_const(entries)) {
        QVariantList values;
        values.reserve(descriptors.size());
        for (const TWSortDescriptor& d : descriptors)
            values.append(sortValue(*entry, d.key));
        keyed.append({std::move(values), entry});
    }
    std::stable_sort(keyed.begin(), keyed.end(), [&](const Keyed& a, const Keyed& b) {
        for (qsizetype i = 0; i < descriptors.size(); ++i) {
            const int order = compareValues(a.values.at(i), b.values.at(i));
            if (order != 0) return descriptors.at(i).ascending ? order < 0 : order > 0;
        }
        return false;
    });
    for (qsizetype i = 0; i < keyed.size(); ++i)
        entries[i] = std::move(keyed[i].entry);
}

void TWEntry::sortEntriesWithDescriptors(const QList<TWSortDescriptor>& descriptors) {
    for (const TWEntryPtr& child : std::as_const(m_entries))
        child->sortEntriesWithDescriptors(descriptors);
    QList<TWEntryPtr> sorted = m_entries;
    sortEntries(sorted, descriptors);
    replaceEntries(sorted);
}

bool TWEntry::containsEntry(const TWEntry* entry) const {
    // Up from the entry rather than down from here: as deep as the tree, not as large as the subtree.
    for (const TWEntry* child = entry; child;) {
        const TWEntry* parent = child->parent();
        if (!parent || parent->indexOfEntry(child) < 0) return false;
        if (parent == this) return true;
        child = parent;
    }
    return false;
}

TWEntryPtr TWEntry::entryWithPath(const QString& path, bool deep) const {
    for (const TWEntryPtr& child : m_entries) {
        if (child->path() == path) return child;
        if (deep)
            if (TWEntryPtr found = child->entryWithPath(path, true)) return found;
    }
    return nullptr;
}

void TWEntry::collectEntriesWithPath(const QString& path, QList<TWEntryPtr>& found) const {
    for (const TWEntryPtr& child : m_entries) {
        if (child->path() == path) found.append(child);
        if (!child->isLeaf()) child->collectEntriesWithPath(path, found);
    }
}

QList<TWEntryPtr> TWEntry::entriesWithPath(const QString& path) const {
    QList<TWEntryPtr> found;
    collectEntriesWithPath(path, found);
    return found;
}

void TWEntry::addEntriesWithPaths(const QStringList& paths, QList<TWEntryPtr>& array) const {
    for (const QString& path : paths)
        collectEntriesWithPath(path, array);
}

void TWEntry::refreshEntriesWithPath(const QString& path) const {
    for (const TWEntryPtr& entry : entriesWithPath(path))
        entry->refresh();
}

void TWEntry::refreshParentsOfPath(const QString& path) const {
    // Hold the parents first: refreshing one folder may drop another from the tree.
    QList<TWEntryPtr> parents;
    for (const TWEntryPtr& entry : entriesWithPath(path))
        if (TWEntry* parent = entry->parent())
            if (TWEntryPtr held = parent->weak_from_this().lock()) parents.append(held);
    for (const TWEntryPtr& parent : std::as_const(parents))
        parent->refresh();
}

namespace {

// Depth-first walk over the file entries below (and including) an entry.
template <typename Entry, typename Visit> void forEachFileEntry(Entry& entry, const Visit& visit) {
    using File = std::conditional_t<std::is_const_v<Entry>, const TWFileEntry, TWFileEntry>;
    if (auto* file = dynamic_cast<File*>(&entry)) {
        visit(*file);
        return;
    }
    for (const TWEntryPtr& child : entry.entries())
        forEachFileEntry(*child, visit);
}

} // namespace

void TWEntry::addFileEntriesToArray(QList<TWFileEntryPtr>& array) {
    QSet<const TWEntry*> held;
    for (const TWFileEntryPtr& entry : std::as_const(array))
        held.insert(entry.get());
    addFileEntriesToArray(array, held);
}

void TWEntry::addFileEntriesToArray(QList<TWFileEntryPtr>& array, QSet<const TWEntry*>& held) {
    forEachFileEntry(*this, [&](TWFileEntry& file) {
        if (!held.contains(&file)) {
            held.insert(&file);
            array.append(std::static_pointer_cast<TWFileEntry>(file.shared_from_this()));
        }
    });
}

void TWEntry::addFileEntriesToArray(QList<TWEntryPtr>& array) {
    QSet<const TWEntry*> held;
    for (const TWEntryPtr& entry : std::as_const(array))
        held.insert(entry.get());
    forEachFileEntry(*this, [&](TWFileEntry& file) {
        if (!held.contains(&file)) {
            held.insert(&file);
            array.append(file.shared_from_this());
        }
    });
}

void TWEntry::addFileEntryPathsToArray(QStringList& array) const {
    QSet<QString> held(array.cbegin(), array.cend());
    forEachFileEntry(*this, [&](const TWFileEntry& file) {
        const QString path = file.path();
        if (!held.contains(path)) {
            held.insert(path);
            array.append(path);
        }
    });
}

void TWEntry::collectEntriesToAnalyze(QList<TWFileEntryPtr>& array) {
    forEachFileEntry(*this, [&](TWFileEntry& file) {
        if (file.status() == TWStatus::Ready)
            array.append(std::static_pointer_cast<TWFileEntry>(file.shared_from_this()));
    });
}

// Accessors ------------------------------------------------------------------------------------------------

QString TWEntry::path() const {
    std::lock_guard lock(m_mutex);
    return m_path;
}

void TWEntry::setPath(const QString& path) {
    std::lock_guard lock(m_mutex);
    m_path = path;
}

QVariantMap TWEntry::info() const {
    std::lock_guard lock(m_mutex);
    return m_info;
}

QVariant TWEntry::infoValue(const QString& key) const {
    std::lock_guard lock(m_mutex);
    return m_info.value(key);
}

void TWEntry::setInfoValue(const QString& key, const QVariant& value) {
    std::lock_guard lock(m_mutex);
    if (value.isValid())
        m_info.insert(key, value);
    else
        m_info.remove(key);
}

void TWEntry::replaceInfo(const QVariantMap& info) {
    std::lock_guard lock(m_mutex);
    m_info = info;
}

bool TWEntry::isRemovable() const {
    const int state = TWStatus::state(status());
    return state != 2 && state != 4 && state != 6;
}

void TWEntry::setName(const QString&) {}

// Work on the files ----------------------------------------------------------------------------------------

void TWEntry::openInFinder() {
    for (const TWEntryPtr& child : QList<TWEntryPtr>(m_entries))
        child->openInFinder();
}

void TWEntry::showInFinder() {
    for (const TWEntryPtr& child : QList<TWEntryPtr>(m_entries))
        child->showInFinder();
}

LXStatus TWEntry::deleteFiles() {
    LXStatus first;
    for (const TWEntryPtr& child : QList<TWEntryPtr>(m_entries))
        if (LXStatus deleted = child->deleteFiles(); !deleted && first) first = deleted;
    return first;
}

void TWEntry::moveToPath(const QString& directory) {
    for (const TWEntryPtr& child : QList<TWEntryPtr>(m_entries))
        child->moveToPath(directory);
}

void TWEntry::copyToPath(const QString& directory, TWEntry* group) {
    for (const TWEntryPtr& child : QList<TWEntryPtr>(m_entries))
        child->copyToPath(directory, group);
}

void TWEntry::openWithApplication(const QString& application) {
    for (const TWEntryPtr& child : QList<TWEntryPtr>(m_entries))
        child->openWithApplication(application);
}

void TWEntry::repair() {
    for (const TWEntryPtr& child : QList<TWEntryPtr>(m_entries))
        child->repair();
}

void TWEntry::moveToTrash() {
    const TWEntryPtr self = weak_from_this().lock(); // leaving the parent may release this entry
    for (const TWEntryPtr& child : QList<TWEntryPtr>(m_entries))
        child->moveToTrash();
    if (TWEntry* parent = this->parent()) parent->removeEntry(this);
}

// Persistent state -----------------------------------------------------------------------------------------

QVariantMap TWEntry::state() const {
    return {{QStringLiteral("Class"), className()}};
}

void TWEntry::setState(const QVariantMap&) {}

// Information accessors ----------------------------------------------------------------------------------

qint64 TWEntry::integerInfo(const char* key) const {
    return infoValue(QString::fromLatin1(key)).toLongLong();
}

float TWEntry::floatInfo(const char* key) const {
    return infoValue(QString::fromLatin1(key)).toFloat();
}

float TWEntry::max() const {
    const QVariant value = infoValue(QStringLiteral("max"));
    return value.isValid() ? value.toFloat() : -1.0f;
}

float TWEntry::rms() const {
    const QVariant value = infoValue(QStringLiteral("rms"));
    return value.isValid() ? value.toFloat() : std::numeric_limits<float>::quiet_NaN();
}

void TWEntry::setMax(float max) {
    setInfoValue(QStringLiteral("max"), double(max));
}

void TWEntry::setRMS(float rms) {
    setInfoValue(QStringLiteral("rms"), double(rms));
}

QString TWEntry::formattedInfo(const char* key, FormatterAccessor formatter) const {
    const QVariant value = infoValue(QString::fromLatin1(key));
    return (TWWorkspace::workspace().formatters().*formatter)().stringForObjectValue(value);
}

QString TWEntry::formatString() const {
    return formattedInfo("format", &TWFormatters::formatFormatter);
}

QString TWEntry::creator() const {
    return formattedInfo("creator", &TWFormatters::creatorFormatter);
}

bool TWEntry::setCreator(const QString& creator) {
    QVariant value;
    if (!TWWorkspace::workspace().formatters().creatorFormatter().getObjectValue(&value, creator))
        return false;
    setInfoValue(QStringLiteral("creator"), value);
    return true;
}

QString TWEntry::baseNote() const {
    return formattedInfo("baseNote", &TWFormatters::midiNoteFormatter);
}

QString TWEntry::highNote() const {
    return formattedInfo("highNote", &TWFormatters::midiNoteFormatter);
}

QString TWEntry::lowNote() const {
    return formattedInfo("lowNote", &TWFormatters::midiNoteFormatter);
}

QString TWEntry::timeSignature() const {
    return formattedInfo("timeSignature", &TWFormatters::timeSignatureFormatter);
}

QString TWEntry::key() const {
    return formattedInfo("key", &TWFormatters::keyFormatter);
}

QString TWEntry::scale() const {
    return formattedInfo("scale", &TWFormatters::scaleFormatter);
}

QString TWEntry::barsBeats() const {
    return formattedInfo("barsBeats", &TWFormatters::barsBeatsFormatter);
}

QString TWEntry::playbackType() const {
    return formattedInfo("playbackType", &TWFormatters::playbackTypeFormatter);
}

const QStringList& TWEntry::objectInfoKeys() {
    static const QStringList keys =
        QStringLiteral(
            "album annotation archivalLocation artist author categories channelLayout codingHistory "
            "comments commissionedBy composer copyright creationDate cropped description "
            "digitizationSource digitizer encodingApplication engineers genre keywords lyricist metaName "
            "nominalBitRate originalArtist originalDimensions originalMedium originationDate "
            "originationTime originator originatorReference product recordedDate SMPTEUMID "
            "softwarePackage sourceEncoder sourceSupplier subject timeReference title trackNumber year")
            .split(u' ');
    return keys;
}
