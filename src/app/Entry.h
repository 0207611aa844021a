#pragma once

#include <QString>
#include <QStringList>

class QTextStream;

namespace limitra {

namespace platform {
struct Environment;
}

// The process entry: picks one of the three ways to run from the argument list.
namespace Entry {
enum class Mode {
    Check, // fetch both services once and print the report
    Snapshot, // render the panel into a PNG file
    Application, // the tray application
    Json, // the check's report as one JSON document
    Watch, // a line of JSON for status bars after each refresh, until SIGTERM
    Help, // a short usage
    Version, // "limitra 1.0.0"
    Fetch, // one service's record as UsageJson's document: the watch mode's child, never typed by hand
};

struct Choice
{
    Mode mode = Mode::Application;
    QString argument; // the path of Mode::Snapshot, the service ("claude", "codex") of Mode::Fetch
};

// "--check" anywhere (the program path included) wins, then "--fetch" before
// "claude" or "codex", then "--json", "--watch", "--help" and "--version" in
// this order; otherwise the first "--snapshot" takes the element after it as
// the path; a "--snapshot" without a path, like no option at all, starts the
// application.
Choice choose(const QStringList& arguments);

// Runs the chosen mode to its end. The exit status is always 0.
int main(int argc, char** argv);

// Fetches Claude and Codex concurrently on worker threads, waits for Claude
// then Codex, and writes the report to `out`. Blocking: call it off the
// main thread.
void runCheck(const platform::Environment& env, QTextStream& out);
// The same fetches, written as UsageJson's document.
void runJson(const platform::Environment& env, QTextStream& out);
// One service's fetch in the same document, the other service's record empty.
void runFetch(const platform::Environment& env, const QString& service, QTextStream& out);

// The texts of --help and --version, each ending in a newline.
QString helpText();
QString versionText();
} // namespace Entry

} // namespace limitra
