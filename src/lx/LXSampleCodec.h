#pragma once

#include "lx/LXAudioFormat.h"

#include <cstddef>
#include <cstdint>

// Conversion between stored samples and +-1.0 floating point. An integer of n bits reads as
// v / 2^(n-1) and is written as round(x * 2^(n-1)) clipped to the integer's range, so that every
// integer of up to 24 bits survives a float round trip exactly, and 32-bit integers a double one.
// Float written to integers clips; it never wraps.
template <typename T>
void LXDecodeSamples(const LXSampleEncoding& encoding, const uint8_t* in, T* out, size_t count);
template <typename T>
void LXEncodeSamples(const LXSampleEncoding& encoding, const T* in, uint8_t* out, size_t count);
