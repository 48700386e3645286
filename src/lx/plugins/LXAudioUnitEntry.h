#pragma once

#include "lx/LXEffectEntry.h"
#include "lx/plugins/LXAudioUnitDescription.h"

#include <QVariantMap>

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

// An LV2 effect run in this process: the entry a playback chain holds for live listening, and what the
// plug-in host process runs for a batch (LXHostedAudioUnitEntry).
//
// Channels: the plug-in runs as many instances as it takes to give each channel of the entry an input:
// a mono plug-in once per channel, a stereo one once for a stereo file. A plug-in with more inputs than
// the entry has channels is fed the last channel on its spare inputs; each channel is then taken from
// its own instance's output of the same number (the last output when there are fewer).
//
// Settings (state()/setState()): "Name", "Component" (the plug-in's URI), "Parameters" (control port
// symbol -> value) and "State" (the plug-in's full state as a portable LV2 preset in Turtle, port values
// included). setState restores "State" first, then "Parameters" over it, so a value edited by hand in a
// saved workflow takes effect.
//
// Threads: parameters and the bypass may change from any thread while process() runs on another. state()
// and setState() may be called while the entry plays: for the moment the plug-in is saved or restored,
// blocks pass through unprocessed, since a plug-in may not be run and saved at once.
class LXAudioUnitEntry final : public LXEffectEntry {
public:
    // Instantiates the plug-in (at 48 kHz, for two channels, until prepare says otherwise). Fails when it
    // is not installed, cannot run here, or will not instantiate.
    static LXResult<std::unique_ptr<LXAudioUnitEntry>> make(const QString& component);
    ~LXAudioUnitEntry() override;

    const LXAudioUnitDescription& description() const { return m_description; }
    QString displayName() const { return m_description.name; }

    // The control inputs' values, by port symbol; an unknown symbol is ignored, a value is clamped to the
    // port's range.
    void setParameter(const QString& symbol, float value);
    float parameter(const QString& symbol) const;

    QVariantMap state();
    LXStatus setState(const QVariantMap& settings);

    // LXEffectEntry
    LXStatus prepare(double rate, int channels, int64_t maxBlockFrames) override;
    void process(float* interleaved, int64_t frames) override;
    void process(double* interleaved, int64_t frames) override;
    void reset() override;
    int64_t latency() const override;

private:
    struct Instance;
    explicit LXAudioUnitEntry(LXAudioUnitDescription description);

    LXStatus instantiate(double rate, int channels, int64_t maxBlock);
    void runInstances(int64_t frames);
    void settle(); // runs silence through the instances (see kSettlingSeconds)
    // Keeps process() away from the instances while `work` saves or restores them.
    template <typename Work> auto exclusively(Work&& work);

    LXAudioUnitDescription m_description;
    std::vector<int> m_controlOf;                       // port index -> control slot, or -1
    size_t m_controlCount = 0;
    std::unique_ptr<std::atomic<float>[]> m_controls; // the control inputs' values, by slot
    std::vector<std::unique_ptr<Instance>> m_instances;
    double m_rate = 0.0;
    int m_channels = 0;
    int64_t m_maxBlock = 0;
    std::vector<float> m_in, m_out; // one plug-in block per audio port of every instance, planar
    std::vector<float> m_wide;      // the double-precision path's float copy

    std::atomic<int64_t> m_latency{0};
    std::mutex m_controlLock; // one saver or restorer at a time
    std::atomic<bool> m_exclusive{false}, m_running{false};
};
