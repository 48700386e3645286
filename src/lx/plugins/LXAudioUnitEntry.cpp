#include "lx/plugins/LXAudioUnitEntry.h"

#include "lx/LXError.h"
#include "lx/LXResultCode.h"
#include "lx/plugins/LXLv2World.h"

#include <lv2/atom/atom.h>
#include <lv2/state/state.h>

#include <algorithm>
#include <thread>

namespace {

const QString kName = QStringLiteral("Name");
const QString kComponent = QStringLiteral("Component");
const QString kParameters = QStringLiteral("Parameters");
const QString kState = QStringLiteral("State");

constexpr uint32_t kStateFlags = LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE;
constexpr size_t kAtomBufferWords = 1024; // 8 KiB a sequence port: nothing is sent, little comes back
// A plug-in reports its latency from its first run, and some glide to their controls' values (a delay
// cross-fading to its delay time) over their first moments: that much silence runs through a new or
// reset instance before the first block, so that a render's first frame already has the settings' sound.
constexpr double kSettlingSeconds = 0.2;

} // namespace

// One instance of the plug-in with the buffers its ports are connected to. The audio ports are connected
// to the entry's planar buffers; the control inputs to a copy of the entry's values made before each run,
// so that a value changed mid-block never reaches the plug-in mid-block.
struct LXAudioUnitEntry::Instance {
    LilvInstance* lilv = nullptr;
    std::unique_ptr<LXLv2World::Features> features;
    std::vector<float> controls;             // by slot
    std::vector<float> outputs;              // control outputs, by port index
    std::vector<std::vector<uint64_t>> atoms; // by port index; empty for other ports

    ~Instance() {
        if (!lilv) return;
        lilv_instance_deactivate(lilv);
        lilv_instance_free(lilv);
    }
};

LXResult<std::unique_ptr<LXAudioUnitEntry>> LXAudioUnitEntry::make(const QString& component) {
    auto description = LXFindAudioUnit(component);
    if (!description) return description.error();
    std::unique_ptr<LXAudioUnitEntry> entry(new LXAudioUnitEntry(std::move(*description)));
    LX_TRY(entry->instantiate(48000.0, 2, 4096));
    return entry;
}

LXAudioUnitEntry::LXAudioUnitEntry(LXAudioUnitDescription description) : m_description(std::move(description)) {
    m_controlOf.assign(size_t(m_description.ports.size()), -1);
    int controls = 0;
    for (const LXAudioUnitPort& port : m_description.ports)
        if (port.kind == LXAudioUnitPort::Kind::ControlInput) m_controlOf[port.index] = controls++;
    m_controlCount = size_t(controls);
    m_controls = std::make_unique<std::atomic<float>[]>(m_controlCount);
    for (const LXAudioUnitPort& port : m_description.ports)
        if (m_controlOf[port.index] >= 0) m_controls[size_t(m_controlOf[port.index])] = port.defaultValue;
}

LXAudioUnitEntry::~LXAudioUnitEntry() = default;

// Parameters
// ------------------------------------------------------------------------------------------------

void LXAudioUnitEntry::setParameter(const QString& symbol, float value) {
    for (const LXAudioUnitPort& port : m_description.ports)
        if (port.symbol == symbol && m_controlOf[port.index] >= 0)
            m_controls[size_t(m_controlOf[port.index])].store(std::clamp(value, port.minimum, port.maximum),
                                                              std::memory_order_relaxed);
}

float LXAudioUnitEntry::parameter(const QString& symbol) const {
    for (const LXAudioUnitPort& port : m_description.ports)
        if (port.symbol == symbol && m_controlOf[port.index] >= 0)
            return m_controls[size_t(m_controlOf[port.index])].load(std::memory_order_relaxed);
    return 0.0f;
}

// State
// ------------------------------------------------------------------------------------------------

template <typename Work> auto LXAudioUnitEntry::exclusively(Work&& work) {
    m_exclusive.store(true);
    while (m_running.load()) std::this_thread::yield();
    struct Release {
        std::atomic<bool>& flag;
        ~Release() { flag.store(false); }
    } release{m_exclusive};
    return work();
}

