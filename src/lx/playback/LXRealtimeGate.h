#pragma once

#include <atomic>
#include <thread>

// How a control thread swaps what the audio callback reads without a lock: the callback marks itself
// inside between enter() and leave(); the control thread publishes the new state (an atomic store) and
// then waitIdle()s, after which no callback still holds the old state. Sequentially consistent on both
// sides: a callback that read the old state had entered before the store, so waitIdle() sees it inside.
// The wait is at most one callback (well under a millisecond).
class LXRealtimeGate {
public:
    void enter() { m_inside.store(true); }
    void leave() { m_inside.store(false); }
    void waitIdle() const {
        while (m_inside.load())
            std::this_thread::yield();
    }

private:
    std::atomic<bool> m_inside{false};
};
