#include "lx/plugins/LXLv2World.h"

#include "lx/LXError.h"
#include "lx/LXResultCode.h"
#include "lx/plugins/LXAudioUnitDescription.h"

#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/parameters/parameters.h>
#include <lv2/port-props/port-props.h>
#include <lv2/units/units.h>

#include <algorithm>
#include <cstring>

// The world
// ------------------------------------------------------------------------------------------------

LXLv2World& LXLv2World::shared() {
    static LXLv2World world;
    return world;
}

LXLv2World::LXLv2World() {
    m_world = lilv_world_new();
    lilv_world_load_all(m_world);
    m_map = {this, [](LV2_URID_Map_Handle self, const char* uri) { return static_cast<LXLv2World*>(self)->map(uri); }};
    m_unmap = {this, [](LV2_URID_Unmap_Handle handle, LV2_URID id) -> const char* {
                   auto* self = static_cast<LXLv2World*>(handle);
                   std::lock_guard guard(self->m_mapLock);
                   return id >= 1 && id <= self->m_uris.size() ? self->m_uris[id - 1].c_str() : nullptr;
               }};
}

LXLv2World::~LXLv2World() {
    for (const auto& [uri, node] : m_nodes) lilv_node_free(node);
    lilv_world_free(m_world);
}

const LilvPlugin* LXLv2World::plugin(const QString& uri) {
    if (uri.isEmpty()) return nullptr; // lilv would complain of an invalid URI
    LilvNode* node = lilv_new_uri(m_world, uri.toUtf8().constData());
    if (!node) return nullptr;
    const LilvPlugin* found = lilv_plugins_get_by_uri(lilv_world_get_all_plugins(m_world), node);
    lilv_node_free(node);
    return found;
}

const LilvNode* LXLv2World::node(const char* uri) {
    auto [it, added] = m_nodes.try_emplace(uri, nullptr);
    if (added) it->second = lilv_new_uri(m_world, uri);
    return it->second;
}

LV2_URID LXLv2World::map(const char* uri) {
    std::lock_guard guard(m_mapLock);
    auto [it, added] = m_ids.try_emplace(uri, LV2_URID(m_uris.size() + 1));
    if (added) m_uris.emplace_back(uri);
    return it->second;
}

bool LXLv2World::provides(const char* featureUri) {
    for (const char* uri : {LV2_URID__map, LV2_URID__unmap, LV2_OPTIONS__options, LV2_BUF_SIZE__boundedBlockLength})
        if (std::strcmp(uri, featureUri) == 0) return true;
    return false;
}

LXLv2World::Features::Features(LXLv2World& world, int32_t maxBlock, float rate) : m_maxBlock(maxBlock), m_rate(rate) {
    const LV2_URID intType = world.map(LV2_ATOM__Int);
    m_options = {
        {LV2_OPTIONS_INSTANCE, 0, world.map(LV2_BUF_SIZE__minBlockLength), sizeof(int32_t), intType, &m_minBlock},
        {LV2_OPTIONS_INSTANCE, 0, world.map(LV2_BUF_SIZE__maxBlockLength), sizeof(int32_t), intType, &m_maxBlock},
        {LV2_OPTIONS_INSTANCE, 0, world.map(LV2_PARAMETERS__sampleRate), sizeof(float), world.map(LV2_ATOM__Float),
         &m_rate},
        {LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr}};
    m_features = {{LV2_URID__map, world.mapFeature()},
                  {LV2_URID__unmap, world.unmapFeature()},
                  {LV2_OPTIONS__options, m_options.data()},
                  {LV2_BUF_SIZE__boundedBlockLength, nullptr}};
    for (const LV2_Feature& feature : m_features) m_pointers.push_back(&feature);
    m_pointers.push_back(nullptr);
}

// Descriptions
// ------------------------------------------------------------------------------------------------

