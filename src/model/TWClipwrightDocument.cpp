// A reader of non-keyed Foundation archives ("typedstream"), enough for the old file-list documents.
//
// Layout. A header: streamer version (byte, 4), signature length (byte, 11), the signature
// ("streamtyped" for little-endian data, "typedstream" for big-endian), the system version (an
// integer, 1000 on the Mac). Then groups of typed values: a type-encoding string ("@", "i", "@@", ...)
// followed by one value of each type in it. An object ('@') is nil, a reference to an earlier object,
// or new: its class, then groups of values that its classes wrote (superclasses first), then an end tag.
//
// Integers start with a signed head byte: -128 to -111 are tags (-127: a 2-byte integer follows,
// -126: 4 bytes, -125: a float or double follows, -124: something new follows, -123: nil, -122: end
// of object); any other head byte is the value itself. References are integers counted from -110.
// Strings come in three kinds: unshared (length and bytes), shared (new, or a reference into a table of
// shared strings; type encodings and class names are shared) and C strings (new shared string, or a
// reference into the object table). Classes are written as a chain, each new class followed by its
// superclass, until a nil or a reference ends the chain. Objects, classes and C strings are numbered in
// one table in the order they are first met, an object before its class.
//
// Contents of the classes read here: NSString and NSMutableString: one unshared string in UTF-8 ('+').
// NSArray: a count ('i'), then that many objects. NSDictionary: a count, then key and value objects in
// turn. NSNumber (through NSValue): the C string of the value's type encoding, then the value. NSData:
// a length ('i'), then that many bytes ('[Nc]'). An object of any other class is read past when its
// values are of the simple types above (a document may keep a colour or a window frame beside its
// file list) and stands for "something else" in the result; structures and other compound types end
// the reading with an error.

#include "model/TWClipwrightDocument.h"

#include "lx/LXFileDescriptor.h"

#include <QFile>
#include <QRegularExpression>
#include <QSet>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <vector>

namespace {

// A file list of a hundred thousand long paths is a few megabytes; anything far beyond is not one.
constexpr qint64 kLargestDocument = 64 * 1024 * 1024;
// Nesting deeper than this is damage, not a file list; the limit keeps recursion off the stack's end.
constexpr int kDeepestNesting = 64;

constexpr int kTagInteger2 = -127;
constexpr int kTagInteger4 = -126;
constexpr int kTagFloating = -125;
constexpr int kTagNew = -124;
constexpr int kTagNil = -123;
constexpr int kTagEndOfObject = -122;
constexpr int kFirstTag = -128;
constexpr int kLastTag = -111;
constexpr int kFirstReference = -110;

// Thrown inside the decoder only; the entry points turn it into an LXError.
struct Failure {
    int32_t code;
    QString message;
    qint64 offset;
};

enum class Family { Dictionary, Array, String, Number, Data, Other };

// What an object of a class this reader does not know decodes to.
struct Opaque {
    QString className;
};

Family familyOf(const QStringList& chain) {
    static const QSet<QString> dictionaries = {"NSDictionary", "NSMutableDictionary", "NSCFDictionary"};
    static const QSet<QString> arrays = {"NSArray", "NSMutableArray", "NSCFArray"};
    static const QSet<QString> strings = {"NSString", "NSMutableString", "NSCFString"};
    static const QSet<QString> numbers = {"NSNumber", "NSCFNumber", "NSCFBoolean"};
    static const QSet<QString> data = {"NSData", "NSMutableData", "NSCFData"};
    for (const QString& name : chain) {
        if (dictionaries.contains(name)) return Family::Dictionary;
        if (arrays.contains(name)) return Family::Array;
        if (strings.contains(name)) return Family::String;
        if (numbers.contains(name)) return Family::Number;
        if (data.contains(name)) return Family::Data;
    }
    return Family::Other;
}

bool isIntegerType(char type) {
    return std::strchr("cCsSiIlLqQB", type) != nullptr && type != 0;
}

class Decoder {
public:
    explicit Decoder(const QByteArray& data) : m_data(data) {}

