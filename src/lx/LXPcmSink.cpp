#include "lx/LXAiffChunks.h"
#include "lx/LXAudioBackend.h"
#include "lx/LXFile.h"
#include "lx/LXFileDescriptor.h"
#include "lx/LXPcmContainer.h"
#include "lx/LXSampleCodec.h"
#include "lx/LXWaveChunks.h"

#include <QFile>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <memory>
#include <vector>

// File layout written here. WAV: RIFF header, a JUNK chunk reserved for the ds64 chunk the file
// needs if it outgrows 4 GB (it then becomes RF64 in place), fmt (and fact for float), data, then the
// metadata chunks after the audio, since labels may change until the end. AIFF/AIFC: FORM header,
// FVER (AIFC), COMM, SSND, then the metadata chunks.

namespace {

class ByteWriter {
public:
    explicit ByteWriter(bool bigEndian) : m_big(bigEndian) {}
    void id(const char* four) { m_bytes.append(four, 4); }
    void u16(uint16_t v) { put(v, 2); }
    void u32(uint32_t v) { put(v, 4); }
    void u64(uint64_t v) { put(v, 8); }
    void bytes(const QByteArray& b) { m_bytes.append(b); }
    void zeros(int n) { m_bytes.append(QByteArray(n, '\0')); }
    const QByteArray& data() const { return m_bytes; }

private:
    void put(uint64_t v, int n) {
        for (int i = 0; i < n; ++i) {
            const int shift = m_big ? 8 * (n - 1 - i) : 8 * i;
            m_bytes.append(char(uint8_t(v >> shift)));
        }
    }
    bool m_big;
    QByteArray m_bytes;
};

std::atomic<int64_t> g_riffSizeLimit{int64_t(std::numeric_limits<uint32_t>::max())};

constexpr int64_t kJunkPayload = 28; // the size of a ds64 chunk without a table
constexpr int64_t kBufferBytes = 1 << 20;

class PcmSink final : public LXAudioSink {
public:
    PcmSink(LXFileDescriptor fd, QString path, const LXStreamDescription& desc)
        : m_fd(std::move(fd)), m_path(std::move(path)), m_desc(desc) {
        m_aiff = desc.format == LXFormat::AIFF || desc.format == LXFormat::AIFC;
        LXSampleEncoding& e = m_desc.encoding;
        if (m_aiff) {
            if (e.bytes == 1) e = LXSampleEncoding::pcm(8, e.bigEndian, false);
            if (e.isFloat() || !e.bigEndian) m_desc.format = LXFormat::AIFC;
        } else {
            const bool big = e.bigEndian; // RIFX keeps its byte order
            if (e.bytes == 1) e = LXSampleEncoding::pcm(8, big, true);
            m_rf64 = desc.format == LXFormat::RF64; // asked for: RF64 from the first byte
            m_desc.format = LXFormat::WAVE;
        }
        m_blockAlign = e.bytes * m_desc.channels;
    }

    LXStatus begin() {
        const QByteArray header = m_aiff ? aiffHeader(0, 0) : waveHeader(0, 0);
        if (!LXWriteFully(m_fd.get(), header.constData(), header.size(), 0)) return writeError();
        m_dataOffset = header.size();
        m_offset = m_dataOffset;
        m_buffer = std::make_unique_for_overwrite<uint8_t[]>(size_t(kBufferBytes));
        return {};
    }

    LXStatus write(const float* in, int64_t frames) override { return writeAs(in, frames); }
    LXStatus write(const double* in, int64_t frames) override { return writeAs(in, frames); }

    LXStatus finish(const LXAnnotations& annotations, bool retainUnknownChunks) override {
        LX_TRY(flush());
        const int64_t dataBytes = m_frames * m_blockAlign;
        ByteWriter tail(m_aiff || m_desc.encoding.bigEndian);
        if (dataBytes & 1) tail.zeros(1);
        const QList<LXChunk> chunks = encodeChunks(annotations, retainUnknownChunks);
        for (const LXChunk& chunk : chunks) {
            tail.bytes(chunk.id.leftJustified(4, ' ', true));
            tail.u32(uint32_t(chunk.data.size()));
            tail.bytes(chunk.data);
            if (chunk.data.size() & 1) tail.zeros(1);
        }
        if (!LXWriteFully(m_fd.get(), tail.data().constData(), tail.data().size(), m_offset))
            return writeError();
        const int64_t total = m_offset + tail.data().size();
        const QByteArray header = m_aiff ? aiffHeader(total, dataBytes) : waveHeader(total, dataBytes);
        if (!LXWriteFully(m_fd.get(), header.constData(), header.size(), 0)) return writeError();
        if (::ftruncate(m_fd.get(), total) != 0) return writeError();
        LX_TRY(LXFile::syncDescriptor(m_fd.get(), m_path));
        m_fd.reset();
        return {};
    }

private:
    LXError writeError() const {
        return LXFileError::fromErrno(QStringLiteral("cannot write the file"), m_path);
    }

