#include "IsolatedHome.h"
#include "TestAudio.h"
#include "lx/LXAnalysis.h"
#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "platform/TWHandOver.h"
#include "platform/TWMetadataIndex.h"
#include "platform/TWMetadataQuery.h"
#include "platform/TWPredicate.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QThread>
#include <QTimer>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <thread>

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

// The text a smart group builds from its criteria, joined with AND or OR: the fixed audio suffix follows.
QString audio(const QString& criteria) {
    return criteria + QStringLiteral(" && (kMDItemContentTypeTree = \"public.audio\")");
}
const QString kAllLoops = audio(QStringLiteral("(Name LIKE[cd] '*loop*')"));

// Runs the query over the scope to the end on this thread's event loop.
bool gather(TWMetadataQuery& query, const QString& scope, const QString& text) {
    QString error;
    EXPECT_TRUE(query.setPredicate(text, &error)) << text.toStdString() << ": " << error.toStdString();
    query.setSearchScopes({scope});
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
    EXPECT_EQ(query.lastError(), QString());
    EXPECT_TRUE(finished) << text.toStdString();
    return finished;
}

// Paths found below the scope, relative to it, sorted.
QStringList find(const QString& scope, const QString& text, TWIndexScanStatistics* statistics = nullptr) {
    TWMetadataQuery query;
    if (!gather(query, scope, text)) return {};
    if (statistics) *statistics = query.lastScanStatistics();
    QStringList relative;
    for (const QString& path : query.results())
        relative.append(QDir(scope).relativeFilePath(path));
    relative.sort();
    return relative;
}

void writeAudio(const QString& path, double rate, int channels, int64_t frames,
                uint32_t format = LXFormat::WAVE,
                LXSampleEncoding encoding = LXSampleEncoding::pcm(16, false)) {
    auto written = TestAudio::write(
        path, {.rate = rate, .channels = channels, .frames = frames, .format = format, .encoding = encoding});
    ASSERT_TRUE(written) << written.error().description().toStdString();
}

} // namespace

// ---- Parsing

// What a predicate means, shown by its fully parenthesised description, or why it does not parse and where.
TEST(Predicate, AndBindsTighterThanOrSoTheSuffixTakesTheLastCriterionAndFailuresSayWhere) {
    const std::pair<QString, const char*> cases[] = {
        {audio("(Name LIKE[cd] '*a*') OR (AudioSampleRate > '44100')"),
         "(Name LIKE[cd] '*a*' OR (AudioSampleRate > '44100' AND kMDItemContentTypeTree = 'public.audio'))"},
        {audio("(Name LIKE[cd] '*a*') AND (AudioChannelCount = '2')"),
         "((Name LIKE[cd] '*a*' AND AudioChannelCount = '2') AND kMDItemContentTypeTree = 'public.audio')"},
        // Keywords in any case and symbols; parentheses override.
        {"Name = 'a' or Name = 'b' and not Name = 'c'", "(Name = 'a' OR (Name = 'b' AND (NOT Name = 'c')))"},
        {"(Name = 'a' || Name = 'b') && !(Name = 'c')", "((Name = 'a' OR Name = 'b') AND (NOT Name = 'c'))"},
        // An apostrophe inside double quotes or escaped inside single ones; escaped quotes and code points.
        {"(Name LIKE[cd] \"*o'neil*\")", "Name LIKE[cd] '*o\\'neil*'"},
        {"Name = \"say \\\"hi\\\"\" OR Name = 'caf\\u00e9'", "(Name = 'say \"hi\"' OR Name = 'caf\u00e9')"},
        {"", "error: the predicate is empty"},
        {"(Name LIKE[cd] 'a'))", "error: unexpected ')' at character 20"},
        {"(Name LIKE[cd] 'a'", "error: missing ')' to close the '(' at character 1"},
        {"(Colour = 'red')", "error: unknown key 'Colour' at character 2"},
        {"(Name LIKE[cd] 'abc)", "error: unterminated string starting at character 16"},
        {"(Name = 'a') AND", "error: unexpected end of the predicate"},
        {"(Name > 'a')", "error: > does not apply to Name, a text at character 7"},
        {"(AudioSampleRate > 'fast')",
         "error: 'fast' is not a number, as AudioSampleRate needs at character 20"},
        {"(Name MATCHES 'a.*')", "error: 'MATCHES' is not supported at character 7"},
    };
    for (const auto& [text, expected] : cases) {
        auto p = TWPredicate::parse(text);
        EXPECT_EQ(p ? p->description() : QStringLiteral("error: ") + p.error().message(),
                  QString::fromUtf8(expected))
            << text.toStdString();
    }
    QString error;
    EXPECT_FALSE(TWMetadataQuery().setPredicate(QStringLiteral("(Name =)"), &error));
    EXPECT_EQ(error, QStringLiteral("expected a value after 'Name =' but found ')' at character 8"));
    for (const char* text : {"Name CONTAINS[c] 'x'", "Name <> 'x'", "Duration => 1", "Duration =< 1e1",
                             "AudioChannelCount = -1", "TRUEPREDICATE"})
        EXPECT_TRUE(TWPredicate::parse(QString::fromUtf8(text))) << text;
    // Nesting and length are bounded: the parser recurses, and SQLite limits an expression's depth.
    EXPECT_EQ(TWPredicate::parse(QString(5000, u'(') + "Name = 'a'" + QString(5000, u')')).error().message(),
              QStringLiteral("nested more than 100 deep at character 101"));
    EXPECT_FALSE(TWPredicate::parse(QString(5000, u'!') + "Name = 'a'"));
    QStringList many(600, QStringLiteral("Name = 'a'"));
    EXPECT_EQ(TWPredicate::parse(many.join(" OR ")).error().message(),
              QStringLiteral("more than 500 comparisons at character 7001"));
    // Values are bound, never pasted into the SQL.
    auto p = TWPredicate::parse("(Name = 'x\\' OR 1=1 --')");
    ASSERT_TRUE(p);
    EXPECT_FALSE(p->sqlWhere().contains(QStringLiteral("1=1")));
    EXPECT_EQ(p->bindings(), QVariantList{QStringLiteral("x' OR 1=1 --")});
}

