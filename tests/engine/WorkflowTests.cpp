// Workflow files, the editor's list of actions and the library of factory and user workflows, on real
// files in temporary folders. Python's plistlib (Debian's /usr/bin/python3) reads and writes property
// lists independently of libplist.

#include "engine/TWActionRegistry.h"
#include "engine/TWWorkflowEditor.h"
#include "engine/TWWorkflowFile.h"
#include "engine/TWWorkflowLibrary.h"
#include "platform/TWPreferences.h"
#include "platform/TWPropertyList.h"

#include "ModelTestSupport.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

const QString kNormalize = QStringLiteral("TWActionNormalize");
const QString kChangeGain = QStringLiteral("TWActionChangeGain");
const QString kBalance = QStringLiteral("TWActionBalance");

QStringList classesOf(const QVariantList& states) {
    QStringList classes;
    for (const QVariant& state : states)
        classes.append(state.toMap().value(QStringLiteral("class")).toString());
    return classes;
}

QVariantMap stateOf(const QString& className, int source) {
    auto action = TWActionRegistry::make(className);
    action->setSource(source);
    return action->state();
}

// Every kind of setting a file must keep: an inactive action, a chosen directory, a level that is no
// round binary number, folded and unfolded panels, preview.
void fillEditor(TWWorkflowEditor& editor, const QString& directory) {
    TWAction* normalize = editor.addActionOfClass(kNormalize);
    normalize->setInstructions({{QStringLiteral("level"), -0.123456789012}, {QStringLiteral("rms"), true}});
    normalize->setOptionsDisclosed(true);
    TWAction* gain = editor.addActionOfClass(kChangeGain);
    gain->setInstructions({{QStringLiteral("level"), 6.0}, {QStringLiteral("source"), 2}});
    gain->setDestination(TWDestinationTag::ChosenDirectory, directory);
    gain->setActive(false);
    TWAction* balance = editor.addActionOfClass(kBalance);
    balance->setDestination(TWDestinationTag::BesideSource);
    balance->setPreview(true);
}

class WorkflowLibraryTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(m_dir.isValid());
        QDir().mkpath(m_user);
        QDir().mkpath(m_factory);
        m_editor.addActionOfClass(kNormalize);
    }

    TWWorkflowLibrary makeLibrary() { return TWWorkflowLibrary(m_preferences, {m_factory, m_user}); }
    QStringList userFiles() const { return QDir(m_user).entryList(QDir::Files, QDir::Name); }
    QString outside(const QString& name) const { return m_dir.filePath(name); }
    QList<TWWorkflowLibrary::Item> userItems(const TWWorkflowLibrary& library) const {
        return library.group(TWWorkflowLibrary::User).items;
    }

    QTemporaryDir m_dir;
    QString m_user = m_dir.filePath(QStringLiteral("user"));
    QString m_factory = m_dir.filePath(QStringLiteral("factory"));
    TWPreferences m_preferences{m_dir.filePath(QStringLiteral("prefs.plist"))};
    TWWorkflowEditor m_editor;
};

} // namespace

TEST(WorkflowFile, SavedAndReopenedWorkflowIsTheSame) {
    QTemporaryDir dir;
    TWWorkflowEditor editor;
    fillEditor(editor, dir.path());
    const QString path = dir.filePath(QStringLiteral("three.twwf"));
    ASSERT_TRUE(editor.saveWorkflow(path));

    TWWorkflowEditor reopened;
    const TWWorkflow result = reopened.openWorkflow(path);
    EXPECT_TRUE(result.message.isEmpty() && result.skippedClasses.isEmpty());
    EXPECT_EQ(reopened.state(), editor.state());
    ASSERT_EQ(reopened.count(), 3);
    EXPECT_FALSE(reopened.actionAt(1)->isActive());
    EXPECT_EQ(reopened.actionAt(1)->directory(), QDir(dir.path()).absolutePath());
    // A run gets every action, the inactive one too, in order.
    EXPECT_EQ(TWWorkflowFile::instructionsFromStates(reopened.state()), editor.instructions());

    // The window reopened: the editor shows what the last run wrote.
    TWPreferences preferences(dir.filePath(QStringLiteral("prefs.plist")));
    editor.writeToPreferences(preferences);
    ASSERT_TRUE(preferences.synchronize());
    reopened.readFromPreferences(TWPreferences(preferences.path()));
    EXPECT_EQ(reopened.state(), editor.state());
}

