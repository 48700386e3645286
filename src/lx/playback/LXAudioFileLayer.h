#pragma once

#include "lx/LXAudioFile.h"
#include "lx/LXEffectEntry.h"
#include "lx/LXRange.h"
#include "lx/playback/LXPlaybackRing.h"
#include "lx/playback/LXRealtimeGate.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

// The layer that plays one audio file: the stream's reading thread fills its ring from the file, block
// by block (fill()), and the audio callback turns those frames into stereo at the output's rate through a
// four-point (Catmull-Rom) interpolator, then runs the layer's effect chain over them (render()). At a
// step of exactly one file frame per output frame every output frame is a file frame, bit for bit.
//
// Channels: a mono file plays on both sides, a file of more channels plays its first two.
// Threads: setAudioFile, preparePlaybackRange, beginPlayback, the effect chain's edits and the repeat
// range belong to control threads (serialised by the stream); fill() to the reading thread; render() and
// position() to the audio callback. The stream's gate keeps render() out while a playback is set up.
class LXAudioFileLayer {
public:
    static constexpr int kOutputChannels = 2;

    LXAudioFileLayer() = default;
    ~LXAudioFileLayer();
    LXAudioFileLayer(const LXAudioFileLayer&) = delete;
    LXAudioFileLayer& operator=(const LXAudioFileLayer&) = delete;

    // The file to play (nullptr: none); the stream must not be playing. The layer keeps the file and
    // reads it on the reading thread only.
    void setAudioFile(std::unique_ptr<LXAudioFile> file);
    bool hasAudioFile() const { return m_rate > 0; }
    QString path() const { return m_path; }
    double totalTime() const { return m_rate > 0 ? double(m_frames) / m_rate : 0.0; }
    double fileRate() const { return m_rate; }
    int midiBaseNote() const { return m_baseNote; } // the file's, or 60 when it states none

    // The stretch the next playback reads: from its start to its end, then the repeat range over and
    // over while that is not empty. Both are clamped to the file.
    void preparePlaybackRange(const LXRange& range);
    void setRepeatRange(const LXRange& range);

    // The effect chain, processed in order over the layer's stereo output. An entry is prepared for the
    // output's format when added; live edits take effect at the next callback.
    void addAudioUnitEntry(std::shared_ptr<LXEffectEntry> entry, int index);
    void deleteAudioUnit(const LXEffectEntry* entry);
    const std::vector<std::shared_ptr<LXEffectEntry>>& audioUnitEntries() const { return m_entries; }
    double latency() const; // seconds by which the chain delays the output

    // Control thread, stream stopped -----------------------------------------------------------------------
    void prepareOutput(double rate, int maxBlock);
    static void prepareEntry(LXEffectEntry& entry, double rate, int maxBlock);
    // Empties the ring, resets the interpolator and the chain, and reads from the range's start.
    void beginPlayback();
    void stopReading(); // once this returns no read of the file is under way or will start
    // Output frames per file frame as the player wants it (varispeed and transposition, 1.0 plain).
    void setSpeed(double factor);

    // Reading thread: fills the free blocks of the ring. Cheap when there is nothing to do.
    void fill();
    bool isBuffered() const; // the ring is full or holds the end

    // Audio callback ---------------------------------------------------------------------------------------
    // Writes `frames` stereo frames (frames <= maxBlock); true once the range has been played through, the
    // rest of the block then silent.
    bool render(float* out, int frames);
    // The file frame being heard (the chain's delay taken off); any thread.
    int64_t position() const { return m_position.load(std::memory_order_relaxed); }
    int64_t underruns() const { return m_underruns.load(std::memory_order_relaxed); }

private:
    enum class Pull { Frame, Underrun, End };
    Pull pull(float* frame, int64_t& index);
    void updateStep();

    // The file and what the control side knows of it.
    std::unique_ptr<LXAudioFile> m_file;
    QString m_path;
    double m_rate = 0.0;
    int64_t m_frames = 0;
    int m_channels = 0;
    int m_baseNote = 60;

    // Reading state, under m_readMutex.
    mutable std::mutex m_readMutex;
    LXPlaybackRing m_ring;
    bool m_reading = false;
    int64_t m_next = 0, m_segmentEnd = 0;
    int64_t m_rangeStart = 0, m_rangeEnd = 0;
    int64_t m_repeatStart = 0, m_repeatEnd = 0;

    // Output format and speed.
    double m_outputRate = 0.0;
    int m_maxBlock = 0;
    double m_speed = 1.0;
    std::atomic<double> m_step{1.0}; // file frames per output frame

    // The chain: control threads edit m_entries and publish a plain array for the callback.
    std::vector<std::shared_ptr<LXEffectEntry>> m_entries;
    std::unique_ptr<std::vector<LXEffectEntry*>> m_chainStorage;
    std::atomic<std::vector<LXEffectEntry*>*> m_chain{nullptr};
    std::atomic<int64_t> m_chainLatency{0};
    LXRealtimeGate m_gate;

    // Callback state: four frames of history around the read point (h[1] is the frame at the step's
    // integer position), whether each is a file frame, the fraction between h[1] and h[2].
    const LXPlaybackRing::Block* m_block = nullptr;
    int m_offset = 0;
    bool m_primed = false;
    bool m_sawEnd = false;
    float m_history[4][kOutputChannels] = {};
    int64_t m_index[4] = {-1, -1, -1, -1};
    double m_fraction = 0.0;
    int64_t m_playStart = 0; // the range's start, for the callback
    int64_t m_lastIndex = 0;
    std::atomic<int64_t> m_position{0};
    std::atomic<int64_t> m_underruns{0};
};
