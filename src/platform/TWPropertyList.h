#pragma once

#include "lx/LXResult.h"

#include <QByteArray>
#include <QString>
#include <QVariant>

// Property lists (XML or binary) as QVariant trees: dict <-> QVariantMap, array <-> QVariantList,
// string <-> QString, integer <-> qint64, real <-> double, bool <-> bool, data <-> QByteArray,
// date <-> QDateTime (UTC, whole seconds in XML).
namespace TWPropertyList {
// XML or binary plist -> QVariant (QVariantMap, QVariantList, QString, qint64, double, bool, QByteArray,
// QDateTime)
LXResult<QVariant> fromData(const QByteArray& data, const QString& origin);
LXResult<QVariant> readFile(const QString& path);
QByteArray toXml(const QVariant& value);
QByteArray toBinary(const QVariant& value);
LXStatus writeFile(const QString& path, const QVariant& value); // atomic
} // namespace TWPropertyList
