#include "ui/settings/WelcomeWindow.h"

#include "ui/settings/WelcomeDetection.h"
#include "ui/settings/WindowHost.h"

#include <QQuickWindow>

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
    if (m_host->raise())
        return;
    m_host->open(m_engine, QStringLiteral("WelcomeView.qml"),
        { { QStringLiteral("detection"), QVariant::fromValue(m_detection.get()) } });
}

QQuickWindow* WelcomeWindow::window() const
{
    return m_host->window();
}

} // namespace limitra
