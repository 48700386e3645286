// Labels: markers or slices at even divisions of each file or on a tempo's beats, the removal of labels by
// kind, and the extraction of the pieces between labels (or of regions and loops) as new files. The
// audio is copied unchanged; labels made here join those the file has.

#include "actions/edit/TWEditControls.h"

#include "engine/TWActionRegistry.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"

namespace {

// The four kinds of label, as a number or as the four-character code a script sends.
QList<TWChoice> kindChoices() {
    return {{int(LXLabelKind::Marker), QStringLiteral("Markers"), LXFourCC("MARK")},
            {int(LXLabelKind::Slice), QStringLiteral("Slices"), LXFourCC("SLIC")},
            {int(LXLabelKind::Region), QStringLiteral("Regions"), LXFourCC("REGN")},
            {int(LXLabelKind::Loop), QStringLiteral("Loops"), LXFourCC("LOOP")}};
}

const TWKey<int> kPointType{QStringLiteral("type"), int(LXLabelKind::Marker),
                            QStringLiteral("the kind of label to make (markers or slices)"),
                            TWKeyDetails::oneOf(kindChoices().mid(0, 2))};
const TWKey<int> kDivisions{QStringLiteral("divisions"), 4, QStringLiteral("how many equal parts, at least 2")};
const TWKey<double> kTempo{QStringLiteral("tempo"), 0.0,
                           QStringLiteral("beats per minute, 40 to 400; 0 takes the tempo the file states, "
                                          "or else the tempo heard in its audio"),
                           TWKeyDetails::inUnit(QStringLiteral("BPM"))};
const TWKey<int> kBeat{QStringLiteral("beat"), 4, QStringLiteral("the note value of each label"),
                       TWKeyDetails::oneOf({{1, QStringLiteral("Whole notes"), LXFourCC("WHOL")},
                                            {2, QStringLiteral("Half notes"), LXFourCC("HALF")},
                                            {4, QStringLiteral("Quarter notes"), LXFourCC("QRTR")},
                                            {8, QStringLiteral("Eighth notes"), LXFourCC("EIGH")},
                                            {16, QStringLiteral("Sixteenth notes"), LXFourCC("SIXT")},
                                            {32, QStringLiteral("Thirty-second notes"), LXFourCC("THIR")}})};
const TWKey<QStringList> kTypes{
    QStringLiteral("types"), QStringList{"MARK", "SLIC", "REGN", "LOOP"},
    QStringLiteral("the kinds of label to remove: MARK, SLIC, REGN, LOOP (or a bit set: 1 markers, 2 slices, "
                   "4 regions, 8 loops)")};
const TWKey<int> kLabelType{QStringLiteral("labelType"), int(LXLabelKind::Marker),
                            QStringLiteral("the labels to cut at (points) or to extract (regions, loops)"),
                            TWKeyDetails::oneOf(kindChoices())};

TWOutcome invalid(const QString& why) {
    return TWOutcome::failure(LXError(LXErrInvalidParameter, why));
}

// Adds a point label of the kind at a frame; regions and loops have no place at a point.
void addPoint(LXAudioFileWriter& writer, int kind, int64_t frame, double rate) {
    if (kind == int(LXLabelKind::Marker)) writer.markerList().addMarkerWithPosition(double(frame) / rate);
    if (kind == int(LXLabelKind::Slice)) writer.sliceList().addSliceWithPosition(double(frame) / rate);
}

// The frames of points, each moved to its nearest zero crossing when asked.
LXResult<QList<int64_t>> snapped(LXAudioFile& file, QList<int64_t> frames, bool zeroCross) {
    if (zeroCross)
        for (int64_t& frame : frames) {
            const auto crossing = file.nearestZeroCross(frame);
            if (!crossing) return crossing.error();
            frame = *crossing;
        }
    return frames;
}

TWPreview pointPreview(const LXResult<QList<int64_t>>& frames, double rate) {
    TWPreview preview;
    if (frames)
        for (int64_t frame : *frames)
            preview.values.append(double(frame) / rate);
    return preview;
}

// A base for the actions that add points: the points, then the audio as it is.
class TWPointLabels : public TWAction {
public:
    QString verb() const override { return QStringLiteral("Creating Labels..."); }
    bool canPreview() const override { return true; }

protected:
    virtual LXResult<QList<int64_t>> pointsOf(LXAudioFile& file, const QVariantMap& instructions) const = 0;
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int) override {
        const auto points = pointsOf(file, instructions);
        if (!points) return points.error();
        if (points->isEmpty()) return TWOutcome::unchanged();
        for (int64_t frame : *points)
            addPoint(writer, kPointType(instructions), frame, file.rate());
        return file.copyToWriter(writer);
    }
    TWPreview previewForAudioFile(LXAudioFile& file) const override {
        return pointPreview(pointsOf(file, instructions()), file.rate());
    }
};

// Labels at divisions
// ----------------------------------------------------------------------------------------------------

