#pragma once

#include "model/LimitRow.h"
#include "model/ServiceUsage.h"

#include <QJsonObject>
#include <QLatin1String>
#include <QList>

namespace limitra {

namespace platform {
struct Environment;
}

// The Codex usage limits of the user logged in to the Codex command-line tool,
// read with the session stored in ~/.codex/auth.json. Stateless: every fetch
// reads the file afresh, and a refreshed session is written back to it.
namespace CodexProvider {
// The session file, relative to the home folder.
inline constexpr QLatin1String authFile { ".codex/auth.json" };

// The OAuth client identifier sent with every token refresh.
inline constexpr char clientId[] = "app_Zq8RtLw2Nc5VyH0dKs3Bpxme";

// The error text for an answer with this status; 0 when none came.
QString httpMessage(int status);

// Blocking; call it from a worker thread. Never fails outward: every
// failure becomes the record's Spanish error text.
ServiceUsage fetch(const platform::Environment& env);

// The rows of a decoded usage answer: the primary window, then the
// secondary one, each only when present. `now` places relative reset times.
QList<LimitRow> parseRows(const QJsonObject& answer, double now);
} // namespace CodexProvider

} // namespace limitra
