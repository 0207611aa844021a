#pragma once

#include "model/PercentMode.h"

#include <QList>
#include <QString>

namespace limitra {

namespace platform {
class Defaults;
}

// Settings helpers shared by the store, the views and the settings window.
namespace AppSettings {
// "used" only for the exact stored string "used"; anything else is remaining.
PercentMode percentMode(const platform::Defaults& defaults);

// The refresh intervals offered in the settings, in minutes, in order.
const QList<int>& refreshIntervalOptions();

// Registers or unregisters the program as started at login; false when
// that could not be done. Nothing is stored in the settings.
bool setLaunchAtLogin(bool enabled);
// The same in the given autostart folder instead of the user's.
bool setLaunchAtLogin(bool enabled, const QString& autostartDirectory);
} // namespace AppSettings

} // namespace limitra
