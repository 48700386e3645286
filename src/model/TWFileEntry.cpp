#include "model/TWFileEntry.h"

#include "model/TWEntryTransfer.h"
#include "model/TWLocalizedStrings.h"
#include "model/TWWorkspace.h"
#include "platform/TWDesktop.h"
#include "platform/TWInteraction.h"

#include "lx/LXAnalysis.h"
#include "lx/LXAudioFile.h"
#include "lx/LXAudioFilename.h"
#include "lx/LXAudioFormat.h"
#include "lx/LXFile.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>

#include <algorithm>
#include <chrono>
#include <cmath>

namespace {

// REX loops need a library we do not have: such files are admitted by extension and show as unsupported.
constexpr bool kREXLibraryAvailable = false;

bool admitsTypeCode(uint32_t code) {
    static const QSet<uint32_t> codes = {
        LXFourCC("AIFF"), LXFourCC("AIFC"), LXFourCC("WAVE"), LXFourCC(".WAV"), LXFourCC("Sd2f"),
        LXFourCC("SFIL"), LXFourCC("REX "),
        // Formats the framework reads whose type code comes from the file's content.
        LXFormat::RF64, LXFormat::CAF, LXFormat::AU, LXFormat::W64, LXFormat::FLAC, LXFormat::Ogg,
        LXFormat::Opus, LXFormat::MP3};
    return codes.contains(code) || (code == LXFourCC("REX2") && kREXLibraryAvailable);
}

bool admitsExtension(const QString& extension) {
    static const QSet<QString> extensions = {"wav", "aif", "aiff", "rex", "sd2", "sd", "caf", "au", "rcy"};
    return extensions.contains(extension) || (extension == QLatin1String("rx2") && kREXLibraryAvailable);
}

QString fileNameOf(const QString& path) {
    return QFileInfo(path).fileName();
}

// The name shown for a path: its file name, or for a split set ("take.L") the set's name ("take").
QString displayNameOfPath(const QString& path) {
    if (LXAudioFilename::isSplitMember(path)) return QFileInfo(path).completeBaseName();
    return fileNameOf(path);
}

} // namespace

TWFileEntry::TWFileEntry() {
    m_isLeaf = true;
    for (auto& slot : m_status)
        slot.store(0.0f, std::memory_order_relaxed);
}

TWFileEntry::~TWFileEntry() = default;

bool TWFileEntry::admitsPath(const QString& path) {
    return admitsTypeCode(LXFile::typeCodeAtPath(path)) ||
           admitsExtension(QFileInfo(path).suffix().toLower());
}

QString TWFileEntry::storedPath(const QString& path) {
    return LXAudioFilename::leadPathOfSplitMember(path);
}

TWFileEntryPtr TWFileEntry::create(const QString& path) {
    if (!admitsPath(path)) return nullptr;
    auto entry = std::make_shared<TWFileEntry>();
    entry->setPath(storedPath(path));
    entry->refresh();
    return entry;
}

void TWFileEntry::setPath(const QString& path) {
    TWEntry::setPath(path);
    setInfoValue(QStringLiteral("path"), path);
}

QString TWFileEntry::name() const {
    return infoValue(QStringLiteral("name")).toString();
}

void TWFileEntry::setName(const QString& name) {
    setInfoValue(QStringLiteral("name"), name);
}

TWEntryColor TWFileEntry::color() const {
    return status() == TWStatus::ReadyWithOverview ? TWEntryColor::Black : TWEntryColor::Grey;
}

QDateTime TWFileEntry::modificationDate() const {
    std::lock_guard lock(m_dateMutex);
    return m_modificationDate;
}

// Reading the file ---------------------------------------------------------------------------------------

void TWFileEntry::refresh() {
    const QString path = this->path();
    if (LXFile::existsAtPath(path)) {
        if (status() == TWStatus::NotFound) popStatus();
        // The whole version, not only the date: a file rewritten with its old date set back (or within the
        // date's granularity) must not keep the levels measured of its former content.
        const std::optional<LXFile::LXFileVersion> now = LXFile::versionOfPath(path);
        {
            std::lock_guard lock(m_dateMutex);
            if (m_modificationDate.isValid() && now && now == m_version) return;
        }
        refreshNow();
    } else {
        loadDefaultInfo();
        pushStatus(TWStatus::NotFound);
    }
}

