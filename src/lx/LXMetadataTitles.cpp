#include "lx/LXMetadata.h"

#include <string_view>
#include <utility>

namespace {

struct Field {
    const char* key;
    const char* title;
    uint32_t category;
    const char* formatter; // a TWFormatters name, or nullptr: shown as stored
};

// In the order the details table and `clipwright info` list them.
constexpr Field kFields[] = {
    {"format", "Format", LXMetadataFile, "formatFormatter"},
    {"range", "Bit Depth", LXMetadataFile, "bitRangeFormatter"},
    {"rate", "Sample Rate", LXMetadataFile, "sampleRateFormatter"},
    {"channels", "Channels", LXMetadataFile, "channelsFormatter"},
    {"length", "Length", LXMetadataFile, "timeFormatter"},
    {"samples", "Samples", LXMetadataFile, "samplesFormatter"},
    {"fileSize", "File Size", LXMetadataFile, "fileSizeFormatter"},
    {"creator", "Creator", LXMetadataFile, "creatorFormatter"},

    {"max", "Peak", LXMetadataAnalysis, "decibelFormatter"},
    {"rms", "RMS", LXMetadataAnalysis, "decibelFormatter"},
    {"clipped", "Clipped", LXMetadataAnalysis, "clippedFormatter"},
    {"difference", "DC Offset", LXMetadataAnalysis, "differenceFormatter"},
    {"loudness", "Loudness", LXMetadataAnalysis, "loudnessFormatter"},
    {"loudnessRange", "Loudness Range", LXMetadataAnalysis, "loudnessRangeFormatter"},
    {"truePeak", "True Peak", LXMetadataAnalysis, "decibelFormatter"},
    {"pitch", "Pitch", LXMetadataAnalysis, "midiNoteFormatter"},
    {"tempoGuess", "Tempo Guess", LXMetadataAnalysis, "tempoFormatter"},

    {"baseNote", "Base Note", LXMetadataMIDI, "midiNoteFormatter"},
    {"detune", "Detune", LXMetadataMIDI, "detuneFormatter"},
    {"lowNote", "Low Note", LXMetadataMIDI, "midiNoteFormatter"},
    {"highNote", "High Note", LXMetadataMIDI, "midiNoteFormatter"},
    {"lowVelocity", "Low Velocity", LXMetadataMIDI, nullptr},
    {"highVelocity", "High Velocity", LXMetadataMIDI, nullptr},
    {"gain", "Gain", LXMetadataMIDI, "gainFormatter"},

    {"tempo", "Tempo", LXMetadataMusical, "tempoFormatter"},
    {"beats", "Beats", LXMetadataMusical, nullptr},
    {"barsBeats", "Bars and Beats", LXMetadataMusical, "barsBeatsFormatter"},
    {"timeSignature", "Time Signature", LXMetadataMusical, "timeSignatureFormatter"},
    {"key", "Key", LXMetadataMusical, "keyFormatter"},
    {"scale", "Scale", LXMetadataMusical, "scaleFormatter"},
    {"playbackType", "Playback", LXMetadataMusical, "playbackTypeFormatter"},

    {"title", "Title", LXMetadataGeneral, nullptr},
    {"artist", "Artist", LXMetadataGeneral, nullptr},
    {"album", "Album", LXMetadataGeneral, nullptr},
    {"trackNumber", "Track Number", LXMetadataGeneral, nullptr},
    {"year", "Year", LXMetadataGeneral, nullptr},
    {"genre", "Genre", LXMetadataGeneral, nullptr},
    {"composer", "Composer", LXMetadataGeneral, nullptr},
    {"lyricist", "Lyricist", LXMetadataGeneral, nullptr},
    {"originalArtist", "Original Artist", LXMetadataGeneral, nullptr},
    {"author", "Author", LXMetadataGeneral, nullptr},
    {"copyright", "Copyright", LXMetadataGeneral, nullptr},
    {"comments", "Comments", LXMetadataGeneral, nullptr},
    {"annotation", "Annotation", LXMetadataGeneral, nullptr},
    {"subject", "Subject", LXMetadataGeneral, nullptr},
    {"keywords", "Keywords", LXMetadataGeneral, nullptr},
    {"categories", "Categories", LXMetadataGeneral, nullptr},
    {"creationDate", "Creation Date", LXMetadataGeneral, nullptr},
    {"recordedDate", "Recorded Date", LXMetadataGeneral, nullptr},

    {"description", "Description", LXMetadataBroadcast, nullptr},
    {"originator", "Originator", LXMetadataBroadcast, nullptr},
    {"originatorReference", "Originator Reference", LXMetadataBroadcast, nullptr},
    {"originationDate", "Origination Date", LXMetadataBroadcast, nullptr},
    {"originationTime", "Origination Time", LXMetadataBroadcast, nullptr},
    {"timeReference", "Time Reference", LXMetadataBroadcast, nullptr},
    {"codingHistory", "Coding History", LXMetadataBroadcast, nullptr},
    {"SMPTEUMID", "UMID", LXMetadataBroadcast, nullptr},

    {"product", "Product", LXMetadataArchival, nullptr},
    {"engineers", "Engineers", LXMetadataArchival, nullptr},
    {"digitizer", "Digitizer", LXMetadataArchival, nullptr},
    {"softwarePackage", "Software", LXMetadataArchival, nullptr},
    {"encodingApplication", "Encoded By", LXMetadataArchival, nullptr},
    {"sourceEncoder", "Source Encoder", LXMetadataArchival, nullptr},
    {"sourceSupplier", "Source Supplier", LXMetadataArchival, nullptr},
    {"digitizationSource", "Digitization Source", LXMetadataArchival, nullptr},
    {"archivalLocation", "Archival Location", LXMetadataArchival, nullptr},
    {"commissionedBy", "Commissioned By", LXMetadataArchival, nullptr},
    {"cropped", "Cropped", LXMetadataArchival, nullptr},
    {"originalDimensions", "Original Dimensions", LXMetadataArchival, nullptr},
    {"originalMedium", "Original Medium", LXMetadataArchival, nullptr},
    {"metaName", "Name", LXMetadataArchival, nullptr},
    {"channelLayout", "Channel Layout", LXMetadataArchival, nullptr},
    {"nominalBitRate", "Nominal Bit Rate", LXMetadataArchival, nullptr},
};

// The text fields Vorbis comments hold, under the names TagLib, FFmpeg and the Xiph recommendations use.
// The broadcast description is left out: readers take DESCRIPTION for the comments.
constexpr std::pair<const char*, const char*> kVorbisNames[] = {
    {"title", "TITLE"},
    {"artist", "ARTIST"},
    {"album", "ALBUM"},
    {"trackNumber", "TRACKNUMBER"},
    {"year", "DATE"},
    {"genre", "GENRE"},
    {"composer", "COMPOSER"},
    {"lyricist", "LYRICIST"},
    {"originalArtist", "ORIGINALARTIST"},
    {"copyright", "COPYRIGHT"},
    {"comments", "COMMENT"},
};

const char* vorbisNameOf(const char* key) {
    for (const auto& [field, name] : kVorbisNames)
        if (std::string_view(field) == key) return name;
    return nullptr;
}

uint32_t categoryOf(const Field& field) {
    return field.category | (vorbisNameOf(field.key) ? LXMetadataVorbisComment : 0u);
}

const Field* fieldOfKey(const QString& key) {
    for (const Field& field : kFields)
        if (key == QLatin1String(field.key)) return &field;
    return nullptr;
}

} // namespace

