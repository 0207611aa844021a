#include "platform/Json.h"
#include "platform/LibsecretStore.h"
#include "services/claude/ClaudeProvider.h"
#include "services/claude/KeychainHelper.h"
#include "services/codex/CodexProvider.h"
#include "support/TestEnv.h"

#include <QDir>
#include <QJsonDocument>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace limitra;
using namespace limitra::test;
using namespace Qt::StringLiterals;

namespace {
// Answers a path with these statuses in turn ("drop", "hang": no answer), each with `body`.
void script(FakePeer& peer, const QByteArray& method, const QByteArray& path, const QString& statuses,
    const QByteArray& body)
{
    QList<PeerAnswer> answers;
    for (const QString& s : statuses.split(u' ', Qt::SkipEmptyParts))
        answers << answer(s == u"drop" ? kDrop : s == u"hang" ? kHang : s.toInt(), body);
    peer.onSequence(method, path, answers);
}

// Rows on one line: "id, title, used, resets, detail; ...", every number in full precision.
QString rowsText(const QList<LimitRow>& rows)
{
    QStringList lines;
    for (const LimitRow& r : rows)
        lines << QStringList { r.id, r.title, QString::number(r.usedPercent, 'g', 17),
            r.resetsAt ? QString::number(*r.resetsAt, 'g', 17) : u"-"_s, r.detail.value_or(u"-"_s) }.join(u", ");
    return lines.join(u"; ");
}

constexpr double kNow = 1732000000.0, kCodexNow = 1740832496.789; // Codex runs on 2025-03-01T12:34:56.789Z
const QString kCode = QString(ClaudeProvider::claudeCodeService), kOwn = QString(ClaudeProvider::ownService);
const QString kFile = QString(ClaudeProvider::credentialsFile);
const QByteArray kUsagePath = "/api/oauth/usage", kTokenPath = "/v1/oauth/token";
const QByteArray kRenewed = R"({"access_token":"renewed","refresh_token":"new","expires_in":3600})";
const QByteArray kCodexUsagePath = "/backend-api/wham/usage", kCodexTokenPath = "/oauth/token";
const QString kAuthFile = QStringLiteral(".codex/auth.json");
const QByteArray kAuth = R"({"tokens":{"refresh_token":"rt-1","access_token":"at-1","id_token":"id-1",)"
                         R"("account_id":"acc-1","zz":{"list":[1,2.5,"x",null,true]}},)"
                         R"("OPENAI_API_KEY":null,"last_refresh":"2024-01-01T00:00:00Z",)"
                         R"("counter":12345678901234567,"nested":{"b":{"deep":3},"a":false}})";
const QByteArray kAnswer = R"({"plan_type":"plus","rate_limit":{
    "primary_window":{"used_percent":42.5,"limit_window_seconds":18000,"reset_at":1740840000.25},
    "secondary_window":{"used_percent":7,"limit_window_seconds":604800,"reset_after_seconds":86400}}})";

// Another client of the private keyring of with-keyring.sh: its output, or nothing when it failed.
std::optional<QByteArray> run(const QStringList& command, const QByteArray& input = {})
{
    QProcess p;
    p.start(command.first(), command.mid(1));
    p.write(input);
    p.closeWriteChannel();
    if (!p.waitForFinished(10000) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0)
        return std::nullopt;
    return p.readAllStandardOutput();
}
// A null account: an item without the attribute.
bool store(const QString& service, const QString& account, const QByteArray& data)
{
    const QStringList named = account.isNull() ? QStringList() : QStringList { "account", account };
    return run(QStringList { "secret-tool", "store", "--label=other", "service", service } + named, data).has_value();
}
QByteArray lookup(const QString& service, const QString& account = {})
{
    const QStringList named = account.isNull() ? QStringList() : QStringList { "account", account };
    return run(QStringList { "secret-tool", "lookup", "service", service } + named).value_or("-");
}
const QStringList kSecretService { "gdbus", "call", "--session", "--dest", "org.freedesktop.secrets",
    "--object-path", "/org/freedesktop/secrets", "--method" };
