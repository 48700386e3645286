// End-to-end throughput of the audio-file framework beside sox (and cp) doing the same job on the same
// files in the same run. See README.md for what each figure means.

#include "TestAudio.h"
#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/LXFile.h"
#include "lx/LXProcess.h"
#include "lx/dsp/LXGain.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <sys/resource.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace {

// Large enough that the per-call overhead of readFrames disappears, small enough to stay in L2.
constexpr int64_t kReadBlockFrames = 4096;

struct Failure {
    std::string what;
};

[[noreturn]] void fail(const QString& what) {
    throw Failure{what.toStdString()};
}

template <typename T> T unwrap(LXResult<T> result, const char* what) {
    if (!result) fail(QStringLiteral("%1: %2").arg(QString::fromLatin1(what), result.error().description()));
    return std::move(result).value();
}

void check(const LXStatus& status, const char* what) {
    if (!status) fail(QStringLiteral("%1: %2").arg(QString::fromLatin1(what), status.error().description()));
}

// Makes a file's data durable, as our writer does before it renames: the peers' times include this,
// so both sides pay for the disk.
void syncFile(const QString& path) {
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0 || ::fsync(fd) != 0) fail(QStringLiteral("cannot sync %1").arg(path));
    ::close(fd);
}

void runPeer(const QString& program, const QStringList& args) {
    int status = -1;
    QString err;
    TestAudio::runTool(program, args, &status, &err);
    if (status != 0)
        fail(QStringLiteral("%1 %2 failed (%3): %4")
                 .arg(program, args.join(' '))
                 .arg(status)
                 .arg(err.trimmed()));
}

// The best of `runs` wall-clock times of job; prepare runs before each, untimed.
double bestOf(int runs, const std::function<void()>& job, const std::function<void()>& prepare = {}) {
    double best = std::numeric_limits<double>::infinity();
    for (int i = 0; i < runs; ++i) {
        if (prepare) prepare();
        const auto start = std::chrono::steady_clock::now();
        job();
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        best = std::min(best, elapsed.count());
    }
    return best;
}

// Ours ------------------------------------------------------------------------------------------------

volatile float g_sink; // keeps the reads from being optimised away

int64_t readAll(const QString& path) {
    auto file = unwrap(LXAudioFile::open(path), "open");
    std::vector<float> block(size_t(kReadBlockFrames) * size_t(file->numberOfChannels()));
    int64_t total = 0;
    for (int64_t start = 0; start < file->frames(); start += kReadBlockFrames) {
        const int64_t n = unwrap(file->readFrames(start, kReadBlockFrames, block.data()), "readFrames");
        total += n;
        g_sink = block[0];
    }
    if (total != file->frames())
        fail(QStringLiteral("read %1 of %2 frames of %3").arg(total).arg(file->frames()).arg(path));
    return total;
}

// Where the time of one rewrite went: the operation, which ends the writing itself (completing and
// syncing the temporary file), and saveFile (the rename and the folder's sync).
struct Phases {
    double process = 0;
    double save = 0;
    double total() const { return process + save; }
};

double since(std::chrono::steady_clock::time_point& mark) {
    const auto now = std::chrono::steady_clock::now();
    const std::chrono::duration<double> elapsed = now - mark;
    mark = now;
    return elapsed.count();
}

// The whole path a user's action takes: open, process into a writer, complete, save under a new name.
Phases rewrite(const QString& in, const QString& out, const std::optional<double>& gain) {
    Phases phases;
    auto mark = std::chrono::steady_clock::now();
    auto file = unwrap(LXAudioFile::open(in), "open");
    LXAudioFileWriter writer(*file);
    writer.setDirectory(QFileInfo(out).absolutePath());
    if (gain) {
        LXGain kernel(*gain);
        check(LXProcess(*file, kernel, writer), "gain");
    } else {
        check(file->copyToWriter(writer), "copyToWriter");
    }
    check(writer.endWrite(), "endWrite");
    phases.process = since(mark);
    check(writer.saveFile(0, out), "saveFile");
    phases.save = since(mark);
    return phases;
}

