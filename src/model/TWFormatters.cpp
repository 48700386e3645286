#include "model/TWFormatters.h"

#include "lx/LXMetadata.h"

#include "lx/LXRange.h"
#include "model/TWFormattersPrivate.h"

#include <QHash>
#include <QLocale>
#include <QRegularExpression>

#include <cmath>

using namespace TWFormatting;

bool TWFormatter::getObjectValue(QVariant* value, const QString& text, QString* error) const {
    Q_UNUSED(value);
    Q_UNUSED(text);
    return fail(error, QStringLiteral("This value cannot be typed in"));
}

// ---- Helpers shared by the formatter families

namespace TWFormatting {

std::optional<double> parseReal(const QString& text) {
    bool ok = false;
    const double v = QLocale::c().toDouble(text.trimmed(), &ok);
    if (!ok || !std::isfinite(v)) return std::nullopt;
    return v;
}

std::optional<qint64> parseInteger(const QString& text) {
    bool ok = false;
    const qint64 v = QLocale::c().toLongLong(text.trimmed(), &ok);
    if (!ok) return std::nullopt;
    return v;
}

std::optional<double> realValue(const QVariant& value) {
    double v = 0.0;
    switch (value.typeId()) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::SChar:
    case QMetaType::UChar:
    case QMetaType::Double:
    case QMetaType::Float:
        v = value.toDouble();
        break;
    case QMetaType::QString:
        return parseReal(value.toString());
    default:
        return std::nullopt;
    }
    if (!std::isfinite(v)) return std::nullopt;
    return v;
}

std::optional<qint64> integerValue(const QVariant& value) {
    switch (value.typeId()) {
    case QMetaType::Int:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::SChar:
        return value.toLongLong();
    case QMetaType::UInt:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
    case QMetaType::UShort:
    case QMetaType::UChar: {
        const qulonglong v = value.toULongLong();
        if (v > qulonglong(std::numeric_limits<qint64>::max())) return std::nullopt;
        return qint64(v);
    }
    case QMetaType::QString:
        if (const auto v = parseInteger(value.toString())) return v;
        break;
    default:
        break;
    }
    // Whole numbers stored as floating point (a property list, a script) count too.
    const std::optional<double> real = realValue(value);
    if (!real || *real != std::floor(*real) || std::abs(*real) >= 9.0e18) return std::nullopt;
    return qint64(*real);
}

QString groupDigits(qint64 value) {
    const qulonglong magnitude = value < 0 ? qulonglong(-(value + 1)) + 1 : qulonglong(value);
    const QString digits = QString::number(magnitude);
    QString out;
    out.reserve(digits.size() + digits.size() / 3 + 1);
    for (qsizetype i = 0; i < digits.size(); ++i) {
        if (i > 0 && (digits.size() - i) % 3 == 0) out.append(QLatin1Char(','));
        out.append(digits.at(i));
    }
    return value < 0 ? QLatin1Char('-') + out : out;
}

QString fixed(double value, int decimals) {
    QString text = QString::number(value, 'f', decimals);
    if (text.startsWith(QLatin1Char('-')) && text.mid(1) == QString::number(0.0, 'f', decimals))
        return text.mid(1);
    return text;
}

QString stripUnit(const QString& text, const QStringList& units) {
    QString trimmed = text.trimmed();
    for (const QString& unit : units) {
        if (trimmed.size() > unit.size() && trimmed.endsWith(unit, Qt::CaseInsensitive))
            return trimmed.left(trimmed.size() - unit.size()).trimmed();
    }
    return trimmed;
}

bool fail(QString* error, const QString& reason) {
    if (error) *error = reason;
    return false;
}

} // namespace TWFormatting

// ---- Time

namespace {

constexpr double kLongestTime = 1.0e9; // about 31 years: beyond it the text would be meaningless
constexpr int kFramesPerSecond = 30;

// A non-negative decimal without exponent: "12", "12.5", ".5".
std::optional<double> unsignedDecimal(const QString& text, bool allowFraction) {
    static const QRegularExpression whole(QStringLiteral("^\\d+$"));
    static const QRegularExpression decimal(QStringLiteral("^(\\d+(\\.\\d*)?|\\.\\d+)$"));
    if (!(allowFraction ? decimal : whole).match(text).hasMatch()) return std::nullopt;
    return parseReal(text);
}

} // namespace

