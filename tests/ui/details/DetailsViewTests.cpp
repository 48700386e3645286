// The details of the selected file: its fields as `clipwright info` shows them, and an edit that runs the
// property action on the file, with undo.

#include "TestAudio.h"
#include "engine/TWRunController.h"
#include "lx/LXAudioFile.h"
#include "model/TWWorkspace.h"
#include "platform/TWScriptedInteraction.h"
#include "shell/TWSession.h"
#include "ui/details/TWDetailsView.h"

#include <QSignalSpy>
#include <QTest>
#include <QUndoStack>
#include <QTemporaryDir>

#include <gtest/gtest.h>

TEST(Details, ShowTheFieldsAndAnEditWritesTheFileWithUndo) {
    TWScriptedInteraction interaction;
    TWSession session(TWSession::FrontEnd::Window, interaction);
    QTemporaryDir dir;
    const QString path = *TestAudio::write(dir.filePath("take.wav"), {.rate = 48000});
    const auto added = session.workspace().addFiles({path});
    ASSERT_EQ(added.size(), 1);
    TWDetailsView details(session.workspace(), session.runs());
    details.setEntry(std::dynamic_pointer_cast<TWFileEntry>(added.first()));

    const auto rowOf = [&](const QString& title) {
        for (int row = 0; row < details.rowCount(); ++row)
            if (details.item(row, 0)->text() == title) return row;
        return -1;
    };
    const int rate = rowOf("Sample Rate");
    ASSERT_GE(rate, 0);
    EXPECT_TRUE(details.item(rate, 1)->text().startsWith("48")) << details.item(rate, 1)->text().toStdString();
    EXPECT_FALSE(details.item(rate, 1)->flags() & Qt::ItemIsEditable); // the rate is the audio's
    EXPECT_EQ(details.actionForKey("title"), "TWActionSetMetadata");
    EXPECT_EQ(details.actionForKey("tempo"), "TWActionSetMusicalProperty");

    // An empty field the property actions write has a row to fill in.
    QSignalSpy ended(&session.runs(), &TWRunController::processEnded);
    const int title = rowOf("Title");
    ASSERT_GE(title, 0);
    EXPECT_TRUE(details.item(title, 1)->text().isEmpty());
    details.item(title, 1)->setText("Kick 01");
    // The analysis of the new entry ends too: the edit's run is the one named "Process".
    const auto processed = [&] {
        return std::any_of(ended.begin(), ended.end(), [](const QList<QVariant>& end) {
            return end.first().toString().startsWith("Process");
        });
    };
    ASSERT_TRUE(QTest::qWaitFor(processed, 10000));
    EXPECT_EQ((*LXAudioFile::open(path))->metadata().value("title").toString(), "Kick 01");
    // The entry reads the file again, and the undo step is recorded, once the run's end reaches them.
    EXPECT_TRUE(QTest::qWaitFor([&] { return details.item(rowOf("Title"), 1)->text() == "Kick 01"; }, 5000));
    ASSERT_TRUE(QTest::qWaitFor([&] { return session.runs().undoStack().canUndo(); }, 5000));
    ended.clear();
    session.runs().undoStack().undo();
    ASSERT_TRUE(QTest::qWaitFor(processed, 10000));
    EXPECT_TRUE((*LXAudioFile::open(path))->metadata().value("title").toString().isEmpty());
}
