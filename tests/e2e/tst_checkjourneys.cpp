#include "SandboxedJourneys.h"
#include "ServiceFixtures.h"

#include <QDir>

#include <algorithm>
#include <functional>

using namespace limitra::e2e;
using namespace limitra::e2e::ServiceFixtures;
using namespace std::chrono_literals;
using limitra::test::PeerAnswer;
using limitra::test::RecordedRequest;

namespace {

enum class ClaudeSession { None, Fresh, Expired };
enum class CodexSession { None, Present };

struct Journey
{
    ClaudeSession claude = ClaudeSession::None;
    CodexSession codex = CodexSession::None;
    std::function<void(TlsPeer&, double now)> script;
    QStringList report;
    QStringList requests; // as SandboxedJourneys::describe() writes them, in any order
};

const QString kClaudeUsage = QStringLiteral("GET api.anthropic.com /api/oauth/usage Bearer SECRET-claude-at");
const QString kCodexUsage = QStringLiteral("GET chatgpt.com /backend-api/wham/usage Bearer SECRET-codex-at");
const QString kClaudeToken = QStringLiteral("POST platform.claude.com /v1/oauth/token");
const QString kCodexToken = QStringLiteral("POST auth.openai.com /oauth/token");

QStringList errorsReport(const QString& claudeHeader, const QString& claudeError, const QString& codexError)
{
    return { claudeHeader, claudeError, QStringLiteral("== Codex [sin plan] =="), codexError };
}

} // namespace

Q_DECLARE_METATYPE(Journey)

// `limitra --check` against the production host names, answered by the
// sandbox's TLS peer: the exact report, what reached each host, and the
// credential files left untouched when no refresh succeeds.
class TestCheckJourneys : public SandboxedJourneys
{
    Q_OBJECT

public:
    using SandboxedJourneys::SandboxedJourneys;

private Q_SLOTS:
    void reportShowsWhatThePeersAnswered_data();
    void reportShowsWhatThePeersAnswered();
    void bothUsageRequestsOverlap();
};

void TestCheckJourneys::reportShowsWhatThePeersAnswered_data()
{
    QTest::addColumn<Journey>("journey");
    const QString max = QStringLiteral("== Claude Code [Max] ==");

    QTest::newRow("no credentials anywhere")
        << Journey { ClaudeSession::None, CodexSession::None, {}, noCredentialsReport(), {} };

    QTest::newRow("both services answer") << Journey { ClaudeSession::Fresh, CodexSession::Present,
        &serveBothServices, claudeReport() + codexReport(), { kClaudeUsage, kCodexUsage } };

    QTest::newRow("server errors") << Journey { ClaudeSession::Fresh, CodexSession::Present,
        [](TlsPeer& peer, double) {
            peer.on(kClaudeHost, "GET", kClaudeUsagePath, PeerAnswer::json(503, "{}"));
            peer.on(kCodexHost, "GET", kCodexUsagePath, PeerAnswer::json(500, "oops"));
        },
        errorsReport(max, claudeHttpLine(503), codexHttpLine(500)), { kClaudeUsage, kCodexUsage } };

    QTest::newRow("refused tokens and refused refreshes")
        << Journey { ClaudeSession::Fresh, CodexSession::Present,
               [](TlsPeer& peer, double) {
                   peer.on(kClaudeHost, "GET", kClaudeUsagePath, PeerAnswer::json(401, "{}"));
                   peer.on(kClaudeTokenHost, "POST", kClaudeTokenPath, PeerAnswer::json(400, "{}"));
                   peer.on(kCodexHost, "GET", kCodexUsagePath, PeerAnswer::json(403, "{}"));
                   peer.on(kCodexTokenHost, "POST", kCodexTokenPath, PeerAnswer::json(401, "{}"));
               },
               errorsReport(max, claudeHttpLine(401), codexHttpLine(403)),
               { kClaudeUsage, kClaudeToken, kCodexUsage, kCodexToken } };

    QTest::newRow("answers that are not JSON objects")
        << Journey { ClaudeSession::Fresh, CodexSession::Present,
               [](TlsPeer& peer, double) {
                   peer.on(kClaudeHost, "GET", kClaudeUsagePath, PeerAnswer::json(200, "[]"));
                   peer.on(kCodexHost, "GET", kCodexUsagePath, PeerAnswer::json(200, "<html>"));
               },
               errorsReport(max, claudeHttpLine(200), codexHttpLine(200)), { kClaudeUsage, kCodexUsage } };

    QTest::newRow("dropped connections") << Journey { ClaudeSession::Fresh, CodexSession::Present,
        [](TlsPeer& peer, double) {
            peer.on(kClaudeHost, "GET", kClaudeUsagePath, PeerAnswer::drop());
            peer.on(kCodexHost, "GET", kCodexUsagePath, PeerAnswer::drop());
        },
        errorsReport(max, claudeHttpLine(0), codexHttpLine(0)), { kClaudeUsage, kCodexUsage } };

    QTest::newRow("expired session, token endpoint drops") << Journey { ClaudeSession::Expired,
        CodexSession::None,
        [](TlsPeer& peer, double) {
            peer.on(kClaudeTokenHost, "POST", kClaudeTokenPath, PeerAnswer::drop());
        },
        errorsReport(max,
            QStringLiteral(
                "  ERROR: Sesión de Claude Code expirada. Abre `claude` en la Terminal, ejecuta /login "
                "y luego pulsa ↻ aquí."),
            codexMissingLine()),
        { kClaudeToken } };
}

