// How an AIFF or AIFF-C file carries what LXAnnotations holds. Everything is big-endian. Text is read
// as UTF-8 when it is valid UTF-8 and as Latin-1 otherwise, and written as UTF-8.
//
// Text chunks: NAME "title", AUTH "author", "(c) " "copyright", ANNO "annotation" (several ANNO chunks
// are joined with line feeds and written back as one), COMT "comments" (the texts of all its comments
// joined with line feeds; written as one comment tied to no marker, with time stamp 0 so that writing
// the same annotations twice gives the same bytes). A COMT with more than that (several comments, time
// stamps, marker links) is also kept as it stands among the unknown chunks, and written back whole
// instead of ours while the comments keep their text.
//
// MARK holds the markers (IDs 1, 2, ... in list order, names as padded Pascal strings of at most 255
// bytes) followed by the markers that INST loops point at. Markers that an INST loop points at are part
// of the loop, not markers of the file, and are not read as markers.
//
// INST: "baseNote", "detune" (cents), "lowNote", "highNote", "lowVelocity", "highVelocity", "gain"
// (dB), and the first two loops as sustain and release loop (play mode 1 forward, 2 forward-backward).
//
// Slices, regions, loops that INST cannot express, and every other key the framework knows live in an
// 'APPL' chunk with the signature 'CLPW'. After the signature come records laid out like IFF chunks
// (four-character ID, 32-bit size, payload, a pad byte after an odd size); readers skip records they
// do not know:
//   'SLIC'  per slice: u32 frame
//   'REGN'  per region: u32 start frame, u32 length in frames, u16 name length, the name in UTF-8
//   'LOOP'  per loop: u32 start frame, u32 length in frames, u16 type (LXLoopType), u32 play count
//           (0: endless). Written only when the loops do not fit INST (more than two, a backward loop, a
//           play count); when present it gives all the loops and INST's loops are not read.
//   'META'  values, as in the WAV private chunk (encodeMetaRecord in LXChunkCoding.h)
// Any other APPL chunk is an unknown chunk.

#include "lx/LXAiffChunks.h"

#include "lx/LXChunkCoding.h"

#include <QSet>

using namespace LXChunkCoding;

namespace {

constexpr bool kBig = true;
constexpr qsizetype kInstSize = 20;
constexpr int kMaxMarkerId = 32767;

const char* const kInstKeys[] = {"baseNote", "detune",      "gain",        "lowNote",
                                 "highNote", "lowVelocity", "highVelocity"};

struct TextChunk {
    const char* id;
    const char* key;
};
constexpr TextChunk kTextChunks[] = {{"NAME", "title"}, {"AUTH", "author"}, {"(c) ", "copyright"}};

QString str(const char* key) {
    return QString::fromLatin1(key);
}

struct Marker {
    int16_t id = 0;
    uint32_t frame = 0;
};

struct InstLoop {
    int16_t mode = 0;
    int16_t begin = 0;
    int16_t end = 0;
};

LXLoopType loopType(uint32_t value) {
    return value == 1 ? LXLoopType::Alternating : value == 2 ? LXLoopType::Backward : LXLoopType::Forward;
}

// The texts of a COMT chunk's comments joined with line feeds; whole tells whether the chunk holds
// nothing more, as the encoder writes it.
QString commentsText(const QByteArray& data, bool* whole) {
    Reader r(data, kBig);
    const int count = r.u16();
    QStringList texts;
    bool plain = count == 1;
    for (int i = 0; i < count && r.remaining() > 0; ++i) {
        plain = r.u32() == 0 && plain; // time stamp
        plain = r.s16() == 0 && plain; // marker
        const int length = r.u16();
        const QByteArrayView text = r.bytes(length);
        if (length % 2) r.skip(1);
        if (!text.isEmpty()) texts.append(decodeText(text));
    }
    if (whole) *whole = plain && r.ok();
    return texts.join(QLatin1Char('\n'));
}

// ---- Decoding

class Decoder {
public:
    explicit Decoder(double rate) : m_rate(usableRate(rate)) {}