// ---- Queries over a folder of generated files

class MetadataQuery : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_application = new ApplicationScope;
        s_home = new IsolatedHome;
        s_library = s_home->path(QStringLiteral("Samples"));
        ASSERT_TRUE(QDir().mkpath(s_library + "/sub"));
        ASSERT_TRUE(QDir().mkpath(s_library + "/Drums"));
        writeAudio(s_library + "/Kick Drum 44k.wav", 44100, 1, 4410);
        writeAudio(s_library + "/Snare drum 48k.wav", 48000, 2, 48000);
        writeAudio(s_library + "/Hat 96k.aif", 96000, 2, 9600, LXFormat::AIFF,
                   LXSampleEncoding::pcm(24, true));
        writeAudio(s_library + "/Pad 22k.wav", 22050, 4, 44100);
        writeAudio(s_library + "/sub/Drum loop.wav", 48000, 1, 24000, LXFormat::WAVE,
                   LXSampleEncoding::ieeeFloat(32, false));
        writeAudio(s_library + QStringLiteral("/Caf\u00e9 Cr\u00e8me.wav"), 44100, 2, 441);
        writeAudio(s_library + "/Drums/.hidden drum.wav", 44100, 1, 100);
        writeFile(s_library + "/drum notes.txt", "kick, snare\n");
        writeFile(s_library + "/broken drum.wav", QByteArray(2000, 'x'));
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
        writer.metadata().setValue("artist", QStringLiteral("Zo\u00eb"));
        writer.metadata().setValue("tempo", 98.5);
        const std::vector<float> silence(200 * 2, 0.0f);
        ASSERT_TRUE(writer.writeFrames(silence.data(), 200));
        ASSERT_TRUE(writer.endWrite());
        ASSERT_TRUE(writer.saveFile(0, s_library + "/Groove.wav"));
        const qint64 kickTime = QDateTime(QDate(2020, 6, 15), QTime(12, 0, 30)).toSecsSinceEpoch();
        const timespec times[2] = {{kickTime, 0}, {kickTime, 0}};
        ASSERT_EQ(
            ::utimensat(AT_FDCWD, QFile::encodeName(s_library + "/Kick Drum 44k.wav").constData(), times, 0),
            0);
    }
    static void TearDownTestSuite() {
        delete s_home;
        delete s_application;
    }

    static ApplicationScope* s_application;
    static IsolatedHome* s_home;
    static QString s_library;
};
ApplicationScope* MetadataQuery::s_application = nullptr;
IsolatedHome* MetadataQuery::s_home = nullptr;
QString MetadataQuery::s_library;

