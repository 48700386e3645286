// The libsndfile reader and sink, checked against sox (and flac's metaflac) reading the same files.

#include "LXAudioBackend.h"
#include "TestAudio.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <random>
#include <sys/stat.h>
#include <thread>

namespace {

class SndfileBackend : public ::testing::Test {
protected:
    void SetUp() override {
        if (!TestAudio::haveTool(QStringLiteral("sox"))) GTEST_SKIP() << "sox is not installed";
        ASSERT_TRUE(m_dir.isValid());
        m_descriptors = openDescriptors();
    }
    // Every reader and sink gives back what it opened (a batch opens thousands).
    void TearDown() override {
        if (m_descriptors >= 0) {
            EXPECT_EQ(openDescriptors(), m_descriptors) << "a file descriptor was left open";
        }
    }
    static qsizetype openDescriptors() {
        return QDir(QStringLiteral("/proc/self/fd"))
            .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot)
            .size();
    }
    QString path(const QString& name) const { return m_dir.filePath(name); }

    QTemporaryDir m_dir;
    qsizetype m_descriptors = -1;
};

std::unique_ptr<LXAudioReader> openReader(const QString& path) {
    auto reader = LXOpenSndfileReader(path);
    EXPECT_TRUE(reader) << (reader ? "" : reader.error().description().toStdString());
    return reader ? std::move(reader).value() : nullptr;
}

// The whole file, read in blocks of an awkward size so that reads end in the middle of codec frames.
template <typename T> std::vector<T> readAll(LXAudioReader& reader, int64_t block = 1000) {
    const int channels = reader.description().channels;
    std::vector<T> all, buffer(size_t(block * channels));
    for (int64_t frame = 0;;) {
        auto got = reader.read(frame, block, buffer.data());
        EXPECT_TRUE(got) << (got ? "" : got.error().description().toStdString());
        if (!got || *got == 0) break;
        all.insert(all.end(), buffer.begin(), buffer.begin() + *got * channels);
        frame += *got;
    }
    return all;
}

template <typename A, typename B> double maxDifference(const std::vector<A>& a, const std::vector<B>& b) {
    double worst = 0;
    for (size_t i = 0; i < std::min(a.size(), b.size()); ++i)
        worst = std::max(worst, std::abs(double(a[i]) - double(b[i])));
    return worst;
}

TestAudio::Decoded decodeWithSox(const QString& path) {
    auto decoded = TestAudio::readWithSox(path);
    EXPECT_TRUE(decoded) << (decoded ? "" : decoded.error().description().toStdString());
    return decoded ? *decoded : TestAudio::Decoded{};
}

// sox reads float files through libsndfile with float-to-integer scaling on, which normalises them to
// their peak: ffmpeg is the oracle for those.
std::vector<double> decodeWithFfmpeg(const QString& path) {
    QProcess ffmpeg;
    ffmpeg.start(QStringLiteral("ffmpeg"), {"-v", "error", "-i", path, "-f", "f64le", "-"});
    EXPECT_TRUE(ffmpeg.waitForFinished(120000));
    EXPECT_EQ(ffmpeg.exitCode(), 0) << ffmpeg.readAllStandardError().toStdString();
    const QByteArray bytes = ffmpeg.readAllStandardOutput();
    std::vector<double> samples(size_t(bytes.size()) / sizeof(double));
    std::memcpy(samples.data(), bytes.constData(), samples.size() * sizeof(double));
    return samples;
}

std::vector<double> decodeFloatOrInteger(const QString& path, bool isFloat) {
    return isFloat ? decodeWithFfmpeg(path) : decodeWithSox(path).samples;
}

