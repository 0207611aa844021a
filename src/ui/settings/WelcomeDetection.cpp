#include "ui/settings/WelcomeDetection.h"

#include "services/claude/ClaudeProvider.h"
#include "services/claude/KeychainHelper.h"
#include "services/codex/CodexProvider.h"

#include <QFileInfo>
#include <QtConcurrent/QtConcurrentRun>

namespace limitra {

namespace {
// Only existence counts: an empty or broken file still shows the tool was used.
bool exists(const platform::Environment& env, const QString& relative)
{
    return !env.home.isEmpty() && QFileInfo(env.homePath(relative)).isFile();
}
} // namespace

WelcomeDetection::WelcomeDetection(const platform::Environment& env, QObject* parent)
    : QObject(parent)
    , m_env(env)
{
}

WelcomeDetection::Found WelcomeDetection::look(const platform::Environment& env)
{
    Found found;
    found.codex = exists(env, CodexProvider::authFile);
    // Claude Code's own item; the program's copy of it does not count.
    found.claude
        = (env.secrets && KeychainHelper::read(*env.secrets, ClaudeProvider::claudeCodeService))
        || exists(env, ClaudeProvider::credentialsFile);
    return found;
}

void WelcomeDetection::start()
{
    const int generation = ++m_generation;
    if (m_ready) {
        m_ready = false;
        Q_EMIT detected();
    }
    QtConcurrent::run([env = m_env] { return look(env); }).then(this, [this, generation](Found found) {
        if (generation != m_generation)
            return;
        m_claude = found.claude;
        m_codex = found.codex;
        m_ready = true;
        Q_EMIT detected();
    });
}

} // namespace limitra
