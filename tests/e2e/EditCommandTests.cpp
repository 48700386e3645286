// The editing commands (fades, trims, length edits) on short generated files and on recorded speech, with
// sox and a chunk reader of the tests' own (label_positions.py) as oracles.

#include "CommandLineRunner.h"
#include "TestAudio.h"

#include "lx/LXAudioFileWriter.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cmath>
#include <numeric>

namespace {

class EditCommands : public testing::Test {
protected:
    CommandLineRunner cli;

    QString path(const QString& name) const { return QDir(cli.work()).filePath(name); }
    QString copy(const QString& from, const QString& name) const {
        QFile::remove(path(name));
        EXPECT_TRUE(QFile::copy(from, path(name)));
        return path(name);
    }
    // 20000 frames at 8 kHz (more than one of the 16 K-frame blocks the edits stream), a 440 Hz sine on the
    // left and a 660 Hz one on the right, at half scale.
    QString makeStereo(const QString& name, int bits) const {
        EXPECT_TRUE(TestAudio::generateWithSox(
            path(name), {"-r", "8000", "-n", "-b", QString::number(bits), "-c", "2"},
            {"synth", "20000s", "sine", "440", "sine", "660", "vol", "0.5"}));
        return path(name);
    }
    // 1000 frames at 8 kHz, mono 16-bit, with markers at 50, 300 and 700, a region over [200, 500), a loop
    // over [600, 800) and (WAV) a broadcast time reference of 1000000.
    QString makeLabelled(const QString& name, uint32_t format) const {
        const TestAudio::Sound sound{
            .signal = TestAudio::Signal::Sine, .rate = 8000, .channels = 1, .frames = 1000};
        LXAudioFileWriter writer(cli.work());
        writer.setFormat(format);
        writer.setRate(sound.rate);
        writer.setDepth(16);
        writer.setChannels(1);
        const auto at = [](int64_t frame) { return TestAudio::seconds(frame, 8000); };
        for (int64_t frame : {50, 300, 700})
            writer.markerList().addMarkerWithPosition(at(frame), "m");
        writer.regionList().addRegionWithRange(LXRange(at(200), at(500)), "phrase");
        writer.loopList().addLoopWithType(LXLoopType::Forward, LXRange(at(600), at(800)));
        if (format == LXFormat::WAVE) writer.metadata().setValue("timeReference", qint64(1000000));
        const std::vector<double> samples = TestAudio::generate(sound);
        EXPECT_TRUE(writer.writeFrames(samples.data(), sound.frames));
        EXPECT_TRUE(writer.endWrite());
        EXPECT_TRUE(writer.saveFile(0, path(name)));
        return path(name);
    }
    void edit(const QStringList& arguments, const QString& file) const {
        const auto result = cli.run(QStringList(arguments) << "-q" << file);
        ASSERT_EQ(result.exitCode, 0)
            << arguments.join(' ').toStdString() << ": " << result.err.toStdString();
    }
    static std::vector<double> samples(const QString& file) {
        const auto decoded = TestAudio::readWithSox(file);
        EXPECT_TRUE(decoded) << file.toStdString();
        return decoded ? decoded->samples : std::vector<double>{};
    }
    // The label positions of each file, one line a file, as label_positions.py prints them.
    static QStringList labels(const QStringList& files) {
        int exitCode = -1;
        QString error;
        const QString out = TestAudio::runTool(
            "python3", QStringList(E2E_SOURCE_DIR "/label_positions.py") + files, &exitCode, &error);
        EXPECT_EQ(exitCode, 0) << error.toStdString();
        return out.split(u'\n', Qt::SkipEmptyParts);
    }
};

double largestDifference(const std::vector<double>& a, const std::vector<double>& b) {
    double largest = 0;
    for (size_t i = 0; i < std::min(a.size(), b.size()); ++i)
        largest = std::max(largest, std::fabs(a[i] - b[i]));
    return largest;
}

// The gain of a fade at x (0 silent, 1 full), from the quadratic Bezier through (0, 0) and (1, 1) with its
// control point at (curve, 1 - curve): x(t) = (1 - 2 curve) t^2 + 2 curve t solved for t, then y(t).
double bezierGain(double x, double curve) {
    const double a = 1 - 2 * curve, b = 2 * curve;
    const double t = std::fabs(a) < 1e-12 ? x : (-b + std::sqrt(b * b + 4 * a * x)) / (2 * a);
    return 2 * t * (1 - t) * (1 - curve) + t * t;
}

ino_t inodeOf(const QString& file) {
    struct stat info {};
    return ::stat(QFile::encodeName(file).constData(), &info) == 0 ? info.st_ino : 0;
}

} // namespace

