#pragma once

// Helpers shared by the player's tests: a workspace with files and a run controller (the engine's
// fixture), and a player on a null output or on a real device.

#include "EngineTestSupport.h"

#include "shell/playback/TWAudioOutput.h"
#include "shell/playback/TWPlayer.h"

namespace PlayerTest {

// What our own reader gives for frames [start, start + count) of a stereo file, interleaved.
inline std::vector<float> framesOf(const QString& path, int64_t start, int64_t count) {
    std::vector<float> samples(size_t(count) * 2);
    auto file = LXAudioFile::open(path);
    EXPECT_TRUE(file) << path.toStdString();
    if (file) {
        EXPECT_TRUE((*file)->readFrames(start, count, samples.data()));
    }
    return samples;
}

class Fixture : public EngineTest::Fixture {
protected:
    void TearDown() override {
        m_player.reset();
        for (const char* key : {"Continue", "Repeat", "Volume", "Varispeed", "MIDI Channel",
                                "MIDI Override Base Note", "Playback Latency Compensation"})
            TWPreferences::shared().removeValue(key);
        EngineTest::Fixture::TearDown();
    }
    TWPlayer& makePlayer(std::unique_ptr<TWAudioOutput> output) {
        m_player = std::make_unique<TWPlayer>(workspace(), TWPreferences::shared(), std::move(output));
        return *m_player;
    }
    // A generated stereo file at 44.1 kHz, added and selected.
    TWFileEntryPtr selectFile(const QString& name, TestAudio::Sound sound) {
        TWFileEntryPtr entry = addFile(name, sound);
        workspace().setSelectedEntries({entry});
        return entry;
    }

    std::unique_ptr<TWPlayer> m_player;
};

} // namespace PlayerTest
