#pragma once

#include "lx/LXEffectEntry.h"
#include "lx/dsp/LXDynamicsProcessor.h"

#include <atomic>

// The compressor and downward expander as an effect entry: the gain law is LXDynamicsCurve.h's, the
// detector and ballistics LXDynamicsProcessor's. Its latency is 0 (no look-ahead).
//
// Each setter changes one setting and may be called from any thread while the entry plays: the settings
// are atomics, read once a block, so a block never sees half a change. Times are in seconds, levels in
// decibels (thresholds below full scale); see LXDynamicsCurve.h. The defaults do nothing: threshold 0,
// headroom 40 dB (1:1), expansion 1:1, no gain; attack 10 ms, release 100 ms.
class LXDynamicsEntry final : public LXEffectEntry {
public:
    LXDynamicsEntry() = default;
    explicit LXDynamicsEntry(const LXDynamicsSettings& settings) { setSettings(settings); }

    void setCompressionAttackTime(float seconds) { m_attack = seconds; }
    void setCompressionReleaseTime(float seconds) { m_release = seconds; }
    void setCompressionThreshold(float decibels) { m_threshold = decibels; }
    // Limited to LXDynamicsSettings::kMinimumHeadroom ... kFullHeadroom when applied.
    void setCompressionHeadroom(float decibels) { m_headroom = decibels; }
    void setGain(float decibels) { m_gain = decibels; }
    void setExpansionThreshold(float decibels) { m_expansionThreshold = decibels; }
    // Ratios below 1 count as 1.
    void setExpansionRatio(float ratio) { m_expansionRatio = ratio; }

    // Every setting at once, and as they stand now.
    void setSettings(const LXDynamicsSettings& settings);
    LXDynamicsSettings settings() const;

    LXStatus prepare(double rate, int channels, int64_t maxBlockFrames) override;
    void process(float* interleaved, int64_t frames) override;
    void process(double* interleaved, int64_t frames) override;
    void reset() override { m_processor.reset(); }

private:
    template <typename T> void run(T* interleaved, int64_t frames);

    const LXDynamicsSettings m_defaults{};
    std::atomic<float> m_attack{m_defaults.attack}, m_release{m_defaults.release};
    std::atomic<float> m_threshold{m_defaults.threshold}, m_headroom{m_defaults.headroom};
    std::atomic<float> m_gain{m_defaults.gain};
    std::atomic<float> m_expansionThreshold{m_defaults.expansionThreshold};
    std::atomic<float> m_expansionRatio{m_defaults.expansionRatio};
    LXDynamicsProcessor m_processor; // the playing thread's alone
};
