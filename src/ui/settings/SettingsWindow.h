#pragma once

#include "platform/Environment.h"

#include <QObject>
#include <QString>
#include <QUrl>

#include <functional>
#include <memory>

class QQmlEngine;
class QQuickWindow;

namespace limitra {

class AboutActions;
class LoginSwitch;
class WindowHost;

// The settings window, "Ajustes de Limitra", with its "General" and
// "Acerca de" tabs. Each opening builds the tabs afresh, so the login switch
// shows the autostart state of that moment and no old result line lingers.
class SettingsWindow : public QObject
{
    Q_OBJECT

public:
    using UrlOpener = std::function<void(const QUrl&)>;

    // The engine must have been prepared (UiModule::prepare) and outlive this.
    SettingsWindow(QQmlEngine& engine, const platform::Environment& env, QObject* parent = nullptr);
    ~SettingsWindow() override;

    // Opens the window, or raises and activates the open one; never a second window.
    void show();
    // Null until first shown.
    QQuickWindow* window() const;

    // Where the About tab sends a newer version's download address; the
    // desktop's default handler unless replaced (tests do, so no browser starts).
    void setUrlOpener(UrlOpener opener);
    // The autostart folder of the login switch; the user's unless replaced.
    void setAutostartDirectory(const QString& directory);

Q_SIGNALS:
    // The About tab's "Ver guía de bienvenida" link.
    void welcomeRequested();

private:
    QQmlEngine& m_engine;
    platform::Environment m_env;
    UrlOpener m_opener;
    QString m_autostartDirectory;
    std::unique_ptr<LoginSwitch> m_login;
    std::unique_ptr<AboutActions> m_about;
    // Last, so the window goes before the objects it shows.
    std::unique_ptr<WindowHost> m_host;
};

} // namespace limitra
