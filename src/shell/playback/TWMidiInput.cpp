#include "shell/playback/TWMidiInput.h"

#include "platform/TWHandOver.h"

#include <QFile>

#include <RtMidi.h>

namespace {

// ALSA first, where there is a sequencer (RtMidi prints its failure before it throws, so it is not asked
// without one); JACK's ports where a server runs (its client is opened with "no start server", so
// without one it lists nothing).
std::vector<RtMidi::Api> apis() {
    std::vector<RtMidi::Api> found;
    if (QFile::exists(QStringLiteral("/dev/snd/seq"))) found.push_back(RtMidi::LINUX_ALSA);
    found.push_back(RtMidi::UNIX_JACK);
    return found;
}

// FNV-1a over the interface and the name, kept positive: a preference is a signed integer.
int uniqueIDOf(RtMidi::Api api, const std::string& name) {
    uint32_t hash = 2166136261u;
    for (const char c : RtMidi::getApiName(api) + ':' + name)
        hash = (hash ^ uint8_t(c)) * 16777619u;
    return int(hash & 0x7fffffff);
}

// Each source of each interface that opens here, until `visit` answers true.
template <typename Visit> void forEachSource(Visit visit) {
    for (const RtMidi::Api api : apis()) {
        try {
            auto in = std::make_unique<RtMidiIn>(api, "Clipwright");
            for (unsigned int port = 0; port < in->getPortCount(); ++port)
                if (visit(api, in, port)) return;
        } catch (const RtMidiError&) {
            // An interface with no system behind it (no ALSA sequencer on a machine without sound).
        }
    }
}

} // namespace

TWMidiInput::TWMidiInput(QObject* receiver, NoteHandler handler) : m_receiver(receiver), m_handler(std::move(handler)) {}

TWMidiInput::~TWMidiInput() {
    disconnect();
}

QList<TWMidiSource> TWMidiInput::inputs() {
    QList<TWMidiSource> sources;
    forEachSource([&](RtMidi::Api api, std::unique_ptr<RtMidiIn>& in, unsigned int port) {
        const std::string name = in->getPortName(port);
        sources.append({uniqueIDOf(api, name), QString::fromStdString(name)});
        return false;
    });
    return sources;
}

LXStatus TWMidiInput::connect(int uniqueID) {
    disconnect();
    std::optional<LXError> failure;
    forEachSource([&](RtMidi::Api api, std::unique_ptr<RtMidiIn>& in, unsigned int port) {
        if (uniqueIDOf(api, in->getPortName(port)) != uniqueID) return false;
        try {
            in->ignoreTypes(true, true, true);
            in->setCallback(&TWMidiInput::received, this);
            in->openPort(port, "Clipwright Input");
            m_in = std::move(in);
        } catch (const RtMidiError& error) {
            failure = LXError(LXErrAudioDevice, QStringLiteral("The MIDI input could not be opened: %1")
                                                    .arg(QString::fromStdString(error.getMessage())));
        }
        return true;
    });
    if (failure) return *failure;
    return {};
}

void TWMidiInput::disconnect() {
    if (!m_in) return;
    m_in->closePort();
    m_in.reset();
}

// RtMidi's thread: note messages only, handed on.
void TWMidiInput::received(double, std::vector<unsigned char>* message, void* user) {
    if (message->size() < 3) return;
    const int type = (*message)[0] & 0xF0, channel = ((*message)[0] & 0x0F) + 1;
    const int note = (*message)[1], velocity = (*message)[2];
    if (type != 0x80 && type != 0x90) return;
    const bool on = type == 0x90 && velocity > 0;
    auto* self = static_cast<TWMidiInput*>(user);
    TWHandOver(self->m_receiver, [handler = self->m_handler, on, channel, note] { handler(on, channel, note); });
}
