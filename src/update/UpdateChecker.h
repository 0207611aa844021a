#pragma once

#include "update/UpdateInfo.h"

#include <QString>
#include <QStringView>

#include <optional>

namespace limitra {

namespace platform {
struct Environment;
}

// Looks at the version feed and tells whether a newer version was published.
// Blocking: call from a worker thread. Every failure gives no result.
namespace UpdateChecker {
// Reads the feed now. A valid feed stamps "lastUpdateCheck", newer or not.
std::optional<UpdateInfo> check(const platform::Environment& env);

// check() when more than a day has passed since the last valid read;
// otherwise no result and no network access.
std::optional<UpdateInfo> checkIfDue(const platform::Environment& env);

// The running program's version, "0" when none was built in.
QString currentVersion();

// Whether dotted version `a` is strictly newer than `than`, numerically,
// with missing components counting as 0 (2 equals 2.0.0).
bool isNewer(QStringView a, QStringView than);
} // namespace UpdateChecker

} // namespace limitra
