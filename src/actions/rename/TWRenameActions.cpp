// Renaming: each file's new name is built from an expression of tokens (the old name, a running number,
// the format's extension, metadata fields by their titles) or taken from a line of a text file. A name
// that is taken is never overwritten: the file keeps its own and the run says so. Undo renames back by
// running Rename From Tokens with the old name as the expression, whichever action renamed.

#include "engine/TWActionRegistry.h"
#include "engine/TWActionRun.h"
#include "engine/TWDescriptiveAction.h"

#include "model/TWFileEntry.h"
#include "model/TWFormatters.h"
#include "model/TWGroupEntry.h"
#include "model/TWWorkspace.h"
#include "platform/TWHandOver.h"

#include "lx/LXAudioFile.h"
#include "lx/LXMetadata.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>
#include <utility>

namespace {

const QString kTokensClass = QStringLiteral("TWActionRenameFromTokens");

// Required; a new action starts from the old name, which renames nothing.
const TWKey<QString> kExpression{
    QStringLiteral("expression"), QStringLiteral("/Name/"),
    QStringLiteral("the new name: text with the tokens /Name/ (the old name without its extension), /Number/ "
                   "(the running number), /Extension/ (the format's extension; none is added otherwise) and "
                   "any field title such as /Artist/, /Tempo/ or /Base Note/ (a field the file lacks, or "
                   "an unknown title, gives nothing; a \"/\" in a value becomes \"-\")")};
const TWKey<qint64> kNumberStart{QStringLiteral("numberStart"), 0,
                                 QStringLiteral("the first file's /Number/")};
const TWKey<qint64> kNumberStep{QStringLiteral("numberStep"), 1,
                                QStringLiteral("what /Number/ grows by from one file to the next")};
const TWKey<qint64> kNumberDigits{
    QStringLiteral("numberDigits"), 2,
    QStringLiteral("digits of /Number/, zero-padded; below 1 counts as 1, above 8 as 8")};
const TWKey<bool> kAscending{QStringLiteral("ascending"), true,
                             QStringLiteral("count up; no counts down from numberStart")};
const TWPathKey kTextFile{QStringLiteral("textFile"),
                          QStringLiteral("required: a plain text file holding the new names, one a line, in "
                                         "the order of the files; a blank line or the end of the text leaves "
                                         "a file's name")};

// Renaming the files (the run's phase, in its errors).
const QString kPhase = QStringLiteral("Renaming the files");

TWControl control(const TWInstructionKey& key, const QString& label,
                  TWControlKind kind = TWControlKind::Field, QList<TWChoice> choices = {}) {
    return {kind, key.name, label, 0, 0, 0, {}, std::move(choices)};
}

// The name a file is shown under, without the extension: a split set's name has none.
QString baseNameOf(const LXAudioFile& file) {
    return file.isInterleaved() ? QFileInfo(file.path()).completeBaseName() : file.displayName();
}

// A metadata value as the file list shows it: through the key's formatter, if it has one.
QString textOfValue(const QString& key, const QVariant& value, const TWFormatters& formatters) {
    if (const TWFormatter* formatter = formatters.formatterForKey(key))
        return formatter->stringForObjectValue(value);
    switch (value.typeId()) {
    case QMetaType::QVariantList:
    case QMetaType::QStringList:
        return value.toList().value(0).toString();
    case QMetaType::QDateTime:
        return value.toDateTime().toString(Qt::ISODate);
    case QMetaType::QByteArray:
        return QString::fromLatin1(value.toByteArray().toHex());
    default:
        return value.toString();
    }
}

struct TWRenamed {
    QString path, name;
};

// Shows the renames of a run in one walk of the tree: each other entry of a renamed file takes its new path
// and name, and each entry of a folder where files were renamed sorts its children again. A rename adds
// and removes no file, so no folder is read again (which would open every file of it).
void showRenames(TWEntry& parent, const QHash<QString, TWRenamed>& renamed, const QSet<QString>& folders,
                 TWWorkspace& workspace) {
    for (const TWEntryPtr& child : parent.entries()) {
        if (const auto to = renamed.constFind(child->path()); to != renamed.cend()) {
            child->setPath(to->path);
            child->setName(to->name);
            workspace.reloadEntry(child.get());
        }
        if (child->isLeaf()) continue;
        showRenames(*child, renamed, folders, workspace);
        if (folders.contains(child->path())) {
            child->sortEntriesWithDescriptors(workspace.sortDescriptors());
            workspace.reloadEntryAndChildren(child.get());
        }
    }
}

// Both actions rename through this: in place, never over an existing file, with the record that renames
// back at the head of undo (a later rename may have taken a name an earlier one freed, so undo goes in
// reverse). The entry shows its new name at once; the tree's other entries of the file and its folder's
// order follow at the end of the run, in one walk on the main thread.
class TWRenameAction : public TWDescriptiveAction {
public:
    QString verb() const override { return QStringLiteral("Renaming..."); }

protected:
    QString processingPhase() const override { return kPhase; }
    bool skipsFailedFiles() const override { return true; } // a taken name or a failed rename leaves one file
    void postProcess() override {
        if (m_renamed.isEmpty()) return;
        TWWorkspace& workspace = run().context().workspace;
        const auto show = [&workspace, renamed = std::exchange(m_renamed, {}),
                           folders = std::exchange(m_folders, {})] {
            showRenames(*workspace.rootGroup(), renamed, folders, workspace);
        };
        if (isInMainThread())
            show();
        else
            TWHandOver(&workspace, show);
    }

