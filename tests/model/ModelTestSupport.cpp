#include "ModelTestSupport.h"

#include "model/TWGroupEntry.h"

#include "TestAudio.h"
#include "lx/LXAudioFormat.h"

#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QTimer>

#include <unistd.h>

namespace ModelTest {

QString writeAudio(const QString& path, int64_t frames) {
    TestAudio::Sound sound;
    sound.frames = frames;
    const QString extension = QFileInfo(path).suffix().toLower();
    if (extension == QLatin1String("aif") || extension == QLatin1String("aiff")) {
        sound.format = LXFormat::AIFF;
        sound.encoding = LXSampleEncoding::pcm(16, true);
    }
    auto written = TestAudio::write(path, sound);
    EXPECT_TRUE(written.ok()) << (written ? "" : written.error().description().toStdString());
    return written ? *written : QString();
}

QString writeBytes(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate)) << path.toStdString();
    file.write(bytes);
    return path;
}

QString writeDamagedWav(const QString& path) {
    const QString complete = writeAudio(path + QStringLiteral(".whole.wav"));
    QFile source(complete);
    EXPECT_TRUE(source.open(QIODevice::ReadOnly));
    const QByteArray whole = source.readAll();
    source.close();
    QFile::remove(complete);
    const qsizetype data = whole.indexOf("data");
    EXPECT_GT(data, 0);
    return writeBytes(path, whole.left(data));
}

void lockDirectory(const QString& path, bool locked) {
    if (::geteuid() == 0) {
        int status = -1;
        TestAudio::runTool("chattr", {locked ? "+i" : "-i", path}, &status);
        EXPECT_EQ(status, 0) << "chattr on " << path.toStdString();
    } else {
        EXPECT_TRUE(
            QFile::setPermissions(path, locked ? QFile::ReadOwner | QFile::ExeOwner
                                               : QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    }
}

bool runUntil(const std::function<bool()>& condition, int timeoutMs) {
    QTimer deadline;
    deadline.setSingleShot(true);
    deadline.start(timeoutMs);
    while (!condition()) {
        if (!deadline.isActive()) return false;
        QEventLoop loop;
        // Wake at least every 50 ms: a condition may change on another thread without an event here.
        QTimer::singleShot(50, &loop, &QEventLoop::quit);
        loop.processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

QStringList describeTree(const TWEntry& entry, int depth) {
    QStringList lines;
    for (const TWEntryPtr& child : entry.entries()) {
        const QString identity = child->path().isEmpty() ? child->name() : child->path();
        lines.append(QString(depth * 2, u' ') + child->className() + u' ' + identity);
        lines += describeTree(*child, depth + 1);
    }
    return lines;
}

void Fixture::SetUp() {
    ASSERT_TRUE(m_dir.isValid());
    TWInteraction::setCurrent(&m_interaction);
    TWWorkspace& ws = TWWorkspace::workspace();
    ws.clearSelection();
    ws.removeAll();
    ws.setSortDescriptors({TWSortDescriptor{QStringLiteral("name"), true}});
    ws.setStopWorking(LXContinue);
}

void Fixture::TearDown() {
    TWWorkspace& ws = TWWorkspace::workspace();
    ws.clearSelection();
    ws.removeAll();
    TWInteraction::setCurrent(nullptr);
}

QString Fixture::makeDirectory(const QString& relative) const {
    const QString directory = path(relative);
    EXPECT_TRUE(QDir().mkpath(directory));
    return directory;
}

} // namespace ModelTest