namespace {

QString stringOf(const LilvNode* node) {
    return node ? QString::fromUtf8(lilv_node_as_string(node)) : QString();
}

// Takes a node lilv gave us to free.
QString takeString(LilvNode* node) {
    const QString text = stringOf(node);
    lilv_node_free(node);
    return text;
}

float floatOf(const LilvNode* node, float otherwise) {
    return node && (lilv_node_is_float(node) || lilv_node_is_int(node)) ? lilv_node_as_float(node) : otherwise;
}

LXAudioUnitPort::Kind kindOf(LXLv2World& world, const LilvPlugin* plugin, const LilvPort* port) {
    using Kind = LXAudioUnitPort::Kind;
    const bool input = lilv_port_is_a(plugin, port, world.node(LV2_CORE__InputPort));
    if (lilv_port_is_a(plugin, port, world.node(LV2_CORE__AudioPort))) return input ? Kind::AudioInput : Kind::AudioOutput;
    if (lilv_port_is_a(plugin, port, world.node(LV2_CORE__ControlPort)))
        return input ? Kind::ControlInput : Kind::ControlOutput;
    if (lilv_port_is_a(plugin, port, world.node(LV2_ATOM__AtomPort))) return input ? Kind::AtomInput : Kind::AtomOutput;
    return Kind::Unused;
}

QString unitOf(LXLv2World& world, const LilvPlugin* plugin, const LilvPort* port) {
    LilvNodes* units = lilv_port_get_value(plugin, port, world.node(LV2_UNITS__unit));
    QString unit;
    if (units && lilv_nodes_size(units) > 0) {
        const LilvNode* node = lilv_nodes_get_first(units);
        if (lilv_node_is_uri(node)) {
            LilvNode* symbol = lilv_world_get(world.world(), node, world.node(LV2_UNITS__symbol), nullptr);
            unit = symbol ? takeString(symbol) : QString::fromUtf8(lilv_node_as_uri(node)).section('#', -1);
        }
    }
    lilv_nodes_free(units);
    return unit;
}

LXAudioUnitPort portOf(LXLv2World& world, const LilvPlugin* plugin, uint32_t index) {
    const LilvPort* port = lilv_plugin_get_port_by_index(plugin, index);
    LXAudioUnitPort described;
    described.index = index;
    described.kind = kindOf(world, plugin, port);
    described.symbol = stringOf(lilv_port_get_symbol(plugin, port));
    described.name = takeString(lilv_port_get_name(plugin, port));
    auto has = [&](const char* property) { return lilv_port_has_property(plugin, port, world.node(property)); };
    described.toggled = has(LV2_CORE__toggled);
    described.integer = has(LV2_CORE__integer);
    described.enumeration = has(LV2_CORE__enumeration);
    described.logarithmic = has(LV2_PORT_PROPS__logarithmic);
    described.reportsLatency = described.kind == LXAudioUnitPort::Kind::ControlOutput && has(LV2_CORE__reportsLatency);
    if (described.kind == LXAudioUnitPort::Kind::ControlInput) {
        LilvNode *def = nullptr, *min = nullptr, *max = nullptr;
        lilv_port_get_range(plugin, port, &def, &min, &max);
        described.minimum = floatOf(min, 0.0f);
        described.maximum = floatOf(max, described.toggled ? 1.0f : std::max(1.0f, described.minimum));
        described.defaultValue = std::clamp(floatOf(def, described.minimum), described.minimum, described.maximum);
        lilv_node_free(def);
        lilv_node_free(min);
        lilv_node_free(max);
        described.unit = unitOf(world, plugin, port);
        if (LilvScalePoints* points = lilv_port_get_scale_points(plugin, port)) {
            LILV_FOREACH (scale_points, i, points) {
                const LilvScalePoint* point = lilv_scale_points_get(points, i);
                described.scalePoints.append({floatOf(lilv_scale_point_get_value(point), 0.0f),
                                              stringOf(lilv_scale_point_get_label(point))});
            }
            lilv_scale_points_free(points);
            std::sort(described.scalePoints.begin(), described.scalePoints.end(),
                      [](const auto& a, const auto& b) { return a.first < b.first; });
        }
    }
    return described;
}

// Why the plug-in cannot run here, or nothing when it can.
QString unusable(LXLv2World& world, const LilvPlugin* plugin, const LXAudioUnitDescription& description) {
    if (description.audioInputs < 1 || description.audioOutputs < 1) return QStringLiteral("it is not an effect");
    LilvNodes* required = lilv_plugin_get_required_features(plugin);
    QString missing;
    LILV_FOREACH (nodes, i, required) {
        const char* uri = lilv_node_as_uri(lilv_nodes_get(required, i));
        if (!LXLv2World::provides(uri)) missing = QString::fromUtf8(uri);
    }
    lilv_nodes_free(required);
    if (!missing.isEmpty()) return QStringLiteral("it needs a host feature this one lacks (%1)").arg(missing);
    for (uint32_t i = 0; i < uint32_t(description.ports.size()); ++i) {
        const LilvPort* port = lilv_plugin_get_port_by_index(plugin, i);
        if (description.ports[i].kind == LXAudioUnitPort::Kind::Unused &&
            !lilv_port_has_property(plugin, port, world.node(LV2_CORE__connectionOptional)))
            return QStringLiteral("its port '%1' is of a kind this host cannot connect").arg(description.ports[i].symbol);
    }
    return {};
}

LXAudioUnitDescription describe(LXLv2World& world, const LilvPlugin* plugin) {
    LXAudioUnitDescription description;
    description.component = QString::fromUtf8(lilv_node_as_uri(lilv_plugin_get_uri(plugin)));
    description.name = takeString(lilv_plugin_get_name(plugin));
    for (uint32_t i = 0; i < lilv_plugin_get_num_ports(plugin); ++i) {
        description.ports.append(portOf(world, plugin, i));
        description.audioInputs += description.ports.last().kind == LXAudioUnitPort::Kind::AudioInput;
        description.audioOutputs += description.ports.last().kind == LXAudioUnitPort::Kind::AudioOutput;
    }
    return description;
}

} // namespace

