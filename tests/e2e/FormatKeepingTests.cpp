// An in-place change keeps what the file is: its name, container, codec and lossy bit rate (read back by
// ffprobe), and every metadata chunk byte for byte; a codec that cannot be written back is refused
// before anything changes unless the user accepts a re-encode.

#include "CommandLineRunner.h"
#include "TestAudio.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QtEndian>

#include <gtest/gtest.h>

namespace {

// ffprobe's codec of the first audio stream, and the file's bytes over its seconds in bits per second.
std::pair<QString, double> probe(const QString& path) {
    const QJsonObject json =
        QJsonDocument::fromJson(
            TestAudio::runTool("ffprobe", {"-v", "error", "-print_format", "json", "-show_format",
                                           "-show_streams", "-select_streams", "a:0", path})
                .toUtf8())
            .object();
    const QJsonObject format = json["format"].toObject();
    const double seconds = format["duration"].toString().toDouble();
    const double bits = format["size"].toString().toDouble() * 8;
    return {json["streams"].toArray().at(0).toObject()["codec_name"].toString(),
            seconds > 0 ? bits / seconds : 0};
}

bool make(const QStringList& command) {
    int status = -1;
    TestAudio::runTool(command.first(), command.mid(1), &status);
    return status == 0;
}

QByteArray le32(uint32_t v) {
    QByteArray b(4, 0);
    qToLittleEndian(v, b.data());
    return b;
}

QByteArray chunk(const char* id, const QByteArray& payload) {
    return QByteArray(id, 4) + le32(uint32_t(payload.size())) + payload + (payload.size() & 1 ? "\0" : "");
}

// The chunks of a RIFF file by id, as stored.
QMap<QByteArray, QByteArray> riffChunks(const QByteArray& file) {
    QMap<QByteArray, QByteArray> chunks;
    for (qsizetype pos = 12; pos + 8 <= file.size();) {
        const uint32_t size = qFromLittleEndian<uint32_t>(file.constData() + pos + 4);
        chunks.insert(file.mid(pos, 4), file.mid(pos + 8, size));
        pos += 8 + size + (size & 1);
    }
    return chunks;
}

} // namespace

TEST(FormatKeeping, NameCodecAndBitRateSurviveAGain) {
    CommandLineRunner cli;
    const QString w = cli.work();
    const QString noise = QStringLiteral("anoisesrc=d=3:a=0.2");
    const QStringList ffmpeg = {"ffmpeg", "-loglevel", "error", "-f", "lavfi", "-i", noise};
    ASSERT_TRUE(make({"sox", "-n", "-b", "16", w + "/a.aiff", "synth", "0.5", "sine", "440"}));
    ASSERT_TRUE(
        make({"sox", "-n", "-r", "8000", "-e", "u-law", w + "/u.wav", "synth", "0.5", "sine", "440"}));
    ASSERT_TRUE(
        make({"sox", "-n", "-r", "8000", "-e", "ima-adpcm", w + "/i.wav", "synth", "0.5", "sine", "440"}));
    ASSERT_TRUE(make({"sox", "-n", "-b", "64", "-e", "float", w + "/d.au", "synth", "0.5", "sine", "440"}));
    ASSERT_TRUE(make(ffmpeg + QStringList{"-c:a", "libopus", "-b:a", "64k", w + "/o.opus"}));
    ASSERT_TRUE(make(ffmpeg + QStringList{"-b:a", "192k", w + "/m.mp3"}));
    ASSERT_TRUE(make(ffmpeg + QStringList{"-c:a", "libvorbis", "-q:a", "3", w + "/v.oga"}));
    ASSERT_TRUE(make(ffmpeg + QStringList{"-c:a", "flac", "-f", "flac", w + "/flac.mp3"}));
    const QStringList names = {"a.aiff", "u.wav", "i.wav", "d.au", "o.opus", "m.mp3", "v.oga", "flac.mp3"};
    QMap<QString, std::pair<QString, double>> before;
    QStringList paths;
    for (const QString& name : names) {
        before[name] = probe(w + u'/' + name);
        paths.append(w + u'/' + name);
    }

    const auto result = cli.run(QStringList{"change-gain", "--quiet", "--level", "-1", "--"} + paths);
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_EQ(result.lines(), paths);
    for (const QString& name : names) {
        const auto [codec, rate] = probe(w + u'/' + name);
        EXPECT_EQ(codec, before[name].first) << name.toStdString();
        if (codec == u"opus" || codec == u"mp3" || codec == u"vorbis") {
            EXPECT_NEAR(rate, before[name].second, before[name].second * 0.1) << name.toStdString();
        }
    }
    EXPECT_EQ(QDir(w).entryList(QDir::Files).size(), names.size());

    // A big-endian file of three channels comes back in a header that FFmpeg reads as well as libsndfile.
    const QString rifx = w + "/rifx.wav";
    ASSERT_TRUE(make({"sox", "-n", "-B", "-c", "3", "-b", "24", rifx, "synth", "0.5", "sine", "440"}));
    ASSERT_EQ(cli.run({"change-gain", "--quiet", "--level", "-1", rifx}).exitCode, 0);
    EXPECT_EQ(readBytes(rifx).left(4), "RIFX");
    EXPECT_FALSE(probe(rifx).first.isEmpty()); // sox writes one FFmpeg cannot read
    EXPECT_NEAR(peakDecibels(rifx), -1.0, 0.05);
}

