#pragma once

#include "engine/TWAction.h"

// What the editing actions share: durations in four units, levels with an offset, and the panels that
// set them.

class LXAudioFile;

// The units of a duration: 0 milliseconds ('MLSC'), 1 seconds ('SECS'), 2 frames ('FRMS'), 3 percent of
// the file ('PERC'). Any other value reads as seconds.
enum class TWDurationUnit { Milliseconds = 0, Seconds = 1, Frames = 2, Percent = 3 };
extern const TWKey<int> kDurationUnits; // "units"

// A duration in frames of a file at that rate and length: milliseconds / 1000 x rate, seconds x rate,
// frames, percent / 100 x frames, formed in double precision and truncated toward zero.
int64_t TWDurationFrames(double value, int unit, double rate, int64_t frames);
// The same duration in seconds, untruncated: what a preview shows.
double TWDurationSeconds(double value, int unit, double rate, double length);

// Frames for seconds, truncated toward zero (a product within a millionth of a whole frame counts as
// that frame; a value beyond any file saturates).
int64_t TWTruncatedFrames(double seconds, double rate);

// An action set by a duration in a unit. Its panel has a unit pop-up, a slider for the duration as a
// share of the unit's full scale (1000 ms, 10 s, 48000 frames, 100 %), a field for the duration itself
// and a label for the unit ("ms" "0.00", "s" "0.000", "" "0", "%" "0.0" as label and number format).
// Changing the unit keeps the value and moves the slider.
class TWDurationEditAction : public TWAction {
public:
    bool canProcessFilesConcurrently() const override { return true; }
    QVariant valueFromControl(const TWControl& control, const QVariant& value) const override;
    QVariant controlValue(const TWControl& control) const override;
    TWControl controlAsShown(const TWControl& control) const override;

protected:
    virtual const TWInstructionKey& durationKey() const = 0;
    QList<TWControl> durationControls() const;
    int unit() const; // the panel's
};

// An action set by a level in decibels and an offset in seconds. Its panel has a slider (half decibels)
// and a field (a typed level above 0 dB taken as 0) for the level, and a slider and a field for the
// offset in whole milliseconds.
class TWLevelEditAction : public TWAction {
public:
    bool canProcessFilesConcurrently() const override { return true; }
    QVariant valueFromControl(const TWControl& control, const QVariant& value) const override;
    QVariant controlValue(const TWControl& control) const override;

protected:
    virtual const TWInstructionKey& levelKey() const = 0;
    QList<TWControl> levelControls() const;
    // Refuses a level above 0 dB before the first file.
    TWOutcome checkLevel(const QVariantMap& instructions) const;
};

extern const TWKey<double> kSearchOffset; // "offset", seconds added to the position found by level
extern const TWKey<bool> kZeroCross;      // "zeroCross", move a cut outward to a zero crossing

// A check box's control, and a slider for a key running from minimum to maximum.
TWControl TWCheckBox(const TWInstructionKey& key, const QString& label);
TWControl TWSlider(const TWInstructionKey& key, const QString& label, double minimum, double maximum);
