// Convert Sample Rate: each file resampled to another rate (lx/dsp/LXResampler.h), or only relabelled
// with it, which plays the same samples faster or slower. Either way labels stay on the sound they
// mark: resampled, a label keeps its time and the broadcast time reference (in frames) is scaled to the
// new rate; relabelled, every position keeps its frame.

#include "engine/TWAction.h"
#include "engine/TWActionRegistry.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/LXProcess.h"
#include "lx/dsp/LXResampler.h"

#include <algorithm>
#include <cmath>

namespace {

const TWKey<double> kRate{QStringLiteral("rate"), 44100.0, QStringLiteral("the sample rate to convert to"),
                          TWKeyDetails::between(1000, 768000, QStringLiteral("Hz"))};
const TWKey<bool> kResample{QStringLiteral("resample"), true,
                            QStringLiteral("resample the audio; off: only relabel the rate, which changes the "
                                           "speed and pitch")};
const TWKey<int> kConvertor{
    QStringLiteral("convertor"), 0, QStringLiteral("the converter's filter"),
    TWKeyDetails::oneOf({{0, QStringLiteral("Linear phase"), LXFourCC("LINE")},
                         {1, QStringLiteral("Intermediate phase"), LXFourCC("INTR")},
                         {2, QStringLiteral("Minimum phase"), LXFourCC("MINI")},
                         {3, QStringLiteral("Linear phase, steep"), LXFourCC("STEE")}})};
const TWKey<double> kQuality{QStringLiteral("quality"), 0.75,
                             QStringLiteral("0 quick, 0.25 low, 0.5 medium, 0.75 high, 1 very high"),
                             TWKeyDetails::between(0, 1)};

// The slider in quarters, each a recipe of the converter.
LXResampler::Quality qualityOf(double slider) {
    const int step = int(std::lround(std::clamp(slider, 0.0, 1.0) * 4));
    return LXResampler::Quality(step);
}

LXResampler::Filter filterOf(int convertor) {
    return LXResampler::Filter(std::clamp(convertor, 0, 3));
}

void scaleTimeReference(LXMetadata& metadata, double factor) {
    const QString key = QStringLiteral("timeReference");
    if (!metadata.contains(key)) return;
    metadata.setValue(key, qint64(std::llround(double(metadata.value(key).toLongLong()) * factor)));
}

} // namespace

class TWActionConvertRate : public TWAction {
public:
    QString className() const override { return QStringLiteral("TWActionConvertRate"); }
    bool canProcessFilesConcurrently() const override { return true; }
    QString name() const override { return QStringLiteral("Convert Sample Rate"); }
    QString verb() const override { return QStringLiteral("Converting Rate..."); }
    QList<TWInstructionKey> instructionKeys() const override { return {kRate, kResample, kConvertor, kQuality}; }
    QStringList requiredInstructionKeys() const override { return {kRate.name}; }

    QList<TWControl> panelControls() const override {
        QList<TWControl> controls = TWAction::panelControls();
        controls[0].label = QStringLiteral("Rate");
        controls[0].choices = {{8000.0, QStringLiteral("8000")},   {11025.0, QStringLiteral("11025")},
                               {16000.0, QStringLiteral("16000")}, {22050.0, QStringLiteral("22050")},
                               {32000.0, QStringLiteral("32000")}, {44100.0, QStringLiteral("44100")},
                               {48000.0, QStringLiteral("48000")}, {88200.0, QStringLiteral("88200")},
                               {96000.0, QStringLiteral("96000")}, {176400.0, QStringLiteral("176400")},
                               {192000.0, QStringLiteral("192000")}};
        controls[1].label = QStringLiteral("Resample");
        controls[2].label = QStringLiteral("Converter");
        controls[3] = TWControl{TWControlKind::Slider, kQuality.name, QStringLiteral("Quality"), 0, 1, 2, {}, {}};
        return controls;
    }
    // The slider snaps to the recipes; a typed rate must be one the key accepts.
    QVariant valueFromControl(const TWControl& control, const QVariant& value) const override {
        if (control.key == kQuality.name) return std::lround(value.toDouble() * 4) / 4.0;
        if (control.key == kRate.name) {
            const std::optional<QVariant> rate = kRate.converted(value);
            if (!rate || !kRate.details.range->contains(rate->toDouble())) return {};
            return *rate;
        }
        return value;
    }

protected:
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int) override {
        const double rate = kRate(instructions);
        if (float(rate) == float(file.rate())) return TWOutcome::unchanged();
        writer.setRate(rate);
        if (!LXAudioFileWriter::canWrite(writer.description()))
            return LXError(LXErrUnsupported,
                           QStringLiteral("%1 files cannot be stored at %2 Hz")
                               .arg(LXFormat::name(writer.format()))
                               .arg(rate),
                           file.path());
        if (!kResample(instructions)) {
            // The same frames at another rate: every position in seconds moves with its frame.
            writer.annotations().labels.scale(file.rate() / rate);
            return TWOutcome(file.copyToWriter(writer)).withNote(QStringLiteral("relabelled"));
        }
        scaleTimeReference(writer.metadata(), rate / file.rate());
        LXResampler kernel(rate, qualityOf(kQuality(instructions)), filterOf(kConvertor(instructions)));
        return LXProcess(file, kernel, writer);
    }
};

TW_REGISTER_ACTION(TWActionConvertRate)
