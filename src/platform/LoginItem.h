#pragma once

#include <QString>

namespace limitra::platform {

// Start at login through an XDG autostart entry, limitra.desktop in the user's
// autostart folder. The entry counts as enabled while the file exists and is
// not marked Hidden=true. The functions taking a directory act on that folder
// instead of the user's (tests use a temporary one).
namespace LoginItem {
// $XDG_CONFIG_HOME/autostart, or ~/.config/autostart when that is unset or relative.
QString autostartDirectory();
QString entryPath(const QString& directory);

bool isEnabled();
bool isEnabled(const QString& directory);

// Writes the entry so that it starts `executable`; false when the folder or
// file cannot be written or the path is empty.
bool enable(const QString& directory, const QString& executable);
// Removes the entry file (a link, not what it points to) and nothing else;
// true when none is left (also when there was none).
bool disable(const QString& directory);

// The Exec= value that runs `executable` with no arguments, quoted and
// escaped as desktop entries require.
QString execValue(const QString& executable);

// The absolute path of the running program (the AppImage file when run
// from one), or empty when it cannot be found.
QString runningExecutable();

// Where the install step puts the program (e.g. /usr/bin/limitra).
QString installedExecutable();

// The program a login entry should start: `installed` as written when
// `running` is that same file (however it was reached), else `running`.
QString programToStart(const QString& running, const QString& installed);
} // namespace LoginItem

} // namespace limitra::platform
