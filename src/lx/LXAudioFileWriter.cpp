#include "lx/LXAudioFileWriter.h"

#include "lx/LXAudioFile.h"
#include "lx/LXFile.h"
#include "lx/LXTags.h"
#include "lx/LXTemporaryFile.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

constexpr int64_t kSampleBufferFrames = 4096;
std::atomic<bool> g_retainUnrecognizedData{true};
std::atomic<bool> g_acceptReencoding{false};

bool isAiff(uint32_t format) {
    return format == LXFormat::AIFF || format == LXFormat::AIFC;
}

} // namespace

void LXAudioFileWriter::setRetainUnrecognizedDataDefault(bool retain) {
    g_retainUnrecognizedData = retain;
}
bool LXAudioFileWriter::retainUnrecognizedDataDefault() {
    return g_retainUnrecognizedData;
}
void LXAudioFileWriter::setAcceptReencodingDefault(bool accept) {
    g_acceptReencoding = accept;
}

bool LXAudioFileWriter::canWrite(const LXStreamDescription& desc) {
    if (LXFormat::isNative(desc.format) && desc.codec == LXCodec::None) return true;
    return LXSndfileCanWrite(desc);
}

std::optional<QString> LXAudioFileWriter::reencodingOf(const LXStreamDescription& source) {
    LXStreamDescription desc = source;
    if (desc.format == LXFormat::RF64) desc.format = LXFormat::WAVE;
    // Integers wider than the writer's widest (32 bits) would lose their low bits.
    if (!desc.encoding.isFloat() && desc.encoding.bytes > 4)
        return QStringLiteral("%1-bit integer samples").arg(desc.encoding.bits);
    if (canWrite(desc)) return std::nullopt;
    QString what = LXFormat::name(desc.format);
    if (desc.codec != LXCodec::None) what += QStringLiteral(" (%1)").arg(LXCodecName(desc.codec));
    return what;
}

LXAudioFileWriter::LXAudioFileWriter(const QString& directory)
    : m_directory(directory.isEmpty() ? QDir::currentPath() : LXFile::conformPath(directory)),
      m_writeUnusedChunks(g_retainUnrecognizedData) {
    m_desc.format = LXFormat::WAVE;
    m_desc.encoding = LXSampleEncoding::pcm(16, false);
    m_desc.rate = 44100;
    m_desc.channels = 2;
}

LXAudioFileWriter::LXAudioFileWriter(const LXAudioFile& source)
    : m_desc(source.description()), m_interleaved(source.isInterleaved()),
      m_directory(QFileInfo(source.path()).path()), m_baseName(QFileInfo(source.path()).fileName()),
      m_annotations(source.annotations()), m_writeUnusedChunks(g_retainUnrecognizedData) {
    m_desc.frames = 0;
    m_sourceFormat = m_desc.format;
    if (LXTags::mayHoldTags(m_sourceFormat, m_annotations)) {
        m_tagSourcePath = source.path();
        m_sourceMetadata = source.metadata();
    }
    // The name's extension stays as it is (".aiff", ".oga", an ".mp3" that holds FLAC) while the format
    // does; a file without one keeps none.
    if (source.isInterleaved()) m_sourceExtension = QFileInfo(source.path()).suffix();
    if (!m_desc.encoding.isFloat() && m_desc.encoding.bytes > 4)
        m_desc.encoding = LXSampleEncoding::pcm(32, m_desc.encoding.bigEndian); // the widest we write
    // Containers we write but not read natively keep their format; others become what they are.
    if (m_desc.format == LXFormat::RF64)
        m_desc.format = LXFormat::WAVE; // grows back into RF64 by itself when it needs to
    // A codec this build cannot write back (MPEG Layer 2, say) is decoded into the container's plain
    // samples only when the user accepted it; otherwise the writer fails when it opens, naming the codec.
    if (g_acceptReencoding && !canWrite(m_desc)) {
        m_desc.codec = LXCodec::None;
        m_desc.bitRate = 0;
    }
}

LXAudioFileWriter::~LXAudioFileWriter() {
    m_sinks.clear();
    for (int i = 0; i < m_tempPaths.size(); ++i)
        if (m_savedPaths.value(i).isEmpty()) QFile::remove(m_tempPaths.at(i));
}

