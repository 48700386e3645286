#include "TestAudio.h"

#include "lx/LXAudioFileWriter.h"
#include "lx/LXAudioFilename.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <numbers>

namespace TestAudio {

namespace {

constexpr int64_t kBlockFrames = 4096;

// Phase in cycles, in [0, 1). Reduced from integers first so long files keep their precision.
double phase(int64_t frame, double frequency, double rate) {
    const double cycles = double(frame) * frequency / rate;
    return cycles - std::floor(cycles);
}

double sine(int64_t frame, double frequency, double rate) {
    return std::sin(2.0 * std::numbers::pi * phase(frame, frequency, rate));
}

// splitmix64's finaliser: a good hash of (seed, channel, frame), so that any sample of the noise can
// be computed on its own, in any order.
uint64_t mix(uint64_t z) {
    z += 0x9E3779B97F4A7C15ull;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

double noise(uint32_t seed, int64_t frame, int channel) {
    const uint64_t h = mix(mix(mix(seed) ^ uint64_t(uint32_t(channel))) ^ uint64_t(frame));
    // 24 bits: the result then needs no rounding to become a float.
    const double unit = double(h >> 40) / double(1 << 24); // [0, 1)
    return 2.0 * unit - 1.0;
}

double unquantised(const Sound& sound, int64_t frame, int channel) {
    const double a = sound.amplitude;
    switch (sound.signal) {
    case Signal::Pattern:
        if (channel == 0) return a * sine(frame, sound.frequency, sound.rate);
        if (channel == 1) return a * (1.0 - 4.0 * std::abs(phase(frame, sound.frequency, sound.rate) - 0.5));
        return a * (channel / 20.0 + 0.1 * sine(frame, sound.frequency * channel / 2.0, sound.rate));
    case Signal::Sine:
        return a * sine(frame, sound.frequency, sound.rate);
    case Signal::Noise:
        return a * noise(sound.seed, frame, channel);
    case Signal::Silence:
        return 0.0;
    case Signal::Impulse: {
        const int64_t period = std::max<int64_t>(1, std::llround(sound.rate));
        return frame % period == 0 ? a : 0.0;
    }
    case Signal::Ramp:
        if (sound.frames <= 1) return -a;
        return -a + 2.0 * a * double(frame) / double(sound.frames - 1);
    }
    return 0.0;
}

QString describeFailure(const QString& program, int exitCode, const QString& standardError) {
    const QString detail = standardError.trimmed();
    if (exitCode < 0)
        return QStringLiteral("%1 could not run%2")
            .arg(program, detail.isEmpty() ? QString() : ": " + detail);
    return QStringLiteral("%1 failed with status %2%3")
        .arg(program)
        .arg(exitCode)
        .arg(detail.isEmpty() ? QString() : ": " + detail);
}

} // namespace

double sample(const Sound& sound, int64_t frame, int channel) {
    return double(float(unquantised(sound, frame, channel)));
}

std::vector<double> generate(const Sound& sound) {
    std::vector<double> out(size_t(sound.frames) * size_t(sound.channels));
    size_t i = 0;
    for (int64_t f = 0; f < sound.frames; ++f)
        for (int c = 0; c < sound.channels; ++c)
            out[i++] = sample(sound, f, c);
    return out;
}

double quantise(const Sound& sound, double value) {
    const LXSampleEncoding& e = sound.encoding;
    if (e.isFloat()) return e.bits == 64 ? value : double(float(value));
    const double full = std::ldexp(1.0, e.bits - 1);
    const double x = value * full;
    double q = x < 0 ? std::trunc(x - 0.5) : std::trunc(x + 0.5);
    q = std::clamp(q, -full, full - 1.0);
    return q / full;
}

std::vector<double> expectedExact(const Sound& sound) {
    std::vector<double> out = generate(sound);
    for (double& v : out)
        v = quantise(sound, v);
    return out;
}

std::vector<float> expected(const Sound& sound) {
    const std::vector<double> exact = expectedExact(sound);
    return std::vector<float>(exact.begin(), exact.end());
}

LXResult<QString> write(const QString& path, const Sound& sound) {
    const QFileInfo info(path);
    LXAudioFileWriter writer(info.absolutePath());
    writer.setFormat(sound.format);
    writer.setRate(sound.rate);
    writer.setEncoding(sound.encoding);
    writer.setChannels(sound.channels);
    writer.setInterleaved(sound.interleaved);

    // Fed the way our own code feeds a writer: double only where the file needs it.
    const bool useDouble =
        writer.needsDoublePrecision() || (sound.encoding.isFloat() && sound.encoding.bits == 64);
    const size_t blockSamples = size_t(kBlockFrames) * size_t(sound.channels);
    std::vector<float> floats(useDouble ? 0 : blockSamples);
    std::vector<double> doubles(useDouble ? blockSamples : 0);
    for (int64_t start = 0; start < sound.frames; start += kBlockFrames) {
        const int64_t n = std::min(kBlockFrames, sound.frames - start);
        size_t i = 0;
        for (int64_t f = start; f < start + n; ++f)
            for (int c = 0; c < sound.channels; ++c, ++i) {
                const double v = sample(sound, f, c);
                if (useDouble)
                    doubles[i] = v;
                else
                    floats[i] = float(v);
            }
        if (useDouble)
            LX_TRY(writer.writeFrames(doubles.data(), n));
        else
            LX_TRY(writer.writeFrames(floats.data(), n));
    }
    LX_TRY(writer.endWrite());

    if (sound.interleaved) {
        LX_TRY(writer.saveFile(0, info.absoluteFilePath()));
        return info.absoluteFilePath();
    }
    LXAudioFilename name(info.absoluteFilePath());
    name.setScheme(LXAudioFilename::SplitChannels);
    name.setNumberOfFiles(sound.channels);
    for (int c = 0; c < sound.channels; ++c)
        LX_TRY(writer.saveFile(c, name.pathForChannel(c)));
    return name.pathForChannel(0);
}

bool rewriteKeepingTimes(const QString& path, const QString& from) {
    int status = -1;
    runTool("sh",
            {"-c",
             R"(touch -r "$1" "$1.times" && cat "$2" > "$1" && touch -r "$1.times" "$1" && rm "$1.times")",
             "sh", path, from},
            &status);
    return status == 0;
}

QString runTool(const QString& program, const QStringList& args, int* exitCode, QString* standardError) {
    QProcess process;
    process.start(program, args, QIODevice::ReadOnly);
    int status = -1;
    if (process.waitForStarted(30000)) {
        process.closeWriteChannel();
        if (!process.waitForFinished(120000)) {
            process.kill();
            process.waitForFinished(5000);
        } else if (process.exitStatus() == QProcess::NormalExit) {
            status = process.exitCode();
        }
    }
    if (exitCode) *exitCode = status;
    if (standardError)
        *standardError = status < 0 && process.error() == QProcess::FailedToStart
                             ? QStringLiteral("%1 was not found or could not start").arg(program)
                             : QString::fromLocal8Bit(process.readAllStandardError());
    return QString::fromLocal8Bit(process.readAllStandardOutput());
}

bool haveTool(const QString& program) {
    return !QStandardPaths::findExecutable(program).isEmpty();
}

LXResult<Decoded> readWithSox(const QString& path) {
    Decoded decoded;
    for (const char* option : {"-c", "-r"}) {
        int status = -1;
        QString err;
        const QString out =
            runTool(QStringLiteral("soxi"), {QString::fromLatin1(option), path}, &status, &err);
        bool ok = false;
        const double value = out.trimmed().toDouble(&ok);
        if (status != 0 || !ok)
            return LXError(LXErrReadFailed, describeFailure(QStringLiteral("soxi"), status, err), path);
        if (option[1] == 'c')
            decoded.channels = int(value);
        else
            decoded.rate = value;
    }

    // Not through runTool: the samples are binary and may be large.
    QProcess sox;
    sox.start(QStringLiteral("sox"), {QStringLiteral("-D"), path, QStringLiteral("-L"), QStringLiteral("-t"),
                                      QStringLiteral("f64"), QStringLiteral("-")});
    if (!sox.waitForStarted(30000))
        return LXError(LXErrReadFailed, QStringLiteral("sox could not start"), path);
    sox.closeWriteChannel();
    // QProcess keeps draining both pipes while it waits, so sox never blocks on a full one.
    if (!sox.waitForFinished(300000)) {
        sox.kill();
        sox.waitForFinished(5000);
    }
    const QByteArray bytes = sox.readAllStandardOutput();
    const int status = sox.exitStatus() == QProcess::NormalExit ? sox.exitCode() : -1;
    if (status != 0)
        return LXError(LXErrReadFailed,
                       describeFailure(QStringLiteral("sox"), status,
                                       QString::fromLocal8Bit(sox.readAllStandardError())),
                       path);

    static_assert(std::endian::native == std::endian::little, "sox is asked for little-endian doubles");
    decoded.samples.resize(size_t(bytes.size()) / sizeof(double));
    if (!decoded.samples.empty())
        std::memcpy(decoded.samples.data(), bytes.constData(), decoded.samples.size() * sizeof(double));
    return decoded;
}

LXResult<QString> generateWithSox(const QString& path, const QStringList& args, const QStringList& effects) {
    // -D: sox dithers by default whenever it lowers the depth, which would make the file random.
    const QStringList all = QStringList{QStringLiteral("-D")} + args + QStringList{path} + effects;
    int status = -1;
    QString err;
    runTool(QStringLiteral("sox"), all, &status, &err);
    if (status != 0)
        return LXError(LXErrWriteFailed, describeFailure(QStringLiteral("sox"), status, err), path);
    return path;
}

LXResult<QString> generateTaggedWithFfmpeg(const QString& path, const QMap<QString, QString>& tags,
                                           const QString& picture) {
    QStringList args{"-v", "error", "-f", "lavfi", "-i", "sine=frequency=440:duration=0.5"};
    if (!picture.isEmpty())
        args << "-i" << picture << "-map"
             << "0"
             << "-map"
             << "1"
             << "-c:v"
             << "copy"
             << "-disposition:v"
             << "attached_pic";
    for (auto it = tags.cbegin(); it != tags.cend(); ++it)
        args << "-metadata" << it.key() + u'=' + it.value();
    if (QFileInfo(path).suffix().startsWith(QStringLiteral("aif")))
        args << "-write_id3v2"
             << "1";
    int status = -1;
    QString err;
    runTool(QStringLiteral("ffmpeg"), args << "-y" << path, &status, &err);
    if (status != 0)
        return LXError(LXErrWriteFailed, describeFailure(QStringLiteral("ffmpeg"), status, err), path);
    return path;
}

QMap<QString, QString> tagsWithFfprobe(const QString& path) {
    const QJsonObject probe =
        QJsonDocument::fromJson(
            runTool(QStringLiteral("ffprobe"),
                    {"-v", "error", "-show_entries", "format_tags:stream_tags", "-of", "json", path})
                .toUtf8())
            .object();
    QList<QJsonObject> owners{probe.value("format").toObject()};
    for (const QJsonValue& stream : probe.value("streams").toArray())
        owners.append(stream.toObject());
    QMap<QString, QString> tags;
    for (const QJsonObject& owner : owners) {
        const QJsonObject found = owner.value("tags").toObject();
        for (auto it = found.begin(); it != found.end(); ++it)
            if (!tags.contains(it.key().toUpper())) tags.insert(it.key().toUpper(), it.value().toString());
    }
    return tags;
}

} // namespace TestAudio
