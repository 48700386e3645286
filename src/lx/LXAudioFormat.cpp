#include "lx/LXAudioFormat.h"

namespace LXFormat {

namespace {
struct Entry {
    uint32_t format;
    const char* extension;
    const char* name;
};
constexpr Entry kFormats[] = {
    {WAVE, "wav", "WAVE"},
    {RF64, "wav", "RF64"},
    {AIFF, "aif", "AIFF"},
    {AIFC, "aif", "AIFC"},
    {CAF, "caf", "Core Audio"},
    {AU, "au", "Sun/NeXT"},
    {W64, "w64", "Sony Wave64"},
    {FLAC, "flac", "FLAC"},
    {Ogg, "ogg", "Ogg Vorbis"},
    {Opus, "opus", "Opus"},
    {MP3, "mp3", "MPEG Layer 3"},
    {SD2, "sd2", "Sound Designer II"},
};
} // namespace

QString extension(uint32_t format) {
    for (const Entry& e : kFormats)
        if (e.format == format) return QString::fromLatin1(e.extension);
    return {};
}

QString name(uint32_t format) {
    for (const Entry& e : kFormats)
        if (e.format == format) return QString::fromLatin1(e.name);
    return QStringLiteral("Unknown");
}

uint32_t fromExtension(const QString& extension) {
    const QString ext = extension.toLower();
    if (ext == u"aiff" || ext == u"aifc") return ext == u"aifc" ? AIFC : AIFF;
    if (ext == u"snd") return AU;
    if (ext == u"oga") return Ogg;
    for (const Entry& e : kFormats)
        if (ext == QLatin1String(e.extension)) return e.format;
    return Unknown;
}

bool isNative(uint32_t format) {
    return format == WAVE || format == RF64 || format == AIFF || format == AIFC;
}

} // namespace LXFormat

QString LXCodecName(LXCodec codec) {
    static const char* const names[] = {"PCM",       "mu-law",     "A-law",        "IMA ADPCM",    "MS ADPCM",
                                        "GSM 6.10",  "G.721",      "G.723 24 kb/s", "G.723 40 kb/s", "DWVW",
                                        "DPCM",      "NMS ADPCM",  "VOX ADPCM",    "ALAC",         "Vorbis",
                                        "Opus",      "MPEG Layer 1", "MPEG Layer 2", "MPEG Layer 3"};
    return QString::fromLatin1(names[size_t(codec)]);
}

bool LXCodecIsLossy(LXCodec codec) {
    return codec == LXCodec::Vorbis || codec == LXCodec::Opus || codec == LXCodec::MpegLayer1 ||
           codec == LXCodec::MpegLayer2 || codec == LXCodec::MpegLayer3;
}

LXSampleEncoding LXSampleEncoding::pcm(int bits, bool bigEndian, bool unsigned8) {
    LXSampleEncoding e;
    e.type = (bits == 8 && unsigned8) ? Type::UnsignedInt : Type::SignedInt;
    e.bits = uint8_t(bits);
    e.bytes = uint8_t((bits + 7) / 8);
    e.bigEndian = bigEndian;
    return e;
}

LXSampleEncoding LXSampleEncoding::ieeeFloat(int bits, bool bigEndian) {
    LXSampleEncoding e;
    e.type = Type::Float;
    e.bits = uint8_t(bits);
    e.bytes = uint8_t(bits / 8);
    e.bigEndian = bigEndian;
    return e;
}
