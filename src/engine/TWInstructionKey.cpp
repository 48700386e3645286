#include "engine/TWInstructionKey.h"

#include "lx/LXFile.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

namespace {

LXError badValue(const TWInstructionKey& key, const QString& text, const QString& why = {}) {
    QString message = QStringLiteral("'%1' is not a valid %2 for --%3")
                          .arg(text, TWInstructionKey::typeName(key.type), key.name);
    if (!why.isEmpty()) message += QStringLiteral(": ") + why;
    return LXError(LXErrInvalidParameter, message);
}

std::optional<qint64> fourCharCode(const QString& text) {
    QString code = text;
    if (code.size() == 6 && code.startsWith(u'\'') && code.endsWith(u'\'')) code = code.mid(1, 4);
    const QByteArray bytes = code.toLatin1();
    if (code.size() != 4 || bytes.size() != 4 || QString::fromLatin1(bytes) != code) return std::nullopt;
    qint64 value = 0;
    for (char byte : bytes)
        value = (value << 8) | uint8_t(byte);
    return value;
}

std::optional<bool> booleanWord(const QString& text) {
    const QString word = text.toLower();
    if (word == u"yes" || word == u"true" || word == u"1" || word == u"on") return true;
    if (word == u"no" || word == u"false" || word == u"0" || word == u"off") return false;
    return std::nullopt;
}

// The choice whose four-character code the value is, as text ("SECS", "'SECS'") or as its number.
std::optional<QVariant> choiceForCode(const TWInstructionKey& key, const QVariant& value) {
    bool ok = false;
    const std::optional<qint64> code = value.typeId() == QMetaType::QString
                                           ? fourCharCode(value.toString())
                                           : std::optional<qint64>(value.toLongLong(&ok));
    if (!code || *code == 0) return std::nullopt;
    for (const TWChoice& choice : key.details.choices)
        if (choice.code != 0 && choice.code == *code) return choice.value;
    return std::nullopt;
}

QString number(double value) {
    return QString::number(value, 'g', 10);
}

} // namespace

QString TWInstructionKey::typeName(TWValueType type) {
    switch (type) {
    case TWValueType::Number:
        return QStringLiteral("number");
    case TWValueType::Integer:
        return QStringLiteral("integer");
    case TWValueType::Boolean:
        return QStringLiteral("boolean");
    case TWValueType::FourCharCode:
        return QStringLiteral("four-character code");
    case TWValueType::String:
        return QStringLiteral("text");
    case TWValueType::Path:
        return QStringLiteral("path");
    case TWValueType::List:
        return QStringLiteral("list");
    case TWValueType::Dictionary:
        return QStringLiteral("dictionary");
    }
    return {};
}

std::optional<QVariant> TWInstructionKey::converted(const QVariant& value) const {
    if (!value.isValid()) return std::nullopt;
    const bool isText = value.typeId() == QMetaType::QString;
    bool ok = false;
    switch (type) {
    case TWValueType::Number: {
        const double number = value.toDouble(&ok);
        if (ok && std::isfinite(number)) return QVariant(number);
        break;
    }
    case TWValueType::Integer: {
        if (const std::optional<QVariant> chosen = choiceForCode(*this, value)) return chosen;
        if (isText) {
            const qint64 integer = value.toString().toLongLong(&ok);
            if (ok) return QVariant(integer);
            break;
        }
        const double number = value.toDouble(&ok);
        if (ok && std::isfinite(number)) return QVariant(qint64(number));
        break;
    }
    case TWValueType::Boolean:
        if (isText) {
            if (const std::optional<bool> word = booleanWord(value.toString())) return QVariant(*word);
            break;
        }
        if (value.canConvert<bool>()) return QVariant(value.toBool());
        break;
    case TWValueType::FourCharCode:
        if (isText) {
            if (const std::optional<qint64> code = fourCharCode(value.toString())) return QVariant(*code);
        }
        if (const qint64 code = value.toLongLong(&ok); ok && code >= 0 && code <= 0xFFFFFFFFLL)
            return QVariant(code);
        break;
    case TWValueType::String:
        if (value.canConvert<QString>()) return QVariant(value.toString());
        break;
    case TWValueType::Path:
        if (value.canConvert<QString>() && !value.toString().isEmpty())
            return QVariant(LXFile::conformPath(value.toString()));
        break;
    case TWValueType::List:
        if (value.typeId() == QMetaType::QVariantList || value.typeId() == QMetaType::QStringList)
            return QVariant(value.toStringList());
        break;
    case TWValueType::Dictionary:
        if (value.typeId() == QMetaType::QVariantMap) return value;
        break;
    }
    return std::nullopt;
}

QVariant TWInstructionKey::value(const QVariantMap& instructions) const {
    return converted(instructions.value(name)).value_or(defaultValue);
}

LXResult<QVariant> TWInstructionKey::valueFromText(const QString& text) const {
    std::optional<QVariant> value;
    switch (type) {
    case TWValueType::Boolean:
        if (const std::optional<bool> word = booleanWord(text)) value = *word;
        break;
    case TWValueType::List: {
        QStringList list;
        for (const QString& item : text.split(u',', Qt::SkipEmptyParts))
            list.append(item.trimmed());
        value = list;
        break;
    }
    case TWValueType::Dictionary: { // a JSON object
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8(), &error);
        if (document.isObject()) value = document.object().toVariantMap();
        if (!value)
            return badValue(*this, text,
                            error.error != QJsonParseError::NoError
                                ? QStringLiteral("JSON %1 at character %2").arg(error.errorString()).arg(error.offset)
                                : QStringLiteral("it must be a JSON object, {...}"));
        break;
    }
    default:
        value = converted(text);
        break;
    }
    if (!value) return badValue(*this, text);
    if (details.range && !details.range->contains(value->toDouble()))
        return badValue(*this, text,
                        QStringLiteral("it must lie between %1 and %2")
                            .arg(describe(details.range->minimum), describe(details.range->maximum)));
    if (!details.choices.isEmpty() &&
        std::none_of(details.choices.cbegin(), details.choices.cend(),
                     [&](const TWChoice& choice) { return choice.value == *value; })) {
        QStringList allowed;
        for (const TWChoice& choice : details.choices)
            allowed.append(describe(choice.value));
        return badValue(*this, text,
                        QStringLiteral("it must be one of ") + allowed.join(QStringLiteral(", ")));
    }
    return *value;
}

QString TWInstructionKey::describeCode(uint32_t code) {
    QByteArray bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes.append(char((code >> shift) & 0xFF));
    return QStringLiteral("'%1'").arg(QString::fromLatin1(bytes));
}

QString TWInstructionKey::describe(const QVariant& value) const {
    QString text;
    switch (type) {
    case TWValueType::Boolean:
        return value.toBool() ? QStringLiteral("yes") : QStringLiteral("no");
    case TWValueType::FourCharCode:
        return describeCode(uint32_t(value.toLongLong()));
    case TWValueType::Number:
    case TWValueType::Integer:
        text = number(value.toDouble());
        break;
    case TWValueType::List:
        return value.toStringList().join(u',');
    default:
        text = value.toString();
        break;
    }
    return details.unit.isEmpty() ? text : text + u' ' + details.unit;
}
