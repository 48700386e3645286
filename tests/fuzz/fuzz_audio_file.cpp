// Arbitrary bytes as a sound file of each extension the program reads, through what `info` and a run
// do with it: open (headers, labels, metadata), analyse (every frame read), and a gain into a new file.

#include "FuzzFile.h"

#include "lx/LXAnalysis.h"
#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/LXProcess.h"
#include "lx/LXWaveformCache.h"
#include "lx/dsp/LXGain.h"

#include <iterator>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    LXWaveformCache::shared().setDirectory(fuzzFolder() + QStringLiteral("/cache"));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const char* const kExtensions[] = {"wav", "aif",  "aifc", "caf", "au",  "w64",
                                              "flac", "ogg", "oga",  "opus", "mp3", "sd2"};
    if (size < 1) return 0;
    const char* extension = kExtensions[data[0] % std::size(kExtensions)];
    const QString path = writeFuzzFile(QStringLiteral("input.") + extension, data + 1, size - 1);
    auto file = LXAudioFile::open(path);
    if (!file) return 0;
    LXWaveformCache::shared().removeEntryAtPath(path);
    (void)LXAnalyze(**file, 1);
    LXAudioFileWriter writer(**file);
    LXGain gain(0.5);
    if (LXProcess(**file, gain, writer, {})) (void)writer.saveFile(0, fuzzFolder() + "/output.wav");
    return 0;
}
