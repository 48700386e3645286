// Length edits: silence added around each file (Pad, Extend), audio cut evenly from both ends (Shorten),
// a stretch kept or removed by its times (Crop, Snip), and a rewrite without surplus data (Compact).
// Labels follow the audio (LXFollowPieces).

#include "actions/edit/TWEditControls.h"

#include "engine/TWActionRegistry.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"

#include <cmath>

namespace {

const TWKey<double> kStartFor{QStringLiteral("startFor"), 0.0,
                              QStringLiteral("seconds of silence to put before the audio"),
                              TWKeyDetails::inUnit(QStringLiteral("s"))};
const TWKey<double> kEndFor{QStringLiteral("endFor"), 0.0, QStringLiteral("seconds of silence to put after the audio"),
                            TWKeyDetails::inUnit(QStringLiteral("s"))};
const TWKey<double> kExtendLength{QStringLiteral("length"), 1.0,
                                  QStringLiteral("the length each file is brought up to, at least"),
                                  TWKeyDetails::inUnit(QStringLiteral("s"))};
const TWKey<double> kShortenLength{QStringLiteral("length"), 1.0,
                                   QStringLiteral("the length each file is brought down to, at most"),
                                   TWKeyDetails::inUnit(QStringLiteral("s"))};
const TWKey<double> kEdge{QStringLiteral("edge"), 0.5,
                          QStringLiteral("the share of the change that falls at the end; the rest falls at the start"),
                          TWKeyDetails::between(0.0, 1.0)};
const TWKey<double> kStart{QStringLiteral("start"), std::nullopt,
                           QStringLiteral("start of the stretch, seconds from the file's beginning"),
                           TWKeyDetails::inUnit(QStringLiteral("s"))};
const TWKey<double> kEnd{QStringLiteral("end"), std::nullopt,
                         QStringLiteral("end of the stretch, seconds from the file's beginning"),
                         TWKeyDetails::inUnit(QStringLiteral("s"))};
const TWKey<bool> kRemoveAnalysis{
    QStringLiteral("removeAnalysis"), false,
    QStringLiteral("leave out what the file says it measured of itself (its broadcast loudness fields)")};
const TWKey<bool> kRemoveNonstandard{QStringLiteral("removeNonstandard"), false,
                                     QStringLiteral("leave out the chunks this program does not interpret")};

// Pad
// ----------------------------------------------------------------------------------------------------

class TWActionPad final : public TWAction {
public:
    QString className() const override { return QStringLiteral("TWActionPad"); }
    bool canProcessFilesConcurrently() const override { return true; }
    QString name() const override { return QStringLiteral("Pad"); }
    QString verb() const override { return QStringLiteral("Padding..."); }
    QList<TWInstructionKey> instructionKeys() const override { return {kStartFor, kEndFor}; }
    QStringList requiredInstructionKeys() const override { return {}; }
    // Each duration in whole milliseconds, in a slider and a field; the instructions hold seconds.
    QList<TWControl> panelControls() const override {
        const QString ms = QStringLiteral("ms");
        return {{TWControlKind::Slider, kStartFor.name, QStringLiteral("Start"), 0, 5000, 0, ms, {}},
                {TWControlKind::Field, kStartFor.name, QStringLiteral("Start"), 0, 0, 0, ms, {}},
                {TWControlKind::Slider, kEndFor.name, QStringLiteral("End"), 0, 5000, 0, ms, {}},
                {TWControlKind::Field, kEndFor.name, QStringLiteral("End"), 0, 0, 0, ms, {}}};
    }
    QVariant valueFromControl(const TWControl& control, const QVariant& value) const override {
        bool ok = false;
        const double ms = value.toDouble(&ok);
        if (!ok || !std::isfinite(ms)) return {};
        return (control.kind == TWControlKind::Slider ? std::round(ms) : ms) / 1000.0;
    }
    QVariant controlValue(const TWControl& control) const override {
        return TWAction::controlValue(control).toDouble() * 1000.0;
    }

protected:
    // A negative duration adds nothing on its side.
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int) override {
        const int64_t before = TWTruncatedFrames(kStartFor(instructions), file.rate());
        const int64_t after = TWTruncatedFrames(kEndFor(instructions), file.rate());
        if (before == 0 && after == 0) return TWOutcome::unchanged();
        return file.pad(before, after, writer);
    }
};

