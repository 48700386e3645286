// Formatters of what the audio-file framework reports about a file and what analysis measures.

#include "lx/LXAudioFormat.h"
#include "model/TWFormattersPrivate.h"

#include <QDateTime>
#include <QRegularExpression>

#include <cmath>

using namespace TWFormatting;

namespace {

bool isPrintable(uint32_t c) {
    return c >= 0x20 && c <= 0x7e;
}

// The four characters of a code, or "" when one of them cannot be shown.
QString lettersOfCode(qint64 code) {
    if (code <= 0 || code > qint64(UINT32_MAX)) return {};
    QString text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const uint32_t c = (uint32_t(code) >> shift) & 0xff;
        if (!isPrintable(c)) return {};
        text.append(QChar(char16_t(c)));
    }
    return text;
}

// One to four printable ASCII characters, padded with spaces as the Mac pads short codes.
std::optional<uint32_t> codeOfLetters(const QString& text) {
    if (text.isEmpty() || text.size() > 4) return std::nullopt;
    uint32_t code = 0;
    for (qsizetype i = 0; i < 4; ++i) {
        const uint32_t c = i < text.size() ? text.at(i).unicode() : uint32_t(' ');
        if (!isPrintable(c)) return std::nullopt;
        code = (code << 8) | c;
    }
    return code;
}

// A four-character code: an integer, or its letters (as scripts pass it).
std::optional<qint64> codeValue(const QVariant& value) {
    if (value.typeId() == QMetaType::QString) {
        if (const auto code = codeOfLetters(value.toString())) return qint64(*code);
        return std::nullopt;
    }
    return integerValue(value);
}

class CreatorFormatter final : public TWFormatter {
public:
    QString stringForObjectValue(const QVariant& value) const override {
        const auto code = codeValue(value);
        return code ? lettersOfCode(*code) : QString();
    }

    // Text is taken as typed, spaces included: " ab" and "ab" are different creators.
    bool getObjectValue(QVariant* value, const QString& text, QString* error) const override {
        const auto code = codeOfLetters(text);
        if (!code)
            return fail(error, QStringLiteral("'%1' is not a creator code: it takes one to four printable "
                                              "characters")
                                   .arg(text));
        if (value) *value = qint64(*code);
        return true;
    }
};

class FileSizeFormatter final : public TWFormatter {
public:
    // Decimal units, as file managers show sizes.
    QString stringForObjectValue(const QVariant& value) const override {
        const auto bytes = integerValue(value);
        if (!bytes || *bytes < 0) return {};
        if (*bytes < 1000)
            return *bytes == 1 ? QStringLiteral("1 byte") : QStringLiteral("%1 bytes").arg(*bytes);
        static const char* const units[] = {"KB", "MB", "GB", "TB", "PB", "EB"};
        double v = double(*bytes) / 1000.0;
        size_t unit = 0;
        while (std::round(v * 10.0) >= 10000.0 && unit + 1 < std::size(units))
            v /= 1000.0, ++unit;
        return fixed(v, 1) + QLatin1Char(' ') + QLatin1String(units[unit]);
    }
};

class FormatFormatter final : public TWFormatter {
public:
    QString stringForObjectValue(const QVariant& value) const override {
        const auto code = codeValue(value);
        if (!code || *code <= 0 || *code > qint64(UINT32_MAX)) return {};
        if (QString name = LXFormat::name(uint32_t(*code)); name != QLatin1String("Unknown")) return name;
        return lettersOfCode(*code).trimmed();
    }
};

// The sample size in bits. An entry's whole information (a map with "range" and "float") tells float
// from integer; a bare number does so only for 64 bits, which no integer format here stores.
class BitRangeFormatter final : public TWFormatter {
public:
    QString stringForObjectValue(const QVariant& value) const override {
        std::optional<qint64> bits;
        std::optional<bool> isFloat;
        if (value.typeId() == QMetaType::QVariantMap) {
            const QVariantMap info = value.toMap();
            bits = integerValue(info.value(QStringLiteral("range")));
            if (info.value(QStringLiteral("float")).typeId() == QMetaType::Bool)
                isFloat = info.value(QStringLiteral("float")).toBool();
        } else {
            bits = integerValue(value);
        }
        if (!bits || *bits <= 0 || *bits > 64) return {};
        const bool floating = isFloat.value_or(*bits == 64);
        return QStringLiteral("%1-bit%2").arg(*bits).arg(floating ? QStringLiteral(" float") : QString());
    }
};

