#pragma once

#include "lx/LXRange.h"
#include "lx/playback/LXRealtimeGate.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

class LXMasterLayer;

// Told of a stream's playback. Called on the stream's own thread (or the thread that started or stopped
// the playback), never on the audio callback; a delegate that owns Qt objects hands the news on to their
// thread.
class LXPlaybackDelegate {
public:
    virtual ~LXPlaybackDelegate() = default;
    virtual void playback(double seconds) = 0; // the position heard, about 25 times a second
    virtual void playbackDidStart() = 0;
    virtual void playbackDidStop() = 0;
};

// Plays the master layer's layers into an output. The output owns the audio callback and calls render()
// from it; everything render() does is lock-free and allocation-free: the layers' rings are filled from
// the files by the stream's own thread, which also reports the position and the end to the delegate.
//
// Units: varispeed in cents (100 a semitone; 1200 plays an octave higher at twice the speed); a MIDI note
// transposes by (note - base note) semitones, the same way; volume a linear gain.
// Threads: every call but render() from control threads (the main thread, the work thread stopping a
// playback), serialised by the stream; render() from the output's callback only.
class LXPlaybackStream {
public:
    static constexpr int kNoMidiNote = 255;

    explicit LXPlaybackStream(LXPlaybackDelegate* delegate);
    ~LXPlaybackStream();
    LXPlaybackStream(const LXPlaybackStream&) = delete;
    LXPlaybackStream& operator=(const LXPlaybackStream&) = delete;

    // The graph: the layer mixed into the output, and the output's format (stereo at `rate`, at most
    // `maxBlock` frames a callback, which is also the effects' largest block).
    void construct(LXMasterLayer& master);
    void prepareOutput(double rate, int maxBlock);
    double outputRate() const { return m_rate; }

    void startPlayback(); // plays what the layers have prepared, from its start
    void stopPlayback();  // stops; once it returns no file of the layers is being read
    bool isPlaying() const { return m_playing.load(); }
    double position() const; // seconds, of the first layer's file

    void setVolume(float volume);
    float volume() const;
    void setVarispeed(double cents);
    double varispeed() const { return m_varispeed; }
    void setMidiBaseNote(int note);
    void setMidiPlaybackNote(int note); // kNoMidiNote: no transposition
    // The stretch played over and over once the range is through (direction 0, forwards, is the only
    // one); an empty range ends the playback at the range's end.
    void setPlaybackRepeatRange(const LXRange& range, int direction);

    // Audio callback: `frames` interleaved stereo frames, silence when not playing.
    void render(float* out, int frames);
    int64_t underruns() const;

    // Blocks until every layer's ring is full or holds the end (at most a second): an output that is not
    // driven by a clock (the null output) waits here where a device would give the reading thread time.
    void waitForBuffers();

private:
    void run();
    void finish(); // stops reading and tells the delegate the last position and the stop
    void updateSpeed();
    void kick(); // wakes the stream's thread at once

    LXPlaybackDelegate* m_delegate;
    LXMasterLayer* m_master = nullptr;
    double m_rate = 0.0;
    int m_maxBlock = 0;
    double m_varispeed = 0.0;
    int m_baseNote = 60;
    int m_midiNote = kNoMidiNote;

    mutable std::recursive_mutex m_control; // serialises the control calls
    LXRealtimeGate m_gate;
    std::atomic<bool> m_active{false};  // the callback renders (else silence)
    std::atomic<bool> m_playing{false}; // from startPlayback until the stop is reported
    std::atomic<bool> m_ended{false};   // the callback played the range through

    std::mutex m_threadMutex;
    std::condition_variable m_wake;
    std::condition_variable m_filled;
    bool m_quit = false;
    bool m_kicked = false;
    std::thread m_thread;
};
