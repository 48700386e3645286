#include "TWPropertyList.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <plist/plist.h>

#include <cstdlib>
#include <limits>

namespace {

QDateTime utc(const char* iso) {
    QDateTime date = QDateTime::fromString(QString::fromLatin1(iso), Qt::ISODateWithMs);
    date.setTimeSpec(Qt::UTC);
    return date;
}

// Every type, nested, with the values that are easy to get wrong: negative and extreme integers, reals that
// look like integers, dates before the reference date, bytes that are not text, XML's special characters.
QVariantMap deepTree() {
    QVariantMap leaf{
        {QStringLiteral("negative"), qint64(-5)},
        {QStringLiteral("minimum"), std::numeric_limits<qint64>::min()},
        {QStringLiteral("maximum"), std::numeric_limits<qint64>::max()},
        {QStringLiteral("zero"), qint64(0)},
        {QStringLiteral("real"), 0.1},
        {QStringLiteral("whole real"), 3.0},
        {QStringLiteral("tiny"), -1e-300},
        {QStringLiteral("yes"), true},
        {QStringLiteral("no"), false},
        {QStringLiteral("bytes"), QByteArray("\x00\x01\xff<&>", 6)},
        {QStringLiteral("empty bytes"), QByteArray()},
        {QStringLiteral("text"), QStringLiteral("a<b>&\"c' \u00e9\u266b \U0001F3B5")},
        {QStringLiteral("empty"), QString()},
        {QStringLiteral("date"), utc("2007-03-04T05:06:07")},
        {QStringLiteral("old date"), utc("1969-07-20T20:17:40")},
    };
    QVariantList entries;
    for (int i = 0; i < 3; ++i)
        entries << QVariantMap{
            {QStringLiteral("Class"), QStringLiteral("TWFileEntry")},
            {QStringLiteral("Path"), QStringLiteral("/tmp/kick %1.wav").arg(i)},
            {QStringLiteral("Children"), QVariantList{leaf, QVariantList{}, QVariantMap{}}}};
    return {
        {QStringLiteral("Entries"), entries},
        {QStringLiteral("leaf"), leaf},
        {QStringLiteral("key with spaces & <marks>"), QVariantList{qint64(1), 2.5, QStringLiteral("three")}}};
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

QString python() {
    return QStandardPaths::findExecutable(QStringLiteral("python3"));
}

// Runs a Python script with plistlib, the reader of another implementation, as the oracle.
QByteArray runPython(const QString& script, const QStringList& arguments) {
    QProcess process;
    process.start(python(), QStringList{QStringLiteral("-c"), script} + arguments);
    if (!process.waitForFinished(30000) || process.exitCode() != 0) {
        ADD_FAILURE() << "python3 failed: " << process.readAllStandardError().toStdString();
        return {};
    }
    return process.readAllStandardOutput();
}

// A binary property list of the given objects (their bytes, object references 4 bytes wide), object 0 on top.
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
    data += bigEndian(quint64(objects.size()), 8) + bigEndian(0, 8) + bigEndian(table, 8);
    return data;
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

TEST(PropertyList, DeepTreeOfEveryTypeRoundTripsThroughXmlAndBinary) {
    const QVariantMap tree = deepTree();

    const QByteArray xml = TWPropertyList::toXml(tree);
    ASSERT_TRUE(xml.startsWith("<?xml"));
    auto fromXml = TWPropertyList::fromData(xml, QStringLiteral("tree.plist"));
    ASSERT_TRUE(fromXml) << fromXml.error().description().toStdString();
    expectSameTree(tree, *fromXml);

    const QByteArray binary = TWPropertyList::toBinary(tree);
    ASSERT_TRUE(binary.startsWith("bplist00"));
    auto fromBinary = TWPropertyList::fromData(binary, QStringLiteral("tree.bplist"));
    ASSERT_TRUE(fromBinary) << fromBinary.error().description().toStdString();
    expectSameTree(tree, *fromBinary);

    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("tree.plist"));
    ASSERT_TRUE(TWPropertyList::writeFile(path, tree));
    auto fromFile = TWPropertyList::readFile(path);
    ASSERT_TRUE(fromFile) << fromFile.error().description().toStdString();
    expectSameTree(tree, *fromFile);
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files),
              QStringList{QStringLiteral("tree.plist")}); // no temporaries
}

// XML has no way to write most control characters, but file names may hold them; libplist writes them raw and
// reads them back, so the file list survives.
TEST(PropertyList, ControlCharactersInStringsSurviveOurOwnXml) {
    const QVariantMap value{{QStringLiteral("Path"), QStringLiteral("/tmp/bell\x07"
                                                                    "and\x01tab\t.wav")}};
    auto read = TWPropertyList::fromData(TWPropertyList::toXml(value), QStringLiteral("control"));
    ASSERT_TRUE(read) << read.error().description().toStdString();
    expectSameTree(value, *read);
}

