#pragma once

#include "lx/LXResultCode.h"

#include <QString>
#include <cstdint>

// Major file formats, as four-character codes. The same code is the file's type code.
namespace LXFormat {
constexpr uint32_t Unknown = 0;
constexpr uint32_t WAVE = LXFourCC("WAVE");
constexpr uint32_t RF64 = LXFourCC("RF64");
constexpr uint32_t AIFF = LXFourCC("AIFF");
constexpr uint32_t AIFC = LXFourCC("AIFC");
constexpr uint32_t CAF = LXFourCC("caff");
constexpr uint32_t AU = LXFourCC("NeXT");
constexpr uint32_t W64 = LXFourCC("W64 ");
constexpr uint32_t FLAC = LXFourCC("flac");
constexpr uint32_t Ogg = LXFourCC("OggS"); // Ogg Vorbis
constexpr uint32_t Opus = LXFourCC("Opus"); // Opus in an Ogg container
constexpr uint32_t MP3 = LXFourCC("MPG3");
constexpr uint32_t SD2 = LXFourCC("Sd2f");

QString extension(uint32_t format); // "wav", "aif", "caf", ... ("" when unknown)
QString name(uint32_t format);      // "WAVE", "AIFF", "Core Audio", ...
uint32_t fromExtension(const QString& extension);
bool isNative(uint32_t format); // read and written by our own code rather than libsndfile
} // namespace LXFormat

// How one sample is stored.
struct LXSampleEncoding {
    enum class Type : uint8_t { SignedInt, UnsignedInt, Float };
    Type type = Type::SignedInt;
    uint8_t bits = 16; // significant bits: 8, 16, 24, 32 (integer); 32, 64 (float)
    uint8_t bytes = 2; // container size
    bool bigEndian = false;

    bool isFloat() const { return type == Type::Float; }
    bool operator==(const LXSampleEncoding&) const = default;

    static LXSampleEncoding pcm(int bits, bool bigEndian, bool unsigned8 = false);
    static LXSampleEncoding ieeeFloat(int bits, bool bigEndian);
};

// A compressed encoding of the samples, where the file has one: the encoding then says what the samples
// decode to. Kept apart from the container, as one container holds several (WAV holds mu-law, GSM, ...).
enum class LXCodec : uint8_t {
    None, // integers or floats as they are
    ULaw,
    ALaw,
    ImaAdpcm,
    MsAdpcm,
    Gsm610,
    G721,
    G723_24,
    G723_40,
    Dwvw,
    Dpcm,
    NmsAdpcm,
    VoxAdpcm,
    Alac,
    Vorbis,
    Opus,
    MpegLayer1,
    MpegLayer2,
    MpegLayer3,
};
QString LXCodecName(LXCodec codec); // "mu-law", "IMA ADPCM", "Opus", ...
bool LXCodecIsLossy(LXCodec codec); // one whose quality is set by a bit rate (Vorbis, Opus, MPEG)

// What a file holds, as a reader found it or a writer will make it.
struct LXStreamDescription {
    uint32_t format = LXFormat::Unknown;
    LXSampleEncoding encoding;
    LXCodec codec = LXCodec::None;
    int bitRate = 0; // lossy codecs: the average bits per second of the audio (0: the encoder's default)
    double rate = 44100.0;
    int channels = 1;
    int64_t frames = 0;
};
