#include "SandboxedJourneys.h"
#include "ServiceFixtures.h"

#include <QDateTime>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>

using namespace limitra::e2e;
using namespace limitra::e2e::ServiceFixtures;
using limitra::test::PeerAnswer;
using limitra::test::RecordedRequest;

// `limitra --check` with a session that must be refreshed first: the requests
// in their order, and the credential file rewritten with the new session,
// every other member kept, still owner-only and with nothing left beside it.
class TestCheckWriteBack : public SandboxedJourneys
{
    Q_OBJECT

public:
    using SandboxedJourneys::SandboxedJourneys;

private Q_SLOTS:
    void expiredClaudeSessionIsRefreshedAndWrittenBack();
    void rejectedCodexTokenIsRefreshedAndAuthFileRewritten();
};

void TestCheckWriteBack::expiredClaudeSessionIsRefreshedAndWrittenBack()
{
    const double now = wallClock();
    const QByteArray original = claudeCredentials("SECRET-claude-at", "SECRET-claude-rt", (now - 60) * 1000);
    QVERIFY(writeOwnerOnly(claudeCredentialsPath(home()), original));
    peer().on(kClaudeTokenHost, "POST", kClaudeTokenPath,
        PeerAnswer::json(200,
            R"({"access_token":"SECRET-claude-new-at","refresh_token":)"
            R"("SECRET-claude-new-rt","expires_in":28800,"token_type":"Bearer"})"));
    peer().on(kClaudeHost, "GET", kClaudeUsagePath, PeerAnswer::json(200, claudeUsageAnswer(now)));

    const double before = wallClock();
    const QStringList lines = run({ QStringLiteral("--check") }).lines();
    const double after = wallClock();
    const QStringList report
        = claudeReport() + QStringList { QStringLiteral("== Codex [sin plan] =="), codexMissingLine() };
    QCOMPARE(lines, report);

    const QList<RecordedRequest> requests = peer().requests();
    QCOMPARE(requests.size(), 2);
    QCOMPARE(describe(requests[0]), QStringLiteral("POST platform.claude.com /v1/oauth/token"));
    QCOMPARE(requests[0].header("content-type"), "application/x-www-form-urlencoded");
    QCOMPARE(requests[0].body,
        "grant_type=refresh_token&refresh_token=SECRET%2Dclaude%2Drt"
        "&client_id=3f6a2b1c-7d4e-4a9b-8c2d-1e5f6a7b8c9d");
    QCOMPARE(describe(requests[1]),
        QStringLiteral("GET api.anthropic.com /api/oauth/usage Bearer SECRET-claude-new-at"));
    QCOMPARE(requests[1].header("anthropic-beta"), "oauth-2025-04-20");

    const QString path = claudeCredentialsPath(home());
    QJsonParseError parseError;
    const QJsonObject written = QJsonDocument::fromJson(readAll(path), &parseError).object();
    QCOMPARE(parseError.error, QJsonParseError::NoError);
    const QJsonValue expiresAt = written.value(u"claudeAiOauth").toObject().value(u"expiresAt");
    QVERIFY2(expiresAt.toDouble() >= (before + 28800) * 1000 - 1000
            && expiresAt.toDouble() <= (after + 28800) * 1000 + 1000,
        QByteArray::number(expiresAt.toDouble(), 'f', 0));
    QJsonObject expected = QJsonDocument::fromJson(original).object();
    QJsonObject session = expected.value(u"claudeAiOauth").toObject();
    session.insert(u"accessToken", QStringLiteral("SECRET-claude-new-at"));
    session.insert(u"refreshToken", QStringLiteral("SECRET-claude-new-rt"));
    session.insert(u"expiresAt", expiresAt);
    expected.insert(u"claudeAiOauth", session);
    QCOMPARE(written, expected);
    QCOMPARE(permissionsOf(path), kOwnerOnly);
    QCOMPARE(entriesOf(QDir(home()).filePath(QStringLiteral(".claude"))),
        QStringList { QStringLiteral(".credentials.json") });
}

