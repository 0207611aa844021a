#include "services/claude/ClaudeProvider.h"

#include "model/LimitRow.h"
#include "model/PlanBadge.h"
#include "platform/Environment.h"
#include "platform/Http.h"
#include "platform/Json.h"

namespace limitra::ClaudeProvider {

namespace {
using platform::Json::number;
using platform::Json::string;

const QString kNoCredentials = QStringLiteral(
    "Sin credenciales de Claude Code. Abre `claude` en la Terminal e inicia sesión (/login).");
const QString kSessionExpired
    = QStringLiteral("Sesión de Claude Code expirada. Abre `claude` en la Terminal, "
                     "ejecuta /login y luego pulsa ↻ aquí.");

// Letters, marks and digits of any script travel as they are; every other
// character becomes %XX per UTF-8 byte. Null when the text is not valid UTF-16.
std::optional<QByteArray> percentEncoded(const QString& text)
{
    QByteArray out;
    for (qsizetype i = 0; i < text.size(); ++i) {
        char32_t c = text.at(i).unicode();
        if (QChar::isHighSurrogate(c) && i + 1 < text.size() && text.at(i + 1).isLowSurrogate()) {
            c = QChar::surrogateToUcs4(text.at(i), text.at(i + 1));
            ++i;
        } else if (QChar::isSurrogate(c)) {
            return std::nullopt;
        }
        const QByteArray utf8 = QString::fromUcs4(&c, 1).toUtf8();
        if (QChar::isLetterOrNumber(c) || QChar::isMark(c)) {
            out += utf8;
            continue;
        }
        for (const char byte : utf8) {
            out += '%';
            out += QByteArray::number(uchar(byte), 16).toUpper().rightJustified(2, '0');
        }
    }
    return out;
}

QByteArray refreshBody(const QString& refreshToken)
{
    return "grant_type=refresh_token&refresh_token="
        + percentEncoded(refreshToken).value_or(refreshToken.toUtf8())
        + "&client_id=" + QByteArray(clientId.data(), clientId.size());
}
} // namespace

QString statusError(int status)
{
    return QStringLiteral("No pude consultar el uso de Claude (HTTP %1).").arg(status);
}

std::optional<Lineage> refresh(const platform::Environment& env, const Lineage& lineage)
{
    const auto refreshToken = string(lineage.oauth, u"refreshToken");
    if (!refreshToken)
        return std::nullopt;

    platform::HttpRequest request;
    request.method = "POST";
    request.url = env.endpoints.claudeToken;
    request.timeout = env.timeout(requestTimeout);
    request.headers = { { "Content-Type", "application/x-www-form-urlencoded" } };
    request.body = refreshBody(*refreshToken);
    const auto response = platform::Http::send(request);
    if (!response || response->status != 200)
        return std::nullopt;
    const auto answer = platform::Json::parseObject(response->body);
    const auto accessToken = answer ? string(*answer, u"access_token") : std::nullopt;
    if (!accessToken)
        return std::nullopt;
    // Every token granted is kept as it came: the server has spent the old
    // refresh token, so dropping the answer would log Claude Code out too.
    const auto newRefreshToken = string(*answer, u"refresh_token");

    QJsonObject oauth = lineage.oauth;
    oauth.insert(QStringLiteral("accessToken"), *accessToken);
    if (newRefreshToken)
        oauth.insert(QStringLiteral("refreshToken"), *newRefreshToken);
    // An expiry beyond what the model can carry is treated as none given.
    if (const auto expiresIn = number(*answer, u"expires_in")) {
        if (const double expiresAt = (env.now() + *expiresIn) * 1000; fitsModel(expiresAt))
            oauth.insert(QStringLiteral("expiresAt"), expiresAt);
    }

    QJsonObject creds = lineage.creds;
    creds.insert(QStringLiteral("claudeAiOauth"), oauth);
    persist(env, creds);
    return Lineage { creds, oauth };
}

ServiceUsage fetch(const platform::Environment& env)
{
    ServiceUsage usage;

    // A token holding a control character is never put in a header: Http
    // refuses the request, which then reads as no answer.
    const auto callUsage = [&env](const QString& token) {
        platform::HttpRequest request;
        request.url = env.endpoints.claudeUsage;
        request.timeout = env.timeout(requestTimeout);
        request.headers = {
            { "Authorization", "Bearer " + token.toUtf8() },
            { "anthropic-beta", QByteArray(betaHeader.data(), betaHeader.size()) },
        };
        return platform::Http::send(request);
    };
    // The first refreshed lineage that yields an access token, in list order.
    const auto refreshAny = [&env](const QList<Lineage>& lineages) -> std::optional<QString> {
        for (const Lineage& lineage : lineages) {
            if (const auto renewed = refresh(env, lineage)) {
                if (const auto accessToken = string(renewed->oauth, u"accessToken"))
                    return accessToken;
            }
        }
        return std::nullopt;
    };

    const QList<Lineage> lineages = loadLineages(env);
    if (lineages.isEmpty()) {
        usage.error = kNoCredentials;
        return usage;
    }
    usage.planBadge = planBadge(string(lineages.first().oauth, u"subscriptionType"));

    // Only the first lineage that is still fresh is considered; without a
    // token of its own it goes through the refresh like the others.
    std::optional<QString> token;
    const double threshold = env.now() * 1000 + freshnessMarginMs;
    for (const Lineage& lineage : lineages) {
        if (number(lineage.oauth, u"expiresAt").value_or(0) > threshold) {
            token = string(lineage.oauth, u"accessToken");
            break;
        }
    }
    if (!token)
        token = refreshAny(lineages);
    if (!token) {
        usage.error = kSessionExpired;
        return usage;
    }

    auto answer = callUsage(*token);
    if (answer && answer->status == 401) {
        // The sources may have changed since: a refresh above wrote them back,
        // or Claude Code itself logged in again.
        const auto retryToken = refreshAny(loadLineages(env));
        if (!retryToken) {
            usage.error = statusError(401);
            return usage;
        }
        answer = callUsage(*retryToken);
    }

    if (!answer) {
        usage.error = statusError(0);
    } else if (answer->status != 200) {
        usage.error = statusError(answer->status);
    } else if (const auto body = platform::Json::parseObject(answer->body)) {
        usage.rows = parseRows(*body);
        usage.updatedAt = env.now();
    } else {
        usage.error = statusError(200);
    }
    return usage;
}

} // namespace limitra::ClaudeProvider
