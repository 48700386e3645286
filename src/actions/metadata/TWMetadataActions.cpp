// Metadata: the creator code, a text field, a MIDI property or a musical property of each file, changed in
// place without touching its audio. Each change leaves instructions that set the old value back: the
// value as the file stored it, so an undo restores it exactly (a tempo of 120.125 does not come back as
// the 120.13 a formatter shows), and none when the file had none, which removes the field again.

#include "engine/TWActionRegistry.h"
#include "engine/TWActionRun.h"
#include "engine/TWDescriptiveAction.h"

#include "model/TWFileEntry.h"
#include "model/TWFormatters.h"
#include "model/TWWorkspace.h"

#include "lx/LXAudioFile.h"
#include "lx/LXFile.h"
#include "lx/LXMetadata.h"

namespace {

const TWKey<QString> kCreator{QStringLiteral("creator"), QString(),
                              QStringLiteral("the creator code, one to four characters; empty removes it")};
const TWKey<QString> kValue{QStringLiteral("value"), QString(),
                            QStringLiteral("the new value, as the details show it; empty removes the field")};

QVariantMap undoRecord(const QString& className, const QString& path) {
    return {{QStringLiteral("source"), 3},
            {QStringLiteral("class"), className},
            {QStringLiteral("paths"), QStringList{path}}};
}

LXResult<std::unique_ptr<LXAudioFile>> openFile(const TWFileEntryPtr& entry) {
    auto file = LXAudioFile::open(entry->path());
    if (file) (*file)->setProgressDelegate(entry.get());
    return file;
}

// Creator
// -----------------------------------------------------------------------------------------------------

class TWActionSetCreator final : public TWDescriptiveAction {
public:
    QString className() const override { return QStringLiteral("TWActionSetCreator"); }
    QString name() const override { return QStringLiteral("Set Creator"); }
    QString verb() const override { return QStringLiteral("Changing creator..."); }
    bool onlyInPlace() const override { return true; }
    QList<TWInstructionKey> instructionKeys() const override { return {kCreator}; }
    QStringList requiredInstructionKeys() const override { return {}; }

protected:
    TWOutcome preProcessWithEntries(const QList<TWFileEntryPtr>&, const QVariantMap& instructions) override {
        QString why;
        QVariant code;
        if (kCreator(instructions).isEmpty() || formatter().getObjectValue(&code, kCreator(instructions), &why))
            return TWOutcome::success();
        return LXError(LXErrInvalidParameter, why);
    }
    TWOutcome changeEntry(const TWFileEntryPtr& entry, const QVariantMap& instructions, QVariantList& undo,
                          QList<TWFileEntryPtr>& results) override {
        results.append(entry);
        const QString path = entry->path();
        QVariant code = 0;
        if (!kCreator(instructions).isEmpty()) formatter().getObjectValue(&code, kCreator(instructions));
        const uint32_t old = LXFile::creatorCodeAtPath(path);
        if (old == code.toUInt()) return TWOutcome::unchanged();
        LX_TRY(LXFile::setCreatorCodeAtPath(path, code.toUInt()));
        QVariantMap record = undoRecord(className(), path);
        record.insert(kCreator.name, old ? formatter().stringForObjectValue(old) : QString());
        undo.append(record);
        run().repointEntries(path, path);
        return TWOutcome::success();
    }

private:
    static const TWFormatter& formatter() { return TWWorkspace::workspace().formatters().creatorFormatter(); }
};

// Properties
// -----------------------------------------------------------------------------------------------------

// The change of one field of a file, and the record that sets it back. A field can bring others with it
// (a tempo makes a loop chunk, which also states a meter), so the record names, under "restore", every
// other field the file gained, lost or changed, with its old value ("" for none), and running the record
// sets those too.
class TWFieldAction : public TWDescriptiveAction {
public:
    bool onlyInPlace() const override { return true; }

protected:
    static inline const QString kRestore = QStringLiteral("restore");

