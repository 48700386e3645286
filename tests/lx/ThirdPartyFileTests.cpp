// Real audio files from Debian packages, written by programs other than ours: whatever sox
// or ffmpeg can read, we read the same; whatever we cannot read gives a readable error.

#include "TestAudio.h"
#include "lx/LXAudioFile.h"
#include "lx/LXWaveformCache.h"

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

// ffmpeg as a second oracle: it reads some odd layouts (12-bit in 16-bit containers, 64-bit
// integers) that sox does not, and sox reads some that ffmpeg does not.
std::optional<Decoded> readWithFfmpeg(const QString& path, const QString& scratch) {
    int exitCode = 0;
    const int channels = runTool("ffprobe",
                                 {"-v", "error", "-select_streams", "a:0", "-show_entries", "stream=channels",
                                  "-of", "csv=p=0", path},
                                 &exitCode)
                             .trimmed()
                             .toInt();
    if (exitCode != 0 || channels < 1) return std::nullopt;
    runTool("ffmpeg", {"-v", "error", "-i", path, "-f", "f64le", "-y", scratch}, &exitCode);
    QFile raw(scratch);
    if (exitCode != 0 || !raw.open(QIODevice::ReadOnly)) return std::nullopt;
    const QByteArray bytes = raw.readAll();
    Decoded decoded{.channels = channels,
                    .samples = std::vector<double>(size_t(bytes.size()) / sizeof(double))};
    std::memcpy(decoded.samples.data(), bytes.constData(), decoded.samples.size() * sizeof(double));
    return decoded;
}

// Both oracles clip float data at full scale, and sox goes through 32-bit integers.
bool agrees(LXAudioFile& file, const std::optional<Decoded>& oracle) {
    if (!oracle || file.numberOfChannels() != oracle->channels || file.frames() != oracle->frames())
        return false;
    std::vector<double> ours(oracle->samples.size());
    if (!file.readFrames(0, file.frames(), ours.data())) return false;
    for (size_t i = 0; i < ours.size(); ++i)
        if (std::abs(std::clamp(ours[i], -1.0, 1.0) - oracle->samples[i]) > 1e-6) return false;
    return true;
}

void compareDirectory(const QString& root, int limit, int atLeast) {
    if (!QFileInfo::exists(root))
        GTEST_SKIP() << root.toStdString() << " is not installed (scripts/setup.sh installs it)";
    QTemporaryDir cache;
    LXWaveformCache::shared().setDirectory(cache.path());
    const QString scratch = cache.filePath("decoded.f64");
    QStringList paths;
    QDirIterator it(root, {"*.wav", "*.WAV", "*.aif", "*.aiff", "*.aifc", "*.AIF", "*.flac", "*.caf", "*.au"},
                    QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext() && paths.size() < limit)
        paths.append(it.next());
    paths.sort();
    int compared = 0, rejectedByAll = 0;
    for (const QString& path : paths) {
        SCOPED_TRACE(path.toStdString());
        auto file = LXAudioFile::open(path);
        auto sox = readWithSox(path);
        const std::optional<Decoded> bySox = sox && sox->frames() > 0 ? std::optional(*sox) : std::nullopt;
        if (file && agrees(**file, bySox)) {
            ++compared;
            continue;
        }
        // ffmpeg only where sox cannot read the file or reads it otherwise: it is slow to start.
        const std::optional<Decoded> byFfmpeg = readWithFfmpeg(path, scratch);
        if (!bySox && !byFfmpeg) {
            if (!file) {
                EXPECT_FALSE(file.error().description().isEmpty());
                ++rejectedByAll;
            }
            continue;
        }
        ASSERT_TRUE(file) << file.error().description().toStdString();
        EXPECT_TRUE(agrees(**file, byFfmpeg)) << "neither sox nor ffmpeg reads the same " << (*file)->frames()
                                              << " frames of " << (*file)->numberOfChannels() << " channels";
        ++compared;
    }
    EXPECT_GE(compared, atLeast);
    std::printf("%s: %d files read like sox or ffmpeg, %d rejected by all\n", qPrintable(root), compared,
                rejectedByAll);
}

} // namespace

TEST(ThirdPartyFiles, ScipyOddWavFiles) {
    compareDirectory("/usr/lib/python3/dist-packages/scipy/io/tests/data", 100, 10);
}

TEST(ThirdPartyFiles, CsoundExamples) {
    compareDirectory("/usr/share/csoundqt/Examples", 60, 20);
}

TEST(ThirdPartyFiles, SonicPiSamples) {
    compareDirectory("/usr/share/sonic-pi/samples", 40, 30);
}
