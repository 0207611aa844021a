#include "app/Entry.h"
#include "platform/Defaults.h"
#include "platform/Environment.h"
#include "platform/Http.h"
#include "platform/SecretStore.h"
#include "support/FakePeer.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QTextStream>

#include <algorithm>
#include <memory>

using namespace limitra;
using namespace std::chrono_literals;
using test::FakePeer;
using test::PeerAnswer;

namespace {

// 2025-03-01T12:00:00Z, the clock of the check.
constexpr double kNow = 1740830400.0;

const QByteArray kClaudeUsagePath = "/api/oauth/usage";
const QByteArray kCodexUsagePath = "/backend-api/wham/usage";

// A session that stays fresh for an hour after kNow.
const QByteArray kClaudeCredentials
    = R"({"claudeAiOauth":{"accessToken":"claude-at","refreshToken":"claude-rt","expiresAt":1740834000000,)"
      R"("subscriptionType":"max"}})";
const QByteArray kCodexAuth = R"({"tokens":{"access_token":"codex-at","account_id":"acc-1"}})";

// Resets at kNow + 4h 7m 30s and kNow + 2d 5h 30m.
const QByteArray kClaudeAnswer = R"({"five_hour":{"utilization":12.5,"resets_at":"2025-03-01T16:07:30Z"},)"
                                 R"("seven_day":{"utilization":40,"resets_at":"2025-03-03T17:30:00.000Z"}})";
// Resets in 3h 10m 30s and at kNow + 6d 23h 59m.
const QByteArray kCodexAnswer
    = R"({"plan_type":"plus","rate_limit":{)"
      R"("primary_window":{"used_percent":7,"limit_window_seconds":18000,"reset_after_seconds":11430},)"
      R"("secondary_window":{"used_percent":130,"limit_window_seconds":604800,"reset_at":1741433940}}})";

const QStringList kExpected {
    QStringLiteral("== Claude Code [Max] =="),
    QStringLiteral("  Sesión de 5 h — 12% usado (88% restante) · se reinicia en 4h 7m"),
    QStringLiteral("  Semanal · Todos los modelos — 40% usado (60% restante) · se reinicia en 2d 5h"),
    QStringLiteral("== Codex [Plus] =="),
    QStringLiteral("  Sesión de 5 h — 7% usado (93% restante) · se reinicia en 3h 10m"),
    QStringLiteral("  Semanal — 130% usado (0% restante) · se reinicia en 6d 23h"),
};

void writeFile(const QString& path, const QByteArray& bytes)
{
    QVERIFY(QDir().mkpath(QFileInfo(path).absolutePath()));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(file.write(bytes), bytes.size());
    file.close();
    QVERIFY(file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner));
}

} // namespace

class TestRunCheck : public QObject
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> home;
    std::unique_ptr<FakePeer> peer;
    platform::Environment env;

    QStringList check();

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void reportKeepsServiceOrderWhateverAnswersFirst_data();
    void reportKeepsServiceOrderWhateverAnswersFirst();
    void bothServicesAreFetchedAtOnce();
};

QStringList TestRunCheck::check()
{
    QString text;
    QTextStream out(&text);
    Entry::runCheck(env, out);
    [&] { QVERIFY2(text.endsWith(u'\n'), qPrintable(text)); }();
    text.chop(1);
    return text.split(u'\n');
}

void TestRunCheck::initTestCase()
{
    platform::Http::globalInit();
}

void TestRunCheck::init()
{
    home = std::make_unique<QTemporaryDir>();
    QVERIFY(home->isValid());
    writeFile(home->filePath(QStringLiteral(".claude/.credentials.json")), kClaudeCredentials);
    writeFile(home->filePath(QStringLiteral(".codex/auth.json")), kCodexAuth);
    peer = std::make_unique<FakePeer>();

    env = platform::Environment {};
    env.home = home->path();
    env.loginName = QStringLiteral("tester");
    env.endpoints = platform::Endpoints::at(peer->baseUrl());
    env.now = [] { return kNow; };
    env.secrets = platform::SecretStore::system();
    // The check shows both services whatever the settings say.
    env.defaults = std::make_shared<platform::Defaults>(home->filePath(QStringLiteral("limitra.conf")));
    env.defaults->setShowClaude(false);
    env.defaults->setShowCodex(false);
    env.timeoutCap = 5s;
}

void TestRunCheck::cleanup()
{
    peer.reset();
    home.reset();
}

void TestRunCheck::reportKeepsServiceOrderWhateverAnswersFirst_data()
{
    QTest::addColumn<int>("claudeDelayMs");
    QTest::addColumn<int>("codexDelayMs");
    QTest::newRow("together") << 0 << 0;
    QTest::newRow("Codex first") << 400 << 0;
    QTest::newRow("Claude first") << 0 << 400;
}

void TestRunCheck::reportKeepsServiceOrderWhateverAnswersFirst()
{
    QFETCH(int, claudeDelayMs);
    QFETCH(int, codexDelayMs);
    PeerAnswer claude = PeerAnswer::json(200, kClaudeAnswer);
    claude.delay = std::chrono::milliseconds(claudeDelayMs);
    PeerAnswer codex = PeerAnswer::json(200, kCodexAnswer);
    codex.delay = std::chrono::milliseconds(codexDelayMs);
    peer->on("GET", kClaudeUsagePath, claude);
    peer->on("GET", kCodexUsagePath, codex);

    QCOMPARE(check(), kExpected);
    QCOMPARE(peer->requests().size(), 2);
    QCOMPARE(peer->requests("GET", kClaudeUsagePath).value(0).header("authorization"), "Bearer claude-at");
    QCOMPARE(peer->requests("GET", kCodexUsagePath).value(0).header("authorization"), "Bearer codex-at");
}

void TestRunCheck::bothServicesAreFetchedAtOnce()
{
    PeerAnswer claude = PeerAnswer::json(200, kClaudeAnswer);
    claude.delay = 1s;
    PeerAnswer codex = PeerAnswer::json(200, kCodexAnswer);
    codex.delay = 1s;
    peer->on("GET", kClaudeUsagePath, claude);
    peer->on("GET", kCodexUsagePath, codex);

    QCOMPARE(check(), kExpected);
    const QList<test::RecordedRequest> requests = peer->requests();
    QCOMPARE(requests.size(), 2);
    // The second request must arrive while the first answer is still held.
    const auto lastArrival = std::max(requests[0].arrivedAt, requests[1].arrivedAt);
    const auto firstAnswer = std::min(requests[0].answeredAt, requests[1].answeredAt);
    QVERIFY(lastArrival < firstAnswer);
}

QTEST_GUILESS_MAIN(TestRunCheck)
#include "tst_runcheck.moc"