    TWOutcome changeField(LXAudioFile& file, const QString& key, const QVariant& value,
                          const QVariantMap& restore, const QString& undoClass, QVariantList& undo) {
        const LXMetadata before = file.metadata();
        LXMetadata metadata = before;
        metadata.setValue(key, value);
        for (auto field = restore.cbegin(); field != restore.cend(); ++field)
            metadata.setValue(field.key(), field.value());
        if (metadata == before) return TWOutcome::unchanged();
        if (const TWOutcome saved = saveMetadata(file, metadata); !saved.goesOn()) return saved;

        auto reread = LXAudioFile::open(file.path());
        const LXMetadata after = reread ? (*reread)->metadata() : metadata;
        QVariantMap record = undoRecord(undoClass, file.path());
        record.insert(QStringLiteral("key"), key);
        if (before.contains(key)) record.insert(kValue.name, before.value(key));
        QVariantMap changed;
        QStringList keys = before.keys() + after.keys();
        keys.removeDuplicates();
        for (const QString& other : std::as_const(keys))
            if (other != key && before.value(other) != after.value(other))
                changed.insert(other, before.contains(other) ? before.value(other) : QVariant(QString()));
        if (!changed.isEmpty()) record.insert(kRestore, changed);
        undo.append(record);
        return TWOutcome::success();
    }
};

// The shape of the three property actions: a field out of a list, and a value typed as the details show
// it. An unknown field or a value that does not read as one of the field's stops the run before a file
// is touched; so does a field the file's format has no place for, for that file.
class TWPropertyAction : public TWFieldAction {
public:
    QString verb() const override { return QStringLiteral("Setting property..."); }
    QList<TWInstructionKey> instructionKeys() const override {
        QList<TWChoice> fields;
        for (const QString& title : titles())
            fields.append({LXMetadata::keyForTitle(title), title});
        return {TWKey<QString>(QStringLiteral("key"), std::nullopt, QStringLiteral("the field to set"),
                               TWKeyDetails::oneOf(fields)),
                kValue};
    }
    QStringList requiredInstructionKeys() const override { return {QStringLiteral("key")}; }

protected:
    // The titles of the fields the action sets, in the order its pop-up lists them.
    virtual QStringList titles() const = 0;
    // The value stored for the text typed; nothing when it does not read as one of the field's.
    virtual std::optional<QVariant> valueFor(const QString& key, const QVariant& value) const = 0;

    TWOutcome preProcessWithEntries(const QList<TWFileEntryPtr>&, const QVariantMap& instructions) override {
        const QString key = instructions.value(QStringLiteral("key")).toString();
        if (!titles().contains(LXMetadata::titleForKey(key)))
            return LXError(LXErrInvalidParameter,
                           QStringLiteral("'%1' is not a field %2 sets").arg(key, name().toLower()));
        if (!valueFor(key, instructions.value(kValue.name, QString())))
            return LXError(LXErrInvalidParameter, QStringLiteral("'%1' is not a value of %2")
                                                      .arg(kValue(instructions), LXMetadata::titleForKey(key)));
        return TWOutcome::success();
    }