class SampleRateFormatter final : public TWFormatter {
public:
    QString stringForObjectValue(const QVariant& value) const override {
        const auto rate = realValue(value);
        if (!rate || *rate <= 0.0 || *rate >= 1.0e9) return {};
        if (*rate < 1000.0) return trimmed(*rate) + QStringLiteral(" Hz");
        return trimmed(*rate / 1000.0) + QStringLiteral(" kHz");
    }

    // "44.1 kHz", "44100 Hz", "44100", "44.1" (a bare number below 1000 is in kHz).
    bool getObjectValue(QVariant* value, const QString& text, QString* error) const override {
        const QString kHz = stripUnit(text, {QStringLiteral("kHz"), QStringLiteral("k")});
        const QString hz = stripUnit(text, {QStringLiteral("Hz")});
        std::optional<double> rate;
        if (kHz != text.trimmed()) {
            if (const auto v = parseReal(kHz)) rate = *v * 1000.0;
        } else if (hz != text.trimmed()) {
            rate = parseReal(hz);
        } else if (const auto v = parseReal(text)) {
            rate = *v < 1000.0 ? *v * 1000.0 : *v;
        }
        if (!rate || *rate < 1.0 || *rate >= 1.0e9)
            return fail(error, QStringLiteral("'%1' is not a sample rate such as 44.1 kHz").arg(text));
        if (value) *value = qint64(std::llround(*rate));
        return true;
    }

private:
    // Up to three decimals, without trailing zeros: 44.1, 48, 11.025.
    static QString trimmed(double v) {
        QString text = QString::number(v, 'f', 3);
        while (text.endsWith(QLatin1Char('0')))
            text.chop(1);
        if (text.endsWith(QLatin1Char('.'))) text.chop(1);
        return text;
    }
};

class ChannelsFormatter final : public TWFormatter {
public:
    QString stringForObjectValue(const QVariant& value) const override {
        const auto channels = integerValue(value);
        if (!channels || *channels <= 0) return {};
        if (*channels == 1) return QStringLiteral("Mono");
        if (*channels == 2) return QStringLiteral("Stereo");
        return QStringLiteral("%1 channels").arg(*channels);
    }
};

// A count of sample frames or samples, grouped by thousands.
class CountFormatter final : public TWFormatter {
public:
    explicit CountFormatter(bool parses) : m_parses(parses) {}

    QString stringForObjectValue(const QVariant& value) const override {
        const auto count = integerValue(value);
        return count && *count >= 0 ? groupDigits(*count) : QString();
    }

    bool getObjectValue(QVariant* value, const QString& text, QString* error) const override {
        if (!m_parses) return TWFormatter::getObjectValue(value, text, error);
        static const QRegularExpression grouped(QStringLiteral("^\\d{1,3}([, \\x{a0}\\x{202f}]?\\d{3})*$"));
        const QString t = text.trimmed();
        if (!grouped.match(t).hasMatch())
            return fail(error, QStringLiteral("'%1' is not a whole number of samples").arg(text));
        QString digits = t;
        digits.remove(QRegularExpression(QStringLiteral("[^0-9]")));
        const auto count = parseInteger(digits);
        if (!count) return fail(error, QStringLiteral("'%1' is too large a number of samples").arg(text));
        if (value) *value = *count;
        return true;
    }

private:
    bool m_parses;
};

// A linear amplitude (1.0 full scale) in decibels.
class DecibelFormatter final : public TWFormatter {
public:
    QString stringForObjectValue(const QVariant& value) const override {
        const auto amplitude = realValue(value);
        if (!amplitude) return {};
        if (*amplitude == 0.0) return QStringLiteral("-inf dB");
        return fixed(20.0 * std::log10(std::abs(*amplitude)), 2) + QStringLiteral(" dB");
    }

    bool getObjectValue(QVariant* value, const QString& text, QString* error) const override {
        const QString number = stripUnit(text, {QStringLiteral("dBFS"), QStringLiteral("dB")});
        if (number == QLatin1String("-inf") || number == QStringLiteral("-\u221e")) {
            if (value) *value = 0.0;
            return true;
        }
        const auto db = parseReal(number);
        if (!db || *db > 600.0) return fail(error, QStringLiteral("'%1' is not a level in dB").arg(text));
        if (value) *value = std::pow(10.0, *db / 20.0);
        return true;
    }
};

// Loudness in LUFS, or a loudness range in LU, to a tenth (as loudness meters show it); silence is -inf.
class LoudnessFormatter final : public TWFormatter {
public:
    explicit LoudnessFormatter(QString unit) : m_unit(std::move(unit)) {}
    QString stringForObjectValue(const QVariant& value) const override {
        if (value.typeId() == QMetaType::Double && value.toDouble() == -HUGE_VAL)
            return QStringLiteral("-inf ") + m_unit;
        const auto loudness = realValue(value);
        return loudness ? fixed(*loudness, 1) + QLatin1Char(' ') + m_unit : QString();
    }

private:
    QString m_unit;
};

