// File-level operations of LXAudioFile: copies, moves, trash, deletion, header repair and analysis.
// Every move and deletion is told to the waveform cache so cached overviews follow their files.

#include "lx/LXAudioFile.h"
#include "lx/LXFile.h"
#include "lx/LXFileDescriptor.h"
#include "lx/LXPcmContainer.h"
#include "lx/LXWaveformCache.h"

#include <QFile>
#include <QFileInfo>
#include <cmath>
#include <fcntl.h>
#include <sys/stat.h>

namespace {

// The paths the set's files get when its lead file is given the path `lead`.
QStringList pathsForLead(const LXAudioFile& file, const QString& lead) {
    if (file.isInterleaved()) return {lead};
    LXAudioFilename name(lead);
    name.setScheme(LXAudioFilename::SplitChannels);
    name.setNumberOfFiles(int(file.paths().size()));
    return name.paths();
}

} // namespace

QStringList LXAudioFile::duplicatePaths(const QString& proposedPath) const {
    LXAudioFilename name(LXFile::conformPath(proposedPath));
    if (!isInterleaved()) {
        name.setScheme(LXAudioFilename::SplitChannels);
        name.setNumberOfFiles(int(m_paths.size()));
    }
    auto anyExists = [&] {
        for (const QString& p : name.paths())
            if (LXFile::existsAtPath(p)) return true;
        return false;
    };
    for (int number = 1; anyExists(); ++number)
        name.setNumber(number);
    return name.paths();
}

LXResult<QString> LXAudioFile::duplicateToPath(const QString& proposedPath) {
    const QStringList targets = duplicatePaths(proposedPath);
    for (int i = 0; i < m_paths.size(); ++i) {
        if (auto copied = LXFile::copyPath(m_paths.at(i), targets.at(i)); !copied) {
            for (int j = 0; j < i; ++j)
                (void)LXFile::deleteFileAtPath(targets.at(j));
            return copied.error();
        }
    }
    return targets.first();
}

LXStatus LXAudioFile::moveToPath(const QString& path) {
    const QStringList targets = pathsForLead(*this, LXFile::conformPath(path));
    for (int i = 0; i < m_paths.size(); ++i) {
        LX_TRY(LXFile::movePath(m_paths.at(i), targets.at(i)));
        LXWaveformCache::shared().moveEntry(m_paths.at(i), targets.at(i));
    }
    adoptPaths(targets);
    return {};
}

LXStatus LXAudioFile::renameToPath(const QString& path) {
    const QStringList targets = pathsForLead(*this, LXFile::conformPath(path));
    for (int i = 0; i < m_paths.size(); ++i) {
        if (LXStatus renamed = LXFile::renameWithoutReplacing(m_paths.at(i), targets.at(i)); !renamed) {
            for (int j = i - 1; j >= 0; --j)
                (void)LXFile::renameWithoutReplacing(targets.at(j), m_paths.at(j));
            return renamed;
        }
    }
    for (int i = 0; i < m_paths.size(); ++i)
        LXWaveformCache::shared().moveEntry(m_paths.at(i), targets.at(i));
    adoptPaths(targets);
    return {};
}

// A set copied in part is no copy: the members copied already are removed.
LXStatus LXAudioFile::copyToPath(const QString& path) {
    const QStringList targets = pathsForLead(*this, LXFile::conformPath(path));
    for (int i = 0; i < m_paths.size(); ++i) {
        if (LXStatus copied = LXFile::copyPath(m_paths.at(i), targets.at(i)); !copied) {
            for (int j = 0; j < i; ++j)
                (void)LXFile::deleteFileAtPath(targets.at(j));
            return copied;
        }
    }
    adoptPaths(targets);
    return {};
}

LXStatus LXAudioFile::moveToTrash() {
    for (const QString& p : m_paths) {
        LX_TRY(LXFile::moveToTrash(p));
        LXWaveformCache::shared().removeEntryAtPath(p);
    }
    return {};
}

