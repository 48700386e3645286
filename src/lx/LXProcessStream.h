#pragma once

#include "lx/LXResult.h"

#include <QVariantMap>

class LXAudioFile;
class LXAudioFileWriter;
class LXEffectEntry;

// Renders files through an effect entry into writers, in the block loop of LXProcess: the writer keeps
// the file's channels, format and metadata, and the entry sees float blocks (double for 32-bit
// integers). Each file starts from an entry that has forgotten the previous one (prepare).
//
// The entry must outlive the stream and must not play elsewhere while a file renders.
class LXProcessStream {
public:
    explicit LXProcessStream(LXEffectEntry& entry) : m_entry(entry) {}

    // Renders the whole file into the writer (begun and ended here). With "latencyCompensation" true in
    // the instructions, the output is aligned with the input: the entry's first latency() frames are
    // dropped and as many frames of silence are fed after the file, so the output has the file's length
    // and every sound its time. Fails with the entry's, the reader's or the writer's error, or with the
    // progress delegate's stop or cancel (the writer then left for the caller to discard).
    LXStatus processAudioFile(LXAudioFile& file, const QVariantMap& instructions, LXAudioFileWriter& writer);

private:
    LXEffectEntry& m_entry;
};
