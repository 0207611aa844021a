// Texts and values the user sees, the store's refresh and label, and the update check.
#include "model/FormatUtil.h"
#include "model/MenuBarStyle.h"
#include "model/PercentMode.h"
#include "model/PlanBadge.h"
#include "platform/Http.h"
#include "store/MenuBarText.h"
#include "store/UsageStore.h"
#include "store/UsageStoreRegistry.h"
#include "support/TestEnv.h"
#include "update/UpdateChecker.h"

#include <QSemaphore>
#include <QSignalSpy>
#include <QtTest>

using namespace limitra;
using namespace limitra::test;

namespace {
constexpr double kNow = 1740832496.25;
const QByteArray kFeed = "/api/version.json";
const QString kUrl = "https://limitra.app/download/7?os=linux";

// kind|input|expected. Moments are read and written back in UTC, "" when refused;
// durations are seconds from now; a label is "style mode showCodex claudeRows codexRows".
const char* const kTexts = R"(date|2025-03-01T12:34:56.789Z|2025-03-01T12:34:56.789Z
date|2025-03-01T12:34:56+02:00|2025-03-01T10:34:56.000Z
date|2025-03-01T22:04:00-05:30|2025-03-02T03:34:00.000Z
date|2000-02-29T00:00:00Z|2000-02-29T00:00:00.000Z
date|1969-12-31T23:59:59.250Z|1969-12-31T23:59:59.250Z
date|2025-03-01|
date|2025-03-01T12:34:56|
date|2025-03-01T12:34:56+0200|
date|2025-03-01T12:34:56.Z|
date|2025-13-01T12:34:56Z|
date|2024-02-30T12:00:00Z|
date|1900-02-29T12:00:00Z|
date|2025-03-01T24:00:00Z|
date|2025-03-01T12:60:00Z|
date|2025-03-01T12:34:61Z|
date|2025-03-01T12:34:56Zjunk|
ago|0|hace 0 s
ago|-59|hace 59 s
ago|-60|hace 1 min
ago|-3599|hace 59 min
ago|-7530|hace 2 h 5 min
ago|10|hace 0 s
countdown|0.9|ahora
countdown|-3600|ahora
countdown|1|0m
countdown|3600|1h 0m
countdown|86399|23h 59m
countdown|183600|2d 3h
percent|remaining 84.5|85
percent|used 84.5|16
percent|remaining 45.6|46
percent|used 0.4|100
raw|used|used/
raw|remaining|remaining/
raw|iconOnly|/iconOnly
raw|iconAndWorst|/iconAndWorst
raw|Used|/
badge|pro|Pro
badge|équipe max|Équipe max
badge||-
newer|1.2.10 1.2.9|yes
newer|1.2.9 1.2.10|no
newer|1.3 1.2.9|yes
newer|2 2.0.0|no
newer|2.0.1 2|yes
newer|1..2 1.1|yes
newer|1.2.3-beta 1.2.0|no
label|iconAndPercents remaining 1 84.4r,30r|C 30% · X –
label|iconAndPercents used 1 84.4r,30r 61r|C 70% · X 39%
label|iconAndPercents remaining 0 40,50r|C 50%
label|iconAndPercents remaining 1 -30r 110r|C 0% · X 100%
label|IconOnly Used 1 50r 20.5r|C 50% · X 21%
label|iconAndWorst remaining 1 40r 25r,90r|25%
label|iconAndWorst used 1 40r 12r|88%
label|iconAndWorst remaining 0 40r 25r|40%
label|iconAndWorst remaining 1 40|
label|iconOnly remaining 1 40r 25r|)";

// "84.4r,30" are rows with 84.4 % left and a reset moment, and 30 % left without.
ServiceUsage leftRows(const QString& rows)
{
    ServiceUsage u;
    for (QString text : rows.split(',', Qt::SkipEmptyParts)) {
        const bool resets = text.endsWith('r');
        text.remove('r');
        u.rows.append(row(text, 100.0 - text.toDouble(), resets ? std::optional(1.7e9) : std::nullopt));
    }
    return u;
}

