// The WAV and AIFF metadata chunk codecs: round trips of every key and label kind, hand-made chunks as
// other programs write them, unknown chunks, and damaged and hostile chunks. AudioFileTests checks
// whole files written with these chunks against libsndfile.

#include "lx/LXAiffChunks.h"
#include "lx/LXWaveChunks.h"

#include "TestAudio.h"

#include <gtest/gtest.h>

#include <random>

// Readable failures: labels print as kind, start, length, name and loop details.
void PrintTo(const LXLabel& label, std::ostream* os) {
    *os << "{kind " << int(label.kind) << " start " << label.start << " length " << label.length << " \""
        << label.name.toStdString() << "\" type " << int(label.loopType) << " plays " << label.playCount
        << "}";
}

namespace {

constexpr double kRate = 44100.0;

LXAnnotations fullAnnotations() {
    LXAnnotations a;
    LXMetadata& m = a.metadata;
    for (const QString& key : LXMetadata::textKeys())
        m.setValue(key, key + QStringLiteral(" \u00e9\u266b"));
    m.setValue("album", "An album of its own");
    m.setValue("originationDate", "2024-05-06");
    m.setValue("originationTime", "12:34:56");
    m.setValue("timeReference", qint64(86400) * 48000 * 3 + 7);
    m.setValue("SMPTEUMID", "060A2B340101010501010D4313000000AABBCCDDEEFF00112233445566778899");
    m.setValue("codingHistory", "A=PCM,F=44100,W=16,M=mono\r\n");
    m.setValue("iXML", "<?xml version=\"1.0\"?><BWFXML><SCENE>12</SCENE></BWFXML>");
    const QVariantMap numbers = {{"baseNote", 61},
                                 {"detune", -12},
                                 {"gain", -6},
                                 {"lowNote", 36},
                                 {"highNote", 96},
                                 {"lowVelocity", 10},
                                 {"highVelocity", 120},
                                 {"tempo", 97.5},
                                 {"timeSignature", "7/8"},
                                 {"key", 9},
                                 {"scale", 2},
                                 {"barsBeats", "2.1.0"},
                                 {"playbackType", 1},
                                 {"beats", 14},
                                 {"bextVersion", 2},
                                 {"loudnessValue", -23.5},
                                 {"loudnessRange", 7.25},
                                 {"maxTruePeakLevel", -1.5},
                                 {"maxMomentaryLoudness", -18.0},
                                 {"maxShortTermLoudness", -20.25},
                                 {"samplerManufacturer", 71},
                                 {"samplerProduct", 5},
                                 {"SMPTEFormat", 25},
                                 {"SMPTEOffset", 0x01020304},
                                 {"samplerData", "0A0B0C00"}};
    for (auto it = numbers.cbegin(); it != numbers.cend(); ++it)
        m.setValue(it.key(), it.value());
    // Properties of the encoding, not of the recording: not stored by the chunk codecs.
    m.remove("channelLayout");
    m.remove("nominalBitRate");

    LXLabels& l = a.labels;
    l.markers.addMarkerWithPosition(TestAudio::seconds(100), "Intro \u00e9");
    l.markers.addMarkerWithPosition(TestAudio::seconds(44100));
    l.slices.addSliceWithPosition(TestAudio::seconds(2205));
    l.slices.addSliceWithPosition(TestAudio::seconds(4410));
    l.regions.addRegionWithRange(
        LXRange::rangeWithLocation(TestAudio::seconds(1000), TestAudio::seconds(5000)), "Verse");
    l.regions.addRegionWithRange(LXRange::rangeWithLocation(TestAudio::seconds(0), TestAudio::seconds(1)));
    l.loops.addLoopWithType(LXLoopType::Forward,
                            LXRange(TestAudio::seconds(8000), TestAudio::seconds(16000)));
    l.loops.addLoopWithType(LXLoopType::Alternating,
                            LXRange(TestAudio::seconds(20000), TestAudio::seconds(30000)), 3);
    l.loops.addLoopWithType(LXLoopType::Backward,
                            LXRange(TestAudio::seconds(30000), TestAudio::seconds(30002)));
    return a;
}

QByteArray dataOf(const QList<LXChunk>& chunks, const QByteArray& id) {
    for (const LXChunk& c : chunks)
        if (c.id == id) return c.data;
    ADD_FAILURE() << "no " << id.constData() << " chunk";
    return {};
}

void expectSameAnnotations(const LXAnnotations& got, const LXAnnotations& want) {
    for (const QString& key : want.metadata.keys())
        EXPECT_EQ(got.metadata.value(key), want.metadata.value(key)) << key.toStdString();
    for (const QString& key : got.metadata.keys())
        EXPECT_TRUE(want.metadata.contains(key)) << "unexpected key " << key.toStdString();
    for (LXLabelKind kind : {LXLabelKind::Marker, LXLabelKind::Slice, LXLabelKind::Region, LXLabelKind::Loop})
        EXPECT_EQ(got.labels.list(kind).list(), want.labels.list(kind).list()) << "label kind " << int(kind);
    EXPECT_EQ(got.unknownChunks, want.unknownChunks);
}

// An integer of n bytes, little-endian unless big.
QByteArray num(uint64_t v, int n, bool big = false) {
    QByteArray out;
    for (int i = 0; i < n; ++i) {
        const int shift = 8 * (big ? n - 1 - i : i);
        out.append(char(shift < 64 ? v >> shift : 0));
    }
    return out;
}

// A RIFF sub-chunk: id, little-endian size, data and pad byte.
QByteArray chunkBytes(const QByteArray& id, const QByteArray& data) {
    return id + num(uint32_t(data.size()), 4) + data + (data.size() % 2 ? QByteArray(1, '\0') : QByteArray());
}

class WaveChunks : public testing::TestWithParam<bool> {};

} // namespace