QString TWStringFromSeconds(double seconds, int format) {
    if (!std::isfinite(seconds) || std::abs(seconds) > kLongestTime) return {};
    const double a = std::abs(seconds);
    switch (format) {
    case TWTimeFormatSeconds:
        return fixed(seconds, 3) + QStringLiteral(" s");
    case TWTimeFormatMilliseconds:
        return QString::number(std::llround(seconds * 1000.0)) + QStringLiteral(" ms");
    case TWTimeFormatFrames: {
        // A frame counts once it has fully begun; the small allowance keeps 1/30 s on frame 1.
        const qint64 frames = qint64(std::floor(a * kFramesPerSecond + 1e-6));
        const qint64 secs = frames / kFramesPerSecond;
        const QString text = QString::asprintf("%02lld:%02lld:%02lld:%02lld", secs / 3600, secs / 60 % 60,
                                               secs % 60, frames % kFramesPerSecond);
        return (seconds < 0 && frames > 0 ? QStringLiteral("-") : QString()) + text;
    }
    case TWTimeFormatHours: {
        const qint64 ms = std::llround(a * 1000.0);
        const QString text = QString::asprintf("%lld:%02lld:%02lld.%03lld", ms / 3600000, ms / 60000 % 60,
                                               ms / 1000 % 60, ms % 1000);
        return (seconds < 0 && ms > 0 ? QStringLiteral("-") : QString()) + text;
    }
    default: {
        const qint64 ms = std::llround(a * 1000.0);
        const QString text = QString::asprintf("%lld:%02lld.%03lld", ms / 60000, ms / 1000 % 60, ms % 1000);
        return (seconds < 0 && ms > 0 ? QStringLiteral("-") : QString()) + text;
    }
    }
}

bool TWSecondsFromString(const QString& text, double* seconds, QString* error) {
    QString t = text.trimmed();
    if (t.isEmpty()) return fail(error, QStringLiteral("No time was given"));
    const bool negative = t.startsWith(QLatin1Char('-'));
    if (negative || t.startsWith(QLatin1Char('+'))) t = t.mid(1).trimmed();

    const QString invalid =
        QStringLiteral("'%1' is not a time such as 1:02.345, 62.345 s or 00:01:02:10").arg(text);
    std::optional<double> value;
    const QString withoutMs = stripUnit(t, {QStringLiteral("ms")});
    if (withoutMs != t) {
        if (const auto ms = unsignedDecimal(withoutMs, true)) value = *ms / 1000.0;
    } else if (const QString secs = stripUnit(t, {QStringLiteral("seconds"), QStringLiteral("secs"),
                                                  QStringLiteral("sec"), QStringLiteral("s")});
               secs != t) {
        value = unsignedDecimal(secs, true);
    } else if (t.contains(QLatin1Char(':'))) {
        const QStringList parts = t.split(QLatin1Char(':'));
        const bool frames = parts.size() == 4;
        if (parts.size() > 4) return fail(error, invalid);
        std::vector<double> fields;
        for (qsizetype i = 0; i < parts.size(); ++i) {
            const bool last = i == parts.size() - 1;
            const auto field = unsignedDecimal(parts[i], last && !frames);
            if (!field) return fail(error, invalid);
            fields.push_back(*field);
        }
        // Every field but the first is bounded by the next larger unit.
        for (size_t i = 1; i < fields.size(); ++i) {
            const double limit = frames && i == 3 ? double(kFramesPerSecond) : 60.0;
            if (fields[i] >= limit)
                return fail(error, QStringLiteral("'%1' has a field out of range").arg(text));
        }
        if (fields.size() == 2)
            value = fields[0] * 60.0 + fields[1];
        else if (fields.size() == 3)
            value = fields[0] * 3600.0 + fields[1] * 60.0 + fields[2];
        else
            value = fields[0] * 3600.0 + fields[1] * 60.0 + fields[2] + fields[3] / kFramesPerSecond;
    } else {
        value = unsignedDecimal(t, true);
    }
    if (!value) return fail(error, invalid);
    if (*value > kLongestTime) return fail(error, QStringLiteral("'%1' is too long a time").arg(text));
    if (seconds) *seconds = negative ? -*value : *value;
    return true;
}

namespace {

class TimeFormatter final : public TWFormatter {
public:
    explicit TimeFormatter(const std::atomic<int>& format) : m_format(format) {}

