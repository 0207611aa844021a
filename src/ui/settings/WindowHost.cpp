#include "ui/settings/WindowHost.h"

#include <QCursor>
#include <QGuiApplication>
#include <QQmlComponent>
#include <QScreen>
#include <QQmlEngine>
#include <QQuickWindow>

namespace limitra {

WindowHost::WindowHost() = default;
WindowHost::~WindowHost() = default;

bool WindowHost::isOpen() const
{
    return m_window && m_window->isVisible();
}

bool WindowHost::raise()
{
    if (!isOpen())
        return false;
    // A minimised window comes back, too.
    m_window->setWindowStates(m_window->windowStates() & ~Qt::WindowMinimized);
    m_window->raise();
    m_window->requestActivate();
    return true;
}

QQuickWindow* WindowHost::open(QQmlEngine& engine, const QString& component, const QVariantMap& properties)
{
    reset();
    QQmlComponent loader(&engine, QUrl(QStringLiteral("qrc:/qt/qml/Limitra/Panel/") + component));
    QObject* object = loader.createWithInitialProperties(properties);
    m_window.reset(qobject_cast<QQuickWindow*>(object));
    if (!m_window) {
        // Only a broken installation gets here (a Qt Quick module missing): say
        // why, and leave the rest of the program running.
        delete object;
        qWarning("%s did not load: %s", qPrintable(component), qPrintable(loader.errorString()));
        return nullptr;
    }
    QQmlEngine::setObjectOwnership(m_window.get(), QQmlEngine::CppOwnership);
    // Centred on the screen the user is looking at: the one holding the pointer.
    QScreen* screen = QGuiApplication::screenAt(QCursor::pos());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (screen) {
        m_window->setScreen(screen);
        const QRect area = screen->availableGeometry();
        m_window->setPosition(area.center() - QPoint(m_window->width() / 2, m_window->height() / 2));
    }
    m_window->show();
    raise();
    return m_window.get();
}

void WindowHost::reset()
{
    m_window.reset();
}

} // namespace limitra
