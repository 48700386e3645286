#include "platform/TWPredicate.h"

#include "platform/TWPropertyList.h"

#include <QDateTime>
#include <QFile>
#include <QLocale>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QtDebug>
#include <cmath>
#include <optional>

// A static library drops the resource's initialiser unless something refers to it.
static void initPlatformResources() {
    Q_INIT_RESOURCE(platform);
}

namespace {

enum class ValueType { Text, Number, Date, Tree };

// The index's column behind each key. `folded` is the column holding foldText() of the text; `whole`
// marks columns that hold whole numbers, where "=" needs no tolerance.
struct Attribute {
    const char* key;
    const char* column;
    const char* folded;
    ValueType type;
    bool whole;
};

constexpr Attribute kAttributes[] = {
    {"Name", "name", "name_f", ValueType::Text, false},
    {"Kind", "kind", nullptr, ValueType::Text, false},
    {"kMDItemContentTypeTree", "types", nullptr, ValueType::Tree, false},
    {"ContentCreationDate", "created", nullptr, ValueType::Date, false},
    {"ContentModificationDate", "modified", nullptr, ValueType::Date, false},
    {"FSSize", "size", nullptr, ValueType::Number, true},
    {"Duration", "duration", nullptr, ValueType::Number, false},
    {"AudioSampleRate", "rate", nullptr, ValueType::Number, false},
    {"AudioChannelCount", "channels", nullptr, ValueType::Number, true},
    {"AudioBitDepth", "bits", nullptr, ValueType::Number, true},
    {"Tempo", "tempo", nullptr, ValueType::Number, false},
    {"KeySignature", "root_key", nullptr, ValueType::Number, true},
    {"BaseNote", "base_note", nullptr, ValueType::Number, true},
    {"Title", "title", "title_f", ValueType::Text, false},
    {"Artist", "artist", "artist_f", ValueType::Text, false},
    {"Album", "album", "album_f", ValueType::Text, false},
    {"Genre", "genre", "genre_f", ValueType::Text, false},
    {"Comment", "comments", "comments_f", ValueType::Text, false},
    {"Description", "description", "description_f", ValueType::Text, false},
    {"Peak", "peak", nullptr, ValueType::Number, false},
    {"RMS", "rms", nullptr, ValueType::Number, false},
    {"Loudness", "loudness", nullptr, ValueType::Number, false},
    {"LoudnessRange", "loudness_range", nullptr, ValueType::Number, false},
    {"TruePeak", "true_peak", nullptr, ValueType::Number, false},
};

const Attribute* attributeForKey(const QString& key) {
    for (const Attribute& a : kAttributes)
        if (key == QLatin1String(a.key)) return &a;
    return nullptr;
}

QVariantList readMenuItems(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        qWarning("Cannot read the query keys '%s': %s", qPrintable(path), qPrintable(file.errorString()));
        return {};
    }
    const auto plist = TWPropertyList::fromData(file.readAll(), path);
    if (!plist) {
        qWarning("Cannot read the query keys: %s", qPrintable(plist.error().description()));
        return {};
    }
    QVariantList items;
    for (const QVariant& item : plist->toList()) {
        const QVariantMap map = item.toMap();
        const QString key = map.value(QStringLiteral("key")).toString();
        if (attributeForKey(key))
            items.append(map);
        else
            qWarning("The query keys '%s' name '%s', which the index does not hold", qPrintable(path),
                     qPrintable(key));
    }
    return items;
}

QVariantList loadMenuItems() {
    const QString local = QStandardPaths::locate(QStandardPaths::GenericDataLocation,
                                                 QStringLiteral("clipwright/query_keys.xml"));
    if (!local.isEmpty()) {
        QVariantList items = readMenuItems(local);
        if (!items.isEmpty()) return items;
    }
    initPlatformResources();
    return readMenuItems(QStringLiteral(":/query_keys.xml"));
}

QVariantMap menuItemForKey(const QString& key) {
    for (const QVariant& item : TWQueryKeys::menuItems()) {
        const QVariantMap map = item.toMap();
        if (map.value(QStringLiteral("key")).toString() == key) return map;
    }
    return {};
}

// ---- Dates

struct Span {
    double start = 0; // seconds since the epoch
    double end = 0;   // exclusive
};

enum class Grain { Year, Month, Day, Minute, Second, Millisecond };

