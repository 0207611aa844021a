#pragma once

namespace limitra::platform::QuitSignals {

// Makes SIGTERM and SIGINT end the running Qt event loop cleanly (through
// QCoreApplication::quit) instead of killing the process mid-write. Call once,
// after the application object exists.
void install();

} // namespace limitra::platform::QuitSignals
