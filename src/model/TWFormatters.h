#pragma once

#include <QList>
#include <QString>
#include <QVariant>

#include <atomic>
#include <memory>

// Turns a value from an entry's information dictionary into the text shown in a column, and where the
// user may type the value, parses the text back. Every formatter answers "" for an absent value or one of
// the wrong type, so a damaged dictionary never takes the list down.
class TWFormatter {
public:
    virtual ~TWFormatter() = default;
    virtual QString stringForObjectValue(const QVariant& value) const = 0;
    // Parses text back into a value; false (and a reason) when the text does not parse or the formatter does
    // not parse.
    virtual bool getObjectValue(QVariant* value, const QString& text, QString* error = nullptr) const;
};

// Display formats of durations and positions, chosen by the "Time Format" preference; other values
// show as minutes.
enum TWTimeFormat {
    TWTimeFormatMinutes = 0,      // "1:02.345"
    TWTimeFormatSeconds = 1,      // "62.345 s"
    TWTimeFormatFrames = 2,       // "00:01:02:10", 30 frames a second
    TWTimeFormatMilliseconds = 3, // "62345 ms"
    TWTimeFormatHours = 13,       // "0:01:02.345"
};

// How the range formatter lays out a stretch ("Range Format" preference); other values show start - end.
enum TWRangeFormat {
    TWRangeFormatStartEnd = 0,    // "0:01.000 - 0:03.500"
    TWRangeFormatStartLength = 1, // "0:01.000 + 0:02.500"
    TWRangeFormatLength = 2,      // "0:02.500"
};

// Seconds as text in one of the time formats; "" when the value is not a finite number of at most 10^9 s.
QString TWStringFromSeconds(double seconds, int format);
// Reads any of the time formats back, whatever the current one: "1:02.345", "0:01:02.345", "62.345 s",
// "62.345", "62345 ms", "00:01:02:10". False (and a reason) when the text is none of them.
bool TWSecondsFromString(const QString& text, double* seconds, QString* error = nullptr);

// The shared formatters of a workspace. What each takes and shows ("<-" marks the ones that parse, giving
// back the same kind of value; numbers also arrive as text of a number):
//   time           seconds                        "1:02.345" in the time format          <-
//   range          {"start","end"} seconds, also {"location","length"}, [start, end] or an LXRange;
//                  "0:01.000 - 0:03.500" in the range format; parses to {"start","end"}  <-
//   creator        four-character code            "TWKW"; parses 1-4 printable characters <-
//   fileSize       bytes                          "1.2 MB" (decimal units)
//   format         four-character code            "WAVE", "Core Audio"
//   bitRange       bits, or a whole information dictionary ("range", "float")   "24-bit", "32-bit float"
//   sampleRate     Hz                             "44.1 kHz"                              <-
//   channels       count                          "Mono", "Stereo", "6 channels"
//   samples        frames                         "1,234,567"                             <-
//   decibel        linear amplitude               "-6.02 dB", "-inf dB"                   <-
//   loudness       LUFS, -inf for silence         "-23.0 LUFS"
//   loudnessRange  LU                             "5.2 LU"
//   difference     DC offset, fraction of full scale   "0.125 %"
//   clipped        count                          "1,234"
//   midiNote       0-127                          "C3" = 60, "F#4"; parses sharps and flats <-
//   gain           dB                             "+3 dB"                                 <- -64..64
//   detune         cents                          "+12 ct"                                <- -50..50
//   tempo          BPM                            "120.00 BPM"                            <-
//   timeSignature  text                           "7/8"                                   <-
//   key            pitch class 0 = C              "F#"                                    <-
//   scale          1 minor, 2 major, 3 neither, 4 both   "Major"                          <-
//   barsBeats      beats, four to the bar         "2 bars 1 beat"                         <-
//   playbackType   0 loop, 1 one-shot             "Loop", "One Shot"                      <-
//   data           QByteArray                     "<00112233 44>", the first 32 bytes
//   date           QDateTime or QDate             "2024-05-01 13:45:07", local time       <-
// The formatters hold no state but the two formats and may be used from any thread.
class TWFormatters {
public:
    TWFormatters();
    ~TWFormatters();
    TWFormatters(const TWFormatters&) = delete;
    TWFormatters& operator=(const TWFormatters&) = delete;

    const TWFormatter& timeFormatter() const;
    const TWFormatter& rangeFormatter() const;
    const TWFormatter& creatorFormatter() const;
    const TWFormatter& fileSizeFormatter() const;
    const TWFormatter& formatFormatter() const;
    const TWFormatter& bitRangeFormatter() const;
    const TWFormatter& sampleRateFormatter() const;
    const TWFormatter& channelsFormatter() const;
    const TWFormatter& samplesFormatter() const;
    const TWFormatter& decibelFormatter() const;
    const TWFormatter& loudnessFormatter() const;
    const TWFormatter& loudnessRangeFormatter() const;
    const TWFormatter& differenceFormatter() const;
    const TWFormatter& clippedFormatter() const;
    const TWFormatter& midiNoteFormatter() const;
    const TWFormatter& gainFormatter() const;
    const TWFormatter& detuneFormatter() const;
    const TWFormatter& tempoFormatter() const;
    const TWFormatter& timeSignatureFormatter() const;
    const TWFormatter& keyFormatter() const;
    const TWFormatter& scaleFormatter() const;
    const TWFormatter& barsBeatsFormatter() const;
    const TWFormatter& playbackTypeFormatter() const;
    const TWFormatter& dataFormatter() const;
    const TWFormatter& dateFormatter() const;

    // Safe to call while another thread formats: the formats are read atomically.
    void setTimeFormat(int format);
    void setRangeFormat(int format);
    int timeFormat() const;
    int rangeFormat() const;

    // The formatter for the values of an information key ("baseNote" -> midiNoteFormatter, "max" ->
    // decibelFormatter, ...), or nullptr for keys shown as they are stored.
    const TWFormatter* formatterForKey(const QString& key) const;
    // An entry's information as the details and `clipwright info` show it: the keys that have a value, in
    // the order of the metadata table, each under its title and as stringForKey gives it.
    struct Row {
        QString key, title, text;
    };
    QList<Row> displayRows(const QVariantMap& info) const;

    // The text shown for a value of an information key, in a column of the file list, a details row or
    // `clipwright info`: through the key's formatter, as stored when it has none, and "none" for an
    // estimate that found nothing (a null value).
    QString stringForKey(const QString& key, const QVariant& value) const;
    // The formatter of an accessor name ("midiNoteFormatter"), or nullptr.
    const TWFormatter* formatterNamed(const QString& name) const;
    // A time formatter of its own, in whatever TWTimeFormat `format` holds when it formats (a panel's
    // field whose format the user picks apart from the preference). `format` must outlive it.
    static std::unique_ptr<TWFormatter> timeFormatterFollowing(const std::atomic<int>& format);

private:
    struct Private;
    std::unique_ptr<Private> d;
};
