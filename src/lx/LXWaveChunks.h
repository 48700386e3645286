#pragma once

#include "lx/LXAnnotations.h"

// The metadata and label chunks of WAV files (RIFF, RIFX and RF64). The chunk layouts and the keys
// they map to are described at the top of LXWaveChunks.cpp.
namespace LXWaveChunks {
// Interprets the chunks of a WAV file (every chunk but 'fmt ', 'data', 'ds64', 'JUNK'/'junk'/'PAD ' and
// 'FLLR', in file order) into metadata and labels. Chunks it does not interpret, and interpreted chunks too
// damaged to read, go to unknownChunks unchanged so that nothing is lost. bigEndian is true for RIFX files.
// rate converts frame positions to seconds. Never fails, never crashes on garbage.
LXAnnotations decode(const QList<LXChunk>& chunks, double rate, bool bigEndian);
// The chunks that store the annotations, in the order they should be written, followed by the unknown
// chunks when retainUnknown is set. Frame positions = seconds x rate (use LXFramesFromSeconds from
// LXRange.h).
QList<LXChunk> encode(const LXAnnotations& annotations, double rate, bool bigEndian, bool retainUnknown);
} // namespace LXWaveChunks
