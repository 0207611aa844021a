#include "platform/Defaults.h"
#include "platform/Environment.h"
#include "platform/Http.h"
#include "support/FakePeer.h"
#include "update/UpdateChecker.h"

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace limitra;
using limitra::test::FakePeer;
using limitra::test::PeerAnswer;

Q_DECLARE_METATYPE(limitra::test::PeerAnswer)

namespace {
const QByteArray kFeedPath = "/api/version.json";
constexpr double kNow = 1740832496.25;

// A feed naming a version after the running one.
QString newerVersion()
{
    return UpdateChecker::currentVersion() + QStringLiteral(".1");
}

QByteArray feed(const QString& version, const QString& url = "https://limitra.app/download",
    const QString& extra = QString())
{
    return QStringLiteral("{\"version\":\"%1\",\"download_url\":\"%2\"%3}").arg(version, url, extra).toUtf8();
}

// A checker environment with its own settings file, a local feed and a movable clock.
struct Fixture
{
    QTemporaryDir dir;
    FakePeer peer;
    std::shared_ptr<platform::Defaults> defaults
        = std::make_shared<platform::Defaults>(dir.filePath(QStringLiteral("limitra.conf")));
    std::shared_ptr<double> clock = std::make_shared<double>(kNow);
    platform::Environment env;

    Fixture()
    {
        env.endpoints = platform::Endpoints::at(peer.baseUrl());
        env.defaults = defaults;
        env.now = [c = clock] { return *c; };
        env.timeoutCap = std::chrono::seconds(15);
    }

    qsizetype feedReads() const { return peer.requests("GET", kFeedPath).size(); }
};
} // namespace

