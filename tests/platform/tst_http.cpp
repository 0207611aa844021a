#include "platform/Http.h"
#include "support/FakePeer.h"

#include <QElapsedTimer>
#include <QtTest>

using namespace limitra;
using namespace limitra::platform;
using limitra::test::FakePeer;
using limitra::test::PeerAnswer;

class TestHttp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { Http::globalInit(); }

    void sendsMethodHeadersAndBodyAndReturnsAnyStatus()
    {
        FakePeer peer;
        peer.on("POST", "/token", PeerAnswer::json(418, R"({"a":1})"));
        HttpRequest req;
        req.method = "POST";
        req.url = QUrl(peer.baseUrl().toString() + "/token");
        req.headers = { { "Content-Type", "application/json" }, { "X-Probe", "yes" } };
        req.body = QByteArray("{\"k\":\"v\"}");
        const auto res = Http::send(req);
        QVERIFY(res);
        QCOMPARE(res->status, 418);
        QCOMPARE(res->body, QByteArray(R"({"a":1})"));
        const auto seen = peer.requests("POST", "/token");
        QCOMPARE(seen.size(), 1);
        QCOMPARE(seen[0].body, req.body);
        QCOMPARE(seen[0].header("x-probe"), QByteArray("yes"));
        QCOMPARE(seen[0].header("content-type"), QByteArray("application/json"));
        QVERIFY(!seen[0].hasHeader("expect"));
        QVERIFY(!seen[0].hasHeader("user-agent"));
    }

    void redirectIsNotFollowed()
    {
        FakePeer peer;
        PeerAnswer moved;
        moved.status = 302;
        moved.headers = { { "Location", "/elsewhere" } };
        peer.on("GET", "/start", moved);
        HttpRequest req;
        req.url = QUrl(peer.baseUrl().toString() + "/start");
        const auto res = Http::send(req);
        QVERIFY(res);
        QCOMPARE(res->status, 302);
        QCOMPARE(peer.requests().size(), 1);
    }

    void transportFailuresGiveNothingWithinTheTimeout_data()
    {
        QTest::addColumn<int>("kind");
        QTest::newRow("dropped connection") << 0;
        QTest::newRow("no answer") << 1;
        QTest::newRow("nobody listening") << 2;
        QTest::newRow("tls against plain http") << 3;
    }

    void transportFailuresGiveNothingWithinTheTimeout()
    {
        QFETCH(int, kind);
        FakePeer peer;
        peer.on("GET", "/x", kind == 1 ? PeerAnswer::hang() : PeerAnswer::drop());
        HttpRequest req;
        req.timeout = std::chrono::milliseconds(400);
        QUrl url(peer.baseUrl().toString() + "/x");
        if (kind == 2)
            url.setPort(1); // reserved port, nothing listens
        if (kind == 3) {
            peer.on("GET", "/x", PeerAnswer::json(200, "{}"));
            url.setScheme(QStringLiteral("https"));
        }
        req.url = url;
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!Http::send(req));
        QVERIFY2(timer.elapsed() < 3000, "a failed request must end within its time-out");
    }
};

QTEST_GUILESS_MAIN(TestHttp)
#include "tst_http.moc"
