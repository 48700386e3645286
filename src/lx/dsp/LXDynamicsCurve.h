#pragma once

#include <algorithm>

// The settings of a compressor and downward expander, and its static curve: the gain, in decibels, that
// a steady signal at a given peak level receives once the detector has settled.
//
// Levels are peak levels in dBFS; both thresholds are given as decibels below full scale (20 means
// -20 dBFS), so 0 puts a threshold at full scale, where it does nothing to a signal that never exceeds it.
//
// Compression above its threshold follows a hard knee with the ratio 40 / headroom: the headroom is how
// far the output rises above the threshold while the input rises 40 dB above it. Headroom 40 dB is 1:1
// (no compression at any level), 20 dB is 2:1, 4 dB is 10:1 and the least, 0.1 dB, is 400:1, which holds
// the output within a fraction of a decibel of the threshold: a limiter once the attack has passed.
//
// Expansion below its threshold is downward, 1:n: each decibel the input falls below the threshold, the
// output falls n decibels (n = 1 does nothing; the gain never goes below kFloor).
struct LXDynamicsSettings {
    static constexpr float kMinimumHeadroom = 0.1f; // dB: 400:1
    static constexpr float kFullHeadroom = 40.0f;   // dB: 1:1
    static constexpr double kFloor = -240.0;        // dB: the least gain, below any format's last bit

    float attack = 0.010f;           // s: the compressor's gain reduction, 10 % to 90 % of a step up
    float release = 0.100f;          // s: its recovery, 10 % to 90 % of a step down
    float threshold = 0.0f;          // dB below full scale where compression begins
    float headroom = kFullHeadroom;  // dB, within kMinimumHeadroom to kFullHeadroom
    float gain = 0.0f;               // dB added after both stages (makeup)
    float expansionThreshold = 0.0f; // dB below full scale where expansion begins
    float expansionRatio = 1.0f;     // n of 1:n, at least 1

    bool operator==(const LXDynamicsSettings&) const = default;

    double ratio() const {
        return double(kFullHeadroom) / std::clamp(double(headroom), double(kMinimumHeadroom), double(kFullHeadroom));
    }
    // The compressor's gain for a steady peak level (dBFS): 0 at or below the threshold.
    double compressionGain(double level) const {
        const double over = level + double(threshold);
        return over > 0 ? -over * (1.0 - 1.0 / ratio()) : 0.0;
    }
    // The expander's gain for a steady peak level (dBFS): 0 at or above its threshold.
    double expansionGain(double level) const {
        const double under = level + double(expansionThreshold);
        const double n = std::max(1.0, double(expansionRatio));
        return under < 0 ? std::max(kFloor, under * (n - 1.0)) : 0.0;
    }
    // What the output's level is for a steady input level: the static curve, makeup included.
    double outputLevel(double level) const {
        return level + std::max(kFloor, compressionGain(level) + expansionGain(level)) + double(gain);
    }
};
