#pragma once

#include "model/ServiceUsage.h"

#include <QString>

#include <optional>

namespace limitra::MenuBarText {

// The lowest left percentage among the rows that have a reset moment.
std::optional<double> worstLeft(const ServiceUsage& usage);

// The lowest worstLeft among the shown services: the "lowest %" style's number
// and the tray gauge's needle.
std::optional<double> lowestLeft(
    const ServiceUsage& claude, const ServiceUsage& codex, bool showClaude, bool showCodex);

// The short text beside the tray icon, e.g. "C 84% · X 61%", "25%" or "".
QString compose(const ServiceUsage& claude, const ServiceUsage& codex, bool showClaude, bool showCodex,
    const QString& menuBarStyle, const QString& percentMode);

} // namespace limitra::MenuBarText