// ---- Round trips

TEST_P(WaveChunks, EveryKeyAndLabelKindSurvivesARoundTrip) {
    const bool big = GetParam();
    LXAnnotations in = fullAnnotations();
    const LXAnnotations want = in;
    in.metadata.setValue("channelLayout", "L R");
    expectSameAnnotations(LXWaveChunks::decode(LXWaveChunks::encode(in, kRate, big, true), kRate, big), want);
}

TEST_P(WaveChunks, ProductDoublesAsAlbumAndDetuneFoldsIntoTheNote) {
    const bool big = GetParam();
    LXAnnotations in;
    in.metadata = LXMetadata({{"album", "Songs"}, {"baseNote", 60}, {"detune", -30}});
    const QList<LXChunk> chunks = LXWaveChunks::encode(in, kRate, big, true);
    // The smpl chunk stores the pitch as a fraction above the note: 59 and 70 cents.
    EXPECT_EQ(dataOf(chunks, "smpl").mid(12, 4), num(59, 4, big));
    const LXMetadata m = LXWaveChunks::decode(chunks, kRate, big).metadata;
    EXPECT_EQ(m, LXMetadata({{"album", "Songs"}, {"product", "Songs"}, {"baseNote", 60}, {"detune", -30}}));
    EXPECT_TRUE(std::none_of(chunks.begin(), chunks.end(), [](const LXChunk& c) { return c.id == "CLPW"; }))
        << "nothing needed the private chunk";
}

INSTANTIATE_TEST_SUITE_P(ByteOrder, WaveChunks, testing::Values(false, true),
                         [](const auto& p) { return p.param ? "RIFX" : "RIFF"; });

TEST(AiffChunks, EveryKeyAndLabelKindSurvivesARoundTrip) {
    const LXAnnotations in = fullAnnotations();
    expectSameAnnotations(LXAiffChunks::decode(LXAiffChunks::encode(in, kRate, true), kRate), in);
}

TEST(AiffChunks, LoopsThatFitTheInstrumentChunkNeedNoPrivateChunk) {
    LXAnnotations in;
    in.labels.markers.addMarkerWithPosition(TestAudio::seconds(10), "Hit");
    in.labels.loops.addLoopWithType(LXLoopType::Forward,
                                    LXRange(TestAudio::seconds(100), TestAudio::seconds(200)));
    in.labels.loops.addLoopWithType(LXLoopType::Alternating,
                                    LXRange(TestAudio::seconds(300), TestAudio::seconds(400)));
    in.labels.slices.addSliceWithPosition(TestAudio::seconds(50));
    QList<LXChunk> chunks = LXAiffChunks::encode(in, kRate, false);
    // Another program drops our APPL chunk: the loops live on in INST, the slices are gone, and the
    // markers the loops point at are not mistaken for markers of the file.
    chunks.removeIf([](const LXChunk& c) { return c.id == "APPL"; });
    const LXAnnotations out = LXAiffChunks::decode(chunks, kRate);
    EXPECT_EQ(out.labels.markers.list(), in.labels.markers.list());
    EXPECT_EQ(out.labels.loops.list(), in.labels.loops.list());
    EXPECT_TRUE(out.labels.slices.isEmpty());
    EXPECT_EQ(out.metadata.value("baseNote"), 60);
}

// ---- Chunks as other programs write them

