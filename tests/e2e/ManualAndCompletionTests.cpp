// The manual page and the shell completions the program writes, read by groff, man and bash.

#include "CommandLineRunner.h"

#include "TestAudio.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcessEnvironment>

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
    for (const char* option : {"--level", "--to-new-file", "--no-analyze", "--quiet", "--verbose", "--man",
                               "--keep-going", "--dry-run", "--report"})
        EXPECT_TRUE(shown.contains(QLatin1String(option))) << option;
    EXPECT_TRUE(shown.contains("EXIT STATUS")) << shown.toStdString();
}

// The scripts are run by the real shells, as they would complete a user's line: the command, an option
// of that command, and a workflow title, which has spaces and is asked of the program.
TEST(Completion, BashAndZshCompleteCommandsOptionsAndWorkflowTitles) {
    CommandLineRunner runner;
    const QProcessEnvironment environment = runner.environment();
    const QStringList env{
        "env", "HOME=" + environment.value("HOME"), "XDG_DATA_HOME=" + environment.value("XDG_DATA_HOME"),
        "XDG_CONFIG_HOME=" + environment.value("XDG_CONFIG_HOME"),
        "PATH=" + QFileInfo(CommandLineRunner::program()).absolutePath() + ":/usr/bin:/bin"};
    const QStringList lines{"clipwright norm", "clipwright normalize --le", "clipwright run Bal"};

    const QString bash =
        writeFile(QDir(runner.work()).filePath("clipwright.bash"), runner.run({"--completion", "bash"}).out);
    QString script = "source '" + bash + "'\n";
    for (const QString& line : lines)
        script += "COMP_WORDS=(" + line +
                  "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); COMPREPLY=(); "
                  "_clipwright; printf '%s|' \"${COMPREPLY[@]}\"; echo\n";
    int status = -1;
    QString errors;
    const QString offered =
        TestAudio::runTool(env.first(), env.mid(1) + QStringList{"bash", "-c", script}, &status, &errors);
    EXPECT_EQ(status, 0) << errors.toStdString();
    EXPECT_EQ(offered, "normalize|\n--level|\nBalance\\ and\\ normalize|\n");

    if (!TestAudio::haveTool("zsh")) GTEST_SKIP() << "zsh is not installed";
    const QString functions = runner.work() + "/zsh";
    QDir().mkpath(functions);
    writeFile(functions + "/_clipwright", runner.run({"--completion", "zsh"}).out);
    // An interactive zsh on a pseudo-terminal, with a hook that prints what completion found.
    const QString zsh = QString(R"(zmodload zsh/zpty
zpty z zsh -f -i
zpty -w z "PS1=''; fpath=(%1 \$fpath); autoload -Uz compinit; compinit -u -d %1/dump"
zpty -w z 'comppostfuncs=(found); found() { print "FOUND=$((compstate[nmatches]+1000)):<$compstate[unambiguous]>"; compstate[list]=""; }'
zpty -w z "$1"$'\t'
zpty -r z out '*FOUND=1[0-9][0-9][0-9]:<*>'
print -r -- "${out##*FOUND=}"
)")
                            .arg(functions);
    const QStringList expected{"1001:<normalize>", "1001:<--level>", "1001:<Balance and normalize>"};
    for (qsizetype i = 0; i < lines.size(); ++i) {
        const QString found = TestAudio::runTool(
            env.first(), env.mid(1) + QStringList{"timeout", "20", "zsh", "-f", "-c", zsh, "zsh", lines[i]},
            &status, &errors);
        EXPECT_EQ(found.trimmed().remove(u'\r'), expected[i]) << errors.toStdString();
    }
}