void TestCheckJourneys::reportShowsWhatThePeersAnswered()
{
    QFETCH(Journey, journey);
    const double now = wallClock();
    if (journey.claude != ClaudeSession::None) {
        const double expiresAt = journey.claude == ClaudeSession::Fresh ? now + 8 * 3600 : now - 3600;
        QVERIFY(writeOwnerOnly(claudeCredentialsPath(home()),
            claudeCredentials("SECRET-claude-at", "SECRET-claude-rt", expiresAt * 1000)));
    }
    if (journey.codex == CodexSession::Present)
        QVERIFY(writeOwnerOnly(
            codexAuthPath(home()), codexAuth("SECRET-codex-at", "SECRET-codex-rt", "acc-e2e")));
    const QByteArray claudeBefore = readAll(claudeCredentialsPath(home()));
    const QByteArray codexBefore = readAll(codexAuthPath(home()));
    if (journey.script)
        journey.script(peer(), now);

    QCOMPARE(run({ QStringLiteral("--check") }).lines(), journey.report);
    journey.requests.sort();
    QCOMPARE(describeSorted(peer().requests()), journey.requests);

    // Nothing was refreshed, so nothing may be rewritten, created or left behind.
    QCOMPARE(readAll(claudeCredentialsPath(home())), claudeBefore);
    QCOMPARE(readAll(codexAuthPath(home())), codexBefore);
    QCOMPARE(entriesOf(QDir(home()).filePath(QStringLiteral(".claude"))),
        claudeBefore.isEmpty() ? QStringList() : QStringList { QStringLiteral(".credentials.json") });
    QCOMPARE(entriesOf(QDir(home()).filePath(QStringLiteral(".codex"))),
        codexBefore.isEmpty() ? QStringList() : QStringList { QStringLiteral("auth.json") });
}

void TestCheckJourneys::bothUsageRequestsOverlap()
{
    const double now = wallClock();
    QVERIFY(writeFreshSessions(home(), now));
    PeerAnswer claude = PeerAnswer::json(200, claudeUsageAnswer(now));
    claude.delay = 1s;
    PeerAnswer codex = PeerAnswer::json(200, codexUsageAnswer(now));
    codex.delay = 1s;
    peer().on(kClaudeHost, "GET", kClaudeUsagePath, claude);
    peer().on(kCodexHost, "GET", kCodexUsagePath, codex);

    QCOMPARE(run({ QStringLiteral("--check") }).lines(), claudeReport() + codexReport());
    const QList<RecordedRequest> requests = peer().requests();
    QCOMPARE(requests.size(), 2);
    // The second request arrived while the first answer was still held back.
    QVERIFY(std::max(requests[0].arrivedAt, requests[1].arrivedAt)
        < std::min(requests[0].answeredAt, requests[1].answeredAt));
}

int main(int argc, char** argv)
{
    return SandboxedJourneys::main<TestCheckJourneys>(argc, argv);
}

#include "tst_checkjourneys.moc"
