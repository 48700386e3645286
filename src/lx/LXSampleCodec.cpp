#include "lx/LXSampleCodec.h"

#include <algorithm>
#include <cmath>
#include <cstring>

// Written as one tight loop per encoding so the compiler vectorises each; a switch inside the loop
// would not be.

namespace {

template <typename I> inline I loadLE(const uint8_t* p) {
    I v;
    std::memcpy(&v, p, sizeof(I));
    return v;
}

template <typename I> inline I byteswap(I v) {
    if constexpr (sizeof(I) == 2)
        return I(__builtin_bswap16(uint16_t(v)));
    else if constexpr (sizeof(I) == 4)
        return I(__builtin_bswap32(uint32_t(v)));
    else
        return I(__builtin_bswap64(uint64_t(v)));
}

template <typename I, bool Big> inline I load(const uint8_t* p) {
    I v = loadLE<I>(p);
    return Big ? byteswap(v) : v;
}

template <typename I, bool Big> inline void store(uint8_t* p, I v) {
    if (Big) v = byteswap(v);
    std::memcpy(p, &v, sizeof(I));
}

template <typename T, typename I, bool Big> void decodeInt(const uint8_t* in, T* out, size_t count) {
    constexpr T scale = T(1) / T(uint64_t(1) << (sizeof(I) * 8 - 1));
    for (size_t i = 0; i < count; ++i)
        out[i] = T(load<I, Big>(in + i * sizeof(I))) * scale;
}

template <typename T, bool Big> void decodeInt24(const uint8_t* in, T* out, size_t count) {
    constexpr T scale = T(1) / T(1 << 23);
    for (size_t i = 0; i < count; ++i) {
        const uint8_t* p = in + i * 3;
        const uint32_t u = Big ? (uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8)
                               : (uint32_t(p[2]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[0]) << 8);
        out[i] = T(int32_t(u) >> 8) * scale;
    }
}

// Integers wider than 32 bits (a few programs write 36- to 64-bit WAV): the top 32 bits are far
// more than any converter resolves.
template <typename T, bool Big> void decodeWide(const uint8_t* in, T* out, size_t count, int bytes) {
    constexpr T scale = T(1) / T(uint64_t(1) << 31);
    for (size_t i = 0; i < count; ++i) {
        const uint8_t* p = in + i * size_t(bytes);
        const uint8_t* top = Big ? p : p + bytes - 4;
        out[i] = T(load<int32_t, Big>(top)) * scale;
    }
}

template <typename T, typename F, bool Big> void decodeFloat(const uint8_t* in, T* out, size_t count) {
    using U = std::conditional_t<sizeof(F) == 4, uint32_t, uint64_t>;
    for (size_t i = 0; i < count; ++i) {
        const U u = load<U, Big>(in + i * sizeof(F));
        F f;
        std::memcpy(&f, &u, sizeof(F));
        out[i] = T(f);
    }
}

// Round half away from zero after clipping, as sox does. Written without branches so the loops
// vectorise: NaN becomes 0, the clamp keeps the conversion in range, and adding half with the
// value's sign before truncating rounds. Exact in float up to 24 bits; 32-bit integers go through
// double, since float cannot tell 2^24 + 1 from 2^24.
template <typename T> inline int32_t quantise(T x, T scale, T lo, T hi) {
    T v = x * scale;
    v = v == v ? v : T(0);
    v = v > lo ? v : lo;
    v = v < hi ? v : hi;
    return int32_t(v + std::copysign(T(0.5), v));
}

template <typename T, typename I, bool Big> void encodeInt(const T* in, uint8_t* out, size_t count) {
    constexpr int bits = sizeof(I) * 8;
    using W = std::conditional_t<(bits > 24), double, T>;
    constexpr int64_t full = int64_t(1) << (bits - 1);
    for (size_t i = 0; i < count; ++i)
        store<I, Big>(out + i * sizeof(I), I(quantise(W(in[i]), W(full), W(-full), W(full - 1))));
}

template <typename T, bool Big> void encodeInt24(const T* in, uint8_t* out, size_t count) {
    constexpr T scale = T(1 << 23);
    for (size_t i = 0; i < count; ++i) {
        const uint32_t v = uint32_t(int32_t(quantise(in[i], scale, -scale, scale - 1)));
        uint8_t* p = out + i * 3;
        if (Big) {
            p[0] = uint8_t(v >> 16), p[1] = uint8_t(v >> 8), p[2] = uint8_t(v);
        } else {
            p[0] = uint8_t(v), p[1] = uint8_t(v >> 8), p[2] = uint8_t(v >> 16);
        }
    }
}

template <typename T, typename F, bool Big> void encodeFloat(const T* in, uint8_t* out, size_t count) {
    using U = std::conditional_t<sizeof(F) == 4, uint32_t, uint64_t>;
    for (size_t i = 0; i < count; ++i) {
        const F f = F(in[i]);
        U u;
        std::memcpy(&u, &f, sizeof(F));
        store<U, Big>(out + i * sizeof(F), u);
    }
}

template <typename T, bool Big>
void decodeAs(const LXSampleEncoding& e, const uint8_t* in, T* out, size_t count) {
    if (e.isFloat()) {
        if (e.bytes == 8)
            decodeFloat<T, double, Big>(in, out, count);
        else
            decodeFloat<T, float, Big>(in, out, count);
        return;
    }
    switch (e.bytes) {
    case 1:
        if (e.type == LXSampleEncoding::Type::UnsignedInt)
            for (size_t i = 0; i < count; ++i)
                out[i] = T(int(in[i]) - 128) * T(1.0 / 128);
        else
            for (size_t i = 0; i < count; ++i)
                out[i] = T(int8_t(in[i])) * T(1.0 / 128);
        break;
    case 2:
        decodeInt<T, int16_t, Big>(in, out, count);
        break;
    case 3:
        decodeInt24<T, Big>(in, out, count);
        break;
    case 4:
        decodeInt<T, int32_t, Big>(in, out, count);
        break;
    default:
        decodeWide<T, Big>(in, out, count, e.bytes);
        break;
    }
}

template <typename T, bool Big>
void encodeAs(const LXSampleEncoding& e, const T* in, uint8_t* out, size_t count) {
    if (e.isFloat()) {
        if (e.bytes == 8)
            encodeFloat<T, double, Big>(in, out, count);
        else
            encodeFloat<T, float, Big>(in, out, count);
        return;
    }
    switch (e.bytes) {
    case 1: {
        const int offset = e.type == LXSampleEncoding::Type::UnsignedInt ? 128 : 0;
        for (size_t i = 0; i < count; ++i)
            out[i] = uint8_t(int(quantise(in[i], T(128), T(-128), T(127))) + offset);
        break;
    }
    case 2:
        encodeInt<T, int16_t, Big>(in, out, count);
        break;
    case 3:
        encodeInt24<T, Big>(in, out, count);
        break;
    default:
        encodeInt<T, int32_t, Big>(in, out, count);
        break;
    }
}

} // namespace

