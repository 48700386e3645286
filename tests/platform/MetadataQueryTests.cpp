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

// Paths found below the scope, relative to it, sorted.
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
    relative.sort();
    return relative;
}

TestAudio::Sound sound(double rate, int channels, int64_t frames, uint32_t format = LXFormat::WAVE,
                       LXSampleEncoding encoding = LXSampleEncoding::pcm(16, false)) {
    return {.rate = rate, .channels = channels, .frames = frames, .format = format, .encoding = encoding};
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

TEST(Predicate, AndBindsTighterThanOrSoTheSuffixTakesOnlyTheLastCriterion) {
    EXPECT_EQ(smartGroupText({{"Name", "LIKE[cd]", "drum"}}),
              QStringLiteral("(Name LIKE[cd] '*drum*') && (kMDItemContentTypeTree = \"public.audio\")"));
    const std::pair<QString, const char*> cases[] = {
        {smartGroupText({{"Name", "LIKE[cd]", "drum"}}),
         "(Name LIKE[cd] '*drum*' AND kMDItemContentTypeTree = 'public.audio')"},
        // With OR the suffix takes only the last criterion; with AND the criteria chain from the left.
        {smartGroupText({{"Name", "LIKE[cd]", "a"}, {"AudioSampleRate", ">", "44100"}}, /*all=*/false),
         "(Name LIKE[cd] '*a*' OR (AudioSampleRate > '44100' AND kMDItemContentTypeTree = 'public.audio'))"},
        {smartGroupText({{"Name", "LIKE[cd]", "a"}, {"AudioChannelCount", "=", "2"}}),
         "((Name LIKE[cd] '*a*' AND AudioChannelCount = '2') AND kMDItemContentTypeTree = 'public.audio')"},
        // Keywords in any case and symbols; parentheses override.
        {"Name = 'a' or Name = 'b' and not Name = 'c'", "(Name = 'a' OR (Name = 'b' AND (NOT Name = 'c')))"},
        {"(Name = 'a' || Name = 'b') && !(Name = 'c')", "((Name = 'a' OR Name = 'b') AND (NOT Name = 'c'))"},
        // An apostrophe inside double quotes or escaped inside single ones; escaped quotes and code points.
        {"(Name LIKE[cd] \"*o'neil*\")", "Name LIKE[cd] '*o\\'neil*'"},
        {"(Name LIKE[cd] '*o\\'neil*')", "Name LIKE[cd] '*o\\'neil*'"},
        {"Name = \"say \\\"hi\\\"\"", "Name = 'say \"hi\"'"},
        {"Name = 'caf\\u00e9'", "Name = 'caf\u00e9'"},
    };
    for (const auto& [text, description] : cases)
        EXPECT_EQ(describe(text), QString::fromUtf8(description)) << text.toStdString();
    // Values are bound, never pasted into the SQL.
    auto p = TWPredicate::parse("(Name = 'x\\' OR 1=1 --')");
    ASSERT_TRUE(p);
    EXPECT_FALSE(p->sqlWhere().contains(QStringLiteral("1=1")));
    EXPECT_EQ(p->bindings(), QVariantList{QStringLiteral("x' OR 1=1 --")});
}

// The spellings the queries below do not run.
TEST(Predicate, OperatorSpellingsParse) {
    for (const char* text : {"Name CONTAINS[c] 'x'", "Name != 'x'", "Name <> 'x'", "Duration => 1",
                             "Duration =< 1e1", "AudioChannelCount = -1", "TRUEPREDICATE"})
        EXPECT_TRUE(TWPredicate::parse(QString::fromUtf8(text))) << text;
    EXPECT_FALSE(TWPredicate::parse(QStringLiteral("like like 'x'"))) << "keys are case-sensitive";
}

TEST(Predicate, FailuresSayWhatAndWhere) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "the predicate is empty"},
        {"(Name LIKE[cd] 'a'))", "unexpected ')' at character 20"},
        {"(Name LIKE[cd] 'a'", "missing ')' to close the '(' at character 1"},
        {"(Name LIKE[cd] 'a' (", "expected ')' but found '(' at character 20"},
        {"(Colour = 'red')", "unknown key 'Colour' at character 2"},
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
        {"(kMDItemContentTypeTree > 'a')",
         "> does not apply to kMDItemContentTypeTree, a list of types at character 25"},
        {"(Name MATCHES 'a.*')", "'MATCHES' is not supported at character 7"},
    };
    for (const auto& [text, message] : cases) {
        QString error;
        EXPECT_FALSE(TWMetadataQuery().setPredicate(QString::fromUtf8(text), &error)) << text;
        EXPECT_EQ(error, QString::fromUtf8(message));
    }
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
    for (const char* same : {"5 March 2024", "March 5, 2024", "2024/03/05"})
        EXPECT_EQ(bounds(same), bounds("2024-03-05")) << same;
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

    static QStringList plain(const QString& text) { return find(s_library, text); }

    static ApplicationScope* s_application;
    static IsolatedHome* s_home;
    static QString s_library;
};
ApplicationScope* MetadataQuery::s_application = nullptr;
IsolatedHome* MetadataQuery::s_home = nullptr;
QString MetadataQuery::s_library;

