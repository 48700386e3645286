#pragma once

#include "lx/LXResult.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <cstdint>
#include <optional>

// What kind of property-list value an instruction key holds.
enum class TWValueType { Number, Integer, Boolean, FourCharCode, String, Path, List, Dictionary };

// A value a key may take, with the words that name it (a pop-up's item, a radio button), and the
// four-character code a script may pass for it instead ('SECS' for the seconds of a unit key), if any.
struct TWChoice {
    QVariant value;
    QString title;
    uint32_t code = 0;
};

// The values a number key accepts, inclusive.
struct TWValueRange {
    double minimum = 0;
    double maximum = 0;
    bool contains(double value) const { return value >= minimum && value <= maximum; }
};

// Everything about a key besides its name, type and default; all optional.
struct TWKeyDetails {
    std::optional<TWValueRange> range; // accepted values of a number; none: any finite number
    QString unit;                      // "dB", "ms", shown after the value
    QList<TWChoice> choices;           // the only values allowed, when not empty

    static TWKeyDetails inUnit(QString unit) { return {std::nullopt, std::move(unit), {}}; }
    static TWKeyDetails between(double minimum, double maximum, QString unit = {}) {
        return {TWValueRange{minimum, maximum}, std::move(unit), {}};
    }
    static TWKeyDetails oneOf(QList<TWChoice> choices) { return {std::nullopt, {}, std::move(choices)}; }
};

// One instruction key of an action, declared once: its name as workflows and scripts spell it, its type,
// the value a new action starts with, what it accepts, its unit and one line of help. The command line
// types and documents its options from it, panels take their ranges and units from it, and hooks read
// their values through it (TWKey), default applied and type converted.
struct TWInstructionKey {
    QString name;
    TWValueType type = TWValueType::Number;
    QVariant defaultValue; // invalid when there is none: the user must give the value
    QString help;
    TWKeyDetails details;

    // The key's value in the instructions, converted to the key's type; the default when it is absent or
    // cannot be read as that type. A script's "yes" reads as true, "MARK" as its four-character code.
    QVariant value(const QVariantMap& instructions) const;
    // "-6" -> -6.0, "yes"/"no" -> bool, "MARK" or "'MARK'" or 1296126539 -> a four-character code,
    // "a,b,c" -> a list of strings, "~/x" -> an absolute path. Text that does not fit, or a number outside
    // the key's range or choices, is an error naming the key.
    LXResult<QVariant> valueFromText(const QString& text) const;
    // Converts a property-list value to the key's type; nothing when it cannot.
    std::optional<QVariant> converted(const QVariant& value) const;
    // "0 dB", "0 to 1", "yes": for help texts.
    QString describe(const QVariant& value) const;
    static QString typeName(TWValueType type); // "number", "boolean", ...
    static QString describeCode(uint32_t code); // "'MARK'"
};

// A four-character code ('NONE', 'MARK'), as an instruction holds it: an integer.
using TWFourCharCode = uint32_t;

// A key whose value a hook reads as T: `const double level = kLevel(instructions);`.
template <typename T> struct TWKey : TWInstructionKey {
    TWKey(QString keyName, T initial, QString keyHelp, TWKeyDetails keyDetails = {})
        : TWInstructionKey{std::move(keyName), typeOf(), toVariant(initial), std::move(keyHelp),
                           std::move(keyDetails)} {}
    // A key with no default: the user must give it.
    TWKey(QString keyName, std::nullopt_t, QString keyHelp, TWKeyDetails keyDetails = {})
        : TWInstructionKey{std::move(keyName), typeOf(), QVariant(), std::move(keyHelp),
                           std::move(keyDetails)} {}

    T operator()(const QVariantMap& instructions) const { return fromVariant(value(instructions)); }

private:
    static constexpr TWValueType typeOf() {
        if constexpr (std::is_same_v<T, double> || std::is_same_v<T, float>)
            return TWValueType::Number;
        else if constexpr (std::is_same_v<T, bool>)
            return TWValueType::Boolean;
        else if constexpr (std::is_same_v<T, TWFourCharCode>)
            return TWValueType::FourCharCode;
        else if constexpr (std::is_integral_v<T>)
            return TWValueType::Integer;
        else if constexpr (std::is_same_v<T, QString>)
            return TWValueType::String;
        else if constexpr (std::is_same_v<T, QStringList>)
            return TWValueType::List;
        else
            return TWValueType::Dictionary;
    }
    // As a property list holds it: integers as 64-bit, lists as lists of values.
    static QVariant toVariant(const T& value) {
        if constexpr (std::is_integral_v<T> && !std::is_same_v<T, bool>)
            return QVariant(qint64(value));
        else if constexpr (std::is_same_v<T, QStringList>)
            return QVariantList(value.cbegin(), value.cend());
        else
            return QVariant::fromValue(value);
    }
    static T fromVariant(const QVariant& value) {
        if constexpr (std::is_same_v<T, double>)
            return value.toDouble();
        else if constexpr (std::is_same_v<T, float>)
            return value.toFloat();
        else if constexpr (std::is_same_v<T, bool>)
            return value.toBool();
        else if constexpr (std::is_integral_v<T>)
            return T(value.toLongLong());
        else if constexpr (std::is_same_v<T, QStringList>)
            return value.toStringList();
        else
            return value.value<T>();
    }
};

// A key whose value is a path: typed text, with "~" expanded and "." and ".." resolved.
struct TWPathKey : TWKey<QString> {
    TWPathKey(QString keyName, QString keyHelp)
        : TWKey<QString>(std::move(keyName), std::nullopt, std::move(keyHelp)) {
        type = TWValueType::Path;
    }
};