// Items of a service, locked ones included.
qsizetype count(const QString& service)
{
    static const QRegularExpression item(QStringLiteral("'/org/freedesktop/secrets/collection/[^']+'"));
    const auto out = run(kSecretService
        + QStringList { "org.freedesktop.Secret.Service.SearchItems", "{'service': '" + service + "'}" });
    return QString::fromUtf8(out.value_or("")).count(item);
}

// "-": none; JSON as it is; else "name offset [plan [access token]]": a session whose refresh token is
// `name`, expiring `offset` ms after the last moment at which a stored token is refreshed.
QByteArray session(const QString& cell)
{
    if (cell == u"-" || cell.startsWith(u'{') || cell.startsWith(u'['))
        return cell == u"-" ? QByteArray() : cell.toUtf8();
    const QStringList w = cell.split(u' ') + QStringList { "", "pro", "stored" }.mid(cell.count(u' '));
    return QStringLiteral(R"({"source":"%1","claudeAiOauth":{"refreshToken":"%1","expiresAt":%2,)"
                          R"("subscriptionType":"%3","accessToken":"%4"}})")
        .arg(w[0], QString::number(kNow * 1000 + 300000 + w[1].toDouble(), 'f', 0), w[2], w[3])
        .toUtf8();
}
QByteArray canonical(const QByteArray& json) { return QJsonDocument::fromJson(json).toJson(QJsonDocument::Compact); }
} // namespace

class TestServices : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestEnv> t;
    platform::SecretStore& secrets() const { return *t->env.secrets; }

