// What every registered action must do, whatever it does to the audio: refuse missing instructions before
// touching anything, take empty input and unreadable files in its stride, stop and cancel as the user
// expects, keep its settings through a workflow file, document every key on the command line, and leave
// every entry at rest. A new action is covered by registering it.

#include "EngineTestSupport.h"
#include "ShapeProbes.h"

#include "TestPlugins.h"
#include "TestServers.h"

#include "engine/TWWorkflowFile.h"
#include "platform/TWPreferences.h"
#include "shell/cli/TWActionCommands.h"

using namespace EngineTest;

namespace {

class Conformance : public Fixture, public ::testing::WithParamInterface<QString> {
protected:
    QTemporaryDir m_given;
    QTemporaryDir m_served;
    std::unique_ptr<TestServer> m_server;

    std::unique_ptr<TWAction> make() const { return TWActionRegistry::make(GetParam()); }

    void TearDown() override {
        for (const char* key : {"WebDAV Server", "WebDAV User", "WebDAV Password"})
            TWPreferences::shared().removeValue(key);
        Fixture::TearDown();
    }

    // An action that sends files gets a server of its own on this machine, and the account as FTP's keys
    // and as the WebDAV preferences (each reads its own).
    void serve(QVariantMap& instructions) {
        const bool ftp = GetParam() == u"TWActionSendFTP";
        if (!ftp && GetParam() != u"TWActionSendiDisk") return;
        if (!m_server)
            m_server = std::make_unique<TestServer>(ftp ? TestServer::Kind::Ftp : TestServer::Kind::WebDAV,
                                                    m_served.path(), "user", "password");
        ASSERT_TRUE(m_server->isRunning());
        const QVariantMap account{
            {"server", m_server->address()}, {"username", "user"}, {"password", "password"}};
        instructions.insert(account);
        TWPreferences::shared().setValue("WebDAV Server", "http://" + m_server->address());
        TWPreferences::shared().setValue("WebDAV User", "user");
        TWPreferences::shared().setValue("WebDAV Password", "password");
    }

    // A new action's own instructions, in place where it may go there, for the entries named by paths.
    // Numbers the user must give (a stretch's start and end) are 0.1, 0.2, ...: in the file, in order.
    QVariantMap defaults(const QList<TWFileEntryPtr>& entries) {
        const std::unique_ptr<TWAction> action = make();
        QVariantMap instructions = action->instructions();
        double given = 0.1;
        for (const TWInstructionKey& key : action->instructionKeys())
            if (!key.defaultValue.isValid() && !key.details.choices.isEmpty()) {
                instructions.insert(key.name, key.details.choices.first().value);
            } else if (!key.defaultValue.isValid() && key.type == TWValueType::Number) {
                instructions.insert(key.name, given);
                given += 0.1;
            } else if (!key.defaultValue.isValid() && key.type == TWValueType::Integer) {
                instructions.insert(key.name, qint64(given * 10));
                given += 0.1;
            } else if (!key.defaultValue.isValid() && key.type == TWValueType::Path) {
                // A file the user must name (a list of names) is an empty one, outside the files' folder.
                (void)QFile(m_given.filePath("given")).open(QIODevice::WriteOnly);
                instructions.insert(key.name, m_given.filePath("given"));
            }
        serve(instructions);
        if (GetParam() == u"TWActionAudioUnit") { // a real effect, run by the host just built
            TestPlugins::useTestPlugins();
            instructions.insert("settings", QVariantMap{{"Component", TestPlugins::kDubDelay}});
        }
        instructions.insert("source", TWSource::Paths);
        QStringList paths;
        for (const TWFileEntryPtr& entry : entries)
            paths.append(entry->path());
        instructions.insert("paths", paths);
        return instructions;
    }

    QList<TWFileEntryPtr> addFiles(const QStringList& names) {
        QList<TWFileEntryPtr> files;
        for (const QString& name : names) {
            TestAudio::Sound sound = small();
            sound.frames = 22050; // several blocks of every loop
            files.append(addFile(name, sound));
        }
        return files;
    }

    static void expectAtRest(const QList<TWFileEntryPtr>& entries) {
        for (const TWFileEntryPtr& entry : entries)
            EXPECT_NE(TWStatus::state(entry->status()), int(TWStatus::Processing))
                << entry->path().toStdString();
    }

    QMap<QString, QByteArray> folderContents() const {
        QMap<QString, QByteArray> contents;
        for (const QString& name : filesIn(m_dir.path()))
            contents.insert(name, bytesOf(path(name)));
        return contents;
    }
};

bool isProbe(const QString& className) {
    return className.startsWith(QStringLiteral("TWTest"));
}

} // namespace

TEST_P(Conformance, MissingInstructionsStopItBeforeAnythingIsTouched) {
    const QList<TWFileEntryPtr> files = addFiles({"a.wav"});
    const auto before = folderContents();
    const std::unique_ptr<TWAction> action = make();
    QStringList missing = action->requiredInstructionKeys();
    if (!action->onlyInPlace()) missing.append("destination");
    for (const QString& key : std::as_const(missing)) {
        RunLog log(runs());
        QVariantMap instructions = defaults(files);
        instructions.remove(key);
        const auto error = run(instructions, files);
        ASSERT_TRUE(error) << key.toStdString();
        EXPECT_EQ(error->code(), LXMissingInstructions) << key.toStdString();
        EXPECT_EQ(error->phase(), TWActionPhase::ConfirmingInstructions);
        EXPECT_TRUE(log.progress.isEmpty()) << "nothing is announced";
        EXPECT_EQ(folderContents(), before);
        expectAtRest(files);
    }
}

