#pragma once

#include "lx/LXRange.h"

#include <QString>

// The workspace's playback, as the player carries it out: the workspace keeps these operations under their
// names and hands them on, so that it holds only the tree, the selection and the file commands. The
// selected file entry is what plays. Main thread, except stopPlaybackOfPath.
class TWPlaybackService {
public:
    static constexpr int kNoMidiNote = 255;

    virtual ~TWPlaybackService() = default;
    // The range play() would play: the whole file, narrowed by the workflow's trim previews, or the
    // waveform's selection when there is one. Seconds of the selected file.
    virtual LXRange playRange() = 0;
    virtual void play() = 0;
    virtual void playAll() = 0;
    virtual void playFrom(double seconds) = 0;
    virtual void playRange(const LXRange& range, int midiNote = kNoMidiNote) = 0;
    virtual void stop() = 0;
    virtual void updateRepeats() = 0;
    virtual bool isPlaying() const = 0;
    // Any thread: stops a playback of that file and returns once the file is no longer read. The work
    // thread calls it before it changes a file.
    virtual void stopPlaybackOfPath(const QString& path) = 0;
};
