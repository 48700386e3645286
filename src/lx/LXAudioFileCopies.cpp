// Copies of a file's audio into a writer: whole, a range, without a range, padded, faded, or some of its
// channels.

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/LXProcess.h"
#include "lx/dsp/LXChannelPick.h"
#include "lx/dsp/LXFade.h"

#include <algorithm>

namespace {

// Frames [from, to) of a range, clamped to the file.
std::pair<int64_t, int64_t> framesOf(const LXRange& range, const LXAudioFile& file) {
    LXRange framed = range;
    framed.setRate(file.rate());
    const int64_t from = std::clamp<int64_t>(framed.sampleStart(), 0, file.frames());
    return {from, std::clamp<int64_t>(framed.sampleEnd(), from, file.frames())};
}

LXStatus copyPieces(LXAudioFile& file, const LXPieces& pieces, LXAudioFileWriter& writer) {
    LXFollowPieces(writer.annotations(), pieces, file.rate());
    LXChannelPick every;
    return LXProcess(file, every, writer, {.pieces = pieces});
}

} // namespace

LXStatus LXAudioFile::copyRange(const LXRange& range, LXAudioFileWriter& writer) {
    const auto [from, to] = framesOf(range, *this);
    return copyPieces(*this, {LXPiece::stretch(from, to)}, writer);
}

LXStatus LXAudioFile::snip(const LXRange& range, LXAudioFileWriter& writer) {
    const auto [from, to] = framesOf(range, *this);
    return copyPieces(*this, {LXPiece::stretch(0, from), LXPiece::stretch(to, frames())}, writer);
}

LXStatus LXAudioFile::pad(int64_t framesBefore, int64_t framesAfter, LXAudioFileWriter& writer) {
    LXPieces pieces;
    if (framesBefore > 0) pieces.push_back(LXPiece::zeros(framesBefore));
    pieces.push_back(LXPiece::stretch(0, frames()));
    if (framesAfter > 0) pieces.push_back(LXPiece::zeros(framesAfter));
    return copyPieces(*this, pieces, writer);
}

LXStatus LXAudioFile::fade(LXAudioFileWriter& writer, LXFadeType type, int64_t anchor, double curve) {
    LXFade kernel(type, std::clamp<int64_t>(anchor, 0, frames()), frames(), curve);
    return LXProcess(*this, kernel, writer);
}

LXStatus LXAudioFile::copyToWriter(LXAudioFileWriter& writer) {
    LXChannelPick every;
    return LXProcess(*this, every, writer);
}

LXStatus LXAudioFile::copyChannels(const LXChannelSet& selection, LXAudioFileWriter& writer) {
    LXChannelSet picked;
    for (int c : selection)
        if (c >= 0 && c < numberOfChannels()) picked.append(c);
    if (picked.isEmpty())
        return LXError(LXErrInvalidParameter, QStringLiteral("none of the channels to copy is in the file"),
                       path());
    LXChannelPick pick(picked);
    return LXProcess(*this, pick, writer);
}
