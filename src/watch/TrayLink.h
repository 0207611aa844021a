#pragma once

#include "model/ServiceUsage.h"

#include <optional>
#include <utility>

class QObject;

namespace limitra {

// The watch mode's view of a tray application of the same user on the session
// bus. Without a bus, or with no tray on it, every call gives nothing at once.
// Safe from any thread.
namespace TrayLink {
// The tray's current records (Claude Code, Codex), or nothing when no tray answers.
std::optional<std::pair<ServiceUsage, ServiceUsage>> records();
// Asks the tray for a refresh; false when no tray runs.
bool requestRefresh();
// Calls `slot` of `receiver` after each refresh of a tray, now or later started.
void onRecordsChanged(QObject* receiver, const char* slot);
} // namespace TrayLink

} // namespace limitra
