#include "actions/edit/TWEditControls.h"

#include <cmath>
#include <limits>

const TWKey<int> kDurationUnits{
    QStringLiteral("units"), int(TWDurationUnit::Seconds), QStringLiteral("the unit of the duration"),
    TWKeyDetails::oneOf({{0, QStringLiteral("Milliseconds"), LXFourCC("MLSC")},
                         {1, QStringLiteral("Seconds"), LXFourCC("SECS")},
                         {2, QStringLiteral("Frames"), LXFourCC("FRMS")},
                         {3, QStringLiteral("Percent"), LXFourCC("PERC")}})};

const TWKey<double> kSearchOffset{QStringLiteral("offset"), 0.0,
                                  QStringLiteral("seconds added to the position found by level; may be negative"),
                                  TWKeyDetails::inUnit(QStringLiteral("s"))};

const TWKey<bool> kZeroCross{QStringLiteral("zeroCross"), false,
                             QStringLiteral("move each cut outward to the nearest zero crossing")};

namespace {

struct UnitLook {
    const char* label;
    int decimals;
    double fullScale; // of the panel's slider
};

UnitLook lookOf(int unit) {
    switch (TWDurationUnit(unit)) {
    case TWDurationUnit::Milliseconds:
        return {"ms", 2, 1000.0};
    case TWDurationUnit::Frames:
        return {"", 0, 48000.0};
    case TWDurationUnit::Percent:
        return {"%", 1, 100.0};
    case TWDurationUnit::Seconds:
        break;
    }
    return {"s", 3, 10.0};
}

} // namespace

int64_t TWTruncatedFrames(double seconds, double rate) {
    const double frames = seconds * rate;
    constexpr double limit = 9.0e18; // within int64_t, far beyond any file
    if (std::isnan(frames)) return 0;
    // 0.7 s at 44100 Hz is 30869.999999999996 frames in double: a product within a millionth of a whole
    // frame is that frame, as LXFramesFromSeconds takes it, so that a duration gives its whole frames.
    const double nearest = std::round(frames);
    if (std::abs(frames - nearest) < 1e-6) return int64_t(std::clamp(nearest, -limit, limit));
    return int64_t(std::clamp(frames, -limit, limit));
}

int64_t TWDurationFrames(double value, int unit, double rate, int64_t frames) {
    switch (TWDurationUnit(unit)) {
    case TWDurationUnit::Milliseconds:
        return TWTruncatedFrames(value / 1000.0, rate);
    case TWDurationUnit::Frames:
        return TWTruncatedFrames(value, 1.0);
    case TWDurationUnit::Percent:
        return TWTruncatedFrames(value / 100.0, double(frames));
    case TWDurationUnit::Seconds:
        break;
    }
    return TWTruncatedFrames(value, rate);
}

double TWDurationSeconds(double value, int unit, double rate, double length) {
    switch (TWDurationUnit(unit)) {
    case TWDurationUnit::Milliseconds:
        return value / 1000.0;
    case TWDurationUnit::Frames:
        return rate > 0 ? value / rate : 0.0;
    case TWDurationUnit::Percent:
        return value / 100.0 * length;
    case TWDurationUnit::Seconds:
        break;
    }
    return value;
}

TWControl TWCheckBox(const TWInstructionKey& key, const QString& label) {
    return {TWControlKind::CheckBox, key.name, label, 0, 0, 0, {}, {}};
}

TWControl TWSlider(const TWInstructionKey& key, const QString& label, double minimum, double maximum) {
    return {TWControlKind::Slider, key.name, label, minimum, maximum, 2, key.details.unit, {}};
}

// Durations
// -------------------------------------------------------------------------------------------------

int TWDurationEditAction::unit() const {
    return kDurationUnits.converted(objectForInstructionKey(kDurationUnits.name)).value_or(1).toInt();
}

QList<TWControl> TWDurationEditAction::durationControls() const {
    const TWInstructionKey& duration = durationKey();
    TWControl popup{TWControlKind::PopUp, kDurationUnits.name, QStringLiteral("Units"), 0, 0, 0, {},
                    kDurationUnits.details.choices};
    TWControl slider{TWControlKind::Slider, duration.name, QStringLiteral("Duration"), 0, 1, 3, {}, {}};
    TWControl field{TWControlKind::Field, duration.name, QStringLiteral("Duration"), 0, 0, 3, {}, {}};
    TWControl label{TWControlKind::Label, kDurationUnits.name, {}, 0, 0, 0, {}, {}};
    return {popup, slider, field, label};
}

QVariant TWDurationEditAction::valueFromControl(const TWControl& control, const QVariant& value) const {
    if (control.key != durationKey().name) return TWAction::valueFromControl(control, value);
    const std::optional<QVariant> number = durationKey().converted(value);
    if (!number) return {};
    if (control.kind == TWControlKind::Slider) return number->toDouble() * lookOf(unit()).fullScale;
    return *number;
}

QVariant TWDurationEditAction::controlValue(const TWControl& control) const {
    if (control.kind == TWControlKind::Label) return QString::fromLatin1(lookOf(unit()).label);
    const QVariant value = TWAction::controlValue(control);
    if (control.kind == TWControlKind::Slider && control.key == durationKey().name)
        return value.toDouble() / lookOf(unit()).fullScale;
    return value;
}

TWControl TWDurationEditAction::controlAsShown(const TWControl& control) const {
    TWControl shown = control;
    if (control.kind == TWControlKind::Field && control.key == durationKey().name) {
        shown.decimals = lookOf(unit()).decimals;
        shown.unit = QString::fromLatin1(lookOf(unit()).label);
    }
    return shown;
}

// Levels
// ----------------------------------------------------------------------------------------------------

QList<TWControl> TWLevelEditAction::levelControls() const {
    const TWInstructionKey& level = levelKey();
    const QString dB = QStringLiteral("dB"), ms = QStringLiteral("ms");
    return {{TWControlKind::Slider, level.name, QStringLiteral("Threshold"), -96, 0, 1, dB, {}},
            {TWControlKind::Field, level.name, QStringLiteral("Threshold"), 0, 0, 1, dB, {}},
            {TWControlKind::Slider, kSearchOffset.name, QStringLiteral("Offset"), -500, 500, 0, ms, {}},
            {TWControlKind::Field, kSearchOffset.name, QStringLiteral("Offset"), 0, 0, 0, ms, {}}};
}

QVariant TWLevelEditAction::valueFromControl(const TWControl& control, const QVariant& value) const {
    bool ok = false;
    const double number = value.toDouble(&ok);
    if (!ok || !std::isfinite(number)) return TWAction::valueFromControl(control, value);
    if (control.key == kSearchOffset.name) return std::trunc(number) / 1000.0; // whole milliseconds
    if (control.key != levelKey().name) return TWAction::valueFromControl(control, value);
    return control.kind == TWControlKind::Slider ? TWHalfDecibels(number) : std::min(number, 0.0);
}

QVariant TWLevelEditAction::controlValue(const TWControl& control) const {
    const QVariant value = TWAction::controlValue(control);
    if (control.key == kSearchOffset.name) return double(TWTruncatedFrames(value.toDouble(), 1000.0));
    return value;
}

TWOutcome TWLevelEditAction::checkLevel(const QVariantMap& instructions) const {
    const double level = levelKey().value(instructions).toDouble();
    if (level <= 0) return TWOutcome::success();
    return TWOutcome::failure(LXError(LXErrInvalidParameter,
                                      QStringLiteral("the level %1 dB lies above full scale (0 dB)").arg(level)));
}
