// Export as FLAC: each file encoded losslessly by libFLAC at a compression level from the quality, its
// text metadata in the Vorbis comment, with a seek table and room for tags added later.

#include "TWExportSupport.h"

#include "engine/TWActionExport.h"
#include "engine/TWActionRegistry.h"

#include "lx/LXProcess.h"
#include "lx/LXTags.h"

#include <FLAC/metadata.h>
#include <FLAC/stream_encoder.h>

#include <QFile>

#include <array>
#include <cmath>

namespace {

const TWKey<double> kQuality{
    QStringLiteral("quality"), 0.625,
    QStringLiteral("the compression effort, 0 (fastest) to 1 (smallest): level 8 x quality"),
    TWKeyDetails::between(0, 1)};

constexpr int kBlockFrames = 16384;

// FLAC holds integers of up to 32 bits, but libsndfile and most players read no more than 24: wider
// integers and floats become 24-bit integers. Narrower ones keep their depth.
int flacDepthOf(const LXAudioFile& file) {
    return file.isFloat() || file.depth() > 24 ? 24 : std::max(file.depth(), 4);
}

struct EncoderDeleter {
    void operator()(FLAC__StreamEncoder* encoder) const { FLAC__stream_encoder_delete(encoder); }
};
struct MetadataDeleter {
    void operator()(FLAC__StreamMetadata* block) const { FLAC__metadata_object_delete(block); }
};
using Metadata = std::unique_ptr<FLAC__StreamMetadata, MetadataDeleter>;

// The blocks written after the stream information: the text fields as a Vorbis comment, seek points
// every ten seconds, and padding that lets tags grow later without rewriting the file.
std::array<Metadata, 3> metadataBlocks(const LXAudioFile& file) {
    Metadata comment(FLAC__metadata_object_new(FLAC__METADATA_TYPE_VORBIS_COMMENT));
    for (const auto& [name, value] : TWVorbisComments(file.metadata())) {
        FLAC__StreamMetadata_VorbisComment_Entry entry;
        if (FLAC__metadata_object_vorbiscomment_entry_from_name_value_pair(&entry, name.constData(),
                                                                           value.constData()))
            FLAC__metadata_object_vorbiscomment_append_comment(comment.get(), entry, false);
    }
    Metadata seekTable(FLAC__metadata_object_new(FLAC__METADATA_TYPE_SEEKTABLE));
    if (file.frames() > 0)
        FLAC__metadata_object_seektable_template_append_spaced_points_by_samples(
            seekTable.get(), unsigned(file.rate() * 10), FLAC__uint64(file.frames()));
    FLAC__metadata_object_seektable_template_sort(seekTable.get(), true);
    Metadata padding(FLAC__metadata_object_new(FLAC__METADATA_TYPE_PADDING));
    padding->length = 8192;
    return {std::move(comment), std::move(seekTable), std::move(padding)};
}

} // namespace

class TWActionExportFLAC final : public TWActionExport {
public:
    QString className() const override { return QStringLiteral("TWActionExportFLAC"); }
    QString name() const override { return QStringLiteral("Export as FLAC"); }
    QString verb() const override { return QStringLiteral("Exporting..."); }
    QList<TWInstructionKey> instructionKeys() const override { return {kQuality}; }
    QStringList requiredInstructionKeys() const override { return {}; }
    bool canProcessFilesConcurrently() const override { return true; }

