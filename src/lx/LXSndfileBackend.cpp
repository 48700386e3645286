// Readers and sinks over libsndfile, for every format our own code does not handle.

#include "lx/LXAudioBackend.h"
#include "lx/LXFile.h"
#include "lx/LXFileDescriptor.h"

#include <QFile>
#include <QFileInfo>
#include <QStringDecoder>

#include <sndfile.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <sys/stat.h>
#include <type_traits>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

// Frames per libsndfile call where we convert through a buffer of our own.
constexpr int64_t kBlockFrames = 8192;

struct SndfileCloser {
    void operator()(SNDFILE* file) const { sf_close(file); }
};
using SndfileHandle = std::unique_ptr<SNDFILE, SndfileCloser>;

// Closes now and reports what close() says: on network file systems a failed write can surface here.
bool closeChecked(LXFileDescriptor& fd) {
    return ::close(fd.release()) == 0;
}

// libsndfile gets descriptors rather than paths: a failed open(2) then gives the system's reason, and
// the sink can fsync what it wrote.
LXFileDescriptor openPath(const QString& path, int flags, mode_t mode = 0) {
    int fd;
    do
        fd = ::open(QFile::encodeName(path).constData(), flags | O_CLOEXEC, mode);
    while (fd < 0 && errno == EINTR);
    return LXFileDescriptor(fd);
}

// libsndfile's texts read "Error : flac decoder lost sync." or "System error : Permission denied.": the
// reason alone, as a clause that follows ours.
QString sndfileText(const char* text) {
    QString reason = QString::fromLocal8Bit(text).trimmed();
    for (const QLatin1StringView prefix : {QLatin1StringView("System error :"), QLatin1StringView("Error :")})
        if (reason.startsWith(prefix, Qt::CaseInsensitive)) reason = reason.mid(prefix.size()).trimmed();
    if (reason.endsWith(u'.')) reason.chop(1);
    return reason;
}

QString sndfileReason(SNDFILE* file) {
    return sndfileText(sf_strerror(file));
}

// libsndfile hands over text as stored: UTF-8 in Vorbis comments and CAF, anything in RIFF INFO.
QString decodeText(const char* text, size_t maxLength) {
    const QByteArray bytes(text, qsizetype(strnlen(text, maxLength)));
    QStringDecoder utf8(QStringDecoder::Utf8);
    QString decoded = utf8(bytes);
    if (utf8.hasError()) decoded = QString::fromLatin1(bytes);
    return decoded.trimmed();
}

// Fixed-size text fields (bext): truncated to fit, always terminated.
template <size_t N> void copyText(char (&field)[N], const QString& text, bool terminate) {
    const QByteArray bytes = text.toUtf8();
    std::memset(field, 0, N);
    std::memcpy(field, bytes.constData(), std::min<size_t>(size_t(bytes.size()), terminate ? N - 1 : N));
}

// The string slots libsndfile knows, under our metadata keys.
struct StringKey {
    int type;
    const char* key;
};
constexpr StringKey kStringKeys[] = {
    {SF_STR_TITLE, "title"},   {SF_STR_COPYRIGHT, "copyright"}, {SF_STR_SOFTWARE, "softwarePackage"},
    {SF_STR_ARTIST, "artist"}, {SF_STR_COMMENT, "comments"},    {SF_STR_DATE, "creationDate"},
    {SF_STR_ALBUM, "album"},   {SF_STR_GENRE, "genre"},         {SF_STR_TRACKNUMBER, "trackNumber"},
};

// ---- formats ---------------------------------------------------------------------------------------

bool isBigEndianByDefault(int major) {
    switch (major) {
    case SF_FORMAT_AIFF:
    case SF_FORMAT_AU:
    case SF_FORMAT_CAF:
    case SF_FORMAT_SD2:
    case SF_FORMAT_SVX:
    case SF_FORMAT_HTK:
    case SF_FORMAT_SDS:
    case SF_FORMAT_AVR:
        return true;
    default:
        return false;
    }
}

uint32_t formatCode(int sfFormat, const QString& path) {
    switch (sfFormat & SF_FORMAT_TYPEMASK) {
    case SF_FORMAT_WAV:
    case SF_FORMAT_WAVEX:
        return LXFormat::WAVE;
    case SF_FORMAT_RF64:
        return LXFormat::RF64;
    case SF_FORMAT_AIFF:
        // libsndfile calls both AIFF; the form type tells them apart.
        return LXFile::typeCodeAtPath(path) == LXFormat::AIFC ? LXFormat::AIFC : LXFormat::AIFF;
    case SF_FORMAT_CAF:
        return LXFormat::CAF;
    case SF_FORMAT_AU:
        return LXFormat::AU;
    case SF_FORMAT_W64:
        return LXFormat::W64;
    case SF_FORMAT_FLAC:
        return LXFormat::FLAC;
    case SF_FORMAT_OGG:
        return (sfFormat & SF_FORMAT_SUBMASK) == SF_FORMAT_OPUS ? LXFormat::Opus : LXFormat::Ogg;
    case SF_FORMAT_MPEG:
        return LXFormat::MP3;
    case SF_FORMAT_SD2:
        return LXFormat::SD2;
    default:
        return LXFormat::Unknown; // readable, but none of the formats the application names
    }
}

LXSampleEncoding encodingOf(int sfFormat) {
    const int endian = sfFormat & SF_FORMAT_ENDMASK;
    const bool big = endian == SF_ENDIAN_BIG ||
                     (endian != SF_ENDIAN_LITTLE && isBigEndianByDefault(sfFormat & SF_FORMAT_TYPEMASK));
    switch (sfFormat & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_DPCM_8:
        return LXSampleEncoding::pcm(8, big);
    case SF_FORMAT_PCM_U8:
        return LXSampleEncoding::pcm(8, big, true);
    case SF_FORMAT_DWVW_12:
        return LXSampleEncoding::pcm(12, big);
    case SF_FORMAT_ALAC_20:
        return LXSampleEncoding::pcm(20, big);
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_DWVW_24:
    case SF_FORMAT_ALAC_24:
        return LXSampleEncoding::pcm(24, big);
    case SF_FORMAT_PCM_32:
    case SF_FORMAT_ALAC_32:
        return LXSampleEncoding::pcm(32, big);
    case SF_FORMAT_FLOAT:
        return LXSampleEncoding::ieeeFloat(32, big);
    case SF_FORMAT_DOUBLE:
        return LXSampleEncoding::ieeeFloat(64, big);
    default:
        // 16-bit integers, and what compressed encodings (mu-law, ADPCM, Vorbis, MPEG) decode to
        // and are shown as.
        return LXSampleEncoding::pcm(16, big);
    }
}

