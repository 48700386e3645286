#pragma once

#include "engine/TWAction.h"

#include "lx/LXLabel.h"
#include "lx/LXRange.h"
#include "lx/LXWaveformCache.h"

#include <QFutureWatcher>
#include <QWidget>

#include <memory>

// The selected file's waveform: every channel in a lane of its own, drawn from the waveform cache's
// overview, with the file's labels (both read on a worker thread, so an hour's file or a slow disk never
// stalls the window), the
// workflow's preview (shaded stretches, lines at the times it names), the selection and the playhead.
//
// Zoom and scroll: Ctrl and the wheel zoom about the pointer, the wheel alone scrolls, + and - zoom about
// the middle, the arrow keys scroll, zoomToSelection() shows the selection whole. A drag selects; the
// selection is the play range (selectionChanged), a click without a drag clears it. All in seconds.
class TWWaveformView final : public QWidget {
    Q_OBJECT
public:
    explicit TWWaveformView(QWidget* parent = nullptr);
    ~TWWaveformView() override;

    // The file to show (empty: none); it appears once read (overviewLoaded), blank when it has no
    // analysis yet or cannot be read.
    void setFile(const QString& path);
    QString path() const { return m_path; }
    void setPreview(const TWPreview& preview);
    void setPlayhead(double seconds); // < 0: none

    LXRange selection() const { return m_selection; }
    void setSelection(const LXRange& range);
    LXRange visibleRange() const { return {m_start, m_start + m_span}; }
    void setVisibleRange(const LXRange& range);
    void zoomToSelection();
    void zoomBy(double factor, double aboutSeconds);

signals:
    void selectionChanged(const LXRange& range);
    void overviewLoaded();

protected:
    void paintEvent(QPaintEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    double secondsAt(double x) const;
    double xAt(double seconds) const;
    void paintLanes(QPainter& painter) const;
    void paintMarks(QPainter& painter) const;

    // What a worker reads of the file.
    struct Loaded {
        double duration = 0.0;
        int channels = 0;
        LXWaveformOverview overview;
        QList<LXLabel> labels;
    };
    static Loaded load(const QString& path);

    QString m_path;
    Loaded m_file;
    QFutureWatcher<Loaded> m_loading;
    TWPreview m_preview;
    double m_playhead = -1.0;
    LXRange m_selection;
    double m_start = 0.0, m_span = 0.0; // the visible stretch
    double m_pressedAt = -1.0;          // where a drag began, or -1
};