TEST_F(MetadataQuery, EachCriterionFindsExactlyTheFilesItDescribes) {
    const bool sox = TestAudio::haveTool("sox"); // Bells.flac, tagged by another program
    const QStringList bells = sox ? QStringList{"Bells.flac"} : QStringList{};
    const QString cafe = QStringLiteral("Caf\u00e9 Cr\u00e8me.wav");
    const struct {
        QString text;
        QStringList found;
    } cases[] = {
        // Not the text file, the folder, the damaged file or the hidden one, whatever their names.
        {audio("(Name LIKE[cd] '*drum*')"), {"Kick Drum 44k.wav", "Snare drum 48k.wav", "sub/Drum loop.wav"}},
        // Numbers compare as numbers.
        {audio("(AudioSampleRate > '44100')"), {"Hat 96k.aif", "Snare drum 48k.wav", "sub/Drum loop.wav"}},
        {audio("(AudioChannelCount = '2')"), {cafe, "Groove.wav", "Hat 96k.aif", "Snare drum 48k.wav"}},
        {audio("(AudioBitDepth = '24')"), {"Hat 96k.aif"}},
        // Durations at the precision typed: 0.1 s is the kick's 4410 frames at 44.1 kHz.
        {audio("(Duration = '0.1')"), {"Hat 96k.aif", "Kick Drum 44k.wav"}},
        // Sizes in KB: 192 KB of stereo 48 kHz and 353 KB of four channels at 22 kHz.
        {audio("(FSSize > '150')"), {"Pad 22k.wav", "Snare drum 48k.wav"}},
        {audio("(Name LIKE[cd] '*drum*') AND (AudioSampleRate > '44100')"),
         {"Snare drum 48k.wav", "sub/Drum loop.wav"}},
        // With OR the audio suffix binds to the last criterion only: the first one finds the folder, the
        // text file and the damaged file too.
        {audio("(Name LIKE[cd] '*drum*') OR (AudioChannelCount = '4')"),
         {"Drums", "Kick Drum 44k.wav", "Pad 22k.wav", "Snare drum 48k.wav", "broken drum.wav",
          "drum notes.txt", "sub/Drum loop.wav"}},
        // A missing value compares false, so NOT of it is true (folders have no sample rate).
        {"NOT (AudioSampleRate > '1') AND NOT (Name LIKE[cd] '*drum*')", {"sub"}},
        // Text ignores case and accents only when asked.
        {audio("(Name BEGINSWITH[cd] 'CAFE cr')"), {cafe}},
        {"Name BEGINSWITH 'Cafe'", {}},
        {"Name LIKE[cd] '*44k.wa?'", {"Kick Drum 44k.wav"}},
        {"(kMDItemContentTypeTree = 'public.aiff-audio')", {"Hat 96k.aif"}},
        {"(Kind BEGINSWITH 'public.data')", {"broken drum.wav", "drum notes.txt"}},
        // What the files say about themselves, in FLAC comments and in our own chunks.
        {audio("(Artist BEGINSWITH[cd] 'ana nunez')"), bells},
        {audio("(Artist LIKE[cd] '*zoe*')"), {"Groove.wav"}},
        {audio("(Tempo = '98.5')"), {"Groove.wav"}},
        // Dates compare as dates, at the precision typed and in any common spelling: "is after" (<) ends
        // before the span, "is before" (>) starts after it.
        {audio("(ContentModificationDate = 'June 15, 2020')"), {"Kick Drum 44k.wav"}},
        {audio("(ContentModificationDate = '2020-06-15 12:00')"), {"Kick Drum 44k.wav"}},
        {audio("(ContentModificationDate = '2020-06-15 12:01')"), {}},
        {audio("(ContentModificationDate < '2021')"), {"Kick Drum 44k.wav"}},
    };
    for (const auto& c : cases) {
        QStringList found = c.found;
        found.sort();
        EXPECT_EQ(find(s_library, c.text), found) << c.text.toStdString();
    }
    EXPECT_EQ(find(s_library, audio("(ContentModificationDate > '2020-06-15')")).size(), sox ? 7 : 6);
    EXPECT_TRUE(QFile::exists(s_home->path(QStringLiteral(".cache/Clipwright/index.sqlite"))));
}

