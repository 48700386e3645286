#include "ModelTestSupport.h"
#include "model/TWClipwrightDocument.h"

#include <QHash>

#include <memory>
#include <random>

namespace {

// A minimal non-keyed archiver, the writing side of the format the reader documents. It shares what
// the Foundation archiver shares: type encodings and class names through the shared-string table,
// classes and repeated objects through references into the object table.
struct Node;
using NodePtr = std::shared_ptr<Node>;

struct Node {
    enum class Kind { Nil, Dictionary, Array, String, Integer, Real, Data, Other };
    Kind kind = Kind::Nil;
    QStringList classes; // the class and its superclasses
    QVariant value;
    QList<NodePtr> items; // an array's items, or a dictionary's keys and values in turn
};

NodePtr node(Node::Kind kind, const QStringList& classes, const QVariant& value = {},
             const QList<NodePtr>& items = {}) {
    return std::make_shared<Node>(Node{kind, classes, value, items});
}
const QStringList kNumber{"NSNumber", "NSValue", "NSObject"};
const auto nil = [] { return node(Node::Kind::Nil, {}); };
const auto integer = [](qint64 v) { return node(Node::Kind::Integer, kNumber, v); };
const auto real = [](double v) { return node(Node::Kind::Real, kNumber, v); };
const auto data = [](const QByteArray& bytes) {
    return node(Node::Kind::Data, {"NSData", "NSObject"}, bytes);
};
const auto array = [](const QList<NodePtr>& items) {
    return node(Node::Kind::Array, {"NSMutableArray", "NSArray", "NSObject"}, {}, items);
};
const auto dictionary = [](const QList<NodePtr>& keysAndValues) {
    return node(Node::Kind::Dictionary, {"NSMutableDictionary", "NSDictionary", "NSObject"}, {},
                keysAndValues);
};
NodePtr string(const QString& text, bool mutableString = false) {
    const QStringList chain{"NSString", "NSObject"};
    return node(Node::Kind::String, mutableString ? QStringList{"NSMutableString"} + chain : chain, text);
}
// An object of a class the reader does not know, holding a few simple values.
NodePtr other(const QString& className) {
    return node(Node::Kind::Other, {className, "NSObject"});
}

class Archiver {
public:
    enum class Order { Little, Big };
    explicit Archiver(Order order = Order::Little, bool groupPairs = false)
        : m_big(order == Order::Big), m_groupPairs(groupPairs) {}

    QByteArray archive(const NodePtr& root) {
        m_out.append(char(4)).append(char(11)).append(m_big ? "typedstream" : "streamtyped");
        writeInteger(1000);
        typed("@");
        object(root);
        return m_out;
    }

private:
    void raw(quint64 v, int size) {
        for (int i = 0; i < size; ++i)
            m_out.append(char(m_big ? v >> (8 * (size - 1 - i)) : v >> (8 * i)));
    }

    void writeInteger(qint64 v) {
        if (v >= -110 && v <= 127)
            m_out.append(char(v));
        else if (v >= -32768 && v <= 65535)
            m_out.append(char(-127)), raw(quint64(v), 2);
        else
            m_out.append(char(-126)), raw(quint64(v), 4);
    }

    void reference(int index) { writeInteger(index - 110); }

    void unshared(const QByteArray& s) {
        writeInteger(s.size());
        m_out.append(s);
    }

    void shared(const QByteArray& s) {
        const qsizetype index = m_strings.indexOf(s);
        if (index >= 0) return reference(int(index));
        m_out.append(char(-124));
        unshared(s);
        m_strings.append(s);
    }

    void typed(const QByteArray& types) { shared(types); }

    void writeClass(const QStringList& chain) {
        for (const QString& name : chain) {
            if (m_classes.contains(name)) return reference(m_classes.value(name));
            m_out.append(char(-124));
            shared(name.toLatin1());
            writeInteger(name.endsWith(QLatin1String("String")) ? 1 : 0);
            m_classes.insert(name, m_next++);
        }
        m_out.append(char(-123));
    }

