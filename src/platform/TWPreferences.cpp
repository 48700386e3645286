#include "platform/TWPreferences.h"

#include "platform/TWEntriesStore.h"
#include "platform/TWPropertyList.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileDevice>
#include <QFileInfo>
#include <QMutexLocker>
#include <QSaveFile>
#include <QSettings>
#include <QStandardPaths>

namespace {

const QString kEntriesKey = QStringLiteral("Entries");

bool readPropertyList(QIODevice& device, QSettings::SettingsMap& map) {
    const auto* file = qobject_cast<const QFileDevice*>(&device);
    const auto value = TWPropertyList::fromData(device.readAll(), file ? file->fileName() : QString());
    if (!value || value->typeId() != QMetaType::QVariantMap) return false;
    map = value->toMap();
    return true;
}

bool writePropertyList(QIODevice& device, const QSettings::SettingsMap& map) {
    const QByteArray xml = TWPropertyList::toXml(QVariantMap(map));
    return device.write(xml) == xml.size();
}

QSettings::Format propertyListFormat() {
    static const QSettings::Format format = QSettings::registerFormat(
        QStringLiteral("plist"), readPropertyList, writePropertyList, Qt::CaseSensitive);
    return format;
}

// QSettings says only that something failed; find the reason a user can act on.
QString writeFailureReason(const QString& path) {
    const QFileInfo info(path);
    if (!QFileInfo(info.absolutePath()).isDir())
        return QStringLiteral("the folder '%1' does not exist").arg(info.absolutePath());
    QSaveFile probe(path);
    if (!probe.open(QIODevice::WriteOnly)) return probe.errorString();
    probe.cancelWriting();
    return QStringLiteral("the file could not be written (is the disk full?)");
}

} // namespace

TWPreferences::TWPreferences() : TWPreferences(defaultPath()) {}

TWPreferences::TWPreferences(const QString& path) : m_path(path), m_defaults(standardDefaults()) {
    QMutexLocker lock(&m_mutex);
    load();
}

TWPreferences::~TWPreferences() {
    QMutexLocker lock(&m_mutex);
    if (!m_changed.isEmpty()) synchronizeLocked();
}

TWPreferences& TWPreferences::shared() {
    static TWPreferences preferences;
    return preferences;
}

QString TWPreferences::defaultPath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/Clipwright/Clipwright.plist");
}

QVariantMap TWPreferences::standardDefaults() {
    const QVariantMap waveformColor{{QStringLiteral("red"), 0.15},
                                    {QStringLiteral("green"), 0.15},
                                    {QStringLiteral("blue"), 0.5},
                                    {QStringLiteral("alpha"), 1.0}};
    return {
        {QStringLiteral("Undo Enabled"), true},
        // Megabytes of kept copies before the oldest undo steps are dropped (with a notice); 0 for no limit.
        {QStringLiteral("Undo Folder Limit"), qint64(10240)},
        {QStringLiteral("Auto Analyze"), true},
        {QStringLiteral("Disable Previews After Process"), true},
        {QStringLiteral("Remove All After Process"), false},
        {QStringLiteral("Retain Unrecognized Data"), true},
        {QStringLiteral("Double Click Action"), qint64(0)},
        {QStringLiteral("Auto Scroll To Zero"), false},
        {QStringLiteral("Open Document On Launch"), false},
        {QStringLiteral("Animate Split Views"), true},
        {QStringLiteral("Collections Open"), true},
        {QStringLiteral("Waveform Color"), waveformColor},
        {QStringLiteral("Playback Convertor Type"), qint64(0)},
        {QStringLiteral("Playback Convertor Quality"), 1.0},
        {QStringLiteral("Playback Latency Compensation"), true},
    };
}

void TWPreferences::registerDefaults(const QVariantMap& defaults) {
    QMutexLocker lock(&m_mutex);
    m_defaults.insert(defaults);
}

QVariant TWPreferences::value(const QString& key) const {
    QMutexLocker lock(&m_mutex);
    const auto it = m_values.constFind(key);
    return it != m_values.constEnd() ? *it : m_defaults.value(key);
}

bool TWPreferences::boolValue(const QString& key) const {
    return value(key).toBool();
}

qint64 TWPreferences::integerValue(const QString& key) const {
    const QVariant v = value(key);
    // A real or a numeric string counts, as it would for the user's hand-edited file.
    bool ok = false;
    const qint64 integer = v.toLongLong(&ok);
    return ok ? integer : qint64(v.toDouble());
}

double TWPreferences::doubleValue(const QString& key) const {
    return value(key).toDouble();
}

QString TWPreferences::stringValue(const QString& key) const {
    return value(key).toString();
}

bool TWPreferences::contains(const QString& key) const {
    QMutexLocker lock(&m_mutex);
    return m_values.contains(key);
}

void TWPreferences::setValue(const QString& key, const QVariant& value) {
    if (!value.isValid()) {
        removeValue(key);
        return;
    }
    if (key.isEmpty()) return;
    QMutexLocker lock(&m_mutex);
    m_values.insert(key, value);
    m_changed.insert(key);
}

void TWPreferences::removeValue(const QString& key) {
    QMutexLocker lock(&m_mutex);
    if (m_values.remove(key) > 0) m_changed.insert(key);
}

