#include "store/LimitLines.h"

#include "model/FormatUtil.h"

namespace limitra::LimitLines {

namespace {
const QString kDot = QStringLiteral(" \u00B7 ");
} // namespace

Style menu()
{
    return { QStringLiteral(" \u2014 "), kDot };
}

Style tooltip()
{
    return { kDot, kDot + QStringLiteral("Se reinicia en ") };
}

QStringList of(
    const QString& name, const ServiceUsage& usage, const PercentMode& mode, double now, const Style& style)
{
    if (usage.error)
        return { name + kDot + *usage.error };
    if (usage.rows.isEmpty())
        return { name + kDot + QStringLiteral("Cargando…") };
    QStringList lines;
    for (const LimitRow& row : usage.rows) {
        QString line = name + kDot + row.title + style.beforePercent + mode.text(row.leftPercent());
        if (row.resetsAt)
            line += style.beforeCountdown + FormatUtil::countdown(*row.resetsAt, now);
        lines.append(line);
    }
    return lines;
}

} // namespace limitra::LimitLines
