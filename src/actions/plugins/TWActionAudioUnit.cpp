#include "actions/plugins/TWActionAudioUnit.h"

#include "engine/TWActionRegistry.h"

#include "lx/LXAudioFile.h"
#include "lx/LXError.h"
#include "lx/LXProcessStream.h"
#include "lx/LXResultCode.h"
#include "lx/plugins/LXAudioUnitEntry.h"
#include "lx/plugins/LXHostedAudioUnitEntry.h"

#include <algorithm>
#include <cmath>

namespace {

const QString kName = QStringLiteral("Name");
const QString kComponent = QStringLiteral("Component");
const QString kParameters = QStringLiteral("Parameters");
const QString kState = QStringLiteral("State");

const TWKey<bool> kRetainTail{QStringLiteral("retainTail"), false,
                              QStringLiteral("keep rendering past the end of the file while the effect still "
                                             "sounds (a reverb's or a delay's tail)")};
const TWKey<double> kRetainTailMax{QStringLiteral("retainTailMax"), 10.0, QStringLiteral("the longest tail kept"),
                                   TWKeyDetails::between(0, 600, QStringLiteral("s"))};
const TWKey<bool> kLatencyCompensation{QStringLiteral("latencyCompensation"), true,
                                       QStringLiteral("take out the effect's processing delay, so that every "
                                                      "sound keeps its time")};
const TWKey<int> kOutputChannels{QStringLiteral("outputChannels"), 0,
                                 QStringLiteral("the output's channels; 0: as many as the file has (a mono file "
                                                "through a stereo reverb wants 2)"),
                                 TWKeyDetails::between(0, 32)};
const TWKey<QVariantMap> kSettings{
    QStringLiteral("settings"), std::nullopt,
    QStringLiteral("the effect and its settings, as JSON: {\"Component\": the plug-in's URI (clipwright "
                   "plugins lists them), \"Parameters\": {\"symbol\": value, ...}}; parameters not given keep "
                   "their defaults")};

constexpr int kMaxChannels = 32;

QVariantMap parametersOf(const QVariantMap& settings) {
    return settings.value(kParameters).toMap();
}

TWControl parameterControl(const LXAudioUnitPort& port) {
    TWControl control;
    control.key = kSettings.name;
    control.part = port.symbol;
    control.label = port.name;
    control.unit = port.unit;
    control.minimum = port.minimum;
    control.maximum = port.maximum;
    if (port.toggled) {
        control.kind = TWControlKind::CheckBox;
    } else if (!port.scalePoints.isEmpty() && (port.enumeration || port.integer)) {
        control.kind = TWControlKind::PopUp;
        for (const auto& [value, label] : port.scalePoints) control.choices.append({double(value), label});
    } else {
        control.kind = TWControlKind::Slider;
        control.decimals = port.integer ? 0 : 2;
    }
    return control;
}

} // namespace

TWActionAudioUnit::TWActionAudioUnit() = default;
TWActionAudioUnit::~TWActionAudioUnit() = default;

QList<TWInstructionKey> TWActionAudioUnit::instructionKeys() const {
    return {kRetainTail, kRetainTailMax, kLatencyCompensation, kOutputChannels, kSettings};
}

QStringList TWActionAudioUnit::requiredInstructionKeys() const {
    return {kSettings.name};
}

LXResult<QVariantMap> TWActionAudioUnit::defaultSettings(const QString& component) {
    const auto unit = LXFindAudioUnit(component);
    if (!unit) return unit.error();
    QVariantMap parameters;
    for (const LXAudioUnitPort& port : unit->controlInputs()) parameters.insert(port.symbol, double(port.defaultValue));
    return QVariantMap{{kName, unit->name}, {kComponent, unit->component}, {kParameters, parameters}};
}

// Live preview
// ------------------------------------------------------------------------------------------------

