#include "platform/SignalEvents.h"

#include <QSocketNotifier>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace limitra::platform::SignalEvents {

namespace {
// The pipe each signal writes to; -1 for signals nobody asked for.
int writeEnds[NSIG];
const bool cleared = [] {
    for (int& end : writeEnds)
        end = -1;
    return true;
}();

// Only async-signal-safe work here: the event loop picks the byte up.
void onSignal(int signal)
{
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(writeEnds[signal], &byte, 1);
}
} // namespace

void on(std::initializer_list<int> signals, QObject* context, std::function<void()> handler)
{
    int ends[2];
    if (!cleared || ::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    const int readEnd = ends[0];
    auto* notifier = new QSocketNotifier(readEnd, QSocketNotifier::Read, context);
    QObject::connect(notifier, &QSocketNotifier::activated, context, [readEnd, handler = std::move(handler)] {
        char byte;
        while (::read(readEnd, &byte, 1) > 0) { }
        handler();
    });
    struct sigaction action = {};
    action.sa_handler = &onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int signal : signals) {
        if (writeEnds[signal] >= 0)
            continue;
        writeEnds[signal] = ends[1];
        ::sigaction(signal, &action, nullptr);
    }
}

} // namespace limitra::platform::SignalEvents
