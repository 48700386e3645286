#pragma once

#include "engine/TWAction.h"

#include "lx/LXLevels.h"

#include <QHash>

// Level changes: a fixed gain, even channels, and a peak, RMS or loudness target for each file or a whole
// batch.
// Changes smaller than 1 % of the amplitude (about 0.09 dB) leave a file unchanged.

class TWActionChangeGain : public TWAction {
public:
    QString className() const override { return QStringLiteral("TWActionChangeGain"); }
    bool canProcessFilesConcurrently() const override { return true; }
    QString name() const override { return QStringLiteral("Change Gain"); }
    QString verb() const override { return QStringLiteral("Changing Gain..."); }
    QList<TWInstructionKey> instructionKeys() const override;
    // A slider and a field for the level: the slider moves in half decibels, a typed level stands.
    QList<TWControl> panelControls() const override;
    QVariant valueFromControl(const TWControl& control, const QVariant& value) const override;

protected:
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry& entry, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int index) override;
};

class TWActionBalance : public TWAction {
public:
    QString className() const override { return QStringLiteral("TWActionBalance"); }
    bool canProcessFilesConcurrently() const override { return true; }
    QString name() const override { return QStringLiteral("Balance"); }
    QString verb() const override { return QStringLiteral("Balancing..."); }
    QList<TWInstructionKey> instructionKeys() const override;
    QStringList requiredInstructionKeys() const override { return {}; }
    QList<TWControl> panelControls() const override;

protected:
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry& entry, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int index) override;
};

class TWActionNormalize : public TWAction {
public:
    QString className() const override { return QStringLiteral("TWActionNormalize"); }
    bool canProcessFilesConcurrently() const override { return true; }
    QString name() const override { return QStringLiteral("Normalize"); }
    QString verb() const override { return QStringLiteral("Normalizing..."); }
    QList<TWInstructionKey> instructionKeys() const override;
    QStringList requiredInstructionKeys() const override { return {QStringLiteral("level")}; }
    // As Change Gain's, but a typed level above full scale becomes 0 dB (the slider stops there anyway).
    QList<TWControl> panelControls() const override;
    QVariant valueFromControl(const TWControl& control, const QVariant& value) const override;

protected:
    // Measures each entry once (the level is kept on the entry) and, when grouping, finds the loudest.
    TWOutcome preProcessWithEntries(const QList<TWFileEntryPtr>& entries,
                                    const QVariantMap& instructions) override;
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry& entry, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int index) override;

private:
    TWOutcome measureLoudness(const QList<TWFileEntryPtr>& entries, const QVariantMap& instructions);
    TWOutcome applyLoudnessGain(LXAudioFile& file, TWFileEntry& entry, const QVariantMap& instructions,
                                LXAudioFileWriter& writer);

    float m_groupLevel = -1.0f;
    QHash<const TWFileEntry*, LXLoudness> m_loudness; // with "loudness": each file's, measured first
    LXLoudness m_groupLoudness;                       // and, with grouping, the group's
    QHash<const TWFileEntry*, LXError> m_unmeasured; // the files that could not be measured, and why
};
