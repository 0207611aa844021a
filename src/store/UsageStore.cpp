#include "store/UsageStore.h"

#include "platform/Defaults.h"
#include "store/MenuBarText.h"
#include "store/UsageStoreRegistry.h"

#include <QCoreApplication>
#include <QtConcurrent>

#include <limits>

namespace limitra {

UsageStore::UsageStore(platform::Environment env, Services services, QObject* parent)
    : QObject(parent)
    , m_env(std::move(env))
    , m_services(std::move(services))
    , m_lastRefresh(-std::numeric_limits<double>::infinity())
{
    if (!m_env.defaults)
        m_env.defaults = platform::Defaults::system();
    m_now = m_env.now();
    m_pool.setMaxThreadCount(3);

    // The label follows the settings at once, not only at the next refresh.
    const auto* defaults = m_env.defaults.get();
    for (auto signal : { &platform::Defaults::showClaudeChanged, &platform::Defaults::showCodexChanged,
             &platform::Defaults::menuBarStyleChanged, &platform::Defaults::percentModeChanged })
        connect(defaults, signal, this, &UsageStore::menuBarTextChanged);

    m_tickTimer.setInterval(kTickMilliseconds);
    connect(&m_tickTimer, &QTimer::timeout, this, [] {
        if (UsageStore* store = UsageStoreRegistry::shared())
            store->tick();
    });
    m_tickTimer.start();

    UsageStoreRegistry::setShared(this);
    QTimer::singleShot(0, this, [this] { refresh(); });
}

UsageStore::~UsageStore()
{
    // A refresh under way runs its remaining steps here: each is queued to this
    // store or to its pool, and would otherwise reach them after they are gone.
    while (!m_inFlight.isFinished()) {
        m_pool.waitForDone();
        QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
    }
    if (UsageStoreRegistry::shared() == this)
        UsageStoreRegistry::setShared(nullptr);
}

bool UsageStore::showClaude() const { return m_env.defaults->showClaude(); }
bool UsageStore::showCodex() const { return m_env.defaults->showCodex(); }

QString UsageStore::menuBarText() const
{
    return MenuBarText::compose(m_claude, m_codex, showClaude(), showCodex(), m_env.defaults->menuBarStyle(),
        m_env.defaults->percentMode());
}

QFuture<void> UsageStore::refresh()
{
    if (m_isRefreshing)
        return QtFuture::makeReadyFuture();
    m_lastRefresh = m_env.now();
    setRefreshing(true);

    const bool claude = showClaude();
    const bool codex = showCodex();
    // One task asks both services at once: Codex on another thread of the pool
    // while this one asks Claude. (Qt 6.4's whenAll crashed here under load, in
    // the continuation of a fetch that ended as the continuations were attached.)
    const auto fetchBoth = [pool = &m_pool, claude, codex, fetchClaude = m_services.fetchClaude,
                               fetchCodex = m_services.fetchCodex] {
        QFuture<ServiceUsage> other
            = codex ? QtConcurrent::run(pool, fetchCodex) : QtFuture::makeReadyFuture(ServiceUsage {});
        ServiceUsage first = claude ? fetchClaude() : ServiceUsage {};
        return std::pair(std::move(first), other.result());
    };

    const auto checkIfDue = m_services.checkIfDue;
    m_inFlight = QtConcurrent::run(&m_pool, fetchBoth)
        .then(this,
            [this, claude, codex](const std::pair<ServiceUsage, ServiceUsage>& done) {
                // Both records change before anyone is told, so no observer sees
                // a new Claude record beside an old Codex one.
                if (claude)
                    m_claude = done.first;
                if (codex)
                    m_codex = done.second;
                if (claude)
                    Q_EMIT claudeChanged();
                if (codex)
                    Q_EMIT codexChanged();
                if (claude || codex)
                    Q_EMIT menuBarTextChanged();
                setNow(m_env.now());
                setRefreshing(false);
            })
        .then(&m_pool, [checkIfDue] { return checkIfDue(); })
        .then(this, [this](const std::optional<UpdateInfo>& update) {
            if (update) {
                m_updateAvailable = update;
                Q_EMIT updateAvailableChanged();
            }
        });
    return m_inFlight;
}

void UsageStore::requestRefresh()
{
    refresh();
}

void UsageStore::tick()
{
    const double now = m_env.now();
    setNow(now);
    const double interval = m_env.defaults->effectiveRefreshIntervalMinutes() * 60.0;
    if (now - m_lastRefresh >= interval)
        refresh();
}

void UsageStore::setNow(double now)
{
    if (m_now == now)
        return;
    m_now = now;
    Q_EMIT nowChanged();
}

void UsageStore::setRefreshing(bool refreshing)
{
    if (m_isRefreshing == refreshing)
        return;
    m_isRefreshing = refreshing;
    Q_EMIT isRefreshingChanged();
}

} // namespace limitra
