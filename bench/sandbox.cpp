// limitra_bench_sandbox: run inside tests/e2e/sandbox.sh, runs a command
// while both services answer over TLS from 127.0.0.1 and HOME holds fresh
// sessions.
//
//   sandbox.sh limitra_bench_sandbox [--delay-ms D] [--env NAME=VALUE]... -- COMMAND [ARG...]
//       runs COMMAND once with the terminal's output and gives its status;
//   sandbox.sh limitra_bench_sandbox --runs N [--delay-ms D] -- COMMAND [ARG...]
//       runs it once to warm up, then N times with its output discarded, and
//       prints the wall time (mean, median, 95th percentile) and the peak
//       resident memory of the runs.
//
// The command sees the environment of a user without a desktop session
// (HOME, PATH and LANG only) with each --env set over it. "{home}" in an argument or --env value stands
// for the sandbox's home folder.

#include "support/FakePeer.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcessEnvironment>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <numeric>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

struct Sample
{
    double ms = 0;
    long maxRssKiB = 0;
    int status = -1;
};

// Holds the argument and environment strings for execve in one place.
struct Command
{
    std::vector<std::string> arguments;
    std::vector<std::string> environment;

    Sample run(bool quiet) const
    {
        std::vector<char*> argv;
        for (const std::string& a : arguments)
            argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        std::vector<char*> envp;
        for (const std::string& e : environment)
            envp.push_back(const_cast<char*>(e.c_str()));
        envp.push_back(nullptr);

        const auto start = std::chrono::steady_clock::now();
        const pid_t pid = ::fork();
        if (pid == 0) {
            if (quiet) {
                const int null = ::open("/dev/null", O_WRONLY);
                ::dup2(null, STDOUT_FILENO);
                ::dup2(null, STDERR_FILENO);
            }
            ::execvpe(argv[0], argv.data(), envp.data());
            ::_exit(127);
        }
        Sample sample;
        rusage usage {};
        int status = 0;
        if (pid < 0 || ::wait4(pid, &status, 0, &usage) != pid)
            return sample;
        sample.ms
            = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
        sample.maxRssKiB = usage.ru_maxrss;
        sample.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return sample;
    }
};

int usage()
{
    std::fprintf(stderr,
        "usage: sandbox.sh limitra_bench_sandbox [--runs N] [--delay-ms D] [--env NAME=VALUE]... "
        "-- COMMAND [ARG...]\n");
    return 2;
}

int measure(const Command& command, int runs)
{
    if (command.run(true).status != 0) {
        std::fprintf(stderr, "%s fails in the sandbox\n", command.arguments.front().c_str());
        return 1;
    }
    std::vector<double> times;
    long peakKiB = 0;
    for (int i = 0; i < runs; ++i) {
        const Sample sample = command.run(true);
        if (sample.status != 0) {
            std::fprintf(stderr, "run %d ended with status %d\n", i + 1, sample.status);
            return 1;
        }
        times.push_back(sample.ms);
        peakKiB = std::max(peakKiB, sample.maxRssKiB);
    }
    std::sort(times.begin(), times.end());
    const double mean = std::accumulate(times.begin(), times.end(), 0.0) / static_cast<double>(times.size());
    const std::size_t mid = times.size() / 2;
    const double median = times.size() % 2 ? times[mid] : (times[mid - 1] + times[mid]) / 2;
    const auto rank = static_cast<std::size_t>(std::ceil(0.95 * static_cast<double>(times.size())));
    const double p95 = times[std::max<std::size_t>(rank, 1) - 1];
    std::printf("mean %7.1f ms   median %7.1f ms   p95 %7.1f ms   peak RSS %6.1f MiB\n", mean, median, p95,
        static_cast<double>(peakKiB) / 1024.0);
    return 0;
}

bool writeOwnerOnly(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly)
        && file.setPermissions(QFile::ReadOwner | QFile::WriteOwner) && file.write(bytes) == bytes.size();
}