// Each entry point is compiled twice, for AVX2 and for any x86-64, and picks one when the program loads:
// twice the lanes halve the time of these loops (the gain of a 1 GB file spent most of its user time
// here). Results are the same either way: the loops only multiply, compare and convert.
// The build turns it off under the sanitizers (their runtime is not ready when the resolver runs, while
// the program loads) and for compilers that cannot combine the clones with flatten.
#if defined(LX_VECTOR_CLONES_ENABLED) && defined(__x86_64__)
#define LX_VECTOR_CLONES __attribute__((target_clones("avx2", "default"), flatten))
#else
#define LX_VECTOR_CLONES
#endif

namespace {

template <typename T>
LX_VECTOR_CLONES void decodeSamples(const LXSampleEncoding& encoding, const uint8_t* in, T* out,
                                    size_t count) {
    if (encoding.bigEndian)
        decodeAs<T, true>(encoding, in, out, count);
    else
        decodeAs<T, false>(encoding, in, out, count);
}

template <typename T>
LX_VECTOR_CLONES void encodeSamples(const LXSampleEncoding& encoding, const T* in, uint8_t* out,
                                    size_t count) {
    if (encoding.bigEndian)
        encodeAs<T, true>(encoding, in, out, count);
    else
        encodeAs<T, false>(encoding, in, out, count);
}

} // namespace

template <typename T>
void LXDecodeSamples(const LXSampleEncoding& encoding, const uint8_t* in, T* out, size_t count) {
    decodeSamples<T>(encoding, in, out, count);
}

template <typename T>
void LXEncodeSamples(const LXSampleEncoding& encoding, const T* in, uint8_t* out, size_t count) {
    encodeSamples<T>(encoding, in, out, count);
}

template void LXDecodeSamples<float>(const LXSampleEncoding&, const uint8_t*, float*, size_t);
template void LXDecodeSamples<double>(const LXSampleEncoding&, const uint8_t*, double*, size_t);
template void LXEncodeSamples<float>(const LXSampleEncoding&, const float*, uint8_t*, size_t);
template void LXEncodeSamples<double>(const LXSampleEncoding&, const double*, uint8_t*, size_t);
