// Process with Audio Unit through the clipwright program: a workflow saved with an effect's state gives
// the same sound in new processes, and an effect that crashes or hangs cancels the run, leaving every
// file as it was.

#include "CommandLineRunner.h"
#include "TestAudio.h"
#include "TestPlugins.h"
#include "lx/plugins/LXAudioUnitEntry.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

using namespace TestPlugins;

namespace {

class PluginCommands : public testing::Test {
protected:
    static void SetUpTestSuite() { useTestPlugins(); } // the program finds the faulty effect too

    CommandLineRunner cli;

    QString path(const QString& name) const { return QDir(cli.work()).filePath(name); }
    QString noise(const QString& name, const QString& volume = "0.3") const {
        EXPECT_TRUE(TestAudio::generateWithSox(path(name), {"-n", "-r", "44100", "-b", "16", "-c", "2"},
                                               {"synth", "0.5", "whitenoise", "vol", volume}));
        return path(name);
    }
    QString writeWorkflow(const QString& name, const QVariantMap& settings) const {
        QString parameters;
        const QVariantMap values = settings["Parameters"].toMap();
        for (auto it = values.begin(); it != values.end(); ++it)
            parameters += QStringLiteral("<key>%1</key><real>%2</real>").arg(it.key()).arg(it.value().toDouble(), 0, 'g', 9);
        QFile file(path(name));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(QStringLiteral(R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0"><array>
<dict><key>class</key><string>TWActionAudioUnit</string><key>active</key><true/>
 <key>instructions</key><dict><key>class</key><string>TWActionAudioUnit</string><key>source</key><integer>1</integer>
 <key>destination</key><dict><key>toNewFile</key><true/></dict><key>retainTail</key><true/>
 <key>settings</key><dict><key>Name</key><string>%1</string><key>Component</key><string>%2</string>
  <key>Parameters</key><dict>%3</dict><key>State</key><string>%4</string></dict></dict></dict>
</array></plist>)")
                       .arg(settings["Name"].toString(), settings["Component"].toString(), parameters,
                            settings["State"].toString().toHtmlEscaped())
                       .toUtf8());
        return path(name);
    }
};

TEST_F(PluginCommands, AWorkflowSavedWithAnEffectsStateSoundsTheSameInNewProcesses) {
    // The state as the window saves it: taken from a live instance whose controls were moved.
    auto live = LXAudioUnitEntry::make(kDubDelay);
    ASSERT_TRUE(live);
    (*live)->setParameter("delay", 0.1f);
    (*live)->setParameter("feedback", 0.8f);
    (*live)->setParameter("fx_mix", 0.7f);
    const QString workflow = writeWorkflow("echo.twwf", (*live)->state());

    const QString take = noise("take.wav");
    const auto first = cli.run({"run", "-q", workflow, take});
    ASSERT_EQ(first.exitCode, 0) << first.err.toStdString();
    const auto second = cli.run({"run", "-q", workflow, take});
    ASSERT_EQ(second.exitCode, 0) << second.err.toStdString();
    ASSERT_EQ(first.lines(), QStringList{path("take-1.wav")});
    ASSERT_EQ(second.lines(), QStringList{path("take-2.wav")});
    EXPECT_EQ(readBytes(path("take-1.wav")), readBytes(path("take-2.wav")));
    // The echoes ring on past the end of the take, and the take itself is untouched.
    const auto echoed = TestAudio::readWithSox(path("take-1.wav"));
    ASSERT_TRUE(echoed);
    EXPECT_GT(echoed->frames(), 44100 / 2 + 4410);
    EXPECT_EQ(TestAudio::readWithSox(take)->frames(), 44100 / 2);

    // The same effect by its parameters on the command line sounds the same.
    const auto byCommand = cli.run({"process-with-audio-unit", "-q", "--to-new-file", "--retainTail", "--settings",
                                    QStringLiteral(R"({"Component": "%1", "Parameters": {"delay": 0.1,
                                                      "feedback": 0.8, "fx_mix": 0.7}})")
                                        .arg(kDubDelay),
                                    take});
    ASSERT_EQ(byCommand.exitCode, 0) << byCommand.err.toStdString();
    EXPECT_EQ(readBytes(byCommand.lines().value(0)), readBytes(path("take-1.wav")));

    const auto listed = cli.run({"plugins"});
    EXPECT_TRUE(listed.out.contains(QStringLiteral("%1  MDA DubDelay").arg(kDubDelay)));
    const auto unknown = cli.run({"plugins", "urn:nowhere"});
    EXPECT_EQ(unknown.exitCode, 8);
    EXPECT_TRUE(unknown.err.contains("'urn:nowhere' is not installed")) << unknown.err.toStdString();
}

TEST_F(PluginCommands, AnEffectThatCrashesOrHangsCancelsTheRunAndEveryFileStaysAsItWas) {
    QStringList files;
    for (int i = 1; i <= 5; ++i) files << noise(QStringLiteral("f%1.wav").arg(i), i == 3 ? "1.0" : "0.3");
    EXPECT_TRUE(TestAudio::generateWithSox(path("f3.wav"), {"-n", "-r", "44100", "-b", "16", "-c", "2"},
                                           {"synth", "0.5", "sine", "100", "gain", "-n"})); // full scale: the effect fails
    QList<QByteArray> before;
    for (const QString& file : files) before << readBytes(file);

    qputenv("CLIPWRIGHT_PLUGIN_TIMEOUT", "1");
    for (const int mode : {0, 1}) {
        SCOPED_TRACE(mode == 0 ? "crash" : "hang");
        const auto result = cli.run(QStringList{"process-with-audio-unit", "-q", "--settings",
                                                QStringLiteral(R"({"Component": "%1", "Parameters": {"mode": %2}})")
                                                    .arg(kFaulty)
                                                    .arg(mode)} +
                                    files);
        EXPECT_EQ(result.exitCode, 8);
        EXPECT_TRUE(result.err.contains("f3.wav")) << result.err.toStdString();
        EXPECT_TRUE(result.err.contains(mode == 0 ? "'Faulty Test Effect' quit unexpectedly"
                                                  : "'Faulty Test Effect' stopped responding"))
            << result.err.toStdString();
        EXPECT_TRUE(result.err.contains("put back")) << result.err.toStdString();
        for (int i = 0; i < files.size(); ++i) EXPECT_EQ(readBytes(files[i]), before[i]) << files[i].toStdString();
        EXPECT_EQ(QDir(cli.work()).entryList(QDir::Files | QDir::Hidden).size(), files.size());
    }
    qunsetenv("CLIPWRIGHT_PLUGIN_TIMEOUT");
}

} // namespace