void LXAudioFileWriter::setFormat(uint32_t format) {
    if (format == m_desc.format) return;
    m_desc.format = format;
    m_desc.codec = LXCodec::None; // another container takes plain samples, unless told otherwise
    m_desc.bitRate = 0;
    // Each container has its natural byte order (AU's is big-endian: FFmpeg reads no other); a RIFX
    // source converted to AIFF and back is little-endian again.
    m_desc.encoding.bigEndian = isAiff(format) || format == LXFormat::AU;
    if (m_desc.encoding.bytes == 1 && !m_desc.encoding.isFloat())
        m_desc.encoding.type =
            isAiff(format) ? LXSampleEncoding::Type::SignedInt : LXSampleEncoding::Type::UnsignedInt;
}

QString LXAudioFileWriter::formatExtension() const {
    const bool sameFormat = m_sourceFormat == m_desc.format ||
                            (m_sourceFormat == LXFormat::RF64 && m_desc.format == LXFormat::WAVE);
    if (m_sourceExtension && sameFormat) return *m_sourceExtension;
    return LXFormat::extension(m_desc.format);
}

void LXAudioFileWriter::setRate(double rate) {
    m_desc.rate = rate;
}

void LXAudioFileWriter::setDepth(int bits) {
    m_desc.codec = LXCodec::None;
    m_desc.encoding = LXSampleEncoding::pcm(bits, isAiff(m_desc.format) || m_desc.encoding.bigEndian,
                                            bits == 8 && !isAiff(m_desc.format));
}

void LXAudioFileWriter::setFloat(int bits) {
    m_desc.codec = LXCodec::None;
    m_desc.encoding = LXSampleEncoding::ieeeFloat(bits, isAiff(m_desc.format) || m_desc.encoding.bigEndian);
}

void LXAudioFileWriter::setEncoding(const LXSampleEncoding& encoding) {
    m_desc.encoding = encoding;
}
void LXAudioFileWriter::setChannels(int channels) {
    m_desc.channels = channels;
}
void LXAudioFileWriter::setInterleaved(bool interleaved) {
    m_interleaved = interleaved;
}
void LXAudioFileWriter::setDirectory(const QString& directory) {
    m_directory = LXFile::conformPath(directory);
}

bool LXAudioFileWriter::needsDoublePrecision() const {
    return !m_desc.encoding.isFloat() && m_desc.encoding.bytes == 4;
}

LXStatus LXAudioFileWriter::openSinks() {
    if (m_discarding) return {};
    const int files = numberOfFiles();
    LXStreamDescription desc = m_desc;
    if (!m_interleaved) desc.channels = 1;
    for (int i = 0; i < files; ++i) {
        auto temp = LXCreateTemporaryFile(m_directory, m_baseName);
        if (!temp) return temp.error();
        m_tempPaths.append(temp->path);
        m_tempLocks.push_back(std::move(temp->lock));
        // Compressed WAV and AIFF (mu-law, ADPCM, GSM, ...) go through libsndfile, which encodes them.
        auto sink = LXFormat::isNative(desc.format) && desc.codec == LXCodec::None
                        ? LXCreatePcmSink(temp->path, desc)
                        : LXCreateSndfileSink(temp->path, desc);
        if (!sink) return sink.error();
        m_sinks.push_back(std::move(*sink));
    }
    return {};
}

LXStatus LXAudioFileWriter::beginWrite() {
    if (m_state == State::Writing) return {};
    if (m_state != State::Setup)
        return LXError(LXErrInvalidParameter, QStringLiteral("the writer has already been used"),
                       m_directory);
    if (m_desc.channels < 1 || !(m_desc.rate > 0))
        return LXError(
            LXErrInvalidParameter,
            QStringLiteral("cannot write %1 channels at %2 Hz").arg(m_desc.channels).arg(m_desc.rate),
            m_directory);
    if (auto opened = openSinks(); !opened) {
        m_state = State::Failed;
        return opened;
    }
    m_levels = LXSignalMeter(m_desc.encoding);
    m_state = State::Writing;
    return {};
}