// Extend and Shorten
// --------------------------------------------------------------------------------------------------

// A target length in a field and the edge in a slider, with read-outs of the shares at the start,
// (1 - edge) x 100 %, and at the end, edge x 100 %.
class TWEdgeAction : public TWAction {
public:
    QVariant controlValue(const TWControl& control) const override {
        const double edge = objectForInstructionKey(kEdge.name).toDouble();
        if (control.kind != TWControlKind::Label) return TWAction::controlValue(control);
        return (control.label == kStartShare ? 1.0 - edge : edge) * 100.0;
    }

protected:
    static inline const QString kStartShare = QStringLiteral("Start");
    QList<TWControl> edgeControls(const TWInstructionKey& length) const {
        return {{TWControlKind::Field, length.name, QStringLiteral("Length"), 0, 0, 3, QStringLiteral("s"), {}},
                TWSlider(kEdge, QStringLiteral("Edge"), 0.0, 1.0),
                {TWControlKind::Label, kEdge.name, kStartShare, 0, 0, 0, QStringLiteral("%"), {}},
                {TWControlKind::Label, kEdge.name, QStringLiteral("End"), 0, 0, 0, QStringLiteral("%"), {}}};
    }
};

class TWActionExtend final : public TWEdgeAction {
public:
    QString className() const override { return QStringLiteral("TWActionExtend"); }
    bool canProcessFilesConcurrently() const override { return true; }
    QString name() const override { return QStringLiteral("Extend"); }
    QString verb() const override { return QStringLiteral("Extending..."); }
    QList<TWInstructionKey> instructionKeys() const override { return {kExtendLength, kEdge}; }
    QStringList requiredInstructionKeys() const override { return {kExtendLength.name}; }
    QList<TWControl> panelControls() const override { return edgeControls(kExtendLength); }

protected:
    // The silence added is split by the edge, each side truncated by itself, so the two may fall a frame
    // short of the target. In double: a float would lose frames past 2^24 (six minutes at 44.1 kHz).
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int) override {
        const int64_t target = TWTruncatedFrames(kExtendLength(instructions), file.rate());
        if (target <= file.frames()) return TWOutcome::unchanged();
        const double added = double(target - file.frames());
        const double edge = double(float(kEdge(instructions)));
        return file.pad(int64_t((1.0 - edge) * added), int64_t(added * edge), writer);
    }
};

class TWActionShorten final : public TWEdgeAction {
public:
    QString className() const override { return QStringLiteral("TWActionShorten"); }
    bool canProcessFilesConcurrently() const override { return true; }
    QString name() const override { return QStringLiteral("Shorten"); }
    QString verb() const override { return QStringLiteral("Shortening..."); }
    bool canPreview() const override { return true; }
    QList<TWInstructionKey> instructionKeys() const override { return {kShortenLength, kEdge, kZeroCross}; }
    QStringList requiredInstructionKeys() const override { return {kShortenLength.name}; }
    QList<TWControl> panelControls() const override {
        return edgeControls(kShortenLength) << TWCheckBox(kZeroCross, QStringLiteral("Zero crossing"));
    }

protected:
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int) override {
        const auto kept = keptRange(file, kShortenLength(instructions), kEdge(instructions), kZeroCross(instructions));
        if (!kept) return kept.error();
        if (!*kept) return TWOutcome::unchanged();
        // As a trim, it never cuts everything.
        if ((*kept)->isEmpty()) return TWOutcome::unchanged().withNote(QStringLiteral("it would leave nothing"));
        return file.copyRange(**kept, writer);
    }
    // The two cuts, start and end, in seconds.
    TWPreview previewForAudioFile(LXAudioFile& file) const override {
        const auto kept = keptRange(file, objectForInstructionKey(kShortenLength.name).toDouble(),
                                    objectForInstructionKey(kEdge.name).toDouble(),
                                    objectForInstructionKey(kZeroCross.name).toBool());
        if (!kept || !*kept) return {};
        TWPreview preview;
        preview.values = {(*kept)->start(), (*kept)->end()};
        return preview;
    }

