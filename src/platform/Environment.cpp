#include "platform/Environment.h"

#include "platform/Defaults.h"
#include "platform/Files.h"
#include "platform/SecretStore.h"

#include <QDir>

namespace limitra::platform {

Endpoints Endpoints::production()
{
    return {
        QUrl(QStringLiteral("https://api.anthropic.com/api/oauth/usage")),
        QUrl(QStringLiteral("https://platform.claude.com/v1/oauth/token")),
        QUrl(QStringLiteral("https://chatgpt.com/backend-api/wham/usage")),
        QUrl(QStringLiteral("https://auth.openai.com/oauth/token")),
        QUrl(QStringLiteral("https://limitra.app/api/version.json")),
    };
}

Endpoints Endpoints::at(const QUrl& base)
{
    const auto with = [&](const QString& path) {
        QUrl url(base);
        url.setPath(path);
        return url;
    };
    return {
        with(QStringLiteral("/api/oauth/usage")),
        with(QStringLiteral("/v1/oauth/token")),
        with(QStringLiteral("/backend-api/wham/usage")),
        with(QStringLiteral("/oauth/token")),
        with(QStringLiteral("/api/version.json")),
    };
}

std::chrono::milliseconds Environment::timeout(std::chrono::milliseconds wanted) const
{
    if (timeoutCap.count() > 0 && timeoutCap < wanted)
        return timeoutCap;
    return wanted;
}

QString Environment::homePath(const QString& relative) const
{
    return QDir(home).filePath(relative);
}

double Environment::systemNow()
{
    using namespace std::chrono;
    return duration<double>(system_clock::now().time_since_epoch()).count();
}

Environment Environment::system()
{
    Environment env;
    env.home = Files::homeDirectory();
    env.loginName = Files::loginName();
    env.endpoints = Endpoints::production();
    env.secrets = SecretStore::system();
    env.defaults = Defaults::system();
    return env;
}

} // namespace limitra::platform
