// How a WAV file (RIFF, RIFX, RF64) carries what LXAnnotations holds. Integers follow the file's byte
// order; text is read as UTF-8 when it is valid UTF-8 and as Latin-1 otherwise, and written as UTF-8.
//
// LIST/INFO: the text keys of kInfoKeys below. IPRD is "product" and, unless our private chunk names an
// album of its own, "album" too; ITRK or else IPRT is "trackNumber". Sub-chunks we do not know stay
// among the unknown chunks as a LIST/INFO of their own, which encode merges back into the INFO list.
//
// bext: "description", "originator", "originatorReference", "originationDate", "originationTime" (text),
// "timeReference" (frames since midnight, a 64-bit number; 0 is not read), "bextVersion",
// "SMPTEUMID" (upper-case hex of the 32 or 64 bytes), "codingHistory", and from version 2 on the
// loudness fields "loudnessValue", "loudnessRange", "maxTruePeakLevel", "maxMomentaryLoudness" and
// "maxShortTermLoudness" (LUFS, LU or dB as doubles; 0 and 0x7FFF mean not measured and are not read).
// The reserved bytes are written as zeros, as the format asks.
//
// iXML: the text as it stands under "iXML".
//
// Labels. Markers, slices and regions are cue points, numbered 1, 2, ... in that order, and LIST/adtl
// tells them apart:
//   marker  a 'labl' (the name, possibly empty), or no adtl sub-chunk at all
//   slice   an 'ltxt' of purpose 'slic' and length 0, and no name
//   region  an 'ltxt' of purpose 'rgn ' or of non-zero sample length, and a 'labl' when it has a name
// A cue point without 'labl' takes its name from its 'note' or its 'ltxt' text. A cue point's frame is
// its sample offset (its play position when the offset is 0). Other adtl sub-chunks ('file', the note of
// a labelled point) are not kept: they hang on cue point IDs, which every rewrite renumbers.
// Loops are 'smpl' loops with their type and play count; a loop's end field is its last frame, one
// before the label's end. Loop identifiers follow the cue points' so that no cue point shares one. A
// cue point that a loop names and that lies at the loop's start belongs to the loop (some programs
// write one for each loop) and is not read as a marker.
//
// smpl: "baseNote" (MIDI unity note) and "detune" (cents, -50 to +50: a pitch fraction above half a
// semitone reads as the next note less the rest); "samplerManufacturer", "samplerProduct",
// "SMPTEFormat", "SMPTEOffset" (numbers, read when non-zero) and "samplerData" (upper-case hex). The
// sample period is written from the rate, so that it stays true after a rate conversion.
// inst: "gain" (dB), "lowNote", "highNote", "lowVelocity", "highVelocity"; its note and fine tune are
// read only when there is no smpl (a file we write has both, with the same values).
// acid: "tempo" (BPM), "beats", "timeSignature" (text "4/4"), "key" (the root note as a pitch class,
// 0 = C, when the file sets one) and "playbackType" (0 loop, 1 one-shot).
//
// Every other key the framework knows ("author", "annotation", "year", "scale", "album" when it differs
// from the product, ...) goes into a private chunk 'CLPW': records laid out like RIFF sub-chunks, of
// which 'META' holds the values (see encodeMetaRecord in LXChunkCoding.h). Readers skip unknown records.

#include "lx/LXWaveChunks.h"

#include "lx/LXChunkCoding.h"

#include <QHash>
#include <QSet>

using namespace LXChunkCoding;

