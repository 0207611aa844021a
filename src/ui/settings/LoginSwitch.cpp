#include "ui/settings/LoginSwitch.h"

#include "model/AppSettings.h"
#include "platform/LoginItem.h"

namespace limitra {

LoginSwitch::LoginSwitch(const QString& autostartDirectory, QObject* parent)
    : QObject(parent)
    , m_directory(autostartDirectory)
    , m_on(platform::LoginItem::isEnabled(autostartDirectory))
{
}

void LoginSwitch::request(bool wanted)
{
    // The switch itself already moved; the property follows it so that a
    // refusal below is a change back that QML sees.
    setOn(wanted);
    if (AppSettings::setLaunchAtLogin(wanted, m_directory))
        return;
    const bool real = platform::LoginItem::isEnabled(m_directory);
    if (!m_failed) {
        m_failed = true;
        Q_EMIT failedChanged();
    }
    // The entry is not touched again: it already is in the state shown.
    setOn(real);
}

void LoginSwitch::setOn(bool on)
{
    if (m_on == on)
        return;
    m_on = on;
    Q_EMIT onChanged();
}

} // namespace limitra
