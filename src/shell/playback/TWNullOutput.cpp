#include "shell/playback/TWNullOutput.h"

#include "lx/playback/LXAudioFileLayer.h"
#include "lx/playback/LXPlaybackStream.h"

#include <algorithm>

LXStatus TWNullOutput::open(LXPlaybackStream& stream) {
    m_stream = &stream;
    m_block.assign(size_t(m_blockFrames) * LXAudioFileLayer::kOutputChannels, 0.0f);
    stream.prepareOutput(m_rate, m_blockFrames);
    return {};
}

LXStatus TWNullOutput::start() {
    if (!m_stream) return LXError(LXErrInvalidParameter, QStringLiteral("The output was started before it was opened."));
    m_started = true;
    return {};
}

void TWNullOutput::renderFrames(int64_t frames) {
    if (!m_started) return;
    for (int64_t done = 0; done < frames;) {
        const int block = int(std::min<int64_t>(frames - done, m_blockFrames));
        m_stream->waitForBuffers();
        m_stream->render(m_block.data(), block);
        m_rendered.insert(m_rendered.end(), m_block.begin(), m_block.begin() + block * LXAudioFileLayer::kOutputChannels);
        done += block;
    }
}
