#include "lx/playback/LXPlaybackStream.h"

#include "lx/playback/LXAudioFileLayer.h"
#include "lx/playback/LXMasterLayer.h"

#include <algorithm>
#include <chrono>
#include <cmath>

using namespace std::chrono_literals;

namespace {
// The thread looks at the rings this often: a ring holds 0.74 s, so a refill is never late.
constexpr auto kServicePeriod = 5ms;
constexpr auto kPositionPeriod = 40ms;
} // namespace

LXPlaybackStream::LXPlaybackStream(LXPlaybackDelegate* delegate) : m_delegate(delegate) {
    m_thread = std::thread([this] { run(); });
}

LXPlaybackStream::~LXPlaybackStream() {
    stopPlayback();
    {
        std::lock_guard lock(m_threadMutex);
        m_quit = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

void LXPlaybackStream::construct(LXMasterLayer& master) {
    std::lock_guard lock(m_control);
    stopPlayback();
    m_master = &master;
    if (m_rate > 0) m_master->prepareOutput(m_rate, m_maxBlock);
}

void LXPlaybackStream::prepareOutput(double rate, int maxBlock) {
    std::lock_guard lock(m_control);
    stopPlayback();
    m_rate = rate;
    m_maxBlock = maxBlock;
    if (m_master) m_master->prepareOutput(rate, maxBlock);
    updateSpeed();
}

// Playback ---------------------------------------------------------------------------------------------------

void LXPlaybackStream::startPlayback() {
    std::lock_guard lock(m_control);
    if (!m_master || m_rate <= 0) return;
    m_active.store(false);
    m_gate.waitIdle();
    const bool wasPlaying = m_playing.load();
    m_master->beginPlayback();
    // The first blocks are read here, so the first callback has frames to play.
    for (LXAudioFileLayer* layer : m_master->layers())
        layer->fill();
    m_ended.store(false);
    m_playing.store(true);
    m_active.store(true);
    if (!wasPlaying && m_delegate) m_delegate->playbackDidStart();
    kick();
}

void LXPlaybackStream::stopPlayback() {
    std::lock_guard lock(m_control);
    if (!m_playing.load()) return;
    m_active.store(false);
    m_gate.waitIdle();
    m_ended.store(false);
    finish();
}

// The position is read before the stop is published: once isPlaying() says false, the layers are the
// control side's to change.
void LXPlaybackStream::finish() {
    for (LXAudioFileLayer* layer : m_master->layers())
        layer->stopReading();
    const double seconds = position();
    m_playing.store(false);
    if (!m_delegate) return;
    m_delegate->playback(seconds);
    m_delegate->playbackDidStop();
}

double LXPlaybackStream::position() const {
    if (!m_master || m_master->layers().empty()) return 0.0;
    const LXAudioFileLayer* layer = m_master->layers().front();
    return layer->fileRate() > 0 ? double(layer->position()) / layer->fileRate() : 0.0;
}

int64_t LXPlaybackStream::underruns() const {
    std::lock_guard lock(m_control);
    int64_t count = 0;
    if (m_master)
        for (const LXAudioFileLayer* layer : m_master->layers())
            count += layer->underruns();
    return count;
}

// Parameters -----------------------------------------------------------------------------------------------

void LXPlaybackStream::setVolume(float volume) {
    std::lock_guard lock(m_control);
    if (m_master) m_master->setVolume(volume);
}

float LXPlaybackStream::volume() const {
    return m_master ? m_master->volume() : 1.0f;
}

void LXPlaybackStream::setVarispeed(double cents) {
    std::lock_guard lock(m_control);
    m_varispeed = cents;
    updateSpeed();
}

void LXPlaybackStream::setMidiBaseNote(int note) {
    std::lock_guard lock(m_control);
    m_baseNote = note;
    updateSpeed();
}

void LXPlaybackStream::setMidiPlaybackNote(int note) {
    std::lock_guard lock(m_control);
    m_midiNote = note;
    updateSpeed();
}

void LXPlaybackStream::updateSpeed() {
    double cents = m_varispeed;
    if (m_midiNote != kNoMidiNote) cents += 100.0 * (m_midiNote - m_baseNote);
    if (m_master)
        for (LXAudioFileLayer* layer : m_master->layers())
            layer->setSpeed(std::exp2(cents / 1200.0));
}

void LXPlaybackStream::setPlaybackRepeatRange(const LXRange& range, int) {
    std::lock_guard lock(m_control);
    if (m_master)
        for (LXAudioFileLayer* layer : m_master->layers())
            layer->setRepeatRange(range);
}

// Audio callback -------------------------------------------------------------------------------------------

void LXPlaybackStream::render(float* out, int frames) {
    m_gate.enter();
    if (!m_active.load()) {
        std::fill(out, out + size_t(frames) * LXAudioFileLayer::kOutputChannels, 0.0f);
    } else if (m_master->render(out, frames)) {
        m_active.store(false);
        m_ended.store(true);
    }
    m_gate.leave();
}

// The stream's thread ----------------------------------------------------------------------------------------

void LXPlaybackStream::kick() {
    {
        std::lock_guard lock(m_threadMutex);
        m_kicked = true;
    }
    m_wake.notify_all();
}

void LXPlaybackStream::waitForBuffers() {
    std::vector<LXAudioFileLayer*> layers;
    {
        std::lock_guard lock(m_control);
        if (m_master) layers = m_master->layers();
    }
    kick();
    std::unique_lock lock(m_threadMutex);
    m_filled.wait_for(lock, 1s, [&] {
        return std::all_of(layers.begin(), layers.end(), [](const LXAudioFileLayer* layer) { return layer->isBuffered(); });
    });
}

void LXPlaybackStream::run() {
    auto lastReport = std::chrono::steady_clock::now();
    double lastPosition = -1.0;
    for (;;) {
        {
            std::unique_lock lock(m_threadMutex);
            m_wake.wait_for(lock, kServicePeriod, [this] { return m_quit || m_kicked; });
            if (m_quit) return;
            m_kicked = false;
        }
        std::lock_guard control(m_control);
        if (!m_playing.load() || !m_master) continue;
        for (LXAudioFileLayer* layer : m_master->layers())
            layer->fill();
        {
            std::lock_guard lock(m_threadMutex); // so that a waiter between its test and its wait hears this
        }
        m_filled.notify_all();
        if (m_ended.exchange(false)) {
            finish();
            continue;
        }
        const auto now = std::chrono::steady_clock::now();
        if (const double seconds = position(); m_delegate && seconds != lastPosition && now - lastReport >= kPositionPeriod) {
            m_delegate->playback(seconds);
            lastPosition = seconds;
            lastReport = now;
        }
    }
}
