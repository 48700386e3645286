// The encoders through the clipwright program, with flac, ffprobe, ffmpeg, ogginfo and sox as the
// oracles: FLAC bit for bit, MP3 and Ogg Vorbis close to their source, exact in length, with their tags.

#include "CommandLineRunner.h"
#include "TestAudio.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

namespace {

class ExportCommands : public testing::Test {
protected:
    CommandLineRunner cli;

    QString path(const QString& name) const { return QDir(cli.work()).filePath(name); }
    QString make(const QString& name, const QStringList& format, const QStringList& synth) const {
        EXPECT_TRUE(TestAudio::generateWithSox(path(name), QStringList{"-n"} + format, synth));
        return path(name);
    }
    // Exports the file (into the folder `into` of the work folder, when given) and answers the new file's
    // path: the source's name with the extension.
    QString exportFile(QStringList arguments, const QString& file, const QString& extension,
                       const QString& into = {}, QString* err = nullptr) const {
        QString folder = QFileInfo(file).path();
        if (!into.isEmpty()) {
            folder = path(into);
            QDir().mkpath(folder);
            arguments << "--directory" << folder;
        }
        const auto result = cli.run(arguments << file);
        EXPECT_EQ(result.exitCode, 0)
            << arguments.join(' ').toStdString() << ": " << result.err.toStdString();
        if (err) *err = result.err;
        const QString exported = folder + '/' + QFileInfo(file).completeBaseName() + '.' + extension;
        EXPECT_TRUE(QFileInfo::exists(exported)) << exported.toStdString();
        return exported;
    }
    static std::vector<double> samples(const QString& file) {
        const auto decoded = TestAudio::readWithSox(file);
        EXPECT_TRUE(decoded) << file.toStdString();
        return decoded ? decoded->samples : std::vector<double>{};
    }
    // A lossy file as FFmpeg decodes it (the encoder's delay and padding taken off), as WAV.
    QString decoded(const QString& file) const {
        const QString wav = path(QFileInfo(file).completeBaseName() + "-decoded.wav");
        int status = -1;
        TestAudio::runTool("ffmpeg", {"-v", "error", "-y", "-i", file, wav}, &status);
        EXPECT_EQ(status, 0) << file.toStdString();
        return wav;
    }
    static QString probe(const QString& entry, const QString& file) {
        return TestAudio::runTool("ffprobe", {"-v", "error", "-show_entries", entry, "-of", "csv=p=0", file})
            .trimmed()
            .remove(QRegularExpression(",$"));
    }
};

// Left a sweep, right a steady tone: every band of the encoder at work, and swapped channels would show.
const QStringList kMusic = {"synth", "3", "sine", "100-8000", "sine", "440", "vol", "0.6"};

} // namespace

TEST_F(ExportCommands, FlacIsBitExactItsLevelFollowsTheQualityAndFloatsBecome24Bits) {
    for (const QString depth : {"16", "24"}) {
        const QString source = make("s" + depth + ".wav", {"-r", "44100", "-b", depth, "-c", "2"}, kMusic);
        const QString flac = exportFile({"export-as-flac"}, source, "flac");
        int status = -1;
        TestAudio::runTool("flac", {"-t", "-s", flac}, &status);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(TestAudio::runTool("soxi", {"-b", flac}).trimmed(), depth);
        EXPECT_EQ(samples(flac), samples(source)) << depth.toStdString() << " bits";
    }

    // Quality 0 is level 0 and 1 level 8: frame for frame what flac makes at those levels. Ours adds 8 KiB
    // of padding (8196 bytes with its header) and a seek table of one point (22 bytes).
    const QString source = path("s16.wav");
    const QString fast = exportFile({"export-as-flac", "--quality", "0"}, source, "flac", "fast");
    const QString small = exportFile({"export-as-flac", "--quality", "1"}, source, "flac", "small");
    for (const auto& [file, level] : {std::pair{fast, "-0"}, std::pair{small, "-8"}}) {
        const QString peer = path(QString("peer%1.flac").arg(level));
        TestAudio::runTool("flac", {"-s", "-f", level, "--no-seektable", "--no-padding", source, "-o", peer});
        EXPECT_EQ(QFileInfo(file).size() - 8196 - 22, QFileInfo(peer).size()) << level;
    }

    // Floats have no place in FLAC: 24-bit integers, and the user hears of it.
    const QString floats = make("float.wav", {"-r", "48000", "-e", "floating-point", "-b", "32", "-c", "1"},
                                {"synth", "0.5", "sine", "440", "vol", "0.5"});
    QString err;
    const QString flac = exportFile({"export-as-flac"}, floats, "flac", {}, &err);
    EXPECT_TRUE(err.contains("left behind: precision beyond 24 bits")) << err.toStdString();
    EXPECT_EQ(TestAudio::runTool("soxi", {"-b", flac}).trimmed(), "24");
    const double rounded = TestAudio::signalToNoise(samples(floats), samples(flac));
    std::printf("[ figures  ] float to 24-bit FLAC: SNR %.2f dB\n", rounded);
    EXPECT_GT(rounded, 135.0);
}

