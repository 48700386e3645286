// clipwright plugins: the installed effects "process-with-audio-unit" can run, and one's parameters.

#include "shell/cli/TWCommandLine.h"

#include "lx/plugins/LXAudioUnitDescription.h"

namespace TWCommandLine {

namespace {

QString number(float value) {
    return QString::number(double(value), 'g', 6);
}

void describeParameters(const LXAudioUnitDescription& unit, QTextStream& out) {
    out << unit.name << " (" << unit.component << "), " << unit.audioInputs << " in, " << unit.audioOutputs
        << " out\n";
    for (const LXAudioUnitPort& port : unit.controlInputs()) {
        out << "  " << port.symbol << ": " << port.name << ", " << number(port.minimum) << " to "
            << number(port.maximum) << (port.unit.isEmpty() ? QString() : u' ' + port.unit) << ", default "
            << number(port.defaultValue);
        if (port.toggled) out << " (on 1, off 0)";
        QStringList named;
        for (const auto& [value, label] : port.scalePoints) named.append(number(value) + u'=' + label);
        if (!named.isEmpty()) out << " (" << named.join(QStringLiteral(", ")) << ')';
        out << '\n';
    }
}

} // namespace

Command pluginsCommand() {
    return {QStringLiteral("plugins"),
            QStringLiteral("list the installed LV2 effects, or one's parameters"),
            {QStringLiteral("[URI]")},
            QStringLiteral(
                "Without an argument, lists the LV2 effects that process-with-audio-unit can run, one a\n"
                "line: URI and name. With an effect's URI, lists its parameters: symbol, name, range,\n"
                "unit and default. The symbols are the keys of \"Parameters\" in its settings:\n"
                "  clipwright process-with-audio-unit --settings \\\n"
                "      '{\"Component\": \"http://drobilla.net/plugins/mda/DubDelay\",\n"
                "        \"Parameters\": {\"feedback\": 0.5}}' --retainTail take.wav\n"),
            {},
            {},
            [](const Arguments& arguments, Context& context) {
                if (arguments.operands.size() > 1)
                    return usageError(context, QStringLiteral("plugins"), "takes one URI at most");
                if (arguments.operands.size() == 1) {
                    const auto unit = LXFindAudioUnit(arguments.operands.first());
                    if (!unit) return fail(context, unit.error().message());
                    describeParameters(*unit, context.out);
                    return kSuccess;
                }
                for (const LXAudioUnitDescription& unit : LXInstalledAudioUnits())
                    context.out << unit.component << "  " << unit.name << '\n';
                return kSuccess;
            }};
}

} // namespace TWCommandLine
