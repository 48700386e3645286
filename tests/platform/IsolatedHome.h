#pragma once

#include <QByteArray>
#include <QFile>
#include <QTemporaryDir>

#include <vector>

// Points HOME and the XDG folders at a fresh temporary directory for the life of the object, so that no
// test reads or writes the real user's preferences, trash or caches. QStandardPaths reads these each time.
class IsolatedHome {
public:
    IsolatedHome() {
        for (const char* name : kNames)
            m_saved.push_back({name, qgetenv(name), qEnvironmentVariableIsSet(name)});
        qputenv("HOME", QFile::encodeName(m_dir.path()));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(path(QStringLiteral(".config"))));
        qputenv("XDG_DATA_HOME", QFile::encodeName(path(QStringLiteral(".local/share"))));
        qputenv("XDG_CACHE_HOME", QFile::encodeName(path(QStringLiteral(".cache"))));
    }
    ~IsolatedHome() {
        for (const Saved& saved : m_saved) {
            if (saved.wasSet)
                qputenv(saved.name, saved.value);
            else
                qunsetenv(saved.name);
        }
    }
    IsolatedHome(const IsolatedHome&) = delete;
    IsolatedHome& operator=(const IsolatedHome&) = delete;

    QString path(const QString& relative) const { return m_dir.filePath(relative); }

private:
    static constexpr const char* kNames[] = {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME"};
    struct Saved {
        const char* name;
        QByteArray value;
        bool wasSet;
    };
    QTemporaryDir m_dir;
    std::vector<Saved> m_saved;
};