    LXAnnotations decode(const QList<LXChunk>& chunks) {
        for (const LXChunk& chunk : chunks) {
            if (!decodeChunk(chunk)) m_result.unknownChunks.append(chunk);
        }
        LXMetadata& m = m_result.metadata;
        m.setValue(str("annotation"), m_annotations.join(QLatin1Char('\n')));
        finishLabels();
        m.addMetadata(m_private, false);
        return m_result;
    }

private:
    bool decodeChunk(const LXChunk& chunk) {
        const QByteArray& id = chunk.id;
        const QByteArray& data = chunk.data;
        if (data.isEmpty()) return false;
        if (id == "ANNO") {
            m_annotations.append(decodeText(data));
            return true;
        }
        const bool isPrivate = id == "APPL" && data.size() >= 4 && data.startsWith("CLPW");
        const QByteArray kind = isPrivate ? QByteArray("CLPW") : id;
        // One of each is read; a second copy is kept as it stands.
        if (m_seen.contains(kind)) return false;
        if (const auto text = std::find_if(std::begin(kTextChunks), std::end(kTextChunks),
                                           [&](const TextChunk& t) { return id == t.id; });
            text != std::end(kTextChunks)) {
            m_result.metadata.setValue(str(text->key), decodeText(data));
        } else if (id == "MARK" && data.size() >= 2) {
            decodeMarkers(data);
        } else if (id == "INST" && data.size() >= kInstSize) {
            decodeInstrument(data);
        } else if (id == "COMT" && data.size() >= 2) {
            bool whole = false;
            m_result.metadata.setValue(str("comments"), commentsText(data, &whole));
            m_seen.insert(kind);
            return whole;
        } else if (isPrivate) {
            decodePrivate(QByteArrayView(data).sliced(4));
        } else {
            return false;
        }
        m_seen.insert(kind);
        return true;
    }

    void decodeMarkers(const QByteArray& data) {
        Reader r(data, kBig);
        const int count = r.u16();
        for (int i = 0; i < count; ++i) {
            Marker marker;
            marker.id = r.s16();
            marker.frame = r.u32();
            const int length = r.u8();
            if (!r.ok()) break;
            m_markers.append(marker);
            m_markerNames.append(decodeText(r.bytes(length))); // a name cut short is read as far as it goes
            if (length % 2 == 0)
                r.skip(1); // the count byte and the text together take an even number of bytes
            if (!r.ok()) break;
        }
    }

    void decodeInstrument(const QByteArray& data) {
        Reader r(data, kBig);
        LXMetadata& m = m_result.metadata;
        m.setValue(str("baseNote"), std::clamp<int>(int8_t(r.u8()), 0, 127));
        m.setValue(str("detune"), int(int8_t(r.u8())));
        m.setValue(str("lowNote"), std::clamp<int>(int8_t(r.u8()), 0, 127));
        m.setValue(str("highNote"), std::clamp<int>(int8_t(r.u8()), 0, 127));
        m.setValue(str("lowVelocity"), std::clamp<int>(int8_t(r.u8()), 0, 127));
        m.setValue(str("highVelocity"), std::clamp<int>(int8_t(r.u8()), 0, 127));
        m.setValue(str("gain"), int(r.s16()));
        for (InstLoop& loop : m_instLoops) {
            loop.mode = r.s16();
            loop.begin = r.s16();
            loop.end = r.s16();
        }
    }

    void decodePrivate(QByteArrayView data) {
        LXLabels& labels = m_result.labels;
        for (const SubChunk& record : subChunks(data, kBig)) {
            Reader r(record.data, kBig);
            if (record.id == "SLIC") {
                while (r.remaining() >= 4)
                    labels.slices.addSliceWithPosition(r.u32() / m_rate);
            } else if (record.id == "REGN") {
                while (r.remaining() >= 10) {
                    const uint32_t start = r.u32();
                    const uint32_t length = r.u32();
                    const QString name = decodeText(r.bytes(r.u16()));
                    labels.regions.addRegionWithRange(
                        LXRange::rangeWithLocation(start / m_rate, length / m_rate), name);
                }
            } else if (record.id == "LOOP") {
                m_privateLoops.emplace(LXLabelKind::Loop);
                while (r.remaining() >= 14) {
                    const uint32_t start = r.u32();
                    const uint32_t length = r.u32();
                    const LXLoopType type = loopType(r.u16());
                    const uint32_t playCount = r.u32();
                    m_privateLoops->addLoopWithType(
                        type, LXRange(start / m_rate, (uint64_t(start) + length) / m_rate),
                        int(std::min<uint32_t>(playCount, INT32_MAX)));
                }
            } else if (record.id == "META") {
                decodeMetaRecord(record.data, kBig, m_private);
            }
        }
    }

