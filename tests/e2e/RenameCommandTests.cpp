// clipwright rename: names from tokens and from a text file, on files sox and ffmpeg made; a taken name
// is never overwritten; undo and redo in later invocations give the names back exactly.

#include "CommandLineRunner.h"
#include "TestAudio.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

namespace {

class RenameCommands : public testing::Test {
protected:
    CommandLineRunner cli;

    QString path(const QString& name) const { return QDir(cli.work()).filePath(name); }
    // A tenth of a second of a sine, different for each name, so a file that took another's place shows.
    QString make(const QString& name) {
        const QString frequency = QString::number(200 + 10 * ++m_made);
        EXPECT_TRUE(TestAudio::generateWithSox(path(name), {"-n", "-r", "8000", "-b", "16", "-c", "1"},
                                               {"synth", "0.1", "sine", frequency}));
        m_bytes.insert(name, readBytes(path(name)));
        return path(name);
    }
    // The files of the work folder, sorted.
    QStringList files() const { return QDir(cli.work()).entryList(QDir::Files, QDir::Name); }
    // The file now called `now` holds what was made as `made`.
    void expectHolds(const QString& now, const QString& made) const {
        EXPECT_EQ(readBytes(path(now)), m_bytes.value(made))
            << now.toStdString() << " from " << made.toStdString();
    }
    CommandLineRunner::Result rename(const QStringList& arguments) const {
        return cli.run(QStringList{"rename"} + arguments);
    }

private:
    int m_made = 0;
    QMap<QString, QByteArray> m_bytes;
};

TEST_F(RenameCommands, TokensNumberTheFilesAndUndoAndRedoSwitchTheNamesLater) {
    const QStringList sources{make("b.wav"), make("a.wav"), make("c.wav")};
    // A split set moves as one: both members, one number.
    const TestAudio::Sound split{.rate = 8000, .channels = 2, .frames = 800, .interleaved = false};
    ASSERT_TRUE(TestAudio::write(path("take"), split));
    const QByteArray right = readBytes(path("take.R"));
    const auto result =
        rename(QStringList{"--expression", "Kick /Number/", "--numberStart", "1", "--numberDigits", "3"} +
               sources + QStringList{path("take.L")});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_EQ(result.lines(),
              (QStringList{path("Kick 001"), path("Kick 002"), path("Kick 003"), path("Kick 004.L")}));
    EXPECT_EQ(files(), (QStringList{"Kick 001", "Kick 002", "Kick 003", "Kick 004.L", "Kick 004.R"}));
    expectHolds("Kick 001", "b.wav");
    expectHolds("Kick 003", "c.wav");
    EXPECT_EQ(readBytes(path("Kick 004.R")), right);

    const auto undo = cli.run({"undo"});
    ASSERT_EQ(undo.exitCode, 0) << undo.err.toStdString();
    EXPECT_EQ(files(), (QStringList{"a.wav", "b.wav", "c.wav", "take.L", "take.R"}));
    expectHolds("a.wav", "a.wav");
    expectHolds("b.wav", "b.wav");
    const auto redo = cli.run({"redo"});
    ASSERT_EQ(redo.exitCode, 0) << redo.err.toStdString();
    EXPECT_EQ(files(), (QStringList{"Kick 001", "Kick 002", "Kick 003", "Kick 004.L", "Kick 004.R"}));
    expectHolds("Kick 002", "a.wav");
}

TEST_F(RenameCommands, NumbersCountDownAndTheirDigitsAreHeldBetweenOneAndEight) {
    const QStringList sources{make("x.aif"), make("y.aif"), make("z.aif")};
    const auto down = rename(QStringList{"--expression", "/Number/./Extension/", "--numberStart", "10",
                                         "--numberStep", "2", "--ascending", "no"} +
                             sources);
    ASSERT_EQ(down.exitCode, 0) << down.err.toStdString();
    EXPECT_EQ(files(), (QStringList{"06.aif", "08.aif", "10.aif"}));
    expectHolds("10.aif", "x.aif");

    const auto wide =
        rename({"--expression", "/Number/", "--numberDigits", "12", path("10.aif"), path("08.aif")});
    ASSERT_EQ(wide.exitCode, 0) << wide.err.toStdString();
    const auto narrow =
        rename({"--expression", "n/Number/", "--numberDigits", "0", "--numberStart", "7", path("06.aif")});
    ASSERT_EQ(narrow.exitCode, 0) << narrow.err.toStdString();
    EXPECT_EQ(files(), (QStringList{"00000000", "00000001", "n7"}));
    expectHolds("n7", "z.aif");
}

// Values as the file list shows them: through the field's formatter where it has one (44.1 kHz).
TEST_F(RenameCommands, FieldTitlesGiveTheirValuesAndUnknownTitlesNothing) {
    const auto made =
        TestAudio::generateTaggedWithFfmpeg(path("tagged.flac"), {{"artist", "AC/DC"}, {"title", "Live"}});
    ASSERT_TRUE(made) << made.error().description().toStdString();
    const QByteArray bytes = readBytes(*made);
    const auto result =
        rename({"--expression", "/Artist/ - /Title//Mood/ (/Name/, /Sample Rate/)./Extension/", *made});
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_EQ(files(), QStringList{"AC-DC - Live (tagged, 44.1 kHz).flac"});
    EXPECT_EQ(readBytes(path("AC-DC - Live (tagged, 44.1 kHz).flac")), bytes);
}

TEST_F(RenameCommands, TextFileLinesNameTheFilesInOrderAndBlankLinesLeaveThem) {
    const QStringList sources{make("1.wav"), make("2.wav"), make("3.wav"), make("4.wav")};
    QFile names(path("names.txt"));
    ASSERT_TRUE(names.open(QIODevice::WriteOnly));
    names.write("intro.wav\r\n\nverse/chorus.wav\n");
    names.close();
    const auto result = rename(QStringList{"--textFile", path("names.txt")} + sources);
    ASSERT_EQ(result.exitCode, 0) << result.err.toStdString();
    EXPECT_EQ(files(), (QStringList{"2.wav", "4.wav", "intro.wav", "names.txt", "verse-chorus.wav"}));
    expectHolds("verse-chorus.wav", "3.wav");

    // Without a readable list nothing is renamed, and the error says what was being done.
    const auto missing = rename({"--textFile", path("none.txt"), path("2.wav")});
    EXPECT_EQ(missing.exitCode, 8);
    EXPECT_TRUE(missing.err.contains("renaming the files")) << missing.err.toStdString();
    EXPECT_TRUE(missing.err.contains("none.txt")) << missing.err.toStdString();
    EXPECT_TRUE(QFile::exists(path("2.wav")));
}

TEST_F(RenameCommands, ANameThatExistsIsNeverOverwritten) {
    make("a.wav");
    make("b.wav");
    make("c.wav");
    // a.wav cannot become b.wav; c.wav still becomes d.wav.
    QFile names(path("names.txt"));
    ASSERT_TRUE(names.open(QIODevice::WriteOnly));
    names.write("b.wav\nd.wav\n");
    names.close();
    const auto taken = rename({"--textFile", path("names.txt"), path("a.wav"), path("c.wav")});
    EXPECT_EQ(taken.exitCode, 3);
    EXPECT_TRUE(taken.err.contains(path("a.wav") + "' keeps its name: 'b.wav' exists"))
        << taken.err.toStdString();
    EXPECT_EQ(files(), (QStringList{"a.wav", "b.wav", "d.wav", "names.txt"}));
    expectHolds("a.wav", "a.wav");
    expectHolds("b.wav", "b.wav");
    expectHolds("d.wav", "c.wav");

    // Nor by a copy; a copy under a free name leaves the source as it was.
    const auto copies =
        rename({"--expression", "/Name/ copy.wav", "--to-new-file", path("a.wav"), path("b.wav")});
    ASSERT_EQ(copies.exitCode, 0) << copies.err.toStdString();
    const auto copyTaken = rename({"--expression", "b.wav", "--to-new-file", path("a.wav")});
    EXPECT_EQ(copyTaken.exitCode, 3);
    EXPECT_EQ(files(), (QStringList{"a copy.wav", "a.wav", "b copy.wav", "b.wav", "d.wav", "names.txt"}));
    expectHolds("a copy.wav", "a.wav");
    expectHolds("b.wav", "b.wav");
}

} // namespace
