#include "services/claude/ClaudeProvider.h"

#include "model/FormatUtil.h"
#include "platform/Json.h"

#include <QJsonArray>

#include <charconv>
#include <cmath>

namespace limitra::ClaudeProvider {

namespace {
using platform::Json::number;
using platform::Json::object;
using platform::Json::string;

const QString kSessionTitle = QStringLiteral("Sesión de 5 h");
const QString kWeeklyAllTitle = QStringLiteral("Semanal · Todos los modelos");
const QString kWeeklyPrefix = QStringLiteral("Semanal · ");

std::optional<double> resetsAt(const QJsonObject& window)
{
    return FormatUtil::parseISODate(string(window, u"resets_at"));
}

QString titleFor(const QString& kind, const QJsonObject& limit)
{
    if (kind == u"session")
        return kSessionTitle;
    if (kind == u"weekly_all")
        return kWeeklyAllTitle;
    if (kind == u"weekly_scoped") {
        const auto scope = object(limit, u"scope");
        const auto model = scope ? object(*scope, u"model") : std::nullopt;
        const auto name = model ? string(*model, u"display_name") : std::nullopt;
        return kWeeklyPrefix + name.value_or(QStringLiteral("Modelo"));
    }
    return kind;
}

// The answer's list of limits, when it is one made only of objects.
std::optional<QJsonArray> limitList(const QJsonObject& answer)
{
    const auto limits = platform::Json::array(answer, u"limits");
    if (!limits)
        return std::nullopt;
    for (const QJsonValue& element : *limits) {
        if (!element.isObject())
            return std::nullopt;
    }
    return limits;
}

std::optional<LimitRow> window(
    const QJsonObject& answer, QStringView key, const QString& id, const QString& title)
{
    const auto w = object(answer, key);
    const double used = w ? number(*w, u"utilization").value_or(0) : 0;
    if (!w || !fitsModel(used))
        return std::nullopt;
    return LimitRow { id, title, used, resetsAt(*w), std::nullopt };
}

// Two decimals as printf's "%.2f" writes them, whatever the process locale.
QString dollars(double amount)
{
    char buffer[512];
    const auto result = std::to_chars(buffer, buffer + sizeof(buffer), amount, std::chars_format::fixed, 2);
    return QString::fromLatin1(buffer, result.ec == std::errc() ? result.ptr - buffer : 0);
}

std::optional<LimitRow> extraCredits(const QJsonObject& answer)
{
    const auto spend = object(answer, u"spend");
    if (!spend || platform::Json::boolean(*spend, u"enabled") != true)
        return std::nullopt;
    const auto used = object(*spend, u"used");
    const auto limit = object(*spend, u"limit");
    if (!used || !limit)
        return std::nullopt;
    const auto usedMinor = number(*used, u"amount_minor");
    const auto limitMinor = number(*limit, u"amount_minor");
    if (!usedMinor || !limitMinor || !(*limitMinor > 0))
        return std::nullopt;

    // The exponent of the spent amount applies to both amounts.
    const double divisor = std::pow(10.0, number(*used, u"exponent").value_or(2));
    const double percent = number(*spend, u"percent").value_or(*usedMinor / *limitMinor * 100);
    const double usedDollars = *usedMinor / divisor;
    const double limitDollars = *limitMinor / divisor;
    // An exponent or amount that leaves the finite range would print "inf" or "nan".
    if (!fitsModel(percent) || !fitsModel(usedDollars) || !fitsModel(limitDollars))
        return std::nullopt;
    const QString detail
        = QStringLiteral("$%1 / $%2 USD").arg(dollars(usedDollars), dollars(limitDollars));
    return LimitRow { QStringLiteral("claude-extra"), QStringLiteral("Créditos extra"), percent, std::nullopt,
        detail };
}
} // namespace

QList<LimitRow> parseRows(const QJsonObject& answer)
{
    QList<LimitRow> rows;
    if (const auto limits = limitList(answer)) {
        for (const QJsonValue& element : *limits) {
            const QJsonObject limit = element.toObject();
            const QString kind = string(limit, u"kind").value_or(QString());
            const QString title = titleFor(kind, limit);
            const double used = number(limit, u"percent").value_or(0);
            if (fitsModel(used))
                rows.append(LimitRow { QStringLiteral("claude-") + kind + u'-' + title, title, used,
                    resetsAt(limit), std::nullopt });
        }
    } else {
        if (auto row = window(answer, u"five_hour", QStringLiteral("claude-5h"), kSessionTitle))
            rows.append(*row);
        if (auto row = window(answer, u"seven_day", QStringLiteral("claude-7d"), kWeeklyAllTitle))
            rows.append(*row);
    }
    if (auto row = extraCredits(answer))
        rows.append(*row);
    return rows;
}

} // namespace limitra::ClaudeProvider
