// The workflow editor as the window shows it: actions added from the catalogue, edited, run on real files.

#include "ModelTestSupport.h"
#include "TestAudio.h"
#include "engine/TWRunController.h"
#include "engine/TWUndoJournal.h"
#include "engine/TWWorkflowEditor.h"
#include "model/TWWorkspace.h"
#include "platform/TWPreferences.h"
#include "ui/workflow/TWActionCatalogue.h"
#include "ui/workflow/TWActionView.h"
#include "ui/workflow/TWPanelView.h"
#include "ui/workflow/TWWorkflowEditorView.h"

#include <QComboBox>
#include <QDropEvent>
#include <QLineEdit>
#include <QMimeData>
#include <QPushButton>
#include <QStandardItemModel>
#include <QTest>
#include <QToolButton>

#include <gtest/gtest.h>

#include <cmath>

namespace {

class WorkflowEditorView : public ModelTest::Fixture {
protected:
    void SetUp() override {
        ModelTest::Fixture::SetUp();
        m_runs = std::make_unique<TWRunController>(
            TWEngineContext{workspace(), TWPreferences::shared(), TWUndoJournal::shared(), m_interaction});
        m_runs->setHeadless(true);
        m_view = std::make_unique<TWWorkflowEditorView>(m_editor, *m_runs);
        m_view->resize(1000, 700);
        m_view->show();
    }
    void TearDown() override {
        m_view.reset();
        m_editor.removeAllActions();
        m_runs.reset();
        ModelTest::Fixture::TearDown();
    }

    template <typename T> static T* named(QWidget& within, const QString& name) {
        for (T* widget : within.findChildren<T*>())
            if (widget->accessibleName() == name) return widget;
        ADD_FAILURE() << "no widget named " << name.toStdString();
        return nullptr;
    }

    TWWorkflowEditor m_editor;
    std::unique_ptr<TWRunController> m_runs;
    std::unique_ptr<TWWorkflowEditorView> m_view;
};

double peakOf(const QString& path) {
    const auto decoded = TestAudio::readWithSox(path);
    EXPECT_TRUE(decoded.ok());
    double peak = 0;
    if (decoded)
        for (double sample : decoded->samples)
            peak = std::max(peak, std::fabs(sample));
    return peak;
}

} // namespace

TEST_F(WorkflowEditorView, ANormalizeAddedByDoubleClickRunsOnARealFile) {
    TestAudio::Sound sound;
    sound.frames = 44100;
    sound.amplitude = 0.25;
    ASSERT_TRUE(TestAudio::write(path("take.wav"), sound).ok());
    workspace().setSelectedEntries(workspace().addFiles({path("take.wav")}));
    const double before = peakOf(path("take.wav"));

    TWActionCatalogue& catalogue = m_view->catalogue();
    QTreeWidgetItem* normalize = catalogue.itemForClass("TWActionNormalize");
    ASSERT_NE(normalize, nullptr);
    EXPECT_EQ(normalize->parent()->text(0), "Level");
    catalogue.scrollToItem(normalize);
    const QPoint at = catalogue.visualItemRect(normalize).center();
    // A double click is a press and release, then a press that the view takes as the double click.
    QTest::mouseClick(catalogue.viewport(), Qt::LeftButton, {}, at);
    QTest::mouseDClick(catalogue.viewport(), Qt::LeftButton, {}, at);
    ASSERT_EQ(m_editor.count(), 1);
    ASSERT_EQ(m_view->actionViews().size(), 1u);

    TWActionView& panel = *m_view->actionViews().front();
    QLineEdit* level = named<QLineEdit>(panel, "Level");
    ASSERT_NE(level, nullptr);
    level->clear();
    QTest::keyClicks(level, "-1");
    QTest::keyClick(level, Qt::Key_Return);
    EXPECT_EQ(m_editor.instructions().first().toMap()["level"], -1.0);

    bool ended = false;
    QObject::connect(m_runs.get(), &TWRunController::processEnded, m_view.get(), [&] { ended = true; });
    ASSERT_TRUE(m_view->runButton().isEnabled());
    QTest::mouseClick(&m_view->runButton(), Qt::LeftButton);
    ASSERT_TRUE(ModelTest::runUntil([&] { return ended; }));
    EXPECT_TRUE(m_runs->lastErrorDescription().isEmpty()) << m_runs->lastErrorDescription().toStdString();
    EXPECT_NEAR(peakOf(path("take.wav")), std::pow(10.0, -1.0 / 20), 1e-3) << "before " << before;
    EXPECT_EQ(TWPreferences::shared().value("Workflow").toList(), m_editor.state());
}

