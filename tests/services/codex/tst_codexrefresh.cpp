#include "CodexTestKit.h"

#include "services/codex/CodexProvider.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QTest>

#include <filesystem>
#include <memory>

using namespace limitra;
using namespace limitra::test;

namespace {

QByteArray canonical(const QByteArray& json)
{
    return QJsonDocument::fromJson(json).toJson(QJsonDocument::Compact);
}

std::filesystem::perms permissionsOf(const QString& path)
{
    return std::filesystem::status(path.toStdString()).permissions() & std::filesystem::perms::mask;
}

} // namespace

class TestCodexRefresh : public QObject
{
    Q_OBJECT

    std::unique_ptr<CodexHome> codex;

private Q_SLOTS:
    void init() { codex = std::make_unique<CodexHome>(); }
    void cleanup() { codex.reset(); }

    void rejectedTokenIsRefreshedWrittenBackAndRetriedOnce_data();
    void rejectedTokenIsRefreshedWrittenBackAndRetriedOnce();
    void refusedRefreshLeavesFileUntouched_data();
    void refusedRefreshLeavesFileUntouched();
};

void TestCodexRefresh::rejectedTokenIsRefreshedWrittenBackAndRetriedOnce_data()
{
    QTest::addColumn<int>("rejection");
    QTest::addColumn<QByteArray>("grant");
    QTest::addColumn<int>("retryStatus");
    QTest::addColumn<QByteArray>("expectedTokens"); // the whole "tokens" member after the rewrite
    QTest::addColumn<QString>("error"); // empty: success

    const QByteArray unknown = R"("account_id":"acc-1","zz_unknown":{"list":[1,2.5,"x",null,true]})";
    const QByteArray allNew
        = R"({"access_token":"at-2","refresh_token":"rt-2","id_token":"id-2",)" + unknown + "}";
    const QByteArray accessOnly
        = R"({"access_token":"at-2","refresh_token":"rt-1","id_token":"id-1",)" + unknown + "}";
    const QByteArray fullGrant
        = R"({"access_token":"at-2","refresh_token":"rt-2","id_token":"id-2","expires_in":60})";

    QTest::newRow("401, new tokens, 200") << 401 << fullGrant << 200 << allNew << QString();
    QTest::newRow("403, access token only, 200")
        << 403 << QByteArray(R"({"access_token":"at-2"})") << 200 << accessOnly << QString();
    QTest::newRow("other tokens of the wrong type are kept")
        << 401 << QByteArray(R"({"access_token":"at-2","refresh_token":7,"id_token":null})") << 200
        << accessOnly << QString();
    QTest::newRow("retry 401, no second refresh")
        << 401 << fullGrant << 401 << allNew << codexHttpMessage(401);
    QTest::newRow("retry 500") << 403 << fullGrant << 500 << allNew << codexHttpMessage(500);
    QTest::newRow("retry dropped") << 401 << fullGrant << kDrop << allNew << codexHttpMessage(0);
}

