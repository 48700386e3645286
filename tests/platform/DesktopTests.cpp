#include "IsolatedHome.h"
#include "platform/TWDesktop.h"
#include "platform/TWSupportFolders.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTemporaryFile>
#include <QThread>
#include <QTimer>
#include <QUrl>

#include <gtest/gtest.h>

namespace {

// The program started detached writes its arguments when it gets round to it; there is no handle to wait on.
QByteArray waitForLines(const QString& path, int lines) {
    QElapsedTimer timer;
    timer.start();
    QByteArray data;
    while (timer.elapsed() < 10000 && (data = readFile(path)).count('\n') < lines)
        QThread::msleep(20);
    return data;
}

} // namespace

TEST(SupportFolders, LiveInTheDataHomeAndAreCreatedOnce) {
    IsolatedHome home;
    const QString support = home.path(QStringLiteral(".local/share/Clipwright"));
    EXPECT_EQ(TWSupportFolders::supportDirectory(), support);
    ASSERT_TRUE(TWSupportFolders::createStandardFolders());
    ASSERT_TRUE(TWSupportFolders::createStandardFolders()); // again: nothing to do
    EXPECT_TRUE(QFileInfo(support + QStringLiteral("/Undo")).isDir());
    EXPECT_TRUE(QFileInfo(support + QStringLiteral("/Workflows")).isDir());

    // A file where the folder should be is an error that names it.
    writeFile(home.path(QStringLiteral("blocked")), "x");
    ScopedEnvironment data("XDG_DATA_HOME", QFile::encodeName(home.path(QStringLiteral("blocked"))));
    auto blocked = TWSupportFolders::createStandardFolders();
    ASSERT_FALSE(blocked);
    EXPECT_TRUE(blocked.error().path().startsWith(home.path(QStringLiteral("blocked"))))
        << blocked.error().description().toStdString();
}

TEST(Desktop, OpenWithApplicationRunsTheExecLineOfItsDesktopFile) {
    IsolatedHome home;
    // A program with a space in its path, which records its arguments one a line and a blank line after.
    const QString program = home.path(QStringLiteral("bin/record args"));
    const QString record = home.path(QStringLiteral("bin/arguments.txt"));
    writeFile(
        program,
        QStringLiteral("#!/bin/sh\nfor a in \"$@\"; do printf '%s\\n' \"$a\"; done >> '%1'\necho >> '%1'\n")
            .arg(record)
            .toUtf8(),
        QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    const QString applications = home.path(QStringLiteral(".local/share/applications"));
    writeFile(
        applications + QStringLiteral("/org.example.Recorder.desktop"),
        QStringLiteral("[Desktop Entry]\nType=Application\nName=Sample Recorder\nName[fr]=Enregistreur\n"
                       "Exec=\"%1\" --name=%c \"two words\" %f --percent=100%%\n"
                       "[Desktop Action New]\nExec=/bin/false\n")
            .arg(program)
            .toUtf8());
    writeFile(applications + QStringLiteral("/tools/plain.desktop"),
              QStringLiteral("[Desktop Entry]\nType=Application\nName=Plain\nExec=\"%1\" --plain\n")
                  .arg(program)
                  .toUtf8());
    const QString sample = home.path(QStringLiteral("music/snare 2.wav"));
    writeFile(sample, "RIFF");

    ASSERT_TRUE(TWDesktop::openWithApplication(sample, QStringLiteral("sample recorder"))); // by its name
    EXPECT_EQ(
        waitForLines(record, 5),
        QStringLiteral("--name=Sample Recorder\ntwo words\n%1\n--percent=100%\n\n").arg(sample).toUtf8());

    // By desktop-file id, in a subfolder; without a field code the file goes last.
    QFile::remove(record);
    ASSERT_TRUE(TWDesktop::openWithApplication(sample, QStringLiteral("tools-plain.desktop")));
    EXPECT_EQ(waitForLines(record, 3), QStringLiteral("--plain\n%1\n\n").arg(sample).toUtf8());

    EXPECT_FALSE(TWDesktop::openWithApplication(sample, QStringLiteral("No Such Application")));
    EXPECT_FALSE(
        TWDesktop::openWithApplication(home.path(QStringLiteral("missing.wav")), QStringLiteral("Plain")));
}

TEST(Desktop, WithoutASessionBusNoticesAndRevealsReturnAtOnce) {
    IsolatedHome home;
    const QString sample = home.path(QStringLiteral("kick.wav"));
    writeFile(sample, "RIFF");
    QTemporaryDir runtime;
    ScopedEnvironment address("DBUS_SESSION_BUS_ADDRESS", QByteArray());
    ScopedEnvironment runtimeDir("XDG_RUNTIME_DIR", QFile::encodeName(runtime.path()));
    ScopedEnvironment path("PATH", QFile::encodeName(home.path(QStringLiteral("nothing")))); // no xdg-open

    QElapsedTimer timer;
    timer.start();
    TWDesktop::postNotice(QStringLiteral("Workflow completed"),
                          QStringLiteral("without an application object"));
    {
        int argc = 1;
        char name[] = "platform_tests";
        char* argv[] = {name, nullptr};
        QCoreApplication application(argc, argv);
        TWDesktop::postNotice(QStringLiteral("Workflow completed"), QStringLiteral("3 files"));
        EXPECT_FALSE(TWDesktop::revealPath(sample)); // no file manager and no xdg-open to fall back on
    }
    EXPECT_LT(timer.elapsed(), 2000);
}

// Runs the next test in a private session bus, where it stands in for the notification server and the file
// manager itself.
TEST(Desktop, NoticesAndRevealsGoOverTheSessionBus) {
    const QString runner = QStandardPaths::findExecutable(QStringLiteral("dbus-run-session"));
    if (runner.isEmpty()) GTEST_SKIP() << "dbus-run-session not found";
    QProcess child;
#if defined(__SANITIZE_THREAD__)
    // Qt, QtDBus, libdbus and GLib are not built with ThreadSanitizer: the locks they share with Qt's bus
    // thread are invisible to it, so it reports races inside them (different ones from run to run). They are
    // silenced for this child only, which runs nothing but the stand-in test. The last suppressions= wins, so
    // this file goes after any the parent was given.
    QTemporaryFile suppressions;
    ASSERT_TRUE(suppressions.open());
    suppressions.write("race:libdbus-1.so\ndeadlock:libdbus-1.so\nrace:libQt6DBus.so\nrace:libQt6Core.so\n"
                       "deadlock:libQt6Core.so\nrace:libglib-2.0.so\n");
    suppressions.flush();
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("TSAN_OPTIONS"),
                       QStringLiteral("%1 suppressions=%2")
                           .arg(environment.value(QStringLiteral("TSAN_OPTIONS")), suppressions.fileName()));
    child.setProcessEnvironment(environment);
#endif
    child.start(runner,
                {QStringLiteral("--"), QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath(),
                 QStringLiteral("--gtest_also_run_disabled_tests"),
                 QStringLiteral("--gtest_filter=DesktopOnBus.DISABLED_StandInForTheDesktop")});
    ASSERT_TRUE(child.waitForFinished(60000));
    const QByteArray output = child.readAllStandardOutput() + child.readAllStandardError();
    EXPECT_EQ(child.exitCode(), 0) << output.toStdString();
    EXPECT_TRUE(output.contains("[  PASSED  ] 1 test")) << output.toStdString();
}