std::shared_ptr<LXEffectEntry> TWActionAudioUnit::livePreviewEntry() {
    const QVariantMap settings = objectForInstructionKey(kSettings.name).toMap();
    const QString component = settings.value(kComponent).toString();
    if (component.isEmpty()) {
        m_live.reset();
        return nullptr;
    }
    if (!m_live || m_live->description().component != component) {
        auto made = LXAudioUnitEntry::make(component);
        m_live = made ? std::shared_ptr<LXAudioUnitEntry>(std::move(*made)) : nullptr;
        m_liveState.clear();
        if (!m_live) return nullptr;
    }
    // Restoring a whole state is for a new one (a workflow opened); a moved control sets its value alone.
    if (const QString state = settings.value(kState).toString(); state != m_liveState) {
        // A state that cannot be read still leaves the parameters set: the preview sounds as near as it can.
        (void)m_live->setState(settings);
        m_liveState = state;
    } else {
        const QVariantMap parameters = parametersOf(settings);
        for (auto it = parameters.begin(); it != parameters.end(); ++it) m_live->setParameter(it.key(), it.value().toFloat());
    }
    m_live->setEnabled(preview());
    return m_live;
}

// Panel
// ------------------------------------------------------------------------------------------------

QList<TWControl> TWActionAudioUnit::panelControls() const {
    TWControl units{TWControlKind::PopUp, kSettings.name, QStringLiteral("Audio Unit"), 0, 0, 0, {}, {}};
    units.part = kComponent;
    units.choices.append({QString(), QStringLiteral("Choose...")});
    for (const LXAudioUnitDescription& unit : LXInstalledAudioUnits()) units.choices.append({unit.component, unit.name});
    QList<TWControl> controls{
        units,
        {TWControlKind::CheckBox, kRetainTail.name, QStringLiteral("Retain tail"), 0, 0, 0, {}, {}},
        {TWControlKind::Field, kRetainTailMax.name, QStringLiteral("Maximum"), 0, 0, 1, QStringLiteral("s"), {}},
        {TWControlKind::CheckBox, kLatencyCompensation.name, QStringLiteral("Latency compensation"), 0, 0, 0, {}, {}},
        {TWControlKind::RadioGroup,
         kOutputChannels.name,
         QStringLiteral("Output channels"),
         0,
         0,
         0,
         {},
         {{0, QStringLiteral("As the input")}, {1, QStringLiteral("Number:")}}},
        {TWControlKind::Field, kOutputChannels.name, QStringLiteral("Channels"), 0, 0, 0, {}, {}}};
    const QString component = objectForInstructionKey(kSettings.name).toMap().value(kComponent).toString();
    if (const auto unit = LXFindAudioUnit(component))
        for (const LXAudioUnitPort& port : unit->controlInputs()) controls.append(parameterControl(port));
    return controls;
}

QVariant TWActionAudioUnit::valueFromControl(const TWControl& control, const QVariant& value) const {
    if (control.key == kSettings.name) {
        if (control.part == kComponent) { // a newly chosen effect starts from its defaults
            const auto settings = defaultSettings(value.toString());
            return settings ? QVariant(*settings) : QVariant();
        }
        bool ok = false;
        const double number = value.toDouble(&ok);
        if (!ok || !std::isfinite(number)) return {};
        QVariantMap settings = objectForInstructionKey(kSettings.name).toMap();
        QVariantMap parameters = parametersOf(settings);
        parameters.insert(control.part, std::clamp(number, control.minimum, control.maximum));
        settings.insert(kParameters, parameters);
        return settings;
    }
    if (control.key == kOutputChannels.name) {
        const int current = kOutputChannels(instructions());
        if (control.kind == TWControlKind::RadioGroup) return value.toInt() == 0 ? 0 : std::max(current, 2);
        const int count = value.toInt();
        return count >= 1 && count <= kMaxChannels ? QVariant(count) : QVariant();
    }
    if (control.key == kRetainTailMax.name) return kRetainTailMax.converted(value).value_or(QVariant());
    return value;
}

