#pragma once

#include "support/TestEnv.h"
#include "update/UpdateInfo.h"

#include <QQmlEngine>

#include <atomic>
#include <memory>
#include <optional>

class QQuickItem;
class QQuickWindow;

namespace limitra {
class PanelActions;
class UsageStore;
} // namespace limitra

namespace limitra::test {

// The real panel on a real store whose fetches return what the test scripted,
// with settings in a temporary file and a clock the test sets.
class PanelHarness
{
public:
    static constexpr double kNow = 1'700'000'000;

    PanelHarness();
    ~PanelHarness();

    platform::Defaults& settings() { return *m_env.defaults; }
    UsageStore& store() { return *m_store; }
    PanelActions& actions() { return *m_actions; }
    QQuickItem& panel() { return *m_panel; }

    // What the next fetches return; publish() also refreshes and waits for it.
    void script(const ServiceUsage& claude, const ServiceUsage& codex,
        const std::optional<UpdateInfo>& update = std::nullopt);
    void publish(const ServiceUsage& claude, const ServiceUsage& codex,
        const std::optional<UpdateInfo>& update = std::nullopt);
    int fetchCount() const { return m_script->fetches; }
    // While held, fetches wait, so the store stays refreshing.
    void holdFetches(bool hold) { m_script->held = hold; }

    // Shows the panel in a window; settle() lays it out again after a change.
    void show();
    void settle();
    void click(QQuickItem* item);

    // Items by objectName inside `within` (the panel when null), in tree order.
    QList<QQuickItem*> findAll(const QString& name, QQuickItem* within = nullptr) const;
    QList<QQuickItem*> findVisible(const QString& name, QQuickItem* within = nullptr) const;
    QQuickItem* find(const QString& name, QQuickItem* within = nullptr) const;
    // Vertical edges and rectangle in panel coordinates.
    double top(const QQuickItem* item) const;
    double bottom(const QQuickItem* item) const;
    QRectF rect(const QQuickItem* item) const;

private:
    struct Script
    {
        ServiceUsage claude;
        ServiceUsage codex;
        std::optional<UpdateInfo> update;
        std::atomic<int> fetches { 0 };
        std::atomic<bool> held { false };
    };

    TestEnv m_env { kNow };
    std::shared_ptr<Script> m_script;
    std::unique_ptr<UsageStore> m_store;
    std::unique_ptr<PanelActions> m_actions;
    QQmlEngine m_engine;
    std::unique_ptr<QQuickItem> m_panel;
    std::unique_ptr<QQuickWindow> m_window;
};

QString textOf(const QQuickItem* item);

} // namespace limitra::test
