#pragma once

#include "lx/LXResult.h"

#include <QList>
#include <QString>

#include <functional>
#include <memory>

class QObject;
class RtMidiIn;

// A MIDI source the system offers, by a number that stays the same while its name does (the "MIDI Port"
// preference): a hash of the interface and the port's name, since neither ALSA nor JACK numbers are
// stable across restarts.
struct TWMidiSource {
    int uniqueID = 0;
    QString name;
};

// Note messages from one MIDI source, through RtMidi (ALSA's sequencer or JACK, whichever is there). The
// notes are handed to the receiver's thread: `handler(on, channel 1-16, note)`; a note on of velocity 0
// is a note off. Main thread.
class TWMidiInput {
public:
    using NoteHandler = std::function<void(bool on, int channel, int note)>;

    TWMidiInput(QObject* receiver, NoteHandler handler);
    ~TWMidiInput();

    static QList<TWMidiSource> inputs();
    // Listens to the source with that identifier; one that matches no source connects nothing, which is
    // no error. An interface that fails while opening it is.
    LXStatus connect(int uniqueID);
    void disconnect();
    bool isConnected() const { return m_in != nullptr; }

private:
    static void received(double time, std::vector<unsigned char>* message, void* user);

    QObject* m_receiver;
    NoteHandler m_handler;
    std::unique_ptr<RtMidiIn> m_in;
};
