#include "lx/plugins/LXHostedAudioUnitEntry.h"

#include "lx/LXError.h"
#include "lx/LXResultCode.h"
#include "lx/plugins/LXAudioUnitDescription.h"
#include "lx/plugins/LXPluginHostChannel.h"

#include <QDataStream>
#include <QFile>
#include <QFileInfo>
#include <QIODevice>
#include <QStandardPaths>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

const char* const kHostName = "clipwright-plugin-host";
constexpr int kOpenTimeoutMs = 60000; // a plug-in may load large data when it starts

QString hostProgram() {
    if (const QString named = qEnvironmentVariable("CLIPWRIGHT_PLUGIN_HOST"); !named.isEmpty()) return named;
    const QString beside = QFileInfo(QFile::symLinkTarget(QStringLiteral("/proc/self/exe"))).absolutePath() +
                           QLatin1Char('/') + QLatin1String(kHostName);
    if (QFileInfo(beside).isExecutable()) return beside;
    return QStandardPaths::findExecutable(QString::fromLatin1(kHostName));
}

} // namespace

LXHostedAudioUnitEntry::LXHostedAudioUnitEntry(QVariantMap settings) : m_settings(std::move(settings)) {
    if (!m_settings.contains(QStringLiteral("Name")))
        if (const auto unit = LXFindAudioUnit(m_settings.value(QStringLiteral("Component")).toString()))
            m_settings.insert(QStringLiteral("Name"), unit->name);
}

LXHostedAudioUnitEntry::~LXHostedAudioUnitEntry() {
    stop();
}

QString LXHostedAudioUnitEntry::displayName() const {
    return m_settings.value(QStringLiteral("Name"), m_settings.value(QStringLiteral("Component"))).toString();
}

int LXHostedAudioUnitEntry::responseTimeoutMs() {
    bool ok = false;
    const double seconds = qEnvironmentVariable("CLIPWRIGHT_PLUGIN_TIMEOUT").toDouble(&ok);
    return ok && seconds > 0 ? int(seconds * 1000) : 10000;
}

LXError LXHostedAudioUnitEntry::hostFailure(const QString& what) {
    return LXError(LXErrUnsupported, QStringLiteral("the plug-in '%1' %2").arg(displayName(), what));
}

LXStatus LXHostedAudioUnitEntry::start() {
    const QString program = hostProgram();
    if (program.isEmpty())
        return hostFailure(QStringLiteral("cannot run: the plug-in host (%1) is not installed").arg(kHostName));
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        return hostFailure(QStringLiteral("cannot run: %1").arg(QString::fromLocal8Bit(strerror(errno))));
    // The host talks on its standard input; what plug-ins print goes nowhere.
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDIN_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    // In a process group of its own, so that the terminal's Ctrl-C, which stops or cancels the run,
    // reaches this program alone and not the effect in the middle of a block.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setpgroup(&attributes, 0);
    QByteArray path = QFile::encodeName(program);
    char* argv[] = {path.data(), nullptr};
    const int spawned = posix_spawn(&m_host, path.constData(), &actions, &attributes, argv, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    if (spawned != 0) {
        ::close(ends[0]);
        m_host = -1;
        return hostFailure(QStringLiteral("cannot run: %1: %2").arg(program, QString::fromLocal8Bit(strerror(spawned))));
    }
    m_socket = ends[0];
    return {};
}

void LXHostedAudioUnitEntry::stop() {
    if (m_socket >= 0) ::close(m_socket);
    m_socket = -1;
    if (m_host <= 0) return;
    ::kill(m_host, SIGKILL);
    while (waitpid(m_host, nullptr, 0) < 0 && errno == EINTR) {}
    m_host = -1;
}

bool LXHostedAudioUnitEntry::exchange(uint32_t code, const char* data, uint64_t size, QByteArray& reply,
                                      int timeoutMs) {
    using namespace LXPluginHostChannel;
    Message message;
    const Received got = send(m_socket, code, data, size) ? receive(m_socket, message, timeoutMs) : Received::Closed;
    if (got == Received::Message && message.code == Ok) {
        reply = std::move(message.payload);
        return true;
    }
    if (got == Received::Message) { // the host's own words, which name the plug-in
        m_failure = LXError(LXErrUnsupported, QString::fromUtf8(message.payload));
    } else if (got == Received::TimedOut) {
        m_failure = hostFailure(QStringLiteral("stopped responding (nothing for %1 s) and was ended")
                                    .arg(timeoutMs / 1000.0));
    } else {
        // Gone: say how, from its exit status.
        int status = 0;
        pid_t reaped = 0;
        while ((reaped = waitpid(m_host, &status, 0)) < 0 && errno == EINTR) {}
        if (reaped == m_host) m_host = -1;
        if (reaped > 0 && WIFSIGNALED(status))
            m_failure = hostFailure(QStringLiteral("quit unexpectedly (signal %1, %2)")
                                        .arg(WTERMSIG(status))
                                        .arg(QString::fromLocal8Bit(strsignal(WTERMSIG(status)))));
        else
            m_failure = hostFailure(QStringLiteral("quit unexpectedly"));
    }
    stop();
    return false;
}

LXStatus LXHostedAudioUnitEntry::prepare(double rate, int channels, int64_t maxBlockFrames) {
    // A host that is still there opens the effect again: starting one costs more than the effect.
    if (m_socket < 0 || m_failure) {
        stop();
        m_failure.reset();
        LX_TRY(start());
    }
    QByteArray request;
    QDataStream out(&request, QIODevice::WriteOnly);
    out << m_settings.value(QStringLiteral("Component")).toString() << m_settings << rate << qint32(channels)
        << qint64(maxBlockFrames);
    QByteArray reply;
    if (!exchange(LXPluginHostChannel::Open, request.constData(), uint64_t(request.size()), reply, kOpenTimeoutMs))
        return *m_failure;
    qint64 latency = 0;
    QDataStream in(reply);
    in >> latency;
    m_latency = latency;
    m_channels = channels;
    m_narrow.assign(size_t(maxBlockFrames * channels), 0.0f);
    return {};
}

void LXHostedAudioUnitEntry::process(float* interleaved, int64_t frames) {
    if (!isEnabled() || frames <= 0) return;
    const uint64_t bytes = uint64_t(frames * m_channels) * sizeof(float);
    QByteArray reply;
    if (m_socket >= 0 && exchange(LXPluginHostChannel::Process, reinterpret_cast<const char*>(interleaved), bytes,
                                  reply, responseTimeoutMs()) &&
        uint64_t(reply.size()) == bytes) {
        std::memcpy(interleaved, reply.constData(), bytes);
        return;
    }
    if (!m_failure) m_failure = hostFailure(QStringLiteral("gave a block of the wrong length"));
    std::fill_n(interleaved, frames * m_channels, 0.0f);
}

void LXHostedAudioUnitEntry::process(double* interleaved, int64_t frames) {
    processThroughFloat(interleaved, frames, m_channels, m_narrow);
}

void LXHostedAudioUnitEntry::reset() {
    QByteArray reply;
    if (m_socket >= 0) exchange(LXPluginHostChannel::Reset, nullptr, 0, reply, responseTimeoutMs());
}
