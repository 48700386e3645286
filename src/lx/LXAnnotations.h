#pragma once

#include "lx/LXLabel.h"
#include "lx/LXMetadata.h"

#include <QByteArray>
#include <QList>

// One chunk of a RIFF or IFF file, as it stands in the file (payload without header and pad byte).
struct LXChunk {
    QByteArray id; // four bytes
    QByteArray data;
    bool operator==(const LXChunk&) const = default;
};

// Everything a file carries besides its audio: descriptive data, labels, and the chunks this
// framework does not interpret, which a rewrite carries over byte for byte.
struct LXAnnotations {
    LXMetadata metadata;
    LXLabels labels;
    QList<LXChunk> unknownChunks;
    bool operator==(const LXAnnotations&) const = default;
};
