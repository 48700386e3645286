#pragma once

#include <QList>
#include <QString>
#include <QStringList>

// The file list's columns: the name, the status, then every information key of the metadata table
// (LXMetadata), in that table's order and under its titles, so the list, the details and `clipwright
// info` agree on what a value is called and how it reads.
namespace TWFileListColumns {

inline constexpr const char* kName = "name";
inline constexpr const char* kStatus = "status";

const QStringList& keys(); // the model's columns, in order
QString title(const QString& key);
// Information keys whose values are text: left-aligned, the rest (numbers) right-aligned.
bool isText(const QString& key);

// What the view shows: the columns in their order with their widths, and the sort. Kept in the
// preference "File List View Options": {"columns": [{"key", "width"}, ...], "sortKey", "ascending"}.
struct Shown {
    QString key;
    int width = 0; // 0: the view's default
};
struct ViewOptions {
    QList<Shown> columns;
    QString sortKey = QLatin1String(kName);
    bool ascending = true;
};
inline constexpr const char* kPreference = "File List View Options";
ViewOptions defaultViewOptions();
// The stored options; unknown keys are dropped, the name is always shown, and a missing or damaged value
// gives the defaults.
ViewOptions loadViewOptions();
void saveViewOptions(const ViewOptions& options);

} // namespace TWFileListColumns
