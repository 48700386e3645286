#pragma once

#include "engine/TWActionError.h"
#include "engine/TWInstructionKey.h"
#include "engine/TWSaveInfo.h"

#include "model/TWEntry.h"

#include <QList>
#include <QStringList>
#include <QVariantMap>

#include <optional>

class LXAudioFile;
class LXAudioFileWriter;
class TWFileEntry;

// Which entries an action processes ("source").
namespace TWSource {
constexpr int AllEntries = 0;
constexpr int Selection = 1;
constexpr int PreviousResults = 2;
constexpr int Paths = 3; // the paths under "paths"
} // namespace TWSource

// Where results go: the destination matrix's tags.
enum class TWDestinationTag { InPlace = 0, BesideSource = 1, ChosenDirectory = 2 };

// One step of a workflow. Everything it needs to run is in its instructions, a property-list dictionary
// ("class", "active", "source", "destination", "paths" and the action's own keys), so an action can be
// rebuilt from a workflow file, an editor or a command line alike.
//
// A concrete action declares its keys (instructionKeys) and overrides the hooks that processEntries()
// calls; it never writes the loop again. Made with its default constructor on the work thread, one
// object per run of the action: fields kept between the hooks need no locking.
class TWAction {
public:
    TWAction();
    virtual ~TWAction();
    TWAction(const TWAction&) = delete;
    TWAction& operator=(const TWAction&) = delete;

    // Identity and flags ---------------------------------------------------------------------------------
    virtual QString className() const = 0;      // "TWActionChangeGain"
    virtual QString name() const { return {}; } // title, also the undo step's name
    virtual QString verb() const { return {}; } // progress title while running: "Normalizing..."
    virtual QList<TWInstructionKey> instructionKeys() const { return {}; }
    QStringList allInstructionKeys() const;
    virtual QStringList requiredInstructionKeys() const { return allInstructionKeys(); }
    virtual bool canPreview() const { return false; }
    virtual bool onlyMakesNewFiles() const { return false; }
    virtual bool forceCounting() const { return false; }
    virtual bool onlyInPlace() const { return false; }

    // Settings (what a panel shows) -------------------------------------------------------------------------
    bool isActive() const { return m_active; }
    void setActive(bool active);
    bool isDisclosed() const { return m_disclosed; }
    void setDisclosed(bool disclosed) { m_disclosed = disclosed; }
    bool optionsDisclosed() const { return m_optionsDisclosed; }
    void setOptionsDisclosed(bool disclosed) { m_optionsDisclosed = disclosed; }
    bool preview() const { return m_preview; }
    void setPreview(bool preview) { m_preview = preview; }
    int source() const { return m_source; }
    void setSource(int source) { m_source = source; }
    TWDestinationTag destinationTag() const { return m_destinationTag; }
    QString directory() const { return m_directory; }
    // Tag ChosenDirectory with a directory (standardised), BesideSource or InPlace without one. An action
    // that only makes new files never goes in place.
    void setDestination(TWDestinationTag tag, const QString& directory = {});

    // The value of one of the action's own keys, invalid when unset.
    virtual QVariant objectForInstructionKey(const QString& key) const { return m_values.value(key); }

    // Instructions and saved state -----------------------------------------------------------------------
    QVariantMap instructions() const;
    // Applies "source" and "destination", then the action's own keys; unknown keys are ignored and a
    // missing key leaves the setting as it was.
    virtual void setInstructions(const QVariantMap& instructions);
    // "class", "active", "disclosed", "optionsDisclosed", "preview", "instructions".
    QVariantMap state() const;
    void setState(const QVariantMap& state);
    // True when the action needs no destination or the instructions hold one, and every required key
    // is present (whatever its value).
    bool requiredInstructionKeysExist(const QVariantMap& instructions) const;

    static bool isInMainThread();

    // The loop: confirms the destination and the instructions, then carries the action over the entries,
    // saving each output as a new file or in place, and appends the resulting entries to results. Returns
    // the action's error, if any; the files saved before it stay saved (and undoable).
    virtual std::optional<TWActionError> processEntries(const QList<TWFileEntryPtr>& entries,
                                                        const QVariantMap& instructions,
                                                        QList<TWFileEntryPtr>& results);

protected:
    // Hooks, called on the work thread in this order. Each answers a result code: LXContinue to go on.
    virtual int32_t preProcessWithEntries(const QList<TWFileEntryPtr>& entries,
                                          const QVariantMap& instructions);
    // How many outputs the file gives (0: none).
    virtual int numberOfNewEntriesForAudioFile(LXAudioFile& file, TWFileEntry& entry,
                                               const QVariantMap& instructions);
    // Writes output number index into the writer (made from the file: its format, channels, metadata).
    // LXUnchanged: the file needs no change and the writer is dropped.
    virtual int32_t processAudioFile(LXAudioFile& file, TWFileEntry& entry, const QVariantMap& instructions,
                                     LXAudioFileWriter& writer, int index);
    virtual int32_t postProcess(); // after the last entry, whatever happened; its code is ignored

    // Notifications to the workspace: direct on the main thread, otherwise handed over without waiting.
    void notifyWillProcessWithAction(qsizetype count);
    void notifyWillProcessEntry(const TWFileEntryPtr& entry);
    void notifyDidProcessEntry(const TWFileEntryPtr& entry);
    void notifyDidProcessWithAction(const QList<TWSaveInfo>& undoList, const QList<TWFileEntryPtr>& results,
                                    const QString& undoSelector);

    // The entry for a new file: from a writer (saved under the first free name in the destination) or,
    // for an unchanged file, from the source (copied there). Inserted after the source entry unless the
    // destination's "addToList" is NO. nullptr, with error set, when the file could not be saved.
    TWFileEntryPtr newEntryFromSource(LXAudioFileWriter& writer, const TWFileEntryPtr& entry,
                                      const QVariantMap& destination, std::optional<LXError>& error);
    TWFileEntryPtr newEntryFromSource(LXAudioFile& file, const TWFileEntryPtr& entry,
                                      const QVariantMap& destination, std::optional<LXError>& error);

    // The action's own key values, as setInstructions stored them.
    const QVariantMap& values() const { return m_values; }

private:
    TWFileEntryPtr adoptNewFile(const QString& path, const TWFileEntryPtr& source,
                                const QVariantMap& destination);

    bool m_active = true;
    bool m_disclosed = true;
    bool m_optionsDisclosed = false;
    bool m_preview = false;
    int m_source = TWSource::Selection;
    TWDestinationTag m_destinationTag = TWDestinationTag::InPlace;
    QString m_directory;
    QVariantMap m_values;
    std::optional<qint64> m_journalStep; // the undo journal's step of this run's in-place saves
};

// Re-points every entry of the tree that shows `from` to `to` and refreshes it; on the main thread at
// once, otherwise handed to it.
void TWRepointEntries(const QString& from, const QString& to);
