#include "platform/TWPropertyList.h"

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
#include <vector>

namespace {

// Property-list dates count seconds from 2001-01-01 00:00:00 UTC.
constexpr qint64 kReferenceDateMSecs = 978307200LL * 1000;
// Deeper than any tree we write; stops a hostile binary plist from exhausting the stack.
constexpr int kMaximumDepth = 512;

struct PlistDeleter {
    void operator()(plist_t node) const {
        if (node) plist_free(node);
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
            if (u != 0 && u < 0x20 && u != '\t' && u != '\n' && u != '\r') c = ' ';
        }
        m_reader.addData(checked);
    }

    LXStatus validate() {
        if (!nextElement()) return failure(QStringLiteral("no root element"));
        if (m_reader.name() == u"plist") {
            if (!nextElement()) return failure(QStringLiteral("the <plist> element is empty"));
            LX_TRY(value(0));
            if (nextElement()) return failure(QStringLiteral("more than one value in <plist>"));
            if (m_strayText) return failure(QStringLiteral("text inside <plist>"));
        } else {
            LX_TRY(value(0));
        }
        while (!m_reader.atEnd())
            m_reader.readNext();
        if (m_reader.hasError()) return failure(m_reader.errorString());
        return {};
    }

private:
    // Moves to the next start element of the current level; false at the end of the level or the document.
    bool nextElement() {
        while (!m_reader.atEnd()) {
            switch (m_reader.readNext()) {
            case QXmlStreamReader::StartElement:
                return true;
            case QXmlStreamReader::EndElement:
                return false;
            case QXmlStreamReader::Characters:
                if (!m_reader.isWhitespace()) {
                    m_strayText = true;
                    return false;
                }
                break;
            default:
                break;
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
        if (depth > kMaximumDepth) return failure(QStringLiteral("nested too deeply"));
        const QString name = m_reader.name().toString();
        if (name == u"dict") return dictionary(depth);
        if (name == u"array") {
            while (nextElement())
                LX_TRY(value(depth + 1));
            return endOfContainer(name);
        }
        if (name == u"true" || name == u"false") {
            if (nextElement() || m_strayText) return failure(QStringLiteral("<%1/> has content").arg(name));
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
            if (m_reader.hasError()) return failure({});
            if (!nextElement()) return failure(QStringLiteral("the key '%1' has no value").arg(key));
            LX_TRY(value(depth + 1));
        }
        return endOfContainer(QStringLiteral("dict"));
    }

    LXStatus endOfContainer(const QString& name) {
        if (m_reader.hasError()) return failure({});
        if (m_strayText) return failure(QStringLiteral("text inside <%1>").arg(name));
        if (!m_reader.isEndElement()) return failure(QStringLiteral("<%1> is not closed").arg(name));
        return {};
    }

    LXStatus scalar(const QString& name) {
        const QString text = m_reader.readElementText(); // fails on child elements
        if (m_reader.hasError()) return failure({});
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
        if (!ok) return failure(QStringLiteral("<%1>%2</%1> is not valid").arg(name, trimmed.left(40)));
        return {};
    }

    QString m_origin;
    QXmlStreamReader m_reader;
    bool m_strayText = false;
};

bool looksBinary(const QByteArray& data) {
    return data.startsWith("bplist");
}

// What libplist's binary reader does not survive: it aborts the process (an assertion) on a dictionary key
// holding a NUL character, recurses without limit (a deep or cyclic list overflows the stack) and copies a
// shared object at every reference (a few hundred bytes can expand to billions of values). So the data
// goes to libplist only when every object and every reference in it has been read here and found sound:
// whatever this check cannot make sense of is refused, not passed on.
class BinaryCheck {
public:
    explicit BinaryCheck(const QByteArray& data)
        : m_bytes(reinterpret_cast<const uint8_t*>(data.constData())), m_size(uint64_t(data.size())) {}

    // Empty when libplist may read the data.
    QString problem() {
        constexpr uint64_t kTrailerSize = 32;
        if (m_size < 8 + kTrailerSize) return QStringLiteral("too short for a binary property list");
        const uint64_t trailer = m_size - kTrailerSize;
        m_offsetSize = m_bytes[trailer + 6];
        m_referenceSize = m_bytes[trailer + 7];
        uint64_t top = 0;
        if (!readUnsigned(trailer + 8, 8, &m_objects) || !readUnsigned(trailer + 16, 8, &top) ||
            !readUnsigned(trailer + 24, 8, &m_table) || m_referenceSize == 0 || m_referenceSize > 8 ||
            m_objects == 0 || m_objects > m_size || top >= m_objects)
            return QStringLiteral("the trailer is damaged");

        std::vector<Object> objects(m_objects);
        for (uint64_t index = 0; index < m_objects; ++index) {
            if (!describe(index, &objects[index])) return QStringLiteral("object %1 is damaged").arg(index);
            if (objects[index].nulInString) return QStringLiteral("a string holds a NUL character");
        }
        return walk(objects, top);
    }

private:
    struct Object {
        uint64_t firstReference = 0, references = 0; // where the contained objects' numbers are
        bool nulInString = false;
        enum class State : uint8_t { New, Open, Done } state = State::New;
        uint32_t depth = 0;
        uint64_t expanded = 0; // values libplist makes of it, saturated
        bool isString = false;
        bool isDictionary = false;
    };

    bool readUnsigned(uint64_t at, unsigned width, uint64_t* value) const {
        if (width == 0 || width > 8 || at > m_size || width > m_size - at) return false;
        *value = 0;
        for (unsigned i = 0; i < width; ++i)
            *value = (*value << 8) | m_bytes[at + i];
        return true;
    }

    // The count in the marker's low half, or the integer object after the marker when that half is 0xF.
    bool count(uint64_t offset, uint64_t* count, uint64_t* start) const {
        *count = m_bytes[offset] & 0xF;
        *start = offset + 1;
        if (*count != 0xF) return true;
        if (*start >= m_size || (m_bytes[*start] >> 4) != 0x1) return false;
        const unsigned width = 1u << (m_bytes[*start] & 0x3);
        if (!readUnsigned(*start + 1, width, count)) return false;
        *start += 1 + width;
        return true;
    }

    bool describe(uint64_t index, Object* object) const {
        uint64_t offset = 0;
        if (m_table > m_size || !readUnsigned(m_table + index * m_offsetSize, m_offsetSize, &offset) ||
            offset >= m_size)
            return false;
        const unsigned type = m_bytes[offset] >> 4;
        uint64_t items = 0, start = 0;
        if (type == 0x5 || type == 0x6) { // ASCII or UTF-16 string
            if (!count(offset, &items, &start)) return false;
            const uint64_t unit = type == 0x5 ? 1 : 2;
            if (start > m_size || items > (m_size - start) / unit) return false;
            object->isString = true;
            for (uint64_t i = 0; i < items && !object->nulInString; ++i)
                object->nulInString =
                    m_bytes[start + i * unit] == 0 && (unit == 1 || m_bytes[start + i * unit + 1] == 0);
        } else if (type == 0xA || type == 0xC || type == 0xD) { // array, set, dictionary
            if (!count(offset, &items, &start)) return false;
            if (type == 0xD && items > m_size) return false;
            object->references = type == 0xD ? items * 2 : items;
            object->isDictionary = type == 0xD;
            object->firstReference = start;
            if (m_referenceSize == 0 || start > m_size ||
                object->references > (m_size - start) / m_referenceSize)
                return false;
        }
        return true;
    }

    // Depth-first, without recursion, remembering what each object expands to.
    QString walk(std::vector<Object>& objects, uint64_t top) const {
        constexpr uint64_t kMaximumExpanded = uint64_t(1) << 24;
        struct Frame {
            uint64_t index, next;
        };
        std::vector<Frame> stack{{top, 0}};
        objects[top].state = Object::State::Open;
        while (!stack.empty()) {
            Frame& frame = stack.back();
            Object& object = objects[frame.index];
            if (frame.next < object.references) {
                uint64_t child = 0;
                if (!readUnsigned(object.firstReference + frame.next * m_referenceSize, m_referenceSize,
                                  &child) ||
                    child >= m_objects)
                    return QStringLiteral("a reference points outside the list");
                // A dictionary's references are its keys, then its values.
                if (object.isDictionary && frame.next < object.references / 2 && !objects[child].isString)
                    return QStringLiteral("a dictionary key is not a string");
                ++frame.next;
                Object& inner = objects[child];
                if (inner.state == Object::State::Open) return QStringLiteral("an object contains itself");
                if (inner.state == Object::State::New) {
                    if (stack.size() > size_t(kMaximumDepth)) return QStringLiteral("nested too deeply");
                    inner.state = Object::State::Open;
                    stack.push_back({child, 0});
                }
                continue;
            }
            // All children done: add them up.
            uint64_t expanded = 1;
            uint32_t depth = 0;
            for (uint64_t i = 0; i < object.references; ++i) {
                uint64_t child = 0;
                readUnsigned(object.firstReference + i * m_referenceSize, m_referenceSize, &child);
                expanded = std::min(kMaximumExpanded, expanded + objects[child].expanded);
                depth = std::max(depth, objects[child].depth);
            }
            object.expanded = expanded;
            object.depth = depth + 1;
            object.state = Object::State::Done;
            if (expanded >= kMaximumExpanded) return QStringLiteral("it expands to too many values");
            if (object.depth > uint32_t(kMaximumDepth)) return QStringLiteral("nested too deeply");
            stack.pop_back();
        }
        return {};
    }

    const uint8_t* m_bytes;
    uint64_t m_size;
    unsigned m_offsetSize = 0, m_referenceSize = 0;
    uint64_t m_objects = 0, m_table = 0;
};

// ---- plist -> QVariant

// A scalar through libplist's getter for its type.
template <typename T> T valueOf(plist_t node, void (*get)(plist_t, T*)) {
    T value{};
    get(node, &value);
    return value;
}

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
    case PLIST_BOOLEAN:
        return bool(valueOf(node, plist_get_bool_val));
    case PLIST_UINT:
        // libplist keeps every integer unsigned: negative numbers come back as their two's complement.
        return qint64(valueOf(node, plist_get_uint_val));
    case PLIST_UID:
        return qint64(valueOf(node, plist_get_uid_val));
    case PLIST_REAL:
        return valueOf(node, plist_get_real_val);
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
        const qint64 msecs =
            kReferenceDateMSecs + qint64(seconds) * 1000 + (seconds < 0 ? -fraction : fraction);
        return QDateTime::fromMSecsSinceEpoch(msecs, Qt::UTC);
    }
    case PLIST_NONE:
        break;
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
    if (depth > kMaximumDepth) return nullptr;
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
            if (plist_t item = toNode(element, flavour, depth + 1)) plist_array_append_item(array, item);
        return array;
    }
    case QMetaType::QString:
        return plist_new_string(value.toString().toUtf8().constData());
    case QMetaType::QByteArray: {
        const QByteArray bytes = value.toByteArray();
        return plist_new_data(bytes.constData(), uint64_t(bytes.size()));
    }
    case QMetaType::Bool:
        return plist_new_bool(value.toBool() ? 1 : 0);
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::Short:
    case QMetaType::Int:
    case QMetaType::Long:
    case QMetaType::LongLong:
        return plist_new_uint(uint64_t(value.toLongLong()));
    case QMetaType::UChar:
    case QMetaType::UShort:
    case QMetaType::UInt:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
        return plist_new_uint(value.toULongLong());
    case QMetaType::Float:
    case QMetaType::Double:
        return plist_new_real(value.toDouble());
    case QMetaType::QDateTime:
    case QMetaType::QDate: {
        const QDateTime date =
            value.typeId() == QMetaType::QDate ? value.toDate().startOfDay(Qt::UTC) : value.toDateTime();
        if (!date.isValid()) return nullptr;
        auto [seconds, microseconds] = plistDate(date);
        // libplist writes XML dates in whole seconds, truncating toward zero: floor them here so that dates
        // before the reference date do not move by a second.
        return plist_new_date(seconds, flavour == Flavour::Xml ? 0 : microseconds);
    }
    default:
        if (!value.isValid() || value.isNull()) return nullptr;
        if (value.canConvert<QVariantMap>()) return toNode(value.toMap(), flavour, depth);
        if (value.canConvert<QString>()) return plist_new_string(value.toString().toUtf8().constData());
        return nullptr;
    }
}