// Every cut is bit-exact and every straight fade within one step of the integer scale, in a 16-bit WAV and a
// 24-bit AIFF.
TEST_F(EditCommands, CutsPadsAndStraightFadesMatchSox) {
    const struct {
        QStringList edit;
        QStringList sox;
    } cases[] = {
        {{"fade-in", "--for", "17000", "--units", "2"}, {"fade", "t", "17000s"}},
        {{"fade-in", "--for", "30000", "--units", "FRMS"}, {"fade", "t", "20000s"}}, // longer than the file
        {{"fade-out", "--for", "18000", "--units", "2"}, {"fade", "t", "0", "0", "18000s"}},
        {{"trim-beginning", "--beginningTo", "16500", "--units", "2"}, {"trim", "16500s"}},
        {{"trim-beginning", "--beginningTo", "2.9", "--units", "2"}, {"trim", "2s"}},
        {{"trim-beginning", "--beginningTo", "12.5", "--units", "0"}, {"trim", "100s"}},
        {{"trim-end", "--endFor", "17000", "--units", "2"}, {"trim", "0", "3000s"}},
        {{"trim-end", "--endFor", "2.9", "--units", "2"}, {"trim", "0", "19997s"}},
        {{"trim-end", "--endFor", "5", "--units", "3"}, {"trim", "0", "19000s"}},
        {{"crop", "--start", "0.0125", "--end", "2.25"}, {"trim", "100s", "17900s"}},
        {{"snip", "--start", "0.0125", "--end", "2.25"}, {"trim", "0", "=100s", "=18000s"}},
        {{"pad", "--startFor", "2.5", "--endFor", "2.0025"}, {"pad", "20000s", "16020s"}},
        // 20003.04 frames: three more, the edge in the middle, one each side and the third lost to
        // truncation.
        {{"extend", "--length", "2.50038", "--edge", "0.5"}, {"pad", "1s", "1s"}},
        {{"shorten", "--length", "0.5", "--edge", "0.25"}, {"trim", "12000s", "4000s"}},
    };
    for (int bits : {16, 24}) {
        const QString extension = bits == 16 ? ".wav" : ".aif";
        const QString source = makeStereo("source" + extension, bits);
        for (const auto& c : cases) {
            SCOPED_TRACE(QStringLiteral("%1 bits: %2").arg(bits).arg(c.edit.join(' ')).toStdString());
            const QString ours = copy(source, "ours" + extension);
            edit(c.edit, ours);
            ASSERT_TRUE(TestAudio::generateWithSox(path("sox.wav"), {source}, c.sox));
            const std::vector<double> got = samples(ours), want = samples(path("sox.wav"));
            ASSERT_EQ(got.size(), want.size());
            const bool fade = c.edit.first().startsWith("fade");
            EXPECT_LE(largestDifference(got, want), fade ? std::ldexp(1.0, 1 - bits) : 0.0);
        }
    }
}

TEST_F(EditCommands, CurvedFadesFollowTheirBezierCurve) {
    const QString source = makeStereo("source.wav", 16);
    const std::vector<double> before = samples(source);
    const struct {
        const char* command;
        double curve;
        int64_t frames;
    } fades[] = {{"fade-in", 0.2, 17000}, {"fade-out", 0.9, 18000}, {"fade-in", 0.95, 20000}};
    for (const auto& fade : fades) {
        SCOPED_TRACE(std::string(fade.command) + " " + std::to_string(fade.curve));
        const QString ours = copy(source, "ours.wav");
        edit({fade.command, "--for", QString::number(fade.frames), "--units", "2", "--curve",
              QString::number(fade.curve)},
             ours);
        const std::vector<double> after = samples(ours);
        ASSERT_EQ(after.size(), before.size());
        double largest = 0;
        for (size_t i = 0; i < after.size(); ++i) {
            const double f = double(i / 2);
            const double x = std::string(fade.command) == "fade-in" ? f / double(fade.frames)
                                                                    : (20000.0 - f) / double(fade.frames);
            const double gain = x < 1 ? bezierGain(x, fade.curve) : 1.0;
            largest = std::max(largest, std::fabs(after[i] - before[i] * gain));
        }
        EXPECT_LE(largest, 1.0 / 32768);
    }
}

