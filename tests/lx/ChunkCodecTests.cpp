// The WAV and AIFF metadata chunk codecs: round trips of every key and label kind, damaged and hostile
// chunks, unknown chunks, and chunks written by libsndfile (sndfile-metadata-set). MetadataFileTests
// checks whole files written with these chunks against sndfile-info.

#include "LXAiffChunks.h"
#include "LXWaveChunks.h"
#include "TestAudio.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <random>

using namespace TestAudio;

// Readable failures: labels print as kind, start, length, name and loop details.
void PrintTo(const LXLabel& label, std::ostream* os) {
    *os << "{kind " << int(label.kind) << " start " << label.start << " length " << label.length << " \""
        << label.name.toStdString() << "\" type " << int(label.loopType) << " plays " << label.playCount
        << "}";
}

void PrintTo(const LXLabelList& list, std::ostream* os) {
    for (const LXLabel& label : list.list())
        PrintTo(label, os);
}

namespace {

constexpr double kRate = 44100.0;

double at(int64_t frame) {
    return double(frame) / kRate;
}

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
    l.markers.addMarkerWithPosition(at(100), "Intro \u00e9");
    l.markers.addMarkerWithPosition(at(44100));
    l.slices.addSliceWithPosition(at(2205));
    l.slices.addSliceWithPosition(at(4410));
    l.regions.addRegionWithRange(LXRange::rangeWithLocation(at(1000), at(5000)), "Verse");
    l.regions.addRegionWithRange(LXRange::rangeWithLocation(at(0), at(1)));
    l.loops.addLoopWithType(LXLoopType::Forward, LXRange(at(8000), at(16000)));
    l.loops.addLoopWithType(LXLoopType::Alternating, LXRange(at(20000), at(30000)), 3);
    l.loops.addLoopWithType(LXLoopType::Backward, LXRange(at(30000), at(30002)));
    return a;
}

const LXChunk* findChunk(const QList<LXChunk>& chunks, const QByteArray& id) {
    const auto it = std::find_if(chunks.begin(), chunks.end(), [&](const LXChunk& c) { return c.id == id; });
    return it != chunks.end() ? &*it : nullptr;
}

void expectSameAnnotations(const LXAnnotations& got, const LXAnnotations& want) {
    for (const QString& key : want.metadata.keys())
        EXPECT_EQ(got.metadata.value(key), want.metadata.value(key)) << key.toStdString();
    for (const QString& key : got.metadata.keys())
        EXPECT_TRUE(want.metadata.contains(key)) << "unexpected key " << key.toStdString();
    for (LXLabelKind kind : {LXLabelKind::Marker, LXLabelKind::Slice, LXLabelKind::Region, LXLabelKind::Loop})
        EXPECT_EQ(got.labels.list(kind), want.labels.list(kind)) << "label kind " << int(kind);
    EXPECT_EQ(got.unknownChunks, want.unknownChunks);
}

// ---- Bytes for hand-made chunks

QByteArray chunkBytes(const QByteArray& id, const QByteArray& data, bool big) {
    QByteArray out = id;
    const uint32_t size = uint32_t(data.size());
    for (int i = 0; i < 4; ++i)
        out.append(char(big ? size >> (24 - 8 * i) : size >> (8 * i)));
    out += data;
    if (data.size() % 2) out.append('\0');
    return out;
}

QByteArray le(uint64_t v, int n) {
    QByteArray out;
    for (int i = 0; i < n; ++i)
        out.append(char(i < 8 ? v >> (8 * i) : 0));
    return out;
}

QByteArray be(uint64_t v, int n) {
    QByteArray out;
    for (int i = n - 1; i >= 0; --i)
        out.append(char(i < 8 ? v >> (8 * i) : 0));
    return out;
}

