#include "model/MenuBarStyle.h"

namespace limitra {

const QList<MenuBarStyle>& MenuBarStyle::allCases()
{
    static const QList<MenuBarStyle> cases { { IconAndPercents }, { IconOnly }, { IconAndWorst } };
    return cases;
}

std::optional<MenuBarStyle> MenuBarStyle::fromRawValue(QStringView raw)
{
    for (const MenuBarStyle& candidate : allCases()) {
        if (candidate.rawValue() == raw)
            return candidate;
    }
    return std::nullopt;
}

QString MenuBarStyle::rawValue() const
{
    switch (style) {
    case IconOnly:
        return QStringLiteral("iconOnly");
    case IconAndWorst:
        return QStringLiteral("iconAndWorst");
    case IconAndPercents:
        break;
    }
    return QStringLiteral("iconAndPercents");
}

} // namespace limitra
