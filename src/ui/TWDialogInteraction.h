#pragma once

#include "platform/TWInteraction.h"

// The window's way of asking: Qt's message boxes and file dialogs. A question from the work thread is
// handed to the main thread, which shows it; the work thread waits for the answer.
class TWDialogInteraction final : public TWInteraction {
public:
    QStringList runOpenPanel(const TWOpenPanelOptions& options) override;
    QString runSavePanel(const TWSavePanelOptions& options) override;
    TWOpenPanelAnswer runOpenPanelWithCheckBox(const TWOpenPanelOptions& options) override;

protected:
    int showAlert(const TWAlert& alert) override;
};
