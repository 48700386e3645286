#include "TWExportSupport.h"

#include <QFile>

QList<std::pair<QByteArray, QByteArray>> TWVorbisComments(const LXMetadata& metadata) {
    QList<std::pair<QByteArray, QByteArray>> comments;
    for (const QString& key : LXMetadata::keysForCategoryMask(LXMetadataVorbisComment))
        if (metadata.contains(key))
            comments.append(
                {LXMetadata::oggVorbisFormatKeyForKey(key).toUtf8(), metadata.string(key).toUtf8()});
    return comments;
}

LXResult<TWExportStream> TWExportStream::open(const QString& path) {
    std::unique_ptr<FILE, Closer> stream(std::fopen(QFile::encodeName(path).constData(), "w+b"));
    if (!stream) return LXFileError::fromErrno(QStringLiteral("cannot create the exported file"), path);
    return TWExportStream(std::move(stream), path);
}

LXStatus TWExportStream::write(const void* data, size_t size) {
    if (size > 0 && std::fwrite(data, 1, size, m_stream.get()) != size)
        return LXFileError::fromErrno(QStringLiteral("cannot write the exported file"), m_path);
    return {};
}

LXStatus TWExportStream::close() {
    FILE* stream = m_stream.release();
    const bool failed = std::ferror(stream) != 0;
    if (std::fclose(stream) != 0 || failed)
        return LXFileError::fromErrno(QStringLiteral("cannot write the exported file"), m_path);
    return {};
}
