#include "engine/TWHandOver.h"

#include <QMetaObject>
#include <QThread>

#include <deque>
#include <mutex>

// The work travels through a mailbox guarded by a mutex; the queued call that wakes the receiving thread
// carries nothing. Qt's event queue alone would order the two threads just as well, but Qt is not built
// with ThreadSanitizer, which then sees no order between the sender's writes and the receiver's reads,
// nor between a value's use on one thread and its destruction on the other, and reports each as a race.
// The mutex is an order it can see, and the work is destroyed on the thread that ran it.

namespace {

struct Letter {
    QThread* thread;
    std::function<void()> work;
};

std::mutex& mailboxMutex() {
    static std::mutex mutex;
    return mutex;
}

std::deque<Letter>& mailbox() {
    static std::deque<Letter> letters;
    return letters;
}

// The oldest work for this thread: queued calls to one thread arrive in the order they were made.
std::function<void()> takeWorkFor(QThread* thread) {
    std::lock_guard lock(mailboxMutex());
    std::deque<Letter>& letters = mailbox();
    for (auto it = letters.begin(); it != letters.end(); ++it) {
        if (it->thread != thread) continue;
        std::function<void()> work = std::move(it->work);
        letters.erase(it);
        return work;
    }
    return {};
}

} // namespace

void TWHandOver(QObject* receiver, std::function<void()> work) {
    {
        std::lock_guard lock(mailboxMutex());
        mailbox().push_back({receiver->thread(), std::move(work)});
    }
    QMetaObject::invokeMethod(
        receiver,
        [] {
            if (const std::function<void()> letter = takeWorkFor(QThread::currentThread())) letter();
        },
        Qt::QueuedConnection);
}
