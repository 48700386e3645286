#include "actions/dynamics/TWDynamicsActions.h"

#include "engine/TWActionRegistry.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/LXProcessStream.h"

#include <algorithm>
#include <cmath>

namespace {

const QString dB = QStringLiteral("dB");
const QString ms = QStringLiteral("ms");

const TWKey<double> kAttack{QStringLiteral("attack"), 0.010,
                            QStringLiteral("time the gain takes to fall (10 % to 90 %) when the level rises"),
                            TWKeyDetails::between(0, 2, QStringLiteral("s"))};
const TWKey<double> kRelease{QStringLiteral("release"), 0.100,
                             QStringLiteral("time the gain takes to recover (10 % to 90 %) when the level falls"),
                             TWKeyDetails::between(0, 10, QStringLiteral("s"))};
const TWKey<double> kCompressThreshold{
    QStringLiteral("threshold"), 20.0,
    QStringLiteral("how far below full scale compression begins (20: peaks above -20 dBFS)"),
    TWKeyDetails::between(0, 120, dB)};
const TWKey<double> kAmount{
    QStringLiteral("amount"), 0.5,
    QStringLiteral("0 leaves the level alone, 0.5 is 2:1, 0.9 is 10:1, 1 limits at the threshold"),
    TWKeyDetails::between(0, 1)};
const TWKey<double> kMakeup{QStringLiteral("gain"), 0.0, QStringLiteral("makeup gain after compression"),
                            TWKeyDetails::between(-128, 127, dB)};
const TWKey<double> kExpandThreshold{
    QStringLiteral("threshold"), 50.0,
    QStringLiteral("how far below full scale expansion begins (50: peaks below -50 dBFS are lowered)"),
    TWKeyDetails::between(0, 120, dB)};
const TWKey<int> kRatio{QStringLiteral("ratio"), 2,
                        QStringLiteral("n of 1:n: below the threshold the level falls n dB for each dB of input"),
                        TWKeyDetails::between(1, 100)};

// Whether the instructions hold the key: a setting is sent to the entry only then, so an absent one keeps
// the entry's default.
bool holds(const QVariantMap& instructions, const TWInstructionKey& key) {
    return instructions.contains(key.name);
}

std::optional<double> numberOf(const QVariant& value) {
    bool ok = false;
    const double number = value.toDouble(&ok);
    return ok && std::isfinite(number) ? std::optional<double>(number) : std::nullopt;
}

TWControl control(TWControlKind kind, const TWInstructionKey& key, const QString& label, double minimum,
                  double maximum, const QString& unit, int decimals = 0) {
    return {kind, key.name, label, minimum, maximum, decimals, unit, {}};
}

// Whole decibels toward zero, kept within a signed 8-bit value.
double signedByteDecibels(double value) {
    return std::clamp(std::trunc(value), -128.0, 127.0);
}

} // namespace

// What both share
// ------------------------------------------------------------------------------------------------

std::shared_ptr<LXEffectEntry> TWDynamicsAction::livePreviewEntry() {
    configure(*m_preview, instructions());
    m_preview->setEnabled(preview());
    return m_preview;
}

TWOutcome TWDynamicsAction::preProcessWithEntries(const QList<TWFileEntryPtr>&, const QVariantMap& instructions) {
    LXDynamicsEntry processing;
    configure(processing, instructions);
    m_processing = processing.settings();
    return TWOutcome::success();
}

TWOutcome TWDynamicsAction::processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                                             LXAudioFileWriter& writer, int) {
    // Rewriting would change nothing but, for a lossy file, its encoding.
    if (m_processing.ratio() == 1.0 && m_processing.expansionRatio <= 1.0f && m_processing.gain == 0.0f)
        return TWOutcome::unchanged().withNote(QStringLiteral("the settings change no level"));
    LXDynamicsEntry entry(m_processing);
    LXProcessStream stream(entry);
    QVariantMap aligned = instructions;
    aligned.insert(QStringLiteral("latencyCompensation"), true);
    return TWOutcome(stream.processAudioFile(file, aligned, writer)).cancellingRunOnFailure(file.path());
}

QList<TWControl> TWDynamicsAction::thresholdControls(const TWInstructionKey& key) const {
    return {control(TWControlKind::Slider, key, QStringLiteral("Threshold"), 0, 60, dB),
            control(TWControlKind::Field, key, QStringLiteral("Threshold"), 0, 0, dB)};
}

QVariant TWDynamicsAction::thresholdFromControl(const TWControl& control, const QVariant& value) const {
    const std::optional<double> number = numberOf(value);
    if (!number) return {};
    return control.kind == TWControlKind::Field ? std::max(*number, 0.0) : *number;
}

// Compress
// ------------------------------------------------------------------------------------------------