QVariantMap LXAudioUnitEntry::state() {
    std::lock_guard control(m_controlLock);
    QVariantMap parameters;
    for (const LXAudioUnitPort& port : m_description.controlInputs()) parameters.insert(port.symbol, parameter(port.symbol));
    QVariantMap settings{{kName, m_description.name}, {kComponent, m_description.component}, {kParameters, parameters}};
    if (m_instances.empty()) return settings;

    LXLv2World& world = LXLv2World::shared();
    const auto locked = world.lock();
    const LilvPlugin* plugin = world.plugin(m_description.component);
    struct Values {
        LXAudioUnitEntry* entry;
        LV2_URID floatType;
        std::vector<float> held; // the values handed to lilv, alive until it has copied them
    } values{this, world.map(LV2_ATOM__Float), std::vector<float>(m_description.ports.size())};
    const LilvGetPortValueFunc getValue = [](const char* symbol, void* user, uint32_t* size, uint32_t* type) -> const void* {
        auto* v = static_cast<Values*>(user);
        for (const LXAudioUnitPort& port : v->entry->m_description.ports) {
            if (port.symbol != QLatin1String(symbol) || v->entry->m_controlOf[port.index] < 0) continue;
            v->held[port.index] = v->entry->parameter(port.symbol);
            *size = sizeof(float);
            *type = v->floatType;
            return &v->held[port.index];
        }
        *size = 0;
        *type = 0;
        return nullptr;
    };
    LilvState* saved = exclusively([&] {
        return lilv_state_new_from_instance(plugin, m_instances.front()->lilv, world.mapFeature(), nullptr, nullptr,
                                            nullptr, nullptr, getValue, &values, kStateFlags,
                                            m_instances.front()->features->get());
    });
    if (!saved) return settings;
    char* text = lilv_state_to_string(world.world(), world.mapFeature(), world.unmapFeature(), saved,
                                      "urn:clipwright:state", nullptr);
    lilv_state_free(saved);
    if (text) settings.insert(kState, QString::fromUtf8(text));
    lilv_free(text);
    return settings;
}

LXStatus LXAudioUnitEntry::setState(const QVariantMap& settings) {
    const QString component = settings.value(kComponent).toString();
    if (component != m_description.component)
        return LXError(LXErrInvalidParameter, QStringLiteral("the settings are those of '%1', not of '%2'")
                                                  .arg(settings.value(kName, component).toString(), m_description.name));
    LXStatus restored;
    const QString turtle = settings.value(kState).toString();
    if (!turtle.isEmpty() && !m_instances.empty()) {
        std::lock_guard control(m_controlLock);
        LXLv2World& world = LXLv2World::shared();
        const auto locked = world.lock();
        LilvState* saved = lilv_state_new_from_string(world.world(), world.mapFeature(), turtle.toUtf8().constData());
        if (!saved)
            restored = LXError(LXErrInvalidParameter,
                               QStringLiteral("the saved state of '%1' cannot be read").arg(m_description.name));
        const LilvSetPortValueFunc setValue = [](const char* symbol, void* user, const void* value, uint32_t size,
                                                 uint32_t) {
            if (size == sizeof(float))
                static_cast<LXAudioUnitEntry*>(user)->setParameter(QString::fromUtf8(symbol),
                                                                   *static_cast<const float*>(value));
        };
        if (saved) {
            exclusively([&] {
                for (const auto& instance : m_instances)
                    lilv_state_restore(saved, instance->lilv, setValue, this, kStateFlags, instance->features->get());
            });
            lilv_state_free(saved);
        }
    }
    const QVariantMap parameters = settings.value(kParameters).toMap();
    for (auto it = parameters.begin(); it != parameters.end(); ++it) setParameter(it.key(), it.value().toFloat());
    return restored;
}

// Instances
// ------------------------------------------------------------------------------------------------

LXStatus LXAudioUnitEntry::instantiate(double rate, int channels, int64_t maxBlock) {
    const int ins = m_description.audioInputs, outs = m_description.audioOutputs;
    const int count = (channels + ins - 1) / ins;
    LXLv2World& world = LXLv2World::shared();
    std::vector<std::unique_ptr<Instance>> made;
    std::vector<float> in(size_t(count * ins * maxBlock), 0.0f), out(size_t(count * outs * maxBlock), 0.0f);
    {
        const auto locked = world.lock();
        const LilvPlugin* plugin = world.plugin(m_description.component);
        for (int k = 0; k < count; ++k) {
            auto instance = std::make_unique<Instance>();
            instance->features = std::make_unique<LXLv2World::Features>(world, int32_t(maxBlock), float(rate));
            instance->lilv = plugin ? lilv_plugin_instantiate(plugin, rate, instance->features->get()) : nullptr;
            if (!instance->lilv)
                return LXError(LXErrUnsupported,
                               QStringLiteral("the plug-in '%1' would not start at %2 Hz").arg(m_description.name).arg(rate));
            made.push_back(std::move(instance));
        }
    }
    for (int k = 0; k < count; ++k) {
        Instance& instance = *made[size_t(k)];
        instance.controls.resize(m_controlCount);
        instance.outputs.assign(size_t(m_description.ports.size()), 0.0f);
        instance.atoms.resize(size_t(m_description.ports.size()));
        int audioIn = 0, audioOut = 0;
        for (const LXAudioUnitPort& port : m_description.ports) {
            void* buffer = nullptr;
            switch (port.kind) {
            case LXAudioUnitPort::Kind::AudioInput: buffer = &in[size_t((k * ins + audioIn++) * maxBlock)]; break;
            case LXAudioUnitPort::Kind::AudioOutput: buffer = &out[size_t((k * outs + audioOut++) * maxBlock)]; break;
            case LXAudioUnitPort::Kind::ControlInput: buffer = &instance.controls[size_t(m_controlOf[port.index])]; break;
            case LXAudioUnitPort::Kind::ControlOutput: buffer = &instance.outputs[port.index]; break;
            case LXAudioUnitPort::Kind::AtomInput:
            case LXAudioUnitPort::Kind::AtomOutput:
                instance.atoms[port.index].assign(kAtomBufferWords, 0);
                buffer = instance.atoms[port.index].data();
                break;
            case LXAudioUnitPort::Kind::Unused: break;
            }
            lilv_instance_connect_port(instance.lilv, port.index, buffer);
        }
        lilv_instance_activate(instance.lilv);
    }
    exclusively([&] {
        m_instances.swap(made);
        m_in.swap(in);
        m_out.swap(out);
    });
    m_rate = rate;
    m_channels = channels;
    m_maxBlock = maxBlock;
    m_wide.assign(size_t(maxBlock * channels), 0.0f);
    settle();
    return {};
}

