// Formatters of the musical and sampler properties of a file: notes, tuning, tempo, meter, key.

#include "model/TWFormattersPrivate.h"

#include <QRegularExpression>

#include <cmath>

using namespace TWFormatting;

namespace {

const char* const kPitchNames[] = {"C", "C#", "D", "D#", "E", "F", "F#", "G", "G#", "A", "A#", "B"};

// Middle C (note 60) is C3, as in Mac audio software, so note 0 is C-2 and note 127 is G8.
constexpr int kOctaveOfNoteZero = -2;

// "C", "f#", "Db", "DB", "B\u266d": the pitch class with its accidental applied, -1 to 12 (Cb, B#).
std::optional<int> pitchOfName(const QString& letter, const QString& accidental) {
    static const QString letters = QStringLiteral("C D EF G A B");
    const qsizetype index = letters.indexOf(letter.toUpper());
    if (letter.size() != 1 || index < 0) return std::nullopt;
    int pitch = int(index);
    if (accidental == QLatin1String("#") || accidental == QStringLiteral("\u266f"))
        ++pitch;
    else if (accidental.compare(QLatin1String("b"), Qt::CaseInsensitive) == 0 ||
             accidental == QStringLiteral("\u266d"))
        --pitch;
    else if (!accidental.isEmpty())
        return std::nullopt;
    return pitch;
}

QString signedNumber(qint64 value) {
    return value > 0 ? QStringLiteral("+%1").arg(value) : QString::number(value);
}

// A whole number when the value is one, otherwise the number itself: tags keep integers integers.
QVariant wholeOrReal(double v) {
    if (v == std::floor(v) && std::abs(v) < 9.0e15) return qint64(v);
    return v;
}

class MidiNoteFormatter final : public TWFormatter {
public:
    QString stringForObjectValue(const QVariant& value) const override {
        const auto note = integerValue(value);
        if (!note || *note < 0 || *note > 127) return {};
        return QLatin1String(kPitchNames[*note % 12]) + QString::number(*note / 12 + kOctaveOfNoteZero);
    }

    // "C3", "F#4", "db2", "Bb-1", or the note number itself.
    bool getObjectValue(QVariant* value, const QString& text, QString* error) const override {
        static const QRegularExpression name(
            QStringLiteral("^\\s*([A-Ga-g])\\s*(#|[bB]|\\x{266f}|\\x{266d})?\\s*(-?\\d{1,3})\\s*$"));
        std::optional<qint64> note;
        if (const QRegularExpressionMatch m = name.match(text); m.hasMatch()) {
            const auto pitch = pitchOfName(m.captured(1), m.captured(2));
            if (pitch) note = (m.captured(3).toLongLong() - kOctaveOfNoteZero) * 12 + *pitch;
        } else if (const auto number = parseInteger(text)) {
            note = *number;
        }
        if (!note) return fail(error, QStringLiteral("'%1' is not a note such as C3 or F#4").arg(text));
        if (*note < 0 || *note > 127)
            return fail(error, QStringLiteral("'%1' lies outside the MIDI notes C-2 to G8").arg(text));
        if (value) *value = *note;
        return true;
    }
};

// A pitch class, 0 = C to 11 = B.
class KeyFormatter final : public TWFormatter {
public:
    QString stringForObjectValue(const QVariant& value) const override {
        std::optional<qint64> key;
        if (value.typeId() == QMetaType::QString)
            key = parse(value.toString());
        else
            key = integerValue(value);
        if (!key || *key < 0 || *key > 11) return {};
        return QLatin1String(kPitchNames[*key]);
    }

    bool getObjectValue(QVariant* value, const QString& text, QString* error) const override {
        const auto key = parse(text);
        if (!key) return fail(error, QStringLiteral("'%1' is not a key such as C, F# or Bb").arg(text));
        if (value) *value = *key;
        return true;
    }

private:
    static std::optional<qint64> parse(const QString& text) {
        static const QRegularExpression name(
            QStringLiteral("^\\s*([A-Ga-g])\\s*(#|[bB]|\\x{266f}|\\x{266d})?\\s*$"));
        if (const QRegularExpressionMatch m = name.match(text); m.hasMatch()) {
            if (const auto pitch = pitchOfName(m.captured(1), m.captured(2))) return (*pitch + 12) % 12;
            return std::nullopt;
        }
        const auto number = parseInteger(text);
        if (!number || *number < 0 || *number > 11) return std::nullopt;
        return number;
    }
};

// Whole decibels, as sampler chunks store them; the range is what every format we write can hold.
class GainFormatter final : public TWFormatter {
public:
    QString stringForObjectValue(const QVariant& value) const override {
        const auto gain = realValue(value);
        if (!gain) return {};
        if (*gain == std::floor(*gain) && std::abs(*gain) < 1.0e15)
            return signedNumber(qint64(*gain)) + QStringLiteral(" dB");
        return (*gain > 0 ? QStringLiteral("+") : QString()) + fixed(*gain, 1) + QStringLiteral(" dB");
    }

