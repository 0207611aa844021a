#include "platform/QuitSignals.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace limitra::platform::QuitSignals {

namespace {
int pipeEnds[2] = { -1, -1 };

// Only async-signal-safe work here: the event loop picks the byte up.
void onSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(pipeEnds[1], &byte, 1);
}
} // namespace

void install()
{
    if (pipeEnds[0] >= 0 || ::pipe2(pipeEnds, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    auto* notifier = new QSocketNotifier(pipeEnds[0], QSocketNotifier::Read, QCoreApplication::instance());
    QObject::connect(notifier, &QSocketNotifier::activated, notifier, [] {
        char byte;
        while (::read(pipeEnds[0], &byte, 1) > 0) { }
        QCoreApplication::quit();
    });
    struct sigaction action = {};
    action.sa_handler = &onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGTERM, &action, nullptr);
    ::sigaction(SIGINT, &action, nullptr);
}

} // namespace limitra::platform::QuitSignals
