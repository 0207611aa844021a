#include "services/codex/CodexProvider.h"
#include "Table.h"

#include <QDir>
#include <QElapsedTimer>
#include <QJsonDocument>

using namespace limitra;
using namespace limitra::test;
using namespace Qt::StringLiterals;

namespace {
constexpr double kNow = 1740832496.789; // 2025-03-01T12:34:56.789Z
const QByteArray kUsagePath = "/backend-api/wham/usage", kTokenPath = "/oauth/token";
const QString kAuthFile = QStringLiteral(".codex/auth.json");
const QByteArray kAuth = R"({"tokens":{"refresh_token":"rt-1","access_token":"at-1","id_token":"id-1",)"
                         R"("account_id":"acc-1","zz":{"list":[1,2.5,"x",null,true]}},)"
                         R"("OPENAI_API_KEY":null,"last_refresh":"2024-01-01T00:00:00Z",)"
                         R"("counter":12345678901234567,"nested":{"b":{"deep":3},"a":false}})";
const QByteArray kAnswer = R"({"plan_type":"plus","rate_limit":{
    "primary_window":{"used_percent":42.5,"limit_window_seconds":18000,"reset_at":1740840000.25},
    "secondary_window":{"used_percent":7,"limit_window_seconds":604800,"reset_after_seconds":86400}}})";

QByteArray canonical(const QByteArray& json) { return QJsonDocument::fromJson(json).toJson(QJsonDocument::Compact); }
} // namespace

class TestCodex : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestEnv> t;

