// Time and pitch: each file played faster or slower, to a length or a tempo, or shifted in pitch by cents
// or by a musical interval. Every action comes down to a time factor (output duration over input
// duration) and a shift in cents for LXAudioFile::changeTimePitch. Keeping the pitch while the duration
// changes (or the duration while the pitch changes) is the default; without it the two move together, as
// a tape played faster rises. A file that states a tempo states the new one afterwards, and a base note
// moves with a shift of whole semitones, so a sampler still plays the file at its pitch.

#include "engine/TWActionRegistry.h"

#include "model/TWFormatters.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"

#include <cmath>

namespace {

// Two to the power of one twelfth, as written: the arithmetic below uses this value, not a computed one.
constexpr double kSemitone = 1.059463094359;

const TWKey<int> kConvertor{
    QStringLiteral("convertor"), 0, QStringLiteral("how time and pitch are changed"),
    TWKeyDetails::oneOf({{int(LXTimePitchEngine::Finer), QStringLiteral("Finest sound")},
                         {int(LXTimePitchEngine::Faster), QStringLiteral("Faster")},
                         {int(LXTimePitchEngine::FinerFormants), QStringLiteral("Finest, keeping a voice's formants")}})};
const TWKey<bool> kRetainPitch{QStringLiteral("retainPitch"), true,
                               QStringLiteral("keep the pitch while the duration changes")};
const TWKey<bool> kRetainSpeed{QStringLiteral("retainSpeed"), true,
                               QStringLiteral("keep the duration while the pitch changes")};

// A shorter output (a factor below 1) sounds higher, as a tape played faster does.
int centsForFactor(float factor) {
    return int(std::trunc(std::log(double(factor)) / std::log(kSemitone) * -100.0));
}
float factorForCents(int cents) {
    return float(std::pow(kSemitone, double(float(cents) / -100.0f)));
}

// A file's time factor and shift in cents.
struct Change {
    float factor = 1.0f;
    int cents = 0;
};

// The shape of the five: the factor and cents of a file (none when it is to stay as it is), then the
// change itself.
class TWTimePitchAction : public TWAction {
public:
    bool canProcessFilesConcurrently() const override { return true; }

protected:
    virtual LXResult<std::optional<Change>> changeFor(LXAudioFile& file, const QVariantMap& instructions) const = 0;

    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int) override {
        const auto change = changeFor(file, instructions);
        if (!change) return change.error();
        if (!*change) return TWOutcome::unchanged();
        const auto [factor, cents] = **change;
        if (const float tempo = file.tempo(); tempo > 0)
            writer.metadata().setValue(QStringLiteral("tempo"), double(tempo) / double(factor));
        const QVariant note = file.metadata().value(QStringLiteral("baseNote"));
        if (note.isValid() && cents % 100 == 0)
            writer.metadata().setValue(QStringLiteral("baseNote"), std::clamp(note.toInt() + cents / 100, 0, 127));
        return file.changeTimePitch({factor, cents, LXTimePitchEngine(kConvertor(instructions))}, writer);
    }
};

// The duration changes; the pitch follows unless kept.
Change durationChange(float factor, const QVariantMap& instructions) {
    return {factor, kRetainPitch(instructions) ? 0 : centsForFactor(factor)};
}
// The pitch changes; the duration follows unless kept.
Change pitchChange(int cents, const QVariantMap& instructions) {
    return {kRetainSpeed(instructions) ? 1.0f : factorForCents(cents), cents};
}

// Change speed
// -----------------------------------------------------------------------------------------------------

const TWKey<double> kFactor{QStringLiteral("factor"), std::nullopt,
                            QStringLiteral("the speed: a ratio (2 plays twice as fast) or, above 20, a "
                                           "percentage (200 plays twice as fast)")};

