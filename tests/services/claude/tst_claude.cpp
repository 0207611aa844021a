#include "platform/Json.h"
#include "platform/LibsecretStore.h"
#include "services/claude/ClaudeProvider.h"
#include "services/claude/KeychainHelper.h"
#include "support/TestEnv.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>

using namespace limitra;
using namespace limitra::test;

namespace {

// The private keyring of tests/support/with-keyring.sh, driven through
// secret-tool and gdbus: independent clients of the same Secret Service.
namespace Keyring {
// Secret-touching tests refuse to run outside the launcher, so that run by
// hand they cannot write to the developer's own keyring.
bool isPrivate()
{
    return qEnvironmentVariableIsSet("LIMITRA_PRIVATE_KEYRING");
}

struct Run
{
    int exitCode = -1;
    QByteArray out;
};

Run run(const QString& program, const QStringList& args, const QByteArray& input = {})
{
    QProcess p;
    p.start(program, args);
    p.write(input);
    p.closeWriteChannel();
    if (!p.waitForFinished(10000))
        return {};
    return { p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, p.readAllStandardOutput() };
}

// Stores an item the way another program would; an empty account means no account attribute at all.
bool store(
    const QString& service, const QString& account, const QByteArray& data, const QStringList& extra = {})
{
    QStringList args { "store", "--label=other", "service", service };
    if (!account.isEmpty())
        args << "account" << account;
    return run("secret-tool", args + extra, data).exitCode == 0;
}

QByteArray lookup(const QString& service, const QString& account)
{
    return run("secret-tool", { "lookup", "service", service, "account", account }).out;
}

void clear(const QString& service)
{
    run("secret-tool", { "clear", "service", service });
}

Run serviceCall(const QString& method, const QString& argument)
{
    return run("gdbus",
        { "call", "--session", "--dest", "org.freedesktop.secrets", "--object-path",
            "/org/freedesktop/secrets", "--method", "org.freedesktop.Secret.Service." + method, argument });
}

// Items of a service, locked ones included (the search does not unlock).
int count(const QString& service)
{
    const Run r = serviceCall("SearchItems", QStringLiteral("{'service': '%1'}").arg(service));
    static const QRegularExpression item(QStringLiteral("'/org/freedesktop/secrets/collection/[^']+'"));
    return r.exitCode == 0 ? int(QString::fromUtf8(r.out).count(item)) : -1;
}

bool lockLogin()
{
    return serviceCall("Lock", "['/org/freedesktop/secrets/collection/login']").exitCode == 0;
}
} // namespace Keyring

constexpr double kNow = 1732000000.0;
constexpr double kThreshold = kNow * 1000 + 300000; // a token must outlive this to be used as stored
const QByteArray kUsagePath = "/api/oauth/usage";
const QByteArray kTokenPath = "/v1/oauth/token";
const QString kCode = QString(ClaudeProvider::claudeCodeService);
const QString kOwn = QString(ClaudeProvider::ownService);
const QString kFile = QString(ClaudeProvider::credentialsFile);
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

// A credentials document whose top-level "source" tells where a lineage came from.
QByteArray session(const QString& source, const QString& expiresAt,
    const char* extra = R"(,"subscriptionType":"pro","accessToken":"stored")")
{
    return QStringLiteral(R"({"source":"%1","claudeAiOauth":{"refreshToken":"rt-%1","expiresAt":%2%3}})")
        .arg(source, expiresAt, QLatin1String(extra))
        .toUtf8();
}
QByteArray session(const QString& source, double expiresAt,
    const char* extra = R"(,"subscriptionType":"pro","accessToken":"stored")")
{
    return session(source, QString::number(expiresAt, 'f', 0), extra);
}

LimitRow extra(double used, const char* detail)
{
    return row(QStringLiteral("Créditos extra"), used, {}, QString::fromUtf8(detail), "claude-extra");
}

} // namespace

