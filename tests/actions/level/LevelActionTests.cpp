// Gain, balance and normalize through the processing loop on real files, in place and to new files, with
// sox as the reader (and, for the gain, as the reference implementation).

#include "EngineTestSupport.h"

#include "lx/dsp/LXGain.h"

#include <QDir>
#include <QFileInfo>

using namespace EngineTest;

namespace {

const QString kGain = QStringLiteral("TWActionChangeGain");
const QString kBalance = QStringLiteral("TWActionBalance");
const QString kNormalize = QStringLiteral("TWActionNormalize");

class ForceCountingGain : public TWActionChangeGain {
public:
    bool forceCounting() const override { return true; }
};

class LevelActions : public Fixture {
protected:
    // A copy outside the tree, to compare with after the action changed the original.
    QString keepCopy(const QString& file) {
        const QString copy = makeDirectory("before") + u'/' + QFileInfo(file).fileName();
        QFile::remove(copy);
        EXPECT_TRUE(QFile::copy(file, copy));
        return copy;
    }
    TestAudio::Sound sine(double amplitude) {
        TestAudio::Sound sound = small(amplitude);
        sound.signal = TestAudio::Signal::Sine;
        return sound;
    }
};

} // namespace

TEST_F(LevelActions, ChangeGainAgreesWithSoxInPlaceAndToNewFiles) {
    const TWFileEntryPtr a = addFile("a.wav");
    const TWFileEntryPtr b = addFile("b.wav");
    const QString before = keepCopy(a->path());
    const QByteArray bBytes = bytesOf(b->path());
    const float gain = LXAmplitudeOfLevel(-6.0);
    EXPECT_NEAR(gain, 0.501187, 1e-6);

    QList<TWFileEntryPtr> results;
    ASSERT_FALSE(run(instructions(kGain, {{"level", -6.0}}), {a}, &results));
    ASSERT_EQ(results, QList<TWFileEntryPtr>{a}); // in place: the entry itself, same path
    EXPECT_EQ(a->path(), path("a.wav"));
    const QString reference = path("before/sox.wav");
    int status = -1;
    TestAudio::runTool("sox", {"-D", "-v", QString::number(gain, 'g', 9), before, reference}, &status);
    ASSERT_EQ(status, 0);
    expectScaled(soxSamples(reference), soxSamples(a->path()), 1.0);
    expectScaled(soxSamples(before), soxSamples(a->path()), gain);

    ASSERT_FALSE(run(instructions(kGain, {{"level", -6.0}}, true), {b}, &results));
    ASSERT_EQ(results.size(), 1);
    EXPECT_EQ(results[0]->path(), path("b-1.wav"));
    EXPECT_EQ(bytesOf(b->path()), bBytes);
    expectScaled(soxSamples(b->path()), soxSamples(path("b-1.wav")), gain);
    // The new entry joins the tree right after its source.
    const auto& root = workspace().rootGroup()->entries();
    ASSERT_EQ(root.size(), 3);
    EXPECT_EQ(root[2], results[0]);
}

TEST_F(LevelActions, NewFilesTakeTheFirstFreeNameInTheirDestination) {
    const TWFileEntryPtr a = addFile("a.wav");
    const QString out = makeDirectory("out");
    const auto names = [&](const QVariantMap& ins, TWAction* action = nullptr) {
        QList<TWFileEntryPtr> results;
        const auto error = action ? run(*action, {a}, ins, &results) : run(ins, {a}, &results);
        EXPECT_FALSE(error) << (error ? error->localizedDescription().toStdString() : "");
        return results.isEmpty() ? QString() : results[0]->path();
    };
    EXPECT_EQ(names(instructions(kGain, {{"level", 3.0}}, true)), path("a-1.wav"));
    EXPECT_EQ(names(instructions(kGain, {{"level", 3.0}}, true)), path("a-2.wav"));
    EXPECT_EQ(names(instructions(kGain, {{"level", 3.0}}, true, out)), out + "/a.wav");
    EXPECT_EQ(names(instructions(kGain, {{"level", 3.0}}, true, out)), out + "/a-1.wav");
    ForceCountingGain counting;
    const QString fresh = makeDirectory("fresh");
    EXPECT_EQ(names(instructions(kGain, {{"level", 3.0}}, true, fresh), &counting), fresh + "/a-1.wav");
    EXPECT_EQ(QDir(fresh).entryList(QDir::Files), QStringList{"a-1.wav"}); // no temporary file left behind
    expectScaled(soxSamples(a->path()), soxSamples(out + "/a.wav"), LXAmplitudeOfLevel(3.0));
}

