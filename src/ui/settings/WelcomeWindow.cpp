#include "ui/settings/WelcomeWindow.h"

#include "ui/settings/WelcomeDetection.h"
#include "ui/settings/WindowHost.h"

#include <QQuickWindow>
#include <QTimer>

#include <chrono>

namespace limitra {

WelcomeWindow::WelcomeWindow(QQmlEngine& engine, const platform::Environment& env, QObject* parent)
    : QObject(parent)
    , m_engine(engine)
    , m_detection(std::make_unique<WelcomeDetection>(env))
    , m_host(std::make_unique<WindowHost>())
{
}

WelcomeWindow::~WelcomeWindow()
{
    m_host->reset();
}

void WelcomeWindow::show()
{
    m_detection->start();
    if (m_host->raise() || m_waiting)
        return;
    // The guide is centred at the size it opens with and grows once the
    // detection answers, so it waits for that answer; never long, since a
    // secret store may be slow to answer.
    m_waiting = true;
    connect(m_detection.get(), &WelcomeDetection::detected, this, [this] {
        if (m_detection->isReady())
            open();
    });
    QTimer::singleShot(std::chrono::milliseconds(500), this, &WelcomeWindow::open);
}

void WelcomeWindow::open()
{
    if (!m_waiting)
        return; // the other of the two came first
    m_waiting = false;
    disconnect(m_detection.get(), &WelcomeDetection::detected, this, nullptr);
    m_host->open(m_engine, QStringLiteral("WelcomeView.qml"),
        { { QStringLiteral("detection"), QVariant::fromValue(m_detection.get()) } });
}

QQuickWindow* WelcomeWindow::window() const
{
    return m_host->window();
}

} // namespace limitra