QByteArray feed(const QString& version, const QString& url = kUrl, const QString& extra = QString())
{
    return QStringLiteral("{\"version\":\"%1\",\"download_url\":\"%2\"%3}").arg(version, url, extra).toUtf8();
}

// Scripted services: each fetch counts its calls, can be held at a gate, and
// answers with a record whose plan and usage name the call.
struct Fixture
{
    TestEnv t { kNow };
    std::atomic<int> calls[3] { 0, 0, 0 }; // Claude, Codex, update checks
    QSemaphore gate { 1000 }; // open unless a test takes the permits

    std::function<ServiceUsage()> fetch(int service)
    {
        return [this, service] {
            const int n = ++calls[service];
            gate.acquire();
            gate.release();
            return usage({ row("w", 10.0 * n, 1.7e9) }, 1, {}, QStringLiteral("%1-%2").arg(service).arg(n));
        };
    }
    std::unique_ptr<UsageStore> store()
    {
        const auto update = [this]() -> std::optional<UpdateInfo> {
            const int n = ++calls[2];
            return n == 2 ? std::nullopt : std::optional(UpdateInfo { QString::number(n), QUrl(kUrl), {} });
        };
        return std::make_unique<UsageStore>(t.env, UsageStore::Services { fetch(0), fetch(1), update });
    }
};

void settle(UsageStore& store)
{
    QTRY_VERIFY(!store.isRefreshing());
    QTest::qWait(20); // lets the update check of the refresh finish
}
} // namespace

