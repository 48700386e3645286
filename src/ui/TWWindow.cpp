#include "ui/TWWindow.h"

#include "model/TWFileEntry.h"
#include "model/TWWorkspace.h"
#include "shell/TWSession.h"
#include "ui/details/TWDetailsView.h"
#include "ui/progress/TWProgressView.h"
#include "ui/waveform/TWWaveformView.h"

#include <QLabel>
#include <QSplitter>

TWWindow::TWWindow(TWSession& session, QWidget* parent) : QMainWindow(parent), m_session(session) {
    setWindowTitle(QStringLiteral("Clipwright"));
    setObjectName(QStringLiteral("workspaceWindow"));
    m_sides = new QSplitter(Qt::Horizontal, this);
    m_stack = new QSplitter(Qt::Vertical, m_sides);
    // Placeholders until each area's feature takes its place.
    for (const char* name : {"fileList"}) {
        auto* area = new QLabel(m_sides);
        area->setObjectName(QLatin1String(name));
        m_sides->insertWidget(0, area);
    }
    m_waveform = new TWWaveformView(m_stack);
    m_waveform->setObjectName(QStringLiteral("waveform"));
    m_stack->addWidget(m_waveform);
    m_details = new TWDetailsView(session.workspace(), session.runs(), m_stack);
    m_details->setObjectName(QStringLiteral("details"));
    m_stack->addWidget(m_details);
    m_progress = new TWProgressView(session.workspace(), session.runs(), m_stack);
    m_progress->setObjectName(QStringLiteral("progress"));
    m_stack->addWidget(m_progress);
    for (const char* name : {"workflow"}) {
        auto* area = new QLabel(m_stack);
        area->setObjectName(QLatin1String(name));
        m_stack->addWidget(area);
    }
    setCentralWidget(m_sides);
    resize(1200, 800);
    buildMenus();

    TWWorkspace& workspace = session.workspace();
    connect(&workspace, &TWWorkspace::selectionChanged, this, [this, &workspace] {
        const QList<TWFileEntryPtr>& selected = workspace.selectedFileEntries();
        const TWFileEntryPtr one = selected.size() == 1 ? selected.first() : nullptr;
        const QString path = one ? one->path() : QString();
        if (path != m_waveform->path()) m_waveform->setFile(path);
        m_details->setEntry(one);
    });
}

TWWindow::~TWWindow() = default;
