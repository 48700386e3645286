#include "platform/TWDesktop.h"

#include "lx/LXFile.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QUrl>

#include <optional>

namespace {

// The session bus, or nothing. Asking libdbus for a bus that is not there can make it autolaunch a daemon
// (when DISPLAY is set) and makes Qt warn, so the usual addresses are looked at first.
std::optional<QDBusConnection> sessionBus() {
    if (!QCoreApplication::instance()) return std::nullopt; // Qt's bus thread needs the application object
    if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS")) {
        const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
        if (runtime.isEmpty() || !QFileInfo::exists(runtime + QStringLiteral("/bus"))) return std::nullopt;
    }
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return std::nullopt;
    return bus;
}

bool startDetached(const QString& program, const QStringList& arguments) {
    return QProcess::startDetached(program, arguments);
}

// ---- .desktop files

struct DesktopEntry {
    QString path, name, exec;
    bool hidden = false;
    bool application = false;
};

// The value side of a desktop-entry string: \s \n \t \r \\ escapes.
QString unescapeValue(const QString& value) {
    QString out;
    out.reserve(value.size());
    for (qsizetype i = 0; i < value.size(); ++i) {
        const QChar c = value[i];
        if (c == u'\\' && i + 1 < value.size()) {
            const QChar next = value[++i];
            switch (next.unicode()) {
            case 's':
                out += u' ';
                break;
            case 'n':
                out += u'\n';
                break;
            case 't':
                out += u'\t';
                break;
            case 'r':
                out += u'\r';
                break;
            default:
                out += next;
                break; // "\\", and "\;" in lists
            }
        } else {
            out += c;
        }
    }
    return out;
}

DesktopEntry readDesktopEntry(const QString& path) {
    DesktopEntry entry;
    entry.path = path;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) return entry;
    bool inMainGroup = false;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.isEmpty() || line.startsWith(u'#')) continue;
        if (line.startsWith(u'[')) {
            inMainGroup = line == u"[Desktop Entry]";
            continue;
        }
        if (!inMainGroup) continue;
        const qsizetype equals = line.indexOf(u'=');
        if (equals < 0) continue;
        const QString key = line.left(equals).trimmed();
        const QString value = unescapeValue(line.mid(equals + 1).trimmed());
        if (key == u"Name")
            entry.name = value;
        else if (key == u"Exec")
            entry.exec = value;
        else if (key == u"Type")
            entry.application = value == u"Application";
        else if (key == u"Hidden")
            entry.hidden = value == u"true";
    }
    return entry;
}

// Finds the application by desktop-file id ("org.gnome.Rhythmbox3", with or without ".desktop"), by
// file name, or by its Name; earlier data directories win, as the desktop-entry rules say.
QString findDesktopFile(const QString& application) {
    if (application.endsWith(QStringLiteral(".desktop")) && QFileInfo(application).isAbsolute())
        return QFileInfo::exists(application) ? application : QString();
    QString id = application;
    if (id.endsWith(QStringLiteral(".desktop"))) id.chop(8);

    QString byName;
    const QStringList directories = QStandardPaths::standardLocations(QStandardPaths::ApplicationsLocation);
    for (const QString& directory : directories) {
        QDirIterator files(directory, {QStringLiteral("*.desktop")}, QDir::Files,
                           QDirIterator::Subdirectories);
        while (files.hasNext()) {
            QString path = files.next();
            QString fileId = QDir(directory).relativeFilePath(path);
            fileId.chop(8);
            fileId.replace(u'/', u'-');
            if (fileId.compare(id, Qt::CaseInsensitive) == 0 ||
                fileId.section(u'.', -1).compare(id, Qt::CaseInsensitive) == 0)
                return path;
            if (byName.isEmpty()) {
                const DesktopEntry entry = readDesktopEntry(path);
                if (!entry.hidden && entry.name.compare(application, Qt::CaseInsensitive) == 0) byName = path;
            }
        }
    }
    return byName;
}

