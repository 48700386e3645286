// Export as Vox: each file as telephony audio, 8000 Hz mono G.711 mu-law (lx/LXVoxEncoder.h), raw (.vox)
// or after a RIFF/WAVE header, which may then take the extension "wav".

#include "engine/TWActionExport.h"
#include "engine/TWActionRegistry.h"

#include "lx/LXAudioFile.h"
#include "lx/LXVoxEncoder.h"

namespace {

const TWKey<bool> kAddWAVEHeader{QStringLiteral("addWAVEHeader"), false,
                                 QStringLiteral("write a RIFF/WAVE header (format 7, mu-law) before the data")};
const TWKey<bool> kUseWAVExtension{QStringLiteral("useWAVExtension"), false,
                                   QStringLiteral("name the files .wav instead of .vox; only with addWAVEHeader")};

} // namespace

class TWActionExportVox : public TWActionExport {
public:
    QString className() const override { return QStringLiteral("TWActionExportVox"); }
    QString name() const override { return QStringLiteral("Export as Vox"); }
    QString verb() const override { return QStringLiteral("Exporting..."); }
    QList<TWInstructionKey> instructionKeys() const override { return {kAddWAVEHeader, kUseWAVExtension}; }
    QStringList requiredInstructionKeys() const override { return {}; }
    bool canProcessFilesConcurrently() const override { return true; }

    QList<TWControl> panelControls() const override {
        QList<TWControl> controls = TWAction::panelControls();
        controls[0].label = QStringLiteral("Add WAVE Header");
        controls[1].label = QStringLiteral("Use WAV Extension");
        return controls;
    }
    // The extension box is off and greyed while there is no header: a raw file is never named .wav.
    TWControl controlAsShown(const TWControl& control) const override {
        TWControl shown = control;
        if (control.key == kUseWAVExtension.name) shown.enabled = hasHeader();
        return shown;
    }
    QVariant valueFromControl(const TWControl& control, const QVariant& value) const override {
        if (control.key == kUseWAVExtension.name && !hasHeader()) return {};
        return value;
    }
    QVariant controlValue(const TWControl& control) const override {
        if (control.key == kUseWAVExtension.name && !hasHeader()) return false;
        return TWAction::controlValue(control);
    }

protected:
    QString extension() const override {
        return hasHeader() && kUseWAVExtension(instructions()) ? QStringLiteral("wav") : QStringLiteral("vox");
    }

    TWOutcome processAudioFileToPath(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                                     const QString& path) override {
        const auto header = kAddWAVEHeader(instructions) ? LXVoxEncoder::Header::Wave : LXVoxEncoder::Header::None;
        auto encoder = LXVoxEncoder::create(path, file.numberOfChannels(), file.rate(), header, file.path());
        if (!encoder) return encoder.error();
        return LXEncode(file, **encoder);
    }

private:
    bool hasHeader() const { return kAddWAVEHeader(instructions()); }
};

TW_REGISTER_ACTION(TWActionExportVox)