namespace {

struct InfoKey {
    const char* id;
    const char* key;
};

// Standard INFO fields first, then the common extensions (IMUS, IWRI, ITRK) that taggers use.
constexpr InfoKey kInfoKeys[] = {
    {"INAM", "title"},
    {"IART", "artist"},
    {"IPRD", "product"},
    {"ICMT", "comments"},
    {"ICOP", "copyright"},
    {"ICRD", "creationDate"},
    {"IGNR", "genre"},
    {"IKEY", "keywords"},
    {"ISBJ", "subject"},
    {"IENG", "engineers"},
    {"ITCH", "digitizer"},
    {"ISFT", "softwarePackage"},
    {"ISRC", "sourceSupplier"},
    {"ISRF", "digitizationSource"},
    {"IARL", "archivalLocation"},
    {"ICMS", "commissionedBy"},
    {"ICRP", "cropped"},
    {"IDIM", "originalDimensions"},
    {"IMED", "originalMedium"},
    {"IMUS", "composer"},
    {"IWRI", "lyricist"},
    {"ITRK", "trackNumber"},
};

const char* const kBextKeys[] = {
    "description",   "originator",       "originatorReference",  "originationDate",     "originationTime",
    "timeReference", "SMPTEUMID",        "codingHistory",        "bextVersion",         "loudnessValue",
    "loudnessRange", "maxTruePeakLevel", "maxMomentaryLoudness", "maxShortTermLoudness"};
const char* const kLoudnessKeys[] = {"loudnessValue", "loudnessRange", "maxTruePeakLevel",
                                     "maxMomentaryLoudness", "maxShortTermLoudness"};
const char* const kSmplKeys[] = {"baseNote",    "detune",      "samplerManufacturer", "samplerProduct",
                                 "SMPTEFormat", "SMPTEOffset", "samplerData"};
const char* const kInstKeys[] = {"gain", "lowNote", "highNote", "lowVelocity", "highVelocity"};
const char* const kAcidKeys[] = {"tempo", "beats", "timeSignature", "key", "playbackType"};

constexpr qsizetype kBextSize = 602;    // fixed part, up to the coding history
constexpr qsizetype kBextMinimum = 348; // up to the version: less is too damaged to read
constexpr qsizetype kSmplHeader = 36;
constexpr qsizetype kSmplLoop = 24;
constexpr qsizetype kCuePoint = 24;
constexpr uint16_t kLoudnessUnset = 0x7FFF;

template <size_t N> bool containsAny(const LXMetadata& metadata, const char* const (&keys)[N]) {
    return std::any_of(std::begin(keys), std::end(keys),
                       [&](const char* key) { return metadata.contains(QString::fromLatin1(key)); });
}

QString str(const char* key) {
    return QString::fromLatin1(key);
}

LXChunk listChunk(const char* form, const QByteArray& body) {
    return {"LIST", QByteArray(form, 4) + body};
}

// ---- Decoding

struct CuePoint {
    uint32_t id = 0;
    uint32_t frame = 0;
};

struct CueText {
    QString label;
    QString note;
    bool hasLabel = false;
    bool hasNote = false;
    bool hasLtxt = false;
    uint32_t length = 0;
    QByteArray purpose;
    QString ltxtText;
};

struct SmplLoop {
    uint32_t id = 0;
    uint32_t type = 0;
    uint32_t start = 0;
    uint32_t end = 0;
    uint32_t playCount = 0;
};

class Decoder {
public:
    Decoder(double rate, bool bigEndian) : m_rate(usableRate(rate)), m_big(bigEndian) {}

    LXAnnotations decode(const QList<LXChunk>& chunks) {
        for (const LXChunk& chunk : chunks) {
            if (!decodeChunk(chunk)) m_result.unknownChunks.append(chunk);
        }
        finishLabels();
        finishMetadata();
        return m_result;
    }

private:
    // The size below which a chunk is too damaged to read; none for chunks we do not interpret.
    static std::optional<qsizetype> minimumSize(const QByteArray& id) {
        if (id == "bext") return kBextMinimum;
        if (id == "cue ") return 4;
        if (id == "smpl") return kSmplHeader;
        if (id == "inst") return 7;
        if (id == "acid") return 24;
        if (id == "iXML") return 1;
        if (id == "CLPW") return 8;
        return std::nullopt;
    }