PlistPtr rootNode(const QVariant& value, Flavour flavour) {
    PlistPtr root(toNode(value, flavour, 0));
    // A property list always holds one value; an empty dictionary stands for nothing.
    if (!root) root.reset(plist_new_dict());
    return root;
}

QByteArray serialized(const QVariant& value, Flavour flavour) {
    PlistPtr root = rootNode(value, flavour);
    char* bytes = nullptr;
    uint32_t length = 0;
    (flavour == Flavour::Xml ? plist_to_xml : plist_to_bin)(root.get(), &bytes, &length);
    QByteArray result(bytes, qsizetype(length));
    (flavour == Flavour::Xml ? plist_to_xml_free : plist_to_bin_free)(bytes);
    return result;
}

LXError fileError(int32_t code, const char* what, const QFileDevice& file, const QString& path) {
    return LXError(
        code, QStringLiteral("cannot %1 the property list: %2").arg(QLatin1String(what), file.errorString()),
        path);
}

} // namespace

namespace TWPropertyList {

LXResult<QVariant> fromData(const QByteArray& data, const QString& origin) {
    if (data.isEmpty()) return notAPropertyList(origin, QStringLiteral("the data is empty"));
    if (data.size() > qsizetype(std::numeric_limits<uint32_t>::max()))
        return notAPropertyList(origin, QStringLiteral("too large"));
    if (!looksBinary(data)) {
        XmlValidator validator(data, origin);
        LX_TRY(validator.validate());
    } else if (const QString problem = BinaryCheck(data).problem(); !problem.isEmpty()) {
        return notAPropertyList(origin, problem);
    }
    plist_t parsed = nullptr;
    plist_from_memory(data.constData(), uint32_t(data.size()), &parsed);
    PlistPtr root(parsed);
    if (!root)
        return notAPropertyList(origin, looksBinary(data)
                                            ? QStringLiteral("the binary property list is damaged")
                                            : QStringLiteral("libplist cannot read it"));
    bool ok = true;
    QVariant value = fromNode(root.get(), 0, &ok);
    if (!ok) return notAPropertyList(origin, QStringLiteral("it holds a value of an unknown type"));
    return value;
}

LXResult<QVariant> readFile(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return fileError(LXErrReadFailed, "read", file, path);
    const QByteArray data = file.readAll();
    if (file.error() != QFileDevice::NoError) return fileError(LXErrReadFailed, "read", file, path);
    return fromData(data, path);
}

QByteArray toXml(const QVariant& value) {
    return serialized(value, Flavour::Xml);
}

QByteArray toBinary(const QVariant& value) {
    return serialized(value, Flavour::Binary);
}

LXStatus writeFile(const QString& path, const QVariant& value) {
    const QByteArray xml = toXml(value);
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(xml) != xml.size() || !file.commit())
        return fileError(LXErrWriteFailed, "write", file, path);
    return {};
}

} // namespace TWPropertyList
