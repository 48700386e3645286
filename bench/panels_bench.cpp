// The workflow editor's panels, off screen: how long each registered action's panel takes to draw, how
// long a slider step takes on an effect's panel (the model asks again which controls there are), and a
// workflow of N actions added to the editor view one by one. A frame is 16 ms: anything near it is felt.
//   panels_bench [N]     (default: 50)

#include "engine/TWAction.h"
#include "engine/TWActionRegistry.h"
#include "engine/TWEngineContext.h"
#include "engine/TWRunController.h"
#include "engine/TWUndoJournal.h"
#include "engine/TWWorkflowEditor.h"
#include "model/TWWorkspace.h"
#include "platform/TWInteraction.h"
#include "platform/TWPreferences.h"
#include "ui/workflow/TWPanelView.h"
#include "ui/workflow/TWWorkflowEditorView.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QSlider>
#include <QTemporaryDir>

#include "IsolatedHome.h"

#include <cstdio>
#include <cstdlib>

namespace {

double milliseconds(const QElapsedTimer& timer) {
    return double(timer.nsecsElapsed()) / 1e6;
}

} // namespace

int main(int argc, char** argv) {
    QTemporaryDir home;
    if (!home.isValid()) return 1;
    useIsolatedHome(home);
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const int count = argc > 1 ? std::atoi(argv[1]) : 50;

    double total = 0, slowest = 0;
    QString slowestClass;
    for (const QString& className : TWActionRegistry::classNames()) {
        const std::unique_ptr<TWAction> action = TWActionRegistry::make(className);
        QElapsedTimer timer;
        timer.start();
        TWPanelModel model(*action);
        TWPanelView view(model);
        view.show();
        const double took = milliseconds(timer);
        total += took;
        if (took > slowest) {
            slowest = took;
            slowestClass = className;
        }
    }
    std::printf("panels of %lld actions: %.1f ms in all, slowest %.2f ms (%s)\n",
                qlonglong(TWActionRegistry::classNames().size()), total, slowest, qPrintable(slowestClass));

    // An effect's parameter moved by one tick, through the widget: the first installed effect.
    const std::unique_ptr<TWAction> unit = TWActionRegistry::make(QStringLiteral("TWActionAudioUnit"));
    TWPanelModel unitModel(*unit);
    TWPanelView unitView(unitModel);
    if (unitModel.controls().first().choices.size() > 1) {
        unitModel.setValue(0, unitModel.controls().first().choices.at(1).value);
        if (QSlider* slider = unitView.findChild<QSlider*>()) {
            constexpr int kSteps = 100;
            QElapsedTimer timer;
            timer.start();
            for (int i = 0; i < kSteps; ++i)
                slider->setValue(i % 2 == 0 ? slider->minimum() : slider->maximum());
            std::printf("an effect's slider step (%s): %.2f ms\n", qPrintable(unitModel.text(0)),
                        milliseconds(timer) / kSteps);
        }
    }

    TWDefaultInteraction interaction;
    TWRunController runs(TWEngineContext{TWWorkspace::workspace(), TWPreferences::shared(),
                                         TWUndoJournal::shared(), interaction});
    TWWorkflowEditor editor;
    TWWorkflowEditorView view(editor, runs);
    view.show();
    const QStringList classes = TWActionRegistry::classNames();
    QElapsedTimer timer;
    timer.start();
    double slowestInsert = 0;
    for (int i = 0; i < count; ++i) {
        QElapsedTimer one;
        one.start();
        view.insertAction(classes.at(i % classes.size()), editor.count());
        slowestInsert = std::max(slowestInsert, milliseconds(one));
    }
    std::printf("a workflow of %d actions added one by one: %.1f ms, the slowest addition %.2f ms\n", count,
                milliseconds(timer), slowestInsert);
    view.reload();
    return 0;
}
