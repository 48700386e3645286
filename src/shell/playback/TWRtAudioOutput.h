#pragma once

#include "shell/playback/TWAudioOutput.h"

#include <atomic>
#include <memory>

class RtAudio;

// The system's default output device through RtAudio, on whichever of its interfaces finds one (JACK,
// ALSA, PulseAudio): stereo float at the device's preferred rate, 512-frame blocks asked for. RtAudio's
// callback thread calls the stream's render() and nothing else.
class TWRtAudioOutput final : public TWAudioOutput {
public:
    TWRtAudioOutput();
    ~TWRtAudioOutput() override;

    LXStatus open(LXPlaybackStream& stream) override;
    LXStatus start() override;
    void stop() override;
    double rate() const override { return m_rate; }
    int64_t underflows() const override { return m_underflows.load(std::memory_order_relaxed); }

private:
    static int callback(void* output, void* input, unsigned int frames, double time, unsigned int status, void* user);

    std::unique_ptr<RtAudio> m_audio;
    LXPlaybackStream* m_stream = nullptr;
    double m_rate = 0.0;
    std::atomic<int64_t> m_underflows{0};
};
