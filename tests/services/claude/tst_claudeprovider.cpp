#include "KeyringKit.h"

#include "platform/Environment.h"
#include "platform/Json.h"
#include "platform/LibsecretStore.h"
#include "services/claude/ClaudeProvider.h"
#include "support/FakePeer.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace limitra;
using namespace limitra::test;

namespace {

constexpr double kNow = 1732000000.0;
constexpr double kThreshold = kNow * 1000 + 300000; // a token must outlive this to be used as stored
const QByteArray kUsagePath = "/api/oauth/usage";
const QByteArray kTokenPath = "/v1/oauth/token";
const QString kCode = QString(ClaudeProvider::claudeCodeService);
const QString kOwn = QString(ClaudeProvider::ownService);
const QByteArray kUsage = R"({"five_hour":{"utilization":10},"seven_day":{"utilization":20}})";
const QByteArray kRenewed = R"({"access_token":"renewed","refresh_token":"rt-renewed","expires_in":3600})";
const QString kExpired = QStringLiteral(
    "Sesión de Claude Code expirada. Abre `claude` en la Terminal, ejecuta /login y luego pulsa ↻ aquí.");
const QString kNoCredentials = QStringLiteral(
    "Sin credenciales de Claude Code. Abre `claude` en la Terminal e inicia sesión (/login).");

QString httpError(int status)
{
    return QStringLiteral("No pude consultar el uso de Claude (HTTP %1).").arg(status);
}

// Statuses below zero script a transport failure instead of an answer.
constexpr int kDrop = -1;
constexpr int kHang = -2;
constexpr int kArrayAnswer = -3; // 200 with a JSON array

PeerAnswer answer(int status, const QByteArray& body = {})
{
    return status == kDrop ? PeerAnswer::drop()
        : status == kHang  ? PeerAnswer::hang()
                           : PeerAnswer::json(status, body);
}

QByteArray session(const QString& source, double expiresAt, const char* extra = R"(,"accessToken":"stored")")
{
    return QStringLiteral(R"({"source":"%1","claudeAiOauth":{"refreshToken":"rt-%1","expiresAt":%2,)"
                          R"("subscriptionType":"pro"%3}})")
        .arg(source, QString::number(expiresAt, 'f', 0), QLatin1String(extra))
        .toUtf8();
}

QByteArray formBody(const QByteArray& encodedToken)
{
    return "grant_type=refresh_token&refresh_token=" + encodedToken
        + "&client_id=3f6a2b1c-7d4e-4a9b-8c2d-1e5f6a7b8c9d";
}

} // namespace

