// Metadata and labels through whole files: written by LXAudioFileWriter, read back by LXAudioFile,
// rewritten, and read by libsndfile (sndfile-info) as an independent reader.

#include "LXAudioFile.h"
#include "LXAudioFileWriter.h"
#include "LXWaveformCache.h"
#include "TestAudio.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace TestAudio;

namespace {

constexpr double kRate = 44100.0;

double at(int64_t frame) {
    return double(frame) / kRate;
}

LXAnnotations annotations() {
    LXAnnotations a;
    const QVariantMap values = {{"title", "Take \u00e9"},
                                {"artist", "Artist"},
                                {"author", "Author"},
                                {"copyright", "(C) 2024"},
                                {"comments", "Comment"},
                                {"description", "Desc"},
                                {"originator", "Orig"},
                                {"baseNote", 62},
                                {"detune", 7},
                                {"lowNote", 40},
                                {"highNote", 90},
                                {"lowVelocity", 20},
                                {"highVelocity", 110},
                                {"gain", -3},
                                {"tempo", 128.0},
                                {"genre", "Test"},
                                {"annotation", "Note"},
                                {"timeReference", qint64(123456789012)},
                                {"loudnessValue", -23.5},
                                {"codingHistory", "A=PCM,F=44100\r\n"}};
    a.metadata = LXMetadata(values);
    a.labels.markers.addMarkerWithPosition(at(441), "Hit");
    a.labels.markers.addMarkerWithPosition(at(22050), "Middle");
    a.labels.slices.addSliceWithPosition(at(11025));
    a.labels.regions.addRegionWithRange(LXRange::rangeWithLocation(at(4410), at(8820)), "Phrase");
    a.labels.loops.addLoopWithType(LXLoopType::Forward, LXRange(at(30000), at(40000)));
    a.labels.loops.addLoopWithType(LXLoopType::Alternating, LXRange(at(20000), at(30000)), 3);
    a.unknownChunks.append({"zzzz", QByteArray("\x01\x02\x03", 3)});
    return a;
}

class MetadataFile : public testing::TestWithParam<uint32_t> {
protected:
    void SetUp() override {
        ASSERT_TRUE(dir.isValid());
        LXWaveformCache::shared().setDirectory(dir.filePath(QStringLiteral("cache")));
    }

    QString path(const char* name) const {
        return dir.filePath(QString::fromLatin1(name) + "." + LXFormat::extension(GetParam()));
    }

    QString write(const char* name, const LXAnnotations& a) {
        LXAudioFileWriter writer(dir.path());
        writer.setFormat(GetParam());
        writer.setRate(kRate);
        writer.setChannels(1);
        writer.setDepth(16);
        writer.annotations() = a;
        Sound sound;
        sound.channels = 1;
        sound.frames = 44100;
        const std::vector<double> samples = generate(sound);
        EXPECT_TRUE(writer.writeFrames(samples.data(), sound.frames));
        EXPECT_TRUE(writer.endWrite());
        const QString target = path(name);
        EXPECT_TRUE(writer.saveFile(0, target));
        return target;
    }

    std::unique_ptr<LXAudioFile> open(const QString& p) {
        auto file = LXAudioFile::open(p);
        EXPECT_TRUE(file) << (file ? "" : file.error().description().toStdString());
        return file ? std::move(*file) : nullptr;
    }

    QTemporaryDir dir;
};

void expectInLog(const QString& log, const QStringList& lines) {
    const QString flat = log.simplified();
    for (const QString& line : lines)
        EXPECT_TRUE(flat.contains(line)) << line.toStdString() << "\n" << log.toStdString();
}

} // namespace

TEST_P(MetadataFile, AnnotationsSurviveWritingReadingAndRewriting) {
    const LXAnnotations a = annotations();
    auto file = open(write("first", a));
    ASSERT_TRUE(file);
    const LXAnnotations& got = file->annotations();
    for (const QString& key : a.metadata.keys())
        EXPECT_EQ(got.metadata.value(key), a.metadata.value(key)) << key.toStdString();
    EXPECT_EQ(got.labels, a.labels);
    EXPECT_EQ(got.unknownChunks, a.unknownChunks);

    // An unchanged rewrite keeps everything; without "Retain Unrecognized Data" the unknown chunk goes.
    for (bool retain : {true, false}) {
        LXAudioFileWriter writer(*file);
        writer.setWriteUnusedChunks(retain);
        ASSERT_EQ(file->copyToWriter(writer), LXContinue);
        ASSERT_TRUE(writer.endWrite());
        const QString copyPath = path(retain ? "kept" : "dropped");
        ASSERT_TRUE(writer.saveFile(0, copyPath));
        auto copy = open(copyPath);
        ASSERT_TRUE(copy);
        EXPECT_EQ(copy->annotations().metadata, got.metadata);
        EXPECT_EQ(copy->annotations().labels, got.labels);
        EXPECT_EQ(copy->annotations().unknownChunks, retain ? got.unknownChunks : QList<LXChunk>{});
    }
}

TEST_P(MetadataFile, SndfileInfoSeesLabelsAndInstrument) {
    if (!haveTool("sndfile-info")) GTEST_SKIP() << "needs sndfile-info";
    const QString p = write("checked", annotations());
    int status = 0;
    const QString info = runTool("sndfile-info", {p}, &status);
    ASSERT_EQ(status, 0) << info.toStdString();
    const QString instrument = runTool("sndfile-info", {"--instrument", p});
    expectInLog(instrument, {"Base note : 62", "Mode : fwd Start : 30000 End : 40000"});
    if (GetParam() == LXFormat::WAVE) {
        expectInLog(info, {"INAM : Take \u00e9", "IART : Artist", "ICOP : (C) 2024", "ICMT : Comment",
                           "Count : 4 Cue ID : 1 Pos : 441", "Cue ID : 2 Pos : 22050",
                           "Cue ID : 3 Pos : 11025", "Cue ID : 4 Pos : 4410", "labl : 1 : Hit",
                           "Midi Note : 62", "Loop Count : 2", "Type : 0 Start : 30000 End : 39999",
                           "Type : 1 Start : 20000 End : 29999 Fraction : 0 Count : 3", "zzzz : 3"});
        expectInLog(instrument, {"Mode : alt Start : 20000 End : 30000 Count : 3"});
        expectInLog(runTool("sndfile-info", {"--broadcast", p}),
                    {"Description : Desc", "Originator : Orig", "Time ref : 0x1cbe991a14", "BWF version : 2",
                     "Loudness value : -23.50 LUFS", "Coding history : A=PCM,F=44100"});
    } else {
        expectInLog(info,
                    {"NAME : Take \u00e9", "AUTH : Author", "ANNO : Note", "string : Comment",
                     "Mark ID : 1 Position : 441 Name : Hit", "Mark ID : 2 Position : 22050 Name : Middle",
                     "Mark ID : 3 Position : 30000", "Mark ID : 4 Position : 40000", "Base Note : 62",
                     "Detune : 7", "Low Note : 40 High Note : 90 Low Vel. : 20 High Vel. : 110",
                     "Sustain mode : 801 => forward begin : 3 end : 4", "AppSig : CLPW"});
        // libsndfile reads gain and ranges from AIFF INST only (it skips the WAV inst chunk).
        expectInLog(instrument, {"Gain : -3", "Velocity : 20 - 110", "Key : 40 - 90"});
    }
}

INSTANTIATE_TEST_SUITE_P(Format, MetadataFile, testing::Values(LXFormat::WAVE, LXFormat::AIFF),
                         [](const auto& p) { return LXFormat::name(p.param).toStdString(); });
