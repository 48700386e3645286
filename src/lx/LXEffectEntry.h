#pragma once

#include "lx/LXError.h"
#include "lx/LXResult.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <optional>
#include <vector>

// An effect that processes interleaved frames in place, block by block: what a playback chain holds and
// what LXProcessStream renders a file through. "Frames" means sample frames: a block of n frames of c
// channels holds n * c samples.
//
// prepare runs off the audio thread and may allocate; process, reset and the settings an effect offers
// may then be called while it plays: process neither allocates nor locks, and each single setting is
// safe to change from another thread (it takes effect at the next block). process is not reentrant: one
// thread plays an entry.
class LXEffectEntry {
public:
    virtual ~LXEffectEntry() = default;

    // Readies the effect for blocks of at most maxBlockFrames frames of `channels` channels at `rate`,
    // and forgets the signal it saw. Fails (saying why) when it cannot take that input.
    virtual LXStatus prepare(double rate, int channels, int64_t maxBlockFrames) = 0;
    // frames is at most the prepared maximum. A bypassed effect leaves the block as it is.
    virtual void process(float* interleaved, int64_t frames) = 0;
    // The same in double precision, for files whose samples float would round (32-bit integers).
    virtual void process(double* interleaved, int64_t frames) = 0;
    // Forgets the signal it saw (a new file, a jump in playback), keeping its settings.
    virtual void reset() = 0;
    // How many frames the output lags the input: a renderer that keeps the output aligned with the input
    // drops this many frames at the start and feeds as many more at the end.
    virtual int64_t latency() const { return 0; }
    // Why the entry could not process its blocks (an effect hosted in another process that crashed or
    // stopped answering), or nothing. The blocks it could not process come out silent.
    virtual std::optional<LXError> failure() const { return std::nullopt; }

    bool isEnabled() const { return m_enabled.load(std::memory_order_relaxed); }
    // Off: bypassed, the blocks pass unchanged.
    void setEnabled(bool enabled) { m_enabled.store(enabled, std::memory_order_relaxed); }

protected:
    // process(double*) of an effect that works in float: the block in pieces through scratch (as many
    // whole frames as it holds) and back.
    void processThroughFloat(double* interleaved, int64_t frames, int channels, std::vector<float>& scratch) {
        const int64_t most = int64_t(scratch.size()) / std::max(1, channels);
        for (int64_t done = 0; done < frames && most > 0;) {
            const int64_t n = std::min(most, frames - done);
            double* block = interleaved + done * channels;
            std::copy_n(block, n * channels, scratch.begin());
            process(scratch.data(), n);
            std::copy_n(scratch.begin(), n * channels, block);
            done += n;
        }
    }

private:
    std::atomic<bool> m_enabled{true};
};
