#include "lx/LXDynamicsEntry.h"

void LXDynamicsEntry::setSettings(const LXDynamicsSettings& settings) {
    m_attack = settings.attack;
    m_release = settings.release;
    m_threshold = settings.threshold;
    m_headroom = settings.headroom;
    m_gain = settings.gain;
    m_expansionThreshold = settings.expansionThreshold;
    m_expansionRatio = settings.expansionRatio;
}

LXDynamicsSettings LXDynamicsEntry::settings() const {
    LXDynamicsSettings settings;
    settings.attack = m_attack;
    settings.release = m_release;
    settings.threshold = m_threshold;
    settings.headroom = m_headroom;
    settings.gain = m_gain;
    settings.expansionThreshold = m_expansionThreshold;
    settings.expansionRatio = m_expansionRatio;
    return settings;
}

LXStatus LXDynamicsEntry::prepare(double rate, int channels, int64_t) {
    if (!(rate > 0) || channels <= 0)
        return LXError(LXErrInvalidParameter,
                       QStringLiteral("the dynamics processor cannot take %1 channels at %2 Hz").arg(channels).arg(rate));
    m_processor.setSettings(settings());
    m_processor.prepare(rate, channels);
    return {};
}

template <typename T> void LXDynamicsEntry::run(T* interleaved, int64_t frames) {
    if (!isEnabled()) return;
    const LXDynamicsSettings now = settings();
    if (!(now == m_processor.settings())) m_processor.setSettings(now);
    m_processor.process(interleaved, frames);
}

void LXDynamicsEntry::process(float* interleaved, int64_t frames) {
    run(interleaved, frames);
}

void LXDynamicsEntry::process(double* interleaved, int64_t frames) {
    run(interleaved, frames);
}
