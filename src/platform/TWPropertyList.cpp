#include "TWPropertyList.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>
#include <QStringList>
#include <QXmlStreamReader>

#include <plist/plist.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>
#include <type_traits>

namespace {

// Property-list dates count seconds from 2001-01-01 00:00:00 UTC.
constexpr qint64 kReferenceDateMSecs = 978307200LL * 1000;
// Deeper than any tree we write; stops a hostile binary plist from exhausting the stack.
constexpr int kMaximumDepth = 512;

struct PlistDeleter {
    void operator()(plist_t node) const {
        if (node)
            plist_free(node);
    }
};
using PlistPtr = std::unique_ptr<std::remove_pointer_t<plist_t>, PlistDeleter>;

LXError notAPropertyList(const QString& origin, const QString& why) {
    return LXError(LXErrDamaged, QStringLiteral("not a property list: %1").arg(why), origin);
}

// ---- XML validation
//
// libplist reads XML leniently: a missing </plist> parses, <integer>abc</integer> becomes 0 and a dictionary
// key without a value is dropped. Reading preferences or a workflow like that would silently lose the user's
// data, so the XML is checked against the property-list grammar first.

class XmlValidator {
public:
    XmlValidator(const QByteArray& data, const QString& origin) : m_origin(origin) {
        // C0 control characters are not XML, but libplist writes them raw inside strings (a file name may
        // hold them) and reads them back; blank them for the grammar check only.
        QByteArray checked = data;
        for (char& c : checked) {
            const auto u = static_cast<unsigned char>(c);
            if (u != 0 && u < 0x20 && u != '\t' && u != '\n' && u != '\r')
                c = ' ';
        }
        m_reader.addData(checked);
    }

    LXStatus validate() {
        if (!nextElement())
            return failure(QStringLiteral("no root element"));
        if (m_reader.name() == u"plist") {
            if (!nextElement())
                return failure(QStringLiteral("the <plist> element is empty"));
            LX_TRY(value(0));
            if (nextElement())
                return failure(QStringLiteral("more than one value in <plist>"));
            if (m_strayText)
                return failure(QStringLiteral("text inside <plist>"));
        } else {
            LX_TRY(value(0));
        }
        while (!m_reader.atEnd())
            m_reader.readNext();
        if (m_reader.hasError())
            return failure(m_reader.errorString());
        return {};
    }

private:
    // Moves to the next start element of the current level; false at the end of the level or the document.
    bool nextElement() {
        while (!m_reader.atEnd()) {
            switch (m_reader.readNext()) {
            case QXmlStreamReader::StartElement: return true;
            case QXmlStreamReader::EndElement: return false;
            case QXmlStreamReader::Characters:
                if (!m_reader.isWhitespace()) {
                    m_strayText = true;
                    return false;
                }
                break;
            default: break;
            }
        }
        return false;
    }

    LXStatus failure(const QString& why) const {
        const QString reason = m_reader.hasError() ? m_reader.errorString() : why;
        return notAPropertyList(m_origin, QStringLiteral("%1 (line %2, column %3)")
                                              .arg(reason)
                                              .arg(m_reader.lineNumber())
                                              .arg(m_reader.columnNumber()));
    }

    // The reader is on the start element of a value.
    LXStatus value(int depth) {
        if (depth > kMaximumDepth)
            return failure(QStringLiteral("nested too deeply"));
        const QString name = m_reader.name().toString();
        if (name == u"dict")
            return dictionary(depth);
        if (name == u"array") {
            while (nextElement())
                LX_TRY(value(depth + 1));
            return endOfContainer(name);
        }
        if (name == u"true" || name == u"false") {
            if (nextElement() || m_strayText)
                return failure(QStringLiteral("<%1/> has content").arg(name));
            return endOfContainer(name);
        }
        if (name == u"string" || name == u"key" || name == u"integer" || name == u"real" || name == u"date" ||
            name == u"data")
            return scalar(name);
        return failure(QStringLiteral("unknown element <%1>").arg(name));
    }

    LXStatus dictionary(int depth) {
        while (nextElement()) {
            if (m_reader.name() != u"key")
                return failure(QStringLiteral("<%1> where a <key> was expected in <dict>")
                                   .arg(m_reader.name().toString()));
            const QString key = m_reader.readElementText();
            if (m_reader.hasError())
                return failure({});
            if (!nextElement())
                return failure(QStringLiteral("the key '%1' has no value").arg(key));
            LX_TRY(value(depth + 1));
        }
        return endOfContainer(QStringLiteral("dict"));
    }

