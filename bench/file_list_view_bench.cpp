// The window's file list with many rows, drawn off screen: the time to build a workspace of N file
// entries and to show it in the list for the first time, then the longest stall of the event loop (the
// largest gap between the ticks of a 1 ms timer) while the list is scrolled through, rows are selected
// one after another, every row is selected, and the rows are sorted by peak and by name. The entries stand
// for a few real generated files, their information copied from those files once read, so the figures
// are the list's own work and not the disk's.
//   file_list_view_bench [N]     (default: 100000)

#include "TestAudio.h"

#include "model/TWFileEntry.h"
#include "model/TWGroupEntry.h"
#include "model/TWWorkspace.h"
#include "platform/TWPreferences.h"
#include "ui/filelist/TWFileListModel.h"
#include "ui/filelist/TWFileListView.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QHeaderView>
#include <QScrollBar>
#include <QTemporaryDir>

#include "IsolatedHome.h"
#include <QTimer>

#include <cstdio>
#include <cstdlib>
#include <functional>

namespace {

double seconds(const QElapsedTimer& timer) {
    return double(timer.nsecsElapsed()) / 1e9;
}

// Runs the steps one per turn of the event loop while a 1 ms timer ticks, and answers the largest gap
// between two ticks, in milliseconds.
double longestStall(QApplication& app, const QList<std::function<void()>>& steps) {
    QElapsedTimer clock;
    clock.start();
    qint64 last = clock.nsecsElapsed(), longest = 0;
    QTimer ticker;
    ticker.setTimerType(Qt::PreciseTimer);
    ticker.setInterval(1);
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        const qint64 now = clock.nsecsElapsed();
        longest = std::max(longest, now - last);
        last = now;
    });
    qsizetype next = 0;
    QTimer driver;
    driver.setTimerType(Qt::PreciseTimer);
    driver.setInterval(3);
    QObject::connect(&driver, &QTimer::timeout, [&] {
        if (next == steps.size()) {
            app.exit();
            return;
        }
        steps.at(next++)();
    });
    ticker.start();
    driver.start();
    last = clock.nsecsElapsed();
    app.exec();
    return double(longest) / 1e6;
}

} // namespace

int main(int argc, char** argv) {
    // A home of its own, and no display needed.
    QTemporaryDir home;
    if (!home.isValid()) return 1;
    useIsolatedHome(home);
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    TWPreferences::shared().registerDefaults(TWPreferences::standardDefaults());
    const qsizetype count = argc > 1 ? std::atoll(argv[1]) : 100000;

    // A few real files of different lengths and levels, read and measured once.
    QList<TWFileEntryPtr> models;
    for (int i = 0; i < 8; ++i) {
        TestAudio::Sound sound;
        sound.frames = 4410 * (i + 1);
        sound.amplitude = 0.1 * (i + 1);
        const auto written = TestAudio::write(home.filePath(QStringLiteral("take %1.wav").arg(i)), sound);
        if (!written) return 1;
        const TWFileEntryPtr entry = TWFileEntry::create(*written);
        if (!entry || !entry->analyze()) return 1;
        models.append(entry);
    }

    TWWorkspace& workspace = TWWorkspace::workspace();
    QElapsedTimer timer;
    timer.start();
    QList<TWEntryPtr> rows;
    rows.reserve(count);
    for (qsizetype i = 0; i < count; ++i) {
        const TWFileEntryPtr& model = models.at(i % models.size());
        auto entry = std::make_shared<TWFileEntry>();
        entry->setPath(model->path());
        const QVariantMap info = model->info();
        for (auto it = info.cbegin(); it != info.cend(); ++it)
            entry->setInfoValue(it.key(), it.value());
        entry->setInfoValue(QStringLiteral("name"), QStringLiteral("take %1.wav").arg(i));
        entry->setMax(float(i % 997) / 997.0f); // peaks to sort by
        entry->setStatus(TWStatus::ReadyWithOverview);
        rows.append(entry);
    }
    workspace.rootGroup()->insertEntries(rows, 0);
    const double build = seconds(timer);

    timer.restart();
    TWFileListView view(workspace);
    view.resize(1200, 800);
    view.show();
    view.viewport()->repaint();
    QCoreApplication::processEvents();
    const double firstShow = seconds(timer);

    QScrollBar* scroll = view.verticalScrollBar();
    QList<std::function<void()>> scrolling, selecting;
    for (int step = 0; step <= 200; ++step)
        scrolling.append([scroll, step] { scroll->setValue(scroll->maximum() / 200 * step); });
    TWFileListModel& model = view.fileListModel();
    for (int step = 0; step < 100; ++step)
        selecting.append([&view, &model, step, count] {
            const QModelIndex row = model.index(int(qsizetype(step) * 997 % count), 0);
            view.selectionModel()->setCurrentIndex(row, QItemSelectionModel::ClearAndSelect |
                                                            QItemSelectionModel::Rows);
            view.scrollTo(row);
        });
    timer.restart();
    const double scrollStall = longestStall(app, scrolling);
    const double scrollTime = seconds(timer);
    timer.restart();
    const double selectStall = longestStall(app, selecting);
    const double selectTime = seconds(timer);
    timer.restart();
    const double allStall = longestStall(app, {[&view] { view.selectAll(); }});
    const qsizetype selected = workspace.selectedEntries().size();
    const int peak = model.columnOfKey(QStringLiteral("max")),
              name = model.columnOfKey(QStringLiteral("name"));
    const double sortStall =
        longestStall(app, {[&view] { view.clearSelection(); },
                           [&view, peak] { view.header()->setSortIndicator(peak, Qt::AscendingOrder); },
                           [&view, name] { view.header()->setSortIndicator(name, Qt::AscendingOrder); }});

    std::printf("rows %lld: build %.3f s, first show %.3f s\n", qint64(count), build, firstShow);
    std::printf(
        "longest stall: scrolling %.1f ms (201 steps in %.2f s), selecting %.1f ms (100 rows in %.2f s),\n"
        "               select all %.1f ms (%lld rows), sort by peak then by name %.1f ms\n",
        scrollStall, scrollTime, selectStall, selectTime, allStall, qint64(selected), sortStall);
    if (selected != count) std::printf("note: %lld rows selected of %lld\n", qint64(selected), qint64(count));
    return 0;
}
