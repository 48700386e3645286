#include "actions/delivery/TWUpload.h"

#include "model/TWFileEntry.h"

#include <QFile>
#include <QFileInfo>
#include <QUrl>

#include <curl/curl.h>

#include <algorithm>
#include <mutex>

namespace {

constexpr qint64 kBlock = 16384;

// A server that stops answering fails the file instead of holding the run forever: no connection within
// 20 s, or less than a byte a second for a minute.
constexpr long kConnectSeconds = 20;
constexpr long kStalledSeconds = 60;

struct Transfer {
    QFile& file;
    TWFileEntry& entry;
    qint64 size = 0;
    int32_t stopCode = LXContinue;
    bool readFailed = false;
};

size_t readBlock(char* buffer, size_t size, size_t count, void* data) {
    auto& transfer = *static_cast<Transfer*>(data);
    const qint64 read = transfer.file.read(buffer, std::min(qint64(size * count), kBlock));
    if (read < 0) {
        transfer.readFailed = true;
        return CURL_READFUNC_ABORT;
    }
    return size_t(read);
}

int showProgress(void* data, curl_off_t, curl_off_t, curl_off_t, curl_off_t sent) {
    auto& transfer = *static_cast<Transfer*>(data);
    const float fraction = transfer.size > 0 ? float(double(sent) / double(transfer.size)) : 1.0f;
    transfer.stopCode = transfer.entry.update(fraction);
    return transfer.stopCode == LXContinue ? 0 : 1;
}

size_t discard(char*, size_t size, size_t count, void*) {
    return size * count;
}

bool isHttp(const QString& url) {
    return url.startsWith(QStringLiteral("http"), Qt::CaseInsensitive);
}

// What an HTTP status means to someone sending files.
QString httpReason(long status) {
    switch (status) {
    case 401:
        return QStringLiteral("the server refused the user name or password (HTTP 401)");
    case 403:
        return QStringLiteral("the server refused it (HTTP 403)");
    case 404:
    case 409:
        return QStringLiteral("the server has no such folder (HTTP %1)").arg(status);
    case 507:
        return QStringLiteral("the server is full (HTTP 507)");
    default:
        return QStringLiteral("the server answered HTTP %1").arg(status);
    }
}

} // namespace

QString TWUploadTarget::folderUrl() const {
    return folders.isEmpty() ? root : root + folders.join(u'/') + u'/';
}

QString TWEscapedSegment(const QString& text) {
    return QString::fromLatin1(QUrl::toPercentEncoding(text));
}

QStringList TWEscapedFolders(const QString& path) {
    QString folder = path;
    if (folder.startsWith(u'/')) folder.remove(0, 1);
    if (folder.endsWith(u'/')) folder.chop(1);
    if (folder.isEmpty()) return {};
    QStringList escaped;
    for (const QString& segment : folder.split(u'/'))
        escaped.append(TWEscapedSegment(segment));
    return escaped;
}

TWUploader::TWUploader(TWUploadTarget target) : m_target(std::move(target)) {
    static std::once_flag initialised;
    std::call_once(initialised, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
    m_curl = curl_easy_init();
}

TWUploader::~TWUploader() {
    curl_easy_cleanup(static_cast<CURL*>(m_curl));
}

QString TWUploader::serverOf(const QString& url) {
    const QUrl parsed(url);
    const QString scheme = parsed.scheme().toLower();
    const int port = parsed.port(scheme == u"ftp" ? 21 : scheme == u"https" ? 443 : 80);
    return QStringLiteral("%1:%2").arg(parsed.host()).arg(port);
}

void TWUploader::prepare(const QString& url) {
    CURL* curl = static_cast<CURL*>(m_curl);
    curl_easy_reset(curl); // keeps the open connection for the next file
    m_errorText[0] = 0;
    curl_easy_setopt(curl, CURLOPT_URL, url.toUtf8().constData());
    if (!m_target.user.isEmpty())
        curl_easy_setopt(curl, CURLOPT_USERNAME, m_target.user.toUtf8().constData());
    if (!m_target.password.isEmpty())
        curl_easy_setopt(curl, CURLOPT_PASSWORD, m_target.password.toUtf8().constData());
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, m_errorText);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L); // the work thread: no alarm signals
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, kConnectSeconds);
    curl_easy_setopt(curl, CURLOPT_SERVER_RESPONSE_TIMEOUT, kStalledSeconds);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, kStalledSeconds);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, discard); // what servers answer is not ours to print
}

