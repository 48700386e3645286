// Extraction and labels at thresholds on recorded drum hits (the sonic-pi-samples package) put end to end
// with silence between them by sox, checked against each hit decoded by sox on its own and against the
// tests' own chunk reader (label_positions.py).

#include "CommandLineRunner.h"
#include "TestAudio.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <cmath>

TEST(ThresholdCommands, EachHitBecomesOneFileAndOneLabel) {
    const QDir samples("/usr/share/sonic-pi/samples");
    if (!samples.exists()) GTEST_SKIP() << "sonic-pi-samples is not installed";
    CommandLineRunner cli;
    const QDir work(cli.work());
    const int64_t gap = 13230; // 0.3 s of silence before, between and after the hits
    ASSERT_TRUE(TestAudio::generateWithSox(work.filePath("gap.wav"), {"-r", "44100", "-c", "1", "-n", "-b", "16"},
                                           {"trim", "0", QStringLiteral("%1s").arg(gap)}));
    const float attack = float(std::pow(10.0, -30.0 / 20)), release = float(std::pow(10.0, -50.0 / 20));
    QStringList joined{work.filePath("gap.wav")};
    QList<std::pair<int64_t, int64_t>> hits; // the first frame at -30 dB, and after the last at -50 dB
    int64_t offset = gap;
    for (const char* name : {"drum_bass_hard", "drum_snare_hard", "drum_cowbell"}) {
        const QString hit = samples.filePath(QStringLiteral("%1.flac").arg(name));
        const auto decoded = TestAudio::readWithSox(hit);
        ASSERT_TRUE(decoded && decoded->channels == 1) << name;
        const std::vector<double>& x = decoded->samples;
        std::pair<int64_t, int64_t> found{-1, -1};
        for (int64_t f = 0; f < decoded->frames(); ++f) {
            const float level = std::fabs(float(x[size_t(f)]));
            if (found.first < 0 && level >= attack) found.first = offset + f;
            if (level >= release) found.second = offset + f + 1;
        }
        ASSERT_GE(found.first, 0) << name;
        hits.append(found);
        joined << hit << work.filePath("gap.wav");
        offset += decoded->frames() + gap;
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
        EXPECT_EQ(piece->frames(), hits[i].second - hits[i].first);
        EXPECT_TRUE(std::equal(piece->samples.begin(), piece->samples.end(), decoded->samples.begin() + hits[i].first));
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
    for (const auto& [start, end] : hits) {
        starts << QString::number(start);
        spans << QStringLiteral("%1+%2").arg(start).arg(end - start);
    }
    int exitCode = -1;
    const QString printed =
        TestAudio::runTool("python3", {E2E_SOURCE_DIR "/label_positions.py", marked, regions}, &exitCode);
    ASSERT_EQ(exitCode, 0);
    EXPECT_EQ(printed.split(u'\n', Qt::SkipEmptyParts),
              (QStringList{"M:" + starts.join(',') + " R: L:", "M: R:" + spans.join(',') + " L:"}));
    EXPECT_EQ(TestAudio::readWithSox(marked)->samples, decoded->samples) << "the audio is copied as it is";

    // Levels above full scale and negative intervals are refused; 0 dB and 0 s are allowed.
    for (const char* bad : {"--attack=0.1", "--interval=-0.01"}) {
        const auto refused = cli.run(QStringList{"extract-thresholds"} + levels + QStringList{bad, source});
        EXPECT_EQ(refused.exitCode, 8) << bad;
        EXPECT_TRUE(refused.err.contains(QString(bad).contains("attack") ? "above full scale" : "negative"));
    }
    const auto zero = cli.run({"extract-thresholds", "--attack", "0", "--release", "0", "--interval", "0", source});
    EXPECT_EQ(zero.exitCode, 0) << zero.err.toStdString();
}
