#include "platform/TWPropertyList.h"

#include <QDateTime>
#include <QDir>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <limits>

namespace {

QDateTime utc(const char* iso) {
    QDateTime date = QDateTime::fromString(QString::fromLatin1(iso), Qt::ISODateWithMs);
    date.setTimeSpec(Qt::UTC);
    return date;
}

// Every type, nested, with the values that are easy to get wrong: extreme integers, reals that look like
// integers, dates before the reference date, bytes that are not text, XML's special characters.
QVariantMap deepTree() {
    const QVariantMap leaf{
        {QStringLiteral("negative"), qint64(-5)},
        {QStringLiteral("minimum"), std::numeric_limits<qint64>::min()},
        {QStringLiteral("maximum"), std::numeric_limits<qint64>::max()},
        {QStringLiteral("real"), 0.1},
        {QStringLiteral("whole real"), 3.0},
        {QStringLiteral("yes"), true},
        {QStringLiteral("bytes"), QByteArray("\x00\x01\xff<&>", 6)},
        {QStringLiteral("text"), QStringLiteral("a<b>&\"c' \u00e9\u266b \U0001F3B5")},
        {QStringLiteral("empty"), QString()},
        {QStringLiteral("old date"), utc("1969-07-20T20:17:40")},
    };
    QVariantList entries;
    for (int i = 0; i < 3; ++i)
        entries << QVariantMap{
            {QStringLiteral("Path"), QStringLiteral("/tmp/kick %1.wav").arg(i)},
            {QStringLiteral("Children"), QVariantList{leaf, QVariantList{}, QVariantMap{}}}};
    return {{QStringLiteral("Entries"), entries}, {QStringLiteral("leaf"), leaf}};
}

// QVariant's == compares numbers across types; the types must survive too.
void expectSameTree(const QVariant& expected, const QVariant& actual,
                    const QString& where = QStringLiteral("/")) {
    ASSERT_EQ(expected.typeId(), actual.typeId()) << where.toStdString();
    if (expected.typeId() == QMetaType::QVariantMap) {
        const QVariantMap e = expected.toMap(), a = actual.toMap();
        ASSERT_EQ(e.keys(), a.keys()) << where.toStdString();
        for (auto it = e.constBegin(); it != e.constEnd(); ++it)
            expectSameTree(it.value(), a.value(it.key()), where + it.key() + u'/');
    } else if (expected.typeId() == QMetaType::QVariantList) {
        const QVariantList e = expected.toList(), a = actual.toList();
        ASSERT_EQ(e.size(), a.size()) << where.toStdString();
        for (qsizetype i = 0; i < e.size(); ++i)
            expectSameTree(e[i], a[i], where + QString::number(i) + u'/');
    } else {
        EXPECT_EQ(expected, actual) << where.toStdString() << ": " << expected.toString().toStdString()
                                    << " != " << actual.toString().toStdString();
    }
}

// A binary property list of the given objects (object references 4 bytes wide), object 0 on top.
QByteArray binaryList(const QList<QByteArray>& objects) {
    auto bigEndian = [](quint64 value, int width) {
        QByteArray bytes;
        for (int i = width - 1; i >= 0; --i)
            bytes.append(char((value >> (8 * i)) & 0xFF));
        return bytes;
    };
    QByteArray data = "bplist00";
    QList<quint64> offsets;
    for (const QByteArray& object : objects) {
        offsets << quint64(data.size());
        data += object;
    }
    const quint64 table = quint64(data.size());
    for (quint64 offset : offsets)
        data += bigEndian(offset, 4);
    data += QByteArray(6, '\0') + char(4) + char(4);
    return data + bigEndian(quint64(objects.size()), 8) + bigEndian(0, 8) + bigEndian(table, 8);
}

// An array holding `references` references to the object `next`.
QByteArray arrayOf(int references, quint32 next) {
    QByteArray array(1, char(0xA0 | references));
    for (int i = 0; i < references; ++i)
        for (int shift = 24; shift >= 0; shift -= 8)
            array.append(char((next >> shift) & 0xFF));
    return array;
}

} // namespace