// libsndfile's compressed subtypes and the codec each is. Several subtypes of one codec differ in the
// sample size they decode to (DWVW, DPCM, NMS ADPCM, ALAC); a writer picks the one whose size matches.
struct CodecSubtype {
    int subtype;
    LXCodec codec;
};
constexpr CodecSubtype kCodecSubtypes[] = {
    {SF_FORMAT_ULAW, LXCodec::ULaw},
    {SF_FORMAT_ALAW, LXCodec::ALaw},
    {SF_FORMAT_IMA_ADPCM, LXCodec::ImaAdpcm},
    {SF_FORMAT_MS_ADPCM, LXCodec::MsAdpcm},
    {SF_FORMAT_GSM610, LXCodec::Gsm610},
    {SF_FORMAT_G721_32, LXCodec::G721},
    {SF_FORMAT_G723_24, LXCodec::G723_24},
    {SF_FORMAT_G723_40, LXCodec::G723_40},
    {SF_FORMAT_DWVW_16, LXCodec::Dwvw},
    {SF_FORMAT_DWVW_12, LXCodec::Dwvw},
    {SF_FORMAT_DWVW_24, LXCodec::Dwvw},
    {SF_FORMAT_DWVW_N, LXCodec::Dwvw},
    {SF_FORMAT_DPCM_16, LXCodec::Dpcm},
    {SF_FORMAT_DPCM_8, LXCodec::Dpcm},
    {SF_FORMAT_NMS_ADPCM_16, LXCodec::NmsAdpcm},
    {SF_FORMAT_NMS_ADPCM_24, LXCodec::NmsAdpcm},
    {SF_FORMAT_NMS_ADPCM_32, LXCodec::NmsAdpcm},
    {SF_FORMAT_VOX_ADPCM, LXCodec::VoxAdpcm},
    {SF_FORMAT_ALAC_16, LXCodec::Alac},
    {SF_FORMAT_ALAC_20, LXCodec::Alac},
    {SF_FORMAT_ALAC_24, LXCodec::Alac},
    {SF_FORMAT_ALAC_32, LXCodec::Alac},
    {SF_FORMAT_VORBIS, LXCodec::Vorbis},
    {SF_FORMAT_OPUS, LXCodec::Opus},
    {SF_FORMAT_MPEG_LAYER_I, LXCodec::MpegLayer1},
    {SF_FORMAT_MPEG_LAYER_II, LXCodec::MpegLayer2},
    {SF_FORMAT_MPEG_LAYER_III, LXCodec::MpegLayer3},
};

LXCodec codecOf(int sfFormat) {
    for (const CodecSubtype& c : kCodecSubtypes)
        if (c.subtype == (sfFormat & SF_FORMAT_SUBMASK)) return c.codec;
    return LXCodec::None;
}

// 32-bit integers lose their low bits in a float: libsndfile must convert them through double.
bool needsDouble(int sfFormat) {
    const int sub = sfFormat & SF_FORMAT_SUBMASK;
    return sub == SF_FORMAT_PCM_32 || sub == SF_FORMAT_ALAC_32 || sub == SF_FORMAT_DOUBLE;
}

int majorFormatFor(uint32_t format) {
    switch (format) {
    case LXFormat::WAVE:
        return SF_FORMAT_WAV;
    case LXFormat::RF64:
        return SF_FORMAT_RF64;
    case LXFormat::AIFF:
    case LXFormat::AIFC:
        return SF_FORMAT_AIFF;
    case LXFormat::CAF:
        return SF_FORMAT_CAF;
    case LXFormat::AU:
        return SF_FORMAT_AU;
    case LXFormat::W64:
        return SF_FORMAT_W64;
    case LXFormat::FLAC:
        return SF_FORMAT_FLAC;
    case LXFormat::Ogg:
    case LXFormat::Opus:
        return SF_FORMAT_OGG;
    case LXFormat::MP3:
        return SF_FORMAT_MPEG;
    default:
        return 0;
    }
}

int subtypeFor(const LXStreamDescription& desc, int major) {
    const LXSampleEncoding& e = desc.encoding;
    if (desc.codec != LXCodec::None) {
        int first = 0;
        for (const CodecSubtype& c : kCodecSubtypes) {
            if (c.codec != desc.codec) continue;
            if (encodingOf(c.subtype).bits == e.bits) return c.subtype;
            if (first == 0) first = c.subtype;
        }
        return first;
    }
    if (major == SF_FORMAT_OGG) return desc.format == LXFormat::Opus ? SF_FORMAT_OPUS : SF_FORMAT_VORBIS;
    if (major == SF_FORMAT_MPEG) return SF_FORMAT_MPEG_LAYER_III;
    if (e.isFloat()) return e.bits == 32 ? SF_FORMAT_FLOAT : e.bits == 64 ? SF_FORMAT_DOUBLE : 0;
    switch (e.bits) {
    case 8: {
        // WAV and W64 store 8 bits unsigned, whatever the caller says; libsndfile refuses the rest.
        const bool unsignedOnly = major == SF_FORMAT_WAV || major == SF_FORMAT_W64 || major == SF_FORMAT_RF64;
        return unsignedOnly ? SF_FORMAT_PCM_U8 : SF_FORMAT_PCM_S8;
    }
    case 16:
        return SF_FORMAT_PCM_16;
    case 24:
        return SF_FORMAT_PCM_24;
    case 32:
        return SF_FORMAT_PCM_32;
    default:
        return 0;
    }
}

QString encodingName(const LXStreamDescription& desc) {
    if (desc.codec != LXCodec::None) return LXCodecName(desc.codec);
    const LXSampleEncoding& e = desc.encoding;
    return QStringLiteral("%1-bit %2")
        .arg(e.bits)
        .arg(e.isFloat() ? QStringLiteral("float") : QStringLiteral("integer"));
}

// ---- reading ---------------------------------------------------------------------------------------

// Lossy decoders build each frame from the packets before it too: a read that starts right at a seek
// point gets its first frames wrong (about a hundred, seen with Vorbis). Starting this many frames
// earlier and dropping them covers the longest Vorbis block, Opus's pre-roll and MP3's bit reservoir.
int64_t prerollFrames(int format) {
    const int major = format & SF_FORMAT_TYPEMASK;
    return major == SF_FORMAT_OGG || major == SF_FORMAT_MPEG ? 8192 : 0;
}

class SndfileReader final : public LXAudioReader {
public:
    static LXResult<std::unique_ptr<LXAudioReader>> open(const QString& path);

