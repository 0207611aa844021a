#pragma once

#include <QString>

class QTextStream;

namespace limitra {

class UsageStore;
namespace platform {
    class Defaults;
}

// `limitra --snapshot <path>`: refresh once, draw the panel into a PNG, say so.
struct SnapshotMode
{
    // The whole mode, from a process without an application: draws off screen,
    // so it needs neither a display nor a session bus. Always returns 0.
    static int main(int argc, char** argv, const QString& path);

    // With an application running: awaits one refresh of `store` (the event
    // loop keeps turning), renders the panel, writes the PNG to `path` and
    // prints "Snapshot: <path>" or "No pude renderizar el snapshot" on `out`.
    // A file that cannot be written is not reported.
    static void run(UsageStore& store, platform::Defaults& settings, const QString& path, QTextStream& out);

    // The panel's PNG for the store's current records; empty when drawing failed.
    static QByteArray renderPng(UsageStore& store, platform::Defaults& settings);
};

} // namespace limitra
