#include "shell/cli/TWProgressBar.h"

#include "engine/TWRunController.h"

#include "model/TWFileEntry.h"
#include "model/TWWorkspace.h"

#include <cmath>
#include <cstdio>
#include <unistd.h>

namespace {
constexpr int kBarWidth = 30;
constexpr qint64 kRedrawMs = 100;
} // namespace

bool TWProgressBar::isTerminal() {
    return ::isatty(STDERR_FILENO) == 1;
}

TWProgressBar::TWProgressBar(TWRunController& runs, QObject* parent)
    : QObject(parent), m_enabled(isTerminal()) {
    if (!m_enabled) return;
    TWWorkspace& workspace = runs.context().workspace;
    connect(&runs, &TWRunController::progressChanged, this,
            [this](const QString& title, qint64 value, qint64 max) {
                m_title = title;
                m_value = value;
                m_maximum = max;
                draw(true);
            });
    connect(&runs, &TWRunController::entryProcessing, this, [this](TWEntry* entry) {
        m_entry = entry;
        m_entryName = entry->name();
        draw(true);
    });
    connect(&workspace, &TWWorkspace::entryChanged, this, [this](TWEntry* entry) {
        if (entry == m_entry) draw();
    });
    m_sinceDraw.start();
}

TWProgressBar::~TWProgressBar() {
    clear();
}

void TWProgressBar::draw(bool force) {
    if (!m_enabled || (!force && m_sinceDraw.elapsed() < kRedrawMs)) return;
    m_sinceDraw.restart();
    // The running file's own progress fills the step it stands for.
    double fraction = 0.0;
    if (auto* file = dynamic_cast<TWFileEntry*>(m_entry); file && m_value < m_maximum) {
        const float status = file->status();
        fraction = std::clamp(double(status - std::trunc(status)), 0.0, 1.0);
    }
    const double done = m_maximum > 0 ? std::min(1.0, (double(m_value) + fraction) / double(m_maximum)) : 0.0;
    const int filled = int(done * kBarWidth);
    const QString line = QStringLiteral("\r%1 [%2%3] %4/%5  %6")
                             .arg(m_title, QString(filled, u'#'), QString(kBarWidth - filled, u' '))
                             .arg(m_value)
                             .arg(m_maximum)
                             .arg(m_entryName.left(40));
    std::fprintf(stderr, "%s\033[K", line.toLocal8Bit().constData());
    std::fflush(stderr);
    m_drawn = true;
}

void TWProgressBar::clear() {
    if (!m_drawn) return;
    std::fprintf(stderr, "\r\033[K");
    std::fflush(stderr);
    m_drawn = false;
}
