#pragma once

#include <QByteArray>

#include <cstdint>
#include <optional>

// The messages between an LXHostedAudioUnitEntry and the plug-in host process, over a stream socket:
// each is a header (a code and the payload's length) and the payload. Requests carry an Op; replies carry
// Ok or Failed (the payload then a UTF-8 message).
//
//   Open     the component, the settings, rate, channels and largest block (QDataStream); reply: latency
//   Process  frames x channels floats, interleaved; reply: as many, processed
//   Reset    nothing; reply: nothing
namespace LXPluginHostChannel {

enum Code : uint32_t { Open = 1, Process = 2, Reset = 3, Ok = 100, Failed = 101 };

struct Message {
    uint32_t code = 0;
    QByteArray payload;
};

// Both false when the other side has gone (or, for receive, sent nothing for timeoutMs; -1 waits for
// ever). A message is written and read whole.
bool send(int fd, uint32_t code, const char* data, uint64_t size);
inline bool send(int fd, uint32_t code, const QByteArray& payload = {}) {
    return send(fd, code, payload.constData(), uint64_t(payload.size()));
}
enum class Received { Message, Closed, TimedOut };
Received receive(int fd, Message& message, int timeoutMs);

// The host's side: answers requests on fd until the other side closes it. Answers the exit status.
int serve(int fd);

} // namespace LXPluginHostChannel