    TWOutcome changeEntry(const TWFileEntryPtr& entry, const QVariantMap& instructions, QVariantList& undo,
                          QList<TWFileEntryPtr>& results) override {
        results.append(entry);
        auto opened = openFile(entry);
        if (!opened) return skip(opened.error());
        const QString key = instructions.value(QStringLiteral("key")).toString();
        return changeField(**opened, key, *valueFor(key, instructions.value(kValue.name, QString())),
                           instructions.value(kRestore).toMap(), className(), undo);
    }
};

class TWActionSetMetadata final : public TWPropertyAction {
public:
    QString className() const override { return QStringLiteral("TWActionSetMetadata"); }
    QString name() const override { return QStringLiteral("Set Property"); }

protected:
    QStringList titles() const override { return LXMetadata::titlesForCategoryMask(LXMetadataTextFields); }
    std::optional<QVariant> valueFor(const QString&, const QVariant& value) const override {
        return value.toString();
    }
};

// MIDI and musical values are read through the field's formatter ("C3", "+12 ct", "120 BPM", "7/8"), or as
// a whole number when the field has none; a number given as a number (an undo's) is taken as it is.
class TWNumericPropertyAction : public TWPropertyAction {
protected:
    std::optional<QVariant> valueFor(const QString& key, const QVariant& value) const override {
        if (value.typeId() != QMetaType::QString) return value;
        const QString text = value.toString().trimmed();
        if (text.isEmpty()) return QVariant(); // removes the field
        if (const TWFormatter* formatter = TWWorkspace::workspace().formatters().formatterForKey(key)) {
            QVariant parsed;
            if (!formatter->getObjectValue(&parsed, text)) return std::nullopt;
            return parsed;
        }
        bool number = false;
        const int whole = text.toInt(&number);
        if (!number) return std::nullopt;
        return whole;
    }
};

class TWActionSetMIDIProperty final : public TWNumericPropertyAction {
public:
    QString className() const override { return QStringLiteral("TWActionSetMIDIProperty"); }
    QString name() const override { return QStringLiteral("Set MIDI Property"); }

protected:
    QStringList titles() const override { return LXMetadata::titlesForCategoryMask(LXMetadataMIDI); }
};

class TWActionSetMusicalProperty final : public TWNumericPropertyAction {
public:
    QString className() const override { return QStringLiteral("TWActionSetMusicalProperty"); }
    QString name() const override { return QStringLiteral("Set Musical Property"); }

protected:
    // Bars and beats is how the beats show, not a field of its own.
    QStringList titles() const override {
        QStringList titles = LXMetadata::titlesForCategoryMask(LXMetadataMusical);
        titles.removeAll(LXMetadata::titleForKey(QStringLiteral("barsBeats")));
        return titles;
    }
};

// Base note from pitch
// -----------------------------------------------------------------------------------------------------

// The note heard in the whole file (lx/dsp/LXPitchDetector.h) becomes its base note. A file in which no
// steady pitch is heard (silence, noise, a drum) keeps the base note it has, and the run says so. Undoing
// runs Set MIDI Property, which sets the old note back.
class TWActionSetBaseNoteFromPitch final : public TWFieldAction {
public:
    QString className() const override { return QStringLiteral("TWActionSetBaseNoteFromPitch"); }
    QString name() const override { return QStringLiteral("Set MIDI Base Note from Pitch"); }
    QString verb() const override { return QStringLiteral("Setting base note..."); }
    QStringList requiredInstructionKeys() const override { return {}; }

protected:
    TWOutcome changeEntry(const TWFileEntryPtr& entry, const QVariantMap&, QVariantList& undo,
                          QList<TWFileEntryPtr>& results) override {
        results.append(entry);
        auto opened = openFile(entry);
        if (!opened) return skip(opened.error());
        LXAudioFile& file = **opened;
        const auto note = file.pitch(0, file.frames(), file.channelSet());
        if (!note) return note.error();
        if (!*note) return TWOutcome::unchanged().withNote(QStringLiteral("no steady pitch is heard"));
        const TWOutcome changed = changeField(file, QStringLiteral("baseNote"), **note, {},
                                              QStringLiteral("TWActionSetMIDIProperty"), undo);
        const QString shown = TWWorkspace::workspace().formatters().midiNoteFormatter().stringForObjectValue(**note);
        return changed.goesOn() || changed.kind() == TWOutcome::Kind::Unchanged
                   ? changed.withNote(QStringLiteral("base note %1").arg(shown))
                   : changed;
    }
};

} // namespace

TW_REGISTER_ACTION(TWActionSetCreator)
TW_REGISTER_ACTION(TWActionSetMetadata)
TW_REGISTER_ACTION(TWActionSetMIDIProperty)
TW_REGISTER_ACTION(TWActionSetMusicalProperty)
TW_REGISTER_ACTION(TWActionSetBaseNoteFromPitch)
