#include "IsolatedHome.h"
#include "LXAudioFileWriter.h"
#include "TWMetadataIndex.h"
#include "TWMetadataQuery.h"
#include "TWPredicate.h"
#include "TestAudio.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QTimer>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>

// Readable failures.
static void PrintTo(const QString& text, std::ostream* os) {
    *os << '"' << text.toStdString() << '"';
}

namespace {

// Qt loads the SQLite driver as a plug-in, which needs an application object, and didFinishGathering
// needs an event loop. Made for the tests that need one, unless one is there already.
class ApplicationScope {
public:
    ApplicationScope() {
        if (!QCoreApplication::instance()) m_application = std::make_unique<QCoreApplication>(s_argc, s_argv);
    }

private:
    static inline int s_argc = 1;
    static inline char s_name[] = "platform_tests";
    static inline char* s_argv[] = {s_name, nullptr};
    std::unique_ptr<QCoreApplication> m_application;
};

struct Criterion {
    QString key, comparator, value;
};

// The text a smart group builds from its criteria: each one "(key comparator 'value')", LIKE values
// wrapped in stars, joined with AND or OR, then the fixed audio suffix.
QString smartGroupText(const QList<Criterion>& criteria, bool all = true) {
    QString text;
    for (const Criterion& c : criteria) {
        const QString value = c.comparator == u"LIKE[cd]" ? u'*' + c.value + u'*' : c.value;
        if (!text.isEmpty()) text += all ? QStringLiteral(" AND ") : QStringLiteral(" OR ");
        text += QStringLiteral("(%1 %2 '%3')").arg(c.key, c.comparator, value);
    }
    return text + QStringLiteral(" && (kMDItemContentTypeTree = \"public.audio\")");
}

QString describe(const QString& text) {
    auto p = TWPredicate::parse(text);
    return p ? p->description() : QStringLiteral("error: ") + p.error().message();
}

QString parseError(const QString& text) {
    auto p = TWPredicate::parse(text);
    return p ? QStringLiteral("parsed: ") + p->description() : p.error().message();
}

// Runs the query to the end on this thread's event loop.
bool gather(TWMetadataQuery& query) {
    if (!QCoreApplication::instance()) {
        ADD_FAILURE() << "no application object";
        return false;
    }
    QEventLoop loop;
    bool finished = false;
    const auto connection = QObject::connect(&query, &TWMetadataQuery::didFinishGathering, &loop, [&] {
        finished = true;
        loop.quit();
    });
    QTimer::singleShot(300000, &loop, &QEventLoop::quit);
    query.start();
    EXPECT_TRUE(query.isGathering());
    loop.exec();
    QObject::disconnect(connection);
    EXPECT_FALSE(query.isGathering());
    return finished;
}

// Paths found below the scope, relative to it.
QStringList find(const QString& scope, const QString& text, TWIndexScanStatistics* statistics = nullptr) {
    TWMetadataQuery query;
    QString error;
    if (!query.setPredicate(text, &error)) {
        ADD_FAILURE() << "does not parse: " << text.toStdString() << ": " << error.toStdString();
        return {};
    }
    query.setSearchScopes({scope});
    if (!gather(query)) {
        ADD_FAILURE() << "did not finish: " << text.toStdString();
        return {};
    }
    EXPECT_EQ(query.lastError(), QString()) << text.toStdString();
    if (statistics) *statistics = query.lastScanStatistics();
    QStringList relative;
    for (const QString& path : query.results())
        relative.append(QDir(scope).relativeFilePath(path));
    return relative;
}

QStringList sorted(QStringList list) {
    list.sort();
    return list;
}

TestAudio::Sound sound(double rate, int channels, int64_t frames, uint32_t format = LXFormat::WAVE,
                       LXSampleEncoding encoding = LXSampleEncoding::pcm(16, false)) {
    TestAudio::Sound s;
    s.rate = rate;
    s.channels = channels;
    s.frames = frames;
    s.format = format;
    s.encoding = encoding;
    return s;
}

void writeAudio(const QString& path, const TestAudio::Sound& s) {
    auto written = TestAudio::write(path, s);
    ASSERT_TRUE(written) << written.error().description().toStdString();
}

void writeText(const QString& path, const QByteArray& content) {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
    file.write(content);
}

void setModificationTime(const QString& path, const QDateTime& time) {
    const qint64 ms = time.toMSecsSinceEpoch();
    const timespec times[2] = {{ms / 1000, 0}, {ms / 1000, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times, 0), 0);
}

// ---- Parsing

TEST(Predicate, SmartGroupTextParsesIntoAComparisonAndTheAudioSuffix) {
    const QString text = smartGroupText({{"Name", "LIKE[cd]", "drum"}});
    EXPECT_EQ(text,
              QStringLiteral("(Name LIKE[cd] '*drum*') && (kMDItemContentTypeTree = \"public.audio\")"));
    EXPECT_EQ(describe(text),
              QStringLiteral("(Name LIKE[cd] '*drum*' AND kMDItemContentTypeTree = 'public.audio')"));
}

TEST(Predicate, AndBindsTighterThanOrSoTheSuffixTakesOnlyTheLastCriterion) {
    const QString text =
        smartGroupText({{"Name", "LIKE[cd]", "a"}, {"AudioSampleRate", ">", "44100"}}, /*all=*/false);
    EXPECT_EQ(text, QStringLiteral("(Name LIKE[cd] '*a*') OR (AudioSampleRate > '44100') && "
                                   "(kMDItemContentTypeTree = \"public.audio\")"));
    EXPECT_EQ(describe(text), QStringLiteral("(Name LIKE[cd] '*a*' OR (AudioSampleRate > '44100' AND "
                                             "kMDItemContentTypeTree = 'public.audio'))"));
    // With AND the criteria chain from the left.
    EXPECT_EQ(describe(smartGroupText({{"Name", "LIKE[cd]", "a"}, {"AudioChannelCount", "=", "2"}})),
              QStringLiteral("((Name LIKE[cd] '*a*' AND AudioChannelCount = '2') AND "
                             "kMDItemContentTypeTree = 'public.audio')"));
    // Keywords in any case and symbols; NOT binds tightest; parentheses override.
    EXPECT_EQ(describe("Name = 'a' or Name = 'b' and not Name = 'c'"),
              QStringLiteral("(Name = 'a' OR (Name = 'b' AND (NOT Name = 'c')))"));
    EXPECT_EQ(describe("(Name = 'a' || Name = 'b') && !(Name = 'c')"),
              QStringLiteral("((Name = 'a' OR Name = 'b') AND (NOT Name = 'c'))"));
}

// The spellings the queries below do not run.
TEST(Predicate, OperatorSpellingsParse) {
    for (const char* text : {"Name CONTAINS[c] 'x'", "Name != 'x'", "Name <> 'x'", "Duration => 1",
                             "Duration =< 1e1", "AudioChannelCount = -1", "TRUEPREDICATE"})
        EXPECT_TRUE(TWPredicate::parse(QString::fromUtf8(text))) << text;
    EXPECT_FALSE(TWPredicate::parse(QStringLiteral("like like 'x'"))) << "keys are case-sensitive";
}

TEST(Predicate, QuotesAndEscapesGiveTheValueBack) {
    // An apostrophe inside double quotes, or escaped inside single ones.
    EXPECT_EQ(describe("(Name LIKE[cd] \"*o'neil*\")"), QStringLiteral("Name LIKE[cd] '*o\\'neil*'"));
    EXPECT_EQ(describe("(Name LIKE[cd] '*o\\'neil*')"), QStringLiteral("Name LIKE[cd] '*o\\'neil*'"));
    EXPECT_EQ(describe("Name = \"say \\\"hi\\\"\""), QStringLiteral("Name = 'say \"hi\"'"));
    EXPECT_EQ(describe("Name = 'caf\\u00e9'"), QStringLiteral("Name = 'caf\u00e9'"));
    // Values are bound, never pasted into the SQL.
    auto p = TWPredicate::parse("(Name = 'x\\' OR 1=1 --')");
    ASSERT_TRUE(p);
    EXPECT_FALSE(p->sqlWhere().contains(QStringLiteral("1=1")));
    EXPECT_EQ(p->bindings(), QVariantList{QStringLiteral("x' OR 1=1 --")});
}

TEST(Predicate, FailuresSayWhatAndWhere) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "the predicate is empty"},
        {"(Name LIKE[cd] 'a'))", "unexpected ')' at character 20"},
        {"(Name LIKE[cd] 'a'", "missing ')' to close the '(' at character 1"},
        {"(Name LIKE[cd] 'a' (", "expected ')' but found '(' at character 20"},
        {"(Colour = 'red')", "unknown key 'Colour' at character 2"},
        {"(name = 'a')", "unknown key 'name' at character 2"},
        {"(Name LIKE[cd] 'abc)", "unterminated string starting at character 16"},
        {"(Name 'a')", "expected an operator after 'Name' but found the string 'a' at character 7"},
        {"(Name =)", "expected a value after 'Name =' but found ')' at character 8"},
        {"(Name = 'a') AND", "unexpected end of the predicate"},
        {"(Name = 'a') # x", "unexpected character '#' at character 14"},
        {"(Name LIKE[x] 'a')", "unknown modifier 'x' in 'LIKE[x]' at character 7"},
        {"(Name > 'a')", "> does not apply to Name, a text at character 7"},
        {"(AudioSampleRate LIKE[cd] '*4*')",
         "LIKE[cd] does not apply to AudioSampleRate, a number at character 18"},
        {"(AudioSampleRate > 'fast')", "'fast' is not a number, as AudioSampleRate needs at character 20"},
        {"(ContentCreationDate < 'soon')",
         "'soon' is not a date, as ContentCreationDate needs at character 24"},
        {"(ContentCreationDate LIKE 'soon')",
         "LIKE does not apply to ContentCreationDate, a date at character 22"},
        {"(kMDItemContentTypeTree > 'a')",
         "> does not apply to kMDItemContentTypeTree, a list of types at character 25"},
        {"(Name MATCHES 'a.*')", "'MATCHES' is not supported at character 7"},
    };
    for (const auto& [text, message] : cases)
        EXPECT_EQ(parseError(QString::fromUtf8(text)), QString::fromUtf8(message)) << text;

    TWMetadataQuery query;
    QString error;
    EXPECT_FALSE(query.setPredicate(QStringLiteral("(Name LIKE[cd] 'a'))"), &error));
    EXPECT_EQ(error, QStringLiteral("unexpected ')' at character 20"));
}