TEST(PropertyList, DeepTreeOfEveryTypeRoundTripsThroughXmlBinaryAndFilesThatSayWhereTheyFail) {
    const QVariantMap tree = deepTree();
    for (const QByteArray& data : {TWPropertyList::toXml(tree), TWPropertyList::toBinary(tree)}) {
        auto read = TWPropertyList::fromData(data, QStringLiteral("tree.plist"));
        ASSERT_TRUE(read) << read.error().description().toStdString();
        expectSameTree(tree, *read);
    }
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("tree.plist"));
    ASSERT_TRUE(TWPropertyList::writeFile(path, tree));
    auto fromFile = TWPropertyList::readFile(path);
    ASSERT_TRUE(fromFile) << fromFile.error().description().toStdString();
    expectSameTree(tree, *fromFile);
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files),
              QStringList{QStringLiteral("tree.plist")}); // no temporaries
    auto missing = TWPropertyList::readFile(dir.filePath(QStringLiteral("missing.plist")));
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().code(), LXErrReadFailed);
    EXPECT_EQ(missing.error().path(), dir.filePath(QStringLiteral("missing.plist")));
    auto unwritten = TWPropertyList::writeFile(dir.filePath(QStringLiteral("no folder/x.plist")), tree);
    ASSERT_FALSE(unwritten);
    EXPECT_EQ(unwritten.error().path(), dir.filePath(QStringLiteral("no folder/x.plist")));

    // XML cannot write most control characters, but file names may hold them: they survive our own XML.
    const QVariantMap control{{QStringLiteral("Path"), QStringLiteral("/tmp/bell\x07"
                                                                      "and\x01tab\t.wav")}};
    auto read = TWPropertyList::fromData(TWPropertyList::toXml(control), QStringLiteral("control"));
    ASSERT_TRUE(read) << read.error().description().toStdString();
    expectSameTree(control, *read);

    // Dates keep whole seconds in XML (floored before the reference date) and milliseconds in binary.
    const QVariantList dates{utc("1999-12-31T23:59:59.250"), utc("2024-02-29T12:00:00.750")};
    auto xml = TWPropertyList::fromData(TWPropertyList::toXml(dates), QStringLiteral("dates"));
    ASSERT_TRUE(xml);
    expectSameTree(QVariantList{utc("1999-12-31T23:59:59"), utc("2024-02-29T12:00:00")}, *xml);
    EXPECT_EQ(xml->toList()[1].toDateTime().timeSpec(), Qt::UTC);
    auto binary = TWPropertyList::fromData(TWPropertyList::toBinary(dates), QStringLiteral("dates"));
    ASSERT_TRUE(binary);
    expectSameTree(dates, *binary);
}

TEST(PropertyList, InputThatIsNotAPropertyListIsAnErrorNamingItsOrigin) {
    const QByteArray header = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">";
    const std::pair<const char*, QByteArray> cases[] = {
        {"empty", QByteArray()},
        {"other xml", "<?xml version=\"1.0\"?><html><body/></html>"},
        {"binary garbage", QByteArray("\x00\x13\x37\xff\xfe", 5)},
        {"cut inside a dictionary", header + "<dict><key>a</key><integer>1</int"},
        {"integer that is not a number", header + "<integer>abc</integer></plist>"},
        {"unknown element", header + "<array><string>x</string><color/></array></plist>"},
        {"bad base64", header + "<data>*not base64*</data></plist>"},
        {"two values", header + "<true/><false/></plist>"},
    };
    for (const auto& [name, data] : cases) {
        auto value =
            TWPropertyList::fromData(data, QStringLiteral("/prefs/%1.plist").arg(QLatin1String(name)));
        ASSERT_FALSE(value) << name << " was accepted";
        const QString description = value.error().description();
        EXPECT_TRUE(description.contains(QStringLiteral("%1.plist").arg(QLatin1String(name))) &&
                    description.contains(QStringLiteral("not a property list")))
            << description.toStdString();
        EXPECT_EQ(value.error().code(), LXErrDamaged) << name;
    }

    // A NUL inside a binary list's key makes libplist abort the process; it must be an error instead.
    QByteArray nulInKey = TWPropertyList::toBinary(QVariantMap{{QStringLiteral("ab"), qint64(1)}});
    const qsizetype key = nulInKey.indexOf("\x52"
                                           "ab");
    ASSERT_GE(key, 0);
    nulInKey[key + 2] = '\0';
    auto nul = TWPropertyList::fromData(nulInKey, QStringLiteral("nul.plist"));
    ASSERT_FALSE(nul);
    EXPECT_TRUE(nul.error().description().contains(QStringLiteral("NUL")))
        << nul.error().description().toStdString();

    // The same key beside an object the check cannot read, which libplist never looks at: the check
    // must refuse what it cannot read rather than pass the rest on.
    const QByteArray dictionary("\xD1\x00\x00\x00\x02\x00\x00\x00\x03", 9);
    auto unreadable = TWPropertyList::fromData(
        binaryList({dictionary, QByteArray("\xAF\x00", 2), QByteArray("\x53" "a\0b", 4),
                    QByteArray("\x10\x01", 2)}),
        QStringLiteral("unreadable.plist"));
    ASSERT_FALSE(unreadable);
    EXPECT_TRUE(unreadable.error().description().contains(QStringLiteral("object 1 is damaged")))
        << unreadable.error().description().toStdString();

    // What would make libplist overflow the stack or expand without end.
    QList<QByteArray> deep, bomb;
    for (quint32 i = 0; i < 100000; ++i)
        deep << arrayOf(1, i + 1);
    deep << QByteArray(1, char(0x09)); // true
    for (quint32 i = 0; i < 40; ++i)
        bomb << arrayOf(2, i + 1); // 2^40 values once every reference is copied
    bomb << QByteArray(1, char(0x09));
    const std::pair<const char*, QByteArray> hostile[] = {
        {"nested too deeply", binaryList(deep)},
        {"contains itself", binaryList({arrayOf(1, 1), arrayOf(1, 0)})},
        {"too many values", binaryList(bomb)},
    };
    for (const auto& [why, data] : hostile) {
        auto value = TWPropertyList::fromData(data, QStringLiteral("hostile.plist"));
        ASSERT_FALSE(value) << why;
        EXPECT_TRUE(value.error().description().contains(QLatin1String(why)))
            << value.error().description().toStdString();
    }
    // The same shapes within bounds read, and so do well-formed oddities.
    auto shared =
        TWPropertyList::fromData(binaryList({arrayOf(2, 1), arrayOf(2, 2), QByteArray(1, char(0x08))}),
                                 QStringLiteral("shared.plist"));
    ASSERT_TRUE(shared) << shared.error().description().toStdString();
    EXPECT_EQ(*shared, QVariant(QVariantList{QVariantList{false, false}, QVariantList{false, false}}));
    EXPECT_TRUE(TWPropertyList::fromData(QByteArray("<dict><key>a</key><integer>0x1F</integer></dict>"),
                                         QStringLiteral("good")));
}

