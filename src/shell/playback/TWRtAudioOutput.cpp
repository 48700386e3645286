#include "shell/playback/TWRtAudioOutput.h"

#include "lx/playback/LXAudioFileLayer.h"
#include "lx/playback/LXPlaybackStream.h"

#include <RtAudio.h>

namespace {

LXError deviceError(const QString& what, const std::string& why) {
    return LXError(LXErrAudioDevice, QStringLiteral("%1: %2").arg(what, QString::fromStdString(why)));
}

} // namespace

TWRtAudioOutput::TWRtAudioOutput() = default;

TWRtAudioOutput::~TWRtAudioOutput() {
    stop();
    if (m_audio && m_audio->isStreamOpen()) m_audio->closeStream();
}

LXStatus TWRtAudioOutput::open(LXPlaybackStream& stream) {
    try {
        m_audio = std::make_unique<RtAudio>();
        m_audio->showWarnings(false);
        if (m_audio->getDeviceCount() == 0)
            return LXError(LXErrAudioDevice, QStringLiteral("No audio output device was found."));
        RtAudio::StreamParameters parameters;
        parameters.deviceId = m_audio->getDefaultOutputDevice();
        parameters.nChannels = LXAudioFileLayer::kOutputChannels;
        const RtAudio::DeviceInfo info = m_audio->getDeviceInfo(parameters.deviceId);
        m_rate = info.preferredSampleRate > 0 ? info.preferredSampleRate : 44100;
        unsigned int blockFrames = 512;
        m_stream = &stream;
        m_audio->openStream(&parameters, nullptr, RTAUDIO_FLOAT32, unsigned(m_rate), &blockFrames,
                            &TWRtAudioOutput::callback, this);
        // The device may have picked another block size; pieces larger than it are rendered in turn.
        stream.prepareOutput(m_rate, int(blockFrames));
    } catch (const RtAudioError& error) {
        return deviceError(QStringLiteral("The audio output could not be opened"), error.getMessage());
    }
    return {};
}

LXStatus TWRtAudioOutput::start() {
    if (!m_audio || !m_audio->isStreamOpen())
        return LXError(LXErrAudioDevice, QStringLiteral("The audio output was started before it was opened."));
    try {
        if (!m_audio->isStreamRunning()) m_audio->startStream();
    } catch (const RtAudioError& error) {
        return deviceError(QStringLiteral("The audio output could not be started"), error.getMessage());
    }
    return {};
}

// Aborted rather than stopped: nothing queued needs to be heard when the output goes, and RtAudio 5's
// JACK stopStream waits for the drain on a condition with a mutex it never locked, a wait that can miss
// its wake-up and never return (ThreadSanitizer reports the unlock of an unlocked mutex).
void TWRtAudioOutput::stop() {
    try {
        if (m_audio && m_audio->isStreamRunning()) m_audio->abortStream();
    } catch (const RtAudioError&) {
        // Stopping a device that went away leaves nothing to undo.
    }
}

int TWRtAudioOutput::callback(void* output, void*, unsigned int frames, double, unsigned int status, void* user) {
    auto* self = static_cast<TWRtAudioOutput*>(user);
    if (status & RTAUDIO_OUTPUT_UNDERFLOW) self->m_underflows.fetch_add(1, std::memory_order_relaxed);
    self->m_stream->render(static_cast<float*>(output), int(frames));
    return 0;
}
