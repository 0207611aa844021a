#pragma once

#include "model/LimitRow.h"
#include "model/ServiceUsage.h"

#include <QByteArray>
#include <QJsonObject>
#include <QLatin1String>
#include <QList>
#include <QString>

#include <chrono>
#include <optional>

namespace limitra {

namespace platform {
struct Environment;
}

// The Claude service: credentials reused from Claude Code, the usage request
// with token refresh, and the rows of the usage answer. Stateless; every call
// reads the credential sources afresh.
namespace ClaudeProvider {
// Claude Code's own keychain item (any account) and credentials file, and
// the program's copy of the same session.
inline constexpr QLatin1String claudeCodeService { "Claude Code-credentials" };
inline constexpr QLatin1String ownService { "Limitra.claude-oauth" };
inline constexpr QLatin1String ownAccount { "oauth" };
inline constexpr QLatin1String credentialsFile { ".claude/.credentials.json" };

inline constexpr QLatin1String clientId { "3f6a2b1c-7d4e-4a9b-8c2d-1e5f6a7b8c9d" };
inline constexpr QLatin1String betaHeader { "oauth-2025-04-20" };
// A stored token must stay valid this much longer to be used as it is.
inline constexpr double freshnessMarginMs = 300000;
inline constexpr std::chrono::seconds requestTimeout { 60 };

// One source's copy of the session: the whole document and its
// "claudeAiOauth" object.
struct Lineage
{
    QJsonObject creds;
    QJsonObject oauth;
};

// Every usable source, latest "expiresAt" first; ties keep the reading
// order (Claude Code's item, the own item, the file).
QList<Lineage> loadLineages(const platform::Environment& env);
// Writes a refreshed document back to every place that holds one; never
// creates Claude Code's item or file. Failures are silent.
void persist(const platform::Environment& env, const QJsonObject& document);

QList<LimitRow> parseRows(const QJsonObject& answer);

// Trades the lineage's refresh token for a new session and persists it.
std::optional<Lineage> refresh(const platform::Environment& env, const Lineage& lineage);

// The error text for an answer with this status; 0 when none came.
QString statusError(int status);

// Blocking; call from a worker thread. Never fails outward.
ServiceUsage fetch(const platform::Environment& env);
} // namespace ClaudeProvider

} // namespace limitra
