#include "engine/TWActionExport.h"

#include "engine/TWActionRun.h"
#include "engine/TWFileOutputs.h"

#include "model/TWFileEntry.h"

#include "lx/LXAudioFilename.h"
#include "lx/LXFile.h"
#include "lx/LXTemporaryFile.h"

#include <QFileInfo>

TWOutcome TWActionExport::processAudioFileToPath(LXAudioFile&, TWFileEntry&, const QVariantMap&,
                                                 const QString&) {
    return TWOutcome::success();
}

// Files the action encodes itself, each into a locked temporary file beside its final path.
class TWExportOutputs : public TWFileOutputs {
public:
    TWExportOutputs(TWActionRun& run, TWActionExport& action) : m_run(run), m_action(action) {}

    TWOutcome make(LXAudioFile& file, const TWFileEntryPtr& entry, TWBusyEntry& busy, int,
                   QList<TWFileEntryPtr>& results, TWFileReport& report) override {
        const QString folder = m_run.folderFor(*entry);
        const QString name = QFileInfo(entry->path()).completeBaseName() + u'.' + m_action.extension();
        if (m_run.options().dryRun) { // the encoders write files of their own: nothing to measure
            report.outcome = TWFileReport::Outcome::Changed;
            report.outputs.append(targetFor(folder + u'/' + name, entry->path()));
            results.append(entry);
            return TWOutcome::success();
        }
        auto temporary = LXCreateTemporaryFile(folder, name);
        if (!temporary) return temporary.error();
        busy.mark();
        TWOutcome outcome =
            m_action.processAudioFileToPath(file, *entry, m_run.instructions(), temporary->path);
        const QString target = targetFor(folder + u'/' + name, entry->path());
        if (outcome.goesOn()) {
            // An export takes its source's permissions, owner, group and extended attributes too.
            LXStatus moved = LXFile::copyAttributesOfPath(entry->path(), temporary->path);
            if (moved) moved = LXFile::movePath(temporary->path, target);
            if (moved) {
                m_written.append(target);
                results.append(entry);
                report.outcome = TWFileReport::Outcome::Changed;
                report.outputs.append(target);
                return outcome;
            } else {
                outcome = moved.error();
            }
        }
        (void)LXFile::deleteFileAtPath(temporary->path);
        return outcome.kind() == TWOutcome::Kind::Unchanged ? TWOutcome::success() : outcome;
    }

    void takeBack() override {
        for (const QString& path : std::as_const(m_written))
            (void)LXFile::deleteFileAtPath(path);
    }

private:
    // The export's path: its own name, replacing what is there, but never the source itself (a FLAC file
    // exported as FLAC beside itself): that takes the first free numbered name.
    static QString targetFor(const QString& path, const QString& source) {
        if (QFileInfo(path) != QFileInfo(source)) return path;
        LXAudioFilename numbered(path);
        QString free;
        for (int number = 1; free.isEmpty() || LXFile::existsAtPath(free); ++number) {
            numbered.setNumber(number);
            free = numbered.pathForChannel(0);
        }
        return free;
    }

    TWActionRun& m_run;
    TWActionExport& m_action;
    QStringList m_written;
};

std::unique_ptr<TWFileOutputs> TWActionExport::makeOutputs(TWActionRun& run) {
    return std::make_unique<TWExportOutputs>(run, *this);
}
