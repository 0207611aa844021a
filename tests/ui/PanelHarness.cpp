#include "PanelHarness.h"

#include "store/UsageStore.h"
#include "ui/UiModule.h"
#include "ui/panel/LimitsPanel.h"
#include "ui/panel/PanelActions.h"

#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>
#include <QThread>

#include <functional>

namespace limitra::test {

PanelHarness::PanelHarness()
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
    const auto update = [script] { return script->update; };
    m_store = std::make_unique<UsageStore>(
        m_env.env, UsageStore::Services { fetch(&Script::claude), fetch(&Script::codex), update });
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

PanelHarness::~PanelHarness()
{
    m_panel->setParentItem(nullptr);
}

void PanelHarness::script(
    const ServiceUsage& claude, const ServiceUsage& codex, const std::optional<UpdateInfo>& update)
{
    m_script->claude = claude;
    m_script->codex = codex;
    m_script->update = update;
}

void PanelHarness::publish(
    const ServiceUsage& claude, const ServiceUsage& codex, const std::optional<UpdateInfo>& update)
{
    script(claude, codex, update);
    const QFuture<void> done = m_store->refresh();
    if (!QTest::qWaitFor([&] { return done.isFinished() && !m_store->isRefreshing(); }, 5000))
        qFatal("The store did not finish its refresh");
    settle();
}

void PanelHarness::show()
{
    m_window = std::make_unique<QQuickWindow>();
    m_panel->setParentItem(m_window->contentItem());
    m_window->show();
    if (!QTest::qWaitForWindowExposed(m_window.get()))
        qFatal("The panel's window was not exposed");
    settle();
}

void PanelHarness::settle()
{
    if (!m_window)
        return;
    // Grabbing polishes every item, so positions and sizes are final afterwards.
    m_window->grabWindow();
    m_window->resize(int(m_panel->width()), int(m_panel->implicitHeight()));
    m_window->grabWindow();
}

void PanelHarness::click(QQuickItem* item)
{
    const QPointF centre = item->mapToScene(QPointF(item->width() / 2, item->height() / 2));
    QTest::mouseClick(m_window.get(), Qt::LeftButton, {}, centre.toPoint());
}

QList<QQuickItem*> PanelHarness::findAll(const QString& name, QQuickItem* within) const
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

QList<QQuickItem*> PanelHarness::findVisible(const QString& name, QQuickItem* within) const
{
    QList<QQuickItem*> found = findAll(name, within);
    found.removeIf([](const QQuickItem* item) { return !item->isVisible(); });
    return found;
}

QQuickItem* PanelHarness::find(const QString& name, QQuickItem* within) const
{
    const QList<QQuickItem*> all = findAll(name, within);
    if (all.isEmpty())
        qFatal("No item named %s", qPrintable(name));
    return all.first();
}

QRectF PanelHarness::rect(const QQuickItem* item) const
{
    return item->mapRectToItem(m_panel.get(), QRectF(0, 0, item->width(), item->height()));
}

double PanelHarness::top(const QQuickItem* item) const
{
    return rect(item).top();
}
double PanelHarness::bottom(const QQuickItem* item) const
{
    return rect(item).bottom();
}

QString textOf(const QQuickItem* item)
{
    return item->property("text").toString();
}

} // namespace limitra::test
