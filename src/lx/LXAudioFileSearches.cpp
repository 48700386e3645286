// Searches of a file's audio by level and for zero crossings, read in blocks from the end nearest to
// what is sought, and the regions between an attack and a release level.

#include "lx/LXAudioFile.h"
#include "lx/dsp/LXThreshold.h"

#include <algorithm>
#include <vector>

namespace {

constexpr int64_t kBlockFrames = 16384;

LXStatus ask(LXAudioFile& file, int64_t done, int64_t total) {
    LXProgressDelegate* delegate = file.progressDelegate();
    if (!delegate || total <= 0) return {};
    const int32_t code = delegate->update(float(double(done) / double(total)));
    if (code != LXContinue) return LXProgressError::errorWithCode(code, QStringLiteral("Searching"));
    return {};
}

// The mix of a file's channels frame by frame, read a block at a time in the direction of the search.
class MixCursor {
public:
    MixCursor(LXAudioFile& file, bool forward) : m_file(file), m_forward(forward) {}

    LXResult<double> at(int64_t frame) {
        if (frame < m_start || frame >= m_start + int64_t(m_mix.size())) LX_TRY(load(frame));
        return m_mix[size_t(frame - m_start)];
    }

private:
    LXStatus load(int64_t frame) {
        const int channels = m_file.numberOfChannels();
        const int64_t start = m_forward ? frame : std::max<int64_t>(frame - kBlockFrames + 1, 0);
        const int64_t count = std::min(kBlockFrames, m_file.frames() - start);
        m_block.resize(size_t(count * channels));
        const auto got = m_file.readFrames(start, count, m_block.data());
        if (!got) return got.error();
        m_mix.assign(size_t(count), 0.0);
        for (int64_t f = 0; f < count; ++f)
            for (int c = 0; c < channels; ++c)
                m_mix[size_t(f)] += m_block[size_t(f * channels + c)];
        m_start = start;
        m_scanned += count;
        return ask(m_file, m_scanned, m_file.frames());
    }

    LXAudioFile& m_file;
    bool m_forward;
    std::vector<float> m_block;
    std::vector<double> m_mix;
    int64_t m_start = 0;
    int64_t m_scanned = 0;
};

} // namespace

LXResult<int64_t> LXAudioFile::startAtThreshold(float level) {
    const int channels = numberOfChannels();
    std::vector<float> block(size_t(kBlockFrames * channels));
    for (int64_t start = 0; start < frames(); start += kBlockFrames) {
        const auto got = readFrames(start, std::min(kBlockFrames, frames() - start), block.data());
        if (!got) return got.error();
        if (const int64_t f = LXFirstFrameReaching(block.data(), *got, channels, level); f >= 0) return start + f;
        LX_TRY(ask(*this, start + *got, frames()));
    }
    return frames();
}

LXResult<int64_t> LXAudioFile::endAtThreshold(float level) {
    const int channels = numberOfChannels();
    std::vector<float> block(size_t(kBlockFrames * channels));
    for (int64_t end = frames(); end > 0; end -= kBlockFrames) {
        const int64_t start = std::max<int64_t>(end - kBlockFrames, 0);
        const auto got = readFrames(start, end - start, block.data());
        if (!got) return got.error();
        if (const int64_t f = LXLastFrameReaching(block.data(), *got, channels, level); f >= 0)
            return start + f + 1;
        LX_TRY(ask(*this, frames() - start, frames()));
    }
    return int64_t(0);
}

LXResult<double> LXAudioFile::firstPositionOverThreshold(float level) {
    const auto frame = startAtThreshold(level);
    if (!frame) return frame.error();
    return double(*frame) / rate();
}

LXResult<double> LXAudioFile::lastPositionOverThreshold(float level) {
    const auto frame = endAtThreshold(level);
    if (!frame) return frame.error();
    return double(*frame) / rate();
}

// Walks from a frame towards one end; each step reads one new frame of the mix.
LXResult<int64_t> LXAudioFile::previousZeroCross(int64_t frame) {
    int64_t b = std::clamp<int64_t>(frame, 0, frames());
    if (b == 0 || b == frames()) return b;
    MixCursor mix(*this, false);
    auto after = mix.at(b);
    if (!after) return after.error();
    for (; b > 0; --b) {
        const auto before = mix.at(b - 1);
        if (!before) return before.error();
        if (*before * *after <= 0) return b;
        after = before;
    }
    return int64_t(0);
}

