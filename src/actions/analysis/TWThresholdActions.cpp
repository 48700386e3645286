// Actions at thresholds: the regions of each file that rise to an attack level and fall back below a release
// level (LXAudioFile::thresholdArray) become new files of their own, or labels of the file. Both share one
// panel: two levels in half decibels, a minimum interval in whole milliseconds and a zero-crossing check box.

#include "actions/edit/TWEditControls.h"

#include "engine/TWActionRegistry.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/dsp/LXGain.h"

#include <cmath>

namespace {

const QString kDecibels = QStringLiteral("dB");

const TWKey<double> kAttack{QStringLiteral("attack"), -30.0,
                            QStringLiteral("the level that opens a region; at most 0"),
                            TWKeyDetails::inUnit(kDecibels)};
const TWKey<double> kRelease{QStringLiteral("release"), -50.0,
                             QStringLiteral("the level under which a region closes; at most 0"),
                             TWKeyDetails::inUnit(kDecibels)};
const TWKey<double> kInterval{
    QStringLiteral("interval"), 0.05,
    QStringLiteral("how long the level must stay under the release level before a region closes; not negative"),
    TWKeyDetails::inUnit(QStringLiteral("s"))};
const TWKey<int> kLabelType{QStringLiteral("type"), 0, QStringLiteral("the kind of label made for each region"),
                            TWKeyDetails::oneOf({{0, QStringLiteral("Marker"), LXFourCC("MARK")},
                                                 {1, QStringLiteral("Slice"), LXFourCC("SLIC")},
                                                 {2, QStringLiteral("Region"), LXFourCC("REGN")},
                                                 {3, QStringLiteral("Loop"), LXFourCC("LOOP")}})};

// "3 files will be extracted", "1 label will be created".
QString countText(qsizetype count, const char* noun, const char* what) {
    return QStringLiteral("%1 %2%3 will be %4")
        .arg(count)
        .arg(QLatin1String(noun), count == 1 ? QString() : QStringLiteral("s"), QLatin1String(what));
}

// What the two actions share: the keys, the panel and its rules, the check before the first file, and the
// detector run with the instructions or with the panel's values.
class TWThresholdAction : public TWAction {
public:
    bool canPreview() const override { return true; }
    QList<TWInstructionKey> instructionKeys() const override { return {kAttack, kRelease, kInterval, kZeroCross}; }
    QStringList requiredInstructionKeys() const override {
        return {kAttack.name, kRelease.name, kInterval.name};
    }
    QList<TWControl> panelControls() const override {
        const QString ms = QStringLiteral("ms");
        return {{TWControlKind::Slider, kAttack.name, QStringLiteral("Attack"), -96, 0, 1, kDecibels, {}},
                {TWControlKind::Field, kAttack.name, QStringLiteral("Attack"), 0, 0, 1, kDecibels, {}},
                {TWControlKind::Slider, kRelease.name, QStringLiteral("Release"), -96, 0, 1, kDecibels, {}},
                {TWControlKind::Field, kRelease.name, QStringLiteral("Release"), 0, 0, 1, kDecibels, {}},
                {TWControlKind::Slider, kInterval.name, QStringLiteral("Interval"), 0, 1000, 0, ms, {}},
                {TWControlKind::Field, kInterval.name, QStringLiteral("Interval"), 0, 0, 0, ms, {}},
                TWCheckBox(kZeroCross, QStringLiteral("Zero crossing"))};
    }
    // Levels: a slider snaps to half decibels, a typed level above 0 dB is 0 dB. The interval is shown in
    // whole milliseconds (a negative typed one is 0) and kept in seconds.
    QVariant valueFromControl(const TWControl& control, const QVariant& value) const override {
        bool ok = false;
        const double number = value.toDouble(&ok);
        if (!ok || !std::isfinite(number)) return TWAction::valueFromControl(control, value);
        if (control.key == kInterval.name) return std::max(std::trunc(number), 0.0) / 1000.0;
        if (control.key != kAttack.name && control.key != kRelease.name)
            return TWAction::valueFromControl(control, value);
        return control.kind == TWControlKind::Slider ? TWHalfDecibels(number) : std::min(number, 0.0);
    }
    QVariant controlValue(const TWControl& control) const override {
        const QVariant value = TWAction::controlValue(control);
        if (control.key == kInterval.name) return qint64(TWTruncatedFrames(value.toDouble(), 1000.0));
        return value;
    }

protected:
    TWOutcome preProcessWithEntries(const QList<TWFileEntryPtr>&, const QVariantMap& instructions) override {
        for (const TWKey<double>* level : {&kAttack, &kRelease})
            if (const double dB = (*level)(instructions); dB > 0)
                return TWOutcome::failure(LXError(
                    LXErrInvalidParameter,
                    QStringLiteral("the %1 level %2 dB lies above full scale (0 dB)").arg(level->name).arg(dB)));
        if (const double interval = kInterval(instructions); !(interval >= 0))
            return TWOutcome::failure(LXError(
                LXErrInvalidParameter, QStringLiteral("the interval %1 s is negative").arg(interval)));
        return TWOutcome::success();
    }
    static LXResult<QList<LXRange>> detect(LXAudioFile& file, const QVariantMap& values) {
        return file.thresholdArray(LXAmplitudeOfLevel(kAttack(values)), LXAmplitudeOfLevel(kRelease(values)),
                                   kInterval(values), kZeroCross(values));
    }
    // The regions the panel's values find in the file, with one line about them.
    TWPreview panelPreview(LXAudioFile& file, const char* noun, const char* what) const {
        QVariantMap values;
        for (const TWInstructionKey& key : instructionKeys())
            values.insert(key.name, objectForInstructionKey(key.name));
        const auto found = detect(file, values);
        if (!found) return {};
        TWPreview preview;
        preview.ranges = *found;
        preview.infoText = countText(found->size(), noun, what);
        return preview;
    }
};

class TWActionExtractThresholds final : public TWThresholdAction {
public:
    QString className() const override { return QStringLiteral("TWActionExtractThresholds"); }
    QString name() const override { return QStringLiteral("Extract at Thresholds"); }
    QString verb() const override { return QStringLiteral("Extracting..."); }
    bool onlyMakesNewFiles() const override { return true; }
    bool forceCounting() const override { return true; }

protected:
    // The loop asks for a count only: a detection that failed (or was stopped) gives one output, whose
    // processing answers the failure, so that the file is reported with its reason.
    int numberOfNewEntriesForAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions) override {
        auto found = detect(file, instructions);
        m_failure.reset();
        m_ranges.clear();
        if (!found) {
            m_failure = found.error();
            return 1;
        }
        m_ranges = std::move(*found);
        return int(m_ranges.size());
    }
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap&, LXAudioFileWriter& writer,
                               int index) override {
        if (m_failure) return *m_failure;
        if (index < 0 || index >= m_ranges.size()) return TWOutcome::unchanged();
        return file.copyRange(m_ranges[index], writer);
    }
    TWPreview previewForAudioFile(LXAudioFile& file) const override {
        return panelPreview(file, "file", "extracted");
    }

