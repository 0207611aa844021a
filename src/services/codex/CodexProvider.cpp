#include "services/codex/CodexProvider.h"

#include "model/FormatUtil.h"
#include "model/PlanBadge.h"
#include "platform/Environment.h"
#include "platform/Files.h"
#include "platform/Http.h"
#include "platform/Json.h"

#include <chrono>
#include <optional>

namespace limitra::CodexProvider {

namespace Json = platform::Json;
using platform::HttpRequest;
using platform::HttpResponse;

namespace {
constexpr std::chrono::seconds kRequestTimeout { 60 };

QString missingCredentials()
{
    return QStringLiteral("No encontré credenciales de Codex. Ejecuta `codex login` en la Terminal.");
}

// The working copies that one fetch shares between its usage calls and the
// token refresh; the refresh changes them and the retry reads them.
struct Session
{
    const platform::Environment& env;
    QString path;
    QJsonObject root;
    QJsonObject tokens;
    QString accessToken;
    std::optional<QString> accountId;

    std::optional<HttpResponse> callUsage() const;
    bool refreshToken();
};

std::optional<HttpResponse> Session::callUsage() const
{
    HttpRequest request;
    request.method = "GET";
    request.url = env.endpoints.codexUsage;
    request.timeout = env.timeout(kRequestTimeout);
    request.headers.emplaceBack("Authorization", "Bearer " + accessToken.toUtf8());
    if (accountId)
        request.headers.emplaceBack("chatgpt-account-id", accountId->toUtf8());
    request.headers.emplaceBack("User-Agent", "Limitra/1.0");
    return platform::Http::send(request);
}

bool Session::refreshToken()
{
    const std::optional<QString> refresh = Json::string(tokens, u"refresh_token");
    if (!refresh)
        return false;

    const QJsonObject grant {
        { QStringLiteral("client_id"), QLatin1String(clientId) },
        { QStringLiteral("grant_type"), QStringLiteral("refresh_token") },
        { QStringLiteral("refresh_token"), *refresh },
        { QStringLiteral("scope"), QStringLiteral("openid profile email") },
    };
    HttpRequest request;
    request.method = "POST";
    request.url = env.endpoints.codexToken;
    request.timeout = env.timeout(kRequestTimeout);
    request.headers.emplaceBack("Content-Type", "application/json");
    request.body = Json::compact(grant);

    const std::optional<HttpResponse> answer = platform::Http::send(request);
    if (!answer || answer->status != 200)
        return false;
    const std::optional<QJsonObject> granted = Json::parseObject(answer->body);
    const std::optional<QString> newAccess = granted ? Json::string(*granted, u"access_token") : std::nullopt;
    if (!newAccess)
        return false;

    accessToken = *newAccess;
    tokens.insert(QStringLiteral("access_token"), *newAccess);
    if (const auto newRefresh = Json::string(*granted, u"refresh_token"))
        tokens.insert(QStringLiteral("refresh_token"), *newRefresh);
    if (const auto newId = Json::string(*granted, u"id_token"))
        tokens.insert(QStringLiteral("id_token"), *newId);
    root.insert(QStringLiteral("tokens"), tokens);
    root.insert(QStringLiteral("last_refresh"), FormatUtil::iso8601Fractional(env.now()));

    // A failed write goes unreported: the new token still serves the retry,
    // and the Codex tool keeps its old session. A file removed meanwhile (a
    // logout) is not brought back.
    static_cast<void>(platform::Files::replaceExisting(path, Json::indented(root), env.beforeReplace));
    return true;
}

QString windowTitle(double seconds, QStringView key)
{
    if (seconds > 0 && seconds <= 21600)
        return QStringLiteral("Sesión de 5 h");
    if (seconds >= 518400)
        return QStringLiteral("Semanal");
    if (seconds > 21600)
        return QStringLiteral("Ventana de %1 h").arg(static_cast<qint64>(seconds / 3600));
    // No usable length (also a NaN): name the window by its place.
    return key == u"primary_window" ? QStringLiteral("Ventana principal")
                                    : QStringLiteral("Ventana secundaria");
}

std::optional<LimitRow> row(const std::optional<QJsonObject>& window, const QString& key, double now)
{
    if (!window)
        return std::nullopt;
    LimitRow result;
    result.id = QStringLiteral("codex-") + key;
    result.title = windowTitle(Json::number(*window, u"limit_window_seconds").value_or(0), key);
    result.usedPercent = Json::number(*window, u"used_percent").value_or(0);
    if (!fitsModel(result.usedPercent))
        return std::nullopt;
    if (const auto resetAt = Json::number(*window, u"reset_at"))
        result.resetsAt = *resetAt;
    else if (const auto resetAfter = Json::number(*window, u"reset_after_seconds"))
        result.resetsAt = now + *resetAfter;
    // A reset beyond any calendar is as good as none.
    if (result.resetsAt && !fitsModel(*result.resetsAt))
        result.resetsAt.reset();
    return result;
}
} // namespace

QString httpMessage(int status)
{
    return QStringLiteral("No pude consultar el uso de Codex (HTTP %1). Ejecuta `codex login` si persiste.")
        .arg(status);
}

QList<LimitRow> parseRows(const QJsonObject& answer, double now)
{
    QList<LimitRow> rows;
    const std::optional<QJsonObject> limits = Json::object(answer, u"rate_limit");
    if (!limits)
        return rows;
    for (const QString& key : { QStringLiteral("primary_window"), QStringLiteral("secondary_window") }) {
        if (auto found = row(Json::object(*limits, key), key, now))
            rows.append(*found);
    }
    return rows;
}

ServiceUsage fetch(const platform::Environment& env)
{
    ServiceUsage usage;
    const QString path = env.homePath(authFile);
    const std::optional<QByteArray> bytes = platform::Files::read(path);
    const std::optional<QJsonObject> root = bytes ? Json::parseObject(*bytes) : std::nullopt;
    const std::optional<QJsonObject> tokens = root ? Json::object(*root, u"tokens") : std::nullopt;
    const std::optional<QString> access = tokens ? Json::string(*tokens, u"access_token") : std::nullopt;
    if (!access) {
        usage.error = missingCredentials();
        return usage;
    }

    // A token or account id that cannot travel in a header fails its request
    // like a lost connection.
    Session session { env, path, *root, *tokens, *access, Json::string(*tokens, u"account_id") };
    std::optional<HttpResponse> answer = session.callUsage();
    if (answer && (answer->status == 401 || answer->status == 403)) {
        if (!session.refreshToken()) {
            usage.error = httpMessage(answer->status);
            return usage;
        }
        // One retry with the new token, whatever it answers.
        answer = session.callUsage();
    }

    const int status = answer ? answer->status : 0;
    const std::optional<QJsonObject> body = status == 200 ? Json::parseObject(answer->body) : std::nullopt;
    if (!body) {
        usage.error = httpMessage(status);
        return usage;
    }
    const double now = env.now();
    usage.planBadge = planBadge(Json::string(*body, u"plan_type"));
    usage.rows = parseRows(*body, now);
    usage.updatedAt = now;
    return usage;
}

} // namespace limitra::CodexProvider
