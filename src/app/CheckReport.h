#pragma once

#include "model/ServiceUsage.h"

#include <QStringList>

namespace limitra {

// The plain-text report of `--check`.
namespace CheckReport {
// The report lines without their newlines: Claude Code first, then Codex;
// for each a header, the error when there is one, then one line per row
// (rows are listed even next to an error). Reset countdowns are measured
// from `now`, in seconds since the Unix epoch.
QStringList lines(const ServiceUsage& claude, const ServiceUsage& codex, double now);

// A number as C's printf("%.0f") writes it, ties and "-0" included.
QString wholeNumber(double value);
} // namespace CheckReport

} // namespace limitra