private:
    // What is kept of the file when it is cut to the length, the cut split by the edge (and moved
    // outward to zero crossings, which may keep a little more); nothing when the file is no longer.
    static LXResult<std::optional<LXRange>> keptRange(LXAudioFile& file, double length, double edge, bool zeroCross) {
        LXRange range = file.range();
        if (length >= range.length()) return std::optional<LXRange>();
        const double cut = range.length() - length;
        range.setStart((1.0 - float(edge)) * cut);
        range.setEnd(file.length() - cut * float(edge));
        if (zeroCross) {
            const auto start = file.positionOfZeroCrossingBefore(range.start());
            if (!start) return start.error();
            const auto end = file.positionOfZeroCrossingAfter(range.end());
            if (!end) return end.error();
            range.setStart(*start);
            range.setEnd(*end);
        }
        return std::optional<LXRange>(range);
    }
};

// Crop and Snip
// ----------------------------------------------------------------------------------------------------

// A stretch given by its times (from a script or a selection), clamped to the file. They only change
// files in place.
class TWStretchAction : public TWAction {
public:
    QList<TWInstructionKey> instructionKeys() const override { return {kStart, kEnd}; }
    bool onlyInPlace() const override { return true; }
    QList<TWControl> panelControls() const override { return {}; }

protected:
    static LXRange stretchOf(const LXAudioFile& file, const QVariantMap& instructions) {
        LXRange range = LXRange::rangeWithStart(kStart(instructions), kEnd(instructions));
        range.chokeToRange(file.range());
        return range;
    }
};

class TWActionCrop final : public TWStretchAction {
public:
    QString className() const override { return QStringLiteral("TWActionCrop"); }
    bool canProcessFilesConcurrently() const override { return true; }
    QString name() const override { return QStringLiteral("Crop"); }
    QString verb() const override { return QStringLiteral("Cropping..."); }

protected:
    // Keeps the stretch. The whole file, or none of it, leaves the file as it is.
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int) override {
        const LXRange range = stretchOf(file, instructions);
        if (range.isEqualToRange(file.range())) return TWOutcome::unchanged();
        if (range.isEmpty())
            return TWOutcome::unchanged().withNote(QStringLiteral("the stretch is empty or lies outside the file"));
        return file.copyRange(range, writer);
    }
};

class TWActionSnip final : public TWStretchAction {
public:
    QString className() const override { return QStringLiteral("TWActionSnip"); }
    bool canProcessFilesConcurrently() const override { return true; }
    QString name() const override { return QStringLiteral("Snip"); }
    QString verb() const override { return QStringLiteral("Snipping..."); }

protected:
    // Removes the stretch and joins what is left. A snip of the whole file is refused; one of nothing
    // changes nothing.
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int) override {
        const LXRange range = stretchOf(file, instructions);
        if (range.isEqualToRange(file.range()))
            return TWOutcome::unchanged().withNote(QStringLiteral("a snip of the whole file would leave nothing"));
        if (range.isEmpty()) return TWOutcome::unchanged();
        return file.snip(range, writer);
    }
};

// Compact
// ----------------------------------------------------------------------------------------------------

class TWActionCompact final : public TWAction {
public:
    QString className() const override { return QStringLiteral("TWActionCompact"); }
    bool canProcessFilesConcurrently() const override { return true; }
    QString name() const override { return QStringLiteral("Compact"); }
    QString verb() const override { return QStringLiteral("Compacting..."); }
    QList<TWInstructionKey> instructionKeys() const override { return {kRemoveAnalysis, kRemoveNonstandard}; }
    QStringList requiredInstructionKeys() const override { return {}; }
    QList<TWControl> panelControls() const override {
        return {TWCheckBox(kRemoveAnalysis, QStringLiteral("Remove analysis data")),
                TWCheckBox(kRemoveNonstandard, QStringLiteral("Remove nonstandard chunks"))};
    }

protected:
    // Always rewrites the file, whatever the options.
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int) override {
        writer.setWriteAnalysis(!kRemoveAnalysis(instructions));
        writer.setWriteUnusedChunks(!kRemoveNonstandard(instructions));
        return file.copyToWriter(writer);
    }
};

} // namespace

TW_REGISTER_ACTION(TWActionPad)
TW_REGISTER_ACTION(TWActionExtend)
TW_REGISTER_ACTION(TWActionShorten)
TW_REGISTER_ACTION(TWActionCrop)
TW_REGISTER_ACTION(TWActionSnip)
TW_REGISTER_ACTION(TWActionCompact)
