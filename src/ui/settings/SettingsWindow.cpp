#include "ui/settings/SettingsWindow.h"

#include "platform/Defaults.h"
#include "platform/LoginItem.h"
#include "ui/settings/AboutActions.h"
#include "ui/settings/LoginSwitch.h"
#include "ui/settings/WindowHost.h"

#include <QDesktopServices>
#include <QQmlEngine>
#include <QQuickWindow>

namespace limitra {

SettingsWindow::SettingsWindow(QQmlEngine& engine, const platform::Environment& env, QObject* parent)
    : QObject(parent)
    , m_engine(engine)
    , m_env(env)
    , m_opener([](const QUrl& url) { QDesktopServices::openUrl(url); })
    , m_autostartDirectory(platform::LoginItem::autostartDirectory())
    , m_host(std::make_unique<WindowHost>())
{
}

SettingsWindow::~SettingsWindow()
{
    m_host->reset();
}

void SettingsWindow::show()
{
    if (m_host->raise())
        return;
    m_host->reset();
    m_login = std::make_unique<LoginSwitch>(m_autostartDirectory);
    m_about = std::make_unique<AboutActions>(m_env, [this](const QUrl& url) {
        if (m_opener)
            m_opener(url);
    });
    connect(m_about.get(), &AboutActions::welcomeRequested, this, &SettingsWindow::welcomeRequested);
    m_host->open(m_engine, QStringLiteral("SettingsView.qml"),
        {
            { QStringLiteral("settings"), QVariant::fromValue(m_env.defaults.get()) },
            { QStringLiteral("login"), QVariant::fromValue(m_login.get()) },
            { QStringLiteral("about"), QVariant::fromValue(m_about.get()) },
        });
}

QQuickWindow* SettingsWindow::window() const
{
    return m_host->window();
}

void SettingsWindow::setUrlOpener(UrlOpener opener)
{
    m_opener = std::move(opener);
}

void SettingsWindow::setAutostartDirectory(const QString& directory)
{
    m_autostartDirectory = directory;
}

} // namespace limitra
