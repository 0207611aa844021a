#include "platform/Defaults.h"
#include "store/UsageStore.h"
#include "store/UsageStoreRegistry.h"

#include <QSemaphore>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <atomic>
#include <memory>

using namespace limitra;
using namespace std::chrono_literals;

namespace {

// Scripted services: each fetch counts its calls, can be held at a gate, and
// answers with a record naming the call.
struct Script
{
    std::atomic<int> claudeCalls { 0 };
    std::atomic<int> codexCalls { 0 };
    std::atomic<int> updateChecks { 0 };
    QSemaphore gate { 1000 }; // open unless a test takes the permits
    std::function<std::optional<UpdateInfo>(int)> update = [](int) { return std::nullopt; };

    static ServiceUsage record(const QString& badge)
    {
        ServiceUsage u;
        u.planBadge = badge;
        u.updatedAt = 1;
        return u;
    }

    UsageStore::Services services()
    {
        return {
            [this] {
                const int n = ++claudeCalls;
                gate.acquire();
                gate.release();
                return record(QStringLiteral("claude-%1").arg(n));
            },
            [this] {
                const int n = ++codexCalls;
                gate.acquire();
                gate.release();
                return record(QStringLiteral("codex-%1").arg(n));
            },
            [this] { return update(++updateChecks); },
        };
    }
};

struct Fixture
{
    QTemporaryDir dir;
    std::shared_ptr<platform::Defaults> defaults
        = std::make_shared<platform::Defaults>(dir.filePath(QStringLiteral("limitra.conf")));
    std::shared_ptr<double> clock = std::make_shared<double>(1'000'000.0);
    Script script;

    platform::Environment env()
    {
        platform::Environment e;
        e.home = dir.path();
        e.defaults = defaults;
        e.now = [c = clock] { return *c; };
        return e;
    }
    std::unique_ptr<UsageStore> store() { return std::make_unique<UsageStore>(env(), script.services()); }
};

void settle(UsageStore& store)
{
    QTRY_VERIFY(!store.isRefreshing());
    QTest::qWait(20); // lets the update check of the refresh finish
}

} // namespace

class TestUsageStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void firstRefreshStartsAtCreationWithoutATick()
    {
        Fixture f;
        f.script.gate.acquire(1000);
        auto store = f.store();
        QCOMPARE(UsageStoreRegistry::shared(), store.get());
        QVERIFY(!store->claude().planBadge);
        QVERIFY(!store->isRefreshing()); // starts once the event loop turns
        QTRY_VERIFY(store->isRefreshing());
        QTRY_COMPARE(f.script.claudeCalls.load() + f.script.codexCalls.load(), 2);
        f.script.gate.release(1000);
        settle(*store);
        QCOMPARE(store->claude().planBadge, std::optional<QString>("claude-1"));
        QCOMPARE(store->codex().planBadge, std::optional<QString>("codex-1"));
        QCOMPARE(store->lastRefresh(), *f.clock);
        QCOMPARE(f.script.updateChecks.load(), 1);
    }

    void bothRecordsArePublishedInOneStep()
    {
        Fixture f;
        auto store = f.store();
        settle(*store);
        QStringList seenAtClaudeSignal;
        connect(store.get(), &UsageStore::claudeChanged, this, [&] {
            seenAtClaudeSignal << store->claude().planBadgeOrEmpty() << store->codex().planBadgeOrEmpty();
        });
        store->refresh();
        settle(*store);
        QCOMPARE(seenAtClaudeSignal, (QStringList { "claude-2", "codex-2" }));
    }

    void bothFetchesOverlap()
    {
        Fixture f;
        // Each fetch waits until the other has started: serial fetches would time out.
        auto started = std::make_shared<QSemaphore>();
        auto overlapped = std::make_shared<std::atomic<int>>(0);
        const auto meet = [started, overlapped] {
            started->release();
            if (started->tryAcquire(2, 5000)) {
                started->release(2);
                ++*overlapped;
            }
            return ServiceUsage {};
        };
        UsageStore store(f.env(), { meet, meet, [] { return std::optional<UpdateInfo>(); } });
        QTRY_VERIFY_WITH_TIMEOUT(overlapped->load() == 2, 8000);
        settle(store);
    }

    void refreshDuringARefreshChangesNothing()
    {
        Fixture f;
        f.script.gate.acquire(1000);
        auto store = f.store();
        QTRY_VERIFY(store->isRefreshing());
        const double began = store->lastRefresh();
        *f.clock += 10;
        QFuture<void> second = store->refresh();
        QVERIFY(second.isFinished());
        QCOMPARE(store->lastRefresh(), began);
        f.script.gate.release(1000);
        settle(*store);
        QCOMPARE(f.script.claudeCalls.load(), 1);
        QCOMPARE(f.script.codexCalls.load(), 1);
    }

    void tickRefreshesOnceTheIntervalHasPassed_data()
    {
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<double>("intervalSeconds");
        QTest::newRow("1 minute") << QVariant(1) << 60.0;
        QTest::newRow("absent means 5") << QVariant() << 300.0;
        QTest::newRow("0 means 5") << QVariant(0) << 300.0;
        QTest::newRow("negative means 5") << QVariant(-3) << 300.0;
        QTest::newRow("15 minutes") << QVariant(15) << 900.0;
    }

    void tickRefreshesOnceTheIntervalHasPassed()
    {
        QFETCH(QVariant, stored);
        QFETCH(double, intervalSeconds);
        Fixture f;
        if (stored.isValid())
            f.defaults->setValue(QStringLiteral("refreshIntervalMinutes"), stored);
        auto store = f.store();
        settle(*store);
        const double began = store->lastRefresh();

        *f.clock = began + intervalSeconds - 0.001;
        store->tick();
        settle(*store);
        QCOMPARE(f.script.claudeCalls.load(), 1);
        QCOMPARE(store->now(), *f.clock); // the clock advances on every tick

        *f.clock = began + intervalSeconds;
        store->tick();
        settle(*store);
        QCOMPARE(f.script.claudeCalls.load(), 2);
        QCOMPARE(store->lastRefresh(), began + intervalSeconds);
    }

    void hiddenServicesAreNotFetchedAndKeepTheirRecord()
    {
        Fixture f;
        auto store = f.store();
        settle(*store);
        f.defaults->setShowClaude(false);
        store->refresh();
        settle(*store);
        QCOMPARE(f.script.claudeCalls.load(), 1);
        QCOMPARE(f.script.codexCalls.load(), 2);
        QCOMPARE(store->claude().planBadge, std::optional<QString>("claude-1"));
        QCOMPARE(store->codex().planBadge, std::optional<QString>("codex-2"));

        f.defaults->setShowCodex(false);
        QSignalSpy refreshing(store.get(), &UsageStore::isRefreshingChanged);
        *f.clock += 5;
        store->refresh();
        settle(*store);
        QCOMPARE(f.script.claudeCalls.load() + f.script.codexCalls.load(), 3); // nothing fetched
        QCOMPARE(refreshing.count(), 2);
        QCOMPARE(store->now(), *f.clock);
        QCOMPARE(f.script.updateChecks.load(), 3); // the update check still runs
    }

    void anUpdateOnceFoundIsNeverCleared()
    {
        Fixture f;
        f.script.update = [](int call) -> std::optional<UpdateInfo> {
            if (call == 2)
                return std::nullopt;
            return UpdateInfo { QStringLiteral("9.%1").arg(call), QUrl("https://example.org/d"), std::nullopt };
        };
        auto store = f.store();
        QTRY_VERIFY(store->hasUpdate());
        QCOMPARE(store->updateAvailable()->version, QStringLiteral("9.1"));
        store->refresh();
        settle(*store);
        QTRY_COMPARE(f.script.updateChecks.load(), 2);
        QTest::qWait(50);
        QCOMPARE(store->updateAvailable()->version, QStringLiteral("9.1"));
        store->refresh();
        QTRY_COMPARE(store->updateAvailable()->version, QStringLiteral("9.3"));
    }

    void menuBarTextFollowsSettingsAtOnce()
    {
        Fixture f;
        auto store = f.store();
        settle(*store);
        QSignalSpy text(store.get(), &UsageStore::menuBarTextChanged);
        QCOMPARE(store->menuBarText(), QString::fromUtf8("C – · X –"));
        f.defaults->setMenuBarStyle(QStringLiteral("iconOnly"));
        QCOMPARE(text.count(), 1);
        QCOMPARE(store->menuBarText(), QString());
    }
};

QTEST_GUILESS_MAIN(TestUsageStore)
#include "tst_usagestore.moc"