QList<LXAudioUnitPort> LXAudioUnitDescription::controlInputs() const {
    QList<LXAudioUnitPort> controls;
    for (const LXAudioUnitPort& port : ports)
        if (port.kind == LXAudioUnitPort::Kind::ControlInput) controls.append(port);
    return controls;
}

QList<LXAudioUnitDescription> LXInstalledAudioUnits() {
    LXLv2World& world = LXLv2World::shared();
    const auto locked = world.lock();
    static const QList<LXAudioUnitDescription> units = [&] {
        QList<LXAudioUnitDescription> found;
        const LilvPlugins* plugins = lilv_world_get_all_plugins(world.world());
        LILV_FOREACH (plugins, i, plugins) {
            const LilvPlugin* plugin = lilv_plugins_get(plugins, i);
            LXAudioUnitDescription description = describe(world, plugin);
            if (unusable(world, plugin, description).isEmpty()) found.append(std::move(description));
        }
        std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) {
            return a.name.compare(b.name, Qt::CaseInsensitive) < 0;
        });
        return found;
    }();
    return units;
}

LXResult<LXAudioUnitDescription> LXFindAudioUnit(const QString& component) {
    LXLv2World& world = LXLv2World::shared();
    const auto locked = world.lock();
    const LilvPlugin* plugin = world.plugin(component);
    if (!plugin)
        return LXError(LXErrUnsupported, QStringLiteral("the plug-in '%1' is not installed").arg(component));
    LXAudioUnitDescription description = describe(world, plugin);
    if (const QString why = unusable(world, plugin, description); !why.isEmpty())
        return LXError(LXErrUnsupported, QStringLiteral("the plug-in '%1' cannot be used: %2").arg(description.name, why));
    return description;
}
