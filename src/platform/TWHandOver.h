#pragma once

#include <QObject>

#include <functional>

// Runs work later on the thread of `receiver`, without waiting: how the main thread hands a run to the
// work thread, the work thread hands its reports back, and a background query hands in its answer. Work
// handed to one thread runs there in the order it was handed over and is destroyed there; if the receiver
// is destroyed first, the work is dropped with the queued call that carried it.
void TWHandOver(QObject* receiver, std::function<void()> work);
