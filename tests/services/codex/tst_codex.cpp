#include "services/codex/CodexProvider.h"
#include "support/TestEnv.h"

#include <QDir>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QRandomGenerator>
#include <QSet>
#include <QTest>

using namespace limitra;
using namespace limitra::test;

namespace {

constexpr double kNow = 1740832496.789; // 2025-03-01T12:34:56.789Z
const QByteArray kUsagePath = "/backend-api/wham/usage";
const QByteArray kTokenPath = "/oauth/token";
const QString kAuthFile = QStringLiteral(".codex/auth.json");

// Compact and deliberately unsorted, so that the rewrite's sorting shows.
const QByteArray kAuth = R"({"tokens":{"refresh_token":"rt-1","access_token":"at-1","id_token":"id-1",)"
                         R"("account_id":"acc-1","zz_unknown":{"list":[1,2.5,"x",null,true]}},)"
                         R"("OPENAI_API_KEY":null,"last_refresh":"2024-01-01T00:00:00Z",)"
                         R"("counter":12345678901234567,"nested":{"b":{"deep":3},"a":false}})";

const QByteArray kFullAnswer = R"({"plan_type":"plus","rate_limit":{
    "primary_window":{"used_percent":42.5,"limit_window_seconds":18000,"reset_at":1740840000.25},
    "secondary_window":{"used_percent":7,"limit_window_seconds":604800,"reset_after_seconds":86400}}})";

const QString kNoCredentials
    = QStringLiteral("No encontré credenciales de Codex. Ejecuta `codex login` en la Terminal.");

QString httpMessage(int status)
{
    return QStringLiteral("No pude consultar el uso de Codex (HTTP %1). Ejecuta `codex login` si persiste.")
        .arg(status);
}

LimitRow codexRow(const char* key, const char* title, double used, std::optional<double> resets = {})
{
    return row(QString::fromUtf8(title), used, resets, {}, QStringLiteral("codex-") + QLatin1String(key));
}

QByteArray canonical(const QByteArray& json)
{
    return QJsonDocument::fromJson(json).toJson(QJsonDocument::Compact);
}

} // namespace

class TestCodex : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestEnv> t;

    // Whatever the peer does, a fetch must end well within the capped time-outs.
    ServiceUsage fetch() const
    {
        QElapsedTimer timer;
        timer.start();
        const ServiceUsage usage = CodexProvider::fetch(t->env);
        [&] { QVERIFY2(timer.elapsed() < 5000, QByteArray::number(timer.elapsed()) + " ms"); }();
        return usage;
    }

