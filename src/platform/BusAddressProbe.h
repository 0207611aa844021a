#pragma once

#include <QByteArray>

#include <chrono>

namespace limitra::platform {

// A quick look at whether a D-Bus address has a listener right now. The bus
// library would otherwise wait on a dead address, try to autolaunch a bus when
// none is named, or block for long on an unreachable host.
namespace BusAddressProbe {
// The session bus as GLib would find it: DBUS_SESSION_BUS_ADDRESS, else
// $XDG_RUNTIME_DIR/bus. No address at all counts as unreachable.
bool sessionBusAccepts();

// True when one entry of the address list accepts a connection. Handles the
// unix (path, abstract) and tcp transports; any other transport counts as
// unreachable.
bool accepts(const QByteArray& address, std::chrono::milliseconds tcpWait = std::chrono::milliseconds(250));
} // namespace BusAddressProbe

} // namespace limitra::platform
