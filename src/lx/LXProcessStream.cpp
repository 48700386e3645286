#include "lx/LXProcessStream.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/LXEffectEntry.h"
#include "lx/LXProcess.h"
#include "lx/dsp/LXKernel.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

struct LXEntryOptions {
    bool compensate = false;
    int outputChannels = 0; // 0: the input's
    bool retainTail = false;
    double tailMax = 0.0; // seconds
};

// The entry as a kernel of the block loop. Each block is widened to the channels the entry runs at (the
// output's when it has more than the input, input channel c % inputs feeding channel c), processed in
// place, and narrowed to the output's (output channel c the average of channels c, c + outputs, ...).
// With latency compensation the first `latency` frames it gives are dropped and, at the end, that many
// frames of silence push out what it still holds. With a tail kept, more silence follows, and the output
// goes on while the entry still sounds: up to the tail's maximum, ending after the last frame above
// -96 dBFS once a quiet stretch of two seconds (or the maximum) shows nothing more comes.
class LXEntryKernel final : public LXStreamKernel {
public:
    LXEntryKernel(LXEffectEntry& entry, LXEntryOptions options) : m_entry(entry), m_options(options) {}

    int outputChannels(int inputChannels) const override {
        return m_options.outputChannels > 0 ? m_options.outputChannels : inputChannels;
    }
    LXStatus prepare(int channels, double rate, bool doublePrecision) override {
        m_inputs = channels;
        m_outputs = outputChannels(channels);
        m_width = std::max(m_inputs, m_outputs);
        LX_TRY(m_entry.prepare(rate, m_width, kMaxBlock));
        const int64_t latency = m_options.compensate ? std::max<int64_t>(0, m_entry.latency()) : 0;
        m_toDrop = latency;
        m_flush = latency;
        m_tail = m_options.retainTail ? int64_t(std::max(0.0, m_options.tailMax) * rate) : 0;
        m_quietRun = std::min(int64_t(2.0 * rate), std::max<int64_t>(1, m_tail));
        if (doublePrecision)
            m_double.prepare(m_width, m_outputs);
        else
            m_float.prepare(m_width, m_outputs);
        return {};
    }
    LXResult<int64_t> process(const float* in, int64_t frames, const float** out) override {
        return run(m_float, in, frames, out);
    }
    LXResult<int64_t> process(const double* in, int64_t frames, const double** out) override {
        return run(m_double, in, frames, out);
    }

private:
    // Blocks of the loop are 16 K frames; longer input is taken in pieces of this size.
    static constexpr int64_t kMaxBlock = 16384;
    static constexpr double kAudible = 1.5848931924611e-5; // -96 dBFS

    template <typename T> struct Lane {
        std::vector<T> work, narrow; // a block at the entry's width; at the output's
        std::vector<T> held, emitted; // the tail's quiet frames not yet known to be followed by sound
        void prepare(int width, int outputs) {
            work.assign(size_t(kMaxBlock * width), T(0));
            narrow.assign(size_t(kMaxBlock * outputs), T(0));
            held.clear();
        }
    };

    template <typename T> LXResult<int64_t> run(Lane<T>& lane, const T* in, int64_t frames, const T** out) {
        if (in) {
            if (frames > kMaxBlock)
                return LXError(LXErrInvalidParameter, QStringLiteral("a block of %1 frames is too long").arg(frames));
            return render(lane, in, frames, out);
        }
        // The end: silence pushes out the latency's frames, then the tail, which is kept only up to its
        // last audible frame.
        if (m_flush > 0) {
            const int64_t n = std::min(m_flush, kMaxBlock);
            m_flush -= n;
            return render(lane, static_cast<const T*>(nullptr), n, out);
        }
        lane.emitted.clear();
        while (m_tail > 0 && lane.emitted.empty()) {
            const int64_t n = std::min(m_tail, kMaxBlock);
            m_tail -= n;
            const T* block = nullptr;
            const auto made = render(lane, static_cast<const T*>(nullptr), n, &block);
            if (!made) return made.error();
            keepAudible(lane, block, *made);
        }
        *out = lane.emitted.data();
        return int64_t(lane.emitted.size()) / m_outputs;
    }

    // Processes frames of input (silence when in is null) and answers the output frames in *out.
    template <typename T> LXResult<int64_t> render(Lane<T>& lane, const T* in, int64_t frames, const T** out) {
        T* work = lane.work.data();
        if (!in)
            std::fill_n(work, frames * m_width, T(0));
        else if (m_width == m_inputs)
            std::copy_n(in, frames * m_inputs, work);
        else
            for (int64_t f = 0; f < frames; ++f)
                for (int c = 0; c < m_width; ++c) work[f * m_width + c] = in[f * m_inputs + c % m_inputs];
        m_entry.process(work, frames);
        if (const auto failed = m_entry.failure()) return *failed;
        const int64_t dropped = std::min(m_toDrop, frames);
        m_toDrop -= dropped;
        frames -= dropped;
        work += dropped * m_width;
        if (m_width == m_outputs) {
            *out = work;
            return frames;
        }
        T* narrow = lane.narrow.data();
        for (int64_t f = 0; f < frames; ++f)
            for (int c = 0; c < m_outputs; ++c) {
                T sum = 0;
                int taken = 0;
                for (int from = c; from < m_width; from += m_outputs, ++taken) sum += work[f * m_width + from];
                narrow[f * m_outputs + c] = sum / T(taken);
            }
        *out = narrow;
        return frames;
    }

    // Adds a tail block to what is emitted up to its last audible frame; the quiet frames after it wait in
    // `held` for sound to follow, and a quiet stretch long enough ends the tail.
    template <typename T> void keepAudible(Lane<T>& lane, const T* block, int64_t frames) {
        const int64_t samples = frames * m_outputs;
        int64_t last = samples - 1;
        while (last >= 0 && std::abs(double(block[last])) <= kAudible) --last;
        if (last >= 0) {
            const int64_t through = (last / m_outputs + 1) * m_outputs;
            lane.emitted.insert(lane.emitted.end(), lane.held.begin(), lane.held.end());
            lane.emitted.insert(lane.emitted.end(), block, block + through);
            lane.held.assign(block + through, block + samples);
        } else {
            lane.held.insert(lane.held.end(), block, block + samples);
        }
        if (int64_t(lane.held.size()) / m_outputs >= m_quietRun) m_tail = 0;
    }

    LXEffectEntry& m_entry;
    const LXEntryOptions m_options;
    int m_inputs = 0, m_outputs = 0, m_width = 0;
    int64_t m_toDrop = 0, m_flush = 0, m_tail = 0, m_quietRun = 0;
    Lane<float> m_float;
    Lane<double> m_double;
};

} // namespace

LXStatus LXProcessStream::processAudioFile(LXAudioFile& file, const QVariantMap& instructions,
                                           LXAudioFileWriter& writer) {
    LXEntryOptions options;
    options.compensate = instructions.value(QStringLiteral("latencyCompensation")).toBool();
    options.outputChannels = std::max(0, instructions.value(QStringLiteral("outputChannels")).toInt());
    options.retainTail = instructions.value(QStringLiteral("retainTail")).toBool();
    options.tailMax = instructions.value(QStringLiteral("retainTailMax")).toDouble();
    LXEntryKernel kernel(m_entry, options);
    return LXProcess(file, kernel, writer);
}