    // A name a folder cannot hold as a file's is refused before it reaches the file system.
    static std::optional<LXError> unusable(const QString& name) {
        if (name.isEmpty() || name == u"." || name == u"..")
            return LXError(LXErrInvalidParameter,
                           QStringLiteral("the new name '%1' is no file name").arg(name));
        return std::nullopt;
    }

    TWOutcome renameInPlace(const TWFileEntryPtr& entry, LXAudioFile& file, const QString& name,
                            QVariantList& undo) {
        const QString oldPath = file.path();
        const QString oldName = file.displayName();
        if (name == oldName) return TWOutcome::unchanged();
        if (auto refused = unusable(name)) return *refused;
        const QString folder = QFileInfo(oldPath).path();
        if (const LXStatus renamed = file.renameToPath(folder + u'/' + name); !renamed) {
            if (renamed.error().errnum() == EEXIST)
                return LXError(LXErrWriteFailed,
                               QStringLiteral("'%1' keeps its name: '%2' exists")
                                   .arg(oldPath, QFileInfo(renamed.error().path()).fileName()));
            return renamed.error();
        }
        undo.prepend(QVariantMap{{TWKeys::source.name, qint64(TWSource::Paths)},
                                 {TWKeys::actionClass.name, kTokensClass},
                                 {TWKeys::destination.name, QVariantMap{{TWKeys::toNewFile.name, false}}},
                                 {TWKeys::paths.name, QStringList{file.path()}},
                                 {kExpression.name, oldName}});
        entry->setPath(file.path());
        entry->setName(file.displayName());
        run().context().workspace.reloadEntry(entry.get());
        m_renamed.insert(oldPath, {file.path(), file.displayName()});
        m_folders.insert(folder);
        return TWOutcome::success();
    }

private:
    QHash<QString, TWRenamed> m_renamed; // this run's renames, by old path
    QSet<QString> m_folders;             // where they were made
};

// Rename From Tokens
// ----------------------------------------------------------------------------------------------

class TWActionRenameFromTokens final : public TWRenameAction {
public:
    QString className() const override { return kTokensClass; }
    QString name() const override { return QStringLiteral("Rename From Tokens"); }
    QList<TWInstructionKey> instructionKeys() const override {
        return {kExpression, kNumberStart, kNumberStep, kNumberDigits, kAscending};
    }
    QStringList requiredInstructionKeys() const override { return {kExpression.name}; }
    QList<TWControl> panelControls() const override {
        const QList<TWChoice> directions{{true, QStringLiteral("Ascending"), 0},
                                         {false, QStringLiteral("Descending"), 0}};
        return {control(kExpression, QStringLiteral("Name")), control(kNumberStart, QStringLiteral("Start")),
                control(kNumberStep, QStringLiteral("Step")),
                control(kNumberDigits, QStringLiteral("Digits")),
                control(kAscending, {}, TWControlKind::Segmented, directions)};
    }
    // Typed numbers are whole; the digits are held to what a name can use.
    QVariant valueFromControl(const TWControl& control, const QVariant& value) const override {
        if (control.key == kNumberDigits.name) return std::clamp<qint64>(qRound64(value.toDouble()), 1, 8);
        if (control.key == kNumberStart.name || control.key == kNumberStep.name)
            return qRound64(value.toDouble());
        return value;
    }

protected:
    TWOutcome preProcessWithEntries(const QList<TWFileEntryPtr>&, const QVariantMap& instructions) override {
        m_expression = kExpression(instructions);
        if (m_expression.isEmpty())
            return LXError(LXErrInvalidParameter, QStringLiteral("the expression is empty"));
        m_number = kNumberStart(instructions);
        m_step = kAscending(instructions) ? kNumberStep(instructions) : -kNumberStep(instructions);
        m_digits = int(std::clamp<qint64>(kNumberDigits(instructions), 1, 8));
        return TWOutcome::success();
    }

