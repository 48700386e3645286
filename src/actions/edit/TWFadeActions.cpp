// Fades: a gain ramp at the start or the end of each file, placed by a duration from the file's edge or
// by where the file's level first (or last) reaches a threshold. The ramp is LXFade's (lx/dsp/LXFade.h).

#include "actions/edit/TWEditControls.h"

#include "engine/TWActionRegistry.h"

#include "lx/LXAudioFile.h"
#include "lx/dsp/LXGain.h"

namespace {

const TWKey<double> kCurve{QStringLiteral("curve"), 0.5,
                           QStringLiteral("shape of the ramp: 0.5 a straight line, lower rises sooner"),
                           TWKeyDetails::between(0.0, 1.0)};
const TWKey<double> kFor{QStringLiteral("for"), 0.1, QStringLiteral("the fade's duration, in the unit of --units")};
const TWKey<double> kBelow{QStringLiteral("below"), -48.0,
                           QStringLiteral("threshold level relative to full scale, at most 0"),
                           TWKeyDetails::inUnit(QStringLiteral("dB"))};

TWOutcome checkCurve(const QVariantMap& instructions) {
    if (!instructions.contains(kCurve.name)) return TWOutcome::success();
    const double curve = kCurve(instructions);
    if (curve >= 0.0 && curve <= 1.0) return TWOutcome::success();
    return TWOutcome::failure(
        LXError(LXErrInvalidParameter, QStringLiteral("the curve %1 lies outside 0 to 1").arg(curve)));
}

TWControl curveSlider() {
    return TWSlider(kCurve, QStringLiteral("Curve"), 0.0, 1.0);
}

// The preview of a fade: where the ramp ends (fade in) or begins (fade out), in seconds, and its curve.
TWPreview fadePreview(double seconds, double curve) {
    TWPreview preview;
    preview.values = {seconds, double(float(curve))};
    return preview;
}

// Fades by duration
// ------------------------------------------------------------------------------------------------

class TWDurationFade : public TWDurationEditAction {
public:
    QString verb() const override { return QStringLiteral("Fading..."); }
    bool canPreview() const override { return true; }
    QList<TWInstructionKey> instructionKeys() const override { return {kDurationUnits, kFor, kCurve}; }
    QStringList requiredInstructionKeys() const override { return {kFor.name}; }
    QList<TWControl> panelControls() const override { return durationControls() << curveSlider(); }

protected:
    const TWInstructionKey& durationKey() const override { return kFor; }
    TWOutcome preProcessWithEntries(const QList<TWFileEntryPtr>&, const QVariantMap& instructions) override {
        if (kFor(instructions) < 0)
            return TWOutcome::failure(LXError(LXErrInvalidParameter, QStringLiteral("the duration is negative")));
        return checkCurve(instructions);
    }
    int64_t framesFor(const LXAudioFile& file, const QVariantMap& instructions) const {
        return TWDurationFrames(kFor(instructions), kDurationUnits(instructions), file.rate(), file.frames());
    }
    // The panel's duration in seconds, at most the file's length.
    double panelSeconds(const LXAudioFile& file) const {
        const double seconds = TWDurationSeconds(objectForInstructionKey(kFor.name).toDouble(), unit(),
                                                 file.rate(), file.length());
        return std::min(seconds, file.length());
    }
};

class TWActionFadeInFor final : public TWDurationFade {
public:
    QString className() const override { return QStringLiteral("TWActionFadeInFor"); }
    QString name() const override { return QStringLiteral("Fade In For"); }

protected:
    // A fade as long as the file, or longer, fades all of it.
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int) override {
        const int64_t n = framesFor(file, instructions);
        if (n <= 0) return TWOutcome::unchanged();
        return file.fade(writer, LXFadeType::In, std::min<uint64_t>(n, file.frames()), kCurve(instructions));
    }
    TWPreview previewForAudioFile(LXAudioFile& file) const override {
        return fadePreview(panelSeconds(file), objectForInstructionKey(kCurve.name).toDouble());
    }
};

