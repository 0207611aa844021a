#pragma once

#include "platform/Environment.h"
#include "store/UsageStore.h"

#include <QObject>
#include <QPoint>
#include <QQmlEngine>

#include <memory>

namespace limitra {

class DesktopColorScheme;
class LowLimitNotifier;
class PanelActions;
class PanelWindow;
class SettingsWindow;
class TrayItem;
class TrayRecords;
class WelcomeWindow;

// The tray application: owns the one UsageStore of the process, the tray item,
// the drop-down panel and the settings and welcome windows, and lives until
// "Salir" (or SIGTERM/SIGINT).
class LimitraApp : public QObject
{
    Q_OBJECT

public:
    explicit LimitraApp(platform::Environment env, QObject* parent = nullptr);
    LimitraApp(platform::Environment env, UsageStore::Services services, QObject* parent = nullptr);
    ~LimitraApp() override;

    // Builds the application object and runs until the user quits. Status 0.
    static int main(int argc, char** argv);
    // Whether this start runs as an X11 client, through Xwayland in a Wayland session.
    static bool prefersX11(int argc, char** argv);

    // Puts the item in the tray, follows the desktop's light or dark preference
    // and, for a user who never saw it, opens the welcome guide (marking it seen first).
    void start();

    UsageStore& store() { return *m_store; }
    TrayItem& tray() { return *m_tray; }
    // Built on first use: a tray app runs for hours before its panel is opened, if ever.
    PanelWindow& panel();
    SettingsWindow& settingsWindow() { return *m_settings; }
    WelcomeWindow& welcomeWindow() { return *m_welcome; }

public Q_SLOTS:
    void togglePanel(QPoint anchor);
    void showPanel();
    // Opens or raises the settings window and brings it to the front.
    void openSettings();
    // Opens the welcome guide in front.
    void openWelcome();

private:
    QQmlEngine m_engine;
    std::unique_ptr<UsageStore> m_store;
    std::unique_ptr<PanelActions> m_actions;
    std::unique_ptr<PanelWindow> m_panel;
    std::unique_ptr<SettingsWindow> m_settings;
    std::unique_ptr<WelcomeWindow> m_welcome;
    std::unique_ptr<TrayItem> m_tray;
    std::unique_ptr<TrayRecords> m_records;
    std::unique_ptr<LowLimitNotifier> m_notifier;
    std::unique_ptr<DesktopColorScheme> m_colorScheme;
};

} // namespace limitra