    TWOutcome changeEntry(const TWFileEntryPtr& entry, const QVariantMap&, QVariantList& undo,
                          QList<TWFileEntryPtr>& results) override {
        const qint64 number = std::exchange(m_number, m_number + m_step); // it advances whatever happens
        auto opened = LXAudioFile::open(entry->path());
        if (!opened) {
            results.append(entry);
            return opened.error();
        }
        LXAudioFile& file = **opened;
        const QString name = nameFor(*entry, file, number);
        if (!run().toNewFile()) {
            results.append(entry);
            return renameInPlace(entry, file, name, undo);
        }
        return copyTo(entry, file, name, results);
    }

private:
    QString nameFor(const TWFileEntry& entry, const LXAudioFile& file, qint64 number) const {
        QString name = m_expression;
        name.replace(QStringLiteral("/Name/"), baseNameOf(file));
        if (name.contains(QStringLiteral("/Number/"))) {
            const QString digits =
                QString::number(number < 0 ? -number : number).rightJustified(m_digits, u'0');
            name.replace(QStringLiteral("/Number/"), number < 0 ? QStringLiteral("-") + digits : digits);
        }
        // The extension is the format's own; no type code is kept beside the name on these file systems.
        name.replace(QStringLiteral("/Extension/"), file.formatExtension());

        // Metadata fields by their titles, the first pair of slashes at a time: each pass removes a token
        // whole, so the loop ends.
        const TWFormatters& formatters = run().context().workspace.formatters();
        const QVariantMap info = entry.info();
        for (;;) {
            const qsizetype open = name.indexOf(u'/');
            const qsizetype close = open < 0 ? -1 : name.indexOf(u'/', open + 1);
            if (close < 0) break;
            const QString title = name.mid(open + 1, close - open - 1);
            const QString key = LXMetadata::keyForTitle(title);
            QString value;
            if (!key.isEmpty() && info.contains(key)) value = textOfValue(key, info.value(key), formatters);
            value.replace(u'/', u'-');
            name.replace(QStringLiteral("/%1/").arg(title), value);
        }
        return name.replace(u'/', u'-'); // a lone slash would name a folder
    }

    // A copy under the new name, never over an existing file; the source when the name is its own.
    TWOutcome copyTo(const TWFileEntryPtr& entry, LXAudioFile& file, const QString& name,
                     QList<TWFileEntryPtr>& results) {
        const QString source = file.path();
        const QString target = run().folderFor(*entry) + u'/' + name;
        if (QFileInfo(target).absoluteFilePath() == QFileInfo(source).absoluteFilePath()) {
            results.append(entry);
            return TWOutcome::unchanged();
        }
        if (auto refused = unusable(name)) {
            results.append(entry);
            return *refused;
        }
        if (const LXStatus copied = file.copyToPath(target); !copied) {
            results.append(entry);
            if (copied.error().errnum() == EEXIST)
                return LXError(LXErrWriteFailed,
                               QStringLiteral("'%1' was not copied: '%2' exists").arg(source, target));
            return copied.error();
        }
        results.append(run().adoptNewFile(file.path(), entry));
        return TWOutcome::success();
    }

    QString m_expression;
    qint64 m_number = 0;
    qint64 m_step = 1;
    int m_digits = 2;
};

// Rename from Text File
// -----------------------------------------------------------------------------------------------

class TWActionRenameFromTextFile final : public TWRenameAction {
public:
    QString className() const override { return QStringLiteral("TWActionRenameFromTextFile"); }
    QString name() const override { return QStringLiteral("Rename from Text File"); }
    bool onlyInPlace() const override { return true; }
    QList<TWInstructionKey> instructionKeys() const override { return {kTextFile}; }
    // The text file is asked for before the first file, in the run's own words.
    QStringList requiredInstructionKeys() const override { return {}; }
    QList<TWControl> panelControls() const override { return {control(kTextFile, QStringLiteral("Names"))}; }

protected:
    TWOutcome preProcessWithEntries(const QList<TWFileEntryPtr>&, const QVariantMap& instructions) override {
        const QString path = kTextFile(instructions);
        if (path.isEmpty())
            return LXError(LXErrInvalidParameter, QStringLiteral("no text file of names is given"));
        QFile text(path);
        if (!text.open(QIODevice::ReadOnly))
            return LXError(
                LXErrInvalidParameter,
                QStringLiteral("the names cannot be read from '%1': %2").arg(path, text.errorString()));
        m_lines = QString::fromUtf8(text.readAll()).split(QRegularExpression(QStringLiteral("\r\n|\n|\r")));
        m_next = 0;
        return TWOutcome::success();
    }

    TWOutcome changeEntry(const TWFileEntryPtr& entry, const QVariantMap&, QVariantList& undo,
                          QList<TWFileEntryPtr>& results) override {
        results.append(entry);
        const QString name = m_lines.value(m_next++).replace(u'/', u'-');
        if (name.isEmpty()) return TWOutcome::unchanged();
        auto opened = LXAudioFile::open(entry->path());
        if (!opened) return opened.error();
        return renameInPlace(entry, **opened, name, undo);
    }

private:
    QStringList m_lines;
    qsizetype m_next = 0;
};

} // namespace

TW_REGISTER_ACTION(TWActionRenameFromTokens)
TW_REGISTER_ACTION(TWActionRenameFromTextFile)