// The chunks of a RIFF file other than those that describe the audio, the way a reader hands them over.
QList<LXChunk> riffChunks(const QByteArray& file) {
    QList<LXChunk> chunks;
    qsizetype pos = 12;
    while (file.size() - pos >= 8) {
        const QByteArray id = file.mid(pos, 4);
        const uint32_t size = uint32_t(uint8_t(file[pos + 4])) | uint32_t(uint8_t(file[pos + 5])) << 8 |
                              uint32_t(uint8_t(file[pos + 6])) << 16 | uint32_t(uint8_t(file[pos + 7])) << 24;
        if (id != "fmt " && id != "data") chunks.append({id, file.mid(pos + 8, size)});
        pos += 8 + size + (size % 2);
    }
    return chunks;
}

class WaveChunks : public testing::TestWithParam<bool> {};

} // namespace

// ---- Round trips

TEST_P(WaveChunks, EveryKeyAndLabelKindSurvivesARoundTrip) {
    const bool big = GetParam();
    LXAnnotations in = fullAnnotations();
    const LXAnnotations want = in;
    in.metadata.setValue("channelLayout", "L R");
    const LXAnnotations out = LXWaveChunks::decode(LXWaveChunks::encode(in, kRate, big, true), kRate, big);
    expectSameAnnotations(out, want);
}

TEST_P(WaveChunks, ProductDoublesAsAlbumAndDetuneFoldsIntoTheNote) {
    const bool big = GetParam();
    LXAnnotations in;
    in.metadata.setValue("album", "Songs");
    in.metadata.setValue("baseNote", 60);
    in.metadata.setValue("detune", -30);
    const QList<LXChunk> chunks = LXWaveChunks::encode(in, kRate, big, true);
    ASSERT_TRUE(findChunk(chunks, "smpl"));
    // The smpl chunk stores the pitch as a fraction above the note: 59 and 70 cents.
    const QByteArray smpl = findChunk(chunks, "smpl")->data;
    EXPECT_EQ(smpl.mid(12, 4), big ? be(59, 4) : le(59, 4));
    const LXMetadata m = LXWaveChunks::decode(chunks, kRate, big).metadata;
    EXPECT_EQ(m.value("album"), "Songs");
    EXPECT_EQ(m.value("product"), "Songs");
    EXPECT_EQ(m.value("baseNote"), 60);
    EXPECT_EQ(m.value("detune"), -30);
    EXPECT_FALSE(findChunk(chunks, "CLPW")) << "nothing needed the private chunk";
}

INSTANTIATE_TEST_SUITE_P(ByteOrder, WaveChunks, testing::Values(false, true),
                         [](const auto& p) { return p.param ? "RIFX" : "RIFF"; });

TEST(AiffChunks, EveryKeyAndLabelKindSurvivesARoundTrip) {
    const LXAnnotations in = fullAnnotations();
    const QList<LXChunk> chunks = LXAiffChunks::encode(in, kRate, true);
    expectSameAnnotations(LXAiffChunks::decode(chunks, kRate), in);
}

TEST(AiffChunks, LoopsThatFitTheInstrumentChunkNeedNoPrivateChunk) {
    LXAnnotations in;
    in.labels.markers.addMarkerWithPosition(at(10), "Hit");
    in.labels.loops.addLoopWithType(LXLoopType::Forward, LXRange(at(100), at(200)));
    in.labels.loops.addLoopWithType(LXLoopType::Alternating, LXRange(at(300), at(400)));
    in.labels.slices.addSliceWithPosition(at(50));
    QList<LXChunk> chunks = LXAiffChunks::encode(in, kRate, false);
    // Another program drops our APPL chunk: the loops live on in INST, the slices are gone, and the
    // markers the loops point at are not mistaken for markers of the file.
    chunks.removeIf([](const LXChunk& c) { return c.id == "APPL"; });
    const LXAnnotations out = LXAiffChunks::decode(chunks, kRate);
    EXPECT_EQ(out.labels.markers, in.labels.markers);
    EXPECT_EQ(out.labels.loops, in.labels.loops);
    EXPECT_TRUE(out.labels.slices.isEmpty());
    EXPECT_EQ(out.metadata.value("baseNote"), 60);
}

