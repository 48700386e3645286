// clipwright info: each file's entry information, as the file list shows it.

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFormat.h"
#include "lx/LXFile.h"
#include "lx/LXMetadata.h"
#include "model/TWFileEntry.h"
#include "model/TWFolderEntry.h"
#include "model/TWFormatters.h"
#include "model/TWWorkspace.h"
#include "shell/cli/TWCommandLine.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

namespace TWCommandLine {

namespace {

// The rows that have a value, under their titles and formatted, in the order of the metadata table. An
// estimate that found nothing (a null value) reads "none".
QList<QPair<QString, QString>> formattedRows(const QVariantMap& info) {
    QList<QPair<QString, QString>> rows;
    for (const TWFormatters::Row& row : TWWorkspace::workspace().formatters().displayRows(info))
        rows.append({row.title, row.text});
    return rows;
}

// The entry's information for --json: the raw values, the format's name beside its code, the levels in
// dB beside their amplitudes (null for silence: JSON has no infinity), and the shown texts.
QJsonObject jsonDocument(const TWFileEntry& entry, const QVariantMap& info) {
    QJsonObject document = QJsonObject::fromVariantMap(info);
    document.insert(QStringLiteral("status"), TWStatus::description(entry.status()));
    if (info.contains(QStringLiteral("format")))
        document.insert(QStringLiteral("formatName"),
                        LXFormat::name(uint32_t(info.value(QStringLiteral("format")).toLongLong())));
    QJsonObject decibels;
    for (const QString& title : LXMetadata::titlesForCategoryMask(LXMetadataAnalysis)) {
        const QString key = LXMetadata::keyForTitle(title);
        if (LXMetadata::formatterSelectorForKey(key) != QLatin1String("decibelFormatter") || !info.contains(key))
            continue;
        const double amplitude = std::fabs(info.value(key).toDouble());
        decibels.insert(key, amplitude > 0.0 ? QJsonValue(20.0 * std::log10(amplitude)) : QJsonValue());
    }
    document.insert(QStringLiteral("decibels"), decibels);
    QJsonObject text;
    for (const auto& [label, value] : formattedRows(info))
        text.insert(label, value);
    document.insert(QStringLiteral("display"), text);
    return document;
}

enum class Estimates { Pitch = 1, Tempo = 2 };

// The entry's information with the estimates asked for, measured now (they are not cached): "pitch" the
// MIDI note, null when none is heard; "tempoGuess" in beats per minute, null when no beat is heard.
LXResult<QVariantMap> infoWithEstimates(const TWFileEntry& entry, int estimates) {
    QVariantMap info = entry.info();
    if (!estimates) return info;
    const std::unique_ptr<LXAudioFile> file = entry.audioFile();
    if (!file) return info; // not readable: reported with the file's status
    const auto orNull = [](auto value, bool found) {
        return found ? QVariant(value) : QVariant::fromValue(nullptr);
    };
    if (estimates & int(Estimates::Pitch)) {
        const auto note = file->pitch(0, file->frames(), file->channelSet());
        if (!note) return note.error();
        info.insert(QStringLiteral("pitch"), orNull(note->value_or(0), note->has_value()));
    }
    if (estimates & int(Estimates::Tempo)) {
        const auto bpm = file->tempoGuess();
        if (!bpm) return bpm.error();
        info.insert(QStringLiteral("tempoGuess"), orNull(*bpm, *bpm > 0.0));
    }
    return info;
}

int runInfo(const Arguments& arguments, Context& context) {
    const bool json = arguments.has(QStringLiteral("json"));
    const bool analyze = !arguments.has(QStringLiteral("no-analyze"));
    const LXLoudnessAnalysis loudness =
        arguments.has(QStringLiteral("loudness")) ? LXLoudnessAnalysis::Measure : LXLoudnessAnalysis::Skip;
    const int estimates = (arguments.has(QStringLiteral("pitch")) ? int(Estimates::Pitch) : 0) |
                          (arguments.has(QStringLiteral("tempo")) ? int(Estimates::Tempo) : 0);
    if (arguments.operands.isEmpty())
        return usageError(context, QStringLiteral("info"), QStringLiteral("no file given"));

    // Files given, and the audio files in folders given, read where they are: info changes nothing, so
    // unlike a run it takes files from a read-only disk. What cannot be read is reported here.
    QList<TWFileEntryPtr> files;
    int status = kSuccess;
    for (const QString& operand : arguments.operands) {
        const QString path = LXFile::conformPath(operand);
        bool isDirectory = false;
        TWEntryPtr entry;
        if (LXFile::existsAtPath(path, &isDirectory))
            entry =
                isDirectory ? TWEntryPtr(TWFolderEntry::create(path)) : TWEntryPtr(TWFileEntry::create(path));
        if (entry)
            entry->addFileEntriesToArray(files);
        else
            status = fail(context, TWRunner::reasonUnreadable(path));
    }
    QJsonArray documents;
    for (const TWFileEntryPtr& entry : std::as_const(files)) {
        if (TWStatus::state(entry->status()) < 0) { // missing, damaged or unsupported
            status = fail(context, TWRunner::reasonUnreadable(entry->path()));
            continue;
        }
        // A file analysed without its loudness is analysed again when the loudness is asked for.
        const bool lacksLoudness =
            loudness == LXLoudnessAnalysis::Measure && !entry->info().contains(QStringLiteral("loudness"));
        if (analyze && (TWStatus::state(entry->status()) == 1 || lacksLoudness)) {
            if (context.verbosity == TWRunner::Verbosity::Verbose)
                context.err << "Analyzing " << entry->path() << Qt::endl;
            if (const LXStatus analysed = entry->analyze(loudness); !analysed)
                status = fail(context, analysed.error().description());
        }
        auto info = infoWithEstimates(*entry, estimates);
        if (!info) {
            status = fail(context, info.error().description());
            info = entry->info();
        }
        if (json) {
            documents.append(jsonDocument(*entry, *info));
            continue;
        }
        context.out << entry->path() << '\n';
        context.out << "  " << QStringLiteral("Status").leftJustified(16)
                    << TWStatus::description(entry->status()) << '\n';
        for (const auto& [label, value] : formattedRows(*info))
            context.out << "  " << label.leftJustified(16) << value << '\n';
    }
    if (json) context.out << QJsonDocument(documents).toJson(QJsonDocument::Indented);
    return status;
}

} // namespace

Command infoCommand() {
    return {
        QStringLiteral("info"),
        QStringLiteral("show the properties, levels and metadata of audio files"),
        {QStringLiteral("[OPTIONS] FILE...")},
        QStringLiteral("Shows each file, and each audio file in a folder and its subfolders, as the file\n"
                       "list sees it: its status, format, bit depth, rate, channels, length, levels (peak,\n"
                       "RMS, clipped samples, DC offset; with --loudness, loudness in LUFS, loudness range\n"
                       "and true peak), musical properties and text metadata. Files not yet analysed are\n"
                       "analysed first, and the results kept for next time. With --pitch and --tempo, the\n"
                       "note and the tempo heard in the audio, measured each time.\n"),
        {flag(QStringLiteral("json"),
              QStringLiteral(
                  "a JSON array of one object per file: the raw values, \"status\", the format's name "
                  "under \"formatName\", the levels in dB under \"decibels\" (null for silence), "
                  "and the shown texts under \"display\"")),
         flag(QStringLiteral("no-analyze"),
              QStringLiteral("do not measure levels of files not yet analysed")),
         flag(QStringLiteral("loudness"),
              QStringLiteral("also measure loudness (LUFS), loudness range and true peak, where not yet "
                             "measured: several times slower")),
         flag(QStringLiteral("pitch"),
              QStringLiteral("also estimate the dominant pitch of the audio, as the nearest MIDI note "
                             "(\"pitch\" in JSON, null when no steady pitch is heard)")),
         flag(QStringLiteral("tempo"),
              QStringLiteral("also estimate the tempo of the audio's beats (\"tempoGuess\" in JSON, in beats "
                             "per minute, null when no steady beat is heard)"))},
        QStringLiteral(
            "A file that is missing, unreadable, damaged or not audio is named on stderr with the\n"
            "reason. Exit status: 0, 8 when there was such a file, 2 for a usage error.\n"),
        runInfo};
}

} // namespace TWCommandLine
