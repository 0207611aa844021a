// The entry point of the GUI module: the tray application and the snapshot.
#include "app/Entry.h"
#include "app/GuiModule.h"
#include "app/LimitraApp.h"
#include "ui/snapshot/SnapshotMode.h"

#include <QString>
#include <QtGlobal>

#include <type_traits>

extern "C" Q_DECL_EXPORT int limitra_gui_main(int argc, char** argv, int mode, const char* snapshotPath)
{
    // The executable calls this through GuiModule::EntryPoint: the two must agree.
    static_assert(std::is_same_v<decltype(&limitra_gui_main), limitra::GuiModule::EntryPoint>);
    using limitra::Entry::Mode;
    switch (static_cast<Mode>(mode)) {
    case Mode::Snapshot:
        return limitra::SnapshotMode::main(argc, argv, QString::fromLocal8Bit(snapshotPath));
    case Mode::Application:
        return limitra::LimitraApp::main(argc, argv);
    case Mode::Check:
    case Mode::Json:
    case Mode::Watch:
    case Mode::Help:
    case Mode::Version:
    case Mode::Fetch:
        break;
    }
    return 0;
}
