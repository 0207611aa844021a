#include "platform/Http.h"
#include "support/TestEnv.h"
#include "update/UpdateChecker.h"

#include <QElapsedTimer>
#include <QTest>

using namespace limitra;
using namespace limitra::test;

namespace {
const QByteArray kFeedPath = "/api/version.json";
constexpr double kNow = 1740832496.25;
const QString kUrl = QStringLiteral("https://limitra.app/download/7?os=linux");

// A version after the running one.
QString newer()
{
    return UpdateChecker::currentVersion() + QStringLiteral(".1");
}

QByteArray feed(const QString& version, const QString& url = kUrl, const QString& extra = QString())
{
    return QStringLiteral("{\"version\":\"%1\",\"download_url\":\"%2\"%3}").arg(version, url, extra).toUtf8();
}
} // namespace

class TestUpdateChecker : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestEnv> t;

    qsizetype feedReads() const { return t->peer.requests("GET", kFeedPath).size(); }

private Q_SLOTS:
    void initTestCase() { platform::Http::globalInit(); }
    void init() { t = std::make_unique<TestEnv>(kNow, std::chrono::seconds(2)); }
    void cleanup() { t.reset(); }

    void versionIsBuiltIn() { QCOMPARE(UpdateChecker::currentVersion(), QStringLiteral(EXPECTED_VERSION)); }

    // notes: an invalid QVariant means no release notes; stamped: the check time was stored.
    void feedIsJudged_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<bool>("announced");
        QTest::addColumn<QVariant>("notes");
        QTest::addColumn<bool>("stamped");
        const QString v = newer();
        QTest::newRow("newer, with notes") << 200 << feed(v, kUrl, ",\"release_notes\":\"Línea 1\\nLínea 2\"")
                                           << true << QVariant("Línea 1\nLínea 2") << true;
        QTest::newRow("newer, null notes, other members")
            << 200 << feed(v, kUrl, ",\"release_notes\":null,\"size\":3") << true << QVariant() << true;
        QTest::newRow("same version")
            << 200 << feed(UpdateChecker::currentVersion()) << false << QVariant() << true;
        QTest::newRow("older version") << 200 << feed("0.9.9") << false << QVariant() << true;
        QTest::newRow("not found") << 404 << feed(v) << false << QVariant() << false;
        QTest::newRow("array") << 200 << "[" + feed(v) + "]" << false << QVariant() << false;
        QTest::newRow("not JSON") << 200 << QByteArray("version=9") << false << QVariant() << false;
        QTest::newRow("no version") << 200 << QByteArray("{\"download_url\":\"https://x.test/\"}") << false
                                    << QVariant() << false;
        QTest::newRow("no download_url")
            << 200 << QByteArray(R"({"version":"99"})") << false << QVariant() << false;
        QTest::newRow("download_url to a local file")
            << 200 << feed(v, "file:///etc/passwd") << false << QVariant() << false;
        QTest::newRow("dropped connection") << kDrop << QByteArray() << false << QVariant() << false;
        QTest::newRow("never answers") << kHang << QByteArray() << false << QVariant() << false;
    }
    void feedIsJudged()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(bool, announced);
        QFETCH(QVariant, notes);
        QFETCH(bool, stamped);
        t->peer.on("GET", kFeedPath, answer(status, body));

        QElapsedTimer timer;
        timer.start();
        const auto info = UpdateChecker::check(t->env);
        QVERIFY2(timer.elapsed() < 5000, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(info.has_value(), announced);
        if (info) {
            const auto expected = notes.isValid() ? std::optional(notes.toString()) : std::nullopt;
            QCOMPARE(*info, (UpdateInfo { newer(), QUrl(kUrl), expected }));
        }
        QCOMPARE(t->defaults->lastUpdateCheck(), stamped ? kNow : 0.0);
        QCOMPARE(feedReads(), 1);
        QVERIFY(!t->peer.requests().constFirst().hasHeader("authorization"));
    }

    // stored: an invalid QVariant leaves the key absent. reads: feed requests expected.
    void checksAtMostOnceADay_data()
    {
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<double>("now");
        QTest::addColumn<int>("reads");
        QTest::newRow("never checked") << QVariant() << kNow << 1;
        QTest::newRow("exactly a day ago") << QVariant(kNow - 86400) << kNow << 0;
        QTest::newRow("a day and a millisecond ago") << QVariant(kNow) << kNow + 86400.001 << 1;
        QTest::newRow("future stamp, a day later") << QVariant(kNow + 3600) << kNow + 3600 + 86400 << 0;
        QTest::newRow("stamp not a number") << QVariant("yesterday") << kNow << 1;
    }
    void checksAtMostOnceADay()
    {
        QFETCH(QVariant, stored);
        QFETCH(double, now);
        QFETCH(int, reads);
        t->peer.on("GET", kFeedPath, answer(200, feed(newer())));
        if (stored.isValid())
            t->defaults->setValue("lastUpdateCheck", stored);
        *t->clock = now;

        const auto info = UpdateChecker::checkIfDue(t->env);
        QCOMPARE(feedReads(), reads);
        QCOMPARE(info.has_value(), reads == 1);
        if (reads == 1)
            QCOMPARE(t->defaults->lastUpdateCheck(), now);
    }

    void failedReadIsRetriedAtTheNextCall()
    {
        t->peer.onSequence("GET", kFeedPath, { answer(404, "{}"), answer(200, feed(newer())) });
        QVERIFY(!UpdateChecker::checkIfDue(t->env));
        QCOMPARE(t->defaults->lastUpdateCheck(), 0.0);

        *t->clock += 30;
        QVERIFY(UpdateChecker::checkIfDue(t->env));
        QCOMPARE(t->defaults->lastUpdateCheck(), kNow + 30);

        *t->clock += 30;
        QVERIFY(!UpdateChecker::checkIfDue(t->env));
        QCOMPARE(feedReads(), 2);
    }

    void versionsCompareNumerically_data()
    {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<bool>("newer");
        const struct
        {
            const char *a, *b;
            bool newer;
        } cases[] = {
            { "1.2.10", "1.2.9", true }, // numerically, not as text
            { "1.3", "1.2.9", true }, // the first difference decides
            { "2", "2.0.0", false }, // missing parts read 0
            { "2.0.1", "2", true }, // a non-zero extra part counts
            { "1..2", "1.1", true }, // empty parts are dropped
            { "", "", false }, { "0.0.1", "", true },
            { "1.2.3-beta", "1.2.0", false }, // a part that is no number reads 0
            { "1.٣", "1.2", false }, // only ASCII digits count
            { "+2", "1", true }, { "0", "-1", true }, // signs are read
            { "99999999999999999999", "1", false }, // overflow reads 0
            { "9223372036854775807", "9223372036854775806", true },
            { "-9223372036854775808", "-9223372036854775807", false },
            { "-9223372036854775809", "-1", true }, // below the range reads 0
        };
        for (const auto& c : cases)
            QTest::addRow("%s vs %s", c.a, c.b)
                << QString::fromUtf8(c.a) << QString::fromUtf8(c.b) << c.newer;
    }
    void versionsCompareNumerically()
    {
        QFETCH(QString, a);
        QFETCH(QString, b);
        QFETCH(bool, newer);
        QCOMPARE(UpdateChecker::isNewer(a, b), newer);
    }
};

QTEST_GUILESS_MAIN(TestUpdateChecker)
#include "tst_updatechecker.moc"
