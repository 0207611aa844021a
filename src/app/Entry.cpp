#include "app/Entry.h"

#include "app/CheckReport.h"
#include "app/GuiModule.h"
#include "platform/Environment.h"
#include "services/claude/ClaudeProvider.h"
#include "services/codex/CodexProvider.h"

#include <QFuture>
#include <QTextStream>
#include <QThreadPool>
#include <QtConcurrent/QtConcurrentRun>

#include <cstdio>
#include <thread>

namespace limitra::Entry {

Choice choose(const QStringList& arguments)
{
    if (arguments.contains(QStringLiteral("--check")))
        return { Mode::Check, {} };
    const qsizetype snapshot = arguments.indexOf(QStringLiteral("--snapshot"));
    if (snapshot < 0 || snapshot + 1 >= arguments.size())
        return { Mode::Application, {} };
    return { Mode::Snapshot, arguments.at(snapshot + 1) };
}

void runCheck(const platform::Environment& env, QTextStream& out)
{
    // A pool of its own guarantees two threads even on a single-core machine,
    // so the two requests always overlap.
    QThreadPool pool;
    pool.setMaxThreadCount(2);
    QFuture<ServiceUsage> claude = QtConcurrent::run(&pool, [&env] { return ClaudeProvider::fetch(env); });
    QFuture<ServiceUsage> codex = QtConcurrent::run(&pool, [&env] { return CodexProvider::fetch(env); });
    const ServiceUsage claudeUsage = claude.result();
    const ServiceUsage codexUsage = codex.result();

    for (const QString& line : CheckReport::lines(claudeUsage, codexUsage, env.now()))
        out << line << '\n';
    out.flush();
}

namespace {
// The command-line modes speak only through their own lines on stdout. Qt's
// diagnostics, such as the missing runtime folder of a shell without a desktop
// session, are not the program's to print; fatal ones still end the process.
void dropQtMessages(QtMsgType, const QMessageLogContext&, const QString&) { }
} // namespace

int main(int argc, char** argv)
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    const Choice choice = choose(arguments);
    if (choice.mode != Mode::Application)
        qInstallMessageHandler(&dropQtMessages);

    switch (choice.mode) {
    case Mode::Check: {
        // The check never touches the GUI, so it runs with no display and no
        // session bus; the main thread only waits for it.
        QTextStream out(stdout);
        std::thread task([&out] { runCheck(platform::Environment::system(), out); });
        task.join();
        break;
    }
    case Mode::Snapshot:
    case Mode::Application:
        GuiModule::run(argc, argv, choice);
        break;
    }
    return 0;
}

} // namespace limitra::Entry
