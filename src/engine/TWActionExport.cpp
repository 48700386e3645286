#include "engine/TWActionExport.h"

#include "engine/TWActionRun.h"
#include "engine/TWEngineContext.h"
#include "engine/TWFileOutputs.h"

#include "model/TWFileEntry.h"

#include "lx/LXAudioFilename.h"
#include "lx/LXFile.h"
#include "lx/LXTemporaryFile.h"

#include "platform/TWInteraction.h"

#include <QFileInfo>

TWOutcome TWActionExport::processAudioFileToPath(LXAudioFile&, TWFileEntry&, const QVariantMap&,
                                                 const QString&) {
    return TWOutcome::success();
}

// Files the action encodes itself, each into a locked temporary file beside its final path.
class TWExportOutputs : public TWFileOutputs {
public:
    TWExportOutputs(TWActionRun& run, TWActionExport& action) : m_run(run), m_action(action) {}

    TWMade make(LXAudioFile& file, TWFileEntry& entry, TWBusyEntry& busy, int, TWFileReport& report) override {
        if (m_run.options().dryRun) return {}; // the encoders write files of their own: nothing to measure
        auto temporary = LXCreateTemporaryFile(m_run.folderFor(entry), nameFor(entry));
        if (!temporary) return {temporary.error(), nullptr};
        auto made = std::make_unique<MadeExport>(std::move(*temporary));
        busy.mark();
        const TWOutcome outcome = m_action.processAudioFileToPath(file, entry, m_run.instructions(), made->path());
        if (!outcome.note().isEmpty()) report.note = outcome.note();
        if (!outcome.lost().isEmpty()) report.lost = outcome.lost();
        if (outcome.kind() == TWOutcome::Kind::Unchanged || !outcome.goesOn()) return {outcome, nullptr};
        return {outcome, std::move(made)};
    }

    TWOutcome keep(LXAudioFile&, const TWFileEntryPtr& entry, TWMade& made, QList<TWFileEntryPtr>& results,
                   TWFileReport& report) override {
        const QString target = targetFor(m_run.folderFor(*entry) + u'/' + nameFor(*entry), entry->path());
        if (m_run.options().dryRun) {
            report.outcome = TWFileReport::Outcome::Changed;
            report.outputs.append(target);
            results.append(entry);
            return TWOutcome::success();
        }
        if (!made.output) return TWOutcome::success(); // the action chose to write nothing
        auto& exported = static_cast<MadeExport&>(*made.output);
        // An export takes its source's permissions, owner, group and extended attributes too.
        LXStatus moved = LXFile::copyAttributesOfPath(entry->path(), exported.path());
        if (moved) moved = LXFile::movePath(exported.path(), target);
        if (!moved) return moved.error();
        exported.kept = true;
        m_written.append(target);
        results.append(entry);
        report.outcome = TWFileReport::Outcome::Changed;
        report.outputs.append(target);
        return TWOutcome::success();
    }

    void takeBack() override {
        for (const QString& path : std::as_const(m_written))
            (void)LXFile::deleteFileAtPath(path);
    }

private:
    // The locked temporary file an export is written into; deleted unless it took its final name.
    struct MadeExport : TWMadeOutput {
        explicit MadeExport(LXTemporaryFile file) : temporary(std::move(file)) {}
        ~MadeExport() override {
            if (!kept) (void)LXFile::deleteFileAtPath(temporary.path);
        }
        const QString& path() const { return temporary.path; }
        LXTemporaryFile temporary;
        bool kept = false;
    };

    QString nameFor(const TWFileEntry& entry) const {
        return QFileInfo(entry.path()).completeBaseName() + u'.' + m_action.extension();
    }

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

TWInteraction& TWActionExport::interaction() const {
    return m_interaction ? *m_interaction : TWInteraction::current();
}

std::unique_ptr<TWFileOutputs> TWActionExport::makeOutputs(TWActionRun& run) {
    m_interaction = &run.context().interaction;
    return std::make_unique<TWExportOutputs>(run, *this);
}
