// Export as Ogg Vorbis: each file encoded by libvorbis at a variable bit rate of the chosen quality, its
// text metadata in the Vorbis comment.

#include "TWExportSupport.h"

#include "engine/TWActionExport.h"
#include "engine/TWActionRegistry.h"

#include "lx/LXProcess.h"
#include "lx/LXTags.h"

#include <vorbis/vorbisenc.h>

#include <random>

namespace {

const TWKey<double> kQuality{QStringLiteral("quality"), 0.4,
                             QStringLiteral("the encoder's quality, 0 (smallest) to 1 (best)"),
                             TWKeyDetails::between(0, 1)};

// As the reference encoder's: larger blocks bought nothing, the encoder analyses in its own.
constexpr int kBlockFrames = 1024;

// libvorbis's and libogg's state for one file, cleared when dropped, in the reverse order of its making.
struct VorbisState {
    vorbis_info info;
    vorbis_comment comment;
    vorbis_dsp_state dsp;
    vorbis_block block;
    ogg_stream_state stream;
    bool analysing = false, streaming = false;

    VorbisState() {
        vorbis_info_init(&info);
        vorbis_comment_init(&comment);
    }
    ~VorbisState() {
        if (streaming) ogg_stream_clear(&stream);
        if (analysing) {
            vorbis_block_clear(&block);
            vorbis_dsp_clear(&dsp);
        }
        vorbis_comment_clear(&comment);
        vorbis_info_clear(&info);
    }
    VorbisState(const VorbisState&) = delete;
    VorbisState& operator=(const VorbisState&) = delete;
};

// A serial number for the stream: different from file to file, so that files chained or multiplexed
// later do not clash.
int serialNumber() {
    thread_local std::mt19937 generator{std::random_device{}()};
    return int(generator() & 0x7fffffff);
}

} // namespace

class TWActionExportOggVorbis final : public TWActionExport {
public:
    QString className() const override { return QStringLiteral("TWActionExportOggVorbis"); }
    QString name() const override { return QStringLiteral("Export as Ogg Vorbis"); }
    QString verb() const override { return QStringLiteral("Exporting..."); }
    QList<TWInstructionKey> instructionKeys() const override { return {kQuality}; }
    QStringList requiredInstructionKeys() const override { return {}; }
    bool canProcessFilesConcurrently() const override { return true; }

    QList<TWControl> panelControls() const override {
        return {{TWControlKind::Slider, kQuality.name, QStringLiteral("Quality"), 0, 1, 2, {}, {}}};
    }

protected:
    QString extension() const override { return QStringLiteral("ogg"); }
    TWOutcome processAudioFileToPath(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                                     const QString& path) override {
        const int channels = file.numberOfChannels();
        VorbisState vorbis;
        if (vorbis_encode_init_vbr(&vorbis.info, channels, long(file.rate()),
                                   float(kQuality(instructions))) != 0)
            return LXError(
                LXErrUnsupported,
                QStringLiteral("This file could not be converted to Ogg Vorbis format. This error usually "
                               "results from a file with a non-standard sample rate. Convert the sample "
                               "rate of the file and try again."),
                file.path());
        for (const auto& [name, value] : TWVorbisComments(file.metadata()))
            vorbis_comment_add_tag(&vorbis.comment, name.constData(), value.constData());
        vorbis_analysis_init(&vorbis.dsp, &vorbis.info);
        vorbis_block_init(&vorbis.dsp, &vorbis.block);
        vorbis.analysing = true;
        ogg_stream_init(&vorbis.stream, serialNumber());
        vorbis.streaming = true;

        auto out = TWExportStream::open(path);
        if (!out) return out.error();
        ogg_page page;
        const auto writePage = [&]() -> LXStatus {
            LX_TRY(out->write(page.header, size_t(page.header_len)));
            return out->write(page.body, size_t(page.body_len));
        };
        {
            ogg_packet header, comments, codebooks;
            vorbis_analysis_headerout(&vorbis.dsp, &vorbis.comment, &header, &comments, &codebooks);
            ogg_stream_packetin(&vorbis.stream, &header);
            ogg_stream_packetin(&vorbis.stream, &comments);
            ogg_stream_packetin(&vorbis.stream, &codebooks);
            // The audio starts on a page of its own.
            while (ogg_stream_flush(&vorbis.stream, &page) != 0)
                LX_TRY(writePage());
        }
        // Analyses what was handed over and writes the pages it completes; frames 0 ends the stream.
        const auto encode = [&](const float* block, int64_t frames) -> LXStatus {
            if (frames > 0) {
                float** buffer = vorbis_analysis_buffer(&vorbis.dsp, int(frames));
                for (int64_t frame = 0; frame < frames; ++frame)
                    for (int channel = 0; channel < channels; ++channel)
                        buffer[channel][frame] = block[frame * channels + channel];
            }
            vorbis_analysis_wrote(&vorbis.dsp, int(frames));
            ogg_packet packet;
            while (vorbis_analysis_blockout(&vorbis.dsp, &vorbis.block) == 1) {
                vorbis_analysis(&vorbis.block, nullptr);
                vorbis_bitrate_addblock(&vorbis.block);
                while (vorbis_bitrate_flushpacket(&vorbis.dsp, &packet) != 0) {
                    ogg_stream_packetin(&vorbis.stream, &packet);
                    while (ogg_stream_pageout(&vorbis.stream, &page) != 0)
                        LX_TRY(writePage());
                }
            }
            return {};
        };
        const TWOutcome outcome = LXEncodeBlocks(file, kBlockFrames, encode);
        if (!outcome.goesOn()) return outcome;
        LX_TRY(encode(nullptr, 0));
        while (ogg_stream_flush(&vorbis.stream, &page) != 0) // the last page, marked the end of the stream
            LX_TRY(writePage());
        LX_TRY(out->close());
        // The tempo and key the source states, under the names TagLib gives them.
        return LXTags::addMissing(path, LXFormat::Ogg, file.metadata());
    }
};

TW_REGISTER_ACTION(TWActionExportOggVorbis)
