#include "lx/LXTags.h"

#include "lx/LXAudioFormat.h"

#include <QFile>
#include <taglib/aifffile.h>
#include <taglib/flacfile.h>
#include <taglib/id3v2framefactory.h>
#include <taglib/id3v2tag.h>
#include <taglib/mp4file.h>
#include <taglib/mpegfile.h>
#include <taglib/opusfile.h>
#include <taglib/tfilestream.h>
#include <taglib/tpropertymap.h>
#include <taglib/vorbisfile.h>
#include <taglib/wavfile.h>
#include <taglib/xiphcomment.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>

using namespace TagLib;

namespace {

enum class Kind { None, ID3v2, Xiph };

Kind kindOf(uint32_t format) {
    switch (format) {
    case LXFormat::MP3:
    case LXFormat::WAVE:
    case LXFormat::AIFF:
    case LXFormat::AIFC:
        return Kind::ID3v2;
    case LXFormat::FLAC:
    case LXFormat::Ogg:
    case LXFormat::Opus:
        return Kind::Xiph;
    default:
        return Kind::None;
    }
}

// TagLib's property names (the same for ID3v2 frames and Vorbis comments) and our metadata keys. Vorbis
// comments have no fixed names: other spellings in use follow the first, and a changed value replaces
// the spelling the file has.
struct KeyPair {
    std::array<const char*, 3> properties;
    const char* key;
};
constexpr KeyPair kKeys[] = {
    {{"TITLE"}, "title"},
    {{"ARTIST"}, "artist"},
    {{"ALBUM"}, "album"},
    {{"COMMENT", "DESCRIPTION"}, "comments"},
    {{"GENRE"}, "genre"},
    {{"DATE", "YEAR"}, "year"},
    {{"COMPOSER"}, "composer"},
    {{"LYRICIST"}, "lyricist"},
    {{"COPYRIGHT"}, "copyright"},
    {{"TRACKNUMBER"}, "trackNumber"},
    {{"BPM", "TBPM", "TEMPO"}, "tempo"},
    {{"INITIALKEY", "KEY", "TKEY"}, "key"},
};

// The first of the pair's names that the properties hold, or its first name.
String nameIn(const PropertyMap& properties, const KeyPair& pair) {
    for (const char* name : pair.properties)
        if (name && properties.contains(name)) return name;
    return pair.properties.front();
}

constexpr std::array<const char*, 12> kNoteNames = {"C",  "C#", "D",  "D#", "E",  "F",
                                                    "F#", "G",  "G#", "A",  "A#", "B"};

QString toQt(const String& text) {
    return QString::fromUtf8(text.toCString(true));
}
String toTagLib(const QString& text) {
    return String(text.toUtf8().toStdString(), String::UTF8);
}

// A tag's key ("Am", "F#", "Bbm") as the pitch class of its root; invalid when it names none.
QVariant pitchClassOf(const QString& key) {
    static const int kNaturals[] = {9, 11, 0, 2, 4, 5, 7}; // A B C D E F G
    const QChar letter = key.isEmpty() ? QChar() : key.front().toUpper();
    if (letter < u'A' || letter > u'G') return {};
    int pitch = kNaturals[letter.unicode() - u'A'];
    if (key.size() > 1 && key[1] == u'#') ++pitch;
    if (key.size() > 1 && key[1] == u'b') --pitch;
    return (pitch + 12) % 12;
}

QVariant metadataValue(const KeyPair& pair, const QString& text) {
    const QByteArrayView key(pair.key);
    if (key == "tempo") {
        bool ok = false;
        const double bpm = text.toDouble(&ok);
        return ok && bpm > 0 ? QVariant(bpm) : QVariant();
    }
    if (key == "key") return pitchClassOf(text);
    return text;
}

QString tagText(const KeyPair& pair, const QVariant& value) {
    if (QByteArrayView(pair.key) == "key" && value.isValid())
        return QString::fromLatin1(kNoteNames[size_t(((value.toInt() % 12) + 12) % 12)]);
    return value.toString();
}

// One file through the TagLib class of its format, opened read-only unless it is to be saved.
class TaggedFile {
public:
    enum class Access { ReadOnly, ReadWrite };