// Splits an Exec line into arguments: double quotes group, and inside them a backslash escapes " ` $ \.
QStringList splitExec(const QString& exec) {
    QStringList arguments;
    QString current;
    bool inQuotes = false, hasArgument = false;
    for (qsizetype i = 0; i < exec.size(); ++i) {
        const QChar c = exec[i];
        if (inQuotes) {
            if (c == u'\\' && i + 1 < exec.size()) {
                current += exec[++i];
            } else if (c == u'"') {
                inQuotes = false;
            } else {
                current += c;
            }
        } else if (c == u'"') {
            inQuotes = true;
            hasArgument = true;
        } else if (c.isSpace()) {
            if (hasArgument) arguments << current;
            current.clear();
            hasArgument = false;
        } else {
            current += c;
            hasArgument = true;
        }
    }
    if (hasArgument) arguments << current;
    return arguments;
}

// Replaces the field codes of the Exec arguments; the file goes at the end when no code asks for it.
QStringList expandExec(const DesktopEntry& entry, const QString& path) {
    const QString url = QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded);
    QStringList result;
    bool placed = false;
    for (const QString& argument : splitExec(entry.exec)) {
        if (argument == u"%f" || argument == u"%F" || argument == u"%u" || argument == u"%U") {
            result << (argument.at(1).toLower() == u'f' ? path : url);
            placed = true;
            continue;
        }
        if (argument == u"%i" || argument == u"%d" || argument == u"%D" || argument == u"%n" ||
            argument == u"%N" || argument == u"%v" || argument == u"%m")
            continue; // no icon to pass; the others are deprecated and dropped
        QString expanded;
        for (qsizetype i = 0; i < argument.size(); ++i) {
            if (argument[i] == u'%' && i + 1 < argument.size()) {
                const QChar code = argument[++i];
                switch (code.unicode()) {
                case '%':
                    expanded += u'%';
                    break;
                case 'f':
                    expanded += path;
                    placed = true;
                    break;
                case 'u':
                    expanded += url;
                    placed = true;
                    break;
                case 'c':
                    expanded += entry.name;
                    break;
                case 'k':
                    expanded += entry.path;
                    break;
                default:
                    break;
                }
            } else {
                expanded += argument[i];
            }
        }
        result << expanded;
    }
    if (!placed) result << path;
    return result;
}

} // namespace

namespace TWDesktop {

LXStatus moveToTrash(const QString& path) {
    return LXFile::moveToTrash(path);
}

bool openPath(const QString& path) {
    if (!QFileInfo::exists(path)) return false;
    return startDetached(QStringLiteral("xdg-open"), {path});
}

bool openUrl(const QString& url) {
    if (url.isEmpty()) return false;
    return startDetached(QStringLiteral("xdg-open"), {url});
}

bool revealPath(const QString& path) {
    const QFileInfo info(path);
    if (!info.exists()) return false;
    if (const auto bus = sessionBus()) {
        QDBusMessage call = QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("/org/freedesktop/FileManager1"),
            QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
        call << QStringList{QUrl::fromLocalFile(info.absoluteFilePath()).toString()} << QString();
        // A file manager that is installed answers at once; a few seconds allow for one being started.
        const QDBusMessage reply = bus->call(call, QDBus::Block, 5000);
        if (reply.type() == QDBusMessage::ReplyMessage) return true;
    }
    return openPath(info.absolutePath());
}

QString findApplication(const QString& application) {
    if (application.isEmpty()) return {};
    const QString path = findDesktopFile(application);
    if (path.isEmpty()) return {};
    const DesktopEntry entry = readDesktopEntry(path);
    return entry.application && !entry.hidden && !entry.exec.isEmpty() ? path : QString();
}

bool openWithApplication(const QString& path, const QString& application) {
    if (!QFileInfo::exists(path) || application.isEmpty()) return false;
    const QFileInfo program(application);
    if (program.isAbsolute() && program.isExecutable() && !application.endsWith(QStringLiteral(".desktop")))
        return startDetached(application, {path});
    const QString desktopFile = findApplication(application);
    if (desktopFile.isEmpty()) return false;
    QStringList arguments = expandExec(readDesktopEntry(desktopFile), path);
    const QString executable = arguments.takeFirst();
    return startDetached(executable, arguments);
}

void postNotice(const QString& title, const QString& text) {
    const auto bus = sessionBus();
    if (!bus) return;
    QDBusMessage notify = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("/org/freedesktop/Notifications"),
        QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("Notify"));
    notify << QStringLiteral("Clipwright") << uint(0) << QString() << title << text << QStringList()
           << QVariantMap() << int(-1);
    // Sent without waiting: a notice is not worth holding up the thread that finished its work.
    bus->send(notify);
}

} // namespace TWDesktop
