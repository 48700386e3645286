#pragma once

#include <algorithm>
#include <cmath>
#include <vector>

#include "lx/LXAudioFormat.h"
#include "lx/LXResult.h"

#include <QMap>
#include <QString>
#include <QStringList>
#include <cstdint>
#include <vector>

// Deterministic test audio, written through our own writer and read back by independent programs
// (sox, soxi, sndfile-info, ffprobe) that serve the tests as oracles.
//
// Every sample is a pure function of (settings, frame, channel), so a test can compute what any frame
// of a generated file must hold without keeping the file's contents in memory.
namespace TestAudio {

enum class Signal {
    // Channel 0 a sine at the given frequency, channel 1 a triangle at the same frequency starting at
    // -amplitude, every further channel c a DC offset of c/20 plus a small sine at c/2 times the
    // frequency, all scaled by the amplitude: swapped channels, offsets and gain errors all show.
    Pattern,
    Sine,    // every channel the same sine
    Noise,   // uniform in +-amplitude, independent per channel, fixed by the seed
    Silence, // zeros
    Impulse, // amplitude at frame 0 and once a second (every `rate` frames), zero elsewhere
    Ramp,    // linear from -amplitude at the first frame to +amplitude at the last, every channel
};

struct Sound {
    Signal signal = Signal::Pattern;
    double rate = 44100;
    int channels = 2;
    int64_t frames = 44100;
    uint32_t format = LXFormat::WAVE;
    LXSampleEncoding encoding = LXSampleEncoding::pcm(16, false);
    double frequency = 600;
    double amplitude = 0.5;
    uint32_t seed = 1;
    bool interleaved = true; // false: one mono file per channel (a split set)
};

// The value of one sample before quantisation. Values are exactly representable as float, so a writer
// fed floats and one fed doubles must produce the same file.
double sample(const Sound& sound, int64_t frame, int channel);

// All frames, interleaved, before quantisation.
std::vector<double> generate(const Sound& sound);

// What a file made from these settings holds, interleaved, as a reader scaling integers of n bits by
// 1/2^(n-1) returns it: integers are round(v * 2^(n-1)), half away from zero, clipped to the
// integer's range; 32-bit floats are the sample itself. expected() is exact for every encoding but
// 32-bit integers, which need expectedExact().
std::vector<float> expected(const Sound& sound);
std::vector<double> expectedExact(const Sound& sound);
// One value of the above.
double quantise(const Sound& sound, double value);

// Writes the file through LXAudioFileWriter in blocks of 4096 frames and saves it at path. For a split
// set (interleaved false) path names the set, and the members are named by LXAudioFilename. Returns
// the saved path: the lead member's for a split set.
LXResult<QString> write(const QString& path, const Sound& sound);

// A file decoded by sox, without dithering, as doubles. sox passes every integer sample through
// exactly; float samples go through its 32-bit integer pipeline (within 2^-31, and clipped at 1.0).
struct Decoded {
    int channels = 0;
    double rate = 0;
    std::vector<double> samples; // interleaved
    int64_t frames() const { return channels > 0 ? int64_t(samples.size()) / channels : 0; }
};
LXResult<Decoded> readWithSox(const QString& path);

// Writes a file with sox itself, for tests that need input no code of ours has written. Runs
// `sox -D ARGS PATH EFFECTS`: generateWithSox(path, {"-n", "-r", "48000", "-b", "24", "-c", "2"},
// {"synth", "1", "sine", "440"}) makes one second of a 24-bit stereo sine (options after "-n" describe
// the output file). No dithering, so the file is the same on every run.
LXResult<QString> generateWithSox(const QString& path, const QStringList& args,
                                  const QStringList& effects = {});

// A file whose tags ffmpeg writes: half a second of a 440 Hz sine with each tag given (ID3v2 in MP3 and
// AIFF, Vorbis comments in FLAC, Ogg and Opus), and picture, when given, attached as cover art.
LXResult<QString> generateTaggedWithFfmpeg(const QString& path, const QMap<QString, QString>& tags,
                                           const QString& picture = {});

// Every tag ffprobe reads in the file, its format's and then its streams' (a name taken already is
// skipped), under upper-case names (Vorbis comments and ID3v2 frames spell them differently).
QMap<QString, QString> tagsWithFfprobe(const QString& path);

// Runs a program and returns what it printed on stdout; standardError receives what it printed on
// stderr. exitCode receives the exit status, or -1 when the program could not start, crashed or ran
// longer than two minutes.
QString runTool(const QString& program, const QStringList& args, int* exitCode = nullptr,
                QString* standardError = nullptr);

// Rewrites the file in place with the bytes of `from` and sets its times back (touch -r), as another program
// may: the same inode, and the same modification time to the nanosecond.
bool rewriteKeepingTimes(const QString& path, const QString& from);

// Whether a program is on PATH: tests that need one skip with a message when it is missing.
bool haveTool(const QString& program);

// Signal to noise, in dB, of decoded against source over the samples both hold: how close a lossy
// encoding comes to its source.
inline double signalToNoise(const std::vector<double>& source, const std::vector<double>& decoded) {
    double signal = 0, noise = 0;
    for (size_t i = 0; i < std::min(source.size(), decoded.size()); ++i) {
        signal += source[i] * source[i];
        noise += (source[i] - decoded[i]) * (source[i] - decoded[i]);
    }
    return 10 * std::log10(signal / std::max(noise, 1e-30));
}

// Label positions are seconds: frame n of a file at 44.1 kHz (the rate of the default sound).
inline double seconds(int64_t frame, double rate = 44100.0) {
    return double(frame) / rate;
}

} // namespace TestAudio