// Some programs give each loop a cue point of its own: it is part of the loop, not a marker.
TEST(WaveChunkLabels, CuePointsThatBelongToLoopsAreNotMarkers) {
    const QByteArray cue = le(2, 4) + le(1, 4) + le(8000, 4) + "data" + le(0, 8) + le(8000, 4) + le(2, 4) +
                           le(50, 4) + "data" + le(0, 8) + le(50, 4);
    const QByteArray smpl = le(0, 12) + le(60, 4) + le(0, 12) + le(1, 4) + le(0, 4) + le(1, 4) + le(0, 4) +
                            le(8000, 4) + le(8999, 4) + le(0, 8);
    const LXAnnotations a = LXWaveChunks::decode({{"cue ", cue}, {"smpl", smpl}}, kRate, false);
    ASSERT_EQ(a.labels.markers.count(), 1);
    EXPECT_EQ(a.labels.markers.labelAtIndex(0).start, at(50));
    ASSERT_EQ(a.labels.loops.count(), 1);
    EXPECT_TRUE(a.labels.loops.labelAtIndex(0).range().isEqualToRange(LXRange(at(8000), at(9000))));
}

TEST(ChunkCodecText, IsUtf8WhenValidAndLatin1Otherwise) {
    const QByteArray info =
        QByteArray("INFO") + chunkBytes("INAM", "Caf\xe9", false) + chunkBytes("IART", "Caf\xc3\xa9", false);
    const LXMetadata m = LXWaveChunks::decode({{"LIST", info}}, kRate, false).metadata;
    EXPECT_EQ(m.value("title"), QStringLiteral("Caf\u00e9"));
    EXPECT_EQ(m.value("artist"), QStringLiteral("Caf\u00e9"));
    EXPECT_EQ(LXAiffChunks::decode({{"NAME", "Caf\xe9"}}, kRate).metadata.value("title"),
              QStringLiteral("Caf\u00e9"));
}

// ---- Unknown chunks