TEST(Predicate, DatesAreTheSpansTheyName) {
    auto bounds = [](const QString& text) {
        auto p = TWPredicate::parse(QStringLiteral("ContentModificationDate = '%1'").arg(text));
        EXPECT_TRUE(p) << text.toStdString();
        return p ? p->bindings() : QVariantList{};
    };
    auto seconds = [](const QDateTime& t) { return QVariant(double(t.toMSecsSinceEpoch()) / 1000.0); };
    const QDateTime day(QDate(2024, 3, 5), QTime(0, 0));
    EXPECT_EQ(bounds("2024-03-05"), (QVariantList{seconds(day), seconds(day.addDays(1))}));
    EXPECT_EQ(bounds("5 March 2024"), bounds("2024-03-05"));
    EXPECT_EQ(bounds("March 5, 2024"), bounds("2024-03-05"));
    EXPECT_EQ(bounds("2024/03/05"), bounds("2024-03-05"));
    EXPECT_EQ(bounds("2024-03-05 14:30"),
              (QVariantList{seconds(day.addSecs(52200)), seconds(day.addSecs(52260))}));
    EXPECT_EQ(bounds("2024-03-05T14:30:15Z"), (QVariantList{1709649015.0, 1709649016.0}));
    EXPECT_EQ(bounds("2024-03"), (QVariantList{seconds(QDateTime(QDate(2024, 3, 1), QTime(0, 0))),
                                               seconds(QDateTime(QDate(2024, 4, 1), QTime(0, 0)))}));
    // "is after" (<) ends before the span, "is before" (>) starts after it.
    auto after = TWPredicate::parse("ContentModificationDate > '2024-03-05'");
    ASSERT_TRUE(after);
    EXPECT_EQ(after->bindings(), QVariantList{seconds(day.addDays(1))});
}

