#pragma once

#include <lame/lame.h>

#include <QString>

// LAME, the MP3 encoder: a library the user installs apart (libmp3lame0), loaded by name when first
// needed and kept for the life of the process, never linked, so the program runs without it and says
// what is missing only when an MP3 export asks for it. Only its declarations come from <lame/lame.h>.
struct LXLame {
    decltype(&lame_init) init;
    decltype(&lame_set_num_channels) setNumChannels;
    decltype(&lame_set_in_samplerate) setInSamplerate;
    decltype(&lame_set_brate) setBrate;
    decltype(&lame_set_mode) setMode;
    decltype(&lame_set_quality) setQuality;
    decltype(&lame_set_VBR) setVBR;
    decltype(&lame_init_params) initParams;
    decltype(&lame_encode_buffer_ieee_float) encodeBufferIeeeFloat;
    decltype(&lame_encode_buffer_interleaved_ieee_float) encodeBufferInterleavedIeeeFloat;
    decltype(&lame_encode_flush) encodeFlush;
    decltype(&lame_mp3_tags_fid) mp3TagsFid;
    decltype(&lame_close) close;
    decltype(&id3tag_init) id3tagInit;
    decltype(&id3tag_v2_only) id3tagV2Only;
    decltype(&id3tag_set_textinfo_utf16) id3tagSetTextinfoUtf16;
    decltype(&id3tag_set_comment_utf16) id3tagSetCommentUtf16;

    // The library's functions, or null when it cannot be loaded or lacks one of them. The first call
    // loads it (callers on several threads wait for that one), later calls answer what it found.
    static const LXLame* shared();
    // The library asked for: "libmp3lame.so.0", or the file the environment variable
    // CLIPWRIGHT_LAME_LIBRARY names (read once, at the first call; tests name a missing one).
    static QString libraryName();
};
