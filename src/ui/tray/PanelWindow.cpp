#include "ui/tray/PanelWindow.h"

#include "ui/WindowFit.h"
#include "ui/panel/LimitsPanel.h"
#include "ui/tray/X11Desktop.h"

#include <QCursor>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QPalette>
#include <QQuickItem>
#include <QScreen>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace limitra {

namespace {
// Room between the tray icon's click point and the panel.
constexpr int kGap = 6;
// A top bar's height where the screen reserves none for it.
constexpr int kUnseenBar = 32;
// A focus loss this recent was caused by the click that is now asking to toggle.
constexpr qint64 kSameClickMs = 400;

} // namespace

PanelWindow::PanelWindow(
    QQmlEngine& engine, UsageStore& store, platform::Defaults& settings, PanelActions& actions)
{
    setTitle(QStringLiteral("Límites"));
    setColor(QGuiApplication::palette().color(QPalette::Window));
    QString errors;
    m_content = LimitsPanel::create(engine, store, settings, actions, &errors);
    if (!m_content) {
        std::fprintf(stderr, "limitra: el panel no se pudo cargar: %s\n", qPrintable(errors));
        return;
    }
    m_content->setParentItem(contentItem());
    connect(m_content.get(), &QQuickItem::implicitHeightChanged, this, &PanelWindow::fitContent);
    connect(this, &QWindow::activeChanged, this, &PanelWindow::onActiveChanged);
    fitContent();
}

PanelWindow::~PanelWindow()
{
    if (m_content)
        m_content->setParentItem(nullptr);
}

bool PanelWindow::event(QEvent* event)
{
    // The desktop may turn dark or light while the panel exists.
    if (event->type() == QEvent::ApplicationPaletteChange)
        setColor(QGuiApplication::palette().color(QPalette::Window));
    return QQuickWindow::event(event);
}

void PanelWindow::fitContent()
{
    WindowFit::fit(*this, QSize(int(m_content->width()), int(std::ceil(m_content->implicitHeight()))));
}

void PanelWindow::toggle(QPoint anchor)
{
    // A host that gives no point was clicked where the pointer is. Only an X11
    // session knows that position; under Wayland the pointer last seen by an
    // X11 client is anywhere.
    if (anchor.isNull() && !waylandSession() && QGuiApplication::platformName() == QLatin1String("xcb"))
        anchor = QCursor::pos();
    if (isVisible()) {
        hide();
        return;
    }
    if (m_closedByFocusLoss.isValid() && m_closedByFocusLoss.elapsed() < kSameClickMs) {
        m_closedByFocusLoss.invalidate();
        return;
    }
    open(anchor);
}

void PanelWindow::open(QPoint anchor)
{
    if (!anchor.isNull() && !isScreenPoint(anchor))
        anchor = {};
    if (!anchor.isNull())
        m_lastClick = anchor;
    else
        anchor = m_lastClick;
    QScreen* screen = anchor.isNull() ? nullptr : QGuiApplication::screenAt(anchor);
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (screen && anchor.isNull())
        anchor = trayCorner(screen->geometry(), screen->availableGeometry());
    // Wayland clients cannot place their windows; the compositor keeps them on screen.
    if (screen && !QGuiApplication::platformName().startsWith(QLatin1String("wayland"))) {
        setScreen(screen);
        setPosition(place(anchor, size(), screen->availableGeometry()));
    }
    // Decided at each opening, just before the window maps: the window manager
    // may have been replaced since the last.
    useKind(kindFor(QGuiApplication::platformName(), waylandSession(), X11Desktop::windowManagerName()));
    if (m_kind == Kind::Managed)
        X11Desktop::skipTaskbar(*this);
    m_wasActive = false;
    show();
    raise();
    requestActivate();
}

