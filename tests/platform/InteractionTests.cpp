#include "TWCommandLineInteraction.h"
#include "TWScriptedInteraction.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

namespace {

TWAlert replaceAlert() {
    return {TWAlertStyle::Warning,
            QStringLiteral("Move Failed Exists"),
            QStringLiteral("'kick.wav' already exists in 'Drums'."),
            {QStringLiteral("Replace"), QStringLiteral("Skip"), QStringLiteral("Cancel")}};
}

// Runs one alert through a command-line interaction reading `input`; returns the answer and what it printed.
std::pair<int, std::string> runOnTerminal(TWCommandLineInteraction::Policy policy, bool interactive,
                                          const std::string& input, const TWAlert& alert = replaceAlert()) {
    std::string in = input;
    // A buffer of size 0 is not allowed: an empty input is one byte already read.
    FILE* inStream = fmemopen(in.data(), std::max<size_t>(in.size(), 1), "r");
    if (input.empty()) std::fgetc(inStream);
    char* printed = nullptr;
    size_t printedSize = 0;
    FILE* outStream = open_memstream(&printed, &printedSize);
    TWCommandLineInteraction interaction(policy, inStream, outStream, interactive);
    const int answer = interaction.runAlert(alert);
    std::fclose(outStream);
    std::fclose(inStream);
    std::string output(printed, printedSize);
    std::free(printed);
    return {answer, output};
}

} // namespace

TEST(Interaction, ScriptedAnswersComeInOrderThenTheDefault) {
    EXPECT_EQ(TWInteraction::current().runAlert(replaceAlert()), 0); // nobody set: the default button
    TWScriptedInteraction scripted;
    TWInteraction::setCurrent(&scripted);
    scripted.answerAlerts({2, 7}); // 7 is past the buttons: the default
    scripted.answerOpenPanels({{QStringLiteral("/a.wav")}, {}});
    scripted.answerSavePanels({QStringLiteral("/out/list.clipwright")});

    TWAlert second = replaceAlert();
    second.title = QStringLiteral("Second");
    EXPECT_EQ(TWInteraction::current().runAlert(replaceAlert()), 2);
    EXPECT_EQ(scripted.runAlert(second), 0);
    EXPECT_EQ(scripted.runAlert(replaceAlert()), 0); // out of answers
    ASSERT_EQ(scripted.alerts().size(), 3);
    EXPECT_EQ(scripted.alerts()[1].title, QStringLiteral("Second"));

    EXPECT_EQ(scripted.runOpenPanel({}), QStringList{QStringLiteral("/a.wav")});
    EXPECT_TRUE(scripted.runOpenPanel({}).isEmpty()); // a scripted cancel
    EXPECT_TRUE(scripted.runOpenPanel({}).isEmpty()); // out of answers
    EXPECT_EQ(scripted.runSavePanel({}), QStringLiteral("/out/list.clipwright"));
    EXPECT_TRUE(scripted.runSavePanel({}).isEmpty());

    TWInteraction::setCurrent(nullptr);
    EXPECT_NE(&TWInteraction::current(), &scripted);
}

TEST(Interaction, ScriptedAnswersAreSharedSafelyBetweenThreads) {
    TWScriptedInteraction scripted;
    scripted.answerAlerts(QList<int>(400, 1));
    std::atomic<int> ones{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 150; ++i)
                ones += scripted.runAlert(replaceAlert());
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(ones.load(), 400); // each answer used exactly once
    EXPECT_EQ(scripted.alerts().size(), 600);
}

TEST(Interaction, CommandLinePoliciesDecideWithoutAsking) {
    using Policy = TWCommandLineInteraction::Policy;
    auto [yes, yesOutput] = runOnTerminal(Policy::AssumeYes, true, "3\n");
    EXPECT_EQ(yes, 0);
    EXPECT_EQ(yesOutput, "Warning: Move Failed Exists\n'kick.wav' already exists in 'Drums'.\n"
                         "  1) Replace   2) Skip   3) Cancel\n  -> Replace\n");

    EXPECT_EQ(runOnTerminal(Policy::AssumeNo, true, "1\n").first, 2); // "Cancel", not "Skip"
    TWAlert dontSave{TWAlertStyle::Warning,
                     QStringLiteral("Save?"),
                     {},
                     {QStringLiteral("Save"), QStringLiteral("Don't Save"), QStringLiteral("Later")}};
    EXPECT_EQ(runOnTerminal(Policy::AssumeNo, false, "", dontSave).first, 1);
    TWAlert twoButtons{
        TWAlertStyle::Warning, QStringLiteral("Go?"), {}, {QStringLiteral("Go"), QStringLiteral("Wait")}};
    EXPECT_EQ(runOnTerminal(Policy::AssumeNo, false, "", twoButtons).first, 1); // the last button

    // Asking without a terminal answers like nobody is there: the default button.
    auto [notAsked, notAskedOutput] = runOnTerminal(Policy::Ask, false, "3\n");
    EXPECT_EQ(notAsked, 0);
    EXPECT_EQ(notAskedOutput.find("Choose"), std::string::npos) << notAskedOutput;
}

TEST(Interaction, CommandLineAsksOnTheTerminal) {
    using Policy = TWCommandLineInteraction::Policy;
    auto [byNumber, output] = runOnTerminal(Policy::Ask, true, "9\nmaybe\n2\n");
    EXPECT_EQ(byNumber, 1);
    // Asked again after each answer that fits no button.
    size_t prompts = 0;
    for (size_t at = output.find("Choose 1-3"); at != std::string::npos;
         at = output.find("Choose 1-3", at + 1))
        ++prompts;
    EXPECT_EQ(prompts, 3u) << output;

    EXPECT_EQ(runOnTerminal(Policy::Ask, true, "c\n").first, 2);    // by the start of a title
    EXPECT_EQ(runOnTerminal(Policy::Ask, true, "SKIP\n").first, 1); // in any case
    EXPECT_EQ(runOnTerminal(Policy::Ask, true, "\n").first, 0);     // return takes the default
    EXPECT_EQ(runOnTerminal(Policy::Ask, true, "").first, 0);       // end of input too

    // One button: nothing to ask.
    TWAlert info{
        TWAlertStyle::Informational, QStringLiteral("Move Failed"), QStringLiteral("No such folder."), {}};
    auto [ok, infoOutput] = runOnTerminal(Policy::Ask, true, "2\n", info);
    EXPECT_EQ(ok, 0);
    EXPECT_EQ(infoOutput, "Move Failed\nNo such folder.\n");
}
