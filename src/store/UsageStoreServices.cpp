#include "store/UsageStore.h"

#include "services/claude/ClaudeProvider.h"
#include "services/codex/CodexProvider.h"
#include "update/UpdateChecker.h"

namespace limitra {

UsageStore::Services UsageStore::Services::real(const platform::Environment& env)
{
    return {
        [env] { return ClaudeProvider::fetch(env); },
        [env] { return CodexProvider::fetch(env); },
        [env] { return UpdateChecker::checkIfDue(env); },
    };
}

UsageStore::UsageStore(platform::Environment env, QObject* parent)
    : UsageStore(env, Services::real(env), parent)
{
}

} // namespace limitra
