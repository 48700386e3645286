#include "platform/TWEntriesStore.h"

#include "platform/TWPropertyList.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {

// The tree a property-list file holds, or why it holds none.
LXResult<QVariantMap> readRoot(const QString& path) {
    const LXResult<QVariant> read = TWPropertyList::readFile(path);
    if (!read) return read.error();
    if (read->typeId() != QMetaType::QVariantMap)
        return LXError(LXErrDamaged, QStringLiteral("the file list's top level is not a dictionary"), path);
    return read->toMap();
}

} // namespace

TWEntriesStore::TWEntriesStore(const QString& path) : m_path(path) {}

QString TWEntriesStore::pathBeside(const QString& preferencesPath) {
    return QFileInfo(preferencesPath).dir().filePath(QStringLiteral("Entries.plist"));
}

std::optional<TWEntriesStore::Stamp> TWEntriesStore::stampOnDisk() const {
    const QFileInfo info(m_path);
    if (!info.exists()) return std::nullopt;
    return Stamp{info.size(), info.lastModified()};
}

LXResult<QVariantMap> TWEntriesStore::load() {
    m_seen = stampOnDisk();
    m_seenDamaged = false;
    if (!m_seen) return QVariantMap();
    LXResult<QVariantMap> root = readRoot(m_path);
    if (!root) {
        m_seenDamaged = true;
        return LXError(
            root.error().code(),
            QStringLiteral("The file list '%1' cannot be read (%2); it is kept, and the list starts "
                           "empty.")
                .arg(m_path, root.error().message()));
    }
    return root;
}

LXStatus TWEntriesStore::save(const QVariantMap& root) {
    if (const std::optional<Stamp> onDisk = stampOnDisk()) {
        // Read again only when the file is not the one this object last saw.
        const bool damaged = onDisk == m_seen ? m_seenDamaged : !readRoot(m_path);
        if (damaged) LX_TRY(keepAside(QStringLiteral("damaged")));
    }
    return write(root);
}

LXStatus TWEntriesStore::adopt(const QVariantMap& root) {
    if (stampOnDisk()) {
        const LXResult<QVariantMap> present = readRoot(m_path);
        if (present && *present == root) return {}; // an earlier move that was cut short
        LX_TRY(keepAside(present ? QStringLiteral("replaced") : QStringLiteral("damaged")));
    }
    return write(root);
}

LXStatus TWEntriesStore::keepAside(const QString& kind) {
    const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    QString aside = QStringLiteral("%1.%2-%3").arg(m_path, kind, stamp);
    for (int number = 2; QFileInfo::exists(aside); ++number)
        aside = QStringLiteral("%1.%2-%3-%4").arg(m_path, kind, stamp).arg(number);
    QFile file(m_path);
    if (!file.rename(aside))
        return LXError(
            LXErrWriteFailed,
            QStringLiteral("the file list cannot be kept aside as '%1' (%2), so it is not replaced")
                .arg(aside, file.errorString()),
            m_path);
    qWarning("The file list '%s' was kept as '%s'.", qPrintable(m_path), qPrintable(aside));
    return {};
}

LXStatus TWEntriesStore::write(const QVariantMap& root) {
    const QString folder = QFileInfo(m_path).absolutePath();
    if (!QDir().mkpath(folder))
        return LXError(LXErrWriteFailed, QStringLiteral("the folder '%1' cannot be created").arg(folder),
                       m_path);
    LX_TRY(TWPropertyList::writeFile(m_path, root));
    m_seen = stampOnDisk();
    m_seenDamaged = false;
    return {};
}
