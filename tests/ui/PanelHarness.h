#pragma once

#include "store/UsageStore.h"
#include "support/TestEnv.h"
#include "ui/UiModule.h"
#include "ui/panel/LimitsPanel.h"
#include "ui/panel/PanelActions.h"
#include "update/UpdateInfo.h"

#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>
#include <QThread>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>

namespace limitra::test {

// The real panel on a real store whose fetches return what the test scripted,
// with settings in a temporary file and a clock the test sets.
class PanelHarness
{
public:
    static constexpr double kNow = 1'700'000'000;

    PanelHarness()
        : m_script(std::make_shared<Script>())
    {
        const std::shared_ptr<Script> script = m_script;
        const auto fetch = [script](ServiceUsage Script::*record) {
            return [script, record] {
                ++script->fetches;
                while (script->held)
                    QThread::msleep(5);
                return (*script).*record;
            };
        };
        m_store = std::make_unique<UsageStore>(m_env.env,
            UsageStore::Services {
                fetch(&Script::claude), fetch(&Script::codex), [script] { return script->update; } });
        m_actions = std::make_unique<PanelActions>(*m_store);

        UiModule::prepare(m_engine);
        QString errors;
        m_panel = LimitsPanel::create(m_engine, *m_store, settings(), *m_actions, &errors);
        if (!m_panel)
            qFatal("The panel did not load: %s", qPrintable(errors));
        // Let the store's own first refresh pass, so the test's records are the last word.
        publish({}, {});
        m_script->fetches = 0;
    }
    ~PanelHarness() { m_panel->setParentItem(nullptr); }

    platform::Defaults& settings() { return *m_env.defaults; }
    UsageStore& store() { return *m_store; }
    PanelActions& actions() { return *m_actions; }
    QQuickItem& panel() { return *m_panel; }

    // What the next fetches return; publish() also refreshes and waits for it.
    void script(
        const ServiceUsage& claude, const ServiceUsage& codex, const std::optional<UpdateInfo>& update = {})
    {
        m_script->claude = claude;
        m_script->codex = codex;
        m_script->update = update;
    }
    void publish(
        const ServiceUsage& claude, const ServiceUsage& codex, const std::optional<UpdateInfo>& update = {})
    {
        script(claude, codex, update);
        const QFuture<void> done = m_store->refresh();
        if (!QTest::qWaitFor([&] { return done.isFinished() && !m_store->isRefreshing(); }, 5000))
            qFatal("The store did not finish its refresh");
        settle();
    }
    int fetchCount() const { return m_script->fetches; }
    // While held, fetches wait, so the store stays refreshing.
    void holdFetches(bool hold) { m_script->held = hold; }

    // Shows the panel in a window; settle() lays it out again after a change.
    void show()
    {
        m_window = std::make_unique<QQuickWindow>();
        m_panel->setParentItem(m_window->contentItem());
        m_window->show();
        if (!QTest::qWaitForWindowExposed(m_window.get()))
            qFatal("The panel's window was not exposed");
        settle();
    }
    void settle()
    {
        // Rows the last publish replaced are deleted later; they must be gone
        // before anything counts rows.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        if (!m_window)
            return;
        // Grabbing polishes every item, so positions and sizes are final afterwards.
        m_window->grabWindow();
        m_window->resize(int(m_panel->width()), int(m_panel->implicitHeight()));
        m_window->grabWindow();
    }
    void click(QQuickItem* item)
    {
        const QPointF centre = item->mapToScene(QPointF(item->width() / 2, item->height() / 2));
        QTest::mouseClick(m_window.get(), Qt::LeftButton, {}, centre.toPoint());
    }

    // Items by objectName inside `within` (the panel when null), in tree order.
    QList<QQuickItem*> findAll(const QString& name, QQuickItem* within = nullptr) const
    {
        QList<QQuickItem*> found;
        const std::function<void(QQuickItem*)> visit = [&](QQuickItem* item) {
            if (item->objectName() == name)
                found.append(item);
            for (QQuickItem* child : item->childItems())
                visit(child);
        };
        visit(within ? within : m_panel.get());
        return found;
    }
    QList<QQuickItem*> findVisible(const QString& name, QQuickItem* within = nullptr) const
    {
        QList<QQuickItem*> found = findAll(name, within);
        found.removeIf([](const QQuickItem* item) { return !item->isVisible(); });
        return found;
    }
    QQuickItem* find(const QString& name, QQuickItem* within = nullptr) const
    {
        const QList<QQuickItem*> all = findAll(name, within);
        if (all.isEmpty())
            qFatal("No item named %s", qPrintable(name));
        return all.first();
    }
    // Rectangle and vertical edges in panel coordinates.
    QRectF rect(const QQuickItem* item) const
    {
        return item->mapRectToItem(m_panel.get(), QRectF(0, 0, item->width(), item->height()));
    }
    double top(const QQuickItem* item) const { return rect(item).top(); }
    double bottom(const QQuickItem* item) const { return rect(item).bottom(); }

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

inline QString textOf(const QQuickItem* item)
{
    return item->property("text").toString();
}

} // namespace limitra::test