class TWActionLabelsAtDivisions final : public TWPointLabels {
public:
    QString className() const override { return QStringLiteral("TWActionLabelsAtDivisions"); }
    QString name() const override { return QStringLiteral("Make Labels at Divisions"); }
    QList<TWInstructionKey> instructionKeys() const override { return {kDivisions, kZeroCross, kPointType}; }
    QStringList requiredInstructionKeys() const override { return {kDivisions.name, kPointType.name}; }

protected:
    TWOutcome preProcessWithEntries(const QList<TWFileEntryPtr>&, const QVariantMap& instructions) override {
        if (kDivisions(instructions) > 1) return TWOutcome::success();
        return invalid(QStringLiteral("a file cannot be divided into %1 parts").arg(kDivisions(instructions)));
    }
    // The first label is at 0; each position is computed in single precision, as the frame count is.
    LXResult<QList<int64_t>> pointsOf(LXAudioFile& file, const QVariantMap& instructions) const override {
        const int divisions = kDivisions(instructions);
        QList<int64_t> frames;
        for (int i = 0; i < divisions && divisions > 1; ++i)
            frames.append(int64_t(float(file.frames()) * (float(i) / float(divisions))));
        return snapped(file, frames, kZeroCross(instructions));
    }
};

// Labels for tempo
// -----------------------------------------------------------------------------------------------------

class TWActionLabelsForTempo final : public TWPointLabels {
public:
    QString className() const override { return QStringLiteral("TWActionLabelsForTempo"); }
    QString name() const override { return QStringLiteral("Make Labels for Tempo"); }
    QList<TWInstructionKey> instructionKeys() const override { return {kTempo, kBeat, kZeroCross, kPointType}; }
    QStringList requiredInstructionKeys() const override { return {kTempo.name, kBeat.name, kPointType.name}; }
    // The tempo field stays within 40 to 400; 0 takes the file's tempo.
    QVariant valueFromControl(const TWControl& control, const QVariant& value) const override {
        if (control.key != kTempo.name) return TWAction::valueFromControl(control, value);
        const std::optional<QVariant> tempo = kTempo.converted(value);
        if (!tempo) return {};
        return tempo->toDouble() == 0.0 ? 0.0 : std::clamp(tempo->toDouble(), 40.0, 400.0);
    }

protected:
    TWOutcome preProcessWithEntries(const QList<TWFileEntryPtr>&, const QVariantMap& instructions) override {
        const double tempo = kTempo(instructions);
        if (tempo != 0.0 && (tempo < 40.0 || tempo > 400.0))
            return invalid(QStringLiteral("the tempo %1 lies outside 40 to 400 beats per minute").arg(tempo));
        if (kBeat(instructions) < 0) return invalid(QStringLiteral("the note value is negative"));
        return TWOutcome::success();
    }
    // Labels every beat from the start, a quarter note lasting 60 / tempo seconds. A file that states no
    // tempo, given none, takes the tempo heard in its audio; one without a steady beat gets no labels.
    LXResult<QList<int64_t>> pointsOf(LXAudioFile& file, const QVariantMap& instructions) const override {
        double tempo = kTempo(instructions) != 0.0 ? kTempo(instructions) : double(file.tempo());
        if (tempo == 0.0) {
            const auto heard = file.tempoGuess();
            if (!heard) return heard.error();
            tempo = *heard;
        }
        const int divisor = kBeat(instructions);
        if (!(tempo > 0) || divisor <= 0) return QList<int64_t>();
        const int64_t step = int64_t((60.0 / tempo) / (divisor * 0.25) * file.rate());
        QList<int64_t> frames;
        for (int64_t frame = 0; frame < file.frames() && step > 0; frame += step)
            frames.append(frame);
        return snapped(file, frames, kZeroCross(instructions));
    }
};

// Remove labels
// ----------------------------------------------------------------------------------------------------

// The kinds a "types" value names, as bits (1 markers, 2 slices, 4 regions, 8 loops): a number holding
// the bits, or a list of codes (or of numbers holding bits). Unknown codes are ignored.
int kindBits(const QVariant& types) {
    if (types.typeId() != QMetaType::QStringList && types.typeId() != QMetaType::QVariantList)
        return types.toInt();
    int bits = 0;
    for (QString item : types.toStringList()) {
        bool number = false;
        if (const int value = item.toInt(&number); number) bits |= value;
        if (!item.startsWith(u'\'')) item = u'\'' + item + u'\'';
        for (const TWChoice& kind : kindChoices())
            if (TWInstructionKey::describeCode(kind.code) == item) bits |= 1 << kind.value.toInt();
    }
    return bits;
}

