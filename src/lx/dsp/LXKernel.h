#pragma once

#include "lx/LXChannelSet.h"
#include "lx/LXResult.h"

#include <cstdint>

// Signal processing over blocks of interleaved frames, driven by LXProcess (lx/LXProcess.h): it asks
// outputChannels, calls prepare once, then process once a block. Blocks come in file order, or last
// block first when the file is read backwards. "Frames" means sample frames throughout: a block of n
// frames of c channels holds n * c samples.
//
// A kernel sees float blocks, or double blocks when either end of the process stores 32-bit integers
// (which float would round); both must compute the same thing. The call is once a block: the loops over
// samples are the kernel's own, written so that the compiler vectorises them.
class LXKernel {
public:
    virtual ~LXKernel() = default;

    // The channels of each output frame for input frames of inputChannels, or 0 when the kernel cannot
    // take input of that many channels.
    virtual int outputChannels(int inputChannels) const { return inputChannels; }
    // Before the first block of a run: the input's channels and rate. Clears what an earlier run left.
    virtual void prepare(int channels, double rate) = 0;
    // in holds frames * channels samples, out receives frames * outputChannels(channels); they never
    // overlap.
    virtual void process(const float* in, float* out, int64_t frames) = 0;
    virtual void process(const double* in, double* out, int64_t frames) = 0;
};

// A measurement over blocks of interleaved float frames, driven by LXMeasure (lx/LXProcess.h): prepare
// once, then measure once a block, in file order.
class LXMeter {
public:
    virtual ~LXMeter() = default;

    // The channels of each frame, the rate, and the channels to measure (indices outside the frame are
    // ignored). Clears what an earlier run left.
    virtual void prepare(int channels, double rate, const LXChannelSet& selection) = 0;
    virtual void measure(const float* interleaved, int64_t frames) = 0;
};

// Whether selection is every channel of a frame, in order: the case a meter may take as one run of
// samples.
inline bool LXIsEveryChannel(const LXChannelSet& selection, int channels) {
    if (selection.size() != channels) return false;
    for (int c = 0; c < channels; ++c)
        if (selection[c] != c) return false;
    return true;
}

// A kernel whose output runs at another pace than its input (a sample-rate converter), driven by the
// LXProcess that takes one: prepare once, process once a block, then process with no input until it
// gives no more frames (what its filters still hold). The output is the kernel's own buffer, valid until
// the next call. Float or double as for LXKernel, chosen at prepare.
class LXStreamKernel {
public:
    virtual ~LXStreamKernel() = default;

    // The channels of each output frame for input frames of inputChannels.
    virtual int outputChannels(int inputChannels) const { return inputChannels; }
    // Fails (an LXError saying why) when the kernel cannot run on that input.
    virtual LXStatus prepare(int channels, double rate, bool doublePrecision) = 0;
    // in: frames interleaved frames, or nullptr at the end. Answers the frames ready in *out.
    virtual LXResult<int64_t> process(const float* in, int64_t frames, const float** out) = 0;
    virtual LXResult<int64_t> process(const double* in, int64_t frames, const double** out) = 0;
};
