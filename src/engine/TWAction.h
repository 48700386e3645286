#pragma once

#include "engine/TWActionError.h"
#include "engine/TWCommonKeys.h"
#include "engine/TWInstructionKey.h"
#include "engine/TWOutcome.h"
#include "engine/TWPanelModel.h"

#include "model/TWEntry.h"

#include "lx/LXRange.h"

#include <QList>
#include <QStringList>
#include <QVariantMap>

#include <memory>
#include <optional>

class LXAudioFile;
class LXAudioFileWriter;
class LXEffectEntry;
class TWActionRun;
class TWFileOutputs;
class TWFileEntry;
class TWRunController;

// Where results go: the destination matrix's tags.
enum class TWDestinationTag { InPlace = 0, BesideSource = 1, ChosenDirectory = 2 };

// What an action shows over the selected file's waveform while its preview is on, computed from the
// file: times in seconds and curves in the order the action defines them, stretches of the file, and a
// line of text under the panel ("3 files will be extracted"). Plain data: the waveform view draws it and
// playback reads its play range from it.
struct TWPreview {
    QList<double> values;
    QList<LXRange> ranges;
    QString infoText;
    bool isEmpty() const { return values.isEmpty() && ranges.isEmpty() && infoText.isEmpty(); }
};

// One step of a workflow. Everything it needs to run is in its instructions, a property-list dictionary
// ("class", "active", "source", "destination", "paths" and the action's own keys), so an action can be
// rebuilt from a workflow file, an editor or a command line alike.
//
// A concrete action declares its keys once (instructionKeys: name, type, default, range, unit, help),
// reads them through those keys in its hooks, and picks the shape of loop that carries it over the
// entries by its base class: TWAction itself turns each file into outputs saved in place or as new files
// (and TWActionExport into files of a format of its own); TWCombiningAction makes one file of all;
// TWDescriptiveAction changes names or metadata with undo by instructions; TWHandOnAction hands files on.
// No action writes a loop. Made with its default constructor; one object per run on the work thread, so
// fields kept between the hooks need no locking.
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

    // The value of one of the action's own keys: as set, else the key's default (a new action already
    // holds valid instructions). Invalid for a key with no default that nobody set.
    QVariant objectForInstructionKey(const QString& key) const;
    void setObjectForInstructionKey(const QString& key, const QVariant& value);

    // Instructions and saved state -----------------------------------------------------------------------
    QVariantMap instructions() const;
    // Applies "source" and "destination", then the action's own keys as they stand (neither rounded nor
    // limited, unlike values typed into the panel); unknown keys are ignored and a missing key leaves the
    // setting as it was.
    virtual void setInstructions(const QVariantMap& instructions);
    // "class", "active", "disclosed", "optionsDisclosed", "preview", "instructions".
    QVariantMap state() const;
    void setState(const QVariantMap& state);
    // True when the action needs no destination or the instructions hold one, and every required key
    // is present (whatever its value).
    bool requiredInstructionKeysExist(const QVariantMap& instructions) const;

    // Panel -------------------------------------------------------------------------------------------------
    // The panel's controls, in order. By default one per key: a field for numbers and text, a check box
    // for booleans, a pop-up for keys with choices.
    virtual QList<TWControl> panelControls() const;
    // The value the key takes when the user sets the control to `value` (the panel's rules: rounding,
    // limits); invalid to refuse it. By default the value as given.
    virtual QVariant valueFromControl(const TWControl& control, const QVariant& value) const;
    // What the control shows for the key's value now (a slider may show it as a share of a full scale);
    // by default the value itself.
    virtual QVariant controlValue(const TWControl& control) const;
    // The control with the unit and number format it has now, which may follow another key; by default
    // as listed.
    virtual TWControl controlAsShown(const TWControl& control) const { return control; }

    // Preview: computed from the selected file while the preview is on.
    void updatePreviewForAudioFile(LXAudioFile& file) { m_previewValues = previewForAudioFile(file); }
    const TWPreview& previewValues() const { return m_previewValues; }
    // An action previewed by being heard answers the effect that plays its settings: the player puts it at
    // the head of the selected file's playback chain while the action is in the workflow being edited, and
    // asks again whenever the panel changes, so each call brings the entry up to the settings and the
    // preview switch (bypassed when off). The player keeps the entry it holds until the chain has let go
    // of it, so the entry may outlive the action. nullptr (the default): nothing to hear. Main thread.
    virtual std::shared_ptr<LXEffectEntry> livePreviewEntry() { return nullptr; }

    static bool isInMainThread();

    // The loop of the action's shape: confirms the destination and the instructions, then carries the
    // action over the entries and appends the resulting entries to results. Returns the action's error, if
    // any; the files saved before it stay saved (and undoable). The base is the per-file loop.
    virtual std::optional<TWActionError> processEntries(TWRunController& runs,
                                                        const QList<TWFileEntryPtr>& entries,
                                                        const QVariantMap& instructions,
                                                        QList<TWFileEntryPtr>& results);

protected:
    // Hooks, called on the work thread. preProcessWithEntries comes once before the first file (any
    // answer but success ends the action before a file is opened), postProcess once after the last,
    // whatever happened.
    virtual TWOutcome preProcessWithEntries(const QList<TWFileEntryPtr>& entries,
                                            const QVariantMap& instructions);
    virtual void postProcess() {}

    // The per-file loop's hooks. How many outputs the file gives (0: none).
    virtual int numberOfNewEntriesForAudioFile(LXAudioFile& file, TWFileEntry& entry,
                                               const QVariantMap& instructions);
    // Writes output number index into the writer (made from the file: its format, channels, metadata).
    // Unchanged: the file needs no change and the writer is dropped.
    virtual TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry& entry, const QVariantMap& instructions,
                                       LXAudioFileWriter& writer, int index);
    virtual TWPreview previewForAudioFile(LXAudioFile& file) const;
    // Whether the per-file hooks (numberOfNewEntriesForAudioFile, processAudioFile and an export's
    // processAudioFileToPath) may run for two files at once, on two threads: true only when they keep no
    // state of their own between calls (each call's buffers and encoders are its own) and read the
    // action's fields without changing them. The loop then works on as many files at once as there are
    // cores, and still saves, reports and undoes them one at a time in the entries' order.
    virtual bool canProcessFilesConcurrently() const { return false; }

private:
    friend class TWFileLoop;
    friend class TWWriterOutputs;
    // Where the per-file loop's outputs go: writers saved in place or as new files. TWActionExport's
    // outputs are files of a format of its own.
    virtual std::unique_ptr<TWFileOutputs> makeOutputs(TWActionRun& run);

    bool m_active = true;
    bool m_disclosed = true;
    bool m_optionsDisclosed = false;
    bool m_preview = false;
    int m_source = TWSource::Selection;
    TWDestinationTag m_destinationTag = TWDestinationTag::InPlace;
    QString m_directory;
    QVariantMap m_values;
    TWPreview m_previewValues;
};
