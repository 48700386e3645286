// The player through RtAudio on a real JACK server (the dummy driver: these machines have no sound
// card), started by the test under a name of its own, while the work thread processes other files.

#include "PlayerTestSupport.h"

#include "shell/playback/TWMidiInput.h"
#include "shell/playback/TWRtAudioOutput.h"

#include <RtMidi.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>
#include <QStandardPaths>

#include <csignal>
#include <spawn.h>
#include <sys/wait.h>

extern char** environ;

using namespace PlayerTest;

namespace {

// Starts a program, its output going to the test's. posix_spawn rather than QProcess: under
// ThreadSanitizer, QProcess's start leaves the calling thread's locks unseen from then on, and every later
// hand-over from the main thread (the player's set-up, the work thread's requests) reads as a race.
pid_t spawn(const QString& program, const QStringList& arguments) {
    QList<QByteArray> words{program.toLocal8Bit()};
    for (const QString& argument : arguments)
        words << argument.toLocal8Bit();
    std::vector<char*> argv;
    for (QByteArray& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    pid_t child = -1;
    return posix_spawn(&child, argv[0], nullptr, nullptr, argv.data(), environ) == 0 ? child : -1;
}

// The exit status, or -1 when the program did not exit within `seconds` (it is then killed) or by itself.
int waitFor(pid_t child, double seconds) {
    QElapsedTimer timer;
    timer.start();
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (timer.elapsed() > seconds * 1000) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            return -1;
        }
        QThread::msleep(10);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class JackPlayback : public Fixture {
protected:
    void SetUp() override {
        Fixture::SetUp();
        const QString jackd = QStandardPaths::findExecutable("jackd");
        const QString jackWait = QStandardPaths::findExecutable("jack_wait");
        if (jackd.isEmpty() || jackWait.isEmpty()) GTEST_SKIP() << "jackd or jack_wait is not installed (Debian: jackd2)";
        const QString server = QStringLiteral("clipwright-test-%1").arg(QCoreApplication::applicationPid());
        qputenv("JACK_DEFAULT_SERVER", server.toUtf8());
        m_jackd = spawn(jackd, {"-n", server, "--no-realtime", "-d", "dummy", "-r", "44100", "-p", "512"});
        ASSERT_GT(m_jackd, 0);
        const pid_t wait = spawn(jackWait, {"-s", server, "-w", "-t", "10"});
        ASSERT_GT(wait, 0);
        ASSERT_EQ(waitFor(wait, 15), 0) << "the JACK server did not start (its words are above)";
    }
    void TearDown() override {
        runs().stopWorkThread();
        m_player.reset();
        if (m_jackd > 0) {
            kill(m_jackd, SIGTERM);
            waitFor(m_jackd, 5);
        }
        qunsetenv("JACK_DEFAULT_SERVER");
        Fixture::TearDown();
    }

    pid_t m_jackd = -1;
};

TEST_F(JackPlayback, ATenSecondFilePlaysInTenSecondsWhileTheWorkThreadProcessesFiles) {
    selectFile("ten.wav", {.frames = 10 * 44100});
    QStringList others;
    for (int i = 0; i < 6; ++i)
        others << addFile(QStringLiteral("other%1.wav").arg(i), {.frames = 5 * 44100})->path();

    TWPlayer& player = makePlayer(std::make_unique<TWRtAudioOutput>());
    const LXStatus constructed = player.construct();
    ASSERT_TRUE(constructed) << constructed.error().description().toStdString();
    EXPECT_EQ(player.output().rate(), 44100.0);

    QElapsedTimer timer;
    qint64 elapsed = -1;
    QObject::connect(&player, &TWPlayer::playbackStopped, [&] { elapsed = timer.nsecsElapsed(); });
    QVariantMap gain = EngineTest::instructions("TWActionChangeGain", {{"level", -1.0}});
    gain.insert("paths", others);
    int runsDone = 0;
    QObject::connect(&runs(), &TWRunController::processEnded, [&] { ++runsDone; });

    // JACK reports xruns while a client joins the graph: the output runs a second before the playback,
    // as it would in the window, and what counts is the playback's own time.
    QElapsedTimer settling;
    settling.start();
    ModelTest::runUntil([&] { return settling.elapsed() >= 1000; }, 2000);
    const int64_t underflowsBefore = player.output().underflows();
    timer.start();
    player.playAll();
    runs().performInstructions({gain}, true);
    ASSERT_TRUE(ModelTest::runUntil([&] { return elapsed >= 0; }, 20000));
    const double seconds = elapsed / 1e9;
    const int64_t underflows = player.output().underflows() - underflowsBefore;
    std::printf("10 s of audio played in %.4f s beside %d workflow run; underruns %lld, device underflows %lld\n",
                seconds, runsDone, (long long)player.stream().underruns(), (long long)underflows);
    // Our side: the ring never ran dry. The server's side: a dummy server without realtime scheduling
    // misses cycles when the machine is loaded, each holding its clock back by a block or more, and then
    // the wall clock says nothing about us. Without a miss, 10 s to within a block of 512 frames (11.6 ms)
    // and the 5 ms in which the end is noticed.
    EXPECT_EQ(player.stream().underruns(), 0);
    if (underflows == 0) {
        EXPECT_NEAR(seconds, 10.0, 512.0 / 44100 + 0.005);
    } else {
        std::printf("the server missed %lld cycles: the time is not checked\n", (long long)underflows);
    }
    EXPECT_EQ(runsDone, 1);
}

void send(RtMidiOut& port, std::vector<unsigned char> message) {
    port.sendMessage(&message);
}

// Notes from a JACK MIDI port reach the player: found among the inputs by a stable identifier, channel and
// note read from the messages, a note on of velocity 0 taken as its note off.
TEST_F(JackPlayback, MidiNotesFromAJackPortAuditionTheFile) {
    selectFile("one.wav", {.frames = 44100});
    RtMidiOut keyboard(RtMidi::UNIX_JACK, "clipwright-test-keyboard");
    keyboard.openVirtualPort("keys");
    const QList<TWMidiSource> sources = TWMidiInput::inputs();
    const auto source = std::find_if(sources.begin(), sources.end(), [](const TWMidiSource& s) { return s.name.endsWith(":keys"); });
    ASSERT_NE(source, sources.end());
    EXPECT_EQ(TWMidiInput::inputs().first().uniqueID, sources.first().uniqueID) << "stable";

    TWPlayer& player = makePlayer(std::make_unique<TWRtAudioOutput>());
    ASSERT_TRUE(player.construct());
    TWPreferences::shared().setValue("MIDI Enabled", true);
    TWPreferences::shared().setValue("MIDI Port", source->uniqueID);
    TWPreferences::shared().setValue("MIDI Channel", 3);
    ASSERT_TRUE(player.updateMIDI());
    ASSERT_TRUE(player.isMIDIConnected());

    // JACK makes a new connection live at a later cycle, and a note sent before then is lost: the note is
    // sent again until it is heard (slow under ThreadSanitizer).
    for (int tries = 0; tries < 25 && !player.isPlaying(); ++tries) {
        send(keyboard, {0x92, 67, 100});
        ModelTest::runUntil([&] { return player.isPlaying(); }, 200);
    }
    ASSERT_TRUE(player.isPlaying());
    EXPECT_EQ(player.currentMIDINote(), 67);
    send(keyboard, {0x82, 60, 0}); // another note's off: ignored
    send(keyboard, {0x92, 67, 0});
    EXPECT_TRUE(ModelTest::runUntil([&] { return !player.isPlaying(); }, 5000));

    TWPreferences::shared().setValue("MIDI Enabled", false);
    ASSERT_TRUE(player.updateMIDI());
    EXPECT_FALSE(player.isMIDIConnected());
    TWPreferences::shared().removeValue("MIDI Enabled");
    TWPreferences::shared().removeValue("MIDI Port");
}

} // namespace
