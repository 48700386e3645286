// Export as AAC: each file encoded as AAC in an MPEG-4 audio file (.m4a) at its own rate and channels,
// its metadata written as the file's tags (title, artist, album, comments, genre, year, track, composer,
// lyricist, copyright, tempo, key).

#include "engine/TWActionExport.h"
#include "engine/TWActionRegistry.h"

#include "lx/LXAacEncoder.h"
#include "lx/LXAudioFile.h"
#include "lx/LXTags.h"

namespace {

// In bit/s, as the encoder takes it. The default of 128 is kept as workflows have always stored it; the
// panel's items are whole bit rates.
const TWKey<int> kBitRate{
    QStringLiteral("bitRate"), 128,
    QStringLiteral("the bit rate in bit/s: give 128000 for 128 kbit/s; the default, 128, is taken as 128 "
                   "bit/s, below what AAC can reach, and gives the encoder's smallest, muffled files (about "
                   "15 kbit/s a channel)"),
    TWKeyDetails::between(1, 1536000, QStringLiteral("bit/s"))};

QList<TWChoice> bitRateItems() {
    QList<TWChoice> items;
    for (int kbps : {32, 48, 64, 96, 112, 128, 160, 192, 224, 256, 320})
        items.append({qint64(kbps * 1000), QStringLiteral("%1 kbps").arg(kbps)});
    return items;
}

} // namespace

class TWActionExportAAC : public TWActionExport {
public:
    QString className() const override { return QStringLiteral("TWActionExportAAC"); }
    QString name() const override { return QStringLiteral("Export as AAC"); }
    QString verb() const override { return QStringLiteral("Exporting..."); }
    QList<TWInstructionKey> instructionKeys() const override { return {kBitRate}; }
    QStringList requiredInstructionKeys() const override { return {}; }
    bool canProcessFilesConcurrently() const override { return true; }

    QList<TWControl> panelControls() const override {
        return {TWControl{TWControlKind::PopUp, kBitRate.name, QStringLiteral("Bit Rate"), 0, 0, 0, {},
                          bitRateItems()}};
    }

protected:
    QString extension() const override { return QStringLiteral("m4a"); }

    TWOutcome processAudioFileToPath(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                                     const QString& path) override {
        auto encoder =
            LXAacEncoder::create(path, file.numberOfChannels(), file.rate(), kBitRate(instructions), file.path());
        if (!encoder) return encoder.error();
        LX_TRY(LXEncode(file, **encoder));
        return LXTags::writeMP4(path, file.metadata(), file.path());
    }
};

TW_REGISTER_ACTION(TWActionExportAAC)