QString LXMetadata::keyForTitle(const QString& title) {
    for (const Field& field : kFields)
        if (title == QLatin1String(field.title)) return QLatin1String(field.key);
    return {};
}

QString LXMetadata::titleForKey(const QString& key) {
    const Field* field = fieldOfKey(key);
    return field ? QString::fromLatin1(field->title) : key;
}

QStringList LXMetadata::titlesForCategoryMask(uint32_t mask) {
    QStringList titles;
    for (const Field& field : kFields)
        if (categoryOf(field) & mask) titles.append(QLatin1String(field.title));
    return titles;
}

QStringList LXMetadata::keysForCategoryMask(uint32_t mask) {
    QStringList keys;
    for (const Field& field : kFields)
        if (categoryOf(field) & mask) keys.append(QLatin1String(field.key));
    return keys;
}

uint32_t LXMetadata::categoryOfKey(const QString& key) {
    const Field* field = fieldOfKey(key);
    return field ? categoryOf(*field) : 0;
}

QString LXMetadata::oggVorbisFormatKeyForKey(const QString& key) {
    const Field* field = fieldOfKey(key);
    const char* name = field ? vorbisNameOf(field->key) : nullptr;
    return name ? QString::fromLatin1(name) : QString();
}

QString LXMetadata::formatterSelectorForKey(const QString& key) {
    const Field* field = fieldOfKey(key);
    return field && field->formatter ? QString::fromLatin1(field->formatter) : QString();
}
