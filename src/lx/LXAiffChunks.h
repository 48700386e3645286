#pragma once

#include "lx/LXAnnotations.h"

// The metadata and label chunks of AIFF and AIFF-C files (big-endian always). The chunk layouts and
// the keys they map to are described at the top of LXAiffChunks.cpp.
namespace LXAiffChunks {
// Interprets every chunk but the 'FORM' header, 'COMM', 'SSND' and 'FVER', in file order, into metadata
// and labels. Chunks it does not interpret, and interpreted chunks too damaged to read, go to
// unknownChunks unchanged. rate converts frame positions to seconds. Never fails, never crashes on garbage.
LXAnnotations decode(const QList<LXChunk>& chunks, double rate);
// The chunks that store the annotations, in the order they should be written, followed by the unknown
// chunks when retainUnknown is set.
QList<LXChunk> encode(const LXAnnotations& annotations, double rate, bool retainUnknown);
} // namespace LXAiffChunks
