#pragma once

#include <lilv/lilv.h>
#include <lv2/options/options.h>
#include <lv2/urid/urid.h>

#include <QString>

#include <deque>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

// The process's one lilv world and what every LV2 instance is given: URI mapping and the block-length
// options. lilv's world is not thread-safe, so every query of it takes lock(); the URI map has a lock of
// its own, as plug-ins may map URIs from any thread they are called on.
class LXLv2World {
public:
    static LXLv2World& shared();

    std::unique_lock<std::recursive_mutex> lock() { return std::unique_lock(m_lock); }
    LilvWorld* world() { return m_world; }
    // The installed plug-in of that URI, or nullptr. Under lock().
    const LilvPlugin* plugin(const QString& uri);
    // A node this world keeps for the whole process (a class or property URI).
    const LilvNode* node(const char* uri);

    LV2_URID map(const char* uri);
    LV2_URID_Map* mapFeature() { return &m_map; }
    LV2_URID_Unmap* unmapFeature() { return &m_unmap; }

    // The features an instance is given, its options telling it the longest block it will be run with.
    // The URIs of features this host provides, for a plug-in's required features to be checked against.
    class Features {
    public:
        Features(LXLv2World& world, int32_t maxBlock, float rate);
        const LV2_Feature* const* get() const { return m_pointers.data(); }

    private:
        int32_t m_minBlock = 1, m_maxBlock;
        float m_rate;
        std::vector<LV2_Options_Option> m_options;
        std::vector<LV2_Feature> m_features;
        std::vector<const LV2_Feature*> m_pointers;
    };
    static bool provides(const char* featureUri);

private:
    LXLv2World();
    ~LXLv2World();

    std::recursive_mutex m_lock;
    LilvWorld* m_world = nullptr;
    std::unordered_map<std::string, LilvNode*> m_nodes;

    std::mutex m_mapLock;
    std::unordered_map<std::string, LV2_URID> m_ids;
    std::deque<std::string> m_uris; // by id - 1; a deque, so unmapped names stay where they are
    LV2_URID_Map m_map{};
    LV2_URID_Unmap m_unmap{};
};