// Python's plistlib, another implementation, reads what we write, and we read the binary lists it writes
// (signed integers on disk, dates as doubles).
TEST(PropertyList, AnotherImplementationReadsWhatWeWriteAndWeReadWhatItWrites) {
    const QString python = QStandardPaths::findExecutable(QStringLiteral("python3"));
    if (python.isEmpty()) GTEST_SKIP() << "python3 not found";
    auto runPython = [&](const char* script, const QString& argument) {
        QProcess process;
        process.start(python, {QStringLiteral("-c"), QString::fromUtf8(script), argument});
        EXPECT_TRUE(process.waitForFinished(30000) && process.exitCode() == 0)
            << process.readAllStandardError().toStdString();
        return process.readAllStandardOutput().toStdString();
    };
    QTemporaryDir dir;
    const QString ours = dir.filePath(QStringLiteral("ours.plist"));
    ASSERT_TRUE(TWPropertyList::writeFile(ours, deepTree()));
    EXPECT_EQ(runPython(R"(
import plistlib, sys
d = plistlib.load(open(sys.argv[1], 'rb'))
leaf = d['leaf']
print(leaf['negative'], leaf['minimum'], leaf['maximum'], repr(leaf['real']), repr(leaf['whole real']))
print(leaf['bytes'].hex(), leaf['text'] == 'a<b>&"c\' \u00e9\u266b \U0001F3B5', leaf['old date'].isoformat())
print(len(d['Entries']), d['Entries'][2]['Path'])
)",
                        ours),
              "-5 -9223372036854775808 9223372036854775807 0.1 3.0\n"
              "0001ff3c263e True 1969-07-20T20:17:40\n"
              "3 /tmp/kick 2.wav\n");

    const QString theirs = dir.filePath(QStringLiteral("theirs.plist"));
    runPython(R"(
import plistlib, sys, datetime
d = [-7, 2**62, 2.5, 'Kick \u00e9', b'\x00\x01', False, datetime.datetime(2010, 5, 6, 7, 8, 9), {'x': [-3]}]
open(sys.argv[1], 'wb').write(plistlib.dumps(d, fmt=plistlib.FMT_BINARY))
)",
              theirs);
    auto read = TWPropertyList::readFile(theirs);
    ASSERT_TRUE(read) << read.error().description().toStdString();
    expectSameTree(QVariantList{qint64(-7), qint64(1) << 62, 2.5, QStringLiteral("Kick \u00e9"),
                                QByteArray("\x00\x01", 2), false, utc("2010-05-06T07:08:09"),
                                QVariantMap{{QStringLiteral("x"), QVariantList{qint64(-3)}}}},
                   *read);
}
