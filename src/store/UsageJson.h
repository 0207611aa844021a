#pragma once

#include "model/ServiceUsage.h"

#include <QByteArray>
#include <QJsonDocument>

#include <optional>
#include <utility>

namespace limitra::UsageJson {

// Both records as one document, Claude Code first:
//   {"services":[{"name","plan","updatedAt","error","rows":[{"id","title","usedPercent",
//   "leftPercent","resetsAt","resetsInSeconds","detail"}]}]}
// Moments are ISO 8601 UTC, seconds are counted from `now` (0 once passed), and
// absent values are null. `limitra --json` prints it; the tray hands it to
// `limitra --watch`.
QByteArray document(const ServiceUsage& claude, const ServiceUsage& codex, double now,
    QJsonDocument::JsonFormat format = QJsonDocument::Indented);

// The two records back from a document written by document(); nothing when the
// text is not one.
std::optional<std::pair<ServiceUsage, ServiceUsage>> parse(const QByteArray& json);

} // namespace limitra::UsageJson
