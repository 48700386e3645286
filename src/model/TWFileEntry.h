#pragma once

#include "model/TWEntry.h"

#include "lx/LXAnalysis.h"
#include "lx/LXError.h"
#include "lx/LXFile.h"
#include "lx/LXProgressDelegate.h"

#include <QDateTime>

#include <array>
#include <atomic>
#include <memory>
#include <optional>

#include "lx/LXAudioFile.h"

// Entry states: the integer part of a status. The fraction is the progress of the work the state names.
namespace TWStatus {
constexpr float Unsupported = -3.0f;
constexpr float Bad = -2.0f;
constexpr float NotFound = -1.0f;
constexpr float None = 0.0f;
constexpr float Ready = 1.0f; // no waveform overview yet
constexpr float Analyzing = 2.0f;
constexpr float ReadyWithOverview = 3.0f;
constexpr float Processing = 4.0f;
constexpr float Readable = 5.0f;
constexpr float Waiting = 6.0f;
constexpr float Playing = 7.0f;
inline int state(float status) {
    return int(status);
} // truncation: -1.5 is state -1
// The state in words ("ready, not analysed", "damaged"), as the command line prints it and the file
// list reads it out.
QString description(float status);
} // namespace TWStatus

// One audio file on disk (or one split set of mono files, named by its lead member "take.L").
//
// It is the progress delegate of every framework operation on its file: update() is called on the
// thread doing the work, answers the workspace's stop code and asks the main thread, at most twice a
// second, to redraw the entry. The status stack is atomic so the main thread can draw it while the work
// thread changes it; the stack as a whole is changed by one thread at a time.
class TWFileEntry : public TWEntry, public LXProgressDelegate {
public:
    static constexpr int kStatusDepth = 8;

    TWFileEntry(); // an empty entry, to be given a path by setPath() or setState()
    ~TWFileEntry() override;

    // Admits the path as an audio file (or refuses it: nullptr) and reads the file's information.
    static TWFileEntryPtr create(const QString& path);
    // Whether create() would admit the path; the path a split-set member is stored under.
    static bool admitsPath(const QString& path);
    static QString storedPath(const QString& path);

    QString className() const override { return QStringLiteral("TWFileEntry"); }

    void setPath(const QString& path) override; // also stores "path" in the information
    QString name() const override;
    void setName(const QString& name) override;
    void setTitle(const QString&) {} // accepted, ignored
    QString image() const override { return QStringLiteral("entry_file"); }
    TWEntryColor color() const override;
    QDateTime modificationDate() const;

    // Re-reads the information when the file's modification date changed.
    void refresh() override;
    // Reads the information unconditionally.
    void refreshNow();
    void loadDefaultInfo();
    void loadInfoFromAudioFile(const LXAudioFile& file);

    // The status stack (eight deep; element 0 is the current status).
    float status() const override { return m_status[0].load(std::memory_order_relaxed); }
    float statusAt(int depth) const { return m_status[depth].load(std::memory_order_relaxed); }
    void setStatus(float status);
    void pushStatus(float status);
    void popStatus();

    // Analyses the file (peak, RMS, overview; loudness when asked); status 2 while it runs, then 3 (or 1
    // when it failed, and the error says why).
    LXStatus analyze(LXLoudnessAnalysis loudness = LXLoudnessAnalysis::Skip);
    // The file opened for reading, or nullptr unless the entry's state is 1, 3, 5 or 7.
    std::unique_ptr<LXAudioFile> audioFile() const;

    // LXProgressDelegate.
    void reset() override;
    int32_t update(float fractionDone) override;
    // update() as a yes/no: true to go on; otherwise error (when given) says why the work ended.
    bool update(float fractionDone, LXError* error);
    double lastUpdateTime() const { return m_lastUpdateTime.load(std::memory_order_relaxed); }
    void setLastUpdateTime(double seconds) { m_lastUpdateTime.store(seconds, std::memory_order_relaxed); }
    // The clock of lastUpdateTime: seconds on a monotonic clock.
    static double currentTime();

    // File commands. Failures are told to the user through TWInteraction and leave the entry unchanged.
    void moveToPath(const QString& directory) override;
    void copyToPath(const QString& directory, TWEntry* group) override;
    void moveToTrash() override;
    LXStatus deleteFiles() override;
    void repair() override; // only when the status is exactly -2
    void openInFinder() override;
    void showInFinder() override;
    void openWithApplication(const QString& application) override;

    QVariantMap state() const override;
    void setState(const QVariantMap& state) override;

private:
    std::array<std::atomic<float>, kStatusDepth> m_status{};
    std::atomic<double> m_lastUpdateTime{0.0};
    // Of the file when its information was read; both guarded by m_dateMutex.
    QDateTime m_modificationDate;
    std::optional<LXFile::LXFileVersion> m_version;
    mutable std::mutex m_dateMutex;
};

// Shows a state on an entry for as long as it lives (pushed on its status stack, popped when it goes),
// whatever way the work ends. An entry already showing the state is left to whoever pushed it. Should a
// refresh have set the file's new state over it meanwhile (an in-place save), that state stays on top of
// what lay beneath.
class TWPushedStatus {
public:
    TWPushedStatus(TWFileEntry& entry, float status);
    ~TWPushedStatus();
    TWPushedStatus(const TWPushedStatus&) = delete;
    TWPushedStatus& operator=(const TWPushedStatus&) = delete;
    void mark(); // shows the state again after a step that changed it

private:
    TWFileEntry& m_entry;
    float m_status;
    bool m_pushed;
};
