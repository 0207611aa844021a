#include "app/LimitraApp.h"

#include "platform/Defaults.h"
#include "platform/Http.h"
#include "platform/SignalEvents.h"
#include "ui/DesktopColorScheme.h"
#include "ui/UiModule.h"
#include "ui/panel/PanelActions.h"
#include "ui/settings/SettingsWindow.h"
#include "ui/settings/WelcomeWindow.h"
#include "ui/tray/LowLimitNotifier.h"
#include "ui/tray/PanelWindow.h"
#include "ui/tray/SingleInstance.h"
#include "ui/tray/TrayItem.h"
#include "ui/tray/TrayRecords.h"

#include <QApplication>
#include <QIcon>
#include <QQuickWindow>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <vector>

namespace limitra {

LimitraApp::LimitraApp(platform::Environment env, QObject* parent)
    : LimitraApp(env, UsageStore::Services::real(env), parent)
{
}

LimitraApp::LimitraApp(platform::Environment env, UsageStore::Services services, QObject* parent)
    : QObject(parent)
    , m_store(std::make_unique<UsageStore>(std::move(env), std::move(services)))
{
    UiModule::prepare(m_engine);
    m_actions = std::make_unique<PanelActions>(*m_store);
    m_settings = std::make_unique<SettingsWindow>(m_engine, m_store->environment());
    m_welcome = std::make_unique<WelcomeWindow>(m_engine, m_store->environment());
    m_tray = std::make_unique<TrayItem>(*m_store);
    m_records = std::make_unique<TrayRecords>(*m_store);
    m_notifier = std::make_unique<LowLimitNotifier>(*m_store);
    m_colorScheme = std::make_unique<DesktopColorScheme>();

    connect(m_settings.get(), &SettingsWindow::welcomeRequested, this, &LimitraApp::openWelcome);
    connect(m_actions.get(), &PanelActions::settingsRequested, this, &LimitraApp::openSettings);
    connect(m_notifier.get(), &LowLimitNotifier::panelRequested, this, &LimitraApp::showPanel);
    connect(m_tray.get(), &TrayItem::activated, this, &LimitraApp::togglePanel);
    connect(m_tray.get(), &TrayItem::actionTriggered, this, [this](TrayAction action) {
        switch (action) {
        case TrayAction::Panel:
            showPanel();
            break;
        case TrayAction::Refresh:
            m_actions->refresh();
            break;
        case TrayAction::Settings:
            openSettings();
            break;
        case TrayAction::Quit:
            m_actions->quit();
            break;
        }
    });
}

LimitraApp::~LimitraApp() = default;

void LimitraApp::start()
{
    m_tray->install();
    m_colorScheme->follow();
    platform::Defaults& defaults = *m_store->environment().defaults;
    if (!defaults.hasShownWelcome()) {
        // Marked first, so a crash in the guide never shows it twice.
        defaults.setHasShownWelcome(true);
        openWelcome();
    }
}

PanelWindow& LimitraApp::panel()
{
    if (!m_panel)
        m_panel
            = std::make_unique<PanelWindow>(m_engine, *m_store, *m_store->environment().defaults, *m_actions);
    return *m_panel;
}

void LimitraApp::togglePanel(QPoint anchor)
{
    panel().toggle(anchor);
}

void LimitraApp::showPanel()
{
    PanelWindow& window = panel();
    if (!window.isVisible())
        window.open({});
    window.raise();
    window.requestActivate();
}

void LimitraApp::openSettings()
{
    if (m_panel)
        m_panel->hide();
    m_settings->show();
}

void LimitraApp::openWelcome()
{
    m_welcome->show();
}

bool LimitraApp::prefersX11(int argc, char** argv)
{
    // A Wayland client cannot place its windows, so the panel could not open
    // under the tray icon; an X11 client of the same session (Xwayland) can.
    // The user's own choice of platform stands.
    if (qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        return false;
    for (int i = 1; i < argc; ++i)
        if (std::strcmp(argv[i], "-platform") == 0)
            return false;
    return true;
}

int LimitraApp::main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")
        && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        std::fputs("limitra: no hay pantalla; en una terminal usa limitra --check.\n", stderr);
        return 0;
    }
    // The panel is small and static; the software renderer draws it without a GPU context.
    QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    std::vector<char*> args(argv, argv + argc);
    static char platformOption[] = "-platform";
    static char xcb[] = "xcb";
    if (prefersX11(argc, argv)) {
        args.push_back(platformOption);
        args.push_back(xcb);
    }
    int count = int(args.size());
    args.push_back(nullptr);
    QApplication app(count, args.data());
    // No display name: window managers would show it after every window title.
    QApplication::setApplicationName(QStringLiteral("limitra"));
    QApplication::setDesktopFileName(QStringLiteral("app.limitra.Limitra"));
    // Qt 6.4 tells X11 desktops no desktop file, so taskbars and title bars show
    // the icon a window carries: the theme's, else the one built in.
    QApplication::setWindowIcon(QIcon::fromTheme(
        QStringLiteral("app.limitra.Limitra"), QIcon(QStringLiteral(":/limitra/app.limitra.Limitra.svg"))));
    QApplication::setQuitOnLastWindowClosed(false);

    SingleInstance instance;
    if (!instance.claim())
        return 0;
    platform::SignalEvents::on({ SIGTERM, SIGINT }, &app, [] { QCoreApplication::quit(); });
    // Quitting waits for no server: transfers stop, and the next start is a new instance at once.
    connect(&app, &QCoreApplication::aboutToQuit, &instance, [&instance] {
        platform::Http::stopAll();
        instance.release();
    });

    LimitraApp limitra(platform::Environment::system());
    connect(&instance, &SingleInstance::showPanelRequested, &limitra, &LimitraApp::showPanel);
    limitra.start();
    QApplication::exec();
    return 0;
}

} // namespace limitra