    template <typename T> LXStatus writeAs(const T* in, int64_t frames) {
        const int channels = m_desc.channels;
        const int64_t framesPerChunk = kBufferBytes / m_blockAlign;
        for (int64_t done = 0; done < frames;) {
            const int64_t n = std::min(framesPerChunk, frames - done);
            const size_t bytes = size_t(n * m_blockAlign);
            if (m_used + bytes > size_t(kBufferBytes)) LX_TRY(flush());
            LXEncodeSamples(m_desc.encoding, in + done * channels, m_buffer.get() + m_used,
                            size_t(n * channels));
            m_used += bytes;
            done += n;
            m_frames += n;
        }
        if (m_aiff && m_frames * m_blockAlign > int64_t(std::numeric_limits<uint32_t>::max()) - 64)
            return LXError(LXErrWriteFailed,
                           QStringLiteral("an AIFF file cannot hold more than 4 GB of audio"), m_path);
        return {};
    }

    LXStatus flush() {
        if (m_used == 0) return {};
        if (!LXWriteFully(m_fd.get(), m_buffer.get(), int64_t(m_used), m_offset)) return writeError();
        m_offset += int64_t(m_used);
        m_used = 0;
        return {};
    }

    QByteArray waveHeader(int64_t total, int64_t dataBytes) const {
        const LXSampleEncoding& e = m_desc.encoding;
        const bool big = e.bigEndian;
        const bool rf64 = m_rf64 || total > g_riffSizeLimit;
        // Plain PCM is what the most readers know. Big-endian files never use the extensible header: readers
        // disagree on the byte order of its GUID there (libsndfile swaps its fields, FFmpeg does not).
        const bool extensible = m_desc.channels > 2 && !big;
        ByteWriter w(big);
        w.id(rf64 ? "RF64" : big ? "RIFX" : "RIFF");
        w.u32(rf64 ? 0xFFFFFFFF : uint32_t(std::max<int64_t>(total - 8, 4)));
        w.id("WAVE");
        if (rf64) {
            w.id("ds64");
            w.u32(uint32_t(kJunkPayload));
            w.u64(uint64_t(total - 8));
            w.u64(uint64_t(dataBytes));
            w.u64(uint64_t(m_frames));
            w.u32(0);
        } else {
            w.id("JUNK");
            w.u32(uint32_t(kJunkPayload));
            w.zeros(int(kJunkPayload));
        }
        const uint16_t tag = e.isFloat() ? 3 : 1;
        // Formats other than plain PCM carry the extension's size, even when it is empty (float).
        const bool extended = extensible || e.isFloat();
        w.id("fmt ");
        w.u32(extensible ? 40 : extended ? 18 : 16);
        w.u16(extensible ? 0xFFFE : tag);
        w.u16(uint16_t(m_desc.channels));
        w.u32(uint32_t(std::lround(m_desc.rate)));
        w.u32(uint32_t(std::lround(m_desc.rate)) * uint32_t(m_blockAlign));
        w.u16(uint16_t(m_blockAlign));
        w.u16(uint16_t(e.bytes * 8));
        if (extended && !extensible) w.u16(0);
        if (extensible) {
            w.u16(22);
            w.u16(uint16_t(e.bits));
            w.u32(m_desc.channels <= 18 ? uint32_t((uint64_t(1) << m_desc.channels) - 1) : 0);
            // KSDATAFORMAT_SUBTYPE_PCM / _IEEE_FLOAT: the tag, then a fixed GUID tail.
            static const unsigned char guidTail[14] = {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80,
                                                       0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};
            w.u16(tag);
            w.bytes(QByteArray(reinterpret_cast<const char*>(guidTail), 14));
        }
        if (e.isFloat()) {
            w.id("fact");
            w.u32(4);
            w.u32(uint32_t(std::min<int64_t>(m_frames, 0xFFFFFFFF)));
        }
        w.id("data");
        w.u32(rf64 ? 0xFFFFFFFF : uint32_t(dataBytes));
        return w.data();
    }

    QList<LXChunk> encode(const LXAnnotations& annotations, double rate, bool retainUnknownChunks) const {
        return m_aiff ? LXAiffChunks::encode(annotations, rate, retainUnknownChunks)
                      : LXWaveChunks::encode(annotations, rate, m_desc.encoding.bigEndian, retainUnknownChunks);
    }

