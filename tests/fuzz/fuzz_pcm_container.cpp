// Feeds arbitrary bytes to the WAV/AIFF parser, the metadata chunk decoders and the sample decoder,
// as a file on disk would.

#include "lx/LXAiffChunks.h"
#include "lx/LXPcmContainer.h"
#include "lx/LXSampleCodec.h"
#include "lx/LXWaveChunks.h"

#include <cstring>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const LXByteSource read = [&](int64_t offset, void* buffer, int64_t count) {
        if (offset < 0 || count < 0 || uint64_t(offset + count) > size) return false;
        std::memcpy(buffer, data + offset, size_t(count));
        return true;
    };
    auto layout = LXParsePcmContainer(read, int64_t(size), QStringLiteral("fuzz"));
    if (!layout) return 0;
    const bool aiff = layout->container == LXContainer::Aiff || layout->container == LXContainer::Aifc;
    const LXAnnotations annotations = aiff ? LXAiffChunks::decode(layout->chunks, layout->desc.rate)
                                           : LXWaveChunks::decode(layout->chunks, layout->desc.rate,
                                                                  layout->container == LXContainer::Rifx);
    // What was decoded must encode again without trouble.
    (void)(aiff ? LXAiffChunks::encode(annotations, layout->desc.rate, true)
                : LXWaveChunks::encode(annotations, layout->desc.rate, false, true));

    // Decode the first frames that are really there.
    const int64_t frames = std::min<int64_t>(layout->desc.frames, 64);
    const int64_t bytes = frames * layout->blockAlign;
    if (layout->dataOffset + bytes <= int64_t(size)) {
        std::vector<float> out(size_t(frames * layout->desc.channels));
        LXDecodeSamples(layout->desc.encoding, data + layout->dataOffset, out.data(), out.size());
    }
    return 0;
}
