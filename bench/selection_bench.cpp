// The file list with many rows: adding N file entries to the root, selecting all of them (the workspace
// rebuilds the selected file entries and the info text), and removing the selection. The entries name
// files that do not exist and are never read, so only the model's own work is timed.
//   selection_bench [N ...]     (default: 10000 40000 100000)

#include "model/TWFileEntry.h"
#include "model/TWGroupEntry.h"
#include "model/TWWorkspace.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include "IsolatedHome.h"

#include <cstdio>
#include <cstdlib>

namespace {

double seconds(const QElapsedTimer& timer) {
    return double(timer.nsecsElapsed()) / 1e9;
}

} // namespace

int main(int argc, char** argv) {
    // A home of its own: the workspace reads the preferences when it is made.
    QTemporaryDir home;
    if (!home.isValid()) return 1;
    useIsolatedHome(home);
    QCoreApplication app(argc, argv);

    QList<qsizetype> counts;
    for (int i = 1; i < argc; ++i)
        counts.append(std::atoll(argv[i]));
    if (counts.isEmpty()) counts = {10000, 40000, 100000};

    TWWorkspace& workspace = TWWorkspace::workspace();
    std::printf("%10s %10s %10s %10s %10s\n", "rows", "add s", "select s", "info s", "remove s");
    for (const qsizetype count : std::as_const(counts)) {
        workspace.clearSelection();
        workspace.removeAll();
        QList<TWEntryPtr> rows;
        rows.reserve(count);
        for (qsizetype i = 0; i < count; ++i) {
            auto entry = std::make_shared<TWFileEntry>();
            entry->setPath(QStringLiteral("/nowhere/take %1.wav").arg(i));
            rows.append(entry);
        }

        QElapsedTimer timer;
        timer.start();
        for (const TWEntryPtr& entry : std::as_const(rows))
            workspace.rootGroup()->addEntry(entry);
        const double add = seconds(timer);

        timer.restart();
        workspace.setSelectedEntries(rows);
        const double select = seconds(timer);
        if (workspace.selectedFileEntries().size() != count) {
            std::fprintf(stderr, "selected %lld file entries, expected %lld\n",
                         qint64(workspace.selectedFileEntries().size()), qint64(count));
            return 1;
        }

        timer.restart();
        const QString info = workspace.infoText();
        const double infoTime = seconds(timer);

        timer.restart();
        workspace.remove();
        const double remove = seconds(timer);
        if (workspace.rootGroup()->entryCount() != 0) {
            std::fprintf(stderr, "%lld rows left after removing all\n",
                         qint64(workspace.rootGroup()->entryCount()));
            return 1;
        }
        std::printf("%10lld %10.3f %10.3f %10.4f %10.3f\n", qint64(count), add, select, infoTime, remove);
        std::fflush(stdout);
        Q_UNUSED(info);
    }
    return 0;
}
