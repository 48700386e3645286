#include "ui/waveform/TWWaveformView.h"

#include "lx/LXAudioFile.h"

#include <QKeyEvent>
#include <QPainter>
#include <QtConcurrent/QtConcurrentRun>

#include <algorithm>
#include <cmath>

namespace {

constexpr double kZoomStep = 1.5;
constexpr double kShortestSpan = 0.001; // seconds across the view at the closest zoom
constexpr double kDragThreshold = 3.0;   // pixels a press must move to select

} // namespace

TWWaveformView::TWWaveformView(QWidget* parent) : QWidget(parent) {
    setAccessibleName(QStringLiteral("Waveform"));
    setFocusPolicy(Qt::StrongFocus);
    setMinimumHeight(80);
    setAutoFillBackground(true);
    setBackgroundRole(QPalette::Base);
    connect(&m_loading, &QFutureWatcher<Loaded>::finished, this, [this] {
        m_file = m_loading.result();
        m_span = m_file.duration;
        update();
        emit overviewLoaded();
    });
}

TWWaveformView::~TWWaveformView() {
    m_loading.waitForFinished();
}

TWWaveformView::Loaded TWWaveformView::load(const QString& path) {
    Loaded loaded;
    auto file = LXAudioFile::open(path);
    if (!file) return loaded;
    loaded.duration = (*file)->length();
    loaded.channels = (*file)->numberOfChannels();
    for (const LXLabelList* list : {&(*file)->markerList(), &(*file)->sliceList(), &(*file)->regionList(),
                                    &(*file)->loopList()})
        loaded.labels += list->list();
    if (!LXWaveformCache::shared().overviewForPath(path, &loaded.overview)) loaded.overview = {};
    return loaded;
}

void TWWaveformView::setFile(const QString& path) {
    m_path = path;
    m_file = {};
    m_preview = {};
    m_selection = {};
    m_playhead = -1.0;
    m_start = m_span = 0.0;
    // A later file replaces this one when it comes: the watcher reports its last future alone.
    if (!path.isEmpty()) m_loading.setFuture(QtConcurrent::run(&TWWaveformView::load, path));
    update();
}

void TWWaveformView::setPreview(const TWPreview& preview) {
    m_preview = preview;
    update();
}

void TWWaveformView::setPlayhead(double seconds) {
    m_playhead = seconds;
    update();
}

void TWWaveformView::setSelection(const LXRange& range) {
    m_selection = range;
    update();
}

void TWWaveformView::setVisibleRange(const LXRange& range) {
    m_span = std::clamp(range.length(), std::min(kShortestSpan, m_file.duration), m_file.duration);
    m_start = std::clamp(range.start(), 0.0, std::max(0.0, m_file.duration - m_span));
    update();
}

void TWWaveformView::zoomToSelection() {
    if (m_selection.length() > 0) setVisibleRange(m_selection);
}

void TWWaveformView::zoomBy(double factor, double aboutSeconds) {
    const double span = m_span / factor;
    const double share = m_span > 0 ? (aboutSeconds - m_start) / m_span : 0.5;
    setVisibleRange(LXRange::rangeWithLocation(aboutSeconds - share * span, span));
}

double TWWaveformView::secondsAt(double x) const {
    return width() > 0 ? m_start + x / width() * m_span : 0.0;
}

double TWWaveformView::xAt(double seconds) const {
    return m_span > 0 ? (seconds - m_start) / m_span * width() : 0.0;
}

// Painting
// ------------------------------------------------------------------------------------------------

void TWWaveformView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    if (m_file.duration <= 0 || m_file.channels < 1) return;
    if (m_selection.length() > 0) {
        QColor shade = palette().color(QPalette::Highlight);
        shade.setAlpha(60);
        painter.fillRect(QRectF(xAt(m_selection.start()), 0, xAt(m_selection.end()) - xAt(m_selection.start()), height()),
                         shade);
    }
    paintLanes(painter);
    paintMarks(painter);
}

