#include "engine/TWUndoJournal.h"

#include "engine/TWFileLocks.h"
#include "platform/TWSupportFolders.h"

#include "lx/LXAudioFileWriter.h"
#include "lx/LXFile.h"
#include "lx/LXFileDescriptor.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
const QString kOp = QStringLiteral("op");
const QString kStep = QStringLiteral("step");
const QString kRecord = QStringLiteral("record");
const QString kIndex = QStringLiteral("index");
const QString kValue = QStringLiteral("value");
// Several clipwright processes may share the journal: each read-then-write holds an exclusive lock on
// the hidden ".Journal.lock" beside it, so two runs never take the same step number and an undo never
// switches files while another process appends to the same step.
class ProcessLock {
public:
    explicit ProcessLock(const QString& journal) {
        const QFileInfo info(journal);
        (void)TWSupportFolders::createPrivateDirectory(info.path());
        const QString path = info.path() + QStringLiteral("/.") + info.fileName() + QStringLiteral(".lock");
        m_fd =
            LXFileDescriptor(::open(QFile::encodeName(path).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
        if (m_fd.isOpen())
            while (::flock(m_fd.get(), LOCK_EX) != 0 && errno == EINTR) {
            }
    }

private:
    LXFileDescriptor m_fd; // closing it releases the lock
};

// Holds every file a record switches; false when a run holds one of them.
bool lockFiles(TWFileLocks& locks, const TWSaveInfo& record) {
    for (const QString& path : record.currentPaths() + record.formerPaths())
        if (!locks.tryLock(path)) return false;
    return true;
}

} // namespace

TWUndoJournal::TWUndoJournal(const QString& path) : m_path(path) {}

TWUndoJournal& TWUndoJournal::shared() {
    static TWUndoJournal journal(TWSupportFolders::undoDirectory() + QStringLiteral("/Journal"));
    return journal;
}

LXStatus TWUndoJournal::append(const QVariantMap& line) {
    LX_TRY(TWSupportFolders::createPrivateDirectory(QFileInfo(m_path).path()));
    QByteArray bytes = QJsonDocument(QJsonObject::fromVariantMap(line)).toJson(QJsonDocument::Compact) + '\n';
    // One write with O_APPEND: a crash leaves at worst a torn last line, which load() skips. A line that
    // did not reach the disk whole is an error: the caller must not replace a file it cannot undo.
    LXFileDescriptor fd(
        ::open(QFile::encodeName(m_path).constData(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    if (!fd.isOpen()) return LXFileError::fromErrno(QStringLiteral("cannot write the undo journal"), m_path);
    // A journal from before it was kept private: the mode given to open() applies only to a new file.
    struct stat st;
    if (::fstat(fd.get(), &st) == 0 && (st.st_mode & 077) != 0) (void)::fchmod(fd.get(), st.st_mode & 0600);
    // A line torn by a crash or a full disk is ended first, so that it does not swallow this one.
    char last = '\n';
    if (::fstat(fd.get(), &st) == 0 && st.st_size > 0) (void)::pread(fd.get(), &last, 1, st.st_size - 1);
    if (last != '\n') bytes.prepend('\n');
    qsizetype written = 0;
    while (written < bytes.size()) {
        const ssize_t n = ::write(fd.get(), bytes.constData() + written, size_t(bytes.size() - written));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            if (n == 0) errno = ENOSPC;
            const LXFileError error =
                LXFileError::fromErrno(QStringLiteral("cannot write the undo journal"), m_path);
            return error;
        }
        written += n;
    }
    LX_TRY(LXFile::syncDescriptor(fd.get(), m_path));
    if (::close(fd.release()) != 0)
        return LXFileError::fromErrno(QStringLiteral("cannot write the undo journal"), m_path);
    return {};
}

QList<TWUndoJournal::Step> TWUndoJournal::load() const {
    QList<Step> steps;
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly)) return steps;
    const QByteArray all = file.readAll();
    qint64 lineNumber = 0;
    for (qsizetype start = 0, end = 0; start < all.size(); start = end + 1) {
        end = all.indexOf('\n', start);
        if (end < 0) end = all.size();
        ++lineNumber;
        if (end == start) continue; // the end of a line torn by a crash
        const QJsonDocument document = QJsonDocument::fromJson(QByteArrayView(all).sliced(start, end - start).toByteArray());
        if (!document.isObject()) continue;
        const QVariantMap line = document.object().toVariantMap();
        const QString op = line.value(kOp).toString();
        const qint64 id = line.value(kStep).toLongLong();
        if (op == u"begin") {
            steps.append(
                Step{id, line.value(QStringLiteral("name")).toString(), {}, false, lineNumber, lineNumber, false, {}, {}});
            continue;
        }
        auto it = find(steps, id);
        if (it == steps.end()) continue;
        it->order = lineNumber;
        if (op == u"save" || op == u"unsave" || op == u"close") it->runOrder = lineNumber;
        const qsizetype index = line.value(kIndex, -1).toLongLong();
        const bool inRange = index >= 0 && index < it->records.size();
        if (op == u"save") {
            it->records.append(TWSaveInfo::fromPropertyList(line.value(kRecord).toMap()));
        } else if (op == u"unsave") { // a save recorded but never made
            const QJsonObject record = QJsonObject::fromVariantMap(line.value(kRecord).toMap());
            it->records.removeIf([&record](const TWSaveInfo& saved) {
                return QJsonObject::fromVariantMap(saved.toPropertyList()) == record;
            });
        } else if (op == u"switching") {
            Step::Switch planned{line.value(kValue).toBool(), {}, {}};
            for (const QVariant& record : line.value(QStringLiteral("records")).toList())
                planned.planned.append(TWSaveInfo::fromPropertyList(record.toMap()));
            if (planned.planned.size() != it->records.size()) continue; // not a plan of this step
            planned.made = QList<bool>(planned.planned.size(), false);
            it->interrupted = planned;
        } else if (op == u"switched" || op == u"switch") { // "switch": a journal of an earlier version
            if (!inRange) continue;
            it->records[index] = TWSaveInfo::fromPropertyList(line.value(kRecord).toMap());
            if (it->interrupted) it->interrupted->made[index] = true;
        } else if (op == u"undone") {
            it->undone = line.value(kValue).toBool();
            it->interrupted.reset();
            it->records.removeIf([](const TWSaveInfo& record) { return record.currentPaths().isEmpty(); });
        } else if (op == u"close") {
            it->closed = true;
        } else if (op == u"instructions") {
            it->instructions = line.value(kValue).toList();
        } else if (op == u"drop") {
            steps.erase(it);
        }
    }
    return steps;
}

QList<TWUndoJournal::Step>::iterator TWUndoJournal::find(QList<Step>& steps, qint64 id) const {
    return std::find_if(steps.begin(), steps.end(), [id](const Step& step) { return step.id == id; });
}

LXResult<qint64> TWUndoJournal::beginStep(const QString& actionName) {
    QMutexLocker lock(&m_mutex);
    const ProcessLock processLock(m_path);
    const QList<Step> steps = load();
    qint64 id = QDateTime::currentMSecsSinceEpoch();
    for (const Step& step : steps)
        id = std::max(id, step.id + 1);
    LX_TRY(append({{kOp, QStringLiteral("begin")}, {kStep, id}, {QStringLiteral("name"), actionName}}));
    return id;
}

LXStatus TWUndoJournal::recordSave(qint64 step, const TWSaveInfo& info) {
    QMutexLocker lock(&m_mutex);
    return append({{kOp, QStringLiteral("save")}, {kStep, step}, {kRecord, info.toPropertyList()}});
}

void TWUndoJournal::forgetSave(qint64 step, const TWSaveInfo& info) {
    QMutexLocker lock(&m_mutex);
    (void)append({{kOp, QStringLiteral("unsave")}, {kStep, step}, {kRecord, info.toPropertyList()}});
}

TWUndoJournal::Trim TWUndoJournal::closeStep(qint64 id, qint64 sizeLimit) {
    QMutexLocker lock(&m_mutex);
    const ProcessLock processLock(m_path);
    (void)append({{kOp, QStringLiteral("close")}, {kStep, id}});
    QList<Step> steps = load();
    steps.removeIf([&](const Step& step) {
        if (!step.undone || step.id == id || step.interrupted) return false;
        // The undo copies of an undone step are the newer versions: nothing can bring them back now.
        for (TWSaveInfo record : step.records)
            record.removeUndoPaths();
        (void)append({{kOp, QStringLiteral("drop")}, {kStep, step.id}});
        return true;
    });
    Trim trim;
    if (sizeLimit <= 0) return trim;
    const auto sizeOf = [](const Step& step) {
        qint64 bytes = 0;
        for (const TWSaveInfo& record : step.records)
            for (const QString& path : record.undoPaths())
                bytes += std::max<qint64>(0, LXFile::sizeOfFileAtPath(path));
        return bytes;
    };
    qint64 total = 0;
    for (const Step& step : std::as_const(steps))
        total += sizeOf(step);
    std::sort(steps.begin(), steps.end(), [](const Step& a, const Step& b) { return a.order < b.order; });
    for (const Step& step : std::as_const(steps)) {
        if (total <= sizeLimit) break;
        if (step.id == id || !step.closed || step.interrupted) continue; // a run going on needs its copies
        const qint64 bytes = sizeOf(step);
        for (TWSaveInfo record : step.records)
            record.removeUndoPaths();
        (void)append({{kOp, QStringLiteral("drop")}, {kStep, step.id}});
        total -= bytes;
        trim.steps += 1;
        trim.bytes += bytes;
    }
    return trim;
}

LXResult<qint64> TWUndoJournal::recordInstructions(const QString& actionName, const QVariantList& undo) {
    const LXResult<qint64> id = beginStep(actionName);
    if (!id) return id;
    QMutexLocker lock(&m_mutex);
    LX_TRY(append({{kOp, QStringLiteral("instructions")}, {kStep, *id}, {kValue, undo}}));
    LX_TRY(append({{kOp, QStringLiteral("close")}, {kStep, *id}}));
    return id;
}

void TWUndoJournal::discardStep(qint64 step) {
    QMutexLocker lock(&m_mutex);
    (void)append({{kOp, QStringLiteral("drop")}, {kStep, step}});
}

QList<TWUndoJournal::Step> TWUndoJournal::steps() const {
    QMutexLocker lock(&m_mutex);
    return load();
}

std::optional<TWUndoJournal::Step> TWUndoJournal::lastDoneStep() const {
    std::optional<Step> last;
    for (const Step& step : steps())
        if (!step.undone && step.hasChanges() && (!last || step.order > last->order)) last = step;
    return last;
}

std::optional<TWUndoJournal::Step> TWUndoJournal::firstUndoneStep() const {
    // The step undone last, unless a run (ended, or killed before it ended) came after it; a step redone
    // since does not count.
    std::optional<Step> undone;
    qint64 lastDone = 0;
    for (const Step& step : steps()) {
        if (step.undone && (!undone || step.order > undone->order)) undone = step;
        if (!step.undone && step.hasChanges()) lastDone = std::max(lastDone, step.runOrder);
    }
    if (undone && undone->order < lastDone) return std::nullopt;
    return undone;
}

LXStatus TWUndoJournal::switchStep(qint64 id, bool undone, bool force, const Repoint& repoint,
                                   const RunInstructions& run) {
    const QList<Step> now = steps();
    if (auto it = std::find_if(now.begin(), now.end(), [id](const Step& step) { return step.id == id; });
        it != now.end() && !it->instructions.isEmpty())
        return it->undone == undone ? LXStatus() : switchInstructions(*it, undone, force, run);
    QMutexLocker lock(&m_mutex);
    const ProcessLock processLock(m_path);
    QList<Step> steps = load();
    TWFileLocks locks;
    for (Step& step : steps)
        if (step.interrupted) LX_TRY(finishSwitch(step, force, repoint, locks));
    auto it = find(steps, id);
    if (it == steps.end())
        return LXError(LXErrInvalidParameter, QStringLiteral("there is no such step to undo"), m_path);
    if (it->undone == undone) return {};
    // A run killed while writing left hidden temporary files beside the files it was saving: undo after a
    // crash is when they are no longer wanted.
    QSet<QString> folders;
    for (const TWSaveInfo& record : std::as_const(it->records))
        for (const QString& path : record.currentPaths() + record.formerPaths())
            folders.insert(QFileInfo(path).path());
    for (const QString& folder : std::as_const(folders))
        LXAudioFileWriter::removeAbandonedTemporaryFiles(folder);

    // Every file is looked at before any is touched: a step is switched whole, or not at all.
    Step::Switch plan{!it->undone, {}, {}};
    QStringList obstacles;
    bool held = false;
    for (const TWSaveInfo& record : std::as_const(it->records)) {
        const QString name = record.currentLeadPath().isEmpty() ? record.formerLeadPath()
                                                                 : record.currentLeadPath();
        if (!lockFiles(locks, record)) {
            obstacles.append(QStringLiteral("'%1': a clipwright run is changing it now").arg(name));
            held = true;
            continue;
        }
        if (record.neverSaved()) { // its run was killed before replacing it: nothing to switch
            plan.planned.append(TWSaveInfo());
            continue;
        }
        const QString why = record.obstacle();
        if (!why.isEmpty()) obstacles.append(QStringLiteral("'%1': %2").arg(name, why));
        if (why.isEmpty() || (record.canRestore() && record.currentFilesExist()))
            plan.planned.append(record.planSwitch()); // changed since: that version is kept for redo
        else if (record.canRestore())
            plan.planned.append(record.planSwitch(true)); // gone: the earlier version comes back
        else
            plan.planned.append(TWSaveInfo()); // nothing to bring back: it leaves the step
    }
    if (!obstacles.isEmpty() && (!force || held))
        return LXError(LXErrWriteFailed,
                       QStringLiteral("nothing was changed, as %1 of the %2 files cannot be switched:\n  %3")
                           .arg(obstacles.size())
                           .arg(it->records.size())
                           .arg(obstacles.join(QStringLiteral("\n  "))));
    QVariantList planned;
    for (const TWSaveInfo& record : std::as_const(plan.planned))
        planned.append(record.toPropertyList());
    LX_TRY(append({{kOp, QStringLiteral("switching")}, {kStep, id}, {kValue, plan.undone},
                   {QStringLiteral("records"), planned}}));
    plan.made = QList<bool>(plan.planned.size(), false);
    it->interrupted = plan;
    return finishSwitch(*it, force, repoint, locks);
}

LXStatus TWUndoJournal::switchInstructions(const Step& step, bool undone, bool force, const RunInstructions& run) {
    if (!run)
        return LXError(LXErrInvalidParameter, QStringLiteral("this step changed names or metadata, which only a "
                                                             "run of actions can set back"), m_path);
    const QVariantList& instructions = step.instructions;
    const qint64 id = step.id;
    // What the run could not set back stays as it is; the step goes on with what it did set back. When it
    // set nothing back the step stays as it was, unless forced: then it is left behind.
    const QVariantList reverse = run(instructions);
    if (reverse.isEmpty() && !force)
        return LXError(LXErrWriteFailed,
                       QStringLiteral("nothing was changed: none of the %1 files could be set back (--force "
                                      "passes over this step)")
                           .arg(instructions.size()),
                       m_path);
    QMutexLocker lock(&m_mutex);
    LX_TRY(append({{kOp, QStringLiteral("instructions")}, {kStep, id}, {kValue, reverse}}));
    return append({{kOp, QStringLiteral("undone")}, {kStep, id}, {kValue, undone}});
}

LXResult<std::optional<TWUndoJournal::Step>> TWUndoJournal::finishInterrupted(bool force, const Repoint& repoint) {
    QMutexLocker lock(&m_mutex);
    const ProcessLock processLock(m_path);
    std::optional<Step> finished;
    for (Step& step : load()) {
        if (!step.interrupted) continue;
        TWFileLocks locks;
        LX_TRY(finishSwitch(step, force, repoint, locks));
        finished = step;
    }
    return finished;
}

LXStatus TWUndoJournal::finishSwitch(Step& step, bool force, const Repoint& repoint, TWFileLocks& locks) {
    Step::Switch& plan = *step.interrupted;
    for (qsizetype i = 0; i < plan.planned.size(); ++i) {
        if (plan.made[i]) continue;
        TWSaveInfo& record = step.records[i];
        if (!lockFiles(locks, record))
            return LXError(LXErrWriteFailed, QStringLiteral("a clipwright run is changing it now"),
                           record.currentLeadPath());
        TWSaveInfo& target = plan.planned[i];
        if (target.currentPaths().isEmpty()) {
            if (record.neverSaved()) record.removeUndoPaths(); // links to the file as it is
        } else if (const LXStatus switched = record.switchTo(target); !switched) {
            // Stays interrupted: the next attempt goes on from here, as far as the disk allows.
            if (!force) return switched;
            target = TWSaveInfo(); // kept copies stay in the undo folder, out of the step
        }
        LX_TRY(append({{kOp, QStringLiteral("switched")}, {kStep, step.id}, {kIndex, i},
                       {kRecord, target.toPropertyList()}}));
        plan.made[i] = true;
        record = target;
        if (repoint && !record.currentPaths().isEmpty()) repoint(record);
    }
    LX_TRY(append({{kOp, QStringLiteral("undone")}, {kStep, step.id}, {kValue, plan.undone}}));
    step.undone = plan.undone;
    step.records.removeIf([](const TWSaveInfo& record) { return record.currentPaths().isEmpty(); });
    step.interrupted.reset();
    return {};
}

LXStatus TWUndoJournal::removeAll() {
    QMutexLocker lock(&m_mutex);
    const ProcessLock processLock(m_path);
    if (TWFileLocks::anyHeld())
        return LXError(LXErrWriteFailed,
                       QStringLiteral("a clipwright run or undo is changing files now and needs its kept copies"));
    LX_TRY(LXFile::deleteFileAtPath(m_path));
    return LXFile::emptyDirectoryAtPath(QFileInfo(m_path).path());
}
