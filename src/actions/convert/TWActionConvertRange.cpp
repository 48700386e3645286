// Convert Bit Range: each file's samples stored at another bit depth, integer or float, with the
// rounding to a shorter integer optionally dithered (lx/dsp/LXDither.h). The noise comes from a seed
// made of the file's name, so running the same conversion twice gives the same file.

#include "engine/TWAction.h"
#include "engine/TWActionRegistry.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/LXProcess.h"
#include "lx/dsp/LXDither.h"

#include <QFileInfo>

namespace {

// The depth pop-up's tags: integers by their bits, floats above any integer's. Tags of 25 and more
// store samples no dither can improve (float, or 32-bit integers finer than float itself).
constexpr int kFloat32 = 132;
constexpr int kFloat64 = 164;
constexpr int kFirstUndithered = 25;

const TWKey<int> kDepth{QStringLiteral("depth"), 16, QStringLiteral("the bit depth to store the samples at"),
                        TWKeyDetails::oneOf({{8, QStringLiteral("8-bit")},
                                             {16, QStringLiteral("16-bit")},
                                             {20, QStringLiteral("20-bit")},
                                             {24, QStringLiteral("24-bit")},
                                             {32, QStringLiteral("32-bit integer")},
                                             {kFloat32, QStringLiteral("32-bit float"), LXFourCC("FL32")},
                                             {kFloat64, QStringLiteral("64-bit float"), LXFourCC("FL64")}})};
const TWKey<TWFourCharCode> kDither{
    QStringLiteral("dither"), LXFourCC("NONE"),
    QStringLiteral("the noise added before rounding to 24 bits or fewer"),
    TWKeyDetails::oneOf({{qint64(LXFourCC("NONE")), QStringLiteral("None")},
                         {qint64(LXFourCC("TPDF")), QStringLiteral("Triangular")},
                         {qint64(LXFourCC("SHAP")), QStringLiteral("Noise shaped")}})};
// Older workflows call the depth "range".
const QString kOldDepthKey = QStringLiteral("range");

LXDither::Kind ditherKind(TWFourCharCode code) {
    if (code == LXFourCC("TPDF")) return LXDither::Kind::Triangular;
    if (code == LXFourCC("SHAP")) return LXDither::Kind::Shaped;
    return LXDither::Kind::None;
}

LXSampleEncoding encodingOf(int depth, bool bigEndian) {
    if (depth == kFloat32) return LXSampleEncoding::ieeeFloat(32, bigEndian);
    if (depth == kFloat64) return LXSampleEncoding::ieeeFloat(64, bigEndian);
    return LXSampleEncoding::pcm(depth, bigEndian);
}

QString depthTitle(int depth) {
    for (const TWChoice& choice : kDepth.details.choices)
        if (choice.value.toInt() == depth) return choice.title;
    return QString::number(depth) + QStringLiteral("-bit");
}

bool isSameDepth(const LXSampleEncoding& a, const LXSampleEncoding& b) {
    return a.isFloat() == b.isFloat() && a.bits == b.bits;
}

} // namespace

class TWActionConvertRange : public TWAction {
public:
    QString className() const override { return QStringLiteral("TWActionConvertRange"); }
    bool canProcessFilesConcurrently() const override { return true; }
    QString name() const override { return QStringLiteral("Convert Bit Range"); }
    QString verb() const override { return QStringLiteral("Converting Range..."); }
    QList<TWInstructionKey> instructionKeys() const override { return {kDepth, kDither}; }
    QStringList requiredInstructionKeys() const override { return {kDepth.name}; }

    void setInstructions(const QVariantMap& instructions) override {
        QVariantMap given = instructions;
        if (!given.contains(kDepth.name) && given.contains(kOldDepthKey))
            given.insert(kDepth.name, given.value(kOldDepthKey));
        TWAction::setInstructions(given);
    }

    // The dither pop-up offers only "None" while the depth cannot be dithered.
    TWControl controlAsShown(const TWControl& control) const override {
        TWControl shown = control;
        if (control.key == kDither.name && !canDither()) shown.choices = control.choices.mid(0, 1);
        return shown;
    }
    QVariant controlValue(const TWControl& control) const override {
        if (control.key == kDither.name && !canDither()) return qint64(LXFourCC("NONE"));
        return TWAction::controlValue(control);
    }

protected:
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int) override {
        const int depth = kDepth(instructions);
        const LXDither::Kind dither = depth < kFirstUndithered ? ditherKind(kDither(instructions))
                                                               : LXDither::Kind::None;
        const LXStreamDescription& source = file.description();
        if (LXCodecIsLossy(source.codec))
            return TWOutcome::unchanged().withNote(
                QStringLiteral("%1 stores no bit depth").arg(LXCodecName(source.codec)));
        const LXSampleEncoding target = encodingOf(depth, writer.description().encoding.bigEndian);
        if (source.codec == LXCodec::None && isSameDepth(source.encoding, target) &&
            dither == LXDither::Kind::None)
            return TWOutcome::unchanged();
        if (target.isFloat())
            writer.setFloat(target.bits);
        else
            writer.setDepth(target.bits);
        if (!LXAudioFileWriter::canWrite(writer.description()))
            return LXError(LXErrUnsupported,
                           QStringLiteral("%1 files cannot hold %2 samples")
                               .arg(LXFormat::name(writer.format()), depthTitle(depth)),
                           file.path());
        LXDither kernel(dither, target.isFloat() ? 0 : target.bits,
                        LXDither::seedOf(QFileInfo(file.path()).fileName().toUtf8()));
        return LXProcess(file, kernel, writer);
    }

private:
    bool canDither() const { return objectForInstructionKey(kDepth.name).toInt() < kFirstUndithered; }
};

TW_REGISTER_ACTION(TWActionConvertRange)
