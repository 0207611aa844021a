#include "watch/FetchProcess.h"

#include "services/claude/ClaudeProvider.h"
#include "services/codex/CodexProvider.h"
#include "store/UsageJson.h"

#include <QProcess>

namespace limitra::FetchProcess {

namespace {
// Well past the fetch's own time-outs (a minute for each of at most a few
// requests): only a child that hangs for good is cut off.
constexpr int kDeadlineMs = 10 * 60 * 1000;

std::optional<std::pair<ServiceUsage, ServiceUsage>> run(const QString& service)
{
    QProcess child;
    // The running program itself, even when an upgrade has replaced its file.
    child.setProgram(QStringLiteral("/proc/self/exe"));
    child.setArguments({ QStringLiteral("--fetch"), service });
    child.setStandardInputFile(QProcess::nullDevice());
    // Whatever it might say belongs to the bar's log, as the watch's own words.
    child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    child.start();
    // SIGTERM ends the watch without waiting here; the child then finishes
    // its fetch, and a token it refreshed is written back, before it ends on
    // the closed pipe.
    if (!child.waitForFinished(kDeadlineMs)) {
        child.kill();
        child.waitForFinished();
        return std::nullopt;
    }
    if (child.exitStatus() != QProcess::NormalExit || child.exitCode() != 0)
        return std::nullopt;
    return UsageJson::parse(child.readAllStandardOutput());
}

ServiceUsage failed(const QString& error)
{
    ServiceUsage usage;
    usage.error = error;
    return usage;
}
} // namespace

ServiceUsage claude()
{
    const auto records = run(QStringLiteral("claude"));
    return records ? records->first : failed(ClaudeProvider::statusError(0));
}

ServiceUsage codex()
{
    const auto records = run(QStringLiteral("codex"));
    return records ? records->second : failed(CodexProvider::httpMessage(0));
}

} // namespace limitra::FetchProcess
