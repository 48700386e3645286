#pragma once

#include "lx/LXRange.h"

#include <atomic>
#include <vector>

class LXAudioFileLayer;

// The stream's output layer: mixes its layers at the volume and drops the first frames of each playback
// by the latency compensation, so that what is heard first is the range's first frame and not the
// effect chains' delay. Threads as for LXAudioFileLayer: set-up on control threads while the stream's gate
// keeps the callback out; volume from any thread; render() on the audio callback.
class LXMasterLayer {
public:
    void setLayers(std::vector<LXAudioFileLayer*> layers) { m_layers = std::move(layers); }
    const std::vector<LXAudioFileLayer*>& layers() const { return m_layers; }

    void prepareOutput(double rate, int maxBlock);
    // The range every layer will play; nothing of the master's own depends on it.
    void preparePlaybackRange(const LXRange&) {}
    void beginPlayback(); // the compensation starts again

    // Linear gain, 1.0 leaving the samples as they are.
    void setVolume(float volume) { m_volume.store(volume, std::memory_order_relaxed); }
    float volume() const { return m_volume.load(std::memory_order_relaxed); }
    // Seconds of output dropped at the start of a playback; 0 turns compensation off.
    void setLatencyCompensation(double seconds) { m_compensation = seconds; }
    double latencyCompensation() const { return m_compensation; }

    // Audio callback: `frames` stereo frames, any number (rendered in pieces of the largest block). True
    // once every layer has played its range through.
    bool render(float* out, int frames);

private:
    bool renderPiece(float* out, int frames);

    std::vector<LXAudioFileLayer*> m_layers;
    std::vector<float> m_scratch;
    double m_rate = 0.0;
    int m_maxBlock = 0;
    double m_compensation = 0.0;
    int64_t m_toDrop = 0;
    std::atomic<float> m_volume{1.0f};
};