    TaggedFile(const QString& path, uint32_t format, Access access)
        : m_format(format), m_stream(QFile::encodeName(path).constData(), access == Access::ReadOnly) {
        if (!m_stream.isOpen()) return;
        // Audio properties are not needed: only the tags are read.
        switch (format) {
        case LXFormat::MP3:
            m_file = std::make_unique<MPEG::File>(&m_stream, ID3v2::FrameFactory::instance(), false);
            break;
        case LXFormat::WAVE:
            m_file = std::make_unique<RIFF::WAV::File>(&m_stream, false);
            break;
        case LXFormat::AIFF:
        case LXFormat::AIFC:
            m_file = std::make_unique<RIFF::AIFF::File>(&m_stream, false);
            break;
        case LXFormat::FLAC:
            m_file = std::make_unique<FLAC::File>(&m_stream, ID3v2::FrameFactory::instance(), false);
            break;
        case LXFormat::Ogg:
            m_file = std::make_unique<Ogg::Vorbis::File>(&m_stream, false);
            break;
        case LXFormat::Opus:
            m_file = std::make_unique<Ogg::Opus::File>(&m_stream, false);
            break;
        default:
            break;
        }
    }

    bool isValid() const { return m_file && m_file->isValid(); }
    PropertyMap properties() const { return m_file->properties(); }

    // The file's ID3v2 tag; null for an MP3 file without one unless create is set.
    ID3v2::Tag* id3v2(bool create) {
        switch (m_format) {
        case LXFormat::MP3:
            return as<MPEG::File>()->ID3v2Tag(create);
        case LXFormat::WAVE:
            return as<RIFF::WAV::File>()->ID3v2Tag();
        default:
            return as<RIFF::AIFF::File>()->tag();
        }
    }

    // The file's Vorbis comment; null for a FLAC file without one unless create is set.
    Ogg::XiphComment* xiph(bool create) {
        switch (m_format) {
        case LXFormat::FLAC:
            return as<FLAC::File>()->xiphComment(create);
        case LXFormat::Ogg:
            return as<Ogg::Vorbis::File>()->tag();
        default:
            return as<Ogg::Opus::File>()->tag();
        }
    }

    // FLAC keeps pictures in blocks of their own, Ogg inside the comment.
    List<FLAC::Picture*> pictures() {
        List<FLAC::Picture*> all;
        if (m_format == LXFormat::FLAC) all.append(as<FLAC::File>()->pictureList());
        if (Ogg::XiphComment* comment = xiph(false)) all.append(comment->pictureList());
        return all;
    }
    void setPictures(const List<FLAC::Picture*>& pictures) {
        Ogg::XiphComment* comment = xiph(true);
        comment->removeAllPictures();
        if (m_format == LXFormat::FLAC) as<FLAC::File>()->removePictures();
        for (const FLAC::Picture* picture : pictures) {
            auto* copy = new FLAC::Picture(picture->render());
            if (m_format == LXFormat::FLAC)
                as<FLAC::File>()->addPicture(copy);
            else
                comment->addPicture(copy);
        }
    }

    // Writes the tags of the file's kind and leaves every other tag and chunk as it is.
    bool save(ID3v2::Version version) {
        switch (m_format) {
        case LXFormat::MP3:
            return as<MPEG::File>()->save(MPEG::File::ID3v2, File::StripNone, version, File::DoNotDuplicate);
        case LXFormat::WAVE:
            return as<RIFF::WAV::File>()->save(RIFF::WAV::File::ID3v2, File::StripNone, version);
        case LXFormat::AIFF:
        case LXFormat::AIFC:
            return as<RIFF::AIFF::File>()->save(version);
        default:
            return m_file->save();
        }
    }

private:
    template <typename T> T* as() { return static_cast<T*>(m_file.get()); }