Span spanFrom(const QDateTime& start, Grain grain) {
    QDateTime end;
    switch (grain) {
    case Grain::Year:
        end = start.addYears(1);
        break;
    case Grain::Month:
        end = start.addMonths(1);
        break;
    case Grain::Day:
        end = start.addDays(1);
        break;
    case Grain::Minute:
        end = start.addSecs(60);
        break;
    case Grain::Second:
        end = start.addSecs(1);
        break;
    case Grain::Millisecond:
        end = start.addMSecs(1);
        break;
    }
    return {double(start.toMSecsSinceEpoch()) / 1000.0, double(end.toMSecsSinceEpoch()) / 1000.0};
}

Grain grainOfFormat(const QString& format) {
    if (format.contains(u'z')) return Grain::Millisecond;
    if (format.contains(u's')) return Grain::Second;
    if (format.contains(u'm')) return Grain::Minute;
    if (format.contains(u'd')) return Grain::Day;
    if (format.contains(u'M')) return Grain::Month;
    return Grain::Year;
}

// Formats a user types, in the C locale (English month names).
const QStringList& typedFormats() {
    static const QStringList formats = [] {
        const QStringList dates = {"yyyy-MM-dd",   "yyyy/MM/dd",  "yyyy.MM.dd",  "d MMMM yyyy", "d MMM yyyy",
                                   "MMMM d, yyyy", "MMM d, yyyy", "MMMM d yyyy", "MMM d yyyy"};
        const QStringList times = {"", " HH:mm", " HH:mm:ss", " h:mm AP", " h:mm:ss AP"};
        QStringList all;
        for (const QString& date : dates)
            for (const QString& time : times)
                all.append(date + time);
        all += QStringList{"yyyy-MM", "yyyy"};
        return all;
    }();
    return formats;
}

std::optional<Span> dateSpan(const QString& raw) {
    const QString text = raw.simplified();
    const QString lower = text.toLower();
    const QDate today = QDate::currentDate();
    if (lower == u"today") return spanFrom(today.startOfDay(), Grain::Day);
    if (lower == u"yesterday") return spanFrom(today.addDays(-1).startOfDay(), Grain::Day);
    if (lower == u"tomorrow") return spanFrom(today.addDays(1).startOfDay(), Grain::Day);

    // ISO 8601 with a time and perhaps a zone: "2024-03-05T14:30:00.250+01:00".
    static const QRegularExpression iso(
        QStringLiteral(R"(^\d{4}-\d{2}-\d{2}[T ]\d{2}:\d{2}(:\d{2}(\.\d+)?)?(Z|[+-]\d{2}(:?\d{2})?)?$)"));
    if (const auto m = iso.match(text); m.hasMatch()) {
        QString normalised = text;
        normalised[10] = u'T';
        const QDateTime dt = QDateTime::fromString(normalised, Qt::ISODateWithMs);
        if (dt.isValid()) {
            const Grain grain = m.capturedLength(2)   ? Grain::Millisecond
                                : m.capturedLength(1) ? Grain::Second
                                                      : Grain::Minute;
            return spanFrom(dt, grain);
        }
    }
    const QLocale c = QLocale::c();
    for (const QString& format : typedFormats()) {
        const QDateTime dt = c.toDateTime(text, format);
        if (dt.isValid()) return spanFrom(dt, grainOfFormat(format));
    }
    // The user's own conventions, with two- and four-digit years.
    const QLocale system = QLocale::system();
    for (const auto type : {QLocale::ShortFormat, QLocale::LongFormat}) {
        QDateTime dt = system.toDateTime(text, type);
        if (dt.isValid()) return spanFrom(dt, grainOfFormat(system.dateTimeFormat(type)));
        QString dateFormat = system.dateFormat(type);
        QDate date = system.toDate(text, dateFormat);
        if (!date.isValid() && !dateFormat.contains(QStringLiteral("yyyy"))) {
            dateFormat.replace(QStringLiteral("yy"), QStringLiteral("yyyy"));
            date = system.toDate(text, dateFormat);
        }
        if (date.isValid()) return spanFrom(date.startOfDay(), Grain::Day);
    }
    return std::nullopt;
}

// ---- Numbers

struct Number {
    double value = 0;
    int decimals = 0; // digits typed after the decimal separator
};