bool TWPreferences::synchronize() {
    QMutexLocker lock(&m_mutex);
    return synchronizeLocked();
}

QString TWPreferences::path() const {
    QMutexLocker lock(&m_mutex);
    return m_path;
}

void TWPreferences::setPath(const QString& path) {
    QMutexLocker lock(&m_mutex);
    m_path = path;
    load();
}

QString TWPreferences::lastError() const {
    QMutexLocker lock(&m_mutex);
    return m_lastError;
}

// Called with the lock held.
void TWPreferences::load() {
    m_values.clear();
    m_changed.clear();
    m_lastError.clear();
    m_damaged = false;

    QSettings settings(m_path, propertyListFormat());
    switch (settings.status()) {
    case QSettings::NoError:
        for (const QString& key : settings.allKeys())
            m_values.insert(key, settings.value(key));
        if (m_values.contains(kEntriesKey)) moveEntriesOut();
        return;
    case QSettings::AccessError: {
        // Unreadable is kept like damaged: what it holds is unknown, so it must not be replaced.
        m_damaged = true;
        QFile file(m_path);
        const QString why =
            file.open(QIODevice::ReadOnly) ? QStringLiteral("access denied") : file.errorString();
        m_lastError =
            QStringLiteral("The preferences file '%1' cannot be read (%2). The defaults are used, and the "
                           "file is kept.")
                .arg(m_path, why);
        return;
    }
    case QSettings::FormatError: {
        m_damaged = true;
        const auto read = TWPropertyList::readFile(m_path);
        const QString why =
            !read ? read.error().message() : QStringLiteral("its top level is not a dictionary");
        m_lastError =
            QStringLiteral("The preferences file '%1' is damaged (%2). The defaults are used, and the "
                           "file is kept.")
                .arg(m_path, why);
        return;
    }
    }
}

// Called with the lock held. Whichever process reads the file first moves the list, once; when the move
// fails the key stays where it is, nothing is lost, and the next reading tries again.
void TWPreferences::moveEntriesOut() {
    const QVariant entries = m_values.value(kEntriesKey);
    if (entries.typeId() != QMetaType::QVariantMap) return; // not a list this program ever wrote
    TWEntriesStore store(TWEntriesStore::pathBeside(m_path));
    if (const LXStatus adopted = store.adopt(entries.toMap()); !adopted) {
        qWarning("The file list cannot be moved out of the preferences: %s",
                 qPrintable(adopted.error().description()));
        return;
    }
    m_values.remove(kEntriesKey);
    m_changed.insert(kEntriesKey);
    if (!synchronizeLocked()) qWarning("%s", qPrintable(m_lastError));
}

// Called with the lock held.
bool TWPreferences::moveDamagedFileAside() {
    const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    QString aside = QStringLiteral("%1.damaged-%2").arg(m_path, stamp);
    for (int number = 2; QFileInfo::exists(aside); ++number)
        aside = QStringLiteral("%1.damaged-%2-%3").arg(m_path, stamp).arg(number);
    QFile file(m_path);
    if (file.exists() && !file.rename(aside)) {
        m_lastError = QStringLiteral("The damaged preferences file '%1' cannot be moved aside to '%2': %3. "
                                     "The preferences are not saved.")
                          .arg(m_path, aside, file.errorString());
        return false;
    }
    m_lastError += QStringLiteral(" It was kept as '%1'.").arg(aside);
    m_damaged = false;
    return true;
}

// Called with the lock held.
bool TWPreferences::synchronizeLocked() {
    if (m_changed.isEmpty()) {
        // Nothing of ours to write (and a damaged file stays where it is); pick up what other processes
        // wrote.
        if (!m_damaged) {
            QSettings settings(m_path, propertyListFormat());
            if (settings.status() == QSettings::NoError) {
                m_values.clear();
                for (const QString& key : settings.allKeys())
                    m_values.insert(key, settings.value(key));
            }
        }
        return true;
    }

    if (!QDir().mkpath(QFileInfo(m_path).absolutePath())) {
        m_lastError = QStringLiteral("The preferences cannot be saved: the folder '%1' cannot be created.")
                          .arg(QFileInfo(m_path).absolutePath());
        return false;
    }
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (m_damaged && !moveDamagedFileAside()) return false;
        // A fresh QSettings for every write: its status is sticky, and an old failure would hide a new
        // success.
        QSettings settings(m_path, propertyListFormat());
        if (settings.status() != QSettings::NoError) {
            // Damaged or made unreadable since it was loaded, by another program: keep that file too.
            m_damaged = true;
            m_lastError =
                QStringLiteral("The preferences file '%1' was damaged by another program.").arg(m_path);
            continue;
        }
        for (const QString& key : std::as_const(m_changed)) {
            const auto it = m_values.constFind(key);
            if (it != m_values.constEnd())
                settings.setValue(key, *it);
            else
                settings.remove(key);
        }
        settings.sync();
        if (settings.status() != QSettings::NoError) {
            m_lastError = QStringLiteral("The preferences cannot be saved to '%1': %2.")
                              .arg(m_path, writeFailureReason(m_path));
            return false;
        }
        m_changed.clear();
        m_values.clear();
        for (const QString& key : settings.allKeys())
            m_values.insert(key, settings.value(key));
        return true;
    }
    return false;
}
