#include "lx/LXLame.h"

#include <QFile>

#include <dlfcn.h>

#include <optional>

namespace {

template <typename F> bool find(void* library, const char* name, F& function) {
    function = reinterpret_cast<F>(dlsym(library, name));
    return function != nullptr;
}

std::optional<LXLame> load() {
    void* library = dlopen(QFile::encodeName(LXLame::libraryName()).constData(), RTLD_NOW | RTLD_LOCAL);
    if (!library) return std::nullopt;
    LXLame lame{};
    const bool found =
        find(library, "lame_init", lame.init) &&
        find(library, "lame_set_num_channels", lame.setNumChannels) &&
        find(library, "lame_set_in_samplerate", lame.setInSamplerate) &&
        find(library, "lame_set_brate", lame.setBrate) && find(library, "lame_set_mode", lame.setMode) &&
        find(library, "lame_set_quality", lame.setQuality) && find(library, "lame_set_VBR", lame.setVBR) &&
        find(library, "lame_init_params", lame.initParams) &&
        find(library, "lame_encode_buffer_ieee_float", lame.encodeBufferIeeeFloat) &&
        find(library, "lame_encode_buffer_interleaved_ieee_float", lame.encodeBufferInterleavedIeeeFloat) &&
        find(library, "lame_encode_flush", lame.encodeFlush) &&
        find(library, "lame_mp3_tags_fid", lame.mp3TagsFid) && find(library, "lame_close", lame.close) &&
        find(library, "id3tag_init", lame.id3tagInit) && find(library, "id3tag_v2_only", lame.id3tagV2Only) &&
        find(library, "id3tag_set_textinfo_utf16", lame.id3tagSetTextinfoUtf16) &&
        find(library, "id3tag_set_comment_utf16", lame.id3tagSetCommentUtf16);
    if (!found) {
        dlclose(library);
        return std::nullopt;
    }
    return lame; // the library stays loaded: its functions are used until the process ends
}

} // namespace

QString LXLame::libraryName() {
    static const QString name = [] {
        const QString given = qEnvironmentVariable("CLIPWRIGHT_LAME_LIBRARY");
        return given.isEmpty() ? QStringLiteral("libmp3lame.so.0") : given;
    }();
    return name;
}

const LXLame* LXLame::shared() {
    static const std::optional<LXLame> lame = load();
    return lame ? &*lame : nullptr;
}