std::optional<Number> parseNumber(const QString& raw) {
    const QString text = raw.trimmed();
    bool ok = false;
    double value = QLocale::c().toDouble(text, &ok);
    QChar separator = u'.';
    if (!ok) {
        value = QLocale::system().toDouble(text, &ok);
        separator = QLocale::system().decimalPoint().at(0);
    }
    if (!ok || !std::isfinite(value)) return std::nullopt;
    Number n{value, 0};
    const qsizetype point = text.indexOf(separator);
    if (point >= 0) {
        qsizetype i = point + 1;
        while (i < text.size() && text.at(i).isDigit())
            ++i;
        n.decimals = int(i - point - 1);
    }
    return n;
}

// ---- Text patterns (SQLite GLOB: case-sensitive, '*', '?' and '[...]')

QString globEscaped(const QString& text) {
    QString out;
    out.reserve(text.size() + 8);
    for (const QChar c : text) {
        if (c == u'*' || c == u'?' || c == u'[') {
            out += u'[';
            out += c;
            out += u']';
        } else {
            out += c;
        }
    }
    return out;
}

// LIKE's '*' and '?' stay wildcards; a backslash makes the next character literal.
QString globFromLike(const QString& pattern) {
    QString out;
    for (qsizetype i = 0; i < pattern.size(); ++i) {
        const QChar c = pattern.at(i);
        if (c == u'\\' && i + 1 < pattern.size())
            out += globEscaped(QString(pattern.at(++i)));
        else if (c == u'*' || c == u'?')
            out += c;
        else
            out += globEscaped(QString(c));
    }
    return out;
}

// ---- Tokens

enum class Tok { End, LParen, RParen, And, Or, Not, True, False, Key, String, Number, Operator };

struct Token {
    Tok type = Tok::End;
    qsizetype pos = 0; // index of the first character
    QString text;      // the key, the string's value, the number as typed, the operator (upper case)
    QString modifiers; // "c", "d", "cd" after an operator
};

QString quoted(const QString& text) {
    QString escaped = text;
    escaped.replace(u'\\', QStringLiteral("\\\\")).replace(u'\'', QStringLiteral("\\'"));
    return u'\'' + escaped + u'\'';
}

} // namespace

const QVariantList& TWQueryKeys::menuItems() {
    static const QVariantList items = loadMenuItems();
    return items;
}

QStringList TWQueryKeys::keys() {
    QStringList keys;
    for (const QVariant& item : menuItems())
        keys.append(item.toMap().value(QStringLiteral("key")).toString());
    return keys;
}

QString TWPredicate::foldText(const QString& text) {
    const QList<uint> decomposed = text.normalized(QString::NormalizationForm_KD).toUcs4();
    QList<uint> kept;
    kept.reserve(decomposed.size());
    for (const uint c : decomposed)
        if (QChar::category(char32_t(c)) != QChar::Mark_NonSpacing &&
            QChar::category(char32_t(c)) != QChar::Mark_SpacingCombining &&
            QChar::category(char32_t(c)) != QChar::Mark_Enclosing)
            kept.append(c);
    return QString::fromUcs4(reinterpret_cast<const char32_t*>(kept.constData()), kept.size()).toCaseFolded();
}

class TWPredicateParser {
public:
    explicit TWPredicateParser(const QString& text) : m_text(text) {}

    LXResult<TWPredicate> run() {
        if (!advance()) return failure();
        if (m_tok.type == Tok::End) return fail(QStringLiteral("the predicate is empty"));
        Fragment f;
        if (!parseOr(&f)) return failure();
        if (m_tok.type != Tok::End) return fail(unexpected());
        TWPredicate predicate;
        predicate.m_text = m_text;
        predicate.m_sql = f.sql;
        predicate.m_bindings = f.bindings;
        predicate.m_description = f.description;
        return predicate;
    }

private:
    struct Fragment {
        QString sql;
        QVariantList bindings;
        QString description;
    };

    LXError failure() const { return LXError(LXErrInvalidParameter, m_error); }
    LXError fail(const QString& message) {
        m_error = message;
        return failure();
    }
    bool error(const QString& message) {
        m_error = message;
        return false;
    }
    static QString at(qsizetype pos) { return QStringLiteral(" at character %1").arg(pos + 1); }

