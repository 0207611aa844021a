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

    // Keeps a source's document only when it holds a session with a refresh
    // token; whatever its content, it travels encoded in a request body.
    const auto append = [&lineages](const QByteArray& bytes) {
        const std::optional<QJsonObject> creds = platform::Json::parseObject(bytes);
        if (!creds)
            return;
        const std::optional<QJsonObject> oauth = platform::Json::object(*creds, u"claudeAiOauth");
        if (!oauth || !platform::Json::string(*oauth, u"refreshToken"))
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

    // Only a file that is still there is replaced: a logout meanwhile stays one.
    platform::Files::replaceExisting(env.homePath(credentialsFile), bytes, env.beforeReplace);

    if (env.secrets)
        KeychainHelper::upsertOwn(*env.secrets, ownService, ownAccount, bytes);
}

} // namespace limitra::ClaudeProvider
