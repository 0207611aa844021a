#include "platform/Json.h"
#include "platform/LibsecretStore.h"
#include "services/claude/ClaudeProvider.h"
#include "services/claude/KeychainHelper.h"
#include "Table.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>

using namespace limitra;
using namespace limitra::test;
using namespace Qt::StringLiterals;

namespace {
constexpr double kNow = 1732000000.0;
const QString kCode = QString(ClaudeProvider::claudeCodeService), kOwn = QString(ClaudeProvider::ownService);
const QString kFile = QString(ClaudeProvider::credentialsFile);
const QByteArray kUsagePath = "/api/oauth/usage", kTokenPath = "/v1/oauth/token";
const QByteArray kRenewed = R"({"access_token":"renewed","refresh_token":"new","expires_in":3600})";

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
bool store(const QString& service, const QString& account, const QByteArray& data)
{
    return run({ "secret-tool", "store", "--label=other", "service", service, "account", account }, data).has_value();
}
QByteArray lookup(const QString& service, const QString& account)
{
    return run({ "secret-tool", "lookup", "service", service, "account", account }).value_or("-");
}
// Items of a service, locked ones included, or with method "Lock" the login collection locked.
std::optional<QByteArray> callService(const QString& method, const QString& argument)
{
    return run({ "gdbus", "call", "--session", "--dest", "org.freedesktop.secrets", "--object-path",
        "/org/freedesktop/secrets", "--method", "org.freedesktop.Secret.Service." + method, argument });
}
qsizetype count(const QString& service)
{
    static const QRegularExpression item(QStringLiteral("'/org/freedesktop/secrets/collection/[^']+'"));
    const auto out = callService("SearchItems", QStringLiteral("{'service': '%1'}").arg(service));
    return QString::fromUtf8(out.value_or("")).count(item);
}

// "-": none; JSON as it is; else "name offset [plan [access token]]": a session whose refresh token is
// `name`, expiring `offset` ms after the last moment at which a stored token is refreshed.
QByteArray session(const QString& spec)
{
    if (spec == u"-" || spec.startsWith(u'{') || spec.startsWith(u'['))
        return spec == u"-" ? QByteArray() : spec.toUtf8();
    const QStringList w = spec.split(u' ') + QStringList { "", "pro", "stored" }.mid(spec.count(u' '));
    return QStringLiteral(R"({"source":"%1","claudeAiOauth":{"refreshToken":"%1","expiresAt":%2,)"
                          R"("subscriptionType":"%3","accessToken":"%4"}})")
        .arg(w[0], QString::number(kNow * 1000 + 300000 + w[1].toDouble(), 'f', 0), w[2], w[3])
        .toUtf8();
}
} // namespace

class TestClaude : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestEnv> t;
    platform::SecretStore& secrets() const { return *t->env.secrets; }