    bool getObjectValue(QVariant* value, const QString& text, QString* error) const override {
        const auto gain = parseReal(stripUnit(text, {QStringLiteral("dB")}));
        if (!gain) return fail(error, QStringLiteral("'%1' is not a gain in dB").arg(text));
        if (*gain < -64.0 || *gain > 64.0)
            return fail(error, QStringLiteral("'%1' lies outside the gains -64 dB to +64 dB").arg(text));
        if (value) *value = wholeOrReal(*gain);
        return true;
    }
};

// Fine tuning of the base note in cents; beyond half a semitone a file names the next note instead.
class DetuneFormatter final : public TWFormatter {
public:
    QString stringForObjectValue(const QVariant& value) const override {
        const auto cents = integerValue(value);
        return cents ? signedNumber(*cents) + QStringLiteral(" ct") : QString();
    }

    bool getObjectValue(QVariant* value, const QString& text, QString* error) const override {
        const QString number = stripUnit(text, {QStringLiteral("cents"), QStringLiteral("cent"),
                                                QStringLiteral("ct"), QStringLiteral("c")});
        const auto cents = parseInteger(number);
        if (!cents) return fail(error, QStringLiteral("'%1' is not a detune in whole cents").arg(text));
        if (*cents < -50 || *cents > 50)
            return fail(error, QStringLiteral("'%1' lies outside the detunes -50 to +50 cents").arg(text));
        if (value) *value = *cents;
        return true;
    }
};

class TempoFormatter final : public TWFormatter {
public:
    QString stringForObjectValue(const QVariant& value) const override {
        const auto tempo = realValue(value);
        if (!tempo || *tempo <= 0.0) return {};
        return fixed(*tempo, 2) + QStringLiteral(" BPM");
    }

    bool getObjectValue(QVariant* value, const QString& text, QString* error) const override {
        const auto tempo = parseReal(stripUnit(text, {QStringLiteral("BPM")}));
        if (!tempo) return fail(error, QStringLiteral("'%1' is not a tempo such as 120 BPM").arg(text));
        if (*tempo <= 0.0 || *tempo > 1000.0)
            return fail(error,
                        QStringLiteral("'%1' lies outside the tempos above 0 up to 1000 BPM").arg(text));
        if (value) *value = *tempo;
        return true;
    }
};

// Stored as text, "7/8".
class TimeSignatureFormatter final : public TWFormatter {
public:
    QString stringForObjectValue(const QVariant& value) const override {
        if (value.typeId() != QMetaType::QString) return {};
        const auto meter = parse(value.toString());
        return meter ? *meter : QString();
    }

    bool getObjectValue(QVariant* value, const QString& text, QString* error) const override {
        const auto meter = parse(text);
        if (!meter)
            return fail(error, QStringLiteral("'%1' is not a time signature such as 4/4 or 7/8").arg(text));
        if (value) *value = *meter;
        return true;
    }

private:
    // Both parts fit the 16-bit fields a file keeps them in; beyond 255 is no meter anyone plays.
    static std::optional<QString> parse(const QString& text) {
        static const QRegularExpression meter(QStringLiteral("^\\s*(\\d{1,3})\\s*/\\s*(\\d{1,3})\\s*$"));
        const QRegularExpressionMatch m = meter.match(text);
        if (!m.hasMatch()) return std::nullopt;
        const int beats = m.captured(1).toInt();
        const int unit = m.captured(2).toInt();
        if (beats < 1 || beats > 255 || unit < 1 || unit > 255) return std::nullopt;
        return QStringLiteral("%1/%2").arg(beats).arg(unit);
    }
};

// The scale types loop libraries tag files with.
class ScaleFormatter final : public TWFormatter {
public:
    QString stringForObjectValue(const QVariant& value) const override {
        const auto scale =
            value.typeId() == QMetaType::QString ? parse(value.toString()) : integerValue(value);
        if (!scale || *scale < 1 || *scale > qint64(std::size(kNames))) return {};
        return QLatin1String(kNames[*scale - 1]);
    }

    bool getObjectValue(QVariant* value, const QString& text, QString* error) const override {
        const auto scale = parse(text);
        if (!scale)
            return fail(error,
                        QStringLiteral("'%1' is not a scale: Minor, Major, Neither or Both").arg(text));
        if (value) *value = *scale;
        return true;
    }

private:
    static constexpr const char* kNames[] = {"Minor", "Major", "Neither", "Both"};