TEST(QueryKeys, TheMenuResourceDescribesEveryKeyThePredicateAccepts) {
    const QVariantList items = TWQueryKeys::menuItems();
    ASSERT_GE(items.size(), 19);
    const QVariantMap first = items.first().toMap();
    EXPECT_EQ(first.value("key").toString(), QStringLiteral("Name"));
    EXPECT_EQ(first.value("class").toString(), QStringLiteral("NSString"));
    QStringList keys;
    for (const QVariant& item : items) {
        const QVariantMap map = item.toMap();
        const QString key = map.value("key").toString();
        keys.append(key);
        EXPECT_FALSE(map.value("name").toString().isEmpty()) << key.toStdString();
        EXPECT_TRUE(map.contains("digits") && map.contains("units")) << key.toStdString();
        const QString cls = map.value("class").toString();
        EXPECT_TRUE(QStringList({"NSString", "NSNumber", "NSDate", "NSArray"}).contains(cls))
            << key.toStdString();
        if (cls == u"NSArray") {
            const QVariantList values = map.value("values").toList();
            ASSERT_FALSE(values.isEmpty()) << key.toStdString();
            for (const QVariant& v : values) {
                EXPECT_TRUE(v.toMap().contains("label")) << key.toStdString();
                // What the pop-up writes must parse with the pop-up's operator.
                const QString text =
                    QStringLiteral("(%1 BEGINSWITH '%2')").arg(key, v.toMap().value("value").toString());
                EXPECT_TRUE(TWPredicate::parse(text)) << text.toStdString();
            }
        }
    }
    for (const char* key : {"Name", "ContentModificationDate", "AudioSampleRate", "kMDItemContentTypeTree"})
        EXPECT_TRUE(keys.contains(QLatin1String(key))) << key;
    EXPECT_EQ(keys, TWQueryKeys::keys());
}

