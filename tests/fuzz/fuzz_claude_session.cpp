// Claude Code's credentials document, the token endpoint's answer and the
// usage answer, separated by lines of "%%", through a whole fetch against a
// local peer: the usage endpoint first refuses the token, then answers.
#include "FuzzCheck.h"

#include "platform/Json.h"
#include "services/claude/ClaudeProvider.h"
#include "support/TestEnv.h"

using namespace limitra;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static test::TestEnv t(fuzz::kNow, std::chrono::milliseconds(2000));
    const QString file = QString(ClaudeProvider::credentialsFile);
    const QList<QByteArray> parts = fuzz::split(data, size, 3);
    t.peer.clear();
    t.peer.on("POST", "/v1/oauth/token", test::answer(200, parts[1]));
    t.peer.onSequence("GET", "/api/oauth/usage", { test::answer(401), test::answer(200, parts[2]) });
    fuzz::require(t.write(file, parts[0]), "the credentials file can be written");

    fuzz::checkRows(ClaudeProvider::fetch(t.env).rows);

    const QJsonObject creds = platform::Json::parseObject(parts[0]).value_or(QJsonObject());
    const QJsonObject stored = creds.value(u"claudeAiOauth").toObject();
    const QJsonObject granted = platform::Json::parseObject(parts[1]).value_or(QJsonObject());
    const QSet<QByteArray> sendable
        = fuzz::tokens(stored, { u"accessToken" }) + fuzz::tokens(granted, { u"access_token" });
    for (const auto& request : t.peer.requests())
        fuzz::checkRequest(request, sendable);
    if (fuzz::hasControlToken(granted, { u"access_token", u"refresh_token" }))
        fuzz::require(t.read(file) == parts[0], "a token answer that cannot be sent is never saved");
    return 0;
}