class TWActionRemoveLabels final : public TWAction {
public:
    QString className() const override { return QStringLiteral("TWActionRemoveLabels"); }
    QString name() const override { return QStringLiteral("Remove Labels"); }
    QString verb() const override { return QStringLiteral("Removing Labels..."); }
    QList<TWInstructionKey> instructionKeys() const override { return {kTypes}; }
    QStringList requiredInstructionKeys() const override { return {}; }
    // A check box per kind.
    QList<TWControl> panelControls() const override {
        QList<TWControl> boxes;
        for (const TWChoice& kind : kindChoices())
            boxes.append({TWControlKind::CheckBox, kTypes.name, kind.title, 0, 0, 0, {}, {kind}});
        return boxes;
    }
    QVariant controlValue(const TWControl& control) const override {
        return bool(kindBits(objectForInstructionKey(kTypes.name)) & bitOf(control));
    }
    // The codes of the kinds checked, as the command line and workflow files spell them.
    QVariant valueFromControl(const TWControl& control, const QVariant& value) const override {
        int bits = kindBits(objectForInstructionKey(kTypes.name));
        bits = value.toBool() ? bits | bitOf(control) : bits & ~bitOf(control);
        QStringList codes;
        for (const TWChoice& kind : kindChoices())
            if (bits & (1 << kind.value.toInt())) codes.append(TWInstructionKey::describeCode(kind.code).mid(1, 4));
        return codes;
    }

protected:
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int) override {
        const int bits = kindBits(instructions.value(kTypes.name, kTypes.defaultValue));
        bool removed = false;
        for (LXLabelKind kind : {LXLabelKind::Marker, LXLabelKind::Slice, LXLabelKind::Region, LXLabelKind::Loop}) {
            if (!(bits & (1 << int(kind)))) continue;
            LXLabelList& list = writer.annotations().labels.list(kind);
            removed = removed || !list.isEmpty();
            list.removeAllLabels();
        }
        if (!removed) return TWOutcome::unchanged();
        return file.copyToWriter(writer);
    }

private:
    static int bitOf(const TWControl& control) { return 1 << control.choices.value(0).value.toInt(); }
};

// Extract at labels
// ---------------------------------------------------------------------------------------------------

class TWActionExtractLabels final : public TWAction {
public:
    QString className() const override { return QStringLiteral("TWActionExtractLabels"); }
    QString name() const override { return QStringLiteral("Extract at Labels"); }
    QString verb() const override { return QStringLiteral("Extracting..."); }
    bool canPreview() const override { return true; }
    bool onlyMakesNewFiles() const override { return true; }
    QList<TWInstructionKey> instructionKeys() const override { return {kLabelType, kZeroCross}; }
    QStringList requiredInstructionKeys() const override { return {kLabelType.name}; }
    QList<TWControl> panelControls() const override {
        QList<TWControl> controls = TWAction::panelControls();
        controls.first().kind = TWControlKind::RadioGroup;
        return controls;
    }

protected:
    int numberOfNewEntriesForAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions) override {
        m_pieces = piecesOf(file, kLabelType(instructions));
        return int(m_pieces.size());
    }
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int index) override {
        LXRange piece = m_pieces.value(index);
        if (kZeroCross(instructions)) {
            const auto start = file.positionOfZeroCrossingNearestTo(piece.start());
            if (!start) return start.error();
            const auto end = file.positionOfZeroCrossingNearestTo(piece.end());
            if (!end) return end.error();
            piece = LXRange(*start, *end, file.rate());
        }
        if (piece.isEqualToRange(file.range())) return TWOutcome::unchanged();
        return file.copyRange(piece, writer);
    }
    TWPreview previewForAudioFile(LXAudioFile& file) const override {
        TWPreview preview;
        preview.ranges = piecesOf(file, objectForInstructionKey(kLabelType.name).toInt());
        return preview;
    }

private:
    // Points cut the file into the pieces between them (none at the file's edges); regions and loops are
    // pieces of their own.
    static QList<LXRange> piecesOf(const LXAudioFile& file, int kind) {
        if (kind < 0 || kind > int(LXLabelKind::Loop)) return {};
        LXLabelList labels = file.annotations().labels.list(LXLabelKind(kind));
        labels.removeDuplicates();
        QList<LXRange> pieces;
        if (kind == int(LXLabelKind::Region) || kind == int(LXLabelKind::Loop)) {
            for (const LXLabel& label : labels.list())
                pieces.append(LXRange(label.start, label.end(), file.rate()));
            return pieces;
        }
        labels.removeAtPosition(0.0);
        labels.removeAtPosition(file.length());
        if (labels.isEmpty()) return {};
        double start = 0.0;
        for (const LXLabel& label : labels.list()) {
            pieces.append(LXRange(start, label.position(), file.rate()));
            start = label.position();
        }
        pieces.append(LXRange(start, file.length(), file.rate()));
        return pieces;
    }

    QList<LXRange> m_pieces; // of the file being processed
};

} // namespace

TW_REGISTER_ACTION(TWActionLabelsAtDivisions)
TW_REGISTER_ACTION(TWActionLabelsForTempo)
TW_REGISTER_ACTION(TWActionRemoveLabels)
TW_REGISTER_ACTION(TWActionExtractLabels)