TEST_F(LevelActions, TinyGainsLeaveFilesAsTheyAre) {
    const TWFileEntryPtr a = addFile("a.wav");
    const QByteArray original = bytesOf(a->path());
    for (double level : {0.0, 0.05}) {
        QList<TWFileEntryPtr> results;
        ASSERT_FALSE(run(instructions(kGain, {{"level", level}}), {a}, &results));
        EXPECT_EQ(results, QList<TWFileEntryPtr>{a});
        EXPECT_EQ(bytesOf(a->path()), original);
        EXPECT_NE(TWStatus::state(a->status()), int(TWStatus::Processing)) << "status not popped";
        EXPECT_EQ(runs().undoStack().count(), 0);

        ASSERT_FALSE(run(instructions(kGain, {{"level", level}}, true), {a}, &results));
        ASSERT_EQ(results.size(), 1);
        EXPECT_NE(results[0], a);
        EXPECT_EQ(bytesOf(results[0]->path()), original) << results[0]->path().toStdString();
    }
    EXPECT_EQ(QDir(m_dir.path()).entryList(QDir::Files), (QStringList{"a-1.wav", "a-2.wav", "a.wav"}));
}

TEST_F(LevelActions, BalanceBringsEachChannelToTheLoudestByPeakOrRms) {
    for (bool rms : {false, true}) {
        const QString name = rms ? "rms.wav" : "peak.wav";
        ASSERT_TRUE(TestAudio::generateWithSox(
            path(name), {"-n", "-r", "44100", "-b", "16", "-c", "2"},
            {"synth", "0.1", "sine", "440", "square", "660", "remix", "1v0.8", "2v0.3"}));
        const TWFileEntryPtr entry = add(path(name));
        const std::vector<double> in = soxSamples(entry->path());
        const auto level = [&](const std::vector<double>& s, int c) {
            return rms ? rmsOf(s, 2, c) : peakOf(s, 2, c);
        };
        ASSERT_GT(level(in, 0), 1.5 * level(in, 1));

        ASSERT_FALSE(run(instructions(kBalance, {{"rms", rms}}), {entry}));
        const std::vector<double> out = soxSamples(entry->path());
        ASSERT_EQ(out.size(), in.size());
        EXPECT_NEAR(level(out, 1), level(out, 0), 1e-4) << name.toStdString();
        const double factor = level(in, 0) / level(in, 1);
        for (size_t i = 0; i < in.size(); ++i) {
            const double wanted = i % 2 ? in[i] * factor : in[i];
            ASSERT_NEAR(out[i], wanted, 1.0 / 32768) << name.toStdString() << " sample " << i;
        }
    }
    TestAudio::Sound mono = small();
    mono.channels = 1;
    const TWFileEntryPtr single = addFile("mono.wav", mono);
    const QByteArray bytes = bytesOf(single->path());
    QList<TWFileEntryPtr> results;
    ASSERT_FALSE(run(instructions(kBalance), {single}, &results));
    EXPECT_EQ(results, QList<TWFileEntryPtr>{single});
    EXPECT_EQ(bytesOf(single->path()), bytes);
}

