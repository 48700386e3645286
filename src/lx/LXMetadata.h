#pragma once

#include <QStringList>
#include <QVariantMap>

// Descriptive data of a file under the information keys file entries use: text ("title", "artist",
// "comments", "description", "originator", "codingHistory", ...) and musical properties ("baseNote",
// "detune", "gain", "lowNote", "highNote", "lowVelocity", "highVelocity", "tempo", "timeSignature",
// "key", "scale", "barsBeats", "playbackType"). Values are QString or numbers.
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

    bool operator==(const LXMetadata&) const = default;

private:
    QVariantMap m_values;
};