    const LXStreamDescription& description() const override { return m_desc; }
    const LXAnnotations& annotations() const override { return m_annotations; }
    LXResult<int64_t> read(int64_t frame, int64_t count, float* out) override {
        return readFrames(frame, count, out);
    }
    LXResult<int64_t> read(int64_t frame, int64_t count, double* out) override {
        return readFrames(frame, count, out);
    }

private:
    SndfileReader(QString path, LXFileDescriptor fd, SNDFILE* file, const SF_INFO& info);

    template <typename T> LXResult<int64_t> readFrames(int64_t frame, int64_t count, T* out);
    // A read that libsndfile gave up at frame `at`: the system's failure, or a stream it could not decode.
    LXError readError(int64_t at);
    int64_t readBlock(int64_t frames, float* out);
    int64_t readBlock(int64_t frames, double* out) { return sf_readf_double(m_file.get(), out, frames); }
    LXStatus seekTo(int64_t frame);
    LXStatus countFrames();

    void readStrings();
    void readCues();
    void readInstrument();
    void readBroadcastInfo();

    QString m_path;
    LXFileDescriptor m_fd; // before m_file: libsndfile must let go of it first
    SndfileHandle m_file;
    bool m_seekable;
    bool m_floatViaDouble;
    int64_t m_preroll;      // frames decoded and dropped before a seek point
    int64_t m_position = 0; // where libsndfile reads next; -1 after a failure
    LXStreamDescription m_desc;
    LXAnnotations m_annotations;
    std::vector<double> m_scratch;
};

// The average bit rate of a lossy stream: its bytes over its length, less the ID3 tags an MP3 file may
// carry before and after the audio (a cover picture there would otherwise count as audio). The codecs'
// own headers give only a nominal rate, or the rate of one frame of a variable-rate stream.
int averageBitRate(int fd, int64_t size, const LXStreamDescription& desc) {
    if (desc.frames <= 0 || !(desc.rate > 0)) return 0;
    int64_t audio = size;
    uint8_t head[10];
    if (::pread(fd, head, sizeof head, 0) == ssize_t(sizeof head) && std::memcmp(head, "ID3", 3) == 0)
        audio -= 10 + ((int64_t(head[6] & 0x7F) << 21) | ((head[7] & 0x7F) << 14) | ((head[8] & 0x7F) << 7) |
                       (head[9] & 0x7F)) + ((head[5] & 0x10) ? 10 : 0);
    char tail[3];
    if (size >= 128 && ::pread(fd, tail, 3, size - 128) == 3 && std::memcmp(tail, "TAG", 3) == 0) audio -= 128;
    const double seconds = double(desc.frames) / desc.rate;
    return audio > 0 ? int(std::lround(double(audio) * 8.0 / seconds)) : 0;
}

LXError openError(const QString& path, int code, const QString& reason) {
    if (code == SF_ERR_UNSUPPORTED_ENCODING)
        return LXError(LXErrUnsupported,
                       QStringLiteral("the file's encoding is not supported (%1)").arg(reason), path);
    if (code == SF_ERR_SYSTEM)
        return LXError(LXErrReadFailed, QStringLiteral("cannot read the file (%1)").arg(reason), path);
    // libsndfile's many codes do not separate "not a format I know" from "a format I know, broken"
    // reliably; the file's own signature does.
    const uint32_t type = LXFile::typeCodeAtPath(path);
    if (type != LXFormat::Unknown)
        return LXError(LXErrDamaged,
                       QStringLiteral("the %1 file is damaged (%2)").arg(LXFormat::name(type), reason), path);
    return LXError(LXErrUnsupported,
                   QStringLiteral("not a sound file this program can read (%1)").arg(reason), path);
}

LXResult<std::unique_ptr<LXAudioReader>> SndfileReader::open(const QString& path) {
    LXFileDescriptor fd = openPath(path, O_RDONLY);
    if (!fd.isOpen()) return LXFileError::fromErrno(QStringLiteral("Cannot open the file"), path);
    struct stat st;
    if (::fstat(fd.get(), &st) != 0)
        return LXFileError::fromErrno(QStringLiteral("Cannot open the file"), path);
    if (S_ISDIR(st.st_mode))
        return LXFileError(QStringLiteral("Cannot open a folder as a sound file"), path, EISDIR);
    // An empty file is a truncated recording when its name says audio, and just not audio otherwise.
    if (S_ISREG(st.st_mode) && st.st_size == 0) {
        if (LXFormat::fromExtension(QFileInfo(path).suffix()) != LXFormat::Unknown)
            return LXError(LXErrTruncated, QStringLiteral("the file is empty"), path, 0);
        return LXError(LXErrUnsupported, QStringLiteral("the file is empty"), path);
    }

    SF_INFO info = {};
    SNDFILE* file = sf_open_fd(fd.get(), SFM_READ, &info, SF_FALSE);
    // FIXME: libsndfile keeps the error of a failed open in one process-wide variable, so two threads
    // failing at once may swap reasons; the damaged/unsupported verdict comes from the file itself.
    if (!file) return openError(path, sf_error(nullptr), sndfileReason(nullptr));
    if (info.channels < 1 || info.samplerate < 1) {
        sf_close(file);
        return LXError(
            LXErrDamaged,
            QStringLiteral("the header gives %1 channels at %2 Hz").arg(info.channels).arg(info.samplerate),
            path);
    }
    std::unique_ptr<SndfileReader> reader(new SndfileReader(path, std::move(fd), file, info));
    // A damaged stream (a truncated Ogg file, say) can leave the length unknown: libsndfile then gives
    // the largest count there is. Decoding to the end is the only count to be had.
    if (info.frames < 0 || info.frames == SF_COUNT_MAX) LX_TRY(reader->countFrames());
    if (LXCodecIsLossy(reader->m_desc.codec) && S_ISREG(st.st_mode))
        reader->m_desc.bitRate = averageBitRate(reader->m_fd.get(), st.st_size, reader->m_desc);
    return std::unique_ptr<LXAudioReader>(std::move(reader));
}

LXStatus SndfileReader::countFrames() {
    m_desc.frames = 0;
    m_scratch.resize(size_t(kBlockFrames * m_desc.channels));
    for (;;) {
        const int64_t got = sf_readf_double(m_file.get(), m_scratch.data(), kBlockFrames);
        if (got <= 0) break;
        m_desc.frames += got;
    }
    m_position = m_desc.frames;
    return seekTo(0);
}

