#pragma once

// Helpers shared by the engine's tests: runs of one action on real files, with sox as the reader that
// says what the files hold.

#include "ModelTestSupport.h"
#include "TestAudio.h"

#include "actions/level/TWLevelActions.h"
#include "engine/TWAction.h"
#include "engine/TWActionRegistry.h"
#include "engine/TWRunController.h"
#include "engine/TWUndoJournal.h"
#include "model/TWFileEntry.h"
#include "model/TWGroupEntry.h"
#include "platform/TWPreferences.h"
#include "platform/TWSupportFolders.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"

#include <QDir>
#include <QFile>
#include <QSemaphore>
#include <QUndoStack>

#include <atomic>
#include <cmath>

namespace EngineTest {

inline QByteArray bytesOf(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// What sox reads from the file, interleaved; empty (with a failure) when it cannot.
inline std::vector<double> soxSamples(const QString& path) {
    auto decoded = TestAudio::readWithSox(path);
    EXPECT_TRUE(decoded.ok()) << path.toStdString() << ": "
                              << (decoded ? "" : decoded.error().description().toStdString());
    return decoded ? decoded->samples : std::vector<double>();
}

inline double peakOf(const std::vector<double>& samples, int channels = 1, int channel = -1) {
    double peak = 0;
    for (size_t i = 0; i < samples.size(); ++i)
        if (channel < 0 || int(i % size_t(channels)) == channel) peak = std::max(peak, std::fabs(samples[i]));
    return peak;
}

inline double rmsOf(const std::vector<double>& samples, int channels = 1, int channel = -1) {
    double sum = 0;
    size_t count = 0;
    for (size_t i = 0; i < samples.size(); ++i)
        if (channel < 0 || int(i % size_t(channels)) == channel) {
            sum += samples[i] * samples[i];
            ++count;
        }
    return count ? std::sqrt(sum / double(count)) : 0.0;
}

// Every sample of `after` is `factor` times the same sample of `before`, within `tolerance`.
inline void expectScaled(const std::vector<double>& before, const std::vector<double>& after, double factor,
                         double tolerance = 1.0 / 32768) {
    ASSERT_EQ(before.size(), after.size());
    ASSERT_FALSE(before.empty());
    double worst = 0;
    for (size_t i = 0; i < before.size(); ++i)
        worst = std::max(worst, std::fabs(after[i] - before[i] * factor));
    EXPECT_LE(worst, tolerance) << "factor " << factor;
}

// {"class", "source" 3, "destination", and the action's keys}.
inline QVariantMap instructions(const QString& className, const QVariantMap& keys = {},
                                bool toNewFile = false, const QString& directory = {}) {
    QVariantMap destination{{"toNewFile", toNewFile}, {"addToList", true}};
    if (!directory.isEmpty()) destination.insert("directory", directory);
    QVariantMap map{{"class", className}, {"active", true}, {"source", 3}, {"destination", destination}};
    for (auto it = keys.begin(); it != keys.end(); ++it)
        map.insert(it.key(), it.value());
    return map;
}

// A gain whose output is an AIFF file: an in-place save that changes the file's name.
class TWTestGainToAiff : public TWActionChangeGain {
public:
    QString className() const override { return QStringLiteral("TWTestGainToAiff"); }

protected:
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry& entry, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int index) override {
        writer.setFormat(LXFormat::AIFF);
        return TWActionChangeGain::processAudioFile(file, entry, instructions, writer, index);
    }
};

// A gain that sets the workspace's stop code (as the menu would) on its n-th file, before working on it,
// so the framework ends that file with the code. The code and n are set by the test; the work thread
// makes the action itself.
class TWTestStoppingGain : public TWActionChangeGain {
public:
    static inline std::atomic<int32_t> code{LXContinue};
    static inline std::atomic<int> atCall{3};
    // Set once the code is set; with `hold`, the action then waits for a release before it goes on.
    static inline std::atomic<bool> codeSet{false};
    static inline QSemaphore* hold = nullptr;
    QString className() const override { return QStringLiteral("TWTestStoppingGain"); }
    bool canProcessFilesConcurrently() const override { return false; } // it counts its calls

protected:
    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry& entry, const QVariantMap& instructions,
                               LXAudioFileWriter& writer, int index) override {
        if (++m_calls == atCall) {
            TWWorkspace::workspace().setStopWorking(code);
            codeSet = true;
            if (hold) (void)hold->tryAcquire(1, 10000);
        }
        return TWActionChangeGain::processAudioFile(file, entry, instructions, writer, index);
    }

private:
    int m_calls = 0;
};

