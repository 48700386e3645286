// Files appended, joined side by side and mixed into one, and channels extracted, checked against sox and
// the tests' own chunk reader.

#include "CommandLineRunner.h"
#include "TestAudio.h"

#include <QDir>

#include <gtest/gtest.h>

namespace {

std::vector<double> samplesOf(const QString& file) {
    auto decoded = TestAudio::readWithSox(file);
    EXPECT_TRUE(decoded) << file.toStdString();
    return decoded ? decoded->samples : std::vector<double>();
}

} // namespace

// A stereo 24-bit file taken apart and put together again is the same file; so is a file cut in two and
// appended. Appended labels move by where their file starts, and each file gets a region.
TEST(CombineCommands, ExtractJoinAndAppendGiveTheSourceBack) {
    CommandLineRunner cli;
    const QDir work(cli.work());
    const QString source = work.filePath("take.wav");
    ASSERT_TRUE(work.mkdir("joined") && work.mkdir("appended"));
    ASSERT_TRUE(TestAudio::generateWithSox(source, {"-n", "-r", "44100", "-b", "24", "-c", "2"},
                                           {"synth", "1.5", "sine", "440", "sine", "660"}));
    auto result = cli.run({"extract-channels", source});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    ASSERT_EQ(result.lines(), (QStringList{work.filePath("take-1.wav"), work.filePath("take-2.wav")}));
    EXPECT_EQ(TestAudio::runTool("soxi", {"-c", result.lines()[1]}).trimmed(), "1");
    result = cli.run({"join-channels", "--directory", work.filePath("joined"), result.lines()[0], result.lines()[1]});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_EQ(samplesOf(result.lines().value(0)), samplesOf(source));

    // Halves of 1 s and 0.5 s, and a 0.5 s file with markers at 0 and 0.25 s.
    for (const auto& [name, trim] : {std::pair{"a.wav", QStringList{"trim", "0", "1"}},
                                     std::pair{"b.wav", QStringList{"trim", "1"}}})
        ASSERT_TRUE(TestAudio::generateWithSox(work.filePath(name), {source}, trim));
    const QString marked = work.filePath("c.wav");
    ASSERT_TRUE(TestAudio::generateWithSox(marked, {source}, {"trim", "0", "0.5"}));
    ASSERT_EQ(cli.run({"make-labels-at-divisions", "--divisions", "2", "--type", "MARK", marked}).exitCode, 0);
    result = cli.run({"append", "--directory", work.filePath("appended"), work.filePath("a.wav"),
                      work.filePath("b.wav"), marked});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    const QString appended = result.lines().value(0);
    std::vector<double> expected = samplesOf(source);
    const std::vector<double> third = samplesOf(marked);
    expected.insert(expected.end(), third.begin(), third.end());
    EXPECT_EQ(samplesOf(appended), expected);
    EXPECT_EQ(TestAudio::runTool("python3", {E2E_SOURCE_DIR "/label_positions.py", appended}).trimmed(),
              "M:66150,77175 R:0+44100,44100+22050,66150+22050 L:");
}

// The mix is the plain average, within one step of 24 bits of sox's; files at another rate are refused.
TEST(CombineCommands, MixAveragesAndOtherRatesAreRefused) {
    CommandLineRunner cli;
    const QDir work(cli.work());
    const QString a = work.filePath("a.wav"), b = work.filePath("b.wav"), fast = work.filePath("fast.wav");
    ASSERT_TRUE(TestAudio::generateWithSox(a, {"-n", "-r", "44100", "-b", "24", "-c", "2"},
                                           {"synth", "1", "sine", "300", "vol", "0.7"}));
    ASSERT_TRUE(TestAudio::generateWithSox(b, {"-n", "-r", "44100", "-b", "24", "-c", "2"},
                                           {"synth", "1", "sine", "500", "vol", "0.9"}));
    ASSERT_TRUE(TestAudio::generateWithSox(fast, {"-n", "-r", "48000", "-b", "24", "-c", "2"}, {"synth", "1"}));
    const auto result = cli.run({"mix", a, b});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    const QString sox = work.filePath("sox.wav");
    TestAudio::runTool("sox", {"-D", "-m", a, b, sox});
    const std::vector<double> ours = samplesOf(result.lines().value(0)), theirs = samplesOf(sox);
    ASSERT_EQ(ours.size(), theirs.size());
    double worst = 0;
    for (size_t i = 0; i < ours.size(); ++i)
        worst = std::max(worst, std::fabs(ours[i] - theirs[i]));
    EXPECT_LE(worst, 1.0 / (1 << 23));

    const auto refused = cli.run({"append", a, fast});
    EXPECT_EQ(refused.exitCode, 8);
    EXPECT_TRUE(refused.err.contains("48000 Hz")) << refused.err.toStdString();
    EXPECT_FALSE(QFile::exists(work.filePath("a-2.wav"))) << "nothing is written";
}
