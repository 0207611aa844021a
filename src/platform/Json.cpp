#include "platform/Json.h"

#include <QJsonDocument>
#include <QJsonParseError>

namespace limitra::platform::Json {

std::optional<QJsonObject> parseObject(const QByteArray& bytes)
{
    QJsonParseError error {};
    const QJsonDocument doc = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject())
        return std::nullopt;
    return doc.object();
}

std::optional<QString> string(const QJsonObject& object, QStringView key)
{
    const QJsonValue v = object.value(key);
    return v.isString() ? std::optional(v.toString()) : std::nullopt;
}

std::optional<double> number(const QJsonObject& object, QStringView key)
{
    const QJsonValue v = object.value(key);
    return v.isDouble() ? std::optional(v.toDouble()) : std::nullopt;
}

std::optional<bool> boolean(const QJsonObject& object, QStringView key)
{
    const QJsonValue v = object.value(key);
    return v.isBool() ? std::optional(v.toBool()) : std::nullopt;
}

std::optional<QJsonObject> object(const QJsonObject& object, QStringView key)
{
    const QJsonValue v = object.value(key);
    return v.isObject() ? std::optional(v.toObject()) : std::nullopt;
}

std::optional<QJsonArray> array(const QJsonObject& object, QStringView key)
{
    const QJsonValue v = object.value(key);
    return v.isArray() ? std::optional(v.toArray()) : std::nullopt;
}

QByteArray compact(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QByteArray indented(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Indented);
}

} // namespace limitra::platform::Json
