// Copies of a file's audio into a writer: whole, a range, or some of its channels.

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/LXProcess.h"
#include "lx/dsp/LXChannelPick.h"

#include <algorithm>

LXStatus LXAudioFile::copyRange(const LXRange& rangeIn, LXAudioFileWriter& writer) {
    LXRange range = rangeIn;
    range.setRate(rate());
    const int64_t from = std::clamp<int64_t>(range.sampleStart(), 0, frames());
    const int64_t to = std::clamp<int64_t>(range.sampleEnd(), from, frames());

    // Labels move with the audio: shifted to the new start, those outside dropped, ranges clipped.
    const double start = double(from) / rate();
    const double length = double(to - from) / rate();
    for (LXLabelList* list :
         {&writer.markerList(), &writer.sliceList(), &writer.regionList(), &writer.loopList()}) {
        LXLabelList kept(list->kind());
        for (LXLabel label : list->list()) {
            const double s = std::max(label.start - start, 0.0);
            const double e = std::min(label.end() - start, length);
            const bool point = list->kind() == LXLabelKind::Marker || list->kind() == LXLabelKind::Slice;
            if (point ? (label.start - start < 0 || label.start - start > length) : !(e > s)) continue;
            label.start = s;
            label.length = point ? 0.0 : e - s;
            kept.addLabel(label);
        }
        *list = kept;
    }
    LXChannelPick every;
    return LXProcess(*this, every, writer, {.from = from, .to = to});
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
