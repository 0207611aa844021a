#include "ui/panel/PanelFormat.h"

#include "model/FormatUtil.h"
#include "model/PercentMode.h"
#include "model/UsageBand.h"
#include "ui/TintedIconProvider.h"

#include <algorithm>

namespace limitra {

namespace {
    PercentMode modeOf(const QString& raw)
    {
        return PercentMode::fromRawValue(raw).value_or(PercentMode { PercentMode::Remaining });
    }
} // namespace

PanelFormat::PanelFormat(QObject* parent)
    : QObject(parent)
{
}

QString PanelFormat::percentText(const LimitRow& row, const QString& percentModeRaw)
{
    return modeOf(percentModeRaw).text(row.leftPercent());
}

double PanelFormat::fillPercent(const LimitRow& row, const QString& percentModeRaw)
{
    const double left = row.leftPercent();
    return modeOf(percentModeRaw).mode == PercentMode::Used ? 100.0 - left : left;
}

double PanelFormat::fillWidth(double trackWidth, double fillPercent)
{
    return std::max(kMinimumFill, trackWidth * std::clamp(fillPercent, 0.0, 100.0) / 100.0);
}

PanelFormat::Band PanelFormat::band(const LimitRow& row)
{
    switch (UsageBand::of(row.leftPercent())) {
    case UsageBand::Critical:
        return Critical;
    case UsageBand::Low:
        return Low;
    case UsageBand::Normal:
        break;
    }
    return Normal;
}

QString PanelFormat::resetText(const LimitRow& row, double now)
{
    if (!row.resetsAt)
        return {};
    return QStringLiteral("Se reinicia en ") + FormatUtil::countdown(*row.resetsAt, now);
}

PanelFormat::CardState PanelFormat::cardState(const ServiceUsage& usage)
{
    if (usage.error)
        return ErrorCard;
    return usage.rows.isEmpty() ? LoadingCard : RowsCard;
}

QString PanelFormat::updatedText(const ServiceUsage& usage, double now)
{
    if (!usage.updatedAt)
        return {};
    return QStringLiteral("Actualizado ") + FormatUtil::ago(*usage.updatedAt, now);
}

QString PanelFormat::footerText(int refreshMinutes)
{
    if (refreshMinutes == 1)
        return QStringLiteral("Se actualiza cada minuto");
    return QStringLiteral("Se actualiza cada %1 min").arg(refreshMinutes);
}

QString PanelFormat::bannerTitle(const QString& version)
{
    return QStringLiteral("Nueva versión ") + version + QStringLiteral(" disponible");
}

QUrl PanelFormat::iconUrl(const QString& name, const QColor& color)
{
    return TintedIconProvider::url(name, color);
}

} // namespace limitra
