#pragma once

#include "engine/TWFileReport.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QVariantList>

#include <optional>

class TWWorkspace;

namespace TWCommandLine {
struct Context;
}

// Runs instructions on the work thread for the command line and waits for the end: a progress bar on
// stderr when it is a terminal, Ctrl-C to stop (the files done so far stay done and can be undone), a
// second Ctrl-C to cancel (the running action's in-place changes are put back).
namespace TWRunner {

// --quiet: no progress bar and no message but errors; --verbose: a line on stderr for each file.
enum class Verbosity { Quiet, Normal, Verbose };

// How the commands that run actions carry them out (--keep-going, --dry-run, --report FILE).
struct Options {
    bool keepGoing = false; // skip the files that cannot be read or processed, and list them at the end
    bool dryRun = false;    // say what would happen to each file, and write nothing
    QString reportPath;     // one JSON line per file and action; empty for none
    bool acceptReencode = false; // rewrite a codec that cannot be written back in plain samples
};

struct Outcome {
    QStringList results;          // the paths the actions produced, in order
    std::optional<QString> error; // the run's error, described
    QList<TWFileReport> reports;  // every file's, the files refused before the run first
    bool dryRun = false;          // results are what would be, and are not printed
};

// Adds the files (and the audio files of folders) to the workspace as the entries a run works on, in
// order, and returns the paths of those that can be read. refused receives a report of each path left
// out and each entry that cannot be read (missing, not audio, empty, damaged, no permission, on a
// read-only file system), whose note says why: "'/w/a.wav': the file is empty". Unless acceptReencode,
// a file whose codec cannot be written back is refused too, as the actions write the source's format.
QStringList addFiles(TWWorkspace& workspace, const QStringList& paths, QList<TWFileReport>& refused,
                     bool acceptReencode = false);

// Why the file at path cannot be read, in words: "'/w/notes.txt' is not an audio file",
// "'/w/b.flac': Cannot open the file: Permission denied".
QString reasonUnreadable(const QString& path);

// Without --keep-going a refused file ends the command before anything runs: says why, and returns the
// exit status.
int refuse(TWCommandLine::Context& context, const QList<TWFileReport>& refused);

// Runs the instructions with the session's run controller; verbose, says on stderr which file each
// action works on and which files it wrote. Files refused before the run come first in the report and
// the outcome.
Outcome run(TWCommandLine::Context& context, const QVariantList& instructions, const Options& options,
            const QList<TWFileReport>& refused = {});

// Tells the user the outcome: the results (in a dry run, what would happen to each file) on stdout;
// files left unchanged for a reason, clipped samples, the error and the files skipped on stderr.
// Returns the exit status.
int conclude(TWCommandLine::Context& context, const Outcome& outcome);

} // namespace TWRunner