SndfileReader::SndfileReader(QString path, LXFileDescriptor fd, SNDFILE* file, const SF_INFO& info)
    : m_path(std::move(path)), m_fd(std::move(fd)), m_file(file), m_seekable(info.seekable != 0),
      m_floatViaDouble(needsDouble(info.format)), m_preroll(prerollFrames(info.format)) {
    m_desc.format = formatCode(info.format, m_path);
    m_desc.encoding = encodingOf(info.format);
    m_desc.codec = codecOf(info.format);
    m_desc.rate = info.samplerate;
    m_desc.channels = info.channels;
    m_desc.frames = info.frames;
    readStrings();
    readCues();
    readInstrument();
    readBroadcastInfo();
}

void SndfileReader::readStrings() {
    for (const StringKey& s : kStringKeys)
        if (const char* text = sf_get_string(m_file.get(), s.type))
            m_annotations.metadata.setValue(QString::fromLatin1(s.key), decodeText(text, SIZE_MAX));
    // No key of its own: a license reads best as the copyright when the file has none.
    if (const char* license = sf_get_string(m_file.get(), SF_STR_LICENSE);
        license && !m_annotations.metadata.contains(QStringLiteral("copyright")))
        m_annotations.metadata.setValue(QStringLiteral("copyright"), decodeText(license, SIZE_MAX));
}

void SndfileReader::readCues() {
    uint32_t count = 0;
    if (sf_command(m_file.get(), SFC_GET_CUE_COUNT, &count, sizeof count) != SF_TRUE || count == 0) return;
    // SF_CUES is an array of 100; libsndfile fills a larger one when told its size. Copied out with
    // memcpy rather than read through a cast of the raw buffer.
    const size_t bytes = std::max(sizeof(SF_CUES), sizeof(uint32_t) + size_t(count) * sizeof(SF_CUE_POINT));
    std::vector<uint32_t> buffer((bytes + sizeof(uint32_t) - 1) / sizeof(uint32_t));
    if (sf_command(m_file.get(), SFC_GET_CUE, buffer.data(), int(buffer.size() * sizeof(uint32_t))) !=
        SF_TRUE)
        return;
    const uint32_t filled = std::min(buffer[0], count);
    const char* points = reinterpret_cast<const char*>(buffer.data()) + offsetof(SF_CUES, cue_points);
    for (uint32_t i = 0; i < filled; ++i) {
        SF_CUE_POINT cue;
        std::memcpy(&cue, points + i * sizeof(SF_CUE_POINT), sizeof cue);
        m_annotations.labels.markers.addMarkerWithPosition(double(cue.sample_offset) / m_desc.rate,
                                                           decodeText(cue.name, sizeof cue.name));
    }
}

void SndfileReader::readInstrument() {
    SF_INSTRUMENT inst = {};
    if (sf_command(m_file.get(), SFC_GET_INSTRUMENT, &inst, sizeof inst) != SF_TRUE) return;
    LXMetadata& m = m_annotations.metadata;
    // char is signed here but not everywhere; detune is the one field that goes below zero.
    m.setValue(QStringLiteral("baseNote"), int(uint8_t(inst.basenote)));
    m.setValue(QStringLiteral("detune"), int(static_cast<signed char>(inst.detune)));
    m.setValue(QStringLiteral("gain"), inst.gain);
    m.setValue(QStringLiteral("lowNote"), int(uint8_t(inst.key_lo)));
    m.setValue(QStringLiteral("highNote"), int(uint8_t(inst.key_hi)));
    m.setValue(QStringLiteral("lowVelocity"), int(uint8_t(inst.velocity_lo)));
    m.setValue(QStringLiteral("highVelocity"), int(uint8_t(inst.velocity_hi)));

    const int loops = std::clamp(inst.loop_count, 0, int(std::size(inst.loops)));
    for (int i = 0; i < loops; ++i) {
        const auto& loop = inst.loops[i];
        LXLoopType type;
        switch (loop.mode) {
        case SF_LOOP_FORWARD:
            type = LXLoopType::Forward;
            break;
        case SF_LOOP_BACKWARD:
            type = LXLoopType::Backward;
            break;
        case SF_LOOP_ALTERNATING:
            type = LXLoopType::Alternating;
            break;
        default:
            continue; // SF_LOOP_NONE: a slot without a loop
        }
        if (loop.end <= loop.start) continue;
        // libsndfile gives the end one past the last frame of the loop.
        m_annotations.labels.loops.addLoopWithType(
            type, LXRange::fromFrames(loop.start, loop.end, m_desc.rate), int(loop.count));
    }
}

void SndfileReader::readBroadcastInfo() {
    SF_BROADCAST_INFO bext = {};
    if (sf_command(m_file.get(), SFC_GET_BROADCAST_INFO, &bext, sizeof bext) != SF_TRUE) return;
    LXMetadata& m = m_annotations.metadata;
    m.setValue(QStringLiteral("description"), decodeText(bext.description, sizeof bext.description));
    m.setValue(QStringLiteral("originator"), decodeText(bext.originator, sizeof bext.originator));
    m.setValue(QStringLiteral("originatorReference"),
               decodeText(bext.originator_reference, sizeof bext.originator_reference));
    m.setValue(QStringLiteral("originationDate"),
               decodeText(bext.origination_date, sizeof bext.origination_date));
    m.setValue(QStringLiteral("originationTime"),
               decodeText(bext.origination_time, sizeof bext.origination_time));
    const uint64_t timeReference = (uint64_t(bext.time_reference_high) << 32) | bext.time_reference_low;
    m.setValue(QStringLiteral("timeReference"), QString::number(timeReference));
    const size_t history = std::min<size_t>(bext.coding_history_size, sizeof bext.coding_history);
    m.setValue(QStringLiteral("codingHistory"), decodeText(bext.coding_history, history));
}

LXStatus SndfileReader::seekTo(int64_t frame) {
    if (frame == m_position) return {};
    if (!m_seekable)
        return LXError(
            LXErrReadFailed,
            QStringLiteral("cannot read from frame %1: the stream cannot seek, and it is at frame %2")
                .arg(frame)
                .arg(m_position),
            m_path);
    const int64_t start = std::max<int64_t>(0, frame - m_preroll);
    if (sf_seek(m_file.get(), start, SEEK_SET) != start) {
        m_position = -1;
        return LXError(
            LXErrReadFailed,
            QStringLiteral("cannot seek to frame %1 (%2)").arg(frame).arg(sndfileReason(m_file.get())),
            m_path);
    }
    for (int64_t at = start; at < frame;) {
        const int64_t n = std::min(kBlockFrames, frame - at);
        m_scratch.resize(size_t(n * m_desc.channels));
        const int64_t got = sf_readf_double(m_file.get(), m_scratch.data(), n);
        if (got != n) return readError(at + std::max<int64_t>(got, 0));
        at += got;
    }
    m_position = frame;
    return {};
}

