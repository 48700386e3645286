#include "platform/TWInteraction.h"

#include <QCoreApplication>
#include <QThread>

#include <atomic>
#include <mutex>

namespace {
std::atomic<TWInteraction*> g_current{nullptr};

TWDefaultInteraction& defaultInteraction() {
    static TWDefaultInteraction interaction;
    return interaction;
}
} // namespace

TWInteraction& TWInteraction::current() {
    if (TWInteraction* interaction = g_current.load(std::memory_order_acquire)) return *interaction;
    return defaultInteraction();
}

void TWInteraction::setCurrent(TWInteraction* interaction) {
    g_current.store(interaction, std::memory_order_release);
}

int TWInteraction::runAlert(const TWAlert& alert) {
    // The main thread never waits here: a thread holding the lock may be waiting for the main thread to
    // show its question.
    const QCoreApplication* application = QCoreApplication::instance();
    if (application && QThread::currentThread() == application->thread()) return showAlert(alert);
    static std::mutex asking;
    const std::lock_guard lock(asking);
    return showAlert(alert);
}

TWOpenPanelAnswer TWInteraction::runOpenPanelWithCheckBox(const TWOpenPanelOptions& options) {
    return {runOpenPanel(options), options.checkBoxChecked};
}

int TWDefaultInteraction::showAlert(const TWAlert& alert) {
    return alert.defaultButton;
}

QStringList TWDefaultInteraction::runOpenPanel(const TWOpenPanelOptions&) {
    return {};
}

QString TWDefaultInteraction::runSavePanel(const TWSavePanelOptions&) {
    return {};
}
