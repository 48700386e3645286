#pragma once

// Byte-level helpers shared by the WAV and AIFF chunk codecs (LXWaveChunks, LXAiffChunks). Internal to
// those two files: nothing else should include this.

#include "lx/LXMetadata.h"
#include "lx/LXRange.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QString>
#include <QStringDecoder>
#include <QVariant>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <optional>

namespace LXChunkCoding {

// Reads integers of either byte order from a chunk. A read past the end yields 0, moves to the end and
// clears ok(), so a parser can read a whole record and check once.
class Reader {
public:
    Reader(QByteArrayView data, bool bigEndian) : m_data(data), m_big(bigEndian) {}

    bool ok() const { return m_ok; }
    qsizetype pos() const { return m_pos; }
    qsizetype remaining() const { return m_data.size() - m_pos; }
    void skip(qsizetype n) {
        if (n > remaining()) m_ok = false;
        m_pos += std::min(n, remaining());
    }

    uint8_t u8() { return uint8_t(read(1)); }
    uint16_t u16() { return uint16_t(read(2)); }
    int16_t s16() { return int16_t(read(2)); }
    uint32_t u32() { return uint32_t(read(4)); }
    uint64_t u64() { return read(8); }
    float f32() { return std::bit_cast<float>(u32()); }
    double f64() { return std::bit_cast<double>(u64()); }
    // n bytes, or as many as are left (clearing ok()).
    QByteArrayView bytes(qsizetype n) {
        const qsizetype available = std::min(std::max<qsizetype>(n, 0), remaining());
        if (available < n) m_ok = false;
        const QByteArrayView view = m_data.sliced(m_pos, available);
        m_pos += available;
        return view;
    }

private:
    uint64_t read(int n) {
        if (remaining() < n) {
            m_ok = false;
            m_pos = m_data.size();
            return 0;
        }
        uint64_t value = 0;
        for (int i = 0; i < n; ++i) {
            const uint64_t byte = uint8_t(m_data[m_pos + i]);
            value = m_big ? (value << 8) | byte : value | (byte << (8 * i));
        }
        m_pos += n;
        return value;
    }

    QByteArrayView m_data;
    bool m_big;
    qsizetype m_pos = 0;
    bool m_ok = true;
};

class Writer {
public:
    explicit Writer(bool bigEndian) : m_big(bigEndian) {}

    void u8(uint8_t v) { m_data.append(char(v)); }
    void u16(uint16_t v) { put(v, 2); }
    void u32(uint32_t v) { put(v, 4); }
    void u64(uint64_t v) { put(v, 8); }
    void f32(float v) { u32(std::bit_cast<uint32_t>(v)); }
    void f64(double v) { u64(std::bit_cast<uint64_t>(v)); }
    void bytes(QByteArrayView b) { m_data.append(b); }
    void zeros(qsizetype n) { m_data.append(n, '\0'); }
    // A sub-chunk: identifier, size, payload and the pad byte that keeps the next one at an even offset.
    void chunk(QByteArrayView id, QByteArrayView payload) {
        bytes(id);
        u32(uint32_t(payload.size()));
        bytes(payload);
        if (payload.size() % 2) u8(0);
    }
    qsizetype size() const { return m_data.size(); }
    const QByteArray& data() const { return m_data; }

private:
    void put(uint64_t v, int n) {
        for (int i = 0; i < n; ++i)
            m_data.append(char(m_big ? (v >> (8 * (n - 1 - i))) : (v >> (8 * i))));
    }

