// Real audio files from Debian packages, written by programs other than ours: whatever sox
// or ffmpeg can read, we read the same; whatever we cannot read gives a readable error.

#include "LXAudioFile.h"
#include "LXWaveformCache.h"
#include "TestAudio.h"

#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <optional>

using namespace TestAudio;

namespace {

QStringList audioFilesUnder(const QString& root, int limit) {
    static const QStringList patterns = {"*.wav", "*.WAV", "*.aif", "*.aiff", "*.aifc", "*.AIF", "*.flac", "*.caf", "*.au"};
    QStringList found;
    QDirIterator it(root, patterns, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext() && found.size() < limit)
        found.append(it.next());
    found.sort();
    return found;
}

struct Tally {
    int compared = 0;
    int rejectedByAll = 0;
};

// ffmpeg as a second oracle: it reads some odd layouts (12-bit in 16-bit containers, 64-bit
// integers) that sox does not, and sox reads some that ffmpeg does not.
std::optional<Decoded> readWithFfmpeg(const QString& path, const QString& scratch) {
    int exitCode = 0;
    const QString channels = runTool("ffprobe", {"-v", "error", "-select_streams", "a:0", "-show_entries",
                                                 "stream=channels", "-of", "csv=p=0", path},
                                     &exitCode);
    if (exitCode != 0 || channels.trimmed().toInt() < 1)
        return std::nullopt;
    runTool("ffmpeg", {"-v", "error", "-i", path, "-f", "f64le", "-y", scratch}, &exitCode);
    QFile raw(scratch);
    if (exitCode != 0 || !raw.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray bytes = raw.readAll();
    Decoded decoded;
    decoded.channels = channels.trimmed().toInt();
    decoded.samples.resize(size_t(bytes.size()) / sizeof(double));
    if (!decoded.samples.empty())
        std::memcpy(decoded.samples.data(), bytes.constData(), decoded.samples.size() * sizeof(double));
    return decoded;
}

std::optional<Decoded> readWithSoxIfItCan(const QString& path) {
    int exitCode = 0;
    runTool("soxi", {path}, &exitCode);
    if (exitCode != 0)
        return std::nullopt;
    auto decoded = readWithSox(path);
    if (!decoded || decoded->frames() == 0)
        return std::nullopt;
    return *decoded;
}

// Both oracles clip float data at full scale, and sox goes through 32-bit integers.
bool agrees(LXAudioFile& file, const Decoded& oracle) {
    if (file.numberOfChannels() != oracle.channels || file.frames() != oracle.frames())
        return false;
    std::vector<double> ours(oracle.samples.size());
    if (!file.readFrames(0, file.frames(), ours.data()))
        return false;
    for (size_t i = 0; i < ours.size(); ++i)
        if (std::abs(std::clamp(ours[i], -1.0, 1.0) - oracle.samples[i]) > 1e-6)
            return false;
    return true;
}

void compareWithOracles(const QString& path, const QString& scratch, Tally& tally) {
    SCOPED_TRACE(path.toStdString());
    auto file = LXAudioFile::open(path);
    const std::optional<Decoded> sox = readWithSoxIfItCan(path);
    if (file && sox && agrees(**file, *sox)) {
        ++tally.compared;
        return;
    }
    // ffmpeg only where sox cannot read the file or reads it otherwise: it is slow to start.
    const std::optional<Decoded> ffmpeg = readWithFfmpeg(path, scratch);
    if (!sox && !ffmpeg) {
        if (!file) {
            EXPECT_FALSE(file.error().description().isEmpty());
            ++tally.rejectedByAll;
        }
        return;
    }
    ASSERT_TRUE(file) << file.error().description().toStdString();
    EXPECT_TRUE(ffmpeg && agrees(**file, *ffmpeg))
        << "neither sox nor ffmpeg reads the same " << (*file)->frames() << " frames of "
        << (*file)->numberOfChannels() << " channels";
    ++tally.compared;
}

void compareDirectory(const QString& root, int limit, int atLeast) {
    if (!QFileInfo::exists(root))
        GTEST_SKIP() << root.toStdString() << " is not installed (scripts/setup.sh installs it)";
    QTemporaryDir cache;
    LXWaveformCache::shared().setDirectory(cache.path());
    Tally tally;
    const QString scratch = cache.filePath("decoded.f64");
    for (const QString& path : audioFilesUnder(root, limit))
        compareWithOracles(path, scratch, tally);
    EXPECT_GE(tally.compared, atLeast);
    std::printf("%s: %d files read like sox or ffmpeg, %d rejected by all\n", qPrintable(root), tally.compared,
                tally.rejectedByAll);
}

} // namespace

TEST(ThirdPartyFiles, ScipyOddWavFiles) {
    compareDirectory("/usr/lib/python3/dist-packages/scipy/io/tests/data", 100, 10);
}

TEST(ThirdPartyFiles, CsoundExamples) { compareDirectory("/usr/share/csoundqt/Examples", 60, 20); }

TEST(ThirdPartyFiles, SonicPiSamples) { compareDirectory("/usr/share/sonic-pi/samples", 40, 30); }
