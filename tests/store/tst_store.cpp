#include "store/MenuBarText.h"
#include "store/UsageStore.h"
#include "store/UsageStoreRegistry.h"
#include "support/TestEnv.h"

#include <QSemaphore>
#include <QSignalSpy>
#include <QtTest>

#include <atomic>
#include <thread>
#include <memory>

using namespace limitra;

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

    std::function<ServiceUsage()> fetch(std::atomic<int>& calls, const char* name)
    {
        return [this, &calls, name] {
            const int n = ++calls;
            gate.acquire();
            gate.release();
            return test::usage({}, 1, {}, QStringLiteral("%1-%2").arg(QLatin1String(name)).arg(n));
        };
    }
    UsageStore::Services services()
    {
        return { fetch(claudeCalls, "claude"), fetch(codexCalls, "codex"),
            [this] { return update(++updateChecks); } };
    }
};

struct Fixture
{
    test::TestEnv t { 1'000'000.0 };
    Script script;

    std::unique_ptr<UsageStore> store() { return std::make_unique<UsageStore>(t.env, script.services()); }
};

void settle(UsageStore& store)
{
    QTRY_VERIFY(!store.isRefreshing());
    QTest::qWait(20); // lets the update check of the refresh finish
}

// "84.4r" is a row with 84.4 % left and a reset moment; "30" one without.
ServiceUsage leftRows(const QStringList& rows)
{
    ServiceUsage u;
    for (QString text : rows) {
        const bool resets = text.endsWith('r');
        text.remove('r');
        u.rows.append(test::row(text, 100.0 - text.toDouble(), resets ? std::optional(1.7e9) : std::nullopt));
    }
    return u;
}

} // namespace