// The menu resource describes every key the predicate accepts, and each one runs against the index.
TEST_F(MetadataQuery, EveryKeyOfTheMenuParsesAndRuns) {
    QStringList keys;
    for (const QVariant& item : TWQueryKeys::menuItems()) {
        const QVariantMap map = item.toMap();
        const QString key = map.value("key").toString(), cls = map.value("class").toString();
        SCOPED_TRACE(key.toStdString());
        keys.append(key);
        EXPECT_FALSE(map.value("name").toString().isEmpty());
        QStringList criteria;
        if (cls == u"NSString") criteria = {QStringLiteral("(%1 LIKE[cd] '*x*')").arg(key)};
        if (cls == u"NSNumber") criteria = {QStringLiteral("(%1 >= '0')").arg(key)};
        if (cls == u"NSDate") criteria = {QStringLiteral("(%1 < '2100-01-01')").arg(key)};
        // What the pop-up writes must parse with the pop-up's operator.
        for (const QVariant& v : map.value("values").toList())
            criteria.append(
                QStringLiteral("(%1 BEGINSWITH '%2')").arg(key, v.toMap().value("value").toString()));
        ASSERT_FALSE(criteria.isEmpty()) << "class " << cls.toStdString();
        TWMetadataQuery query;
        ASSERT_TRUE(gather(query, s_library, audio(criteria.join(QStringLiteral(" OR ")))));
    }
    EXPECT_GE(keys.size(), 19);
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
            writeAudio(path, m ? 48000 : 44100, 1 + m, 100);
            models[m] = readFile(path);
        }
        for (int i = 0; i < count; ++i)
            writeFile(file(i), models[i % 2]);
    }

    ApplicationScope m_application;
    IsolatedHome m_home;
    QString m_folder;
};

TEST_F(MetadataIndexScan, ARescanOpensOnlyWhatChanged) {
    writeLoops(20);
    TWIndexScanStatistics stats;
    const int64_t before = TWMetadataIndex::audioFilesOpened();
    EXPECT_EQ(find(m_folder, kAllLoops, &stats).size(), 20);
    EXPECT_EQ(TWMetadataIndex::audioFilesOpened() - before, 20);
    EXPECT_EQ(stats.opened, 20);

    EXPECT_EQ(find(m_folder, kAllLoops, &stats).size(), 20);
    EXPECT_EQ(stats.opened, 0);
    EXPECT_EQ(stats.updated, 0);
    // A scope above the first one finds the rows already there.
    EXPECT_EQ(find(m_home.path("Music"), kAllLoops, &stats).size(), 20);
    EXPECT_EQ(stats.opened, 0);
    EXPECT_EQ(stats.updated, 1); // the folder Loops itself

    ASSERT_TRUE(QFile::rename(file(0), m_folder + "/renamed loop.wav"));
    ASSERT_TRUE(QFile::remove(file(1)));
    writeAudio(m_folder + "/new loop.wav", 96000, 2, 100);
    writeAudio(file(2), 88200, 1, 100); // same name, new content
    const QStringList found = find(m_folder, kAllLoops, &stats);
    EXPECT_EQ(found.size(), 20);
    EXPECT_TRUE(found.contains("renamed loop.wav") && found.contains("new loop.wav"));
    EXPECT_FALSE(found.contains("loop 000.wav") || found.contains("loop 001.wav"));
    EXPECT_EQ(stats.opened, 3);
    EXPECT_EQ(stats.removed, 2);
    EXPECT_EQ(find(m_folder, audio("(AudioSampleRate = '88200')")), QStringList({"loop 002.wav"}));
    EXPECT_EQ(find(m_folder, audio("(AudioSampleRate > '88200')")), QStringList({"new loop.wav"}));

    // A scope that vanished loses its rows.
    ASSERT_TRUE(QDir(m_folder).removeRecursively());
    EXPECT_EQ(find(m_folder, kAllLoops, &stats), QStringList());
    EXPECT_EQ(stats.removed, 20);
    auto row = TWMetadataIndex().record(m_folder + "/new loop.wav");
    ASSERT_TRUE(row);
    EXPECT_TRUE(row->isEmpty());
}