TEST(WaveChunksUnknown, AreKeptByteForByteAndDroppedOnRequest) {
    const LXChunk odd{"abcd", QByteArray("\x01\x02\x03", 3)};
    const LXChunk exif{"LIST", QByteArray("exif") + chunkBytes("ecor", "Maker", false)};
    const LXChunk info{"LIST", QByteArray("INFO") + chunkBytes("INAM", QByteArray("Name\0", 5), false) +
                                   chunkBytes("ISMP", QByteArray("00:01\0", 6), false)};
    const LXAnnotations a = LXWaveChunks::decode({odd, info, exif}, kRate, false);
    EXPECT_EQ(a.metadata.value("title"), "Name");
    const LXChunk leftover{"LIST", QByteArray("INFO") + chunkBytes("ISMP", QByteArray("00:01\0", 6), false)};
    EXPECT_EQ(a.unknownChunks, (QList<LXChunk>{odd, leftover, exif}));

    const QList<LXChunk> kept = LXWaveChunks::encode(a, kRate, false, true);
    EXPECT_EQ(kept, (QList<LXChunk>{info, odd, exif})) << "the unknown INFO field joins the INFO list";
    const QList<LXChunk> dropped = LXWaveChunks::encode(a, kRate, false, false);
    EXPECT_EQ(dropped, (QList<LXChunk>{{"LIST", QByteArray("INFO") +
                                                    chunkBytes("INAM", QByteArray("Name\0", 5), false)}}));
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

TEST(WaveChunksDamaged, ACueListLongerThanItsSizeIsReadAsFarAsItGoes) {
    QByteArray cue = le(10, 4);
    for (uint32_t id : {1u, 2u})
        cue += le(id, 4) + le(id * 100, 4) + "data" + le(0, 4) + le(0, 4) + le(id * 100, 4);
    cue += "xyz"; // a torn third point
    const LXAnnotations a = LXWaveChunks::decode({{"cue ", cue}}, kRate, false);
    ASSERT_EQ(a.labels.markers.count(), 2);
    EXPECT_EQ(a.labels.markers.labelAtIndex(1).start, at(200));
    EXPECT_TRUE(a.unknownChunks.isEmpty());
}

TEST(WaveChunksDamaged, OddSizedInfoFieldsReadWithOrWithoutTheirPadByte) {
    for (bool padded : {true, false}) {
        QByteArray info = "INFO";
        info += QByteArray("IART") + le(3, 4) + "Bob" + (padded ? QByteArray(1, '\0') : QByteArray());
        info += QByteArray("INAM") + le(5, 4) + "Title";
        const LXMetadata m = LXWaveChunks::decode({{"LIST", info}}, kRate, false).metadata;
        EXPECT_EQ(m.value("artist"), "Bob");
        EXPECT_EQ(m.value("title"), "Title") << "padded " << padded;
    }
}

TEST(WaveChunksDamaged, ChunksTooShortForTheirFieldsStayUnknown) {
    const QList<LXChunk> full = LXWaveChunks::encode(fullAnnotations(), kRate, false, true);
    for (const LXChunk& chunk : full) {
        const LXChunk empty{chunk.id, {}};
        EXPECT_EQ(LXWaveChunks::decode({empty}, kRate, false).unknownChunks, QList<LXChunk>{empty});
    }
    for (const auto& [id, minimum] :
         {std::pair{"bext", 348}, {"smpl", 36}, {"inst", 7}, {"acid", 24}, {"cue ", 4}}) {
        const LXChunk cut{id, findChunk(full, id)->data.left(minimum - 1)};
        EXPECT_EQ(LXWaveChunks::decode({cut}, kRate, false).unknownChunks, QList<LXChunk>{cut}) << id;
    }
    // A bext cut inside its UMID still gives its text fields.
    const LXChunk bext{"bext", findChunk(full, "bext")->data.left(400)};
    const LXAnnotations a = LXWaveChunks::decode({bext}, kRate, false);
    EXPECT_EQ(a.metadata.value("originator"), fullAnnotations().metadata.value("originator"));
    EXPECT_TRUE(a.unknownChunks.isEmpty());
}

TEST(AiffChunksDamaged, TornMarkersAndCommentsGiveWhatWasWhole) {
    QByteArray mark = be(5, 2);
    mark += be(1, 2) + be(100, 4) +
            QByteArray("\x03"
                       "One",
                       4);
    mark += be(2, 2) + be(200, 4) +
            QByteArray("\x09"
                       "Tw",
                       3); // name cut short, count too large
    QByteArray comt = be(3, 2) + be(0, 4) + be(0, 2) + be(5, 2) + "Hello" + QByteArray(1, '\0') + be(0, 4);
    const LXAnnotations a = LXAiffChunks::decode({{"MARK", mark}, {"COMT", comt}}, kRate);
    ASSERT_EQ(a.labels.markers.count(), 2);
    EXPECT_EQ(a.labels.markers.labelAtIndex(0).name, "One");
    EXPECT_EQ(a.labels.markers.labelAtIndex(1).name, "Tw");
    EXPECT_EQ(a.metadata.value("comments"), "Hello");
    const LXChunk inst{"INST", QByteArray(19, '\x01')};
    EXPECT_EQ(LXAiffChunks::decode({inst}, kRate).unknownChunks, QList<LXChunk>{inst});
}

// Every prefix of every chunk we write, random damage to them, and random chunks: nothing may crash,
// hang or read out of bounds (run under the address sanitizer), and whatever is read can be written.
TEST(ChunkCodecsDamaged, SurviveTruncationAndRandomDamage) {
    const LXAnnotations full = fullAnnotations();
    const QList<QList<LXChunk>> sets = {LXWaveChunks::encode(full, kRate, false, true),
                                        LXWaveChunks::encode(full, kRate, true, true),
                                        LXAiffChunks::encode(full, kRate, true)};
    auto roundTrip = [](const QList<LXChunk>& chunks, qsizetype kind) {
        if (kind == 2) {
            (void)LXAiffChunks::encode(LXAiffChunks::decode(chunks, kRate), kRate, true);
        } else {
            const bool big = kind == 1;
            (void)LXWaveChunks::encode(LXWaveChunks::decode(chunks, kRate, big), kRate, big, true);
        }
    };
    std::mt19937 random(20240506);
    for (qsizetype kind = 0; kind < sets.size(); ++kind) {
        const QList<LXChunk>& chunks = sets[kind];
        for (qsizetype i = 0; i < chunks.size(); ++i) {
            for (qsizetype n = 0; n < chunks[i].data.size(); ++n) {
                QList<LXChunk> cut = chunks;
                cut[i].data.truncate(n);
                roundTrip(cut, kind);
            }
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

// ---- Third-party writers and readers

TEST(WaveChunksThirdParty, ReadsWhatSndfileMetadataSetWrote) {
    if (!haveTool("sox") || !haveTool("sndfile-metadata-set"))
        GTEST_SKIP() << "needs sox and sndfile-metadata-set";
    QTemporaryDir dir;
    const QString plain = dir.filePath("plain.wav");
    const QString tagged = dir.filePath("tagged.wav");
    int status = 0;
    runTool("sox", {"-D", "-n", "-r", "44100", "-b", "16", "-c", "1", plain, "synth", "0.1", "sine", "440"},
            &status);
    ASSERT_EQ(status, 0);
    // Each option, its value, and the key and value it must read back as.
    const std::tuple<const char*, QString, const char*, QVariant> tags[] = {
        {"--bext-description", QStringLiteral("Desc \u00e9"), "description", QStringLiteral("Desc \u00e9")},
        {"--bext-originator", "Orig", "originator", "Orig"},
        {"--bext-orig-ref", "REF123", "originatorReference", "REF123"},
        {"--bext-orig-date", "2024-01-02", "originationDate", "2024-01-02"},
        {"--bext-orig-time", "10:11:12", "originationTime", "10:11:12"},
        {"--bext-time-ref", "123456789012", "timeReference", qint64(123456789012)},
        {"--bext-loudness-value", "-23.5", "loudnessValue", -23.5},
        {"--str-title", "Title", "title", "Title"},
        {"--str-artist", "Artist", "artist", "Artist"},
        {"--str-comment", "Comment", "comments", "Comment"},
        {"--str-album", "Album", "album", "Album"},
        {"--str-copyright", "(C) Me", "copyright", "(C) Me"},
        {"--str-date", "2024", "creationDate", "2024"},
    };
    QStringList args{"--bext-coding-hist", "A=PCM,F=44100"};
    for (const auto& [option, value, key, read] : tags)
        args << QString::fromLatin1(option) << value;
    runTool("sndfile-metadata-set", args << plain << tagged, &status);
    ASSERT_EQ(status, 0);
    QFile file(tagged);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const LXAnnotations a = LXWaveChunks::decode(riffChunks(file.readAll()), kRate, false);
    const LXMetadata& m = a.metadata;
    for (const auto& [option, value, key, read] : tags)
        EXPECT_EQ(m.value(QString::fromLatin1(key)), read) << key;
    EXPECT_EQ(m.value("bextVersion"), 2);
    EXPECT_TRUE(m.string("codingHistory").startsWith("A=PCM,F=44100\r\n"))
        << m.string("codingHistory").toStdString();
    EXPECT_TRUE(a.unknownChunks.isEmpty());
}
