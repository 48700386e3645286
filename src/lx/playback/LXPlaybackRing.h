#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

// Blocks of a file's frames handed from the stream's reading thread to the audio callback: one producer,
// one consumer, no lock. Every block says where in the file its frames come from, so the callback knows
// the position it plays even across a repeat; an end block (no frames) says the playback is complete.
// The storage is made by reset() on a control thread while neither side uses the ring.
class LXPlaybackRing {
public:
    struct Block {
        std::vector<float> samples; // blockFrames x channels, interleaved
        int64_t start = 0;          // file frame of the first frame
        int frames = 0;
        bool end = false;
    };

    void reset(int blocks, int blockFrames, int channels) {
        m_blocks.resize(size_t(blocks));
        for (Block& block : m_blocks)
            block.samples.assign(size_t(blockFrames) * size_t(channels), 0.0f);
        m_blockFrames = blockFrames;
        clear();
    }
    void clear() {
        m_written.store(0);
        m_read.store(0);
    }
    int blockFrames() const { return m_blockFrames; }
    bool isFull() const { return m_written.load() - m_read.load() == m_blocks.size(); }

    // Producer: the next free block, or nullptr when the ring is full; publish() hands it over.
    Block* writable() {
        const uint64_t written = m_written.load(std::memory_order_relaxed);
        if (m_blocks.empty() || written - m_read.load(std::memory_order_acquire) == m_blocks.size()) return nullptr;
        return &m_blocks[written % m_blocks.size()];
    }
    void publish() { m_written.fetch_add(1, std::memory_order_release); }

    // Consumer: the oldest published block, or nullptr when none is ready; release() frees it.
    const Block* readable() const {
        const uint64_t read = m_read.load(std::memory_order_relaxed);
        if (read == m_written.load(std::memory_order_acquire)) return nullptr;
        return &m_blocks[read % m_blocks.size()];
    }
    void release() { m_read.fetch_add(1, std::memory_order_release); }

private:
    std::vector<Block> m_blocks;
    int m_blockFrames = 0;
    std::atomic<uint64_t> m_written{0};
    std::atomic<uint64_t> m_read{0};
};
