#include "ui/filelist/TWEntryIcons.h"

#include "model/TWFileEntry.h"

#include <QApplication>
#include <QHash>
#include <QStyle>

namespace TWEntryIcons {

QIcon icon(const QString& image) {
    struct Source {
        const char* image;
        const char* theme;
        QStyle::StandardPixmap fallback;
    };
    static constexpr Source kSources[] = {
        {"entry_file", "audio-x-generic", QStyle::SP_FileIcon},
        {"entry_folder", "folder", QStyle::SP_DirIcon},
        {"entry_group", "folder-open", QStyle::SP_DirOpenIcon},
        {"entry_smart_group", "folder-saved-search", QStyle::SP_FileDialogContentsView},
        {"entry_server", "network-server", QStyle::SP_DriveNetIcon},
        {"entry_status_unsupported", "dialog-question", QStyle::SP_MessageBoxQuestion},
        {"entry_status_bad", "dialog-error", QStyle::SP_MessageBoxCritical},
        {"entry_status_not_found", "dialog-warning", QStyle::SP_MessageBoxWarning},
        {"entry_status_playing", "media-playback-start", QStyle::SP_MediaPlay},
    };
    // Looking an icon up in the theme reads index files: once per name for the program's life.
    static QHash<QString, QIcon> cache;
    if (const auto found = cache.constFind(image); found != cache.constEnd()) return *found;
    QIcon made;
    for (const Source& source : kSources)
        if (image == QLatin1String(source.image))
            made = QIcon::fromTheme(QLatin1String(source.theme),
                                    QApplication::style()->standardIcon(source.fallback));
    cache.insert(image, made);
    return made;
}

QString imageOfStatus(float status) {
    switch (TWStatus::state(status)) {
    case -3:
        return QStringLiteral("entry_status_unsupported");
    case -2:
        return QStringLiteral("entry_status_bad");
    case -1:
        return QStringLiteral("entry_status_not_found");
    case 7:
        return QStringLiteral("entry_status_playing");
    default:
        return {};
    }
}

} // namespace TWEntryIcons
