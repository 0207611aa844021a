#pragma once

#include <functional>
#include <initializer_list>

class QObject;

namespace limitra::platform::SignalEvents {

// Runs `handler` in the event loop each time the process gets one of `signals`
// (SIGTERM to quit cleanly instead of dying mid-write, SIGUSR1 from a status
// bar asking for fresh data). Several before the loop looks count as one.
// `context` bounds the handler's life; each signal is taken once.
void on(std::initializer_list<int> signals, QObject* context, std::function<void()> handler);

} // namespace limitra::platform::SignalEvents
