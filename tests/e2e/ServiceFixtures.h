#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace limitra::e2e {

class TlsPeer;

// Credentials, answers and the report lines they lead to, shared by the
// journeys, the benchmark and any later whole-program test. Moments are
// seconds since the Unix epoch; answers place resets half a minute past a
// whole minute, so a report printed within 30 s shows the same countdowns.
namespace ServiceFixtures {
inline const QByteArray kClaudeHost = "api.anthropic.com";
inline const QByteArray kClaudeTokenHost = "platform.claude.com";
inline const QByteArray kCodexHost = "chatgpt.com";
inline const QByteArray kCodexTokenHost = "auth.openai.com";
inline const QByteArray kClaudeUsagePath = "/api/oauth/usage";
inline const QByteArray kClaudeTokenPath = "/v1/oauth/token";
inline const QByteArray kCodexUsagePath = "/backend-api/wham/usage";
inline const QByteArray kCodexTokenPath = "/oauth/token";

// Every token below starts with it, so a leak into any output is easy to find.
inline const QByteArray kSecretMarker = "SECRET-";

QString claudeCredentialsPath(const QString& home);
QString codexAuthPath(const QString& home);

// Claude Code's credentials document for the plan "max", with keys of its
// own that a rewrite must keep.
QByteArray claudeCredentials(
    const QByteArray& accessToken, const QByteArray& refreshToken, double expiresAtMs);
// Codex's auth.json, with members of its own that a rewrite must keep.
QByteArray codexAuth(
    const QByteArray& accessToken, const QByteArray& refreshToken, const QByteArray& accountId);

// Usage answers with every kind of row, and the report lines they give.
QByteArray claudeUsageAnswer(double now);
QByteArray codexUsageAnswer(double now);
QStringList claudeReport();
QStringList codexReport();

// The report's error lines.
QString claudeMissingLine();
QString codexMissingLine();
QString claudeHttpLine(int status);
QString codexHttpLine(int status);
// The whole report when neither service has a session.
QStringList noCredentialsReport();

// Creates the file and its folders, readable by its owner only.
bool writeOwnerOnly(const QString& path, const QByteArray& bytes);

// Sessions fresh for hours in `home`, and both usage endpoints answering
// them at once.
bool writeFreshSessions(const QString& home, double now);
void serveBothServices(TlsPeer& peer, double now);
} // namespace ServiceFixtures

} // namespace limitra::e2e