    void object(const NodePtr& n) {
        if (n->kind == Node::Kind::Nil) {
            m_out.append(char(-123));
            return;
        }
        if (m_objects.contains(n.get())) return reference(m_objects.value(n.get()));
        m_out.append(char(-124));
        m_objects.insert(n.get(), m_next++);
        writeClass(n->classes);
        switch (n->kind) {
        case Node::Kind::String:
            typed("+");
            unshared(n->value.toString().toUtf8());
            break;
        case Node::Kind::Array:
            typed("i");
            writeInteger(n->items.size());
            for (const NodePtr& item : n->items) {
                typed("@");
                object(item);
            }
            break;
        case Node::Kind::Dictionary:
            typed("i");
            writeInteger(n->items.size() / 2);
            for (qsizetype i = 0; i + 1 < n->items.size(); i += 2) {
                typed(m_groupPairs ? "@@" : "@");
                object(n->items[i]);
                if (!m_groupPairs) typed("@");
                object(n->items[i + 1]);
            }
            break;
        case Node::Kind::Integer:
        case Node::Kind::Real: {
            const QByteArray type = n->kind == Node::Kind::Integer ? "q" : "d";
            typed("*");
            m_out.append(char(-124));
            shared(type);
            m_next++;
            typed(type);
            if (n->kind == Node::Kind::Integer) {
                writeInteger(n->value.toLongLong());
            } else {
                const double value = n->value.toDouble();
                quint64 bits = 0;
                std::memcpy(&bits, &value, sizeof bits);
                m_out.append(char(-125));
                raw(bits, 8);
            }
            break;
        }
        case Node::Kind::Data:
            typed("i");
            writeInteger(n->value.toByteArray().size());
            typed("[" + QByteArray::number(n->value.toByteArray().size()) + "c]");
            m_out.append(n->value.toByteArray());
            break;
        case Node::Kind::Other:
            typed("ffi");
            m_out.append(char(-125)), raw(0x3f800000, 4); // 1.0f
            writeInteger(0);
            writeInteger(7);
            break;
        case Node::Kind::Nil:
            break;
        }
        m_out.append(char(-122));
    }

    bool m_big;
    bool m_groupPairs;
    QByteArray m_out;
    QList<QByteArray> m_strings;
    QHash<QString, int> m_classes;
    QHash<const Node*, int> m_objects;
    int m_next = 0;
};

NodePtr fileList(const QList<NodePtr>& paths, const QList<NodePtr>& more = {}) {
    return dictionary(QList<NodePtr>{string(QStringLiteral("FileList")), array(paths)} + more);
}

// A file list as the old application saved it, with values of other kinds the reader must step over.
QByteArray sampleDocument() {
    const NodePtr kick = string(QStringLiteral("/Users/ann/Samples/kick.aif"));
    return Archiver().archive(fileList(
        {kick, string(QStringLiteral("/Users/ann/Samples/Snare \u00e9t\u00e9.wav"), true), kick},
        {string("Version"), integer(-40000), string("Zoom"), real(0.25), string("Color"), other("NSColor"),
         string("Bookmarks"), array({data(QByteArray("\x00\x01\x02", 3)), nil()})}));
}

} // namespace

TEST(ClipwrightDocument, ReadsTheFileListInOrder) {
    QTemporaryDir dir;
    const auto paths = TWReadClipwrightDocument(
        ModelTest::writeBytes(dir.filePath(QStringLiteral("Old.clipwright")), sampleDocument()));
    ASSERT_TRUE(paths) << paths.error().description().toStdString();
    // The third path is a reference to the first string object.
    EXPECT_EQ(*paths, (QStringList{QStringLiteral("/Users/ann/Samples/kick.aif"),
                                   QStringLiteral("/Users/ann/Samples/Snare \u00e9t\u00e9.wav"),
                                   QStringLiteral("/Users/ann/Samples/kick.aif")}));

    // Big-endian, with grouped pairs, and enough distinct objects that references need more than the
    // head byte.
    QList<NodePtr> nodes;
    QStringList expected;
    for (int i = 0; i < 400; ++i) {
        expected.append(QStringLiteral("/Volumes/Library/loop %1.wav").arg(i));
        nodes.append(string(expected.last()));
    }
    nodes.append(nodes[350]);
    expected.append(expected[350]);
    for (const Archiver::Order order : {Archiver::Order::Little, Archiver::Order::Big}) {
        const auto result =
            TWParseClipwrightDocument(Archiver(order, true).archive(fileList(nodes)), QStringLiteral("long"));
        ASSERT_TRUE(result) << result.error().description().toStdString();
        EXPECT_EQ(*result, expected);
    }
}

