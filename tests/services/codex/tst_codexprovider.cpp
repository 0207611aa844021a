#include "CodexTestKit.h"

#include "services/codex/CodexProvider.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QRandomGenerator>
#include <QSet>
#include <QTest>

#include <memory>

using namespace limitra;
using namespace limitra::test;

namespace {

const QString kNoCredentials
    = QStringLiteral("No encontré credenciales de Codex. Ejecuta `codex login` en la Terminal.");

} // namespace

class TestCodexProvider : public QObject
{
    Q_OBJECT

    std::unique_ptr<CodexHome> codex;

private Q_SLOTS:
    void init() { codex = std::make_unique<CodexHome>(); }
    void cleanup() { codex.reset(); }

    void usageRequestCarriesSessionHeaders_data();
    void usageRequestCarriesSessionHeaders();
    void planBadgeCapitalisesPlanType_data();
    void planBadgeCapitalisesPlanType();
    void failedUsageCallGivesExactMessage_data();
    void failedUsageCallGivesExactMessage();
    void unusableAuthFileGivesCredentialsError_data();
    void unusableAuthFileGivesCredentialsError();
};

void TestCodexProvider::usageRequestCarriesSessionHeaders_data()
{
    QTest::addColumn<QByteArray>("auth");
    QTest::addColumn<QByteArray>("accountHeader"); // empty: the header must be absent

    QTest::newRow("with account") << kAuth << QByteArray("acc-1");
    QTest::newRow("without account") << QByteArray(R"({"tokens":{"access_token":"at-1"}})") << QByteArray();
    QTest::newRow("account not a string")
        << QByteArray(R"({"tokens":{"access_token":"at-1","account_id":42}})") << QByteArray();
}

void TestCodexProvider::usageRequestCarriesSessionHeaders()
{
    QFETCH(QByteArray, auth);
    QFETCH(QByteArray, accountHeader);
    QVERIFY(codex->writeAuth(auth));
    codex->peer.on("GET", kUsagePath, peerAnswer(200, kFullAnswer));

    const ServiceUsage usage = codex->fetchBounded();
    QCOMPARE(usage.errorOrEmpty(), QString());
    QCOMPARE(usage.planBadge.value_or(QStringLiteral("(none)")), QStringLiteral("Plus"));
    QCOMPARE(usage.updatedAt.value_or(-1), kCodexNow);
    const QList<LimitRow> expected {
        codexRow("primary_window", "Sesión de 5 h", 42.5, 1740840000.25),
        codexRow("secondary_window", "Semanal", 7, kCodexNow + 86400),
    };
    QCOMPARE(describe(usage.rows), describe(expected));

    const auto sent = codex->peer.requests();
    QCOMPARE(sent.size(), 1);
    const RecordedRequest& request = sent.first();
    QCOMPARE(request.method, QByteArray("GET"));
    QCOMPARE(request.path, kUsagePath);
    QCOMPARE(request.header("authorization"), QByteArray("Bearer at-1"));
    QCOMPARE(request.header("user-agent"), QByteArray("Limitra/1.0"));
    QCOMPARE(request.hasHeader("chatgpt-account-id"), !accountHeader.isEmpty());
    QCOMPARE(request.header("chatgpt-account-id"), accountHeader);
    // Host and Accept come from the HTTP layer itself; nothing else may be ours.
    const QSet<QByteArray> allowed { "host", "accept", "authorization", "user-agent", "chatgpt-account-id" };
    for (const auto& [name, value] : request.headers)
        QVERIFY2(allowed.contains(name), "unexpected header " + name);
}

void TestCodexProvider::planBadgeCapitalisesPlanType_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<std::optional<QString>>("badge");

    QTest::newRow("plus") << QByteArray(R"({"plan_type":"plus"})") << std::optional(QStringLiteral("Plus"));
    QTest::newRow("pro") << QByteArray(R"({"plan_type":"pro","rate_limit":{}})")
                         << std::optional(QStringLiteral("Pro"));
    QTest::newRow("rest unchanged") << QByteArray(R"({"plan_type":"team eDU"})")
                                    << std::optional(QStringLiteral("Team eDU"));
    QTest::newRow("accented") << QByteArray(R"({"plan_type":"élite"})")
                              << std::optional(QStringLiteral("Élite"));
    // One character in two UTF-16 units: the whole character is raised.
    QTest::newRow("beyond the basic plane") << QByteArray("{\"plan_type\":\"\xf0\x90\x90\xa8x\"}")
                                            << std::optional(QString::fromUtf8("\xf0\x90\x90\x80x"));
    QTest::newRow("empty") << QByteArray(R"({"plan_type":""})") << std::optional<QString>();
    QTest::newRow("not a string") << QByteArray(R"({"plan_type":5})") << std::optional<QString>();
    QTest::newRow("missing") << QByteArray("{}") << std::optional<QString>();
}

