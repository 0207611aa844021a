#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>

#include <optional>

namespace limitra::platform {

// Typed access to generic JSON: a member of the wrong type counts as missing.
namespace Json {
    // Strict parse of a document whose top level must be an object.
    std::optional<QJsonObject> parseObject(const QByteArray& bytes);

    std::optional<QString> string(const QJsonObject& object, QStringView key);
    std::optional<double> number(const QJsonObject& object, QStringView key);
    std::optional<bool> boolean(const QJsonObject& object, QStringView key);
    std::optional<QJsonObject> object(const QJsonObject& object, QStringView key);
    std::optional<QJsonArray> array(const QJsonObject& object, QStringView key);

    QByteArray compact(const QJsonObject& object);
    // Pretty-printed; Qt keeps object keys sorted.
    QByteArray indented(const QJsonObject& object);
} // namespace Json

} // namespace limitra::platform
