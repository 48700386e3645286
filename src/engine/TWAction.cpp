// The action's settings, instructions and saved state. The processing loop is in TWActionLoop.cpp.

#include "engine/TWAction.h"

#include "lx/LXFile.h"

#include <QCoreApplication>
#include <QThread>

namespace {
const QString kClass = QStringLiteral("class");
const QString kActive = QStringLiteral("active");
const QString kSource = QStringLiteral("source");
const QString kDestination = QStringLiteral("destination");
const QString kToNewFile = QStringLiteral("toNewFile");
const QString kAddToList = QStringLiteral("addToList");
const QString kDirectory = QStringLiteral("directory");
} // namespace

TWAction::TWAction() = default;
TWAction::~TWAction() = default;

QStringList TWAction::allInstructionKeys() const {
    QStringList names;
    for (const TWInstructionKey& key : instructionKeys())
        names.append(key.name);
    return names;
}

void TWAction::setActive(bool active) {
    m_active = active;
    if (!active) {
        m_disclosed = false;
        m_preview = false;
    }
}

void TWAction::setDestination(TWDestinationTag tag, const QString& directory) {
    if (onlyMakesNewFiles() && tag == TWDestinationTag::InPlace) tag = TWDestinationTag::BesideSource;
    m_destinationTag = tag;
    m_directory = tag == TWDestinationTag::ChosenDirectory ? LXFile::conformPath(directory) : QString();
}

QVariantMap TWAction::instructions() const {
    QVariantMap instructions;
    instructions.insert(kClass, className());
    instructions.insert(kActive, m_active);
    instructions.insert(kSource, qint64(m_source));
    if (!onlyInPlace()) {
        QVariantMap destination;
        destination.insert(kToNewFile, m_destinationTag != TWDestinationTag::InPlace);
        destination.insert(kAddToList, true);
        if (m_destinationTag == TWDestinationTag::ChosenDirectory)
            destination.insert(kDirectory, m_directory);
        instructions.insert(kDestination, destination);
    }
    for (const QString& key : allInstructionKeys()) {
        const QVariant value = objectForInstructionKey(key);
        if (value.isValid()) instructions.insert(key, value);
    }
    return instructions;
}

void TWAction::setInstructions(const QVariantMap& instructions) {
    if (instructions.contains(kSource)) m_source = instructions.value(kSource).toInt();
    for (const QString& key : allInstructionKeys())
        if (instructions.contains(key)) m_values.insert(key, instructions.value(key));
    if (!instructions.contains(kDestination)) return;
    const QVariantMap destination = instructions.value(kDestination).toMap();
    const bool toNewFile = destination.value(kToNewFile).toBool();
    const QString directory = destination.value(kDirectory).toString();
    if (toNewFile && !directory.isEmpty())
        setDestination(TWDestinationTag::ChosenDirectory, directory);
    else
        setDestination(toNewFile ? TWDestinationTag::BesideSource : TWDestinationTag::InPlace);
}

QVariantMap TWAction::state() const {
    return {{kClass, className()},
            {kActive, m_active},
            {QStringLiteral("disclosed"), m_disclosed},
            {QStringLiteral("optionsDisclosed"), m_optionsDisclosed},
            {QStringLiteral("preview"), m_preview},
            {QStringLiteral("instructions"), instructions()}};
}

void TWAction::setState(const QVariantMap& state) {
    if (state.contains(kActive)) setActive(state.value(kActive).toBool());
    if (state.contains(QStringLiteral("disclosed")))
        m_disclosed = state.value(QStringLiteral("disclosed")).toBool();
    if (state.contains(QStringLiteral("optionsDisclosed")))
        m_optionsDisclosed = state.value(QStringLiteral("optionsDisclosed")).toBool();
    if (state.contains(QStringLiteral("preview")))
        setPreview(state.value(QStringLiteral("preview")).toBool());
    if (state.contains(QStringLiteral("instructions")))
        setInstructions(state.value(QStringLiteral("instructions")).toMap());
}

bool TWAction::requiredInstructionKeysExist(const QVariantMap& instructions) const {
    if (!onlyInPlace() && !instructions.contains(kDestination)) return false;
    for (const QString& key : requiredInstructionKeys())
        if (!instructions.contains(key)) return false;
    return true;
}

bool TWAction::isInMainThread() {
    // Without an application there is no event loop to hand anything to: every call is direct.
    const QCoreApplication* app = QCoreApplication::instance();
    return !app || QThread::currentThread() == app->thread();
}

int32_t TWAction::preProcessWithEntries(const QList<TWFileEntryPtr>&, const QVariantMap&) {
    return LXContinue;
}

int TWAction::numberOfNewEntriesForAudioFile(LXAudioFile&, TWFileEntry&, const QVariantMap&) {
    return 1;
}

int32_t TWAction::processAudioFile(LXAudioFile&, TWFileEntry&, const QVariantMap&, LXAudioFileWriter&, int) {
    return LXContinue;
}

int32_t TWAction::postProcess() {
    return LXContinue;
}