// The DC offset, as a fraction of full scale, shown in percent.
class DifferenceFormatter final : public TWFormatter {
public:
    QString stringForObjectValue(const QVariant& value) const override {
        const auto difference = realValue(value);
        return difference ? fixed(*difference * 100.0, 3) + QStringLiteral(" %") : QString();
    }
};

// Raw bytes as hex in groups of four, the first 32 bytes only: enough to recognise a block.
class DataFormatter final : public TWFormatter {
public:
    QString stringForObjectValue(const QVariant& value) const override {
        if (value.typeId() != QMetaType::QByteArray) return {};
        constexpr qsizetype kShown = 32;
        const QByteArray data = value.toByteArray();
        QString text = QStringLiteral("<");
        for (qsizetype i = 0; i < std::min(data.size(), kShown); i += 4) {
            if (i > 0) text.append(QLatin1Char(' '));
            text.append(QString::fromLatin1(data.mid(i, 4).toHex()));
        }
        if (data.size() <= kShown) return text + QLatin1Char('>');
        return text + QStringLiteral(" ...> (%1 bytes)").arg(groupDigits(data.size()));
    }
};

// Dates in local time, written the same in every locale so that lists sort and compare as text.
class DateFormatter final : public TWFormatter {
public:
    QString stringForObjectValue(const QVariant& value) const override {
        if (value.typeId() == QMetaType::QDateTime) {
            const QDateTime date = value.toDateTime();
            return date.isValid() ? date.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"))
                                  : QString();
        }
        if (value.typeId() == QMetaType::QDate) {
            const QDate date = value.toDate();
            return date.isValid() ? date.toString(QStringLiteral("yyyy-MM-dd")) : QString();
        }
        return {};
    }

    bool getObjectValue(QVariant* value, const QString& text, QString* error) const override {
        const QString t = text.trimmed();
        QDateTime date = QDateTime::fromString(t, QStringLiteral("yyyy-MM-dd HH:mm:ss"));
        if (!date.isValid()) date = QDateTime::fromString(t, Qt::ISODate);
        if (!date.isValid()) {
            const QDate day = QDate::fromString(t, QStringLiteral("yyyy-MM-dd"));
            if (day.isValid()) date = day.startOfDay();
        }
        if (!date.isValid())
            return fail(error, QStringLiteral("'%1' is not a date such as 2024-05-01 13:45:07").arg(text));
        if (value) *value = date;
        return true;
    }
};

} // namespace

namespace TWFormatting {
std::unique_ptr<TWFormatter> makeCreatorFormatter() {
    return std::make_unique<CreatorFormatter>();
}
std::unique_ptr<TWFormatter> makeFileSizeFormatter() {
    return std::make_unique<FileSizeFormatter>();
}
std::unique_ptr<TWFormatter> makeFormatFormatter() {
    return std::make_unique<FormatFormatter>();
}
std::unique_ptr<TWFormatter> makeBitRangeFormatter() {
    return std::make_unique<BitRangeFormatter>();
}
std::unique_ptr<TWFormatter> makeSampleRateFormatter() {
    return std::make_unique<SampleRateFormatter>();
}
std::unique_ptr<TWFormatter> makeChannelsFormatter() {
    return std::make_unique<ChannelsFormatter>();
}
std::unique_ptr<TWFormatter> makeSamplesFormatter() {
    return std::make_unique<CountFormatter>(true);
}
std::unique_ptr<TWFormatter> makeDecibelFormatter() {
    return std::make_unique<DecibelFormatter>();
}
std::unique_ptr<TWFormatter> makeLoudnessFormatter() {
    return std::make_unique<LoudnessFormatter>(QStringLiteral("LUFS"));
}
std::unique_ptr<TWFormatter> makeLoudnessRangeFormatter() {
    return std::make_unique<LoudnessFormatter>(QStringLiteral("LU"));
}
std::unique_ptr<TWFormatter> makeDifferenceFormatter() {
    return std::make_unique<DifferenceFormatter>();
}
std::unique_ptr<TWFormatter> makeClippedFormatter() {
    return std::make_unique<CountFormatter>(false);
}
std::unique_ptr<TWFormatter> makeDataFormatter() {
    return std::make_unique<DataFormatter>();
}
std::unique_ptr<TWFormatter> makeDateFormatter() {
    return std::make_unique<DateFormatter>();
}
} // namespace TWFormatting