TEST_F(ExportCommands, MP3IsExactInLengthCloseToItsSourceAndTagged) {
    const QString source = make("music.wav", {"-r", "44100", "-b", "16", "-c", "2"}, kMusic);
    const QString mp3 = exportFile({"export-as-mp3"}, source, "mp3");
    EXPECT_EQ(probe("stream=codec_name,sample_rate,channels,bit_rate", mp3), "mp3,44100,2,160000");
    // ffprobe counts whole frames from the decoder's start: less the encoder's delay, within a frame of the
    // source. Decoded, exactly the source's length: the LAME tag gives the delay and the padding.
    EXPECT_NEAR(probe("format=duration", mp3).toDouble() - probe("stream=start_time", mp3).toDouble(), 3.0,
                1152 / 44100.0);
    const QMap<QString, QString> tags = TestAudio::tagsWithFfprobe(mp3);
    EXPECT_EQ(tags.value("COMMENT"), "Encoded with Clipwright");
    const std::vector<double> original = samples(source), back = samples(decoded(mp3));
    EXPECT_EQ(back.size(), original.size());
    const double mp3Snr = TestAudio::signalToNoise(original, back);
    std::printf("[ figures  ] MP3 at 160 kbit/s: SNR %.2f dB\n", mp3Snr);
    EXPECT_GT(mp3Snr, 24.0);

    // The source's tags, with what LAME does not write added after, and one channel in mode mono
    // whatever the mode asked for.
    ASSERT_TRUE(TestAudio::generateTaggedWithFfmpeg(path("tagged.flac"), {{"TITLE", "Café Ünïcode"},
                                                                          {"ARTIST", "Ann"},
                                                                          {"COMMENT", "a take"},
                                                                          {"COMPOSER", "Bo"},
                                                                          {"COPYRIGHT", "2026 Us"},
                                                                          {"BPM", "120"}}));
    const QString mono = exportFile({"export-as-mp3", "--stereoMode", "0"}, path("tagged.flac"), "mp3");
    EXPECT_EQ(probe("stream=channels", mono), "1");
    const QMap<QString, QString> monoTags = TestAudio::tagsWithFfprobe(mono);
    EXPECT_EQ(monoTags.value("TITLE"), "Café Ünïcode");
    EXPECT_EQ(monoTags.value("ARTIST"), "Ann");
    EXPECT_EQ(monoTags.value("COMMENT"), "a take");
    EXPECT_EQ(monoTags.value("COMPOSER"), "Bo");
    EXPECT_EQ(monoTags.value("COPYRIGHT"), "2026 Us");
    EXPECT_EQ(monoTags.value("TBPM"), "120");
}

TEST_F(ExportCommands, WithoutLameTheUserIsToldAndTheFileFailsByName) {
    const QString source =
        make("tone.wav", {"-r", "44100", "-b", "16", "-c", "1"}, {"synth", "0.2", "sine", "440"});
    const auto result =
        cli.run({"export-as-mp3", source}, {"env", "CLIPWRIGHT_LAME_LIBRARY=/nonexistent/libmp3lame.so.0"});
    EXPECT_EQ(result.exitCode, 8);
    EXPECT_TRUE(result.err.contains("Additional software is required to export MP3 files"))
        << result.err.toStdString();
    EXPECT_TRUE(result.err.contains("-> Not Now")) << result.err.toStdString();
    EXPECT_TRUE(result.err.contains("tone.wav")) << result.err.toStdString();
    EXPECT_EQ(QDir(cli.work()).entryList(QDir::Files | QDir::Hidden), QStringList{"tone.wav"});
}

TEST_F(ExportCommands, OggVorbisIsValidCloseToItsSourceAndCommented) {
    const QString source = make("music.wav", {"-r", "44100", "-b", "16", "-c", "2"}, kMusic);
    const QString ogg = exportFile({"export-as-ogg-vorbis"}, source, "ogg");
    int status = -1;
    TestAudio::runTool("ogginfo", {"-q", ogg}, &status);
    EXPECT_EQ(status, 0);
    const std::vector<double> original = samples(source), back = samples(decoded(ogg));
    EXPECT_EQ(back.size(), original.size());
    const double oggSnr = TestAudio::signalToNoise(original, back);
    std::printf("[ figures  ] Ogg Vorbis at quality 0.4: SNR %.2f dB\n", oggSnr);
    EXPECT_GT(oggSnr, 35.0);

    ASSERT_TRUE(TestAudio::generateTaggedWithFfmpeg(
        path("tagged.flac"),
        {{"TITLE", "Café Ünïcode"}, {"ARTIST", "Ann"}, {"DATE", "2026"}, {"BPM", "120"}}));
    const QString tagged = exportFile({"export-as-ogg-vorbis"}, path("tagged.flac"), "ogg");
    const QMap<QString, QString> tags = TestAudio::tagsWithFfprobe(tagged);
    EXPECT_EQ(tags.value("TITLE"), "Café Ünïcode");
    EXPECT_EQ(tags.value("ARTIST"), "Ann");
    EXPECT_EQ(tags.value("DATE"), "2026");
    EXPECT_EQ(tags.value("BPM"), "120");
    const QString low = exportFile({"export-as-ogg-vorbis", "--quality", "0.1"}, source, "ogg", "low");
    EXPECT_LT(QFileInfo(low).size(), QFileInfo(ogg).size()) << "a lower quality, a smaller file";
}
