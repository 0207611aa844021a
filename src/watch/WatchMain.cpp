// The entry point of the watch module.
#include "app/GuiModule.h"
#include "watch/WatchMode.h"

#include <QtGlobal>

#include <type_traits>

extern "C" Q_DECL_EXPORT int limitra_watch_main(int argc, char** argv)
{
    // The executable calls this through GuiModule::WatchEntryPoint: the two must agree.
    static_assert(std::is_same_v<decltype(&limitra_watch_main), limitra::GuiModule::WatchEntryPoint>);
    return limitra::WatchMode::main(argc, argv);
}