// Archives that are no file list, or that would make a reader loop, overflow its stack or hold memory
// squared, are refused with a reason.
TEST(ClipwrightDocument, RefusesWhatIsNoFileListAndHostileArchives) {
    NodePtr self = dictionary({string(QStringLiteral("FileList"))});
    self->items.append(self);
    // Four times the reader's limit: deep enough to be refused, shallow enough for this recursive writer
    // (and the nodes' destructors) under the sanitizers' larger frames.
    NodePtr deep = array({string("/a.wav")});
    for (int i = 0; i < 256; ++i)
        deep = array({deep});
    NodePtr tall = string(QStringLiteral("/a.wav"));
    for (int i = 0; i < 1000; ++i)
        tall->classes.prepend(QStringLiteral("Sub%1").arg(i));
    const struct {
        NodePtr root;
        int32_t code;
        const char* mentions;
    } cases[] = {
        {array({string("/a.wav")}), LXErrUnsupported, "not a dictionary"},
        {other("NSColor"), LXErrUnsupported, "NSColor"},
        {dictionary({string("Files"), array({})}), LXErrDamaged, "FileList"},
        {fileList({string("/a.wav"), integer(3)}), LXErrDamaged, "item 2"},
        {self, LXErrDamaged, "contains itself"},
        {fileList({deep}), LXErrDamaged, "nested too deeply"},
        {fileList({tall}), LXErrDamaged, "too many superclasses"},
    };
    for (const auto& c : cases) {
        const auto result =
            TWParseClipwrightDocument(Archiver().archive(c.root), QStringLiteral("/x/Old.clipwright"));
        ASSERT_FALSE(result) << c.mentions;
        EXPECT_EQ(result.error().code(), c.code) << c.mentions;
        EXPECT_TRUE(result.error().description().contains(QString::fromLatin1(c.mentions)) &&
                    result.error().description().contains(QStringLiteral("Old.clipwright")))
            << result.error().description().toStdString();
    }
    self->items.clear(); // break the cycle so the test does not leak
    const auto empty = TWParseClipwrightDocument(Archiver().archive(fileList({})), QStringLiteral("empty"));
    ASSERT_TRUE(empty);
    EXPECT_TRUE(empty->isEmpty());

    // Files that are no archive at all, and paths that cannot be read.
    QTemporaryDir dir;
    for (const QByteArray& bytes : {QByteArray(), QByteArray("bplist00\xd1\x01\x02", 11),
                                    QByteArray("\x03\x0bstreamtyped\x81\xe8\x03", 16)}) {
        const auto result = TWReadClipwrightDocument(
            ModelTest::writeBytes(dir.filePath(QStringLiteral("x.clipwright")), bytes));
        ASSERT_FALSE(result) << bytes.toHex().toStdString();
        EXPECT_FALSE(result.error().isFileError());
    }
    for (const QString& unreadable : {dir.filePath(QStringLiteral("missing.clipwright")), dir.path()}) {
        const auto result = TWReadClipwrightDocument(unreadable);
        ASSERT_FALSE(result);
        EXPECT_TRUE(result.error().isFileError());
    }
}

// Damaged documents must give an error, never a crash, a hang or a read outside the data (run under
// the address sanitizer to see the last).
TEST(ClipwrightDocument, SurvivesTruncationAndFlippedBytes) {
    const QByteArray good = sampleDocument();
    ASSERT_TRUE(TWParseClipwrightDocument(good, QStringLiteral("good")));
    for (qsizetype length = 0; length < good.size(); ++length) {
        const auto result = TWParseClipwrightDocument(good.left(length), QStringLiteral("cut"));
        ASSERT_FALSE(result) << "cut at " << length;
        EXPECT_LE(result.error().offset(), length);
    }
    std::mt19937 random(20240501);
    int refused = 0;
    for (int i = 0; i < 20000; ++i) {
        QByteArray bad = good;
        const int flips = 1 + int(random() % 3);
        for (int f = 0; f < flips; ++f)
            bad[qsizetype(random() % quint32(bad.size()))] = char(random());
        const auto result = TWParseClipwrightDocument(bad, QStringLiteral("flipped"));
        if (!result) {
            ++refused;
            EXPECT_FALSE(result.error().message().isEmpty());
        }
    }
    EXPECT_GT(refused, 1000); // most damage is seen; a changed letter in a path is not damage
    for (int i = 0; i < 2000; ++i) {
        QByteArray noise = good.left(20);
        const int length = int(random() % 200);
        for (int b = 0; b < length; ++b)
            noise.append(char(random()));
        (void)TWParseClipwrightDocument(noise, QStringLiteral("noise"));
    }
}