TEST_P(Conformance, EmptyInputAndUnreadableFilesAreTakenInItsStride) {
    QList<TWFileEntryPtr> results;
    EXPECT_FALSE(run(defaults({}), {}, &results));
    EXPECT_TRUE(results.isEmpty());

    const TWFileEntryPtr bad = add(ModelTest::writeDamagedWav(path("bad.wav")));
    const QList<TWFileEntryPtr> good = addFiles({"good.wav"});
    const QByteArray badBytes = bytesOf(bad->path());
    const auto error = run(defaults({bad, good.first()}), {bad, good.first()}, &results);
    EXPECT_FALSE(error) << error->localizedDescription().toStdString();
    EXPECT_EQ(bytesOf(bad->path()), badBytes);
    expectAtRest({bad, good.first()});
}

TEST_P(Conformance, AStopKeepsWhatWasDoneAndACancelPutsEverythingBack) {
    for (const int32_t code : {LXStopped, LXCancelled}) {
        SCOPED_TRACE(code == LXStopped ? "stop" : "cancel");
        (void)QDir(m_dir.path()).removeRecursively();
        (void)QDir().mkpath(m_dir.path());
        workspace().rootGroup()->removeAllEntries();
        runs().undoStack().clear();
        const QList<TWFileEntryPtr> files = addFiles({"a.wav", "b.wav", "c.wav"});
        const auto before = folderContents();
        // The user asks as the second file begins.
        int started = 0;
        const auto connection = QObject::connect(&runs(), &TWRunController::entryProcessing, [&] {
            if (++started == 2) workspace().setStopWorking(code);
        });
        const auto error = run(defaults(files), files);
        QObject::disconnect(connection);
        workspace().setStopWorking(LXContinue);

        ASSERT_TRUE(error);
        EXPECT_EQ(error->code(), code) << error->localizedDescription().toStdString();
        expectAtRest(files);
        EXPECT_EQ(bytesOf(path("c.wav")), before.value("c.wav")) << "the file after the stop is untouched";
        if (code == LXCancelled) {
            EXPECT_EQ(folderContents(), before);
            EXPECT_EQ(runs().undoStack().count(), 0);
        }
    }
}

TEST_P(Conformance, ItsSettingsSurviveAWorkflowFile) {
    const std::unique_ptr<TWAction> action = make();
    action->setDisclosed(false);
    action->setOptionsDisclosed(true);
    action->setPreview(action->canPreview());
    action->setSource(TWSource::AllEntries);
    if (!action->onlyInPlace()) action->setDestination(TWDestinationTag::ChosenDirectory, m_dir.path());
    ASSERT_TRUE(TWWorkflowFile::write(path("one.twwf"), {action->state()}));
    const TWWorkflow read = TWWorkflowFile::read(path("one.twwf"));
    ASSERT_EQ(read.actions.size(), 1u);
    EXPECT_EQ(read.actions.front()->state(), action->state());
}

TEST_P(Conformance, ANewActionHoldsValidInstructionsAndTheCommandLineDocumentsEveryKey) {
    const std::unique_ptr<TWAction> action = make();
    const QVariantMap instructions = action->instructions();
    bool everyRequiredKeyHasADefault = true;
    for (const TWInstructionKey& key : action->instructionKeys()) {
        EXPECT_EQ(instructions.contains(key.name), key.defaultValue.isValid()) << key.name.toStdString();
        if (action->requiredInstructionKeys().contains(key.name) && !key.defaultValue.isValid())
            everyRequiredKeyHasADefault = false;
    }
    if (everyRequiredKeyHasADefault) {
        EXPECT_TRUE(action->requiredInstructionKeysExist(instructions));
    }

    if (isProbe(GetParam())) return;
    const auto& commands = TWCommandLine::actionCommands();
    const bool hasCommand = std::any_of(commands.cbegin(), commands.cend(), [&](const auto& command) {
        return command.className == GetParam() || command.secondClassName == GetParam();
    });
    EXPECT_TRUE(hasCommand) << "no command runs " << GetParam().toStdString();
    const QList<TWCommandLine::Option> options = TWCommandLine::keyOptions(GetParam());
    for (const TWInstructionKey& key : action->instructionKeys()) {
        const auto option = std::find_if(options.cbegin(), options.cend(),
                                         [&](const auto& each) { return each.name == key.name; });
        ASSERT_NE(option, options.cend()) << key.name.toStdString();
        const QString& line = option->help;
        const QString shown = key.describe(key.defaultValue);
        EXPECT_TRUE(line.contains("required") || shown.isEmpty() || line.contains("default " + shown))
            << line.toStdString();
        if (key.details.range) {
            EXPECT_TRUE(line.contains("from ")) << line.toStdString();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Registered, Conformance, ::testing::ValuesIn(TWActionRegistry::classNames()),
                         [](const ::testing::TestParamInfo<QString>& param) {
                             return param.param.toStdString();
                         });
