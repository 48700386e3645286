#pragma once

#include "lx/LXResult.h"

#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantMap>

#include <atomic>
#include <memory>
#include <mutex>

class TWEntry;
class TWFileEntry;
class TWFormatter;
class TWFormatters;
class TWEntryObserver;
using TWEntryPtr = std::shared_ptr<TWEntry>;
using TWFileEntryPtr = std::shared_ptr<TWFileEntry>;

// One key of the file table's sort order: "name", "path", "status" or any key of an entry's
// information dictionary ("length", "rate", ...).
struct TWSortDescriptor {
    QString key;
    bool ascending = true;
    bool operator==(const TWSortDescriptor&) const = default;
};

// How the file table draws an entry's name.
enum class TWEntryColor { Black, Grey };

// A node of the file list. Children are owned by their parent's list (shared pointers, because the work
// thread holds entries while it processes them); the parent link does not own. An entry is a child of
// one container at a time, and knows its row there, so finding it costs no search.
//
// Every change to a container's children goes through this class, which tells the tree's observer
// (TWEntryObserver, set on the root) before and after it.
//
// Threads: the children list, the rows and the expansion flag are changed and read on the main thread
// only. The path, the information dictionary and the parent link may be written on the work thread while
// the main thread reads them, so they are guarded (a mutex, an atomic); accessors return copies.
class TWEntry : public std::enable_shared_from_this<TWEntry> {
public:
    TWEntry();
    virtual ~TWEntry();
    TWEntry(const TWEntry&) = delete;
    TWEntry& operator=(const TWEntry&) = delete;

    // The class name under "Class" in the stored state.
    virtual QString className() const { return QStringLiteral("TWEntry"); }

    // Tree ------------------------------------------------------------------------------------------
    const QList<TWEntryPtr>& entries() const { return m_entries; }
    qsizetype entryCount() const { return m_entries.size(); }
    qsizetype countOfEntries() const { return m_entries.size(); }
    TWEntryPtr entryAtIndex(qsizetype index) const; // nullptr when out of range
    TWEntryPtr objectInEntriesAtIndex(qsizetype index) const { return entryAtIndex(index); }
    qsizetype indexOfEntry(const TWEntry* entry) const; // -1 when not a child; O(1)
    qsizetype row() const;                              // the index in the parent, or -1

    // These six do nothing on an immutable container. An entry that is a child elsewhere must be
    // removed from there first (or moved with moveEntries).
    void addEntry(const TWEntryPtr& entry);
    void insertEntry(const TWEntryPtr& entry, qsizetype index);
    void insertEntries(const QList<TWEntryPtr>& entries, qsizetype index);
    void removeEntry(const TWEntry* entry); // the removed child keeps its parent link
    void removeEntries(const QList<TWEntryPtr>& entries);
    void removeAllEntries();
    // Deletes the child's files, then removes it, even from an immutable container; a child whose files
    // could not all be deleted stays, and the error says why.
    LXStatus deleteEntry(const TWEntryPtr& entry);
    // Moves the entries, wherever they are, so that they stand together in their order at index of this
    // container's children as they are without them (-1: the end); told as one move per entry that
    // changes place. Nothing moves into or out of an immutable container.
    void moveEntries(const QList<TWEntryPtr>& entries, qsizetype index);

    // Sorts every subtree, then the children themselves. Stable: equal keys keep their order. A
    // container whose order changes is told as a reset.
    void sortEntriesWithDescriptors(const QList<TWSortDescriptor>& descriptors);

    bool containsEntry(const TWEntry* entry) const; // anywhere below this entry
    TWEntryPtr entryWithPath(const QString& path, bool deep) const;
    QList<TWEntryPtr> entriesWithPath(const QString& path) const;
    void addEntriesWithPaths(const QStringList& paths, QList<TWEntryPtr>& array) const;
    template <typename T> QList<std::shared_ptr<T>> entriesOfClass() const {
        QList<std::shared_ptr<T>> found;
        collectEntriesOfClass<T>(found);
        return found;
    }
    void refreshEntriesWithPath(const QString& path) const;
    void refreshParentsOfPath(const QString& path) const;
    // File entries of the subtree, depth first, each once.
    // A file entry adds itself, a container its file entries; neither adds one the array holds.
    void addFileEntriesToArray(QList<TWEntryPtr>& array);
    void addFileEntriesToArray(QList<TWFileEntryPtr>& array);
    // The same for many calls into one array: held is the set of entries the array holds, kept with it.
    void addFileEntriesToArray(QList<TWFileEntryPtr>& array, QSet<const TWEntry*>& held);
    void addFileEntryPathsToArray(QStringList& array) const;
    // File entries whose status is exactly 1 (ready, waveform not yet analysed).
    void collectEntriesToAnalyze(QList<TWFileEntryPtr>& array);

    // The observer of the tree this entry is the root of (nullptr: none). Not owned.
    void setObserver(TWEntryObserver* observer) { m_observer = observer; }
    // The observer of the tree this entry is in: its root's, when every link up to the root holds.
    TWEntryObserver* observer() const;