void LXAudioUnitEntry::settle() {
    std::fill(m_in.begin(), m_in.end(), 0.0f);
    // In blocks of a usual size, as plug-ins that glide take a step a block.
    const int64_t block = std::min<int64_t>(m_maxBlock, 512);
    for (int64_t left = int64_t(m_rate * kSettlingSeconds); left > 0; left -= block) runInstances(std::min(left, block));
}

void LXAudioUnitEntry::runInstances(int64_t frames) {
    LXLv2World& world = LXLv2World::shared();
    static const LV2_URID sequence = world.map(LV2_ATOM__Sequence), chunk = world.map(LV2_ATOM__Chunk);
    for (const auto& instance : m_instances) {
        for (size_t slot = 0; slot < instance->controls.size(); ++slot)
            instance->controls[slot] = m_controls[slot].load(std::memory_order_relaxed);
        for (const LXAudioUnitPort& port : m_description.ports) {
            if (instance->atoms[port.index].empty()) continue;
            auto* atom = reinterpret_cast<LV2_Atom*>(instance->atoms[port.index].data());
            if (port.kind == LXAudioUnitPort::Kind::AtomInput) { // an empty sequence
                *reinterpret_cast<LV2_Atom_Sequence*>(atom) = {{sizeof(LV2_Atom_Sequence_Body), sequence}, {0, 0}};
            } else { // room for what the plug-in writes
                atom->size = uint32_t(kAtomBufferWords * sizeof(uint64_t) - sizeof(LV2_Atom));
                atom->type = chunk;
            }
        }
        lilv_instance_run(instance->lilv, uint32_t(frames));
    }
    for (const LXAudioUnitPort& port : m_description.ports)
        if (port.reportsLatency)
            m_latency.store(int64_t(std::max(0.0f, m_instances.front()->outputs[port.index])), std::memory_order_relaxed);
}

// LXEffectEntry
// ------------------------------------------------------------------------------------------------

LXStatus LXAudioUnitEntry::prepare(double rate, int channels, int64_t maxBlockFrames) {
    if (channels < 1 || maxBlockFrames < 1)
        return LXError(LXErrInvalidParameter, QStringLiteral("the plug-in '%1' was given no channels").arg(m_description.name));
    if (rate == m_rate && channels == m_channels && maxBlockFrames == m_maxBlock) {
        reset();
        return {};
    }
    // A new instance for the new rate or shape, brought to the old one's state.
    const QVariantMap settings = state();
    LX_TRY(instantiate(rate, channels, maxBlockFrames));
    return setState(settings);
}

void LXAudioUnitEntry::process(float* interleaved, int64_t frames) {
    if (!isEnabled()) return;
    m_running.store(true);
    if (!m_exclusive.load()) {
        const int ins = m_description.audioInputs, outs = m_description.audioOutputs, channels = m_channels;
        const int count = int(m_instances.size());
        for (int64_t done = 0; done < frames;) {
            const int64_t n = std::min(m_maxBlock, frames - done);
            float* block = interleaved + done * channels;
            for (int k = 0; k < count; ++k)
                for (int j = 0; j < ins; ++j) {
                    const int channel = std::min(k * ins + j, channels - 1);
                    float* to = &m_in[size_t((k * ins + j) * m_maxBlock)];
                    for (int64_t f = 0; f < n; ++f) to[f] = block[f * channels + channel];
                }
            runInstances(n);
            for (int channel = 0; channel < channels; ++channel) {
                const int k = channel / ins, output = std::min(channel % ins, outs - 1);
                const float* from = &m_out[size_t((k * outs + output) * m_maxBlock)];
                for (int64_t f = 0; f < n; ++f) block[f * channels + channel] = from[f];
            }
            done += n;
        }
    }
    m_running.store(false);
}

void LXAudioUnitEntry::process(double* interleaved, int64_t frames) {
    processThroughFloat(interleaved, frames, m_channels, m_wide); // LV2 plug-ins take float
}

void LXAudioUnitEntry::reset() {
    std::lock_guard control(m_controlLock);
    exclusively([&] {
        for (const auto& instance : m_instances) {
            lilv_instance_deactivate(instance->lilv);
            lilv_instance_activate(instance->lilv);
        }
        settle();
    });
}

int64_t LXAudioUnitEntry::latency() const {
    return m_latency.load(std::memory_order_relaxed);
}