PanelWindow::Kind PanelWindow::kindFor(
    const QString& platform, bool waylandSession, const QString& windowManager)
{
    if (platform != QLatin1String("xcb"))
        return Kind::Tool;
    // Mutter and KWin give an Xwayland grab no keys and no clicks on their own
    // surfaces, but focus a window they manage when it maps and keep it where
    // the program put it; Escape and a click on another window then take the
    // focus away. On X11 mutter leaves the focus on the panel after a click on
    // the desktop, which only a grab sees.
    const bool mutter
        = windowManager == QLatin1String("GNOME Shell") || windowManager == QLatin1String("Mutter");
    if ((mutter || windowManager == QLatin1String("KWin")) && waylandSession)
        return Kind::Managed;
    if (mutter)
        return Kind::Grabbing;
    // Elsewhere unmanaged: a window manager would place a managed window where
    // it likes, and a tiling one would tile it.
    return waylandSession ? Kind::Grabbing : Kind::Unmanaged;
}

void PanelWindow::useKind(Kind kind)
{
    // The type stays "normal", the one Wayland compositors and mutter give the
    // keyboard to when it maps.
    const Qt::WindowFlags flags = (kind == Kind::Tool             ? Qt::Tool
                                          : kind == Kind::Managed ? Qt::Window
                                                                  : Qt::Window | Qt::BypassWindowManagerHint)
        | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint;
    m_kind = kind;
    if (this->flags() != flags)
        setFlags(flags);
}

void PanelWindow::exposeEvent(QExposeEvent* event)
{
    // A Wayland compositor keeps the focus from an X11 window it did not give it
    // to, and mutter on X11 leaves it there after a click on the desktop: the
    // panel takes keys and clicks by grabbing them instead, and a click outside
    // it hides it. Only a window on screen can grab.
    if (isExposed() && m_kind == Kind::Grabbing) {
        setKeyboardGrabEnabled(true);
        setMouseGrabEnabled(true);
    }
    QQuickWindow::exposeEvent(event);
}

bool PanelWindow::waylandSession()
{
    return !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}

void PanelWindow::hideEvent(QHideEvent* event)
{
    setKeyboardGrabEnabled(false);
    setMouseGrabEnabled(false);
    QQuickWindow::hideEvent(event);
}

void PanelWindow::mousePressEvent(QMouseEvent* event)
{
    if (!QRect(QPoint(), size()).contains(event->position().toPoint())) {
        m_closedByFocusLoss.start();
        hide();
        return;
    }
    QQuickWindow::mousePressEvent(event);
}

QPoint PanelWindow::place(QPoint anchor, QSize size, QRect available)
{
    int x = anchor.x() - size.width() / 2;
    int y = anchor.y() < available.center().y()
        ? std::max(anchor.y() + kGap, available.top())
        : std::min(anchor.y() - kGap, available.bottom() + 1) - size.height();
    x = std::clamp(x, available.left(), std::max(available.left(), available.right() + 1 - size.width()));
    y = std::clamp(y, available.top(), std::max(available.top(), available.bottom() + 1 - size.height()));
    return { x, y };
}

bool PanelWindow::isScreenPoint(QPoint point)
{
    // Wayland hosts know no screen coordinates: some give the point within
    // their icon (waybar's (7, 14)). Such a session's click counts only where
    // the screen reserves a panel, as GNOME and KDE tell X11 clients.
    if (!waylandSession())
        return true;
    const QScreen* screen = QGuiApplication::screenAt(point);
    return screen && !screen->availableGeometry().contains(point);
}

QPoint PanelWindow::trayCorner(QRect screen, QRect available)
{
    const bool bottom = available.bottom() < screen.bottom() && available.top() == screen.top();
    if (bottom)
        return { available.right(), available.bottom() };
    return { available.right(), available == screen ? screen.top() + kUnseenBar : available.top() };
}

void PanelWindow::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_Escape) {
        hide();
        return;
    }
    QQuickWindow::keyPressEvent(event);
}

void PanelWindow::onActiveChanged()
{
    if (isActive()) {
        m_wasActive = true;
        return;
    }
    // Where the panel grabs, the grabs decide: under Wayland the compositor may
    // take back at once the focus it did not give.
    if (m_wasActive && isVisible() && m_kind != Kind::Grabbing) {
        m_closedByFocusLoss.start();
        hide();
    }
}

} // namespace limitra
