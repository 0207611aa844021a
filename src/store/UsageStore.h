#pragma once

#include "model/ServiceUsage.h"
#include "platform/Environment.h"
#include "update/UpdateInfo.h"

#include <QFuture>
#include <QObject>
#include <QThreadPool>
#include <QTimer>

#include <functional>
#include <optional>

namespace limitra {

// The one stateful object: the latest record of each service, whether a refresh
// runs, the newest update found, and the clock the views measure against. Lives
// on the main thread; fetches run on the thread pool and are published here.
class UsageStore : public QObject
{
    Q_OBJECT
    Q_PROPERTY(limitra::ServiceUsage claude READ claude NOTIFY claudeChanged)
    Q_PROPERTY(limitra::ServiceUsage codex READ codex NOTIFY codexChanged)
    Q_PROPERTY(bool isRefreshing READ isRefreshing NOTIFY isRefreshingChanged)
    Q_PROPERTY(bool hasUpdate READ hasUpdate NOTIFY updateAvailableChanged)
    Q_PROPERTY(limitra::UpdateInfo updateAvailable READ updateAvailableOrEmpty NOTIFY updateAvailableChanged)
    Q_PROPERTY(double now READ now NOTIFY nowChanged)
    Q_PROPERTY(QString menuBarText READ menuBarText NOTIFY menuBarTextChanged)

public:
    // The work a refresh does; each function runs on a worker thread.
    struct Services
    {
        std::function<ServiceUsage()> fetchClaude;
        std::function<ServiceUsage()> fetchCodex;
        std::function<std::optional<UpdateInfo>()> checkIfDue;

        // The real clients, reaching the world through env.
        static Services real(const platform::Environment& env);
    };

    static constexpr int kTickMilliseconds = 30000;

    // Creates the store, registers it as UsageStoreRegistry's shared store, starts
    // the 30-second tick and queues the first refresh.
    explicit UsageStore(platform::Environment env, QObject* parent = nullptr);
    UsageStore(platform::Environment env, Services services, QObject* parent = nullptr);
    ~UsageStore() override;

    ServiceUsage claude() const { return m_claude; }
    ServiceUsage codex() const { return m_codex; }
    bool isRefreshing() const { return m_isRefreshing; }
    const std::optional<UpdateInfo>& updateAvailable() const { return m_updateAvailable; }
    bool hasUpdate() const { return m_updateAvailable.has_value(); }
    UpdateInfo updateAvailableOrEmpty() const { return m_updateAvailable.value_or(UpdateInfo {}); }
    double now() const { return m_now; }
    double lastRefresh() const { return m_lastRefresh; }
    bool showClaude() const;
    bool showCodex() const;
    QString menuBarText() const;
    const platform::Environment& environment() const { return m_env; }

    // One refresh; finishes after the update check. A call while a refresh runs
    // returns an already finished future and changes nothing.
    QFuture<void> refresh();
    // For buttons: start a refresh and do not wait.
    Q_INVOKABLE void requestRefresh();
    // The 30-second step: advances the clock and refreshes when the interval passed.
    void tick();

Q_SIGNALS:
    void claudeChanged();
    void codexChanged();
    void isRefreshingChanged();
    void updateAvailableChanged();
    void nowChanged();
    void menuBarTextChanged();

private:
    void setNow(double now);
    void setRefreshing(bool refreshing);

    platform::Environment m_env;
    Services m_services;
    ServiceUsage m_claude;
    ServiceUsage m_codex;
    bool m_isRefreshing = false;
    std::optional<UpdateInfo> m_updateAvailable;
    double m_now = 0;
    double m_lastRefresh;
    QTimer m_tickTimer;
    // The steps of the refresh under way, finished when none is.
    QFuture<void> m_inFlight;
    // Its own threads, so both fetches overlap even on a single-core machine.
    QThreadPool m_pool;
};

} // namespace limitra
