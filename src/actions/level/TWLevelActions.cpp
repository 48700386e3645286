#include "actions/level/TWLevelActions.h"

#include "engine/TWActionRegistry.h"

#include "model/TWFileEntry.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/LXLevels.h"
#include "lx/LXProcess.h"
#include "lx/LXWaveformCache.h"
#include "lx/dsp/LXChannelGains.h"
#include "lx/dsp/LXGain.h"

#include <algorithm>
#include <cmath>

namespace {

const TWKey<double> kGainLevel{QStringLiteral("level"), 0.0, QStringLiteral("gain, positive or negative"),
                               TWKeyDetails::inUnit(QStringLiteral("dB"))};
const TWKey<double> kTargetLevel{QStringLiteral("level"), 0.0,
                                 QStringLiteral("target level relative to full scale"),
                                 TWKeyDetails::inUnit(QStringLiteral("dB"))};
const TWKey<bool> kBalanceRms{
    QStringLiteral("rms"), false, QStringLiteral("measure RMS levels instead of peaks"),
    TWKeyDetails::oneOf({{false, QStringLiteral("Peak")}, {true, QStringLiteral("RMS")}})};
const TWKey<bool> kNormalizeRms{
    QStringLiteral("rms"), false, QStringLiteral("normalize the RMS level instead of the peak"),
    TWKeyDetails::oneOf({{false, QStringLiteral("Peak")}, {true, QStringLiteral("RMS")}})};
const TWKey<bool> kGrouping{QStringLiteral("grouping"), false,
                            QStringLiteral("scale all files by one common factor, set by the loudest"),
                            TWKeyDetails::oneOf({{false, QStringLiteral("Each file by itself")},
                                                 {true, QStringLiteral("All files together")}})};
const TWKey<bool> kLoudness{QStringLiteral("loudness"), false,
                            QStringLiteral("normalize the integrated loudness: the level is then in LUFS "
                                           "(-23 for broadcast, -14 for streaming)")};
const TWKey<double> kTruePeakCeiling{QStringLiteral("truePeakCeiling"), -1.0,
                                     QStringLiteral("with loudness, the highest true peak the gain may leave"),
                                     TWKeyDetails::inUnit(QStringLiteral("dBTP"))};

bool isNearlyUnity(float gain) {
    return std::fabs(gain - 1.0f) < 0.01f;
}

// A gain as the user reads it: "+3.01 dB", "-6.02 dB", "+1.00 dB, inverted".
QString decibels(double gain) {
    const double db = 20.0 * std::log10(std::fabs(gain));
    QString text = QStringLiteral("%1%2 dB").arg(db >= 0 ? "+" : "").arg(db, 0, 'f', 2);
    return gain < 0 ? text + QStringLiteral(", inverted") : text;
}

TWOutcome applyGain(LXAudioFile& file, LXAudioFileWriter& writer, float gain) {
    if (!std::isfinite(gain))
        return TWOutcome::unchanged().withNote(QStringLiteral("the gain is too large to apply"));
    if (isNearlyUnity(gain)) return TWOutcome::unchanged();
    LXGain kernel{double(gain)};
    return TWOutcome(LXProcess(file, kernel, writer)).withNote(QStringLiteral("gain ") + decibels(gain));
}

// The level's slider and field; the slider moves in half decibels.
QList<TWControl> levelControls(const TWInstructionKey& key, double minimum, double maximum) {
    const TWControl slider{TWControlKind::Slider, key.name, QStringLiteral("Level"), minimum, maximum, 1,
                           key.details.unit,      {}};
    TWControl field = slider;
    field.kind = TWControlKind::Field;
    return {slider, field};
}

} // namespace

// Change Gain
// ------------------------------------------------------------------------------------------------

QList<TWInstructionKey> TWActionChangeGain::instructionKeys() const {
    return {kGainLevel};
}

QList<TWControl> TWActionChangeGain::panelControls() const {
    return levelControls(kGainLevel, -24.0, 24.0);
}

QVariant TWActionChangeGain::valueFromControl(const TWControl& control, const QVariant& value) const {
    return control.kind == TWControlKind::Slider ? TWHalfDecibels(value.toDouble())
                                                 : kGainLevel.converted(value).value_or(QVariant());
}

TWOutcome TWActionChangeGain::processAudioFile(LXAudioFile& file, TWFileEntry&,
                                               const QVariantMap& instructions, LXAudioFileWriter& writer,
                                               int) {
    return applyGain(file, writer, LXAmplitudeOfLevel(kGainLevel(instructions)));
}

