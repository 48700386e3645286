// Convert Channels: each file with the channel count a matrix takes is mixed through it into the
// matrix's layout (lx/dsp/LXChannelMatrix.h); files of another count are left as they are. The
// matrices are property lists, the program's own (":/TWChannelMatrices") followed by the user's
// ("Channel Matrices" in the support folder): "name", "code", "description", "sourceChannels" and
// "matrix", one array of gains a destination channel, one gain a source channel.

#include "engine/TWAction.h"
#include "engine/TWActionRegistry.h"

#include "platform/TWPropertyList.h"
#include "platform/TWSupportFolders.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/LXProcess.h"
#include "lx/dsp/LXChannelMatrix.h"

#include <QDir>

namespace {

const QString kMatrixKey = QStringLiteral("matrix");

// The gains of a matrix file, or nothing when they do not fit its source channels.
std::optional<std::vector<std::vector<double>>> gainsOf(const QVariantMap& matrix) {
    const int sources = matrix.value(QStringLiteral("sourceChannels")).toInt();
    const QVariantList rows = matrix.value(kMatrixKey).toList();
    if (sources < 1 || rows.isEmpty()) return std::nullopt;
    std::vector<std::vector<double>> gains;
    for (const QVariant& row : rows) {
        const QVariantList values = row.toList();
        if (values.size() != sources) return std::nullopt;
        std::vector<double>& out = gains.emplace_back();
        for (const QVariant& value : values) {
            bool ok = false;
            out.push_back(value.toDouble(&ok));
            if (!ok) return std::nullopt;
        }
    }
    return gains;
}

// Every readable matrix, the program's first, each folder in the order of its file names. A file that
// is not a matrix is passed over: one broken file of the user's must not take the others away.
QList<QVariantMap> readMatrices() {
    QList<QVariantMap> matrices;
    for (const QString& folder : {QStringLiteral(":/TWChannelMatrices"), TWSupportFolders::channelMatricesDirectory()}) {
        const QDir dir(folder);
        for (const QString& name : dir.entryList({QStringLiteral("*.plist")}, QDir::Files, QDir::Name)) {
            const auto read = TWPropertyList::readFile(dir.filePath(name));
            if (!read) continue;
            const QVariantMap matrix = read->toMap();
            if (matrix.value(QStringLiteral("name")).toString().isEmpty() || !gainsOf(matrix)) continue;
            matrices.append(matrix);
        }
    }
    return matrices;
}

} // namespace

class TWActionConvertChannels : public TWAction {
public:
    TWActionConvertChannels() : m_matrices(readMatrices()) {}

    QString className() const override { return QStringLiteral("TWActionConvertChannels"); }
    bool canProcessFilesConcurrently() const override { return true; }
    QString name() const override { return QStringLiteral("Convert Channels"); }
    QString verb() const override { return QStringLiteral("Converting Channels..."); }

    QList<TWInstructionKey> instructionKeys() const override {
        QList<TWChoice> choices;
        for (const QVariantMap& matrix : m_matrices)
            choices.append({matrix.value(QStringLiteral("code")).toLongLong(),
                            matrix.value(QStringLiteral("name")).toString(), 0});
        const qint64 first = choices.isEmpty() ? 0 : choices.first().value.toLongLong();
        return {TWKey<qint64>{kMatrixKey, first, QStringLiteral("the channel matrix to mix through, by its code"),
                              TWKeyDetails::oneOf(choices)}};
    }

    // The pop-up, and under it the chosen matrix's description.
    QList<TWControl> panelControls() const override {
        QList<TWControl> controls = TWAction::panelControls();
        controls[0].label = QStringLiteral("Matrix");
        controls.append(TWControl{TWControlKind::Label, kMatrixKey, {}, 0, 0, 0, {}, {}});
        return controls;
    }
    QVariant controlValue(const TWControl& control) const override {
        if (control.kind != TWControlKind::Label) return TWAction::controlValue(control);
        const QVariantMap* matrix = matrixWithCode(objectForInstructionKey(kMatrixKey).toLongLong());
        return matrix ? matrix->value(QStringLiteral("description")) : QVariant();
    }

protected:
    TWOutcome preProcessWithEntries(const QList<TWFileEntryPtr>&, const QVariantMap& instructions) override {
        const qint64 code = instructions.value(kMatrixKey).toLongLong();
        const QVariantMap* matrix = matrixWithCode(code);
        if (!matrix)
            return TWOutcome::failure(
                LXError(LXErrInvalidParameter, QStringLiteral("there is no channel matrix with the code %1").arg(code)));
        m_matrix = *matrix;
        return TWOutcome::success();
    }

    TWOutcome processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap&, LXAudioFileWriter& writer,
                               int) override {
        if (file.numberOfChannels() != m_matrix.value(QStringLiteral("sourceChannels")).toInt())
            return TWOutcome::unchanged();
        LXChannelMatrix kernel(*gainsOf(m_matrix));
        return TWOutcome(LXProcess(file, kernel, writer)).withNote(m_matrix.value(QStringLiteral("name")).toString());
    }

private:
    const QVariantMap* matrixWithCode(qint64 code) const {
        for (const QVariantMap& matrix : m_matrices)
            if (matrix.value(QStringLiteral("code")).toLongLong() == code) return &matrix;
        return nullptr;
    }

    QList<QVariantMap> m_matrices;
    QVariantMap m_matrix; // the one a run mixes through
};

TW_REGISTER_ACTION(TWActionConvertChannels)
