// Trims: cut audio off the start or the end of each file and keep the rest, by a duration, by the file's
// level, or by its loops. Each moves one bound of the file's range, keeps it inside the file, and copies
// that range; labels follow the audio (LXFollowPieces). A zero-crossing snap moves a cut outward only, so
// it never cuts more than asked. A trim that would cut nothing, or everything, leaves the file alone.

#include "actions/edit/TWEditControls.h"

#include "engine/TWActionRegistry.h"

#include "lx/LXAudioFile.h"
#include "lx/dsp/LXGain.h"

namespace {

const TWKey<double> kBeginningTo{QStringLiteral("beginningTo"), 0.1,
                                 QStringLiteral("how much to cut from the start, in the unit of --units")};
const TWKey<double> kEndFor{QStringLiteral("endFor"), 0.1,
                            QStringLiteral("how much to cut from the end, in the unit of --units")};
const TWKey<double> kBeginningBelow{
    QStringLiteral("beginningBelow"), -48.0,
    QStringLiteral("cut the audio before the first point at or above this level"),
    TWKeyDetails::inUnit(QStringLiteral("dB"))};
const TWKey<double> kEndBelow{QStringLiteral("endBelow"), -48.0,
                              QStringLiteral("cut the audio after the last point at or above this level"),
                              TWKeyDetails::inUnit(QStringLiteral("dB"))};
const TWKey<bool> kBeforeLoopStart{QStringLiteral("beforeLoopStart"), false,
                                   QStringLiteral("cut everything before the first loop's start")};
const TWKey<bool> kAfterLoopEnd{QStringLiteral("afterLoopEnd"), false,
                                QStringLiteral("cut everything after the last loop's end")};

enum class Side { Start, End };

// What a trim keeps: the range clamped to the file; nothing when that cuts nothing or everything.
TWOutcome keep(LXAudioFile& file, LXRange range, Side side, LXAudioFileWriter& writer) {
    range.chokeToRange(file.range());
    const bool cuts = side == Side::Start ? range.location() > 0 : file.length() > range.end();
    if (!cuts || !(range.length() > 0)) return TWOutcome::unchanged();
    return file.copyRange(range, writer);
}

// Moves a cut outward to a zero crossing when asked.
LXStatus snap(LXAudioFile& file, LXRange& range, Side side, bool zeroCross) {
    if (!zeroCross) return {};
    if (side == Side::Start) {
        const auto start = file.positionOfZeroCrossingBefore(range.start());
        if (!start) return start.error();
        range.setStart(*start);
    } else {
        const auto end = file.positionOfZeroCrossingAfter(range.end());
        if (!end) return end.error();
        range.setEnd(*end);
    }
    return {};
}

// The preview of a cut at a frame (clamped to the file, snapped when asked), in seconds.
TWPreview cutPreview(LXAudioFile& file, double frame, Side side, bool zeroCross) {
    int64_t cut = TWTruncatedFrames(std::clamp(frame, 0.0, double(file.frames())), 1.0);
    if (zeroCross) {
        const auto snapped = side == Side::Start ? file.previousZeroCross(cut) : file.nextZeroCross(cut);
        if (!snapped) return {};
        cut = *snapped;
    }
    TWPreview preview;
    preview.values = {double(cut) / file.rate()};
    return preview;
}

class TWTrim : public TWDurationEditAction {
public:
    QString verb() const override { return QStringLiteral("Trimming..."); }
    bool canPreview() const override { return true; }
    QList<TWInstructionKey> instructionKeys() const override { return {kDurationUnits, durationKey(), kZeroCross}; }
    QStringList requiredInstructionKeys() const override { return {durationKey().name}; }
    QList<TWControl> panelControls() const override {
        return durationControls() << TWCheckBox(kZeroCross, QStringLiteral("Zero crossing"));
    }

protected:
    // The panel's duration in frames of the file, untruncated.
    double panelFrames(const LXAudioFile& file) const {
        return TWDurationSeconds(objectForInstructionKey(durationKey().name).toDouble(), unit(), file.rate(),
                                 file.length()) *
               file.rate();
    }
    bool panelZeroCross() const { return objectForInstructionKey(kZeroCross.name).toBool(); }
};

class TWActionTrimBeginningTo final : public TWTrim {
public:
    QString className() const override { return QStringLiteral("TWActionTrimBeginningTo"); }
    QString name() const override { return QStringLiteral("Trim Beginning To"); }

protected:
    const TWInstructionKey& durationKey() const override { return kBeginningTo; }
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int) override {
        const double v = kBeginningTo(instructions);
        LXRange range = file.range();
        switch (TWDurationUnit(kDurationUnits(instructions))) {
        case TWDurationUnit::Milliseconds:
            range.setStart(v / 1000.0);
            break;
        case TWDurationUnit::Frames:
            range.setSampleStart(TWTruncatedFrames(v, 1.0));
            break;
        case TWDurationUnit::Percent:
            range.setStart(v / 100.0 * range.length());
            break;
        default:
            range.setStart(v);
        }
        LX_TRY(snap(file, range, Side::Start, kZeroCross(instructions)));
        return keep(file, range, Side::Start, writer);
    }
    TWPreview previewForAudioFile(LXAudioFile& file) const override {
        return cutPreview(file, std::min(panelFrames(file), double(file.frames())), Side::Start, panelZeroCross());
    }
};