int64_t SndfileReader::readBlock(int64_t frames, float* out) {
    if (!m_floatViaDouble) return sf_readf_float(m_file.get(), out, frames);
    const size_t channels = size_t(m_desc.channels);
    int64_t done = 0;
    while (done < frames) {
        const int64_t n = std::min(kBlockFrames, frames - done);
        m_scratch.resize(size_t(n) * channels);
        const int64_t got = sf_readf_double(m_file.get(), m_scratch.data(), n);
        if (got <= 0) break;
        std::transform(m_scratch.data(), m_scratch.data() + size_t(got) * channels,
                       out + size_t(done) * channels, [](double v) { return float(v); });
        done += got;
        if (got < n) break;
    }
    return done;
}

template <typename T> LXResult<int64_t> SndfileReader::readFrames(int64_t frame, int64_t count, T* out) {
    if (frame < 0 || count < 0)
        return LXError(LXErrInvalidParameter,
                       QStringLiteral("cannot read %1 frames from frame %2").arg(count).arg(frame), m_path);
    if (count == 0 || frame >= m_desc.frames) return int64_t(0);
    count = std::min(count, m_desc.frames - frame);
    LX_TRY(seekTo(frame));

    const int64_t got = readBlock(count, out);
    if (got < count && sf_error(m_file.get()) != SF_ERR_NO_ERROR)
        return readError(frame + std::max<int64_t>(got, 0));
    // The decoder ended before the length the header gave: the file ends here.
    if (got < count) m_desc.frames = frame + std::max<int64_t>(got, 0);
    m_position = frame + got;
    return got;
}

LXError SndfileReader::readError(int64_t at) {
    m_position = -1;
    const QString name = LXFormat::name(m_desc.format);
    const int code = sf_error(m_file.get());
    if (code == SF_ERR_NO_ERROR)
        return LXError(LXErrTruncated,
                       QStringLiteral("the %1 stream ends at frame %2, before the %3 frames its header gives")
                           .arg(name)
                           .arg(at)
                           .arg(m_desc.frames),
                       m_path);
    const QString reason = sndfileReason(m_file.get());
    if (code == SF_ERR_SYSTEM)
        return LXError(LXErrReadFailed,
                       QStringLiteral("cannot read the audio at frame %1: %2").arg(at).arg(reason), m_path);
    return LXError(LXErrDamaged,
                   QStringLiteral("the %1 stream is damaged at frame %2 (%3)").arg(name).arg(at).arg(reason),
                   m_path);
}

// ---- writing ---------------------------------------------------------------------------------------

// libsndfile takes annotations only before the first frame for most formats (FLAC, Ogg and MP3 tags;
// WAV and AIFF cues, instruments and bext), but the sink learns them when it finishes. For those
// formats the sink keeps the frames as doubles in an unnamed temporary file beside the target and
// encodes the whole file at finish, annotations first: twice the disk traffic, but flat memory and
// nothing lost that libsndfile can store. CAF takes its strings after the audio, AU and W64 store
// none, so those three are written straight through.
//
// What no sink here keeps, because libsndfile cannot store it: CAF markers, loops and instrument data;
// everything in AU and W64; regions, and the difference between slices and markers (both are written
// as cue points); cue names in WAV; unknown chunks in every format.
class SndfileSink final : public LXAudioSink {
public:
    static LXResult<std::unique_ptr<LXAudioSink>> create(const QString& path,
                                                         const LXStreamDescription& desc);

    LXStatus write(const float* in, int64_t frames) override { return writeFrames(in, frames); }
    LXStatus write(const double* in, int64_t frames) override { return writeFrames(in, frames); }
    LXStatus finish(const LXAnnotations& annotations, bool retainUnknownChunks) override;

private:
    SndfileSink(QString path, LXFileDescriptor target, const SF_INFO& info, int bitRate)
        : m_path(std::move(path)), m_target(std::move(target)), m_info(info), m_bitRate(bitRate) {}

    LXStatus openEncoder();
    std::optional<double> levelForBitRate();
    LXResult<int64_t> encodedBytes(double level, int64_t frames);
    void storeAnnotationsBeforeAudio(const LXAnnotations& annotations);
    void storeStrings(const LXMetadata& metadata);
    template <typename T> LXStatus writeFrames(const T* in, int64_t frames);
    LXStatus encode(const double* in, int64_t frames);
    LXStatus encode(const float* in, int64_t frames);
    LXStatus stage(const double* in, int64_t frames);
    LXStatus encodeStagedFrames();
    LXError writeError(const QString& what) const;

    QString m_path;
    LXFileDescriptor m_target;
    LXFileDescriptor m_staging; // valid while frames wait for finish
    SndfileHandle m_file;       // after both descriptors: closed before them
    SF_INFO m_info;
    int m_bitRate;                     // lossy codecs: the bit rate to aim at (0: the encoder's default)
    std::optional<double> m_level;     // the compression level that gives it
    int64_t m_stagedFrames = 0;
    bool m_finished = false;
    std::vector<double> m_scratch;
};

bool storesAnnotationsOnlyBeforeAudio(int major) {
    return major == SF_FORMAT_FLAC || major == SF_FORMAT_OGG || major == SF_FORMAT_MPEG ||
           major == SF_FORMAT_WAV || major == SF_FORMAT_RF64 || major == SF_FORMAT_AIFF;
}

// A file in the target's directory (same file system, same quota) that has no name, so that nothing is
// left behind whatever happens to the process.
LXFileDescriptor openStagingFile(const QString& directory) {
    LXFileDescriptor fd = openPath(directory, O_TMPFILE | O_RDWR, 0600);
    if (fd.isOpen() || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)) return fd;
    QByteArray pattern = QFile::encodeName(directory + QStringLiteral("/.clipwright-stage-XXXXXX"));
    const int raw = ::mkostemp(pattern.data(), O_CLOEXEC);
    if (raw >= 0) ::unlink(pattern.constData());
    return LXFileDescriptor(raw);
}

