#pragma once

#include "lx/LXProcess.h"

#include <QString>

#include <memory>
#include <vector>

struct AVAudioFifo;
struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;

// AAC-LC in an MPEG-4 audio file (.m4a), through FFmpeg's native encoder and its MP4 muxer. The encoder
// takes frames of exactly 1024 samples (a shorter one only at the end), so the blocks pass through a
// sample queue. The encoder's priming samples are hidden by the file's edit list: decoded, the file has
// the source's length.
class LXAacEncoder final : public LXEncoder {
public:
    // An encoder writing to path (replaced). bitRate is in bit/s, as the encoder takes it. A rate below what
    // the encoder can reach (128: a rate in kbit/s given as bit/s) is not refused: it makes its smallest
    // frames, about 15 kbit/s a channel (measured: 15 kbit/s for mono pink noise at 44.1 kHz, 21 to 28
    // kbit/s for stereo), and a rate above 6144 bits a frame a channel is lowered to that. Fails, naming
    // source, when the encoder refuses the rate or the channel count (it takes 1 to 8 channels at the
    // MPEG-4 rates from 7350 to 96000 Hz) or the file cannot be written.
    static LXResult<std::unique_ptr<LXAacEncoder>> create(const QString& path, int channels, double rate,
                                                          int64_t bitRate, const QString& source);
    ~LXAacEncoder() override;
    LXAacEncoder(const LXAacEncoder&) = delete;
    LXAacEncoder& operator=(const LXAacEncoder&) = delete;

    LXStatus encode(const float* interleaved, int64_t frames) override;
    LXStatus finish() override;

private:
    LXAacEncoder(QString path, QString source, int channels) : m_path(std::move(path)), m_source(std::move(source)), m_channels(channels) {}
    LXStatus open(double rate, int64_t bitRate);
    // Sends queued samples in frames of the encoder's size (the rest too when last) and writes the packets.
    LXStatus drainQueue(bool last);
    LXStatus send(const AVFrame* frame);
    LXError failure(const QString& what, int code) const;

    QString m_path;
    QString m_source;
    int m_channels = 0;
    AVFormatContext* m_format = nullptr;
    AVCodecContext* m_codec = nullptr;
    AVAudioFifo* m_queue = nullptr;
    AVFrame* m_frame = nullptr;
    AVPacket* m_packet = nullptr;
    int m_streamIndex = 0;
    int64_t m_pts = 0;
    std::vector<float> m_planar; // one block, channel after channel
};