TEST(WorkflowFile, UnknownClassesAreSkippedAndTheRestLoads) {
    QTemporaryDir dir;
    const QVariantList states{stateOf(kNormalize, 1),
                              QVariantMap{{QStringLiteral("class"), QStringLiteral("TWActionTeleport")}},
                              QStringLiteral("not an action"), stateOf(kBalance, 2)};
    const QString path = dir.filePath(QStringLiteral("mixed.twwf"));
    ASSERT_TRUE(TWWorkflowFile::write(path, states));

    const TWWorkflow workflow = TWWorkflowFile::read(path);
    EXPECT_TRUE(workflow.message.isEmpty());
    EXPECT_EQ(workflow.skippedClasses, (QStringList{QStringLiteral("TWActionTeleport"), QString()}));
    EXPECT_EQ(classesOf(workflow.state()), (QStringList{kNormalize, kBalance}));
    EXPECT_EQ(workflow.actions[1]->source(), TWSource::PreviousResults);
}

TEST(WorkflowFile, UnreadableFilesGiveAnEmptyWorkflowAndSayWhy) {
    QTemporaryDir dir;
    const QVariantList states{stateOf(kNormalize, 1)};
    const QByteArray whole = TWPropertyList::toXml(states);
    const QStringList paths{
        ModelTest::writeBytes(dir.filePath(QStringLiteral("text.twwf")), "a shopping list\n"),
        ModelTest::writeBytes(dir.filePath(QStringLiteral("cut.twwf")), whole.left(whole.size() / 2)),
        ModelTest::writeBytes(dir.filePath(QStringLiteral("dict.twwf")), TWPropertyList::toXml(states[0])),
        ModelTest::writeBytes(dir.filePath(QStringLiteral("empty.twwf")), {}),
        dir.filePath(QStringLiteral("missing.twwf"))};
    for (const QString& path : paths) {
        SCOPED_TRACE(path.toStdString());
        const TWWorkflow workflow = TWWorkflowFile::read(path);
        EXPECT_TRUE(workflow.isEmpty());
        EXPECT_TRUE(workflow.message.contains(QFileInfo(path).fileName())) << workflow.message.toStdString();

        TWWorkflowEditor editor;
        editor.addActionOfClass(kBalance);
        EXPECT_FALSE(editor.openWorkflow(path).message.isEmpty());
        EXPECT_FALSE(editor.hasActions()) << "opening replaces the workflow, even with nothing";
    }
    EXPECT_TRUE(TWWorkflowFile::read(paths[2]).message.contains(QStringLiteral("not a list")));
}

TEST(WorkflowFile, PlistlibReadsWhatWeWriteAndWeReadWhatItWrites) {
    const QString python = QStringLiteral("/usr/bin/python3");
    if (!QFileInfo::exists(python)) GTEST_SKIP() << "no " << python.toStdString();
    QTemporaryDir dir;
    TWWorkflowEditor editor;
    fillEditor(editor, dir.path());
    const QString ours = dir.filePath(QStringLiteral("ours.twwf"));
    const QString theirs = dir.filePath(QStringLiteral("theirs.twwf"));
    ASSERT_TRUE(editor.saveWorkflow(ours));

    // plistlib must see every value as its type, then rewrites the file in binary.
    const QString script = QStringLiteral(R"(
import plistlib, sys
data = plistlib.load(open(sys.argv[1], "rb"))
n = data[0]["instructions"]
print(len(data), data[1]["class"], data[1]["active"], data[1]["instructions"]["source"],
      type(n["level"]).__name__, repr(n["level"]), type(n["rms"]).__name__, sorted(n["destination"]))
plistlib.dump(data, open(sys.argv[2], "wb"), fmt=plistlib.FMT_BINARY)
)");
    QProcess process;
    process.start(python, {QStringLiteral("-c"), script, ours, theirs});
    ASSERT_TRUE(process.waitForFinished(30000));
    ASSERT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
    EXPECT_EQ(process.readAllStandardOutput().trimmed(),
              "3 TWActionChangeGain False 2 float -0.123456789012 bool ['addToList', 'toNewFile']");

    TWWorkflowEditor reopened;
    EXPECT_TRUE(reopened.openWorkflow(theirs).message.isEmpty());
    EXPECT_EQ(reopened.state(), editor.state());
}