// The slider runs from -1 to 1 over 50 % to 200 %, 100 % at its middle; the field shows the percentage.
class TWActionChangeSpeed final : public TWTimePitchAction {
public:
    QString className() const override { return QStringLiteral("TWActionChangeSpeed"); }
    QString name() const override { return QStringLiteral("Change Speed"); }
    QString verb() const override { return QStringLiteral("Changing Speed..."); }
    QList<TWInstructionKey> instructionKeys() const override { return {kFactor, kConvertor, kRetainPitch}; }
    QStringList requiredInstructionKeys() const override { return {kFactor.name}; }
    QList<TWControl> panelControls() const override {
        return {{TWControlKind::Slider, kFactor.name, QStringLiteral("Speed"), -1, 1, 2, {}, {}},
                {TWControlKind::Field, kFactor.name, {}, 0, 0, 1, QStringLiteral("%"), {}},
                TWAction::panelControls()[1], TWAction::panelControls()[2]};
    }
    QVariant controlValue(const TWControl& control) const override {
        if (control.key != kFactor.name) return TWAction::controlValue(control);
        const double percent = percentOf(objectForInstructionKey(kFactor.name).toDouble());
        if (control.kind == TWControlKind::Field) return percent;
        return percent >= 100 ? (percent - 100) / 100 : (percent - 100) / 50;
    }
    QVariant valueFromControl(const TWControl& control, const QVariant& value) const override {
        if (control.key != kFactor.name) return TWAction::valueFromControl(control, value);
        const double v = value.toDouble();
        const double percent = control.kind == TWControlKind::Field ? v : v >= 0 ? v * 100 + 100 : v * 50 + 100;
        return percent > 0 ? QVariant(percent / 100) : QVariant();
    }

protected:
    static double percentOf(double factor) { return factor > 20 ? factor : factor * 100; }
    TWOutcome preProcessWithEntries(const QList<TWFileEntryPtr>&, const QVariantMap& instructions) override {
        if (kFactor(instructions) > 0) return TWOutcome::success();
        return LXError(LXErrInvalidParameter, QStringLiteral("a speed of %1 is not above 0").arg(kFactor(instructions)));
    }
    LXResult<std::optional<Change>> changeFor(LXAudioFile&, const QVariantMap& instructions) const override {
        float speed = float(kFactor(instructions));
        if (speed > 20) speed /= 100;
        const float factor = 1.0f / speed;
        if (factor == 1.0f) return std::optional<Change>();
        return std::optional(durationChange(factor, instructions));
    }
};

// Change length
// -----------------------------------------------------------------------------------------------------

const TWKey<double> kLength{QStringLiteral("length"), std::nullopt, QStringLiteral("the duration to reach"),
                            TWKeyDetails::inUnit(QStringLiteral("s"))};

// The panel shows the length in a time format of its own choosing (hours at first), picked from a pop-up
// beside the field; the format changes only how the value shows.
class TWActionChangeLength final : public TWTimePitchAction {
public:
    QString className() const override { return QStringLiteral("TWActionChangeLength"); }
    QString name() const override { return QStringLiteral("Change Length"); }
    QString verb() const override { return QStringLiteral("Changing Length..."); }
    QList<TWInstructionKey> instructionKeys() const override { return {kLength, kConvertor, kRetainPitch}; }
    QStringList requiredInstructionKeys() const override { return {kLength.name}; }
    QList<TWControl> panelControls() const override {
        const QList<TWChoice> formats{{int(TWTimeFormatHours), QStringLiteral("Hours")},
                                      {int(TWTimeFormatMinutes), QStringLiteral("Minutes")},
                                      {int(TWTimeFormatSeconds), QStringLiteral("Seconds")},
                                      {int(TWTimeFormatMilliseconds), QStringLiteral("Milliseconds")},
                                      {int(TWTimeFormatFrames), QStringLiteral("Frames")}};
        QList<TWControl> controls = TWAction::panelControls();
        controls[0].unit.clear(); // the format shows its own
        controls.insert(1, {TWControlKind::PopUp, kLength.name, QStringLiteral("Format"), 0, 0, 0, {}, formats});
        return controls;
    }
    QVariant controlValue(const TWControl& control) const override {
        if (control.key != kLength.name) return TWAction::controlValue(control);
        if (control.kind == TWControlKind::PopUp) return m_format.load();
        const QVariant length = objectForInstructionKey(kLength.name);
        return length.isValid() ? m_formatter->stringForObjectValue(length) : QString();
    }
    QVariant valueFromControl(const TWControl& control, const QVariant& value) const override {
        if (control.key != kLength.name) return TWAction::valueFromControl(control, value);
        if (control.kind == TWControlKind::PopUp) {
            m_format = value.toInt();
            return objectForInstructionKey(kLength.name); // the same length, shown anew
        }
        QVariant seconds;
        if (value.typeId() != QMetaType::QString) return value;
        if (!m_formatter->getObjectValue(&seconds, value.toString())) return {};
        return seconds.toDouble() > 0 ? seconds : QVariant();
    }

protected:
    TWOutcome preProcessWithEntries(const QList<TWFileEntryPtr>&, const QVariantMap& instructions) override {
        if (kLength(instructions) > 0) return TWOutcome::success();
        return LXError(LXErrInvalidParameter, QStringLiteral("a length of %1 s is not above 0").arg(kLength(instructions)));
    }
    LXResult<std::optional<Change>> changeFor(LXAudioFile& file, const QVariantMap& instructions) const override {
        if (file.frames() == 0) return std::optional<Change>();
        const float factor = float(kLength(instructions) / file.length());
        if (factor == 1.0f) return std::optional<Change>();
        return std::optional(durationChange(factor, instructions));
    }

private:
    mutable std::atomic<int> m_format{TWTimeFormatHours};
    const std::unique_ptr<TWFormatter> m_formatter = TWFormatters::timeFormatterFollowing(m_format);
};