    QVariant decode() {
        readHeader();
        const qint64 start = m_pos;
        const QList<QByteArray> types = typeEncodings(head());
        if (types != QList<QByteArray>{"@"})
            throw Failure{LXErrDamaged, QStringLiteral("the archive does not start with an object"), start};
        const qint64 objectStart = m_pos;
        const int h = head();
        if (h == kTagNil)
            throw Failure{LXErrDamaged, QStringLiteral("the archive's root object is nil"), objectStart};
        if (h != kTagNew)
            throw Failure{LXErrDamaged,
                          QStringLiteral("the archive's root object refers to nothing before it"),
                          objectStart};
        return newObject(objectStart);
    }

private:
    struct Shared {
        enum class Kind { Class, Object, CString } kind;
        QStringList chain; // a class: its name and its superclasses' names
        QVariant object;
        bool complete = false;
    };

    struct Item {
        char type;
        QVariant value;
        bool isNull = false;
    };

    [[noreturn]] void damaged(const QString& why, qint64 at) const { throw Failure{LXErrDamaged, why, at}; }

    const char* take(qint64 count) {
        if (count < 0 || count > m_data.size() - m_pos)
            throw Failure{LXErrTruncated, QStringLiteral("the archive ends in the middle of a value"), m_pos};
        const char* p = m_data.constData() + m_pos;
        m_pos += count;
        return p;
    }

    uint8_t byte() { return uint8_t(*take(1)); }
    int head() { return int(int8_t(byte())); }

    uint64_t raw(int size) {
        const auto* p = reinterpret_cast<const uint8_t*>(take(size));
        uint64_t v = 0;
        for (int i = 0; i < size; ++i)
            v |= uint64_t(p[m_big ? size - 1 - i : i]) << (8 * i);
        return v;
    }

    qint64 integer(int h, bool isSigned) {
        if (h < kFirstTag || h > kLastTag) return isSigned ? h : (h & 0xff);
        if (h == kTagInteger2) {
            const auto v = uint16_t(raw(2));
            return isSigned ? qint64(int16_t(v)) : qint64(v);
        }
        if (h == kTagInteger4) {
            const auto v = uint32_t(raw(4));
            return isSigned ? qint64(int32_t(v)) : qint64(v);
        }
        damaged(QStringLiteral("an integer was expected, not the tag %1").arg(h), m_pos - 1);
    }

    void readHeader() {
        const int version = byte();
        const int length = byte();
        if (version == 3)
            throw Failure{LXErrUnsupported, QStringLiteral("archives of early NeXTSTEP are not supported"),
                          0};
        const QByteArray signature = QByteArray(take(std::min(length, 11)), std::min(length, 11));
        if (version != 4 || length != 11 || (signature != "streamtyped" && signature != "typedstream"))
            throw Failure{LXErrBadHeader, QStringLiteral("not a Foundation archive (typedstream)"), 0};
        m_big = signature == "typedstream";
        integer(head(), false); // the system version: every version reads the same here
    }

    std::optional<QByteArray> unsharedString(int h) {
        if (h == kTagNil) return std::nullopt;
        const qint64 length = integer(h, false);
        return QByteArray(take(length), length);
    }

    std::optional<QByteArray> sharedString(int h) {
        if (h == kTagNil) return std::nullopt;
        if (h == kTagNew) {
            const qint64 at = m_pos;
            auto text = unsharedString(head());
            if (!text) damaged(QStringLiteral("a shared string is nil"), at);
            m_strings.append(*text);
            return text;
        }
        const qint64 at = m_pos - 1;
        const qint64 index = integer(h, true) - kFirstReference;
        if (index < 0 || index >= m_strings.size())
            damaged(QStringLiteral("a string refers to nothing before it"), at);
        return m_strings[index];
    }