QVariant TWActionAudioUnit::controlValue(const TWControl& control) const {
    if (control.key == kSettings.name) {
        const QVariantMap settings = objectForInstructionKey(kSettings.name).toMap();
        if (control.part == kComponent) return settings.value(kComponent, QString());
        return parametersOf(settings).value(control.part);
    }
    if (control.key == kOutputChannels.name) {
        const int count = kOutputChannels(instructions());
        if (control.kind == TWControlKind::RadioGroup) return count > 0 ? 1 : 0;
        return count > 0 ? QVariant(count) : QVariant();
    }
    return TWAction::controlValue(control);
}

TWControl TWActionAudioUnit::controlAsShown(const TWControl& control) const {
    TWControl shown = control;
    if (control.key == kRetainTailMax.name) shown.enabled = kRetainTail(instructions());
    if (control.key == kOutputChannels.name && control.kind == TWControlKind::Field)
        shown.enabled = kOutputChannels(instructions()) > 0;
    return shown;
}

// The run
// ------------------------------------------------------------------------------------------------

TWOutcome TWActionAudioUnit::preProcessWithEntries(const QList<TWFileEntryPtr>&, const QVariantMap& instructions) {
    m_runSettings = kSettings(instructions);
    const QString component = m_runSettings.value(kComponent).toString();
    if (component.isEmpty())
        return TWOutcome::failure(
            LXError(LXErrInvalidParameter, QStringLiteral("the settings name no plug-in (their \"Component\")")));
    // A misspelt parameter would otherwise be ignored without a word.
    if (const auto unit = LXFindAudioUnit(component)) {
        QStringList known;
        for (const LXAudioUnitPort& port : unit->controlInputs()) known.append(port.symbol);
        for (const QString& symbol : parametersOf(m_runSettings).keys())
            if (!known.contains(symbol))
                return TWOutcome::failure(LXError(
                    LXErrInvalidParameter, QStringLiteral("the plug-in '%1' has no parameter '%2' (it has %3)")
                                               .arg(unit->name, symbol, known.join(QStringLiteral(", ")))));
    }
    // A host started now tells, before any file is touched, whether the effect runs here at all.
    auto host = std::make_unique<LXHostedAudioUnitEntry>(m_runSettings);
    if (const LXStatus started = host->prepare(48000.0, 2, 4096); !started)
        return TWOutcome::failure(LXError(LXErrInvalidParameter, started.error().message()));
    std::lock_guard lock(m_hostsLock);
    m_idleHosts.clear();
    m_idleHosts.push_back(std::move(host));
    return TWOutcome::success();
}

std::unique_ptr<LXHostedAudioUnitEntry> TWActionAudioUnit::takeHost() {
    std::lock_guard lock(m_hostsLock);
    if (m_idleHosts.empty()) return std::make_unique<LXHostedAudioUnitEntry>(m_runSettings);
    std::unique_ptr<LXHostedAudioUnitEntry> host = std::move(m_idleHosts.back());
    m_idleHosts.pop_back();
    return host;
}

TWOutcome TWActionAudioUnit::processAudioFile(LXAudioFile& file, TWFileEntry&, const QVariantMap& instructions,
                                              LXAudioFileWriter& writer, int) {
    // The stream reads the keys itself: it is handed them with the defaults of those not given.
    QVariantMap resolved = instructions;
    for (const TWInstructionKey& key : instructionKeys()) resolved.insert(key.name, key.value(instructions));
    std::unique_ptr<LXHostedAudioUnitEntry> host = takeHost();
    const TWOutcome rendered(LXProcessStream(*host).processAudioFile(file, resolved, writer));
    if (rendered.kind() != TWOutcome::Kind::Failed) {
        std::lock_guard lock(m_hostsLock);
        m_idleHosts.push_back(std::move(host));
    }
    return rendered.cancellingRunOnFailure(file.path());
}

void TWActionAudioUnit::postProcess() {
    std::lock_guard lock(m_hostsLock);
    m_idleHosts.clear();
}

TW_REGISTER_ACTION(TWActionAudioUnit)
