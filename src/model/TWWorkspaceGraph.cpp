// The workspace's playback operations, handed to the player.
#include "model/TWWorkspace.h"

LXRange TWWorkspace::playRange() {
    TWPlaybackService* service = playbackService();
    return service ? service->playRange() : LXRange();
}

void TWWorkspace::play() {
    if (TWPlaybackService* service = playbackService()) service->play();
}

void TWWorkspace::playAll() {
    if (TWPlaybackService* service = playbackService()) service->playAll();
}

void TWWorkspace::playFrom(double seconds) {
    if (TWPlaybackService* service = playbackService()) service->playFrom(seconds);
}

void TWWorkspace::playRange(const LXRange& range, int midiNote) {
    if (TWPlaybackService* service = playbackService()) service->playRange(range, midiNote);
}

void TWWorkspace::stop() {
    if (TWPlaybackService* service = playbackService()) service->stop();
}

void TWWorkspace::updateRepeats() {
    if (TWPlaybackService* service = playbackService()) service->updateRepeats();
}
