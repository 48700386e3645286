#include "lx/playback/LXAudioFileLayer.h"

#include "lx/LXMetadata.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

// 8 blocks of 4096 frames: 0.74 s ahead at 44.1 kHz, which the reading thread (woken every few
// milliseconds) refills long before the callback drains it.
constexpr int kRingBlocks = 8;
constexpr int kBlockFrames = 4096;

// Catmull-Rom through four points at t in [0, 1); at t = 0 exactly `x0`, so a step of one gives the
// file's own samples.
inline float interpolate(float xm1, float x0, float x1, float x2, float t) {
    const float c1 = 0.5f * (x1 - xm1);
    const float c2 = xm1 - 2.5f * x0 + 2.0f * x1 - 0.5f * x2;
    const float c3 = 0.5f * (x2 - xm1) + 1.5f * (x0 - x1);
    return ((c3 * t + c2) * t + c1) * t + x0;
}

} // namespace

LXAudioFileLayer::~LXAudioFileLayer() = default;

void LXAudioFileLayer::setAudioFile(std::unique_ptr<LXAudioFile> file) {
    std::lock_guard lock(m_readMutex);
    m_reading = false;
    m_file = std::move(file);
    m_path = m_file ? m_file->path() : QString();
    m_rate = m_file ? m_file->rate() : 0.0;
    m_frames = m_file ? m_file->frames() : 0;
    m_channels = m_file ? m_file->numberOfChannels() : 0;
    const QVariant note = m_file ? m_file->metadata().value(QStringLiteral("baseNote")) : QVariant();
    m_baseNote = note.isValid() ? note.toInt() : 60;
    m_ring.reset(m_file ? kRingBlocks : 0, kBlockFrames, std::max(m_channels, 1));
    m_rangeStart = m_repeatStart = m_repeatEnd = 0;
    m_rangeEnd = m_frames;
    updateStep();
}

void LXAudioFileLayer::preparePlaybackRange(const LXRange& range) {
    std::lock_guard lock(m_readMutex);
    m_rangeStart = std::clamp<int64_t>(LXFramesFromSeconds(range.start(), m_rate), 0, m_frames);
    m_rangeEnd = std::clamp<int64_t>(LXFramesFromSeconds(range.end(), m_rate), m_rangeStart, m_frames);
}

void LXAudioFileLayer::setRepeatRange(const LXRange& range) {
    std::lock_guard lock(m_readMutex);
    m_repeatStart = std::clamp<int64_t>(LXFramesFromSeconds(range.start(), m_rate), 0, m_frames);
    m_repeatEnd = std::clamp<int64_t>(LXFramesFromSeconds(range.end(), m_rate), m_repeatStart, m_frames);
}

// The chain --------------------------------------------------------------------------------------------------

void LXAudioFileLayer::addAudioUnitEntry(std::shared_ptr<LXEffectEntry> entry, int index) {
    if (!entry) return;
    if (m_outputRate > 0) prepareEntry(*entry, m_outputRate, m_maxBlock);
    m_entries.insert(m_entries.begin() + std::clamp<qsizetype>(index, 0, qsizetype(m_entries.size())), std::move(entry));
    prepareOutput(m_outputRate, m_maxBlock);
}

// The callback may be walking the published chain: an entry that the layer alone held is released only
// once a chain without it has replaced that one.
void LXAudioFileLayer::deleteAudioUnit(const LXEffectEntry* entry) {
    const auto removed = std::stable_partition(m_entries.begin(), m_entries.end(),
                                               [entry](const auto& held) { return held.get() != entry; });
    if (removed == m_entries.end()) return;
    const std::vector<std::shared_ptr<LXEffectEntry>> kept(removed, m_entries.end());
    m_entries.erase(removed, m_entries.end());
    prepareOutput(m_outputRate, m_maxBlock);
}

double LXAudioFileLayer::latency() const {
    return m_outputRate > 0 ? m_chainLatency.load() / m_outputRate : 0.0;
}

// An effect that cannot take the layer's format is bypassed rather than heard wrong.
void LXAudioFileLayer::prepareEntry(LXEffectEntry& entry, double rate, int maxBlock) {
    if (!entry.prepare(rate, kOutputChannels, maxBlock)) entry.setEnabled(false);
}

// Publishes the chain as it stands (every entry prepared for the format) and lets go of the old array
// once no callback can still be walking it.
void LXAudioFileLayer::prepareOutput(double rate, int maxBlock) {
    const bool formatChanged = rate != m_outputRate || maxBlock != m_maxBlock;
    m_outputRate = rate;
    m_maxBlock = maxBlock;
    auto chain = std::make_unique<std::vector<LXEffectEntry*>>();
    int64_t latency = 0;
    for (const auto& entry : m_entries) {
        if (formatChanged && rate > 0) prepareEntry(*entry, rate, maxBlock);
        chain->push_back(entry.get());
        latency += entry->latency();
    }
    m_chainLatency.store(latency);
    m_chain.store(chain.get());
    m_gate.waitIdle();
    m_chainStorage = std::move(chain);
    updateStep();
}

// Playback set-up ------------------------------------------------------------------------------------------

void LXAudioFileLayer::setSpeed(double factor) {
    m_speed = factor;
    updateStep();
}