TEST(PropertyList, DatesKeepWholeSecondsInXmlAndMillisecondsInBinary) {
    const QDateTime before =
        utc("1999-12-31T23:59:59.250"); // before the reference date: floored, not rounded
    const QDateTime after = utc("2024-02-29T12:00:00.750");
    const QVariantList dates{before, after};

    auto xml = TWPropertyList::fromData(TWPropertyList::toXml(dates), QStringLiteral("dates"));
    ASSERT_TRUE(xml);
    EXPECT_EQ(xml->toList()[0].toDateTime(), utc("1999-12-31T23:59:59"));
    EXPECT_EQ(xml->toList()[1].toDateTime(), utc("2024-02-29T12:00:00"));
    EXPECT_EQ(xml->toList()[1].toDateTime().timeSpec(), Qt::UTC);

    auto binary = TWPropertyList::fromData(TWPropertyList::toBinary(dates), QStringLiteral("dates"));
    ASSERT_TRUE(binary);
    EXPECT_EQ(binary->toList()[0].toDateTime(), before);
    EXPECT_EQ(binary->toList()[1].toDateTime(), after);
}

TEST(PropertyList, ReadsABinaryListWrittenByLibplist) {
    plist_t root = plist_new_dict();
    plist_t array = plist_new_array();
    plist_array_append_item(array, plist_new_uint(uint64_t(-42)));
    plist_array_append_item(array, plist_new_real(-0.5));
    plist_array_append_item(array, plist_new_string("Snare"));
    plist_dict_set_item(root, "Workflow", array);
    plist_dict_set_item(root, "Undo Enabled", plist_new_bool(1));
    plist_dict_set_item(root, "Blob", plist_new_data("\x00\x7f\x80", 3));
    plist_dict_set_item(root, "When", plist_new_date(86400, 500000)); // 2001-01-02 00:00:00.5
    char* bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(root, &bytes, &length);
    const QByteArray binary(bytes, qsizetype(length));
    plist_to_bin_free(bytes);
    plist_free(root);

    auto value = TWPropertyList::fromData(binary, QStringLiteral("made.plist"));
    ASSERT_TRUE(value) << value.error().description().toStdString();
    const QVariantMap map = value->toMap();
    expectSameTree(QVariantList{qint64(-42), -0.5, QStringLiteral("Snare")},
                   map.value(QStringLiteral("Workflow")));
    expectSameTree(true, map.value(QStringLiteral("Undo Enabled")));
    expectSameTree(QByteArray("\x00\x7f\x80", 3), map.value(QStringLiteral("Blob")));
    expectSameTree(utc("2001-01-02T00:00:00.500"), map.value(QStringLiteral("When")));
}

