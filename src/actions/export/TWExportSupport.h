#pragma once

// What the encoders share: the text fields as Vorbis comments, and the output stream.


#include "lx/LXAudioFile.h"
#include "lx/LXResult.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <cstdio>
#include <memory>
#include <utility>

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