// Change tempo
// -----------------------------------------------------------------------------------------------------

const TWKey<double> kTempo{QStringLiteral("tempo"), std::nullopt, QStringLiteral("the tempo to reach"),
                           TWKeyDetails::inUnit(QStringLiteral("BPM"))};

// From the tempo the file states or, failing that, the one heard in it; a file with neither stays as it is.
class TWActionChangeTempo final : public TWTimePitchAction {
public:
    QString className() const override { return QStringLiteral("TWActionChangeTempo"); }
    QString name() const override { return QStringLiteral("Change Tempo"); }
    QString verb() const override { return QStringLiteral("Changing Tempo..."); }
    QList<TWInstructionKey> instructionKeys() const override { return {kTempo, kConvertor, kRetainPitch}; }
    QStringList requiredInstructionKeys() const override { return {kTempo.name}; }

protected:
    TWOutcome preProcessWithEntries(const QList<TWFileEntryPtr>&, const QVariantMap& instructions) override {
        if (kTempo(instructions) > 0) return TWOutcome::success();
        return LXError(LXErrInvalidParameter, QStringLiteral("a tempo of %1 BPM is not above 0").arg(kTempo(instructions)));
    }
    LXResult<std::optional<Change>> changeFor(LXAudioFile& file, const QVariantMap& instructions) const override {
        float tempo = file.tempo();
        if (tempo == 0) {
            const auto heard = file.tempoGuess();
            if (!heard) return heard.error();
            tempo = float(*heard);
        }
        if (tempo == 0) return std::optional<Change>();
        const float factor = tempo / float(kTempo(instructions));
        if (factor == 1.0f) return std::optional<Change>();
        return std::optional(durationChange(factor, instructions));
    }
};

// Change pitch
// -----------------------------------------------------------------------------------------------------

const TWKey<int> kCents{QStringLiteral("cents"), std::nullopt, QStringLiteral("the shift, up when positive"),
                        TWKeyDetails::inUnit(QStringLiteral("cents"))};

class TWActionChangePitch final : public TWTimePitchAction {
public:
    QString className() const override { return QStringLiteral("TWActionChangePitch"); }
    QString name() const override { return QStringLiteral("Change Pitch"); }
    QString verb() const override { return QStringLiteral("Changing Pitch..."); }
    QList<TWInstructionKey> instructionKeys() const override { return {kCents, kConvertor, kRetainSpeed}; }
    QStringList requiredInstructionKeys() const override { return {kCents.name}; }
    QList<TWControl> panelControls() const override {
        QList<TWControl> controls = TWAction::panelControls();
        controls.prepend({TWControlKind::Slider, kCents.name, QStringLiteral("Pitch"), -1200, 1200, 0, {}, {}});
        return controls;
    }
    QVariant valueFromControl(const TWControl& control, const QVariant& value) const override {
        if (control.key != kCents.name) return TWAction::valueFromControl(control, value);
        return qint64(std::lround(value.toDouble())); // whole cents
    }

protected:
    LXResult<std::optional<Change>> changeFor(LXAudioFile&, const QVariantMap& instructions) const override {
        if (kCents(instructions) == 0) return std::optional<Change>();
        return std::optional(pitchChange(kCents(instructions), instructions));
    }
};

