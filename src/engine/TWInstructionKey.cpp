#include "engine/TWInstructionKey.h"

#include "lx/LXFile.h"

#include <cmath>

namespace {

LXError badValue(const TWInstructionKey& key, const QString& text) {
    return LXError(LXErrInvalidParameter, QStringLiteral("'%1' is not a valid %2 for --%3")
                                              .arg(text, TWInstructionKey::typeName(key.type), key.name));
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

LXResult<QVariant> TWInstructionKey::valueFromText(const QString& text) const {
    bool ok = false;
    switch (type) {
    case TWValueType::Number: {
        const double value = text.toDouble(&ok);
        if (ok && std::isfinite(value)) return QVariant(value);
        break;
    }
    case TWValueType::Integer: {
        const qint64 value = text.toLongLong(&ok);
        if (ok) return QVariant(value);
        break;
    }
    case TWValueType::Boolean: {
        const QString word = text.toLower();
        if (word == u"yes" || word == u"true" || word == u"1" || word == u"on") return QVariant(true);
        if (word == u"no" || word == u"false" || word == u"0" || word == u"off") return QVariant(false);
        break;
    }
    case TWValueType::FourCharCode: {
        QString code = text;
        if (code.size() == 6 && code.startsWith(u'\'') && code.endsWith(u'\'')) code = code.mid(1, 4);
        if (code.size() == 4 && code.toLatin1().size() == 4) {
            const QByteArray bytes = code.toLatin1();
            qint64 value = 0;
            for (char byte : bytes)
                value = (value << 8) | uint8_t(byte);
            return QVariant(value);
        }
        const qint64 value = text.toLongLong(&ok);
        if (ok && value >= 0 && value <= 0xFFFFFFFFLL) return QVariant(value);
        break;
    }
    case TWValueType::String:
        return QVariant(text);
    case TWValueType::Path:
        return QVariant(LXFile::conformPath(text));
    case TWValueType::List: {
        QVariantList list;
        for (const QString& item : text.split(u',', Qt::SkipEmptyParts))
            list.append(item.trimmed());
        return QVariant(list);
    }
    case TWValueType::Dictionary:
        break;
    }
    return badValue(*this, text);
}
