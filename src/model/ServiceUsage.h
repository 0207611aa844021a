#pragma once

#include "model/LimitRow.h"

#include <QList>
#include <QMetaType>
#include <QString>

#include <optional>

namespace limitra {

// The result of one fetch of one service: rows on success, a complete
// Spanish message on failure, or nothing yet (the empty record).
struct ServiceUsage
{
    Q_GADGET
    Q_PROPERTY(bool hasPlanBadge READ hasPlanBadge CONSTANT)
    Q_PROPERTY(QString planBadge READ planBadgeOrEmpty CONSTANT)
    Q_PROPERTY(QList<limitra::LimitRow> rows MEMBER rows CONSTANT)
    Q_PROPERTY(bool hasError READ hasError CONSTANT)
    Q_PROPERTY(QString error READ errorOrEmpty CONSTANT)
    Q_PROPERTY(bool hasUpdatedAt READ hasUpdatedAt CONSTANT)
    Q_PROPERTY(double updatedAt READ updatedAtOrZero CONSTANT)

public:
    std::optional<QString> planBadge;
    QList<LimitRow> rows;
    std::optional<QString> error;
    std::optional<double> updatedAt;

    bool hasPlanBadge() const { return planBadge.has_value(); }
    QString planBadgeOrEmpty() const { return planBadge.value_or(QString()); }
    bool hasError() const { return error.has_value(); }
    QString errorOrEmpty() const { return error.value_or(QString()); }
    bool hasUpdatedAt() const { return updatedAt.has_value(); }
    double updatedAtOrZero() const { return updatedAt.value_or(0); }

    friend bool operator==(const ServiceUsage&, const ServiceUsage&) = default;
};

} // namespace limitra

Q_DECLARE_METATYPE(limitra::ServiceUsage)
