#include "lx/LXError.h"

#include <QFileInfo>
#include <cerrno>
#include <cstring>

LXError::LXError(int32_t code, QString message, QString path, qint64 offset)
    : LXError(Domain::Audio, code, std::move(message), std::move(path), offset) {}

LXError::LXError(Domain domain, int32_t code, QString message, QString path, qint64 offset, int errnum)
    : m_domain(domain), m_code(code), m_message(std::move(message)), m_path(std::move(path)),
      m_offset(offset), m_errnum(errnum) {}

QString LXError::description() const {
    QString text;
    if (!m_path.isEmpty()) text = QStringLiteral("'%1': ").arg(QFileInfo(m_path).fileName());
    text += m_message;
    if (m_offset >= 0) text += QStringLiteral(" (at byte %1)").arg(m_offset);
    return text;
}

LXFileError::LXFileError(QString message, QString path, int errnum)
    : LXError(Domain::File, LXErrFileSystem, std::move(message), std::move(path), -1, errnum) {}

LXFileError LXFileError::fromErrno(const QString& what, const QString& path) {
    const int errnum = errno;
    return LXFileError(QStringLiteral("%1: %2").arg(what, QString::fromLocal8Bit(std::strerror(errnum))),
                       path, errnum);
}

LXProgressError::LXProgressError(int32_t code, QString message)
    : LXError(Domain::Progress, code, std::move(message), {}, -1) {}

LXProgressError LXProgressError::errorWithCode(int32_t code, const QString& action) {
    QString why;
    switch (code) {
    case LXStopped:
        why = QStringLiteral("stopped");
        break;
    case LXCancelled:
        why = QStringLiteral("cancelled");
        break;
    case LXUserStopped:
        why = QStringLiteral("stopped by the user");
        break;
    default:
        why = QStringLiteral("ended with code %1").arg(code);
        break;
    }
    return LXProgressError(code, QStringLiteral("%1 %2").arg(action, why));
}