// ---- Queries over a folder of generated files

class MetadataQuery : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_application = new ApplicationScope;
        s_home = new IsolatedHome;
        s_library = s_home->path(QStringLiteral("Samples"));
        const QDir dir(s_library);
        ASSERT_TRUE(QDir().mkpath(s_library + "/sub"));
        ASSERT_TRUE(QDir().mkpath(s_library + "/Drums"));
        writeAudio(s_library + "/Kick Drum 44k.wav", sound(44100, 1, 4410));
        writeAudio(s_library + "/Snare drum 48k.wav", sound(48000, 2, 48000));
        writeAudio(s_library + "/Hat 96k.aif",
                   sound(96000, 2, 9600, LXFormat::AIFF, LXSampleEncoding::pcm(24, true)));
        writeAudio(s_library + "/Pad 22k.wav", sound(22050, 4, 44100));
        writeAudio(s_library + "/sub/Drum loop.wav",
                   sound(48000, 1, 24000, LXFormat::WAVE, LXSampleEncoding::ieeeFloat(32, false)));
        writeAudio(s_library + QStringLiteral("/Caf\u00e9 Cr\u00e8me.wav"), sound(44100, 2, 441));
        writeAudio(s_library + "/Drums/.hidden drum.wav", sound(44100, 1, 100));
        writeText(s_library + "/drum notes.txt", "kick, snare\n");
        writeText(s_library + "/broken drum.wav", QByteArray(2000, 'x'));
        // Tags written by a program other than ours, in FLAC comments.
        if (TestAudio::haveTool("sox")) {
            auto bells = TestAudio::generateWithSox(
                s_library + "/Bells.flac",
                {"-n", "--comment", "TITLE=Morning Bells", "--add-comment",
                 QStringLiteral("ARTIST=Ana N\u00fa\u00f1ez"), "-r", "32000", "-c", "1", "-b", "16"},
                {"synth", "0.2", "sine", "880"});
            ASSERT_TRUE(bells) << bells.error().description().toStdString();
        }
        // Musical properties and text through our writer (acid, smpl and INFO chunks).
        LXAudioFileWriter writer(s_library);
        writer.setFormat(LXFormat::WAVE);
        writer.setRate(44100);
        writer.setChannels(2);
        writer.setEncoding(LXSampleEncoding::pcm(16, false));
        writer.metadata().setValue("title", "Groove Thing");
        writer.metadata().setValue("artist", QStringLiteral("Zo\u00eb"));
        writer.metadata().setValue("genre", "Funk");
        writer.metadata().setValue("comments", QStringLiteral("Recorded at the caf\u00e9"));
        writer.metadata().setValue("tempo", 98.5);
        writer.metadata().setValue("key", 9);
        writer.metadata().setValue("baseNote", 57);
        const std::vector<float> silence(200 * 2, 0.0f);
        ASSERT_TRUE(writer.writeFrames(silence.data(), 200));
        ASSERT_TRUE(writer.endWrite());
        ASSERT_TRUE(writer.saveFile(0, s_library + "/Groove.wav"));
        setModificationTime(s_library + "/Kick Drum 44k.wav",
                            QDateTime(QDate(2020, 6, 15), QTime(12, 0, 30)));
    }
    static void TearDownTestSuite() {
        delete s_home;
        s_home = nullptr;
        delete s_application;
        s_application = nullptr;
    }

    static QStringList audio(const QList<Criterion>& criteria, bool all = true) {
        return sorted(find(s_library, smartGroupText(criteria, all)));
    }
    static QStringList plain(const QString& text) { return sorted(find(s_library, text)); }

    static ApplicationScope* s_application;
    static IsolatedHome* s_home;
    static QString s_library;
};
ApplicationScope* MetadataQuery::s_application = nullptr;
IsolatedHome* MetadataQuery::s_home = nullptr;
QString MetadataQuery::s_library;