// What libsndfile is told to write for a description, or why it cannot write it.
LXResult<SF_INFO> sfInfoFor(const QString& path, const LXStreamDescription& desc) {
    const int major = majorFormatFor(desc.format);
    if (major == 0)
        return LXError(LXErrUnsupported,
                       QStringLiteral("cannot write %1 files").arg(LXFormat::name(desc.format)), path);
    if (desc.channels < 1 || !(desc.rate >= 1.0) || desc.rate > double(INT_MAX))
        return LXError(LXErrInvalidParameter,
                       QStringLiteral("cannot write %1 channels at %2 Hz").arg(desc.channels).arg(desc.rate),
                       path);
    if (major == SF_FORMAT_FLAC && (desc.encoding.isFloat() || desc.encoding.bits > 24))
        return LXError(LXErrInvalidParameter,
                       QStringLiteral("FLAC stores 8-, 16- or 24-bit integers, not %1 samples")
                           .arg(encodingName(desc)),
                       path);
    // libsndfile's format check lets Opus through at any rate; its encoder then refuses all but these.
    const int rate = int(std::lround(desc.rate));
    if (desc.format == LXFormat::Opus && rate != 48000 && rate != 24000 && rate != 16000 && rate != 12000 &&
        rate != 8000)
        return LXError(LXErrInvalidParameter,
                       QStringLiteral("Opus stores 48, 24, 16, 12 or 8 kHz, not %1 Hz").arg(desc.rate), path);
    const int subtype = subtypeFor(desc, major);
    // libsndfile reads MPEG Layers 1 and 2 but encodes Layer 3 only, and its format check does not know.
    if (subtype == 0 || (major == SF_FORMAT_MPEG && subtype != SF_FORMAT_MPEG_LAYER_III))
        return LXError(LXErrInvalidParameter,
                       QStringLiteral("cannot write %1 samples to a %2 file")
                           .arg(encodingName(desc), LXFormat::name(desc.format)),
                       path);

    SF_INFO info = {};
    info.samplerate = int(std::lround(desc.rate));
    info.channels = desc.channels;
    info.format = major | subtype;
    // The caller's byte order where the format has a choice (RIFX, little-endian AIFC, CAF, AU), the
    // format's own otherwise.
    const bool wantBig = desc.encoding.bigEndian;
    const bool hasByteOrderChoice =
        major == SF_FORMAT_WAV || major == SF_FORMAT_AIFF || major == SF_FORMAT_CAF || major == SF_FORMAT_AU;
    if (hasByteOrderChoice && wantBig != isBigEndianByDefault(major)) {
        SF_INFO ordered = info;
        ordered.format |= wantBig ? SF_ENDIAN_BIG : SF_ENDIAN_LITTLE;
        if (sf_format_check(&ordered)) info = ordered;
    }
    if (!sf_format_check(&info))
        return LXError(LXErrInvalidParameter,
                       QStringLiteral("cannot write %1 samples in %2 channels to a %3 file")
                           .arg(encodingName(desc))
                           .arg(desc.channels)
                           .arg(LXFormat::name(desc.format)),
                       path);
    return info;
}

LXResult<std::unique_ptr<LXAudioSink>> SndfileSink::create(const QString& path,
                                                           const LXStreamDescription& desc) {
    auto info = sfInfoFor(path, desc);
    if (!info) return info.error();
    LXFileDescriptor target = openPath(path, O_RDWR | O_CREAT | O_TRUNC, 0666);
    if (!target.isOpen()) return LXFileError::fromErrno(QStringLiteral("Cannot create the file"), path);
    std::unique_ptr<SndfileSink> sink(
        new SndfileSink(path, std::move(target), *info, LXCodecIsLossy(desc.codec) ? desc.bitRate : 0));
    if (storesAnnotationsOnlyBeforeAudio(info->format & SF_FORMAT_TYPEMASK)) {
        sink->m_staging = openStagingFile(QFileInfo(path).absolutePath());
        if (!sink->m_staging.isOpen())
            return LXFileError::fromErrno(QStringLiteral("Cannot create a temporary file beside the file"),
                                          path);
    } else {
        LX_TRY(sink->openEncoder());
    }
    return std::unique_ptr<LXAudioSink>(std::move(sink));
}

