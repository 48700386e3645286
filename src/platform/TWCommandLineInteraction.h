#pragma once

#include "platform/TWInteraction.h"

#include <QMutex>

#include <cstdio>

// The command line's way of asking: a flag decides (--yes / --no), or the user answers on the terminal.
// Open and save panels return empty: the command line passes paths as arguments.
class TWCommandLineInteraction : public TWInteraction {
public:
    enum class Policy { Ask, AssumeYes, AssumeNo };

    explicit TWCommandLineInteraction(Policy policy = Policy::Ask);
    // Tests: prompt on these streams, and treat the input as a terminal when interactive is true.
    TWCommandLineInteraction(Policy policy, FILE* input, FILE* output, bool interactive);

    Policy policy() const { return m_policy; }

    int showAlert(const TWAlert& alert) override;
    QStringList runOpenPanel(const TWOpenPanelOptions& options) override;
    QString runSavePanel(const TWSavePanelOptions& options) override;

private:
    int assumedAnswer(const QStringList& buttons, int defaultButton) const;

    Policy m_policy;
    FILE* m_input;
    FILE* m_output;
    bool m_interactive;
    QMutex m_mutex; // one prompt at a time
};
