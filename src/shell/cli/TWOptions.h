#pragma once

#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

// The options of the command line, declared once per command: the parser reads arguments against them,
// and --help, the manual page and the shell completions are written from them.
namespace TWCommandLine {

struct Option {
    enum class Value { None, Required, Optional };

    QString name; // "json", given as --json
    QString help; // one sentence, not wrapped
    Value value = Value::None;
    QString valueName = {}; // "DIR", "NUMBER"
    QChar shortName = {};   // 'q' for -q; none when null
    // For an optional value: whether the next argument is the value ("--rms no") rather than a file
    // ("--rms take.wav"). "--rms=no" always gives one.
    std::function<bool(const QString&)> isValue = {};
};

// The usual kinds: a flag ("--json", "-q") and an option with a value ("--directory DIR").
Option flag(const QString& name, const QString& help, QChar shortName = {});
Option valued(const QString& name, const QString& valueName, const QString& help);

// A command's arguments, read against its options.
struct Arguments {
    QList<QPair<QString, QString>> options; // name and value, in the order given; a flag's value is empty
    QStringList operands;                   // the files and other words, "--" taken out

    bool has(const QString& name) const;
    QString value(const QString& name) const; // the last one given
};

// Options are "--name", "--name VALUE", "--name=VALUE", "-x" (letters may be grouped: "-qh"), anywhere
// among the operands; "--" ends them. A negative number is an operand, as no option is a digit. A lone
// "-" (standard input, which no command reads) and an option not in the list are usage errors: nothing
// is returned and error says which argument.
std::optional<Arguments> parseArguments(const QList<Option>& options, const QStringList& arguments,
                                        QString* error);

QString optionLabel(const Option& option); // "-q, --quiet", "--level NUMBER", "--rms [BOOLEAN]"
// The options as --help lists them: the label, then the help wrapped to 80 columns.
QString describeOptions(const QList<Option>& options);

} // namespace TWCommandLine
