// Combining: all the files into one new file, one after the other (Append), side by side (Join
// Channels) or averaged (Mix); and the reverse, each channel of a file as a new file (Extract Channels).
// The output takes the first file's format and rate, the largest depth, and the metadata of every file,
// the first file's values winning. Samples are read and written in blocks, in double precision, so they
// pass through unchanged wherever the arithmetic leaves them alone.

#include "engine/TWActionRegistry.h"
#include "engine/TWCombiningAction.h"

#include "model/TWFileEntry.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/dsp/LXCombine.h"

#include <algorithm>
#include <functional>
#include <vector>

namespace {

constexpr int64_t kBlockFrames = 4096;

// The inputs opened together, read block by block at the same frames.
struct OpenInputs {
    std::vector<std::unique_ptr<LXAudioFile>> files;
    std::vector<double> block;

    LXStatus add(LXResult<std::unique_ptr<LXAudioFile>> opened) {
        if (!opened) return opened.error();
        files.push_back(std::move(*opened));
        return {};
    }
    // File i's frames [at, at + count), silence past its end.
    LXResult<const double*> read(size_t i, int64_t at, int64_t count) {
        LXAudioFile& file = *files[i];
        block.resize(size_t(count * file.numberOfChannels()));
        if (auto got = file.readFrames(at, count, block.data()); !got) return got.error();
        return block.data();
    }
    TWOutcome progress(int64_t done, int64_t total) const {
        const int32_t code = files.back()->progressDelegate()->update(float(done) / float(std::max<int64_t>(total, 1)));
        return code == LXContinue ? TWOutcome::success() : TWOutcome::fromCode(code);
    }
};

// What the combining actions share: the output set up from the inputs as they were gathered, and a
// refusal of inputs at another rate than the first, whose samples would play at the wrong speed and
// pitch in the output.
class TWCombiner : public TWCombiningAction {
protected:
    TWOutcome preProcessWithEntries(const QList<TWFileEntryPtr>& entries, const QVariantMap&) override {
        m_inputs = {};
        const TWFileEntryPtr* first = nullptr;
        for (const TWFileEntryPtr& entry : entries) {
            if (entry->rate() <= 0) continue; // not readable: the loop leaves it out
            if (!first) first = &entry;
            else if (entry->rate() != (*first)->rate())
                return LXError(LXErrInvalidParameter,
                               QStringLiteral("it is at %1 Hz and '%2' at %3 Hz: convert the rate of one first")
                                   .arg(entry->rate())
                                   .arg((*first)->path())
                                   .arg((*first)->rate()),
                               entry->path());
        }
        return TWOutcome::success();
    }

    void gatherFromAudioFile(LXAudioFile& file, const TWFileEntry&, LXAudioFileWriter& writer) override {
        if (m_inputs.count == 0) {
            m_inputs.format = file.format();
            m_inputs.rate = file.rate();
        }
        ++m_inputs.count;
        m_inputs.depth = std::max(m_inputs.depth, file.depth());
        m_inputs.isFloat = m_inputs.isFloat || file.isFloat();
        m_inputs.widest = std::max(m_inputs.widest, file.numberOfChannels());
        m_inputs.channelSum += file.numberOfChannels();
        m_inputs.longest = std::max(m_inputs.longest, file.frames());
        writer.addMetadata(file.metadata(), false);
    }

    static LXStatus openAll(const QList<TWFileEntryPtr>& inputs, OpenInputs& input) {
        for (const TWFileEntryPtr& entry : inputs)
            LX_TRY(input.add(openInput(entry)));
        return {};
    }

    // Reads every input at the same frames, block by block up to the longest, lets `lay` put each file's
    // block into the output block (zeroed first) and `finish` complete it, and writes it.
    using LayBlock = std::function<void(size_t file, const double* block, int fileChannels, double* out,
                                        int64_t frames)>;
    TWOutcome combineInStep(const QList<TWFileEntryPtr>& inputs, LXAudioFileWriter& writer, const LayBlock& lay,
                            const std::function<void(double* out, int64_t frames)>& finish = {}) const {
        OpenInputs input;
        LX_TRY(openAll(inputs, input));
        std::vector<double> out(size_t(kBlockFrames * writer.channels()));
        for (int64_t at = 0; at < m_inputs.longest; at += kBlockFrames) {
            const int64_t n = std::min(kBlockFrames, m_inputs.longest - at);
            std::fill(out.begin(), out.end(), 0.0);
            for (size_t i = 0; i < input.files.size(); ++i) {
                const auto block = input.read(i, at, n);
                if (!block) return block.error();
                lay(i, *block, input.files[i]->numberOfChannels(), out.data(), n);
            }
            if (finish) finish(out.data(), n);
            LX_TRY(writer.writeFrames(out.data(), n));
            if (const TWOutcome going = input.progress(at + n, m_inputs.longest); !going.goesOn()) return going;
        }
        return writer.endWrite();
    }