void LXAudioFileLayer::updateStep() {
    if (m_rate > 0 && m_outputRate > 0) m_step.store(m_rate / m_outputRate * m_speed);
}

void LXAudioFileLayer::beginPlayback() {
    std::lock_guard lock(m_readMutex);
    m_ring.clear();
    m_next = m_rangeStart;
    m_segmentEnd = m_rangeEnd;
    m_reading = m_file != nullptr;
    m_block = nullptr;
    m_offset = 0;
    m_primed = m_sawEnd = false;
    m_fraction = 0.0;
    m_lastIndex = m_playStart = m_rangeStart;
    m_position.store(m_rangeStart);
    for (const auto& entry : m_entries)
        entry->reset();
}

void LXAudioFileLayer::stopReading() {
    std::lock_guard lock(m_readMutex);
    m_reading = false;
}

// Reading thread -------------------------------------------------------------------------------------------

void LXAudioFileLayer::fill() {
    std::lock_guard lock(m_readMutex);
    while (m_reading) {
        LXPlaybackRing::Block* block = m_ring.writable();
        if (!block) return;
        if (m_next >= m_segmentEnd && m_repeatEnd > m_repeatStart) {
            m_next = m_repeatStart;
            m_segmentEnd = m_repeatEnd;
        }
        const int64_t count = std::min<int64_t>(m_ring.blockFrames(), m_segmentEnd - m_next);
        // A read error ends the playback where it happened, as the end of the range would.
        const auto read = count > 0 ? m_file->readFrames(m_next, count, block->samples.data()) : LXResult<int64_t>(0);
        block->start = m_next;
        block->end = count <= 0 || !read;
        block->frames = block->end ? 0 : int(count);
        m_ring.publish();
        if (block->end) m_reading = false;
        m_next += count;
    }
}

bool LXAudioFileLayer::isBuffered() const {
    std::lock_guard lock(m_readMutex);
    return !m_reading || m_ring.isFull();
}

// Audio callback ---------------------------------------------------------------------------------------------

LXAudioFileLayer::Pull LXAudioFileLayer::pull(float* frame, int64_t& index) {
    if (!m_block) {
        m_block = m_ring.readable();
        m_offset = 0;
        if (!m_block) return Pull::Underrun;
    }
    if (m_block->end) return Pull::End; // kept: every later pull ends too
    const float* sample = m_block->samples.data() + size_t(m_offset) * size_t(m_channels);
    frame[0] = sample[0];
    frame[1] = m_channels > 1 ? sample[1] : sample[0];
    index = m_block->start + m_offset;
    if (++m_offset == m_block->frames) {
        m_ring.release();
        m_block = nullptr;
    }
    return Pull::Frame;
}

bool LXAudioFileLayer::render(float* out, int frames) {
    m_gate.enter();
    const double step = m_step.load(std::memory_order_relaxed);
    int done = 0;
    bool finished = false;
    // Each output frame first moves the history up to the step's integer position, pulling file frames;
    // an underrun leaves the history as it is, so the next callback goes on from the same place.
    while (done < frames) {
        if (!m_primed) {
            // Silence before the range, and three pulls to come: h[1] becomes the range's first frame.
            std::memset(m_history, 0, sizeof m_history);
            std::fill(std::begin(m_index), std::end(m_index), -1);
            m_fraction = 3.0;
            m_primed = true;
        }
        bool stalled = false;
        while (m_fraction >= 1.0) {
            float frame[2] = {0.0f, 0.0f};
            int64_t index = -1;
            const Pull pulled = m_sawEnd ? Pull::End : pull(frame, index);
            if (pulled == Pull::Underrun) {
                stalled = true;
                break;
            }
            if (pulled == Pull::End) m_sawEnd = true;
            std::memmove(m_history[0], m_history[1], sizeof m_history - sizeof m_history[0]);
            std::memmove(m_index, m_index + 1, 3 * sizeof(int64_t));
            m_history[3][0] = frame[0], m_history[3][1] = frame[1];
            m_index[3] = index;
            m_fraction -= 1.0;
        }
        if (stalled) {
            m_underruns.fetch_add(1, std::memory_order_relaxed);
            break;
        }
        if (m_index[1] < 0) {
            finished = true;
            break;
        }
        const float t = float(m_fraction);
        for (int c = 0; c < kOutputChannels; ++c)
            out[done * kOutputChannels + c] =
                interpolate(m_history[0][c], m_history[1][c], m_history[2][c], m_history[3][c], t);
        m_lastIndex = m_index[1] + 1;
        m_fraction += step;
        ++done;
    }
    std::fill(out + done * kOutputChannels, out + frames * kOutputChannels, 0.0f);
    if (done > 0) {
        if (auto* chain = m_chain.load())
            for (LXEffectEntry* entry : *chain)
                entry->process(out, done);
    }
    // What is heard lags what was read by the chain's delay, in file frames.
    const int64_t lag = int64_t(std::llround(m_chainLatency.load(std::memory_order_relaxed) * step));
    m_position.store(std::max(m_lastIndex - lag, std::min(m_playStart, m_lastIndex)), std::memory_order_relaxed);
    m_gate.leave();
    return finished;
}
