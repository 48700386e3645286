// A typical session in the window, driven as a user would: a folder of samples added, sorted by peak,
// one chosen with the keyboard, a workflow built and run, the run undone. With CLIPWRIGHT_SCREENSHOTS
// set to a folder, the window is saved there at each step (docs/screenshots come from this test).

#include "TestAudio.h"
#include "engine/TWRunController.h"
#include "lx/LXAnalysis.h"
#include "lx/LXAudioFile.h"
#include "model/TWFileEntry.h"
#include "model/TWWorkspace.h"
#include "platform/TWScriptedInteraction.h"
#include "shell/TWSession.h"
#include "shell/playback/TWNullOutput.h"
#include "ui/TWWindow.h"
#include "ui/filelist/TWFileListModel.h"
#include "ui/filelist/TWFileListView.h"
#include "ui/waveform/TWWaveformView.h"
#include "ui/workflow/TWActionView.h"
#include "ui/workflow/TWWorkflowEditorView.h"

#include <QDir>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QUndoStack>

#include <gtest/gtest.h>

namespace {

void screenshot(QWidget& window, const char* name) {
    const QString folder = qEnvironmentVariable("CLIPWRIGHT_SCREENSHOTS");
    if (folder.isEmpty()) return;
    QDir().mkpath(folder);
    window.grab().save(QDir(folder).filePath(QLatin1String(name) + QStringLiteral(".png")));
}

double peakOf(const QString& path) {
    const auto decoded = TestAudio::readWithSox(path);
    double peak = 0.0;
    for (const double sample : decoded ? decoded->samples : std::vector<double>()) peak = std::max(peak, std::abs(sample));
    return peak;
}

} // namespace

TEST(Session, AddSortSelectBuildRunAndUndo) {
    TWScriptedInteraction interaction;
    TWSession session(TWSession::FrontEnd::Window, interaction);
    session.workspace().removeAll();
    TWWindow window(session, std::make_unique<TWNullOutput>());
    window.resize(1400, 900);
    window.show();

    // A folder of takes at three levels, analysed as the window's analysis would.
    QTemporaryDir dir;
    const QString folder = dir.filePath("takes");
    QDir().mkpath(folder);
    const QList<std::pair<const char*, double>> takes{{"kick.wav", 0.9}, {"snare.wav", 0.3}, {"hat.wav", 0.6}};
    for (const auto& [name, amplitude] : takes) {
        const auto written = TestAudio::write(QDir(folder).filePath(name),
                                              {.signal = TestAudio::Signal::Sine, .frames = 22050, .amplitude = amplitude});
        ASSERT_TRUE(written);
        ASSERT_TRUE(LXAnalyze(**LXAudioFile::open(*written), 0));
    }
    session.workspace().addFiles({folder});
    auto* list = window.findChild<TWFileListView*>("fileList");
    ASSERT_NE(list, nullptr);
    list->expandAll();
    ASSERT_TRUE(QTest::qWaitFor([&] { return session.workspace().fileEntries().size() == 3; }, 5000));
    screenshot(window, "1-added");

    // Sorted by peak, loudest last; the keyboard chooses the first row's file.
    TWFileListModel& model = list->fileListModel();
    list->sortByColumn(model.columnOfKey("max"), Qt::AscendingOrder);
    list->setFocus();
    const QModelIndex group = model.index(0, 0);
    list->setCurrentIndex(model.index(0, 0, group));
    QTest::keyClick(list, Qt::Key_Down);
    ASSERT_EQ(session.workspace().selectedFileEntries().size(), 1);
    EXPECT_TRUE(session.workspace().selectedFileEntries().first()->path().endsWith("hat.wav"));
    auto* waveform = window.findChild<TWWaveformView*>("waveform");
    QSignalSpy shown(waveform, &TWWaveformView::overviewLoaded);
    ASSERT_TRUE(shown.wait(5000));
    screenshot(window, "2-selected");

    // Normalize to -1 dB over the selection, run from the editor.
    auto* editor = window.findChild<TWWorkflowEditorView*>("workflow");
    ASSERT_NE(editor, nullptr);
    while (!editor->actionViews().empty()) editor->removeAction(0);
    TWActionView* normalize = editor->insertAction("TWActionNormalize", 0);
    ASSERT_NE(normalize, nullptr);
    QLineEdit* level = nullptr; // typed as a user types it
    for (auto* field : normalize->findChildren<QLineEdit*>())
        if (field->accessibleName() == "Level") level = field;
    ASSERT_NE(level, nullptr);
    level->clear();
    QTest::keyClicks(level, "-1");
    QTest::keyClick(level, Qt::Key_Return);
    EXPECT_EQ(normalize->action().objectForInstructionKey("level").toDouble(), -1.0);
    const QString hat = session.workspace().selectedFileEntries().first()->path();
    QSignalSpy ended(&session.runs(), &TWRunController::processEnded);
    editor->runButton().click();
    ASSERT_TRUE(QTest::qWaitFor([&] {
        return std::any_of(ended.begin(), ended.end(),
                           [](const QList<QVariant>& end) { return end.first().toString().startsWith("Process"); });
    }, 20000));
    EXPECT_NEAR(20 * std::log10(peakOf(hat)), -1.0, 0.05);
    screenshot(window, "3-processed");

    // Undone: the take is as it was.
    ASSERT_TRUE(QTest::qWaitFor([&] { return session.runs().undoStack().canUndo(); }, 5000));
    session.runs().undoStack().undo();
    EXPECT_TRUE(QTest::qWaitFor([&] { return std::abs(peakOf(hat) - 0.6) < 0.001; }, 20000));
}