LXStatus writeAll(LXAudioSink& sink, const std::vector<double>& samples, int channels, bool asDouble) {
    const int64_t frames = int64_t(samples.size()) / channels;
    // Uneven blocks: the staging and encoding must not care where one write ends.
    for (int64_t start = 0, block = 777; start < frames; start += block, block = block * 2 + 1) {
        const int64_t n = std::min(block, frames - start);
        const double* from = samples.data() + start * channels;
        if (asDouble) {
            LX_TRY(sink.write(from, n));
        } else {
            const std::vector<float> floats(from, from + n * channels);
            LX_TRY(sink.write(floats.data(), n));
        }
    }
    return {};
}

LXStreamDescription describe(uint32_t format, LXSampleEncoding encoding, int channels = 2,
                             double rate = 44100) {
    LXStreamDescription desc;
    desc.format = format;
    desc.encoding = encoding;
    desc.channels = channels;
    desc.rate = rate;
    return desc;
}

struct SoxFile {
    const char* name;
    QStringList options; // after "-n": describe the output
    uint32_t format;
    int bits;
    bool isFloat;
    double tolerance; // against sox's decoding (ffmpeg's for floats)
};

TEST_F(SndfileBackend, ReadsWhatSoxReadsInEveryFormat) {
    const QStringList stereo = {"-r", "44100", "-c", "2"};
    const SoxFile files[] = {
        {"s16.caf", stereo + QStringList{"-b", "16", "-e", "signed-integer"}, LXFormat::CAF, 16, false, 0},
        {"s24.caf", stereo + QStringList{"-b", "24", "-e", "signed-integer"}, LXFormat::CAF, 24, false, 0},
        {"f32.caf", stereo + QStringList{"-b", "32", "-e", "floating-point"}, LXFormat::CAF, 32, true, 0},
        {"s16.au", stereo + QStringList{"-b", "16", "-e", "signed-integer"}, LXFormat::AU, 16, false, 0},
        {"s32.au", stereo + QStringList{"-b", "32", "-e", "signed-integer"}, LXFormat::AU, 32, false, 0},
        {"s16.w64", stereo + QStringList{"-b", "16", "-e", "signed-integer"}, LXFormat::W64, 16, false, 0},
        {"s16.flac", stereo + QStringList{"-b", "16"}, LXFormat::FLAC, 16, false, 0},
        {"s24.flac", stereo + QStringList{"-b", "24"}, LXFormat::FLAC, 24, false, 0},
        {"s16.aifc", stereo + QStringList{"-b", "16", "-t", "aifc"}, LXFormat::AIFC, 16, false, 0},
        // Two Vorbis decoders agree closely but not to the bit.
        {"vorbis.ogg", stereo, LXFormat::Ogg, 16, false, 1e-4},
    };
    for (const SoxFile& f : files) {
        SCOPED_TRACE(f.name);
        const QString file = path(QString::fromLatin1(f.name));
        // 1.3 s: not a whole number of anybody's blocks.
        ASSERT_TRUE(
            TestAudio::generateWithSox(file, QStringList{"-n"} + f.options,
                                       {"synth", "1.3", "sine", "600", "triangle", "300", "gain", "-2"}));
        const TestAudio::Decoded sox = decodeWithSox(file);
        auto reader = openReader(file);
        ASSERT_TRUE(reader);

        const LXStreamDescription& d = reader->description();
        EXPECT_EQ(d.format, f.format);
        EXPECT_EQ(d.encoding.bits, f.bits);
        EXPECT_EQ(d.encoding.isFloat(), f.isFloat);
        EXPECT_EQ(d.channels, 2);
        EXPECT_EQ(d.rate, 44100);
        EXPECT_EQ(d.frames, sox.frames());

        const std::vector<double> doubles = readAll<double>(*reader);
        const std::vector<double> oracle = f.isFloat ? decodeWithFfmpeg(file) : sox.samples;
        ASSERT_EQ(doubles.size(), oracle.size());
        EXPECT_LE(maxDifference(doubles, oracle), f.tolerance);
        // The float path gives the same values, rounded once.
        const std::vector<float> floats = readAll<float>(*reader);
        ASSERT_EQ(floats.size(), doubles.size());
        for (size_t i = 0; i < floats.size(); ++i)
            ASSERT_EQ(floats[i], float(doubles[i])) << "sample " << i;
    }
}