TEST(FormatKeeping, ACodecThatCannotBeWrittenIsRefusedUnlessAccepted) {
    CommandLineRunner cli;
    const QString path = cli.work() + QStringLiteral("/layer2.mp2");
    ASSERT_TRUE(make({"ffmpeg", "-loglevel", "error", "-f", "lavfi", "-i", "sine=d=1", "-c:a", "mp2", path}));
    const QByteArray original = readBytes(path);

    const auto refused = cli.run({"change-gain", "--level", "-1", path});
    EXPECT_NE(refused.exitCode, 0);
    EXPECT_TRUE(refused.err.contains(path) && refused.err.contains(QStringLiteral("MPEG Layer 2")))
        << refused.err.toStdString();
    EXPECT_EQ(readBytes(path), original);

    const auto accepted = cli.run({"change-gain", "--quiet", "--accept-reencode", "--level", "-1", path});
    EXPECT_EQ(accepted.exitCode, 0) << accepted.err.toStdString();
    EXPECT_EQ(accepted.lines(), QStringList{path});
    EXPECT_EQ(probe(path).first, QStringLiteral("mp3"));

    // Integers wider than 32 bits would lose their low bits.
    const QString wide = cli.work() + QStringLiteral("/wide.wav");
    ASSERT_TRUE(
        make({"ffmpeg", "-loglevel", "error", "-f", "lavfi", "-i", "sine=d=0.2", "-c:a", "pcm_s64le", wide}));
    const auto refusedWide = cli.run({"change-gain", "--level", "-1", wide});
    EXPECT_TRUE(refusedWide.err.contains("holds 64-bit integer samples")) << refusedWide.err.toStdString();
}

// The chunks as another program wrote them: a sample period that is not 10^9 / rate rounded, a loop under
// cue identifier 7, an acid chunk without the stretch flag, a cue point numbered 7.
TEST(FormatKeeping, MetadataChunksStayByteForByte) {
    CommandLineRunner cli;
    const QString path = cli.work() + QStringLiteral("/loop.wav");
    QByteArray samples;
    for (int i = 0; i < 2000; ++i)
        samples += QByteArray::fromRawData(i % 20 < 10 ? "\x00\x20" : "\x00\xE0", 2);
    const QByteArray fmt = QByteArray::fromHex("0100010044ac00008858010002001000"); // 16-bit mono, 44100 Hz
    QByteArray smpl =
        le32(0) + le32(0) + le32(22676) + le32(60) + le32(0) + le32(0) + le32(0) + le32(1) + le32(0);
    smpl += le32(7) + le32(0) + le32(100) + le32(1099) + le32(0) + le32(0);
    const QByteArray acid = le32(0x2) + QByteArray::fromHex("3c00 8000 00000000") + le32(4) +
                            QByteArray::fromHex("0400 0400 0000f042");
    const QByteArray cue = le32(1) + le32(7) + le32(500) + QByteArray("data") + le32(0) + le32(0) + le32(500);
    const QByteArray body = QByteArray("WAVE") + chunk("fmt ", fmt) + chunk("cue ", cue) +
                            chunk("smpl", smpl) + chunk("acid", acid) + chunk("data", samples);
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QByteArray("RIFF") + le32(uint32_t(body.size())) + body);
    file.close();

    const auto result = cli.run({"change-gain", "--quiet", "--level", "-1", path});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    const QMap<QByteArray, QByteArray> after = riffChunks(readBytes(path));
    EXPECT_EQ(after.value("smpl").toHex().toStdString(), smpl.toHex().toStdString());
    EXPECT_EQ(after.value("acid").toHex().toStdString(), acid.toHex().toStdString());
    EXPECT_EQ(after.value("cue ").toHex().toStdString(), cue.toHex().toStdString());
    EXPECT_NE(after.value("data"), samples); // the gain was applied
}
