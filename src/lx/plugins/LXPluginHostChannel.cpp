#include "lx/plugins/LXPluginHostChannel.h"

#include "lx/LXError.h"
#include "lx/plugins/LXAudioUnitEntry.h"

#include <QDataStream>
#include <QIODevice>

#include <cerrno>
#include <chrono>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace LXPluginHostChannel {

namespace {

struct Header {
    uint32_t code;
    uint32_t reserved;
    uint64_t size;
};

bool writeAll(int fd, const char* data, uint64_t size) {
    while (size > 0) {
        const ssize_t written = ::send(fd, data, size, MSG_NOSIGNAL);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        data += written;
        size -= uint64_t(written);
    }
    return true;
}

Received readAll(int fd, char* data, uint64_t size, int timeoutMs) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (size > 0) {
        pollfd waiting{fd, POLLIN, 0};
        const int left = timeoutMs < 0 ? -1
                                        : int(std::max<int64_t>(0, std::chrono::duration_cast<std::chrono::milliseconds>(
                                                                       deadline - Clock::now()).count()));
        const int ready = ::poll(&waiting, 1, left);
        if (ready < 0 && errno == EINTR) continue;
        if (ready == 0) return Received::TimedOut;
        if (ready < 0) return Received::Closed;
        const ssize_t got = ::recv(fd, data, size, 0);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return Received::Closed;
        data += got;
        size -= uint64_t(got);
    }
    return Received::Message;
}

} // namespace

bool send(int fd, uint32_t code, const char* data, uint64_t size) {
    const Header header{code, 0, size};
    return writeAll(fd, reinterpret_cast<const char*>(&header), sizeof header) && writeAll(fd, data, size);
}

Received receive(int fd, Message& message, int timeoutMs) {
    Header header{};
    if (const Received got = readAll(fd, reinterpret_cast<char*>(&header), sizeof header, timeoutMs);
        got != Received::Message)
        return got;
    message.code = header.code;
    message.payload.resize(qsizetype(header.size));
    return readAll(fd, message.payload.data(), header.size, timeoutMs);
}

// The host
// ------------------------------------------------------------------------------------------------

namespace {

bool fail(int fd, const QString& why) {
    return send(fd, Failed, why.toUtf8());
}

} // namespace

int serve(int fd) {
    std::unique_ptr<LXAudioUnitEntry> entry;
    QVariantMap openedWith;
    int channels = 0;
    Message request;
    while (receive(fd, request, -1) == Received::Message) {
        bool answered = false;
        switch (request.code) {
        case Open: {
            QDataStream in(request.payload);
            QString component;
            QVariantMap settings;
            double rate = 0;
            qint32 wanted = 0;
            qint64 maxBlock = 0;
            in >> component >> settings >> rate >> wanted >> maxBlock;
            // The same effect with the same settings is only prepared again (which resets it).
            LXStatus ready;
            if (!entry || entry->description().component != component || settings != openedWith) {
                auto made = LXAudioUnitEntry::make(component);
                if (!made) {
                    answered = fail(fd, made.error().message());
                    break;
                }
                entry = std::move(*made);
                ready = entry->setState(settings);
                openedWith = settings;
            }
            if (ready) ready = entry->prepare(rate, wanted, maxBlock);
            if (!ready) {
                entry.reset();
                answered = fail(fd, ready.error().message());
                break;
            }
            channels = wanted;
            QByteArray reply;
            QDataStream out(&reply, QIODevice::WriteOnly);
            out << qint64(entry->latency());
            answered = send(fd, Ok, reply);
            break;
        }
        case Process: {
            if (!entry) {
                answered = fail(fd, QStringLiteral("no plug-in is open"));
                break;
            }
            const int64_t frames = request.payload.size() / qsizetype(sizeof(float) * size_t(channels));
            entry->process(reinterpret_cast<float*>(request.payload.data()), frames);
            answered = send(fd, Ok, request.payload);
            break;
        }
        case Reset:
            if (entry) entry->reset();
            answered = send(fd, Ok);
            break;
        default: answered = fail(fd, QStringLiteral("unknown request %1").arg(request.code));
        }
        if (!answered) return 1;
    }
    return 0;
}

} // namespace LXPluginHostChannel
