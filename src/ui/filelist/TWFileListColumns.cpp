#include "ui/filelist/TWFileListColumns.h"

#include "lx/LXMetadata.h"
#include "platform/TWPreferences.h"

#include <QVariantList>
#include <QVariantMap>

namespace TWFileListColumns {

const QStringList& keys() {
    static const QStringList keys =
        QStringList{QLatin1String(kName), QLatin1String(kStatus)} + LXMetadata::keysForCategoryMask(~0u);
    return keys;
}

QString title(const QString& key) {
    if (key == QLatin1String(kName)) return QStringLiteral("Name");
    if (key == QLatin1String(kStatus)) return QStringLiteral("Status");
    return LXMetadata::titleForKey(key);
}

bool isText(const QString& key) {
    return (LXMetadata::categoryOfKey(key) & LXMetadataTextFields) != 0 || key == QLatin1String("format") ||
           key == QLatin1String("creator");
}

ViewOptions defaultViewOptions() {
    ViewOptions options;
    for (const char* key : {kName, kStatus, "format", "range", "rate", "channels", "length", "fileSize",
                            "max", "rms", "loudness", "baseNote", "tempo", "key"})
        options.columns.append({QLatin1String(key), key == QLatin1String(kName) ? 240 : 0});
    return options;
}

ViewOptions loadViewOptions() {
    const QVariantMap stored = TWPreferences::shared().value(QLatin1String(kPreference)).toMap();
    const QVariantList columns = stored.value(QStringLiteral("columns")).toList();
    if (columns.isEmpty()) return defaultViewOptions();
    ViewOptions options;
    for (const QVariant& column : columns) {
        const QVariantMap map = column.toMap();
        const QString key = map.value(QStringLiteral("key")).toString();
        const bool known = keys().contains(key);
        const bool twice = std::any_of(options.columns.cbegin(), options.columns.cend(),
                                       [&](const Shown& shown) { return shown.key == key; });
        if (known && !twice)
            options.columns.append({key, std::max(0, map.value(QStringLiteral("width")).toInt())});
    }
    if (std::none_of(options.columns.cbegin(), options.columns.cend(),
                     [](const Shown& shown) { return shown.key == QLatin1String(kName); }))
        options.columns.prepend({QLatin1String(kName), 0});
    const QString sortKey = stored.value(QStringLiteral("sortKey")).toString();
    if (keys().contains(sortKey)) options.sortKey = sortKey;
    options.ascending = stored.value(QStringLiteral("ascending"), true).toBool();
    return options;
}

void saveViewOptions(const ViewOptions& options) {
    QVariantList columns;
    for (const Shown& shown : options.columns)
        columns.append(
            QVariantMap{{QStringLiteral("key"), shown.key}, {QStringLiteral("width"), shown.width}});
    TWPreferences::shared().setValue(QLatin1String(kPreference),
                                     QVariantMap{{QStringLiteral("columns"), columns},
                                                 {QStringLiteral("sortKey"), options.sortKey},
                                                 {QStringLiteral("ascending"), options.ascending}});
}

} // namespace TWFileListColumns
