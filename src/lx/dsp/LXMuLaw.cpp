#include "lx/dsp/LXMuLaw.h"

#include <bit>
#include <cmath>

void LXMuLawEncode(const float* in, uint8_t* out, int64_t count) {
    for (int64_t i = 0; i < count; ++i) {
        const float x = in[i];
        float magnitude = std::fabs(x) * 32768.0f;
        magnitude = magnitude < 32635.0f ? magnitude : 32635.0f; // NaN too, turned to silence below
        magnitude = x == x ? magnitude : 0.0f;
        // The biased magnitude (132 to 32767) as a float holds the segment in its exponent (2^7 is
        // segment 0) and the 4 bits after the leading one at the top of its mantissa, exactly.
        const auto bits = std::bit_cast<uint32_t>(float(int32_t(magnitude + 0.5f) + 132));
        const uint32_t segment = (bits >> 23) - (127 + 7);
        const uint32_t mantissa = (bits >> 19) & 0x0F;
        const uint32_t inverted = x < 0.0f ? 0x7F : 0xFF;
        out[i] = uint8_t(((segment << 4) | mantissa) ^ inverted);
    }
}

void LXMixToMono(const float* interleaved, int channels, float* mono, int64_t frames) {
    if (channels == 1) {
        for (int64_t i = 0; i < frames; ++i)
            mono[i] = interleaved[i];
        return;
    }
    const float scale = 1.0f / float(channels);
    for (int64_t i = 0; i < frames; ++i) {
        float sum = 0;
        for (int c = 0; c < channels; ++c)
            sum += interleaved[i * channels + c];
        mono[i] = sum * scale;
    }
}