    QString stringForObjectValue(const QVariant& value) const override {
        const auto seconds = realValue(value);
        return seconds ? TWStringFromSeconds(*seconds, m_format.load(std::memory_order_relaxed)) : QString();
    }

    bool getObjectValue(QVariant* value, const QString& text, QString* error) const override {
        double seconds = 0.0;
        if (!TWSecondsFromString(text, &seconds, error)) return false;
        if (value) *value = seconds;
        return true;
    }

private:
    const std::atomic<int>& m_format;
};

// A stretch of a file: a map with "start" and "end" (or "location" and "length") in seconds, a list
// [start, end], or an LXRange.
class RangeFormatter final : public TWFormatter {
public:
    RangeFormatter(const std::atomic<int>& timeFormat, const std::atomic<int>& rangeFormat)
        : m_timeFormat(timeFormat), m_rangeFormat(rangeFormat) {}

    QString stringForObjectValue(const QVariant& value) const override {
        const auto range = bounds(value);
        if (!range) return {};
        const int timeFormat = m_timeFormat.load(std::memory_order_relaxed);
        const QString start = TWStringFromSeconds(range->first, timeFormat);
        const QString end = TWStringFromSeconds(range->second, timeFormat);
        QString length = TWStringFromSeconds(range->second - range->first, timeFormat);
        if (start.isEmpty() || end.isEmpty() || length.isEmpty()) return {};
        switch (m_rangeFormat.load(std::memory_order_relaxed)) {
        case TWRangeFormatStartLength:
            return start + QStringLiteral(" + ") + length;
        case TWRangeFormatLength:
            return length;
        default:
            return start + QStringLiteral(" - ") + end;
        }
    }

    // "start - end", "start + length", or a length alone (starting at 0).
    bool getObjectValue(QVariant* value, const QString& text, QString* error) const override {
        static const QRegularExpression pair(QStringLiteral("^\\s*(.+?)\\s*([-+\\x{2013}])\\s*(.+?)\\s*$"));
        double start = 0.0;
        double end = 0.0;
        const QRegularExpressionMatch m = pair.match(text);
        if (m.hasMatch()) {
            double second = 0.0;
            if (!TWSecondsFromString(m.captured(1), &start, error) ||
                !TWSecondsFromString(m.captured(3), &second, error))
                return false;
            end = m.captured(2) == QLatin1String("+") ? start + second : second;
        } else if (!TWSecondsFromString(text, &end, error)) {
            return false;
        }
        if (start < 0.0 || end < start)
            return fail(error,
                        QStringLiteral("'%1' is not a range: it must start at or after 0 and end at or "
                                       "after its start")
                            .arg(text));
        if (value) *value = QVariantMap{{QStringLiteral("start"), start}, {QStringLiteral("end"), end}};
        return true;
    }

private:
    static std::optional<std::pair<double, double>> bounds(const QVariant& value) {
        std::optional<double> start;
        std::optional<double> end;
        if (value.metaType() == QMetaType::fromType<LXRange>()) {
            const LXRange r = value.value<LXRange>();
            start = r.start(), end = r.end();
        } else if (value.typeId() == QMetaType::QVariantMap) {
            const QVariantMap map = value.toMap();
            if (map.contains(QStringLiteral("start"))) {
                start = realValue(map.value(QStringLiteral("start")));
                end = realValue(map.value(QStringLiteral("end")));
            } else {
                start = realValue(map.value(QStringLiteral("location")));
                const auto length = realValue(map.value(QStringLiteral("length")));
                if (start && length) end = *start + *length;
            }
        } else if (value.typeId() == QMetaType::QVariantList) {
            const QVariantList list = value.toList();
            if (list.size() == 2) start = realValue(list[0]), end = realValue(list[1]);
        }
        if (!start || !end || *start < 0.0 || *end < *start || !std::isfinite(*end)) return std::nullopt;
        return std::make_pair(*start, *end);
    }

    const std::atomic<int>& m_timeFormat;
    const std::atomic<int>& m_rangeFormat;
};

} // namespace

namespace TWFormatting {
std::unique_ptr<TWFormatter> makeTimeFormatter(const std::atomic<int>& format) {
    return std::make_unique<TimeFormatter>(format);
}
std::unique_ptr<TWFormatter> makeRangeFormatter(const std::atomic<int>& timeFormat,
                                                const std::atomic<int>& rangeFormat) {
    return std::make_unique<RangeFormatter>(timeFormat, rangeFormat);
}
} // namespace TWFormatting