private Q_SLOTS:
    void init() { t = std::make_unique<TestEnv>(kNow, std::chrono::milliseconds(300)); }
    void cleanup() { t.reset(); }

    // name | the "rate_limit" member | rows. A window is named by its length: a session up to six hours,
    // whole hours beyond, a week from six days; by its place when it has no usable length.
    void rowsFromAnswer_data() { addTableRows(uR"(
six hours is a session; reset_at wins | {"primary_window":{"limit_window_seconds":0.5,"reset_at":0,"reset_after_seconds":5},"secondary_window":{"limit_window_seconds":21600}} | codex-primary_window, Sesión de 5 h, 0, 0, -; codex-secondary_window, Sesión de 5 h, 0, -, -
hours above six; relative reset | {"primary_window":{"limit_window_seconds":21600.5,"reset_at":"soon","reset_after_seconds":30.5},"secondary_window":{"limit_window_seconds":30000}} | codex-primary_window, Ventana de 6 h, 0, 1740832527.289, -; codex-secondary_window, Ventana de 8 h, 0, -, -
six days is a week | {"primary_window":{"limit_window_seconds":518399,"reset_at":null,"reset_after_seconds":"1"},"secondary_window":{"limit_window_seconds":518400}} | codex-primary_window, Ventana de 143 h, 0, -, -; codex-secondary_window, Semanal, 0, -, -
no usable length | {"primary_window":{"used_percent":120,"limit_window_seconds":0},"secondary_window":{"used_percent":"50","limit_window_seconds":-3600}} | codex-primary_window, Ventana principal, 120, -, -; codex-secondary_window, Ventana secundaria, 0, -, -
primary not an object | {"primary_window":[1],"secondary_window":{"used_percent":-5,"limit_window_seconds":"9"}} | codex-secondary_window, Ventana secundaria, -5, -, -
numbers beyond the model | {"primary_window":{"used_percent":1e308},"secondary_window":{"used_percent":3,"reset_at":-1e300}} | codex-secondary_window, Ventana secundaria, 3, -, -
relative reset beyond the model | {"primary_window":{"used_percent":-9e18,"reset_after_seconds":1e19}} | codex-primary_window, Ventana principal, -9e+18, -, -
rate_limit not an object | [{"primary_window":{}}] |)"); }
    void rowsFromAnswer()
    {
        QFETCH(QStringList, f);
        const QJsonObject answer = QJsonDocument::fromJson("{\"rate_limit\":" + f[0].toUtf8() + "}").object();
        QVERIFY(!answer.isEmpty());
        QCOMPARE(rowsText(CodexProvider::parseRows(answer, kNow)), f[1]);
    }

    // name | auth.json ("full", "-" none, "dir", "nesting" 10 MB of '[') | usage statuses | token status
    //      | token answer | requests: "bearer account" or "refresh token" | error: HTTP status or "none"
    //      | the tokens written back ("all" new, "access" only) or unchanged
    void fetchRefreshesOnceAndReports_data() { addTableRows(uR"(
good answer         | full | 200 | | | at-1 acc-1 | |
no account          | {"tokens":{"access_token":"at-1"}} | 200 | | | at-1 - | |
account line break  | {"tokens":{"access_token":"at-1","account_id":"a\r\nX-Evil: 1"}} | 200 | | | at-1 - | |
server error        | full | 500 | | | at-1 acc-1 | 500 |
never answers       | full | hang | | | at-1 acc-1 | 0 |
no file             | - | 200 | | | | none |
a directory         | dir | 200 | | | | none |
deep nesting        | nesting | 200 | | | | none |
access line break   | {"tokens":{"access_token":"a\r\nX-Evil: 1"}} | 200 | | | | none |
access with a NUL   | {"tokens":{"access_token":"a\u0000b"}} | 200 | | | | none |
401 refreshed       | full | 401 200 | 200 | {"access_token":"at-2","refresh_token":"rt-2","id_token":"id-2","expires_in":60} | at-1 acc-1; rt-1; at-2 acc-1 | | all
403 refreshed       | full | 403 200 | 200 | {"access_token":"at-2"} | at-1 acc-1; rt-1; at-2 acc-1 | | access
wrong types kept    | full | 401 200 | 200 | {"access_token":"at-2","refresh_token":7,"id_token":null} | at-1 acc-1; rt-1; at-2 acc-1 | | access
retry 401, no more  | full | 401 401 | 200 | {"access_token":"at-2","refresh_token":"rt-2","id_token":"id-2"} | at-1 acc-1; rt-1; at-2 acc-1 | 401 | all
retry dropped       | full | 403 drop | 200 | {"access_token":"at-2","refresh_token":"rt-2","id_token":"id-2"} | at-1 acc-1; rt-1; at-2 acc-1 | 0 | all
refresh refused     | full | 401 | 400 | {"error":"invalid_grant"} | at-1 acc-1; rt-1 | 401 |
refresh 201         | full | 403 | 201 | {"access_token":"at-2"} | at-1 acc-1; rt-1 | 403 |
refresh not JSON    | full | 401 | 200 | <html> | at-1 acc-1; rt-1 | 401 |
no access token     | full | 403 | 200 | {"refresh_token":"rt-2"} | at-1 acc-1; rt-1 | 403 |
refresh hangs       | full | 401 | hang | | at-1 acc-1; rt-1 | 401 |
new access bad      | full | 401 | 200 | {"access_token":"at-2\r\nX-Evil: 1"} | at-1 acc-1; rt-1 | 401 |
new id bad          | full | 403 | 200 | {"access_token":"at-2","id_token":"i\u001bd"} | at-1 acc-1; rt-1 | 403 |
nothing to refresh  | {"tokens":{"access_token":"at-1"}} | 401 | 200 | {"access_token":"at-2"} | at-1 - | 401 |)"); }
    void fetchRefreshesOnceAndReports()
    {
        QFETCH(QStringList, f);
        const bool file = f[0] != u"-" && f[0] != u"dir";
        const QByteArray auth = !file       ? QByteArray()
            : f[0] == u"full"               ? kAuth
            : f[0] == u"nesting"                ? QByteArray(10 * 1024 * 1024, '[')
                                                : f[0].toUtf8();
        QVERIFY(QDir(t->home.path()).mkpath(f[0] == u"dir" ? kAuthFile : u".codex"_s));
        QVERIFY(!file || t->write(kAuthFile, auth));
        script(t->peer, "GET", kUsagePath, f[1], kAnswer);
        script(t->peer, "POST", kTokenPath, f[2], f[3].toUtf8());
        QElapsedTimer timer;
        timer.start();
        const ServiceUsage usage = CodexProvider::fetch(t->env);
        QVERIFY2(timer.elapsed() < 5000, qPrintable(QString::number(timer.elapsed())));
        const QString error = f[5] == u"none" ? u"No encontré credenciales de Codex. Ejecuta `codex login` en la Terminal."_s
            : f[5].isEmpty() ? QString()
                             : u"No pude consultar el uso de Codex (HTTP %1). Ejecuta `codex login` si persiste."_s.arg(f[5]);
        QCOMPARE(usage.errorOrEmpty(), error);
        QCOMPARE(usage.planBadgeOrEmpty(), error.isEmpty() ? u"Plus"_s : QString());
        QCOMPARE(usage.updatedAt, error.isEmpty() ? std::optional(kNow) : std::nullopt);
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
                trace << QString::fromUtf8(token);
                continue;
            }
            QCOMPARE(r.header("user-agent"), QByteArray("Limitra/1.0"));
            for (const auto& [name, value] : r.headers)
                QVERIFY2(QByteArrayList({ "host", "accept", "authorization", "user-agent", "chatgpt-account-id" }).contains(name), name);
            trace << QString::fromUtf8(r.header("authorization").mid(7) + ' ' + (r.hasHeader("chatgpt-account-id") ? r.header("chatgpt-account-id") : "-"));
        }
        QCOMPARE(trace.join(u"; "), f[4]);
        const QByteArray written = t->read(kAuthFile);
        if (f[6].isEmpty()) {
            QCOMPARE(written, auth);
            QCOMPARE(QDir(t->path(u".codex"_s)).entryList(QDir::Files | QDir::Hidden).size(), file ? 1 : 0);
            return;
        }
        // Everything but the tokens and the time of the refresh stays, whole numbers included; the file is
        // indented like the Codex tool writes it.
        const QByteArray renewed = f[6] == u"all" ? R"("refresh_token":"rt-2","id_token":"id-2")" : R"("refresh_token":"rt-1","id_token":"id-1")";
        QCOMPARE(canonical(written), canonical(R"({"OPENAI_API_KEY":null,"counter":12345678901234567,)"
                      R"("last_refresh":"2025-03-01T12:34:56.789Z","nested":{"b":{"deep":3},"a":false},)"
                      R"("tokens":{"access_token":"at-2","account_id":"acc-1","zz":{"list":[1,2.5,"x",null,true]},)" + renewed + "}}"));
        QVERIFY2(written.count("\n    ") > 10, written.constData());
        QCOMPARE(modeOf(t->path(kAuthFile)), 0600);
    }
};

QTEST_GUILESS_MAIN(TestCodex)
#include "tst_codex.moc"