    LXStatus endOfContainer(const QString& name) {
        if (m_reader.hasError())
            return failure({});
        if (m_strayText)
            return failure(QStringLiteral("text inside <%1>").arg(name));
        if (!m_reader.isEndElement())
            return failure(QStringLiteral("<%1> is not closed").arg(name));
        return {};
    }

    LXStatus scalar(const QString& name) {
        const QString text = m_reader.readElementText(); // fails on child elements
        if (m_reader.hasError())
            return failure({});
        const QString trimmed = text.trimmed();
        bool ok = true;
        if (name == u"integer") {
            static const QRegularExpression integer(QStringLiteral("^[+-]?([0-9]+|0[xX][0-9a-fA-F]+)$"));
            ok = integer.match(trimmed).hasMatch();
        } else if (name == u"real") {
            static const QRegularExpression special(QStringLiteral("^[+-]?(nan|inf|infinity)$"),
                                                    QRegularExpression::CaseInsensitiveOption);
            trimmed.toDouble(&ok);
            ok = ok || special.match(trimmed).hasMatch();
        } else if (name == u"date") {
            static const QRegularExpression date(
                QStringLiteral("^[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}(\\.[0-9]+)?Z$"));
            ok = date.match(trimmed).hasMatch();
        } else if (name == u"data") {
            QByteArray base64 = trimmed.toLatin1();
            base64.removeIf([](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; });
            ok = bool(QByteArray::fromBase64Encoding(base64, QByteArray::AbortOnBase64DecodingErrors));
        }
        if (!ok)
            return failure(QStringLiteral("<%1>%2</%1> is not valid").arg(name, trimmed.left(40)));
        return {};
    }

    QString m_origin;
    QXmlStreamReader m_reader;
    bool m_strayText = false;
};

bool looksBinary(const QByteArray& data) {
    return data.startsWith("bplist");
}

// libplist aborts the process (an assertion) on a dictionary key holding a NUL character, which only a
// damaged or hostile binary list can contain. Finds such strings before libplist sees them; anything else
// malformed is left to libplist, which rejects it.
bool binaryHoldsNulInAString(const QByteArray& data) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(data.constData());
    const uint64_t size = uint64_t(data.size());
    auto readUnsigned = [&](uint64_t at, unsigned width, uint64_t* value) {
        if (width == 0 || width > 8 || at > size || width > size - at)
            return false;
        *value = 0;
        for (unsigned i = 0; i < width; ++i)
            *value = (*value << 8) | bytes[at + i];
        return true;
    };
    constexpr uint64_t kTrailerSize = 32;
    if (size < 8 + kTrailerSize)
        return false;
    const uint64_t trailer = size - kTrailerSize;
    const unsigned offsetSize = bytes[trailer + 6];
    uint64_t objects = 0, table = 0;
    if (!readUnsigned(trailer + 8, 8, &objects) || !readUnsigned(trailer + 24, 8, &table))
        return false;
    for (uint64_t index = 0; index < objects && index < size; ++index) {
        uint64_t offset = 0;
        if (!readUnsigned(table + index * offsetSize, offsetSize, &offset) || offset >= size)
            return false;
        const uint8_t marker = bytes[offset];
        const unsigned type = marker >> 4;
        if (type != 0x5 && type != 0x6)
            continue;
        uint64_t count = marker & 0xF;
        uint64_t start = offset + 1;
        if (count == 0xF) { // the length follows as an integer object
            if (start >= size || (bytes[start] >> 4) != 0x1 ||
                !readUnsigned(start + 1, 1u << (bytes[start] & 0x3), &count))
                return false;
            start += 1 + (1u << (bytes[start] & 0x3));
        }
        const uint64_t unit = type == 0x5 ? 1 : 2;
        if (count > size / unit || start > size || count * unit > size - start)
            return false;
        for (uint64_t i = 0; i < count; ++i) {
            if (bytes[start + i * unit] == 0 && (unit == 1 || bytes[start + i * unit + 1] == 0))
                return true;
        }
    }
    return false;
}

// ---- plist -> QVariant