// A fade in of no length and a fade out longer than the file leave the file alone (its inode and bytes); a
// fade out of no length rewrites it with the same samples.
TEST_F(EditCommands, FadesThatChangeNoSampleKeepTheFileOrItsSamples) {
    const QString source = makeStereo("source.wav", 16);
    const struct {
        QStringList fade;
        bool rewrites;
    } cases[] = {{{"fade-in", "--for", "0"}, false},
                 {{"fade-out", "--for", "20001", "--units", "2"}, false},
                 {{"fade-out", "--for", "0"}, true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fade.join(' ').toStdString());
        const QString file = copy(source, "faded.wav");
        const ino_t inode = inodeOf(file);
        edit(c.fade, file);
        EXPECT_EQ(inodeOf(file) != inode, c.rewrites);
        EXPECT_EQ(samples(file), samples(source));
        EXPECT_TRUE(c.rewrites || readBytes(file) == readBytes(source));
    }
}

// Durations in seconds become frames without losing any to floating point: 0.7 s at 44.1 kHz is 30870 frames
// (30869.999999999996 in doubles), and 16777.218 s at 1 kHz is 16777218 frames (beyond a float's 24 bits).
TEST_F(EditCommands, DurationsInSecondsGiveTheirWholeFrames) {
    const auto frames = [](const QString& file) {
        return TestAudio::runTool("soxi", {"-s", file}).toLongLong();
    };
    ASSERT_TRUE(TestAudio::generateWithSox(path("padded.wav"), {"-r", "44100", "-n", "-b", "16"},
                                           {"synth", "100s", "sine", "440"}));
    ASSERT_TRUE(TestAudio::generateWithSox(path("extended.wav"), {"-r", "1000", "-n", "-b", "8"},
                                           {"synth", "1s", "sine", "100"}));
    edit({"pad", "--startFor", "0.7"}, path("padded.wav"));
    edit({"extend", "--length", "16777.218", "--edge", "0"}, path("extended.wav"));
    EXPECT_EQ(frames(path("padded.wav")), 100 + 30870);
    EXPECT_EQ(frames(path("extended.wav")), 16777218);
}