// Each pixel column a line from the lowest to the highest point of the overview it covers, per channel.
void TWWaveformView::paintLanes(QPainter& painter) const {
    const int channels = m_file.channels;
    const double laneHeight = double(height()) / channels;
    painter.setPen(palette().color(QPalette::Mid));
    for (int c = 0; c < channels; ++c)
        painter.drawLine(QPointF(0, (c + 0.5) * laneHeight), QPointF(width(), (c + 0.5) * laneHeight));
    const LXWaveformOverview* overview = &m_file.overview;
    if (overview->channels < 1) return;
    const qsizetype points = overview->minima.size() / overview->channels;
    if (points < 1) return;
    const double secondsPerPoint = m_file.duration / double(points);
    QList<QLineF> lines;
    lines.reserve(width() * channels);
    for (int x = 0; x < width(); ++x) {
        const qsizetype first = std::clamp<qsizetype>(qsizetype(secondsAt(x) / secondsPerPoint), 0, points - 1);
        const qsizetype last =
            std::clamp<qsizetype>(qsizetype(std::ceil(secondsAt(x + 1) / secondsPerPoint)), first + 1, points);
        for (int c = 0; c < std::min(channels, overview->channels); ++c) {
            float low = 1.0f, high = -1.0f;
            for (qsizetype p = first; p < last; ++p) {
                low = std::min(low, overview->minima[p * overview->channels + c]);
                high = std::max(high, overview->maxima[p * overview->channels + c]);
            }
            const double middle = (c + 0.5) * laneHeight, half = laneHeight / 2 * 0.95;
            lines.append(QLineF(x + 0.5, middle - std::clamp(high, -1.0f, 1.0f) * half, x + 0.5,
                                middle - std::clamp(low, -1.0f, 1.0f) * half));
        }
    }
    painter.setPen(palette().color(QPalette::Text));
    painter.drawLines(lines);
}

// The preview's stretches shaded and its times as lines, the labels with their names, the playhead.
void TWWaveformView::paintMarks(QPainter& painter) const {
    QColor shade = palette().color(QPalette::Shadow);
    shade.setAlpha(90);
    for (const LXRange& range : m_preview.ranges)
        painter.fillRect(QRectF(xAt(range.start()), 0, xAt(range.end()) - xAt(range.start()), height()), shade);
    painter.setPen(QPen(palette().color(QPalette::Highlight), 1, Qt::DashLine));
    for (const double seconds : m_preview.values)
        painter.drawLine(QPointF(xAt(seconds), 0), QPointF(xAt(seconds), height()));

    const QColor labelColor = palette().color(QPalette::Link);
    for (const LXLabel& label : m_file.labels) {
        const double x = xAt(label.start);
        if (label.length > 0) {
            QColor region = labelColor;
            region.setAlpha(40);
            painter.fillRect(QRectF(x, 0, xAt(label.end()) - x, height()), region);
        }
        painter.setPen(labelColor);
        painter.drawLine(QPointF(x, 0), QPointF(x, height()));
        if (!label.name.isEmpty()) painter.drawText(QPointF(x + 3, painter.fontMetrics().ascent()), label.name);
    }
    if (m_playhead >= 0) {
        painter.setPen(QPen(palette().color(QPalette::BrightText), 2));
        painter.drawLine(QPointF(xAt(m_playhead), 0), QPointF(xAt(m_playhead), height()));
    }
}

// Input
// ------------------------------------------------------------------------------------------------

void TWWaveformView::wheelEvent(QWheelEvent* event) {
    const double steps = event->angleDelta().y() / 120.0;
    if (event->modifiers() & Qt::ControlModifier)
        zoomBy(std::pow(kZoomStep, steps), secondsAt(event->position().x()));
    else
        setVisibleRange(LXRange::rangeWithLocation(m_start - steps * m_span / 10, m_span));
    event->accept();
}

void TWWaveformView::keyPressEvent(QKeyEvent* event) {
    const double middle = m_start + m_span / 2;
    switch (event->key()) {
    case Qt::Key_Plus:
    case Qt::Key_Equal: zoomBy(kZoomStep, middle); break;
    case Qt::Key_Minus: zoomBy(1 / kZoomStep, middle); break;
    case Qt::Key_Left: setVisibleRange(LXRange::rangeWithLocation(m_start - m_span / 10, m_span)); break;
    case Qt::Key_Right: setVisibleRange(LXRange::rangeWithLocation(m_start + m_span / 10, m_span)); break;
    default: QWidget::keyPressEvent(event); return;
    }
    event->accept();
}

void TWWaveformView::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) return QWidget::mousePressEvent(event);
    m_pressedAt = event->position().x();
}

void TWWaveformView::mouseMoveEvent(QMouseEvent* event) {
    if (m_pressedAt < 0 || std::abs(event->position().x() - m_pressedAt) < kDragThreshold) return;
    const double a = std::clamp(secondsAt(m_pressedAt), 0.0, m_file.duration);
    const double b = std::clamp(secondsAt(event->position().x()), 0.0, m_file.duration);
    setSelection({std::min(a, b), std::max(a, b)});
}

void TWWaveformView::mouseReleaseEvent(QMouseEvent* event) {
    if (m_pressedAt < 0) return QWidget::mouseReleaseEvent(event);
    if (std::abs(event->position().x() - m_pressedAt) < kDragThreshold) setSelection({});
    m_pressedAt = -1.0;
    emit selectionChanged(m_selection);
}
