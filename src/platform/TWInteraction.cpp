#include "platform/TWInteraction.h"

#include <atomic>

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

TWOpenPanelAnswer TWInteraction::runOpenPanelWithCheckBox(const TWOpenPanelOptions& options) {
    return {runOpenPanel(options), options.checkBoxChecked};
}

int TWDefaultInteraction::runAlert(const TWAlert& alert) {
    return alert.defaultButton;
}

QStringList TWDefaultInteraction::runOpenPanel(const TWOpenPanelOptions&) {
    return {};
}

QString TWDefaultInteraction::runSavePanel(const TWSavePanelOptions&) {
    return {};
}