class TWActionTrimEndFor final : public TWTrim {
public:
    QString className() const override { return QStringLiteral("TWActionTrimEndFor"); }
    QString name() const override { return QStringLiteral("Trim End For"); }

protected:
    const TWInstructionKey& durationKey() const override { return kEndFor; }
    // In frames the new end is the truncation of (end frame - v): 2.9 frames move it 3 frames earlier.
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int) override {
        const double v = kEndFor(instructions);
        LXRange range = file.range();
        switch (TWDurationUnit(kDurationUnits(instructions))) {
        case TWDurationUnit::Milliseconds:
            range.setEnd(range.end() + v / -1000.0);
            break;
        case TWDurationUnit::Frames:
            range.setSampleEnd(TWTruncatedFrames(double(range.sampleEnd()) - v, 1.0));
            break;
        case TWDurationUnit::Percent:
            range.setEnd(range.end() + (v / -100.0) * file.length());
            break;
        default:
            range.setEnd(range.end() - v);
        }
        LX_TRY(snap(file, range, Side::End, kZeroCross(instructions)));
        return keep(file, range, Side::End, writer);
    }
    TWPreview previewForAudioFile(LXAudioFile& file) const override {
        return cutPreview(file, double(file.frames()) - panelFrames(file), Side::End, panelZeroCross());
    }
};

// Trims by level
// ---------------------------------------------------------------------------------------------------

class TWLevelTrim : public TWLevelEditAction {
public:
    QString verb() const override { return QStringLiteral("Trimming..."); }
    bool canPreview() const override { return true; }
    QList<TWInstructionKey> instructionKeys() const override { return {levelKey(), kSearchOffset, kZeroCross}; }
    QStringList requiredInstructionKeys() const override { return {levelKey().name}; }
    QList<TWControl> panelControls() const override {
        return levelControls() << TWCheckBox(kZeroCross, QStringLiteral("Zero crossing"));
    }

protected:
    // Where the panel's level is first reached (or last left), plus its offset, as a frame of the file.
    TWPreview panelPreview(LXAudioFile& file, Side side) const {
        const float amplitude = LXAmplitudeOfLevel(objectForInstructionKey(levelKey().name).toDouble());
        const auto frame = side == Side::Start ? file.startAtThreshold(amplitude) : file.endAtThreshold(amplitude);
        if (!frame) return {};
        const double offset = file.rate() * objectForInstructionKey(kSearchOffset.name).toDouble();
        return cutPreview(file, double(*frame) + offset, side, objectForInstructionKey(kZeroCross.name).toBool());
    }
};

