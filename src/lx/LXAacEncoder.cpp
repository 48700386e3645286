#include "lx/LXAacEncoder.h"

#include <QFile>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libavutil/error.h>
#include <libavutil/log.h>
}

#include <cmath>
#include <mutex>

namespace {

QString channelsAt(int channels, double rate) {
    return (channels == 1 ? QStringLiteral("1 channel") : QStringLiteral("%1 channels").arg(channels)) +
           QStringLiteral(" at %1 Hz").arg(rate);
}

QString describe(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return QString::fromUtf8(text);
}

} // namespace

LXResult<std::unique_ptr<LXAacEncoder>> LXAacEncoder::create(const QString& path, int channels, double rate,
                                                             int64_t bitRate, const QString& source) {
    // The library's own messages would reach the command line's terminal; its return codes say enough.
    static std::once_flag quiet;
    std::call_once(quiet, [] { av_log_set_level(AV_LOG_QUIET); });
    std::unique_ptr<LXAacEncoder> encoder(new LXAacEncoder(path, source, channels));
    LX_TRY(encoder->open(rate, bitRate));
    return encoder;
}

LXError LXAacEncoder::failure(const QString& what, int code) const {
    return LXError(LXErrWriteFailed, QStringLiteral("%1: %2").arg(what, describe(code)), m_source);
}

LXStatus LXAacEncoder::open(double rate, int64_t bitRate) {
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
    const int sampleRate = int(std::lround(rate));
    if (!codec) return LXError(LXErrUnsupported, QStringLiteral("no AAC encoder is installed"), m_source);
    if (sampleRate != rate || m_channels < 1)
        return LXError(LXErrUnsupported,
                       QStringLiteral("AAC cannot hold %1").arg(channelsAt(m_channels, rate)), m_source);
    // The MP4 muxer by name: the temporary file's name has no extension to choose it by.
    const QByteArray file = QFile::encodeName(m_path);
    int code = avformat_alloc_output_context2(&m_format, nullptr, "ipod", file.constData());
    if (code < 0) return failure(QStringLiteral("cannot start an M4A file"), code);
    AVStream* stream = avformat_new_stream(m_format, nullptr);
    m_codec = avcodec_alloc_context3(codec);
    m_frame = av_frame_alloc();
    m_packet = av_packet_alloc();
    if (!stream || !m_codec || !m_frame || !m_packet)
        return LXError(LXErrWriteFailed, QStringLiteral("out of memory for the AAC encoder"), m_source);
    m_streamIndex = stream->index;
    m_codec->sample_fmt = AV_SAMPLE_FMT_FLTP; // the only format the encoder takes
    m_codec->sample_rate = sampleRate;
    m_codec->bit_rate = bitRate;
    m_codec->time_base = AVRational{1, sampleRate};
    av_channel_layout_default(&m_codec->ch_layout, m_channels);
    if (m_format->oformat->flags & AVFMT_GLOBALHEADER) m_codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    code = avcodec_open2(m_codec, codec, nullptr);
    if (code < 0)
        return LXError(LXErrUnsupported,
                       QStringLiteral("the AAC encoder refuses %1 and %2 bit/s (%3)")
                           .arg(channelsAt(m_channels, sampleRate))
                           .arg(bitRate)
                           .arg(describe(code)),
                       m_source);
    stream->time_base = m_codec->time_base;
    code = avcodec_parameters_from_context(stream->codecpar, m_codec);
    if (code < 0) return failure(QStringLiteral("cannot describe the AAC stream"), code);
    code = avio_open(&m_format->pb, file.constData(), AVIO_FLAG_WRITE);
    if (code < 0) return failure(QStringLiteral("cannot write %1").arg(m_path), code);
    code = avformat_write_header(m_format, nullptr);
    if (code < 0) return failure(QStringLiteral("cannot write the M4A header"), code);
    m_queue = av_audio_fifo_alloc(AV_SAMPLE_FMT_FLTP, m_channels, m_codec->frame_size * 16);
    m_frame->format = AV_SAMPLE_FMT_FLTP;
    m_frame->sample_rate = sampleRate;
    code = av_channel_layout_copy(&m_frame->ch_layout, &m_codec->ch_layout);
    m_frame->nb_samples = m_codec->frame_size;
    if (code >= 0) code = av_frame_get_buffer(m_frame, 0);
    if (!m_queue || code < 0)
        return LXError(LXErrWriteFailed, QStringLiteral("out of memory for the AAC encoder"), m_source);
    return {};
}

LXAacEncoder::~LXAacEncoder() {
    av_audio_fifo_free(m_queue);
    av_frame_free(&m_frame);
    av_packet_free(&m_packet);
    avcodec_free_context(&m_codec);
    if (m_format) avio_closep(&m_format->pb);
    avformat_free_context(m_format);
}

LXStatus LXAacEncoder::encode(const float* interleaved, int64_t frames) {
    m_planar.resize(size_t(frames * m_channels));
    void* planes[AV_NUM_DATA_POINTERS] = {};
    for (int c = 0; c < m_channels; ++c) {
        float* plane = m_planar.data() + c * frames;
        for (int64_t i = 0; i < frames; ++i)
            plane[i] = interleaved[i * m_channels + c];
        planes[c] = plane;
    }
    if (av_audio_fifo_write(m_queue, planes, int(frames)) < frames)
        return LXError(LXErrWriteFailed, QStringLiteral("out of memory for the AAC encoder"), m_source);
    return drainQueue(false);
}

LXStatus LXAacEncoder::drainQueue(bool last) {
    const int size = m_codec->frame_size;
    while (av_audio_fifo_size(m_queue) >= size || (last && av_audio_fifo_size(m_queue) > 0)) {
        int code = av_frame_make_writable(m_frame);
        if (code < 0) return failure(QStringLiteral("cannot encode"), code);
        m_frame->nb_samples = av_audio_fifo_read(m_queue, reinterpret_cast<void**>(m_frame->data), size);
        m_frame->pts = m_pts;
        m_pts += m_frame->nb_samples;
        LX_TRY(send(m_frame));
    }
    return {};
}

LXStatus LXAacEncoder::send(const AVFrame* frame) {
    int code = avcodec_send_frame(m_codec, frame);
    if (code < 0) return failure(QStringLiteral("the AAC encoder failed"), code);
    for (;;) {
        code = avcodec_receive_packet(m_codec, m_packet);
        if (code == AVERROR(EAGAIN) || code == AVERROR_EOF) return {};
        if (code < 0) return failure(QStringLiteral("the AAC encoder failed"), code);
        m_packet->stream_index = m_streamIndex;
        av_packet_rescale_ts(m_packet, m_codec->time_base, m_format->streams[m_streamIndex]->time_base);
        code = av_interleaved_write_frame(m_format, m_packet); // takes the packet's data
        if (code < 0) return failure(QStringLiteral("cannot write %1").arg(m_path), code);
    }
}

LXStatus LXAacEncoder::finish() {
    LX_TRY(drainQueue(true));
    LX_TRY(send(nullptr)); // the encoder's delayed frames
    const int code = av_write_trailer(m_format);
    if (code < 0) return failure(QStringLiteral("cannot finish %1").arg(m_path), code);
    const int closed = avio_closep(&m_format->pb);
    if (closed < 0) return failure(QStringLiteral("cannot write %1").arg(m_path), closed);
    return {};
}
