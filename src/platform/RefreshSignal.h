#pragma once

#include <functional>

class QObject;

namespace limitra::platform::RefreshSignal {

// Runs `handler` in the event loop each time the process gets SIGUSR1 (what a
// status bar sends to ask for fresh data). Call once; `context` bounds its life.
void install(QObject* context, std::function<void()> handler);

} // namespace limitra::platform::RefreshSignal