void TestCodexProvider::planBadgeCapitalisesPlanType()
{
    QFETCH(QByteArray, answer);
    QFETCH(std::optional<QString>, badge);
    QVERIFY(codex->writeAuth(kAuth));
    codex->peer.on("GET", kUsagePath, peerAnswer(200, answer));

    // An answer without windows is still a success: badge, no rows, update time.
    const ServiceUsage usage = codex->fetchBounded();
    QCOMPARE(usage.errorOrEmpty(), QString());
    QCOMPARE(usage.planBadge.value_or(QStringLiteral("(none)")), badge.value_or(QStringLiteral("(none)")));
    QVERIFY(usage.rows.isEmpty());
    QCOMPARE(usage.updatedAt.value_or(-1), kCodexNow);
}

void TestCodexProvider::failedUsageCallGivesExactMessage_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("error");

    QTest::newRow("500") << 500 << QByteArray(kFullAnswer) << codexHttpMessage(500);
    QTest::newRow("429") << 429 << QByteArray("{}") << codexHttpMessage(429);
    QTest::newRow("302") << 302 << QByteArray() << codexHttpMessage(302);
    QTest::newRow("200, not JSON") << 200 << QByteArray("<html>") << codexHttpMessage(200);
    QTest::newRow("200, an array") << 200 << QByteArray("[{}]") << codexHttpMessage(200);
    QTest::newRow("200, empty") << 200 << QByteArray() << codexHttpMessage(200);
    QTest::newRow("dropped") << kDrop << QByteArray() << codexHttpMessage(0);
    QTest::newRow("never answers") << kHang << QByteArray() << codexHttpMessage(0);
}

void TestCodexProvider::failedUsageCallGivesExactMessage()
{
    QFETCH(int, status);
    QFETCH(QByteArray, body);
    QFETCH(QString, error);
    QVERIFY(codex->writeAuth(kAuth));
    codex->peer.on("GET", kUsagePath, peerAnswer(status, body));
    codex->peer.on("POST", kTokenPath, peerAnswer(200, R"({"access_token":"at-2"})"));

    const ServiceUsage usage = codex->fetchBounded();
    QCOMPARE(usage.errorOrEmpty(), error);
    QVERIFY(!usage.planBadge && usage.rows.isEmpty() && !usage.updatedAt);
    QCOMPARE(codex->peer.requests("POST", kTokenPath).size(), 0);
    QCOMPARE(codex->authBytes(), kAuth);
}

void TestCodexProvider::unusableAuthFileGivesCredentialsError_data()
{
    QTest::addColumn<QString>("shape");
    QTest::addColumn<QByteArray>("content");

    QByteArray binary;
    for (int i = 0; i < 4096; ++i)
        binary.append(char(i % 256));
    QByteArray garbage(10 * 1024 * 1024, Qt::Uninitialized);
    QRandomGenerator(7).fillRange(reinterpret_cast<quint32*>(garbage.data()), garbage.size() / 4);

    QTest::newRow("missing") << QStringLiteral("none") << QByteArray();
    QTest::newRow("a directory") << QStringLiteral("directory") << QByteArray();
    QTest::newRow("a symlink loop") << QStringLiteral("loop") << QByteArray();
    QTest::newRow("empty") << QStringLiteral("file") << QByteArray();
    QTest::newRow("binary") << QStringLiteral("file") << binary;
    QTest::newRow("10 MB of garbage") << QStringLiteral("file") << garbage;
    QTest::newRow("10 MB of nesting") << QStringLiteral("file") << QByteArray(10 * 1024 * 1024, '[');
    QTest::newRow("truncated") << QStringLiteral("file") << kAuth.left(kAuth.size() - 1);
    QTest::newRow("an array") << QStringLiteral("file") << QByteArray(R"([{"tokens":{"access_token":"a"}}])");
    QTest::newRow("null") << QStringLiteral("file") << QByteArray("null");
    QTest::newRow("no tokens") << QStringLiteral("file") << QByteArray(R"({"access_token":"a"})");
    QTest::newRow("tokens a string") << QStringLiteral("file") << QByteArray(R"({"tokens":"a"})");
    QTest::newRow("access_token a number")
        << QStringLiteral("file") << QByteArray(R"({"tokens":{"access_token":1}})");
    QTest::newRow("access_token null")
        << QStringLiteral("file") << QByteArray(R"({"tokens":{"access_token":null}})");
}

void TestCodexProvider::unusableAuthFileGivesCredentialsError()
{
    QFETCH(QString, shape);
    QFETCH(QByteArray, content);
    if (shape == u"file")
        QVERIFY(codex->writeAuth(content));
    else if (shape == u"directory")
        QVERIFY(QDir().mkpath(codex->authPath()));
    else if (shape == u"loop")
        QVERIFY(QFile::link(codex->authPath(), codex->authPath()));
    codex->peer.on("GET", kUsagePath, peerAnswer(200, kFullAnswer));

    const ServiceUsage usage = codex->fetchBounded();
    QCOMPARE(usage.errorOrEmpty(), kNoCredentials);
    QVERIFY(!usage.planBadge && usage.rows.isEmpty() && !usage.updatedAt);
    QVERIFY(codex->peer.requests().isEmpty());
    if (shape == u"file")
        QVERIFY(codex->authBytes() == content);
}

QTEST_GUILESS_MAIN(TestCodexProvider)
#include "tst_codexprovider.moc"