// Markers move with their audio and are dropped with it; a region keeps what remains of its audio; a loop
// that loses a frame is dropped; the time reference names the new first frame.
TEST_F(EditCommands, LabelsFollowTheAudioInWaveAndAiff) {
    const struct {
        QStringList edit;
        const char* labels;
        int64_t reference; // change of the time reference
    } cases[] = {
        {{}, "M:50,300,700 R:200+300 L:600-800", 0},
        {{"trim-beginning", "--beginningTo", "100", "--units", "2"}, "M:200,600 R:100+300 L:500-700", 100},
        {{"trim-end", "--endFor", "300", "--units", "2"}, "M:50,300,700 R:200+300 L:", 0}, // 700 now the end
        {{"crop", "--start", "0.0375", "--end", "0.075"}, "M:0 R:0+200 L:", 300},
        {{"snip", "--start", "0.03125", "--end", "0.04375"}, "M:50,600 R:200+200 L:500-700", 0},
        {{"pad", "--startFor", "0.005", "--endFor", "0.01"}, "M:90,340,740 R:240+300 L:640-840", -40},
        {{"extend", "--length", "0.13", "--edge", "0.25"}, "M:80,330,730 R:230+300 L:630-830", -30},
        {{"shorten", "--length", "0.1", "--edge", "0.75"}, "M:0,250,650 R:150+300 L:550-750", 50},
        {{"trim-around-loop", "--beforeLoopStart", "yes", "--afterLoopEnd", "yes"}, "M:100 R: L:0-200", 600},
        {{"fade-in", "--for", "100", "--units", "2"}, "M:50,300,700 R:200+300 L:600-800", 0},
        {{"compact", "--removeNonstandard", "yes"}, "M:50,300,700 R:200+300 L:600-800", 0},
        // Resampled, each label stays at its time (the reference, in frames, doubles); relabelled, at its frame.
        {{"convert-rate", "--rate", "16000"}, "M:100,600,1400 R:400+600 L:1200-1600", 1000000},
        {{"convert-rate", "--rate", "16000", "--resample", "no"}, "M:50,300,700 R:200+300 L:600-800", 0},
    };
    for (uint32_t format : {LXFormat::WAVE, LXFormat::AIFF}) {
        const QString extension = format == LXFormat::WAVE ? ".wav" : ".aif";
        const QString source = makeLabelled("labelled" + extension, format);
        QStringList files;
        for (const auto& c : cases) {
            files.append(copy(source, QStringLiteral("edited%1").arg(files.size()) + extension));
            if (!c.edit.isEmpty()) edit(c.edit, files.last());
        }
        const QStringList found = labels(files);
        ASSERT_EQ(found.size(), files.size());
        for (qsizetype i = 0; i < files.size(); ++i) {
            const QString reference = format == LXFormat::WAVE
                                          ? QStringLiteral(" T:%1").arg(1000000 + cases[i].reference)
                                          : QString();
            EXPECT_EQ(found[i].toStdString(), (cases[i].labels + reference).toStdString())
                << extension.toStdString() << " " << cases[i].edit.join(' ').toStdString();
        }
    }
}

// On recorded speech (mono, 8 kHz), and on a stereo file whose left channel starts (and ends) 160 frames
// after its right, the kept audio starts at the first frame in which a channel reaches the level and ends
// after the last one, moved by the offset; a fade by level ramps up to the one and down from the other. A
// zero-crossing snap moves each cut outward to the nearest crossing of the channels' sum.
TEST_F(EditCommands, TrimsAndFadesByLevelFindTheFirstAndLastFrameThatReachIt) {
    const QDir sounds("/usr/share/asterisk/sounds/en_US_f_Allison");
    if (!sounds.exists()) GTEST_SKIP() << "asterisk-core-sounds-en-wav is not installed";
    ASSERT_TRUE(TestAudio::generateWithSox(path("late.wav"), {"-r", "8000", "-c", "2", "-n", "-b", "16"},
                                           {"synth", "2000s", "sine", "440", "vol", "0.5", "fade", "t",
                                            "1000s", "0", "1000s", "delay", "0.02", "0"}));
    const float level = float(std::pow(10.0, -30.0 / 20));
    for (const QString& source : {sounds.filePath("vm-goodbye.wav"), sounds.filePath("beep.wav"),
                                  sounds.filePath("vm-intro.wav"), path("late.wav")}) {
        SCOPED_TRACE(source.toStdString());
        const auto decoded = TestAudio::readWithSox(source);
        ASSERT_TRUE(decoded);
        const std::vector<double>& before = decoded->samples;
        const int channels = decoded->channels;
        const int64_t n = decoded->frames();
        const auto reaches = [&](int64_t f) {
            for (int c = 0; c < channels; ++c)
                if (std::fabs(float(before[size_t(f * channels + c)])) >= level) return true;
            return false;
        };
        const auto sum = [&](int64_t f) {
            return std::accumulate(&before[size_t(f * channels)], &before[size_t(f * channels + channels)],
                                   0.0);
        };
        const auto crossing = [&](int64_t f) { return f <= 0 || f >= n || sum(f - 1) * sum(f) <= 0; };
        int64_t first = 0, last = n - 1;
        while (first < n && !reaches(first))
            ++first;
        while (last >= 0 && !reaches(last))
            --last;
        ASSERT_LT(first, last);

        const QString faded = copy(source, "faded.wav");
        edit({"fade-in", "--below", "-30"}, faded);
        edit({"fade-out", "--below", "-30"}, faded);
        ASSERT_TRUE(TestAudio::generateWithSox(
            path("sox.wav"), {source},
            {"fade", "t", QStringLiteral("%1s").arg(first), "0", QStringLiteral("%1s").arg(n - last - 1)}));
        const std::vector<double> fadedSamples = samples(faded);
        ASSERT_EQ(fadedSamples.size(), before.size());
        EXPECT_LE(largestDifference(fadedSamples, samples(path("sox.wav"))), 1.0 / 32768);

        for (const QStringList& extra :
             QList<QStringList>{{}, {"--offset", "-0.01"}, {"--zeroCross", "yes"}}) {
            SCOPED_TRACE(extra.join(' ').toStdString());
            const int64_t offset = extra.contains("--offset") ? -80 : 0;
            const QString start = copy(source, "start.wav"), end = copy(source, "end.wav");
            edit(QStringList{"trim-beginning", "--beginningBelow", "-30"} + extra, start);
            edit(QStringList{"trim-end", "--endBelow", "-30"} + extra, end);
            const std::vector<double> head = samples(start), tail = samples(end);
            ASSERT_TRUE(head.size() <= before.size() && tail.size() <= before.size());
            const int64_t cut = n - int64_t(head.size()) / channels, kept = int64_t(tail.size()) / channels;
            EXPECT_TRUE(std::equal(head.begin(), head.end(), before.begin() + cut * channels));
            EXPECT_TRUE(std::equal(tail.begin(), tail.end(), before.begin()));
            if (!extra.contains("--zeroCross")) {
                EXPECT_EQ(cut, std::max<int64_t>(first + offset, 0));
                EXPECT_EQ(kept, last + 1 + offset);
                continue;
            }
            EXPECT_LE(cut, first);
            EXPECT_TRUE(crossing(cut));
            for (int64_t f = cut + 1; f <= first; ++f)
                EXPECT_FALSE(crossing(f)) << f;
            EXPECT_GE(kept, last + 1);
            EXPECT_TRUE(crossing(kept));
            for (int64_t f = last + 1; f < kept; ++f)
                EXPECT_FALSE(crossing(f)) << f;
        }
    }
}

