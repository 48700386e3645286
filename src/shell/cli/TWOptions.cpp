#include "shell/cli/TWOptions.h"

namespace TWCommandLine {

namespace {

constexpr qsizetype kLabelWidth = 32; // the help column of --help, as the action options have always had it
constexpr qsizetype kLineWidth = 80;

const Option* longOption(const QList<Option>& options, QStringView name) {
    for (const Option& option : options)
        if (option.name == name) return &option;
    return nullptr;
}

const Option* shortOption(const QList<Option>& options, QChar letter) {
    for (const Option& option : options)
        if (!option.shortName.isNull() && option.shortName == letter) return &option;
    return nullptr;
}

bool isNegativeNumber(const QString& argument) {
    if (argument.size() < 2 || !(argument.at(1).isDigit() || argument.at(1) == u'.')) return false;
    bool ok = false;
    (void)argument.toDouble(&ok);
    return ok;
}

QStringList wrapped(const QString& text, qsizetype width) {
    QStringList lines;
    QString line;
    for (const QString& word : text.split(u' ', Qt::SkipEmptyParts)) {
        if (!line.isEmpty() && line.size() + 1 + word.size() > width) {
            lines.append(line);
            line.clear();
        }
        line += (line.isEmpty() ? QString() : QStringLiteral(" ")) + word;
    }
    if (!line.isEmpty()) lines.append(line);
    return lines;
}

} // namespace

Option flag(const QString& name, const QString& help, QChar shortName) {
    return {name, help, Option::Value::None, {}, shortName};
}

Option valued(const QString& name, const QString& valueName, const QString& help) {
    return {name, help, Option::Value::Required, valueName};
}

bool Arguments::has(const QString& name) const {
    for (const auto& [given, value] : options)
        if (given == name) return true;
    return false;
}

QString Arguments::value(const QString& name) const {
    QString last;
    for (const auto& [given, value] : options)
        if (given == name) last = value;
    return last;
}

std::optional<Arguments> parseArguments(const QList<Option>& options, const QStringList& arguments,
                                        QString* error) {
    Arguments parsed;
    const auto refuse = [error](const QString& message) {
        *error = message;
        return std::nullopt;
    };
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments.at(i);
        if (argument == u"--") {
            parsed.operands += arguments.mid(i + 1);
            break;
        }
        if (argument == u"-")
            return refuse(QStringLiteral("'-' (standard input) is not read by this command: name the files"));
        if (!argument.startsWith(u'-') || isNegativeNumber(argument)) {
            parsed.operands.append(argument);
            continue;
        }
        if (argument.startsWith(u"--")) {
            const qsizetype equals = argument.indexOf(u'=');
            const QString name = argument.mid(2, equals < 0 ? -1 : equals - 2);
            const Option* option = longOption(options, name);
            if (!option) return refuse(QStringLiteral("unknown option '--%1'").arg(name));
            QString value;
            if (equals >= 0) {
                if (option->value == Option::Value::None)
                    return refuse(QStringLiteral("--%1 takes no value").arg(name));
                value = argument.mid(equals + 1);
            } else if (option->value == Option::Value::Required) {
                if (++i >= arguments.size())
                    return refuse(QStringLiteral("--%1 needs a value (%2)").arg(name, option->valueName));
                value = arguments.at(i);
            } else if (option->value == Option::Value::Optional && i + 1 < arguments.size() &&
                       option->isValue && option->isValue(arguments.at(i + 1))) {
                value = arguments.at(++i);
            }
            parsed.options.append({option->name, value});
            continue;
        }
        // Grouped letters: each a flag, but the last may take the rest of the word or the next argument.
        for (qsizetype letter = 1; letter < argument.size(); ++letter) {
            const Option* option = shortOption(options, argument.at(letter));
            if (!option) return refuse(QStringLiteral("unknown option '-%1'").arg(argument.at(letter)));
            QString value;
            if (option->value == Option::Value::Required) {
                value = argument.mid(letter + 1);
                if (value.isEmpty()) {
                    if (++i >= arguments.size())
                        return refuse(QStringLiteral("-%1 needs a value (%2)")
                                          .arg(option->shortName, option->valueName));
                    value = arguments.at(i);
                }
                letter = argument.size();
            }
            parsed.options.append({option->name, value});
        }
    }
    return parsed;
}

QString optionLabel(const Option& option) {
    QString label = option.shortName.isNull()
                        ? QStringLiteral("--") + option.name
                        : QStringLiteral("-%1, --%2").arg(option.shortName).arg(option.name);
    if (option.value == Option::Value::Required) label += u' ' + option.valueName;
    if (option.value == Option::Value::Optional) label += QStringLiteral(" [%1]").arg(option.valueName);
    return label;
}

QString describeOptions(const QList<Option>& options) {
    QString text;
    const QString indent(kLabelWidth + 1, u' ');
    for (const Option& option : options) {
        const QString label = QStringLiteral("  ") + optionLabel(option);
        const QStringList lines = wrapped(option.help, kLineWidth - indent.size());
        if (label.size() < kLabelWidth) {
            text += label.leftJustified(kLabelWidth) + u' ' + lines.value(0) + u'\n';
        } else {
            text += label + u'\n';
            if (!lines.isEmpty()) text += indent + lines.first() + u'\n';
        }
        for (qsizetype i = 1; i < lines.size(); ++i)
            text += indent + lines.at(i) + u'\n';
    }
    return text;
}

} // namespace TWCommandLine