    QByteArray m_data;
    bool m_big;
};

// Text of a field: up to its first NUL, UTF-8 when it is valid UTF-8, Latin-1 otherwise (older files
// hold the writer's 8-bit code page, which Latin-1 reads at least in part).
inline QString decodeText(QByteArrayView bytes) {
    const qsizetype nul = bytes.indexOf('\0');
    if (nul >= 0) bytes = bytes.first(nul);
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = utf8.decode(bytes);
    if (!utf8.hasError()) return text;
    return QString::fromLatin1(bytes);
}

// UTF-8 of the text, cut to at most maxBytes without splitting a character.
inline QByteArray utf8Prefix(const QString& text, qsizetype maxBytes) {
    QByteArray utf8 = text.toUtf8();
    if (utf8.size() <= maxBytes) return utf8;
    qsizetype n = maxBytes;
    while (n > 0 && (uint8_t(utf8[n]) & 0xC0) == 0x80)
        --n;
    utf8.truncate(n);
    return utf8;
}

inline bool isIdentifierAt(QByteArrayView data, qsizetype pos) {
    if (pos < 0 || data.size() - pos < 4) return false;
    return std::all_of(data.begin() + pos, data.begin() + pos + 4,
                       [](char c) { return uint8_t(c) >= 0x20 && uint8_t(c) < 0x7F; });
}

struct SubChunk {
    QByteArray id;
    QByteArrayView data; // into the parent chunk
};

// The sub-chunks of a LIST or of our private records. A sub-chunk whose size runs past the end is read
// as far as it goes and ends the walk. Some writers leave out the pad byte after an odd size: when the
// padded position does not hold an identifier and the unpadded one does, the walk follows the writer.
inline QList<SubChunk> subChunks(QByteArrayView data, bool bigEndian) {
    QList<SubChunk> result;
    qsizetype pos = 0;
    while (data.size() - pos >= 8) {
        Reader header(data.sliced(pos + 4, 4), bigEndian);
        const qsizetype size = header.u32();
        const qsizetype start = pos + 8;
        const qsizetype available = data.size() - start;
        const qsizetype length = std::min(size, available);
        result.append({data.sliced(pos, 4).toByteArray(), data.sliced(start, length)});
        if (size > available) break;
        pos = start + length;
        if (length % 2 && (isIdentifierAt(data, pos + 1) || !isIdentifierAt(data, pos))) ++pos;
    }
    return result;
}

// Metadata values as the chunks need them. Numbers may have been stored as text by a script.
inline std::optional<qint64> integerValue(const LXMetadata& metadata, const QString& key) {
    const QVariant value = metadata.value(key);
    if (!value.isValid()) return std::nullopt;
    bool ok = false;
    double real = 0.0;
    if (value.typeId() == QMetaType::Double || value.typeId() == QMetaType::Float) {
        real = value.toDouble();
        ok = true;
    } else {
        const qint64 integer = value.toLongLong(&ok);
        if (ok) return integer;
        real = value.toString().trimmed().toDouble(&ok);
    }
    if (!ok || !std::isfinite(real)) return std::nullopt;
    return qint64(std::llround(std::clamp(real, -9.0e18, 9.0e18)));
}

inline std::optional<double> realValue(const LXMetadata& metadata, const QString& key) {
    const QVariant value = metadata.value(key);
    bool ok = false;
    const double real = value.isValid() ? value.toDouble(&ok) : 0.0;
    if (!ok || !std::isfinite(real)) return std::nullopt;
    return real;
}

template <typename T> T clampTo(qint64 value, qint64 low, qint64 high) {
    return T(std::clamp(value, low, high));
}

// A rate that positions can be divided by: garbage in a header must not make every label infinite.
inline double usableRate(double rate) {
    return rate > 0 && std::isfinite(rate) ? rate : 44100.0;
}

// The frame of a position for a 32-bit field: negative positions clamp to 0; none for a position the
// field cannot hold.
inline std::optional<uint32_t> frame32(double seconds, double rate) {
    const double frames = seconds * rate;
    if (std::isnan(frames) || frames >= 4294967295.0) return std::nullopt;
    if (frames <= 0) return 0u;
    return uint32_t(LXFramesFromSeconds(seconds, rate));
}

// Keys of our own that the chunk codecs store beside the framework's text and musical keys.
inline const QStringList& extraKeys() {
    static const QStringList keys = {"bextVersion",         "loudnessValue",        "loudnessRange",
                                     "maxTruePeakLevel",    "maxMomentaryLoudness", "maxShortTermLoudness",
                                     "samplerManufacturer", "samplerProduct",       "SMPTEFormat",
                                     "SMPTEOffset",         "samplerData",          "iXML"};
    return keys;
}

// The keys a private 'META' record may carry: every key we know, except those that describe the audio
// encoding rather than the recording and would go stale when the audio is rewritten.
inline QStringList privateRecordKeys() {
    QStringList keys = LXMetadata::textKeys() + LXMetadata::musicalKeys() + extraKeys();
    keys.removeAll(QStringLiteral("channelLayout"));
    keys.removeAll(QStringLiteral("nominalBitRate"));
    return keys;
}

// The 'META' record of our private chunk: per value, key length (u8), key (UTF-8), type, value.
// 'T': u32 length and UTF-8 text; 'I': 64-bit integer; 'R': 64-bit IEEE float.
inline QByteArray encodeMetaRecord(const LXMetadata& metadata, const QStringList& keys, bool bigEndian) {
    Writer w(bigEndian);
    for (const QString& key : keys) {
        const QVariant value = metadata.value(key);
        const QByteArray name = utf8Prefix(key, 255);
        switch (value.typeId()) {
        case QMetaType::Bool:
        case QMetaType::Int:
        case QMetaType::UInt:
        case QMetaType::Long:
        case QMetaType::ULong:
        case QMetaType::LongLong:
        case QMetaType::ULongLong:
        case QMetaType::Short:
        case QMetaType::UShort:
        case QMetaType::Char:
        case QMetaType::SChar:
        case QMetaType::UChar:
            w.u8(uint8_t(name.size()));
            w.bytes(name);
            w.u8('I');
            w.u64(uint64_t(value.toLongLong()));
            break;
        case QMetaType::Double:
        case QMetaType::Float:
            w.u8(uint8_t(name.size()));
            w.bytes(name);
            w.u8('R');
            w.f64(value.toDouble());
            break;
        case QMetaType::QString: {
            const QByteArray text = value.toString().toUtf8();
            if (text.isEmpty()) break;
            w.u8(uint8_t(name.size()));
            w.bytes(name);
            w.u8('T');
            w.u32(uint32_t(text.size()));
            w.bytes(text);
            break;
        }
        default:
            break; // dates, data: nothing a chunk can hold faithfully
        }
    }
    return w.data();
}

// Reads values until the record ends or turns to garbage; what was read before stays.
inline void decodeMetaRecord(QByteArrayView data, bool bigEndian, LXMetadata& metadata) {
    Reader r(data, bigEndian);
    while (r.remaining() > 0) {
        const QByteArrayView keyBytes = r.bytes(r.u8());
        const char type = char(r.u8());
        QVariant value;
        if (type == 'T') {
            const qsizetype length = r.u32();
            value = decodeText(r.bytes(length));
        } else if (type == 'I') {
            value = qint64(r.u64());
        } else if (type == 'R') {
            value = r.f64();
        } else {
            return;
        }
        if (!r.ok()) return;
        const QString key = decodeText(keyBytes);
        if (!key.isEmpty() && !metadata.contains(key)) metadata.setValue(key, value);
    }
}

inline QString hexText(QByteArrayView bytes) {
    return QString::fromLatin1(bytes.toByteArray().toHex().toUpper());
}

} // namespace LXChunkCoding