QVariant fromNode(plist_t node, int depth, bool* ok) {
    if (!node || depth > kMaximumDepth) {
        *ok = false;
        return {};
    }
    switch (plist_get_node_type(node)) {
    case PLIST_DICT: {
        QVariantMap map;
        plist_dict_iter iterator = nullptr;
        plist_dict_new_iter(node, &iterator);
        for (;;) {
            char* key = nullptr;
            plist_t item = nullptr;
            plist_dict_next_item(node, iterator, &key, &item);
            if (!item) {
                std::free(key);
                break;
            }
            map.insert(QString::fromUtf8(key), fromNode(item, depth + 1, ok));
            std::free(key);
        }
        std::free(iterator);
        return map;
    }
    case PLIST_ARRAY: {
        QVariantList list;
        const uint32_t count = plist_array_get_size(node);
        list.reserve(count);
        for (uint32_t i = 0; i < count; ++i)
            list.append(fromNode(plist_array_get_item(node, i), depth + 1, ok));
        return list;
    }
    case PLIST_STRING: {
        uint64_t length = 0;
        const char* text = plist_get_string_ptr(node, &length);
        return text ? QString::fromUtf8(text, qsizetype(length)) : QString();
    }
    case PLIST_KEY: {
        char* text = nullptr;
        plist_get_key_val(node, &text);
        const QString key = QString::fromUtf8(text);
        std::free(text);
        return key;
    }
    case PLIST_BOOLEAN: {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return bool(value);
    }
    case PLIST_UINT: {
        // libplist keeps every integer unsigned: negative numbers come back as their two's complement.
        uint64_t value = 0;
        plist_get_uint_val(node, &value);
        return qint64(value);
    }
    case PLIST_UID: {
        uint64_t value = 0;
        plist_get_uid_val(node, &value);
        return qint64(value);
    }
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        return value;
    }
    case PLIST_DATA: {
        uint64_t length = 0;
        const char* bytes = plist_get_data_ptr(node, &length);
        return bytes ? QByteArray(bytes, qsizetype(length)) : QByteArray();
    }
    case PLIST_DATE: {
        int32_t seconds = 0, microseconds = 0;
        plist_get_date_val(node, &seconds, &microseconds);
        // libplist keeps a date as a double and splits it truncating toward zero, with the fraction always
        // positive: before the reference date the fraction counts backwards.
        const qint64 fraction = microseconds / 1000;
        const qint64 msecs = kReferenceDateMSecs + qint64(seconds) * 1000 + (seconds < 0 ? -fraction : fraction);
        return QDateTime::fromMSecsSinceEpoch(msecs, Qt::UTC);
    }
    case PLIST_NONE: break;
    }
    *ok = false;
    return {};
}

// ---- QVariant -> plist

// Seconds and microseconds from the reference date, floored, and clamped to what libplist can hold.
std::pair<int32_t, int32_t> plistDate(const QDateTime& date) {
    const qint64 msecs = date.toMSecsSinceEpoch() - kReferenceDateMSecs;
    qint64 seconds = msecs >= 0 ? msecs / 1000 : -((-msecs + 999) / 1000);
    qint64 remainder = msecs - seconds * 1000;
    if (seconds > std::numeric_limits<int32_t>::max()) {
        seconds = std::numeric_limits<int32_t>::max();
        remainder = 0;
    } else if (seconds < std::numeric_limits<int32_t>::min()) {
        seconds = std::numeric_limits<int32_t>::min();
        remainder = 0;
    }
    return {int32_t(seconds), int32_t(remainder * 1000)};
}

enum class Flavour { Xml, Binary };

