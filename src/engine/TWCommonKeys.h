#pragma once

#include "engine/TWInstructionKey.h"

#include <QVariantMap>

// The instruction keys every action shares, beside its own: which class it is, whether it runs, which
// entries it takes, where its results go and, for a script command, the files it names.
namespace TWKeys {

inline const TWKey<QString> actionClass{QStringLiteral("class"), std::nullopt,
                                        QStringLiteral("the action's class name")};
inline const TWKey<bool> active{QStringLiteral("active"), true, QStringLiteral("whether the action runs")};
// TWSource below.
inline const TWKey<int> source{QStringLiteral("source"), 1,
                               QStringLiteral("which entries the action processes")};
inline const TWKey<QVariantMap> destination{QStringLiteral("destination"), QVariantMap(),
                                            QStringLiteral("where the results go")};
inline const TWKey<QStringList> paths{QStringLiteral("paths"), QStringList(),
                                      QStringLiteral("the files a script command names")};

// Inside "destination".
inline const TWKey<bool> toNewFile{QStringLiteral("toNewFile"), false,
                                   QStringLiteral("write new files instead of replacing the sources")};
inline const TWKey<bool> addToList{QStringLiteral("addToList"), true,
                                   QStringLiteral("insert the new files into the file list")};
inline const TWPathKey directory{QStringLiteral("directory"), QStringLiteral("the folder for the new files")};

} // namespace TWKeys

// Which entries an action processes ("source").
namespace TWSource {
constexpr int AllEntries = 0;
constexpr int Selection = 1;
constexpr int PreviousResults = 2;
constexpr int Paths = 3; // the paths under "paths"
} // namespace TWSource
