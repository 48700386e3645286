#pragma once

#include "lx/LXAnnotations.h"
#include "lx/LXResult.h"

#include <QString>
#include <cstdint>

// The tags of MP3, FLAC, Ogg Vorbis and Opus files, and the ID3v2 chunk of WAV and AIFF files, through
// TagLib: ID3v2 frames and Vorbis comments, pictures included. Files are opened by the class of their
// known format, never by their name's extension (a writer's temporary file has none of its own).
//
// Read into metadata, these keys: "title", "artist", "album", "comments", "genre", "year", "composer",
// "lyricist", "copyright", "trackNumber", "tempo" (BPM, a number) and "key" (the root note of the tag's
// key as a pitch class, 0 = C).
namespace LXTags {

// Whether a file of this format with these annotations can hold tags of its own: always for MP3, FLAC,
// Ogg and Opus; for WAV and AIFF only with an ID3 chunk, so that plain WAV files cost no second parse.
bool mayHoldTags(uint32_t format, const LXAnnotations& annotations);

// Whether the tags of a file of this format have a place for the key (the keys above; nothing for a
// format without tags of its own).
bool holds(uint32_t format, const QString& key);

// Adds the file's tags to metadata; keys already there (from the file's own chunks) keep their values,
// and the ID3 chunk of a WAV or AIFF file gives no tempo or key. A file TagLib cannot read adds nothing.
void readInto(const QString& path, uint32_t format, LXMetadata& metadata);

// Gives target every tag of source, as it stands: all ID3v2 frames (in the source's ID3v2 version), or
// all Vorbis comments and pictures. Only between formats of the same kind of tag; otherwise nothing is
// done. Then each of the keys above whose value differs between sourceMetadata and targetMetadata takes
// the target's value (or is removed), so what an action changed wins over the source's tag.
LXStatus copy(const QString& sourcePath, uint32_t sourceFormat, const LXMetadata& sourceMetadata,
              const QString& targetPath, uint32_t targetFormat, const LXMetadata& targetMetadata);

// Writes the keys above that metadata holds as the tags (iTunes items) of the MPEG-4 audio file at path,
// which an encoder has just made; a tempo is stored as a whole number of BPM, as the atom holds one.
// Errors name source, the file the tags come from.
LXStatus writeMP4(const QString& path, const LXMetadata& metadata, const QString& source);

// Writes into the tags of a file of this format (the ID3v2 tag of an MP3 file, the Vorbis comment of a
// FLAC or Ogg file) each of the keys above that metadata holds and the tags lack, under the tag's usual
// name; what the tags hold already stays as it is. The file is saved only when something was added.
LXStatus addMissing(const QString& path, uint32_t format, const LXMetadata& metadata);

} // namespace LXTags
