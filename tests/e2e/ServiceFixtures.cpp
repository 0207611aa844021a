#include "ServiceFixtures.h"

#include "TlsPeer.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cmath>

namespace limitra::e2e::ServiceFixtures {

namespace {
constexpr double kMinute = 60;
constexpr double kHour = 3600;
constexpr double kDay = 86400;

QByteArray iso(double moment)
{
    return QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(std::floor(moment * 1000)), Qt::UTC)
        .toString(Qt::ISODateWithMs)
        .toUtf8();
}

QByteArray number(double value)
{
    return QByteArray::number(value, 'f', 3);
}
} // namespace

QString claudeCredentialsPath(const QString& home)
{
    return QDir(home).filePath(QStringLiteral(".claude/.credentials.json"));
}

QString codexAuthPath(const QString& home)
{
    return QDir(home).filePath(QStringLiteral(".codex/auth.json"));
}

QByteArray claudeCredentials(
    const QByteArray& accessToken, const QByteArray& refreshToken, double expiresAtMs)
{
    return R"({"claudeAiOauth":{"accessToken":")" + accessToken + R"(","refreshToken":")" + refreshToken
        + R"(","expiresAt":)" + QByteArray::number(expiresAtMs, 'f', 0)
        + R"(,"scopes":["user:inference","user:profile"],"subscriptionType":"max"},)"
          R"("mcpOAuth":{"server":{"count":12345678901234567}}})";
}

QByteArray codexAuth(
    const QByteArray& accessToken, const QByteArray& refreshToken, const QByteArray& accountId)
{
    return R"({"OPENAI_API_KEY":null,"tokens":{"id_token":"SECRET-codex-id","access_token":")" + accessToken
        + R"(","refresh_token":")" + refreshToken + R"(","account_id":")" + accountId
        + R"("},"last_refresh":"2025-01-01T00:00:00Z","extra":{"nested":[1,2.5,"x"]}})";
}

QByteArray claudeUsageAnswer(double now)
{
    return R"({"limits":[)"
           R"({"kind":"session","percent":12.5,"resets_at":")"
        + iso(now + 4 * kHour + 7 * kMinute + 30)
        + R"("},)"
          R"({"kind":"weekly_all","percent":40,"resets_at":")"
        + iso(now + 2 * kDay + 5 * kHour + 30 * kMinute)
        + R"("},)"
          R"({"kind":"weekly_scoped","percent":63.2,"scope":{"model":{"display_name":"Opus"}}}],)"
          R"("spend":{"enabled":true,"used":{"amount_minor":1234},"limit":{"amount_minor":5000}}})";
}

QByteArray codexUsageAnswer(double now)
{
    return R"({"plan_type":"pro","rate_limit":{)"
           R"("primary_window":{"used_percent":7,"limit_window_seconds":18000,"reset_after_seconds":11430},)"
           R"("secondary_window":{"used_percent":130,"limit_window_seconds":604800,"reset_at":)"
        + number(now + 6 * kDay + 23 * kHour + 30 * kMinute) + "}}}";
}

QStringList claudeReport()
{
    return {
        QStringLiteral("== Claude Code [Max] =="),
        QStringLiteral("  Sesión de 5 h — 12% usado (88% restante) · se reinicia en 4h 7m"),
        QStringLiteral("  Semanal · Todos los modelos — 40% usado (60% restante) · se reinicia en 2d 5h"),
        QStringLiteral("  Semanal · Opus — 63% usado (37% restante)"),
        QStringLiteral("  Créditos extra — 25% usado (75% restante) · $12.34 / $50.00 USD"),
    };
}

QStringList codexReport()
{
    return {
        QStringLiteral("== Codex [Pro] =="),
        QStringLiteral("  Sesión de 5 h — 7% usado (93% restante) · se reinicia en 3h 10m"),
        QStringLiteral("  Semanal — 130% usado (0% restante) · se reinicia en 6d 23h"),
    };
}

QString claudeMissingLine()
{
    return QStringLiteral(
        "  ERROR: Sin credenciales de Claude Code. Abre `claude` en la Terminal e inicia sesión (/login).");
}

QString codexMissingLine()
{
    return QStringLiteral(
        "  ERROR: No encontré credenciales de Codex. Ejecuta `codex login` en la Terminal.");
}

QString claudeHttpLine(int status)
{
    return QStringLiteral("  ERROR: No pude consultar el uso de Claude (HTTP %1).").arg(status);
}

QString codexHttpLine(int status)
{
    return QStringLiteral(
        "  ERROR: No pude consultar el uso de Codex (HTTP %1). Ejecuta `codex login` si persiste.")
        .arg(status);
}

QStringList noCredentialsReport()
{
    return { QStringLiteral("== Claude Code [sin plan] =="), claudeMissingLine(),
        QStringLiteral("== Codex [sin plan] =="), codexMissingLine() };
}

bool writeOwnerOnly(const QString& path, const QByteArray& bytes)
{
    if (!QDir().mkpath(QFileInfo(path).absolutePath()))
        return false;
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)
        || !file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner))
        return false;
    return file.write(bytes) == bytes.size() && file.flush();
}

bool writeFreshSessions(const QString& home, double now)
{
    return writeOwnerOnly(claudeCredentialsPath(home),
               claudeCredentials("SECRET-claude-at", "SECRET-claude-rt", (now + 8 * kHour) * 1000))
        && writeOwnerOnly(codexAuthPath(home), codexAuth("SECRET-codex-at", "SECRET-codex-rt", "acc-e2e"));
}

void serveBothServices(TlsPeer& peer, double now)
{
    peer.on(kClaudeHost, "GET", kClaudeUsagePath, test::PeerAnswer::json(200, claudeUsageAnswer(now)));
    peer.on(kCodexHost, "GET", kCodexUsagePath, test::PeerAnswer::json(200, codexUsageAnswer(now)));
}

} // namespace limitra::e2e::ServiceFixtures
