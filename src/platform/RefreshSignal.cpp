#include "platform/RefreshSignal.h"

#include <QSocketNotifier>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace limitra::platform::RefreshSignal {

namespace {
int pipeEnds[2] = { -1, -1 };

// Only async-signal-safe work here: the event loop picks the byte up.
void onSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(pipeEnds[1], &byte, 1);
}
} // namespace

void install(QObject* context, std::function<void()> handler)
{
    if (pipeEnds[0] >= 0 || ::pipe2(pipeEnds, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    auto* notifier = new QSocketNotifier(pipeEnds[0], QSocketNotifier::Read, context);
    QObject::connect(notifier, &QSocketNotifier::activated, context, [handler = std::move(handler)] {
        // Several signals before the loop looks count as one request.
        char byte;
        while (::read(pipeEnds[0], &byte, 1) > 0) { }
        handler();
    });
    struct sigaction action = {};
    action.sa_handler = &onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGUSR1, &action, nullptr);
}

} // namespace limitra::platform::RefreshSignal