    QString describe(const Token& t) const {
        switch (t.type) {
        case Tok::End:
            return QStringLiteral("end of the predicate");
        case Tok::String:
            return QStringLiteral("the string %1").arg(quoted(t.text));
        case Tok::Number:
            return QStringLiteral("the number %1").arg(t.text);
        default:
            return u'\'' + m_text.mid(t.pos, m_end - t.pos) + u'\'';
        }
    }
    QString unexpected() const {
        if (m_tok.type == Tok::End) return QStringLiteral("unexpected end of the predicate");
        return QStringLiteral("unexpected %1%2").arg(describe(m_tok), at(m_tok.pos));
    }

    // ---- Lexer: reads the token at m_pos into m_tok.
    bool advance() {
        const QString& s = m_text;
        qsizetype i = m_pos;
        while (i < s.size() && s.at(i).isSpace())
            ++i;
        m_tok = Token{};
        m_tok.pos = i;
        if (i >= s.size()) {
            m_pos = m_end = i;
            return true;
        }
        const QChar c = s.at(i);
        auto next = [&](qsizetype k) { return i + k < s.size() ? s.at(i + k) : QChar(); };
        auto finish = [&](Tok type, qsizetype length) {
            m_tok.type = type;
            m_pos = m_end = i + length;
            return true;
        };
        if (c == u'(') return finish(Tok::LParen, 1);
        if (c == u')') return finish(Tok::RParen, 1);
        if (c == u'&' && next(1) == u'&') return finish(Tok::And, 2);
        if (c == u'|' && next(1) == u'|') return finish(Tok::Or, 2);
        if (c == u'!' && next(1) != u'=') return finish(Tok::Not, 1);
        if (c == u'=' || c == u'<' || c == u'>' || c == u'!') {
            static const char* const kOperators[][2] = {
                {"==", "="},  {"=>", ">="}, {"=<", "<="}, {">=", ">="}, {"<=", "<="},
                {"!=", "!="}, {"<>", "!="}, {"=", "="},   {"<", "<"},   {">", ">"}};
            for (const auto& op : kOperators) {
                const QLatin1String spelling(op[0]);
                if (QStringView(s).mid(i).startsWith(spelling)) {
                    m_tok.text = QLatin1String(op[1]);
                    finish(Tok::Operator, spelling.size());
                    return readModifiers();
                }
            }
        }
        if (c == u'\'' || c == u'"') return readString(c);
        if (c.isDigit() || ((c == u'-' || c == u'+' || c == u'.') && (next(1).isDigit() || next(1) == u'.')))
            return readNumber();
        if (c.isLetter() || c == u'_' || c == u'$') {
            qsizetype j = i + 1;
            while (j < s.size() &&
                   (s.at(j).isLetterOrNumber() || s.at(j) == u'_' || s.at(j) == u'$' || s.at(j) == u'.'))
                ++j;
            const QString word = s.mid(i, j - i);
            const QString upper = word.toUpper();
            m_pos = m_end = j;
            if (upper == u"AND")
                m_tok.type = Tok::And;
            else if (upper == u"OR")
                m_tok.type = Tok::Or;
            else if (upper == u"NOT")
                m_tok.type = Tok::Not;
            else if (upper == u"TRUEPREDICATE")
                m_tok.type = Tok::True;
            else if (upper == u"FALSEPREDICATE")
                m_tok.type = Tok::False;
            else if (upper == u"LIKE" || upper == u"BEGINSWITH" || upper == u"ENDSWITH" ||
                     upper == u"CONTAINS") {
                m_tok.type = Tok::Operator;
                m_tok.text = upper;
                return readModifiers();
            } else if (upper == u"MATCHES" || upper == u"IN" || upper == u"BETWEEN" || upper == u"ANY" ||
                       upper == u"ALL" || upper == u"SOME" || upper == u"NONE") {
                return error(QStringLiteral("'%1' is not supported%2").arg(word, at(i)));
            } else {
                m_tok.type = Tok::Key;
                m_tok.text = word;
            }
            return true;
        }
        return error(QStringLiteral("unexpected character '%1'%2").arg(c).arg(at(i)));
    }

    bool readModifiers() {
        if (m_pos >= m_text.size() || m_text.at(m_pos) != u'[') return true;
        const qsizetype close = m_text.indexOf(u']', m_pos);
        if (close < 0) return error(QStringLiteral("unclosed '[' after %1%2").arg(m_tok.text, at(m_pos)));
        const QString mods = m_text.mid(m_pos + 1, close - m_pos - 1);
        for (const QChar m : mods)
            if (m != u'c' && m != u'd' && m != u'n')
                return error(QStringLiteral("unknown modifier '%1' in '%2'%3")
                                 .arg(m)
                                 .arg(m_text.mid(m_tok.pos, close + 1 - m_tok.pos), at(m_tok.pos)));
        m_tok.modifiers = mods;
        m_pos = m_end = close + 1;
        return true;
    }

