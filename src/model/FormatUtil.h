#pragma once

#include <QString>

#include <optional>

namespace limitra {

// Date helpers shared by the service clients and the views. Moments are
// seconds since 1970-01-01 00:00:00 UTC. Safe from any thread: no state.
namespace FormatUtil {
// An internet date-time such as 2025-03-01T12:34:56.789Z or
// 2025-03-01T12:34:56+02:00 (fraction optional, any number of digits);
// anything else, including an absent text, gives nothing.
std::optional<double> parseISODate(const std::optional<QString>& text);

// How long ago `date` was, e.g. "hace 2 h 5 min"; the future reads "hace 0 s".
QString ago(double date, double now);

// Time left until `to`, e.g. "2d 5h", "4h 7m", "12m", or "ahora".
QString countdown(double to, double from);

// UTC with milliseconds and "Z", e.g. 2025-03-01T12:34:56.789Z.
QString iso8601Fractional(double moment);
} // namespace FormatUtil

} // namespace limitra
