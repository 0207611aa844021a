#pragma once

#include <QString>
#include <QUrl>

#include <chrono>
#include <functional>
#include <memory>

namespace limitra::platform {

class Defaults;
class SecretStore;

// The service endpoints. The shipped binary always uses production(); tests
// point them at local servers.
struct Endpoints
{
    QUrl claudeUsage;
    QUrl claudeToken;
    QUrl codexUsage;
    QUrl codexToken;
    QUrl versionFeed;

    static Endpoints production();
    // Every endpoint on one base such as http://127.0.0.1:PORT, with its real path.
    static Endpoints at(const QUrl& base);
};

// Everything the stateless services reach in the world. system() is the real
// machine; tests build their own with a temporary home, local endpoints, a
// fixed clock and a short request time-out.
struct Environment
{
    QString home;
    QString loginName;
    Endpoints endpoints;
    // Seconds since the Unix epoch, with fraction.
    std::function<double()> now = &Environment::systemNow;
    std::shared_ptr<SecretStore> secrets;
    std::shared_ptr<Defaults> defaults;
    // When non-zero, no request waits longer than this (tests only).
    std::chrono::milliseconds timeoutCap { 0 };
    // Runs with the path of a file about to be replaced, once its new content
    // waits aside (tests only: a logout can land exactly there).
    std::function<void(const QString&)> beforeReplace;

    std::chrono::milliseconds timeout(std::chrono::milliseconds wanted) const;
    QString homePath(const QString& relative) const;

    static double systemNow();
    static Environment system();
};

} // namespace limitra::platform