TEST_F(MetadataQuery, EachCriterionFindsExactlyTheFilesItDescribes) {
    const bool sox = TestAudio::haveTool("sox"); // Bells.flac, tagged by another program
    auto a = [](const char* criteria) {
        return QString::fromUtf8(criteria) +
               QStringLiteral(" && (kMDItemContentTypeTree = \"public.audio\")");
    };
    const QString cafe = QStringLiteral("Caf\u00e9 Cr\u00e8me.wav");
    const struct {
        QString text;
        QStringList found;
    } cases[] = {
        // Not the text file, the folder, the damaged file or the hidden one, whatever their names.
        {a("(Name LIKE[cd] '*drum*')"), {"Kick Drum 44k.wav", "Snare drum 48k.wav", "sub/Drum loop.wav"}},
        // Numbers compare as numbers.
        {a("(AudioSampleRate > '44100')"), {"Hat 96k.aif", "Snare drum 48k.wav", "sub/Drum loop.wav"}},
        {a("(AudioSampleRate <= '32000')"),
         sox ? QStringList{"Bells.flac", "Pad 22k.wav"} : QStringList{"Pad 22k.wav"}},
        {a("(AudioChannelCount = '2')"), {cafe, "Groove.wav", "Hat 96k.aif", "Snare drum 48k.wav"}},
        {a("(AudioBitDepth = '24')"), {"Hat 96k.aif"}},
        {a("(AudioBitDepth = '32')"), {"sub/Drum loop.wav"}},
        // Durations at the precision typed: 0.1 s is the kick's 4410 frames at 44.1 kHz.
        {a("(Duration = '0.1')"), {"Hat 96k.aif", "Kick Drum 44k.wav"}},
        {a("(Duration >= '1')"), {"Pad 22k.wav", "Snare drum 48k.wav"}},
        // Sizes in KB: 192 KB of stereo 48 kHz and 353 KB of four channels at 22 kHz.
        {a("(FSSize > '150')"), {"Pad 22k.wav", "Snare drum 48k.wav"}},
        // With OR the audio suffix binds to the last criterion only: the first one finds the folder, the
        // text file and the damaged file too.
        {a("(Name LIKE[cd] '*drum*') AND (AudioSampleRate > '44100')"),
         {"Snare drum 48k.wav", "sub/Drum loop.wav"}},
        {a("(Name LIKE[cd] '*drum*') OR (AudioChannelCount = '4')"),
         {"Drums", "Kick Drum 44k.wav", "Pad 22k.wav", "Snare drum 48k.wav", "broken drum.wav",
          "drum notes.txt", "sub/Drum loop.wav"}},
        // A missing value compares false, so NOT of it is true (folders have no sample rate).
        {"NOT (AudioSampleRate > '1') AND NOT (Name LIKE[cd] '*drum*')", {"sub"}},
        {a("NOT (AudioSampleRate > '44100')"),
         QStringList{cafe, "Groove.wav", "Kick Drum 44k.wav", "Pad 22k.wav"} +
             (sox ? QStringList{"Bells.flac"} : QStringList{})},
        // Text ignores case and accents only when asked.
        {a("(Name BEGINSWITH[cd] 'CAFE cr')"), {cafe}},
        {"Name BEGINSWITH 'Cafe'", {}},
        {QStringLiteral("Name BEGINSWITH 'Caf\u00e9'"), {cafe}},
        {a("(Name ENDSWITH[cd] '48K.WAV')"), {"Snare drum 48k.wav"}},
        {"Name LIKE[cd] '*44k.wa?'", {"Kick Drum 44k.wav"}},
        {"Name LIKE 'kick*'", {}},
        // Types and kinds.
        {"(kMDItemContentTypeTree = 'public.aiff-audio')", {"Hat 96k.aif"}},
        {"(kMDItemContentTypeTree BEGINSWITH 'org.xiph')", sox ? QStringList{"Bells.flac"} : QStringList{}},
        {"(Kind BEGINSWITH 'public.folder')", {"Drums", "sub"}},
        {"(Kind BEGINSWITH 'public.data')", {"broken drum.wav", "drum notes.txt"}},
        // What the files say about themselves, in FLAC comments and in our own chunks.
        {a("(Title LIKE[cd] '*bells*')"), sox ? QStringList{"Bells.flac"} : QStringList{}},
        {a("(Artist BEGINSWITH[cd] 'ana nunez')"), sox ? QStringList{"Bells.flac"} : QStringList{}},
        {a("(Artist LIKE[cd] '*zoe*')"), {"Groove.wav"}},
        {a("(Genre BEGINSWITH[cd] 'funk')"), {"Groove.wav"}},
        {a("(Comment LIKE[cd] '*cafe*')"), {"Groove.wav"}},
        {a("(Tempo = '98.5')"), {"Groove.wav"}},
        {a("(KeySignature BEGINSWITH '9')"), {"Groove.wav"}},
        {a("(BaseNote = '57')"), {"Groove.wav"}},
        // Dates compare as dates, at the precision typed.
        {a("(ContentModificationDate = '2020-06-15')"), {"Kick Drum 44k.wav"}},
        {a("(ContentModificationDate = '2020-06-15 12:00')"), {"Kick Drum 44k.wav"}},
        {a("(ContentModificationDate = '2020-06-15 12:01')"), {}},
        {a("(ContentModificationDate < '2021')"), {"Kick Drum 44k.wav"}},
    };
    for (const auto& c : cases) {
        QStringList found = c.found;
        found.sort();
        EXPECT_EQ(plain(c.text), found) << c.text.toStdString();
    }
    const qsizetype audioFiles = sox ? 8 : 7;
    EXPECT_EQ(plain(a("(ContentModificationDate > '2020-06-15')")).size(), audioFiles - 1);
    EXPECT_EQ(plain(a("(ContentCreationDate > '2001-01-01')")).size(), audioFiles);
    EXPECT_EQ(QFileInfo(TWMetadataIndex::defaultDatabasePath()).absolutePath(),
              s_home->path(QStringLiteral(".cache/Clipwright")));
    EXPECT_TRUE(QFile::exists(s_home->path(QStringLiteral(".cache/Clipwright/index.sqlite"))));
}