private Q_SLOTS:
    void init()
    {
        t = std::make_unique<TestEnv>(kNow, std::chrono::milliseconds(300));
        QVERIFY(QDir(t->home.path()).mkpath(QStringLiteral(".codex")));
    }
    void cleanup() { t.reset(); }

    // Each row also names its windows by length: a session up to six hours, whole hours
    // (truncated) beyond, a week from six days; by place when there is no usable length.
    void rowsFromAnswer_data()
    {
        QTest::addColumn<QByteArray>("limits"); // the "rate_limit" member
        QTest::addColumn<QList<LimitRow>>("expected");
        QTest::newRow("reset_at wins; half a second and six hours are a session")
            << QByteArray(
                   R"({"primary_window":{"limit_window_seconds":0.5,"reset_at":0,"reset_after_seconds":5},
                              "secondary_window":{"limit_window_seconds":21600}})")
            << QList { codexRow("primary_window", "Sesión de 5 h", 0, 0.0),
                   codexRow("secondary_window", "Sesión de 5 h", 0) };
        QTest::newRow("reset_at of the wrong type falls back; hours above six")
            << QByteArray(R"({"primary_window":{"limit_window_seconds":21600.5,"reset_at":"soon",
                                                 "reset_after_seconds":30.5},
                              "secondary_window":{"limit_window_seconds":30000}})")
            << QList { codexRow("primary_window", "Ventana de 6 h", 0, kNow + 30.5),
                   codexRow("secondary_window", "Ventana de 8 h", 0) };
        QTest::newRow("no usable reset; around six days")
            << QByteArray(R"({"primary_window":{"limit_window_seconds":518399,"reset_at":null,
                                                 "reset_after_seconds":"1"},
                              "secondary_window":{"limit_window_seconds":518400}})")
            << QList { codexRow("primary_window", "Ventana de 143 h", 0),
                   codexRow("secondary_window", "Semanal", 0) };
        QTest::newRow("percentages unclamped, text counts as 0; zero and negative lengths")
            << QByteArray(R"({"primary_window":{"used_percent":120,"limit_window_seconds":0},
                              "secondary_window":{"used_percent":"50","limit_window_seconds":-3600}})")
            << QList { codexRow("primary_window", "Ventana principal", 120),
                   codexRow("secondary_window", "Ventana secundaria", 0) };
        QTest::newRow("primary not an object; length as text") << QByteArray(
            R"({"primary_window":[1],"secondary_window":{"used_percent":-5,"limit_window_seconds":"9"}})")
                                                               << QList { codexRow("secondary_window",
                                                                      "Ventana secundaria", -5) };
        // Numbers no 64-bit whole number can hold: the percentage drops its row, a reset is unknown.
        QTest::newRow("numbers beyond the model")
            << QByteArray(R"({"primary_window":{"used_percent":1e308,"limit_window_seconds":18000},
                              "secondary_window":{"used_percent":3,"reset_at":-1e300}})")
            << QList { codexRow("secondary_window", "Ventana secundaria", 3) };
        QTest::newRow("relative reset beyond the model")
            << QByteArray(R"({"primary_window":{"used_percent":-9e18,"reset_after_seconds":1e19}})")
            << QList { codexRow("primary_window", "Ventana principal", -9e18) };
        QTest::newRow("rate_limit not an object")
            << QByteArray(R"([{"primary_window":{}}])") << QList<LimitRow> {};
    }
    void rowsFromAnswer()
    {
        QFETCH(QByteArray, limits);
        QFETCH(QList<LimitRow>, expected);
        const QJsonObject object = QJsonDocument::fromJson(R"({"rate_limit":)" + limits + "}").object();
        QVERIFY(!object.isEmpty());
        QCOMPARE(describe(CodexProvider::parseRows(object, kNow)), describe(expected));
    }

    void usageRequestCarriesSessionHeaders_data()
    {
        QTest::addColumn<QByteArray>("auth");
        QTest::addColumn<QByteArray>("accountHeader"); // empty: the header must be absent
        QTest::newRow("with account") << kAuth << QByteArray("acc-1");
        QTest::newRow("without account")
            << QByteArray(R"({"tokens":{"access_token":"at-1"}})") << QByteArray();
        QTest::newRow("account not a string")
            << QByteArray(R"({"tokens":{"access_token":"at-1","account_id":42}})") << QByteArray();
        // A line break would add a header line; such an account counts as missing.
        QTest::newRow("account with a line break")
            << QByteArray(R"({"tokens":{"access_token":"at-1","account_id":"a\r\nX-Evil: 1"}})")
            << QByteArray();
    }
    void usageRequestCarriesSessionHeaders()
    {
        QFETCH(QByteArray, auth);
        QFETCH(QByteArray, accountHeader);
        QVERIFY(t->write(kAuthFile, auth));
        t->peer.on("GET", kUsagePath, answer(200, kFullAnswer));

        const ServiceUsage usage = fetch();
        QCOMPARE(usage.errorOrEmpty(), QString());
        QCOMPARE(usage.planBadgeOrEmpty(), QStringLiteral("Plus"));
        QCOMPARE(usage.updatedAt, std::optional(kNow));
        QCOMPARE(describe(usage.rows),
            describe({ codexRow("primary_window", "Sesión de 5 h", 42.5, 1740840000.25),
                codexRow("secondary_window", "Semanal", 7, kNow + 86400) }));

        const auto sent = t->peer.requests();
        QCOMPARE(sent.size(), 1);
        QCOMPARE(sent[0].method, QByteArray("GET"));
        QCOMPARE(sent[0].path, kUsagePath);
        QCOMPARE(sent[0].header("authorization"), QByteArray("Bearer at-1"));
        QCOMPARE(sent[0].header("user-agent"), QByteArray("Limitra/1.0"));
        QCOMPARE(sent[0].hasHeader("chatgpt-account-id"), !accountHeader.isEmpty());
        QCOMPARE(sent[0].header("chatgpt-account-id"), accountHeader);
        // Host and Accept come from the HTTP layer itself; nothing else may be ours.
        const QSet<QByteArray> allowed { "host", "accept", "authorization", "user-agent",
            "chatgpt-account-id" };
        for (const auto& [name, value] : sent[0].headers)
            QVERIFY2(allowed.contains(name), "unexpected header " + name);
    }

    // badge and error: empty means none. A failed call never refreshes nor touches the file.
    void usageAnswerDecidesTheRecord_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("badge");
        QTest::addColumn<QString>("error");
        QTest::newRow("no windows") << 200 << QByteArray(R"({"plan_type":"pro","rate_limit":{}})") << "Pro"
                                    << QString();
        QTest::newRow("rest unchanged")
            << 200 << QByteArray(R"({"plan_type":"team eDU"})") << "Team eDU" << QString();
        // One character in two UTF-16 units: the whole character is raised.
        QTest::newRow("beyond the basic plane") << 200 << QByteArray("{\"plan_type\":\"\xf0\x90\x90\xa8x\"}")
                                                << QString::fromUtf8("\xf0\x90\x90\x80x") << QString();
        QTest::newRow("empty plan") << 200 << QByteArray(R"({"plan_type":""})") << "" << QString();
        QTest::newRow("plan not a string") << 200 << QByteArray(R"({"plan_type":5})") << "" << QString();
        QTest::newRow("500") << 500 << kFullAnswer << "" << httpMessage(500);
        QTest::newRow("redirect") << 302 << QByteArray() << "" << httpMessage(302);
        QTest::newRow("200, not JSON") << 200 << QByteArray("<html>") << "" << httpMessage(200);
        QTest::newRow("dropped") << kDrop << QByteArray() << "" << httpMessage(0);
        QTest::newRow("never answers") << kHang << QByteArray() << "" << httpMessage(0);
    }
    void usageAnswerDecidesTheRecord()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QString, badge);
        QFETCH(QString, error);
        QVERIFY(t->write(kAuthFile, kAuth));
        t->peer.on("GET", kUsagePath, answer(status, body));
        t->peer.on("POST", kTokenPath, answer(200, R"({"access_token":"at-2"})"));

        const ServiceUsage usage = fetch();
        QCOMPARE(usage.errorOrEmpty(), error);
        QCOMPARE(usage.planBadgeOrEmpty(), badge);
        QVERIFY(usage.rows.isEmpty());
        QCOMPARE(usage.updatedAt, error.isEmpty() ? std::optional(kNow) : std::nullopt);
        QCOMPARE(t->peer.requests().size(), 1);
        QCOMPARE(t->read(kAuthFile), kAuth);
    }

    void unusableAuthFileGivesCredentialsError_data()
    {
        QTest::addColumn<QString>("shape");
        QTest::addColumn<QByteArray>("content");
        QByteArray binary;
        for (int i = 0; i < 4096; ++i)
            binary.append(char(i % 256));
        QByteArray garbage(10 * 1024 * 1024, Qt::Uninitialized);
        QRandomGenerator(7).fillRange(reinterpret_cast<quint32*>(garbage.data()), garbage.size() / 4);
        const QString file = QStringLiteral("file");

        QTest::newRow("missing") << QStringLiteral("none") << QByteArray();
        QTest::newRow("a directory") << QStringLiteral("directory") << QByteArray();
        QTest::newRow("empty") << file << QByteArray();
        QTest::newRow("binary") << file << binary;
        QTest::newRow("10 MB of garbage") << file << garbage;
        QTest::newRow("10 MB of nesting") << file << QByteArray(10 * 1024 * 1024, '[');
        QTest::newRow("an array") << file << QByteArray(R"([{"tokens":{"access_token":"a"}}])");
        QTest::newRow("tokens a string") << file << QByteArray(R"({"tokens":"a"})");
        QTest::newRow("access_token a number") << file << QByteArray(R"({"tokens":{"access_token":1}})");
        QTest::newRow("access_token with a line break")
            << file << QByteArray(R"({"tokens":{"access_token":"a\r\nX-Evil: 1"}})");
        QTest::newRow("access_token with a NUL")
            << file << QByteArray(R"({"tokens":{"access_token":"a\u0000b"}})");
    }
    void unusableAuthFileGivesCredentialsError()
    {
        QFETCH(QString, shape);
        QFETCH(QByteArray, content);
        if (shape == u"file")
            QVERIFY(t->write(kAuthFile, content));
        else if (shape == u"directory")
            QVERIFY(QDir().mkpath(t->path(kAuthFile)));
        t->peer.on("GET", kUsagePath, answer(200, kFullAnswer));

        const ServiceUsage usage = fetch();
        QCOMPARE(usage.errorOrEmpty(), kNoCredentials);
        QVERIFY(!usage.planBadge && usage.rows.isEmpty() && !usage.updatedAt);
        QVERIFY(t->peer.requests().isEmpty());
        QVERIFY(shape != u"file" || t->read(kAuthFile) == content);
    }

    // expectedTokens: the whole "tokens" member after the rewrite; error: empty on success.
    void rejectedTokenIsRefreshedWrittenBackAndRetriedOnce_data()
    {
        QTest::addColumn<int>("rejection");
        QTest::addColumn<QByteArray>("grant");
        QTest::addColumn<int>("retryStatus");
        QTest::addColumn<QByteArray>("expectedTokens");
        QTest::addColumn<QString>("error");

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
            << 401 << fullGrant << 401 << allNew << httpMessage(401);
        QTest::newRow("retry dropped") << 403 << fullGrant << kDrop << allNew << httpMessage(0);
    }
    void rejectedTokenIsRefreshedWrittenBackAndRetriedOnce()
    {
        QFETCH(int, rejection);
        QFETCH(QByteArray, grant);
        QFETCH(int, retryStatus);
        QFETCH(QByteArray, expectedTokens);
        QFETCH(QString, error);
        QVERIFY(t->write(kAuthFile, kAuth));
        t->peer.onSequence("GET", kUsagePath, { answer(rejection), answer(retryStatus, kFullAnswer) });
        t->peer.on("POST", kTokenPath, answer(200, grant));

        const ServiceUsage usage = fetch();
        QCOMPARE(usage.errorOrEmpty(), error);
        QCOMPARE(usage.rows.size(), error.isEmpty() ? 2 : 0);

        const auto refreshes = t->peer.requests("POST", kTokenPath);
        QCOMPARE(refreshes.size(), 1);
        QCOMPARE(refreshes[0].header("content-type"), QByteArray("application/json"));
        for (const char* header : { "user-agent", "authorization", "chatgpt-account-id" })
            QVERIFY2(!refreshes[0].hasHeader(header), header);
        QCOMPARE(canonical(refreshes[0].body),
            canonical(R"({"client_id":"app_Zq8RtLw2Nc5VyH0dKs3Bpxme","grant_type":"refresh_token",)"
                      R"("refresh_token":"rt-1","scope":"openid profile email"})"));

        const auto calls = t->peer.requests("GET", kUsagePath);
        QCOMPARE(calls.size(), 2);
        QCOMPARE(calls[0].header("authorization"), QByteArray("Bearer at-1"));
        QCOMPARE(calls[1].header("authorization"), QByteArray("Bearer at-2"));
        QCOMPARE(calls[1].header("chatgpt-account-id"), QByteArray("acc-1"));

        // Everything but the tokens and the stamp survives, integers included.
        const QByteArray written = t->read(kAuthFile);
        QCOMPARE(canonical(written),
            canonical(R"({"OPENAI_API_KEY":null,"counter":12345678901234567,)"
                      R"("last_refresh":"2025-03-01T12:34:56.789Z","nested":{"b":{"deep":3},"a":false},)"
                      R"("tokens":)"
                + expectedTokens + "}"));
        // Pretty-printed, keys sorted at every level.
        QVERIFY2(written.count('\n') > 10, written);
        qsizetype at = -1;
        for (const char* key :
            { "OPENAI_API_KEY", "counter", "last_refresh", "nested", "a", "b", "deep", "tokens",
                "access_token", "account_id", "id_token", "refresh_token", "zz_unknown", "list" }) {
            const qsizetype next = written.indexOf('"' + QByteArray(key) + '"');
            QVERIFY2(next > at, key);
            at = next;
        }
        QCOMPARE(modeOf(t->path(kAuthFile)), 0600);
    }

    void refusedRefreshLeavesFileUntouched_data()
    {
        QTest::addColumn<QByteArray>("auth");
        QTest::addColumn<int>("rejection");
        QTest::addColumn<int>("tokenStatus");
        QTest::addColumn<QByteArray>("grant");
        const QByteArray good = R"({"access_token":"at-2"})";
        QTest::newRow("400") << kAuth << 401 << 400 << QByteArray(R"({"error":"invalid_grant"})");
        QTest::newRow("201 with a token") << kAuth << 403 << 201 << good;
        QTest::newRow("not JSON") << kAuth << 401 << 200 << QByteArray("<html>");
        QTest::newRow("no access_token") << kAuth << 403 << 200 << QByteArray(R"({"refresh_token":"rt-2"})");
        QTest::newRow("dropped") << kAuth << 403 << kDrop << QByteArray();
        QTest::newRow("never answers") << kAuth << 401 << kHang << QByteArray();
        QTest::newRow("access token with a line break")
            << kAuth << 401 << 200 << QByteArray(R"({"access_token":"at-2\r\nX-Evil: 1"})");
        QTest::newRow("refresh token with a NUL")
            << kAuth << 401 << 200 << QByteArray(R"({"access_token":"at-2","refresh_token":"r\u0000"})");
        QTest::newRow("id token with a control character")
            << kAuth << 403 << 200 << QByteArray(R"({"access_token":"at-2","id_token":"i\u001bd"})");
        QTest::newRow("no refresh_token in the file")
            << QByteArray(R"({"tokens":{"access_token":"at-1"}})") << 401 << 200 << good;
    }
    void refusedRefreshLeavesFileUntouched()
    {
        QFETCH(QByteArray, auth);
        QFETCH(int, rejection);
        QFETCH(int, tokenStatus);
        QFETCH(QByteArray, grant);
        QVERIFY(t->write(kAuthFile, auth));
        t->peer.on("GET", kUsagePath, answer(rejection));
        t->peer.on("POST", kTokenPath, answer(tokenStatus, grant));

        const ServiceUsage usage = fetch();
        QCOMPARE(usage.errorOrEmpty(), httpMessage(rejection));
        QVERIFY(!usage.planBadge && usage.rows.isEmpty() && !usage.updatedAt);
        QCOMPARE(t->peer.requests("POST", kTokenPath).size(), auth == kAuth ? 1 : 0);
        QCOMPARE(t->peer.requests("GET", kUsagePath).size(), 1);
        QCOMPARE(t->read(kAuthFile), auth);
        QCOMPARE(QDir(t->path(QStringLiteral(".codex"))).entryList(QDir::Files | QDir::Hidden),
            QStringList { QStringLiteral("auth.json") });
    }
};

QTEST_GUILESS_MAIN(TestCodex)
#include "tst_codex.moc"