TEST_F(LevelActions, NormalizeReachesPeakAndRmsTargets) {
    const TWFileEntryPtr peak = addFile("peak.wav", small(0.5));
    const TWFileEntryPtr rms = addFile("rms.wav", small(0.5));
    const std::vector<double> peakIn = soxSamples(peak->path());
    const std::vector<double> rmsIn = soxSamples(rms->path());

    ASSERT_FALSE(run(instructions(kNormalize, {{"level", -0.1}}), {peak}));
    const double peakGain = LXAmplitudeOfLevel(-0.1) / float(peakOf(peakIn));
    EXPECT_NEAR(peakGain, 1.977, 0.01);
    expectScaled(peakIn, soxSamples(peak->path()), peakGain);
    EXPECT_NEAR(peakOf(soxSamples(peak->path())), 0.98855, 1e-4);

    ASSERT_FALSE(run(instructions(kNormalize, {{"level", -20.0}, {"rms", true}}), {rms}));
    EXPECT_NEAR(rmsOf(soxSamples(rms->path())), 0.1, 1e-4);
    expectScaled(rmsIn, soxSamples(rms->path()), 0.1 / rmsOf(rmsIn), 2.0 / 32768);

    // Within 1 % of the target already: unchanged. The save forgot the old file's peak, so this measures.
    const QByteArray normalized = bytesOf(peak->path());
    EXPECT_EQ(peak->max(), -1.0f);
    ASSERT_FALSE(run(instructions(kNormalize, {{"level", -0.1}}), {peak}));
    EXPECT_EQ(bytesOf(peak->path()), normalized);
}

TEST_F(LevelActions, GroupedNormalizeScalesEveryFileByTheLoudest) {
    QList<TWFileEntryPtr> group;
    std::vector<std::vector<double>> before;
    for (double amplitude : {0.25, 0.5, 0.8}) {
        group.append(addFile(QStringLiteral("g%1.wav").arg(amplitude), sine(amplitude)));
        before.push_back(soxSamples(group.last()->path()));
    }
    const float target = LXAmplitudeOfLevel(-1.0);
    ASSERT_FALSE(run(instructions(kNormalize, {{"level", -1.0}, {"grouping", true}}), group));
    const double factor = target / float(peakOf(before[2]));
    for (qsizetype i = 0; i < group.size(); ++i)
        expectScaled(before[size_t(i)], soxSamples(group[i]->path()), factor);

    // One file alone in a grouped run is divided by the group level it never measured: inverted.
    const TWFileEntryPtr single = addFile("single.wav", sine(0.5));
    const std::vector<double> in = soxSamples(single->path());
    ASSERT_FALSE(run(instructions(kNormalize, {{"level", -6.0}, {"grouping", true}}), {single}));
    expectScaled(in, soxSamples(single->path()), -LXAmplitudeOfLevel(-6.0));
}

// The panels, driven as the window drives them: the slider moves in half decibels, a typed gain stands, a
// typed target above full scale becomes 0 dB, and instructions from a workflow or a script are taken as
// they stand.
TEST(LevelPanels, TheLevelControlsFollowTheirRules) {
    TWActionNormalize normalize;
    TWPanelModel panel(normalize);
    ASSERT_EQ(panel.controls()[0].kind, TWControlKind::Slider);
    ASSERT_EQ(panel.controls()[1].kind, TWControlKind::Field);
    QStringList changed;
    QObject::connect(&panel, &TWPanelModel::valueChanged, [&](const QString& key) { changed.append(key); });
    panel.setValue(0, -2.3);
    EXPECT_EQ(panel.text(1), QStringLiteral("-2.5 dB")); // the field shows what the slider set
    panel.setValue(1, 3.0);
    EXPECT_EQ(normalize.instructions().value("level").toDouble(), 0.0);
    panel.setValue(1, -0.37);
    EXPECT_EQ(panel.value(0).toDouble(), -0.37);
    panel.setValue(1, QStringLiteral("loud")); // refused: nothing changes
    EXPECT_EQ(panel.value(1).toDouble(), -0.37);
    EXPECT_EQ(changed, (QStringList{"level", "level", "level"}));
    normalize.setInstructions({{"level", 3.3}});
    EXPECT_EQ(panel.value(0).toDouble(), 3.3);

    TWActionChangeGain gain;
    TWPanelModel gainPanel(gain);
    gainPanel.setValue(1, 7.77);
    EXPECT_EQ(gain.instructions().value("level").toDouble(), 7.77);
    gainPanel.setValue(0, 2.3);
    EXPECT_EQ(gain.instructions().value("level").toDouble(), 2.5);

    TWActionBalance balance;
    TWPanelModel balancePanel(balance);
    EXPECT_EQ(balancePanel.controls()[0].kind, TWControlKind::RadioGroup);
    balancePanel.setValue(0, true);
    EXPECT_EQ(balancePanel.text(0), QStringLiteral("RMS"));
}
