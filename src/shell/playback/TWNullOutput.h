#pragma once

#include "shell/playback/TWAudioOutput.h"

#include <vector>

// An output without a device: whoever drives it (a test) asks for frames, which are rendered block by
// block as a device's callback would ask for them and kept in memory. Between blocks it waits for the
// stream's reading thread to fill its buffers, where a device would give it the time of a block, so that
// what it renders does not depend on how busy the machine is.
class TWNullOutput final : public TWAudioOutput {
public:
    explicit TWNullOutput(double rate = 44100, int blockFrames = 512) : m_rate(rate), m_blockFrames(blockFrames) {}

    LXStatus open(LXPlaybackStream& stream) override;
    LXStatus start() override;
    void stop() override { m_started = false; }
    double rate() const override { return m_rate; }
    int64_t underflows() const override { return 0; }

    // Renders `frames` frames (a last short block if need be) and appends them to rendered(); nothing
    // unless started.
    void renderFrames(int64_t frames);
    const std::vector<float>& rendered() const { return m_rendered; } // interleaved stereo
    void clear() { m_rendered.clear(); }

private:
    double m_rate;
    int m_blockFrames;
    bool m_started = false;
    LXPlaybackStream* m_stream = nullptr;
    std::vector<float> m_block;
    std::vector<float> m_rendered;
};
