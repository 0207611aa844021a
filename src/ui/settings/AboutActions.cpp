#include "ui/settings/AboutActions.h"

#include "ui/panel/PanelFormat.h"
#include "update/UpdateChecker.h"

#include <QtConcurrent/QtConcurrentRun>

namespace limitra {

AboutActions::AboutActions(const platform::Environment& env, UrlOpener opener, QObject* parent)
    : QObject(parent)
    , m_env(env)
    , m_opener(std::move(opener))
{
}

QString AboutActions::versionLine(const QString& builtVersion)
{
    // The update checker compares a build without a version as "0".
    const bool none = builtVersion.isEmpty() || builtVersion == QLatin1String("0");
    return QStringLiteral("Versión ") + (none ? QStringLiteral("dev") : builtVersion);
}

QString AboutActions::versionLine() const
{
    return versionLine(UpdateChecker::currentVersion());
}

void AboutActions::checkForUpdates()
{
    if (m_checking)
        return;
    setChecking(true);
    setResult({});
    QtConcurrent::run([env = m_env] {
        return UpdateChecker::check(env);
    }).then(this, [this](const std::optional<UpdateInfo>& info) {
        if (info) {
            setResult(PanelFormat::bannerTitle(info->version));
            if (m_opener)
                m_opener(info->downloadURL);
        } else {
            setResult(QStringLiteral("Tienes la versión más reciente"));
        }
        setChecking(false);
    });
}

void AboutActions::openWelcome()
{
    Q_EMIT welcomeRequested();
}

void AboutActions::setChecking(bool checking)
{
    if (m_checking == checking)
        return;
    m_checking = checking;
    Q_EMIT checkingChanged();
}

void AboutActions::setResult(const QString& result)
{
    if (m_result == result)
        return;
    m_result = result;
    Q_EMIT resultChanged();
}

} // namespace limitra