void TestCodexRefresh::rejectedTokenIsRefreshedWrittenBackAndRetriedOnce()
{
    QFETCH(int, rejection);
    QFETCH(QByteArray, grant);
    QFETCH(int, retryStatus);
    QFETCH(QByteArray, expectedTokens);
    QFETCH(QString, error);
    QVERIFY(codex->writeAuth(kAuth));
    codex->peer.onSequence(
        "GET", kUsagePath, { peerAnswer(rejection), peerAnswer(retryStatus, kFullAnswer) });
    codex->peer.on("POST", kTokenPath, peerAnswer(200, grant));

    const ServiceUsage usage = codex->fetchBounded();
    QCOMPARE(usage.errorOrEmpty(), error);
    QCOMPARE(usage.rows.size(), error.isEmpty() ? 2 : 0);

    const auto refreshes = codex->peer.requests("POST", kTokenPath);
    QCOMPARE(refreshes.size(), 1);
    const RecordedRequest& refresh = refreshes.first();
    QCOMPARE(refresh.header("content-type"), QByteArray("application/json"));
    QVERIFY(!refresh.hasHeader("user-agent"));
    QVERIFY(!refresh.hasHeader("authorization"));
    QVERIFY(!refresh.hasHeader("chatgpt-account-id"));
    QCOMPARE(canonical(refresh.body),
        canonical(R"({"client_id":"app_Zq8RtLw2Nc5VyH0dKs3Bpxme","grant_type":"refresh_token",)"
                  R"("refresh_token":"rt-1","scope":"openid profile email"})"));

    const auto calls = codex->peer.requests("GET", kUsagePath);
    QCOMPARE(calls.size(), 2);
    QCOMPARE(calls.at(0).header("authorization"), QByteArray("Bearer at-1"));
    QCOMPARE(calls.at(1).header("authorization"), QByteArray("Bearer at-2"));
    QCOMPARE(calls.at(1).header("chatgpt-account-id"), QByteArray("acc-1"));

    // Everything but the tokens and the stamp survives, integers included.
    const QByteArray written = codex->authBytes();
    QCOMPARE(canonical(written),
        canonical(
            R"({"OPENAI_API_KEY":null,"counter":12345678901234567,"last_refresh":"2025-03-01T12:34:56.789Z",)"
            R"("nested":{"b":{"deep":3},"a":false},"tokens":)"
            + expectedTokens + "}"));
    QVERIFY2(written.count('\n') > 10, written);
    qsizetype at = -1;
    for (const char* key : { "OPENAI_API_KEY", "counter", "last_refresh", "nested", "a", "b", "deep",
             "tokens", "access_token", "account_id", "id_token", "refresh_token", "zz_unknown", "list" }) {
        const qsizetype next = written.indexOf('"' + QByteArray(key) + '"');
        QVERIFY2(next > at, key);
        at = next;
    }
    QCOMPARE(permissionsOf(codex->authPath()),
        std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

void TestCodexRefresh::refusedRefreshLeavesFileUntouched_data()
{
    QTest::addColumn<QByteArray>("auth");
    QTest::addColumn<int>("rejection");
    QTest::addColumn<int>("tokenStatus");
    QTest::addColumn<QByteArray>("grant");
    QTest::addColumn<int>("tokenRequests");

    const QByteArray good = R"({"access_token":"at-2"})";
    QTest::newRow("400") << kAuth << 401 << 400 << QByteArray(R"({"error":"invalid_grant"})") << 1;
    QTest::newRow("201 with a token") << kAuth << 403 << 201 << good << 1;
    QTest::newRow("500 with a token") << kAuth << 401 << 500 << good << 1;
    QTest::newRow("not an object") << kAuth << 403 << 200 << QByteArray(R"(["at-2"])") << 1;
    QTest::newRow("not JSON") << kAuth << 401 << 200 << QByteArray("<html>") << 1;
    QTest::newRow("no access_token") << kAuth << 403 << 200 << QByteArray(R"({"refresh_token":"rt-2"})") << 1;
    QTest::newRow("access_token a number") << kAuth << 401 << 200 << QByteArray(R"({"access_token":5})") << 1;
    QTest::newRow("dropped") << kAuth << 403 << kDrop << QByteArray() << 1;
    QTest::newRow("never answers") << kAuth << 401 << kHang << QByteArray() << 1;
    QTest::newRow("no refresh_token in the file")
        << QByteArray(R"({"tokens":{"access_token":"at-1"}})") << 401 << 200 << good << 0;
    QTest::newRow("refresh_token not a string")
        << QByteArray(R"({"tokens":{"access_token":"at-1","refresh_token":null}})") << 403 << 200 << good
        << 0;
}

void TestCodexRefresh::refusedRefreshLeavesFileUntouched()
{
    QFETCH(QByteArray, auth);
    QFETCH(int, rejection);
    QFETCH(int, tokenStatus);
    QFETCH(QByteArray, grant);
    QFETCH(int, tokenRequests);
    QVERIFY(codex->writeAuth(auth));
    codex->peer.on("GET", kUsagePath, peerAnswer(rejection));
    codex->peer.on("POST", kTokenPath, peerAnswer(tokenStatus, grant));

    const ServiceUsage usage = codex->fetchBounded();
    QCOMPARE(usage.errorOrEmpty(), codexHttpMessage(rejection));
    QVERIFY(!usage.planBadge && usage.rows.isEmpty() && !usage.updatedAt);
    QCOMPARE(codex->peer.requests("POST", kTokenPath).size(), tokenRequests);
    QCOMPARE(codex->peer.requests("GET", kUsagePath).size(), 1);
    QCOMPARE(codex->authBytes(), auth);
    QCOMPARE(QDir(codex->home.filePath(QStringLiteral(".codex"))).entryList(QDir::Files | QDir::Hidden),
        QStringList { QStringLiteral("auth.json") });
}

QTEST_GUILESS_MAIN(TestCodexRefresh)
#include "tst_codexrefresh.moc"
