#pragma once

#include "lx/dsp/LXSignalMeter.h"

#include <QString>
#include <QStringList>

// What became of one file in one action, as the run reports it once the file is done: plain values,
// since reports cross from the work thread to the front end, which shows them, lists the files skipped
// or writes them down.
struct TWFileReport {
    // Untried: a dry run of an action that cannot run without writing (it combines, renames, hands on).
    enum class Outcome { Changed, Unchanged, Failed, Skipped, Stopped, Cancelled, Untried };

    QString actionName;  // empty for a file refused before any action ran
    QString input;       // the file's path as the action found it
    QStringList outputs; // the files it became (in place, its own path); in a dry run, would become
    Outcome outcome = Outcome::Unchanged;
    bool dryRun = false; // nothing was written: the report says what a run would do
    QString note; // what the action did ("gain +3.01 dB"), why it left the file alone, or why it failed
    QString lost; // what the output could not keep of the source ("labels, title")
    LXSignalMeter before; // the file's levels, when the run measures them (otherwise no samples)
    LXSignalMeter after;  // what the outputs hold (clipped samples included), or would hold
    double seconds = 0.0;
};
