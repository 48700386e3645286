#include "lx/LXAudioFile.h"

#include "lx/LXFile.h"
#include "lx/LXTags.h"
#include "lx/LXWaveformCache.h"

#include <QFileInfo>
#include <algorithm>
#include <cstring>

namespace {

constexpr int64_t kSampleCacheFrames = 4096;

LXResult<std::unique_ptr<LXAudioReader>> openReader(const QString& path) {
    auto native = LXOpenPcmReader(path);
    if (native || native.error().code() != LXErrUnsupported) return native;
    // Not a PCM WAV or AIFF: compressed WAV codecs, CAF, FLAC, Ogg, MP3 and the rest.
    auto other = LXOpenSndfileReader(path);
    if (other || other.error().code() != LXErrUnsupported) return other;
    return LXError(LXErrUnsupported, QStringLiteral("is not an audio file this program can read"), path);
}

} // namespace

LXAudioFile::~LXAudioFile() = default;

QStringList LXAudioFile::splitSetMembers(const QString& path) {
    if (!LXAudioFilename::isSplitMember(path)) return {};
    const QString lead = LXAudioFilename::leadPathOfSplitMember(path);
    const QString base = lead.left(lead.size() - 2); // without ".L"
    QStringList members;
    for (const QString& suffix : LXAudioFilename::channelSuffixes()) {
        const QString member = base + u'.' + suffix;
        if (QFileInfo::exists(member)) members.append(member);
    }
    return members;
}

LXResult<std::unique_ptr<LXAudioFile>> LXAudioFile::open(const QString& pathIn) {
    const QString path = LXFile::conformPath(pathIn);
    std::unique_ptr<LXAudioFile> file(new LXAudioFile);
    QStringList members = splitSetMembers(path);
    if (members.size() < 2) members = QStringList{path};

    for (const QString& member : members) {
        auto reader = openReader(member);
        if (!reader) return reader.error();
        file->m_readers.push_back(std::move(*reader));
    }
    const LXAudioReader& lead = *file->m_readers.front();
    file->m_desc = lead.description();
    file->m_annotations = lead.annotations();
    if (LXTags::mayHoldTags(file->m_desc.format, file->m_annotations))
        LXTags::readInto(members.front(), file->m_desc.format, file->m_annotations.metadata);
    file->m_warning = lead.warning();
    file->m_paths = members;

    if (members.size() > 1) {
        int channels = 0;
        for (const auto& reader : file->m_readers) {
            const LXStreamDescription& d = reader->description();
            if (d.rate != file->m_desc.rate)
                return LXError(LXErrDamaged,
                               QStringLiteral("the files of the set have different sample rates"), path);
            file->m_desc.frames = std::max(file->m_desc.frames, d.frames);
            channels += d.channels;
            if (!file->m_warning) file->m_warning = reader->warning();
        }
        file->m_desc.channels = channels;
    }
    return file;
}

QString LXAudioFile::pathForChannel(int channel) const {
    if (isInterleaved()) return m_paths.first();
    return m_paths.value(channel);
}

QString LXAudioFile::displayName() const {
    if (isInterleaved()) return QFileInfo(path()).fileName();
    return QFileInfo(LXAudioFilename(path()).pathForChannel(0)).completeBaseName();
}

LXAudioFilename LXAudioFile::filename() const {
    LXAudioFilename name(path());
    name.setNumberOfFiles(int(m_paths.size()));
    if (!isInterleaved()) name.setScheme(LXAudioFilename::SplitChannels);
    return name;
}

QString LXAudioFile::formatExtension() const {
    const QString own = QFileInfo(path()).suffix();
    if (!own.isEmpty() && LXFormat::fromExtension(own) == format())
        return own; // keep "aiff" or "wave" when the file has it
    return LXFormat::extension(format());
}

LXChannelSet LXAudioFile::channelSet() const {
    LXChannelSet set;
    for (int c = 0; c < m_desc.channels; ++c)
        set.append(c);
    return set;
}