TEST_F(MetadataQuery, NameContainsFindsAudioFilesOnly) {
    // Not the text file, the folder, the damaged file or the hidden one, whatever their names.
    EXPECT_EQ(audio({{"Name", "LIKE[cd]", "drum"}}),
              QStringList({"Kick Drum 44k.wav", "Snare drum 48k.wav", "sub/Drum loop.wav"}));
    EXPECT_EQ(QFileInfo(TWMetadataIndex::defaultDatabasePath()).absolutePath(),
              s_home->path(QStringLiteral(".cache/Clipwright")));
    EXPECT_TRUE(QFile::exists(s_home->path(QStringLiteral(".cache/Clipwright/index.sqlite"))));
}

TEST_F(MetadataQuery, NumbersCompareNumerically) {
    EXPECT_EQ(audio({{"AudioSampleRate", ">", "44100"}}),
              QStringList({"Hat 96k.aif", "Snare drum 48k.wav", "sub/Drum loop.wav"}));
    EXPECT_EQ(audio({{"AudioSampleRate", "<=", "32000"}}), QStringList({"Bells.flac", "Pad 22k.wav"}));
    EXPECT_EQ(audio({{"AudioChannelCount", "=", "2"}}),
              QStringList({QStringLiteral("Caf\u00e9 Cr\u00e8me.wav"), "Groove.wav", "Hat 96k.aif",
                           "Snare drum 48k.wav"}));
    EXPECT_EQ(audio({{"AudioBitDepth", "=", "24"}}), QStringList({"Hat 96k.aif"}));
    EXPECT_EQ(audio({{"AudioBitDepth", "=", "32"}}), QStringList({"sub/Drum loop.wav"}));
    // Durations at the precision typed: 0.1 s is the kick's 4410 frames at 44.1 kHz.
    EXPECT_EQ(audio({{"Duration", "=", "0.1"}}), QStringList({"Hat 96k.aif", "Kick Drum 44k.wav"}));
    EXPECT_EQ(audio({{"Duration", ">=", "1"}}), QStringList({"Pad 22k.wav", "Snare drum 48k.wav"}));
    // Sizes in KB: 192 KB of stereo 48 kHz and 353 KB of four channels at 22 kHz.
    EXPECT_EQ(audio({{"FSSize", ">", "150"}}), QStringList({"Pad 22k.wav", "Snare drum 48k.wav"}));
}

TEST_F(MetadataQuery, CriteriaJoinWithAndOrOr) {
    EXPECT_EQ(audio({{"Name", "LIKE[cd]", "drum"}, {"AudioSampleRate", ">", "44100"}}),
              QStringList({"Snare drum 48k.wav", "sub/Drum loop.wav"}));
    // With OR the audio suffix binds to the last criterion only: the first one finds the folder, the
    // text file and the damaged file too.
    EXPECT_EQ(audio({{"Name", "LIKE[cd]", "drum"}, {"AudioChannelCount", "=", "4"}}, /*all=*/false),
              QStringList({"Drums", "Kick Drum 44k.wav", "Pad 22k.wav", "Snare drum 48k.wav",
                           "broken drum.wav", "drum notes.txt", "sub/Drum loop.wav"}));
    // A missing value compares false, so NOT of it is true (folders have no sample rate).
    EXPECT_EQ(plain("NOT (AudioSampleRate > '1') AND NOT (Name LIKE[cd] '*drum*')"), QStringList({"sub"}));
    EXPECT_EQ(plain("NOT (AudioSampleRate > '44100') && (kMDItemContentTypeTree = \"public.audio\")"),
              QStringList({"Bells.flac", QStringLiteral("Caf\u00e9 Cr\u00e8me.wav"), "Groove.wav",
                           "Kick Drum 44k.wav", "Pad 22k.wav"}));
}

TEST_F(MetadataQuery, TextComparesWithoutCaseAndAccentsOnlyWhenAsked) {
    EXPECT_EQ(audio({{"Name", "BEGINSWITH[cd]", "CAFE cr"}}),
              QStringList({QStringLiteral("Caf\u00e9 Cr\u00e8me.wav")}));
    EXPECT_EQ(plain("Name BEGINSWITH 'Cafe'"), QStringList());
    EXPECT_EQ(plain(QStringLiteral("Name BEGINSWITH 'Caf\u00e9'")),
              QStringList({QStringLiteral("Caf\u00e9 Cr\u00e8me.wav")}));
    EXPECT_EQ(audio({{"Name", "ENDSWITH[cd]", "48K.WAV"}}), QStringList({"Snare drum 48k.wav"}));
    EXPECT_EQ(plain("Name LIKE[cd] '*44k.wa?'"), QStringList({"Kick Drum 44k.wav"}));
    EXPECT_EQ(plain("Name LIKE 'kick*'"), QStringList());
}

