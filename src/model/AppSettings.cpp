#include "model/AppSettings.h"

#include "platform/Defaults.h"
#include "platform/LoginItem.h"

namespace limitra::AppSettings {

PercentMode percentMode(const platform::Defaults& defaults)
{
    return { defaults.percentMode() == QLatin1String("used") ? PercentMode::Used : PercentMode::Remaining };
}

const QList<int>& refreshIntervalOptions()
{
    static const QList<int> options { 1, 2, 5, 10, 15, 30 };
    return options;
}

bool setLaunchAtLogin(bool enabled)
{
    return setLaunchAtLogin(enabled, platform::LoginItem::autostartDirectory());
}

bool setLaunchAtLogin(bool enabled, const QString& directory)
{
    namespace LoginItem = platform::LoginItem;
    return enabled ? LoginItem::enable(directory, LoginItem::runningExecutable())
                   : LoginItem::disable(directory);
}

} // namespace limitra::AppSettings