// ---- The set

struct TWFormatters::Private {
    std::atomic<int> timeFormat{TWTimeFormatMinutes};
    std::atomic<int> rangeFormat{TWRangeFormatStartEnd};
    std::unique_ptr<TWFormatter> time = makeTimeFormatter(timeFormat);
    std::unique_ptr<TWFormatter> range = makeRangeFormatter(timeFormat, rangeFormat);
    std::unique_ptr<TWFormatter> creator = makeCreatorFormatter();
    std::unique_ptr<TWFormatter> fileSize = makeFileSizeFormatter();
    std::unique_ptr<TWFormatter> format = makeFormatFormatter();
    std::unique_ptr<TWFormatter> bitRange = makeBitRangeFormatter();
    std::unique_ptr<TWFormatter> sampleRate = makeSampleRateFormatter();
    std::unique_ptr<TWFormatter> channels = makeChannelsFormatter();
    std::unique_ptr<TWFormatter> samples = makeSamplesFormatter();
    std::unique_ptr<TWFormatter> decibel = makeDecibelFormatter();
    std::unique_ptr<TWFormatter> loudness = makeLoudnessFormatter();
    std::unique_ptr<TWFormatter> loudnessRange = makeLoudnessRangeFormatter();
    std::unique_ptr<TWFormatter> difference = makeDifferenceFormatter();
    std::unique_ptr<TWFormatter> clipped = makeClippedFormatter();
    std::unique_ptr<TWFormatter> midiNote = makeMidiNoteFormatter();
    std::unique_ptr<TWFormatter> gain = makeGainFormatter();
    std::unique_ptr<TWFormatter> detune = makeDetuneFormatter();
    std::unique_ptr<TWFormatter> tempo = makeTempoFormatter();
    std::unique_ptr<TWFormatter> timeSignature = makeTimeSignatureFormatter();
    std::unique_ptr<TWFormatter> key = makeKeyFormatter();
    std::unique_ptr<TWFormatter> scale = makeScaleFormatter();
    std::unique_ptr<TWFormatter> barsBeats = makeBarsBeatsFormatter();
    std::unique_ptr<TWFormatter> playbackType = makePlaybackTypeFormatter();
    std::unique_ptr<TWFormatter> data = makeDataFormatter();
    std::unique_ptr<TWFormatter> date = makeDateFormatter();
};

TWFormatters::TWFormatters() : d(std::make_unique<Private>()) {}
TWFormatters::~TWFormatters() = default;

const TWFormatter& TWFormatters::timeFormatter() const {
    return *d->time;
}
const TWFormatter& TWFormatters::rangeFormatter() const {
    return *d->range;
}
const TWFormatter& TWFormatters::creatorFormatter() const {
    return *d->creator;
}
const TWFormatter& TWFormatters::fileSizeFormatter() const {
    return *d->fileSize;
}
const TWFormatter& TWFormatters::formatFormatter() const {
    return *d->format;
}
const TWFormatter& TWFormatters::bitRangeFormatter() const {
    return *d->bitRange;
}
const TWFormatter& TWFormatters::sampleRateFormatter() const {
    return *d->sampleRate;
}
const TWFormatter& TWFormatters::channelsFormatter() const {
    return *d->channels;
}
const TWFormatter& TWFormatters::samplesFormatter() const {
    return *d->samples;
}
const TWFormatter& TWFormatters::decibelFormatter() const {
    return *d->decibel;
}
const TWFormatter& TWFormatters::loudnessFormatter() const {
    return *d->loudness;
}
const TWFormatter& TWFormatters::loudnessRangeFormatter() const {
    return *d->loudnessRange;
}
const TWFormatter& TWFormatters::differenceFormatter() const {
    return *d->difference;
}
const TWFormatter& TWFormatters::clippedFormatter() const {
    return *d->clipped;
}
const TWFormatter& TWFormatters::midiNoteFormatter() const {
    return *d->midiNote;
}
const TWFormatter& TWFormatters::gainFormatter() const {
    return *d->gain;
}
const TWFormatter& TWFormatters::detuneFormatter() const {
    return *d->detune;
}
const TWFormatter& TWFormatters::tempoFormatter() const {
    return *d->tempo;
}
const TWFormatter& TWFormatters::timeSignatureFormatter() const {
    return *d->timeSignature;
}
const TWFormatter& TWFormatters::keyFormatter() const {
    return *d->key;
}
const TWFormatter& TWFormatters::scaleFormatter() const {
    return *d->scale;
}
const TWFormatter& TWFormatters::barsBeatsFormatter() const {
    return *d->barsBeats;
}
const TWFormatter& TWFormatters::playbackTypeFormatter() const {
    return *d->playbackType;
}
const TWFormatter& TWFormatters::dataFormatter() const {
    return *d->data;
}
const TWFormatter& TWFormatters::dateFormatter() const {
    return *d->date;
}