void TWFileEntry::refreshNow() {
    auto file = LXAudioFile::open(path());
    int32_t code = 0;
    if (!file) {
        if (file.error().isFileError()) {
            loadDefaultInfo();
            setStatus(TWStatus::NotFound);
            return;
        }
        code = file.error().code();
    } else if ((*file)->warning()) {
        code = (*file)->warning()->code();
    }

    switch (code) {
    case 0:
    case LXErrRepairable: // a warning: the file is readable
        loadInfoFromAudioFile(**file);
        break;
    case LXErrDamaged:
    case LXErrTruncated:
    case LXErrBadHeader:
    case LXErrBadChunk:
    case LXErrReadFailed:
    case LXErrWriteFailed:
        loadDefaultInfo();
        setStatus(TWStatus::Bad);
        break;
    case LXErrUnsupported:
        loadDefaultInfo();
        setStatus(TWStatus::Unsupported);
        break;
    default:
        // Busy, invalid parameter and codes we do not know leave the entry as it was; a new entry still
        // needs a name to show.
        if (!infoValue(QStringLiteral("name")).isValid()) loadDefaultInfo();
        break;
    }
}

void TWFileEntry::loadDefaultInfo() {
    const QString path = this->path();
    replaceInfo({{QStringLiteral("path"), path}, {QStringLiteral("name"), displayNameOfPath(path)}});
    // The information is gone, so the next refresh must read the file even if its date is unchanged
    // (a file moved away and back keeps its date).
    std::lock_guard lock(m_dateMutex);
    m_modificationDate = QDateTime();
    m_version.reset();
}

void TWFileEntry::loadInfoFromAudioFile(const LXAudioFile& file) {
    const QString path = this->path();
    {
        std::lock_guard lock(m_dateMutex);
        m_modificationDate = LXFile::modificationDateOfFileAtPath(path);
        m_version = LXFile::versionOfPath(path);
    }
    QVariantMap info = file.fileEntry();
    info.insert(QStringLiteral("path"), path);
    if (!info.contains(QStringLiteral("name"))) info.insert(QStringLiteral("name"), file.displayName());
    replaceInfo(info);
    setStatus(file.hasWaveformsOfType(0) ? TWStatus::ReadyWithOverview : TWStatus::Ready);
}

// Status stack ----------------------------------------------------------------------------------------------

void TWFileEntry::setStatus(float status) {
    m_status[0].store(status, std::memory_order_relaxed);
}

void TWFileEntry::pushStatus(float status) {
    if (status == this->status()) return;
    for (int i = kStatusDepth - 1; i > 0; --i)
        m_status[i].store(m_status[i - 1].load(std::memory_order_relaxed), std::memory_order_relaxed);
    m_status[0].store(status, std::memory_order_relaxed);
}

void TWFileEntry::popStatus() {
    for (int i = 0; i < kStatusDepth - 1; ++i)
        m_status[i].store(m_status[i + 1].load(std::memory_order_relaxed), std::memory_order_relaxed);
    m_status[kStatusDepth - 1].store(0.0f, std::memory_order_relaxed);
}

// Analysis and reading ------------------------------------------------------------------------------------

LXStatus TWFileEntry::analyze(LXLoudnessAnalysis loudness) {
    auto file = LXAudioFile::open(path());
    if (!file) return file.error();
    (*file)->setProgressDelegate(this);
    setStatus(TWStatus::Analyzing);
    const LXStatus analysed = LXAnalyze(**file, 1, loudness);
    (*file)->setProgressDelegate(nullptr);
    if (analysed)
        loadInfoFromAudioFile(**file);
    else
        setStatus(TWStatus::Ready);
    TWWorkspace::workspace().reloadEntry(this);
    return analysed;
}

std::unique_ptr<LXAudioFile> TWFileEntry::audioFile() const {
    const int state = TWStatus::state(status());
    if (state != 1 && state != 3 && state != 5 && state != 7) return nullptr;
    auto file = LXAudioFile::open(path());
    if (!file) return nullptr;
    return std::move(*file);
}

// Progress delegate ----------------------------------------------------------------------------------------

double TWFileEntry::currentTime() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

void TWFileEntry::reset() {
    setLastUpdateTime(currentTime());
}

int32_t TWFileEntry::update(float fractionDone) {
    TWWorkspace& workspace = TWWorkspace::workspace();
    const double now = currentTime();
    const int32_t code = workspace.stopWorking();
    // Redrawing costs the main thread; twice a second is enough for a progress pie.
    if (now - lastUpdateTime() > 0.5) {
        setLastUpdateTime(now);
        setStatus(std::trunc(status()) + std::min(fractionDone, 1.0f));
        workspace.reloadEntry(this);
    }
    return code;
}

bool TWFileEntry::update(float fractionDone, LXError* error) {
    const int32_t code = update(fractionDone);
    if (code == LXContinue) return true;
    if (error) *error = LXProgressError::errorWithCode(code, QStringLiteral("Processing"));
    return false;
}

// File commands
// ----------------------------------------------------------------------------------------------

