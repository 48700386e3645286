// Convert Format: each file rewritten in another container, its samples as they are where the target
// can store them. What the target has no place for (labels outside WAV and AIFF, metadata fields a tag
// format lacks) is named in the file's note, never dropped silently.

#include "engine/TWAction.h"
#include "engine/TWActionRegistry.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"

namespace {

TWChoice formatChoice(uint32_t format, const char* title, const char (&code)[5]) {
    return {qint64(format), QString::fromLatin1(title), LXFourCC(code)};
}

const TWKey<qint64> kFormat{
    QStringLiteral("format"), qint64(LXFormat::WAVE), QStringLiteral("the file format to convert to"),
    TWKeyDetails::oneOf({formatChoice(LXFormat::WAVE, "WAV", "WAVE"),
                         formatChoice(LXFormat::RF64, "RF64", "RF64"),
                         formatChoice(LXFormat::W64, "Wave64", "WV64"),
                         formatChoice(LXFormat::AIFF, "AIFF", "AIFF"),
                         formatChoice(LXFormat::AIFC, "AIFF-C", "AIFC"),
                         formatChoice(LXFormat::CAF, "Core Audio", "CAFF"),
                         formatChoice(LXFormat::AU, "Sun/NeXT audio", "AU  "),
                         formatChoice(LXFormat::FLAC, "FLAC", "FLAC"),
                         formatChoice(LXFormat::Ogg, "Ogg Vorbis", "OGGV"),
                         formatChoice(LXFormat::Opus, "Opus", "OPUS")})};

bool holdsLabels(uint32_t format) {
    return LXFormat::isNative(format);
}

} // namespace

class TWActionConvertFormat : public TWAction {
public:
    QString className() const override { return QStringLiteral("TWActionConvertFormat"); }
    bool canProcessFilesConcurrently() const override { return true; }
    QString name() const override { return QStringLiteral("Convert Format"); }
    QString verb() const override { return QStringLiteral("Converting Format..."); }
    QList<TWInstructionKey> instructionKeys() const override { return {kFormat}; }

protected:
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int) override {
        const auto format = uint32_t(kFormat(instructions));
        if (file.format() == format) return TWOutcome::unchanged();
        writer.setFormat(format);
        QStringList notes;
        // FLAC stores integers of up to 24 bits: wider samples keep 24, the most it has.
        if (format == LXFormat::FLAC && (writer.isFloat() || writer.depth() > 24)) {
            writer.setDepth(24);
            notes.append(QStringLiteral("samples rounded to 24 bits"));
        }
        if (!LXAudioFileWriter::canWrite(writer.description()))
            return LXError(LXErrUnsupported,
                           QStringLiteral("%1 files cannot hold %2 channels at %3 Hz")
                               .arg(LXFormat::name(format))
                               .arg(file.numberOfChannels())
                               .arg(file.rate()),
                           file.path());
        QStringList lost;
        if (!holdsLabels(format) && !writer.annotations().labels.isEmpty()) {
            lost.append(QStringLiteral("labels"));
            writer.annotations().labels = {};
        }
        for (const QString& key : writer.metadata().keys())
            if (!writer.canHold(key)) lost.append(key);
        TWOutcome outcome(file.copyToWriter(writer));
        if (!notes.isEmpty()) outcome = outcome.withNote(notes.join(QStringLiteral("; ")));
        return lost.isEmpty() ? outcome : outcome.withLoss(lost.join(QStringLiteral(", ")));
    }
};

TW_REGISTER_ACTION(TWActionConvertFormat)
