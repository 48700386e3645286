#pragma once

#include <memory>

class TWInteraction;
class TWRunController;
class TWUndoJournal;
class TWWorkspace;

// The program's start-up, the same for the window and the command line: the preferences with their
// registered defaults, the writers' defaults, the support folders, the interaction through which the
// program asks the user things, and the run controller with the context the engine works in. Made once,
// after the application object, for the program's life; its end stops the work thread.
class TWSession {
public:
    enum class FrontEnd { CommandLine, Window };

    TWSession(FrontEnd frontEnd, TWInteraction& interaction);
    ~TWSession();
    TWSession(const TWSession&) = delete;
    TWSession& operator=(const TWSession&) = delete;

    TWWorkspace& workspace() const;
    TWRunController& runs() const { return *m_runs; }
    TWUndoJournal& journal() const;

private:
    std::unique_ptr<TWRunController> m_runs;
};