TEST_F(SndfileBackend, RandomAccessReadsMatchTheSequentialRead) {
    for (const char* name : {"seek.flac", "seek.ogg", "seek.caf"}) {
        SCOPED_TRACE(name);
        const QString file = path(QString::fromLatin1(name));
        ASSERT_TRUE(
            TestAudio::generateWithSox(file, {"-n", "-r", "48000", "-c", "3", "-b", "24"},
                                       {"synth", "2.05", "sine", "100-4000", "square", "55", "noise"}));
        auto reader = openReader(file);
        ASSERT_TRUE(reader);
        const std::vector<float> all = readAll<float>(*reader, 4096);
        const int64_t frames = reader->description().frames;
        ASSERT_EQ(int64_t(all.size()), frames * 3);

        std::mt19937 random(7);
        std::vector<float> buffer;
        for (int i = 0; i < 60; ++i) {
            const int64_t start = std::uniform_int_distribution<int64_t>(0, frames + 100)(random);
            const int64_t count = std::uniform_int_distribution<int64_t>(1, 9000)(random);
            buffer.assign(size_t(count * 3), -9.0f);
            auto got = reader->read(start, count, buffer.data());
            ASSERT_TRUE(got) << got.error().description().toStdString();
            ASSERT_EQ(*got, std::clamp<int64_t>(frames - start, 0, count)) << "from " << start;
            for (int64_t s = 0; s < *got * 3; ++s)
                ASSERT_EQ(buffer[size_t(s)], all[size_t(start * 3 + s)]) << "frame " << start + s / 3;
        }
    }
}

TEST_F(SndfileBackend, AStreamReadsForwardButRefusesToGoBack) {
    const QString au = path("stream.au");
    // Small enough (16 kB) to sit in the pipe's buffer: the writer never waits on the reader.
    ASSERT_TRUE(TestAudio::generateWithSox(au, {"-n", "-r", "8000", "-c", "1", "-b", "16"},
                                           {"synth", "1", "sine", "440"}));
    QFile source(au);
    ASSERT_TRUE(source.open(QIODevice::ReadOnly));
    const QByteArray bytes = source.readAll();
    const QString fifo = path("stream.fifo");
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    std::thread writer([&] {
        QFile pipe(fifo);
        if (pipe.open(QIODevice::WriteOnly)) pipe.write(bytes);
    });

    auto reader = LXOpenSndfileReader(fifo);
    writer.join();
    ASSERT_TRUE(reader) << reader.error().description().toStdString();
    std::vector<double> buffer(1000);
    auto first = (*reader)->read(0, 1000, buffer.data());
    ASSERT_TRUE(first);
    EXPECT_EQ(*first, 1000);
    auto next = (*reader)->read(1000, 1000, buffer.data());
    ASSERT_TRUE(next);
    EXPECT_EQ(*next, 1000);
    auto back = (*reader)->read(500, 100, buffer.data());
    ASSERT_FALSE(back);
    EXPECT_EQ(back.error().code(), LXErrReadFailed);
    EXPECT_TRUE(back.error().message().contains(QStringLiteral("cannot seek")))
        << back.error().message().toStdString();
}

struct SinkCase {
    const char* name;
    uint32_t format;
    LXSampleEncoding encoding;
    int channels;
    bool asDouble;
    double tolerance; // between what was written and what sox (ffmpeg for floats) reads
};