class TestUpdateChecker : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { platform::Http::globalInit(); }

    void versionIsBuiltIn() { QCOMPARE(UpdateChecker::currentVersion(), QStringLiteral(EXPECTED_VERSION)); }

    // notes: an invalid QVariant means the result carries no release notes.
    void feedIsJudged_data()
    {
        QTest::addColumn<PeerAnswer>("answer");
        QTest::addColumn<bool>("announced");
        QTest::addColumn<QVariant>("notes");
        QTest::addColumn<bool>("stamped");
        const QString v = newerVersion();
        const QString current = UpdateChecker::currentVersion();
        const auto ok = [](const QByteArray& body) { return PeerAnswer::json(200, body); };

        QTest::newRow("newer, with notes")
            << ok(feed(v, "https://limitra.app/dl", ",\"release_notes\":\"Más rápido.\"")) << true
            << QVariant("Más rápido.") << true;
        QTest::newRow("newer, no notes") << ok(feed(v)) << true << QVariant() << true;
        QTest::newRow("newer, null notes")
            << ok(feed(v, "https://x.test/", ",\"release_notes\":null")) << true << QVariant() << true;
        QTest::newRow("newer, other members")
            << ok(feed(v, "https://x.test/", ",\"sha256\":\"ab\",\"size\":3")) << true << QVariant() << true;
        QTest::newRow("same version") << ok(feed(current)) << false << QVariant() << true;
        QTest::newRow("same version, trailing zero")
            << ok(feed(current + ".0")) << false << QVariant() << true;
        QTest::newRow("older version") << ok(feed("0.9.9")) << false << QVariant() << true;
        QTest::newRow("not found") << PeerAnswer::json(404, feed(v)) << false << QVariant() << false;
        QTest::newRow("array") << ok("[" + feed(v) + "]") << false << QVariant() << false;
        QTest::newRow("not JSON") << ok("version=9") << false << QVariant() << false;
        QTest::newRow("no version") << ok("{\"download_url\":\"https://x.test/\"}") << false << QVariant()
                                    << false;
        QTest::newRow("numeric version")
            << ok("{\"version\":9,\"download_url\":\"https://x.test/\"}") << false << QVariant() << false;
        QTest::newRow("no download_url") << ok("{\"version\":\"99\"}") << false << QVariant() << false;
        QTest::newRow("empty download_url") << ok(feed(v, "")) << false << QVariant() << false;
        QTest::newRow("download_url with spaces")
            << ok(feed(v, "https://x.test/a b")) << false << QVariant() << false;
        QTest::newRow("download_url without scheme")
            << ok(feed(v, "limitra.app/dl")) << false << QVariant() << false;
        QTest::newRow("download_url to a local file")
            << ok(feed(v, "file:///etc/passwd")) << false << QVariant() << false;
        QTest::newRow("dropped connection") << PeerAnswer::drop() << false << QVariant() << false;
    }

    void feedIsJudged()
    {
        QFETCH(PeerAnswer, answer);
        QFETCH(bool, announced);
        QFETCH(QVariant, notes);
        QFETCH(bool, stamped);
        Fixture f;
        f.peer.on("GET", kFeedPath, answer);

        const auto info = UpdateChecker::check(f.env);

        QCOMPARE(info.has_value(), announced);
        if (info) {
            QCOMPARE(info->version, newerVersion());
            QVERIFY(info->downloadURL.isValid());
            QCOMPARE(info->releaseNotes.has_value(), notes.isValid());
            if (notes.isValid())
                QCOMPARE(*info->releaseNotes, notes.toString());
        }
        QCOMPARE(f.defaults->lastUpdateCheck(), stamped ? kNow : 0.0);
        QCOMPARE(f.feedReads(), 1);
        QVERIFY(!f.peer.requests().constFirst().hasHeader("authorization"));
    }

    void announcementCarriesTheFeedAsGiven()
    {
        Fixture f;
        f.peer.on("GET", kFeedPath,
            PeerAnswer::json(200,
                feed("7.0.2", "https://limitra.app/download/7.0.2?os=linux",
                    ",\"release_notes\":\"Línea 1\\nLínea 2\"")));
        const auto info = UpdateChecker::check(f.env);
        QVERIFY(info);
        const UpdateInfo expected { "7.0.2", QUrl("https://limitra.app/download/7.0.2?os=linux"),
            QStringLiteral("Línea 1\nLínea 2") };
        QCOMPARE(*info, expected);
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
        QTest::newRow("an hour ago") << QVariant(kNow - 3600) << kNow << 0;
        QTest::newRow("stamp in the future") << QVariant(kNow + 3600) << kNow << 0;
        QTest::newRow("future stamp, a day later") << QVariant(kNow + 3600) << kNow + 3600 + 86400 << 0;
        QTest::newRow("future stamp, past a day") << QVariant(kNow + 3600) << kNow + 3600 + 86401 << 1;
        QTest::newRow("stamp not a number") << QVariant("yesterday") << kNow << 1;
    }

    void checksAtMostOnceADay()
    {
        QFETCH(QVariant, stored);
        QFETCH(double, now);
        QFETCH(int, reads);
        Fixture f;
        f.peer.on("GET", kFeedPath, PeerAnswer::json(200, feed(newerVersion())));
        if (stored.isValid())
            f.defaults->setValue("lastUpdateCheck", stored);
        *f.clock = now;

        const auto info = UpdateChecker::checkIfDue(f.env);

        QCOMPARE(f.feedReads(), reads);
        QCOMPARE(info.has_value(), reads == 1);
        if (reads == 1)
            QCOMPARE(f.defaults->lastUpdateCheck(), now);
    }

    void failedReadIsRetriedAtTheNextCall()
    {
        Fixture f;
        f.peer.onSequence(
            "GET", kFeedPath, { PeerAnswer::json(404, "{}"), PeerAnswer::json(200, feed(newerVersion())) });
        QVERIFY(!UpdateChecker::checkIfDue(f.env));
        QCOMPARE(f.defaults->lastUpdateCheck(), 0.0);

        *f.clock += 30;
        QVERIFY(UpdateChecker::checkIfDue(f.env));
        QCOMPARE(f.defaults->lastUpdateCheck(), kNow + 30);

        *f.clock += 30;
        QVERIFY(!UpdateChecker::checkIfDue(f.env));
        QCOMPARE(f.feedReads(), 2);
    }

    void manualCheckRestartsTheDay()
    {
        Fixture f;
        f.peer.on("GET", kFeedPath, PeerAnswer::json(200, feed(UpdateChecker::currentVersion())));
        f.defaults->setLastUpdateCheck(kNow - 86000);

        QVERIFY(!UpdateChecker::check(f.env));
        QCOMPARE(f.feedReads(), 1);
        QCOMPARE(f.defaults->lastUpdateCheck(), kNow);

        *f.clock += 1000; // past the old day, inside the new one
        QVERIFY(!UpdateChecker::checkIfDue(f.env));
        QCOMPARE(f.feedReads(), 1);
    }

    void silentFeedIsAbandonedAtTheTimeout()
    {
        Fixture f;
        f.env.timeoutCap = std::chrono::milliseconds(800);
        f.peer.on("GET", kFeedPath, PeerAnswer::hang());
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!UpdateChecker::checkIfDue(f.env));
        QVERIFY2(timer.elapsed() < 5000, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(f.defaults->lastUpdateCheck(), 0.0);
        QCOMPARE(f.feedReads(), 1);
    }

    void versionsCompareNumerically_data()
    {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<bool>("newer");
        QTest::newRow("patch 10 > 9") << "1.2.10"
                                      << "1.2.9" << true;
        QTest::newRow("minor beats longer") << "1.3"
                                            << "1.2.9" << true;
        QTest::newRow("1.10 > 1.9") << "1.10"
                                    << "1.9" << true;
        QTest::newRow("2 == 2.0.0") << "2"
                                    << "2.0.0" << false;
        QTest::newRow("2.0.1 > 2") << "2.0.1"
                                   << "2" << true;
        QTest::newRow("equal") << "1.0"
                               << "1.0" << false;
        QTest::newRow("1.0.1 > 1") << "1.0.1"
                                   << "1" << true;
        QTest::newRow("empty parts dropped") << "1..2"
                                             << "1.1" << true;
        QTest::newRow("dots only") << ".1."
                                   << "1" << false;
        QTest::newRow("both empty") << ""
                                    << "" << false;
        QTest::newRow("anything vs empty") << "0.0.1"
                                           << "" << true;
        QTest::newRow("suffix reads 0") << "1.2.3-beta"
                                        << "1.2.0" << false;
        QTest::newRow("suffix, higher minor") << "1.2.3-beta"
                                              << "1.1.9" << true;
        QTest::newRow("rc1 reads 0") << "rc1"
                                     << "0" << false;
        QTest::newRow("plus sign") << "+2"
                                   << "1" << true;
        QTest::newRow("minus sign") << "-1"
                                    << "0" << false;
        QTest::newRow("zero beats negative") << "0"
                                             << "-1" << true;
        QTest::newRow("non-ASCII digit reads 0") << QString::fromUtf8("1.٣") << "1.2" << false;
        QTest::newRow("overflow reads 0") << "99999999999999999999"
                                          << "1" << false;
        QTest::newRow("largest component") << "9223372036854775807"
                                           << "9223372036854775806" << true;
        QTest::newRow("smallest component") << "-9223372036854775808"
                                            << "-9223372036854775807" << false;
        QTest::newRow("below the range reads 0") << "-9223372036854775809"
                                                 << "-1" << true;
        QTest::newRow("trailing zeros") << "1.2"
                                        << "1.2.0.0.1" << false;
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
