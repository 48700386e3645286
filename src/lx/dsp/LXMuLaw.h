#pragma once

#include <cstdint>

// G.711 mu-law: each float sample (+-1.0 full scale) as one byte, the 16-bit linear value's sign, a
// 3-bit segment (the power of two of its magnitude plus the bias of 132) and the 4 bits below the
// segment's leading one, all inverted. The bytes are those of the classic 16-bit reference encoder,
// which clips magnitudes at 32635. One call a block; the loop has no branches and no table, so the
// compiler vectorises it.
void LXMuLawEncode(const float* in, uint8_t* out, int64_t count);

// Channels mixed to one as their average, so a full-scale channel stays within full scale whatever the
// others hold.
void LXMixToMono(const float* interleaved, int channels, float* mono, int64_t frames);
