#include "watch/WatchMode.h"

#include "platform/Defaults.h"
#include "platform/SignalEvents.h"
#include "store/StatusLine.h"
#include "watch/FetchProcess.h"
#include "watch/TrayLink.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace limitra {

namespace {
// The tray's record when a tray answers, else a fetch of our own.
UsageStore::Services services()
{
    return {
        [] {
            const auto tray = TrayLink::records();
            return tray ? tray->first : FetchProcess::claude();
        },
        [] {
            const auto tray = TrayLink::records();
            return tray ? tray->second : FetchProcess::codex();
        },
        // The tray tells of new versions; a status bar has nowhere to show one.
        [] { return std::optional<UpdateInfo> {}; },
    };
}
} // namespace

WatchMode::WatchMode(platform::Environment env, QObject* parent)
    : QObject(parent)
    , m_env(std::move(env))
{
    if (!m_env.defaults)
        m_env.defaults = platform::Defaults::system();
    m_store = std::make_unique<UsageStore>(m_env, services());
    // The tick moves the clock before it decides on a refresh: the settings file
    // is read again there, so an edit applies at that tick.
    connect(m_store.get(), &UsageStore::nowChanged, this, [this] {
        m_env.defaults->reload();
        if (!m_store->isRefreshing())
            print(false);
    });
    connect(m_store.get(), &UsageStore::isRefreshingChanged, this, [this] {
        if (!m_store->isRefreshing())
            print(true);
    });
    TrayLink::onRecordsChanged(this, SLOT(trayRefreshed()));
}

WatchMode::~WatchMode() = default;

void WatchMode::refreshNow()
{
    if (!TrayLink::requestRefresh())
        m_store->refresh();
}

void WatchMode::trayRefreshed()
{
    m_store->refresh();
}

void WatchMode::print(bool always)
{
    const platform::Defaults& defaults = *m_env.defaults;
    const QByteArray line = StatusLine::compose({ m_store->claude(), m_store->codex(), defaults.showClaude(),
        defaults.showCodex(), defaults.menuBarStyle(), defaults.percentMode(), m_env.now() });
    if (!always && line == m_last)
        return;
    m_last = line;
    std::fwrite(line.constData(), 1, size_t(line.size()), stdout);
    std::fputc('\n', stdout);
    // Nobody reads any more: the bar went away, and so does the watch.
    if (std::fflush(stdout) != 0 || std::ferror(stdout))
        QCoreApplication::quit();
}

int WatchMode::main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    platform::SignalEvents::on({ SIGTERM, SIGINT }, &app, [] { QCoreApplication::quit(); });
    WatchMode watch(platform::Environment::system());
    platform::SignalEvents::on({ SIGUSR1 }, &watch, [&watch] { watch.refreshNow(); });
    // A bar that quits or reloads closes the pipe it read: the pipe then polls
    // as an error at once, so the watch ends then, not at its next line (it
    // would otherwise fetch, and refresh tokens, for nobody).
    QSocketNotifier hangUp(STDOUT_FILENO, QSocketNotifier::Exception);
    QObject::connect(&hangUp, &QSocketNotifier::activated, &app, [] { QCoreApplication::quit(); });
    QCoreApplication::exec();
    // A fetch under way is not waited for: the bar asked to end now.
    std::fflush(stdout);
    std::_Exit(0);
}

} // namespace limitra
