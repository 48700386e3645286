#include "lx/LXMetadata.h"

void LXMetadata::setValue(const QString& key, const QVariant& value) {
    if (!value.isValid() || (value.typeId() == QMetaType::QString && value.toString().isEmpty()))
        m_values.remove(key);
    else
        m_values.insert(key, value);
}

void LXMetadata::addMetadata(const LXMetadata& other, bool overwrite) {
    for (auto it = other.m_values.cbegin(); it != other.m_values.cend(); ++it) {
        if (overwrite || !m_values.contains(it.key())) m_values.insert(it.key(), it.value());
    }
}

const QStringList& LXMetadata::textKeys() {
    static const QStringList keys = {"album",
                                     "annotation",
                                     "archivalLocation",
                                     "artist",
                                     "author",
                                     "categories",
                                     "channelLayout",
                                     "codingHistory",
                                     "comments",
                                     "commissionedBy",
                                     "composer",
                                     "copyright",
                                     "creationDate",
                                     "cropped",
                                     "description",
                                     "digitizationSource",
                                     "digitizer",
                                     "encodingApplication",
                                     "engineers",
                                     "genre",
                                     "keywords",
                                     "lyricist",
                                     "metaName",
                                     "nominalBitRate",
                                     "originalArtist",
                                     "originalDimensions",
                                     "originalMedium",
                                     "originationDate",
                                     "originationTime",
                                     "originator",
                                     "originatorReference",
                                     "product",
                                     "recordedDate",
                                     "SMPTEUMID",
                                     "softwarePackage",
                                     "sourceEncoder",
                                     "sourceSupplier",
                                     "subject",
                                     "timeReference",
                                     "title",
                                     "trackNumber",
                                     "year"};
    return keys;
}

const QStringList& LXMetadata::musicalKeys() {
    static const QStringList keys = {
        "baseNote", "detune",        "gain", "lowNote", "highNote",  "lowVelocity",  "highVelocity",
        "tempo",    "timeSignature", "key",  "scale",   "barsBeats", "playbackType", "beats"};
    return keys;
}