private:
    QList<LXRange> m_ranges; // of the file being processed
    std::optional<LXError> m_failure;
};

class TWActionLabelsAtThresholds final : public TWThresholdAction {
public:
    QString className() const override { return QStringLiteral("TWActionLabelsAtThresholds"); }
    QString name() const override { return QStringLiteral("Make Labels at Thresholds"); }
    QString verb() const override { return QStringLiteral("Creating Labels..."); }
    QList<TWInstructionKey> instructionKeys() const override {
        return {kAttack, kRelease, kInterval, kLabelType, kZeroCross};
    }
    QStringList requiredInstructionKeys() const override {
        return TWThresholdAction::requiredInstructionKeys() << kLabelType.name;
    }
    QList<TWControl> panelControls() const override {
        const TWControl type{TWControlKind::Segmented, kLabelType.name, QStringLiteral("Type"), 0, 0, 0, {},
                             kLabelType.details.choices};
        return QList<TWControl>{type} + TWThresholdAction::panelControls();
    }

protected:
    // A marker or a slice at each region's start, or a region or a loop over it; another type adds nothing.
    // The audio is copied as it is.
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int) override {
        const auto found = detect(file, instructions);
        if (!found) return found.error();
        if (found->isEmpty()) return TWOutcome::unchanged().withNote(QStringLiteral("no level reaches the attack"));
        for (const LXRange& range : *found) {
            switch (LXLabelKind(kLabelType(instructions))) {
            case LXLabelKind::Marker:
                writer.markerList().addMarkerWithPosition(range.start());
                break;
            case LXLabelKind::Slice:
                writer.sliceList().addSliceWithPosition(range.start());
                break;
            case LXLabelKind::Region:
                writer.regionList().addRegionWithRange(range);
                break;
            case LXLabelKind::Loop:
                writer.loopList().addLoopWithType(LXLoopType::Forward, range);
                break;
            }
        }
        return file.copyToWriter(writer);
    }
    TWPreview previewForAudioFile(LXAudioFile& file) const override {
        return panelPreview(file, "label", "created");
    }
};

} // namespace

TW_REGISTER_ACTION(TWActionExtractThresholds)
TW_REGISTER_ACTION(TWActionLabelsAtThresholds)