TEST(WorkflowEditor, TheFirstActionLosesPreviousResultsOnlyThroughAnEdit) {
    TWWorkflowEditor editor;
    editor.setState(
        {stateOf(kNormalize, 2), stateOf(kBalance, 2), stateOf(kChangeGain, 0), stateOf(kBalance, 2)});
    EXPECT_EQ(editor.actionAt(0)->source(), TWSource::PreviousResults) << "a file is read as it stands";

    editor.removeAction(0);
    EXPECT_EQ(editor.actionAt(0)->source(), TWSource::Selection);
    editor.removeAction(0);
    EXPECT_EQ(editor.actionAt(0)->source(), TWSource::AllEntries);
    // Dragged to the top, an action taking previous results has none.
    editor.slideUpAction(1, 0);
    EXPECT_EQ(classesOf(editor.state()), (QStringList{kBalance, kChangeGain}));
    EXPECT_EQ(editor.actionAt(0)->source(), TWSource::Selection);
    EXPECT_EQ(editor.actionAt(1)->source(), TWSource::AllEntries);
}

TEST(WorkflowEditor, InsertionsAndSlidesKeepTheOtherActionsInPlace) {
    TWWorkflowEditor editor;
    EXPECT_EQ(editor.addActionOfClass(QStringLiteral("TWActionTeleport")), nullptr);
    EXPECT_FALSE(editor.hasActions());
    TWAction* gain = editor.addActionOfClass(kChangeGain);
    TWAction* balance = editor.insertActionOfClass(kBalance, 0);
    EXPECT_TRUE(editor.isFirstAction(balance) && !editor.isFirstAction(gain));

    editor.insertWorkflow({stateOf(kNormalize, 1)}, 1);
    EXPECT_EQ(classesOf(editor.state()), (QStringList{kBalance, kNormalize, kChangeGain}));
    editor.slideDownAction(0, 2);
    EXPECT_EQ(classesOf(editor.state()), (QStringList{kNormalize, kChangeGain, kBalance}));
    editor.slideDownAction(2, 0); // not down: nothing
    EXPECT_EQ(editor.indexOf(gain), 1);
}

TEST_F(WorkflowLibraryTest, AddingNumbersTheNameAndNeverOverwrites) {
    TWWorkflowLibrary library = makeLibrary();
    auto empty = library.addWorkflow({});
    EXPECT_TRUE(empty && empty->isEmpty() && userFiles().isEmpty());
    EXPECT_FALSE(library.isExpanded(TWWorkflowLibrary::User));

    EXPECT_EQ(*library.addWorkflow(m_editor.state()),
              library.pathForWorkflowName(QStringLiteral("Untitled")));
    EXPECT_EQ(*library.addWorkflow(m_editor.state()),
              QDir(m_user).filePath(QStringLiteral("Untitled 1.twwf")));
    EXPECT_TRUE(m_preferences.boolValue(QStringLiteral("Workflows User Expanded")));
    const auto items = userItems(library);
    ASSERT_EQ(items.size(), 2);
    EXPECT_EQ(items[0].title, QStringLiteral("Untitled 1"));
    EXPECT_EQ(items[0].workflow, m_editor.state());

    // A gap is filled before the numbers go on.
    ASSERT_TRUE(library.removeWorkflow(items[1]));
    EXPECT_EQ(*library.addWorkflow(m_editor.state()),
              library.pathForWorkflowName(QStringLiteral("Untitled")));
    EXPECT_EQ(*library.addWorkflow(m_editor.state()),
              library.pathForWorkflowName(QStringLiteral("Untitled 2")));
}