    bool decodeChunk(const LXChunk& chunk) {
        const QByteArray& id = chunk.id;
        const QByteArray& data = chunk.data;
        if (id == "LIST") {
            if (data.startsWith("INFO"))
                decodeInfo(QByteArrayView(data).sliced(4));
            else if (data.startsWith("adtl"))
                decodeAdtl(QByteArrayView(data).sliced(4));
            else
                return false;
            return true;
        }
        // One of each is read; a second copy is kept as it stands.
        const std::optional<qsizetype> minimum = minimumSize(id);
        if (!minimum || data.size() < *minimum || m_seen.contains(id)) return false;
        m_seen.insert(id);
        if (id == "bext")
            decodeBext(data);
        else if (id == "cue ")
            decodeCue(data);
        else if (id == "smpl")
            decodeSmpl(data);
        else if (id == "inst")
            decodeInst(data);
        else if (id == "acid")
            decodeAcid(data);
        else if (id == "iXML")
            m_result.metadata.setValue(str("iXML"), decodeText(data));
        else
            decodePrivate(data);
        return true;
    }

    void decodeInfo(QByteArrayView body) {
        Writer leftovers(m_big);
        for (const SubChunk& sub : subChunks(body, m_big)) {
            const auto known = std::find_if(std::begin(kInfoKeys), std::end(kInfoKeys),
                                            [&](const InfoKey& k) { return sub.id == k.id; });
            if (sub.id == "IPRT" && !m_iprt) {
                m_iprt = decodeText(sub.data);
            } else if (known != std::end(kInfoKeys) && !m_infoKeys.contains(sub.id)) {
                m_infoKeys.insert(sub.id);
                m_result.metadata.setValue(str(known->key), decodeText(sub.data));
            } else {
                leftovers.chunk(sub.id, sub.data); // unknown, or a second field of the same kind
            }
        }
        if (leftovers.size() > 0) m_result.unknownChunks.append(listChunk("INFO", leftovers.data()));
    }

    void decodeAdtl(QByteArrayView body) {
        for (const SubChunk& sub : subChunks(body, m_big)) {
            Reader r(sub.data, m_big);
            const uint32_t cueId = r.u32();
            if (!r.ok()) continue;
            CueText& text = m_cueTexts[cueId];
            if (sub.id == "labl" && !text.hasLabel) {
                text.hasLabel = true;
                text.label = decodeText(r.bytes(r.remaining()));
            } else if (sub.id == "note" && !text.hasNote) {
                text.hasNote = true;
                text.note = decodeText(r.bytes(r.remaining()));
            } else if (sub.id == "ltxt" && !text.hasLtxt && sub.data.size() >= 20) {
                text.hasLtxt = true;
                text.length = r.u32();
                text.purpose = r.bytes(4).toByteArray();
                r.skip(8); // country, language, dialect, code page
                text.ltxtText = decodeText(r.bytes(r.remaining()));
            }
        }
    }

    void decodeBext(const QByteArray& data) {
        Reader r(data, m_big);
        LXMetadata& m = m_result.metadata;
        m.setValue(str("description"), decodeText(r.bytes(256)));
        m.setValue(str("originator"), decodeText(r.bytes(32)));
        m.setValue(str("originatorReference"), decodeText(r.bytes(32)));
        m.setValue(str("originationDate"), decodeText(r.bytes(10)));
        m.setValue(str("originationTime"), decodeText(r.bytes(8)));
        const uint64_t low = r.u32();
        const uint64_t high = r.u32();
        if (const uint64_t reference = (high << 32) | low)
            m.setValue(str("timeReference"), qint64(reference));
        const uint16_t version = r.u16();
        m.setValue(str("bextVersion"), int(version));
        const QByteArrayView umid = r.bytes(64);
        if (umid.size() == 64 && std::any_of(umid.begin(), umid.end(), [](char c) { return c != 0; })) {
            const bool basic = std::all_of(umid.begin() + 32, umid.end(), [](char c) { return c == 0; });
            m.setValue(str("SMPTEUMID"), hexText(basic ? umid.first(32) : umid));
        }
        if (version >= 2) {
            for (const char* key : kLoudnessKeys) {
                const int16_t value = r.s16();
                if (r.ok() && value != 0 && value != int16_t(kLoudnessUnset))
                    m.setValue(str(key), value / 100.0);
            }
        }
        if (data.size() > kBextSize)
            m.setValue(str("codingHistory"), decodeText(QByteArrayView(data).sliced(kBextSize)));
    }

