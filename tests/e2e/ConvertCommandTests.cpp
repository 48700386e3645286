// The format conversions through the clipwright program, with sox as the oracle: bit depths and dither,
// sample rates, channel matrices.

#include "CommandLineRunner.h"
#include "TestAudio.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <cmath>

namespace {

class ConvertCommands : public testing::Test {
protected:
    CommandLineRunner cli;

    QString path(const QString& name) const { return QDir(cli.work()).filePath(name); }
    QString make(const QString& name, const QStringList& format, const QStringList& synth) const {
        EXPECT_TRUE(TestAudio::generateWithSox(path(name), QStringList{"-n"} + format, synth));
        return path(name);
    }
    QString copy(const QString& from, const QString& to) const {
        QFile::remove(to);
        EXPECT_TRUE(QFile::copy(from, to));
        return to;
    }
    void convert(const QStringList& arguments, const QString& file) const {
        const auto result = cli.run(QStringList(arguments) << "-q" << file);
        ASSERT_EQ(result.exitCode, 0) << arguments.join(' ').toStdString() << ": " << result.err.toStdString();
    }
    static std::vector<double> samples(const QString& file) {
        const auto decoded = TestAudio::readWithSox(file);
        EXPECT_TRUE(decoded) << file.toStdString();
        return decoded ? decoded->samples : std::vector<double>{};
    }
    static QString soxi(const QString& option, const QString& file) {
        return TestAudio::runTool("soxi", {option, file}).trimmed();
    }
};

// The largest difference between two files' samples, in steps of a 16-bit integer (the lengths must agree).
double largestDifference(const std::vector<double>& a, const std::vector<double>& b) {
    EXPECT_EQ(a.size(), b.size());
    double largest = 0;
    for (size_t i = 0; i < std::min(a.size(), b.size()); ++i)
        largest = std::max(largest, std::fabs(a[i] - b[i]));
    return largest * 32768;
}

const QStringList kStereoSines = {"synth", "1", "sine", "440", "sine", "1000", "vol", "0.7"};

} // namespace

TEST_F(ConvertCommands, BitDepthsRoundTripExactlyAndDitherIsTheSameOnEveryRun) {
    const QString source = make("s16.wav", {"-r", "44100", "-b", "16", "-c", "2"}, kStereoSines);
    const std::vector<double> original = samples(source);
    const QString file = copy(source, path("round.wav"));
    convert({"convert-range", "--depth", "24"}, file);
    EXPECT_EQ(soxi("-b", file), "24");
    EXPECT_EQ(samples(file), original);
    convert({"convert-range", "--depth", "FL32"}, file);
    EXPECT_EQ(soxi("-e", file), "Floating Point PCM");
    EXPECT_EQ(samples(file), original);
    convert({"convert-range", "--depth", "16"}, file);
    EXPECT_EQ(soxi("-b", file), "16");
    EXPECT_EQ(samples(file), original);
    // Already 16 bits and no dither: nothing to do, the file is not touched.
    const QByteArray before = readBytes(file);
    convert({"convert-range", "--depth", "16"}, file);
    EXPECT_EQ(readBytes(file), before);

    // From 24 bits with dither, twice under the same name: the same noise, within 1.5 steps of the source.
    const QString deep = make("deep.wav", {"-r", "44100", "-b", "24", "-c", "2"}, kStereoSines);
    QDir(cli.work()).mkdir("again");
    const QString again = copy(deep, path("again/deep.wav"));
    const QString plain = copy(deep, path("plain.wav"));
    for (const QString& dithered : {deep, again})
        convert({"convert-range", "--depth", "16", "--dither", "SHAP"}, dithered);
    convert({"convert-range", "--depth", "16", "--dither", "TPDF"}, plain);
    EXPECT_EQ(samples(deep), samples(again));
    EXPECT_NE(samples(deep), samples(plain));
    EXPECT_LT(largestDifference(samples(plain), original), 1.5);

    // 20 bits: stored in 24-bit words, every sample on the 20-bit grid.
    const QString twenty = copy(source, path("twenty.wav"));
    convert({"convert-range", "--depth", "20", "--dither", "TPDF"}, twenty);
    EXPECT_EQ(soxi("-b", twenty), "24");
    for (double sample : samples(twenty))
        ASSERT_EQ(std::fmod(sample * 524288, 1.0), 0.0);
}

