#include "store/UsageJson.h"

#include "model/FormatUtil.h"

#include <QJsonArray>
#include <QJsonObject>

#include <cmath>

namespace limitra::UsageJson {

namespace {
QJsonValue text(const std::optional<QString>& value)
{
    return value ? QJsonValue(*value) : QJsonValue();
}

QJsonValue moment(const std::optional<double>& value)
{
    return value ? QJsonValue(FormatUtil::iso8601Fractional(*value)) : QJsonValue();
}

std::optional<QString> textOf(const QJsonValue& value)
{
    return value.isString() ? std::optional(value.toString()) : std::nullopt;
}

std::optional<double> momentOf(const QJsonValue& value)
{
    return FormatUtil::parseISODate(textOf(value));
}

QJsonObject service(const QString& name, const ServiceUsage& usage, double now)
{
    QJsonArray rows;
    for (const LimitRow& row : usage.rows) {
        QJsonValue seconds;
        if (row.resetsAt) // whole seconds, as the countdown counts them
            seconds = static_cast<qint64>(std::max(0.0, std::trunc(*row.resetsAt - now)));
        rows.append(QJsonObject { { QStringLiteral("id"), row.id }, { QStringLiteral("title"), row.title },
            { QStringLiteral("usedPercent"), row.usedPercent },
            { QStringLiteral("leftPercent"), row.leftPercent() },
            { QStringLiteral("resetsAt"), moment(row.resetsAt) },
            { QStringLiteral("resetsInSeconds"), seconds }, { QStringLiteral("detail"), text(row.detail) } });
    }
    return { { QStringLiteral("name"), name }, { QStringLiteral("plan"), text(usage.planBadge) },
        { QStringLiteral("updatedAt"), moment(usage.updatedAt) },
        { QStringLiteral("error"), text(usage.error) }, { QStringLiteral("rows"), rows } };
}

ServiceUsage usageOf(const QJsonObject& object)
{
    ServiceUsage usage;
    usage.planBadge = textOf(object.value(QStringLiteral("plan")));
    usage.error = textOf(object.value(QStringLiteral("error")));
    usage.updatedAt = momentOf(object.value(QStringLiteral("updatedAt")));
    for (const QJsonValue& value : object.value(QStringLiteral("rows")).toArray()) {
        const QJsonObject row = value.toObject();
        usage.rows.append({ row.value(QStringLiteral("id")).toString(),
            row.value(QStringLiteral("title")).toString(),
            row.value(QStringLiteral("usedPercent")).toDouble(),
            momentOf(row.value(QStringLiteral("resetsAt"))), textOf(row.value(QStringLiteral("detail"))) });
    }
    return usage;
}
} // namespace

QByteArray document(
    const ServiceUsage& claude, const ServiceUsage& codex, double now, QJsonDocument::JsonFormat format)
{
    const QJsonArray services { service(QStringLiteral("Claude Code"), claude, now),
        service(QStringLiteral("Codex"), codex, now) };
    return QJsonDocument(QJsonObject { { QStringLiteral("services"), services } }).toJson(format);
}

std::optional<std::pair<ServiceUsage, ServiceUsage>> parse(const QByteArray& json)
{
    const QJsonArray services
        = QJsonDocument::fromJson(json).object().value(QStringLiteral("services")).toArray();
    if (services.size() != 2 || !services[0].isObject() || !services[1].isObject())
        return std::nullopt;
    return std::pair { usageOf(services[0].toObject()), usageOf(services[1].toObject()) };
}

} // namespace limitra::UsageJson
