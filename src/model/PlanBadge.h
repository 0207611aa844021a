#pragma once

#include <QString>

#include <optional>

namespace limitra {

// The plan name a service reports, shown with its first character in upper
// case ("max" → "Max"); an empty or missing plan shows no badge.
std::optional<QString> planBadge(const std::optional<QString>& plan);

} // namespace limitra
