#pragma once

#include "engine/TWAction.h"

#include <memory>
#include <mutex>
#include <vector>

class LXAudioUnitEntry;
class LXEffectEntry;
class LXHostedAudioUnitEntry;

// Process with Audio Unit: each file rendered through an installed LV2 effect with the settings the
// instructions carry ("settings": "Name", "Component", "Parameters", "State"; see LXAudioUnitEntry), so a
// saved workflow gives the same sound in a later run.
//
// The renders run the plug-in in host processes (LXHostedAudioUnitEntry): one that crashes or hangs
// cancels the run with an error that says so, and the files changed before it are put back. Hosts are
// reused from file to file, one per file rendered at once.
//
// The live preview is an in-process entry made on first request (the command line never makes one),
// brought up to the instructions' settings whenever it is asked for and bypassed while the preview is off.
//
// The panel: a pop-up of the installed effects, the tail and latency switches, the output channels, then
// one control per parameter of the chosen effect (a check box for a switch, a pop-up for named values, a
// slider otherwise), each showing its entry of the settings' "Parameters" (TWControl::part).
class TWActionAudioUnit : public TWAction {
public:
    TWActionAudioUnit();
    ~TWActionAudioUnit() override;

    QString className() const override { return QStringLiteral("TWActionAudioUnit"); }
    QString name() const override { return QStringLiteral("Process with Audio Unit"); }
    QString verb() const override { return QStringLiteral("Processing..."); }
    bool canPreview() const override { return true; }
    QList<TWInstructionKey> instructionKeys() const override;
    QStringList requiredInstructionKeys() const override;

    // The entry the player puts at the head of its chain (nullptr when no effect is chosen or it will not
    // start here).
    std::shared_ptr<LXEffectEntry> livePreviewEntry() override;

    QList<TWControl> panelControls() const override;
    QVariant valueFromControl(const TWControl& control, const QVariant& value) const override;
    QVariant controlValue(const TWControl& control) const override;
    TWControl controlAsShown(const TWControl& control) const override;

    // The settings a newly chosen effect starts from: its name, URI and every parameter at its default.
    static LXResult<QVariantMap> defaultSettings(const QString& component);

protected:
    TWOutcome preProcessWithEntries(const QList<TWFileEntryPtr>& entries, const QVariantMap& instructions) override;
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry& entry, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int index) override;
    void postProcess() override;
    bool canProcessFilesConcurrently() const override { return true; }

private:
    std::unique_ptr<LXHostedAudioUnitEntry> takeHost();

    QVariantMap m_runSettings; // the run's "settings", set before the first file
    std::mutex m_hostsLock;
    std::vector<std::unique_ptr<LXHostedAudioUnitEntry>> m_idleHosts;

    std::shared_ptr<LXAudioUnitEntry> m_live;
    QString m_liveState; // the "State" last restored into m_live
};