    void decodeCue(const QByteArray& data) {
        Reader r(data, m_big);
        const qsizetype declared = r.u32();
        // Files exist whose count disagrees with the size: the size wins.
        const qsizetype count = std::min(declared, r.remaining() / kCuePoint);
        for (qsizetype i = 0; i < count; ++i) {
            CuePoint point;
            point.id = r.u32();
            const uint32_t position = r.u32();
            r.skip(12); // data chunk ID, chunk start, block start
            const uint32_t offset = r.u32();
            point.frame = offset != 0 ? offset : position;
            m_cues.append(point);
        }
    }

    void decodeSmpl(const QByteArray& data) {
        Reader r(data, m_big);
        LXMetadata& m = m_result.metadata;
        const uint32_t manufacturer = r.u32();
        const uint32_t product = r.u32();
        r.u32(); // sample period: follows from the rate
        const uint32_t unityNote = r.u32();
        const uint32_t fraction = r.u32();
        const uint32_t smpteFormat = r.u32();
        const uint32_t smpteOffset = r.u32();
        const qsizetype declaredLoops = r.u32();
        const qsizetype samplerDataSize = r.u32();

        int note = int(std::min<uint32_t>(unityNote, 127));
        int cents = int(std::lround(fraction * 100.0 / 4294967296.0));
        if (cents > 50 && note < 127) {
            ++note;
            cents -= 100;
        }
        m.setValue(str("baseNote"), note);
        m.setValue(str("detune"), cents);
        if (manufacturer) m.setValue(str("samplerManufacturer"), qint64(manufacturer));
        if (product) m.setValue(str("samplerProduct"), qint64(product));
        if (smpteFormat) m.setValue(str("SMPTEFormat"), qint64(smpteFormat));
        if (smpteOffset) m.setValue(str("SMPTEOffset"), qint64(smpteOffset));

        const qsizetype loops = std::min(declaredLoops, r.remaining() / kSmplLoop);
        for (qsizetype i = 0; i < loops; ++i) {
            SmplLoop loop;
            loop.id = r.u32();
            loop.type = r.u32();
            loop.start = r.u32();
            loop.end = r.u32();
            r.u32(); // fraction of a frame
            loop.playCount = r.u32();
            m_loops.append(loop);
        }
        // The sampler's own data follows the declared loops; when they do not fit, neither does it.
        if (loops == declaredLoops && samplerDataSize > 0) {
            const QByteArrayView samplerData = r.bytes(samplerDataSize);
            if (!samplerData.isEmpty()) m.setValue(str("samplerData"), hexText(samplerData));
        }
    }

    void decodeInst(const QByteArray& data) {
        Reader r(data, m_big);
        m_instNote = int(std::min<uint8_t>(r.u8(), 127));
        m_instDetune = int(int8_t(r.u8()));
        LXMetadata& m = m_result.metadata;
        m.setValue(str("gain"), int(int8_t(r.u8())));
        m.setValue(str("lowNote"), int(std::min<uint8_t>(r.u8(), 127)));
        m.setValue(str("highNote"), int(std::min<uint8_t>(r.u8(), 127)));
        m.setValue(str("lowVelocity"), int(std::min<uint8_t>(r.u8(), 127)));
        m.setValue(str("highVelocity"), int(std::min<uint8_t>(r.u8(), 127)));
    }

