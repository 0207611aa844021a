#pragma once

#include <QString>

namespace limitra {

// Where the running tray application offers its records on the session bus, so
// that `limitra --watch` shows them instead of fetching the same tokens again.
// The tray holds the name as the one instance of the user.
namespace TrayBus {
inline const QString kService = QStringLiteral("app.limitra.Limitra");
inline const QString kPath = QStringLiteral("/Usage");
inline const QString kInterface = QStringLiteral("app.limitra.Usage");
// Methods: Records() -> s (UsageJson's document), Refresh(). Signal: RecordsChanged(),
// after each refresh of the tray's store.
} // namespace TrayBus

} // namespace limitra
