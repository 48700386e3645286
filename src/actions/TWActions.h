#pragma once

// Registers every action class with TWActionRegistry; call once at start-up, before a run or a workflow
// file is read. Calling it again does nothing.
void TWRegisterActions();
