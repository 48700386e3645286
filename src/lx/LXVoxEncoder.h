#pragma once

#include "lx/LXFileDescriptor.h"
#include "lx/LXProcess.h"
#include "lx/dsp/LXResampler.h"

#include <QString>

#include <memory>
#include <vector>

// Telephony audio (VOX): the channels mixed to one as their average (lx/dsp/LXMuLaw.h), resampled to
// 8000 Hz, and stored as G.711 mu-law bytes, raw or after a 58-byte RIFF/WAVE header (format tag 7, a
// fact chunk) whose sizes are written when the data is complete.
class LXVoxEncoder final : public LXEncoder {
public:
    enum class Header { None, Wave };

    // An encoder writing to path (replaced); errors name source.
    static LXResult<std::unique_ptr<LXVoxEncoder>> create(const QString& path, int channels, double rate,
                                                          Header header, const QString& source);

    LXStatus encode(const float* interleaved, int64_t frames) override;
    LXStatus finish() override;

private:
    LXVoxEncoder(QString path, QString source, int channels, Header header);
    LXStatus write(const float* mono, int64_t frames);
    LXError writeFailure() const;

    QString m_path;
    QString m_source;
    int m_channels;
    Header m_header;
    LXFileDescriptor m_file;
    LXResampler m_resampler;
    std::vector<float> m_mono;
    std::vector<uint8_t> m_bytes;
    int64_t m_written = 0; // mu-law bytes, one a frame
};