    // The types of a group, one per value: single characters, or byte arrays "[16c]".
    QList<QByteArray> typeEncodings(int h) {
        const qint64 at = m_pos - 1;
        const auto types = sharedString(h);
        if (!types || types->isEmpty()) damaged(QStringLiteral("a group of values has no types"), at);
        QList<QByteArray> list;
        for (qsizetype i = 0; i < types->size(); ++i) {
            if (types->at(i) != '[') {
                list.append(types->mid(i, 1));
                continue;
            }
            const qsizetype close = types->indexOf(']', i);
            if (close < 0)
                damaged(
                    QStringLiteral("the type encoding '%1' is malformed").arg(QString::fromLatin1(*types)),
                    at);
            list.append(types->mid(i, close - i + 1));
            i = close;
        }
        return list;
    }

    Item byteArray(const QByteArray& type, qint64 at) {
        static const QRegularExpression form(QStringLiteral("^\\[(\\d{1,9})[cC]\\]$"));
        const QRegularExpressionMatch m = form.match(QString::fromLatin1(type));
        if (!m.hasMatch())
            damaged(QStringLiteral("values of type '%1' are not supported").arg(QString::fromLatin1(type)),
                    at);
        const qint64 length = m.captured(1).toLongLong();
        return {'[', QByteArray(take(length), length)};
    }

    const Shared& reference(int h, Shared::Kind kind, const QString& what) {
        const qint64 at = m_pos - 1;
        const qint64 index = integer(h, true) - kFirstReference;
        if (index < 0 || index >= qint64(m_table.size()) || m_table[size_t(index)].kind != kind)
            damaged(QStringLiteral("%1 refers to nothing before it").arg(what), at);
        return m_table[size_t(index)];
    }

    // A class chain, or nullopt for a nil class.
    std::optional<QStringList> readClass(int h) {
        QStringList names;
        while (h == kTagNew) {
            const qint64 at = m_pos;
            // Every class of the chain keeps its own copy of the rest: a long chain costs its square.
            if (names.size() >= kDeepestNesting)
                damaged(QStringLiteral("a class has too many superclasses"), at);
            const auto name = sharedString(head());
            if (!name || name->isEmpty()) damaged(QStringLiteral("a class has no name"), at);
            integer(head(), true); // the class version: the layouts read here never changed
            names.append(QString::fromLatin1(*name));
            h = head();
        }
        QStringList superChain;
        if (h != kTagNil)
            superChain = reference(h, Shared::Kind::Class, QStringLiteral("a class")).chain;
        else if (names.isEmpty())
            return std::nullopt;
        if (names.size() + superChain.size() > kDeepestNesting)
            damaged(QStringLiteral("a class has too many superclasses"), m_pos);
        for (qsizetype i = 0; i < names.size(); ++i)
            m_table.push_back({Shared::Kind::Class, names.mid(i) + superChain, {}, true});
        return names.isEmpty() ? superChain : names + superChain;
    }

    Item value(const QByteArray& encoding) {
        if (encoding.startsWith('[')) return byteArray(encoding, m_pos);
        const char type = encoding.at(0);
        switch (type) {
        case 'c':
            return {type, qint64(int8_t(byte()))};
        case 'C':
            return {type, qint64(byte())};
        case 'B':
            return {type, byte() != 0};
        case 's':
        case 'i':
        case 'l':
        case 'q':
            return {type, integer(head(), true)};
        case 'S':
        case 'I':
        case 'L':
        case 'Q':
            return {type, integer(head(), false)};
        case 'f': {
            const int h = head();
            if (h != kTagFloating) return {type, double(integer(h, true))};
            const auto bits = uint32_t(raw(4));
            float f = 0;
            std::memcpy(&f, &bits, sizeof f);
            return {type, double(f)};
        }
        case 'd': {
            const int h = head();
            if (h != kTagFloating) return {type, double(integer(h, true))};
            const uint64_t bits = raw(8);
            double d = 0;
            std::memcpy(&d, &bits, sizeof d);
            return {type, d};
        }
        case '+': {
            const auto text = unsharedString(head());
            return text ? Item{type, *text} : Item{type, {}, true};
        }
        case '%':
        case ':': {
            const auto text = sharedString(head());
            return text ? Item{type, *text} : Item{type, {}, true};
        }
        case '*':
            return cString(head());
        case '#': {
            const auto chain = readClass(head());
            return chain ? Item{type, *chain} : Item{type, {}, true};
        }
        case '@':
            return object(head());
        default:
            damaged(QStringLiteral("values of type '%1' are not supported").arg(QLatin1Char(type)), m_pos);
        }
    }

