#pragma once

#include <QList>
#include <QString>
#include <QStringView>

#include <optional>

namespace limitra {

// Whether percentages show what is left of a limit or what is used. Stored in
// the settings by its raw value.
struct PercentMode
{
    enum Case { Remaining, Used };
    Case mode = Remaining;

    // Every case, in display order.
    static const QList<PercentMode>& allCases();
    // Only the exact raw values ("remaining", "used") name a case.
    static std::optional<PercentMode> fromRawValue(QStringView raw);
    QString rawValue() const;

    // The whole number shown for a row with the given (clamped) left
    // percentage, rounded half away from zero.
    int value(double fromLeftPercent) const;
    // The row's percentage as the panel writes it: "58 % restante" or "42 % usado".
    QString text(double fromLeftPercent) const;

    friend bool operator==(const PercentMode&, const PercentMode&) = default;
};

} // namespace limitra