TW_REGISTER_ACTION(TWTestGainToAiff)
TW_REGISTER_ACTION(TWTestStoppingGain)

// The files in a folder, sorted, without the undo journal.
inline QStringList filesIn(const QString& directory) {
    QStringList names = QDir(directory).entryList(QDir::Files, QDir::Name);
    names.removeAll(QStringLiteral("Journal"));
    return names;
}

// The workspace's progress and end-of-run reports, recorded while the object lives.
struct RunLog {
    struct Progress {
        QString title;
        qint64 value, maximum;
    };
    QList<Progress> progress;
    QStringList endings; // processEnded titles
    QList<QMetaObject::Connection> connections;

    explicit RunLog(TWRunController& runs) {
        connections.append(QObject::connect(&runs, &TWRunController::progressChanged,
                                            [this](const QString& title, qint64 value, qint64 maximum) {
                                                progress.append({title, value, maximum});
                                            }));
        connections.append(QObject::connect(&runs, &TWRunController::processEnded,
                                            [this](const QString& title, bool) { endings.append(title); }));
    }
    ~RunLog() {
        for (const auto& connection : connections)
            QObject::disconnect(connection);
    }
    RunLog(const RunLog&) = delete;
    RunLog& operator=(const RunLog&) = delete;
};

// A workspace with files in its tree, a run controller of its own, the undo folder emptied, undo on.
class Fixture : public ModelTest::Fixture {
protected:
    void SetUp() override {
        ModelTest::Fixture::SetUp();
        m_runs = std::make_unique<TWRunController>(
            TWEngineContext{workspace(), TWPreferences::shared(), TWUndoJournal::shared(), m_interaction});
        m_runs->setHeadless(true);
        TWTestStoppingGain::code = LXContinue;
        TWTestStoppingGain::atCall = 3;
        TWTestStoppingGain::codeSet = false;
        TWTestStoppingGain::hold = nullptr;
        (void)TWUndoJournal::shared().removeAll();
        TWPreferences::shared().removeValue("Undo Enabled");
        TWPreferences::shared().removeValue("Remove All After Process");
    }

    static TestAudio::Sound small(double amplitude = 0.5) {
        TestAudio::Sound sound;
        sound.frames = 4410;
        sound.amplitude = amplitude;
        return sound;
    }
    // A generated file added to the root of the tree.
    TWFileEntryPtr addFile(const QString& name) { return addFile(name, small()); }
    TWFileEntryPtr addFile(const QString& name, const TestAudio::Sound& sound) {
        auto written = TestAudio::write(path(name), sound);
        EXPECT_TRUE(written.ok());
        return add(path(name));
    }
    TWFileEntryPtr add(const QString& file) {
        const QList<TWEntryPtr> added = workspace().addFiles({file});
        EXPECT_EQ(added.size(), 1) << file.toStdString();
        return added.isEmpty() ? nullptr : std::dynamic_pointer_cast<TWFileEntry>(added.first());
    }

    void TearDown() override {
        m_runs.reset();
        ModelTest::Fixture::TearDown();
    }

    TWRunController& runs() { return *m_runs; }

    // Runs the action's loop here, on the main thread, as an undo of instructions would.
    std::optional<TWActionError> run(TWAction& action, const QList<TWFileEntryPtr>& entries,
                                     const QVariantMap& instructions,
                                     QList<TWFileEntryPtr>* results = nullptr) {
        action.setInstructions(instructions);
        QList<TWFileEntryPtr> made;
        auto error = action.processEntries(*m_runs, entries, instructions, made);
        if (results) *results = made;
        return error;
    }
    std::optional<TWActionError> run(const QVariantMap& instructions, const QList<TWFileEntryPtr>& entries,
                                     QList<TWFileEntryPtr>* results = nullptr) {
        auto action = TWActionRegistry::make(instructions.value("class").toString());
        EXPECT_TRUE(action) << instructions.value("class").toString().toStdString();
        return run(*action, entries, instructions, results);
    }

    std::unique_ptr<TWRunController> m_runs;
};

} // namespace EngineTest