TEST_F(ConvertCommands, DepthsAFormatCannotHoldAreRefusedNamingTheFile) {
    const QString flac = make("tone.flac", {"-r", "44100", "-b", "16", "-c", "1"}, {"synth", "0.1", "sine", "440"});
    const QByteArray before = readBytes(flac);
    const auto refused = cli.run({"convert-range", "--depth", "FL32", flac});
    EXPECT_NE(refused.exitCode, 0);
    EXPECT_TRUE(refused.err.contains("tone.flac")) << refused.err.toStdString();
    EXPECT_TRUE(refused.err.contains("32-bit float")) << refused.err.toStdString();
    EXPECT_EQ(readBytes(flac), before);
    convert({"convert-range", "--depth", "24"}, flac);
    EXPECT_EQ(TestAudio::runTool("flac", {"-t", "-s", flac}), "");
    EXPECT_EQ(soxi("-b", flac), "24");
}

TEST_F(ConvertCommands, RatesMatchSoxAndARelabelKeepsEverySample) {
    const QString source = make("s48.wav", {"-r", "48000", "-b", "24", "-c", "2"}, kStereoSines);
    ASSERT_TRUE(TestAudio::generateWithSox(path("sox.wav"), {source}, {"rate", "-v", "44100"}));
    const QString file = copy(source, path("resampled.wav"));
    convert({"convert-rate", "--rate", "44100", "--quality", "1"}, file);
    EXPECT_EQ(soxi("-r", file), "44100");
    EXPECT_EQ(soxi("-s", file), "44100");
    // Two very-high-quality converters from one author agree far below 16 bits, away from the edges.
    std::vector<double> ours = samples(file), sox = samples(path("sox.wav"));
    ASSERT_EQ(ours.size(), sox.size());
    const size_t edge = 2 * 2000;
    EXPECT_LT(largestDifference({ours.begin() + edge, ours.end() - edge}, {sox.begin() + edge, sox.end() - edge}),
              0.1);

    for (const QString convertor : {"1", "2", "3"}) {
        const QString other = copy(source, path("convertor" + convertor + ".wav"));
        convert({"convert-rate", "--rate", "44100", "--convertor", convertor, "--quality", "0.5"}, other);
        EXPECT_EQ(soxi("-s", other), "44100") << convertor.toStdString();
    }

    const QString relabelled = copy(source, path("relabelled.wav"));
    convert({"convert-rate", "--rate", "44100", "--resample", "no"}, relabelled);
    EXPECT_EQ(soxi("-r", relabelled), "44100");
    EXPECT_EQ(samples(relabelled), samples(source));

    const QByteArray before = readBytes(file);
    convert({"convert-rate", "--rate", "44100", "--convertor", "2", "--quality", "0"}, file);
    EXPECT_EQ(readBytes(file), before);
}

