#pragma once

#include <QStringList>
#include <QVariantMap>

// Descriptive data of a file under the information keys file entries use: text ("title", "artist",
// "comments", "description", "originator", "codingHistory", ...) and musical properties ("baseNote",
// "detune", "gain", "lowNote", "highNote", "lowVelocity", "highVelocity", "tempo", "timeSignature",
// "key", "scale", "barsBeats", "playbackType"). Values are QString or numbers.
// The categories of information keys, as bits of a mask. Text fields take the low bits and the file's
// own properties and measured or musical values the bits from 7 on, so that a mask of every text field
// leaves the values a property action cannot set.
enum LXMetadataCategory : uint32_t {
    LXMetadataGeneral = 1u << 0,   // title, artist, album, comments, ...
    LXMetadataBroadcast = 1u << 1, // the broadcast chunk's fields
    LXMetadataArchival = 1u << 2,  // the other RIFF INFO fields
    LXMetadataFile = 1u << 7,      // format, rate, channels, length, size, creator
    LXMetadataAnalysis = 1u << 8,  // measured levels and loudness
    LXMetadataMIDI = 1u << 9,      // base note, detune, key and velocity ranges, gain
    LXMetadataMusical = 1u << 10,  // tempo, beats, time signature, key, scale, playback
    LXMetadataVorbisComment = 1u << 13, // the text fields a Vorbis comment has a name for (with their own)
    LXMetadataTextFields = 0x7ffff07f,
};

class LXMetadata {
public:
    LXMetadata() = default;
    explicit LXMetadata(QVariantMap values) : m_values(std::move(values)) {}

    QVariant value(const QString& key) const { return m_values.value(key); }
    QString string(const QString& key) const { return m_values.value(key).toString(); }
    bool contains(const QString& key) const { return m_values.contains(key); }
    void setValue(const QString& key, const QVariant& value);
    void remove(const QString& key) { m_values.remove(key); }
    void clear() { m_values.clear(); }
    bool isEmpty() const { return m_values.isEmpty(); }
    QStringList keys() const { return m_values.keys(); }
    const QVariantMap& values() const { return m_values; }

    // Adds the other's values; keys already here keep their value unless overwrite is set.
    void addMetadata(const LXMetadata& other, bool overwrite);

    // Every key this framework reads or writes, text keys and musical keys.
    static const QStringList& textKeys();
    static const QStringList& musicalKeys();

    // What people call the information keys of a file entry (LXMetadataTitles.cpp): one table, so that
    // every place that shows a key or takes one by its title (the details table, `clipwright info`, the
    // property pop-ups, rename tokens such as "/Base Note/") agrees. Titles match exactly.
    static QString keyForTitle(const QString& title); // empty when no key has that title
    static QString titleForKey(const QString& key);   // the key itself when it has no title
    // The titles of the keys in any of the categories of the mask, in the table's order.
    static QStringList titlesForCategoryMask(uint32_t mask);
    static uint32_t categoryOfKey(const QString& key); // 0 for a key without a title
    // The keys in any of the categories of the mask, in the table's order.
    static QStringList keysForCategoryMask(uint32_t mask);
    // The name of the Vorbis comment that holds the key ("DATE" for "year"), upper case as players
    // expect it; empty for a key outside LXMetadataVorbisComment.
    static QString oggVorbisFormatKeyForKey(const QString& key);
    // The name of the workspace formatter (TWFormatters::formatterNamed) that shows the key's values, or
    // empty when they are shown as stored.
    static QString formatterSelectorForKey(const QString& key);

    bool operator==(const LXMetadata&) const = default;

private:
    QVariantMap m_values;
};