// Balance
// ------------------------------------------------------------------------------------------------------

QList<TWInstructionKey> TWActionBalance::instructionKeys() const {
    return {kBalanceRms};
}

QList<TWControl> TWActionBalance::panelControls() const {
    QList<TWControl> controls = TWAction::panelControls();
    controls.first().kind = TWControlKind::RadioGroup;
    controls.first().label = QStringLiteral("Measure");
    return controls;
}

TWOutcome TWActionBalance::processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                                            LXAudioFileWriter& writer, int) {
    if (file.numberOfChannels() < 2) return TWOutcome::unchanged();
    auto gains = LXBalanceGains(file, kBalanceRms(instructions) ? LXLevelMeasure::RMS : LXLevelMeasure::Peak);
    if (!gains) return gains.error();
    QStringList notes;
    for (double gain : *gains)
        notes.append(decibels(gain));
    LXChannelGains kernel(std::move(*gains));
    return TWOutcome(LXProcess(file, kernel, writer)).withNote(QStringLiteral("gains ") + notes.join(u", "));
}

// Normalize
// ----------------------------------------------------------------------------------------------------

QList<TWInstructionKey> TWActionNormalize::instructionKeys() const {
    return {kTargetLevel, kNormalizeRms, kGrouping, kLoudness, kTruePeakCeiling};
}

QList<TWControl> TWActionNormalize::panelControls() const {
    QList<TWControl> controls = levelControls(kTargetLevel, -48.0, 0.0);
    QList<TWControl> choices = TWAction::panelControls().mid(1);
    choices[0].kind = TWControlKind::RadioGroup;
    choices[0].label = QStringLiteral("Measure");
    choices[1].label = QStringLiteral("Scale");
    return controls + choices;
}

QVariant TWActionNormalize::valueFromControl(const TWControl& control, const QVariant& value) const {
    if (control.key != kTargetLevel.name) return value;
    if (control.kind == TWControlKind::Slider) return TWHalfDecibels(value.toDouble());
    const std::optional<QVariant> typed = kTargetLevel.converted(value);
    if (!typed) return {};
    return std::min(typed->toDouble(), 0.0); // deliberately only here: a script's level is not limited
}

TWOutcome TWActionNormalize::preProcessWithEntries(const QList<TWFileEntryPtr>& entries,
                                                   const QVariantMap& instructions) {
    m_unmeasured.clear();
    if (kLoudness(instructions)) return measureLoudness(entries, instructions);
    const bool grouping = kGrouping(instructions);
    const bool rms = kNormalizeRms(instructions);
    for (const TWFileEntryPtr& entry : entries) {
        // A peak of exactly -1 and an RMS that is NaN mean "not measured yet"; a NaN peak counts as measured.
        const bool measured = rms ? !std::isnan(entry->rms()) : entry->max() != -1.0f;
        if (measured) continue;
        auto opened = LXAudioFile::open(entry->path());
        if (!opened) continue;
        LXAudioFile& file = **opened;
        file.setProgressDelegate(entry.get());
        auto level = rms ? LXRmsFrom(file, 0, file.frames(), file.channelSet())
                         : LXMaximumFrom(file, 0, file.frames(), file.channelSet());
        if (!level) {
            // A file that cannot be read fails at its turn, as any file does; a stop ends the run here.
            const TWOutcome failed(level.error());
            if (failed.isStopOrCancel()) return failed;
            m_unmeasured.insert(entry.get(), level.error());
            continue;
        }
        if (rms)
            entry->setRMS(*level);
        else
            entry->setMax(*level);
    }
    m_groupLevel = -1.0f;
    if (grouping && entries.size() > 1)
        for (const TWFileEntryPtr& entry : entries)
            m_groupLevel = std::max(m_groupLevel, rms ? entry->rms() : entry->max());
    return TWOutcome::success();
}

TWOutcome TWActionNormalize::processAudioFile(LXAudioFile& file, TWFileEntry& entry,
                                              const QVariantMap& instructions, LXAudioFileWriter& writer,
                                              int) {
    if (const auto unmeasured = m_unmeasured.constFind(&entry); unmeasured != m_unmeasured.cend())
        return TWOutcome::failure(*unmeasured);
    if (kLoudness(instructions)) return applyLoudnessGain(file, entry, instructions, writer);
    const float target = LXAmplitudeOfLevel(kTargetLevel(instructions));
    // A grouped run of one file divides by the group level it never measured (-1): the file reaches the
    // target inverted. Kept deliberately: workflows rely on it.
    const float level =
        kGrouping(instructions) ? m_groupLevel : (kNormalizeRms(instructions) ? entry.rms() : entry.max());
    // No gain brings silence to a level, and a level that is not a number gives a gain that is none.
    if (level == 0.0f) return TWOutcome::unchanged().withNote(QStringLiteral("it is silent"));
    if (!std::isfinite(level))
        return TWOutcome::unchanged().withNote(QStringLiteral("it holds samples that are not numbers"));
    return applyGain(file, writer, target / level);
}

