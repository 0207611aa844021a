#pragma once

#include <QString>

class QWindow;

namespace limitra {

// What the panel asks of an X11 desktop (Xwayland's too), beyond what Qt
// offers. Both do nothing where the program is no X11 client.
namespace X11Desktop {
// The running window manager's own name ("GNOME Shell", "Xfwm4", ...), or
// empty when none says so.
QString windowManagerName();
// Keeps a window that is not shown yet out of the shell's window lists.
void skipTaskbar(QWindow& window);
} // namespace X11Desktop

} // namespace limitra
