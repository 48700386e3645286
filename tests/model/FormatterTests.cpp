#include "model/TWFormatters.h"

#include "TestAudio.h"
#include "lx/LXAudioFile.h"

#include <QTemporaryDir>
#include <QUrl>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

const char* const kFormatterNames[] = {
    "timeFormatter",          "rangeFormatter",    "creatorFormatter",    "fileSizeFormatter",
    "formatFormatter",        "bitRangeFormatter", "sampleRateFormatter", "channelsFormatter",
    "samplesFormatter",       "decibelFormatter",  "differenceFormatter", "clippedFormatter",
    "midiNoteFormatter",      "gainFormatter",     "detuneFormatter",     "tempoFormatter",
    "timeSignatureFormatter", "keyFormatter",      "scaleFormatter",      "barsBeatsFormatter",
    "playbackTypeFormatter",  "dataFormatter",     "dateFormatter",
};

QVariant parsed(const TWFormatter& formatter, const QString& text) {
    QVariant value;
    QString error;
    if (!formatter.getObjectValue(&value, text, &error)) {
        EXPECT_FALSE(error.isEmpty()) << "a refusal without a reason for '" << text.toStdString() << "'";
        return {};
    }
    return value;
}

// Refused with a reason, and the value left as it was: setters store nothing unless parsing succeeds.
bool refuses(const TWFormatter& formatter, const QString& text) {
    QVariant value = QStringLiteral("untouched");
    QString error;
    const bool ok = formatter.getObjectValue(&value, text, &error);
    return !ok && !error.isEmpty() && value == QVariant(QStringLiteral("untouched"));
}

} // namespace