TEST_F(SndfileBackend, SinkOutputReadsBackThroughSoxInEveryFormat) {
    const SinkCase cases[] = {
        {"s16.caf", LXFormat::CAF, LXSampleEncoding::pcm(16, true), 2, false, 0},
        {"s24le.caf", LXFormat::CAF, LXSampleEncoding::pcm(24, false), 3, true, 0},
        {"f32.caf", LXFormat::CAF, LXSampleEncoding::ieeeFloat(32, true), 2, false, 0},
        {"s8.au", LXFormat::AU, LXSampleEncoding::pcm(8, true), 1, false, 0},
        {"s24.au", LXFormat::AU, LXSampleEncoding::pcm(24, true), 2, false, 0},
        {"s16.w64", LXFormat::W64, LXSampleEncoding::pcm(16, false), 2, true, 0},
        {"f64.w64", LXFormat::W64, LXSampleEncoding::ieeeFloat(64, false), 2, true, 0},
        {"s8.flac", LXFormat::FLAC, LXSampleEncoding::pcm(8, false), 1, false, 0},
        {"s16.flac", LXFormat::FLAC, LXSampleEncoding::pcm(16, false), 2, false, 0},
        {"s24.flac", LXFormat::FLAC, LXSampleEncoding::pcm(24, false), 4, true, 0},
        {"s16.wav", LXFormat::WAVE, LXSampleEncoding::pcm(16, false), 2, false, 0},
        {"s24.aif", LXFormat::AIFF, LXSampleEncoding::pcm(24, true), 2, false, 0},
        {"vorbis.ogg", LXFormat::Ogg, LXSampleEncoding::pcm(16, false), 2, false, 0.05},
    };
    for (const SinkCase& c : cases) {
        SCOPED_TRACE(c.name);
        TestAudio::Spec spec;
        spec.channels = c.channels;
        spec.frames = 30011;
        spec.encoding = c.encoding;
        // Values already on the format's grid: an unchanged rewrite must give them back exactly.
        const std::vector<double> samples =
            c.format == LXFormat::Ogg ? TestAudio::generate(spec) : TestAudio::expectedExact(spec);
        const QString file = path(QString::fromLatin1(c.name));
        auto sink = LXCreateSndfileSink(file, describe(c.format, c.encoding, c.channels));
        ASSERT_TRUE(sink) << sink.error().description().toStdString();
        ASSERT_TRUE(writeAll(**sink, samples, c.channels, c.asDouble));
        ASSERT_TRUE((*sink)->finish({}, false));

        const TestAudio::Decoded sox = decodeWithSox(file);
        EXPECT_EQ(sox.channels, c.channels);
        EXPECT_EQ(sox.rate, 44100);
        const std::vector<double> oracle = decodeFloatOrInteger(file, c.encoding.isFloat());
        ASSERT_EQ(oracle.size(), samples.size());
        EXPECT_LE(maxDifference(oracle, samples), c.tolerance);

        auto reader = openReader(file);
        ASSERT_TRUE(reader);
        EXPECT_EQ(reader->description().format, c.format);
        if (c.format != LXFormat::Ogg) {
            EXPECT_EQ(reader->description().encoding, c.encoding);
            EXPECT_EQ(maxDifference(readAll<double>(*reader), samples), 0.0);
        }
    }
}

TEST_F(SndfileBackend, ThirtyTwoBitIntegersSurviveExactly) {
    std::vector<double> samples;
    for (int64_t v : {int64_t(INT32_MIN), int64_t(INT32_MAX), int64_t(0), int64_t(1), int64_t(-1),
                      int64_t(16777217), int64_t(-2147483519)})
        samples.push_back(std::ldexp(double(v), -31));
    std::mt19937 random(3);
    for (int i = 0; i < 20000; ++i)
        samples.push_back(std::ldexp(double(int32_t(random())), -31));

    for (const char* name : {"s32.caf", "s32.au", "s32.w64"}) {
        SCOPED_TRACE(name);
        const QString file = path(QString::fromLatin1(name));
        const LXSampleEncoding s32 = LXSampleEncoding::pcm(32, false);
        auto sink =
            LXCreateSndfileSink(file, describe(LXFormat::fromExtension(QFileInfo(file).suffix()), s32, 1));
        ASSERT_TRUE(sink) << sink.error().description().toStdString();
        ASSERT_TRUE(writeAll(**sink, samples, 1, true));
        ASSERT_TRUE((*sink)->finish({}, false));

        // sox keeps 32-bit integers whole, and v / 2^31 is exact in a double.
        EXPECT_EQ(maxDifference(decodeWithSox(file).samples, samples), 0.0);
        auto reader = openReader(file);
        ASSERT_TRUE(reader);
        EXPECT_EQ(reader->description().encoding.bits, 32);
        const std::vector<double> back = readAll<double>(*reader);
        ASSERT_EQ(back.size(), samples.size());
        EXPECT_EQ(maxDifference(back, samples), 0.0);
    }
}

