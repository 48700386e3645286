#pragma once

#include "lx/LXLabel.h"
#include "lx/LXMetadata.h"

#include <QByteArray>
#include <QList>
#include <memory>

// One chunk of a RIFF or IFF file, as it stands in the file (payload without header and pad byte).
struct LXChunk {
    QByteArray id; // four bytes
    QByteArray data;
    bool operator==(const LXChunk&) const = default;
};

struct LXAnnotations;

// The chunks a file's annotations were decoded from, as they stood. Decoding and encoding again need not
// give the same bytes (a sample period rounded, cue numbers given anew, a flag byte normalised), so a
// writer whose annotations encode to what the source's did writes the source's bytes instead. Not part
// of what annotations are: two annotations compare equal whatever their origins.
struct LXChunkOrigin {
    QList<LXChunk> chunks;
    std::shared_ptr<const LXAnnotations> decoded; // what the chunks decoded to
    double rate = 0;                              // the positions' frame rate
    bool aiff = false;
    bool bigEndian = false;
    bool operator==(const LXChunkOrigin&) const { return true; }
};

// Everything a file carries besides its audio: descriptive data, labels, and the chunks this
// framework does not interpret, which a rewrite carries over byte for byte.
struct LXAnnotations {
    LXMetadata metadata;
    LXLabels labels;
    QList<LXChunk> unknownChunks;
    LXChunkOrigin origin; // empty unless read from a WAV or AIFF file
    bool operator==(const LXAnnotations&) const = default;
};
