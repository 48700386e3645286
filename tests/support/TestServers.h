#pragma once

#include <QProcess>
#include <QString>

// A real server on this machine for the tests that send files, serving a folder on a free port of
// 127.0.0.1 with one account, from the constructor (which returns once it listens) until the object
// goes. FTP is pyftpdlib (Debian's, through /usr/bin/python3), optionally reading uploads at
// most bytesPerSecond; WebDAV is rclone.
class TestServer {
public:
    enum class Kind { Ftp, WebDAV };
    TestServer(Kind kind, const QString& root, const QString& user, const QString& password,
               int bytesPerSecond = 0);
    ~TestServer();
    TestServer(const TestServer&) = delete;
    TestServer& operator=(const TestServer&) = delete;

    Kind kind() const { return m_kind; }
    bool isRunning() const { return !m_address.isEmpty(); }
    QString address() const { return m_address; } // "127.0.0.1:PORT"
    // The server goes away at once, as a crashed one does: its connections drop.
    void kill();

private:
    Kind m_kind;
    QProcess m_process;
    QString m_address;
};