    Item cString(int h) {
        if (h == kTagNil) return {'*', {}, true};
        if (h == kTagNew) {
            const qint64 at = m_pos;
            const auto text = sharedString(head());
            if (!text) damaged(QStringLiteral("a C string is nil"), at);
            m_table.push_back({Shared::Kind::CString, {}, *text, true});
            return {'*', *text};
        }
        return {'*', reference(h, Shared::Kind::CString, QStringLiteral("a C string")).object};
    }

    Item object(int h) {
        if (h == kTagNil) return {'@', {}, true};
        if (h == kTagNew) return {'@', newObject(m_pos - 1)};
        const qint64 at = m_pos - 1;
        const Shared& shared = reference(h, Shared::Kind::Object, QStringLiteral("an object"));
        if (!shared.complete) damaged(QStringLiteral("an object contains itself"), at);
        return {'@', shared.object};
    }

    QVariant newObject(qint64 start) {
        if (++m_depth > kDeepestNesting) damaged(QStringLiteral("objects are nested too deeply"), start);
        const size_t index = m_table.size();
        m_table.push_back({Shared::Kind::Object, {}, {}, false});
        const auto chain = readClass(head());
        if (!chain || chain->isEmpty()) damaged(QStringLiteral("an object has no class"), start);
        const Family family = familyOf(*chain);
        QList<Item> items;
        for (int h = head(); h != kTagEndOfObject; h = head()) {
            for (const QByteArray& type : typeEncodings(h))
                items.append(value(type));
        }
        QVariant result = interpret(family, chain->first(), items, start);
        m_table[index].object = result;
        m_table[index].complete = true;
        --m_depth;
        return result;
    }

    QVariant interpret(Family family, const QString& name, const QList<Item>& items, qint64 start) const {
        const QString malformed = QStringLiteral("the %1 is malformed").arg(name);
        switch (family) {
        case Family::String:
            if (items.size() != 1 || items[0].type != '+' || items[0].isNull) damaged(malformed, start);
            return QString::fromUtf8(items[0].value.toByteArray());
        case Family::Data:
            if (items.size() != 2 || !isIntegerType(items[0].type) || items[1].type != '[' ||
                items[0].value.toLongLong() != items[1].value.toByteArray().size())
                damaged(malformed, start);
            return items[1].value;
        case Family::Other:
            return QVariant::fromValue(Opaque{name});
        case Family::Number: {
            if (items.size() != 2 || items[0].type != '*' || items[0].isNull) damaged(malformed, start);
            const QByteArray type = items[0].value.toByteArray();
            if (type.size() != 1 || items[1].type != type[0]) damaged(malformed, start);
            return items[1].value;
        }
        case Family::Array: {
            if (items.isEmpty() || !isIntegerType(items[0].type) ||
                items[0].value.toLongLong() != items.size() - 1)
                damaged(malformed, start);
            QVariantList list;
            list.reserve(items.size() - 1);
            for (qsizetype i = 1; i < items.size(); ++i) {
                if (items[i].type != '@') damaged(malformed, start);
                list.append(items[i].value);
            }
            return list;
        }
        case Family::Dictionary: {
            if (items.isEmpty() || !isIntegerType(items[0].type) ||
                items[0].value.toLongLong() * 2 != items.size() - 1)
                damaged(malformed, start);
            QVariantMap map;
            for (qsizetype i = 1; i + 1 < items.size(); i += 2) {
                if (items[i].type != '@' || items[i + 1].type != '@') damaged(malformed, start);
                if (items[i].value.typeId() == QMetaType::QString)
                    map.insert(items[i].value.toString(), items[i + 1].value);
            }
            return map;
        }
        }
        return {};
    }

