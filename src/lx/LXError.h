#pragma once

#include "lx/LXResultCode.h"

#include <QString>
#include <cstdint>

// What went wrong, where and why, in words a user can act on. Errors are values: the subclasses only
// set the domain, so copying an LXFileError into an LXError loses nothing.
class LXError {
public:
    enum class Domain { Audio, File, Progress };

    LXError(int32_t code, QString message, QString path = {}, qint64 offset = -1);

    int32_t code() const { return m_code; }
    Domain domain() const { return m_domain; }
    bool isFileError() const { return m_domain == Domain::File; }
    const QString& message() const { return m_message; }
    const QString& path() const { return m_path; }
    qint64 offset() const { return m_offset; } // byte offset in a damaged file, or -1
    int errnum() const { return m_errnum; }    // the system's errno behind a file-system failure, or 0

    // One readable line: "'kick.wav': the 'cue ' chunk is damaged (at byte 1234)".
    QString description() const;

protected:
    LXError(Domain domain, int32_t code, QString message, QString path, qint64 offset, int errnum = 0);

private:
    Domain m_domain = Domain::Audio;
    int32_t m_code = 0;
    QString m_message;
    QString m_path;
    qint64 m_offset = -1;
    int m_errnum = 0;
};

// A failure of the file system (missing file, no permission, full disk): code LXErrFileSystem, with the
// system's errno.
class LXFileError : public LXError {
public:
    LXFileError(QString message, QString path, int errnum);
    static LXFileError fromErrno(const QString& what, const QString& path); // uses the current errno
};

// An operation ended by its progress delegate (stop, cancel) with the delegate's code.
class LXProgressError : public LXError {
public:
    static LXProgressError errorWithCode(int32_t code, const QString& action);

private:
    LXProgressError(int32_t code, QString message);
};
