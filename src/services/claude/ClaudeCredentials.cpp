#include "services/claude/ClaudeProvider.h"

#include "platform/Environment.h"
#include "platform/Files.h"
#include "platform/Json.h"
#include "platform/SecretStore.h"
#include "services/claude/KeychainHelper.h"

#include <algorithm>

namespace limitra::ClaudeProvider {

namespace {
double expiresAt(const Lineage& lineage)
{
    return platform::Json::number(lineage.oauth, u"expiresAt").value_or(0);
}
} // namespace

QList<Lineage> loadLineages(const platform::Environment& env)
{
    QList<Lineage> lineages;

    // Keeps a source's document only when it holds a session with a usable refresh token.
    const auto append = [&lineages](const QByteArray& bytes) {
        const std::optional<QJsonObject> creds = platform::Json::parseObject(bytes);
        if (!creds)
            return;
        const std::optional<QJsonObject> oauth = platform::Json::object(*creds, u"claudeAiOauth");
        if (!oauth || !platform::Json::token(*oauth, u"refreshToken"))
            return;
        lineages.append(Lineage { *creds, *oauth });
    };

    if (env.secrets) {
        if (const auto item = KeychainHelper::read(*env.secrets, claudeCodeService))
            append(item->data);
        if (const auto item = KeychainHelper::read(*env.secrets, ownService))
            append(item->data);
    }
    if (const auto bytes = platform::Files::read(env.homePath(credentialsFile)))
        append(*bytes);

    std::stable_sort(lineages.begin(), lineages.end(),
        [](const Lineage& a, const Lineage& b) { return expiresAt(a) > expiresAt(b); });
    return lineages;
}

void persist(const platform::Environment& env, const QJsonObject& document)
{
    const QByteArray bytes = platform::Json::compact(document);
    if (bytes.isEmpty())
        return;

    // Claude Code's item is only ever rewritten, under the account it already has.
    if (env.secrets && KeychainHelper::read(*env.secrets, claudeCodeService)) {
        const auto again = KeychainHelper::read(*env.secrets, claudeCodeService);
        const QString account = again ? again->account : env.loginName;
        KeychainHelper::saveVerified(*env.secrets, claudeCodeService, account, bytes);
    }

    const QString file = env.homePath(credentialsFile);
    if (platform::Files::exists(file))
        platform::Files::writeAtomic(file, bytes);

    if (env.secrets)
        KeychainHelper::upsertOwn(*env.secrets, ownService, ownAccount, bytes);
}

} // namespace limitra::ClaudeProvider
