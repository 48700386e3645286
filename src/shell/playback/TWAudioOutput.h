#pragma once

#include "lx/LXResult.h"

#include <cstdint>

class LXPlaybackStream;

// Where a playback stream's audio goes: an output opens a device (or none), prepares the stream for its
// format (interleaved stereo float at its rate, its largest block) and calls the stream's render() from
// its callback. Made, opened, started and stopped on the main thread.
class TWAudioOutput {
public:
    virtual ~TWAudioOutput() = default;
    virtual LXStatus open(LXPlaybackStream& stream) = 0;
    virtual LXStatus start() = 0;
    virtual void stop() = 0;
    virtual double rate() const = 0;
    // Blocks the device had to play without a frame from us (JACK's xruns, ALSA's underflows).
    virtual int64_t underflows() const = 0;
};