// The best of `runs` rewrites, by total time, with its phases.
Phases bestRewrite(int runs, const QString& in, const QString& out, const std::optional<double>& gain) {
    Phases best;
    for (int i = 0; i < runs; ++i) {
        QFile::remove(out);
        const Phases phases = rewrite(in, out, gain);
        if (i == 0 || phases.total() < best.total()) best = phases;
    }
    return best;
}

int64_t framesOf(const QString& path) {
    return unwrap(LXAudioFile::open(path), "open")->frames();
}

// Report -----------------------------------------------------------------------------------------------

struct Row {
    QString job;
    double ours;
    double sox;
    double cp = -1;               // -1: cp does not apply
    std::optional<Phases> phases; // for jobs that write
};

void printTable(const std::vector<Row>& rows) {
    std::printf("\n%-20s %9s %9s %9s %9s %9s\n", "job", "ours s", "sox s", "ours/sox", "cp s", "ours/cp");
    for (const Row& r : rows) {
        std::printf("%-20s %9.3f %9.3f %9.2f", r.job.toUtf8().constData(), r.ours, r.sox, r.ours / r.sox);
        if (r.cp >= 0) std::printf(" %9.3f %9.2f", r.cp, r.ours / r.cp);
        std::printf("\n");
    }
    std::printf("\nwhere our writing jobs spent their time (s):\n%-20s %11s %9s\n", "job", "operation",
                "saveFile");
    for (const Row& r : rows)
        if (r.phases)
            std::printf("%-20s %11.3f %9.3f\n", r.job.toUtf8().constData(), r.phases->process,
                        r.phases->save);
}