namespace {

class StandInNotifications : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    QStringList received;
public slots:
    uint Notify(const QString& application, uint replaces, const QString& icon, const QString& summary,
                const QString& body, const QStringList& actions, const QVariantMap& hints, int timeout) {
        received << application << QString::number(replaces) << icon << summary << body
                 << QString::number(actions.size()) << QString::number(hints.size())
                 << QString::number(timeout);
        emit notified();
        return 1;
    }
signals:
    void notified();
};

class StandInFileManager : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")
public:
    QStringList shown;
public slots:
    void ShowItems(const QStringList& uris, const QString&) { shown << uris; }
};

} // namespace

TEST(DesktopOnBus, DISABLED_StandInForTheDesktop) {
    int argc = 1;
    char name[] = "platform_tests";
    char* argv[] = {name, nullptr};
    QCoreApplication application(argc, argv);
    QDBusConnection bus = QDBusConnection::sessionBus();
    ASSERT_TRUE(bus.isConnected());

    StandInNotifications notifications;
    StandInFileManager fileManager;
    ASSERT_TRUE(bus.registerService(QStringLiteral("org.freedesktop.Notifications")));
    ASSERT_TRUE(bus.registerObject(QStringLiteral("/org/freedesktop/Notifications"), &notifications,
                                   QDBusConnection::ExportAllSlots));
    ASSERT_TRUE(bus.registerService(QStringLiteral("org.freedesktop.FileManager1")));
    ASSERT_TRUE(bus.registerObject(QStringLiteral("/org/freedesktop/FileManager1"), &fileManager,
                                   QDBusConnection::ExportAllSlots));

    QEventLoop loop;
    QObject::connect(&notifications, &StandInNotifications::notified, &loop, &QEventLoop::quit);
    QTimer::singleShot(10000, &loop, &QEventLoop::quit);
    TWDesktop::postNotice(QStringLiteral("Workflow completed"), QStringLiteral("3 files <b>processed</b>"));
    loop.exec();
    EXPECT_EQ(notifications.received.join(u'|').toStdString(),
              "Clipwright|0||Workflow completed|3 files <b>processed</b>|0|0|-1");

    QTemporaryDir dir;
    const QString sample = dir.filePath(QStringLiteral("kick #1.wav"));
    QFile(sample).open(QIODevice::WriteOnly);
    EXPECT_TRUE(TWDesktop::revealPath(sample));
    EXPECT_EQ(fileManager.shown.join(u'|').toStdString(),
              QUrl::fromLocalFile(sample).toString().toStdString());
}

#include "DesktopTests.moc"