// Null for values a property list cannot hold (an invalid QVariant, a type with no plist form): dictionaries
// and arrays leave them out.
plist_t toNode(const QVariant& value, Flavour flavour, int depth) {
    if (depth > kMaximumDepth)
        return nullptr;
    switch (value.typeId()) {
    case QMetaType::QVariantMap: {
        plist_t dict = plist_new_dict();
        const QVariantMap map = value.toMap();
        for (auto it = map.constBegin(); it != map.constEnd(); ++it)
            if (plist_t item = toNode(it.value(), flavour, depth + 1))
                plist_dict_set_item(dict, it.key().toUtf8().constData(), item);
        return dict;
    }
    case QMetaType::QVariantHash: {
        // Sorted, so that the same preferences give the same file.
        plist_t dict = plist_new_dict();
        const QVariantHash hash = value.toHash();
        QStringList keys = hash.keys();
        std::sort(keys.begin(), keys.end());
        for (const QString& key : keys)
            if (plist_t item = toNode(hash.value(key), flavour, depth + 1))
                plist_dict_set_item(dict, key.toUtf8().constData(), item);
        return dict;
    }
    case QMetaType::QVariantList:
    case QMetaType::QStringList:
    case QMetaType::QByteArrayList: {
        plist_t array = plist_new_array();
        const QVariantList list = value.toList();
        for (const QVariant& element : list)
            if (plist_t item = toNode(element, flavour, depth + 1))
                plist_array_append_item(array, item);
        return array;
    }
    case QMetaType::QString: return plist_new_string(value.toString().toUtf8().constData());
    case QMetaType::QByteArray: {
        const QByteArray bytes = value.toByteArray();
        return plist_new_data(bytes.constData(), uint64_t(bytes.size()));
    }
    case QMetaType::Bool: return plist_new_bool(value.toBool() ? 1 : 0);
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::Short:
    case QMetaType::Int:
    case QMetaType::Long:
    case QMetaType::LongLong: return plist_new_uint(uint64_t(value.toLongLong()));
    case QMetaType::UChar:
    case QMetaType::UShort:
    case QMetaType::UInt:
    case QMetaType::ULong:
    case QMetaType::ULongLong: return plist_new_uint(value.toULongLong());
    case QMetaType::Float:
    case QMetaType::Double: return plist_new_real(value.toDouble());
    case QMetaType::QDateTime:
    case QMetaType::QDate: {
        const QDateTime date = value.typeId() == QMetaType::QDate
                                   ? value.toDate().startOfDay(Qt::UTC)
                                   : value.toDateTime();
        if (!date.isValid())
            return nullptr;
        auto [seconds, microseconds] = plistDate(date);
        // libplist writes XML dates in whole seconds, truncating toward zero: floor them here so that dates
        // before the reference date do not move by a second.
        return plist_new_date(seconds, flavour == Flavour::Xml ? 0 : microseconds);
    }
    default:
        if (!value.isValid() || value.isNull())
            return nullptr;
        if (value.canConvert<QVariantMap>())
            return toNode(value.toMap(), flavour, depth);
        if (value.canConvert<QString>())
            return plist_new_string(value.toString().toUtf8().constData());
        return nullptr;
    }
}

PlistPtr rootNode(const QVariant& value, Flavour flavour) {
    PlistPtr root(toNode(value, flavour, 0));
    // A property list always holds one value; an empty dictionary stands for nothing.
    if (!root)
        root.reset(plist_new_dict());
    return root;
}

} // namespace

namespace TWPropertyList {

LXResult<QVariant> fromData(const QByteArray& data, const QString& origin) {
    if (data.isEmpty())
        return notAPropertyList(origin, QStringLiteral("the data is empty"));
    if (data.size() > qsizetype(std::numeric_limits<uint32_t>::max()))
        return notAPropertyList(origin, QStringLiteral("too large"));
    if (!looksBinary(data)) {
        XmlValidator validator(data, origin);
        LX_TRY(validator.validate());
    } else if (binaryHoldsNulInAString(data)) {
        return notAPropertyList(origin, QStringLiteral("a string of the binary property list holds a NUL character"));
    }
    plist_t parsed = nullptr;
    plist_from_memory(data.constData(), uint32_t(data.size()), &parsed);
    PlistPtr root(parsed);
    if (!root)
        return notAPropertyList(origin, looksBinary(data) ? QStringLiteral("the binary property list is damaged")
                                                          : QStringLiteral("libplist cannot read it"));
    bool ok = true;
    QVariant value = fromNode(root.get(), 0, &ok);
    if (!ok)
        return notAPropertyList(origin, QStringLiteral("it holds a value of an unknown type"));
    return value;
}

LXResult<QVariant> readFile(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return LXError(LXErrReadFailed, QStringLiteral("cannot read the property list: %1").arg(file.errorString()),
                       path);
    const QByteArray data = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return LXError(LXErrReadFailed, QStringLiteral("cannot read the property list: %1").arg(file.errorString()),
                       path);
    return fromData(data, path);
}

QByteArray toXml(const QVariant& value) {
    PlistPtr root = rootNode(value, Flavour::Xml);
    char* xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(root.get(), &xml, &length);
    QByteArray result(xml, qsizetype(length));
    plist_to_xml_free(xml);
    return result;
}

QByteArray toBinary(const QVariant& value) {
    PlistPtr root = rootNode(value, Flavour::Binary);
    char* binary = nullptr;
    uint32_t length = 0;
    plist_to_bin(root.get(), &binary, &length);
    QByteArray result(binary, qsizetype(length));
    plist_to_bin_free(binary);
    return result;
}

LXStatus writeFile(const QString& path, const QVariant& value) {
    const QByteArray xml = toXml(value);
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return LXError(LXErrWriteFailed, QStringLiteral("cannot write the property list: %1").arg(file.errorString()),
                       path);
    if (file.write(xml) != xml.size() || !file.commit())
        return LXError(LXErrWriteFailed, QStringLiteral("cannot write the property list: %1").arg(file.errorString()),
                       path);
    return {};
}

} // namespace TWPropertyList