    void decodeAcid(const QByteArray& data) {
        Reader r(data, m_big);
        const uint32_t flags = r.u32();
        const uint16_t rootNote = r.u16();
        r.u16();
        r.f32();
        const uint32_t beats = r.u32();
        const uint16_t denominator = r.u16();
        const uint16_t numerator = r.u16();
        const float tempo = r.f32();
        LXMetadata& m = m_result.metadata;
        m.setValue(str("playbackType"), int(flags & 0x01));
        if (flags & 0x02) m.setValue(str("key"), int(rootNote % 12));
        if (beats > 0) m.setValue(str("beats"), qint64(beats));
        if (numerator > 0 && denominator > 0)
            m.setValue(str("timeSignature"), QStringLiteral("%1/%2").arg(numerator).arg(denominator));
        // The field is single precision: round away the float's tail so 97.3 reads as 97.3.
        if (std::isfinite(tempo) && tempo > 0 && tempo < 1.0e6)
            m.setValue(str("tempo"), std::round(double(tempo) * 10000.0) / 10000.0);
    }

    void decodePrivate(const QByteArray& data) {
        for (const SubChunk& record : subChunks(data, m_big)) {
            if (record.id == "META") decodeMetaRecord(record.data, m_big, m_private);
        }
    }

    void finishLabels() {
        QHash<uint32_t, uint32_t> loopStarts;
        for (const SmplLoop& loop : m_loops)
            loopStarts.insert(loop.id, loop.start);
        LXLabels& labels = m_result.labels;
        for (const CuePoint& cue : m_cues) {
            const auto loopStart = loopStarts.constFind(cue.id);
            if (loopStart != loopStarts.cend() && *loopStart == cue.frame) continue;
            const CueText& text = m_cueTexts[cue.id];
            const QString name = text.hasLabel ? text.label : text.hasNote ? text.note : text.ltxtText;
            const double start = cue.frame / m_rate;
            if (text.hasLtxt && (text.length > 0 || text.purpose == "rgn "))
                labels.regions.addRegionWithRange(LXRange::rangeWithLocation(start, text.length / m_rate),
                                                  name);
            else if (text.hasLtxt && text.purpose == "slic")
                labels.slices.addSliceWithPosition(start);
            else
                labels.markers.addMarkerWithPosition(start, name);
        }
        for (const SmplLoop& loop : m_loops) {
            const LXLoopType type = loop.type == 1   ? LXLoopType::Alternating
                                    : loop.type == 2 ? LXLoopType::Backward
                                                     : LXLoopType::Forward;
            const uint64_t end = loop.end >= loop.start ? uint64_t(loop.end) + 1 : loop.start;
            const int playCount = int(std::min<uint32_t>(loop.playCount, INT32_MAX));
            labels.loops.addLoopWithType(type, LXRange(loop.start / m_rate, double(end) / m_rate), playCount);
        }
    }

    void finishMetadata() {
        LXMetadata& m = m_result.metadata;
        if (m_instNote && !m.contains(str("baseNote"))) {
            m.setValue(str("baseNote"), *m_instNote);
            m.setValue(str("detune"), *m_instDetune);
        }
        if (m_iprt && !m.contains(str("trackNumber"))) m.setValue(str("trackNumber"), *m_iprt);
        m.addMetadata(m_private, false);
        if (!m.contains(str("album")) && m.contains(str("product")))
            m.setValue(str("album"), m.value(str("product")));
    }

    double m_rate;
    bool m_big;
    LXAnnotations m_result;
    QSet<QByteArray> m_seen;
    QSet<QByteArray> m_infoKeys;
    std::optional<QString> m_iprt;
    QList<CuePoint> m_cues;
    QHash<uint32_t, CueText> m_cueTexts;
    QList<SmplLoop> m_loops;
    std::optional<int> m_instNote;
    std::optional<int> m_instDetune;
    LXMetadata m_private;
};

// ---- Encoding

class Encoder {
public:
    Encoder(const LXAnnotations& annotations, double rate, bool bigEndian)
        : m_a(annotations), m_m(annotations.metadata), m_rate(usableRate(rate)), m_big(bigEndian) {}