class TestClaude : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestEnv> t;

    // The refresh tokens the peer received, in order.
    QList<QByteArray> refreshTokens() const
    {
        QList<QByteArray> tokens;
        for (const auto& r : t->peer.requests("POST", kTokenPath))
            tokens << QByteArray::fromPercentEncoding(r.body.split('&').value(1).mid(14));
        return tokens;
    }
    QList<QByteArray> bearers() const
    {
        QList<QByteArray> values;
        for (const auto& r : t->peer.requests("GET", kUsagePath))
            values << r.header("authorization");
        return values;
    }
    platform::SecretStore& secrets() const { return *t->env.secrets; }
    // Claude Code's item sits under an account that is not the login name.
    static bool storeCode(const QByteArray& doc) { return Keyring::store(kCode, "claude-user", doc); }
    static bool storeOwn(const QByteArray& doc) { return Keyring::store(kOwn, "oauth", doc); }

private Q_SLOTS:
    void initTestCase() { QVERIFY2(Keyring::isPrivate(), "run through tests/support/with-keyring.sh"); }
    void init()
    {
        t = std::make_unique<TestEnv>(kNow);
        t->env.secrets = std::make_shared<platform::LibsecretStore>();
        Keyring::clear(kCode);
        Keyring::clear(kOwn);
    }
    void cleanup() { t.reset(); }

    // The secret items of other clients, and ours seen by them.
    void readFindsItemsOfOtherClients_data()
    {
        QTest::addColumn<QString>("account"); // empty: stored without an account attribute
        QTest::addColumn<QStringList>("extra");
        QTest::addColumn<QByteArray>("data");

        QTest::newRow("with account") << "ñandú" << QStringList() << QByteArray("{\"k\":\"ñ €\"}");
        QTest::newRow("without account") << "" << QStringList() << QByteArray("plain");
        QTest::newRow("another schema name")
            << "someone" << QStringList { "xdg:schema", "com.example.Other" } << QByteArray("x");
    }
    void readFindsItemsOfOtherClients()
    {
        QFETCH(QString, account);
        QFETCH(QStringList, extra);
        QFETCH(QByteArray, data);
        QVERIFY(Keyring::store(kOwn, account, data, extra));
        QVERIFY(Keyring::store(kCode, QStringLiteral("unrelated"), "other service"));

        const auto item = KeychainHelper::read(secrets(), kOwn);
        QVERIFY(item);
        QCOMPARE(item->account, account);
        QCOMPARE(item->data, data);
    }

    // Each row starts from one item (or none) and writes under `account`; what another client then sees.
    void writesOnlyTouchTheAddressedItem_data()
    {
        QTest::addColumn<QString>("storedAccount"); // empty: no item at all
        QTest::addColumn<QString>("account");
        QTest::addColumn<bool>("verified");
        QTest::addColumn<bool>("upserted");
        QTest::addColumn<QByteArray>("afterwards"); // under storedAccount; empty: nothing stored

        QTest::newRow("no item") << QString() << "me" << false << true << QByteArray();
        QTest::newRow("same account") << QString("me") << "me" << true << true << QByteArray("new");
        QTest::newRow("other account") << QString("them") << "me" << false << false << QByteArray("old");
    }
    void writesOnlyTouchTheAddressedItem()
    {
        QFETCH(QString, storedAccount);
        QFETCH(QString, account);
        QFETCH(bool, verified);
        QFETCH(bool, upserted);
        QFETCH(QByteArray, afterwards);
        QVERIFY(Keyring::store(kCode, QStringLiteral("a"), "x"));
        if (!storedAccount.isEmpty())
            QVERIFY(Keyring::store(kOwn, storedAccount, "old"));
        QCOMPARE(KeychainHelper::read(secrets(), kOwn).has_value(), !storedAccount.isEmpty());

        QCOMPARE(KeychainHelper::saveVerified(secrets(), kOwn, account, "new"), verified);
        QCOMPARE(Keyring::count(kOwn), storedAccount.isEmpty() ? 0 : 1);
        if (!storedAccount.isEmpty())
            QCOMPARE(Keyring::lookup(kOwn, storedAccount), afterwards);

        QCOMPARE(KeychainHelper::upsertOwn(secrets(), kOwn, account, "newer"), upserted);
        QCOMPARE(Keyring::count(kOwn), 1);
        const QString holder = storedAccount.isEmpty() ? account : storedAccount;
        QCOMPARE(Keyring::lookup(kOwn, holder), upserted ? QByteArray("newer") : afterwards);
        // A new item is labelled with its service.
        const QByteArray listing = Keyring::run("secret-tool", { "search", "--all", "service", kOwn }).out;
        QVERIFY(!storedAccount.isEmpty() || listing.contains("label = " + kOwn.toUtf8()));
    }

    void rowsFollowTheAnswer_data()
    {
        QTest::addColumn<QByteArray>("answer");
        QTest::addColumn<QList<LimitRow>>("expected");
        const QString session = QStringLiteral("Sesión de 5 h");
        const QString weekly = QStringLiteral("Semanal · Todos los modelos");
        const QString scoped = QStringLiteral("claude-weekly_scoped-");
        const double fractional = 1740832496.789, plain = 1740832496; // 2025-03-01T12:34:56(.789)Z

        QTest::newRow("limits, every kind, in array order, then extra")
            << QByteArray(R"({"limits":[
                {"kind":"session","percent":12.5,"resets_at":"2025-03-01T12:34:56.789Z"},
                {"kind":"weekly_all","percent":40,"resets_at":"2025-03-01T12:34:56Z"},
                {"kind":"weekly_scoped","percent":3,"scope":{"model":{"display_name":"Opus"}}},
                {"kind":"weekly_scoped","percent":4,"scope":{"other":1}},
                {"kind":"weekly_scoped","percent":5,"scope":{"model":{"display_name":7}}},
                {"kind":"opus_only","percent":120,"resets_at":"2025-03-01"},
                {"percent":"9","resets_at":5}],
                "five_hour":{"utilization":99},
                "spend":{"enabled":true,"used":{"amount_minor":1234},"limit":{"amount_minor":5000}}})")
            << QList { row(session, 12.5, fractional, {}, "claude-session-" + session),
                   row(weekly, 40, plain, {}, "claude-weekly_all-" + weekly),
                   row("Semanal · Opus", 3, {}, {}, scoped + "Semanal · Opus"),
                   row("Semanal · Modelo", 4, {}, {}, scoped + "Semanal · Modelo"),
                   row("Semanal · Modelo", 5, {}, {}, scoped + "Semanal · Modelo"),
                   row("opus_only", 120, {}, {}, "claude-opus_only-opus_only"),
                   row(QString(), 0, {}, {}, "claude--"), extra(1234.0 / 5000 * 100, "$12.34 / $50.00 USD") };
        QTest::newRow("empty limits hide the named windows")
            << QByteArray(R"({"limits":[],"five_hour":{"utilization":50},"seven_day":{"utilization":1}})")
            << QList<LimitRow> {};
        QTest::newRow("limits with a non-object fall back to the windows")
            << QByteArray(R"({"limits":[{"kind":"session"},1],
                "seven_day":{"utilization":7.25,"resets_at":"bad"},
                "five_hour":{"resets_at":"2025-03-01T12:34:56.789Z"}})")
            << QList { row(session, 0, fractional, {}, "claude-5h"), row(weekly, 7.25, {}, {}, "claude-7d") };
        QTest::newRow("limits not an array, window not an object")
            << QByteArray(R"({"limits":{"kind":"session"},"five_hour":5,"seven_day":{"utilization":30}})")
            << QList { row(weekly, 30, {}, {}, "claude-7d") };
        QTest::newRow("nothing known") << QByteArray(R"({"other":1})") << QList<LimitRow> {};
        // A percentage that no whole number of 64 bits can show is dropped with its row.
        QTest::newRow("percent beyond the model drops the row")
            << QByteArray(R"({"limits":[{"kind":"a","percent":1e308},{"kind":"b","percent":-1e19},
                {"kind":"c","percent":9.2e18}]})")
            << QList { row("c", 9.2e18, {}, {}, "claude-c-c") };
        QTest::newRow("utilization beyond the model drops the window")
            << QByteArray(R"({"five_hour":{"utilization":1e308},"seven_day":{"utilization":-5}})")
            << QList { row(weekly, -5, {}, {}, "claude-7d") };
    }
    void rowsFollowTheAnswer()
    {
        QFETCH(QByteArray, answer);
        QFETCH(QList<LimitRow>, expected);
        const auto object = platform::Json::parseObject(answer);
        QVERIFY(object);
        QCOMPARE(describe(ClaudeProvider::parseRows(*object)), describe(expected));
    }

    // used and limit: the two amount objects of an enabled "spend" block.
    void extraCreditsRow_data()
    {
        QTest::addColumn<QByteArray>("spend");
        QTest::addColumn<QList<LimitRow>>("expected");
        QTest::newRow("exponent 0") << QByteArray(
            R"("used":{"amount_minor":1234,"exponent":0},"limit":{"amount_minor":5000})")
                                    << QList { extra(1234.0 / 5000 * 100, "$1234.00 / $5000.00 USD") };
        // 2.675 is stored as 2.67499…, which printf's "%.2f" writes as 2.67.
        QTest::newRow("exponent of used applies to both")
            << QByteArray(
                   R"("used":{"amount_minor":5,"exponent":3},"limit":{"amount_minor":2675,"exponent":0})")
            << QList { extra(5.0 / 2675 * 100, "$0.01 / $2.67 USD") };
        QTest::newRow("percent given")
            << QByteArray(R"("percent":30,"used":{"amount_minor":1},"limit":{"amount_minor":2})")
            << QList { extra(30, "$0.01 / $0.02 USD") };
        QTest::newRow("disabled") << QByteArray(
            R"("enabled":false,"used":{"amount_minor":1},"limit":{"amount_minor":2})")
                                  << QList<LimitRow> {};
        QTest::newRow("zero limit") << QByteArray(R"("used":{"amount_minor":1},"limit":{"amount_minor":0})")
                                    << QList<LimitRow> {};
        // Arithmetic that leaves the finite range would print "$inf" or "nan% usado".
        QTest::newRow("exponent dividing by zero")
            << QByteArray(R"("used":{"amount_minor":1,"exponent":-400},"limit":{"amount_minor":2})")
            << QList<LimitRow> {};
        QTest::newRow("percentage overflows")
            << QByteArray(R"("used":{"amount_minor":1e308},"limit":{"amount_minor":1e-300})")
            << QList<LimitRow> {};
        QTest::newRow("percent given beyond the model")
            << QByteArray(R"("percent":1e300,"used":{"amount_minor":1},"limit":{"amount_minor":2})")
            << QList<LimitRow> {};
        QTest::newRow("huge exponent shows zero dollars")
            << QByteArray(R"("used":{"amount_minor":1,"exponent":400},"limit":{"amount_minor":2})")
            << QList { extra(50, "$0.00 / $0.00 USD") };
        QTest::newRow("no used amount")
            << QByteArray(R"("used":{"amount":1},"limit":{"amount_minor":2})") << QList<LimitRow> {};
    }
    void extraCreditsRow()
    {
        QFETCH(QByteArray, spend);
        QFETCH(QList<LimitRow>, expected);
        // A later "enabled" member replaces the first one.
        const auto object = platform::Json::parseObject(
            R"({"five_hour":{"utilization":1},"spend":{"enabled":true,)" + spend + "}}");
        QVERIFY(object);
        expected.prepend(row(QStringLiteral("Sesión de 5 h"), 1, {}, {}, "claude-5h"));
        QCOMPARE(describe(ClaudeProvider::parseRows(*object)), describe(expected));
    }

    void lineagesAreRankedByExpiry_data()
    {
        QTest::addColumn<QByteArray>("codeItem"); // empty: absent
        QTest::addColumn<QByteArray>("ownItem");
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QStringList>("order");
        QTest::newRow("latest first") << session("code", 1000) << session("own", 3000)
                                      << session("file", 2000) << QStringList { "own", "file", "code" };
        QTest::newRow("ties keep reading order")
            << session("code", 7) << session("own", 7) << session("file", 7)
            << QStringList { "code", "own", "file" };
        QTest::newRow("missing or text expiry counts as 0")
            << session("code", R"("9999")") << session("own", 1)
            << QByteArray(R"({"source":"file","claudeAiOauth":{"refreshToken":""}})")
            << QStringList { "own", "code", "file" };
        QTest::newRow("unusable documents are skipped")
            << QByteArray(R"({"source":"code","claudeAiOauth":{"accessToken":"a","expiresAt":9}})")
            << QByteArray(R"([{"claudeAiOauth":{"refreshToken":"r"}}])") << QByteArray("{not json")
            << QStringList {};
        // A line break would add a header line to the token request's answer use; a NUL cut it.
        QTest::newRow("refresh token with a control character")
            << QByteArray(R"({"source":"code","claudeAiOauth":{"refreshToken":"r\r\nX: y"}})")
            << QByteArray(R"({"source":"own","claudeAiOauth":{"refreshToken":"r\u0000"}})")
            << session("file", 1) << QStringList { "file" };
        QTest::newRow("session of the wrong types") << QByteArray(R"({"claudeAiOauth":"text"})")
                                                    << QByteArray(R"({"claudeAiOauth":{"refreshToken":5}})")
                                                    << session("file", 1) << QStringList { "file" };
    }
    void lineagesAreRankedByExpiry()
    {
        QFETCH(QByteArray, codeItem);
        QFETCH(QByteArray, ownItem);
        QFETCH(QByteArray, file);
        QFETCH(QStringList, order);
        QVERIFY(codeItem.isEmpty() || storeCode(codeItem));
        QVERIFY(ownItem.isEmpty() || storeOwn(ownItem));
        QVERIFY(file.isEmpty() || t->write(kFile, file));

        QStringList sources;
        for (const auto& lineage : ClaudeProvider::loadLineages(t->env)) {
            sources << lineage.creds.value(u"source").toString();
            QCOMPARE(lineage.creds.value(u"claudeAiOauth").toObject(), lineage.oauth);
        }
        QCOMPARE(sources, order);
    }

    // The refreshed document goes where a session already was, and always to the own item.
    void persistWritesEveryExistingPlace_data()
    {
        QTest::addColumn<bool>("codeItem");
        QTest::addColumn<bool>("file");
        QTest::addColumn<bool>("ownItem");
        QTest::newRow("nothing yet") << false << false << false;
        QTest::newRow("Claude Code's item only") << true << false << false;
        QTest::newRow("file only") << false << true << true;
        QTest::newRow("everywhere") << true << true << true;
    }
    void persistWritesEveryExistingPlace()
    {
        QFETCH(bool, codeItem);
        QFETCH(bool, file);
        QFETCH(bool, ownItem);
        QVERIFY(!codeItem || storeCode(session("code", 1)));
        QVERIFY(!ownItem || storeOwn(session("own", 1)));
        QVERIFY(!file || t->write(kFile, session("file", 1)));

        const auto written = platform::Json::parseObject(session("new", "1732000000000"));
        ClaudeProvider::persist(t->env, *written);
        const QByteArray expected = platform::Json::compact(*written);

        QCOMPARE(Keyring::count(kCode), codeItem ? 1 : 0);
        if (codeItem)
            QCOMPARE(Keyring::lookup(kCode, "claude-user"), expected);
        QCOMPARE(QFile::exists(t->path(kFile)), file);
        if (file) {
            QCOMPARE(t->read(kFile), expected);
            QCOMPARE(modeOf(t->path(kFile)), 0600);
        }
        QCOMPARE(Keyring::count(kOwn), 1);
        QCOMPARE(Keyring::lookup(kOwn, "oauth"), expected);
    }

    void persistKeepsUnknownValuesAsTheyWere()
    {
        QVERIFY(t->write(kFile, "{}"));
        const QByteArray original = R"({"zz":{"list":[1,2.5,"x",null,true],"big":12345678901234567},
            "claudeAiOauth":{"refreshToken":"r","expiresAt":1732000000000,"count":42,"rate":0.5,
            "subscriptionType":"max","extra":{"deep":[{}]}},"flag":false})";
        ClaudeProvider::persist(t->env, *platform::Json::parseObject(original));

        const QByteArray file = t->read(kFile);
        for (const char* integer :
            { R"("expiresAt":1732000000000)", R"("count":42,)", R"("big":12345678901234567)" })
            QVERIFY2(file.contains(integer), file.constData());
        QCOMPARE(platform::Json::parseObject(file), platform::Json::parseObject(original));
        QCOMPARE(Keyring::lookup(kOwn, "oauth"), file);
    }

    void refreshBodyIsFormEncoded_data()
    {
        QTest::addColumn<QString>("token");
        QTest::addColumn<QByteArray>("encoded");
        QTest::newRow("unreserved marks are encoded too") << "ab-c_d.e~f" << QByteArray("ab%2Dc%5Fd%2Ee%7Ef");
        QTest::newRow("letters and marks of any script stay, a space does not")
            << "ñandú Δ9e\u0301" << QByteArray("ñandú%20Δ9e\u0301");
        QTest::newRow("form delimiters") << "a+b/c=d&e%" << QByteArray("a%2Bb%2Fc%3Dd%26e%25");
        QTest::newRow("symbol outside the basic plane") << "k🔑" << QByteArray("k%F0%9F%94%91");
    }
    void refreshBodyIsFormEncoded()
    {
        QFETCH(QString, token);
        QFETCH(QByteArray, encoded);
        const QByteArray original
            = QStringLiteral(R"({"claudeAiOauth":{"refreshToken":"%1","expiresAt":0}})").arg(token).toUtf8();
        QVERIFY(t->write(kFile, original));
        t->peer.on("POST", kTokenPath, answer(400, "{}"));

        QCOMPARE(ClaudeProvider::fetch(t->env).error, kExpired);
        const auto requests = t->peer.requests();
        QCOMPARE(requests.size(), 1);
        QCOMPARE(requests[0].method, QByteArray("POST"));
        QCOMPARE(requests[0].header("content-type"), QByteArray("application/x-www-form-urlencoded"));
        QCOMPARE(requests[0].body,
            "grant_type=refresh_token&refresh_token=" + encoded
                + "&client_id=3f6a2b1c-7d4e-4a9b-8c2d-1e5f6a7b8c9d");
        // A failed refresh changes nothing anywhere.
        QCOMPARE(t->read(kFile), original);
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
        QTest::newRow("fresh token with a line break is not sent")
            << QByteArray() << session("file", kThreshold + 5, R"(,"accessToken":"a\r\nX-Evil: 1")")
            << QList<QByteArray> { "rt-file" } << QByteArray("renewed");
    }
    void storedTokenOnlyWhenFreshBeyondMargin()
    {
        QFETCH(QByteArray, ownItem);
        QFETCH(QByteArray, file);
        QFETCH(QList<QByteArray>, refreshed);
        QFETCH(QByteArray, bearer);
        QVERIFY(ownItem.isEmpty() || storeOwn(ownItem));
        QVERIFY(t->write(kFile, file));
        t->peer.on("POST", kTokenPath, answer(200, kRenewed));
        t->peer.on("GET", kUsagePath, answer(200, kUsage));

        QCOMPARE(ClaudeProvider::fetch(t->env).errorOrEmpty(), QString());
        QCOMPARE(refreshTokens(), refreshed);
        QCOMPARE(bearers(), QList<QByteArray> { "Bearer " + bearer });
    }

    void refreshedLineageIsWrittenEverywhere()
    {
        QVERIFY(storeCode(session("code", 3000)));
        QVERIFY(storeOwn(session("own", 2000)));
        QVERIFY(t->write(kFile, session("file", 1000)));
        t->peer.onSequence("POST", kTokenPath, { answer(400, "{}"), answer(200, kRenewed) });
        t->peer.on("GET", kUsagePath, answer(200, kUsage));

        const ServiceUsage usage = ClaudeProvider::fetch(t->env);
        QCOMPARE(usage.errorOrEmpty(), QString());
        QCOMPARE(usage.planBadge, QStringLiteral("Pro"));
        QCOMPARE(refreshTokens(), (QList<QByteArray> { "rt-code", "rt-own" }));
        QCOMPARE(bearers(), QList<QByteArray> { "Bearer renewed" });

        for (const QByteArray& bytes :
            { Keyring::lookup(kCode, "claude-user"), t->read(kFile), Keyring::lookup(kOwn, "oauth") }) {
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

    // The second refresh reads the file the first one wrote; members an answer lacks, or gives
    // with the wrong type, keep their stored value.
    void retryAfter401UsesReloadedSources()
    {
        QVERIFY(t->write(kFile, session("file", 0)));
        t->peer.onSequence("POST", kTokenPath,
            { answer(200, R"({"access_token":"a1","refresh_token":"rt-2","expires_in":"60","scope":"x"})"),
                answer(200, R"({"access_token":"a2","refresh_token":5})") });
        t->peer.onSequence("GET", kUsagePath, { answer(401), answer(200, kUsage) });

        const ServiceUsage usage = ClaudeProvider::fetch(t->env);
        QCOMPARE(usage.errorOrEmpty(), QString());
        QCOMPARE(usage.rows.size(), 2);
        QCOMPARE(refreshTokens(), (QList<QByteArray> { "rt-file", "rt-2" }));
        QCOMPARE(bearers(), (QList<QByteArray> { "Bearer a1", "Bearer a2" }));
        QCOMPARE(t->read(kFile),
            R"({"claudeAiOauth":{"accessToken":"a2","expiresAt":0,"refreshToken":"rt-2",)"
            R"("subscriptionType":"pro"},"source":"file"})");
    }

    // savedExpiresAt: the expiry written back, or -1 when the file must stay as it was.
    void tokenAnswersAreCheckedBeforeUseAndSaving_data()
    {
        QTest::addColumn<QByteArray>("tokenAnswer");
        QTest::addColumn<QString>("error");
        QTest::addColumn<double>("savedExpiresAt");
        QTest::newRow("access token with a line break")
            << QByteArray(R"({"access_token":"a\r\nX-Evil: 1","expires_in":60})") << kExpired << -1.0;
        QTest::newRow("refresh token with a NUL")
            << QByteArray(R"({"access_token":"a","refresh_token":"r\u0000x"})") << kExpired << -1.0;
        QTest::newRow("expiry beyond the model keeps the stored one")
            << QByteArray(R"({"access_token":"a","expires_in":1e308})") << QString() << 10.0;
        QTest::newRow("negative expiry beyond the model")
            << QByteArray(R"({"access_token":"a","expires_in":-1.7e308})") << QString() << 10.0;
    }
    void tokenAnswersAreCheckedBeforeUseAndSaving()
    {
        QFETCH(QByteArray, tokenAnswer);
        QFETCH(QString, error);
        QFETCH(double, savedExpiresAt);
        const QByteArray stored = session("file", 10);
        QVERIFY(t->write(kFile, stored));
        t->peer.on("POST", kTokenPath, answer(200, tokenAnswer));
        t->peer.on("GET", kUsagePath, answer(200, kUsage));

        QCOMPARE(ClaudeProvider::fetch(t->env).errorOrEmpty(), error);
        QCOMPARE(bearers(), error.isEmpty() ? QList<QByteArray> { "Bearer a" } : QList<QByteArray> {});
        if (savedExpiresAt < 0) {
            QCOMPARE(t->read(kFile), stored);
            QCOMPARE(Keyring::count(kOwn), 0);
        } else {
            const auto saved = platform::Json::parseObject(t->read(kFile));
            QVERIFY(saved);
            const QJsonObject oauth = saved->value(u"claudeAiOauth").toObject();
            QCOMPARE(oauth.value(u"expiresAt").toDouble(), savedExpiresAt);
        }
    }

    void requestsPerFetchAreBounded_data()
    {
        QTest::addColumn<int>("expiredSources"); // 0: one fresh file; -1: no source at all
        QTest::addColumn<QList<int>>("tokenStatuses");
        QTest::addColumn<QList<int>>("usageStatuses");
        QTest::addColumn<int>("tokenRequests");
        QTest::addColumn<int>("usageRequests");
        QTest::addColumn<QString>("error");
        using L = QList<int>;
        QTest::newRow("403 is not refreshed") << 0 << L { 200 } << L { 403 } << 0 << 1 << httpError(403);
        QTest::newRow("second 401 is reported") << 0 << L { 200 } << L { 401 } << 1 << 2 << httpError(401);
        QTest::newRow("no refresh after 401") << 0 << L { 400 } << L { 401 } << 1 << 1 << httpError(401);
        QTest::newRow("reload sees the new own item")
            << 2 << L { 400, 200, 400 } << L { 401 } << 5 << 1 << httpError(401);
        QTest::newRow("six refreshes at most")
            << 3 << L { 400, 400, 200, 400 } << L { 401 } << 6 << 1 << httpError(401);
        QTest::newRow("every refresh fails") << 3 << L { 500 } << L { 200 } << 3 << 0 << kExpired;
        QTest::newRow("token endpoint hangs") << 1 << L { kHang } << L { 200 } << 1 << 0 << kExpired;
        QTest::newRow("no credentials") << -1 << L { 200 } << L { 200 } << 0 << 0 << kNoCredentials;
    }
    void requestsPerFetchAreBounded()
    {
        QFETCH(int, expiredSources);
        QFETCH(QList<int>, tokenStatuses);
        QFETCH(QList<int>, usageStatuses);
        QFETCH(int, tokenRequests);
        QFETCH(int, usageRequests);
        QFETCH(QString, error);
        if (expiredSources >= 0)
            QVERIFY(t->write(kFile, session("file", expiredSources == 0 ? kThreshold + 1 : 10)));
        QVERIFY(expiredSources < 2 || storeCode(session("code", 20)));
        QVERIFY(expiredSources < 3 || storeOwn(session("own", 30)));
        QList<PeerAnswer> tokens, usages;
        for (int status : tokenStatuses)
            tokens << answer(status, kRenewed);
        for (int status : usageStatuses)
            usages << answer(status, kUsage);
        t->peer.onSequence("POST", kTokenPath, tokens);
        t->peer.onSequence("GET", kUsagePath, usages);

        const ServiceUsage usage = ClaudeProvider::fetch(t->env);
        QCOMPARE(usage.errorOrEmpty(), error);
        QCOMPARE(t->peer.requests("POST", kTokenPath).size(), tokenRequests);
        QCOMPARE(t->peer.requests("GET", kUsagePath).size(), usageRequests);
        QCOMPARE(usage.planBadgeOrEmpty(), expiredSources < 0 ? QString() : QStringLiteral("Pro"));
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
        QVERIFY(
            t->write(kFile, session("file", kThreshold + 1).replace(R"("pro")", '"' + plan.toUtf8() + '"')));
        t->peer.on("GET", kUsagePath, answer(status, body));

        QElapsedTimer timer;
        timer.start();
        const ServiceUsage usage = ClaudeProvider::fetch(t->env);
        QVERIFY2(timer.elapsed() < 2000, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(usage.errorOrEmpty(), error);
        QCOMPARE(usage.planBadge, badge.isEmpty() ? std::nullopt : std::optional(badge));
        QCOMPARE(usage.updatedAt, error.isEmpty() ? std::optional(kNow) : std::nullopt);
        QCOMPARE(usage.rows.size(), body == kUsage && error.isEmpty() ? 2 : 0);

        // The stored token and the beta flag, and no header of the program's own beyond them.
        const auto requests = t->peer.requests();
        QCOMPARE(requests.size(), 1);
        QCOMPARE(requests[0].header("authorization"), QByteArray("Bearer stored"));
        QCOMPARE(requests[0].header("anthropic-beta"), QByteArray("oauth-2025-04-20"));
        for (const auto& [name, value] : requests[0].headers) {
            const bool transport = name == "host" || (name == "accept" && value == "*/*");
            QVERIFY2(transport || name == "authorization" || name == "anthropic-beta", name.constData());
        }
    }

    // Last: the collection stays locked, since unlocking would need a prompt.
    void lockedCollectionLooksEmptyAndNeverPrompts()
    {
        QVERIFY(Keyring::store(kOwn, QStringLiteral("me"), "secret"));
        QVERIFY(Keyring::lockLogin());

        QElapsedTimer timer;
        timer.start();
        QVERIFY(!KeychainHelper::read(secrets(), kOwn));
        QVERIFY(!KeychainHelper::saveVerified(secrets(), kOwn, QStringLiteral("me"), "x"));
        QVERIFY(!KeychainHelper::upsertOwn(secrets(), kCode, QStringLiteral("me"), "x"));
        QVERIFY2(timer.elapsed() < 1000, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(Keyring::count(kOwn), 1);
        QCOMPARE(Keyring::count(kCode), 0);
    }
};

QTEST_GUILESS_MAIN(TestClaude)
#include "tst_claude.moc"
