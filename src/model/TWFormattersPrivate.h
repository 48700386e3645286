#pragma once

// Shared by the TWFormatters*.cpp files only.

#include "model/TWFormatters.h"

#include <atomic>
#include <memory>
#include <optional>

namespace TWFormatting {

// A finite number from any numeric QVariant or from text that is a number in the C locale. Booleans,
// containers, dates and data are not numbers here.
std::optional<double> realValue(const QVariant& value);
// The same, only when the number is whole and fits in 64 bits.
std::optional<qint64> integerValue(const QVariant& value);
// Text of a number in the C locale, "" when the text is not one.
std::optional<double> parseReal(const QString& text);
std::optional<qint64> parseInteger(const QString& text);

// "1,234,567": thousands grouped with commas, whatever the locale, so that lists read the same everywhere.
QString groupDigits(qint64 value);
// "%.Nf" without a negative zero ("-0.00" reads "0.00").
QString fixed(double value, int decimals);

// Text with a trailing unit removed when present (case-insensitive, spaces before it allowed).
QString stripUnit(const QString& text, const QStringList& units);

bool fail(QString* error, const QString& reason);

std::unique_ptr<TWFormatter> makeTimeFormatter(const std::atomic<int>& format);
std::unique_ptr<TWFormatter> makeRangeFormatter(const std::atomic<int>& timeFormat,
                                                const std::atomic<int>& rangeFormat);

std::unique_ptr<TWFormatter> makeCreatorFormatter();
std::unique_ptr<TWFormatter> makeFileSizeFormatter();
std::unique_ptr<TWFormatter> makeFormatFormatter();
std::unique_ptr<TWFormatter> makeBitRangeFormatter();
std::unique_ptr<TWFormatter> makeSampleRateFormatter();
std::unique_ptr<TWFormatter> makeChannelsFormatter();
std::unique_ptr<TWFormatter> makeSamplesFormatter();
std::unique_ptr<TWFormatter> makeDecibelFormatter();
std::unique_ptr<TWFormatter> makeLoudnessFormatter();
std::unique_ptr<TWFormatter> makeLoudnessRangeFormatter();
std::unique_ptr<TWFormatter> makeDifferenceFormatter();
std::unique_ptr<TWFormatter> makeClippedFormatter();
std::unique_ptr<TWFormatter> makeDataFormatter();
std::unique_ptr<TWFormatter> makeDateFormatter();

std::unique_ptr<TWFormatter> makeMidiNoteFormatter();
std::unique_ptr<TWFormatter> makeGainFormatter();
std::unique_ptr<TWFormatter> makeDetuneFormatter();
std::unique_ptr<TWFormatter> makeTempoFormatter();
std::unique_ptr<TWFormatter> makeTimeSignatureFormatter();
std::unique_ptr<TWFormatter> makeKeyFormatter();
std::unique_ptr<TWFormatter> makeScaleFormatter();
std::unique_ptr<TWFormatter> makeBarsBeatsFormatter();
std::unique_ptr<TWFormatter> makePlaybackTypeFormatter();

} // namespace TWFormatting