TEST_F(WorkflowLibraryTest, FactoryItemsCannotBeChanged) {
    ASSERT_TRUE(
        TWWorkflowFile::write(QDir(m_factory).filePath(QStringLiteral("Stock.twwf")), m_editor.state()));
    TWWorkflowLibrary library = makeLibrary();
    ASSERT_EQ(library.groups().size(), 2);
    EXPECT_EQ(library.groups()[0].title, QStringLiteral("Factory"));
    EXPECT_EQ(library.groups()[1].title, QStringLiteral("User"));
    ASSERT_EQ(library.group(TWWorkflowLibrary::Factory).items.size(), 1);
    const TWWorkflowLibrary::Item stock = library.group(TWWorkflowLibrary::Factory).items[0];
    EXPECT_FALSE(TWWorkflowLibrary::isEditable(stock));
    EXPECT_FALSE(library.renameWorkflow(stock, QStringLiteral("Mine")));
    EXPECT_FALSE(library.removeWorkflow(stock));
    EXPECT_FALSE(library.saveWorkflow(stock, outside(QStringLiteral("copy.twwf"))));
    EXPECT_TRUE(QFileInfo::exists(stock.path));
    EXPECT_FALSE(QFileInfo::exists(outside(QStringLiteral("copy.twwf"))));

    // Loaded into the user group, the same workflow can be saved elsewhere; the extension is added.
    ASSERT_TRUE(library.loadWorkflow(stock.path));
    const TWWorkflowLibrary::Item mine = userItems(library).value(0);
    EXPECT_TRUE(TWWorkflowLibrary::isEditable(mine));
    ASSERT_TRUE(library.saveWorkflow(mine, outside(QStringLiteral("copy"))));
    EXPECT_EQ(TWWorkflowFile::read(outside(QStringLiteral("copy.twwf"))).state(), m_editor.state());
}

TEST_F(WorkflowLibraryTest, RenamingMovesTheFileButNeverOntoAnother) {
    TWWorkflowLibrary library = makeLibrary();
    ASSERT_TRUE(library.addWorkflow(m_editor.state()));
    m_editor.addActionOfClass(kBalance);
    ASSERT_TRUE(library.addWorkflow(m_editor.state()));
    ASSERT_EQ(userItems(library).size(), 2);
    ASSERT_TRUE(library.renameWorkflow(userItems(library)[1], QStringLiteral("Loud drums")));
    EXPECT_EQ(userFiles(),
              (QStringList{QStringLiteral("Loud drums.twwf"), QStringLiteral("Untitled 1.twwf")}));
    const TWWorkflowLibrary::Item drums = userItems(library)[0];
    EXPECT_EQ(drums.title, QStringLiteral("Loud drums"));
    EXPECT_EQ(classesOf(drums.workflow), QStringList{kNormalize});

    const auto conflict = library.renameWorkflow(drums, QStringLiteral("Untitled 1"));
    ASSERT_FALSE(conflict);
    EXPECT_TRUE(conflict.error().message().contains(QStringLiteral("exists")));
    EXPECT_EQ(classesOf(userItems(library)[1].workflow), (QStringList{kNormalize, kBalance}));
    EXPECT_FALSE(library.renameWorkflow(drums, QStringLiteral("a/b")));
    EXPECT_FALSE(library.renameWorkflow(drums, QString()));
    EXPECT_TRUE(library.renameWorkflow(drums, QStringLiteral("Loud drums")));
    EXPECT_EQ(userFiles().size(), 2);
}