void TWFileEntry::moveToPath(const QString& directory) {
    const QString path = this->path();
    auto file = LXAudioFile::open(path);
    // Every member of a split set goes, so every member's name must be free.
    const std::optional<QString> target =
        TWTransferTarget(TWTransfer::Move, file ? (*file)->paths() : QStringList{path}, directory);
    if (!target) return;
    QString movedPath = *target;
    LXStatus moved;
    if (file) {
        moved = (*file)->moveToPath(*target);
        if (moved) movedPath = (*file)->path();
    } else {
        // A file the framework cannot read (damaged, unsupported) still moves as a plain file.
        moved = LXFile::movePath(path, *target);
    }
    if (!moved) {
        TWShowTransferAlert(TWTransfer::Move, TWTransferFailure::Failed, fileNameOf(path), moved.error());
        return;
    }
    setPath(movedPath);
}

void TWFileEntry::copyToPath(const QString& directory, TWEntry* group) {
    const QString path = this->path();
    auto file = LXAudioFile::open(path);
    const std::optional<QString> target =
        TWTransferTarget(TWTransfer::Copy, file ? (*file)->paths() : QStringList{path}, directory);
    if (!target) return;
    QString copiedPath = *target;
    LXStatus copied;
    if (file) {
        copied = (*file)->copyToPath(*target);
        if (copied) copiedPath = (*file)->path();
    } else {
        copied = LXFile::copyPath(path, *target);
    }
    if (!copied) {
        TWShowTransferAlert(TWTransfer::Copy, TWTransferFailure::Failed, fileNameOf(path), copied.error());
        return;
    }
    auto copy = std::make_shared<TWFileEntry>();
    copy->setPath(copiedPath);
    if (group) group->addEntry(copy);
}

void TWFileEntry::moveToTrash() {
    const TWEntryPtr self = weak_from_this().lock(); // leaving the parent may release this entry
    const QString path = this->path();
    LXStatus trashed;
    if (auto file = LXAudioFile::open(path))
        trashed = (*file)->moveToTrash();
    else if (LXFile::existsAtPath(path))
        trashed = LXFile::moveToTrash(path);
    // An entry whose file could not be trashed stays, so the user sees that it is still there.
    if (!trashed) {
        qWarning("%s", qPrintable(trashed.error().description()));
        return;
    }
    if (TWEntry* parent = this->parent()) parent->removeEntry(this);
}

LXStatus TWFileEntry::deleteFiles() {
    const QString path = this->path();
    if (auto file = LXAudioFile::open(path)) return (*file)->deleteFiles();
    return LXFile::deleteFileAtPath(path);
}

void TWFileEntry::repair() {
    if (status() != TWStatus::Bad) return;
    if (LXAudioFile::repairAtPath(path())) {
        refresh();
        return;
    }
    TWAlert alert;
    alert.style = TWAlertStyle::Warning;
    alert.title = QStringLiteral("'%1' could not be repaired.").arg(name());
    alert.message = QStringLiteral("All attempts at repair failed.");
    alert.buttons = {TWLocalizedString(QStringLiteral("OK"))};
    TWInteraction::current().runAlert(alert);
}

void TWFileEntry::openInFinder() {
    TWDesktop::openPath(path());
}

void TWFileEntry::showInFinder() {
    TWDesktop::revealPath(path());
}

void TWFileEntry::openWithApplication(const QString& application) {
    TWDesktop::openWithApplication(path(), application);
}

// State
// ------------------------------------------------------------------------------------------------------

QVariantMap TWFileEntry::state() const {
    QVariantMap state = TWEntry::state();
    state.insert(QStringLiteral("path"), path());
    return state;
}

void TWFileEntry::setState(const QVariantMap& state) {
    setPath(state.value(QStringLiteral("path")).toString());
}

// Pushed statuses -------------------------------------------------------------------------------------------

TWPushedStatus::TWPushedStatus(TWFileEntry& entry, float status)
    : m_entry(entry), m_status(status), m_pushed(entry.status() != status) {
    m_entry.pushStatus(status);
}

void TWPushedStatus::mark() {
    m_entry.setStatus(m_status);
}

TWPushedStatus::~TWPushedStatus() {
    if (!m_pushed) return;
    if (TWStatus::state(m_entry.status()) == TWStatus::state(m_status)) {
        m_entry.popStatus();
        return;
    }
    const float now = m_entry.status();
    m_entry.popStatus();
    m_entry.setStatus(now);
}

QString TWStatus::description(float status) {
    switch (state(status)) {
    case -3:
        return QStringLiteral("unsupported format");
    case -2:
        return QStringLiteral("damaged");
    case -1:
        return QStringLiteral("not found");
    case 1:
        return QStringLiteral("ready, not analysed");
    case 2:
        return QStringLiteral("analysing");
    case 3:
        return QStringLiteral("ready");
    case 4:
        return QStringLiteral("being processed");
    case 6:
        return QStringLiteral("waiting");
    case 7:
        return QStringLiteral("playing");
    default:
        return QStringLiteral("readable");
    }
}