void TestCheckWriteBack::rejectedCodexTokenIsRefreshedAndAuthFileRewritten()
{
    const double now = wallClock();
    const QByteArray original = codexAuth("SECRET-codex-at", "SECRET-codex-rt", "acc-e2e");
    QVERIFY(writeOwnerOnly(codexAuthPath(home()), original));
    peer().onSequence(kCodexHost, "GET", kCodexUsagePath,
        { PeerAnswer::json(401, R"({"detail":"expired"})"), PeerAnswer::json(200, codexUsageAnswer(now)) });
    peer().on(kCodexTokenHost, "POST", kCodexTokenPath,
        PeerAnswer::json(200,
            R"({"access_token":"SECRET-codex-new-at","refresh_token":)"
            R"("SECRET-codex-new-rt","id_token":"SECRET-codex-new-id"})"));

    const double before = wallClock();
    const QStringList lines = run({ QStringLiteral("--check") }).lines();
    const double after = wallClock();
    const QStringList report
        = QStringList { QStringLiteral("== Claude Code [sin plan] =="), claudeMissingLine() } + codexReport();
    QCOMPARE(lines, report);

    const QList<RecordedRequest> requests = peer().requests();
    QCOMPARE(requests.size(), 3);
    QCOMPARE(describe(requests[0]),
        QStringLiteral("GET chatgpt.com /backend-api/wham/usage Bearer SECRET-codex-at"));
    QCOMPARE(describe(requests[1]), QStringLiteral("POST auth.openai.com /oauth/token"));
    QCOMPARE(requests[1].header("content-type"), "application/json");
    QCOMPARE(QJsonDocument::fromJson(requests[1].body).object(),
        QJsonDocument::fromJson(R"({"client_id":"app_Zq8RtLw2Nc5VyH0dKs3Bpxme","grant_type":"refresh_token",)"
                                R"("refresh_token":"SECRET-codex-rt","scope":"openid profile email"})")
            .object());
    QCOMPARE(describe(requests[2]),
        QStringLiteral("GET chatgpt.com /backend-api/wham/usage Bearer SECRET-codex-new-at"));
    QCOMPARE(requests[2].header("chatgpt-account-id"), "acc-e2e");

    const QString path = codexAuthPath(home());
    const QByteArray bytes = readAll(path);
    const QJsonObject written = QJsonDocument::fromJson(bytes).object();
    const QString stamp = written.value(u"last_refresh").toString();
    QVERIFY2(stamp.endsWith(u'Z') && stamp.size() == 24, qPrintable(stamp));
    const double refreshedAt
        = static_cast<double>(QDateTime::fromString(stamp, Qt::ISODateWithMs).toMSecsSinceEpoch()) / 1000.0;
    QVERIFY2(refreshedAt >= before - 1 && refreshedAt <= after + 1, qPrintable(stamp));
    QJsonObject expected = QJsonDocument::fromJson(original).object();
    QJsonObject tokens = expected.value(u"tokens").toObject();
    tokens.insert(u"access_token", QStringLiteral("SECRET-codex-new-at"));
    tokens.insert(u"refresh_token", QStringLiteral("SECRET-codex-new-rt"));
    tokens.insert(u"id_token", QStringLiteral("SECRET-codex-new-id"));
    expected.insert(u"tokens", tokens);
    expected.insert(u"last_refresh", stamp);
    QCOMPARE(written, expected);
    // Pretty-printed, with the keys of every object in sorted order.
    QVERIFY2(bytes.count('\n') > 5, bytes.constData());
    const QList<QByteArray> order { "\"OPENAI_API_KEY\"", "\"extra\"", "\"last_refresh\"", "\"tokens\"",
        "\"access_token\"", "\"account_id\"", "\"id_token\"", "\"refresh_token\"" };
    for (qsizetype i = 1; i < order.size(); ++i)
        QVERIFY2(bytes.indexOf(order[i - 1]) < bytes.indexOf(order[i]), order[i].constData());
    QCOMPARE(permissionsOf(path), kOwnerOnly);
    QCOMPARE(entriesOf(QDir(home()).filePath(QStringLiteral(".codex"))),
        QStringList { QStringLiteral("auth.json") });
}

int main(int argc, char** argv)
{
    return SandboxedJourneys::main<TestCheckWriteBack>(argc, argv);
}

#include "tst_checkwriteback.moc"
