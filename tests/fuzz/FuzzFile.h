#pragma once

#include <QDir>
#include <QFile>
#include <QString>

#include <unistd.h>

// The targets that read from a path write each input to a file of their own in a private folder,
// under the name the input should be read as.
inline QString fuzzFolder() {
    static const QString folder = [] {
        const QString path =
            QDir::temp().filePath(QStringLiteral("clipwright-fuzz-%1").arg(qint64(::getpid())));
        QDir().mkpath(path);
        return path;
    }();
    return folder;
}

inline QString writeFuzzFile(const QString& name, const uint8_t* data, size_t size) {
    const QString path = fuzzFolder() + u'/' + name;
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(reinterpret_cast<const char*>(data), qint64(size));
    return path;
}
