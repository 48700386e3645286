#include "lx/LXPcmContainer.h"

#include <QFileInfo>
#include <cmath>
#include <cstring>

namespace {

uint16_t le16(const uint8_t* p) {
    return uint16_t(p[0] | p[1] << 8);
}
uint32_t le32(const uint8_t* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}
uint64_t le64(const uint8_t* p) {
    return uint64_t(le32(p)) | uint64_t(le32(p + 4)) << 32;
}
uint16_t be16(const uint8_t* p) {
    return uint16_t(p[0] << 8 | p[1]);
}
uint32_t be32(const uint8_t* p) {
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | uint32_t(p[3]);
}

bool isChunkIdByte(uint8_t c) {
    return c >= 0x20 && c < 0x7F;
}
bool looksLikeChunkId(const uint8_t* p) {
    return isChunkIdByte(p[0]) && isChunkIdByte(p[1]) && isChunkIdByte(p[2]) && isChunkIdByte(p[3]);
}

class Parser {
public:
    Parser(const LXByteSource& read, int64_t size, const QString& path)
        : m_read(read), m_size(size), m_path(path) {}

    LXResult<LXPcmLayout> parse();

private:
    LXError damaged(const QString& why, int64_t offset, int32_t code = LXErrDamaged) const {
        return LXError(code, why, m_path, offset);
    }
    LXError unsupported(const QString& why) const { return LXError(LXErrUnsupported, why, m_path); }
    void warn(const QString& why, int64_t offset) {
        if (!m_layout.warning) m_layout.warning = LXError(LXErrRepairable, why, m_path, offset);
    }
    bool readAt(int64_t offset, void* buffer, int64_t count) const {
        return offset >= 0 && count >= 0 && offset + count <= m_size && m_read(offset, buffer, count);
    }
    uint32_t u32(const uint8_t* p) const { return m_bigEndian ? be32(p) : le32(p); }
    uint16_t u16(const uint8_t* p) const { return m_bigEndian ? be16(p) : le16(p); }

    LXResult<void> walkChunks(int64_t start, int64_t end);
    LXResult<void> readWaveFormat(const QByteArray& fmt, int64_t offset);
    LXResult<void> readAiffCommon(const QByteArray& comm, int64_t offset);
    LXResult<void> finish();