// Some programs give each loop a cue point of its own: it is part of the loop, not a marker.
TEST(WaveChunkLabels, CuePointsThatBelongToLoopsAreNotMarkers) {
    const QByteArray cue = num(2, 4) + num(1, 4) + num(8000, 4) + "data" + num(0, 8) + num(8000, 4) +
                           num(2, 4) + num(50, 4) + "data" + num(0, 8) + num(50, 4);
    const QByteArray smpl = num(0, 12) + num(60, 4) + num(0, 12) + num(1, 4) + num(0, 4) + num(1, 4) +
                            num(0, 4) + num(8000, 4) + num(8999, 4) + num(0, 8);
    const LXAnnotations a = LXWaveChunks::decode({{"cue ", cue}, {"smpl", smpl}}, kRate, false);
    ASSERT_EQ(a.labels.markers.count(), 1);
    EXPECT_EQ(a.labels.markers.labelAtIndex(0).start, TestAudio::seconds(50));
    ASSERT_EQ(a.labels.loops.count(), 1);
    EXPECT_TRUE(a.labels.loops.labelAtIndex(0).range().isEqualToRange(
        LXRange(TestAudio::seconds(8000), TestAudio::seconds(9000))));
}

TEST(ChunkCodecText, IsUtf8WhenValidAndLatin1Otherwise) {
    const QByteArray info = "INFO" + chunkBytes("INAM", "Caf\xe9") + chunkBytes("IART", "Caf\xc3\xa9");
    const LXMetadata m = LXWaveChunks::decode({{"LIST", info}}, kRate, false).metadata;
    EXPECT_EQ(m.value("title"), QStringLiteral("Caf\u00e9"));
    EXPECT_EQ(m.value("artist"), QStringLiteral("Caf\u00e9"));
    EXPECT_EQ(LXAiffChunks::decode({{"NAME", "Caf\xe9"}}, kRate).metadata.value("title"),
              QStringLiteral("Caf\u00e9"));
}

// ---- Unknown chunks: kept byte for byte, unknown INFO fields included, and dropped on request.

TEST(WaveChunksUnknown, AreKeptByteForByteAndDroppedOnRequest) {
    const LXChunk odd{"abcd", QByteArray("\x01\x02\x03", 3)};
    const LXChunk exif{"LIST", "exif" + chunkBytes("ecor", "Maker")};
    const QByteArray name = chunkBytes("INAM", QByteArray("Name\0", 5));
    const QByteArray sampler = chunkBytes("ISMP", QByteArray("00:01\0", 6));
    const LXAnnotations a =
        LXWaveChunks::decode({odd, {"LIST", "INFO" + name + sampler}, exif}, kRate, false);
    EXPECT_EQ(a.metadata.value("title"), "Name");
    EXPECT_EQ(a.unknownChunks, (QList<LXChunk>{odd, {"LIST", "INFO" + sampler}, exif}));
    EXPECT_EQ(LXWaveChunks::encode(a, kRate, false, true),
              (QList<LXChunk>{{"LIST", "INFO" + name + sampler}, odd, exif}))
        << "the unknown INFO field joins the INFO list";
    EXPECT_EQ(LXWaveChunks::encode(a, kRate, false, false), (QList<LXChunk>{{"LIST", "INFO" + name}}));
}

TEST(AiffChunksUnknown, ForeignApplicationChunksAreKeptByteForByte) {
    const LXChunk foreign{"APPL", QByteArray("stoc\x05hello", 10)};
    const LXChunk id3{"ID3 ", QByteArray("ID3\x04\0\0\0\0\0\0", 10)};
    const LXAnnotations a = LXAiffChunks::decode({foreign, {"NAME", "Take 1"}, id3}, kRate);
    EXPECT_EQ(a.metadata.value("title"), "Take 1");
    EXPECT_EQ(a.unknownChunks, (QList<LXChunk>{foreign, id3}));
    EXPECT_EQ(LXAiffChunks::encode(a, kRate, true), (QList<LXChunk>{{"NAME", "Take 1"}, foreign, id3}));
    EXPECT_EQ(LXAiffChunks::encode(a, kRate, false), (QList<LXChunk>{{"NAME", "Take 1"}}));
}

// ---- Damaged chunks

