#pragma once

#include "shell/playback/TWAudioOutput.h"

#include <QMainWindow>

#include <memory>

class QSplitter;

class TWPlayer;
class TWSession;
class TWWorkflowEditor;
class TWWorkflowEditorView;
class TWDetailsView;
class TWProgressView;
class TWWaveformView;

// The workspace window: the file list on the left; on the right the waveform, the details of the
// selection and the workflow editor, one above the other. Each area is a feature of its own
// (src/ui/<feature>/) that the window places; the window owns no state of the workspace's.
class TWWindow final : public QMainWindow {
    Q_OBJECT
public:
    // The player plays through output (nullptr: the default device through RtAudio); without a device
    // that opens, the window works and nothing plays.
    explicit TWWindow(TWSession& session, std::unique_ptr<TWAudioOutput> output = nullptr, QWidget* parent = nullptr);
    ~TWWindow() override;

    TWSession& session() const { return m_session; }
    TWPlayer& player() const { return *m_player; }
    // Replaces the edited workflow with the file's (an alert says why when it cannot be read).
    void openWorkflow(const QString& path);

private:
    void buildMenus();

    TWSession& m_session;
    std::unique_ptr<TWWorkflowEditor> m_editor;
    std::unique_ptr<TWPlayer> m_player;
    QSplitter* m_sides = nullptr; // the file list | the rest
    QSplitter* m_stack = nullptr; // waveform, details, workflow
    TWWaveformView* m_waveform = nullptr;
    TWDetailsView* m_details = nullptr;
    TWProgressView* m_progress = nullptr;
    TWWorkflowEditorView* m_workflow = nullptr;
};
