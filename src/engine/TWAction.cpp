// The action's settings, instructions, saved state and panel. The loops are TWFileLoop.cpp (this class's
// own) and the shapes' classes.

#include "engine/TWAction.h"

#include "lx/LXFile.h"

#include <QCoreApplication>
#include <QThread>

namespace {
const QString kDisclosed = QStringLiteral("disclosed");
const QString kOptionsDisclosed = QStringLiteral("optionsDisclosed");
const QString kPreview = QStringLiteral("preview");
const QString kInstructions = QStringLiteral("instructions");
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

QVariant TWAction::objectForInstructionKey(const QString& key) const {
    if (const auto it = m_values.constFind(key); it != m_values.constEnd()) return *it;
    for (const TWInstructionKey& declared : instructionKeys())
        if (declared.name == key) return declared.defaultValue;
    return {};
}

void TWAction::setObjectForInstructionKey(const QString& key, const QVariant& value) {
    m_values.insert(key, value);
}

QVariantMap TWAction::instructions() const {
    QVariantMap instructions;
    instructions.insert(TWKeys::actionClass.name, className());
    instructions.insert(TWKeys::active.name, m_active);
    instructions.insert(TWKeys::source.name, qint64(m_source));
    if (!onlyInPlace()) {
        QVariantMap destination;
        destination.insert(TWKeys::toNewFile.name, m_destinationTag != TWDestinationTag::InPlace);
        destination.insert(TWKeys::addToList.name, true);
        if (m_destinationTag == TWDestinationTag::ChosenDirectory)
            destination.insert(TWKeys::directory.name, m_directory);
        instructions.insert(TWKeys::destination.name, destination);
    }
    for (const QString& key : allInstructionKeys()) {
        const QVariant value = objectForInstructionKey(key);
        if (value.isValid()) instructions.insert(key, value);
    }
    return instructions;
}

void TWAction::setInstructions(const QVariantMap& instructions) {
    if (instructions.contains(TWKeys::source.name)) m_source = TWKeys::source(instructions);
    for (const QString& key : allInstructionKeys())
        if (instructions.contains(key)) m_values.insert(key, instructions.value(key));
    if (!instructions.contains(TWKeys::destination.name)) return;
    const QVariantMap destination = TWKeys::destination(instructions);
    const bool toNewFile = TWKeys::toNewFile(destination);
    const QString directory = TWKeys::directory(destination);
    if (toNewFile && !directory.isEmpty())
        setDestination(TWDestinationTag::ChosenDirectory, directory);
    else
        setDestination(toNewFile ? TWDestinationTag::BesideSource : TWDestinationTag::InPlace);
}

QVariantMap TWAction::state() const {
    return {{TWKeys::actionClass.name, className()},
            {TWKeys::active.name, m_active},
            {kDisclosed, m_disclosed},
            {kOptionsDisclosed, m_optionsDisclosed},
            {kPreview, m_preview},
            {kInstructions, instructions()}};
}

void TWAction::setState(const QVariantMap& state) {
    if (state.contains(TWKeys::active.name)) setActive(state.value(TWKeys::active.name).toBool());
    if (state.contains(kDisclosed)) m_disclosed = state.value(kDisclosed).toBool();
    if (state.contains(kOptionsDisclosed)) m_optionsDisclosed = state.value(kOptionsDisclosed).toBool();
    if (state.contains(kPreview)) setPreview(state.value(kPreview).toBool());
    if (state.contains(kInstructions)) setInstructions(state.value(kInstructions).toMap());
}

bool TWAction::requiredInstructionKeysExist(const QVariantMap& instructions) const {
    if (!onlyInPlace() && !instructions.contains(TWKeys::destination.name)) return false;
    for (const QString& key : requiredInstructionKeys())
        if (!instructions.contains(key)) return false;
    return true;
}

namespace {

// "beginningBelow" -> "Beginning below".
QString labelForKey(const QString& name) {
    QString label;
    for (const QChar c : name)
        label += c.isUpper() ? QStringLiteral(" ") + c.toLower() : QString(c);
    if (!label.isEmpty()) label[0] = label[0].toUpper();
    return label;
}

} // namespace

QList<TWControl> TWAction::panelControls() const {
    QList<TWControl> controls;
    for (const TWInstructionKey& key : instructionKeys()) {
        TWControl control;
        control.key = key.name;
        control.label = labelForKey(key.name);
        control.unit = key.details.unit;
        control.choices = key.details.choices;
        if (key.details.range) {
            control.minimum = key.details.range->minimum;
            control.maximum = key.details.range->maximum;
        }
        if (!key.details.choices.isEmpty())
            control.kind = TWControlKind::PopUp;
        else if (key.type == TWValueType::Boolean)
            control.kind = TWControlKind::CheckBox;
        else
            control.decimals = key.type == TWValueType::Number ? 1 : 0;
        controls.append(control);
    }
    return controls;
}

QVariant TWAction::valueFromControl(const TWControl&, const QVariant& value) const {
    return value;
}

QVariant TWAction::controlValue(const TWControl& control) const {
    return objectForInstructionKey(control.key);
}

bool TWAction::isInMainThread() {
    // Without an application there is no event loop to hand anything to: every call is direct.
    const QCoreApplication* app = QCoreApplication::instance();
    return !app || QThread::currentThread() == app->thread();
}

TWOutcome TWAction::preProcessWithEntries(const QList<TWFileEntryPtr>&, const QVariantMap&) {
    return TWOutcome::success();
}

int TWAction::numberOfNewEntriesForAudioFile(LXAudioFile&, TWFileEntry&, const QVariantMap&) {
    return 1;
}

TWOutcome TWAction::processAudioFile(LXAudioFile&, TWFileEntry&, const QVariantMap&, LXAudioFileWriter&,
                                     int) {
    return TWOutcome::success();
}

TWPreview TWAction::previewForAudioFile(LXAudioFile&) const {
    return {};
}
