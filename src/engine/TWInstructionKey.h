#pragma once

#include "lx/LXResult.h"

#include <QString>
#include <QVariant>

// What kind of property-list value an instruction key holds, so that text typed on the command line
// becomes the right value.
enum class TWValueType { Number, Integer, Boolean, FourCharCode, String, Path, List, Dictionary };

// One instruction key of an action: its name as workflows and scripts spell it, its type, the value a
// new panel starts with, and one line of help.
struct TWInstructionKey {
    QString name;
    TWValueType type = TWValueType::Number;
    QVariant defaultValue; // invalid when a new panel shows nothing
    QString help;

    // "-6" -> -6.0, "yes"/"no" -> bool, "MARK" or "'MARK'" or 1296126539 -> a four-character code,
    // "a,b,c" -> a list of strings, "~/x" -> an absolute path. Text that does not fit is an error
    // naming the key.
    LXResult<QVariant> valueFromText(const QString& text) const;
    static QString typeName(TWValueType type); // "number", "boolean", ...
};
