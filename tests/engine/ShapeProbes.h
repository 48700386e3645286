#pragma once

// Small actions of the loop shapes that no real action uses yet, registered like any action so that the
// conformance suite covers their shapes: an export (a copy), one file of all (joining files end
// to end), a descriptive change (renaming with a prefix, undone by instructions) and hand-on (copying into
// a folder beside each file).

#include "engine/TWActionExport.h"
#include "engine/TWActionRegistry.h"
#include "engine/TWCombiningAction.h"
#include "engine/TWDescriptiveAction.h"
#include "engine/TWHandOnAction.h"

#include "model/TWFileEntry.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/LXFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <vector>

// Exports each file as a WAV copy of itself.
class TWTestExportProbe : public TWActionExport {
public:
    QString className() const override { return QStringLiteral("TWTestExportProbe"); }
    QString verb() const override { return QStringLiteral("Exporting..."); }

protected:
    QString extension() const override { return QStringLiteral("wav"); }
    TWOutcome processAudioFileToPath(LXAudioFile& file, TWFileEntry&, const QVariantMap&,
                                     const QString& path) override {
        LXAudioFileWriter writer(file);
        writer.setDirectory(QFileInfo(path).path());
        if (const LXStatus copied = file.copyToWriter(writer); !copied) return copied;
        return writer.saveFile(0, path);
    }
};

class TWTestJoinProbe : public TWCombiningAction {
public:
    QString className() const override { return QStringLiteral("TWTestJoinProbe"); }
    QString name() const override { return QStringLiteral("Join"); }
    QString verb() const override { return QStringLiteral("Joining..."); }

protected:
    QString processingPhase() const override { return QStringLiteral("Joining the files"); }
    void gatherFromAudioFile(LXAudioFile& file, const TWFileEntry&, LXAudioFileWriter& writer) override {
        writer.addMetadata(file.metadata(), false);
    }
    void setUpWriter(const QList<TWFileEntryPtr>& inputs, LXAudioFileWriter& writer) override {
        writer.setFormat(LXFormat::WAVE);
        writer.setRate(double(inputs.first()->rate()));
        writer.setDepth(int(inputs.first()->range()));
        writer.setChannels(int(inputs.first()->channels()));
    }
    TWOutcome combine(const QList<TWFileEntryPtr>& inputs, const QVariantMap&,
                      LXAudioFileWriter& writer) override {
        for (const TWFileEntryPtr& entry : inputs) {
            auto opened = openInput(entry);
            if (!opened) return opened.error();
            LXAudioFile& file = **opened;
            std::vector<float> block(size_t(1024 * writer.channels()));
            for (int64_t at = 0; at < file.frames(); at += 1024) {
                const int64_t n = std::min<int64_t>(1024, file.frames() - at);
                if (auto read = file.readFrames(at, n, block.data()); !read) return read.error();
                if (auto written = writer.writeFrames(block.data(), n); !written) return written.error();
                const int32_t code = file.progressDelegate()->update(float(at + n) / float(file.frames()));
                if (code != LXContinue) return TWOutcome::fromCode(code);
            }
        }
        return writer.endWrite();
    }
};

inline const TWKey<QString> kProbePrefix{QStringLiteral("prefix"), QStringLiteral("x-"),
                                         QStringLiteral("put before each file's name")};
inline const TWKey<QString> kProbeName{QStringLiteral("name"), std::nullopt,
                                       QStringLiteral("the file's new name")};

class TWTestRenameProbe : public TWDescriptiveAction {
public:
    QString className() const override { return QStringLiteral("TWTestRenameProbe"); }
    QString name() const override { return QStringLiteral("Prefix"); }
    QString verb() const override { return QStringLiteral("Renaming..."); }
    bool onlyInPlace() const override { return true; }
    QList<TWInstructionKey> instructionKeys() const override { return {kProbePrefix, kProbeName}; }
    QStringList requiredInstructionKeys() const override { return {}; }

protected:
    QString processingPhase() const override { return QStringLiteral("Renaming the files"); }
    TWOutcome changeEntry(const TWFileEntryPtr& entry, const QVariantMap& instructions, QVariantList& undo,
                          QList<TWFileEntryPtr>& results) override {
        results.append(entry);
        const QFileInfo old(entry->path());
        const QString name = instructions.contains(kProbeName.name)
                                 ? kProbeName(instructions)
                                 : kProbePrefix(instructions) + old.fileName();
        const QString target = old.dir().filePath(name);
        if (target == old.filePath()) return TWOutcome::success();
        if (const LXStatus moved = LXFile::movePath(old.filePath(), target); !moved) return moved.error();
        entry->setPath(target);
        undo.append(QVariantMap{{TWKeys::actionClass.name, className()},
                                {TWKeys::source.name, qint64(TWSource::Paths)},
                                {TWKeys::paths.name, QStringList{target}},
                                {kProbeName.name, old.fileName()}});
        return TWOutcome::success();
    }
};

class TWTestCopyProbe : public TWHandOnAction {
public:
    QString className() const override { return QStringLiteral("TWTestCopyProbe"); }
    QString verb() const override { return QStringLiteral("Handing on..."); }
    bool onlyInPlace() const override { return true; }

protected:
    QString processingPhase() const override { return QStringLiteral("Handing on the files"); }
    TWOutcome handOnEntry(const TWFileEntryPtr& entry, const QVariantMap&) override {
        const QFileInfo source(entry->path());
        const QString folder = source.dir().filePath(QStringLiteral("handed"));
        if (auto made = LXFile::createDirectoryAtPath(folder); !made) return made.error();
        return LXFile::copyPath(source.filePath(), folder + u'/' + source.fileName());
    }
};

TW_REGISTER_ACTION(TWTestExportProbe)
TW_REGISTER_ACTION(TWTestJoinProbe)
TW_REGISTER_ACTION(TWTestRenameProbe)
TW_REGISTER_ACTION(TWTestCopyProbe)
