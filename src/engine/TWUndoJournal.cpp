#include "engine/TWUndoJournal.h"

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
    while (!file.atEnd()) {
        const QByteArray text = file.readLine();
        const QJsonDocument document = QJsonDocument::fromJson(text);
        if (!document.isObject()) continue;
        const QVariantMap line = document.object().toVariantMap();
        const QString op = line.value(kOp).toString();
        const qint64 id = line.value(kStep).toLongLong();
        if (op == u"begin") {
            steps.append(Step{id, line.value(QStringLiteral("name")).toString(), {}, false});
            continue;
        }
        auto it = find(steps, id);
        if (it == steps.end()) continue;
        if (op == u"save") {
            it->records.append(TWSaveInfo::fromPropertyList(line.value(kRecord).toMap()));
        } else if (op == u"unsave") { // a save recorded but never made
            const QJsonObject record = QJsonObject::fromVariantMap(line.value(kRecord).toMap());
            it->records.removeIf([&record](const TWSaveInfo& saved) {
                return QJsonObject::fromVariantMap(saved.toPropertyList()) == record;
            });
        } else if (op == u"switch") {
            const qsizetype index = line.value(kIndex).toLongLong();
            if (index >= 0 && index < it->records.size())
                it->records[index] = TWSaveInfo::fromPropertyList(line.value(kRecord).toMap());
        } else if (op == u"undone") {
            it->undone = line.value(QStringLiteral("value")).toBool();
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

void TWUndoJournal::closeStep(qint64 id) {
    QMutexLocker lock(&m_mutex);
    const ProcessLock processLock(m_path);
    for (const Step& step : load()) {
        if (!step.undone || step.id == id) continue;
        // The undo copies of an undone step are the newer versions: nothing can bring them back now.
        for (TWSaveInfo record : step.records)
            record.removeUndoPaths();
        (void)append({{kOp, QStringLiteral("drop")}, {kStep, step.id}});
    }
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
    const QList<Step> all = steps();
    for (auto it = all.rbegin(); it != all.rend(); ++it)
        if (!it->undone && !it->records.isEmpty()) return *it;
    return std::nullopt;
}

std::optional<TWUndoJournal::Step> TWUndoJournal::firstUndoneStep() const {
    // A run killed before it closed its step left the earlier undone steps in place; they are not to be
    // redone over its files.
    std::optional<Step> first;
    for (const Step& step : steps()) {
        if (step.undone && !first)
            first = step;
        else if (!step.undone && !step.records.isEmpty())
            first.reset();
    }
    return first;
}

LXStatus TWUndoJournal::switchStep(qint64 id, const std::function<void(const TWSaveInfo&)>& repoint) {
    QMutexLocker lock(&m_mutex);
    const ProcessLock processLock(m_path);
    QList<Step> steps = load();
    auto it = find(steps, id);
    if (it == steps.end())
        return LXError(LXErrInvalidParameter, QStringLiteral("there is no such step to undo"), m_path);
    // A run killed while writing left hidden temporary files beside the files it was saving: undo after a
    // crash is when they are no longer wanted.
    QSet<QString> folders;
    for (const TWSaveInfo& record : std::as_const(it->records))
        for (const QString& path : record.currentPaths() + record.formerPaths())
            folders.insert(QFileInfo(path).path());
    for (const QString& folder : std::as_const(folders))
        LXAudioFileWriter::removeAbandonedTemporaryFiles(folder);
    for (qsizetype i = 0; i < it->records.size(); ++i) {
        TWSaveInfo& record = it->records[i];
        LX_TRY(record.switchPaths());
        LX_TRY(append(
            {{kOp, QStringLiteral("switch")}, {kStep, id}, {kIndex, i}, {kRecord, record.toPropertyList()}}));
        if (repoint) repoint(record);
    }
    return append({{kOp, QStringLiteral("undone")}, {kStep, id}, {QStringLiteral("value"), !it->undone}});
}

LXStatus TWUndoJournal::removeAll() {
    QMutexLocker lock(&m_mutex);
    LX_TRY(LXFile::deleteFileAtPath(m_path));
    return LXFile::emptyDirectoryAtPath(QFileInfo(m_path).path());
}
