#pragma once

#include <cstdint>

// The arithmetic of making one stream of several: a block of one input placed into the output's
// channels, or added into a running sum. Blocks are interleaved; an input channel beyond the output's is
// left out, and an output channel beyond the input's gets silence (or nothing added).

// Copies the input's channels to the output's channels from `first` on, leaving the others as they are.
// Values pass through unchanged.
void LXPlaceChannels(const double* in, int inChannels, double* out, int outChannels, int first, int64_t frames);

// Adds the input's channels into a sum of the output's channel count, in single precision (the mix is
// the plain average, and its rounding is the same whatever the inputs' formats).
void LXAddChannels(const double* in, int inChannels, float* sum, int outChannels, int64_t frames);