private Q_SLOTS:
    void initTestCase() { QVERIFY2(qEnvironmentVariableIsSet("LIMITRA_PRIVATE_KEYRING"), "use with-keyring.sh"); }
    void init()
    {
        t = std::make_unique<TestEnv>(kNow, std::chrono::milliseconds(300));
        t->env.secrets = std::make_shared<platform::LibsecretStore>();
        for (const QString& service : { kCode, kOwn })
            run({ "secret-tool", "clear", "service", service });
    }
    void cleanup() { t.reset(); }
    // Sessions as session() reads them, statuses as script() does; error: an HTTP status, "expired" or "none".
    void fetchRefreshesInOrderAndReports_data() { table(R"(
| code | own | file | tokens | usage | refreshed | bearers | error | plan
fresh stored token       | -              | -             | file 1 max   |       | 200 | | stored | | Max
token at the edge        | -              | -             | file 0       | 200   | 200 | file | renewed | | Pro
latest first, its plan   | code -3000 max | own -1000 team | file -2000  | 400 200 | 200 | own file | renewed | | Team
ties keep reading order  | code -7        | own -7        | file -7      | 500   |     | code own file | | expired | Pro
token with a line break  | -              | -             | file 5 pro a\r\nX-Evil:1 |     | 200 | | | 0 | Pro
unusable sessions skipped | {"claudeAiOauth":{"accessToken":"a","expiresAt":9e15}} | {"claudeAiOauth":{"refreshToken":null,"expiresAt":9e15}} | file -1 max | 200 | 200 | file | renewed | | Max
refresh token with a line break | -        | -             | {"claudeAiOauth":{"refreshToken":"r\r\nX: y\u0000"}} | 400 | | r%0D%0AX%3A%20y%00 | | expired |
no usable session        | {not json      | [{"claudeAiOauth":{"refreshToken":"r"}}] | {"claudeAiOauth":{"refreshToken":5}} | 200 | 200 | | | none |
form-encoded refresh     | -              | -             | {"claudeAiOauth":{"refreshToken":"ab-c_d.e~f+/=&%ñú Δ9é k🔑"}} | 400 | | ab%2Dc%5Fd%2Ee%7Ef%2B%2F%3D%26%25ñú%20Δ9é%20k%F0%9F%94%91 | | expired |
401 retries, reloaded    | -              | -             | file -9      | 200   | 401 200 | file new | renewed renewed | | Pro
second 401 is reported   | -              | -             | file 1       | 200   | 401 | file | stored renewed | 401 | Pro
403 is not refreshed     | -              | -             | file 1       | 200   | 403 | | stored | 403 | Pro
six refreshes at most    | code -20       | own -10       | file -30     | 400 400 200 400 | 401 | own code file new new new | renewed | 401 | Pro
token endpoint hangs     | -              | -             | file -9      | hang  |     | file | | expired | Pro
usage server error       | -              | -             | file 1       |       | 503 | | stored | 503 | Pro
usage dropped            | -              | -             | file 1       |       | drop | | stored | 0 | Pro
usage hangs              | -              | -             | file 1       |       | hang | | stored | 0 | Pro)"); }
    void fetchRefreshesInOrderAndReports()
    {
        for (const char* place : { "code", "own", "file" }) {
            const QByteArray doc = session(cell(place));
            const bool own = *place == 'o';
            QVERIFY(doc.isEmpty() || (*place == 'f' ? t->write(kFile, doc) : store(own ? kOwn : kCode, own ? "oauth" : "x", doc)));
        }
        script(t->peer, "POST", kTokenPath, cell("tokens"), kRenewed);
        script(t->peer, "GET", kUsagePath, cell("usage"), R"({"five_hour":{"utilization":10},"seven_day":{}})");
        const ServiceUsage usage = ClaudeProvider::fetch(t->env);
        const QString error = cell("error") == u"none" ? u"Sin credenciales de Claude Code. Abre `claude` en la Terminal e inicia sesión (/login)."_s
            : cell("error") == u"expired" ? u"Sesión de Claude Code expirada. Abre `claude` en la Terminal, ejecuta /login y luego pulsa ↻ aquí."_s
            : cell("error").isEmpty() ? QString() : QStringLiteral("No pude consultar el uso de Claude (HTTP %1).").arg(cell("error"));
        QCOMPARE(usage.errorOrEmpty(), error);
        QCOMPARE(usage.planBadgeOrEmpty(), cell("plan"));
        QCOMPARE(usage.rows.size(), error.isEmpty() ? 2 : 0);
        QCOMPARE(usage.updatedAt, error.isEmpty() ? std::optional(kNow) : std::nullopt);
        QByteArrayList spent, bearers;
        for (const auto& r : t->peer.requests("POST", kTokenPath)) {
            QCOMPARE(r.header("content-type"), QByteArray("application/x-www-form-urlencoded"));
            QVERIFY2(r.body.startsWith("grant_type=refresh_token&refresh_token=")
                    && r.body.endsWith("&client_id=3f6a2b1c-7d4e-4a9b-8c2d-1e5f6a7b8c9d"),
                r.body.constData());
            spent << r.body.split('&').value(1).mid(14);
        }
        for (const auto& r : t->peer.requests("GET", kUsagePath)) {
            QCOMPARE(r.header("anthropic-beta"), QByteArray("oauth-2025-04-20"));
            bearers << r.header("authorization").mid(7);
            for (const auto& [name, value] : r.headers)
                QVERIFY2(QByteArrayList({ "host", "accept", "authorization", "anthropic-beta" }).contains(name), name);
        }
        QCOMPARE(QString::fromUtf8(spent.join(' ')), cell("refreshed"));
        QCOMPARE(QString::fromUtf8(bearers.join(' ')), cell("bearers"));
    }
    // places of the expired session: Claude Code's item "code", or "bare" without an account attribute,
    // "blank" with an empty one; "own"; "file", "gone": removed just before its write-back. stored: the
    // access token, expiry and refresh token then stored; next: the refresh token the next refresh sends.
    void refreshedSessionIsWrittenWhereOneWas_data() { table(R"(
| places | answer | stored | next | error
code             | code          | - | "renewed" 1732003600000 "new" | new |
file             | file          | - | "renewed" 1732003600000 "new" | new |
own file         | own file      | - | "renewed" 1732003600000 "new" | new |
everywhere       | code own file | - | "renewed" 1732003600000 "new" | new |
code, no account | bare          | - | "renewed" 1732003600000 "new" | new |
code, account "" | blank own     | - | "renewed" 1732003600000 "new" | new |
logged out meanwhile | gone code | - | "renewed" 1732003600000 "new" | new |
rotated token, control characters | code own file | {"access_token":"renewed","refresh_token":"n\u0001e\r\nw","expires_in":3600} | "renewed" 1732003600000 "n\u0001e\r\nw" | n%01e%0D%0Aw |
access token, line break | code own file | {"access_token":"re\r\nX-Evil:1","expires_in":3600} | "re\r\nX-Evil:1" 1732003600000 "rt" | rt | 0
no refresh_token, no expires_in | code own file | {"access_token":"renewed"} | "renewed" 5 "rt" | rt |)"); }
    void refreshedSessionIsWrittenWhereOneWas()
    {
        const auto has = [](const char* place) { return cell("places").split(u' ').contains(QLatin1String(place)); };
        const bool code = has("code") || has("bare") || has("blank"), file = has("file");
        const QByteArray old = R"({"source":"x","big":12345678901234567,"claudeAiOauth":{"refreshToken":"rt",)"
                               R"("expiresAt":5,"subscriptionType":"max","n":[1,2.5,null]}})";
        QVERIFY(t->write(".claude/settings.json", "{}"));
        QVERIFY(!has("code") || store(kCode, "claude-user", old));
        QVERIFY(!has("bare") || store(kCode, QString(), old));
        QVERIFY(!has("blank") || store(kCode, u""_s, old));
        QVERIFY(!has("own") || store(kOwn, "oauth", old));
        QVERIFY(!(file || has("gone")) || t->write(kFile, old));
        if (has("gone"))
            t->env.beforeReplace = [](const QString& path) { QFile::remove(path); };
        t->peer.on("POST", kTokenPath, answer(200, cell("answer") == u"-" ? kRenewed : cell("answer").toUtf8()));
        t->peer.on("GET", kUsagePath, answer(200, "{}"));
        QCOMPARE(ClaudeProvider::fetch(t->env).errorOrEmpty(),
            cell("error").isEmpty() ? QString() : u"No pude consultar el uso de Claude (HTTP %1)."_s.arg(cell("error")));
        QCOMPARE(t->peer.requests("GET", kUsagePath).size(), cell("error").isEmpty() ? 1 : 0);
        const QStringList stored = cell("stored").split(u' ');
        const QByteArray renewed = canonical(u"{\"big\":12345678901234567,\"claudeAiOauth\":{\"accessToken\":%1,"
            "\"expiresAt\":%2,\"n\":[1,2.5,null],\"refreshToken\":%3,\"subscriptionType\":\"max\"},\"source\":\"x\"}"_s
            .arg(stored[0], stored[1], stored[2]).toUtf8());
        QCOMPARE(lookup(kCode, has("code") ? u"claude-user"_s : QString()), code ? renewed : QByteArray("-"));
        QCOMPARE(t->read(kFile), file ? renewed : QByteArray());
        QVERIFY(!file || modeOf(t->path(kFile)) == 0600);
        QCOMPARE(QDir(t->path(u".claude"_s)).entryList(QDir::Files | QDir::Hidden).size(), file ? 2 : 1);
        QCOMPARE(lookup(kOwn, "oauth"), renewed);
        QCOMPARE(count(kCode), code ? 1 : 0);
        QCOMPARE(count(kOwn), 1);
        // Two hours on the session has expired, and the next refresh spends the stored token.
        *t->clock += 7200;
        ClaudeProvider::fetch(t->env);
        const auto refreshes = t->peer.requests("POST", kTokenPath);
        QCOMPARE(refreshes.size(), 2);
        QCOMPARE(QString::fromUtf8(refreshes.last().body.split('&').value(1).mid(14)), cell("next"));
        // A write under an account the item does not have is dropped by the store, and so not verified.
        QVERIFY(!KeychainHelper::saveVerified(secrets(), kOwn, u"claude-user"_s, "x"));
    }

    // Codex names a window by its length: a session up to six hours, whole hours beyond, a week from six
    // days; by its place when it has no usable length.
    void rowsFollowTheAnswer_data() { table(R"(
| service | answer | rows
limits in order, then extra credits | claude | {"limits":[{"kind":"session","percent":12.5,"resets_at":"2025-03-01T12:34:56.789Z"},{"kind":"weekly_all","percent":40,"resets_at":"2025-03-01"},{"kind":"weekly_scoped","percent":3,"scope":{"model":{"display_name":"Opus"}}},{"kind":"weekly_scoped","percent":4,"scope":{"model":{"display_name":7}}},{"kind":"opus","percent":1e308},{"kind":"x","percent":-1e19},{"percent":"9","resets_at":5}],"five_hour":{"utilization":99},"spend":{"enabled":true,"used":{"amount_minor":1250},"limit":{"amount_minor":5000}}} | claude-session-Sesión de 5 h, Sesión de 5 h, 12.5, 1740832496.789, -; claude-weekly_all-Semanal · Todos los modelos, Semanal · Todos los modelos, 40, -, -; claude-weekly_scoped-Semanal · Opus, Semanal · Opus, 3, -, -; claude-weekly_scoped-Semanal · Modelo, Semanal · Modelo, 4, -, -; claude--, , 0, -, -; claude-extra, Créditos extra, 25, -, $12.50 / $50.00 USD
windows, session first | claude | {"seven_day":{"utilization":7.25,"resets_at":"bad"},"five_hour":{"resets_at":"2025-03-01T12:34:56Z"}} | claude-5h, Sesión de 5 h, 0, 1740832496, -; claude-7d, Semanal · Todos los modelos, 7.25, -, -
empty limits hide the windows | claude | {"limits":[],"five_hour":{"utilization":50}} |
limits with a non-object fall back | claude | {"limits":[{"kind":"session"},1],"five_hour":5,"seven_day":{"utilization":-5},"spend":{"enabled":true,"used":{"amount_minor":500,"exponent":3},"limit":{"amount_minor":2000,"exponent":0}}} | claude-7d, Semanal · Todos los modelos, -5, -, -; claude-extra, Créditos extra, 25, -, $0.50 / $2.00 USD
window beyond the model | claude | {"five_hour":{"utilization":1e308}} |
credits: limit of zero | claude | {"spend":{"enabled":true,"percent":30,"used":{"amount_minor":1},"limit":{"amount_minor":0}}} |
credits: percent given | claude | {"spend":{"enabled":true,"percent":30,"used":{"amount_minor":1,"exponent":0},"limit":{"amount_minor":2}}} | claude-extra, Créditos extra, 30, -, $1.00 / $2.00 USD
credits: disabled | claude | {"spend":{"enabled":false,"used":{"amount_minor":1},"limit":{"amount_minor":2}}} |
credits: no finite dollars | claude | {"spend":{"enabled":true,"used":{"amount_minor":1,"exponent":-400},"limit":{"amount_minor":2}}} |
six hours is a session; reset_at wins | codex | {"rate_limit":{"primary_window":{"limit_window_seconds":0.5,"reset_at":0,"reset_after_seconds":5},"secondary_window":{"limit_window_seconds":21600}}} | codex-primary_window, Sesión de 5 h, 0, 0, -; codex-secondary_window, Sesión de 5 h, 0, -, -
hours above six; relative reset | codex | {"rate_limit":{"primary_window":{"limit_window_seconds":21600.5,"reset_at":"soon","reset_after_seconds":30.5},"secondary_window":{"limit_window_seconds":30000}}} | codex-primary_window, Ventana de 6 h, 0, 1740832527.289, -; codex-secondary_window, Ventana de 8 h, 0, -, -
six days is a week | codex | {"rate_limit":{"primary_window":{"limit_window_seconds":518399,"reset_at":null,"reset_after_seconds":"1"},"secondary_window":{"limit_window_seconds":518400}}} | codex-primary_window, Ventana de 143 h, 0, -, -; codex-secondary_window, Semanal, 0, -, -
no usable length | codex | {"rate_limit":{"primary_window":{"used_percent":120,"limit_window_seconds":0},"secondary_window":{"used_percent":"50","limit_window_seconds":-3600}}} | codex-primary_window, Ventana principal, 120, -, -; codex-secondary_window, Ventana secundaria, 0, -, -
primary not an object | codex | {"rate_limit":{"primary_window":[1],"secondary_window":{"used_percent":-5,"limit_window_seconds":"9"}}} | codex-secondary_window, Ventana secundaria, -5, -, -
numbers beyond the model | codex | {"rate_limit":{"primary_window":{"used_percent":1e308},"secondary_window":{"used_percent":3,"reset_at":-1e300}}} | codex-secondary_window, Ventana secundaria, 3, -, -
relative reset beyond the model | codex | {"rate_limit":{"primary_window":{"used_percent":-9e18,"reset_after_seconds":1e19}}} | codex-primary_window, Ventana principal, -9e+18, -, -
rate_limit not an object | codex | {"rate_limit":[{"primary_window":{}}] } |)"); }
    void rowsFollowTheAnswer()
    {
        const auto answer = platform::Json::parseObject(cell("answer").toUtf8());
        QVERIFY(answer);
        QCOMPARE(rowsText(cell("service") == u"claude" ? ClaudeProvider::parseRows(*answer)
                                             : CodexProvider::parseRows(*answer, kCodexNow)), cell("rows"));
    }
    // auth.json: "full", "-": none, "dir", "nesting": 10 MB of '['. requests: "bearer account" or the refresh
    // token. error: a status or "none". after, the file: tokens written ("access refresh id"), untouched (""),
    // "readonly": its folder is, "gone": removed before the write.
    void fetchRefreshesOnceAndReports_data() { table(R"(
| auth | usage | token | tokenAnswer | requests | error | after
good answer         | full | 200 | | | at-1 acc-1 | |
no account          | {"tokens":{"access_token":"at-1"}} | 200 | | | at-1 - | |
account line break  | {"tokens":{"access_token":"at-1","account_id":"a\r\nX-Evil: 1"}} | 200 | | | | 0 |
server error        | full | 500 | | | at-1 acc-1 | 500 |
never answers       | full | hang | | | at-1 acc-1 | 0 |
no file             | - | 200 | | | | none |
a directory         | dir | 200 | | | | none |
deep nesting        | nesting | 200 | | | | none |
access line break   | {"tokens":{"access_token":"a\r\nX-Evil: 1"}} | 200 | | | | 0 |
access with a NUL   | {"tokens":{"access_token":"a\u0000b"}} | 200 | | | | 0 |
401 refreshed       | full | 401 200 | 200 | {"access_token":"at-2","refresh_token":"rt-2","id_token":"id-2","expires_in":60} | at-1 acc-1; rt-1; at-2 acc-1 | | at-2 rt-2 id-2
403 refreshed       | full | 403 200 | 200 | {"access_token":"at-2"} | at-1 acc-1; rt-1; at-2 acc-1 | | at-2 rt-1 id-1
wrong types kept    | full | 401 200 | 200 | {"access_token":"at-2","refresh_token":7,"id_token":null} | at-1 acc-1; rt-1; at-2 acc-1 | | at-2 rt-1 id-1
retry 401, no more  | full | 401 401 | 200 | {"access_token":"at-2","refresh_token":"rt-2","id_token":"id-2"} | at-1 acc-1; rt-1; at-2 acc-1 | 401 | at-2 rt-2 id-2
retry dropped       | full | 403 drop | 200 | {"access_token":"at-2","refresh_token":"rt-2","id_token":"id-2"} | at-1 acc-1; rt-1; at-2 acc-1 | 0 | at-2 rt-2 id-2
tokens with control characters | full | 401 200 | 200 | {"access_token":"at-2","refresh_token":"r\u0001t\r\n2","id_token":"i\u001bd"} | at-1 acc-1; rt-1; at-2 acc-1 | | at-2 r\u0001t\r\n2 i\u001bd
stored token with one | {"tokens":{"access_token":"at-1","refresh_token":"r\u0001t"}} | 401 | 400 | {} | at-1 -; r\u0001t | 401 |
folder read-only    | full | 401 200 | 200 | {"access_token":"at-2","refresh_token":"rt-2"} | at-1 acc-1; rt-1; at-2 acc-1 | | readonly
logged out meanwhile | full | 401 200 | 200 | {"access_token":"at-2","refresh_token":"rt-2"} | at-1 acc-1; rt-1; at-2 acc-1 | | gone
refresh refused     | full | 401 | 400 | {"error":"invalid_grant"} | at-1 acc-1; rt-1 | 401 |
refresh 201         | full | 403 | 201 | {"access_token":"at-2"} | at-1 acc-1; rt-1 | 403 |
refresh not JSON    | full | 401 | 200 | <html> | at-1 acc-1; rt-1 | 401 |
no access token     | full | 403 | 200 | {"refresh_token":"rt-2"} | at-1 acc-1; rt-1 | 403 |
refresh hangs       | full | 401 | hang | | at-1 acc-1; rt-1 | 401 |
new access bad      | full | 401 | 200 | {"access_token":"at-2\r\nX"} | at-1 acc-1; rt-1 | 0 | at-2\r\nX rt-1 id-1
nothing to refresh  | {"tokens":{"access_token":"at-1"}} | 401 | 200 | {"access_token":"at-2"} | at-1 - | 401 |)"); }
    void fetchRefreshesOnceAndReports()
    {
        *t->clock = kCodexNow;
        const bool file = cell("auth") != u"-" && cell("auth") != u"dir";
        const QByteArray auth = !file ? QByteArray()
            : cell("auth") == u"full"         ? kAuth
            : cell("auth") == u"nesting"      ? QByteArray(10 * 1024 * 1024, '[')
                                      : cell("auth").toUtf8();
        QVERIFY(QDir(t->home.path()).mkpath(cell("auth") == u"dir" ? kAuthFile : u".codex"_s));
        QVERIFY(!file || t->write(kAuthFile, auth));
        const QByteArray folder = QFile::encodeName(t->path(u".codex"_s));
        if (cell("after") == u"readonly" && ::geteuid() == 0) { // root writes anywhere but on a read-only mount
            QVERIFY2(qEnvironmentVariableIsSet("LIMITRA_UNSHARED"), "needs the private mount namespace of main()");
            QVERIFY(::mount(folder, folder, nullptr, MS_BIND, nullptr) == 0
                && ::mount(nullptr, folder, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) == 0);
        }
        QVERIFY(cell("after") != u"readonly" || ::geteuid() == 0 || ::chmod(folder, 0500) == 0);
        const auto writable = qScopeGuard([&] {
            ::umount2(folder, MNT_DETACH);
            ::chmod(folder, 0700);
        });
        if (cell("after") == u"gone")
            t->env.beforeReplace = [](const QString& path) { QFile::remove(path); };
        script(t->peer, "GET", kCodexUsagePath, cell("usage"), kAnswer);
        script(t->peer, "POST", kCodexTokenPath, cell("token"), cell("tokenAnswer").toUtf8());
        const ServiceUsage usage = CodexProvider::fetch(t->env);
        const QString error = cell("error") == u"none" ? u"No encontré credenciales de Codex. Ejecuta `codex login` en la Terminal."_s
            : cell("error").isEmpty() ? QString()
                             : u"No pude consultar el uso de Codex (HTTP %1). Ejecuta `codex login` si persiste."_s.arg(cell("error"));
        QCOMPARE(usage.errorOrEmpty(), error);
        QCOMPARE(usage.planBadgeOrEmpty(), error.isEmpty() ? u"Plus"_s : QString());
        QCOMPARE(usage.updatedAt, error.isEmpty() ? std::optional(kCodexNow) : std::nullopt);
        QCOMPARE(rowsText(usage.rows), error.isEmpty() ? u"codex-primary_window, Sesión de 5 h, 42.5, 1740840000.25, -; "
                                       "codex-secondary_window, Semanal, 7, 1740918896.789, -"_s : QString());
        QStringList trace;
        for (const auto& r : t->peer.requests()) {
            if (r.method == "POST") {
                QCOMPARE(r.header("content-type"), QByteArray("application/json"));
                for (const char* header : { "user-agent", "authorization", "chatgpt-account-id" })
                    QVERIFY2(!r.hasHeader(header), header);
                const QByteArray token = QJsonDocument::fromJson(r.body)["refresh_token"].toString().toUtf8();
                QCOMPARE(canonical(r.body), canonical(R"({"client_id":"app_Zq8RtLw2Nc5VyH0dKs3Bpxme",)"
                    R"("grant_type":"refresh_token","refresh_token":")" + token + R"(","scope":"openid profile email"})"));
                trace << QString::fromUtf8(QJsonDocument(QJsonArray { QString::fromUtf8(token) }).toJson(QJsonDocument::Compact).mid(2).chopped(2));
                continue;
            }
            QCOMPARE(r.header("user-agent"), QByteArray("Limitra/1.0"));
            for (const auto& [name, value] : r.headers)
                QVERIFY2(QByteArrayList({ "host", "accept", "authorization", "user-agent", "chatgpt-account-id" }).contains(name), name);
            trace << QString::fromUtf8(r.header("authorization").mid(7) + ' ' + (r.hasHeader("chatgpt-account-id") ? r.header("chatgpt-account-id") : "-"));
        }
        QCOMPARE(trace.join(u"; "), cell("requests"));
        const QByteArray written = t->read(kAuthFile);
        if (cell("after").isEmpty() || cell("after") == u"readonly" || cell("after") == u"gone") {
            QCOMPARE(written, cell("after") == u"gone" ? QByteArray() : auth);
            QCOMPARE(QDir(t->path(u".codex"_s)).entryList(QDir::Files | QDir::Hidden).size(), file && cell("after") != u"gone" ? 1 : 0);
            return;
        }
        // All but the tokens and the time of the refresh stays, indented as the Codex tool writes it.
        const QStringList tokens = cell("after").split(u' ');
        QCOMPARE(canonical(written), canonical(R"({"OPENAI_API_KEY":null,"counter":12345678901234567,)"
                      R"("last_refresh":"2025-03-01T12:34:56.789Z","nested":{"b":{"deep":3},"a":false},)"
                      R"("tokens":{"account_id":"acc-1","zz":{"list":[1,2.5,"x",null,true]},)"
                      + u"\"access_token\":\"%1\",\"refresh_token\":\"%2\",\"id_token\":\"%3\"}}"_s.arg(tokens[0], tokens[1], tokens[2]).toUtf8()));
        QVERIFY2(written.count("\n    ") > 10 && written.contains("\"counter\": 12345678901234567"), written.constData());
        QCOMPARE(modeOf(t->path(kAuthFile)), 0600);
    }
    // Last: the collection stays locked, since unlocking would need a prompt (which would never end).
    // Its items are never read or written; the same item in an unlocked collection still is.
    void lockedCollectionLooksEmptyAndNeverPrompts()
    {
        QVERIFY(store(kOwn, "me", "secret"));
        QVERIFY(run(kSecretService + QStringList { "org.freedesktop.Secret.Service.Lock", "['/org/freedesktop/secrets/collection/login']" }));
        QVERIFY(!KeychainHelper::read(secrets(), kOwn));
        QVERIFY(!KeychainHelper::saveVerified(secrets(), kOwn, u"me"_s, "x"));
        QVERIFY(!KeychainHelper::upsertOwn(secrets(), kCode, u"me"_s, "x") && count(kCode) == 0);
        QVERIFY(run({ "secret-tool", "store", "--label=s", "--collection=session", "service", kOwn, "account", "me" }, "s"));
        QVERIFY(KeychainHelper::update(secrets(), kOwn, u"me"_s, "newer"));
        QCOMPARE(KeychainHelper::read(secrets(), kOwn)->data, "newer");
    }
};

int main(int argc, char** argv)
{
    limitra::test::rerunInPrivateMountNamespace(argc, argv);
    QCoreApplication app(argc, argv);
    TestServices test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_services.moc"
