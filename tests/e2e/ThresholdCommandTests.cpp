// Extraction and labels at thresholds on recorded drum hits (the sonic-pi-samples package) put end to end
// with silence between them by sox, checked against each hit decoded by sox on its own and against the
// tests' own chunk reader (label_positions.py).

#include "CommandLineRunner.h"
#include "TestAudio.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <cmath>

namespace {

// 0.3 s of silence before, between and after the hits.
constexpr int64_t kGap = 13230;

struct Hit {
    int64_t start = 0, end = 0; // in the joined file: the first frame at -30 dB, after the last at -50 dB
};

} // namespace

TEST(ThresholdCommands, EachHitBecomesOneFileAndOneLabel) {
    const QDir samples("/usr/share/sonic-pi/samples");
    if (!samples.exists()) GTEST_SKIP() << "sonic-pi-samples is not installed";
    CommandLineRunner cli;
    const QDir work(cli.work());
    ASSERT_TRUE(TestAudio::generateWithSox(work.filePath("gap.wav"), {"-r", "44100", "-c", "1", "-n", "-b", "16"},
                                           {"trim", "0", QStringLiteral("%1s").arg(kGap)}));
    const float attack = float(std::pow(10.0, -30.0 / 20)), release = float(std::pow(10.0, -50.0 / 20));
    QStringList joined{work.filePath("gap.wav")};
    QList<Hit> hits;
    std::vector<double> all;
    int64_t offset = kGap;
    for (const char* name : {"drum_bass_hard", "drum_snare_hard", "drum_cowbell"}) {
        const QString hit = samples.filePath(QStringLiteral("%1.flac").arg(name));
        const auto decoded = TestAudio::readWithSox(hit);
        ASSERT_TRUE(decoded && decoded->channels == 1) << name;
        const std::vector<double>& x = decoded->samples;
        Hit found{-1, -1};
        for (int64_t f = 0; f < decoded->frames(); ++f) {
            const float level = std::fabs(float(x[size_t(f)]));
            if (found.start < 0 && level >= attack) found.start = offset + f;
            if (level >= release) found.end = offset + f + 1;
        }
        ASSERT_GE(found.start, 0) << name;
        hits.append(found);
        joined << hit << work.filePath("gap.wav");
        offset += decoded->frames() + kGap;
    }
    const QString source = work.filePath("hits.wav");
    ASSERT_TRUE(TestAudio::generateWithSox(source, joined));
    const auto decoded = TestAudio::readWithSox(source);
    ASSERT_TRUE(decoded);
    ASSERT_EQ(decoded->frames(), offset);

    const QStringList levels{"--attack", "-30", "--release", "-50", "--interval", "0.05"};
    const auto extracted = cli.run(QStringList{"extract-thresholds"} + levels + QStringList{source});
    ASSERT_EQ(extracted.exitCode, 0) << extracted.err.toStdString();
    const QStringList files = extracted.lines();
    ASSERT_EQ(files.size(), hits.size()) << extracted.out.toStdString();
    for (qsizetype i = 0; i < files.size(); ++i) {
        SCOPED_TRACE(files[i].toStdString());
        EXPECT_EQ(QFileInfo(files[i]).fileName(), QStringLiteral("hits-%1.wav").arg(i + 1)) << "numbered from 1";
        const auto piece = TestAudio::readWithSox(files[i]);
        ASSERT_TRUE(piece);
        EXPECT_EQ(piece->frames(), hits[i].end - hits[i].start);
        EXPECT_TRUE(std::equal(piece->samples.begin(), piece->samples.end(),
                               decoded->samples.begin() + hits[i].start));
    }

    // The same regions as labels of the file itself: markers at their starts, or regions over them.
    const QString marked = work.filePath("marked.wav"), regions = work.filePath("regions.wav");
    ASSERT_TRUE(QFile::copy(source, marked) && QFile::copy(source, regions));
    for (const auto& [file, type] : {std::pair{marked, "MARK"}, std::pair{regions, "2"}}) {
        const auto made =
            cli.run(QStringList{"make-labels-at-thresholds", "-q", "--type", type} + levels + QStringList{file});
        ASSERT_EQ(made.exitCode, 0) << made.err.toStdString();
    }
    QStringList starts, spans;
    for (const Hit& hit : hits) {
        starts << QString::number(hit.start);
        spans << QStringLiteral("%1+%2").arg(hit.start).arg(hit.end - hit.start);
    }
    int exitCode = -1;
    const QString printed =
        TestAudio::runTool("python3", {E2E_SOURCE_DIR "/label_positions.py", marked, regions}, &exitCode);
    ASSERT_EQ(exitCode, 0);
    EXPECT_EQ(printed.split(u'\n', Qt::SkipEmptyParts),
              (QStringList{"M:" + starts.join(',') + " R: L:", "M: R:" + spans.join(',') + " L:"}));
    EXPECT_EQ(TestAudio::readWithSox(marked)->samples, decoded->samples) << "the audio is copied as it is";

    // Levels above full scale and negative intervals are refused before any file is touched; 0 is allowed.
    for (const QStringList& bad : {QStringList{"--attack", "0.1", "--release", "-50", "--interval", "0"},
                                   QStringList{"--attack", "-30", "--release", "-50", "--interval", "-0.01"}}) {
        const auto refused = cli.run(QStringList{"extract-thresholds"} + bad + QStringList{source});
        EXPECT_EQ(refused.exitCode, 8) << refused.err.toStdString();
        EXPECT_TRUE(refused.err.contains(bad[1] == "0.1" ? "above full scale" : "negative")) << refused.err.toStdString();
    }
    const auto zero = cli.run({"make-labels-at-thresholds", "--attack", "0", "--release", "0", "--interval", "0",
                               "--type", "0", source});
    EXPECT_EQ(zero.exitCode, 0) << zero.err.toStdString();
}
