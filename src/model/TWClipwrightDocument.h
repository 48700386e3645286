#pragma once

#include "lx/LXResult.h"

#include <QByteArray>
#include <QStringList>
#include <QVariant>

// Old file-list documents (extension "clipwright") are non-keyed Foundation archives ("typedstream")
// whose root object is a dictionary holding "FileList", an array of path strings.

// The paths under "FileList", in their stored order. An unreadable file, a damaged archive, a root
// that is not a dictionary or a missing or malformed "FileList" give an error naming the file and,
// for damage, the byte offset.
LXResult<QStringList> TWReadClipwrightDocument(const QString& path);

// The same from bytes already read; origin names them in errors.
LXResult<QStringList> TWParseClipwrightDocument(const QByteArray& data, const QString& origin);

// The root object of a typedstream archive as a property-list value: dictionaries become QVariantMap
// (keys that are not strings are left out), arrays QVariantList, strings QString, numbers qint64,
// double or bool, data QByteArray, nil an invalid QVariant. An object of another class whose values
// are of simple types is read past and becomes a value of a type private to the reader; anything the
// reader cannot step over (structures, damage) gives an error with the byte offset.
LXResult<QVariant> TWDecodeTypedStream(const QByteArray& data, const QString& origin);
