#pragma once

#include <cstdint>
#include <vector>

struct LXAnnotations;

// One piece of an edited file's audio: frames [from, to) of the source, or `silence` frames of zeros.
// An edit that cuts, keeps or adds audio without changing its speed (a trim, a crop, a snip, padding) is
// the list of pieces that make its output, in order.
struct LXPiece {
    int64_t from = 0;
    int64_t to = 0;
    int64_t silence = 0;

    static LXPiece stretch(int64_t from, int64_t to) { return {from, to, 0}; }
    static LXPiece zeros(int64_t frames) { return {0, 0, frames}; }
    bool isSilence() const { return silence > 0; }
    int64_t frames() const { return isSilence() ? silence : to - from; }
};
using LXPieces = std::vector<LXPiece>;

// Moves what a file says about positions in its audio to where that audio lands among the pieces, frames
// counted at rate:
// - markers and slices move with their frame; one inside audio that was left out is dropped, one on the
//   edge of a kept stretch stays on that edge;
// - a region keeps what remains of its audio: it runs from where its first kept frame lands to where its
//   last kept frame lands (so a cut inside it shortens it); one with no audio left is dropped;
// - a loop must repeat exactly the audio it held, so one that lost any of its frames is dropped;
// - the broadcast time reference ("timeReference", frames since midnight) names the first frame: it moves
//   by what was cut or added before the first kept frame.
void LXFollowPieces(LXAnnotations& annotations, const LXPieces& pieces, double rate);
