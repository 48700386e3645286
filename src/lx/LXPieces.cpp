#include "lx/LXPieces.h"

#include "lx/LXAnnotations.h"
#include "lx/LXRange.h"

#include <algorithm>
#include <optional>

namespace {

// Where source frame f lands in the output, or nothing when it was left out. A point on the end of a
// stretch (f == to) belongs to that stretch: a marker at the end of the file stays at the end.
std::optional<int64_t> landing(const LXPieces& pieces, int64_t frame, bool endInclusive) {
    int64_t offset = 0;
    for (const LXPiece& piece : pieces) {
        if (!piece.isSilence() && frame >= piece.from && (frame < piece.to || (endInclusive && frame == piece.to)))
            return offset + frame - piece.from;
        offset += piece.frames();
    }
    return std::nullopt;
}

// The output range that the kept frames of source frames [start, end) fill, and whether every one of them
// was kept (and they stay together).
struct Remains {
    int64_t start = -1;
    int64_t end = -1;
    bool whole = false;
};

Remains remainsOf(const LXPieces& pieces, int64_t start, int64_t end) {
    Remains remains;
    int64_t offset = 0, kept = 0;
    int stretches = 0;
    for (const LXPiece& piece : pieces) {
        if (!piece.isSilence()) {
            const int64_t from = std::max(start, piece.from), to = std::min(end, piece.to);
            if (to > from) {
                if (remains.start < 0) remains.start = offset + from - piece.from;
                remains.end = offset + to - piece.from;
                kept += to - from;
                ++stretches;
            }
        }
        offset += piece.frames();
    }
    remains.whole = stretches == 1 && kept == end - start;
    return remains;
}

} // namespace

void LXFollowPieces(LXAnnotations& annotations, const LXPieces& pieces, double rate) {
    if (rate <= 0) return;
    for (LXLabelList* list : {&annotations.labels.markers, &annotations.labels.slices, &annotations.labels.regions,
                              &annotations.labels.loops}) {
        LXLabelList moved(list->kind());
        for (LXLabel label : list->list()) {
            const int64_t start = LXFramesFromSeconds(label.start, rate);
            if (list->kind() == LXLabelKind::Marker || list->kind() == LXLabelKind::Slice) {
                const std::optional<int64_t> to = landing(pieces, start, true);
                if (!to) continue;
                label.start = double(*to) / rate;
            } else {
                const Remains remains = remainsOf(pieces, start, LXFramesFromSeconds(label.end(), rate));
                if (remains.start < 0 || (list->kind() == LXLabelKind::Loop && !remains.whole)) continue;
                label.start = double(remains.start) / rate;
                label.length = double(remains.end - remains.start) / rate;
            }
            moved.addLabel(label);
        }
        *list = moved;
    }

    const QString reference = QStringLiteral("timeReference");
    LXMetadata& metadata = annotations.metadata;
    if (!metadata.contains(reference)) return;
    int64_t offset = 0;
    for (const LXPiece& piece : pieces) {
        if (!piece.isSilence() && piece.to > piece.from) {
            const qint64 moved = metadata.value(reference).toLongLong() + piece.from - offset;
            metadata.setValue(reference, std::max<qint64>(moved, 0));
            return;
        }
        offset += piece.frames();
    }
}