    const LXByteSource& m_read;
    int64_t m_size;
    QString m_path;
    bool m_aiff = false;
    bool m_bigEndian = false;
    LXPcmLayout m_layout;
    bool m_haveFormat = false;
    bool m_haveData = false;
    int64_t m_aiffFrames = -1;
    uint64_t m_ds64Data = 0;
    bool m_haveDs64 = false;
};

LXResult<LXPcmLayout> Parser::parse() {
    uint8_t header[12];
    if (m_size < 12 || !readAt(0, header, 12))
        return unsupported(QStringLiteral("the file is too short to be a WAV or AIFF file"));

    const QByteArray magic(reinterpret_cast<const char*>(header), 4);
    const QByteArray form(reinterpret_cast<const char*>(header + 8), 4);
    int64_t declaredEnd = 0;
    if ((magic == "RIFF" || magic == "RIFX" || magic == "RF64" || magic == "BW64") && form == "WAVE") {
        m_bigEndian = magic == "RIFX";
        m_layout.container = magic == "RIFF"   ? LXContainer::Riff
                             : magic == "RIFX" ? LXContainer::Rifx
                                               : LXContainer::Rf64;
        m_layout.desc.format = m_layout.container == LXContainer::Rf64 ? LXFormat::RF64 : LXFormat::WAVE;
        declaredEnd = 8 + int64_t(u32(header + 4));
    } else if (magic == "FORM" && (form == "AIFF" || form == "AIFC")) {
        m_aiff = true;
        m_bigEndian = true;
        m_layout.container = form == "AIFF" ? LXContainer::Aiff : LXContainer::Aifc;
        m_layout.desc.format = form == "AIFF" ? LXFormat::AIFF : LXFormat::AIFC;
        declaredEnd = 8 + int64_t(be32(header + 4));
    } else {
        return unsupported(QStringLiteral("not a WAV or AIFF file"));
    }

    // Streamed and crashed recordings leave sizes that overshoot the file (0xFFFFFFFF, 0x7FFFF024)
    // or stop short of it; the chunks themselves are the truth, so walk to the real end.
    int64_t end = declaredEnd;
    if (m_layout.container == LXContainer::Rf64 || declaredEnd != m_size) {
        if (m_layout.container != LXContainer::Rf64 && declaredEnd > m_size)
            warn(
                QStringLiteral("the header claims %1 bytes but the file has %2").arg(declaredEnd).arg(m_size),
                4);
        end = m_size;
    }
    LX_TRY(walkChunks(12, end));
    LX_TRY(finish());
    return m_layout;
}

LXResult<void> Parser::walkChunks(int64_t pos, int64_t end) {
    while (pos + 8 <= end) {
        uint8_t head[8];
        if (!readAt(pos, head, 8))
            return damaged(QStringLiteral("cannot read the chunk header"), pos, LXErrReadFailed);
        if (!looksLikeChunkId(head)) {
            // Trailing garbage after the audio is common (padding, tags of other programs); before
            // the audio it means the file is damaged.
            if (m_haveData && m_haveFormat) {
                warn(QStringLiteral("unreadable data after the last chunk"), pos);
                return {};
            }
            return damaged(QStringLiteral("the file's chunk structure is damaged"), pos, LXErrBadChunk);
        }
        const QByteArray id(reinterpret_cast<const char*>(head), 4);
        int64_t size = u32(head + 4);
        const int64_t payload = pos + 8;
        const bool isData = (!m_aiff && id == "data") || (m_aiff && id == "SSND");

        if (isData) {
            if (m_haveData)
                return damaged(QStringLiteral("the file has two audio chunks"), pos, LXErrBadChunk);
            m_haveData = true;
            m_layout.dataChunkOffset = pos;
            if (!m_aiff && m_haveDs64 && size == 0xFFFFFFFF) size = int64_t(m_ds64Data);
            int64_t audioStart = payload;
            if (m_aiff) {
                uint8_t ssnd[8];
                if (!readAt(payload, ssnd, 8))
                    return damaged(QStringLiteral("the sound data chunk is truncated"), payload,
                                   LXErrTruncated);
                audioStart = payload + 8 + be32(ssnd);
            }
            m_layout.dataOffset = audioStart;
            m_layout.declaredDataBytes = size - (audioStart - payload);
            if (payload + size > m_size || size == 0) {
                // Streamed (size 0 or 0xFFFFFFFF) or cut short: the audio runs to the end of the file.
                if (size != 0 || m_size > payload)
                    warn(QStringLiteral("the audio chunk claims %1 bytes but the file holds %2")
                             .arg(size)
                             .arg(m_size - payload),
                         pos + 4);
                m_layout.dataBytes = std::max<int64_t>(0, m_size - audioStart);
                return {};
            }
            m_layout.dataBytes = std::max<int64_t>(0, size - (audioStart - payload));
        } else {
            if (size > end - payload) {
                // A chunk cut off by the end of the file: keep what is there if it is metadata.
                warn(QStringLiteral("the '%1' chunk is cut short").arg(QString::fromLatin1(id)), pos);
                size = std::max<int64_t>(0, std::min(end, m_size) - payload);
            }
            // Padding, and chunks that describe the samples themselves (peaks, overviews, checksums):
            // any change to the audio would make them lie, so they are not carried over.
            const bool skip = id == "JUNK" || id == "junk" || id == "PAD " || id == "FLLR" || id == "fact" ||
                              id == "FVER" || id == "PEAK" || id == "levl" || id == "MD5 ";
            if (!skip) {
                if (size > kLXMaxChunkInMemory)
                    return damaged(QStringLiteral("the '%1' chunk is implausibly large (%2 bytes)")
                                       .arg(QString::fromLatin1(id))
                                       .arg(size),
                                   pos, LXErrBadChunk);
                QByteArray data(qsizetype(size), Qt::Uninitialized);
                if (size > 0 && !readAt(payload, data.data(), size))
                    return damaged(QStringLiteral("cannot read the '%1' chunk").arg(QString::fromLatin1(id)),
                                   payload, LXErrReadFailed);
                if (!m_aiff && id == "fmt ") {
                    LX_TRY(readWaveFormat(data, payload));
                } else if (m_aiff && id == "COMM") {
                    m_layout.commChunkOffset = pos;
                    LX_TRY(readAiffCommon(data, payload));
                } else if (!m_aiff && id == "ds64") {
                    if (size >= 24) {
                        m_haveDs64 = true;
                        m_ds64Data = le64(reinterpret_cast<const uint8_t*>(data.constData()) + 8);
                    }
                } else {
                    m_layout.chunks.append({id, data});
                }
            }
        }

        int64_t next = payload + size;
        if (size & 1) {
            // Chunks are padded to even sizes, but some writers leave the pad byte out.
            uint8_t peek[4];
            const bool padded = readAt(next + 1, peek, 4) && looksLikeChunkId(peek);
            const bool unpadded = readAt(next, peek, 4) && looksLikeChunkId(peek);
            if (padded || !unpadded) next += 1;
        }
        pos = next;
    }
    return {};
}

LXResult<void> Parser::readWaveFormat(const QByteArray& fmt, int64_t offset) {
    if (fmt.size() < 16)
        return damaged(QStringLiteral("the format chunk is too short"), offset, LXErrBadHeader);
    const auto* p = reinterpret_cast<const uint8_t*>(fmt.constData());
    uint16_t tag = u16(p);
    const int channels = u16(p + 2);
    const uint32_t rate = u32(p + 4);
    const int blockAlign = u16(p + 12);
    const int bits = u16(p + 14);
    int validBits = bits;
    if (tag == 0xFFFE) {
        if (fmt.size() < 40)
            return damaged(QStringLiteral("the extensible format chunk is too short"), offset,
                           LXErrBadHeader);
        validBits = u16(p + 18);
        tag = u16(p + 24); // the sub-format GUID begins with the format tag
        if (validBits == 0 || validBits > bits) validBits = bits;
    }
    if (tag != 1 && tag != 3) return unsupported(QStringLiteral("the WAV codec %1 is not PCM").arg(tag));
    if (channels < 1 || channels > 1024 || rate == 0 || rate > 10'000'000)
        return damaged(QStringLiteral("the format chunk holds %1 channels at %2 Hz").arg(channels).arg(rate),
                       offset, LXErrBadHeader);
    int bytes = blockAlign / channels;
    if (blockAlign % channels != 0 || bytes < (bits + 7) / 8) {
        // The frame size disagrees with the sample size; the sample size is what other readers trust.
        bytes = (bits + 7) / 8;
        warn(QStringLiteral("the format chunk's frame size %1 does not fit %2 channels of %3 bits")
                 .arg(blockAlign)
                 .arg(channels)
                 .arg(bits),
             offset + 12);
    }
    const bool floatOK = tag == 3 && (bytes == 4 || bytes == 8);
    const bool intOK = tag == 1 && bytes >= 1 && bytes <= 8 && bits >= 1 && bits <= bytes * 8;
    if (!floatOK && !intOK)
        return damaged(
            QStringLiteral("the format chunk's sample size (%1 bits in %2 bytes a frame) is invalid")
                .arg(bits)
                .arg(blockAlign),
            offset, LXErrBadHeader);
    m_layout.desc.channels = channels;
    m_layout.desc.rate = rate;
    m_layout.blockAlign = bytes * channels;
    m_layout.desc.encoding = tag == 3 ? LXSampleEncoding::ieeeFloat(bytes * 8, m_bigEndian)
                                      : LXSampleEncoding::pcm(bytes * 8, m_bigEndian, bytes == 1);
    m_layout.validBits = tag == 3 ? bytes * 8 : validBits;
    m_haveFormat = true;
    return {};
}

LXResult<void> Parser::readAiffCommon(const QByteArray& comm, int64_t offset) {
    if (comm.size() < 18)
        return damaged(QStringLiteral("the common chunk is too short"), offset, LXErrBadHeader);
    const auto* p = reinterpret_cast<const uint8_t*>(comm.constData());
    const int channels = be16(p);
    m_aiffFrames = be32(p + 2);
    const int bits = be16(p + 6);
    const double rate = LXReadExtended(p + 8);
    if (channels < 1 || channels > 1024 || !(rate > 0 && rate < 10'000'000))
        return damaged(QStringLiteral("the common chunk holds %1 channels at %2 Hz").arg(channels).arg(rate),
                       offset, LXErrBadHeader);
    QByteArray compression = "NONE";
    if (m_layout.container == LXContainer::Aifc) {
        if (comm.size() < 22)
            return damaged(QStringLiteral("the common chunk has no compression type"), offset,
                           LXErrBadHeader);
        compression = comm.mid(18, 4);
    }
    LXSampleEncoding encoding;
    if (compression == "NONE" || compression == "twos" || compression == "sowt") {
        if (bits < 1 || bits > 32)
            return damaged(QStringLiteral("the common chunk's sample size of %1 bits is invalid").arg(bits),
                           offset, LXErrBadHeader);
        encoding = LXSampleEncoding::pcm(((bits + 7) / 8) * 8, compression != "sowt");
    } else if (compression == "in24" || compression == "in32" || compression == "42ni" ||
               compression == "23ni") {
        const bool big = compression.startsWith("in");
        encoding = LXSampleEncoding::pcm(compression.endsWith("24") || compression == "42ni" ? 24 : 32, big);
    } else if (compression == "fl32" || compression == "FL32") {
        encoding = LXSampleEncoding::ieeeFloat(32, true);
    } else if (compression == "fl64" || compression == "FL64") {
        encoding = LXSampleEncoding::ieeeFloat(64, true);
    } else if (compression == "raw ") {
        encoding = LXSampleEncoding::pcm(8, true, true);
    } else {
        return unsupported(
            QStringLiteral("the AIFC compression '%1' is not PCM").arg(QString::fromLatin1(compression)));
    }
    m_layout.desc.channels = channels;
    m_layout.desc.rate = rate;
    m_layout.desc.encoding = encoding;
    m_layout.blockAlign = encoding.bytes * channels;
    m_layout.validBits = encoding.isFloat() ? encoding.bits : std::min<int>(bits, encoding.bits);
    m_haveFormat = true;
    return {};
}

LXResult<void> Parser::finish() {
    if (!m_haveFormat)
        return damaged(m_aiff ? QStringLiteral("the file has no common chunk")
                              : QStringLiteral("the file has no format chunk"),
                       12, LXErrBadHeader);
    if (!m_haveData) {
        // An AIFF without sound data is legal when it has no frames.
        if (m_aiff && m_aiffFrames == 0) {
            m_layout.dataOffset = m_size;
            return {};
        }
        return damaged(QStringLiteral("the file has no audio chunk"), 12, LXErrTruncated);
    }
    const int64_t available = m_layout.dataBytes / m_layout.blockAlign;
    int64_t frames = available;
    if (m_aiff && m_aiffFrames >= 0 && m_aiffFrames != available) {
        if (m_aiffFrames < available)
            frames = m_aiffFrames; // trailing bytes in the sound chunk are not audio
        else
            warn(QStringLiteral("the header claims %1 frames but the file holds %2")
                     .arg(m_aiffFrames)
                     .arg(available),
                 12);
    }
    if (m_layout.dataBytes % m_layout.blockAlign != 0 && !m_aiff)
        warn(QStringLiteral("the audio ends in the middle of a frame"),
             m_layout.dataOffset + m_layout.dataBytes);
    m_layout.desc.frames = frames;
    m_layout.dataBytes = frames * m_layout.blockAlign;
    return {};
}

} // namespace

