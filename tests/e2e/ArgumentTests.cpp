// How every command reads its arguments: values joined or apart, "--", unknown options and "-".

#include "CommandLineRunner.h"

#include <QDir>

#include <gtest/gtest.h>

TEST(Arguments, AValueJoinedByEqualsReadsAsOneApart) {
    CommandLineRunner runner;
    const QString source = runner.makeSine("take.wav");
    ASSERT_FALSE(source.isEmpty());
    const QDir work(runner.work());
    ASSERT_TRUE(work.mkdir("apart") && work.mkdir("joined"));

    const auto apart = runner.run(
        {"normalize", "--level", "-3", "--rms", "yes", "--directory", work.filePath("apart"), source});
    const auto joined = runner.run(
        {"normalize", "--level=-3", "--rms=yes", "--directory=" + work.filePath("joined"), source});
    ASSERT_EQ(apart.exitCode, 0) << apart.err.toStdString();
    ASSERT_EQ(joined.exitCode, 0) << joined.err.toStdString();
    EXPECT_EQ(readBytes(apart.lines().value(0)), readBytes(joined.lines().value(0)));

    // The joined boolean is read, not taken as present: "no" normalizes the peak instead.
    const auto peak = runner.run({"normalize", "--level=-3", "--rms=no", "--to-new-file", source});
    ASSERT_EQ(peak.exitCode, 0) << peak.err.toStdString();
    EXPECT_NE(readBytes(peak.lines().value(0)), readBytes(joined.lines().value(0)));

    const auto flagWithValue = runner.run({"info", "--json=yes", source});
    EXPECT_EQ(flagWithValue.exitCode, 2);
    EXPECT_TRUE(flagWithValue.err.contains("--json takes no value")) << flagWithValue.err.toStdString();
}

TEST(Arguments, DoubleDashEndsTheOptionsOfEveryCommand) {
    CommandLineRunner runner;
    const QString dashed = runner.makeSine("-take.wav"); // named relative to the work folder below
    ASSERT_FALSE(dashed.isEmpty());

    auto result = runner.run({"info", "--", "-take.wav"});
    EXPECT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_TRUE(result.out.contains("44.1 kHz")) << result.out.toStdString();

    result = runner.run({"normalize", "--level", "-1", "--to-new-file", "--", "-take.wav"});
    EXPECT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_EQ(result.lines(), QStringList{QDir(runner.work()).filePath("-take-1.wav")});

    result = runner.run({"run", "--", "Normalize to -1 dB peak", "-take.wav"});
    EXPECT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_EQ(result.lines(), QStringList{dashed});

    // Without "--" the same name is an option nobody knows.
    result = runner.run({"info", "-take.wav"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_TRUE(result.err.contains("unknown option '-t'")) << result.err.toStdString();
}

TEST(Arguments, UnknownOptionsAndStandardInputAreUsageErrorsOfEveryCommand) {
    CommandLineRunner runner;
    const QString file = runner.makeSine("keep.wav");
    const QByteArray bytes = readBytes(file);
    const QStringList commands = runner.commands();
    ASSERT_TRUE(commands.contains("info") && commands.contains("normalize"))
        << commands.join(' ').toStdString();

    for (const QString& command : commands) {
        for (const QString option : {"-x", "--bogus", "--bogus=1"}) {
            const auto result = runner.run({command, option, file});
            EXPECT_EQ(result.exitCode, 2) << command.toStdString() << ' ' << option.toStdString();
            const QString named =
                QStringLiteral("clipwright %1: unknown option '%2'").arg(command, option.section(u'=', 0, 0));
            EXPECT_TRUE(result.err.contains(named)) << result.err.toStdString();
        }
        const auto result = runner.run({command, "-"});
        EXPECT_EQ(result.exitCode, 2) << command.toStdString();
        EXPECT_TRUE(result.err.contains("'-' (standard input)")) << result.err.toStdString();
    }
    EXPECT_EQ(readBytes(file), bytes);

    const auto program = runner.run({"-x"});
    EXPECT_EQ(program.exitCode, 2);
    EXPECT_TRUE(program.err.contains("unknown option '-x'")) << program.err.toStdString();
}

TEST(Arguments, QuietShowsOnlyErrorsAndVerboseNamesEachFile) {
    CommandLineRunner runner;
    const QString first = runner.makeSine("one.wav"), second = runner.makeSine("two.wav");

    EXPECT_TRUE(
        runner.runOnTerminal({"normalize", "--level", "-1", first, second}).contains("Normalizing... ["));
    const QString quiet = runner.runOnTerminal({"normalize", "-q", "--level", "-2", first, second});
    EXPECT_FALSE(quiet.contains("Normalizing")) << quiet.toStdString();
    EXPECT_TRUE(quiet.contains(second)) << quiet.toStdString(); // the results are no message

    const auto undone = runner.run({"undo", "--quiet"});
    EXPECT_EQ(undone.exitCode, 0);
    EXPECT_EQ(undone.err, "");
    const auto failed = runner.run({"normalize", "-q", "--level", "-1", first, first + ".missing"});
    EXPECT_EQ(failed.exitCode, 8);
    EXPECT_TRUE(failed.err.contains("one.wav.missing")) << failed.err.toStdString();

    for (const QStringList& command :
         {QStringList{"normalize", "--level", "-3"}, QStringList{"run", "Normalize to -1 dB peak"}}) {
        const auto verbose = runner.run(command + QStringList{"--verbose", first, second});
        ASSERT_EQ(verbose.exitCode, 0) << verbose.err.toStdString();
        for (const QString& file : {first, second}) {
            EXPECT_TRUE(verbose.err.contains("Normalizing " + file + '\n')) << verbose.err.toStdString();
            EXPECT_TRUE(verbose.err.contains("Wrote " + file + '\n')) << verbose.err.toStdString();
        }
    }
}