    QList<LXChunk> encode(bool retainUnknown) {
        QList<LXChunk> out;
        encodeBext(out);
        if (m_m.contains(str("iXML"))) out.append({"iXML", m_m.string(str("iXML")).toUtf8()});
        encodeInfo(out, retainUnknown);
        encodeCues(out);
        encodeSmpl(out);
        encodeInst(out);
        encodeAcid(out);
        encodePrivate(out);
        if (retainUnknown) {
            for (const LXChunk& chunk : m_a.unknownChunks) {
                if (!isInfoList(chunk)) out.append(chunk);
            }
        }
        return out;
    }

private:
    static bool isInfoList(const LXChunk& chunk) {
        return chunk.id == "LIST" && chunk.data.startsWith("INFO");
    }

    QString text(const char* key) const { return m_m.string(str(key)); }

    void encodeBext(QList<LXChunk>& out) {
        if (!containsAny(m_m, kBextKeys)) return;
        int version = int(clampTo<int>(integerValue(m_m, str("bextVersion")).value_or(1), 0, 0xFFFF));
        if (m_m.contains(str("SMPTEUMID"))) version = std::max(version, 1);
        if (containsAny(m_m, kLoudnessKeys)) version = std::max(version, 2);
        Writer w(m_big);
        fixedText(w, text("description"), 256);
        fixedText(w, text("originator"), 32);
        fixedText(w, text("originatorReference"), 32);
        fixedText(w, text("originationDate"), 10);
        fixedText(w, text("originationTime"), 8);
        const uint64_t reference =
            uint64_t(std::max<qint64>(integerValue(m_m, str("timeReference")).value_or(0), 0));
        w.u32(uint32_t(reference));
        w.u32(uint32_t(reference >> 32));
        w.u16(uint16_t(version));
        QByteArray umid = QByteArray::fromHex(text("SMPTEUMID").toLatin1()).left(64);
        umid.append(64 - umid.size(), '\0');
        w.bytes(umid);
        for (const char* key : kLoudnessKeys) {
            const std::optional<double> value = version >= 2 ? realValue(m_m, str(key)) : std::nullopt;
            // 0x7FFF would read as "not measured".
            w.u16(value ? uint16_t(int16_t(std::lround(std::clamp(*value * 100.0, -32768.0, 32766.0)))) : 0);
        }
        w.zeros(kBextSize - w.size());
        w.bytes(text("codingHistory").toUtf8());
        out.append({"bext", w.data()});
    }

    static void fixedText(Writer& w, const QString& value, qsizetype width) {
        const QByteArray bytes = utf8Prefix(value, width);
        w.bytes(bytes);
        w.zeros(width - bytes.size());
    }

    void encodeInfo(QList<LXChunk>& out, bool retainUnknown) {
        Writer w(m_big);
        for (const InfoKey& field : kInfoKeys) {
            QString value = text(field.key);
            if (qstrcmp(field.id, "IPRD") == 0 && value.isEmpty()) value = text("album");
            if (!value.isEmpty()) w.chunk(QByteArrayView(field.id, 4), value.toUtf8() + '\0');
        }
        if (retainUnknown) {
            for (const LXChunk& chunk : m_a.unknownChunks) {
                if (!isInfoList(chunk)) continue;
                for (const SubChunk& sub : subChunks(QByteArrayView(chunk.data).sliced(4), m_big))
                    w.chunk(sub.id, sub.data);
            }
        }
        if (w.size() > 0) out.append(listChunk("INFO", w.data()));
    }

