#include "store/MenuBarText.h"

#include "model/MenuBarStyle.h"
#include "model/PercentMode.h"

#include <QStringList>

#include <algorithm>

namespace limitra::MenuBarText {

std::optional<double> worstLeft(const ServiceUsage& usage)
{
    std::optional<double> worst;
    for (const LimitRow& row : usage.rows) {
        if (!row.resetsAt)
            continue;
        const double left = row.leftPercent();
        worst = worst ? std::min(*worst, left) : left;
    }
    return worst;
}

std::optional<double> lowestLeft(
    const ServiceUsage& claude, const ServiceUsage& codex, bool showClaude, bool showCodex)
{
    std::optional<double> lowest;
    for (const auto& [visible, usage] : { std::pair { showClaude, &claude }, std::pair { showCodex, &codex } }) {
        if (!visible)
            continue;
        if (const auto left = worstLeft(*usage))
            lowest = lowest ? std::min(*lowest, *left) : *left;
    }
    return lowest;
}

QString compose(const ServiceUsage& claude, const ServiceUsage& codex, bool showClaude, bool showCodex,
    const QString& menuBarStyle, const QString& percentMode)
{
    const MenuBarStyle style = MenuBarStyle::fromRawValue(menuBarStyle).value_or(MenuBarStyle {});
    const PercentMode mode = PercentMode::fromRawValue(percentMode).value_or(PercentMode {});
    const auto shown = [&](double left) { return QString::number(mode.value(left)) + QLatin1Char('%'); };

    switch (style.style) {
    case MenuBarStyle::IconOnly:
        return {};
    case MenuBarStyle::IconAndWorst: {
        const auto lowest = lowestLeft(claude, codex, showClaude, showCodex);
        return lowest ? shown(*lowest) : QString();
    }
    case MenuBarStyle::IconAndPercents:
        break;
    }

    QStringList parts;
    const auto part = [&](const QString& prefix, const ServiceUsage& usage) {
        const auto left = worstLeft(usage);
        parts.append(prefix + (left ? shown(*left) : QStringLiteral("\u2013")));
    };
    if (showClaude)
        part(QStringLiteral("C "), claude);
    if (showCodex)
        part(QStringLiteral("X "), codex);
    return parts.join(QStringLiteral(" \u00B7 "));
}

} // namespace limitra::MenuBarText
