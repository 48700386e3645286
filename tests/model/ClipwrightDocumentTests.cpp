#include "TWClipwrightDocument.h"

#include <QFile>
#include <QHash>
#include <QTemporaryDir>

#include <gtest/gtest.h>

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
    QList<std::pair<NodePtr, NodePtr>> entries;
    QList<NodePtr> items;
    QString text;
    qint64 integer = 0;
    double real = 0.0;
    QByteArray data;
};

NodePtr node(Node::Kind kind, const QStringList& classes) {
    auto n = std::make_shared<Node>();
    n->kind = kind;
    n->classes = classes;
    return n;
}
NodePtr nil() {
    return node(Node::Kind::Nil, {});
}
NodePtr string(const QString& text, bool mutableString = false) {
    auto n = node(Node::Kind::String, mutableString ? QStringList{"NSMutableString", "NSString", "NSObject"}
                                                    : QStringList{"NSString", "NSObject"});
    n->text = text;
    return n;
}
NodePtr array(const QList<NodePtr>& items) {
    auto n = node(Node::Kind::Array, {"NSMutableArray", "NSArray", "NSObject"});
    n->items = items;
    return n;
}
NodePtr dictionary(const QList<std::pair<NodePtr, NodePtr>>& entries) {
    auto n = node(Node::Kind::Dictionary, {"NSMutableDictionary", "NSDictionary", "NSObject"});
    n->entries = entries;
    return n;
}
NodePtr integer(qint64 v) {
    auto n = node(Node::Kind::Integer, {"NSNumber", "NSValue", "NSObject"});
    n->integer = v;
    return n;
}
NodePtr real(double v) {
    auto n = node(Node::Kind::Real, {"NSNumber", "NSValue", "NSObject"});
    n->real = v;
    return n;
}
NodePtr data(const QByteArray& bytes) {
    auto n = node(Node::Kind::Data, {"NSData", "NSObject"});
    n->data = bytes;
    return n;
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
            unshared(n->text.toUtf8());
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
            writeInteger(n->entries.size());
            for (const auto& [key, value] : n->entries) {
                if (m_groupPairs) {
                    typed("@@");
                    object(key);
                    object(value);
                } else {
                    typed("@");
                    object(key);
                    typed("@");
                    object(value);
                }
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
                writeInteger(n->integer);
            } else {
                quint64 bits = 0;
                std::memcpy(&bits, &n->real, sizeof bits);
                m_out.append(char(-125));
                raw(bits, 8);
            }
            break;
        }
        case Node::Kind::Data:
            typed("i");
            writeInteger(n->data.size());
            typed("[" + QByteArray::number(n->data.size()) + "c]");
            m_out.append(n->data);
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

NodePtr fileList(const QList<NodePtr>& paths, const QList<std::pair<NodePtr, NodePtr>>& more = {}) {
    QList<std::pair<NodePtr, NodePtr>> entries = more;
    entries.prepend({string(QStringLiteral("FileList")), array(paths)});
    return dictionary(entries);
}

QString writeFile(const QTemporaryDir& dir, const QString& name, const QByteArray& bytes) {
    const QString path = dir.filePath(name);
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(bytes);
    return path;
}

QByteArray sampleDocument() {
    const NodePtr kick = string(QStringLiteral("/Users/ann/Samples/kick.aif"));
    return Archiver().archive(
        fileList({kick, string(QStringLiteral("/Users/ann/Samples/Snare \u00e9t\u00e9.wav"), true), kick},
                 {{string(QStringLiteral("Version")), integer(3)},
                  {string(QStringLiteral("Color")), other("NSColor")}}));
}

} // namespace