class TWActionFadeOutFor final : public TWDurationFade {
public:
    QString className() const override { return QStringLiteral("TWActionFadeOutFor"); }
    QString name() const override { return QStringLiteral("Fade Out For"); }

protected:
    // A fade as long as the file, or longer (or a negative one, compared unsigned), leaves it alone; a
    // fade of no length still rewrites it.
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int) override {
        const int64_t n = framesFor(file, instructions);
        if (uint64_t(n) >= uint64_t(file.frames())) return TWOutcome::unchanged();
        return file.fade(writer, LXFadeType::Out, file.frames() - n, kCurve(instructions));
    }
    TWPreview previewForAudioFile(LXAudioFile& file) const override {
        return fadePreview(std::max(file.length() - panelSeconds(file), 0.0),
                           objectForInstructionKey(kCurve.name).toDouble());
    }
};

// Fades by level
// ---------------------------------------------------------------------------------------------------

class TWLevelFade : public TWLevelEditAction {
public:
    QString verb() const override { return QStringLiteral("Fading..."); }
    bool canPreview() const override { return true; }
    QList<TWInstructionKey> instructionKeys() const override { return {kBelow, kSearchOffset, kCurve}; }
    QStringList requiredInstructionKeys() const override { return {kBelow.name}; }
    QList<TWControl> panelControls() const override { return levelControls() << curveSlider(); }

protected:
    const TWInstructionKey& levelKey() const override { return kBelow; }
    TWOutcome preProcessWithEntries(const QList<TWFileEntryPtr>&, const QVariantMap& instructions) override {
        const TWOutcome level = checkLevel(instructions);
        return level.goesOn() ? checkCurve(instructions) : level;
    }
    // Where the panel's level is first reached, or last left, plus its offset, within the file; seconds.
    TWPreview panelPreview(LXAudioFile& file, bool end) const {
        const float amplitude = LXAmplitudeOfLevel(objectForInstructionKey(kBelow.name).toDouble());
        const auto frame = end ? file.endAtThreshold(amplitude) : file.startAtThreshold(amplitude);
        if (!frame) return {};
        const double seconds = double(*frame) / file.rate() + objectForInstructionKey(kSearchOffset.name).toDouble();
        return fadePreview(std::clamp(seconds, 0.0, file.length()), objectForInstructionKey(kCurve.name).toDouble());
    }
};

class TWActionFadeInBelow final : public TWLevelFade {
public:
    QString className() const override { return QStringLiteral("TWActionFadeInBelow"); }
    QString name() const override { return QStringLiteral("Fade In Below"); }

protected:
    // The fade ends where the level is first reached, plus the offset. An end before the start compares
    // unsigned, so it fades the whole file; one on the start leaves the file alone.
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int) override {
        const auto start = file.startAtThreshold(LXAmplitudeOfLevel(kBelow(instructions)));
        if (!start) return start.error();
        const int64_t offset = TWTruncatedFrames(kSearchOffset(instructions), file.rate());
        const uint64_t n = std::min<uint64_t>(uint64_t(*start + offset), uint64_t(file.frames()));
        if (n == 0) return TWOutcome::unchanged();
        return file.fade(writer, LXFadeType::In, int64_t(n), kCurve(instructions));
    }
    TWPreview previewForAudioFile(LXAudioFile& file) const override { return panelPreview(file, false); }
};

class TWActionFadeOutBelow final : public TWLevelFade {
public:
    QString className() const override { return QStringLiteral("TWActionFadeOutBelow"); }
    QString name() const override { return QStringLiteral("Fade Out Below"); }

protected:
    // The fade begins where the level is last left, plus the offset; at or past the end (or before the
    // start, compared unsigned) the file is left alone.
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int) override {
        const auto end = file.endAtThreshold(LXAmplitudeOfLevel(kBelow(instructions)));
        if (!end) return end.error();
        const int64_t offset = TWTruncatedFrames(kSearchOffset(instructions), file.rate());
        const uint64_t m = std::min<uint64_t>(uint64_t(*end + offset), uint64_t(file.frames()));
        if (m >= uint64_t(file.frames())) return TWOutcome::unchanged();
        return file.fade(writer, LXFadeType::Out, int64_t(m), kCurve(instructions));
    }
    TWPreview previewForAudioFile(LXAudioFile& file) const override { return panelPreview(file, true); }
};

} // namespace

TW_REGISTER_ACTION(TWActionFadeInFor)
TW_REGISTER_ACTION(TWActionFadeOutFor)
TW_REGISTER_ACTION(TWActionFadeInBelow)
TW_REGISTER_ACTION(TWActionFadeOutBelow)
