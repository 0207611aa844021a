#pragma once

#include <QObject>
#include <QString>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>

namespace limitra {

// The texts and choices of the General tab that derive from stored settings,
// so the QML only lays them out. Stateless.
class SettingsFormat : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON

public:
    explicit SettingsFormat(QObject* parent = nullptr);

    // The interval choices as { text: "5 min", value: 5 }, in increasing order.
    // A stored value that is none of the offered ones is listed as well, in its
    // place, so the picker shows it instead of silently changing it.
    Q_INVOKABLE static QVariantList intervalChoices(int storedMinutes);
    // The line under the "Mostrar como" picker; anything but "used" is remaining.
    Q_INVOKABLE static QString percentExplanation(const QString& percentModeRaw);
};

} // namespace limitra
