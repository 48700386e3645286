#include "lx/playback/LXMasterLayer.h"

#include "lx/playback/LXAudioFileLayer.h"

#include <algorithm>
#include <cmath>

namespace {
constexpr int kChannels = LXAudioFileLayer::kOutputChannels;
}

void LXMasterLayer::prepareOutput(double rate, int maxBlock) {
    m_rate = rate;
    m_maxBlock = maxBlock;
    m_scratch.assign(size_t(maxBlock) * kChannels, 0.0f);
    for (LXAudioFileLayer* layer : m_layers)
        layer->prepareOutput(rate, maxBlock);
}

void LXMasterLayer::beginPlayback() {
    m_toDrop = int64_t(std::llround(m_compensation * m_rate));
    for (LXAudioFileLayer* layer : m_layers)
        layer->beginPlayback();
}

bool LXMasterLayer::render(float* out, int frames) {
    // The compensation: the layers run ahead by the chains' delay, and what they give meanwhile is
    // dropped. Dropped in the first callback, a few hundred frames at most for real chains.
    while (m_toDrop > 0) {
        const int piece = int(std::min<int64_t>(m_toDrop, m_maxBlock));
        m_toDrop -= piece;
        if (renderPiece(out, piece)) {
            m_toDrop = 0;
            std::fill(out, out + size_t(frames) * kChannels, 0.0f);
            return true;
        }
    }
    bool finished = true;
    for (int done = 0; done < frames;) {
        const int piece = std::min(frames - done, m_maxBlock);
        finished = renderPiece(out + size_t(done) * kChannels, piece);
        done += piece;
    }
    return finished;
}

bool LXMasterLayer::renderPiece(float* out, int frames) {
    const float volume = m_volume.load(std::memory_order_relaxed);
    const size_t samples = size_t(frames) * kChannels;
    std::fill(out, out + samples, 0.0f);
    bool finished = true;
    for (LXAudioFileLayer* layer : m_layers) {
        finished = layer->render(m_scratch.data(), frames) && finished;
        for (size_t i = 0; i < samples; ++i)
            out[i] += m_scratch[i] * volume;
    }
    return finished;
}