    bool readString(QChar quote) {
        const QString& s = m_text;
        QString value;
        qsizetype i = m_tok.pos + 1;
        while (i < s.size() && s.at(i) != quote) {
            QChar c = s.at(i);
            if (c == u'\\' && i + 1 < s.size()) {
                const QChar e = s.at(++i);
                if (e == u'n')
                    value += u'\n';
                else if (e == u't')
                    value += u'\t';
                else if (e == u'r')
                    value += u'\r';
                else if (e == u'\'' || e == u'"' || e == u'\\')
                    value += e;
                else if (e == u'u' && i + 4 < s.size()) {
                    bool ok = false;
                    const ushort code = s.mid(i + 1, 4).toUShort(&ok, 16);
                    if (!ok)
                        return error(QStringLiteral("bad escape '\\u%1'%2").arg(s.mid(i + 1, 4), at(i - 1)));
                    value += QChar(code);
                    i += 4;
                } else {
                    // LIKE patterns use "\*" and "\?" for literal wildcards: keep such escapes.
                    value += u'\\';
                    value += e;
                }
                ++i;
                continue;
            }
            value += c;
            ++i;
        }
        if (i >= s.size()) return error(QStringLiteral("unterminated string starting%1").arg(at(m_tok.pos)));
        m_tok.type = Tok::String;
        m_tok.text = value;
        m_pos = m_end = i + 1;
        return true;
    }

    bool readNumber() {
        static const QRegularExpression number(QStringLiteral(R"([-+]?(\d+\.?\d*|\.\d+)([eE][-+]?\d+)?)"));
        const auto m = number.match(m_text, m_tok.pos, QRegularExpression::NormalMatch,
                                    QRegularExpression::AnchorAtOffsetMatchOption);
        if (!m.hasMatch()) return error(QStringLiteral("malformed number%1").arg(at(m_tok.pos)));
        m_tok.type = Tok::Number;
        m_tok.text = m.captured(0);
        m_pos = m_end = m_tok.pos + m.capturedLength(0);
        return true;
    }

    // ---- Grammar
    bool parseOr(Fragment* out) {
        if (!parseAnd(out)) return false;
        while (m_tok.type == Tok::Or) {
            if (!advance()) return false;
            Fragment right;
            if (!parseAnd(&right)) return false;
            join(out, right, QStringLiteral("OR"));
        }
        return true;
    }

    bool parseAnd(Fragment* out) {
        if (!parseUnary(out)) return false;
        while (m_tok.type == Tok::And) {
            if (!advance()) return false;
            Fragment right;
            if (!parseUnary(&right)) return false;
            join(out, right, QStringLiteral("AND"));
        }
        return true;
    }

    static void join(Fragment* left, const Fragment& right, const QString& op) {
        left->sql = QStringLiteral("(%1 %2 %3)").arg(left->sql, op, right.sql);
        left->bindings += right.bindings;
        left->description = QStringLiteral("(%1 %2 %3)").arg(left->description, op, right.description);
    }

    // Parentheses and NOTs recurse; a bound keeps a hostile predicate from exhausting the stack, and
    // one on comparisons keeps the SQL within SQLite's expression depth (each AND or OR nests one more).
    static constexpr int kMaximumNesting = 100;
    static constexpr int kMaximumComparisons = 500;

    bool enter(qsizetype position) {
        if (++m_nesting <= kMaximumNesting) return true;
        return error(QStringLiteral("nested more than %1 deep%2").arg(kMaximumNesting).arg(at(position)));
    }

    bool parseUnary(Fragment* out) {
        if (m_tok.type == Tok::Not) {
            if (!enter(m_tok.pos) || !advance() || !parseUnary(out)) return false;
            --m_nesting;
            out->sql = QStringLiteral("(NOT %1)").arg(out->sql);
            out->description = QStringLiteral("(NOT %1)").arg(out->description);
            return true;
        }
        return parsePrimary(out);
    }