LXResult<int64_t> LXAudioFile::nextZeroCross(int64_t frame) {
    int64_t b = std::clamp<int64_t>(frame, 0, frames());
    if (b == 0 || b == frames()) return b;
    MixCursor mix(*this, true);
    auto before = mix.at(b - 1);
    if (!before) return before.error();
    for (; b < frames(); ++b) {
        const auto after = mix.at(b);
        if (!after) return after.error();
        if (*before * *after <= 0) return b;
        before = after;
    }
    return frames();
}

LXResult<double> LXAudioFile::positionOfZeroCrossingBefore(double seconds) {
    const auto frame = previousZeroCross(LXFramesFromSeconds(std::max(seconds, 0.0), rate()));
    if (!frame) return frame.error();
    return double(*frame) / rate();
}

LXResult<double> LXAudioFile::positionOfZeroCrossingAfter(double seconds) {
    // Outward means not before the position: a position between two frames starts the search at the later.
    int64_t from = LXFramesFromSeconds(std::max(seconds, 0.0), rate());
    if (seconds * rate() - double(from) > 1e-6) ++from;
    const auto frame = nextZeroCross(from);
    if (!frame) return frame.error();
    return double(*frame) / rate();
}

LXResult<int64_t> LXAudioFile::nearestZeroCross(int64_t frame) {
    frame = std::clamp<int64_t>(frame, 0, frames());
    const auto before = previousZeroCross(frame);
    if (!before) return before.error();
    if (*before == frame) return frame;
    const auto after = nextZeroCross(frame);
    if (!after) return after.error();
    return frame - *before <= *after - frame ? *before : *after;
}

LXResult<double> LXAudioFile::positionOfZeroCrossingNearestTo(double seconds) {
    const auto frame = nearestZeroCross(LXFramesFromSeconds(std::max(seconds, 0.0), rate()));
    if (!frame) return frame.error();
    return double(*frame) / rate();
}

// One pass from the start: while no region is open, look for the first frame that reaches the attack
// level; while one is, follow the last frame that reaches the release level and close the region once the
// frames since then have lasted the interval.
LXResult<QList<LXRange>> LXAudioFile::thresholdArray(float attack, float release, double interval,
                                                     bool zeroCross) {
    const int channels = numberOfChannels();
    const double holdFrames = interval > 0 ? interval * rate() : 0.0; // NaN too
    // At least one frame below the release level; an interval longer than the file never closes a region.
    const int64_t hold = std::max<int64_t>(
        holdFrames > double(frames()) ? frames() + 1 : LXFramesFromSeconds(holdFrames, 1.0), 1);
    std::vector<std::pair<int64_t, int64_t>> regions;
    bool open = false;
    int64_t start = 0, lastReach = 0;
    std::vector<float> block(size_t(kBlockFrames * channels));
    for (int64_t at = 0; at < frames(); at += kBlockFrames) {
        const auto got = readFrames(at, std::min(kBlockFrames, frames() - at), block.data());
        if (!got) return got.error();
        for (int64_t f = 0; f < *got; ++f) {
            const float* frame = block.data() + f * channels;
            if (open) {
                if (LXFrameReaches(frame, channels, release))
                    lastReach = at + f;
                else if (at + f - lastReach >= hold) {
                    regions.emplace_back(start, lastReach + 1);
                    open = false;
                }
            }
            if (!open) {
                const int64_t next = LXFirstFrameReaching(frame, *got - f, channels, attack);
                if (next < 0) break;
                f += next;
                open = true;
                start = lastReach = at + f;
            }
        }
        LX_TRY(ask(*this, at + *got, frames()));
    }
    if (open) regions.emplace_back(start, lastReach + 1);

    // Outward to the crossings, each edge kept clear of its neighbour's audio.
    if (zeroCross) {
        for (size_t i = 0; i < regions.size(); ++i) {
            const auto before = previousZeroCross(regions[i].first);
            if (!before) return before.error();
            const auto after = nextZeroCross(regions[i].second);
            if (!after) return after.error();
            regions[i].first = std::max(*before, i > 0 ? regions[i - 1].second : int64_t(0));
            regions[i].second = std::min(*after, i + 1 < regions.size() ? regions[i + 1].first : frames());
        }
    }
    QList<LXRange> ranges;
    for (const auto& [from, to] : regions)
        ranges.append(LXRange::fromFrames(from, to, rate()));
    return ranges;
}