void TWFormatters::setTimeFormat(int format) {
    d->timeFormat.store(format, std::memory_order_relaxed);
}
void TWFormatters::setRangeFormat(int format) {
    d->rangeFormat.store(format, std::memory_order_relaxed);
}
int TWFormatters::timeFormat() const {
    return d->timeFormat.load(std::memory_order_relaxed);
}
int TWFormatters::rangeFormat() const {
    return d->rangeFormat.load(std::memory_order_relaxed);
}

namespace {
using Accessor = const TWFormatter& (TWFormatters::*)() const;

struct Named {
    const char* name;
    Accessor accessor;
};

constexpr Named kNamed[] = {
    {"timeFormatter", &TWFormatters::timeFormatter},
    {"rangeFormatter", &TWFormatters::rangeFormatter},
    {"creatorFormatter", &TWFormatters::creatorFormatter},
    {"fileSizeFormatter", &TWFormatters::fileSizeFormatter},
    {"formatFormatter", &TWFormatters::formatFormatter},
    {"bitRangeFormatter", &TWFormatters::bitRangeFormatter},
    {"sampleRateFormatter", &TWFormatters::sampleRateFormatter},
    {"channelsFormatter", &TWFormatters::channelsFormatter},
    {"samplesFormatter", &TWFormatters::samplesFormatter},
    {"decibelFormatter", &TWFormatters::decibelFormatter},
    {"loudnessFormatter", &TWFormatters::loudnessFormatter},
    {"loudnessRangeFormatter", &TWFormatters::loudnessRangeFormatter},
    {"differenceFormatter", &TWFormatters::differenceFormatter},
    {"clippedFormatter", &TWFormatters::clippedFormatter},
    {"midiNoteFormatter", &TWFormatters::midiNoteFormatter},
    {"gainFormatter", &TWFormatters::gainFormatter},
    {"detuneFormatter", &TWFormatters::detuneFormatter},
    {"tempoFormatter", &TWFormatters::tempoFormatter},
    {"timeSignatureFormatter", &TWFormatters::timeSignatureFormatter},
    {"keyFormatter", &TWFormatters::keyFormatter},
    {"scaleFormatter", &TWFormatters::scaleFormatter},
    {"barsBeatsFormatter", &TWFormatters::barsBeatsFormatter},
    {"playbackTypeFormatter", &TWFormatters::playbackTypeFormatter},
    {"dataFormatter", &TWFormatters::dataFormatter},
    {"dateFormatter", &TWFormatters::dateFormatter},
};

} // namespace

const TWFormatter* TWFormatters::formatterForKey(const QString& key) const {
    return formatterNamed(LXMetadata::formatterSelectorForKey(key));
}

QString TWFormatters::stringForKey(const QString& key, const QVariant& value) const {
    if (value.typeId() == QMetaType::Nullptr) return QStringLiteral("none");
    const TWFormatter* formatter = formatterForKey(key);
    return formatter ? formatter->stringForObjectValue(value) : value.toString();
}

std::unique_ptr<TWFormatter> TWFormatters::timeFormatterFollowing(const std::atomic<int>& format) {
    return TWFormatting::makeTimeFormatter(format);
}

const TWFormatter* TWFormatters::formatterNamed(const QString& name) const {
    for (const Named& n : kNamed)
        if (name == QLatin1String(n.name)) return &(this->*n.accessor)();
    return nullptr;
}

QList<TWFormatters::Row> TWFormatters::displayRows(const QVariantMap& info) const {
    QList<Row> rows;
    for (const QString& title : LXMetadata::titlesForCategoryMask(~0u)) {
        const QString key = LXMetadata::keyForTitle(title);
        const QVariant value = info.value(key);
        if (!value.isValid()) continue;
        const QString text = stringForKey(key, value);
        if (!text.isEmpty()) rows.append({key, title, text});
    }
    return rows;
}