template <typename T> LXStatus LXAudioFileWriter::writeInterleaved(const T* interleaved, int64_t frames) {
    LX_TRY(beginWrite());
    if (m_state != State::Writing)
        return LXError(LXErrInvalidParameter, QStringLiteral("the writer is not writing"), m_directory);
    m_levels.add(interleaved, frames * m_desc.channels);
    if (m_discarding) {
        m_framesWritten += frames;
        return {};
    }
    if (m_interleaved) {
        LX_TRY(m_sinks.front()->write(interleaved, frames));
    } else {
        const int channels = m_desc.channels;
        std::vector<T> mono(static_cast<size_t>(frames));
        for (int c = 0; c < channels; ++c) {
            for (int64_t f = 0; f < frames; ++f)
                mono[size_t(f)] = interleaved[f * channels + c];
            LX_TRY(m_sinks[size_t(c)]->write(mono.data(), frames));
        }
    }
    m_framesWritten += frames;
    return {};
}

LXStatus LXAudioFileWriter::writeFrames(const float* interleaved, int64_t frames) {
    return writeInterleaved(interleaved, frames);
}

LXStatus LXAudioFileWriter::writeFrames(const double* interleaved, int64_t frames) {
    return writeInterleaved(interleaved, frames);
}

void LXAudioFileWriter::writeSample(float sample, int channel) {
    if (channel < 0 || channel >= m_desc.channels) return;
    const size_t frameSize = size_t(m_desc.channels);
    if (m_sampleBuffer.size() != size_t(kSampleBufferFrames) * frameSize)
        m_sampleBuffer.assign(size_t(kSampleBufferFrames) * frameSize, 0.0f);
    m_sampleBuffer[size_t(m_bufferedFrames) * frameSize + size_t(channel)] = sample;
    if (++m_nextChannel < m_desc.channels) return;
    m_nextChannel = 0;
    if (++m_bufferedFrames == kSampleBufferFrames) {
        if (auto flushed = flushSamples(); !flushed && !m_sampleError) m_sampleError = flushed.error();
    }
}

LXStatus LXAudioFileWriter::flushSamples() {
    if (m_bufferedFrames == 0) return {};
    const int64_t frames = m_bufferedFrames;
    m_bufferedFrames = 0;
    auto written = writeFrames(m_sampleBuffer.data(), frames);
    std::fill(m_sampleBuffer.begin(), m_sampleBuffer.end(), 0.0f);
    return written;
}

LXStatus LXAudioFileWriter::endWrite() {
    if (m_state == State::Finished) return {};
    LX_TRY(beginWrite());
    if (m_nextChannel != 0) { // a frame left half written is completed with silence
        m_nextChannel = 0;
        ++m_bufferedFrames;
    }
    LX_TRY(flushSamples());
    if (m_sampleError) return *m_sampleError;
    LXAnnotations annotations = m_annotations;
    const bool converted =
        m_sourceFormat != LXFormat::Unknown &&
        (isAiff(m_desc.format) != isAiff(m_sourceFormat) || !LXFormat::isNative(m_desc.format));
    if (converted)
        annotations.unknownChunks.clear(); // a WAV chunk means nothing inside an AIFF file, and vice versa
    if (!m_writeAnalysis)
        for (const char* key : {"loudnessValue", "loudnessRange", "maxTruePeakLevel", "maxMomentaryLoudness",
                                "maxShortTermLoudness"})
            annotations.metadata.remove(QString::fromLatin1(key));
    for (size_t i = 0; i < m_sinks.size(); ++i) {
        // Descriptive data and labels belong to the lead file of a split set.
        const LXAnnotations& own = i == 0 ? annotations : LXAnnotations{};
        if (auto finished = m_sinks[i]->finish(own, m_writeUnusedChunks); !finished) {
            m_state = State::Failed;
            return finished;
        }
    }
    m_sinks.clear();
    if (!m_tagSourcePath.isEmpty() && !m_tempPaths.isEmpty()) {
        LXStatus tagged = LXTags::copy(m_tagSourcePath, m_sourceFormat, m_sourceMetadata, m_tempPaths.front(),
                                       m_desc.format, m_annotations.metadata);
        if (tagged) tagged = LXFile::syncPath(m_tempPaths.front());
        if (!tagged) {
            m_state = State::Failed;
            return tagged;
        }
    }
    m_state = State::Finished;
    return {};
}