TEST_F(SndfileBackend, SamplesBeyondFullScaleClipInsteadOfWrapping) {
    const std::vector<double> samples = {1.5, -1.5, 1.0, -1.0, 8.0, -8.0, 0.25};
    for (const bool asDouble : {false, true}) {
        for (const char* name : {"clip.au", "clip.flac", "clip.caf"}) {
            SCOPED_TRACE(std::string(name) + (asDouble ? " (double)" : " (float)"));
            const QString file = path(QString::fromLatin1(name));
            QFile::remove(file);
            auto sink = LXCreateSndfileSink(file, describe(LXFormat::fromExtension(QFileInfo(file).suffix()),
                                                           LXSampleEncoding::pcm(16, true), 1));
            ASSERT_TRUE(sink);
            ASSERT_TRUE(writeAll(**sink, samples, 1, asDouble));
            ASSERT_TRUE((*sink)->finish({}, false));
            const double top = 32767.0 / 32768.0;
            const std::vector<double> expected = {top, -1.0, top, -1.0, top, -1.0, 0.25};
            EXPECT_EQ(decodeWithSox(file).samples, expected);
        }
    }
}

TEST_F(SndfileBackend, SinkRefusesWhatTheFormatCannotStore) {
    struct Refusal {
        LXStreamDescription desc;
        int32_t code;
    };
    const Refusal refusals[] = {
        {describe(LXFormat::FLAC, LXSampleEncoding::pcm(32, false)), LXErrInvalidParameter},
        {describe(LXFormat::FLAC, LXSampleEncoding::ieeeFloat(32, false)), LXErrInvalidParameter},
        {describe(LXFormat::CAF, LXSampleEncoding::pcm(12, false)), LXErrInvalidParameter},
        {describe(LXFormat::CAF, LXSampleEncoding::pcm(16, false), 0), LXErrInvalidParameter},
        {describe(LXFormat::CAF, LXSampleEncoding::pcm(16, false), 2, 0), LXErrInvalidParameter},
        {describe(LXFormat::Unknown, LXSampleEncoding::pcm(16, false)), LXErrUnsupported},
    };
    for (const Refusal& r : refusals) {
        auto sink = LXCreateSndfileSink(path("refused"), r.desc);
        ASSERT_FALSE(sink);
        EXPECT_EQ(sink.error().code(), r.code) << sink.error().description().toStdString();
    }
    auto nowhere =
        LXCreateSndfileSink(path("missing/x.caf"), describe(LXFormat::CAF, LXSampleEncoding::pcm(16, true)));
    ASSERT_FALSE(nowhere);
    EXPECT_TRUE(nowhere.error().isFileError());
    EXPECT_EQ(nowhere.error().code(), -ENOENT);
}

