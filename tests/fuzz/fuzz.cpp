// Every reader of outside input under libFuzzer, one target per FUZZ_* define; a broken
// rule aborts like a crash. Multi-part inputs are split at lines holding only "%%".
#include "model/FormatUtil.h"
#include "model/PercentMode.h"
#include "platform/Json.h"
#include "services/claude/ClaudeProvider.h"
#include "services/codex/CodexProvider.h"
#include "support/TestEnv.h"
#include "update/UpdateChecker.h"

#include <QRegularExpression>
#include <httplib.h>

using namespace limitra;
using namespace Qt::StringLiterals;

namespace {
constexpr double kNow = 1732000000.5;
const QRegularExpression kCountdown(QStringLiteral(R"(^(ahora|\d{1,2}m|\d{1,2}h \d{1,2}m|\d+d \d{1,2}h)$)"));
const QRegularExpression kCredits(QStringLiteral(R"(^\$-?\d+\.\d\d / \$\d+\.\d\d USD$)"));
const QRegularExpression kAgo(QStringLiteral(R"(^hace (\d{1,2} s|\d{1,2} min|\d+ h \d{1,2} min)$)"));
const QRegularExpression kStamp(QStringLiteral(R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$)"));

void require(bool holds, const char* rule, const QString& detail = {})
{
    if (!holds)
        qFatal("broken rule: %s\n%s", rule, qUtf8Printable(detail));
}

[[maybe_unused]] QList<QByteArray> split(const QByteArray& bytes)
{
    QList<QByteArray> out { bytes };
    for (qsizetype at; out.size() < 3 && (at = out.back().indexOf("\n%%\n")) >= 0;) {
        out.append(out.back().mid(at + 4));
        out[out.size() - 2].truncate(at);
    }
    out.resize(3);
    return out;
}

// Every row fits the model and reads as the panel and the check report may show it.
[[maybe_unused]] void checkRows(const QList<LimitRow>& rows)
{
    for (const LimitRow& row : rows) {
        require(fitsModel(row.usedPercent) && fitsModel(row.resetsAt.value_or(0)), "fits the model", row.id);
        for (const PercentMode mode : PercentMode::allCases())
            require(unsigned(mode.value(row.leftPercent())) <= 100, "a shown percentage lies in 0…100");
        const QString countdown = FormatUtil::countdown(row.resetsAt.value_or(kNow), kNow);
        require(
            kCountdown.match(countdown).hasMatch(), "a countdown like 2d 5h, 4h 7m, 12m or ahora", countdown);
        require(kCredits.match(row.detail.value_or(u"$0.00 / $0.00 USD"_s)).hasMatch(), "credits", row.id);
    }
}

// The token under the key as the test server may see it in a header: trimmed, maybe %XX-decoded.
QSet<QByteArray> tokens(const QJsonObject& object, QStringView key)
{
    const std::optional<QString> value = platform::Json::string(object, key);
    if (!value)
        return {};
    const std::string text = value->toStdString(); // "" is a token too, sent as a bare "Bearer"
    return { QByteArray::fromStdString(text).trimmed(),
        QByteArray::fromStdString(httplib::detail::decode_url(text, false)).trimmed() };
}

// A session file, a token answer and a usage answer through a fetch whose first token is refused: only
// stored or granted tokens go out, whole, in known headers; every granted token (answer key, stored key)
// is saved as it came.
[[maybe_unused]] void session(const QByteArray& bytes, const QString& file, QStringView root,
    QStringView stored, const char* tokenPath, const char* usagePath,
    std::initializer_list<std::pair<QStringView, QStringView>> granted,
    ServiceUsage (*fetch)(const platform::Environment&))
{
    static test::TestEnv t(kNow, std::chrono::milliseconds(2000));
    const QList<QByteArray> parts = split(bytes);
    t.peer.clear();
    t.peer.on("POST", tokenPath, test::answer(200, parts[1]));
    t.peer.onSequence("GET", usagePath, { test::answer(401), test::answer(200, parts[2]) });
    require(t.write(file, parts[0]), "the session file can be written");
    checkRows(fetch(t.env).rows);

    const auto object
        = [](const QByteArray& b) { return platform::Json::parseObject(b).value_or(QJsonObject()); };
    const QJsonObject kept = object(parts[0]).value(root).toObject(), answer = object(parts[1]);
    const QSet<QByteArray> sendable = tokens(kept, stored) + tokens(answer, u"access_token");
    static const QSet<QByteArray> known { "host", "accept", "authorization", "anthropic-beta",
        "chatgpt-account-id", "user-agent", "content-type", "content-length" };
    for (const auto& request : t.peer.requests()) {
        for (qsizetype i = 0; i < request.headers.size(); ++i) { // sorted by name
            const QByteArray& name = request.headers[i].first;
            require(known.contains(name) && (i == 0 || request.headers[i - 1].first != name), "known, once",
                name);
        }
        const QByteArray bearer = request.header("authorization"),
                         account = request.header("chatgpt-account-id");
        require(
            bearer.isEmpty() || (bearer.startsWith("Bearer") && sendable.contains(bearer.mid(6).trimmed())),
            "a whole known token", bearer);
        require(account.isEmpty() || tokens(kept, u"account_id").contains(account), "the stored account",
            account);
    }
    // Once the token endpoint granted an access token, the file holds every granted token as it came.
    const QJsonObject granting = object(platform::Json::compact(answer)); // as JSON can carry it
    if (t.peer.requests("POST", tokenPath).isEmpty() || !granting.value(u"access_token").isString())
        return;
    const QJsonObject saved = object(t.read(file)).value(root).toObject();
    for (const auto& [key, as] : granted) {
        require(!granting.value(key).isString() || saved.value(as) == granting.value(key),
            "every token granted is saved as granted", key.toString());
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
#if defined(FUZZ_claude_usage)
    checkRows(ClaudeProvider::parseRows(platform::Json::parseObject(bytes).value_or(QJsonObject())));
#elif defined(FUZZ_codex_usage)
    const auto rows
        = CodexProvider::parseRows(platform::Json::parseObject(bytes).value_or(QJsonObject()), kNow);
    require(rows.size() <= 2, "at most the two windows");
    checkRows(rows);
#elif defined(FUZZ_claude_session)
    session(bytes, QString(ClaudeProvider::credentialsFile), u"claudeAiOauth", u"accessToken",
        "/v1/oauth/token", "/api/oauth/usage",
        { { u"access_token", u"accessToken" }, { u"refresh_token", u"refreshToken" } },
        ClaudeProvider::fetch);
#elif defined(FUZZ_codex_session)
    session(bytes, QStringLiteral(".codex/auth.json"), u"tokens", u"access_token", "/oauth/token",
        "/backend-api/wham/usage",
        { { u"access_token", u"access_token" }, { u"refresh_token", u"refresh_token" },
            { u"id_token", u"id_token" } },
        CodexProvider::fetch);
#elif defined(FUZZ_update)
    // The version feed, then two version texts.
    static test::TestEnv t(kNow, std::chrono::milliseconds(2000));
    const QList<QByteArray> parts = split(bytes);
    t.peer.clear();
    t.peer.on("GET", "/api/version.json", test::answer(200, parts[0]));
    const auto newer = [](const QString& x, const QString& y) { return UpdateChecker::isNewer(x, y); };
    if (const auto info = UpdateChecker::check(t.env)) {
        require(newer(info->version, UpdateChecker::currentVersion())
                && QStringList { u"https"_s, u"http"_s }.contains(info->downloadURL.scheme()),
            "a newer version at a web address", info->version + u' ' + info->downloadURL.toString());
    }
    const QString a = QString::fromUtf8(parts[1]), b = QString::fromUtf8(parts[2]);
    require(!newer(a, a) && !(newer(a, b) && newer(b, a)) && !newer(a + u".0"_s, a) && !newer(a, a + u".0"_s),
        "at most one of two versions is newer, and a trailing .0 changes nothing", a + u'|' + b);
#elif defined(FUZZ_format)
    // Any text as a date, and the input's first 16 bytes as two doubles.
    if (const auto parsed = FormatUtil::parseISODate(QString::fromUtf8(bytes));
        parsed && *parsed >= -62167219200.0 && *parsed < 253402300800.0) { // years 0000…9999
        const auto again = FormatUtil::parseISODate(FormatUtil::iso8601Fractional(*parsed));
        require(again && std::abs(*again - *parsed) <= 0.0006, "a date writes and reads back", bytes);
    }
    double ab[2] {};
    if (size >= 16)
        std::memcpy(ab, data, sizeof ab);
    const double a = ab[0], b = ab[1];
    const QString ago = FormatUtil::ago(a, b), left = FormatUtil::countdown(a, b);
    const QString stamp = FormatUtil::iso8601Fractional(a);
    require(kAgo.match(ago).hasMatch() && kCountdown.match(left).hasMatch(), "ago and countdown", ago + left);
    require(kStamp.match(stamp).hasMatch() && FormatUtil::parseISODate(stamp), "a readable stamp", stamp);
    for (const PercentMode mode : PercentMode::allCases())
        mode.value(a); // any double must round without undefined behaviour
    if (fitsModel(a) && fitsModel(b))
        checkRows({ LimitRow { u"x"_s, u"x"_s, a, b, std::nullopt } });
#endif
    return 0;
}