    uint32_t m_format;
    FileStream m_stream; // before m_file, which reads through it
    std::unique_ptr<File> m_file;
};

void copyFrames(const ID3v2::Tag& from, ID3v2::Tag& to) {
    while (!to.frameList().isEmpty())
        to.removeFrame(to.frameList().front());
    // Each frame is parsed again from its own bytes: the copy owns its data, whatever the frame's class.
    for (const ID3v2::Frame* frame : from.frameList())
        if (ID3v2::Frame* copy = ID3v2::FrameFactory::instance()->createFrame(frame->render(), from.header()))
            to.addFrame(copy);
}

void copyComments(const Ogg::XiphComment& from, Ogg::XiphComment& to) {
    to.removeAllFields();
    for (const auto& [name, values] : from.fieldListMap())
        for (const String& value : values)
            to.addField(name, value, false);
}

// setProperties keeps the frames and fields whose properties it is given unchanged (and every picture
// and binary frame), so only the keys that differ are rewritten.
template <typename Tag> void applyChanges(Tag& tag, const LXMetadata& before, const LXMetadata& after) {
    PropertyMap properties = tag.properties();
    bool changed = false;
    for (const KeyPair& pair : kKeys) {
        const QString key = QString::fromLatin1(pair.key);
        if (before.value(key) == after.value(key)) continue;
        changed = true;
        const QString text = tagText(pair, after.value(key));
        if (text.isEmpty())
            properties.erase(nameIn(properties, pair));
        else
            properties.replace(nameIn(properties, pair), StringList(toTagLib(text)));
    }
    if (changed) tag.setProperties(properties);
}

// Adds the keys of metadata whose property the tag lacks; whether it added any.
template <typename Tag> bool addMissingTo(Tag& tag, const LXMetadata& metadata) {
    PropertyMap properties = tag.properties();
    bool added = false;
    for (const KeyPair& pair : kKeys) {
        const QString text = tagText(pair, metadata.value(QString::fromLatin1(pair.key)));
        if (text.isEmpty() || properties.contains(nameIn(properties, pair))) continue;
        properties.insert(pair.properties.front(), StringList(toTagLib(text)));
        added = true;
    }
    if (added) tag.setProperties(properties);
    return added;
}

bool hasId3Chunk(const LXAnnotations& annotations) {
    return std::any_of(
        annotations.unknownChunks.cbegin(), annotations.unknownChunks.cend(),
        [](const LXChunk& chunk) { return chunk.id.compare("id3 ", Qt::CaseInsensitive) == 0; });
}

} // namespace

