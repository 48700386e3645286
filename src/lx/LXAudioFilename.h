#pragma once

#include <QString>
#include <QStringList>

// Builds the paths of the files that make one audio file: "dir/name.ext", numbered "dir/name-3.ext",
// or, for a split set of mono files, one path per channel "dir/name.L", "dir/name.R", ...
class LXAudioFilename {
public:
    static constexpr int kNoNumber = 2147483647;
    enum Scheme { Interleaved = -1, SplitChannels = 0, SoundDesigner = 1 };

    // A member of a split set ("take.R") stands for the whole set: its base is "take".
    explicit LXAudioFilename(const QString& path);

    // The path under which a folder lists the file: the lead member ("take.L") for a split set.
    QString path() const;

    void setScheme(int scheme) { m_scheme = scheme; }
    void setNumberOfFiles(int count) { m_files = count; }
    void setExtension(const QString& extension) { m_extension = extension; }
    void setNumber(int number) { m_number = number; }
    int scheme() const { return m_scheme; }
    int numberOfFiles() const { return m_files; }
    const QString& extension() const { return m_extension; }
    int number() const { return m_number; }

    QString pathForChannel(int channel) const;
    QStringList paths() const;

    // The suffixes of split sets in channel order ("L", "R", "C", "Lfe", "Ls", "Rs", ...).
    static const QStringList& channelSuffixes();
    // "take.Rs" -> "take.L"; any other path is returned as it is. Suffixes are case-sensitive.
    static QString leadPathOfSplitMember(const QString& path);
    static bool isSplitMember(const QString& path);

private:
    QString m_directory;
    QString m_stem;
    QString m_extension;
    int m_scheme = Interleaved;
    int m_files = 1;
    int m_number = kNoNumber;
};