class TestClaudeProvider : public QObject
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> home;
    std::unique_ptr<FakePeer> peer;
    platform::Environment env;

    QString filePath() const { return env.homePath(QString(ClaudeProvider::credentialsFile)); }
    bool writeFile(const QByteArray& bytes)
    {
        QDir().mkpath(QFileInfo(filePath()).path());
        QFile file(filePath());
        return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
    }
    QByteArray readFile() const
    {
        QFile file(filePath());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    // The refresh tokens the peer received, in order.
    QList<QByteArray> refreshTokens() const
    {
        QList<QByteArray> tokens;
        for (const auto& r : peer->requests("POST", kTokenPath))
            tokens << QByteArray::fromPercentEncoding(r.body.split('&').value(1).mid(14));
        return tokens;
    }
    QList<QByteArray> bearers() const
    {
        QList<QByteArray> values;
        for (const auto& r : peer->requests("GET", kUsagePath))
            values << r.header("authorization");
        return values;
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY2(Keyring::isPrivate(), "run through tests/support/with-keyring.sh"); }
    void init()
    {
        home = std::make_unique<QTemporaryDir>();
        peer = std::make_unique<FakePeer>();
        env.home = home->path();
        env.loginName = QStringLiteral("tester");
        env.endpoints = platform::Endpoints::at(peer->baseUrl());
        env.now = [] { return kNow; };
        env.secrets = std::make_shared<platform::LibsecretStore>();
        env.timeoutCap = std::chrono::milliseconds(500);
        Keyring::clear(kCode);
        Keyring::clear(kOwn);
    }
    void cleanup() { peer.reset(); }

    void refreshBodyIsFormEncoded_data()
    {
        QTest::addColumn<QString>("token");
        QTest::addColumn<QByteArray>("encoded");

        QTest::newRow("unreserved marks are encoded too") << "ab-c_d.e~f" << QByteArray("ab%2Dc%5Fd%2Ee%7Ef");
        QTest::newRow("letters of any script stay, a space does not")
            << "ñandú Δ9" << QByteArray("ñandú%20Δ9");
        QTest::newRow("combining mark and other digits stay") << "e\u0301x²" << QByteArray("e\u0301x²");
        QTest::newRow("form delimiters") << "a+b/c=d&e%" << QByteArray("a%2Bb%2Fc%3Dd%26e%25");
        QTest::newRow("symbol outside the basic plane") << "k🔑" << QByteArray("k%F0%9F%94%91");
        QTest::newRow("empty") << "" << QByteArray();
    }
    void refreshBodyIsFormEncoded()
    {
        QFETCH(QString, token);
        QFETCH(QByteArray, encoded);
        const QByteArray original
            = QStringLiteral(R"({"claudeAiOauth":{"refreshToken":"%1","expiresAt":0}})").arg(token).toUtf8();
        QVERIFY(writeFile(original));
        peer->on("POST", kTokenPath, answer(400, "{}"));

        QCOMPARE(ClaudeProvider::fetch(env).error, kExpired);
        const auto requests = peer->requests();
        QCOMPARE(requests.size(), 1);
        QCOMPARE(requests[0].method, QByteArray("POST"));
        QCOMPARE(requests[0].header("content-type"), QByteArray("application/x-www-form-urlencoded"));
        QCOMPARE(requests[0].body, formBody(encoded));
        // A failed refresh changes nothing anywhere.
        QCOMPARE(readFile(), original);
        QCOMPARE(Keyring::count(kOwn), 0);
    }

    // Which token the usage request carries, and which refresh tokens were spent first.
    void storedTokenOnlyWhenFreshBeyondMargin_data()
    {
        QTest::addColumn<QByteArray>("ownItem");
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QList<QByteArray>>("refreshed");
        QTest::addColumn<QByteArray>("bearer");

        QTest::newRow("exactly at the threshold") << QByteArray() << session("file", kThreshold)
                                                  << QList<QByteArray> { "rt-file" } << QByteArray("renewed");
        QTest::newRow("one millisecond later") << QByteArray() << session("file", kThreshold + 1)
                                               << QList<QByteArray> {} << QByteArray("stored");
        QTest::newRow("first fresh one has no access token")
            << session("own", kThreshold + 10, "") << session("file", kThreshold + 5)
            << QList<QByteArray> { "rt-own" } << QByteArray("renewed");
    }
    void storedTokenOnlyWhenFreshBeyondMargin()
    {
        QFETCH(QByteArray, ownItem);
        QFETCH(QByteArray, file);
        QFETCH(QList<QByteArray>, refreshed);
        QFETCH(QByteArray, bearer);
        if (!ownItem.isEmpty())
            QVERIFY(Keyring::store(kOwn, QStringLiteral("oauth"), ownItem));
        QVERIFY(writeFile(file));
        peer->on("POST", kTokenPath, answer(200, kRenewed));
        peer->on("GET", kUsagePath, answer(200, kUsage));

        QCOMPARE(ClaudeProvider::fetch(env).errorOrEmpty(), QString());
        QCOMPARE(refreshTokens(), refreshed);
        QCOMPARE(bearers(), QList<QByteArray> { "Bearer " + bearer });
    }

    void refreshedLineageIsWrittenEverywhere()
    {
        QVERIFY(Keyring::store(kCode, QStringLiteral("claude-user"), session("code", 3000)));
        QVERIFY(Keyring::store(kOwn, QStringLiteral("oauth"), session("own", 2000)));
        QVERIFY(writeFile(session("file", 1000)));
        peer->onSequence("POST", kTokenPath, { answer(400, "{}"), answer(200, kRenewed) });
        peer->on("GET", kUsagePath, answer(200, kUsage));

        const ServiceUsage usage = ClaudeProvider::fetch(env);
        QCOMPARE(usage.errorOrEmpty(), QString());
        QCOMPARE(usage.planBadge, QStringLiteral("Pro"));
        QCOMPARE(refreshTokens(), (QList<QByteArray> { "rt-code", "rt-own" }));
        QCOMPARE(bearers(), QList<QByteArray> { "Bearer renewed" });

        const QList<QByteArray> places { Keyring::lookup(kCode, QStringLiteral("claude-user")), readFile(),
            Keyring::lookup(kOwn, QStringLiteral("oauth")) };
        for (const QByteArray& bytes : places) {
            const auto doc = platform::Json::parseObject(bytes);
            QVERIFY2(doc, bytes.constData());
            const QJsonObject oauth = doc->value(u"claudeAiOauth").toObject();
            QCOMPARE(doc->value(u"source").toString(), QStringLiteral("own"));
            QCOMPARE(oauth.value(u"accessToken").toString(), QStringLiteral("renewed"));
            QCOMPARE(oauth.value(u"refreshToken").toString(), QStringLiteral("rt-renewed"));
            QCOMPARE(oauth.value(u"expiresAt").toDouble(), (kNow + 3600) * 1000);
            QCOMPARE(oauth.value(u"subscriptionType").toString(), QStringLiteral("pro"));
        }
        QCOMPARE(Keyring::count(kCode), 1);
        QCOMPARE(Keyring::count(kOwn), 1);
    }

    void refreshAnswerKeepsWhatItLacks_data()
    {
        QTest::addColumn<QByteArray>("tokenAnswer");
        QTest::addColumn<QByteArray>("refreshToken");
        QTest::addColumn<QByteArray>("expiresAtText");

        QTest::newRow("access token only") << QByteArray(R"({"access_token":"n","scope":"x"})")
                                           << QByteArray("rt-file") << QByteArray(R"("expiresAt":1000,)");
        QTest::newRow("expiry as text")
            << QByteArray(R"({"access_token":"n","expires_in":"60","refresh_token":5})")
            << QByteArray("rt-file") << QByteArray(R"("expiresAt":1000,)");
        QTest::newRow("everything") << QByteArray(
            R"({"access_token":"n","refresh_token":"r2","expires_in":0.5})")
                                    << QByteArray("r2") << QByteArray(R"("expiresAt":1732000000500,)");
    }
    void refreshAnswerKeepsWhatItLacks()
    {
        QFETCH(QByteArray, tokenAnswer);
        QFETCH(QByteArray, refreshToken);
        QFETCH(QByteArray, expiresAtText);
        QVERIFY(writeFile(session("file", 1000, R"(,"count":42)")));
        peer->on("POST", kTokenPath, answer(200, tokenAnswer));
        peer->on("GET", kUsagePath, answer(200, kUsage));

        QCOMPARE(ClaudeProvider::fetch(env).errorOrEmpty(), QString());
        const QByteArray file = readFile();
        QVERIFY2(file.contains(R"("accessToken":"n")"), file.constData());
        QVERIFY2(file.contains("\"refreshToken\":\"" + refreshToken + '"'), file.constData());
        QVERIFY2(file.contains(expiresAtText), file.constData());
        QVERIFY2(file.contains(R"("count":42)") && !file.contains("scope"), file.constData());
    }

    void retryAfter401UsesReloadedSources()
    {
        QVERIFY(writeFile(session("file", 0)));
        peer->onSequence("POST", kTokenPath,
            { answer(200, R"({"access_token":"a1","refresh_token":"rt-2"})"),
                answer(200, R"({"access_token":"a2","refresh_token":"rt-3"})") });
        peer->onSequence("GET", kUsagePath, { answer(401), answer(200, kUsage) });

        const ServiceUsage usage = ClaudeProvider::fetch(env);
        QCOMPARE(usage.errorOrEmpty(), QString());
        QCOMPARE(usage.rows.size(), 2);
        QCOMPARE(refreshTokens(), (QList<QByteArray> { "rt-file", "rt-2" }));
        QCOMPARE(bearers(), (QList<QByteArray> { "Bearer a1", "Bearer a2" }));
    }

    void requestsPerFetchAreBounded_data()
    {
        QTest::addColumn<int>("expiredSources"); // 0: one fresh file; -1: no source at all
        QTest::addColumn<QList<int>>("tokenStatuses");
        QTest::addColumn<QList<int>>("usageStatuses");
        QTest::addColumn<int>("tokenRequests");
        QTest::addColumn<int>("usageRequests");
        QTest::addColumn<QString>("error");

        QTest::newRow("403 is not refreshed")
            << 0 << QList<int> { 200 } << QList<int> { 403 } << 0 << 1 << httpError(403);
        QTest::newRow("second 401 is reported")
            << 0 << QList<int> { 200 } << QList<int> { 401 } << 1 << 2 << httpError(401);
        QTest::newRow("no refresh after 401")
            << 0 << QList<int> { 400 } << QList<int> { 401 } << 1 << 1 << httpError(401);
        QTest::newRow("reload sees the new own item")
            << 2 << QList<int> { 400, 200, 400 } << QList<int> { 401 } << 5 << 1 << httpError(401);
        QTest::newRow("six refreshes at most")
            << 3 << QList<int> { 400, 400, 200, 400 } << QList<int> { 401 } << 6 << 1 << httpError(401);
        QTest::newRow("every refresh fails")
            << 3 << QList<int> { 500 } << QList<int> { 200 } << 3 << 0 << kExpired;
        QTest::newRow("token endpoint hangs")
            << 1 << QList<int> { kHang } << QList<int> { 200 } << 1 << 0 << kExpired;
        QTest::newRow("token answer not an object")
            << 1 << QList<int> { kArrayAnswer } << QList<int> { 200 } << 1 << 0 << kExpired;
        QTest::newRow("no credentials")
            << -1 << QList<int> { 200 } << QList<int> { 200 } << 0 << 0 << kNoCredentials;
    }
    void requestsPerFetchAreBounded()
    {
        QFETCH(int, expiredSources);
        QFETCH(QList<int>, tokenStatuses);
        QFETCH(QList<int>, usageStatuses);
        QFETCH(int, tokenRequests);
        QFETCH(int, usageRequests);
        QFETCH(QString, error);
        if (expiredSources == 0)
            QVERIFY(writeFile(session("file", kThreshold + 1)));
        if (expiredSources >= 1)
            QVERIFY(writeFile(session("file", 10)));
        if (expiredSources >= 2)
            QVERIFY(Keyring::store(kCode, QStringLiteral("claude-user"), session("code", 20)));
        if (expiredSources >= 3)
            QVERIFY(Keyring::store(kOwn, QStringLiteral("oauth"), session("own", 30)));
        QList<PeerAnswer> tokens;
        for (int status : tokenStatuses)
            tokens << (status == kArrayAnswer ? answer(200, "[]") : answer(status, kRenewed));
        QList<PeerAnswer> usages;
        for (int status : usageStatuses)
            usages << answer(status, kUsage);
        peer->onSequence("POST", kTokenPath, tokens);
        peer->onSequence("GET", kUsagePath, usages);

        const ServiceUsage usage = ClaudeProvider::fetch(env);
        QCOMPARE(usage.errorOrEmpty(), error);
        QCOMPARE(peer->requests("POST", kTokenPath).size(), tokenRequests);
        QCOMPARE(peer->requests("GET", kUsagePath).size(), usageRequests);
        QCOMPARE(usage.planBadge, expiredSources < 0 ? std::nullopt : std::optional(QStringLiteral("Pro")));
        QVERIFY(usage.rows.isEmpty() && !usage.updatedAt);
    }

    void usageAnswerDecidesTheRecord_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("plan");
        QTest::addColumn<QString>("error"); // empty: rows and a time of update
        QTest::addColumn<QString>("badge"); // empty: none

        QTest::newRow("good answer") << 200 << kUsage << "max" << QString() << "Max";
        QTest::newRow("empty object") << 200 << QByteArray("{}") << "élite" << QString() << "Élite";
        QTest::newRow("array") << 200 << QByteArray("[]") << "max" << httpError(200) << "Max";
        QTest::newRow("not JSON") << 200 << QByteArray("<html>") << "" << httpError(200) << "";
        QTest::newRow("server error") << 503 << kUsage << "pro" << httpError(503) << "Pro";
        QTest::newRow("dropped") << kDrop << QByteArray() << "max" << httpError(0) << "Max";
        QTest::newRow("hanging") << kHang << QByteArray() << "max" << httpError(0) << "Max";
    }
    void usageAnswerDecidesTheRecord()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QString, plan);
        QFETCH(QString, error);
        QFETCH(QString, badge);
        QVERIFY(writeFile(session("file", kThreshold + 1).replace(R"("pro")", '"' + plan.toUtf8() + '"')));
        peer->on("GET", kUsagePath, answer(status, body));

        QElapsedTimer timer;
        timer.start();
        const ServiceUsage usage = ClaudeProvider::fetch(env);
        QVERIFY2(timer.elapsed() < 2000, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(usage.errorOrEmpty(), error);
        QCOMPARE(usage.planBadgeOrEmpty(), badge);
        QCOMPARE(usage.hasPlanBadge(), !badge.isEmpty());
        QCOMPARE(usage.updatedAt, error.isEmpty() ? std::optional(kNow) : std::nullopt);
        QCOMPARE(usage.rows.size(), body == kUsage && error.isEmpty() ? 2 : 0);

        // The stored token and the beta flag, and no header of the program's own beyond them.
        const auto requests = peer->requests();
        QCOMPARE(requests.size(), 1);
        QCOMPARE(requests[0].header("authorization"), QByteArray("Bearer stored"));
        QCOMPARE(requests[0].header("anthropic-beta"), QByteArray("oauth-2025-04-20"));
        for (const auto& [name, value] : requests[0].headers) {
            const bool transport = name == "host" || (name == "accept" && value == "*/*");
            QVERIFY2(transport || name == "authorization" || name == "anthropic-beta", name.constData());
        }
    }
};

QTEST_GUILESS_MAIN(TestClaudeProvider)
#include "tst_claudeprovider.moc"