LXResult<LXPcmLayout> LXParsePcmContainer(const LXByteSource& read, int64_t fileSize, const QString& path) {
    return Parser(read, fileSize, path).parse();
}

double LXReadExtended(const uint8_t b[10]) {
    const int sign = (b[0] & 0x80) ? -1 : 1;
    const int exponent = ((b[0] & 0x7F) << 8) | b[1];
    uint64_t mantissa = 0;
    for (int i = 0; i < 8; ++i)
        mantissa = (mantissa << 8) | b[2 + i];
    if (exponent == 0 && mantissa == 0) return 0.0;
    if (exponent == 0x7FFF) return std::nan("");
    return sign * std::ldexp(double(mantissa), exponent - 16383 - 63);
}

void LXWriteExtended(double value, uint8_t b[10]) {
    std::memset(b, 0, 10);
    if (value == 0.0 || !std::isfinite(value)) return;
    if (value < 0) {
        b[0] = 0x80;
        value = -value;
    }
    int exponent = 0;
    const double fraction =
        std::frexp(value, &exponent); // value = fraction * 2^exponent, fraction in [0.5, 1)
    const uint64_t mantissa = uint64_t(std::ldexp(fraction, 64));
    const int biased = exponent - 1 + 16383;
    b[0] |= uint8_t((biased >> 8) & 0x7F);
    b[1] = uint8_t(biased);
    for (int i = 0; i < 8; ++i)
        b[2 + i] = uint8_t(mantissa >> (56 - 8 * i));
}
