#pragma once

#include "lx/LXChannelSet.h"
#include "lx/LXPieces.h"
#include "lx/LXResult.h"

#include <cstdint>
#include <functional>

class LXAudioFile;
class LXAudioFileWriter;
class LXKernel;
class LXStreamKernel;
class LXMeter;

// What LXEncode hands a file's audio to: an encoder that writes a file of a format of its own.
class LXEncoder {
public:
    virtual ~LXEncoder() = default;
    // Blocks of interleaved float frames of the file's channels, in file order.
    virtual LXStatus encode(const float* interleaved, int64_t frames) = 0;
    // After the last block: what the encoder still holds, and the file's closing structures.
    virtual LXStatus finish() = 0;
};

enum class LXDirection {
    Forward,
    Backward, // blocks from the end towards the start; the kernel sees each block once, last block first
};

struct LXProcessOptions {
    // What the output is made of, in order (each stretch clamped to the file); empty: the whole file.
    // Silence reaches the kernel as blocks of zeros.
    LXPieces pieces;
    LXDirection direction = LXDirection::Forward; // backwards: the pieces, and each piece, last first
};

// The block loop of every whole-file operation: reads the file (or the pieces) in blocks of 16 K frames,
// has the kernel process each block, writes it, and reports progress to the file's progress delegate once
// a block. It moves no labels: a caller whose output is not the file's audio in place says where they go
// (LXFollowPieces).
// Memory stays flat whatever the file's length.
//
// Sets the writer's channels from the kernel and begins and ends the writing. The blocks are float, or
// double when the file or the writer stores 32-bit integers, so that those pass unchanged. Fails with:
// - an LXProgressError carrying the delegate's code when the delegate answers anything but LXContinue
//   (the writer is then left unfinished, for the caller to discard);
// - the reader's or the writer's own error (path and reason) when a read or a write fails;
// - LXErrInvalidParameter when the kernel cannot take the file's channels.
LXStatus LXProcess(LXAudioFile& file, LXKernel& kernel, LXAudioFileWriter& writer,
                   const LXProcessOptions& options = {});

// The same loop, forwards over the whole file, for a kernel whose output has another number of frames
// (lx/dsp/LXKernel.h): each block's output is written as the kernel gives it, and what it holds at the
// end is drained into the writer. The writer keeps its channels. Fails as above, or with the kernel's
// error.
LXStatus LXProcess(LXAudioFile& file, LXStreamKernel& kernel, LXAudioFileWriter& writer);

// The same loop for a measurement: frames [from, to) of the file (clamped to its length), float blocks,
// the given channels handed to the meter. Fails as LXProcess does.
LXStatus LXMeasure(LXAudioFile& file, LXMeter& meter, int64_t from, int64_t to, const LXChannelSet& channels);

// The same loop for an encoder: the whole file, forwards, in float blocks of at most blockFrames frames
// handed to encode(interleaved, frames), reading until a read comes back short, whatever the header said
// the length was. Fails as LXProcess does, or with encode's error.
LXStatus LXEncodeBlocks(LXAudioFile& file, int64_t blockFrames,
                        const std::function<LXStatus(const float* interleaved, int64_t frames)>& encode);
// The same for an LXEncoder, then finish; after a failure the encoder is left unfinished, for the caller
// to discard.
LXStatus LXEncode(LXAudioFile& file, LXEncoder& encoder);
