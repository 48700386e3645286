#include "platform/TWCommandLineInteraction.h"
#include "platform/TWScriptedInteraction.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

namespace {

TWAlert alert(const QStringList& buttons, const QString& title = QStringLiteral("Move Failed Exists")) {
    return {TWAlertStyle::Warning, title, QStringLiteral("'kick.wav' already exists in 'Drums'."), buttons};
}
const QStringList kReplaceSkipCancel{QStringLiteral("Replace"), QStringLiteral("Skip"),
                                     QStringLiteral("Cancel")};

// Runs one alert through a command-line interaction reading `input`; returns the answer and what it printed.
std::pair<int, std::string> runOnTerminal(TWCommandLineInteraction::Policy policy, bool interactive,
                                          const std::string& input, const TWAlert& shown) {
    std::string in = input;
    // A buffer of size 0 is not allowed: an empty input is one byte already read.
    FILE* inStream = fmemopen(in.data(), std::max<size_t>(in.size(), 1), "r");
    if (input.empty()) std::fgetc(inStream);
    char* printed = nullptr;
    size_t printedSize = 0;
    FILE* outStream = open_memstream(&printed, &printedSize);
    const int answer = TWCommandLineInteraction(policy, inStream, outStream, interactive).runAlert(shown);
    std::fclose(outStream);
    std::fclose(inStream);
    std::string output(printed, printedSize);
    std::free(printed);
    return {answer, output};
}

} // namespace

TEST(Interaction, ScriptedAnswersComeInOrderThenTheDefault) {
    EXPECT_EQ(TWInteraction::current().runAlert(alert(kReplaceSkipCancel)), 0); // nobody set: the default
    TWScriptedInteraction scripted;
    TWInteraction::setCurrent(&scripted);
    scripted.answerAlerts({2, 7}); // 7 is past the buttons: the default
    scripted.answerOpenPanels({{QStringLiteral("/a.wav")}, {}});
    scripted.answerSavePanels({QStringLiteral("/out/list.clipwright")});

    EXPECT_EQ(TWInteraction::current().runAlert(alert(kReplaceSkipCancel)), 2);
    EXPECT_EQ(scripted.runAlert(alert(kReplaceSkipCancel, QStringLiteral("Second"))), 0);
    EXPECT_EQ(scripted.runAlert(alert(kReplaceSkipCancel)), 0); // out of answers
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
                ones += scripted.runAlert(alert(kReplaceSkipCancel));
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(ones.load(), 400); // each answer used exactly once
    EXPECT_EQ(scripted.alerts().size(), 600);
}

TEST(Interaction, CommandLineAnswersByPolicyOrByAskingOnTheTerminal) {
    using Policy = TWCommandLineInteraction::Policy;
    const TWAlert saveDontSave =
        alert({QStringLiteral("Save"), QStringLiteral("Don't Save"), QStringLiteral("Later")});
    const TWAlert goWait = alert({QStringLiteral("Go"), QStringLiteral("Wait")});
    const struct {
        const char* what;
        Policy policy;
        bool interactive;
        std::string input;
        TWAlert shown;
        int answer;
    } cases[] = {
        {"yes takes the default", Policy::AssumeYes, true, "3\n", alert(kReplaceSkipCancel), 0},
        {"no takes Cancel, not Skip", Policy::AssumeNo, true, "1\n", alert(kReplaceSkipCancel), 2},
        {"no takes Don't Save", Policy::AssumeNo, false, "", saveDontSave, 1},
        {"no takes the last of two", Policy::AssumeNo, false, "", goWait, 1},
        {"no terminal: the default", Policy::Ask, false, "3\n", alert(kReplaceSkipCancel), 0},
        {"by number after wrong answers", Policy::Ask, true, "9\nmaybe\n2\n", alert(kReplaceSkipCancel), 1},
        {"by the start of a title", Policy::Ask, true, "c\n", alert(kReplaceSkipCancel), 2},
        {"in any case", Policy::Ask, true, "SKIP\n", alert(kReplaceSkipCancel), 1},
        {"return takes the default", Policy::Ask, true, "\n", alert(kReplaceSkipCancel), 0},
        {"end of input too", Policy::Ask, true, "", alert(kReplaceSkipCancel), 0},
    };
    for (const auto& c : cases)
        EXPECT_EQ(runOnTerminal(c.policy, c.interactive, c.input, c.shown).first, c.answer) << c.what;

    EXPECT_EQ(runOnTerminal(Policy::AssumeYes, true, "3\n", alert(kReplaceSkipCancel)).second,
              "Warning: Move Failed Exists\n'kick.wav' already exists in 'Drums'.\n"
              "  1) Replace   2) Skip   3) Cancel\n  -> Replace\n");
    // Asked again after each answer that fits no button.
    const std::string asked =
        runOnTerminal(Policy::Ask, true, "9\nmaybe\n2\n", alert(kReplaceSkipCancel)).second;
    size_t prompts = 0;
    for (size_t at = asked.find("Choose 1-3"); at != std::string::npos; at = asked.find("Choose 1-3", at + 1))
        ++prompts;
    EXPECT_EQ(prompts, 3u) << asked;

    // One button: nothing to ask.
    const TWAlert info{
        TWAlertStyle::Informational, QStringLiteral("Move Failed"), QStringLiteral("No such folder."), {}};
    EXPECT_EQ(runOnTerminal(Policy::Ask, true, "2\n", info),
              std::make_pair(0, std::string("Move Failed\nNo such folder.\n")));
}