LXStatus LXAudioFileWriter::copyVerbatim(const LXAudioFile& source) {
    if (m_state != State::Setup || m_sourceFormat != source.format() || m_discarding)
        return LXError(LXErrInvalidParameter, QStringLiteral("the writer cannot copy this file as it stands"),
                       source.path());
    m_state = State::Failed; // until the copies and their tags are complete
    for (const QString& path : source.paths()) {
        auto temp = LXCreateTemporaryFile(m_directory, m_baseName);
        if (!temp) return temp.error();
        m_tempPaths.append(temp->path);
        m_tempLocks.push_back(std::move(temp->lock));
        QFile::remove(temp->path); // copyPath makes its target itself, never over a file
        LX_TRY(LXFile::copyPath(path, temp->path));
    }
    if (!m_tagSourcePath.isEmpty())
        LX_TRY(LXTags::copy(m_tagSourcePath, m_sourceFormat, m_sourceMetadata, m_tempPaths.front(), m_desc.format,
                            m_annotations.metadata));
    for (const QString& temp : std::as_const(m_tempPaths))
        LX_TRY(LXFile::syncPath(temp));
    m_framesWritten = source.frames();
    m_state = State::Finished;
    return {};
}

bool LXAudioFileWriter::canHold(const QString& key) const {
    if (LXFormat::isNative(m_desc.format)) return true;
    return LXTags::holds(m_desc.format, key);
}

QString LXAudioFileWriter::temporaryPath(int file) const {
    return m_tempPaths.value(file);
}

QString LXAudioFileWriter::savedPath(int file) const {
    return m_savedPaths.value(file);
}

LXStatus LXAudioFileWriter::saveFile(int file, const QString& pathIn) {
    if (m_state != State::Finished)
        return LXError(LXErrInvalidParameter, QStringLiteral("the output is not complete"), pathIn);
    if (file < 0 || file >= m_tempPaths.size())
        return LXError(LXErrInvalidParameter, QStringLiteral("the writer has no file %1").arg(file), pathIn);
    const QString path = LXFile::conformPath(pathIn);
    const QString temp = m_tempPaths.at(file);
    if (::rename(QFile::encodeName(temp).constData(), QFile::encodeName(path).constData()) != 0) {
        if (errno != EXDEV) return LXFileError::fromErrno(QStringLiteral("cannot save the file"), path);
        // Another file system: copy beside the target first, so the final step is still a rename.
        auto near = LXCreateTemporaryFile(QFileInfo(path).path(), QFileInfo(path).fileName());
        if (!near) return near.error();
        QFile::remove(near->path);
        LX_TRY(LXFile::copyPath(temp, near->path));
        LX_TRY(LXFile::syncPath(near->path));
        if (::rename(QFile::encodeName(near->path).constData(), QFile::encodeName(path).constData()) != 0) {
            const LXFileError error = LXFileError::fromErrno(QStringLiteral("cannot save the file"), path);
            QFile::remove(near->path);
            return error;
        }
        QFile::remove(temp);
    }
    LX_TRY(LXFile::syncPath(QFileInfo(path).path()));
    while (m_savedPaths.size() < m_tempPaths.size())
        m_savedPaths.append(QString());
    m_savedPaths[file] = path;
    return {};
}

void LXAudioFileWriter::deleteOutput() {
    m_sinks.clear();
    for (int i = 0; i < m_tempPaths.size(); ++i) {
        const QString saved = m_savedPaths.value(i);
        QFile::remove(saved.isEmpty() ? m_tempPaths.at(i) : saved);
    }
    m_tempPaths.clear();
    m_tempLocks.clear();
    m_savedPaths.clear();
    m_state = State::Failed;
}

void LXAudioFileWriter::removeAbandonedTemporaryFiles(const QString& directory) {
    // Young files are left alone: a writer in another process may not have locked its file yet.
    const QDateTime settled = QDateTime::currentDateTimeUtc().addSecs(-10);
    const QDir folder(directory);
    const QStringList names = folder.entryList({QStringLiteral(".*") + kTemporarySuffix},
                                               QDir::Files | QDir::Hidden | QDir::System);
    for (const QString& name : names) {
        const QString path = folder.filePath(name);
        LXFileDescriptor fd(::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
        if (!fd.isOpen() || ::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) continue;
        if (LXFile::modificationDateOfFileAtPath(path) < settled)
            (void)::unlink(QFile::encodeName(path).constData());
    }
}
