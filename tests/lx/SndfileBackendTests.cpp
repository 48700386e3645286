// The libsndfile reader and sink, checked against sox, ffmpeg and metaflac reading the same files.

#include "TestAudio.h"
#include "lx/LXAudioBackend.h"

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

namespace {

std::string why(const LXError& error) {
    return error.description().toStdString();
}

class SndfileBackend : public ::testing::Test {
protected:
    void SetUp() override {
        if (!TestAudio::haveTool(QStringLiteral("sox")) || !TestAudio::haveTool(QStringLiteral("ffmpeg")))
            GTEST_SKIP() << "sox or ffmpeg is not installed";
        ASSERT_TRUE(m_dir.isValid());
        m_descriptors = openDescriptors();
    }
    // Every reader and sink gives back what it opened: a batch opens thousands.
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
    QString path(const char* name) const { return m_dir.filePath(QString::fromLatin1(name)); }

    QTemporaryDir m_dir;
    qsizetype m_descriptors = -1;
};

std::unique_ptr<LXAudioReader> openReader(const QString& path) {
    auto reader = LXOpenSndfileReader(path);
    EXPECT_TRUE(reader) << (reader ? "" : why(reader.error()));
    return reader ? std::move(reader).value() : nullptr;
}

// The whole file, in blocks of an awkward size so that reads end in the middle of codec frames.
template <typename T> std::vector<T> readAll(LXAudioReader& reader, int64_t block = 1000) {
    const int channels = reader.description().channels;
    std::vector<T> all, buffer(size_t(block * channels));
    for (int64_t frame = 0;;) {
        auto got = reader.read(frame, block, buffer.data());
        EXPECT_TRUE(got) << (got ? "" : why(got.error()));
        if (!got || *got == 0) return all;
        all.insert(all.end(), buffer.begin(), buffer.begin() + *got * channels);
        frame += *got;
    }
}

template <typename A, typename B> double maxDifference(const std::vector<A>& a, const std::vector<B>& b) {
    EXPECT_EQ(a.size(), b.size());
    double worst = 0;
    for (size_t i = 0; i < std::min(a.size(), b.size()); ++i)
        worst = std::max(worst, std::abs(double(a[i]) - double(b[i])));
    return worst;
}

// sox reads float files through libsndfile with float-to-integer scaling on, which normalises them to
// their peak, so ffmpeg decodes those.
std::vector<double> decode(const QString& path, bool isFloat) {
    if (!isFloat) {
        auto decoded = TestAudio::readWithSox(path);
        EXPECT_TRUE(decoded) << (decoded ? "" : why(decoded.error()));
        return decoded ? decoded->samples : std::vector<double>{};
    }
    QProcess ffmpeg;
    ffmpeg.start(QStringLiteral("ffmpeg"), {"-v", "error", "-i", path, "-f", "f64le", "-"});
    EXPECT_TRUE(ffmpeg.waitForFinished(120000));
    const QByteArray bytes = ffmpeg.readAllStandardOutput();
    std::vector<double> samples(size_t(bytes.size()) / sizeof(double));
    std::memcpy(samples.data(), bytes.constData(), samples.size() * sizeof(double));
    return samples;
}

// Writes in growing, uneven blocks: neither staging nor encoding may care where one write ends.
void writeAll(const QString& path, const LXStreamDescription& desc, const std::vector<double>& samples,
              bool asDouble, const LXAnnotations& annotations = {}) {
    auto sink = LXCreateSndfileSink(path, desc);
    ASSERT_TRUE(sink) << why(sink.error());
    const int64_t frames = int64_t(samples.size()) / desc.channels;
    for (int64_t start = 0, block = 777; start < frames; start += block, block = block * 2 + 1) {
        const int64_t n = std::min(block, frames - start);
        const double* from = samples.data() + start * desc.channels;
        const std::vector<float> floats(from, from + n * desc.channels);
        auto written = asDouble ? (*sink)->write(from, n) : (*sink)->write(floats.data(), n);
        ASSERT_TRUE(written) << why(written.error());
    }
    auto finished = (*sink)->finish(annotations, false);
    ASSERT_TRUE(finished) << why(finished.error());
}

LXStreamDescription describe(const QString& path, LXSampleEncoding encoding, int channels = 2,
                             double rate = 44100) {
    LXStreamDescription desc;
    desc.format = LXFormat::fromExtension(QFileInfo(path).suffix());
    desc.encoding = encoding;
    desc.channels = channels;
    desc.rate = rate;
    return desc;
}

// Every format both ways: a file sox wrote reads as sox or ffmpeg reads it, through the double and the
// float path alike, and what the sink writes from those samples reads back the same.
TEST_F(SndfileBackend, EveryFormatRoundTripsAgainstSoxAndFfmpeg) {
    const struct {
        const char* name;
        QStringList options; // sox's, describing the file
        LXSampleEncoding encoding;
        bool asDouble; // how the sink is fed
    } cases[] = {
        {"s16.caf", {"-b", "16"}, LXSampleEncoding::pcm(16, true), false},
        {"s24le.caf", {"-b", "24", "-c", "3"}, LXSampleEncoding::pcm(24, false), true},
        {"f32.caf", {"-b", "32", "-e", "floating-point"}, LXSampleEncoding::ieeeFloat(32, true), false},
        {"s8.au", {"-b", "8", "-e", "signed-integer", "-c", "1"}, LXSampleEncoding::pcm(8, true), false},
        {"s32.au", {"-b", "32", "-e", "signed-integer"}, LXSampleEncoding::pcm(32, true), true},
        {"s16.w64", {"-b", "16"}, LXSampleEncoding::pcm(16, false), true},
        {"f64.w64", {"-b", "64", "-e", "floating-point"}, LXSampleEncoding::ieeeFloat(64, false), true},
        {"s8.flac", {"-b", "8", "-c", "1"}, LXSampleEncoding::pcm(8, false), false},
        {"s16.flac", {"-b", "16"}, LXSampleEncoding::pcm(16, false), false},
        {"s24.flac", {"-b", "24", "-c", "4"}, LXSampleEncoding::pcm(24, false), true},
        {"s16.aifc", {"-b", "16", "-t", "aifc"}, LXSampleEncoding::pcm(16, true), false},
        {"s16.wav", {"-b", "16"}, LXSampleEncoding::pcm(16, false), false},
        {"s24.aif", {"-b", "24"}, LXSampleEncoding::pcm(24, true), false},
        {"vorbis.ogg", {}, LXSampleEncoding::pcm(16, false), false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const QString file = path(c.name);
        // 1.3 s: not a whole number of anybody's blocks.
        ASSERT_TRUE(
            TestAudio::generateWithSox(file, QStringList{"-n", "-r", "44100", "-c", "2"} + c.options,
                                       {"synth", "1.3", "sine", "600", "triangle", "300", "gain", "-2"}));
        auto reader = openReader(file);
        ASSERT_TRUE(reader);
        const LXStreamDescription d = reader->description();
        const bool lossy = d.format == LXFormat::Ogg;
        EXPECT_EQ(d.format, LXFormat::fromExtension(QFileInfo(file).suffix()));
        EXPECT_EQ(d.rate, 44100);
        if (!lossy) {
            EXPECT_EQ(d.encoding.bits, c.encoding.bits);
            EXPECT_EQ(d.encoding.isFloat(), c.encoding.isFloat());
        }
        const std::vector<double> doubles = readAll<double>(*reader);
        const std::vector<double> oracle = decode(file, c.encoding.isFloat());
        EXPECT_EQ(d.frames * d.channels, int64_t(oracle.size()));
        EXPECT_LE(maxDifference(doubles, oracle), lossy ? 1e-4 : 0.0); // two Vorbis decoders differ a little
        // The float path gives the same values, rounded once (32-bit integers go through double).
        const std::vector<float> floats = readAll<float>(*reader);
        ASSERT_EQ(floats.size(), doubles.size());
        for (size_t i = 0; i < floats.size(); ++i)
            ASSERT_EQ(floats[i], float(doubles[i])) << "sample " << i;

        // Values already on the format's grid: written unchanged, they come back exactly.
        const QString copy = path("copy-") + c.name;
        LXStreamDescription out = d;
        out.encoding = c.encoding; // sox writes CAF big-endian only
        writeAll(copy, out, doubles, c.asDouble);
        EXPECT_LE(maxDifference(decode(copy, c.encoding.isFloat()), doubles), lossy ? 0.05 : 0.0);
        auto back = openReader(copy);
        ASSERT_TRUE(back);
        EXPECT_EQ(back->description().frames, d.frames);
        if (!lossy) {
            EXPECT_EQ(back->description().encoding, c.encoding);
        }
    }
}

TEST_F(SndfileBackend, RandomAccessReadsMatchTheSequentialRead) {
    // Lossy decoders need the packets before a seek point: a steady tone shows a missing pre-roll.
    const struct {
        const char* name;
        int channels;
        QStringList synth;
    } cases[] = {
        {"seek.flac", 3, {"synth", "2.05", "sine", "100-4000", "square", "55", "noise"}},
        {"seek.ogg", 3, {"synth", "2.05", "sine", "100-4000", "square", "55", "noise"}},
        {"tone.ogg", 2, {"synth", "2.05", "sine", "600", "triangle", "300", "gain", "-2"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const int64_t channels = c.channels;
        ASSERT_TRUE(TestAudio::generateWithSox(
            path(c.name), {"-n", "-r", "48000", "-c", QString::number(channels), "-b", "24"}, c.synth));
        auto reader = openReader(path(c.name));
        ASSERT_TRUE(reader);
        const std::vector<float> all = readAll<float>(*reader, 4096);
        const int64_t frames = reader->description().frames;
        ASSERT_EQ(int64_t(all.size()), frames * channels);

        std::mt19937 random(7);
        std::vector<float> buffer;
        for (int i = 0; i < 60; ++i) {
            const int64_t start = std::uniform_int_distribution<int64_t>(0, frames + 100)(random);
            const int64_t count = std::uniform_int_distribution<int64_t>(1, 9000)(random);
            buffer.assign(size_t(count * channels), -9.0f);
            auto got = reader->read(start, count, buffer.data());
            ASSERT_TRUE(got) << why(got.error());
            ASSERT_EQ(*got, std::clamp<int64_t>(frames - start, 0, count)) << "from " << start;
            for (int64_t s = 0; s < *got * channels; ++s)
                ASSERT_EQ(buffer[size_t(s)], all[size_t(start * channels + s)])
                    << "frame " << start + s / channels << " of a read from " << start;
        }
    }
}

TEST_F(SndfileBackend, ThirtyTwoBitIntegersPassThroughDoubleExactly) {
    std::vector<double> samples;
    for (int64_t v : {int64_t(INT32_MIN), int64_t(INT32_MAX), int64_t(1), int64_t(-1), int64_t(16777217)})
        samples.push_back(std::ldexp(double(v), -31));
    std::mt19937 random(3);
    for (int i = 0; i < 20000; ++i)
        samples.push_back(std::ldexp(double(int32_t(random())), -31)); // mostly beyond a float's precision

    for (const char* name : {"s32.caf", "s32.au", "s32.w64"}) {
        SCOPED_TRACE(name);
        writeAll(path(name), describe(path(name), LXSampleEncoding::pcm(32, false), 1), samples, true);
        EXPECT_EQ(maxDifference(decode(path(name), false), samples), 0.0); // sox keeps 32-bit integers whole
        auto reader = openReader(path(name));
        ASSERT_TRUE(reader);
        EXPECT_EQ(maxDifference(readAll<double>(*reader), samples), 0.0);
    }
}

TEST_F(SndfileBackend, SamplesBeyondFullScaleClipInsteadOfWrapping) {
    const std::vector<double> samples = {1.5, -1.5, 1.0, -1.0, 8.0, -8.0, 0.25};
    const double top = 32767.0 / 32768.0;
    const std::vector<double> expected = {top, -1.0, top, -1.0, top, -1.0, 0.25};
    for (const bool asDouble : {false, true}) {
        for (const char* name : {"clip.au", "clip.flac", "clip.caf"}) {
            SCOPED_TRACE(std::string(name) + (asDouble ? " from double" : " from float"));
            QFile::remove(path(name));
            writeAll(path(name), describe(path(name), LXSampleEncoding::pcm(16, true), 1), samples, asDouble);
            EXPECT_EQ(decode(path(name), false), expected);
        }
    }
}

// What libsndfile cannot store is listed in LXSndfileBackend.cpp; this is what it keeps.
TEST_F(SndfileBackend, AnnotationsSurviveWhereLibsndfileStoresThem) {
    const QVariantMap tags = {{"title", "Café — take 3"}, {"artist", "Drummer"},
                              {"album", "Sessions"},      {"genre", "Test"},
                              {"comments", "a note"},     {"creationDate", "2024-05-06"},
                              {"trackNumber", "7"},       {"copyright", "(c) us"}};
    LXAnnotations annotations;
    annotations.metadata = LXMetadata(tags);
    const std::vector<double> samples(2000, 0.125);

    for (const char* name : {"tags.flac", "tags.ogg", "tags.mp3", "tags.caf"}) {
        SCOPED_TRACE(name);
        const LXStreamDescription desc = describe(path(name), LXSampleEncoding::pcm(16, true), 1);
        writeAll(path(name), desc, samples, false, annotations);
        auto reader = openReader(path(name));
        ASSERT_TRUE(reader);
        EXPECT_EQ(reader->description().frames, 2000);
        const bool mp3 = desc.format == LXFormat::MP3; // ID3 through LAME: Latin-1, and no copyright
        for (auto it = tags.begin(); it != tags.end(); ++it) {
            QString expected = it.value().toString();
            if (mp3)
                expected = it.key() == u"copyright" ? QString() : QString::fromLatin1(expected.toLatin1());
            EXPECT_EQ(reader->annotations().metadata.string(it.key()), expected) << it.key().toStdString();
        }
    }
    if (TestAudio::haveTool(QStringLiteral("metaflac"))) {
        const QString exported = TestAudio::runTool(
            QStringLiteral("metaflac"), {QStringLiteral("--export-tags-to=-"), path("tags.flac")});
        EXPECT_TRUE(exported.contains(QStringLiteral("title=Café — take 3"), Qt::CaseInsensitive))
            << exported.toStdString();
    }

    // The WAV fallback: markers, the sampler chunk and bext go in before the audio as well.
    annotations.labels.markers.addMarkerWithPosition(0.01);
    annotations.labels.markers.addMarkerWithPosition(0.02);
    annotations.labels.loops.addLoopWithType(LXLoopType::Alternating, LXRange(0.005, 0.015), 2);
    annotations.metadata.setValue(QStringLiteral("baseNote"), 62);
    annotations.metadata.setValue(QStringLiteral("description"), QStringLiteral("Broadcast text"));
    writeAll(path("rich.wav"), describe(path("rich.wav"), LXSampleEncoding::pcm(16, false), 1, 8000), samples,
             true, annotations);
    auto wav = openReader(path("rich.wav"));
    ASSERT_TRUE(wav);
    const LXAnnotations& back = wav->annotations();
    EXPECT_EQ(back.labels.markers, annotations.labels.markers);
    EXPECT_EQ(back.labels.loops, annotations.labels.loops);
    for (const char* key : {"baseNote", "description", "title"})
        EXPECT_EQ(back.metadata.string(key), annotations.metadata.string(key)) << key;
}

TEST_F(SndfileBackend, BadInputGivesAnErrorWithAReason) {
    std::mt19937 random(11);
    QByteArray noise(4096, '\0');
    for (char& c : noise)
        c = char(random());
    noise[0] = 'x'; // not a signature by chance
    ASSERT_TRUE(TestAudio::generateWithSox(path("good.caf"), {"-n", "-r", "8000", "-b", "16"},
                                           {"synth", "0.5", "sine", "300"}));
    QFile good(path("good.caf"));
    ASSERT_TRUE(good.open(QIODevice::ReadOnly));
    const QByteArray caf = good.readAll();
    auto write = [&](const char* name, const QByteArray& bytes) {
        QFile f(path(name));
        EXPECT_TRUE(f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size());
        return path(name);
    };
    const struct {
        QString path;
        int32_t code;
        int errnum = 0;
    } files[] = {
        {write("noise.bin", noise), LXErrUnsupported},
        {write("empty.caf", {}), LXErrTruncated},
        {write("empty.txt", {}), LXErrUnsupported},
        {write("noise.flac", "fLaC" + noise), LXErrDamaged},
        {write("noise.ogg", "OggS" + noise), LXErrDamaged},
        {write("header.caf", caf.left(20)), LXErrDamaged},
        {path("missing.caf"), LXErrFileSystem, ENOENT},
        {m_dir.path(), LXErrFileSystem, EISDIR},
    };
    for (const auto& f : files) {
        auto reader = LXOpenSndfileReader(f.path);
        ASSERT_FALSE(reader) << f.path.toStdString();
        EXPECT_EQ(reader.error().code(), f.code) << why(reader.error());
        EXPECT_EQ(reader.error().errnum(), f.errnum) << why(reader.error());
        EXPECT_EQ(reader.error().path(), f.path);
    }

    const struct {
        LXStreamDescription desc;
        int32_t code;
    } refusals[] = {
        {describe(path("x.flac"), LXSampleEncoding::pcm(32, false)), LXErrInvalidParameter},
        {describe(path("x.flac"), LXSampleEncoding::ieeeFloat(32, false)), LXErrInvalidParameter},
        {describe(path("x.caf"), LXSampleEncoding::pcm(12, false)), LXErrInvalidParameter},
        {describe(path("x.caf"), LXSampleEncoding::pcm(16, false), 0), LXErrInvalidParameter},
        {describe(path("x.caf"), LXSampleEncoding::pcm(16, false), 2, 0), LXErrInvalidParameter},
        {describe(path("x.xyz"), LXSampleEncoding::pcm(16, false)), LXErrUnsupported},
    };
    for (const auto& r : refusals) {
        auto sink = LXCreateSndfileSink(path("refused"), r.desc);
        ASSERT_FALSE(sink);
        EXPECT_EQ(sink.error().code(), r.code) << why(sink.error());
    }
    auto nowhere =
        LXCreateSndfileSink(path("missing/x.caf"), describe(path("x.caf"), LXSampleEncoding::pcm(16, true)));
    ASSERT_FALSE(nowhere);
    EXPECT_EQ(nowhere.error().errnum(), ENOENT);
}

} // namespace