QList<TWInstructionKey> TWActionCompress::instructionKeys() const {
    return {kAttack, kRelease, kCompressThreshold, kAmount, kMakeup};
}

QStringList TWActionCompress::requiredInstructionKeys() const {
    return {kCompressThreshold.name, kAmount.name};
}

float TWActionCompress::headroomOfAmount(double amount) {
    const float headroom = (1.0f - float(amount)) * LXDynamicsSettings::kFullHeadroom;
    return double(headroom) < 0.1 ? LXDynamicsSettings::kMinimumHeadroom : headroom;
}

void TWActionCompress::configure(LXDynamicsEntry& entry, const QVariantMap& instructions) const {
    if (holds(instructions, kAttack)) entry.setCompressionAttackTime(float(kAttack(instructions)));
    if (holds(instructions, kRelease)) entry.setCompressionReleaseTime(float(kRelease(instructions)));
    if (holds(instructions, kCompressThreshold))
        entry.setCompressionThreshold(float(kCompressThreshold(instructions)));
    if (holds(instructions, kAmount)) entry.setCompressionHeadroom(headroomOfAmount(kAmount(instructions)));
    if (holds(instructions, kMakeup)) entry.setGain(float(kMakeup(instructions)));
}

QList<TWControl> TWActionCompress::panelControls() const {
    const QList<TWControl> threshold = thresholdControls(kCompressThreshold);
    return {control(TWControlKind::Slider, kAttack, QStringLiteral("Attack"), 0, 500, ms),
            control(TWControlKind::Field, kAttack, QStringLiteral("Attack"), 0, 0, ms),
            control(TWControlKind::Slider, kRelease, QStringLiteral("Release"), 0, 2000, ms),
            control(TWControlKind::Field, kRelease, QStringLiteral("Release"), 0, 0, ms),
            threshold[0],
            threshold[1],
            control(TWControlKind::Slider, kAmount, QStringLiteral("Amount"), 0, 1, {}, 2),
            control(TWControlKind::Slider, kMakeup, QStringLiteral("Gain"), -24, 24, dB),
            control(TWControlKind::Field, kMakeup, QStringLiteral("Gain"), 0, 0, dB)};
}

QVariant TWActionCompress::valueFromControl(const TWControl& control, const QVariant& value) const {
    const std::optional<double> number = numberOf(value);
    if (!number) return {};
    if (control.key == kAttack.name || control.key == kRelease.name) {
        // A typed time above 0 is taken as 0 (kept as the panel has always done); the slider's stands.
        if (control.kind == TWControlKind::Field && *number > 0) return 0.0;
        if (*number < 0) return {};
        return std::trunc(*number) / 1000.0;
    }
    if (control.key == kCompressThreshold.name) return thresholdFromControl(control, value);
    if (control.key == kMakeup.name) return signedByteDecibels(*number);
    return *number;
}

QVariant TWActionCompress::controlValue(const TWControl& control) const {
    const double value = TWAction::controlValue(control).toDouble();
    if (control.key == kAttack.name || control.key == kRelease.name) return double(std::lround(value * 1000.0));
    if (control.key == kCompressThreshold.name) return std::trunc(value);
    if (control.key == kMakeup.name) return signedByteDecibels(value);
    return value;
}

// Expand
// ------------------------------------------------------------------------------------------------

QList<TWInstructionKey> TWActionExpand::instructionKeys() const {
    return {kExpandThreshold, kRatio};
}

void TWActionExpand::configure(LXDynamicsEntry& entry, const QVariantMap& instructions) const {
    entry.setCompressionThreshold(0);
    if (holds(instructions, kExpandThreshold)) entry.setExpansionThreshold(float(kExpandThreshold(instructions)));
    if (holds(instructions, kRatio)) entry.setExpansionRatio(float(kRatio(instructions)));
}

QList<TWControl> TWActionExpand::panelControls() const {
    return thresholdControls(kExpandThreshold) +
           QList<TWControl>{control(TWControlKind::Slider, kRatio, QStringLiteral("Ratio"), 1, 20, {}),
                            control(TWControlKind::Field, kRatio, QStringLiteral("Ratio"), 0, 0, {})};
}

QVariant TWActionExpand::valueFromControl(const TWControl& control, const QVariant& value) const {
    if (control.key == kExpandThreshold.name) return thresholdFromControl(control, value);
    return kRatio.converted(value).value_or(QVariant());
}

QVariant TWActionExpand::controlValue(const TWControl& control) const {
    const QVariant value = TWAction::controlValue(control);
    if (control.key == kExpandThreshold.name) return std::trunc(value.toDouble());
    return value;
}

TW_REGISTER_ACTION(TWActionCompress)
TW_REGISTER_ACTION(TWActionExpand)