// What libsndfile loses is listed in LXSndfileBackend.cpp; these it keeps.
TEST_F(SndfileBackend, AnnotationsSurviveWhereLibsndfileStoresThem) {
    LXAnnotations annotations;
    const QVariantMap tags = {{"title", "Café — take 3"}, {"artist", "Drummer"},
                              {"album", "Sessions"},      {"genre", "Test"},
                              {"comments", "first line"}, {"creationDate", "2024-05-06"},
                              {"trackNumber", "7"},       {"copyright", "(c) us"}};
    annotations.metadata = LXMetadata(tags);
    const std::vector<double> samples(2000, 0.125);

    for (const char* name : {"tags.flac", "tags.ogg", "tags.mp3", "tags.caf"}) {
        SCOPED_TRACE(name);
        const QString file = path(QString::fromLatin1(name));
        const uint32_t format = LXFormat::fromExtension(QFileInfo(file).suffix());
        auto sink = LXCreateSndfileSink(file, describe(format, LXSampleEncoding::pcm(16, true), 1));
        ASSERT_TRUE(sink);
        ASSERT_TRUE(writeAll(**sink, samples, 1, false));
        ASSERT_TRUE((*sink)->finish(annotations, true));

        auto reader = openReader(file);
        ASSERT_TRUE(reader);
        const bool mp3 = format == LXFormat::MP3; // ID3 through LAME: Latin-1, and no copyright
        for (auto it = tags.begin(); it != tags.end(); ++it) {
            QString expected = it.value().toString();
            if (mp3)
                expected = it.key() == u"copyright" ? QString() : QString::fromLatin1(expected.toLatin1());
            EXPECT_EQ(reader->annotations().metadata.string(it.key()), expected) << it.key().toStdString();
        }
        EXPECT_EQ(reader->description().frames, 2000);
    }

    // The WAV fallback: markers, the sampler chunk and bext go in before the audio as well.
    LXAnnotations rich = annotations;
    rich.labels.markers.addMarkerWithPosition(0.01);
    rich.labels.markers.addMarkerWithPosition(0.02);
    rich.labels.loops.addLoopWithType(LXLoopType::Alternating, LXRange(0.005, 0.015), 2);
    rich.metadata.setValue(QStringLiteral("baseNote"), 62);
    rich.metadata.setValue(QStringLiteral("description"), QStringLiteral("Broadcast text"));
    auto sink = LXCreateSndfileSink(path("rich.wav"),
                                    describe(LXFormat::WAVE, LXSampleEncoding::pcm(16, false), 1, 8000));
    ASSERT_TRUE(sink);
    ASSERT_TRUE(writeAll(**sink, samples, 1, true));
    ASSERT_TRUE((*sink)->finish(rich, false));
    auto wav = openReader(path("rich.wav"));
    ASSERT_TRUE(wav);
    const LXAnnotations& back = wav->annotations();
    ASSERT_EQ(back.labels.markers.count(), 2);
    EXPECT_EQ(LXFramesFromSeconds(back.labels.markers.labelAtIndex(1).start, 8000), 160);
    ASSERT_EQ(back.labels.loops.count(), 1);
    EXPECT_EQ(LXFramesFromSeconds(back.labels.loops.labelAtIndex(0).start, 8000), 40);
    EXPECT_EQ(LXFramesFromSeconds(back.labels.loops.labelAtIndex(0).end(), 8000), 120);
    EXPECT_EQ(back.labels.loops.labelAtIndex(0).loopType, LXLoopType::Alternating);
    EXPECT_EQ(back.labels.loops.labelAtIndex(0).playCount, 2);
    EXPECT_EQ(back.metadata.value(QStringLiteral("baseNote")).toInt(), 62);
    EXPECT_EQ(back.metadata.string(QStringLiteral("description")), QStringLiteral("Broadcast text"));
    EXPECT_EQ(back.metadata.string(QStringLiteral("title")), tags.value(QStringLiteral("title")).toString());

    // An independent reader of the FLAC tags.
    if (TestAudio::haveTool(QStringLiteral("metaflac"))) {
        const QString exported = TestAudio::runTool(
            QStringLiteral("metaflac"), {QStringLiteral("--export-tags-to=-"), path("tags.flac")});
        EXPECT_TRUE(exported.contains(QStringLiteral("Title=Café — take 3"), Qt::CaseInsensitive))
            << exported.toStdString();
        EXPECT_TRUE(exported.contains(QStringLiteral("Album=Sessions"), Qt::CaseInsensitive));
    }
}