class TestStore : public QObject
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
        // Both fetches have started while neither can finish: they run at the same time.
        QTRY_COMPARE(f.script.claudeCalls.load() + f.script.codexCalls.load(), 2);
        f.script.gate.release(1000);
        settle(*store);
        QCOMPARE(store->claude().planBadge, std::optional<QString>("claude-1"));
        QCOMPARE(store->codex().planBadge, std::optional<QString>("codex-1"));
        QCOMPARE(store->lastRefresh(), *f.t.clock);
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

    void refreshDuringARefreshChangesNothing()
    {
        Fixture f;
        f.script.gate.acquire(1000);
        auto store = f.store();
        QTRY_VERIFY(store->isRefreshing());
        const double began = store->lastRefresh();
        *f.t.clock += 10;
        QFuture<void> second = store->refresh();
        QVERIFY(second.isFinished());
        QCOMPARE(store->lastRefresh(), began);
        f.script.gate.release(1000);
        settle(*store);
        QCOMPARE(f.script.claudeCalls.load(), 1);
        QCOMPARE(f.script.codexCalls.load(), 1);
    }

    // Quitting during a refresh: its last steps run before the store goes,
    // instead of later against a store and a pool that no longer exist.
    void storeDestroyedDuringARefreshFinishesItFirst()
    {
        Fixture f;
        f.script.gate.acquire(1000);
        auto store = f.store();
        QTRY_VERIFY(store->isRefreshing());
        std::thread opener([&f] {
            QThread::msleep(100);
            f.script.gate.release(1000);
        });
        store.reset();
        opener.join();
        QCOMPARE(f.script.updateChecks.load(), 1);
        QCOMPARE(UsageStoreRegistry::shared(), nullptr);
    }

    void tickRefreshesOnceTheIntervalHasPassed_data()
    {
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<double>("intervalSeconds");
        QTest::newRow("1 minute") << QVariant(1) << 60.0;
        QTest::newRow("absent means 5") << QVariant() << 300.0;
        QTest::newRow("0 means 5") << QVariant(0) << 300.0;
        QTest::newRow("negative means 5") << QVariant(-3) << 300.0;
    }
    void tickRefreshesOnceTheIntervalHasPassed()
    {
        QFETCH(QVariant, stored);
        QFETCH(double, intervalSeconds);
        Fixture f;
        if (stored.isValid())
            f.t.defaults->setValue(QStringLiteral("refreshIntervalMinutes"), stored);
        auto store = f.store();
        settle(*store);
        const double began = store->lastRefresh();

        *f.t.clock = began + intervalSeconds - 0.001;
        store->tick();
        settle(*store);
        QCOMPARE(f.script.claudeCalls.load(), 1);
        QCOMPARE(store->now(), *f.t.clock); // the clock advances on every tick

        *f.t.clock = began + intervalSeconds;
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
        f.t.defaults->setShowClaude(false);
        store->refresh();
        settle(*store);
        QCOMPARE(f.script.claudeCalls.load(), 1);
        QCOMPARE(f.script.codexCalls.load(), 2);
        QCOMPARE(store->claude().planBadge, std::optional<QString>("claude-1"));
        QCOMPARE(store->codex().planBadge, std::optional<QString>("codex-2"));

        f.t.defaults->setShowCodex(false);
        QSignalSpy refreshing(store.get(), &UsageStore::isRefreshingChanged);
        *f.t.clock += 5;
        store->refresh();
        settle(*store);
        QCOMPARE(f.script.claudeCalls.load() + f.script.codexCalls.load(), 3); // nothing fetched
        QCOMPARE(refreshing.count(), 2);
        QCOMPARE(store->now(), *f.t.clock);
        QCOMPARE(f.script.updateChecks.load(), 3); // the update check still runs
    }

    void anUpdateOnceFoundIsNeverCleared()
    {
        Fixture f;
        f.script.update = [](int call) -> std::optional<UpdateInfo> {
            if (call == 2)
                return std::nullopt;
            return UpdateInfo { QStringLiteral("9.%1").arg(call), QUrl("https://example.org/d"),
                std::nullopt };
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
        f.t.defaults->setMenuBarStyle(QStringLiteral("iconOnly"));
        QCOMPARE(text.count(), 1);
        QCOMPARE(store->menuBarText(), QString());
    }

    void menuBarTextComposesEveryStyleAndMode_data()
    {
        QTest::addColumn<QString>("style");
        QTest::addColumn<QString>("mode");
        QTest::addColumn<bool>("showClaude");
        QTest::addColumn<bool>("showCodex");
        QTest::addColumn<QStringList>("claude");
        QTest::addColumn<QStringList>("codex");
        QTest::addColumn<QString>("expected");
        const struct
        {
            const char *name, *style, *mode;
            bool showClaude, showCodex;
            QStringList claude, codex;
            const char* expected;
        } cases[] = {
            { "lowest row per service", "iconAndPercents", "remaining", true, true, { "84.4r", "30r" }, {},
                "C 30% · X –" },
            { "used mode", "iconAndPercents", "used", true, true, { "84.4r", "30r" }, { "61r" },
                "C 70% · X 39%" },
            { "half rounds up when left", "iconAndPercents", "remaining", true, false, { "0.5r" }, {},
                "C 1%" },
            { "half rounds up when used", "iconAndPercents", "used", true, false, { "0.5r" }, {}, "C 100%" },
            { "row without reset ignored", "iconAndPercents", "remaining", true, false, { "40" }, {}, "C –" },
            { "claude hidden", "iconAndPercents", "remaining", false, true, { "10r" }, {}, "X –" },
            { "both hidden", "iconAndPercents", "remaining", false, false, { "10r" }, { "10r" }, "" },
            { "over-used row counts as nothing left", "iconAndPercents", "remaining", true, true, { "-30r" },
                { "110r" }, "C 0% · X 100%" },
            { "unknown style reads as percents", "IconOnly", "remaining", true, true, { "50r" }, { "20r" },
                "C 50% · X 20%" },
            { "unknown mode reads as remaining", "iconAndPercents", "Used", true, false, { "50.5r" }, {},
                "C 51%" },
            { "worst across services", "iconAndWorst", "remaining", true, true, { "40r" }, { "25r" }, "25%" },
            { "worst in used mode", "iconAndWorst", "used", true, true, { "40r" }, { "12r" }, "88%" },
            { "worst skips hidden service", "iconAndWorst", "remaining", true, false, { "40r" }, { "25r" },
                "40%" },
            { "worst without data", "iconAndWorst", "remaining", true, true, { "40" }, {}, "" },
            { "icon only", "iconOnly", "remaining", true, true, { "40r" }, { "25r" }, "" },
        };
        for (const auto& c : cases)
            QTest::newRow(c.name) << QString(c.style) << QString(c.mode) << c.showClaude << c.showCodex
                                  << c.claude << c.codex << QString::fromUtf8(c.expected);
    }
    void menuBarTextComposesEveryStyleAndMode()
    {
        QFETCH(QString, style);
        QFETCH(QString, mode);
        QFETCH(bool, showClaude);
        QFETCH(bool, showCodex);
        QFETCH(QStringList, claude);
        QFETCH(QStringList, codex);
        QFETCH(QString, expected);
        QCOMPARE(MenuBarText::compose(leftRows(claude), leftRows(codex), showClaude, showCodex, style, mode),
            expected);
        // A failed record is judged by its rows alone.
        ServiceUsage failed = leftRows(claude);
        failed.error = QStringLiteral("boom");
        QCOMPARE(MenuBarText::worstLeft(failed), MenuBarText::worstLeft(leftRows(claude)));
    }
};

QTEST_GUILESS_MAIN(TestStore)
#include "tst_store.moc"