    static std::optional<qint64> parse(const QString& text) {
        const QString t = text.trimmed();
        for (size_t i = 0; i < std::size(kNames); ++i)
            if (t.compare(QLatin1String(kNames[i]), Qt::CaseInsensitive) == 0) return qint64(i + 1);
        const auto number = parseInteger(t);
        if (number && *number >= 1 && *number <= qint64(std::size(kNames))) return number;
        return std::nullopt;
    }
};

// A length in beats, read as bars of four beats: 9 is "2 bars 1 beat".
class BarsBeatsFormatter final : public TWFormatter {
public:
    QString stringForObjectValue(const QVariant& value) const override {
        const auto beats = value.typeId() == QMetaType::QString ? parse(value.toString()) : realValue(value);
        if (!beats || *beats < 0.0 || *beats > 1.0e12) return {};
        const qint64 bars = qint64(std::floor(*beats / kBeatsPerBar));
        const double rest = *beats - double(bars) * kBeatsPerBar;
        QStringList parts;
        if (bars > 0) parts << QStringLiteral("%1 bar%2").arg(bars).arg(bars == 1 ? "" : "s");
        if (rest > 0.0 || bars == 0) {
            QString number = QString::number(rest, 'f', 2);
            while (number.contains(QLatin1Char('.')) &&
                   (number.endsWith(QLatin1Char('0')) || number.endsWith(QLatin1Char('.'))))
                number.chop(1);
            parts << QStringLiteral("%1 beat%2").arg(number, number == QLatin1String("1") ? "" : "s");
        }
        return parts.join(QLatin1Char(' '));
    }

    // "2 bars 1 beat", "2 bars", "6 beats", "2:1" (bars:beats), or a plain number of beats.
    bool getObjectValue(QVariant* value, const QString& text, QString* error) const override {
        const auto beats = parse(text);
        if (!beats)
            return fail(error, QStringLiteral("'%1' is not a length such as 2 bars 1 beat").arg(text));
        if (value) *value = wholeOrReal(*beats);
        return true;
    }

private:
    static constexpr double kBeatsPerBar = 4.0;

    static std::optional<double> parse(const QString& text) {
        static const QRegularExpression words(
            QStringLiteral("^\\s*(?:(\\d{1,9})\\s*bars?)?\\s*(?:(\\d{1,9}(?:\\.\\d+)?)\\s*beats?)?\\s*$"),
            QRegularExpression::CaseInsensitiveOption);
        static const QRegularExpression colon(
            QStringLiteral("^\\s*(\\d{1,9})\\s*[:|]\\s*(\\d{1,9}(?:\\.\\d+)?)\\s*$"));
        if (const auto m = colon.match(text); m.hasMatch()) {
            const double rest = m.captured(2).toDouble();
            if (rest >= kBeatsPerBar) return std::nullopt;
            return m.captured(1).toDouble() * kBeatsPerBar + rest;
        }
        if (const auto m = words.match(text); m.hasMatch() && (m.hasCaptured(1) || m.hasCaptured(2)))
            return m.captured(1).toDouble() * kBeatsPerBar + m.captured(2).toDouble();
        const auto plain = parseReal(text);
        if (!plain || *plain < 0.0) return std::nullopt;
        return plain;
    }
};

// 0 loop, 1 one-shot.
class PlaybackTypeFormatter final : public TWFormatter {
public:
    QString stringForObjectValue(const QVariant& value) const override {
        const auto type = integerValue(value);
        if (!type || (*type != 0 && *type != 1)) return {};
        return *type == 0 ? QStringLiteral("Loop") : QStringLiteral("One Shot");
    }

    bool getObjectValue(QVariant* value, const QString& text, QString* error) const override {
        QString t = text.trimmed().toLower();
        t.remove(QLatin1Char(' ')).remove(QLatin1Char('-'));
        qint64 type = -1;
        if (t == QLatin1String("loop") || t == QLatin1String("0"))
            type = 0;
        else if (t == QLatin1String("oneshot") || t == QLatin1String("1"))
            type = 1;
        else
            return fail(error, QStringLiteral("'%1' is not a playback type: Loop or One Shot").arg(text));
        if (value) *value = type;
        return true;
    }
};

} // namespace

namespace TWFormatting {
std::unique_ptr<TWFormatter> makeMidiNoteFormatter() {
    return std::make_unique<MidiNoteFormatter>();
}
std::unique_ptr<TWFormatter> makeGainFormatter() {
    return std::make_unique<GainFormatter>();
}
std::unique_ptr<TWFormatter> makeDetuneFormatter() {
    return std::make_unique<DetuneFormatter>();
}
std::unique_ptr<TWFormatter> makeTempoFormatter() {
    return std::make_unique<TempoFormatter>();
}
std::unique_ptr<TWFormatter> makeTimeSignatureFormatter() {
    return std::make_unique<TimeSignatureFormatter>();
}
std::unique_ptr<TWFormatter> makeKeyFormatter() {
    return std::make_unique<KeyFormatter>();
}
std::unique_ptr<TWFormatter> makeScaleFormatter() {
    return std::make_unique<ScaleFormatter>();
}
std::unique_ptr<TWFormatter> makeBarsBeatsFormatter() {
    return std::make_unique<BarsBeatsFormatter>();
}
std::unique_ptr<TWFormatter> makePlaybackTypeFormatter() {
    return std::make_unique<PlaybackTypeFormatter>();
}
} // namespace TWFormatting
