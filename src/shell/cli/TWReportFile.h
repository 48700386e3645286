#pragma once

#include "engine/TWFileReport.h"

#include <QFile>
#include <QString>

// --report FILE: one JSON object a line for each file and action, written as the run reports them, each
// line in one write, so that a run that is killed leaves only whole lines behind. Levels are dBFS
// numbers, null when silent or not measured (JSON has no infinity).
class TWReportFile {
public:
    bool open(const QString& path); // truncates
    QString errorString() const { return m_file.errorString(); }
    void write(const TWFileReport& report); // nothing when not open

    static QString outcomeName(TWFileReport::Outcome outcome); // "changed", "skipped", ...

private:
    QFile m_file;
};
