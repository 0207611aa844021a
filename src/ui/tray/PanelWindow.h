#pragma once

#include <QElapsedTimer>
#include <QPoint>
#include <QQuickWindow>
#include <QRect>

#include <memory>

class QQmlEngine;

namespace limitra {

class PanelActions;
class UsageStore;
namespace platform {
class Defaults;
}

// The drop-down panel: the panel's content in a frameless, always-on-top window
// without a taskbar entry, placed beside the tray icon. It hides when it loses
// focus or on Escape.
class PanelWindow : public QQuickWindow
{
    Q_OBJECT

public:
    // What the panel's window is to the desktop, by the Qt platform, whether the
    // session is Wayland's and the X11 window manager's name.
    enum class Kind {
        Tool, // a Wayland client's window, placed by the compositor
        Unmanaged, // X11 override-redirect, taking the focus itself
        Grabbing, // the same, holding keyboard and pointer grabs while shown
        Managed, // an ordinary X11 window that the window manager focuses when it maps
    };
    static Kind kindFor(const QString& platform, bool waylandSession, const QString& windowManager);

    PanelWindow(QQmlEngine& engine, UsageStore& store, platform::Defaults& settings, PanelActions& actions);
    ~PanelWindow() override;

    // Opens the panel at `anchor`, a click on the tray icon in screen coordinates,
    // or closes it when open. The click that just closed it by taking the focus
    // away does not open it again. With no click point (null) toggle() takes the
    // pointer's place on an X11 session; otherwise the panel opens where the
    // last click was, or at the tray's corner before any click.
    void toggle(QPoint anchor);
    void open(QPoint anchor);

    // Top-left corner for a panel of `size` anchored at a click on a tray icon:
    // below the point on a panel in the upper half of the screen, above it in the
    // lower half, horizontally centred on it, always inside `available`.
    static QPoint place(QPoint anchor, QSize size, QRect available);
    // Where the tray is when no click told: the right end of the screen edge
    // whose panel holds it, the bottom one when only the bottom is reserved,
    // else the top. Nothing reserved (a Wayland bar that X11 clients do not
    // see) still leaves room for a bar of common height.
    static QPoint trayCorner(QRect screen, QRect available);

protected:
    bool event(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void exposeEvent(QExposeEvent* event) override;

private:
    static bool isScreenPoint(QPoint point);
    static bool waylandSession();
    void useKind(Kind kind);
    void fitContent();
    void onActiveChanged();

    std::unique_ptr<QQuickItem> m_content;
    Kind m_kind = Kind::Tool;
    QPoint m_lastClick;
    bool m_wasActive = false;
    QElapsedTimer m_closedByFocusLoss;
};

} // namespace limitra