double megabytes(long kilobytes) {
    return double(kilobytes) / 1024.0;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("lx_bench"));
    // Both sides pay for putting their output on the disk: the peers' outputs are fsynced too.
    LXFile::setSynchronousWrites(true);
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Reads, copies and changes the gain of generated WAV files through the framework and "
                       "through sox, and prints the times side by side."));
    parser.addHelpOption();
    const QCommandLineOption sizeOption(
        QStringLiteral("size"),
        QStringLiteral("Size of the 16-bit test file in MB (default 100; the "
                       "24-bit file has the same length, 1.5 times the size)."),
        QStringLiteral("MB"), QStringLiteral("100"));
    const QCommandLineOption runsOption(QStringLiteral("runs"),
                                        QStringLiteral("Runs of each job; the best counts."),
                                        QStringLiteral("N"), QStringLiteral("3"));
    const QCommandLineOption dirOption(
        QStringLiteral("dir"), QStringLiteral("Folder for the temporary files (default: the system's)."),
        QStringLiteral("DIR"), QDir::tempPath());
    const QCommandLineOption keepOption(QStringLiteral("keep"), QStringLiteral("Keep the generated files."));
    parser.addOptions({sizeOption, runsOption, dirOption, keepOption});
    parser.process(app);

    bool ok = false;
    const double sizeMB = parser.value(sizeOption).toDouble(&ok);
    if (!ok || sizeMB <= 0) parser.showHelp(2);
    const int runs = parser.value(runsOption).toInt(&ok);
    if (!ok || runs < 1) parser.showHelp(2);
    for (const char* tool : {"sox", "soxi", "cp"})
        if (!TestAudio::haveTool(QString::fromLatin1(tool))) {
            std::fprintf(stderr, "lx_bench: %s is not on PATH\n", tool);
            return 1;
        }

    QTemporaryDir dir(QDir(parser.value(dirOption)).filePath(QStringLiteral("lx_bench-XXXXXX")));
    if (!dir.isValid()) {
        std::fprintf(stderr, "lx_bench: cannot create a temporary folder in %s\n",
                     qPrintable(parser.value(dirOption)));
        return 1;
    }
    dir.setAutoRemove(!parser.isSet(keepOption));

    TestAudio::Sound sound;
    sound.signal = TestAudio::Signal::Noise; // full use of every bit: nothing compresses or short-cuts
    sound.channels = 2;
    sound.rate = 44100;
    sound.frames = int64_t(sizeMB * 1e6 / 4);

    std::vector<Row> rows;
    try {
        for (int bits : {16, 24}) {
            sound.encoding = LXSampleEncoding::pcm(bits, false);
            const QString label = QStringLiteral("%1-bit").arg(bits);
            const QString in = dir.filePath(QStringLiteral("in%1.wav").arg(bits));
            const QString out = dir.filePath(QStringLiteral("out%1.wav").arg(bits));
            const auto generateStart = std::chrono::steady_clock::now();
            const QString written = unwrap(TestAudio::write(in, sound), "generate");
            const std::chrono::duration<double> generateTime =
                std::chrono::steady_clock::now() - generateStart;
            std::printf("%s: %.1f MB, %lld frames (%.1f min of stereo at 44.1 kHz), generated in %.2f s\n",
                        qPrintable(QFileInfo(written).fileName()), double(QFileInfo(written).size()) / 1e6,
                        static_cast<long long>(sound.frames), double(sound.frames) / sound.rate / 60.0,
                        generateTime.count());
            std::fflush(stdout);

            const auto removeOut = [&] { QFile::remove(out); };
            const QStringList soxIn = {QStringLiteral("-D"), in};

            Row read{QStringLiteral("read  ") + label, 0, 0, -1, std::nullopt};
            read.ours = bestOf(runs, [&] { readAll(in); });
            read.sox = bestOf(runs, [&] {
                runPeer(QStringLiteral("sox"),
                        soxIn +
                            QStringList{QStringLiteral("-t"), QStringLiteral("null"), QStringLiteral("-")});
            });
            rows.push_back(read);

            Row copy{QStringLiteral("copy  ") + label, 0, 0, -1, std::nullopt};
            copy.phases = bestRewrite(runs, in, out, std::nullopt);
            copy.ours = copy.phases->total();
            if (framesOf(out) != sound.frames)
                fail(QStringLiteral("the copy has %1 frames, not %2").arg(framesOf(out)).arg(sound.frames));
            copy.sox = bestOf(
                runs,
                [&] {
                    runPeer(QStringLiteral("sox"), soxIn + QStringList{out});
                    syncFile(out);
                },
                removeOut);
            copy.cp = bestOf(
                runs,
                [&] {
                    runPeer(QStringLiteral("cp"), {in, out});
                    syncFile(out);
                },
                removeOut);
            rows.push_back(copy);

            Row gain{QStringLiteral("gain  ") + label, 0, 0, -1, std::nullopt};
            gain.phases = bestRewrite(runs, in, out, 0.5);
            gain.ours = gain.phases->total();
            if (framesOf(out) != sound.frames)
                fail(QStringLiteral("the gain output has %1 frames, not %2")
                         .arg(framesOf(out))
                         .arg(sound.frames));
            gain.sox = bestOf(
                runs,
                [&] {
                    runPeer(QStringLiteral("sox"),
                            {QStringLiteral("-D"), QStringLiteral("-v"), QStringLiteral("0.5"), in, out});
                    syncFile(out);
                },
                removeOut);
            rows.push_back(gain);

            if (!parser.isSet(keepOption)) {
                removeOut();
                QFile::remove(in);
            }
        }
    } catch (const Failure& failure) {
        std::fprintf(stderr, "lx_bench: %s\n", failure.what.c_str());
        return 1;
    }

    printTable(rows);
    // Only our own process: a child's figure would count the copy of our memory it had before exec.
    rusage self{};
    getrusage(RUSAGE_SELF, &self);
    std::printf("\npeak RSS of lx_bench: %.1f MB\n", megabytes(self.ru_maxrss));
    std::printf("times: wall clock, best of %d, warm page cache; writes include an fsync of the output\n",
                runs);
    if (parser.isSet(keepOption)) std::printf("files kept in %s\n", qPrintable(dir.path()));
    return 0;
}