    void encodeCues(QList<LXChunk>& out) {
        Writer cues(m_big);
        Writer adtl(m_big);
        uint32_t count = 0;
        auto addPoint = [&](uint32_t frame) {
            const uint32_t id = ++count;
            cues.u32(id);
            cues.u32(frame);
            cues.bytes("data");
            cues.u32(0);
            cues.u32(0);
            cues.u32(frame);
            return id;
        };
        auto textChunk = [&](const char* kind, uint32_t id, const QString& value) {
            Writer sub(m_big);
            sub.u32(id);
            sub.bytes(value.toUtf8() + '\0');
            adtl.chunk(kind, sub.data());
        };
        auto ltxt = [&](uint32_t id, uint32_t length, const char* purpose) {
            Writer sub(m_big);
            sub.u32(id);
            sub.u32(length);
            sub.bytes(QByteArrayView(purpose, 4));
            sub.zeros(8);
            adtl.chunk("ltxt", sub.data());
        };
        for (const LXLabel& label : m_a.labels.markers.list()) {
            if (const auto frame = frame32(label.start, m_rate))
                textChunk("labl", addPoint(*frame), label.name);
        }
        for (const LXLabel& label : m_a.labels.slices.list()) {
            if (const auto frame = frame32(label.start, m_rate)) ltxt(addPoint(*frame), 0, "slic");
        }
        for (const LXLabel& label : m_a.labels.regions.list()) {
            const auto start = frame32(label.start, m_rate);
            if (!start) continue;
            const uint32_t end = std::max(frame32(label.end(), m_rate).value_or(UINT32_MAX), *start);
            const uint32_t id = addPoint(*start);
            ltxt(id, end - *start, "rgn ");
            if (!label.name.isEmpty()) textChunk("labl", id, label.name);
        }
        m_nextId = count + 1;
        if (count == 0) return;
        Writer cue(m_big);
        cue.u32(count);
        cue.bytes(cues.data());
        out.append({"cue ", cue.data()});
        out.append(listChunk("adtl", adtl.data()));
    }

    void encodeSmpl(QList<LXChunk>& out) {
        const QList<LXLabel>& loops = m_a.labels.loops.list();
        if (loops.isEmpty() && !containsAny(m_m, kSmplKeys)) return;
        Writer body(m_big);
        uint32_t loopCount = 0;
        for (const LXLabel& loop : loops) {
            const auto start = frame32(loop.start, m_rate);
            if (!start) continue;
            const uint32_t end = std::max(frame32(loop.end(), m_rate).value_or(UINT32_MAX), *start);
            body.u32(m_nextId++);
            body.u32(uint32_t(loop.loopType));
            body.u32(*start);
            body.u32(end > *start ? end - 1 : *start);
            body.u32(0);
            body.u32(uint32_t(std::max(loop.playCount, 0)));
            ++loopCount;
        }
        int note = clampTo<int>(integerValue(m_m, str("baseNote")).value_or(60), 0, 127);
        int cents = clampTo<int>(integerValue(m_m, str("detune")).value_or(0), -99, 99);
        if (cents < 0 && note > 0) {
            --note;
            cents += 100;
        }
        const uint32_t fraction =
            uint32_t(std::clamp(std::llround(std::max(cents, 0) / 100.0 * 4294967296.0), 0LL, 0xFFFFFFFFLL));
        const QByteArray samplerData = QByteArray::fromHex(text("samplerData").toLatin1());

        Writer w(m_big);
        w.u32(uint32_t(integerValue(m_m, str("samplerManufacturer")).value_or(0)));
        w.u32(uint32_t(integerValue(m_m, str("samplerProduct")).value_or(0)));
        w.u32(uint32_t(std::min(1.0e9 / m_rate, 4294967295.0)));
        w.u32(uint32_t(note));
        w.u32(fraction);
        w.u32(uint32_t(integerValue(m_m, str("SMPTEFormat")).value_or(0)));
        w.u32(uint32_t(integerValue(m_m, str("SMPTEOffset")).value_or(0)));
        w.u32(loopCount);
        w.u32(uint32_t(samplerData.size()));
        w.bytes(body.data());
        w.bytes(samplerData);
        out.append({"smpl", w.data()});
    }