private Q_SLOTS:
    void initTestCase() { QVERIFY2(qEnvironmentVariableIsSet("LIMITRA_PRIVATE_KEYRING"), "use with-keyring.sh"); }
    void init()
    {
        t = std::make_unique<TestEnv>(kNow);
        t->env.secrets = std::make_shared<platform::LibsecretStore>();
        for (const QString& service : { kCode, kOwn })
            run({ "secret-tool", "clear", "service", service });
    }
    void cleanup() { t.reset(); }

    // name | usage answer | rows
    void rowsFollowTheAnswer_data() { addTableRows(uR"(
limits in order, then extra credits | {"limits":[{"kind":"session","percent":12.5,"resets_at":"2025-03-01T12:34:56.789Z"},{"kind":"weekly_all","percent":40,"resets_at":"2025-03-01"},{"kind":"weekly_scoped","percent":3,"scope":{"model":{"display_name":"Opus"}}},{"kind":"weekly_scoped","percent":4,"scope":{"model":{"display_name":7}}},{"kind":"opus","percent":1e308},{"kind":"x","percent":-1e19},{"percent":"9","resets_at":5}],"five_hour":{"utilization":99},"spend":{"enabled":true,"used":{"amount_minor":1250},"limit":{"amount_minor":5000}}} | claude-session-Sesión de 5 h, Sesión de 5 h, 12.5, 1740832496.789, -; claude-weekly_all-Semanal · Todos los modelos, Semanal · Todos los modelos, 40, -, -; claude-weekly_scoped-Semanal · Opus, Semanal · Opus, 3, -, -; claude-weekly_scoped-Semanal · Modelo, Semanal · Modelo, 4, -, -; claude--, , 0, -, -; claude-extra, Créditos extra, 25, -, $12.50 / $50.00 USD
windows, session first | {"seven_day":{"utilization":7.25,"resets_at":"bad"},"five_hour":{"resets_at":"2025-03-01T12:34:56Z"}} | claude-5h, Sesión de 5 h, 0, 1740832496, -; claude-7d, Semanal · Todos los modelos, 7.25, -, -
empty limits hide the windows | {"limits":[],"five_hour":{"utilization":50}} |
limits with a non-object fall back | {"limits":[{"kind":"session"},1],"five_hour":5,"seven_day":{"utilization":-5},"spend":{"enabled":true,"used":{"amount_minor":500,"exponent":3},"limit":{"amount_minor":2000,"exponent":0}}} | claude-7d, Semanal · Todos los modelos, -5, -, -; claude-extra, Créditos extra, 25, -, $0.50 / $2.00 USD
window beyond the model | {"five_hour":{"utilization":1e308}} |
credits: limit of zero | {"spend":{"enabled":true,"percent":30,"used":{"amount_minor":1},"limit":{"amount_minor":0}}} |
credits: percent given | {"spend":{"enabled":true,"percent":30,"used":{"amount_minor":1,"exponent":0},"limit":{"amount_minor":2}}} | claude-extra, Créditos extra, 30, -, $1.00 / $2.00 USD
credits: disabled | {"spend":{"enabled":false,"used":{"amount_minor":1},"limit":{"amount_minor":2}}} |
credits: no finite dollars | {"spend":{"enabled":true,"used":{"amount_minor":1,"exponent":-400},"limit":{"amount_minor":2}}} |)"); }
    void rowsFollowTheAnswer()
    {
        QFETCH(QStringList, f);
        const auto object = platform::Json::parseObject(f[0].toUtf8());
        QVERIFY(object);
        QCOMPARE(rowsText(ClaudeProvider::parseRows(*object)), f[1]);
    }

    // name | Claude Code's item | own item | file | token statuses | usage statuses | refresh tokens sent
    //      | access tokens sent | error: HTTP status, "expired" or "none" | plan badge
    void fetchRefreshesInOrderAndReports_data() { addTableRows(uR"(
fresh stored token       | -              | -             | file 1 max   |       | 200 | | stored | | Max
token at the edge        | -              | -             | file 0       | 200   | 200 | file | renewed | | Pro
latest first, its plan   | code -3000 max | own -1000 team | file -2000  | 400 200 | 200 | own file | renewed | | Team
ties keep reading order  | code -7        | own -7        | file -7      | 500   |     | code own file | | expired | Pro
token with a line break  | -              | -             | file 5 pro a\r\nX-Evil:1 | 200 | 200 | file | renewed | | Pro
unusable sessions skipped | {"claudeAiOauth":{"accessToken":"a","expiresAt":9e15}} | {"claudeAiOauth":{"refreshToken":"r\r\nX: y","expiresAt":9e15}} | file -1 max | 200 | 200 | file | renewed | | Max
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
        QFETCH(QStringList, f);
        for (int i = 0; i < 3; ++i) {
            const QByteArray doc = session(f[i]);
            QVERIFY(doc.isEmpty() || (i == 2 ? t->write(kFile, doc) : store(i ? kOwn : kCode, i ? "oauth" : "x", doc)));
        }
        script(t->peer, "POST", kTokenPath, f[3], kRenewed);
        script(t->peer, "GET", kUsagePath, f[4], R"({"five_hour":{"utilization":10},"seven_day":{}})");
        const ServiceUsage usage = ClaudeProvider::fetch(t->env);
        const QString error = f[7] == u"none" ? u"Sin credenciales de Claude Code. Abre `claude` en la Terminal e inicia sesión (/login)."_s
            : f[7] == u"expired" ? u"Sesión de Claude Code expirada. Abre `claude` en la Terminal, ejecuta /login y luego pulsa ↻ aquí."_s
            : f[7].isEmpty() ? QString() : QStringLiteral("No pude consultar el uso de Claude (HTTP %1).").arg(f[7]);
        QCOMPARE(usage.errorOrEmpty(), error);
        QCOMPARE(usage.planBadgeOrEmpty(), f[8]);
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
        QCOMPARE(QString::fromUtf8(spent.join(' ')), f[5]);
        QCOMPARE(QString::fromUtf8(bearers.join(' ')), f[6]);
    }

    // name | the places that hold the expired session; Claude Code's folder exists in every case.
    void refreshedSessionIsWrittenWhereOneWas_data() { addTableRows(uR"(
Claude Code's item only | code
file only               | file
own item and file       | own file
everywhere              | code own file)"); }
    void refreshedSessionIsWrittenWhereOneWas()
    {
        QFETCH(QStringList, f);
        const bool code = f[0].contains(u"code"), file = f[0].contains(u"file");
        const QByteArray old = R"({"source":"x","big":12345678901234567,"claudeAiOauth":{"refreshToken":"rt",)"
                               R"("expiresAt":5,"subscriptionType":"max","n":[1,2.5,null]}})";
        QVERIFY(t->write(".claude/settings.json", "{}"));
        QVERIFY(!code || store(kCode, "claude-user", old));
        QVERIFY(!f[0].contains(u"own") || store(kOwn, "oauth", old));
        QVERIFY(!file || t->write(kFile, old));
        t->peer.on("POST", kTokenPath, answer(200, kRenewed));
        t->peer.on("GET", kUsagePath, answer(200, "{}"));
        QCOMPARE(ClaudeProvider::fetch(t->env).errorOrEmpty(), QString());
        const QByteArray renewed = R"({"big":12345678901234567,"claudeAiOauth":{"accessToken":"renewed",)"
                                   R"("expiresAt":1732003600000,"n":[1,2.5,null],"refreshToken":"new",)"
                                   R"("subscriptionType":"max"},"source":"x"})";
        QCOMPARE(lookup(kCode, "claude-user"), code ? renewed : QByteArray("-"));
        QCOMPARE(t->read(kFile), file ? renewed : QByteArray());
        QVERIFY(!file || modeOf(t->path(kFile)) == 0600);
        QCOMPARE(lookup(kOwn, "oauth"), renewed);
        QCOMPARE(count(kCode), code ? 1 : 0);
        QCOMPARE(count(kOwn), 1);
        // A write under an account the item does not have is dropped by the store, and so not verified.
        QVERIFY(!KeychainHelper::saveVerified(secrets(), kOwn, u"claude-user"_s, "x"));
    }

    // Last: the collection stays locked, since unlocking would need a prompt.
    void lockedCollectionLooksEmptyAndNeverPrompts()
    {
        QVERIFY(store(kOwn, "me", "secret"));
        QVERIFY(callService("Lock", "['/org/freedesktop/secrets/collection/login']"));
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!KeychainHelper::read(secrets(), kOwn));
        QVERIFY(!KeychainHelper::saveVerified(secrets(), kOwn, u"me"_s, "x"));
        QVERIFY(!KeychainHelper::upsertOwn(secrets(), kCode, u"me"_s, "x"));
        QVERIFY2(timer.elapsed() < 1000, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(count(kCode), 0);
    }
};

QTEST_GUILESS_MAIN(TestClaude)
#include "tst_claude.moc"
