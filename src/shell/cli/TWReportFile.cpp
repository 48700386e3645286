#include "shell/cli/TWReportFile.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

namespace {

QJsonValue decibels(const LXSignalMeter& meter, double level) {
    if (meter.samples() == 0 || !(level > 0.0)) return QJsonValue::Null;
    return 20.0 * std::log10(level);
}

QJsonValue nullIfEmpty(const QString& text) {
    return text.isEmpty() ? QJsonValue(QJsonValue::Null) : QJsonValue(text);
}

} // namespace

bool TWReportFile::open(const QString& path) {
    m_file.setFileName(path);
    return m_file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered);
}

QString TWReportFile::outcomeName(TWFileReport::Outcome outcome) {
    switch (outcome) {
    case TWFileReport::Outcome::Changed:
        return QStringLiteral("changed");
    case TWFileReport::Outcome::Unchanged:
        return QStringLiteral("unchanged");
    case TWFileReport::Outcome::Failed:
        return QStringLiteral("failed");
    case TWFileReport::Outcome::Skipped:
        return QStringLiteral("skipped");
    case TWFileReport::Outcome::Stopped:
        return QStringLiteral("stopped");
    case TWFileReport::Outcome::Cancelled:
        return QStringLiteral("cancelled");
    case TWFileReport::Outcome::Untried:
        return QStringLiteral("untried");
    }
    return {};
}

void TWReportFile::write(const TWFileReport& report) {
    if (!m_file.isOpen()) return;
    const QJsonObject line{
        {QStringLiteral("action"), nullIfEmpty(report.actionName)},
        {QStringLiteral("input"), report.input},
        {QStringLiteral("outputs"), QJsonArray::fromStringList(report.outputs)},
        {QStringLiteral("outcome"), outcomeName(report.outcome)},
        {QStringLiteral("dryRun"), report.dryRun},
        {QStringLiteral("note"), nullIfEmpty(report.note)},
        {QStringLiteral("leftBehind"), nullIfEmpty(report.lost)},
        {QStringLiteral("peakBefore"), decibels(report.before, report.before.peak())},
        {QStringLiteral("rmsBefore"), decibels(report.before, report.before.rms())},
        {QStringLiteral("peakAfter"), decibels(report.after, report.after.peak())},
        {QStringLiteral("rmsAfter"), decibels(report.after, report.after.rms())},
        {QStringLiteral("clipped"), qint64(report.after.clipped())},
        {QStringLiteral("seconds"), report.seconds},
    };
    m_file.write(QJsonDocument(line).toJson(QJsonDocument::Compact) + '\n');
}