// A WAV file with every chunk libsndfile maps, built byte by byte so that no code under test made it.
QByteArray handMadeWave() {
    auto little = [](uint32_t v, int bytes) {
        QByteArray out;
        for (int i = 0; i < bytes; ++i)
            out.append(char((v >> (8 * i)) & 0xFF));
        return out;
    };
    auto le16 = [&](int v) { return little(uint32_t(v), 2); };
    auto le32 = [&](uint32_t v) { return little(v, 4); };
    auto chunk = [&](const char* id, QByteArray data) {
        QByteArray c = QByteArray(id, 4) + le32(uint32_t(data.size())) + data;
        if (data.size() % 2) c.append('\0');
        return c;
    };
    auto fixed = [](const char* text, int size) { return QByteArray(text).leftJustified(size, '\0', true); };

    const QByteArray fmt = le16(1) + le16(1) + le32(8000) + le32(16000) + le16(2) + le16(16);
    QByteArray data;
    for (int i = 0; i < 100; ++i)
        data += le16(i * 100);
    QByteArray cue = le32(2);
    for (auto [id, frame] : {std::pair{1u, 10u}, std::pair{2u, 50u}})
        cue += le32(id) + le32(frame) + "data" + le32(0) + le32(0) + le32(frame);
    const QByteArray adtl = "adtl" + chunk("labl", le32(1) + QByteArray("Intro", 6)) +
                            chunk("labl", le32(2) + QByteArray("Drop", 5));
    // Unity note 64, one forward loop over frames 20 to 79 (the end is inclusive in the file), three times.
    const QByteArray smpl = le32(0) + le32(0) + le32(125000) + le32(64) + le32(0) + le32(0) + le32(0) +
                            le32(1) + le32(0) + le32(0) + le32(0) + le32(20) + le32(79) + le32(0) + le32(3);
    const uint64_t timeReference = 123456789012ull;
    const QByteArray bext = fixed("Hand made", 256) + fixed("Tests", 32) + fixed("REF-1", 32) +
                            fixed("2024-05-06", 10) + fixed("07:08:09", 8) + le32(uint32_t(timeReference)) +
                            le32(uint32_t(timeReference >> 32)) + le16(1) + QByteArray(64 + 10 + 180, '\0') +
                            "A=PCM,F=8000,W=16,M=mono\r\n";
    const QByteArray info =
        "INFO" + chunk("INAM", QByteArray("Hand-made title", 16)) + chunk("IART", QByteArray("Someone", 8));
    const QByteArray body = "WAVE" + chunk("fmt ", fmt) + chunk("bext", bext) + chunk("data", data) +
                            chunk("cue ", cue) + chunk("LIST", adtl) + chunk("smpl", smpl) +
                            chunk("LIST", info);
    return "RIFF" + le32(uint32_t(body.size())) + body;
}