TEST_F(EditCommands, UndoGivesBackTheExactBytesAfterEveryEdit) {
    const QString file = makeLabelled("labelled.wav", LXFormat::WAVE);
    const QByteArray original = readBytes(file);
    const QList<QStringList> edits = {
        {"fade-in", "--for", "10", "--units", "0"},
        {"fade-in", "--below", "-20", "--offset", "0.005"},
        {"fade-out", "--for", "0.01", "--curve", "0.3"},
        {"fade-out", "--below", "-20", "--offset", "-0.005"},
        {"trim-beginning", "--beginningTo", "10", "--units", "2"},
        {"trim-beginning", "--beginningBelow", "-20"},
        {"trim-end", "--endFor", "10", "--units", "2"},
        {"trim-end", "--endBelow", "-10", "--offset", "-0.005"},
        {"trim-around-loop", "--beforeLoopStart", "yes", "--afterLoopEnd", "yes"},
        {"pad", "--startFor", "0.01"},
        {"extend", "--length", "0.2"},
        {"shorten", "--length", "0.1"},
        {"crop", "--start", "0.01", "--end", "0.1"},
        {"snip", "--start", "0.01", "--end", "0.1"},
        {"compact", "--removeNonstandard", "yes"}};
    for (const QStringList& e : edits) {
        SCOPED_TRACE(e.join(' ').toStdString());
        edit(e, file);
        if (e.first() != "compact") {
            EXPECT_NE(readBytes(file), original);
        }
        const auto undo = cli.run({"undo", "-q"});
        EXPECT_EQ(undo.exitCode, 0) << undo.err.toStdString();
        EXPECT_EQ(readBytes(file), original);
    }
    for (const char* command : {"crop", "snip"}) {
        const auto refused = cli.run({command, "--start", "0.01", "--end", "0.1", "--to-new-file", file});
        EXPECT_EQ(refused.exitCode, 2) << command;
        EXPECT_EQ(readBytes(file), original);
        EXPECT_EQ(QDir(cli.work()).entryList(QDir::Files), QStringList{"labelled.wav"});
    }
}
