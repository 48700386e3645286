#pragma once

#include <QtGlobal>

// The LV2 effects the tests run: real ones from Debian packages (mda-lv2, x42-plugins) and a faulty one
// built with the tests, which passes its input until a sample reaches full scale, then crashes (its
// "mode" 0) or hangs (1).
namespace TestPlugins {

inline const char* const kDubDelay = "http://drobilla.net/plugins/mda/DubDelay";
inline const char* const kNoDelay = "http://gareus.org/oss/lv2/nodelay"; // delays by "delay" frames, reporting it
inline const char* const kFaulty = "urn:clipwright:test:faulty";

// Points the plug-in search path at the faulty effect's bundle and the system's plug-ins, and the plug-in
// host at the one just built. Before the first plug-in is looked up: the folders are read once a process.
inline void useTestPlugins() {
    qputenv("LV2_PATH", CLIPWRIGHT_TEST_LV2_DIR ":/usr/lib/lv2:/usr/local/lib/lv2");
    qputenv("CLIPWRIGHT_PLUGIN_HOST", CLIPWRIGHT_PLUGIN_HOST_BINARY);
}

} // namespace TestPlugins