LXStatus LXAudioFile::deleteFiles() {
    for (const QString& p : m_paths) {
        if (!LXFile::existsAtPath(p)) continue;
        LX_TRY(LXFile::deleteFileAtPath(p));
        LXWaveformCache::shared().removeEntryAtPath(p);
    }
    return {};
}

LXStatus LXAudioFile::repairAtPath(const QString& path) {
    LXFileDescriptor fd(::open(QFile::encodeName(path).constData(), O_RDWR | O_CLOEXEC));
    if (!fd.isOpen()) return LXFileError::fromErrno(QStringLiteral("cannot open the file for repair"), path);
    struct stat st {};
    if (::fstat(fd.get(), &st) != 0)
        return LXFileError::fromErrno(QStringLiteral("cannot read the file's attributes"), path);
    const int raw = fd.get();
    auto parsed =
        LXParsePcmContainer([raw](int64_t offset, void* buffer,
                                  int64_t count) { return LXReadFully(raw, buffer, count, offset); },
                            st.st_size, path);
    if (!parsed)
        return LXError(parsed.error().code(),
                       QStringLiteral("cannot be repaired: %1").arg(parsed.error().message()), path,
                       parsed.error().offset());
    const LXPcmLayout& layout = *parsed;
    if (!layout.warning) return {}; // nothing wrong

    int64_t fileSize = st.st_size;
    const int64_t audioEnd = layout.dataOffset + layout.dataBytes;
    const bool audioRunsToEnd = audioEnd + layout.blockAlign > fileSize;
    if (audioRunsToEnd && fileSize > audioEnd) {
        // A frame cut off by the crash is not audio; drop its bytes so the sizes add up.
        if (::ftruncate(raw, audioEnd) != 0)
            return LXFileError::fromErrno(QStringLiteral("cannot repair the file"), path);
        fileSize = audioEnd;
    }
    auto put32 = [&](int64_t offset, uint32_t v, bool big) {
        uint8_t b[4];
        for (int i = 0; i < 4; ++i)
            b[i] = uint8_t(v >> (big ? 24 - 8 * i : 8 * i));
        return LXWriteFully(raw, b, 4, offset);
    };
    bool ok = true;
    if (layout.container == LXContainer::Aiff || layout.container == LXContainer::Aifc) {
        if (fileSize - 8 > 0xFFFFFFFFLL)
            return LXError(LXErrUnsupported,
                           QStringLiteral("cannot be repaired: larger than an AIFF file can be"), path);
        const int64_t ssndPayload = layout.dataChunkOffset + 8;
        ok = put32(4, uint32_t(fileSize - 8), true) &&
             put32(layout.commChunkOffset + 10, uint32_t(layout.desc.frames), true) &&
             put32(layout.dataChunkOffset + 4, uint32_t(audioEnd - ssndPayload), true);
    } else if (layout.container == LXContainer::Rf64) {
        // ds64 holds the real sizes: RIFF size, data size, frame count.
        uint8_t sizes[24];
        const uint64_t values[3] = {uint64_t(fileSize - 8), uint64_t(layout.dataBytes),
                                    uint64_t(layout.desc.frames)};
        for (int v = 0; v < 3; ++v)
            for (int i = 0; i < 8; ++i)
                sizes[v * 8 + i] = uint8_t(values[v] >> (8 * i));
        ok = LXWriteFully(raw, sizes, 24, 20);
    } else {
        if (fileSize - 8 > 0xFFFFFFFFLL)
            return LXError(LXErrUnsupported,
                           QStringLiteral("cannot be repaired: larger than a WAV file can be"), path);
        const bool big = layout.container == LXContainer::Rifx;
        ok = put32(4, uint32_t(fileSize - 8), big) &&
             put32(layout.dataChunkOffset + 4, uint32_t(layout.dataBytes), big);
    }
    if (!ok || ::fsync(raw) != 0)
        return LXFileError::fromErrno(QStringLiteral("cannot repair the file"), path);
    return {};
}

bool LXAudioFile::hasWaveformsOfType(int type) const {
    return type == 0 && LXWaveformCache::shared().hasEntryForPath(path());
}