// MP3 at a constant rate (what most MP3 files are, and the only mode whose rate is known beforehand);
// Vorbis and Opus keep their variable rate and take the level as their quality.
void setLevel(SNDFILE* file, const SF_INFO& info, std::optional<double> level) {
    if (!level) return;
    if ((info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG) {
        int mode = SF_BITRATE_MODE_CONSTANT;
        sf_command(file, SFC_SET_BITRATE_MODE, &mode, sizeof mode);
    }
    double value = *level;
    sf_command(file, SFC_SET_COMPRESSION_LEVEL, &value, sizeof value);
}

LXStatus SndfileSink::openEncoder() {
    SF_INFO info = m_info;
    m_file.reset(sf_open_fd(m_target.get(), SFM_WRITE, &info, SF_FALSE));
    if (!m_file)
        return LXError(LXErrWriteFailed,
                       QStringLiteral("cannot create the file (%1)").arg(sndfileReason(nullptr)), m_path);
    // Before any frame, or libsndfile ignores it: clip rather than wrap, and scale by 2^(n-1) both ways so
    // that integer samples come back exactly.
    sf_command(m_file.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
    setLevel(m_file.get(), m_info, m_level);
    return {};
}

// The bytes the encoder makes of the first `frames` staged frames at a compression level.
LXResult<int64_t> SndfileSink::encodedBytes(double level, int64_t frames) {
    LXFileDescriptor trial = openStagingFile(QFileInfo(m_path).absolutePath());
    if (!trial.isOpen())
        return LXFileError::fromErrno(QStringLiteral("Cannot create a temporary file beside the file"), m_path);
    SF_INFO info = m_info;
    SndfileHandle encoder(sf_open_fd(trial.get(), SFM_WRITE, &info, SF_FALSE));
    if (!encoder) return LXError(LXErrWriteFailed, QStringLiteral("cannot start the encoder"), m_path);
    setLevel(encoder.get(), m_info, level);
    const size_t channels = size_t(m_info.channels);
    std::vector<double> block(size_t(kBlockFrames) * channels);
    for (int64_t done = 0; done < frames; done += kBlockFrames) {
        const int64_t n = std::min(kBlockFrames, frames - done);
        const size_t bytes = size_t(n) * channels * sizeof(double);
        if (::pread(m_staging.get(), block.data(), bytes, off_t(size_t(done) * channels * sizeof(double))) !=
            ssize_t(bytes))
            return LXFileError::fromErrno(QStringLiteral("Cannot read a temporary file beside the file"),
                                          m_path);
        if (sf_writef_double(encoder.get(), block.data(), n) != n)
            return LXError(LXErrWriteFailed, QStringLiteral("cannot encode the audio"), m_path);
    }
    encoder.reset();
    struct stat st;
    if (::fstat(trial.get(), &st) != 0)
        return LXFileError::fromErrno(QStringLiteral("Cannot read a temporary file beside the file"), m_path);
    return int64_t(st.st_size);
}

// Lossy encoders take a compression level from 0 (best) to 1 rather than a bit rate. For MP3 at a constant
// rate the mapping is known; for Vorbis and Opus the rate a level gives depends on the sample rate, the
// channels and the audio itself (Vorbis most). So their level is found by bisection on the first ten seconds of this very audio: the rate falls as the
// level rises. The source's rate was measured the same way, bytes over seconds.
std::optional<double> SndfileSink::levelForBitRate() {
    if (m_bitRate <= 0 || m_stagedFrames <= 0) return std::nullopt;
    if ((m_info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG) {
        // At a constant rate libsndfile maps the level linearly onto the rates of the MPEG version that
        // the sample rate implies (its mpeg_l3_encoder_set_quality), so no trial encode is needed.
        const auto [lowest, highest] = m_info.samplerate >= 32000   ? std::pair(32.0, 320.0)
                                       : m_info.samplerate >= 16000 ? std::pair(8.0, 160.0)
                                                                    : std::pair(8.0, 64.0);
        return std::clamp((highest - m_bitRate / 1000.0) / (highest - lowest), 0.0, 1.0);
    }
    const int64_t frames = std::min<int64_t>(m_stagedFrames, int64_t(m_info.samplerate) * 10);
    const double seconds = double(frames) / m_info.samplerate;
    auto rateAt = [&](double level) -> std::optional<double> {
        auto bytes = encodedBytes(level, frames);
        if (!bytes) return std::nullopt;
        return double(*bytes) * 8.0 / seconds;
    };
    double low = 0.0, high = 1.0, best = 0.5, bestError = HUGE_VAL;
    for (int step = 0; step < 7; ++step) {
        const double level = (low + high) / 2;
        const std::optional<double> rate = rateAt(level);
        if (!rate) return std::nullopt; // the encoder's default then
        if (const double error = std::abs(*rate - m_bitRate); error < bestError) {
            best = level;
            bestError = error;
        }
        (*rate > m_bitRate ? low : high) = level;
    }
    return best;
}

LXError SndfileSink::writeError(const QString& what) const {
    return LXError(LXErrWriteFailed, QStringLiteral("%1 (%2)").arg(what, sndfileReason(m_file.get())),
                   m_path);
}

template <typename T> LXStatus SndfileSink::writeFrames(const T* in, int64_t frames) {
    if (m_finished)
        return LXError(LXErrInvalidParameter, QStringLiteral("cannot write after the file was finished"),
                       m_path);
    if (frames < 0)
        return LXError(LXErrInvalidParameter, QStringLiteral("cannot write %1 frames").arg(frames), m_path);
    if (frames == 0) return {};
    if (m_staging.isOpen()) {
        if constexpr (std::is_same_v<T, double>) {
            return stage(in, frames);
        } else {
            const size_t channels = size_t(m_info.channels);
            for (int64_t done = 0; done < frames; done += kBlockFrames) {
                const int64_t n = std::min(kBlockFrames, frames - done);
                m_scratch.assign(in + size_t(done) * channels, in + size_t(done + n) * channels);
                LX_TRY(stage(m_scratch.data(), n));
            }
            return {};
        }
    }
    return encode(in, frames);
}

LXStatus SndfileSink::encode(const double* in, int64_t frames) {
    if (sf_writef_double(m_file.get(), in, frames) != frames)
        return writeError(QStringLiteral("cannot write the audio"));
    return {};
}

LXStatus SndfileSink::encode(const float* in, int64_t frames) {
    if (!needsDouble(m_info.format)) {
        if (sf_writef_float(m_file.get(), in, frames) != frames)
            return writeError(QStringLiteral("cannot write the audio"));
        return {};
    }
    const size_t channels = size_t(m_info.channels);
    for (int64_t done = 0; done < frames; done += kBlockFrames) {
        const int64_t n = std::min(kBlockFrames, frames - done);
        m_scratch.assign(in + size_t(done) * channels, in + size_t(done + n) * channels);
        LX_TRY(encode(m_scratch.data(), n));
    }
    return {};
}

LXStatus SndfileSink::stage(const double* in, int64_t frames) {
    const char* bytes = reinterpret_cast<const char*>(in);
    size_t left = size_t(frames) * size_t(m_info.channels) * sizeof(double);
    while (left > 0) {
        const ssize_t n = ::write(m_staging.get(), bytes, left);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0)
            return LXFileError::fromErrno(QStringLiteral("Cannot write a temporary file beside the file"),
                                          m_path);
        bytes += n;
        left -= size_t(n);
    }
    m_stagedFrames += frames;
    return {};
}

LXStatus SndfileSink::encodeStagedFrames() {
    if (::lseek(m_staging.get(), 0, SEEK_SET) != 0)
        return LXFileError::fromErrno(QStringLiteral("Cannot read a temporary file beside the file"), m_path);
    const size_t frameBytes = size_t(m_info.channels) * sizeof(double);
    m_scratch.resize(size_t(kBlockFrames) * size_t(m_info.channels));
    char* buffer = reinterpret_cast<char*>(m_scratch.data());
    size_t filled = 0;
    for (;;) {
        const ssize_t n =
            ::read(m_staging.get(), buffer + filled, m_scratch.size() * sizeof(double) - filled);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0)
            return LXFileError::fromErrno(QStringLiteral("Cannot read a temporary file beside the file"),
                                          m_path);
        filled += size_t(n);
        const bool end = n == 0;
        if (end || filled == m_scratch.size() * sizeof(double)) {
            LX_TRY(encode(m_scratch.data(), int64_t(filled / frameBytes)));
            filled = 0;
        }
        if (end) break;
    }
    m_staging.reset();
    return {};
}

void SndfileSink::storeStrings(const LXMetadata& metadata) {
    // libsndfile hands MP3 strings to LAME's ID3 writer, which stores them as Latin-1 (and mpg123 reads
    // them back as such); everything else takes UTF-8. Formats without strings (AU, W64) refuse them:
    // that is the loss the class comment lists.
    const bool latin1 = (m_info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG;
    for (const StringKey& s : kStringKeys) {
        const QString text = metadata.value(QString::fromLatin1(s.key)).toString();
        if (!text.isEmpty())
            sf_set_string(m_file.get(), s.type, (latin1 ? text.toLatin1() : text.toUtf8()).constData());
    }
}

void SndfileSink::storeAnnotationsBeforeAudio(const LXAnnotations& annotations) {
    const LXMetadata& m = annotations.metadata;
    storeStrings(m);

    // Cues, instrument and bext: WAV and AIFF (libsndfile ignores them elsewhere). Markers and
    // slices are the labels that are points.
    const double rate = m_info.samplerate;
    QList<LXLabel> points = annotations.labels.markers.list() + annotations.labels.slices.list();
    if (!points.isEmpty()) {
        const size_t count = size_t(points.size());
        const size_t bytes = std::max(sizeof(SF_CUES), sizeof(uint32_t) + count * sizeof(SF_CUE_POINT));
        std::vector<uint32_t> buffer((bytes + sizeof(uint32_t) - 1) / sizeof(uint32_t));
        buffer[0] = uint32_t(count);
        char* cues = reinterpret_cast<char*>(buffer.data()) + offsetof(SF_CUES, cue_points);
        for (size_t i = 0; i < count; ++i) {
            SF_CUE_POINT cue = {};
            const int64_t frame = std::max<int64_t>(0, LXFramesFromSeconds(points[qsizetype(i)].start, rate));
            cue.indx = int32_t(i + 1);
            cue.position = uint32_t(std::min<int64_t>(frame, UINT32_MAX));
            cue.fcc_chunk = int32_t(LXFourCC("data"));
            cue.sample_offset = cue.position;
            copyText(cue.name, points[qsizetype(i)].name, true);
            std::memcpy(cues + i * sizeof(SF_CUE_POINT), &cue, sizeof cue);
        }
        sf_command(m_file.get(), SFC_SET_CUE, buffer.data(), int(buffer.size() * sizeof(uint32_t)));
    }

    const LXLabelList& loops = annotations.labels.loops;
    if (m.contains(QStringLiteral("baseNote")) || !loops.isEmpty()) {
        auto number = [&](const char* key, int fallback) {
            const QString k = QString::fromLatin1(key);
            return char(m.contains(k) ? m.value(k).toInt() : fallback);
        };
        SF_INSTRUMENT inst = {};
        inst.gain = m.value(QStringLiteral("gain")).toInt();
        inst.basenote = number("baseNote", 60);
        inst.detune = number("detune", 0);
        inst.velocity_lo = number("lowVelocity", 1);
        inst.velocity_hi = number("highVelocity", 127);
        inst.key_lo = number("lowNote", 0);
        inst.key_hi = number("highNote", 127);
        inst.loop_count = int(std::min<qsizetype>(loops.count(), qsizetype(std::size(inst.loops))));
        for (int i = 0; i < inst.loop_count; ++i) {
            const LXLabel& loop = loops.labelAtIndex(i);
            switch (loop.loopType) {
            case LXLoopType::Forward:
                inst.loops[i].mode = SF_LOOP_FORWARD;
                break;
            case LXLoopType::Backward:
                inst.loops[i].mode = SF_LOOP_BACKWARD;
                break;
            case LXLoopType::Alternating:
                inst.loops[i].mode = SF_LOOP_ALTERNATING;
                break;
            }
            inst.loops[i].start = uint32_t(std::max<int64_t>(0, LXFramesFromSeconds(loop.start, rate)));
            inst.loops[i].end = uint32_t(std::max<int64_t>(0, LXFramesFromSeconds(loop.end(), rate)));
            inst.loops[i].count = uint32_t(std::max(0, loop.playCount));
        }
        sf_command(m_file.get(), SFC_SET_INSTRUMENT, &inst, sizeof inst);
    }

    static const char* const bextKeys[] = {"description",     "originator",      "originatorReference",
                                           "originationDate", "originationTime", "timeReference",
                                           "codingHistory"};
    if (std::any_of(std::begin(bextKeys), std::end(bextKeys),
                    [&](const char* key) { return m.contains(QString::fromLatin1(key)); })) {
        SF_BROADCAST_INFO bext = {};
        copyText(bext.description, m.string(QStringLiteral("description")), false);
        copyText(bext.originator, m.string(QStringLiteral("originator")), false);
        copyText(bext.originator_reference, m.string(QStringLiteral("originatorReference")), false);
        copyText(bext.origination_date, m.string(QStringLiteral("originationDate")), false);
        copyText(bext.origination_time, m.string(QStringLiteral("originationTime")), false);
        const uint64_t timeReference = m.value(QStringLiteral("timeReference")).toULongLong();
        bext.time_reference_low = uint32_t(timeReference);
        bext.time_reference_high = uint32_t(timeReference >> 32);
        bext.version = 1;
        copyText(bext.coding_history, m.string(QStringLiteral("codingHistory")), true);
        bext.coding_history_size = uint32_t(strnlen(bext.coding_history, sizeof bext.coding_history));
        sf_command(m_file.get(), SFC_SET_BROADCAST_INFO, &bext, sizeof bext);
    }
}

LXStatus SndfileSink::finish(const LXAnnotations& annotations, bool retainUnknownChunks) {
    // libsndfile offers no faithful way to write chunks it does not know (it pads them), so unknown
    // chunks are never carried into these formats.
    (void)retainUnknownChunks;
    if (m_finished)
        return LXError(LXErrInvalidParameter, QStringLiteral("the file was already finished"), m_path);
    m_finished = true;

    if (m_staging.isOpen()) {
        m_level = levelForBitRate();
        LX_TRY(openEncoder());
        storeAnnotationsBeforeAudio(annotations);
        LX_TRY(encodeStagedFrames());
    } else {
        storeStrings(annotations.metadata);
    }

    const int closed = sf_close(m_file.release());
    if (closed != SF_ERR_NO_ERROR)
        return LXError(
            LXErrWriteFailed,
            QStringLiteral("cannot complete the file (%1)").arg(sndfileText(sf_error_number(closed))),
            m_path);
    LX_TRY(LXFile::syncDescriptor(m_target.get(), m_path));
    if (!closeChecked(m_target))
        return LXFileError::fromErrno(QStringLiteral("Cannot write the file"), m_path);
    return {};
}

} // namespace

LXResult<std::unique_ptr<LXAudioReader>> LXOpenSndfileReader(const QString& path) {
    return SndfileReader::open(path);
}

bool LXSndfileCanWrite(const LXStreamDescription& desc) {
    return bool(sfInfoFor(QString(), desc));
}

LXResult<std::unique_ptr<LXAudioSink>> LXCreateSndfileSink(const QString& path,
                                                           const LXStreamDescription& desc) {
    return SndfileSink::create(path, desc);
}
