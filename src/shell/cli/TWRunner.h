#pragma once

#include <QString>
#include <QStringList>
#include <QTextStream>
#include <QVariantList>

#include <optional>

class TWRunController;
class TWWorkspace;

// Runs instructions on the work thread for the command line and waits for the end: a progress bar on
// stderr when it is a terminal, Ctrl-C to stop (the files done so far stay done and can be undone), a
// second Ctrl-C to cancel (the running action's in-place changes are put back).
namespace TWRunner {

// --quiet: no progress bar and no message but errors; --verbose: a line on stderr for each file.
enum class Verbosity { Quiet, Normal, Verbose };

struct Outcome {
    QStringList results;          // the paths the actions produced, in order
    std::optional<QString> error; // the run's error, described
};

// Adds the files (and the audio files of folders) to the workspace as the entries a run works on, in
// order, and returns their paths. Paths that do not exist or are not audio are reported on err and
// clear allAdmitted.
QStringList addFiles(TWWorkspace& workspace, const QStringList& paths, QTextStream& err, bool* allAdmitted);

// Verbose, says on err which file each action works on and which files it wrote.
Outcome run(TWRunController& runs, const QVariantList& instructions, Verbosity verbosity, QTextStream& err);

} // namespace TWRunner