    const QByteArray& m_data;
    qint64 m_pos = 0;
    bool m_big = false;
    int m_depth = 0;
    QList<QByteArray> m_strings;
    std::vector<Shared> m_table;
};

LXError errorFrom(const Failure& failure, const QString& origin) {
    return LXError(failure.code, failure.message, origin, failure.offset);
}

// "an object of class NSColor", "a number": what a value is, for messages about values of the wrong kind.
QString kindOf(const QVariant& value) {
    if (value.metaType() == QMetaType::fromType<Opaque>())
        return QStringLiteral("an object of class %1").arg(value.value<Opaque>().className);
    switch (value.typeId()) {
    case QMetaType::QVariantMap:
        return QStringLiteral("a dictionary");
    case QMetaType::QVariantList:
        return QStringLiteral("an array");
    case QMetaType::QString:
        return QStringLiteral("a string");
    case QMetaType::QByteArray:
        return QStringLiteral("data");
    case QMetaType::UnknownType:
        return QStringLiteral("nil");
    default:
        return QStringLiteral("a number");
    }
}

} // namespace

LXResult<QVariant> TWDecodeTypedStream(const QByteArray& data, const QString& origin) {
    try {
        Decoder decoder(data);
        return decoder.decode();
    } catch (const Failure& failure) {
        return errorFrom(failure, origin);
    }
}

LXResult<QStringList> TWParseClipwrightDocument(const QByteArray& data, const QString& origin) {
    QVariant root;
    try {
        Decoder decoder(data);
        root = decoder.decode();
    } catch (const Failure& failure) {
        return errorFrom(failure, origin);
    }
    if (root.typeId() != QMetaType::QVariantMap)
        return LXError(
            LXErrUnsupported,
            QStringLiteral("not a file list: the archive holds %1, not a dictionary").arg(kindOf(root)),
            origin);
    const QVariantMap dictionary = root.toMap();
    if (!dictionary.contains(QStringLiteral("FileList")))
        return LXError(LXErrDamaged, QStringLiteral("not a file list: it has no \"FileList\""), origin);
    const QVariant list = dictionary.value(QStringLiteral("FileList"));
    if (list.typeId() != QMetaType::QVariantList)
        return LXError(LXErrDamaged, QStringLiteral("its \"FileList\" is %1, not an array").arg(kindOf(list)),
                       origin);
    QStringList paths;
    const QVariantList items = list.toList();
    for (qsizetype i = 0; i < items.size(); ++i) {
        if (items[i].typeId() != QMetaType::QString)
            return LXError(LXErrDamaged,
                           QStringLiteral("item %1 of its \"FileList\" is %2, not a path")
                               .arg(i + 1)
                               .arg(kindOf(items[i])),
                           origin);
        paths.append(items[i].toString());
    }
    return paths;
}

LXResult<QStringList> TWReadClipwrightDocument(const QString& path) {
    LXFileDescriptor fd(::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC));
    if (!fd.isOpen()) return LXFileError::fromErrno(QStringLiteral("Cannot open the document"), path);
    struct stat info = {};
    if (::fstat(fd.get(), &info) != 0)
        return LXFileError::fromErrno(QStringLiteral("Cannot read the document"), path);
    if (S_ISDIR(info.st_mode))
        return LXFileError(QStringLiteral("Cannot read the document: it is a folder"), path, EISDIR);
    if (info.st_size > kLargestDocument)
        return LXError(LXErrUnsupported,
                       QStringLiteral("not a file list: %1 bytes is far too large for one").arg(info.st_size),
                       path);
    QByteArray data(qsizetype(info.st_size), Qt::Uninitialized);
    if (!LXReadFully(fd.get(), data.data(), data.size(), 0))
        return LXFileError::fromErrno(QStringLiteral("Cannot read the document"), path);
    return TWParseClipwrightDocument(data, path);
}
