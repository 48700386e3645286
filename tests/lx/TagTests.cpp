// Tags read into metadata, and carried into a rewritten file with what the writer's metadata changed
// winning: Vorbis comments in FLAC, ID3v2 in an AIFF file's ID3 chunk. ffprobe reads the results.

#include "TestAudio.h"
#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

using namespace TestAudio;

TEST(Tags, ReadIntoMetadataAndCarriedWithTheWritersChangesWinning) {
    QTemporaryDir dir;
    const QMap<QString, QString> tags{
        {"title", "Old Title"}, {"artist", "Ana Ruiz"}, {"TBPM", "96"}, {"TKEY", "F#m"}, {"MOOD", "calm"}};
    for (const char* name : {"source.flac", "source.aif"}) {
        SCOPED_TRACE(name);
        auto made = generateTaggedWithFfmpeg(dir.filePath(name), tags);
        ASSERT_TRUE(made) << made.error().description().toStdString();
        auto file = LXAudioFile::open(*made);
        ASSERT_TRUE(file) << file.error().description().toStdString();
        const LXMetadata& read = (*file)->metadata();
        EXPECT_EQ(read.string("artist"), "Ana Ruiz");
        // AIFF keeps musical properties in chunks of its own, which a tag does not fill in.
        const bool flac = (*file)->format() == LXFormat::FLAC;
        EXPECT_EQ(read.value("tempo"), flac ? QVariant(96.0) : QVariant());
        EXPECT_EQ(read.value("key"), flac ? QVariant(6) : QVariant()); // F sharp

        LXAudioFileWriter writer(**file);
        writer.metadata().setValue("title", "New Title");
        writer.metadata().remove("artist");
        ASSERT_TRUE((*file)->copyToWriter(writer));
        ASSERT_TRUE(writer.endWrite());
        const QString copy = dir.filePath(QStringLiteral("copy.") + (*file)->formatExtension());
        ASSERT_TRUE(writer.saveFile(0, copy));

        const QMap<QString, QString> after = tagsWithFfprobe(copy);
        EXPECT_EQ(after.value("TITLE").toStdString(), "New Title");
        EXPECT_FALSE(after.contains("ARTIST"));
        EXPECT_EQ(after.value("TBPM").toStdString(), "96");
        EXPECT_EQ(after.value("TKEY").toStdString(), "F#m");
        EXPECT_EQ(after.value("MOOD").toStdString(), "calm");
    }
}
