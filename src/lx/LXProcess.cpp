#include "lx/LXProcess.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/dsp/LXKernel.h"

#include <algorithm>
#include <vector>

namespace {

// 16 K frames: big enough that per-block overhead (progress, system calls) vanishes, small enough
// that a block of any channel count stays in the cache.
constexpr int64_t kBlockFrames = 16384;

LXStatus ask(LXProgressDelegate* delegate, int64_t done, int64_t total, const QString& action) {
    if (!delegate) return {};
    const int32_t code = delegate->update(float(double(done) / double(total)));
    if (code != LXContinue) return LXProgressError::errorWithCode(code, action);
    return {};
}

// Backwards, the end comes first: a stream shorter than its header cannot be reversed as it is read.
LXError endedEarly(const LXAudioFile& file, int64_t frame) {
    return LXError(LXErrTruncated,
                   QStringLiteral("the audio ends at frame %1, before the length the header gives").arg(frame),
                   file.path(), frame);
}

template <typename T>
LXStatus run(LXAudioFile& file, LXKernel& kernel, LXAudioFileWriter& writer, const LXPieces& pieces,
             LXDirection direction, int outChannels) {
    std::vector<T> in(size_t(kBlockFrames * file.numberOfChannels()));
    std::vector<T> out(size_t(kBlockFrames * outChannels));
    LX_TRY(writer.beginWrite());
    LXProgressDelegate* delegate = file.progressDelegate();
    if (delegate) delegate->reset();
    int64_t total = 0;
    for (const LXPiece& piece : pieces)
        total += piece.frames();
    const bool forward = direction == LXDirection::Forward;
    int64_t done = 0;
    for (size_t p = 0; p < pieces.size(); ++p) {
        const LXPiece& piece = pieces[forward ? p : pieces.size() - 1 - p];
        const int64_t length = piece.frames();
        for (int64_t inPiece = 0; inPiece < length;) {
            const int64_t n = std::min(kBlockFrames, length - inPiece);
            int64_t got = n;
            if (piece.isSilence()) {
                std::fill_n(in.begin(), n * file.numberOfChannels(), T(0));
            } else {
                const int64_t start = forward ? piece.from + inPiece : piece.to - inPiece - n;
                const auto read = file.readFrames(start, n, in.data());
                if (!read) return read.error();
                got = *read;
                if (got < n && !forward) return endedEarly(file, start + got);
            }
            kernel.process(in.data(), out.data(), got);
            LX_TRY(writer.writeFrames(out.data(), got));
            if (got < n) break; // the stream ended before its header said
            inPiece += n;
            done += n;
            LX_TRY(ask(delegate, done, total, QStringLiteral("Processing")));
        }
    }
    return writer.endWrite();
}

template <typename T> LXStatus runStream(LXAudioFile& file, LXStreamKernel& kernel, LXAudioFileWriter& writer) {
    std::vector<T> in(size_t(kBlockFrames * file.numberOfChannels()));
    LX_TRY(writer.beginWrite());
    LXProgressDelegate* delegate = file.progressDelegate();
    if (delegate) delegate->reset();
    const int64_t total = file.frames();
    const T* out = nullptr;
    for (int64_t done = 0; done < total;) {
        const int64_t n = std::min(kBlockFrames, total - done);
        const auto read = file.readFrames(done, n, in.data());
        if (!read) return read.error();
        const auto made = kernel.process(in.data(), *read, &out);
        if (!made) return made.error();
        LX_TRY(writer.writeFrames(out, *made));
        if (*read < n) break; // the stream ended before its header said
        done += n;
        LX_TRY(ask(delegate, done, total, QStringLiteral("Processing")));
    }
    for (;;) {
        const auto made = kernel.process(static_cast<const T*>(nullptr), 0, &out);
        if (!made) return made.error();
        if (*made == 0) break;
        LX_TRY(writer.writeFrames(out, *made));
    }
    return writer.endWrite();
}

} // namespace