namespace LXTags {

bool mayHoldTags(uint32_t format, const LXAnnotations& annotations) {
    switch (kindOf(format)) {
    case Kind::None:
        return false;
    case Kind::Xiph:
        return true;
    case Kind::ID3v2:
        return format == LXFormat::MP3 || hasId3Chunk(annotations);
    }
    return false;
}

bool holds(uint32_t format, const QString& key) {
    if (kindOf(format) == Kind::None) return false;
    return std::any_of(std::begin(kKeys), std::end(kKeys),
                       [&key](const KeyPair& pair) { return key == QLatin1String(pair.key); });
}

void readInto(const QString& path, uint32_t format, LXMetadata& metadata) {
    if (kindOf(format) == Kind::None) return;
    const TaggedFile file(path, format, TaggedFile::Access::ReadOnly);
    if (!file.isValid()) return;
    const PropertyMap properties = file.properties();
    // Musical properties of WAV and AIFF files belong to chunks of their own (acid, smpl, inst): a tag's
    // tempo taken in would be written out as a new acid chunk, which also says the file is a 4/4 loop.
    const bool chunksOwnMusic = kindOf(format) == Kind::ID3v2 && format != LXFormat::MP3;
    for (const KeyPair& pair : kKeys) {
        const QString key = QString::fromLatin1(pair.key);
        if (chunksOwnMusic && LXMetadata::musicalKeys().contains(key)) continue;
        const auto found = properties.find(nameIn(properties, pair));
        if (metadata.contains(key) || found == properties.end() || found->second.isEmpty()) continue;
        metadata.setValue(key, metadataValue(pair, toQt(found->second.front())));
    }
}

LXStatus copy(const QString& sourcePath, uint32_t sourceFormat, const LXMetadata& sourceMetadata,
              const QString& targetPath, uint32_t targetFormat, const LXMetadata& targetMetadata) {
    const Kind kind = kindOf(sourceFormat);
    if (kind == Kind::None || kind != kindOf(targetFormat)) return {};
    TaggedFile source(sourcePath, sourceFormat, TaggedFile::Access::ReadOnly);
    if (!source.isValid()) return {}; // nothing TagLib can read, so nothing it could carry
    TaggedFile target(targetPath, targetFormat, TaggedFile::Access::ReadWrite);
    if (!target.isValid()) {
        // A WAV file grown into RF64: its ID3 chunk came over byte for byte with the other chunks.
        if (targetFormat == LXFormat::WAVE) return {};
        return LXError(
            LXErrWriteFailed,
            QStringLiteral("cannot carry its tags over: the new file (%1) cannot be opened to take them")
                .arg(targetPath),
            sourcePath);
    }
    ID3v2::Version version = ID3v2::v4;
    if (kind == Kind::ID3v2) {
        ID3v2::Tag* to = target.id3v2(true);
        if (const ID3v2::Tag* from = source.id3v2(false)) {
            copyFrames(*from, *to);
            if (from->header()->majorVersion() == 3) version = ID3v2::v3;
        }
        applyChanges(*to, sourceMetadata, targetMetadata);
    } else {
        Ogg::XiphComment* to = target.xiph(true);
        if (const Ogg::XiphComment* from = source.xiph(false)) copyComments(*from, *to);
        target.setPictures(source.pictures());
        applyChanges(*to, sourceMetadata, targetMetadata);
    }
    if (!target.save(version))
        return LXError(LXErrWriteFailed,
                       QStringLiteral("cannot write its tags into the new file (%1)").arg(targetPath),
                       sourcePath);
    return {};
}

LXStatus writeMP4(const QString& path, const LXMetadata& metadata, const QString& source) {
    PropertyMap properties;
    for (const KeyPair& pair : kKeys) {
        const QString key = QString::fromLatin1(pair.key);
        if (!metadata.contains(key)) continue;
        const QVariant value = metadata.value(key);
        const QString text = key == QLatin1String("tempo") ? QString::number(std::lround(value.toDouble()))
                                                           : tagText(pair, value);
        if (!text.isEmpty()) properties.replace(pair.properties.front(), StringList(toTagLib(text)));
    }
    if (properties.isEmpty()) return {};
    FileStream stream(QFile::encodeName(path).constData());
    MP4::File file(&stream, false);
    if (!file.isValid() || !stream.isOpen())
        return LXError(LXErrWriteFailed, QStringLiteral("cannot open the new file (%1) to tag it").arg(path),
                       source);
    file.setProperties(properties);
    if (!file.save())
        return LXError(LXErrWriteFailed, QStringLiteral("cannot write tags into the new file (%1)").arg(path),
                       source);
    return {};
}

LXStatus addMissing(const QString& path, uint32_t format, const LXMetadata& metadata) {
    const Kind kind = kindOf(format);
    if (kind == Kind::None || metadata.isEmpty()) return {};
    TaggedFile file(path, format, TaggedFile::Access::ReadWrite);
    if (!file.isValid())
        return LXError(LXErrWriteFailed, QStringLiteral("cannot open the file to write its tags"), path);
    ID3v2::Version version = ID3v2::v4;
    bool added = false;
    if (kind == Kind::ID3v2) {
        ID3v2::Tag* tag = file.id3v2(true);
        if (tag->header()->majorVersion() == 3) version = ID3v2::v3; // kept as the encoder wrote it
        added = addMissingTo(*tag, metadata);
    } else {
        added = addMissingTo(*file.xiph(true), metadata);
    }
    if (added && !file.save(version))
        return LXError(LXErrWriteFailed, QStringLiteral("cannot write its tags"), path);
    return {};
}

} // namespace LXTags