// Transpose
// -----------------------------------------------------------------------------------------------------

const TWKey<int> kInterval{QStringLiteral("interval"), std::nullopt,
                           QStringLiteral("the interval in semitones, up when positive"),
                           TWKeyDetails::between(-48, 48, QStringLiteral("semitones"))};

// The interval shows as octaves, semitones and a direction.
class TWActionTranspose final : public TWTimePitchAction {
public:
    QString className() const override { return QStringLiteral("TWActionTranspose"); }
    QString name() const override { return QStringLiteral("Transpose"); }
    QString verb() const override { return QStringLiteral("Transposing..."); }
    QList<TWInstructionKey> instructionKeys() const override { return {kInterval, kConvertor, kRetainSpeed}; }
    QStringList requiredInstructionKeys() const override { return {kInterval.name}; }
    QList<TWControl> panelControls() const override {
        QList<TWChoice> octaves, semitones;
        for (int i = 0; i <= 4; ++i)
            octaves.append({i, i == 1 ? QStringLiteral("1 octave") : QStringLiteral("%1 octaves").arg(i)});
        const char* names[] = {"Unison", "Minor second", "Major second", "Minor third", "Major third",
                               "Perfect fourth", "Tritone", "Perfect fifth", "Minor sixth", "Major sixth",
                               "Minor seventh", "Major seventh"};
        for (int i = 0; i < 12; ++i)
            semitones.append({i, QString::fromLatin1(names[i])});
        const QList<TWControl> rest = TWAction::panelControls().mid(1);
        return QList<TWControl>{{TWControlKind::PopUp, kInterval.name, QStringLiteral("Octaves"), 0, 0, 0, {}, octaves},
                                {TWControlKind::PopUp, kInterval.name, QStringLiteral("Interval"), 0, 0, 0, {}, semitones},
                                {TWControlKind::Segmented, kInterval.name, {}, 0, 0, 0, {},
                                 {{0, QStringLiteral("Up")}, {1, QStringLiteral("Down")}}}} +
               rest;
    }
    QVariant controlValue(const TWControl& control) const override {
        if (control.key != kInterval.name) return TWAction::controlValue(control);
        const int interval = objectForInstructionKey(kInterval.name).toInt();
        if (control.kind == TWControlKind::Segmented) return interval < 0 ? 1 : 0;
        return control.label == u"Octaves" ? std::abs(interval) / 12 : std::abs(interval) % 12;
    }
    QVariant valueFromControl(const TWControl& control, const QVariant& value) const override {
        if (control.key != kInterval.name) return TWAction::valueFromControl(control, value);
        const int interval = objectForInstructionKey(kInterval.name).toInt();
        int octaves = std::abs(interval) / 12, semitones = std::abs(interval) % 12, sign = interval < 0 ? -1 : 1;
        if (control.kind == TWControlKind::Segmented)
            sign = value.toInt() == 1 ? -1 : 1;
        else if (control.label == u"Octaves")
            octaves = value.toInt();
        else
            semitones = value.toInt();
        return qint64(sign * (octaves * 12 + semitones));
    }

protected:
    LXResult<std::optional<Change>> changeFor(LXAudioFile&, const QVariantMap& instructions) const override {
        const int cents = kInterval(instructions) * 100;
        if (cents == 0) return std::optional<Change>();
        return std::optional(pitchChange(cents, instructions));
    }
};

} // namespace

TW_REGISTER_ACTION(TWActionChangeSpeed)
TW_REGISTER_ACTION(TWActionChangeLength)
TW_REGISTER_ACTION(TWActionChangeTempo)
TW_REGISTER_ACTION(TWActionChangePitch)
TW_REGISTER_ACTION(TWActionTranspose)
