#pragma once

// The layout of a WAV (RIFF, RIFX, RF64, BW64) or AIFF/AIFC file: where its audio lies, how it is
// stored, and the chunks around it. Parsing is separate from file access so that it can be fed any
// bytes (the fuzz target does).

#include "lx/LXAnnotations.h"
#include "lx/LXAudioFormat.h"
#include "lx/LXResult.h"

#include <functional>
#include <optional>

enum class LXContainer { Riff, Rifx, Rf64, Aiff, Aifc };

struct LXPcmLayout {
    LXContainer container = LXContainer::Riff;
    LXStreamDescription desc;
    int validBits = 16;             // the depth a user sees; desc.encoding.bits may be larger (24 in 32)
    int blockAlign = 4;             // bytes per frame
    int64_t dataOffset = 0;         // first byte of audio
    int64_t dataBytes = 0;          // bytes of audio present in the file, whole frames
    int64_t declaredDataBytes = 0;  // what the header claims (may disagree after a crash)
    int64_t dataChunkOffset = -1;   // header of the data or SSND chunk
    int64_t commChunkOffset = -1;   // header of the AIFF COMM chunk
    QList<LXChunk> chunks;          // the other chunks, in file order
    std::optional<LXError> warning; // readable, but the header's sizes are wrong
};

// Reads count bytes at offset into buffer; false on a read error.
using LXByteSource = std::function<bool(int64_t offset, void* buffer, int64_t count)>;

// Unsupported (a compressed WAV or AIFC codec, or not a WAV/AIFF at all) means: let another reader
// try. Any other error means the file is damaged beyond reading.
LXResult<LXPcmLayout> LXParsePcmContainer(const LXByteSource& read, int64_t fileSize, const QString& path);

// Chunks larger than this are not loaded into memory: a metadata chunk is never this large, and a
// damaged size must not make us allocate gigabytes.
constexpr int64_t kLXMaxChunkInMemory = 64 * 1024 * 1024;

// The largest RIFF file before the writer switches to RF64 (4 GB). Tests lower it to exercise the
// switch without writing gigabytes.
void LXSetRiffSizeLimit(int64_t bytes);

// IEEE 754 80-bit extended, as AIFF stores its rate.
double LXReadExtended(const uint8_t bytes[10]);
void LXWriteExtended(double value, uint8_t bytes[10]);