template <typename T> LXResult<int64_t> LXAudioFile::readInto(int64_t start, int64_t count, T* out) {
    const int channels = m_desc.channels;
    if (start < 0 || count < 0)
        return LXError(LXErrInvalidParameter, QStringLiteral("invalid read position %1").arg(start), path());
    int64_t inside = std::max<int64_t>(0, std::min(count, m_desc.frames - start));
    // A reader that gives fewer frames than asked found the end of the stream before the length its
    // header gave; from then on the file is as long as its audio.
    const auto shortenTo = [&](int64_t got) {
        if (got >= inside) return;
        inside = got;
        m_desc.frames = start + got;
    };
    if (m_readers.size() == 1) {
        if (inside > 0) {
            auto got = m_readers.front()->read(start, inside, out);
            if (!got) return got.error();
            shortenTo(*got);
        }
    } else {
        // A split set: read each member's channels and interleave them.
        std::vector<T> member;
        int channel = 0;
        for (const auto& reader : m_readers) {
            const int memberChannels = reader->description().channels;
            member.assign(size_t(inside * memberChannels), T(0));
            if (inside > 0) {
                auto got = reader->read(start, inside, member.data());
                if (!got) return got.error();
                shortenTo(*got);
            }
            for (int64_t f = 0; f < inside; ++f)
                for (int c = 0; c < memberChannels; ++c)
                    out[f * channels + channel + c] = member[size_t(f * memberChannels + c)];
            channel += memberChannels;
        }
    }
    std::fill(out + inside * channels, out + count * channels, T(0));
    return inside;
}

LXResult<int64_t> LXAudioFile::readFrames(int64_t start, int64_t count, float* interleaved) {
    return readInto(start, count, interleaved);
}

LXResult<int64_t> LXAudioFile::readFrames(int64_t start, int64_t count, double* interleaved) {
    return readInto(start, count, interleaved);
}

float LXAudioFile::readSample(int64_t frame, int channel) {
    if (frame < 0 || frame >= m_desc.frames || channel < 0 || channel >= m_desc.channels) return 0.0f;
    if (frame < m_cacheStart || frame >= m_cacheStart + m_cacheFrames) {
        m_cache.resize(size_t(kSampleCacheFrames * m_desc.channels));
        const int64_t start = frame - frame % kSampleCacheFrames;
        auto got = readFrames(start, kSampleCacheFrames, m_cache.data());
        if (!got) {
            m_cacheStart = -1;
            return 0.0f;
        }
        m_cacheStart = start;
        m_cacheFrames = kSampleCacheFrames;
    }
    return m_cache[size_t((frame - m_cacheStart) * m_desc.channels + channel)];
}

QVariantMap LXAudioFile::fileEntry() const {
    QVariantMap info = m_annotations.metadata.values();
    // An acid chunk's beats are what the entry shows as bars and beats.
    if (!info.contains(QStringLiteral("barsBeats")) && info.contains(QStringLiteral("beats")))
        info.insert(QStringLiteral("barsBeats"), info.value(QStringLiteral("beats")));
    info.insert(QStringLiteral("format"), qint64(m_desc.format));
    info.insert(QStringLiteral("rate"), qint64(std::llround(m_desc.rate)));
    info.insert(QStringLiteral("channels"), m_desc.channels);
    info.insert(QStringLiteral("samples"), qint64(m_desc.frames));
    info.insert(QStringLiteral("length"), length());
    info.insert(QStringLiteral("range"), depth());
    if (isFloat()) info.insert(QStringLiteral("float"), true);
    qint64 size = 0;
    for (const QString& p : m_paths)
        size += std::max<int64_t>(0, LXFile::sizeOfFileAtPath(p));
    info.insert(QStringLiteral("fileSize"), size);
    if (const uint32_t creator = LXFile::creatorCodeAtPath(path()))
        info.insert(QStringLiteral("creator"), qint64(creator));
    const QVariantMap analysis = LXWaveformCache::shared().analysisForPath(path());
    for (auto it = analysis.cbegin(); it != analysis.cend(); ++it)
        info.insert(it.key(), it.value());
    return info;
}

void LXAudioFile::adoptPaths(const QStringList& paths) {
    m_paths = paths;
    m_cacheStart = -1;
}
