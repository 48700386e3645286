// Export as MP3: each file encoded by LAME, loaded when first needed (lx/LXLame.h), with its metadata in
// an ID3v2 tag and the LAME tag that gives players the exact length (the encoder's delay and padding).

#include "TWExportSupport.h"

#include "engine/TWActionExport.h"
#include "engine/TWActionRegistry.h"

#include "lx/LXLame.h"
#include "lx/LXProcess.h"
#include "lx/LXTags.h"

#include "platform/TWDesktop.h"
#include "platform/TWInteraction.h"

#include <QFileInfo>

#include <mutex>

namespace {

const QString kLameProjectPage = QStringLiteral("https://lame.sourceforge.io/");

QList<TWChoice> bitRates() {
    QList<TWChoice> choices;
    for (const int rate : {32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320})
        choices.append({qint64(rate), QStringLiteral("%1 kbit/s").arg(rate)});
    return choices;
}

const TWKey<qint64> kBitRate{QStringLiteral("bitRate"), 160,
                             QStringLiteral("the bit rate in kbit/s, unless vbr"),
                             TWKeyDetails::oneOf(bitRates())};
const TWKey<bool> kVbr{QStringLiteral("vbr"), false, QStringLiteral("a variable bit rate")};
const TWKey<qint64> kQuality{QStringLiteral("quality"), 2,
                             QStringLiteral("the encoder's effort, 0 (best, slowest) to 9 (fastest)"),
                             TWKeyDetails::between(0, 9)};
const TWKey<qint64> kStereoMode{
    QStringLiteral("stereoMode"), 1,
    QStringLiteral("the MPEG channel mode of a two-channel file (one channel is mono)"),
    TWKeyDetails::oneOf({{qint64(STEREO), QStringLiteral("Stereo")},
                         {qint64(JOINT_STEREO), QStringLiteral("Joint Stereo")},
                         {qint64(DUAL_CHANNEL), QStringLiteral("Dual Channel")},
                         {qint64(MONO), QStringLiteral("Mono")}})};

constexpr int kBlockFrames = 15360;
// LAME's bound on the bytes one call may produce: 1.25 bytes a frame and 7200 more.
constexpr int kMP3BufferBytes = kBlockFrames * 5 / 4 + 7200;

// LAME fills tables of its own on its first initialisations; exports running on two threads take turns.
std::mutex g_lameSetUp;

// Text as LAME's UTF-16 setters take it: byte-order mark first, a zero last.
std::vector<unsigned short> utf16(const QString& text) {
    std::vector<unsigned short> units{0xFEFF};
    units.insert(units.end(), text.utf16(), text.utf16() + text.size());
    units.push_back(0);
    return units;
}

// One encoding: LAME's state for one file, closed when dropped.
class Encoder {
public:
    explicit Encoder(const LXLame& lame) : m_lame(lame), m_flags(lame.init()) {}
    ~Encoder() {
        if (m_flags) m_lame.close(m_flags);
    }
    Encoder(const Encoder&) = delete;
    Encoder& operator=(const Encoder&) = delete;
    lame_t flags() const { return m_flags; }

    // The ID3v2 tag LAME writes before the audio: the source's title (or its name), artist, album,
    // year, track and genre, and its comments or else a word on where the file came from.
    void setTags(const LXMetadata& metadata) const {
        m_lame.id3tagInit(m_flags);
        m_lame.id3tagV2Only(m_flags);
        const std::pair<const char*, QString> frames[] = {
            {"TIT2", metadata.contains(QStringLiteral("title"))
                         ? metadata.string(QStringLiteral("title"))
                         : metadata.string(QStringLiteral("metaName"))},
            {"TPE1", metadata.string(QStringLiteral("artist"))},
            {"TALB", metadata.string(QStringLiteral("album"))},
            {"TYER", metadata.string(QStringLiteral("year"))},
            {"TRCK", metadata.string(QStringLiteral("trackNumber"))},
            {"TCON", metadata.string(QStringLiteral("genre"))},
        };
        for (const auto& [frame, text] : frames)
            if (!text.isEmpty()) m_lame.id3tagSetTextinfoUtf16(m_flags, frame, utf16(text).data());
        const QString comments = metadata.string(QStringLiteral("comments"));
        m_lame.id3tagSetCommentUtf16(
            m_flags, "eng", utf16({}).data(),
            utf16(comments.isEmpty() ? QStringLiteral("Encoded with Clipwright") : comments).data());
    }

private:
    const LXLame& m_lame;
    lame_t m_flags;
};

} // namespace

class TWActionExportMP3 final : public TWActionExport {
public:
    QString className() const override { return QStringLiteral("TWActionExportMP3"); }
    QString name() const override { return QStringLiteral("Export as MP3"); }
    QString verb() const override { return QStringLiteral("Exporting..."); }
    QList<TWInstructionKey> instructionKeys() const override {
        return {kBitRate, kVbr, kQuality, kStereoMode};
    }
    QStringList requiredInstructionKeys() const override { return {}; }
    bool canProcessFilesConcurrently() const override { return true; }