TEST_F(ConvertCommands, MatricesMixWithinAStepOfSoxAndLeaveOtherLayoutsAlone) {
    const QString stereo = make("stereo.wav", {"-r", "44100", "-b", "16", "-c", "2"}, kStereoSines);
    const QString mono = make("mono.wav", {"-r", "44100", "-b", "16", "-c", "1"}, {"synth", "1", "sine", "300"});
    const QString surround = make("surround.wav", {"-r", "44100", "-b", "24", "-c", "6"},
                                  {"synth", "1", "sine", "100", "sine", "200", "sine", "300", "sine", "400",
                                   "sine", "500", "sine", "600", "vol", "0.4"});
    const struct {
        QString matrix;
        QString source;
        QStringList remix;
    } cases[] = {
        {"1", stereo, {"1v0.5,2v0.5"}},
        {"3", stereo, {"2", "1"}},
        {"6", stereo, {"1v0.5,2v0.5", "1v0.5,2v-0.5"}},
        {"8", surround, {"1v0.41421356,3v0.29289322,5v0.29289322", "2v0.41421356,3v0.29289322,6v0.29289322"}},
        {"10", stereo, {"1", "2", "0", "0", "0", "0"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.matrix.toStdString());
        const QString file = copy(c.source, path("matrix" + c.matrix + ".wav"));
        const QString reference = path("remix" + c.matrix + ".wav");
        ASSERT_TRUE(TestAudio::generateWithSox(reference, {c.source}, QStringList{"remix"} + c.remix));
        convert({"convert-channels", "--matrix", c.matrix}, file);
        EXPECT_EQ(soxi("-c", file), QString::number(c.remix.size()));
        EXPECT_LE(largestDifference(samples(file), samples(reference)), c.source == surround ? 1.0 / 256 : 1.0);
    }
    const QByteArray before = readBytes(mono);
    convert({"convert-channels", "--matrix", "1"}, mono);
    EXPECT_EQ(readBytes(mono), before);

    const auto unknown = cli.run({"convert-channels", "--matrix", "999", stereo});
    EXPECT_NE(unknown.exitCode, 0);
}

TEST_F(ConvertCommands, EveryFormatPassesItsValidatorAndKeepsWhatItCanHold) {
    // 48 kHz, the one rate here that Opus takes; titled, with four markers.
    const QString source = make("source.wav", {"-r", "48000", "-b", "16", "-c", "2"}, kStereoSines);
    convert({"set-property", "--key", "title", "--value", "Morning take"}, source);
    convert({"make-labels-at-divisions", "--divisions", "4", "--type", "MARK"}, source);
    const std::vector<double> original = samples(source);
    const struct {
        QString format;
        QString probed; // ffprobe's format name
        bool lossless, title;
    } cases[] = {{"RF64", "wav", true, true},     {"WV64", "w64", true, false},  {"AIFF", "aiff", true, true},
                 {"AIFC", "aiff", true, true},    {"CAFF", "caf", true, true},   {"AU  ", "au", true, false},
                 {"FLAC", "flac", true, true},    {"OGGV", "ogg", false, true},  {"OPUS", "ogg", false, true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.format.toStdString());
        const QString file = copy(source, path("to" + c.format.trimmed() + ".wav"));
        const auto dry = cli.run({"convert-format", "--format", c.format, "--dry-run", file});
        const auto result = cli.run({"convert-format", "--format", c.format, file});
        ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
        const QString converted = result.lines().value(0);
        int status = -1;
        const QString probed = TestAudio::runTool(
            "ffprobe", {"-v", "error", "-show_entries", "format=format_name:format_tags=title:stream_tags=title",
                        "-of", "compact", converted},
            &status);
        EXPECT_EQ(status, 0);
        EXPECT_TRUE(probed.contains("format_name=" + c.probed)) << probed.toStdString();
        EXPECT_EQ(probed.contains("Morning take", Qt::CaseInsensitive), c.title) << probed.toStdString();
        TestAudio::runTool("sndfile-info", {converted}, &status);
        EXPECT_EQ(status, 0);
        if (c.format == "FLAC") {
            TestAudio::runTool("flac", {"-t", "-s", converted}, &status);
            EXPECT_EQ(status, 0);
        }
        if (c.lossless) {
            EXPECT_EQ(samples(converted), original);
        }
        // Labels stay where the format holds them; elsewhere the run names what it left behind.
        const bool labelled = c.format == "RF64" || c.format.startsWith("AIF");
        EXPECT_EQ(dry.out.contains("left behind: labels"), !labelled) << dry.out.toStdString();
        EXPECT_EQ(result.err.contains("left behind: labels"), !labelled) << result.err.toStdString();
        if (c.format == "WV64") {
            EXPECT_TRUE(dry.out.contains("title")) << dry.out.toStdString();
        }
    }
    EXPECT_EQ(readBytes(path("toRF64.wav")).left(4), "RF64");
    const auto opus = cli.run({"convert-format", "--format", "OPUS", make("cd.wav", {"-r", "44100"}, kStereoSines)});
    EXPECT_NE(opus.exitCode, 0);
    EXPECT_TRUE(opus.err.contains("cd.wav") && opus.err.contains("44100")) << opus.err.toStdString();
}
