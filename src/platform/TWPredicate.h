#pragma once

#include "lx/LXResult.h"

#include <QString>
#include <QVariantList>

// The metadata attributes a query may name, from the property list ":/query_keys.xml" (one dictionary
// per menu item: "name", "key", "class", "digits", "units", "values"; an optional "scale" multiplies a
// typed number into the stored unit, 1000 for sizes typed in KB). A file of the same name in
// share/clipwright/ (the XDG data folders) replaces the compiled-in one; items whose key the index has no
// column for are left out.
namespace TWQueryKeys {
const QVariantList& menuItems(); // in menu order; thread-safe
QStringList keys();
} // namespace TWQueryKeys

// A query predicate in the text form smart groups build, compiled into a WHERE clause over the
// metadata index:
//   (Name LIKE[cd] '*drum*') AND (AudioSampleRate > '44100') && (kMDItemContentTypeTree = "public.audio")
//
// Grammar, as NSPredicate reads it: comparisons `KEY OPERATOR VALUE` joined by AND/&&, OR/|| and
// NOT/!, with parentheses; AND binds tighter than OR, so "(a) OR (b) && (c)" is a OR (b AND c).
// Keywords are case-insensitive, keys are not. Values are numbers or strings in single or double quotes
// with backslash escapes (\' \" \\ \n \t \uXXXX).
// Operators: = (==), != (<>), >, <, >= (=>), <= (=<), LIKE (* any run, ? one character), BEGINSWITH,
// ENDSWITH, CONTAINS, the string ones with the modifiers [c], [d] or [cd]. The index keeps one folded form
// of each text (case folded and accents removed), so any modifier compares case- and
// diacritic-insensitively.
// Values compare by the key's type:
// - numbers numerically; "=" matches at the precision typed ("Duration = 2.5" is 2.45 <= d < 2.55) on
//   attributes that are not whole numbers or carry a scale; BEGINSWITH on a numeric pop-up attribute
//   (Key) means equality, since the pop-up offers whole values;
// - dates as the span they name: a day, a minute, a second ("2024-03-05" is that whole day, local
//   time), so "= day" is within the day, "> day" after it and "< day" before it. Accepted: ISO 8601,
//   "yyyy-MM-dd HH:mm[:ss]", "yyyy/MM/dd", "yyyy-MM", "yyyy", "5 March 2024", "March 5, 2024", the
//   system locale's short and long date forms, "today", "yesterday";
// - text by the operators above;
// - kMDItemContentTypeTree, a list of type identifiers: "=" is membership, BEGINSWITH/ENDSWITH match
//   any element.
// A comparison with a missing attribute (a folder's sample rate) is false, and NOT of it true.
//
// Immutable once parsed; copies may be used on any thread.
class TWPredicate {
public:
    // An error (LXErrInvalidParameter) names what is wrong and where, counting characters from 1:
    // "unexpected ')' at character 17", "unknown key 'Colour' at character 2".
    static LXResult<TWPredicate> parse(const QString& text);

    const QString& text() const { return m_text; }
    // An SQL boolean expression over the index's columns with one '?' per binding, in order.
    const QString& sqlWhere() const { return m_sql; }
    const QVariantList& bindings() const { return m_bindings; }
    // The parsed tree with every operation in parentheses, for logs and tests:
    // "(Name LIKE[cd] '*drum*' OR (AudioSampleRate > 44100 AND kMDItemContentTypeTree = 'public.audio'))"
    const QString& description() const { return m_description; }

    // The folded form of a text that case- and diacritic-insensitive comparisons use: compatibility
    // decomposition, combining marks removed, case folded. The index stores it beside each text.
    static QString foldText(const QString& text);

private:
    friend class TWPredicateParser;
    QString m_text;
    QString m_sql;
    QVariantList m_bindings;
    QString m_description;
};