class TWActionTrimBeginningBelow final : public TWLevelTrim {
public:
    QString className() const override { return QStringLiteral("TWActionTrimBeginningBelow"); }
    QString name() const override { return QStringLiteral("Trim Beginning Below"); }

protected:
    const TWInstructionKey& levelKey() const override { return kBeginningBelow; }
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int) override {
        const auto first = file.firstPositionOverThreshold(LXAmplitudeOfLevel(kBeginningBelow(instructions)));
        if (!first) return first.error();
        LXRange range = file.range();
        range.setStart(kSearchOffset(instructions) + *first);
        LX_TRY(snap(file, range, Side::Start, kZeroCross(instructions)));
        return keep(file, range, Side::Start, writer);
    }
    TWPreview previewForAudioFile(LXAudioFile& file) const override { return panelPreview(file, Side::Start); }
};

class TWActionTrimEndBelow final : public TWLevelTrim {
public:
    QString className() const override { return QStringLiteral("TWActionTrimEndBelow"); }
    QString name() const override { return QStringLiteral("Trim End Below"); }

protected:
    const TWInstructionKey& levelKey() const override { return kEndBelow; }
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int) override {
        const auto last = file.lastPositionOverThreshold(LXAmplitudeOfLevel(kEndBelow(instructions)));
        if (!last) return last.error();
        LXRange range = file.range();
        range.setEnd(kSearchOffset(instructions) + *last);
        LX_TRY(snap(file, range, Side::End, kZeroCross(instructions)));
        return keep(file, range, Side::End, writer);
    }
    TWPreview previewForAudioFile(LXAudioFile& file) const override { return panelPreview(file, Side::End); }
};

// Trim around loop
// ----------------------------------------------------------------------------------------------------

class TWActionTrimAroundLoop final : public TWAction {
public:
    QString className() const override { return QStringLiteral("TWActionTrimAroundLoop"); }
    bool canProcessFilesConcurrently() const override { return true; }
    QString name() const override { return QStringLiteral("Trim Around Loop"); }
    QString verb() const override { return QStringLiteral("Trimming..."); }
    bool canPreview() const override { return true; }
    QList<TWInstructionKey> instructionKeys() const override { return {kBeforeLoopStart, kAfterLoopEnd}; }
    QStringList requiredInstructionKeys() const override { return {}; }
    QList<TWControl> panelControls() const override {
        return {TWCheckBox(kBeforeLoopStart, QStringLiteral("Before the loop's start")),
                TWCheckBox(kAfterLoopEnd, QStringLiteral("After the loop's end"))};
    }

protected:
    // Loops lie inside the file, so the range needs no clamp.
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int) override {
        LXRange range = file.range();
        const LXLabelList& loops = file.loopList();
        if (!loops.isEmpty()) {
            if (kBeforeLoopStart(instructions)) range.setStart(loops.firstPosition());
            if (kAfterLoopEnd(instructions)) range.setEnd(loops.lastPosition());
        }
        if (range.isEqualToRange(file.range())) return TWOutcome::unchanged();
        return file.copyRange(range, writer);
    }
    // The first loop's start and the last loop's end, or -1 for a side that is not trimmed.
    TWPreview previewForAudioFile(LXAudioFile& file) const override {
        const LXLabelList& loops = file.loopList();
        if (loops.isEmpty()) return {};
        TWPreview preview;
        const bool before = objectForInstructionKey(kBeforeLoopStart.name).toBool();
        const bool after = objectForInstructionKey(kAfterLoopEnd.name).toBool();
        preview.values = {before ? double(float(loops.firstPosition())) : -1.0,
                          after ? double(float(loops.lastPosition())) : -1.0};
        return preview;
    }
};

} // namespace

TW_REGISTER_ACTION(TWActionTrimBeginningTo)
TW_REGISTER_ACTION(TWActionTrimEndFor)
TW_REGISTER_ACTION(TWActionTrimBeginningBelow)
TW_REGISTER_ACTION(TWActionTrimEndBelow)
TW_REGISTER_ACTION(TWActionTrimAroundLoop)