TEST_F(WorkflowLibraryTest, DropsAreAllWorkflowsOrNothing) {
    const QString good = outside(QStringLiteral("Good.twwf"));
    const QString other = outside(QStringLiteral("Other.twwf"));
    ASSERT_TRUE(TWWorkflowFile::write(good, m_editor.state()) &&
                TWWorkflowFile::write(other, m_editor.state()));
    const QString text = ModelTest::writeBytes(outside(QStringLiteral("notes.txt")), "hello");
    const QString shouting = ModelTest::writeBytes(outside(QStringLiteral("LOUD.TWWF")), "hello");
    TWWorkflowLibrary library = makeLibrary();

    EXPECT_FALSE(library.dropFiles({good, text}));
    EXPECT_FALSE(library.dropFiles({good, shouting}));
    EXPECT_TRUE(userFiles().isEmpty());

    ASSERT_TRUE(library.dropFiles({good}));
    // A name already in the library is not replaced; the other file still comes in.
    const auto again = library.dropFiles({good, other});
    ASSERT_FALSE(again);
    EXPECT_TRUE(again.error().message().contains(QStringLiteral("1 of 2")));
    EXPECT_EQ(userFiles(), (QStringList{QStringLiteral("Good.twwf"), QStringLiteral("Other.twwf")}));
    EXPECT_EQ(userItems(library).size(), 2);
}

TEST_F(WorkflowLibraryTest, UserGroupListsOnlyWorkflowFilesAndShowsUnreadableOnesEmpty) {
    const QByteArray xml = TWPropertyList::toXml(m_editor.state());
    ModelTest::writeBytes(QDir(m_user).filePath(QStringLiteral("a.twwf")), "not a plist");
    ModelTest::writeBytes(QDir(m_user).filePath(QStringLiteral("b.twwf")), xml);
    ModelTest::writeBytes(QDir(m_user).filePath(QStringLiteral("c.plist")), xml);
    ModelTest::writeBytes(QDir(m_user).filePath(QStringLiteral("d.twwf.bak")), xml);
    QDir().mkpath(QDir(m_user).filePath(QStringLiteral("folder.twwf")));
    TWWorkflowLibrary library = makeLibrary();

    const auto items = userItems(library);
    ASSERT_EQ(items.size(), 2);
    EXPECT_EQ(items[0].title, QStringLiteral("a"));
    EXPECT_TRUE(items[0].workflow.isEmpty() && !items[0].problem.isEmpty());
    EXPECT_EQ(items[1].toMap(), (QVariantMap{{QStringLiteral("title"), QStringLiteral("b")},
                                             {QStringLiteral("workflow"), m_editor.state()}}));
}

// The workflows that come with the program: each loads whole, is a complete saved state, runs over the
// chosen files first and on the previous results after, and goes in place unless its title says not.
TEST(WorkflowLibrary, FactoryWorkflowsLoadWithEveryActionKnown) {
    QTemporaryDir dir;
    TWPreferences preferences(dir.filePath(QStringLiteral("prefs.plist")));
    TWWorkflowLibrary library(preferences, {QStringLiteral(":/workflows"), dir.path()});
    const auto& items = library.group(TWWorkflowLibrary::Factory).items;
    ASSERT_GE(items.size(), 3);
    for (const TWWorkflowLibrary::Item& item : items) {
        SCOPED_TRACE(item.title.toStdString());
        EXPECT_TRUE(item.problem.isEmpty()) << item.problem.toStdString();
        const TWWorkflow workflow = TWWorkflowFile::fromStates(item.workflow);
        EXPECT_TRUE(workflow.skippedClasses.isEmpty());
        ASSERT_FALSE(workflow.isEmpty());
        EXPECT_EQ(workflow.state(), item.workflow) << "a factory workflow holds every key an action saves";
        const auto destination = item.title.contains(QStringLiteral("new files"))
                                     ? TWDestinationTag::BesideSource
                                     : TWDestinationTag::InPlace;
        for (size_t i = 0; i < workflow.actions.size(); ++i) {
            const TWAction& action = *workflow.actions[i];
            EXPECT_EQ(action.source(), i == 0 ? TWSource::Selection : TWSource::PreviousResults);
            EXPECT_EQ(action.destinationTag(), destination);
            EXPECT_TRUE(action.requiredInstructionKeysExist(action.instructions()));
        }
    }
}