TEST(ClipwrightDocument, ReadsTheFileListInOrder) {
    QTemporaryDir dir;
    const QByteArray bytes = sampleDocument();
    ASSERT_TRUE(bytes.startsWith(QByteArray("\x04\x0bstreamtyped\x81\xe8\x03\x84\x01@\x84\x84\x84", 22)));
    const auto paths = TWReadClipwrightDocument(writeFile(dir, QStringLiteral("Old.clipwright"), bytes));
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

TEST(ClipwrightDocument, DecodesPropertyListValues) {
    const NodePtr root = dictionary({{string(QStringLiteral("n")), integer(-40000)},
                                     {string(QStringLiteral("x")), real(0.25)},
                                     {string(QStringLiteral("d")), data(QByteArray("\x00\x01\x02", 3))},
                                     {string(QStringLiteral("a")), array({integer(1), nil(), string("s")})},
                                     {integer(7), string(QStringLiteral("a key that is not a string"))}});
    const auto value = TWDecodeTypedStream(Archiver().archive(root), QStringLiteral("values"));
    ASSERT_TRUE(value) << value.error().description().toStdString();
    const QVariantMap map = value->toMap();
    EXPECT_EQ(map.value("n"), QVariant(qint64(-40000)));
    EXPECT_EQ(map.value("x"), QVariant(0.25));
    EXPECT_EQ(map.value("d"), QVariant(QByteArray("\x00\x01\x02", 3)));
    EXPECT_EQ(map.value("a"), QVariant(QVariantList{qint64(1), QVariant(), QStringLiteral("s")}));
    EXPECT_EQ(map.size(), 4);
}

TEST(ClipwrightDocument, RefusesWhatIsNoFileList) {
    struct Case {
        const char* what;
        NodePtr root;
        int32_t code;
        const char* mentions;
    };
    const Case cases[] = {
        {"root array", array({string("/a.wav")}), LXErrUnsupported, "not a dictionary"},
        {"root of unknown class", other("NSColor"), LXErrUnsupported, "NSColor"},
        {"no FileList", dictionary({{string("Files"), array({})}}), LXErrDamaged, "FileList"},
        {"FileList a string", dictionary({{string("FileList"), string("/a.wav")}}), LXErrDamaged, "a string"},
        {"FileList holds a number", fileList({string("/a.wav"), integer(3)}), LXErrDamaged, "item 2"},
        {"FileList holds nil", fileList({nil()}), LXErrDamaged, "item 1"},
    };
    for (const Case& c : cases) {
        const auto result =
            TWParseClipwrightDocument(Archiver().archive(c.root), QStringLiteral("/x/Old.clipwright"));
        ASSERT_FALSE(result) << c.what;
        EXPECT_EQ(result.error().code(), c.code) << c.what;
        EXPECT_TRUE(result.error().description().contains(QString::fromLatin1(c.mentions)))
            << c.what << ": " << result.error().description().toStdString();
        EXPECT_TRUE(result.error().description().contains(QStringLiteral("Old.clipwright"))) << c.what;
    }
    const auto empty = TWParseClipwrightDocument(Archiver().archive(fileList({})), QStringLiteral("empty"));
    ASSERT_TRUE(empty);
    EXPECT_TRUE(empty->isEmpty());
}

TEST(ClipwrightDocument, RefusesOtherFilesAndUnreadablePaths) {
    QTemporaryDir dir;
    for (const QByteArray& bytes :
         {QByteArray(), QByteArray("bplist00\xd1\x01\x02", 11), QByteArray("FileList = (\"/a.wav\");"),
          QByteArray("\x03\x0bstreamtyped\x81\xe8\x03", 16)}) {
        const auto result = TWReadClipwrightDocument(writeFile(dir, QStringLiteral("x.clipwright"), bytes));
        ASSERT_FALSE(result) << bytes.toHex().toStdString();
        EXPECT_FALSE(result.error().isFileError());
    }
    const auto missing = TWReadClipwrightDocument(dir.filePath(QStringLiteral("missing.clipwright")));
    ASSERT_FALSE(missing);
    EXPECT_TRUE(missing.error().isFileError());
    const auto folder = TWReadClipwrightDocument(dir.path());
    ASSERT_FALSE(folder);
    EXPECT_TRUE(folder.error().isFileError());
}

TEST(ClipwrightDocument, RefusesCyclesAndDeepNesting) {
    NodePtr self = dictionary({});
    self->entries.append({string(QStringLiteral("FileList")), self});
    const auto cycle = TWParseClipwrightDocument(Archiver().archive(self), QStringLiteral("cycle"));
    self->entries.clear(); // break the cycle so the test does not leak
    ASSERT_FALSE(cycle);
    EXPECT_TRUE(cycle.error().message().contains(QStringLiteral("contains itself")));
    EXPECT_GT(cycle.error().offset(), 0);

    // Four times the reader's limit: deep enough to be refused, shallow enough for this recursive writer
    // (and the nodes' destructors) under the sanitizers' larger frames.
    NodePtr deep = array({string("/a.wav")});
    for (int i = 0; i < 256; ++i)
        deep = array({deep});
    const auto nested =
        TWParseClipwrightDocument(Archiver().archive(fileList({deep})), QStringLiteral("deep"));
    ASSERT_FALSE(nested);
    EXPECT_TRUE(nested.error().message().contains(QStringLiteral("nested")));

    // A string whose class has a thousand superclasses: refused, not held in memory squared.
    NodePtr tall = string(QStringLiteral("/a.wav"));
    QStringList subclasses;
    for (int i = 0; i < 1000; ++i)
        subclasses.append(QStringLiteral("Sub%1").arg(i));
    tall->classes = subclasses + tall->classes;
    const auto chain =
        TWParseClipwrightDocument(Archiver().archive(fileList({tall})), QStringLiteral("tall"));
    ASSERT_FALSE(chain);
    EXPECT_TRUE(chain.error().message().contains(QStringLiteral("superclasses")));
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
