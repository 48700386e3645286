#pragma once

class TWInteraction;
class TWPreferences;
class TWUndoJournal;
class TWWorkspace;

// What the engine needs of the program around it, made once at start-up and handed in: the engine never
// fetches these from globals, so a test can run it against services of its own.
struct TWEngineContext {
    TWWorkspace& workspace;     // the tree that runs take their entries from and show their results in
    TWPreferences& preferences; // "Undo Enabled" and the after-run settings
    TWUndoJournal& journal;     // the undo steps of in-place runs, on disk
    TWInteraction& interaction; // questions to the user from a run (a name taken by another file)
};