    bool parsePrimary(Fragment* out) {
        switch (m_tok.type) {
        case Tok::LParen: {
            const qsizetype open = m_tok.pos;
            if (!enter(open) || !advance() || !parseOr(out)) return false;
            --m_nesting;
            if (m_tok.type != Tok::RParen) {
                if (m_tok.type == Tok::End)
                    return error(QStringLiteral("missing ')' to close the '('%1").arg(at(open)));
                return error(
                    QStringLiteral("expected ')' but found %1%2").arg(describe(m_tok), at(m_tok.pos)));
            }
            return advance();
        }
        case Tok::True:
        case Tok::False:
            out->sql = m_tok.type == Tok::True ? QStringLiteral("1") : QStringLiteral("0");
            out->description =
                m_tok.type == Tok::True ? QStringLiteral("TRUEPREDICATE") : QStringLiteral("FALSEPREDICATE");
            return advance();
        case Tok::Key:
            return parseComparison(out);
        default:
            return error(unexpected());
        }
    }

    bool parseComparison(Fragment* out) {
        const Token key = m_tok;
        if (++m_comparisons > kMaximumComparisons)
            return error(QStringLiteral("more than %1 comparisons%2").arg(kMaximumComparisons).arg(at(key.pos)));
        const Attribute* attribute = attributeForKey(key.text);
        const QVariantMap item = menuItemForKey(key.text);
        if (!attribute || item.isEmpty())
            return error(QStringLiteral("unknown key '%1'%2").arg(key.text, at(key.pos)));
        if (!advance()) return false;
        if (m_tok.type != Tok::Operator)
            return error(
                QStringLiteral("expected an operator after '%1' but found %2%3")
                    .arg(key.text, describe(m_tok), m_tok.type == Tok::End ? QString() : at(m_tok.pos)));
        const Token op = m_tok;
        const QString opSpelling = m_text.mid(op.pos, m_end - op.pos);
        if (!advance()) return false;
        if (m_tok.type != Tok::String && m_tok.type != Tok::Number)
            return error(QStringLiteral("expected a value after '%1 %2' but found %3%4")
                             .arg(key.text, opSpelling, describe(m_tok),
                                  m_tok.type == Tok::End ? QString() : at(m_tok.pos)));
        const Token value = m_tok;
        Comparison c{*attribute, item, key, op, value};
        if (!compile(c, out)) return false;
        out->description =
            QStringLiteral("%1 %2%3 %4")
                .arg(key.text, op.text, op.modifiers.isEmpty() ? QString() : u'[' + op.modifiers + u']',
                     value.type == Tok::String ? quoted(value.text) : value.text);
        return advance();
    }

    struct Comparison {
        const Attribute& attribute;
        const QVariantMap& item;
        const Token& key;
        const Token& op;
        const Token& value;
    };

    bool notApplicable(const Comparison& c, const QString& what) {
        const QString spelling =
            c.op.text + (c.op.modifiers.isEmpty() ? QString() : u'[' + c.op.modifiers + u']');
        return error(
            QStringLiteral("%1 does not apply to %2, %3%4").arg(spelling, c.key.text, what, at(c.op.pos)));
    }

