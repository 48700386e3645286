#include "lx/LXAiffChunks.h"
#include "lx/LXAudioBackend.h"
#include "lx/LXFileDescriptor.h"
#include "lx/LXPcmContainer.h"
#include "lx/LXSampleCodec.h"
#include "lx/LXWaveChunks.h"

#include <QFile>
#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <vector>

bool LXReadFully(int fd, void* buffer, long long count, long long offset) {
    auto* p = static_cast<char*>(buffer);
    while (count > 0) {
        const ssize_t n = ::pread(fd, p, size_t(count), offset);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            if (n == 0) errno = EIO; // the file shrank under us
            return false;
        }
        p += n, count -= n, offset += n;
    }
    return true;
}

bool LXWriteFully(int fd, const void* buffer, long long count, long long offset) {
    const auto* p = static_cast<const char*>(buffer);
    while (count > 0) {
        const ssize_t n = ::pwrite(fd, p, size_t(count), offset);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        p += n, count -= n, offset += n;
    }
    return true;
}

namespace {

// 64 K frames of raw bytes at a time: large enough that the system call costs nothing, small
// enough to stay in the cache.
constexpr int64_t kReadBlockBytes = 256 * 1024;

class PcmReader final : public LXAudioReader {
public:
    PcmReader(LXFileDescriptor fd, LXPcmLayout layout, QString path)
        : m_fd(std::move(fd)), m_layout(std::move(layout)), m_path(std::move(path)) {
        const bool wave = m_layout.container != LXContainer::Aiff && m_layout.container != LXContainer::Aifc;
        const bool bigEndian = m_layout.container == LXContainer::Rifx;
        m_annotations = wave ? LXWaveChunks::decode(m_layout.chunks, m_layout.desc.rate, bigEndian)
                             : LXAiffChunks::decode(m_layout.chunks, m_layout.desc.rate);
        LXChunkOrigin& origin = m_annotations.origin;
        origin.decoded = std::make_shared<const LXAnnotations>(m_annotations);
        origin.chunks = std::move(m_layout.chunks);
        origin.rate = m_layout.desc.rate;
        origin.aiff = !wave;
        origin.bigEndian = wave ? bigEndian : true;
        m_layout.chunks.clear();
    }

    const LXStreamDescription& description() const override { return m_layout.desc; }
    const LXAnnotations& annotations() const override { return m_annotations; }
    std::optional<LXError> warning() const override { return m_layout.warning; }
    LXResult<int64_t> read(int64_t frame, int64_t count, float* out) override {
        return readAs(frame, count, out);
    }
    LXResult<int64_t> read(int64_t frame, int64_t count, double* out) override {
        return readAs(frame, count, out);
    }

private:
    template <typename T> LXResult<int64_t> readAs(int64_t frame, int64_t count, T* out) {
        const int64_t frames = m_layout.desc.frames;
        if (frame < 0 || count < 0)
            return LXError(LXErrInvalidParameter, QStringLiteral("invalid read position"), m_path);
        const int64_t todo = std::max<int64_t>(0, std::min(count, frames - frame));
        const int align = m_layout.blockAlign;
        const int channels = m_layout.desc.channels;
        const int64_t framesPerBlock = std::max<int64_t>(1, kReadBlockBytes / align);
        int64_t done = 0;
        while (done < todo) {
            const int64_t n = std::min(framesPerBlock, todo - done);
            m_bytes.resize(size_t(n * align));
            const int64_t offset = m_layout.dataOffset + (frame + done) * align;
            if (!LXReadFully(m_fd.get(), m_bytes.data(), n * align, offset)) return readError(offset);
            LXDecodeSamples(m_layout.desc.encoding, m_bytes.data(), out + done * channels,
                            size_t(n * channels));
            done += n;
        }
        return todo;
    }

    // A read that failed at byte offset of the file: the system's failure, or a file that has become
    // shorter since it was opened.
    LXError readError(int64_t offset) const {
        const int errnum = errno;
        struct stat st;
        if (::fstat(m_fd.get(), &st) == 0 && st.st_size < offset + m_layout.blockAlign) {
            const int64_t end =
                std::max<int64_t>(0, (int64_t(st.st_size) - m_layout.dataOffset) / m_layout.blockAlign);
            return LXError(
                LXErrTruncated,
                QStringLiteral("the file was cut short while it was open: its audio now ends at frame "
                               "%1 of %2")
                    .arg(end)
                    .arg(m_layout.desc.frames),
                m_path, st.st_size);
        }
        errno = errnum;
        const int64_t frame = (offset - m_layout.dataOffset) / m_layout.blockAlign;
        return LXFileError::fromErrno(QStringLiteral("cannot read the audio at frame %1").arg(frame), m_path);
    }

    LXFileDescriptor m_fd;
    LXPcmLayout m_layout;
    QString m_path;
    LXAnnotations m_annotations;
    std::vector<uint8_t> m_bytes;
};

} // namespace

LXResult<std::unique_ptr<LXAudioReader>> LXOpenPcmReader(const QString& path) {
    LXFileDescriptor fd(::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC));
    if (!fd.isOpen()) return LXFileError::fromErrno(QStringLiteral("cannot open the file"), path);
    struct stat st {};
    if (::fstat(fd.get(), &st) != 0)
        return LXFileError::fromErrno(QStringLiteral("cannot read the file's attributes"), path);
    if (S_ISDIR(st.st_mode))
        return LXError(LXErrUnsupported, QStringLiteral("is a folder, not an audio file"), path);
    const int raw = fd.get();
    auto layout =
        LXParsePcmContainer([raw](int64_t offset, void* buffer,
                                  int64_t count) { return LXReadFully(raw, buffer, count, offset); },
                            st.st_size, path);
    if (!layout) return layout.error();
    return std::unique_ptr<LXAudioReader>(new PcmReader(std::move(fd), std::move(*layout), path));
}
