#include "store/StatusLine.h"

#include "model/PercentMode.h"
#include "model/UsageBand.h"
#include "store/LimitLines.h"
#include "store/MenuBarText.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

namespace limitra::StatusLine {

namespace {
QString bandClass(const Inputs& in, const std::optional<double>& lowest)
{
    const bool failed = (in.showClaude || in.showCodex) && (!in.showClaude || in.claude.error)
        && (!in.showCodex || in.codex.error);
    if (failed)
        return QStringLiteral("error");
    switch (UsageBand::of(lowest.value_or(100))) {
    case UsageBand::Critical:
        return QStringLiteral("critical");
    case UsageBand::Low:
        return QStringLiteral("warning");
    case UsageBand::Normal:
        break;
    }
    return QStringLiteral("ok");
}
} // namespace

QByteArray compose(const Inputs& in)
{
    const PercentMode mode = PercentMode::fromRawValue(in.percentMode).value_or(PercentMode {});
    const auto lowest = MenuBarText::lowestLeft(in.claude, in.codex, in.showClaude, in.showCodex);
    QString text = MenuBarText::compose(
        in.claude, in.codex, in.showClaude, in.showCodex, in.menuBarStyle, in.percentMode);
    // A bar has no icon beside the text, so "Solo icono" still shows one number.
    if (text.isEmpty())
        text = lowest ? QString::number(mode.value(*lowest)) + u'%' : QStringLiteral("\u2013");

    QStringList tooltip;
    if (in.showClaude)
        tooltip
            += LimitLines::of(QStringLiteral("Claude Code"), in.claude, mode, in.now, LimitLines::tooltip());
    if (in.showCodex)
        tooltip += LimitLines::of(QStringLiteral("Codex"), in.codex, mode, in.now, LimitLines::tooltip());

    QJsonObject line { { QStringLiteral("text"), text }, { QStringLiteral("tooltip"), tooltip.join(u'\n') },
        { QStringLiteral("class"), bandClass(in, lowest) } };
    if (lowest)
        line.insert(QStringLiteral("percentage"), PercentMode {}.value(*lowest));
    return QJsonDocument(line).toJson(QJsonDocument::Compact);
}

} // namespace limitra::StatusLine