// The menu resource describes every key the predicate accepts, and each one runs against the index.
TEST_F(MetadataQuery, EveryKeyOfTheMenuParsesAndRuns) {
    const QVariantList items = TWQueryKeys::menuItems();
    ASSERT_GE(items.size(), 19);
    EXPECT_EQ(items.first().toMap().value("key").toString(), QStringLiteral("Name"));
    QStringList keys;
    for (const QVariant& item : items) {
        const QVariantMap map = item.toMap();
        const QString key = map.value("key").toString(), cls = map.value("class").toString();
        SCOPED_TRACE(key.toStdString());
        keys.append(key);
        EXPECT_FALSE(map.value("name").toString().isEmpty());
        EXPECT_TRUE(map.contains("digits") && map.contains("units"));
        QList<Criterion> criteria;
        if (cls == u"NSString") criteria = {{key, "LIKE[cd]", "x"}};
        if (cls == u"NSNumber") criteria = {{key, ">=", "0"}};
        if (cls == u"NSDate") criteria = {{key, "<", "2100-01-01"}};
        if (cls == u"NSArray") {
            // What the pop-up writes must parse with the pop-up's operator.
            for (const QVariant& v : map.value("values").toList()) {
                EXPECT_TRUE(v.toMap().contains("label"));
                criteria.append({key, "BEGINSWITH", v.toMap().value("value").toString()});
            }
        }
        ASSERT_FALSE(criteria.isEmpty()) << "class " << cls.toStdString();
        TWMetadataQuery query;
        ASSERT_TRUE(query.setPredicate(smartGroupText(criteria, /*all=*/false)));
        query.setSearchScopes({s_library});
        ASSERT_TRUE(gather(query));
        EXPECT_EQ(query.lastError(), QString());
    }
    EXPECT_EQ(keys, TWQueryKeys::keys());
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
    const QStringList found = find(m_folder, all, &stats);
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