TEST_F(WorkflowEditorView, PanelsMoveAndGoWithTheirActionsAndTheFirstTakesNoPreviousResults) {
    m_view->insertAction("TWActionNormalize", 0);
    TWActionView* gain = m_view->insertAction("TWActionChangeGain", 1);
    ASSERT_NE(gain, nullptr);
    EXPECT_EQ(m_view->insertAction("TWActionNoSuchThing", 0), nullptr);
    auto* source = named<QComboBox>(*gain, "Source");
    ASSERT_NE(source, nullptr);
    source->setFocus();
    QTest::keyClick(source, Qt::Key_Down); // the selection, then the previous results
    EXPECT_EQ(gain->action().source(), 2);

    named<QToolButton>(*gain, "Move up")->click();
    EXPECT_EQ(m_editor.actionAt(0), &gain->action());
    EXPECT_EQ(m_view->actionViews().front(), gain);
    EXPECT_EQ(gain->action().source(), 1);
    EXPECT_EQ(source->currentText(), "Selected files");
    EXPECT_FALSE(qobject_cast<QStandardItemModel*>(source->model())->item(2)->isEnabled());

    named<QToolButton>(*m_view->actionViews().back(), "Remove")->click();
    EXPECT_EQ(m_editor.count(), 1);
    EXPECT_EQ(m_view->actionViews().size(), 1u);
    named<QToolButton>(*gain, "Remove")->click();
    EXPECT_FALSE(m_view->runButton().isEnabled());
}

TEST_F(WorkflowEditorView, OtherAsksForAFolderAndACancelKeepsTheDestination) {
    TWActionView* view = m_view->insertAction("TWActionChangeGain", 0);
    auto* destination = named<QComboBox>(*view, "Destination");
    ASSERT_NE(destination, nullptr);
    const QString folder = makeDirectory("out");
    m_interaction.answerOpenPanels({{folder}, {}});
    QTest::keyClick(destination, Qt::Key_End); // "Other..."
    EXPECT_EQ(view->action().destinationTag(), TWDestinationTag::ChosenDirectory);
    EXPECT_EQ(view->action().directory(), folder);
    EXPECT_EQ(destination->currentText(), "out");
    ASSERT_EQ(m_interaction.openPanels().size(), 1);
    EXPECT_TRUE(m_interaction.openPanels().first().chooseDirectories);

    QTest::keyClick(destination, Qt::Key_End);
    EXPECT_EQ(view->action().directory(), folder);
    EXPECT_EQ(destination->currentText(), "out");
    EXPECT_EQ(m_editor.instructions().first().toMap()["destination"].toMap()["directory"], folder);
}

TEST_F(WorkflowEditorView, AnActionDraggedFromTheCatalogueGoesWhereItIsDropped) {
    m_view->insertAction("TWActionNormalize", 0);
    m_view->insertAction("TWActionChangeGain", 1);
    QCoreApplication::processEvents(); // the panels laid out
    TWActionCatalogue& catalogue = m_view->catalogue();
    catalogue.setCurrentItem(catalogue.itemForClass("TWActionReverse"));
    const std::unique_ptr<QMimeData> dragged(catalogue.model()->mimeData({catalogue.currentIndex()}));
    ASSERT_NE(dragged, nullptr);

    // Over the top of the second panel: before it. The application sends a move and the drop only to the
    // widget that took the drag's entry.
    const QPointF at = m_view->actionViews()[1]->mapTo(m_view.get(), QPoint(20, 4));
    QDragEnterEvent enter(at.toPoint(), Qt::CopyAction, dragged.get(), Qt::LeftButton, {});
    QCoreApplication::sendEvent(m_view.get(), &enter);
    QDragMoveEvent move(at.toPoint(), Qt::CopyAction, dragged.get(), Qt::LeftButton, {});
    QCoreApplication::sendEvent(m_view.get(), &move);
    EXPECT_TRUE(move.isAccepted());
    QDropEvent drop(at, Qt::CopyAction, dragged.get(), Qt::LeftButton, {});
    QCoreApplication::sendEvent(m_view.get(), &drop);
    ASSERT_EQ(m_editor.count(), 3);
    EXPECT_EQ(m_editor.actionAt(1)->className(), "TWActionReverse");
    EXPECT_EQ(&m_view->actionViews()[1]->action(), m_editor.actionAt(1));
}
