#include "lx/LXProcessStream.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/LXEffectEntry.h"
#include "lx/LXProcess.h"
#include "lx/dsp/LXKernel.h"

#include <algorithm>
#include <vector>

namespace {

// The entry as a kernel of the block loop: each block is copied and processed in place; with latency
// compensation the first `latency` frames it gives are dropped and, at the end, that many frames of
// silence push out what it still holds.
class LXEntryKernel final : public LXStreamKernel {
public:
    LXEntryKernel(LXEffectEntry& entry, bool compensate) : m_entry(entry), m_compensate(compensate) {}

    LXStatus prepare(int channels, double rate, bool doublePrecision) override {
        m_channels = channels;
        LX_TRY(m_entry.prepare(rate, channels, kMaxBlock));
        m_latency = m_compensate ? std::max<int64_t>(0, m_entry.latency()) : 0;
        m_toDrop = m_latency;
        m_tail = m_latency;
        if (doublePrecision)
            m_double.assign(size_t(kMaxBlock * channels), 0.0);
        else
            m_float.assign(size_t(kMaxBlock * channels), 0.0f);
        return {};
    }
    LXResult<int64_t> process(const float* in, int64_t frames, const float** out) override {
        return run(in, frames, m_float, out);
    }
    LXResult<int64_t> process(const double* in, int64_t frames, const double** out) override {
        return run(in, frames, m_double, out);
    }

private:
    // Blocks of the loop are 16 K frames; longer input is taken in pieces of this size.
    static constexpr int64_t kMaxBlock = 16384;

    template <typename T>
    LXResult<int64_t> run(const T* in, int64_t frames, std::vector<T>& buffer, const T** out) {
        if (!in) { // the end: the silence that pushes out the latency's frames
            frames = std::min(m_tail, kMaxBlock);
            m_tail -= frames;
            std::fill_n(buffer.begin(), frames * m_channels, T(0));
        } else {
            if (frames > kMaxBlock)
                return LXError(LXErrInvalidParameter, QStringLiteral("a block of %1 frames is too long").arg(frames));
            std::copy_n(in, frames * m_channels, buffer.begin());
        }
        m_entry.process(buffer.data(), frames);
        const int64_t dropped = std::min(m_toDrop, frames);
        m_toDrop -= dropped;
        *out = buffer.data() + dropped * m_channels;
        return frames - dropped;
    }

    LXEffectEntry& m_entry;
    const bool m_compensate;
    int m_channels = 0;
    int64_t m_latency = 0, m_toDrop = 0, m_tail = 0;
    std::vector<float> m_float;
    std::vector<double> m_double;
};

} // namespace

LXStatus LXProcessStream::processAudioFile(LXAudioFile& file, const QVariantMap& instructions,
                                           LXAudioFileWriter& writer) {
    LXEntryKernel kernel(m_entry, instructions.value(QStringLiteral("latencyCompensation")).toBool());
    return LXProcess(file, kernel, writer);
}
