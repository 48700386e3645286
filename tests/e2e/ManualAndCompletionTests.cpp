// The manual page and the shell completions the program writes, read by groff, man and bash.

#include "CommandLineRunner.h"

#include "TestAudio.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

namespace {

QString writeFile(const QString& path, const QString& text) {
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(text.toUtf8()) >= 0) << path.toStdString();
    return path;
}

} // namespace

TEST(ManualPage, RendersWithoutWarningsAndShowsEveryCommandWithItsOptions) {
    CommandLineRunner runner;
    const auto written = runner.run({"--man"});
    ASSERT_EQ(written.exitCode, 0) << written.err.toStdString();
    const QString page = writeFile(QDir(runner.work()).filePath("clipwright.1"), written.out);

    int status = -1;
    QString warnings;
    TestAudio::runTool("groff", {"-man", "-Tutf8", "-ww", "-z", page}, &status, &warnings);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(warnings, "");
    const QString shown = TestAudio::runTool("man", {"--warnings", "-l", page}, &status, &warnings);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(warnings, "");

    const QStringList commands = runner.commands();
    ASSERT_GT(commands.size(), 8);
    for (const QString& command : commands)
        EXPECT_TRUE(shown.contains("clipwright " + command + ' ')) << command.toStdString();
    // The options come from the same tables as --help: the action's keys, and the options of every command.
    for (const char* option : {"--level", "--to-new-file", "--no-analyze", "--quiet", "--verbose", "--man"})
        EXPECT_TRUE(shown.contains(QLatin1String(option))) << option;
    EXPECT_TRUE(shown.contains("EXIT STATUS")) << shown.toStdString();
}