LXError TWUploader::failure(const QString& path, int code, long status, const QString& step) const {
    QString why;
    if (code == CURLE_LOGIN_DENIED)
        why = QStringLiteral("the server refused the user name or password");
    else if (code != CURLE_OK)
        why = m_errorText[0] ? QString::fromUtf8(m_errorText)
                             : QString::fromUtf8(curl_easy_strerror(CURLcode(code)));
    else
        why = httpReason(status);
    // A server's own words may quote what it was sent.
    if (!m_target.password.isEmpty()) why.replace(m_target.password, QStringLiteral("********"));
    return LXError(LXInvalidParameter,
                   QStringLiteral("could not be sent to %1: %2%3").arg(serverOf(m_target.root), step, why),
                   path);
}

LXStatus TWUploader::makeFolders(const QString& path) {
    CURL* curl = static_cast<CURL*>(m_curl);
    for (qsizetype level = 1; level <= m_target.folders.size(); ++level) {
        const QString folder = m_target.folders.first(level).join(u'/') + u'/';
        prepare(m_target.root + folder);
        curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, "MKCOL");
        const CURLcode code = curl_easy_perform(curl);
        long status = 0;
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
        // 405: the folder is there already.
        if (code != CURLE_OK || ((status < 200 || status >= 300) && status != 405))
            return failure(path, code, status,
                           QStringLiteral("the folder '/%1' could not be made: ")
                               .arg(QUrl::fromPercentEncoding(folder.toLatin1())));
    }
    m_target.makeFolders = false;
    return {};
}

LXStatus TWUploader::put(TWFileEntry& entry, const QString& path) {
    if (m_target.makeFolders) LX_TRY(makeFolders(path));
    if (const int32_t code = entry.update(0); code != LXContinue)
        return LXProgressError::errorWithCode(code, QStringLiteral("Sending"));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return LXError(LXErrReadFailed, QStringLiteral("cannot be read: %1").arg(file.errorString()), path);
    Transfer transfer{file, entry, file.size()};

    const QString url = m_target.folderUrl() + TWEscapedSegment(QFileInfo(path).fileName());
    prepare(url);
    CURL* curl = static_cast<CURL*>(m_curl);
    curl_easy_setopt(curl, CURLOPT_UPLOAD, 1L);
    curl_easy_setopt(curl, CURLOPT_UPLOAD_BUFFERSIZE, long(kBlock));
    curl_easy_setopt(curl, CURLOPT_READFUNCTION, readBlock);
    curl_easy_setopt(curl, CURLOPT_READDATA, &transfer);
    curl_easy_setopt(curl, CURLOPT_INFILESIZE_LARGE, curl_off_t(transfer.size));
    curl_easy_setopt(curl, CURLOPT_FTP_CREATE_MISSING_DIRS, long(CURLFTP_CREATE_DIR_RETRY));
    curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, showProgress);
    curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &transfer);
    const CURLcode code = curl_easy_perform(curl);
    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);

    if (transfer.stopCode != LXContinue)
        return LXProgressError::errorWithCode(transfer.stopCode, QStringLiteral("Sending"));
    if (transfer.readFailed)
        return LXError(LXErrReadFailed, QStringLiteral("cannot be read: %1").arg(file.errorString()), path);
    if (code != CURLE_OK || (isHttp(url) && (status < 200 || status >= 300)))
        return failure(path, code, status);
    return {};
}

TWOutcome TWUploadAction::preProcessWithEntries(const QList<TWFileEntryPtr>&,
                                                const QVariantMap& instructions) {
    LXResult<TWUploadTarget> where = target(instructions);
    if (!where) return where.error();
    m_uploader = std::make_unique<TWUploader>(std::move(*where));
    return TWOutcome::success();
}

TWOutcome TWUploadAction::handOnEntry(const TWFileEntryPtr& entry, const QVariantMap&) {
    for (const QString& path : filesOf(*entry))
        LX_TRY(m_uploader->put(*entry, path));
    return TWOutcome::success();
}
