#include "lx/dsp/LXResampler.h"

#include <soxr.h>

#include <cmath>

namespace {

unsigned long recipeOf(LXResampler::Quality quality, LXResampler::Filter filter) {
    unsigned long recipe = SOXR_HQ;
    switch (quality) {
    case LXResampler::Quality::Quick: recipe = SOXR_QQ; break;
    case LXResampler::Quality::Low: recipe = SOXR_LQ; break;
    case LXResampler::Quality::Medium: recipe = SOXR_MQ; break;
    case LXResampler::Quality::High: recipe = SOXR_HQ; break;
    case LXResampler::Quality::VeryHigh: recipe = SOXR_VHQ; break;
    }
    switch (filter) {
    case LXResampler::Filter::Linear: return recipe | SOXR_LINEAR_PHASE;
    case LXResampler::Filter::Intermediate: return recipe | SOXR_INTERMEDIATE_PHASE;
    case LXResampler::Filter::Minimum: return recipe | SOXR_MINIMUM_PHASE;
    case LXResampler::Filter::Steep: return recipe | SOXR_LINEAR_PHASE | SOXR_STEEP_FILTER;
    }
    return recipe;
}

LXError soxrError(const char* what) {
    return LXError(LXErrInvalidParameter, QStringLiteral("the sample-rate converter failed: %1")
                                              .arg(QString::fromUtf8(what ? what : "unknown error")));
}

} // namespace

LXResampler::~LXResampler() {
    soxr_delete(m_soxr);
}

LXStatus LXResampler::prepare(int channels, double rate, bool doublePrecision) {
    soxr_delete(m_soxr);
    m_soxr = nullptr;
    if (!(rate > 0) || !(m_outRate > 0) || channels < 1)
        return LXError(LXErrInvalidParameter,
                       QStringLiteral("cannot convert %1 channels from %2 Hz to %3 Hz")
                           .arg(channels)
                           .arg(rate)
                           .arg(m_outRate));
    m_channels = channels;
    m_ratio = m_outRate / rate;
    const soxr_datatype_t type = doublePrecision ? SOXR_FLOAT64_I : SOXR_FLOAT32_I;
    const soxr_io_spec_t io = soxr_io_spec(type, type);
    const soxr_quality_spec_t quality = soxr_quality_spec(recipeOf(m_quality, m_filter), 0);
    // One thread: the machine's other cores belong to the other files of a batch and the user.
    const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
    soxr_error_t error = nullptr;
    m_soxr = soxr_create(rate, m_outRate, unsigned(channels), &error, &io, &quality, &runtime);
    if (error) return soxrError(error);
    return {};
}

template <typename T> LXResult<int64_t> LXResampler::run(const T* in, int64_t frames, std::vector<T>& buffer) {
    if (!m_soxr) return soxrError("not prepared");
    // Room for what the block adds and what the filter still holds; grown if that was not enough.
    size_t room = size_t(std::ceil(double(frames) * m_ratio)) + 4096;
    size_t total = 0;
    for (int64_t consumed = 0;;) {
        buffer.resize(room * size_t(m_channels));
        size_t used = 0, made = 0;
        const T* from = in ? in + consumed * m_channels : nullptr;
        const soxr_error_t error = soxr_process(m_soxr, from, in ? size_t(frames - consumed) : 0, &used,
                                                buffer.data() + total * size_t(m_channels), room - total, &made);
        if (error) return soxrError(error);
        consumed += int64_t(used);
        total += made;
        // At the end, one call gives what fits; the caller asks again until nothing comes.
        if (!in || consumed >= frames) break;
        if (used == 0 && made == 0) return soxrError("it took no input");
        if (total == room) room *= 2;
    }
    return int64_t(total);
}

LXResult<int64_t> LXResampler::process(const float* in, int64_t frames, const float** out) {
    auto made = run(in, frames, m_float);
    *out = m_float.data();
    return made;
}

LXResult<int64_t> LXResampler::process(const double* in, int64_t frames, const double** out) {
    auto made = run(in, frames, m_double);
    *out = m_double.data();
    return made;
}