QByteArray iso(double moment)
{
    return QDateTime::fromMSecsSinceEpoch(qint64(moment * 1000), Qt::UTC)
        .toString(Qt::ISODateWithMs)
        .toUtf8();
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    int runs = 0;
    int delayMs = 0;
    QStringList extraEnvironment;
    int first = 1;
    for (; first < argc && std::string(argv[first]) != "--"; ++first) {
        const std::string option = argv[first];
        if (first + 1 >= argc)
            return usage();
        if (option == "--runs")
            runs = std::atoi(argv[++first]);
        else if (option == "--delay-ms")
            delayMs = std::atoi(argv[++first]);
        else if (option == "--env" && std::strchr(argv[first + 1], '='))
            extraEnvironment.append(QString::fromLocal8Bit(argv[++first]));
        else
            return usage();
    }
    if (first + 1 >= argc || runs < 0 || delayMs < 0)
        return usage();

    limitra::test::FakePeer peer(
        qEnvironmentVariable("LIMITRA_PEER_CERT"), qEnvironmentVariable("LIMITRA_PEER_KEY"), 443);
    if (!peer.isListening()) {
        std::fprintf(stderr, "no TLS peer on 127.0.0.1:443: run this inside tests/e2e/sandbox.sh\n");
        return 1;
    }
    const QString home = QStringLiteral("/tmp/bench-home");
    const double now = static_cast<double>(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
    if (!writeOwnerOnly(home + QStringLiteral("/.claude/.credentials.json"),
            R"({"claudeAiOauth":{"accessToken":"at","refreshToken":"rt","expiresAt":)"
                + QByteArray::number(qint64((now + 28800) * 1000)) + R"(,"subscriptionType":"max"}})")
        || !writeOwnerOnly(home + QStringLiteral("/.codex/auth.json"),
            R"({"tokens":{"access_token":"at","refresh_token":"rt","account_id":"acc"}})")) {
        std::fprintf(stderr, "cannot write the sessions into %s\n", qPrintable(home));
        return 1;
    }
    auto claude = limitra::test::PeerAnswer::json(200,
        R"({"limits":[{"kind":"session","percent":12.5,"resets_at":")" + iso(now + 14850)
            + R"("},{"kind":"weekly_all","percent":40,"resets_at":")" + iso(now + 192600)
            + R"("}],"spend":{"enabled":true,"used":{"amount_minor":1234},"limit":{"amount_minor":5000}}})");
    auto codex = limitra::test::PeerAnswer::json(200,
        R"({"plan_type":"pro","rate_limit":{"primary_window":{"used_percent":7,"limit_window_seconds":18000,)"
        R"("reset_after_seconds":11430},"secondary_window":{"used_percent":30,"limit_window_seconds":604800,)"
        R"("reset_after_seconds":600000}}})");
    claude.delay = codex.delay = std::chrono::milliseconds(delayMs);
    peer.on("api.anthropic.com GET", "/api/oauth/usage", claude);
    peer.on("chatgpt.com GET", "/backend-api/wham/usage", codex);

    Command command;
    for (int i = first + 1; i < argc; ++i)
        command.arguments.push_back(
            QString::fromLocal8Bit(argv[i]).replace(QStringLiteral("{home}"), home).toStdString());
    QProcessEnvironment environment;
    environment.insert(QStringLiteral("HOME"), home);
    environment.insert(QStringLiteral("PATH"), QStringLiteral("/usr/local/bin:/usr/bin:/bin"));
    environment.insert(QStringLiteral("LANG"), QStringLiteral("C.UTF-8"));
    for (const QString& entry : extraEnvironment) {
        const qsizetype equals = entry.indexOf(u'=');
        environment.insert(entry.left(equals), entry.mid(equals + 1).replace(QStringLiteral("{home}"), home));
    }
    for (const QString& entry : environment.toStringList())
        command.environment.push_back(entry.toStdString());

    if (runs == 0)
        return command.run(false).status;
    return measure(command, runs);
}
