#pragma once

#include "lx/dsp/LXKernel.h"

#include <vector>

struct soxr;

// Sample-rate conversion through libsoxr, streaming: memory stays a few filter lengths whatever the
// file's length, and the output holds exactly round(frames * outRate / inRate) frames, each at the same
// time as the input it came from (the filter's delay is taken out).
class LXResampler final : public LXStreamKernel {
public:
    // libsoxr's quality recipes, lowest first: cubic interpolation, then filters whose stop band and
    // pass band grow with the number of bits they keep clean.
    enum class Quality { Quick, Low, Medium, High, VeryHigh };
    // Phase response of the anti-alias filter: linear (symmetric ringing, the usual choice), minimum
    // (no ringing before a transient, some phase shift near the top of the band), intermediate (between
    // the two), or linear with a steeper band edge (flat to 99 % of the lower Nyquist frequency).
    enum class Filter { Linear, Intermediate, Minimum, Steep };

    LXResampler(double outRate, Quality quality, Filter filter)
        : m_outRate(outRate), m_quality(quality), m_filter(filter) {}
    ~LXResampler() override;
    LXResampler(const LXResampler&) = delete;
    LXResampler& operator=(const LXResampler&) = delete;

    LXStatus prepare(int channels, double rate, bool doublePrecision) override;
    LXResult<int64_t> process(const float* in, int64_t frames, const float** out) override;
    LXResult<int64_t> process(const double* in, int64_t frames, const double** out) override;

private:
    template <typename T> LXResult<int64_t> run(const T* in, int64_t frames, std::vector<T>& buffer);

    double m_outRate;
    Quality m_quality;
    Filter m_filter;
    double m_ratio = 1;
    int m_channels = 0;
    soxr* m_soxr = nullptr;
    std::vector<float> m_float;
    std::vector<double> m_double;
};
