#pragma once

// What the encoders share: the source handed over in blocks with progress, the text fields as Vorbis
// comments, and the output stream.

#include "engine/TWOutcome.h"

#include "lx/LXAudioFile.h"
#include "lx/LXResult.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <cstdio>
#include <memory>
#include <utility>
#include <vector>

// Hands the whole file to encode(const float* interleaved, int64_t frames) -> LXStatus in blocks of at
// most blockFrames frames, reporting progress to the file's delegate after each. Reads until a read
// comes back short, whatever the header said the length was. Ends at the first failure of a read or of
// encode, or when the delegate answers anything but go on.
template <typename Encode> TWOutcome TWEncodeBlocks(LXAudioFile& file, int64_t blockFrames, Encode&& encode) {
    std::vector<float> block(size_t(blockFrames) * size_t(file.numberOfChannels()));
    const double total = double(std::max<int64_t>(file.frames(), 1));
    for (int64_t done = 0;;) {
        auto got = file.readFrames(done, blockFrames, block.data());
        if (!got) return got.error();
        if (*got > 0) {
            const LXStatus encoded = encode(static_cast<const float*>(block.data()), *got);
            if (!encoded) return encoded.error();
        }
        done += *got;
        if (LXProgressDelegate* delegate = file.progressDelegate()) {
            const int32_t code = delegate->update(float(std::min(1.0, double(done) / total)));
            if (code != LXContinue) return TWOutcome::fromCode(code);
        }
        if (*got < blockFrames) return TWOutcome::success();
    }
}

// The Vorbis comments of the file's text fields, as (name, value) pairs in UTF-8.
QList<std::pair<QByteArray, QByteArray>> TWVorbisComments(const LXMetadata& metadata);

// An encoder's output file, opened for reading too (an encoder may go back to complete its header) and
// closed when dropped. Every failure names the file and the system's reason.
class TWExportStream {
public:
    static LXResult<TWExportStream> open(const QString& path);
    FILE* stream() const { return m_stream.get(); }
    LXStatus write(const void* data, size_t size);
    // Flushes and closes: the data on disk, or the reason it is not.
    LXStatus close();

private:
    struct Closer {
        void operator()(FILE* stream) const { std::fclose(stream); }
    };
    TWExportStream(std::unique_ptr<FILE, Closer> stream, QString path)
        : m_stream(std::move(stream)), m_path(std::move(path)) {}

    std::unique_ptr<FILE, Closer> m_stream;
    QString m_path;
};