    QList<TWControl> panelControls() const override {
        return {{TWControlKind::Slider, kQuality.name, QStringLiteral("Compression"), 0, 1, 3, {}, {}}};
    }

protected:
    QString extension() const override { return QStringLiteral("flac"); }
    TWOutcome processAudioFileToPath(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                                     const QString& path) override {
        const int channels = file.numberOfChannels();
        const int depth = flacDepthOf(file);
        const std::unique_ptr<FLAC__StreamEncoder, EncoderDeleter> encoder(FLAC__stream_encoder_new());
        std::array<Metadata, 3> blocks = metadataBlocks(file);
        std::array<FLAC__StreamMetadata*, 3> blockList = {blocks[0].get(), blocks[1].get(), blocks[2].get()};
        FLAC__StreamEncoder* flac = encoder.get();
        const bool set =
            flac && FLAC__stream_encoder_set_channels(flac, unsigned(channels)) &&
            FLAC__stream_encoder_set_bits_per_sample(flac, unsigned(depth)) &&
            FLAC__stream_encoder_set_sample_rate(flac, unsigned(file.rate())) &&
            FLAC__stream_encoder_set_total_samples_estimate(
                flac, FLAC__uint64(std::max<int64_t>(file.frames(), 0))) &&
            FLAC__stream_encoder_set_compression_level(flac,
                                                       unsigned(std::max(0.0, kQuality(instructions) * 8))) &&
            FLAC__stream_encoder_set_metadata(flac, blockList.data(), unsigned(blockList.size()));
        const FLAC__StreamEncoderInitStatus status =
            set ? FLAC__stream_encoder_init_file(flac, QFile::encodeName(path).constData(), nullptr, nullptr)
                : FLAC__STREAM_ENCODER_INIT_STATUS_ENCODER_ERROR;
        if (status != FLAC__STREAM_ENCODER_INIT_STATUS_OK)
            return LXError(LXErrUnsupported,
                           QStringLiteral("FLAC cannot hold %1 channels of %2 bits at %3 Hz (%4)")
                               .arg(channels)
                               .arg(depth)
                               .arg(file.rate())
                               .arg(QString::fromLatin1(FLAC__StreamEncoderInitStatusString[status])),
                           file.path());

        // The readers give an integer v of n bits (n up to 24) as exactly v / 2^(n-1): scaled back in
        // single precision, the samples are those integers, bit for bit, and a plain conversion keeps
        // them. Floats are rounded half away from zero and clipped, in double precision, where adding
        // the half cannot carry past the largest integer.
        const bool integral = !file.isFloat() && file.depth() <= 24;
        const double scale = std::ldexp(1.0, depth - 1);
        const double lowest = -scale, highest = scale - 1;
        std::vector<FLAC__int32> integers(size_t(kBlockFrames) * size_t(channels));
        TWOutcome outcome =
            LXEncodeBlocks(file, kBlockFrames, [&](const float* block, int64_t frames) -> LXStatus {
                const size_t samples = size_t(frames) * size_t(channels);
                if (integral) {
                    const float exact = float(scale);
                    for (size_t i = 0; i < samples; ++i)
                        integers[i] = FLAC__int32(block[i] * exact);
                } else {
                    for (size_t i = 0; i < samples; ++i) {
                        const double value = std::clamp(double(block[i]) * scale, lowest, highest);
                        integers[i] = FLAC__int32(value + (value < 0 ? -0.5 : 0.5));
                    }
                }
                if (!FLAC__stream_encoder_process_interleaved(flac, integers.data(), unsigned(frames)))
                    return encoderError(flac, file.path());
                return {};
            });
        // Finishing completes the stream information and closes the file; a stopped export goes anyway.
        const bool finished = FLAC__stream_encoder_finish(flac);
        if (!outcome.goesOn()) return outcome;
        if (!finished) return encoderError(flac, file.path());
        LX_TRY(LXTags::addMissing(path, LXFormat::FLAC, file.metadata()));
        if (!integral) outcome = outcome.withLoss(QStringLiteral("precision beyond 24 bits"));
        return outcome;
    }

private:
    static LXError encoderError(FLAC__StreamEncoder* flac, const QString& path) {
        return LXError(LXErrWriteFailed,
                       QStringLiteral("the FLAC encoder failed: %1")
                           .arg(QString::fromLatin1(
                               FLAC__StreamEncoderStateString[FLAC__stream_encoder_get_state(flac)])),
                       path);
    }
};

TW_REGISTER_ACTION(TWActionExportFLAC)
