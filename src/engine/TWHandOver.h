#pragma once

#include <QObject>

#include <functional>

// Runs work later on the thread of `receiver`, without waiting: how the main thread hands a run to the
// work thread and the work thread hands its reports back. Work handed to one thread runs there in the
// order it was handed over, and is destroyed there.
void TWHandOver(QObject* receiver, std::function<void()> work);
