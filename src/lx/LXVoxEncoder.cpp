#include "lx/LXVoxEncoder.h"

#include "lx/dsp/LXMuLaw.h"

#include <QFile>

#include <algorithm>
#include <array>
#include <fcntl.h>

namespace {

constexpr double kRate = 8000;
constexpr int kHeaderSize = 58;
// Offsets of the sizes written at the end: the RIFF size, the fact chunk's sample count, the data size.
constexpr int kRiffSizeAt = 4, kFactCountAt = 46, kDataSizeAt = 54;

void put16(uint8_t* at, uint16_t value) {
    at[0] = uint8_t(value);
    at[1] = uint8_t(value >> 8);
}
void put32(uint8_t* at, uint32_t value) {
    put16(at, uint16_t(value));
    put16(at + 2, uint16_t(value >> 16));
}

// The header with its sizes 0: fmt  (18 bytes: tag 7, mono, 8000 Hz, 8000 bytes/s, block 1, 8 bits, no
// extra), fact, then data.
std::array<uint8_t, kHeaderSize> emptyHeader() {
    std::array<uint8_t, kHeaderSize> h{};
    const auto tag = [&h](int at, const char* id) { std::copy_n(id, 4, h.begin() + at); };
    tag(0, "RIFF");
    tag(8, "WAVE");
    tag(12, "fmt ");
    put32(&h[16], 18);
    put16(&h[20], 7);
    put16(&h[22], 1);
    put32(&h[24], uint32_t(kRate));
    put32(&h[28], uint32_t(kRate));
    put16(&h[32], 1);
    put16(&h[34], 8);
    put16(&h[36], 0);
    tag(38, "fact");
    put32(&h[42], 4);
    tag(50, "data");
    return h;
}

} // namespace

LXVoxEncoder::LXVoxEncoder(QString path, QString source, int channels, Header header)
    : m_path(std::move(path)), m_source(std::move(source)), m_channels(channels), m_header(header),
      m_resampler(kRate, LXResampler::Quality::High, LXResampler::Filter::Linear) {}

LXError LXVoxEncoder::writeFailure() const {
    return LXFileError::fromErrno(QStringLiteral("cannot write %1").arg(m_path), m_source);
}

LXResult<std::unique_ptr<LXVoxEncoder>> LXVoxEncoder::create(const QString& path, int channels, double rate,
                                                             Header header, const QString& source) {
    std::unique_ptr<LXVoxEncoder> encoder(new LXVoxEncoder(path, source, channels, header));
    LX_TRY(encoder->m_resampler.prepare(1, rate, false));
    encoder->m_file = LXFileDescriptor(::open(QFile::encodeName(path).constData(), O_WRONLY | O_TRUNC | O_CLOEXEC));
    if (!encoder->m_file.isOpen()) return encoder->writeFailure();
    if (header == Header::Wave) {
        const auto bytes = emptyHeader();
        if (!LXWriteFully(encoder->m_file.get(), bytes.data(), kHeaderSize, 0)) return encoder->writeFailure();
    }
    return encoder;
}

LXStatus LXVoxEncoder::encode(const float* interleaved, int64_t frames) {
    m_mono.resize(size_t(frames));
    LXMixToMono(interleaved, m_channels, m_mono.data(), frames);
    return write(m_mono.data(), frames);
}

LXStatus LXVoxEncoder::write(const float* mono, int64_t frames) {
    const float* resampled = nullptr;
    const auto made = m_resampler.process(mono, frames, &resampled);
    if (!made) return made.error();
    m_bytes.resize(size_t(*made));
    LXMuLawEncode(resampled, m_bytes.data(), *made);
    const int64_t offset = (m_header == Header::Wave ? kHeaderSize : 0) + m_written;
    if (!LXWriteFully(m_file.get(), m_bytes.data(), *made, offset)) return writeFailure();
    m_written += *made;
    return {};
}

LXStatus LXVoxEncoder::finish() {
    // The filter's tail: the resampler gives what it holds until it gives nothing.
    for (int64_t before = -1; before != m_written;) {
        before = m_written;
        LX_TRY(write(nullptr, 0));
    }
    if (m_header == Header::Wave) {
        if (m_written + 50 > int64_t(UINT32_MAX))
            return LXError(LXErrUnsupported, QStringLiteral("too long for a WAVE header"), m_source);
        uint8_t size[4];
        const auto patch = [&](uint32_t value, int at) {
            put32(size, value);
            return LXWriteFully(m_file.get(), size, 4, at);
        };
        if (!patch(uint32_t(m_written + 50), kRiffSizeAt) || !patch(uint32_t(m_written), kFactCountAt) ||
            !patch(uint32_t(m_written), kDataSizeAt))
            return writeFailure();
    }
    if (::close(m_file.release()) != 0) return writeFailure();
    return {};
}