// The loudness and true peak of each file: from the analysis cache when it holds the file as it is now,
// otherwise measured (one pass). With grouping, the group's loudness is the energy mean of the files'
// loudness weighted by their lengths, which is close to the loudness of the files played one after the
// other, and its true peak the highest; silent files take no part.
TWOutcome TWActionNormalize::measureLoudness(const QList<TWFileEntryPtr>& entries,
                                             const QVariantMap& instructions) {
    m_loudness.clear();
    for (const TWFileEntryPtr& entry : entries) {
        const QVariantMap cached = LXWaveformCache::shared().analysisForPath(entry->path());
        if (cached.contains(QStringLiteral("loudness")) && cached.contains(QStringLiteral("truePeak"))) {
            m_loudness.insert(entry.get(), {cached.value(QStringLiteral("loudness")).toDouble(), 0.0,
                                            cached.value(QStringLiteral("truePeak")).toDouble()});
            continue;
        }
        auto opened = LXAudioFile::open(entry->path());
        if (!opened) continue; // fails at its turn, as any file does
        (*opened)->setProgressDelegate(entry.get());
        auto loudness = LXLoudnessOf(**opened);
        if (!loudness) {
            const TWOutcome failed(loudness.error());
            if (failed.isStopOrCancel()) return failed;
            m_unmeasured.insert(entry.get(), loudness.error());
            continue;
        }
        m_loudness.insert(entry.get(), *loudness);
    }
    m_groupLoudness = {};
    if (!kGrouping(instructions)) return TWOutcome::success();
    double energy = 0.0, seconds = 0.0, peak = 0.0;
    for (const TWFileEntryPtr& entry : entries) {
        const auto measured = m_loudness.constFind(entry.get());
        if (measured == m_loudness.cend() || !std::isfinite(measured->integrated)) continue;
        const double length = std::max(double(entry->length()), 1e-3);
        energy += length * std::pow(10.0, measured->integrated / 10.0);
        seconds += length;
        peak = std::max(peak, measured->truePeak);
    }
    m_groupLoudness = {seconds > 0.0 ? 10.0 * std::log10(energy / seconds) : -HUGE_VAL, 0.0, peak};
    return TWOutcome::success();
}

// The gain that brings the loudness to the target, lowered where the true peak would pass the ceiling.
TWOutcome TWActionNormalize::applyLoudnessGain(LXAudioFile& file, TWFileEntry& entry,
                                               const QVariantMap& instructions, LXAudioFileWriter& writer) {
    const auto measured = m_loudness.constFind(&entry);
    if (measured == m_loudness.cend()) return TWOutcome::unchanged().withNote(QStringLiteral("not measured"));
    // A silent file stays as it is, in a group too: no gain would change it.
    if (!std::isfinite(measured->integrated))
        return TWOutcome::unchanged().withNote(
            std::isnan(measured->integrated) ? QStringLiteral("it holds samples that are not numbers")
                                             : QStringLiteral("it is silent"));
    const LXLoudness& loudness = kGrouping(instructions) ? m_groupLoudness : *measured;
    double gainDb = kTargetLevel(instructions) - loudness.integrated;
    const double ceilingDb = kTruePeakCeiling(instructions);
    const bool limited =
        loudness.truePeak > 0.0 && 20.0 * std::log10(loudness.truePeak) + gainDb > ceilingDb;
    if (limited) gainDb = ceilingDb - 20.0 * std::log10(loudness.truePeak);
    TWOutcome outcome = applyGain(file, writer, LXAmplitudeOfLevel(gainDb));
    if (!limited) return outcome;
    return outcome.withNote(outcome.note() + QStringLiteral(" (held back by the true-peak ceiling of %1 dBTP)")
                                                 .arg(ceilingDb));
}

TW_REGISTER_ACTION(TWActionChangeGain)
TW_REGISTER_ACTION(TWActionBalance)
TW_REGISTER_ACTION(TWActionNormalize)
