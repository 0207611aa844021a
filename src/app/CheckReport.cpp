#include "app/CheckReport.h"

#include "model/FormatUtil.h"

#include <cstdio>
#include <string>

namespace limitra::CheckReport {

namespace {
// Texts from data (names, titles, badges, errors, details) are joined, never
// used as a format, so a "%" in them prints as it is.
QString rowLine(const LimitRow& row, double now)
{
    QString line = QStringLiteral("  ") + row.title + QStringLiteral(" — ") + wholeNumber(row.usedPercent)
        + QStringLiteral("% usado (") + wholeNumber(row.leftPercent()) + QStringLiteral("% restante)");
    if (row.resetsAt)
        line += QStringLiteral(" · se reinicia en ") + FormatUtil::countdown(*row.resetsAt, now);
    if (row.detail)
        line += QStringLiteral(" · ") + *row.detail;
    return line;
}

void appendService(QStringList& lines, const QString& name, const ServiceUsage& usage, double now)
{
    const QString plan = usage.planBadge.value_or(QStringLiteral("sin plan"));
    lines.append(QStringLiteral("== ") + name + QStringLiteral(" [") + plan + QStringLiteral("] =="));
    if (usage.error)
        lines.append(QStringLiteral("  ERROR: ") + *usage.error);
    for (const LimitRow& row : usage.rows)
        lines.append(rowLine(row, now));
}
} // namespace

QString wholeNumber(double value)
{
    // Qt's own formatting rounds ties away from zero; printf rounds the exact
    // binary value to even, and the report promises printf's digits.
    const int length = std::snprintf(nullptr, 0, "%.0f", value);
    if (length <= 0)
        return {};
    std::string text(static_cast<std::size_t>(length), '\0');
    std::snprintf(text.data(), text.size() + 1, "%.0f", value);
    return QString::fromStdString(text);
}

QStringList lines(const ServiceUsage& claude, const ServiceUsage& codex, double now)
{
    QStringList result;
    appendService(result, QStringLiteral("Claude Code"), claude, now);
    appendService(result, QStringLiteral("Codex"), codex, now);
    return result;
}

} // namespace limitra::CheckReport