// Torn lists give the entries that were whole; odd-sized INFO fields read with or without their pad.
TEST(ChunksDamaged, TornListsGiveWhatWasWhole) {
    QByteArray cue = num(10, 4);
    for (uint32_t id : {1u, 2u})
        cue += num(id, 4) + num(id * 100, 4) + "data" + num(0, 8) + num(id * 100, 4);
    const LXAnnotations wave = LXWaveChunks::decode({{"cue ", cue + "xyz"}}, kRate, false);
    ASSERT_EQ(wave.labels.markers.count(), 2);
    EXPECT_EQ(wave.labels.markers.labelAtIndex(1).start, TestAudio::seconds(200));
    EXPECT_TRUE(wave.unknownChunks.isEmpty());

    for (bool padded : {true, false}) {
        const QByteArray info = "INFOIART" + num(3, 4) + "Bob" +
                                (padded ? QByteArray(1, '\0') : QByteArray()) + "INAM" + num(5, 4) + "Title";
        const LXMetadata m = LXWaveChunks::decode({{"LIST", info}}, kRate, false).metadata;
        EXPECT_EQ(m.value("artist"), "Bob");
        EXPECT_EQ(m.value("title"), "Title") << "padded " << padded;
    }

    // A marker whose name is cut short and a count too large; a comment chunk with a torn tail.
    const QByteArray mark = num(5, 2, true) + num(1, 2, true) + num(100, 4, true) + QByteArray("\x03One", 4) +
                            num(2, 2, true) + num(200, 4, true) + QByteArray("\x09Tw", 3);
    const QByteArray comt =
        num(3, 2, true) + num(0, 6, true) + num(5, 2, true) + "Hello" + QByteArray(1, '\0') + num(0, 4, true);
    const LXAnnotations aiff = LXAiffChunks::decode({{"MARK", mark}, {"COMT", comt}}, kRate);
    ASSERT_EQ(aiff.labels.markers.count(), 2);
    EXPECT_EQ(aiff.labels.markers.labelAtIndex(0).name, "One");
    EXPECT_EQ(aiff.labels.markers.labelAtIndex(1).name, "Tw");
    EXPECT_EQ(aiff.metadata.value("comments"), "Hello");
}

// A chunk too short for its fields stays unknown, and so is kept byte for byte.
TEST(ChunksDamaged, ChunksTooShortForTheirFieldsStayUnknown) {
    const QList<LXChunk> full = LXWaveChunks::encode(fullAnnotations(), kRate, false, true);
    for (const LXChunk& chunk : full) {
        const LXChunk empty{chunk.id, {}};
        EXPECT_EQ(LXWaveChunks::decode({empty}, kRate, false).unknownChunks, QList<LXChunk>{empty});
    }
    for (const auto& [id, minimum] :
         {std::pair{"bext", 348}, {"smpl", 36}, {"inst", 7}, {"acid", 24}, {"cue ", 4}}) {
        const LXChunk cut{id, dataOf(full, id).left(minimum - 1)};
        EXPECT_EQ(LXWaveChunks::decode({cut}, kRate, false).unknownChunks, QList<LXChunk>{cut}) << id;
    }
    const LXChunk inst{"INST", QByteArray(19, '\x01')};
    EXPECT_EQ(LXAiffChunks::decode({inst}, kRate).unknownChunks, QList<LXChunk>{inst});
    // A bext cut inside its UMID still gives its text fields.
    const LXAnnotations a = LXWaveChunks::decode({{"bext", dataOf(full, "bext").left(400)}}, kRate, false);
    EXPECT_EQ(a.metadata.value("originator"), fullAnnotations().metadata.value("originator"));
    EXPECT_TRUE(a.unknownChunks.isEmpty());
}

// Every prefix of every chunk we write, random damage to them, and random chunks: nothing may crash,
// hang or read out of bounds (run under the address sanitizer), and whatever is read can be written.
TEST(ChunksDamaged, SurviveTruncationAndRandomDamage) {
    auto roundTrip = [](const QList<LXChunk>& chunks, int kind) { // RIFF, RIFX, AIFF
        if (kind == 2)
            (void)LXAiffChunks::encode(LXAiffChunks::decode(chunks, kRate), kRate, true);
        else
            (void)LXWaveChunks::encode(LXWaveChunks::decode(chunks, kRate, kind == 1), kRate, kind == 1,
                                       true);
    };
    std::mt19937 random(20240506);
    for (int kind = 0; kind < 3; ++kind) {
        const QList<LXChunk> chunks = kind == 2
                                          ? LXAiffChunks::encode(fullAnnotations(), kRate, true)
                                          : LXWaveChunks::encode(fullAnnotations(), kRate, kind == 1, true);
        for (qsizetype i = 0; i < chunks.size(); ++i)
            for (qsizetype n = 0; n < chunks[i].data.size(); ++n) {
                QList<LXChunk> cut = chunks;
                cut[i].data.truncate(n);
                roundTrip(cut, kind);
            }
        for (int round = 0; round < 2000; ++round) {
            QList<LXChunk> damaged = chunks;
            LXChunk& victim = damaged[random() % damaged.size()];
            for (int flips = 1 + int(random() % 8); flips > 0 && !victim.data.isEmpty(); --flips)
                victim.data[random() % victim.data.size()] = char(random() % 4 ? random() : 0xFF);
            // Now and then a chunk of noise under the name of one we interpret.
            if (round % 4 == 0) {
                QByteArray noise(int(random() % 64), '\0');
                for (char& c : noise)
                    c = char(random());
                damaged.append({chunks[random() % chunks.size()].id, noise});
            }
            roundTrip(damaged, kind);
        }
    }
}
