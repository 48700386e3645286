// clipwright --man: the manual page, written from the command and option tables that --help prints.

#include "shell/cli/TWCommandLine.h"

#include <QCoreApplication>

namespace TWCommandLine {

namespace {

// Text as roff takes it: backslashes and hyphens escaped (a hyphen would print as a dash that cannot be
// copied into a shell), and no line starting with a control character.
QString escaped(const QString& text) {
    QString roff = text;
    roff.replace(u'\\', QStringLiteral("\\e")).replace(u'-', QStringLiteral("\\-"));
    QStringList lines = roff.split(u'\n');
    for (QString& line : lines)
        if (line.startsWith(u'.') || line.startsWith(u'\'')) line.prepend(QStringLiteral("\\&"));
    return lines.join(u'\n');
}

// Paragraphs as --help lays them out: filled, except those whose lines are indented (tables, examples),
// which keep their lines.
QString paragraphs(const QString& text) {
    QString roff;
    for (const QString& paragraph : text.split(QStringLiteral("\n\n"), Qt::SkipEmptyParts)) {
        const QString body = escaped(paragraph.trimmed());
        if (paragraph.contains(QStringLiteral("\n ")))
            roff += QStringLiteral(".PP\n.nf\n") + body + QStringLiteral("\n.fi\n");
        else
            roff += QStringLiteral(".PP\n") + body + u'\n';
    }
    return roff;
}

QString optionItems(const QList<Option>& options) {
    QString roff;
    for (const Option& option : options) {
        QString label = QStringLiteral("\\fB\\-\\-%1\\fR").arg(escaped(option.name));
        if (!option.shortName.isNull())
            label.prepend(QStringLiteral("\\fB\\-%1\\fR, ").arg(option.shortName));
        if (option.value == Option::Value::Required)
            label += QStringLiteral(" \\fI%1\\fR").arg(escaped(option.valueName));
        else if (option.value == Option::Value::Optional)
            label += QStringLiteral(" [\\fI%1\\fR]").arg(escaped(option.valueName));
        roff += QStringLiteral(".TP\n") + label + u'\n' + escaped(option.help) + u'\n';
    }
    return roff;
}

QString synopsis(const QString& name, const QString& usage) {
    return QStringLiteral(".B %1\n%2\n.br\n").arg(escaped(name), escaped(usage));
}

} // namespace

QString manualPage() {
    const Command& clipwright = program();
    // Left-aligned and without hyphenation, which would break option names across lines.
    QString roff = QStringLiteral(".TH CLIPWRIGHT 1 \"\" \"Clipwright %1\" \"User Commands\"\n.ad l\n.nh\n")
                       .arg(QCoreApplication::applicationVersion());
    roff += QStringLiteral(".SH NAME\nclipwright \\- %1\n.SH SYNOPSIS\n").arg(escaped(clipwright.summary));
    roff += synopsis(QStringLiteral("clipwright"), clipwright.usage.first());
    QStringList unavailable;
    for (const Command& command : commands()) {
        if (!command.available) {
            unavailable.append(command.name);
            continue;
        }
        for (const QString& usage : command.usage)
            roff += synopsis(QStringLiteral("clipwright ") + command.name, usage);
    }
    roff += QStringLiteral(".SH DESCRIPTION\n") + paragraphs(clipwright.description) +
            paragraphs(clipwright.notes) + QStringLiteral(".SH OPTIONS\n") + optionItems(clipwright.options);
    roff += QStringLiteral(".SS Options of every command\n") + optionItems(commonOptions());

    roff += QStringLiteral(".SH COMMANDS\n");
    for (const Command& command : commands()) {
        if (!command.available) continue;
        roff += QStringLiteral(".SS %1\n").arg(escaped(command.name)) + paragraphs(command.description) +
                optionItems(command.options) + paragraphs(command.notes);
    }
    if (!unavailable.isEmpty())
        roff += QStringLiteral(".SS Not available in this version\n") +
                paragraphs(unavailable.join(QStringLiteral(", ")) + u'.');

    roff +=
        QStringLiteral(
            ".SH EXIT STATUS\n.TP\n%1\ndone\n.TP\n%2\na command failed (a line on stderr says why)\n"
            ".TP\n%3\na usage error: an unknown command or option, a missing value or file\n"
            ".TP\n%4\na run went on past files it could not read or process (\\fB\\-\\-keep\\-going\\fR), "
            "and listed them on stderr\n")
            .arg(kSuccess)
            .arg(kCommandFailed)
            .arg(kUsageError)
            .arg(kSomeSkipped);
    roff += QStringLiteral(
        ".SH FILES\n"
        ".TP\n\\fI~/.config/Clipwright/Clipwright.plist\\fR\n"
        "the preferences (\\fB$XDG_CONFIG_HOME\\fR, when set, instead of \\fI~/.config\\fR)\n"
        ".TP\n\\fI~/.local/share/Clipwright/Undo\\fR\n"
        "the earlier versions of the files changed in place, and the undo journal\n"
        ".TP\n\\fI~/.local/share/Clipwright/Workflows\\fR\n"
        "the user's workflows (\\fB$XDG_DATA_HOME\\fR, when set, instead of \\fI~/.local/share\\fR)\n"
        ".TP\n\\fI~/.cache/Clipwright\\fR\n"
        "analysis results, waveform overviews and the search index\n"
        ".SH SEE ALSO\n"
        ".BR sox (1),\n.BR ffmpeg (1)\n");
    return roff;
}

} // namespace TWCommandLine