    // Each comparison is wrapped so that a missing value (NULL) compares false rather than unknown,
    // which NOT would otherwise carry through.
    bool compile(const Comparison& c, Fragment* out) {
        const QString& op = c.op.text;
        const QString column = QLatin1String(c.attribute.column);
        auto simple = [&](const QString& expression, const QVariantList& bindings) {
            out->sql = QStringLiteral("COALESCE(%1, 0)").arg(expression);
            out->bindings = bindings;
            return true;
        };
        auto negated = [&](const QString& expression, const QVariantList& bindings) {
            out->sql = QStringLiteral("(NOT COALESCE(%1, 0))").arg(expression);
            out->bindings = bindings;
            return true;
        };

        switch (c.attribute.type) {
        case ValueType::Text: {
            // Columns without a folded form (Kind) hold lower-case identifiers.
            const bool fold = !c.op.modifiers.isEmpty();
            const QString col = fold && c.attribute.folded ? QLatin1String(c.attribute.folded) : column;
            const QString v = !fold                ? c.value.text
                              : c.attribute.folded ? TWPredicate::foldText(c.value.text)
                                                   : c.value.text.toLower();
            if (op == u"=") return simple(col + QStringLiteral(" = ?"), {v});
            if (op == u"!=") return negated(col + QStringLiteral(" = ?"), {v});
            if (op == u"LIKE") return simple(col + QStringLiteral(" GLOB ?"), {globFromLike(v)});
            if (op == u"BEGINSWITH") return simple(col + QStringLiteral(" GLOB ?"), {globEscaped(v) + u'*'});
            if (op == u"ENDSWITH") return simple(col + QStringLiteral(" GLOB ?"), {u'*' + globEscaped(v)});
            if (op == u"CONTAINS")
                return simple(col + QStringLiteral(" GLOB ?"), {u'*' + globEscaped(v) + u'*'});
            return notApplicable(c, QStringLiteral("a text"));
        }
        case ValueType::Tree: {
            // The column holds "|type|type|...|" in lower case.
            const QString v = c.op.modifiers.isEmpty() ? c.value.text : c.value.text.toLower();
            if (v.contains(u'|'))
                return error(QStringLiteral("a type identifier cannot contain '|'%1").arg(at(c.value.pos)));
            const QString in = QStringLiteral("instr(%1, ?) > 0").arg(column);
            if (op == u"=") return simple(in, {u'|' + v + u'|'});
            if (op == u"!=") return negated(in, {u'|' + v + u'|'});
            if (op == u"BEGINSWITH") return simple(in, {u'|' + v});
            if (op == u"ENDSWITH") return simple(in, {v + u'|'});
            if (op == u"CONTAINS") return simple(in, {v});
            return notApplicable(c, QStringLiteral("a list of types"));
        }
        case ValueType::Number: {
            const bool popUp = c.item.value(QStringLiteral("class")).toString() == u"NSArray";
            const bool byValue =
                op == u"=" || op == u"!=" || op == u">" || op == u"<" || op == u">=" || op == u"<=";
            if (!byValue && !(op == u"BEGINSWITH" && popUp && c.op.modifiers.isEmpty()))
                return notApplicable(c, QStringLiteral("a number"));
            const std::optional<Number> n = parseNumber(c.value.text);
            if (!n)
                return error(QStringLiteral("%1 is not a number, as %2 needs%3")
                                 .arg(quoted(c.value.text), c.key.text, at(c.value.pos)));
            const double scale = c.item.value(QStringLiteral("scale"), 1.0).toDouble();
            const double v = n->value * scale;
            QString equal = column + QStringLiteral(" = ?");
            QVariantList equalBindings = {v};
            if (!c.attribute.whole || scale != 1.0) {
                const double half = 0.5 * std::pow(10.0, -n->decimals) * scale;
                equal = QStringLiteral("(%1 >= ? AND %1 < ?)").arg(column);
                equalBindings = {v - half, v + half};
            }
            if (op == u"=" || (op == u"BEGINSWITH" && popUp && c.op.modifiers.isEmpty()))
                return simple(equal, equalBindings);
            if (op == u"!=") return negated(equal, equalBindings);
            return simple(QStringLiteral("%1 %2 ?").arg(column, op), {v});
        }
        case ValueType::Date: {
            if (op == u"LIKE" || op == u"BEGINSWITH" || op == u"ENDSWITH" || op == u"CONTAINS")
                return notApplicable(c, QStringLiteral("a date"));
            const std::optional<Span> span = dateSpan(c.value.text);
            if (!span)
                return error(QStringLiteral("%1 is not a date, as %2 needs%3")
                                 .arg(quoted(c.value.text), c.key.text, at(c.value.pos)));
            const QString within = QStringLiteral("(%1 >= ? AND %1 < ?)").arg(column);
            if (op == u"=") return simple(within, {span->start, span->end});
            if (op == u"!=") return negated(within, {span->start, span->end});
            if (op == u">") return simple(column + QStringLiteral(" >= ?"), {span->end});
            if (op == u">=") return simple(column + QStringLiteral(" >= ?"), {span->start});
            if (op == u"<") return simple(column + QStringLiteral(" < ?"), {span->start});
            return simple(column + QStringLiteral(" < ?"), {span->end}); // <=
        }
        }
        return false;
    }

    QString m_text;
    qsizetype m_pos = 0; // where the lexer continues
    int m_nesting = 0;
    int m_comparisons = 0;
    qsizetype m_end = 0; // end of the current token
    Token m_tok;
    QString m_error;
};

LXResult<TWPredicate> TWPredicate::parse(const QString& text) {
    return TWPredicateParser(text).run();
}
