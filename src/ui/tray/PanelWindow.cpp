#include "ui/tray/PanelWindow.h"

#include "ui/panel/LimitsPanel.h"

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
// A focus loss this recent was caused by the click that is now asking to toggle.
constexpr qint64 kSameClickMs = 400;
} // namespace

PanelWindow::PanelWindow(
    QQmlEngine& engine, UsageStore& store, platform::Defaults& settings, PanelActions& actions)
{
    setFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
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

void PanelWindow::fitContent()
{
    const QSize size(int(m_content->width()), int(std::ceil(m_content->implicitHeight())));
    setMinimumSize(size);
    setMaximumSize(size);
    resize(size);
}

void PanelWindow::toggle(QPoint anchor)
{
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
    if (anchor.isNull())
        anchor = QCursor::pos();
    QScreen* screen = QGuiApplication::screenAt(anchor);
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    // Wayland clients cannot place their windows; the compositor keeps them on screen.
    if (screen && !QGuiApplication::platformName().startsWith(QLatin1String("wayland"))) {
        setScreen(screen);
        setPosition(place(anchor, size(), screen->availableGeometry()));
    }
    m_wasActive = false;
    show();
    raise();
    requestActivate();
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
    if (m_wasActive && isVisible()) {
        m_closedByFocusLoss.start();
        hide();
    }
}

} // namespace limitra
