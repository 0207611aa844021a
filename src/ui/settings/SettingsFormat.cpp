#include "ui/settings/SettingsFormat.h"

#include "model/AppSettings.h"

#include <algorithm>

namespace limitra {

SettingsFormat::SettingsFormat(QObject* parent)
    : QObject(parent)
{
}

QVariantList SettingsFormat::intervalChoices(int storedMinutes)
{
    QList<int> minutes = AppSettings::refreshIntervalOptions();
    if (!minutes.contains(storedMinutes))
        minutes.insert(std::lower_bound(minutes.begin(), minutes.end(), storedMinutes), storedMinutes);
    QVariantList choices;
    for (const int m : minutes)
        choices.append(QVariantMap {
            { QStringLiteral("text"), QStringLiteral("%1 min").arg(m) },
            { QStringLiteral("value"), m },
        });
    return choices;
}

QString SettingsFormat::percentExplanation(const QString& percentModeRaw)
{
    return percentModeRaw == QLatin1String("used")
        ? QStringLiteral("Se muestra el porcentaje consumido (p. ej. 16 % usado).")
        : QStringLiteral("Se muestra el porcentaje disponible (p. ej. 84 % restante).");
}

} // namespace limitra