class TestCore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { platform::Http::globalInit(); }

    void texts_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("input");
        QTest::addColumn<QString>("expected");
        for (const QString& line : QString::fromUtf8(kTexts).split('\n')) {
            const QStringList f = line.split('|');
            QTest::newRow(qPrintable(line)) << f[0] << f[1] << f[2];
        }
    }
    void texts()
    {
        QFETCH(QString, kind);
        QFETCH(QString, input);
        QFETCH(QString, expected);
        const QStringList in = input.split(' ');
        const double n = in.last().toDouble();
        QString got;
        if (kind == "date") {
            const auto moment = FormatUtil::parseISODate(input);
            got = moment ? FormatUtil::iso8601Fractional(*moment) : QString();
        } else if (kind == "ago" || kind == "countdown") {
            got = kind == "ago" ? FormatUtil::ago(kNow + n, kNow) : FormatUtil::countdown(kNow + n, kNow);
        } else if (kind == "percent") {
            got = QString::number(PercentMode::fromRawValue(in[0])->value(n));
        } else if (kind == "raw") {
            const auto mode = PercentMode::fromRawValue(input);
            const auto style = MenuBarStyle::fromRawValue(input);
            got = (mode ? mode->rawValue() : "") + "/" + (style ? style->rawValue() : "");
        } else if (kind == "badge") {
            got = planBadge(input).value_or("-");
        } else if (kind == "newer") {
            got = UpdateChecker::isNewer(in[0], in[1]) ? "yes" : "no";
        } else {
            got = MenuBarText::compose(
                leftRows(in[3]), leftRows(in.value(4)), true, in[2] == "1", in[0], in[1]);
        }
        QCOMPARE(got, expected);
    }

    // Both services are fetched at once, a second refresh meanwhile does nothing,
    // and the records, the label and a found update are published when done.
    void refreshPublishesBothRecords()
    {
        Fixture f;
        f.gate.acquire(1000);
        auto store = f.store();
        QCOMPARE(UsageStoreRegistry::shared(), store.get());
        QSignalSpy text(store.get(), &UsageStore::menuBarTextChanged);
        QSignalSpy update(store.get(), &UsageStore::updateAvailableChanged);
        QTRY_COMPARE(f.calls[0] + f.calls[1], 2);
        QVERIFY(store->isRefreshing());
        *f.t.clock += 10;
        QVERIFY(store->refresh().isFinished());
        f.gate.release(1000);
        settle(*store);
        QCOMPARE(f.calls[0] + f.calls[1], 2);
        QCOMPARE(store->claude().planBadge, std::optional<QString>("0-1"));
        QCOMPARE(store->codex().planBadge, std::optional<QString>("1-1"));
        QCOMPARE(store->lastRefresh(), kNow);
        QCOMPARE(text.count(), 1);
        QCOMPARE(store->menuBarText(), QString::fromUtf8("C 90% · X 90%"));
        QCOMPARE(update.count(), 1);
        // An update once found stays until a newer one is found.
        store->refresh();
        settle(*store);
        QCOMPARE(store->updateAvailable()->version, "1");
        QCOMPARE(store->menuBarText(), QString::fromUtf8("C 80% · X 80%"));
        f.t.defaults->setMenuBarStyle("iconOnly"); // the label follows at once
        QCOMPARE(text.count(), 3);
        QCOMPARE(store->menuBarText(), QString());
        store->refresh();
        QTRY_COMPARE(store->updateAvailable()->version, "3");
    }

    void tickRefreshesOnceTheIntervalHasPassed_data()
    {
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<double>("interval");
        QTest::newRow("1 minute") << QVariant(1) << 60.0;
        QTest::newRow("absent means 5") << QVariant() << 300.0;
    }
    void tickRefreshesOnceTheIntervalHasPassed()
    {
        QFETCH(QVariant, stored);
        QFETCH(double, interval);
        Fixture f;
        if (stored.isValid())
            f.t.defaults->setValue("refreshIntervalMinutes", stored);
        auto store = f.store();
        settle(*store);
        for (const double late : { -0.001, 0.0 }) {
            *f.t.clock = kNow + interval + late;
            store->tick();
            settle(*store);
            QCOMPARE(store->now(), *f.t.clock);
        }
        QCOMPARE(f.calls[0], 2);
        QCOMPARE(store->lastRefresh(), kNow + interval);
    }

    // notes: "-" for none, "" for no announcement, null when the read failed
    // (then no check time is stored and the next call asks again).
    void feedIsJudged_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("notes");
        const QString v = UpdateChecker::currentVersion() + ".1";
        QTest::newRow("newer, notes")
            << 200 << feed(v, kUrl, ",\"release_notes\":\"Línea 1\\nLínea 2\"") << "Línea 1\nLínea 2";
        QTest::newRow("newer, null notes") << 200 << feed(v, kUrl, ",\"release_notes\":null") << "-";
        QTest::newRow("same version") << 200 << feed(UpdateChecker::currentVersion()) << "";
        QTest::newRow("older version") << 200 << feed("0.9.9") << "";
        QTest::newRow("error page") << 404 << feed(v) << QString();
        QTest::newRow("not JSON") << 200 << QByteArray("version=9") << QString();
        QTest::newRow("no download_url") << 200 << QByteArray(R"({"version":"99"})") << QString();
        QTest::newRow("local file") << 200 << feed(v, "file:///etc/passwd") << QString();
        QTest::newRow("script") << 200 << feed(v, "javascript://x.test/%0aalert(1)") << QString();
        QTest::newRow("never answers") << kHang << QByteArray() << QString();
    }
    void feedIsJudged()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QString, notes);
        TestEnv t(kNow, std::chrono::seconds(1));
        t.peer.on("GET", kFeed, answer(status, body));
        const auto info = UpdateChecker::checkIfDue(t.env);
        QCOMPARE(info.has_value(), !notes.isEmpty());
        if (info)
            QCOMPARE(*info,
                (UpdateInfo { UpdateChecker::currentVersion() + ".1", QUrl(kUrl),
                    notes == "-" ? std::nullopt : std::optional(notes) }));
        QCOMPARE(t.defaults->lastUpdateCheck(), notes.isNull() ? 0.0 : kNow);
        *t.clock += 86400;
        UpdateChecker::checkIfDue(t.env);
        QCOMPARE(t.peer.requests("GET", kFeed).size(), notes.isNull() ? 2 : 1);
        *t.clock += 0.001;
        UpdateChecker::checkIfDue(t.env);
        QCOMPARE(t.peer.requests("GET", kFeed).size(), notes.isNull() ? 3 : 2);
    }
};

QTEST_GUILESS_MAIN(TestCore)
#include "tst_core.moc"