    void encodeInst(QList<LXChunk>& out) {
        if (!containsAny(m_m, kInstKeys)) return;
        auto value = [&](const char* key, qint64 fallback, qint64 low, qint64 high) {
            return uint8_t(clampTo<int>(integerValue(m_m, str(key)).value_or(fallback), low, high));
        };
        Writer w(m_big);
        w.u8(value("baseNote", 60, 0, 127));
        w.u8(value("detune", 0, -50, 50));
        w.u8(value("gain", 0, -64, 64));
        w.u8(value("lowNote", 0, 0, 127));
        w.u8(value("highNote", 127, 0, 127));
        w.u8(value("lowVelocity", 1, 0, 127));
        w.u8(value("highVelocity", 127, 0, 127));
        out.append({"inst", w.data()});
    }

    void encodeAcid(QList<LXChunk>& out) {
        if (!containsAny(m_m, kAcidKeys)) return;
        const bool oneShot = integerValue(m_m, str("playbackType")).value_or(0) == 1;
        const std::optional<qint64> key = integerValue(m_m, str("key"));
        uint16_t numerator = 4;
        uint16_t denominator = 4;
        const QStringList meter = text("timeSignature").split(QLatin1Char('/'));
        if (meter.size() == 2 && meter[0].toUShort() > 0 && meter[1].toUShort() > 0) {
            numerator = meter[0].toUShort();
            denominator = meter[1].toUShort();
        }
        // 0x04: stretch, which a loop wants and a one-shot does not.
        const uint32_t flags = (oneShot ? 0x01 : 0x04) | (key ? 0x02 : 0);
        Writer w(m_big);
        w.u32(flags);
        w.u16(key ? uint16_t(48 + ((*key % 12) + 12) % 12) : 0);
        w.u16(0x8000);
        w.f32(0.0f);
        w.u32(uint32_t(std::clamp<qint64>(integerValue(m_m, str("beats")).value_or(0), 0, UINT32_MAX)));
        w.u16(denominator);
        w.u16(numerator);
        w.f32(float(std::clamp(realValue(m_m, str("tempo")).value_or(0.0), 0.0, 1.0e6)));
        out.append({"acid", w.data()});
    }

    void encodePrivate(QList<LXChunk>& out) {
        QStringList keys = privateRecordKeys();
        auto drop = [&](const auto& list) {
            for (const char* key : list)
                keys.removeAll(str(key));
        };
        for (const InfoKey& field : kInfoKeys)
            keys.removeAll(str(field.key));
        drop(kBextKeys);
        drop(kSmplKeys);
        drop(kInstKeys);
        drop(kAcidKeys);
        keys.removeAll(QStringLiteral("iXML"));
        // The album shares IPRD with the product; only an album of its own needs a place here.
        const QString iprd = text("product").isEmpty() ? text("album") : text("product");
        if (text("album") == iprd) keys.removeAll(QStringLiteral("album"));
        const QByteArray record = encodeMetaRecord(m_m, keys, m_big);
        if (record.isEmpty()) return;
        Writer w(m_big);
        w.chunk("META", record);
        out.append({"CLPW", w.data()});
    }

    const LXAnnotations& m_a;
    const LXMetadata& m_m;
    double m_rate;
    bool m_big;
    uint32_t m_nextId = 1;
};

} // namespace

namespace LXWaveChunks {

LXAnnotations decode(const QList<LXChunk>& chunks, double rate, bool bigEndian) {
    return Decoder(rate, bigEndian).decode(chunks);
}

QList<LXChunk> encode(const LXAnnotations& annotations, double rate, bool bigEndian, bool retainUnknown) {
    return Encoder(annotations, rate, bigEndian).encode(retainUnknown);
}

} // namespace LXWaveChunks
