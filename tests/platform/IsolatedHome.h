#pragma once

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <list>

// Sets an environment variable (or unsets it, for a null value) for the life of the object.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const QByteArray& value)
        : m_name(name), m_saved(qgetenv(name)), m_wasSet(qEnvironmentVariableIsSet(name)) {
        value.isNull() ? qunsetenv(name) : qputenv(name, value);
    }
    ~ScopedEnvironment() { m_wasSet ? qputenv(m_name, m_saved) : qunsetenv(m_name); }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    const char* m_name;
    QByteArray m_saved;
    bool m_wasSet;
};

// Points HOME and the XDG folders at a fresh temporary directory for the life of the object, so that no
// test reads or writes the real user's preferences, trash or caches. QStandardPaths reads these each time.
class IsolatedHome {
public:
    IsolatedHome() {
        m_environment.emplace_back("HOME", QFile::encodeName(m_dir.path()));
        m_environment.emplace_back("XDG_CONFIG_HOME", QFile::encodeName(path(QStringLiteral(".config"))));
        m_environment.emplace_back("XDG_DATA_HOME", QFile::encodeName(path(QStringLiteral(".local/share"))));
        m_environment.emplace_back("XDG_CACHE_HOME", QFile::encodeName(path(QStringLiteral(".cache"))));
    }
    QString path(const QString& relative) const { return m_dir.filePath(relative); }

private:
    QTemporaryDir m_dir;
    std::list<ScopedEnvironment> m_environment;
};

inline void writeFile(const QString& path, const QByteArray& data, QFile::Permissions permissions = {}) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
    file.write(data);
    file.close();
    if (permissions) file.setPermissions(permissions);
}

inline QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