    // Every label of the file, where it stands, added to the output's.
    static void addLabelsOf(const LXAudioFile& file, LXAudioFileWriter& writer, double shift = 0.0) {
        for (auto [from, to] : {std::pair{&file.markerList(), &writer.markerList()},
                                std::pair{&file.sliceList(), &writer.sliceList()},
                                std::pair{&file.regionList(), &writer.regionList()},
                                std::pair{&file.loopList(), &writer.loopList()}}) {
            LXLabelList moved = *from;
            moved.shift(shift);
            to->addLabels(moved);
        }
    }

    // The first file's format where the writer can write it (not MP3), else WAV.
    void setUpOutput(LXAudioFileWriter& writer, int channels) const {
        writer.setFormat(m_inputs.format);
        writer.setRate(m_inputs.rate);
        writer.setChannels(channels);
        if (m_inputs.isFloat)
            writer.setFloat(m_inputs.depth > 32 ? 64 : 32);
        else
            writer.setDepth(m_inputs.depth);
        if (!LXAudioFileWriter::canWrite(writer.description())) writer.setFormat(LXFormat::WAVE);
    }

    struct Inputs {
        uint32_t format = 0;
        double rate = 0;
        int count = 0;
        int depth = 0;
        bool isFloat = false;
        int widest = 0;     // the most channels of one file
        int channelSum = 0; // the channels of all files
        int64_t longest = 0;
    };
    Inputs m_inputs;
};

// Append
// -----------------------------------------------------------------------------------------------------

// One file after the other. Each file's labels move by where it starts in the output, and a region named
// after the file spans it. A file with fewer channels than the widest leaves the others silent.
class TWActionAppend final : public TWCombiner {
public:
    QString className() const override { return QStringLiteral("TWActionAppend"); }
    QString name() const override { return QStringLiteral("Append"); }
    QString verb() const override { return QStringLiteral("Appending..."); }

protected:
    QString processingPhase() const override { return QStringLiteral("Appending the files"); }
    void gatherFromAudioFile(LXAudioFile& file, const TWFileEntry& entry, LXAudioFileWriter& writer) override {
        TWCombiner::gatherFromAudioFile(file, entry, writer);
        writer.regionList().addRegionWithRange(LXRange::fromFrames(m_framesSoFar, m_framesSoFar + file.frames(), file.rate()),
                                               file.displayName());
        addLabelsOf(file, writer, double(m_framesSoFar) / file.rate());
        m_framesSoFar += file.frames();
    }
    void setUpWriter(const QList<TWFileEntryPtr>&, LXAudioFileWriter& writer) override {
        TWCombiner::setUpOutput(writer, m_inputs.widest);
    }
    TWOutcome combine(const QList<TWFileEntryPtr>& inputs, const QVariantMap&, LXAudioFileWriter& writer) override {
        const int channels = writer.channels();
        std::vector<double> out(size_t(kBlockFrames * channels));
        for (const TWFileEntryPtr& entry : inputs) {
            OpenInputs input;
            LX_TRY(input.add(openInput(entry)));
            const LXAudioFile& file = *input.files.front();
            for (int64_t at = 0; at < file.frames(); at += kBlockFrames) {
                const int64_t n = std::min(kBlockFrames, file.frames() - at);
                const auto block = input.read(0, at, n);
                if (!block) return block.error();
                std::fill(out.begin(), out.end(), 0.0);
                LXPlaceChannels(*block, file.numberOfChannels(), out.data(), channels, 0, n);
                LX_TRY(writer.writeFrames(out.data(), n));
                if (const TWOutcome going = input.progress(at + n, file.frames()); !going.goesOn()) return going;
            }
        }
        return writer.endWrite();
    }

private:
    int64_t m_framesSoFar = 0;
};

// Join channels
// -----------------------------------------------------------------------------------------------------

// The files side by side: the first file's channels, then the second's, and so on, as long as the
// longest file; labels stay where they are.
class TWActionJoinChannels final : public TWCombiner {
public:
    QString className() const override { return QStringLiteral("TWActionJoinChannels"); }
    QString name() const override { return QStringLiteral("Join Channels"); }
    QString verb() const override { return QStringLiteral("Joining..."); }

protected:
    QString processingPhase() const override { return QStringLiteral("Joining the files"); }
    void gatherFromAudioFile(LXAudioFile& file, const TWFileEntry& entry, LXAudioFileWriter& writer) override {
        TWCombiner::gatherFromAudioFile(file, entry, writer);
        addLabelsOf(file, writer);
    }
    void setUpWriter(const QList<TWFileEntryPtr>&, LXAudioFileWriter& writer) override {
        TWCombiner::setUpOutput(writer, m_inputs.channelSum);
    }
    TWOutcome combine(const QList<TWFileEntryPtr>& inputs, const QVariantMap&, LXAudioFileWriter& writer) override {
        const int channels = writer.channels();
        int first = 0; // the output channel of the file's first
        return combineInStep(inputs, writer, [&](size_t file, const double* block, int fileChannels, double* out,
                                                 int64_t frames) {
            if (file == 0) first = 0;
            LXPlaceChannels(block, fileChannels, out, channels, first, frames);
            first += fileChannels;
        });
    }
};

// Mix
// -----------------------------------------------------------------------------------------------------

// The plain average of the files, channel by channel, as long as the longest: n files at full scale give
// full scale, and one loud file among quiet ones comes out n times quieter. Labels stay where they are.
class TWActionMix final : public TWCombiner {
public:
    QString className() const override { return QStringLiteral("TWActionMix"); }
    QString name() const override { return QStringLiteral("Mix"); }
    QString verb() const override { return QStringLiteral("Mixing..."); }

protected:
    QString processingPhase() const override { return QStringLiteral("Mixing the files"); }
    void gatherFromAudioFile(LXAudioFile& file, const TWFileEntry& entry, LXAudioFileWriter& writer) override {
        TWCombiner::gatherFromAudioFile(file, entry, writer);
        addLabelsOf(file, writer);
    }
    void setUpWriter(const QList<TWFileEntryPtr>&, LXAudioFileWriter& writer) override {
        TWCombiner::setUpOutput(writer, m_inputs.widest);
    }
    TWOutcome combine(const QList<TWFileEntryPtr>& inputs, const QVariantMap&, LXAudioFileWriter& writer) override {
        const int channels = writer.channels();
        const float count = float(inputs.size());
        std::vector<float> sum(size_t(kBlockFrames * channels));
        return combineInStep(
            inputs, writer,
            [&](size_t file, const double* block, int fileChannels, double*, int64_t frames) {
                if (file == 0) std::fill(sum.begin(), sum.end(), 0.0f);
                LXAddChannels(block, fileChannels, sum.data(), channels, frames);
            },
            [&](double* out, int64_t frames) {
                for (size_t s = 0; s < size_t(frames * channels); ++s)
                    out[s] = double(sum[s] / count);
            });
    }
};

// Extract channels
// -----------------------------------------------------------------------------------------------------

// Each channel of a file as a mono file of its own, numbered from 1 ("take-1.wav" is the first channel).
// A mono file gives nothing and stays as it is.
class TWActionExtractChannels final : public TWAction {
public:
    QString className() const override { return QStringLiteral("TWActionExtractChannels"); }
    QString name() const override { return QStringLiteral("Extract Channels"); }
    QString verb() const override { return QStringLiteral("Extracting Channels..."); }
    bool onlyMakesNewFiles() const override { return true; }
    bool forceCounting() const override { return true; }

protected:
    int numberOfNewEntriesForAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap&) override {
        return file.numberOfChannels() < 2 ? 0 : file.numberOfChannels();
    }
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap&, LXAudioFileWriter& writer,
                               int index) override {
        writer.setChannels(1);
        return file.copyChannels({index}, writer);
    }
};

} // namespace

TW_REGISTER_ACTION(TWActionAppend)
TW_REGISTER_ACTION(TWActionJoinChannels)
TW_REGISTER_ACTION(TWActionMix)
TW_REGISTER_ACTION(TWActionExtractChannels)