    // The annotations' chunks, each one that encodes as the source's annotations did taken as the source
    // stored it. Chunks are matched by id (and list type); an id the source holds twice is written anew.
    QList<LXChunk> encodeChunks(const LXAnnotations& annotations, bool retainUnknownChunks) const {
        QList<LXChunk> chunks = encode(annotations, m_desc.rate, retainUnknownChunks);
        const LXChunkOrigin& origin = annotations.origin;
        if (!origin.decoded || origin.aiff != m_aiff || origin.bigEndian != (m_aiff || m_desc.encoding.bigEndian))
            return chunks;
        const auto key = [](const LXChunk& c) { return c.id == "LIST" ? c.id + c.data.left(4) : c.id; };
        const QList<LXChunk> asRead = encode(*origin.decoded, origin.rate, false);
        for (LXChunk& chunk : chunks) {
            const auto same = [&](const LXChunk& c) { return key(c) == key(chunk); };
            if (std::count_if(origin.chunks.begin(), origin.chunks.end(), same) != 1 ||
                std::count_if(asRead.begin(), asRead.end(), same) != 1)
                continue;
            if (*std::find_if(asRead.begin(), asRead.end(), same) == chunk)
                chunk = *std::find_if(origin.chunks.begin(), origin.chunks.end(), same);
        }
        return chunks;
    }

    QByteArray aiffHeader(int64_t total, int64_t dataBytes) const {
        const LXSampleEncoding& e = m_desc.encoding;
        const bool aifc = m_desc.format == LXFormat::AIFC;
        ByteWriter w(true);
        w.id("FORM");
        w.u32(uint32_t(std::max<int64_t>(total - 8, 4)));
        w.id(aifc ? "AIFC" : "AIFF");
        if (aifc) {
            w.id("FVER");
            w.u32(4);
            w.u32(0xA2805140);
        }
        QByteArray compression = "NONE", compressionName = "not compressed";
        if (e.isFloat()) {
            compression = e.bytes == 8 ? "fl64" : "fl32";
            compressionName = e.bytes == 8 ? "64-bit floating point" : "32-bit floating point";
        } else if (!e.bigEndian) {
            compression = "sowt";
            compressionName = "";
        }
        QByteArray pascal;
        if (aifc) {
            pascal.append(char(compressionName.size()));
            pascal.append(compressionName);
            if (pascal.size() & 1) pascal.append('\0');
        }
        w.id("COMM");
        w.u32(uint32_t(18 + (aifc ? 4 + pascal.size() : 0)));
        w.u16(uint16_t(m_desc.channels));
        w.u32(uint32_t(m_frames));
        w.u16(uint16_t(e.bits));
        uint8_t rate[10];
        LXWriteExtended(m_desc.rate, rate);
        w.bytes(QByteArray(reinterpret_cast<const char*>(rate), 10));
        if (aifc) {
            w.bytes(compression);
            w.bytes(pascal);
        }
        w.id("SSND");
        w.u32(uint32_t(dataBytes + 8));
        w.u32(0);
        w.u32(0);
        return w.data();
    }

    LXFileDescriptor m_fd;
    QString m_path;
    LXStreamDescription m_desc;
    bool m_aiff = false;
    bool m_rf64 = false; // RF64 whatever the size
    int m_blockAlign = 0;
    int64_t m_dataOffset = 0;
    int64_t m_offset = 0;
    int64_t m_frames = 0;
    std::unique_ptr<uint8_t[]> m_buffer; // encoded audio not yet written, m_used bytes of it
    size_t m_used = 0;
};

} // namespace

void LXSetRiffSizeLimit(int64_t bytes) {
    g_riffSizeLimit = bytes;
}

LXResult<std::unique_ptr<LXAudioSink>> LXCreatePcmSink(const QString& path, const LXStreamDescription& desc) {
    if (desc.channels < 1 || desc.channels > 1024 || !(desc.rate > 0))
        return LXError(LXErrInvalidParameter,
                       QStringLiteral("cannot write %1 channels at %2 Hz").arg(desc.channels).arg(desc.rate),
                       path);
    const LXSampleEncoding& e = desc.encoding;
    const bool valid = e.isFloat() ? (e.bytes == 4 || e.bytes == 8) : (e.bytes >= 1 && e.bytes <= 4);
    if (!valid)
        return LXError(LXErrInvalidParameter, QStringLiteral("cannot write %1-bit samples").arg(e.bits),
                       path);
    LXFileDescriptor fd(
        ::open(QFile::encodeName(path).constData(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!fd.isOpen()) return LXFileError::fromErrno(QStringLiteral("cannot create the file"), path);
    auto sink = std::make_unique<PcmSink>(std::move(fd), path, desc);
    LX_TRY(sink->begin());
    return std::unique_ptr<LXAudioSink>(std::move(sink));
}
