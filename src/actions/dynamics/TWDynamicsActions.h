#pragma once

#include "engine/TWAction.h"

#include "lx/LXDynamicsEntry.h"

#include <memory>

// Compress and Expand: each file rendered through the framework's compressor and expander
// (LXDynamicsEntry, whose gain law is documented in lx/dsp/LXDynamicsCurve.h), block by block.
//
// Each action owns a live-preview entry for the playback chain, which follows the action's settings and
// its preview switch; the processing uses entries of its own, one per file, so the panel may change
// during a run without touching the files and no file inherits the previous one's detector state.
// A file that cannot be rendered cancels the run: the files already changed in place are put back.
class TWDynamicsAction : public TWAction {
public:
    bool canPreview() const override { return true; }
    // The action's own compressor or expander, brought up to its settings and preview switch.
    std::shared_ptr<LXEffectEntry> livePreviewEntry() override;

protected:
    // The settings the instructions give, sent to an entry through its setters in key order.
    virtual void configure(LXDynamicsEntry& entry, const QVariantMap& instructions) const = 0;

    TWOutcome preProcessWithEntries(const QList<TWFileEntryPtr>& entries,
                                    const QVariantMap& instructions) override;
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry& entry, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int index) override;
    bool canProcessFilesConcurrently() const override { return true; }

    // The threshold's slider and field: whole decibels shown, the typed value kept with its fraction and
    // a typed value below 0 taken as 0 (the slider's passes as it is).
    QList<TWControl> thresholdControls(const TWInstructionKey& key) const;
    QVariant thresholdFromControl(const TWControl& control, const QVariant& value) const;

private:
    std::shared_ptr<LXDynamicsEntry> m_preview = std::make_shared<LXDynamicsEntry>();
    LXDynamicsSettings m_processing; // read by the per-file hooks, set before the first file
};

class TWActionCompress : public TWDynamicsAction {
public:
    QString className() const override { return QStringLiteral("TWActionCompress"); }
    QString name() const override { return QStringLiteral("Compress"); }
    QString verb() const override { return QStringLiteral("Compressing..."); }
    QList<TWInstructionKey> instructionKeys() const override;
    QStringList requiredInstructionKeys() const override;
    // Attack and release in whole milliseconds (a typed value above 0 becomes 0), the threshold, the
    // amount, and the makeup gain in whole decibels within a signed 8-bit value.
    QList<TWControl> panelControls() const override;
    QVariant valueFromControl(const TWControl& control, const QVariant& value) const override;
    QVariant controlValue(const TWControl& control) const override;

    // The headroom an amount gives: (1 - amount) x 40 in single precision, at least 0.1 dB.
    static float headroomOfAmount(double amount);

protected:
    void configure(LXDynamicsEntry& entry, const QVariantMap& instructions) const override;
};

class TWActionExpand : public TWDynamicsAction {
public:
    QString className() const override { return QStringLiteral("TWActionExpand"); }
    QString name() const override { return QStringLiteral("Expand"); }
    QString verb() const override { return QStringLiteral("Expanding..."); }
    QList<TWInstructionKey> instructionKeys() const override;
    QList<TWControl> panelControls() const override;
    QVariant valueFromControl(const TWControl& control, const QVariant& value) const override;
    QVariant controlValue(const TWControl& control) const override;

protected:
    // The compressor's threshold at full scale first, so that only the expander acts.
    void configure(LXDynamicsEntry& entry, const QVariantMap& instructions) const override;
};
