#include "app/Entry.h"

#include "app/CheckReport.h"
#include "app/GuiModule.h"
#include "platform/Environment.h"
#include "services/claude/ClaudeProvider.h"
#include "services/codex/CodexProvider.h"
#include "store/UsageJson.h"
#include "update/UpdateChecker.h"

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
    if (const qsizetype fetch = arguments.indexOf(QStringLiteral("--fetch")); fetch >= 0) {
        const QString service = arguments.value(fetch + 1);
        if (service == u"claude" || service == u"codex")
            return { Mode::Fetch, service };
    }
    const std::pair<const char*, Mode> options[] = { { "--json", Mode::Json }, { "--watch", Mode::Watch },
        { "--help", Mode::Help }, { "--version", Mode::Version } };
    for (const auto& [option, mode] : options)
        if (arguments.contains(QLatin1String(option)))
            return { mode, {} };
    const qsizetype snapshot = arguments.indexOf(QStringLiteral("--snapshot"));
    if (snapshot < 0 || snapshot + 1 >= arguments.size())
        return { Mode::Application, {} };
    return { Mode::Snapshot, arguments.at(snapshot + 1) };
}

namespace {
std::pair<ServiceUsage, ServiceUsage> fetchBoth(const platform::Environment& env)
{
    // A pool of its own guarantees two threads even on a single-core machine,
    // so the two requests always overlap.
    QThreadPool pool;
    pool.setMaxThreadCount(2);
    QFuture<ServiceUsage> claude = QtConcurrent::run(&pool, [&env] { return ClaudeProvider::fetch(env); });
    QFuture<ServiceUsage> codex = QtConcurrent::run(&pool, [&env] { return CodexProvider::fetch(env); });
    const ServiceUsage claudeUsage = claude.result();
    return { claudeUsage, codex.result() };
}
} // namespace

void runCheck(const platform::Environment& env, QTextStream& out)
{
    const auto [claude, codex] = fetchBoth(env);
    for (const QString& line : CheckReport::lines(claude, codex, env.now()))
        out << line << '\n';
    out.flush();
}

void runJson(const platform::Environment& env, QTextStream& out)
{
    const auto [claude, codex] = fetchBoth(env);
    out << QString::fromUtf8(UsageJson::document(claude, codex, env.now()));
    out.flush();
}

void runFetch(const platform::Environment& env, const QString& service, QTextStream& out)
{
    const bool claude = service == QLatin1String("claude");
    const ServiceUsage usage = claude ? ClaudeProvider::fetch(env) : CodexProvider::fetch(env);
    out << QString::fromUtf8(UsageJson::document(claude ? usage : ServiceUsage {},
        claude ? ServiceUsage {} : usage, env.now(), QJsonDocument::Compact));
    out.flush();
}

QString helpText()
{
    return QStringLiteral("Uso: limitra [OPCIÓN]\n"
                          "Muestra cuánto queda de los límites de uso de Claude Code y Codex.\n"
                          "\n"
                          "  (sin opciones)    abre la aplicación de la bandeja del sistema\n"
                          "  --check           imprime un informe de los dos servicios y termina\n"
                          "  --json            imprime el mismo informe como un documento JSON\n"
                          "  --watch           imprime una línea JSON tras cada actualización, para barras "
                          "de estado\n"
                          "  --snapshot RUTA   guarda el panel de límites como imagen PNG en RUTA\n"
                          "  --help            muestra esta ayuda\n"
                          "  --version         muestra la versión\n");
}

QString versionText()
{
    return QStringLiteral("limitra ") + UpdateChecker::currentVersion() + u'\n';
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
    case Mode::Check:
    case Mode::Json:
    case Mode::Fetch: {
        // The check never touches the GUI, so it runs with no display and no
        // session bus; the main thread only waits for it.
        QTextStream out(stdout);
        std::thread task([&out, &choice] {
            const platform::Environment env = platform::Environment::system();
            if (choice.mode == Mode::Fetch)
                runFetch(env, choice.argument, out);
            else
                (choice.mode == Mode::Json ? runJson : runCheck)(env, out);
        });
        task.join();
        break;
    }
    case Mode::Help:
    case Mode::Version:
        QTextStream(stdout) << (choice.mode == Mode::Help ? helpText() : versionText());
        break;
    case Mode::Watch:
        GuiModule::runWatch(argc, argv);
        break;
    case Mode::Snapshot:
    case Mode::Application:
        GuiModule::run(argc, argv, choice);
        break;
    }
    return 0;
}

} // namespace limitra::Entry
