#include "ui/TWWindow.h"

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
    for (const char* name : {"waveform", "details", "workflow"}) {
        auto* area = new QLabel(m_stack);
        area->setObjectName(QLatin1String(name));
        m_stack->addWidget(area);
    }
    setCentralWidget(m_sides);
    resize(1200, 800);
}

TWWindow::~TWWindow() = default;