LXStatus LXProcess(LXAudioFile& file, LXStreamKernel& kernel, LXAudioFileWriter& writer) {
    if (const int channels = kernel.outputChannels(file.numberOfChannels()); channels != file.numberOfChannels())
        writer.setChannels(channels);
    const bool wide = writer.needsDoublePrecision() || (!file.isFloat() && file.encoding().bytes == 4);
    LX_TRY(kernel.prepare(file.numberOfChannels(), file.rate(), wide));
    if (wide) return runStream<double>(file, kernel, writer);
    return runStream<float>(file, kernel, writer);
}

LXStatus LXProcess(LXAudioFile& file, LXKernel& kernel, LXAudioFileWriter& writer,
                   const LXProcessOptions& options) {
    LXPieces pieces = options.pieces.empty() ? LXPieces{LXPiece::stretch(0, file.frames())} : options.pieces;
    for (LXPiece& piece : pieces) {
        piece.from = std::clamp<int64_t>(piece.from, 0, file.frames());
        piece.to = std::clamp<int64_t>(piece.to, piece.from, file.frames());
    }
    const int inChannels = file.numberOfChannels();
    const int outChannels = kernel.outputChannels(inChannels);
    if (outChannels <= 0)
        return LXError(LXErrInvalidParameter,
                       QStringLiteral("the operation cannot take a file of %1 channels").arg(inChannels),
                       file.path());
    writer.setChannels(outChannels);
    kernel.prepare(inChannels, file.rate());
    const bool wide = writer.needsDoublePrecision() || (!file.isFloat() && file.encoding().bytes == 4);
    if (wide) return run<double>(file, kernel, writer, pieces, options.direction, outChannels);
    return run<float>(file, kernel, writer, pieces, options.direction, outChannels);
}

LXStatus LXMeasure(LXAudioFile& file, LXMeter& meter, int64_t from, int64_t to,
                   const LXChannelSet& channels) {
    from = std::clamp<int64_t>(from, 0, file.frames());
    to = std::clamp<int64_t>(to, from, file.frames());
    meter.prepare(file.numberOfChannels(), file.rate(), channels);
    std::vector<float> block(size_t(kBlockFrames * file.numberOfChannels()));
    LXProgressDelegate* delegate = file.progressDelegate();
    if (delegate) delegate->reset();
    for (int64_t pos = from; pos < to;) {
        const int64_t n = std::min(kBlockFrames, to - pos);
        const auto got = file.readFrames(pos, n, block.data());
        if (!got) return got.error();
        meter.measure(block.data(), *got);
        if (*got < n) break; // the stream ended before its header said
        pos += n;
        LX_TRY(ask(delegate, pos - from, to - from, QStringLiteral("Measuring")));
    }
    return {};
}

LXStatus LXEncodeBlocks(LXAudioFile& file, int64_t blockFrames,
                        const std::function<LXStatus(const float*, int64_t)>& encode) {
    std::vector<float> block(size_t(blockFrames) * size_t(file.numberOfChannels()));
    LXProgressDelegate* delegate = file.progressDelegate();
    if (delegate) delegate->reset();
    const int64_t total = std::max<int64_t>(file.frames(), 1);
    for (int64_t done = 0;;) {
        const auto got = file.readFrames(done, blockFrames, block.data());
        if (!got) return got.error();
        if (*got > 0) LX_TRY(encode(block.data(), *got));
        done += *got;
        LX_TRY(ask(delegate, std::min(done, total), total, QStringLiteral("Exporting")));
        if (*got < blockFrames) return {};
    }
}

LXStatus LXEncode(LXAudioFile& file, LXEncoder& encoder) {
    LX_TRY(LXEncodeBlocks(file, kBlockFrames,
                          [&](const float* interleaved, int64_t frames) { return encoder.encode(interleaved, frames); }));
    return encoder.finish();
}