// Levels and loudness are found once measured, also in files indexed before: measuring changes the
// analysis cache, not the file, and the next search looks there again.
TEST_F(MetadataIndexScan, MeasuredLevelsAndLoudnessAreFoundOnceMeasured) {
    for (const auto& [name, volume] : {std::pair{"loud.wav", "0.9"}, std::pair{"quiet.wav", "0.05"}})
        ASSERT_TRUE(TestAudio::generateWithSox(m_folder + u'/' + QLatin1String(name), {"-n", "-r", "44100"},
                                               {"synth", "2", "sine", "440", "vol", volume}));
    const QString louderThan12 = audio("(Loudness > '-12')");
    EXPECT_EQ(find(m_folder, louderThan12), QStringList());
    for (const char* name : {"loud.wav", "quiet.wav"}) {
        auto file = LXAudioFile::open(m_folder + u'/' + QLatin1String(name));
        ASSERT_TRUE(file);
        ASSERT_TRUE(LXAnalyze(**file, 0, LXLoudnessAnalysis::Measure));
    }
    EXPECT_EQ(find(m_folder, louderThan12), QStringList{"loud.wav"});
    EXPECT_EQ(find(m_folder, audio("(Peak < '-20') AND (TruePeak < '-20')")), QStringList{"quiet.wav"});
}

TEST_F(MetadataIndexScan, ADamagedIndexIsRebuilt) {
    writeLoops(3);
    writeFile(TWMetadataIndex::defaultDatabasePath(), QByteArray(4096, '\x5a'));
    EXPECT_EQ(find(m_folder, kAllLoops).size(), 3);
}

TEST_F(MetadataIndexScan, StopAndDestructionWhileGatheringAreSafe) {
    writeLoops(2000); // a scan of about 0.1 s, so that the interruptions fall inside it
    {
        auto query = std::make_unique<TWMetadataQuery>();
        ASSERT_TRUE(query->setPredicate(kAllLoops));
        query->setSearchScopes({m_folder});
        query->start();
        query.reset(); // mid-scan
    }
    {
        TWMetadataQuery query;
        ASSERT_TRUE(query.setPredicate(kAllLoops));
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
        ASSERT_TRUE(gather(query, m_folder, kAllLoops));
        EXPECT_EQ(finished, 1);
        EXPECT_EQ(query.results().size(), 2000);
    }
    TWIndexScanStatistics stats;
    EXPECT_EQ(find(m_folder, kAllLoops, &stats).size(), 2000);
    EXPECT_EQ(stats.opened, 0);
}

TEST_F(MetadataIndexScan, QueriesRunningTogetherShareTheWork) {
    writeLoops(60);
    std::vector<std::unique_ptr<TWMetadataQuery>> queries;
    int finished = 0;
    QEventLoop loop;
    for (int i = 0; i < 3; ++i) {
        queries.push_back(std::make_unique<TWMetadataQuery>());
        ASSERT_TRUE(queries.back()->setPredicate(kAllLoops));
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

// A query's answer reaches it through a hand-over from its scanning thread. Work handed over arrives in
// order on the receiver's thread; work for a receiver destroyed before it ran goes with the receiver,
// and is not left behind for whichever object or thread comes next.
TEST(HandOver, WorkArrivesInOrderOnTheReceiversThreadOrGoesWithTheReceiver) {
    ApplicationScope application;
    auto receiver = std::make_unique<QObject>();
    auto token = std::make_shared<int>(0);
    std::vector<int> arrived;
    std::thread sender([&] {
        for (int i = 0; i < 3; ++i)
            TWHandOver(receiver.get(), [&arrived, i, token] {
                EXPECT_EQ(QThread::currentThread(), QCoreApplication::instance()->thread());
                arrived.push_back(i);
            });
    });
    sender.join();
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(arrived, (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(token.use_count(), 1);

    std::thread{[&] {
        TWHandOver(receiver.get(), [token] { ADD_FAILURE() << "ran for a destroyed receiver"; });
    }}.join();
    receiver.reset();
    EXPECT_EQ(token.use_count(), 1);
    QCoreApplication::sendPostedEvents();
}
