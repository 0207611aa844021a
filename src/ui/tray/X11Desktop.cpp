#include "ui/tray/X11Desktop.h"

#include <QByteArray>
#include <QGuiApplication>
#include <QWindow>
#include <QtGui/qguiapplication_platform.h>

#include <xcb/xcb.h>

#include <cstdlib>
#include <cstring>
#include <memory>

namespace limitra::X11Desktop {

namespace {
xcb_connection_t* x11Connection()
{
    const auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    return x11 ? x11->connection() : nullptr;
}

xcb_atom_t atom(xcb_connection_t* c, const char* name)
{
    const std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> reply(
        xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, uint16_t(std::strlen(name)), name), nullptr),
        &std::free);
    return reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
}

QByteArray x11Property(xcb_connection_t* c, xcb_window_t window, xcb_atom_t name, xcb_atom_t type)
{
    const std::unique_ptr<xcb_get_property_reply_t, decltype(&std::free)> reply(
        xcb_get_property_reply(c, xcb_get_property(c, 0, window, name, type, 0, 1024), nullptr), &std::free);
    if (!reply || reply->type != type)
        return {};
    return QByteArray(static_cast<const char*>(xcb_get_property_value(reply.get())),
        xcb_get_property_value_length(reply.get()));
}
} // namespace

QString windowManagerName()
{
    xcb_connection_t* c = x11Connection();
    if (!c)
        return {};
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
    const xcb_atom_t check = atom(c, "_NET_SUPPORTING_WM_CHECK");
    const QByteArray wm = x11Property(c, root, check, XCB_ATOM_WINDOW);
    xcb_window_t window = 0;
    if (wm.size() != sizeof window)
        return {};
    std::memcpy(&window, wm.data(), sizeof window);
    // A window manager that has gone leaves its root property naming a window
    // that no longer names itself.
    if (x11Property(c, window, check, XCB_ATOM_WINDOW) != wm)
        return {};
    return QString::fromUtf8(x11Property(c, window, atom(c, "_NET_WM_NAME"), atom(c, "UTF8_STRING")));
}

void skipTaskbar(QWindow& window)
{
    // Out of the window lists of the shell (overview, window switcher, dock),
    // set before mapping, when the client owns the state; Qt adds its own to it.
    xcb_connection_t* c = x11Connection();
    if (!c)
        return;
    const auto id = xcb_window_t(window.winId());
    const xcb_atom_t state = atom(c, "_NET_WM_STATE");
    const QByteArray old = x11Property(c, id, state, XCB_ATOM_ATOM);
    for (const char* name : { "_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER" }) {
        const xcb_atom_t skip = atom(c, name);
        if (!old.contains(QByteArray(reinterpret_cast<const char*>(&skip), sizeof skip)))
            xcb_change_property(c, XCB_PROP_MODE_APPEND, id, state, XCB_ATOM_ATOM, 32, 1, &skip);
    }
}

} // namespace limitra::X11Desktop
