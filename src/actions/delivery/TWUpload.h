#pragma once

// Sending files to a server through libcurl: FTP uploads and WebDAV PUTs share the streaming, the
// progress, the stop, the timeouts and the words of their errors.

#include "engine/TWHandOnAction.h"

#include "lx/LXResult.h"

#include <QString>
#include <QStringList>

#include <memory>

class TWFileEntry;

// Where a run's files go and as whom. URLs never hold the account: the user name and password go to
// libcurl on their own, so neither can reach a message, a log or a report through a URL.
struct TWUploadTarget {
    QString root;             // "ftp://host:21/" or "https://host/dav/": what is there already
    QStringList folders;      // the folders below the root, each percent-escaped
    bool makeFolders = false; // made one level at a time before the first file (WebDAV); FTP makes its own
    QString user, password;   // empty: not sent

    QString folderUrl() const; // root + folders, ending in "/"
};

// One connection to a server, kept across the files of a run so they go over one session.
class TWUploader {
public:
    explicit TWUploader(TWUploadTarget target);
    ~TWUploader();
    TWUploader(const TWUploader&) = delete;
    TWUploader& operator=(const TWUploader&) = delete;

    // Sends the file at path (of the entry) into the target folder under its own name: ftp:// stores it
    // (making missing folders), http(s):// PUTs it. The file is read in 16 KB blocks, never written; the
    // entry shows the share sent, and its stop code ends the transfer (a stopped or cancelled error).
    LXStatus put(TWFileEntry& entry, const QString& path);

    // "host:port", as errors name the server.
    static QString serverOf(const QString& url);

private:
    // Makes the target's folders that are missing, level by level (WebDAV MKCOL), for the file at path.
    LXStatus makeFolders(const QString& path);
    // Why the file at path could not be sent (during a step, when given): a libcurl code or an HTTP status.
    LXError failure(const QString& path, int code, long status, const QString& step = {}) const;
    void prepare(const QString& url);

    TWUploadTarget m_target;
    void* m_curl = nullptr; // CURL*
    char m_errorText[256] = {};
};

// Text percent-escaped in UTF-8 as one segment of a URL's path: "a b#1.wav" gives "a%20b%231.wav".
QString TWEscapedSegment(const QString& text);
// The segments of a folder path, each escaped, once one leading and one trailing "/" are gone:
// "/a b/c/" and "a b/c" give "a%20b", "c"; "" and "/" give none.
QStringList TWEscapedFolders(const QString& path);

// The actions that send each file to a server: one uploader for the run, one file at a time. The
// files are only read.
class TWUploadAction : public TWHandOnAction {
public:
    bool onlyInPlace() const override { return true; }

protected:
    // The server, folder and account of these instructions, or why there is none.
    virtual LXResult<TWUploadTarget> target(const QVariantMap& instructions) const = 0;

    TWOutcome preProcessWithEntries(const QList<TWFileEntryPtr>& entries,
                                    const QVariantMap& instructions) override;
    TWOutcome handOnEntry(const TWFileEntryPtr& entry, const QVariantMap& instructions) override;
    void postProcess() override { m_uploader.reset(); }

private:
    std::unique_ptr<TWUploader> m_uploader;
};
