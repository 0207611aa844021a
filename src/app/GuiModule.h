#pragma once

#include "app/Entry.h"

namespace limitra {

// The tray application and the snapshot live in a module of their own, loaded
// only for those modes, so that `limitra --check` never maps a GUI library.
namespace GuiModule {
// The module's one exported function, with C linkage so it can be looked up by name.
using EntryPoint = int (*)(int argc, char** argv, int mode, const char* snapshotPath);
inline constexpr char kEntryPointName[] = "limitra_gui_main";
inline constexpr char kFileName[] = "limitra-gui.so";

// The watch mode lives in a module of its own too: it needs the session bus,
// which the check must not map, and no GUI library.
using WatchEntryPoint = int (*)(int argc, char** argv);
inline constexpr char kWatchEntryPointName[] = "limitra_watch_main";
inline constexpr char kWatchFileName[] = "limitra-watch.so";

// Loads the module (beside the executable in a build tree, else in the
// installed library folder) and runs the chosen GUI mode in it. When the
// module cannot be loaded it says so: the snapshot with its usual failure
// line on stdout, the application on stderr. Always returns 0.
int run(int argc, char** argv, const Entry::Choice& choice);
// Loads the watch module the same way and runs it until SIGTERM. Always returns 0.
int runWatch(int argc, char** argv);
} // namespace GuiModule

} // namespace limitra