TEST_F(MetadataQuery, TypesAndKinds) {
    EXPECT_EQ(plain("(kMDItemContentTypeTree = 'public.aiff-audio')"), QStringList({"Hat 96k.aif"}));
    EXPECT_EQ(plain("(Kind BEGINSWITH 'public.folder')"), QStringList({"Drums", "sub"}));
    if (TestAudio::haveTool("sox")) {
        EXPECT_EQ(plain("(kMDItemContentTypeTree BEGINSWITH 'org.xiph')"), QStringList({"Bells.flac"}));
    }
    EXPECT_EQ(plain("(Kind BEGINSWITH 'public.data')"), QStringList({"broken drum.wav", "drum notes.txt"}));
}

TEST_F(MetadataQuery, MetadataOfTheFiles) {
    if (TestAudio::haveTool("sox")) {
        EXPECT_EQ(audio({{"Title", "LIKE[cd]", "bells"}}), QStringList({"Bells.flac"}));
        EXPECT_EQ(audio({{"Artist", "BEGINSWITH[cd]", "ana nunez"}}), QStringList({"Bells.flac"}));
    }
    EXPECT_EQ(audio({{"Artist", "LIKE[cd]", "zoe"}}), QStringList({"Groove.wav"}));
    EXPECT_EQ(audio({{"Genre", "BEGINSWITH[cd]", "funk"}}), QStringList({"Groove.wav"}));
    EXPECT_EQ(audio({{"Comment", "LIKE[cd]", "cafe"}}), QStringList({"Groove.wav"}));
    EXPECT_EQ(audio({{"Tempo", "=", "98.5"}}), QStringList({"Groove.wav"}));
    EXPECT_EQ(audio({{"Tempo", ">", "99"}}), QStringList());
    EXPECT_EQ(audio({{"KeySignature", "BEGINSWITH", "9"}}), QStringList({"Groove.wav"}));
    EXPECT_EQ(audio({{"KeySignature", "BEGINSWITH", "1"}}), QStringList());
    EXPECT_EQ(audio({{"BaseNote", "=", "57"}}), QStringList({"Groove.wav"}));
}

TEST_F(MetadataQuery, DatesCompareAsDates) {
    EXPECT_EQ(audio({{"ContentModificationDate", "=", "2020-06-15"}}), QStringList({"Kick Drum 44k.wav"}));
    EXPECT_EQ(audio({{"ContentModificationDate", "=", "15 June 2020"}}), QStringList({"Kick Drum 44k.wav"}));
    EXPECT_EQ(audio({{"ContentModificationDate", "=", "2020-06-15 12:00"}}),
              QStringList({"Kick Drum 44k.wav"}));
    EXPECT_EQ(audio({{"ContentModificationDate", "=", "2020-06-15 12:01"}}), QStringList());
    EXPECT_EQ(audio({{"ContentModificationDate", "<", "2021"}}), QStringList({"Kick Drum 44k.wav"}));
    const qsizetype audioFiles = TestAudio::haveTool("sox") ? 8 : 7;
    EXPECT_EQ(audio({{"ContentModificationDate", ">", "2020-06-15"}}).size(), audioFiles - 1);
    EXPECT_EQ(audio({{"ContentCreationDate", ">", "2001-01-01"}}).size(), audioFiles);
}

TEST_F(MetadataQuery, EveryKeyOfTheMenuRunsAgainstTheIndex) {
    for (const QVariant& item : TWQueryKeys::menuItems()) {
        const QVariantMap map = item.toMap();
        const QString key = map.value("key").toString(), cls = map.value("class").toString();
        const Criterion c =
            cls == u"NSString"   ? Criterion{key, "LIKE[cd]", "x"}
            : cls == u"NSNumber" ? Criterion{key, ">=", "0"}
            : cls == u"NSDate"
                ? Criterion{key, "<", "2100-01-01"}
                : Criterion{key, "BEGINSWITH",
                            map.value("values").toList().first().toMap().value("value").toString()};
        TWMetadataQuery query;
        ASSERT_TRUE(query.setPredicate(smartGroupText({c}))) << key.toStdString();
        query.setSearchScopes({s_library});
        ASSERT_TRUE(gather(query));
        EXPECT_EQ(query.lastError(), QString()) << key.toStdString();
    }
}

