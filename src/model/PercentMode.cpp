#include "model/PercentMode.h"

#include <cmath>
#include <limits>

namespace limitra {

const QList<PercentMode>& PercentMode::allCases()
{
    static const QList<PercentMode> cases { { Remaining }, { Used } };
    return cases;
}

std::optional<PercentMode> PercentMode::fromRawValue(QStringView raw)
{
    for (const PercentMode& candidate : allCases()) {
        if (candidate.rawValue() == raw)
            return candidate;
    }
    return std::nullopt;
}

QString PercentMode::rawValue() const
{
    return mode == Used ? QStringLiteral("used") : QStringLiteral("remaining");
}

int PercentMode::value(double fromLeftPercent) const
{
    const double shown = std::round(mode == Used ? 100.0 - fromLeftPercent : fromLeftPercent);
    // Callers pass 0…100; anything else is kept from overflowing the int.
    if (std::isnan(shown))
        return 0;
    if (shown >= std::numeric_limits<int>::max())
        return std::numeric_limits<int>::max();
    if (shown <= std::numeric_limits<int>::min())
        return std::numeric_limits<int>::min();
    return static_cast<int>(shown);
}

QString PercentMode::text(double fromLeftPercent) const
{
    return QStringLiteral("%1 % %2").arg(value(fromLeftPercent)).arg(mode == Used ? "usado" : "restante");
}

} // namespace limitra
