#pragma once

#include <QList>
#include <QString>
#include <QStringView>

#include <optional>

namespace limitra {

// What the tray label shows next to the gauge icon. Stored in the settings by
// its raw value.
struct MenuBarStyle
{
    enum Case { IconAndPercents, IconOnly, IconAndWorst };
    Case style = IconAndPercents;

    // Every case, in display order.
    static const QList<MenuBarStyle>& allCases();
    // Only the exact raw values name a case.
    static std::optional<MenuBarStyle> fromRawValue(QStringView raw);
    QString rawValue() const;

    friend bool operator==(const MenuBarStyle&, const MenuBarStyle&) = default;
};

} // namespace limitra