    void finishLabels() {
        QSet<int16_t> loopMarkers;
        LXLabelList instLoops(LXLabelKind::Loop);
        for (const InstLoop& loop : m_instLoops) {
            if (loop.mode != 1 && loop.mode != 2) continue;
            loopMarkers.insert(loop.begin);
            loopMarkers.insert(loop.end);
            const Marker* begin = findMarker(loop.begin);
            const Marker* end = findMarker(loop.end);
            if (begin && end && begin->frame < end->frame) {
                instLoops.addLoopWithType(loop.mode == 2 ? LXLoopType::Alternating : LXLoopType::Forward,
                                          LXRange(begin->frame / m_rate, end->frame / m_rate));
            }
        }
        LXLabels& labels = m_result.labels;
        for (qsizetype i = 0; i < m_markers.size(); ++i) {
            if (!loopMarkers.contains(m_markers[i].id))
                labels.markers.addMarkerWithPosition(m_markers[i].frame / m_rate, m_markerNames[i]);
        }
        labels.loops = m_privateLoops ? *m_privateLoops : instLoops;
    }

    const Marker* findMarker(int16_t id) const {
        const auto found =
            std::find_if(m_markers.begin(), m_markers.end(), [id](const Marker& m) { return m.id == id; });
        return found != m_markers.end() ? &*found : nullptr;
    }

    double m_rate;
    LXAnnotations m_result;
    QSet<QByteArray> m_seen;
    QStringList m_annotations;
    QList<Marker> m_markers;
    QStringList m_markerNames;
    InstLoop m_instLoops[2];
    std::optional<LXLabelList> m_privateLoops;
    LXMetadata m_private;
};

// ---- Encoding

class Encoder {
public:
    Encoder(const LXAnnotations& annotations, double rate)
        : m_a(annotations), m_m(annotations.metadata), m_rate(usableRate(rate)) {}

    QList<LXChunk> encode(bool retainUnknown) {
        QList<LXChunk> out;
        for (const TextChunk& text : kTextChunks) {
            if (m_m.contains(str(text.key))) out.append({text.id, m_m.string(str(text.key)).toUtf8()});
        }
        if (m_m.contains(str("annotation"))) out.append({"ANNO", m_m.string(str("annotation")).toUtf8()});
        // The first COMT among the unknown chunks holds the comments whole: it stands for them while their
        // text is unchanged, and gives way to ours once they change.
        const auto& unknown = m_a.unknownChunks;
        const qsizetype kept =
            std::find_if(unknown.cbegin(), unknown.cend(), [](const LXChunk& c) { return c.id == "COMT"; }) -
            unknown.cbegin();
        if (kept < unknown.size() && commentsText(unknown[kept].data, nullptr) == m_m.string(str("comments")))
            out.append(unknown[kept]);
        else
            encodeComments(out);
        encodeMarkersAndInstrument(out);
        encodePrivate(out);
        for (qsizetype i = 0; retainUnknown && i < unknown.size(); ++i)
            if (i != kept) out.append(unknown[i]);
        return out;
    }

private:
    void encodeComments(QList<LXChunk>& out) {
        const QByteArray text = utf8Prefix(m_m.string(str("comments")), 0xFFFF);
        if (text.isEmpty()) return;
        Writer w(kBig);
        w.u16(1);
        w.u32(0);
        w.u16(0);
        w.u16(uint16_t(text.size()));
        w.bytes(text);
        if (text.size() % 2) w.u8(0);
        out.append({"COMT", w.data()});
    }

