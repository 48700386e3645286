// The action commands: options become instruction keys, typed by the action's own key table, and the
// files become the "paths" of a one-action run with source 3.

#include "shell/cli/TWActionCommands.h"

#include "shell/TWSession.h"
#include "shell/cli/TWRunner.h"

#include "engine/TWActionRegistry.h"
#include "engine/TWDescriptiveAction.h"
#include "engine/TWHandOnAction.h"

#include "lx/LXFile.h"

#include <QFileInfo>

namespace TWCommandLine {

namespace {

const QString kFadeMessage =
    QStringLiteral("The '%1' command requires either 'for' or 'below' as a parameter.");

} // namespace

const QList<ActionCommand>& actionCommands() {
    static const QList<ActionCommand> list = [] {
        QList<ActionCommand> commands;
        const auto one = [&](const char* name, const char* className) {
            commands.append({QString::fromLatin1(name), QString::fromLatin1(className), {}, {}, {}, {}, {}});
        };
        const auto two = [&](const char* name, const char* first, const char* firstClass, const char* second,
                             const char* secondClass, const QString& message) {
            commands.append({QString::fromLatin1(name), QString::fromLatin1(firstClass),
                             QString::fromLatin1(first), QString::fromLatin1(second),
                             QString::fromLatin1(secondClass), message, {}});
        };
        one("change-gain", "TWActionChangeGain");
        one("normalize", "TWActionNormalize");
        one("balance", "TWActionBalance");
        two("fade-in", "for", "TWActionFadeInFor", "below", "TWActionFadeInBelow",
            kFadeMessage.arg("Fade In"));
        two("fade-out", "for", "TWActionFadeOutFor", "below", "TWActionFadeOutBelow",
            kFadeMessage.arg("Fade Out"));
        two("trim-beginning", "beginningTo", "TWActionTrimBeginningTo", "beginningBelow",
            "TWActionTrimBeginningBelow", kFadeMessage.arg("Trim Beginning Of"));
        two("trim-end", "endFor", "TWActionTrimEndFor", "endBelow", "TWActionTrimEndBelow",
            kFadeMessage.arg("Trim End Of"));
        one("trim-around-loop", "TWActionTrimAroundLoop");
        one("shorten", "TWActionShorten");
        one("pad", "TWActionPad");
        one("extend", "TWActionExtend");
        one("crop", "TWActionCrop");
        one("snip", "TWActionSnip");
        one("convert-format", "TWActionConvertFormat");
        one("convert-rate", "TWActionConvertRate");
        one("convert-range", "TWActionConvertRange");
        one("convert-channels", "TWActionConvertChannels");
        one("make-labels-at-divisions", "TWActionLabelsAtDivisions");
        one("make-labels-for-tempo", "TWActionLabelsForTempo");
        one("make-labels-at-thresholds", "TWActionLabelsAtThresholds");
        one("remove-labels", "TWActionRemoveLabels");
        one("extract-thresholds", "TWActionExtractThresholds");
        one("extract-labels", "TWActionExtractLabels");
        one("extract-channels", "TWActionExtractChannels");
        one("join-channels", "TWActionJoinChannels");
        one("mix", "TWActionMix");
        one("append", "TWActionAppend");
        one("change-speed", "TWActionChangeSpeed");
        one("change-length", "TWActionChangeLength");
        one("change-tempo", "TWActionChangeTempo");
        one("change-pitch", "TWActionChangePitch");
        one("transpose", "TWActionTranspose");
        one("compress", "TWActionCompress");
        one("expand", "TWActionExpand");
        one("process-with-audio-unit", "TWActionAudioUnit");
        commands.last().examples = QStringLiteral(
            "Renders each file through an installed LV2 effect (clipwright plugins lists them and\n"
            "their parameters), run in a process of its own: an effect that crashes or hangs\n"
            "cancels the run and every file is left as it was. Example:\n"
            "  clipwright process-with-audio-unit --retainTail --settings \\\n"
            "      '{\"Component\": \"http://drobilla.net/plugins/mda/DubDelay\",\n"
            "        \"Parameters\": {\"delay\": 0.3, \"feedback\": 0.5}}' take.wav\n");
        one("filter-dc", "TWActionFilterDC");
        one("reverse", "TWActionReverse");
        one("compact", "TWActionCompact");
        one("set-creator", "TWActionSetCreator");
        one("set-property", "TWActionSetMetadata");
        one("set-midi-property", "TWActionSetMIDIProperty");
        one("set-musical-property", "TWActionSetMusicalProperty");
        one("set-base-note-from-pitch", "TWActionSetBaseNoteFromPitch");
        two("rename", "textFile", "TWActionRenameFromTextFile", "expression", "TWActionRenameFromTokens",
            QStringLiteral(
                "The 'Rename' command requires either an expression or a text file as a parameter."));
        commands.last().examples =
            QStringLiteral("A name that exists already is never overwritten: that file keeps its name and\n"
                           "is listed as skipped. Examples:\n"
                           "  clipwright rename --expression 'Kick /Number/./Extension/' --numberStart 1 \\\n"
                           "      --numberDigits 3 a.wav b.wav    (Kick 001.wav, Kick 002.wav)\n"
                           "  clipwright rename --expression '/Artist/ - /Title/' *.flac\n"
                           "  clipwright rename --textFile names.txt *.wav\n");
        one("create-archive", "TWActionCreateArchive");
        commands.last().examples = QStringLiteral(
            "One file gives an archive of its name beside it (take.wav: take.zip); several give\n"
            "Archive.zip, or Archive_01.zip, Archive_02.zip ... when the name is taken. Each\n"
            "file is stored under its full path. Needs the zip program.\n");
        one("send-ftp", "TWActionSendFTP");
        commands.last().examples = QStringLiteral(
            "Each file keeps its name, in --path on the server (folders are made when missing):\n"
            "  clipwright send-ftp --server ftp.example.com --username ana --password \"$PW\" \\\n"
            "      --path takes/monday *.wav\n"
            "Other users of this machine can see a command's arguments while it runs, and a\n"
            "workflow file holds the password as plain text.\n");
        one("send-idisk", "TWActionSendiDisk");
        commands.last().examples = QStringLiteral(
            "Sends each file by WebDAV into --path, folders made when missing. The account is\n"
            "read from the preferences \"WebDAV Server\" (https://dav.example.com/files/),\n"
            "\"WebDAV User\" and \"WebDAV Password\" in ~/.config/Clipwright/Clipwright.plist.\n");
        one("export-as-mp3", "TWActionExportMP3");
        one("export-as-aac", "TWActionExportAAC");
        commands.last().examples =
            QStringLiteral("The bit rate is in bit/s: give --bitRate 128000 for 128 kbit/s. The default, 128,\n"
                           "is 128 bit/s, for which the encoder makes its smallest, muffled files. Example:\n"
                           "  clipwright export-as-aac --bitRate 128000 takes/    (take.m4a beside take.wav)\n");
        one("export-as-ogg-vorbis", "TWActionExportOggVorbis");
        one("export-as-vox", "TWActionExportVox");
        one("export-as-flac", "TWActionExportFLAC");
        return commands;
    }();
    return list;
}

QList<Option> keyOptions(const QString& className) {
    const std::unique_ptr<TWAction> action = TWActionRegistry::make(className);
    if (!action) return {};
    const QStringList required = action->requiredInstructionKeys();
    QList<Option> options;
    for (const TWInstructionKey& key : action->instructionKeys()) {
        QStringList notes;
        if (required.contains(key.name))
            notes.append(QStringLiteral("required"));
        else if (key.defaultValue.isValid() && !key.describe(key.defaultValue).isEmpty()) // not empty text
            notes.append(QStringLiteral("default %1").arg(key.describe(key.defaultValue)));
        if (key.details.range)
            notes.append(
                QStringLiteral("from %1 to %2")
                    .arg(key.describe(key.details.range->minimum), key.describe(key.details.range->maximum)));
        else if (key.type == TWValueType::Number && !key.details.unit.isEmpty())
            notes.append(QStringLiteral("in %1").arg(key.details.unit));
        if (!key.details.choices.isEmpty() && key.type != TWValueType::Boolean) {
            QStringList choices;
            for (const TWChoice& choice : key.details.choices)
                choices.append(choice.code ? QStringLiteral("%1 or %2 (%3)")
                                                 .arg(key.describe(choice.value),
                                                      TWInstructionKey::describeCode(choice.code), choice.title)
                                           : QStringLiteral("%1 (%2)").arg(key.describe(choice.value), choice.title));
            notes.append(QStringLiteral("one of ") + choices.join(QStringLiteral(", ")));
        }
        const QString noted =
            notes.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(notes.join(QStringLiteral("; ")));
        Option option{key.name, key.help + noted, Option::Value::Required,
                      key.type == TWValueType::Dictionary ? QStringLiteral("JSON")
                                                          : TWInstructionKey::typeName(key.type).toUpper()};
        if (key.type == TWValueType::Boolean) { // "--rms" alone is "--rms yes"
            option.value = Option::Value::Optional;
            option.isValue = [key](const QString& text) { return bool(key.valueFromText(text)); };
        }
        options.append(option);
    }
    return options;
}

namespace {

// The first of the command's actions that this version has; none when the command is not available.
std::unique_ptr<TWAction> firstAction(const ActionCommand& command) {
    if (std::unique_ptr<TWAction> action = TWActionRegistry::make(command.className)) return action;
    return command.secondClassName.isEmpty() ? nullptr : TWActionRegistry::make(command.secondClassName);
}

const Option* optionNamed(const QString& name, const QList<Option>& options) {
    for (const Option& option : options)
        if (option.name == name) return &option;
    return nullptr;
}

// The keys of the command's actions, each once, then the choosing options that are not keys, where the
// results go, and how the run goes.
QList<Option> actionOptions(const ActionCommand& command) {
    QList<Option> options;
    for (const QString& className : {command.className, command.secondClassName})
        for (const Option& option : keyOptions(className))
            if (!optionNamed(option.name, options)) options.append(option);
    for (const QString& name : {command.firstOption, command.secondOption})
        if (!name.isEmpty() && !optionNamed(name, options))
            options.append(valued(name, QStringLiteral("NUMBER"), QStringLiteral("chooses the action")));
    // Where new files go, when either action can make them.
    bool makesNewFiles = false;
    for (const QString& className : {command.className, command.secondClassName})
        if (const std::unique_ptr<TWAction> action = TWActionRegistry::make(className))
            makesNewFiles = makesNewFiles || !action->onlyInPlace();
    if (makesNewFiles)
        options +=
            {flag(QStringLiteral("to-new-file"),
                  QStringLiteral("write new files beside the sources instead of replacing them (never "
                                 "overwrites: names are numbered)")),
             valued(QStringLiteral("directory"), QStringLiteral("DIR"),
                    QStringLiteral("write the new files into DIR")),
             flag(QStringLiteral("add-to-list"), QStringLiteral("add the new files to the file list"))};
    return options + runOptions();
}

// The option's value, typed by whichever of the command's actions knows the key.
std::optional<TWInstructionKey> keyNamed(const QString& name, const QList<TWInstructionKey>& keys) {
    for (const TWInstructionKey& key : keys)
        if (key.name == name) return key;
    return std::nullopt;
}

int runActionCommand(const ActionCommand& command, const Arguments& arguments, Context& context) {
    QList<TWInstructionKey> keys;
    for (const QString& className : {command.className, command.secondClassName})
        if (auto action = TWActionRegistry::make(className)) keys += action->instructionKeys();
    // The choosing options are instruction keys of their own, whatever type the action gives them.
    for (const QString& option : {command.firstOption, command.secondOption})
        if (!option.isEmpty() && !keyNamed(option, keys))
            keys.append({option, TWValueType::Number, {}, {}, {}});

    QVariantMap values;
    bool toNewFile = false;
    bool addToList = false;
    QString directory;
    for (const auto& [name, text] : arguments.options) {
        if (name == u"to-new-file") {
            toNewFile = true;
        } else if (name == u"add-to-list") {
            addToList = true;
        } else if (name == u"directory") {
            directory = LXFile::conformPath(text);
            toNewFile = true;
        } else if (const std::optional<TWInstructionKey> key = keyNamed(name, keys)) {
            if (key->type == TWValueType::Boolean && text.isEmpty()) { // "--rms" alone is "--rms yes"
                values.insert(key->name, true);
                continue;
            }
            const LXResult<QVariant> value = key->valueFromText(text);
            if (!value) return usageError(context, command.name, value.error().message());
            values.insert(key->name, *value);
        }
    }
    const QStringList& files = arguments.operands;
    if (files.isEmpty()) return usageError(context, command.name, "no files given");

    QString className = command.className;
    if (!command.secondClassName.isEmpty()) {
        if (values.contains(command.firstOption))
            className = command.className;
        else if (values.contains(command.secondOption))
            className = command.secondClassName;
        else
            return fail(context, command.missingChoiceMessage);
        if (!TWActionRegistry::isRegistered(className))
            return fail(
                context,
                QStringLiteral("'%1' with this option is not available in this version.").arg(command.name));
    }

    // Names and metadata change without the audio being written again, and files handed on (archived,
    // sent) are only read: no codec is at stake.
    const std::unique_ptr<TWAction> running = TWActionRegistry::make(className);
    const bool rewritesAudio =
        !dynamic_cast<TWDescriptiveAction*>(running.get()) && !dynamic_cast<TWHandOnAction*>(running.get());
    QList<TWFileReport> refused;
    const QStringList paths = TWRunner::addFiles(context.session.workspace(), files, refused,
                                                 !rewritesAudio || arguments.has(QStringLiteral("accept-reencode")));
    if (!refused.isEmpty() && !arguments.has(QStringLiteral("keep-going")))
        return TWRunner::refuse(context, refused);
    if (paths.isEmpty() && refused.isEmpty()) return fail(context, "no audio files to process");

    QVariantMap destination{{QStringLiteral("toNewFile"), toNewFile},
                            {QStringLiteral("addToList"), addToList}};
    if (!directory.isEmpty()) destination.insert(QStringLiteral("directory"), directory);
    QVariantMap instructions = values;
    instructions.insert(QStringLiteral("class"), className);
    instructions.insert(QStringLiteral("source"), qint64(3));
    instructions.insert(QStringLiteral("paths"), paths);
    instructions.insert(QStringLiteral("destination"), destination);

    // The engine refuses missing keys in its own words; the command line adds which options those are.
    QStringList missing;
    if (const std::unique_ptr<TWAction> action = TWActionRegistry::make(className))
        for (const QString& key : action->requiredInstructionKeys())
            if (!values.contains(key)) missing.append(QStringLiteral("--") + key);

    TWRunner::Outcome outcome = TWRunner::run(context, {instructions}, runOptionsFrom(arguments), refused);
    if (outcome.error && !missing.isEmpty())
        *outcome.error += QStringLiteral(" Give %1.").arg(missing.join(QStringLiteral(", ")));
    return TWRunner::conclude(context, outcome);
}

Command commandFor(const ActionCommand& command) {
    const std::unique_ptr<TWAction> action = firstAction(command);
    Command result{command.name,     {}, {QStringLiteral("[OPTIONS] FILE...")}, {}, {}, {}, {},
                   action != nullptr};
    if (!action) {
        result.description =
            QStringLiteral("This command's action is not available in this version of Clipwright.\n");
        return result;
    }
    result.summary = action->name().toLower();
    QString runs = QStringLiteral("\"%1\"").arg(action->name());
    if (const std::unique_ptr<TWAction> second = TWActionRegistry::make(command.secondClassName)) {
        // A command of two actions: the option given chooses which one runs.
        result.summary = QStringLiteral("%1 (--%2) or %3 (--%4)")
                             .arg(action->name().toLower(), command.firstOption, second->name().toLower(),
                                  command.secondOption);
        runs = QStringLiteral("\"%1\" (with --%2) or \"%3\" (with --%4)")
                   .arg(action->name(), command.firstOption, second->name(), command.secondOption);
    }
    result.description =
        dynamic_cast<TWHandOnAction*>(action.get())
            ? QStringLiteral("Runs %1 over the files (or the audio files in a folder),\nwhich it only "
                             "reads, and prints their paths, one a line.\n")
                  .arg(runs)
            : QStringLiteral("Runs %1\nover each file (or each audio file in a folder), in place unless told "
                             "otherwise,\nand prints the paths of the files produced, one a line. In-place "
                             "changes can be\nundone with 'clipwright undo'.\n")
                  .arg(runs);
    result.options = actionOptions(command);
    result.notes =
        command.examples + (command.examples.isEmpty() ? "" : "\n") +
        QStringLiteral("Ctrl-C stops after the current file; a second Ctrl-C cancels and puts back the\n"
                       "files this command replaced. Exit status: 0 done, 3 some files skipped\n"
                       "(--keep-going), 8 failed, 2 usage error.\n");
    result.run = [command](const Arguments& arguments, Context& context) {
        return runActionCommand(command, arguments, context);
    };
    return result;
}

} // namespace

QList<Command> actionCommandList() {
    QList<Command> list;
    for (const ActionCommand& command : actionCommands())
        list.append(commandFor(command));
    return list;
}

} // namespace TWCommandLine