    // The quality slider runs from fastest to best: it shows 9 minus the encoder's quality.
    QList<TWControl> panelControls() const override {
        return {{TWControlKind::PopUp,
                 kBitRate.name,
                 QStringLiteral("Bit Rate"),
                 0,
                 0,
                 0,
                 {},
                 kBitRate.details.choices},
                {TWControlKind::CheckBox, kVbr.name, QStringLiteral("Variable Bit Rate"), 0, 0, 0, {}, {}},
                {TWControlKind::Slider, kQuality.name, QStringLiteral("Quality"), 0, 9, 0, {}, {}},
                {TWControlKind::PopUp,
                 kStereoMode.name,
                 QStringLiteral("Channels"),
                 0,
                 0,
                 0,
                 {},
                 kStereoMode.details.choices}};
    }
    QVariant valueFromControl(const TWControl& control, const QVariant& value) const override {
        if (control.key != kQuality.name) return TWAction::valueFromControl(control, value);
        bool ok = false;
        const double shown = value.toDouble(&ok);
        if (!ok || !std::isfinite(shown)) return {};
        return qint64(9 - std::clamp(std::lround(shown), 0L, 9L));
    }
    QVariant controlValue(const TWControl& control) const override {
        const QVariant value = TWAction::controlValue(control);
        return control.key == kQuality.name ? QVariant(qint64(9 - value.toLongLong())) : value;
    }

protected:
    QString extension() const override { return QStringLiteral("mp3"); }
    TWOutcome processAudioFileToPath(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                                     const QString& path) override {
        const LXLame* lame = LXLame::shared();
        if (!lame) return lameMissing(file);
        const Encoder encoder(*lame);
        if (!encoder.flags())
            return LXError(LXErrWriteFailed, QStringLiteral("the MP3 encoder cannot start"), file.path());
        const int channels = file.numberOfChannels();
        const lame_t flags = encoder.flags();
        lame->setNumChannels(flags, channels);
        lame->setInSamplerate(flags, int(file.rate()));
        lame->setBrate(flags, int(kBitRate(instructions)));
        lame->setMode(flags, channels == 1 ? MONO : MPEG_mode(kStereoMode(instructions)));
        lame->setQuality(flags, int(kQuality(instructions)));
        lame->setVBR(flags, kVbr(instructions) ? vbr_rh : vbr_off);
        encoder.setTags(file.metadata());
        {
            const std::lock_guard lock(g_lameSetUp);
            if (lame->initParams(flags) < 0)
                return LXError(
                    LXErrUnsupported,
                    QStringLiteral("the MP3 encoder cannot take %1 channels at %2 Hz in mode %3 at %4 kbit/s")
                        .arg(channels)
                        .arg(file.rate())
                        .arg(kStereoMode(instructions))
                        .arg(kBitRate(instructions)),
                    file.path());
        }

        auto out = TWExportStream::open(path);
        if (!out) return out.error();
        std::vector<unsigned char> mp3(kMP3BufferBytes);
        const auto written = [&](int bytes) -> LXStatus {
            if (bytes < 0)
                return LXError(LXErrWriteFailed, QStringLiteral("the MP3 encoder failed (%1)").arg(bytes),
                               file.path());
            return out->write(mp3.data(), size_t(bytes));
        };
        TWOutcome outcome = LXEncodeBlocks(file, kBlockFrames, [&](const float* block, int64_t frames) {
            // One channel reads as the left and the right alike.
            const int bytes = channels == 1 ? lame->encodeBufferIeeeFloat(flags, block, block, int(frames),
                                                                          mp3.data(), kMP3BufferBytes)
                                            : lame->encodeBufferInterleavedIeeeFloat(
                                                  flags, block, int(frames), mp3.data(), kMP3BufferBytes);
            return written(bytes);
        });
        if (!outcome.goesOn()) return outcome;
        LX_TRY(written(lame->encodeFlush(flags, mp3.data(), kMP3BufferBytes)));
        // The LAME tag in the first frame: the frame count, delay and padding, for an exact duration.
        std::fflush(out->stream());
        lame->mp3TagsFid(flags, out->stream());
        LX_TRY(out->close());
        // What else the source's metadata says that an ID3v2 tag can hold (composer, copyright, tempo, key).
        return LXTags::addMissing(path, LXFormat::MP3, file.metadata());
    }

private:
    // Without LAME there is no MP3: the user may go and get it, and the file fails, saying why.
    TWOutcome lameMissing(const LXAudioFile& file) const {
        TWAlert alert;
        alert.title = QStringLiteral("Additional software is required to export MP3 files");
        alert.message = QStringLiteral(
            "The LAME framework is required to export MP3 files and is not installed on this computer. Do "
            "you want to go to the web site where you can download the framework now?");
        alert.buttons = {QStringLiteral("Yes"), QStringLiteral("Not Now")};
        alert.defaultButton = 1; // nobody there to answer: no browser opened
        if (interaction().runAlert(alert) == 0) TWDesktop::openUrl(kLameProjectPage);
        return LXError(LXErrUnsupported,
                       QStringLiteral("cannot export it as MP3: the LAME library (%1) is not installed")
                           .arg(LXLame::libraryName()),
                       file.path());
    }
};

TW_REGISTER_ACTION(TWActionExportMP3)