// ---- Incremental scanning

class MetadataIndexScan : public ::testing::Test {
protected:
    void SetUp() override {
        m_folder = m_home.path(QStringLiteral("Music/Loops"));
        ASSERT_TRUE(QDir().mkpath(m_folder));
    }
    QString file(int i) const { return m_folder + QStringLiteral("/loop %1.wav").arg(i, 3, 10, QChar(u'0')); }
    // Our writer syncs every file it saves, which makes hundreds slow: two are written, the rest copied.
    void writeLoops(int count) {
        QByteArray models[2];
        for (int m = 0; m < 2; ++m) {
            const QString path = m_home.path(QStringLiteral("model %1.wav").arg(m));
            writeAudio(path, sound(m ? 48000 : 44100, 1 + m, 100));
            QFile file(path);
            ASSERT_TRUE(file.open(QIODevice::ReadOnly));
            models[m] = file.readAll();
        }
        for (int i = 0; i < count; ++i)
            writeText(file(i), models[i % 2]);
    }

    ApplicationScope m_application;
    IsolatedHome m_home;
    QString m_folder;
};

TEST_F(MetadataIndexScan, ARescanOfAnUnchangedFolderOpensNoFile) {
    writeLoops(20);
    const QString all = smartGroupText({{"Name", "LIKE[cd]", "loop"}});
    TWIndexScanStatistics first, second;
    const int64_t before = TWMetadataIndex::audioFilesOpened();
    EXPECT_EQ(find(m_folder, all, &first).size(), 20);
    EXPECT_EQ(TWMetadataIndex::audioFilesOpened() - before, 20);
    EXPECT_EQ(first.opened, 20);
    EXPECT_EQ(first.files, 20);

    EXPECT_EQ(find(m_folder, all, &second).size(), 20);
    EXPECT_EQ(TWMetadataIndex::audioFilesOpened() - before, 20);
    EXPECT_EQ(second.opened, 0);
    EXPECT_EQ(second.updated, 0);
    EXPECT_EQ(second.files, 20);

    // A scope above the first one finds the rows already there.
    TWIndexScanStatistics third;
    EXPECT_EQ(find(m_home.path("Music"), all, &third).size(), 20);
    EXPECT_EQ(third.opened, 0);
    EXPECT_EQ(third.updated, 1); // the folder Loops itself
}

TEST_F(MetadataIndexScan, RenamedAddedRemovedAndRewrittenFilesAreSeenOnTheNextRun) {
    writeLoops(10);
    const QString all = smartGroupText({{"Name", "LIKE[cd]", "loop"}});
    EXPECT_EQ(find(m_folder, all).size(), 10);

    ASSERT_TRUE(QFile::rename(file(0), m_folder + "/renamed loop.wav"));
    ASSERT_TRUE(QFile::remove(file(1)));
    writeAudio(m_folder + "/new loop.wav", sound(96000, 2, 100));
    writeAudio(file(2), sound(88200, 1, 100)); // same name, new content

    TWIndexScanStatistics stats;
    const QStringList found = sorted(find(m_folder, all, &stats));
    EXPECT_EQ(found.size(), 10);
    EXPECT_TRUE(found.contains("renamed loop.wav"));
    EXPECT_TRUE(found.contains("new loop.wav"));
    EXPECT_FALSE(found.contains("loop 000.wav"));
    EXPECT_FALSE(found.contains("loop 001.wav"));
    EXPECT_EQ(stats.opened, 3);
    EXPECT_EQ(stats.removed, 2);
    EXPECT_EQ(find(m_folder, smartGroupText({{"AudioSampleRate", "=", "88200"}})),
              QStringList({"loop 002.wav"}));
    EXPECT_EQ(find(m_folder, smartGroupText({{"AudioSampleRate", ">", "88200"}})),
              QStringList({"new loop.wav"}));

    // A scope that vanished loses its rows.
    ASSERT_TRUE(QDir(m_folder).removeRecursively());
    EXPECT_EQ(find(m_folder, all, &stats), QStringList());
    EXPECT_EQ(stats.removed, 10);
    auto row = TWMetadataIndex().record(m_folder + "/new loop.wav");
    ASSERT_TRUE(row);
    EXPECT_TRUE(row->isEmpty());
}