    void encodeMarkersAndInstrument(QList<LXChunk>& out) {
        Writer markers(kBig);
        int count = 0;
        auto addMarker = [&](uint32_t frame, const QString& name) -> int16_t {
            if (count >= kMaxMarkerId) return 0;
            const QByteArray text = utf8Prefix(name, 255);
            markers.u16(uint16_t(++count));
            markers.u32(frame);
            markers.u8(uint8_t(text.size()));
            markers.bytes(text);
            if (text.size() % 2 == 0) markers.u8(0);
            return int16_t(count);
        };
        for (const LXLabel& label : m_a.labels.markers.list()) {
            if (const auto frame = frame32(label.start, m_rate)) addMarker(*frame, label.name);
        }

        InstLoop instLoops[2];
        int instCount = 0;
        m_loopsNeedRecord = m_a.labels.loops.count() > 2;
        for (const LXLabel& loop : m_a.labels.loops.list()) {
            const auto start = frame32(loop.start, m_rate);
            if (!start || instCount == 2) continue;
            if (loop.loopType == LXLoopType::Backward || loop.playCount != 0) m_loopsNeedRecord = true;
            const uint32_t end = std::max(frame32(loop.end(), m_rate).value_or(UINT32_MAX), *start);
            const QString number = QString::number(instCount + 1);
            InstLoop& inst = instLoops[instCount++];
            inst.mode = loop.loopType == LXLoopType::Alternating ? 2 : 1;
            inst.begin = addMarker(*start, QStringLiteral("Loop %1 start").arg(number));
            inst.end = addMarker(end, QStringLiteral("Loop %1 end").arg(number));
            if (inst.begin == 0 || inst.end == 0) inst.mode = 0;
        }

        if (count > 0) {
            Writer w(kBig);
            w.u16(uint16_t(count));
            w.bytes(markers.data());
            out.append({"MARK", w.data()});
        }
        const bool hasInstKeys = std::any_of(std::begin(kInstKeys), std::end(kInstKeys),
                                             [&](const char* key) { return m_m.contains(str(key)); });
        if (!hasInstKeys && instCount == 0) return;
        auto value = [&](const char* key, qint64 fallback, qint64 low, qint64 high) {
            return clampTo<int>(integerValue(m_m, str(key)).value_or(fallback), low, high);
        };
        Writer w(kBig);
        w.u8(uint8_t(value("baseNote", 60, 0, 127)));
        w.u8(uint8_t(value("detune", 0, -50, 50)));
        w.u8(uint8_t(value("lowNote", 0, 0, 127)));
        w.u8(uint8_t(value("highNote", 127, 0, 127)));
        w.u8(uint8_t(value("lowVelocity", 1, 0, 127)));
        w.u8(uint8_t(value("highVelocity", 127, 0, 127)));
        w.u16(uint16_t(int16_t(value("gain", 0, -32768, 32767))));
        for (const InstLoop& loop : instLoops) {
            w.u16(uint16_t(loop.mode));
            w.u16(uint16_t(loop.begin));
            w.u16(uint16_t(loop.end));
        }
        out.append({"INST", w.data()});
    }

    void encodePrivate(QList<LXChunk>& out) {
        Writer w(kBig);
        w.bytes("CLPW");
        const LXLabels& labels = m_a.labels;
        Writer slices(kBig);
        for (const LXLabel& label : labels.slices.list()) {
            if (const auto frame = frame32(label.start, m_rate)) slices.u32(*frame);
        }
        if (slices.size() > 0) w.chunk("SLIC", slices.data());
        Writer regions(kBig);
        for (const LXLabel& label : labels.regions.list()) {
            const auto start = frame32(label.start, m_rate);
            if (!start) continue;
            const uint32_t end = std::max(frame32(label.end(), m_rate).value_or(UINT32_MAX), *start);
            const QByteArray name = utf8Prefix(label.name, 0xFFFF);
            regions.u32(*start);
            regions.u32(end - *start);
            regions.u16(uint16_t(name.size()));
            regions.bytes(name);
        }
        if (regions.size() > 0) w.chunk("REGN", regions.data());
        if (m_loopsNeedRecord) {
            Writer loops(kBig);
            for (const LXLabel& loop : labels.loops.list()) {
                const auto start = frame32(loop.start, m_rate);
                if (!start) continue;
                const uint32_t end = std::max(frame32(loop.end(), m_rate).value_or(UINT32_MAX), *start);
                loops.u32(*start);
                loops.u32(end - *start);
                loops.u16(uint16_t(loop.loopType));
                loops.u32(uint32_t(std::max(loop.playCount, 0)));
            }
            w.chunk("LOOP", loops.data());
        }
        QStringList keys = privateRecordKeys();
        for (const char* key : kInstKeys)
            keys.removeAll(str(key));
        for (const TextChunk& text : kTextChunks)
            keys.removeAll(str(text.key));
        keys.removeAll(QStringLiteral("annotation"));
        keys.removeAll(QStringLiteral("comments"));
        const QByteArray meta = encodeMetaRecord(m_m, keys, kBig);
        if (!meta.isEmpty()) w.chunk("META", meta);
        if (w.size() > 4) out.append({"APPL", w.data()});
    }

    const LXAnnotations& m_a;
    const LXMetadata& m_m;
    double m_rate;
    bool m_loopsNeedRecord = false;
};

} // namespace

namespace LXAiffChunks {

LXAnnotations decode(const QList<LXChunk>& chunks, double rate) {
    return Decoder(rate).decode(chunks);
}

QList<LXChunk> encode(const LXAnnotations& annotations, double rate, bool retainUnknown) {
    return Encoder(annotations, rate).encode(retainUnknown);
}

} // namespace LXAiffChunks
