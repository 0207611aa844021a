// The Codex authentication file, the token endpoint's answer and the usage
// answer, separated by lines of "%%", through a whole fetch against a local
// peer: the usage endpoint first refuses the token, then answers.
#include "FuzzCheck.h"

#include "platform/Json.h"
#include "services/codex/CodexProvider.h"
#include "support/TestEnv.h"

using namespace limitra;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static test::TestEnv t(fuzz::kNow, std::chrono::milliseconds(2000));
    const QString file = QStringLiteral(".codex/auth.json");
    const QList<QByteArray> parts = fuzz::split(data, size, 3);
    t.peer.clear();
    t.peer.on("POST", "/oauth/token", test::answer(200, parts[1]));
    t.peer.onSequence("GET", "/backend-api/wham/usage", { test::answer(401), test::answer(200, parts[2]) });
    fuzz::require(t.write(file, parts[0]), "the authentication file can be written");

    const ServiceUsage usage = CodexProvider::fetch(t.env);
    fuzz::require(usage.rows.size() <= 2, "at most the two windows");
    fuzz::checkRows(usage.rows);

    const QJsonObject auth = platform::Json::parseObject(parts[0]).value_or(QJsonObject());
    const QJsonObject stored = auth.value(u"tokens").toObject();
    const QJsonObject granted = platform::Json::parseObject(parts[1]).value_or(QJsonObject());
    const QSet<QByteArray> sendable
        = fuzz::tokens(stored, { u"access_token" }) + fuzz::tokens(granted, { u"access_token" });
    const QSet<QByteArray> accounts = fuzz::tokens(stored, { u"account_id" });
    for (const auto& request : t.peer.requests()) {
        fuzz::checkRequest(request, sendable);
        if (request.hasHeader("chatgpt-account-id"))
            fuzz::require(accounts.contains(request.header("chatgpt-account-id").trimmed()),
                "the account header is the stored account id, whole");
    }
    if (fuzz::hasControlToken(granted, { u"access_token", u"refresh_token", u"id_token" }))
        fuzz::require(t.read(file) == parts[0], "a token answer that cannot be sent is never saved");
    return 0;
}