    // Accessors --------------------------------------------------------------------------------------
    TWEntry* parent() const { return m_parent.load(std::memory_order_acquire); }
    void setParent(TWEntry* parent) { m_parent.store(parent, std::memory_order_release); }
    QString path() const;
    virtual void setPath(const QString& path);
    bool isLeaf() const { return m_isLeaf; }
    bool isExpanded() const { return m_isExpanded; }
    void setExpanded(bool expanded) { m_isExpanded = expanded; }
    bool containerIsImmutable() const { return m_containerIsImmutable; }
    QVariantMap info() const;
    QVariant infoValue(const QString& key) const;
    void setInfoValue(const QString& key, const QVariant& value);
    // Entries being analysed, processed or waiting on a connection stay in the list.
    bool isRemovable() const;

    virtual QString name() const { return {}; }
    virtual void setName(const QString& name);
    virtual QString image() const { return {}; } // the name of the image drawn beside the name
    virtual TWEntryColor color() const { return TWEntryColor::Black; }
    virtual float status() const { return 0.0f; }
    QString description() const { return name(); }

    // Work on the files. A container forwards these to every child.
    virtual void refresh() {}
    // Success only when every file is gone; otherwise the first failure (a container tries every child).
    virtual LXStatus deleteFiles();
    virtual void openInFinder();
    virtual void showInFinder();
    virtual void moveToPath(const QString& directory);
    virtual void copyToPath(const QString& directory, TWEntry* group);
    virtual void openWithApplication(const QString& application);
    virtual void repair();
    // Sends moveToTrash to every child, then leaves the parent.
    virtual void moveToTrash();

    // Persistent state: a property-list dictionary whose "Class" names the class.
    virtual QVariantMap state() const;
    virtual void setState(const QVariantMap& state);

    // Information accessors ------------------------------------------------------------------------
    qint64 fileSize() const { return integerInfo("fileSize"); }
    qint64 format() const { return integerInfo("format"); }
    qint64 range() const { return integerInfo("range"); } // bits
    qint64 rate() const { return integerInfo("rate"); }
    qint64 channels() const { return integerInfo("channels"); }
    qint64 samples() const { return integerInfo("samples"); }
    qint64 detune() const { return integerInfo("detune"); }
    qint64 gain() const { return integerInfo("gain"); }
    qint64 highVelocity() const { return integerInfo("highVelocity"); }
    qint64 lowVelocity() const { return integerInfo("lowVelocity"); }
    float length() const { return floatInfo("length"); }
    float difference() const { return floatInfo("difference"); }
    float clipped() const { return floatInfo("clipped"); }
    float tempo() const { return floatInfo("tempo"); }
    float max() const; // -1.0 when not analysed
    float rms() const; // NaN when not analysed
    void setMax(float max);
    void setRMS(float rms);
    // Text through the workspace's shared formatters.
    QString formatString() const;
    QString creator() const;
    bool setCreator(const QString& creator); // stores only text that parses
    QString baseNote() const;
    QString highNote() const;
    QString lowNote() const;
    QString timeSignature() const;
    QString key() const;
    QString scale() const;
    QString barsBeats() const;
    QString playbackType() const;
    // Descriptive metadata, as stored.
    QVariant metaDescription() const { return infoValue(QStringLiteral("description")); }
    static const QStringList& objectInfoKeys(); // "album", "annotation", ... the keys read as stored

protected:
    qint64 integerInfo(const char* key) const;
    float floatInfo(const char* key) const;
    using FormatterAccessor = const TWFormatter& (TWFormatters::*)() const;
    QString formattedInfo(const char* key, FormatterAccessor formatter) const;
    void replaceInfo(const QVariantMap& info);

    // The children replaced wholesale, even in an immutable container (folders and smart groups fill
    // themselves); not told when nothing changes. When the children that stay keep their order and the
    // rows that go and come form a few runs (a folder read again), told as those removals and insertions,
    // so a view keeps the rest as it stands; otherwise as one reset.
    void replaceEntries(const QList<TWEntryPtr>& entries);
    // Sorts a list of entries (not their children). Stable.
    static void sortEntries(QList<TWEntryPtr>& entries, const QList<TWSortDescriptor>& descriptors);

    template <typename T> void collectEntriesOfClass(QList<std::shared_ptr<T>>& found) const {
        for (const TWEntryPtr& child : m_entries) {
            if (auto typed = std::dynamic_pointer_cast<T>(child)) found.append(typed);
            child->collectEntriesOfClass<T>(found);
        }
    }

    bool m_isLeaf = false;
    bool m_isExpanded = false;
    bool m_containerIsImmutable = false;

private:
    friend class TWGroupEntry; // adopts the children of the entry it replaces

    // The changes every public operation is made of; they ignore the immutable flag.
    void insertAt(qsizetype index, const QList<TWEntryPtr>& entries);
    void removeAt(qsizetype first, qsizetype count);
    void moveOne(const TWEntryPtr& entry, qsizetype destinationRow);
    QList<TWEntryPtr> takeAllEntries();
    bool replaceByRows(const QList<TWEntryPtr>& entries); // false: nothing done, tell a reset
    void renumberFrom(qsizetype first);
    void collectEntriesWithPath(const QString& path, QList<TWEntryPtr>& found) const;

    QList<TWEntryPtr> m_entries;
    qsizetype m_row = -1; // the index in the parent's children, kept by the parent
    TWEntryObserver* m_observer = nullptr;
    std::atomic<TWEntry*> m_parent{nullptr};
    mutable std::mutex m_mutex; // guards m_path and m_info
    QString m_path;
    QVariantMap m_info;
};
