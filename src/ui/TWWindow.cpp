#include "ui/TWWindow.h"

#include "model/TWFileEntry.h"
#include "model/TWWorkspace.h"
#include "shell/TWSession.h"
#include "ui/details/TWDetailsView.h"
#include "ui/progress/TWProgressView.h"
#include "ui/waveform/TWWaveformView.h"

#include "platform/TWPreferences.h"
#include "shell/playback/TWPlayer.h"
#include "shell/playback/TWRtAudioOutput.h"
#include "ui/transport/TWTransportView.h"
#include "ui/workflow/TWWorkflowEditorView.h"
#include "engine/TWWorkflowEditor.h"
#include "engine/TWWorkflowFile.h"
#include "platform/TWInteraction.h"
#include "ui/filelist/TWFileListView.h"

#include <QStatusBar>
#include <QToolBar>
#include <QSplitter>

TWWindow::TWWindow(TWSession& session, std::unique_ptr<TWAudioOutput> output, QWidget* parent)
    : QMainWindow(parent), m_session(session) {
    setWindowTitle(QStringLiteral("Clipwright"));
    setObjectName(QStringLiteral("workspaceWindow"));
    m_player = std::make_unique<TWPlayer>(session.workspace(), TWPreferences::shared(),
                                          output ? std::move(output) : std::make_unique<TWRtAudioOutput>());
    if (const LXStatus ready = m_player->construct(); !ready)
        statusBar()->showMessage(QStringLiteral("Nothing can play: %1").arg(ready.error().message()));
    m_sides = new QSplitter(Qt::Horizontal, this);
    m_sides->addWidget(new TWFileListView(session.workspace(), m_sides));
    m_stack = new QSplitter(Qt::Vertical, m_sides);
    m_sides->addWidget(m_stack);
    m_waveform = new TWWaveformView(m_stack);
    m_waveform->setObjectName(QStringLiteral("waveform"));
    m_stack->addWidget(m_waveform);
    m_details = new TWDetailsView(session.workspace(), session.runs(), m_stack);
    m_details->setObjectName(QStringLiteral("details"));
    m_stack->addWidget(m_details);
    m_progress = new TWProgressView(session.workspace(), session.runs(), m_stack);
    m_progress->setObjectName(QStringLiteral("progress"));
    m_stack->addWidget(m_progress);
    // The workflow being edited, as the preferences last kept it.
    m_editor = std::make_unique<TWWorkflowEditor>();
    m_editor->readFromPreferences(TWPreferences::shared());
    m_workflow = new TWWorkflowEditorView(*m_editor, session.runs(), m_stack);
    m_stack->addWidget(m_workflow);
    m_player->setWorkflowEditor(m_editor.get());
    connect(m_workflow, &TWWorkflowEditorView::settingsChanged, m_player.get(), &TWPlayer::updateLivePreviews);
    // The waveform and the workflow take the room; the details and the progress what they need.
    m_progress->setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Maximum);
    for (const auto& [area, stretch] : {std::pair<QWidget*, int>{m_waveform, 3}, {m_details, 2}, {m_progress, 0}, {m_workflow, 3}})
        m_stack->setStretchFactor(m_stack->indexOf(area), stretch);
    m_sides->setStretchFactor(0, 2);
    m_sides->setStretchFactor(1, 3);
    connect(m_workflow, &TWWorkflowEditorView::previewsChanged, m_player.get(), &TWPlayer::updateLivePreviews);
    setCentralWidget(m_sides);
    auto* transport = new QToolBar(QStringLiteral("Transport"), this);
    transport->setObjectName(QStringLiteral("transport"));
    transport->addWidget(new TWTransportView(session.workspace(), *m_player, TWPreferences::shared(), transport));
    addToolBar(Qt::TopToolBarArea, transport);
    resize(1200, 800);
    buildMenus();

    // The waveform's selection is the play range; the playhead follows what is heard.
    connect(m_waveform, &TWWaveformView::selectionChanged, this,
            [this](const LXRange& range) { m_player->setSelectionRange(range); });
    connect(m_player.get(), &TWPlayer::playbackPositionChanged, m_waveform, &TWWaveformView::setPlayhead);
    connect(m_player.get(), &TWPlayer::playbackStopped, this, [this] { m_waveform->setPlayhead(-1); });

    TWWorkspace& workspace = session.workspace();
    connect(&workspace, &TWWorkspace::infoTextChanged, statusBar(), [this](const QString& text) {
        statusBar()->showMessage(text);
    });
    // A workflow file dropped on the list is opened in the editor.
    connect(&workspace, &TWWorkspace::workflowFileDropped, this, &TWWindow::openWorkflow);
    connect(&workspace, &TWWorkspace::selectionChanged, this, [this, &workspace] {
        const QList<TWFileEntryPtr>& selected = workspace.selectedFileEntries();
        const TWFileEntryPtr one = selected.size() == 1 ? selected.first() : nullptr;
        const QString path = one ? one->path() : QString();
        if (path != m_waveform->path()) m_waveform->setFile(path);
        m_details->setEntry(one);
    });
}

void TWWindow::openWorkflow(const QString& path) {
    const LXResult<QVariantList> states = TWWorkflowFile::readStates(path);
    if (!states) {
        TWInteraction::current().runAlert({TWAlertStyle::Warning, QStringLiteral("Workflow Not Opened"),
                                           states.error().description(), {}, 0});
        return;
    }
    m_editor->setState(*states);
    m_workflow->reload();
}

// The workflow's view goes before the workflow it shows; the player stops before the areas that show it go.
TWWindow::~TWWindow() {
    delete m_workflow;
    m_player->setWorkflowEditor(nullptr);
}
