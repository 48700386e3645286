#include "actions/level/TWLevelActions.h"

#include "model/TWFileEntry.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/LXLevels.h"
#include "lx/LXProcess.h"
#include "lx/dsp/LXChannelGains.h"
#include "lx/dsp/LXGain.h"

#include <cmath>

namespace {

const QString kLevel = QStringLiteral("level");
const QString kRms = QStringLiteral("rms");
const QString kGrouping = QStringLiteral("grouping");

bool isNearlyUnity(float gain) {
    return std::fabs(gain - 1.0f) < 0.01f;
}

// The hooks answer codes: a failure's reason stays with the file for the loop to report.
int32_t codeOf(LXAudioFile& file, const LXStatus& status) {
    return status ? int32_t(LXContinue) : file.recordError(status.error());
}

int32_t applyGain(LXAudioFile& file, LXAudioFileWriter& writer, float gain) {
    if (isNearlyUnity(gain)) return LXUnchanged;
    LXGain kernel(static_cast<double>(gain));
    return codeOf(file, LXProcess(file, kernel, writer));
}

} // namespace

float TWGainForLevel(const QVariant& level) {
    const float exponent = level.toFloat() / 20.0f;
    return float(std::pow(10.0, double(exponent)));
}

// Change Gain
// ------------------------------------------------------------------------------------------------

QList<TWInstructionKey> TWActionChangeGain::instructionKeys() const {
    return {{kLevel, TWValueType::Number, 0.0, QStringLiteral("gain in dB, positive or negative")}};
}

int32_t TWActionChangeGain::processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                                             LXAudioFileWriter& writer, int) {
    return applyGain(file, writer, TWGainForLevel(instructions.value(kLevel)));
}

// Balance
// ------------------------------------------------------------------------------------------------------

QList<TWInstructionKey> TWActionBalance::instructionKeys() const {
    return {{kRms, TWValueType::Boolean, false, QStringLiteral("measure RMS levels instead of peaks")}};
}

int32_t TWActionBalance::processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                                          LXAudioFileWriter& writer, int) {
    if (file.numberOfChannels() < 2) return LXUnchanged;
    auto gains =
        LXBalanceGains(file, instructions.value(kRms).toBool() ? LXLevelMeasure::RMS : LXLevelMeasure::Peak);
    if (!gains) return file.recordError(gains.error());
    LXChannelGains kernel(std::move(*gains));
    return codeOf(file, LXProcess(file, kernel, writer));
}

// Normalize
// ----------------------------------------------------------------------------------------------------

QList<TWInstructionKey> TWActionNormalize::instructionKeys() const {
    return {
        {kLevel, TWValueType::Number, 0.0, QStringLiteral("target level in dB relative to full scale")},
        {kRms, TWValueType::Boolean, false, QStringLiteral("normalize the RMS level instead of the peak")},
        {kGrouping, TWValueType::Boolean, false,
         QStringLiteral("scale all files by one common factor, set by the loudest")}};
}

int32_t TWActionNormalize::preProcessWithEntries(const QList<TWFileEntryPtr>& entries,
                                                 const QVariantMap& instructions) {
    const bool grouping = instructions.value(kGrouping).toBool();
    const bool rms = instructions.value(kRms).toBool();
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
        if (!level) return level.error().code();
        if (rms)
            entry->setRMS(*level);
        else
            entry->setMax(*level);
    }
    m_groupLevel = -1.0f;
    if (grouping && entries.size() > 1)
        for (const TWFileEntryPtr& entry : entries)
            m_groupLevel = std::max(m_groupLevel, rms ? entry->rms() : entry->max());
    return LXContinue;
}

int32_t TWActionNormalize::processAudioFile(LXAudioFile& file, TWFileEntry& entry,
                                            const QVariantMap& instructions, LXAudioFileWriter& writer, int) {
    const float target = TWGainForLevel(instructions.value(kLevel));
    // A grouped run of one file divides by the group level it never measured (-1): the file reaches the
    // target inverted. Kept deliberately: workflows rely on it.
    const float level = instructions.value(kGrouping).toBool()
                            ? m_groupLevel
                            : (instructions.value(kRms).toBool() ? entry.rms() : entry.max());
    return applyGain(file, writer, target / level);
}
