// Tags that other programs wrote survive clipwright changing the file in place: every ID3v2 frame and
// Vorbis comment, unknown and multi-line ones included, cover art, and AIFF comment chunks. ffprobe and
// ffmpeg read them back.

#include "CommandLineRunner.h"

#include "TestAudio.h"

#include <QtEndian>

#include <gtest/gtest.h>

using namespace TestAudio;

namespace {

// The payload of the first chunk with this ID in an AIFF file; empty when there is none.
QByteArray aiffChunk(const QString& path, const QByteArray& id) {
    const QByteArray bytes = readBytes(path);
    for (qsizetype at = 12; at + 8 <= bytes.size();) {
        const qsizetype size = qFromBigEndian<quint32>(bytes.constData() + at + 4);
        if (bytes.mid(at, 4) == id) return bytes.mid(at + 8, size);
        at += 8 + size + (size & 1);
    }
    return {};
}

} // namespace

TEST(Tags, EveryTagAndPictureSurvivesAnInPlaceChange) {
    CommandLineRunner runner;
    const QString cover = runner.work() + "/cover.png";
    int status = -1;
    runTool("ffmpeg",
            {"-v", "error", "-f", "lavfi", "-i", "color=c=red:s=16x16", "-frames:v", "1", "-y", cover},
            &status);
    ASSERT_EQ(status, 0);
    // TBPM, TKEY and an unknown field (a TXXX frame in ID3v2) beside the common ones, and a comment of
    // two lines. Ogg and Opus carry no picture here: ffmpeg cannot attach one to them.
    const QMap<QString, QString> tags{{"title", "Field Take"},   {"artist", "Ana Ruiz"},
                                      {"TBPM", "128"},           {"TKEY", "Am"},
                                      {"CATALOG_ID", "cw-0042"}, {"comment", "first line\nsecond line"}};
    const QStringList pictured{"tagged.flac", "tagged.mp3", "tagged.aif"};
    QStringList paths;
    QList<QMap<QString, QString>> before;
    for (const QString& name : pictured + QStringList{"tagged.ogg", "tagged.opus"}) {
        auto made = generateTaggedWithFfmpeg(runner.work() + u'/' + name, tags,
                                             pictured.contains(name) ? cover : QString());
        ASSERT_TRUE(made) << made.error().description().toStdString();
        paths.append(*made);
        before.append(tagsWithFfprobe(*made));
        ASSERT_TRUE(before.last().contains("CATALOG_ID")) << name.toStdString();
    }

    const auto result = runner.run(QStringList{"change-gain", "--level", "-3"} + paths);
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    for (qsizetype i = 0; i < paths.size(); ++i) {
        SCOPED_TRACE(paths[i].toStdString());
        const QMap<QString, QString> after = tagsWithFfprobe(paths[i]);
        for (auto tag = before[i].cbegin(); tag != before[i].cend(); ++tag)
            EXPECT_EQ(after.value(tag.key()).toStdString(), tag.value().toStdString())
                << tag.key().toStdString();
        if (i < pictured.size()) {
            const QString extracted = runner.work() + "/extracted" + QString::number(i) + ".png";
            runTool("ffmpeg", {"-v", "error", "-i", paths[i], "-map", "0:v", "-c", "copy", "-f", "image2",
                               "-y", extracted});
            EXPECT_EQ(readBytes(extracted), readBytes(cover));
        }
    }
}

TEST(Tags, AnAiffCommentChunkKeepsItsTimeStamp) {
    CommandLineRunner runner;
    // sox stamps each comment with the time it wrote it.
    const QString path = runner.work() + "/noted.aif";
    ASSERT_TRUE(
        generateWithSox(path, {"-n", "-r", "44100", "-b", "16", "-c", "1", "--comment", "take 3, close mic"},
                        {"synth", "0.2", "sine", "440"}));
    const QByteArray comments = aiffChunk(path, "COMT");
    ASSERT_TRUE(comments.contains("take 3, close mic"));

    const auto result = runner.run({"change-gain", "--level", "-3", path});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_EQ(aiffChunk(result.lines().value(0), "COMT"), comments);
}