TEST(Formatters, CreatorCodesAreFourLettersBothWays) {
    TWFormatters f;
    const TWFormatter& creator = f.creatorFormatter();
    EXPECT_EQ(creator.stringForObjectValue(uint(0x54574B57)), QStringLiteral("TWKW"));
    EXPECT_EQ(parsed(creator, QStringLiteral("TWKW")), QVariant(qint64(0x54574B57)));
    // Short codes are padded with spaces, and spaces typed are kept.
    EXPECT_EQ(parsed(creator, QStringLiteral(" ab")), QVariant(qint64(0x20616220)));
    EXPECT_EQ(creator.stringForObjectValue(qint64(0x61622020)), QStringLiteral("ab  "));
    for (const QString& bad :
         {QString(), QStringLiteral("abcde"), QStringLiteral("ab\x01"), QStringLiteral("caf\u00e9")})
        EXPECT_TRUE(refuses(creator, bad)) << bad.toStdString();
    // Codes that cannot be shown (a control byte, out of 32 bits, 0 = none) show nothing.
    for (const qint64 code : {qint64(0x41424301), qint64(0x1'41424344), qint64(0)})
        EXPECT_EQ(creator.stringForObjectValue(code), QString()) << code;
}

TEST(Formatters, MidiNotesPutMiddleCAtC3) {
    TWFormatters f;
    const TWFormatter& note = f.midiNoteFormatter();
    EXPECT_EQ(note.stringForObjectValue(60), QStringLiteral("C3"));
    EXPECT_EQ(note.stringForObjectValue(78), QStringLiteral("F#4"));
    EXPECT_EQ(note.stringForObjectValue(128), QString());
    for (int n = 0; n <= 127; ++n)
        EXPECT_EQ(parsed(note, note.stringForObjectValue(n)), QVariant(qint64(n))) << n;
    // Flats, either case, the flat sign, notes that cross an octave, spaces and plain numbers.
    const std::pair<const char*, int> spellings[] = {
        {"Gb4", 78}, {"DB2", 49}, {"B\u266d3", 70}, {"Cb3", 59}, {"B#2", 60}, {"  c-2 ", 0}, {"60", 60}};
    for (const auto& [text, number] : spellings)
        EXPECT_EQ(parsed(note, QString::fromUtf8(text)), QVariant(qint64(number))) << text;
    for (const char* bad : {"G#8", "Cb-2", "H3", "C", "C3x", "C##3", "128", "-1", ""})
        EXPECT_TRUE(refuses(note, QString::fromUtf8(bad))) << bad;
}

TEST(Formatters, TimesAndRangesShowInEveryFormatAndReadBack) {
    TWFormatters f;
    const TWFormatter& time = f.timeFormatter();
    const struct {
        int format;
        double seconds;
        const char* text;
        double tolerance;
    } cases[] = {
        {TWTimeFormatMinutes, 62.345, "1:02.345", 1e-9},
        {TWTimeFormatMinutes, 59.9996, "1:00.000", 1e-3},
        {TWTimeFormatMinutes, -1.5, "-0:01.500", 1e-9},
        {TWTimeFormatSeconds, 62.345, "62.345 s", 1e-9},
        {TWTimeFormatFrames, 62.345, "00:01:02:10", 1.0 / 30},
        {TWTimeFormatMilliseconds, 62.345, "62345 ms", 1e-9},
        {TWTimeFormatHours, 3725.5, "1:02:05.500", 1e-9},
        {99, 62.345, "1:02.345", 1e-9}, // unknown formats show minutes
    };
    for (const auto& c : cases) {
        f.setTimeFormat(c.format);
        const QString text = time.stringForObjectValue(c.seconds);
        EXPECT_EQ(text, QString::fromLatin1(c.text)) << c.format << " " << c.seconds;
        EXPECT_NEAR(parsed(time, text).toDouble(), c.seconds, c.tolerance) << c.text;
    }
    // Parsing does not depend on the format shown.
    EXPECT_DOUBLE_EQ(parsed(time, QStringLiteral("250ms")).toDouble(), 0.25);
    EXPECT_DOUBLE_EQ(parsed(time, QStringLiteral("1:02.5")).toDouble(), 62.5);
    for (const char* bad :
         {"", "abc", "1:60", "00:00:00:30", "1:2:3:4:5", "1::2", "1:-2", "12 kg", "99999999999"})
        EXPECT_TRUE(refuses(time, QString::fromLatin1(bad))) << bad;
    EXPECT_EQ(time.stringForObjectValue(std::nan("")), QString());
    EXPECT_EQ(time.stringForObjectValue(std::numeric_limits<double>::infinity()), QString());

    // Ranges are two times, shown and read as the range format says.
    const TWFormatter& range = f.rangeFormatter();
    const QVariantMap stretch{{QStringLiteral("start"), 1.0}, {QStringLiteral("end"), 3.5}};
    f.setTimeFormat(TWTimeFormatMinutes);
    f.setRangeFormat(TWRangeFormatStartLength);
    EXPECT_EQ(range.stringForObjectValue(stretch), QStringLiteral("0:01.000 + 0:02.500"));
    EXPECT_EQ(parsed(range, QStringLiteral("0:01.000 - 0:03.500")), QVariant(stretch));
    EXPECT_EQ(parsed(range, QStringLiteral("1 s + 2.5 s")), QVariant(stretch));
    EXPECT_TRUE(refuses(range, QStringLiteral("3 - 1")));
}

// Each text shown reads back as the value it came from; typed variants read too, and values out of range
// are refused.
TEST(Formatters, TaggedValuesReadBackAndRefuseWhatIsOutOfRange) {
    TWFormatters f;
    const std::tuple<const TWFormatter&, QVariant, const char*> shown[] = {
        {f.tempoFormatter(), 120.0, "120.00 BPM"},
        {f.timeSignatureFormatter(), QStringLiteral("7/8"), "7/8"},
        {f.barsBeatsFormatter(), 6.5, "1 bar 2.5 beats"},
        {f.samplesFormatter(), qint64(1234567), "1,234,567"},
        {f.keyFormatter(), qint64(6), "F#"},
    };
    for (const auto& [formatter, value, text] : shown) {
        EXPECT_EQ(formatter.stringForObjectValue(value), QString::fromLatin1(text)) << text;
        EXPECT_EQ(parsed(formatter, QString::fromLatin1(text)), value) << text;
    }
    const std::tuple<const TWFormatter&, const char*, QVariant> typed[] = {
        {f.tempoFormatter(), "97.5 bpm", 97.5},
        {f.barsBeatsFormatter(), "2:1", qint64(9)},
        {f.keyFormatter(), "cb", qint64(11)},
    };
    for (const auto& [formatter, text, value] : typed)
        EXPECT_EQ(parsed(formatter, QString::fromLatin1(text)), value) << text;

    const std::pair<const TWFormatter&, const char*> refused[] = {
        {f.tempoFormatter(), "0"},       {f.tempoFormatter(), "1001"},
        {f.detuneFormatter(), "51"},     {f.detuneFormatter(), "1.5"},
        {f.gainFormatter(), "+65 dB"},   {f.timeSignatureFormatter(), "0/4"},
        {f.barsBeatsFormatter(), "2:4"}, {f.keyFormatter(), "12"},
        {f.keyFormatter(), "C#m"},       {f.sampleRateFormatter(), "0 Hz"},
        {f.samplesFormatter(), "12,34"},
    };
    for (const auto& [formatter, text] : refused)
        EXPECT_TRUE(refuses(formatter, QString::fromLatin1(text))) << text;
}

// What the framework reports for a real file is shown by the formatters the information keys name.
TEST(Formatters, ShowWhatAnAudioFileReports) {
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("pattern.wav"));
    ASSERT_TRUE(
        TestAudio::write(path, {.frames = 88200, .encoding = LXSampleEncoding::ieeeFloat(32, false)}));
    auto file = LXAudioFile::open(path);
    ASSERT_TRUE(file) << file.error().description().toStdString();
    const QVariantMap info = (*file)->fileEntry();

    TWFormatters f;
    auto show = [&](const char* key) {
        const TWFormatter* formatter = f.formatterForKey(QString::fromLatin1(key));
        return formatter ? formatter->stringForObjectValue(info.value(QString::fromLatin1(key))) : QString();
    };
    EXPECT_EQ(show("channels"), QStringLiteral("Stereo"));
    EXPECT_EQ(show("length"), QStringLiteral("0:02.000"));
    EXPECT_EQ(f.bitRangeFormatter().stringForObjectValue(info), QStringLiteral("32-bit float"));
    EXPECT_EQ(f.decibelFormatter().stringForObjectValue(0.5), QStringLiteral("-6.02 dB"));
    EXPECT_EQ(f.decibelFormatter().stringForObjectValue(0.0), QStringLiteral("-inf dB"));
    EXPECT_TRUE(f.dataFormatter()
                    .stringForObjectValue(QByteArray(5000, 'x'))
                    .endsWith(QStringLiteral("(5,000 bytes)")));
}

// Whatever lands in an information dictionary, no formatter may crash or show garbage for it.
TEST(Formatters, WrongTypesShowNothing) {
    TWFormatters f;
    const QVariant wrong[] = {QVariant(),
                              QVariant(QVariantList{1, 2, 3}),
                              QVariant(QStringLiteral("garbage")),
                              QVariant(std::numeric_limits<double>::quiet_NaN()),
                              QVariant(-std::numeric_limits<double>::infinity()),
                              QVariant(QUrl(QStringLiteral("file:///x")))};
    EXPECT_EQ(f.formatterNamed(QStringLiteral("frobFormatter")), nullptr);
    for (const char* name : kFormatterNames) {
        const TWFormatter* formatter = f.formatterNamed(QString::fromLatin1(name));
        ASSERT_NE(formatter, nullptr) << name;
        for (const QVariant& value : wrong)
            EXPECT_EQ(formatter->stringForObjectValue(value), QString()) << name << " " << value.typeName();
        if (QLatin1String(name) != QLatin1String("dataFormatter")) {
            EXPECT_EQ(formatter->stringForObjectValue(QByteArray("\x00\xff", 2)), QString()) << name;
        }
        // Extreme numbers and odd texts must neither crash nor overflow (run under the sanitizers).
        for (const QVariant& extreme :
             {QVariant(std::numeric_limits<qint64>::min()), QVariant(std::numeric_limits<quint64>::max()),
              QVariant(1e300), QVariant(-0.0), QVariant(true), QVariant(QStringLiteral("1e308"))})
            (void)formatter->stringForObjectValue(extreme);
        for (const QString& text : {QString(), QStringLiteral("\u0000"), QString(100000, QLatin1Char('9')),
                                    QStringLiteral(":::"), QStringLiteral("1e999")})
            (void)parsed(*formatter, text); // a refusal must give a reason
    }
}
