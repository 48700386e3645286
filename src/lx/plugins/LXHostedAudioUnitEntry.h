#pragma once

#include "lx/LXEffectEntry.h"

#include <QString>
#include <QVariantMap>

#include <optional>
#include <vector>

#include <sys/types.h>

// An LV2 effect run in a host process of its own (clipwright-plugin-host), so that a plug-in that
// crashes or hangs ends the file it was rendering, with an error that says so, and not the program and
// the batch with it. The blocks travel over a socket; the host runs an LXAudioUnitEntry on them.
//
// For renders, not for live playback: process() waits for the host, up to responseTimeout(). Once the
// host has failed, the entry gives silence and failure() says why; prepare() starts a new host.
//
// The host program is CLIPWRIGHT_PLUGIN_HOST when that is set, else clipwright-plugin-host beside the
// running program, else the one on PATH.
class LXHostedAudioUnitEntry final : public LXEffectEntry {
public:
    // settings: as LXAudioUnitEntry::state() gives them ("Component" names the plug-in).
    explicit LXHostedAudioUnitEntry(QVariantMap settings);
    ~LXHostedAudioUnitEntry() override;

    QString displayName() const;
    // How long a block may take before the host is taken to hang: 10 s, or CLIPWRIGHT_PLUGIN_TIMEOUT
    // seconds.
    static int responseTimeoutMs();

    // LXEffectEntry
    LXStatus prepare(double rate, int channels, int64_t maxBlockFrames) override;
    void process(float* interleaved, int64_t frames) override;
    void process(double* interleaved, int64_t frames) override;
    void reset() override;
    int64_t latency() const override { return m_latency; }
    std::optional<LXError> failure() const override { return m_failure; }

private:
    LXStatus start();
    void stop(); // kills the host, if any, and reaps it
    // Sends a request and waits for its reply; on any failure of the host, records why and stops it.
    bool exchange(uint32_t code, const char* data, uint64_t size, QByteArray& reply, int timeoutMs);
    LXError hostFailure(const QString& what);

    QVariantMap m_settings;
    int m_socket = -1;
    pid_t m_host = -1;
    int m_channels = 0;
    int64_t m_latency = 0;
    std::optional<LXError> m_failure;
    std::vector<float> m_narrow; // the double-precision path's float copy
};