TEST_F(MetadataIndexScan, RowsHoldWhatTheFrameworkReads) {
    writeAudio(m_folder + "/tone.aif",
               sound(48000, 2, 4800, LXFormat::AIFF, LXSampleEncoding::pcm(24, true)));
    TWMetadataIndex index;
    auto scanned = index.scan(m_folder);
    ASSERT_TRUE(scanned) << scanned.error().description().toStdString();
    auto row = index.record(m_folder + "/tone.aif");
    ASSERT_TRUE(row);
    EXPECT_EQ(row->value("kind").toString(), QStringLiteral("public.audio"));
    EXPECT_EQ(row->value("types").toString(),
              QStringLiteral("|public.aiff-audio|public.audio|public.data|public.item|public.content|"));
    EXPECT_EQ(row->value("format").toString(), QStringLiteral("AIFF"));
    EXPECT_EQ(row->value("rate").toDouble(), 48000.0);
    EXPECT_EQ(row->value("channels").toInt(), 2);
    EXPECT_EQ(row->value("bits").toInt(), 24);
    EXPECT_EQ(row->value("samples").toLongLong(), 4800);
    EXPECT_DOUBLE_EQ(row->value("duration").toDouble(), 0.1);
    EXPECT_EQ(row->value("size").toLongLong(), QFileInfo(m_folder + "/tone.aif").size());
    EXPECT_EQ(row->value("directory").toString(), m_folder);
    EXPECT_NEAR(row->value("modified").toDouble(),
                double(QFileInfo(m_folder + "/tone.aif").lastModified().toMSecsSinceEpoch()) / 1000.0, 0.001);
}

TEST_F(MetadataIndexScan, ADamagedIndexIsRebuilt) {
    writeLoops(3);
    const QString database = TWMetadataIndex::defaultDatabasePath();
    ASSERT_TRUE(QDir().mkpath(QFileInfo(database).absolutePath()));
    writeText(database, QByteArray(4096, '\x5a'));
    EXPECT_EQ(find(m_folder, smartGroupText({{"Name", "LIKE[cd]", "loop"}})).size(), 3);
}

TEST_F(MetadataIndexScan, StopAndDestructionWhileGatheringAreSafe) {
    writeLoops(2000); // a scan of about 0.1 s, so that the interruptions fall inside it
    const QString all = smartGroupText({{"Name", "LIKE[cd]", "loop"}});
    {
        auto query = std::make_unique<TWMetadataQuery>();
        ASSERT_TRUE(query->setPredicate(all));
        query->setSearchScopes({m_folder});
        query->start();
        query.reset(); // mid-scan
    }
    {
        TWMetadataQuery query;
        ASSERT_TRUE(query.setPredicate(all));
        query.setSearchScopes({m_folder});
        int finished = 0;
        QObject::connect(&query, &TWMetadataQuery::didFinishGathering, [&] { ++finished; });
        query.start();
        query.stop();
        EXPECT_FALSE(query.isGathering());
        // Whatever the thread posted before stop() returned is delivered now: it must not report.
        QCoreApplication::sendPostedEvents();
        EXPECT_EQ(finished, 0);
        // The same object runs again, and the interrupted scans left nothing wrong behind.
        ASSERT_TRUE(gather(query));
        EXPECT_EQ(finished, 1);
        EXPECT_EQ(query.results().size(), 2000);
    }
    TWIndexScanStatistics stats;
    EXPECT_EQ(find(m_folder, all, &stats).size(), 2000);
    EXPECT_EQ(stats.opened, 0);
}

TEST_F(MetadataIndexScan, QueriesRunningTogetherShareTheWork) {
    writeLoops(60);
    const QString all = smartGroupText({{"Name", "LIKE[cd]", "loop"}});
    std::vector<std::unique_ptr<TWMetadataQuery>> queries;
    int finished = 0;
    QEventLoop loop;
    for (int i = 0; i < 3; ++i) {
        queries.push_back(std::make_unique<TWMetadataQuery>());
        ASSERT_TRUE(queries.back()->setPredicate(all));
        queries.back()->setSearchScopes({i == 2 ? m_home.path("Music") : m_folder});
        QObject::connect(queries.back().get(), &TWMetadataQuery::didFinishGathering, [&] {
            if (++finished == 3) loop.quit();
        });
    }
    for (auto& query : queries)
        query->start();
    QTimer::singleShot(300000, &loop, &QEventLoop::quit);
    loop.exec();
    ASSERT_EQ(finished, 3);
    int64_t opened = 0;
    for (auto& query : queries) {
        EXPECT_EQ(query->results().size(), 60);
        EXPECT_EQ(query->lastError(), QString());
        opened += query->lastScanStatistics().opened;
    }
    EXPECT_EQ(opened, 60); // each file read once, by whichever scan came first
}

} // namespace