TEST(PropertyList, InputThatIsNotAPropertyListIsAnErrorNamingItsOrigin) {
    const QByteArray header = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">";
    const QList<std::pair<const char*, QByteArray>> cases{
        {"empty", QByteArray()},
        {"text", "hello, world\n"},
        {"json", "{\"Undo Enabled\": true}"},
        {"other xml", "<?xml version=\"1.0\"?><html><body/></html>"},
        {"binary garbage", QByteArray("\x00\x13\x37\xff\xfe", 5)},
        {"damaged binary", "bplist00\xd1\x01\x02garbage"},
        {"no closing plist", header + "<dict><key>a</key><integer>1</integer></dict>"},
        {"cut inside a dictionary", header + "<dict><key>a</key><integer>1</int"},
        {"integer that is not a number", header + "<integer>abc</integer></plist>"},
        {"real that is not a number", header + "<real>1.5x</real></plist>"},
        {"key without a value", header + "<dict><key>a</key></dict></plist>"},
        {"value without a key", header + "<dict><string>a</string></dict></plist>"},
        {"unknown element", header + "<array><string>x</string><color/></array></plist>"},
        {"bad base64", header + "<data>*not base64*</data></plist>"},
        {"bad date", header + "<date>yesterday</date></plist>"},
        {"two values", header + "<true/><false/></plist>"},
        {"text in an array", header + "<array>loose<true/></array></plist>"},
        {"empty plist", header + "</plist>"},
    };
    for (const auto& [name, data] : cases) {
        auto value =
            TWPropertyList::fromData(data, QStringLiteral("/prefs/%1.plist").arg(QLatin1String(name)));
        ASSERT_FALSE(value) << name << " was accepted";
        const QString description = value.error().description();
        EXPECT_TRUE(description.contains(QStringLiteral("%1.plist").arg(QLatin1String(name))))
            << description.toStdString();
        EXPECT_TRUE(description.contains(QStringLiteral("not a property list"))) << description.toStdString();
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

    // What would make libplist overflow the stack or expand without end.
    QList<QByteArray> deep, bomb;
    for (quint32 i = 0; i < 100000; ++i)
        deep << arrayOf(1, i + 1);
    deep << QByteArray(1, char(0x09)); // true
    for (quint32 i = 0; i < 40; ++i)
        bomb << arrayOf(2, i + 1); // 2^40 values once every reference is copied
    bomb << QByteArray(1, char(0x09));
    const QList<std::pair<const char*, QByteArray>> hostile{
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
    // The same shapes within bounds read.
    auto shared =
        TWPropertyList::fromData(binaryList({arrayOf(2, 1), arrayOf(2, 2), QByteArray(1, char(0x08))}),
                                 QStringLiteral("shared.plist"));
    ASSERT_TRUE(shared) << shared.error().description().toStdString();
    EXPECT_EQ(*shared, QVariant(QVariantList{QVariantList{false, false}, QVariantList{false, false}}));

    // Well-formed oddities that are property lists all the same.
    for (const QByteArray& good : {header + "<string/></plist>", header + "<array/></plist>",
                                   QByteArray("<dict><key>a</key><integer>0x1F</integer></dict>"),
                                   header + "<data>AAEC\n  /w==</data></plist>"})
        EXPECT_TRUE(TWPropertyList::fromData(good, QStringLiteral("good"))) << good.constData();
}

TEST(PropertyList, FilesThatCannotBeReadOrWrittenSayWhere) {
    QTemporaryDir dir;
    auto missing = TWPropertyList::readFile(dir.filePath(QStringLiteral("missing.plist")));
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().path(), dir.filePath(QStringLiteral("missing.plist")));
    EXPECT_EQ(missing.error().code(), LXErrReadFailed);

    const QString nowhere = dir.filePath(QStringLiteral("no folder/x.plist"));
    auto written = TWPropertyList::writeFile(nowhere, QVariantMap{});
    ASSERT_FALSE(written);
    EXPECT_EQ(written.error().path(), nowhere);
}

TEST(PropertyList, AnotherImplementationReadsWhatWeWriteAndWeReadWhatItWrites) {
    if (python().isEmpty()) GTEST_SKIP() << "python3 not found";
    QTemporaryDir dir;
    const QString ours = dir.filePath(QStringLiteral("ours.plist"));
    ASSERT_TRUE(TWPropertyList::writeFile(ours, deepTree()));

    // plistlib's reading of our file, summarised.
    const QByteArray summary = runPython(QStringLiteral(R"(
import plistlib, sys
d = plistlib.load(open(sys.argv[1], 'rb'))
leaf = d['leaf']
print(leaf['negative'], leaf['minimum'], leaf['maximum'], repr(leaf['real']), repr(leaf['whole real']))
print(leaf['bytes'].hex(), leaf['text'] == 'a<b>&"c\' \u00e9\u266b \U0001F3B5', leaf['old date'].isoformat())
print(len(d['Entries']), d['Entries'][2]['Path'])
)"),
                                         {ours});
    EXPECT_EQ(summary.toStdString(), "-5 -9223372036854775808 9223372036854775807 0.1 3.0\n"
                                     "0001ff3c263e True 1969-07-20T20:17:40\n"
                                     "3 /tmp/kick 2.wav\n");

    // A binary list from plistlib: its integers are signed on disk, its dates doubles.
    const QString theirs = dir.filePath(QStringLiteral("theirs.plist"));
    runPython(QStringLiteral(R"(
import plistlib, sys, datetime
d = {'n': -7, 'big': 2**62, 'r': 2.5, 's': 'Kick \u00e9', 'b': b'\x00\x01', 'ok': False,
     'when': datetime.datetime(2010, 5, 6, 7, 8, 9), 'list': [1, [2, {'x': -3}]]}
open(sys.argv[1], 'wb').write(plistlib.dumps(d, fmt=plistlib.FMT_BINARY))
)"),
              {theirs});
    auto read = TWPropertyList::readFile(theirs);
    ASSERT_TRUE(read) << read.error().description().toStdString();
    const QVariantMap expected{
        {QStringLiteral("n"), qint64(-7)},
        {QStringLiteral("big"), qint64(1) << 62},
        {QStringLiteral("r"), 2.5},
        {QStringLiteral("s"), QStringLiteral("Kick \u00e9")},
        {QStringLiteral("b"), QByteArray("\x00\x01", 2)},
        {QStringLiteral("ok"), false},
        {QStringLiteral("when"), utc("2010-05-06T07:08:09")},
        {QStringLiteral("list"),
         QVariantList{qint64(1), QVariantList{qint64(2), QVariantMap{{QStringLiteral("x"), qint64(-3)}}}}},
    };
    expectSameTree(expected, *read);
}
