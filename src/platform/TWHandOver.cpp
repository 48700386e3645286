#include "platform/TWHandOver.h"

#include <QMetaObject>

#include <memory>
#include <mutex>

// Qt's queued call orders the two threads, but Qt is not built with ThreadSanitizer, which then sees no
// order between what the sender writes (the work, and the queued call's own copy of it) and what the
// receiver reads or destroys, and reports each as a race. So every touch of the envelope holding the
// work happens under one mutex, taken by the sender while it makes the call and by the receiver before
// it opens the envelope: an order the sanitizer can see. The envelope travels inside the call, so a call
// Qt drops (its receiver gone) takes its work with it, destroyed under the same mutex.

namespace {

// Recursive: the sender holds it while Qt moves the envelope, and a moved-from envelope's destructor
// takes it again.
std::recursive_mutex& handOverMutex() {
    static std::recursive_mutex mutex;
    return mutex;
}

class Envelope {
public:
    explicit Envelope(std::function<void()> work)
        : m_work(std::make_unique<std::function<void()>>(std::move(work))) {}
    Envelope(Envelope&&) = default;
    Envelope& operator=(Envelope&&) = delete;
    ~Envelope() {
        std::lock_guard lock(handOverMutex());
        m_work.reset();
    }

    std::function<void()> open() {
        std::lock_guard lock(handOverMutex());
        std::function<void()> work = std::move(*m_work);
        m_work.reset();
        return work;
    }

private:
    std::unique_ptr<std::function<void()>> m_work;
};

} // namespace

void TWHandOver(QObject* receiver, std::function<void()> work) {
    std::lock_guard sent(handOverMutex());
    QMetaObject::invokeMethod(
        receiver, [envelope = Envelope(std::move(work))]() mutable { envelope.open()(); },
        Qt::QueuedConnection);
}