TEST_F(SndfileBackend, ReadsMarkersLoopsBroadcastDataAndStrings) {
    const QString file = path("handmade.wav");
    QFile out(file);
    ASSERT_TRUE(out.open(QIODevice::WriteOnly));
    out.write(handMadeWave());
    out.close();
    int status = -1;
    TestAudio::runTool(QStringLiteral("sndfile-info"), {file}, &status);
    ASSERT_EQ(status, 0) << "the hand-made file is not valid";

    auto reader = openReader(file);
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->description().format, LXFormat::WAVE);
    EXPECT_EQ(reader->description().frames, 100);
    const LXAnnotations& a = reader->annotations();

    ASSERT_EQ(a.labels.markers.count(), 2);
    EXPECT_EQ(a.labels.markers.labelAtIndex(0).start, 10 / 8000.0);
    EXPECT_EQ(a.labels.markers.labelAtIndex(0).name, QStringLiteral("Intro"));
    EXPECT_EQ(a.labels.markers.labelAtIndex(1).start, 50 / 8000.0);
    EXPECT_EQ(a.labels.markers.labelAtIndex(1).name, QStringLiteral("Drop"));

    ASSERT_EQ(a.labels.loops.count(), 1);
    const LXLabel& loop = a.labels.loops.labelAtIndex(0);
    EXPECT_EQ(LXFramesFromSeconds(loop.start, 8000), 20);
    EXPECT_EQ(LXFramesFromSeconds(loop.end(), 8000), 80);
    EXPECT_EQ(loop.loopType, LXLoopType::Forward);
    EXPECT_EQ(loop.playCount, 3);

    const LXMetadata& m = a.metadata;
    EXPECT_EQ(m.value(QStringLiteral("baseNote")).toInt(), 64);
    EXPECT_EQ(m.value(QStringLiteral("detune")).toInt(), 0);
    EXPECT_EQ(m.string(QStringLiteral("title")), QStringLiteral("Hand-made title"));
    EXPECT_EQ(m.string(QStringLiteral("artist")), QStringLiteral("Someone"));
    EXPECT_EQ(m.string(QStringLiteral("description")), QStringLiteral("Hand made"));
    EXPECT_EQ(m.string(QStringLiteral("originator")), QStringLiteral("Tests"));
    EXPECT_EQ(m.string(QStringLiteral("originatorReference")), QStringLiteral("REF-1"));
    EXPECT_EQ(m.string(QStringLiteral("originationDate")), QStringLiteral("2024-05-06"));
    EXPECT_EQ(m.string(QStringLiteral("originationTime")), QStringLiteral("07:08:09"));
    EXPECT_EQ(m.string(QStringLiteral("timeReference")), QStringLiteral("123456789012"));
    EXPECT_EQ(m.string(QStringLiteral("codingHistory")), QStringLiteral("A=PCM,F=8000,W=16,M=mono"));
}

TEST_F(SndfileBackend, DamagedAndForeignFilesGiveErrors) {
    auto write = [&](const QString& name, const QByteArray& bytes) {
        QFile f(path(name));
        EXPECT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(bytes);
        return path(name);
    };
    std::mt19937 random(11);
    QByteArray noise(4096, '\0');
    for (char& c : noise)
        c = char(random());
    noise[0] = 'x'; // not by chance a signature

    const QString good = path("good.caf");
    ASSERT_TRUE(
        TestAudio::generateWithSox(good, {"-n", "-r", "8000", "-b", "16"}, {"synth", "0.5", "sine", "300"}));
    QFile goodFile(good);
    ASSERT_TRUE(goodFile.open(QIODevice::ReadOnly));
    const QByteArray caf = goodFile.readAll();

    const struct {
        QString path;
        int32_t code;
    } cases[] = {
        {write("noise.bin", noise), LXErrUnsupported},
        {write("empty.caf", {}), LXErrTruncated},
        {write("empty.txt", {}), LXErrUnsupported},
        {write("noise.flac", "fLaC" + noise), LXErrDamaged},
        {write("noise.ogg", "OggS" + noise), LXErrDamaged},
        {write("header.caf", caf.left(20)), LXErrDamaged},
        {path("missing.caf"), -ENOENT},
        {m_dir.path(), -EISDIR},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path.toStdString());
        auto reader = LXOpenSndfileReader(c.path);
        ASSERT_FALSE(reader);
        EXPECT_EQ(reader.error().code(), c.code) << reader.error().description().toStdString();
        EXPECT_EQ(reader.error().path(), c.path);
    }

    // Cut in the middle of the audio: still opens or fails cleanly, and reads never overrun.
    auto cut = LXOpenSndfileReader(write("cut.caf", caf.left(caf.size() / 2)));
    if (cut) {
        const std::vector<double> all = readAll<double>(**cut);
        EXPECT_LE(int64_t(all.size()), (*cut)->description().frames);
    }
}

} // namespace
