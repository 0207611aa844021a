#pragma once

#include <QMetaType>
#include <QString>

#include <algorithm>
#include <cmath>
#include <optional>

namespace limitra {

// Whether a number from a service fits the model: finite and within the
// signed 64-bit range once made whole. Percentages, amounts and moments
// outside it are never shown; the services drop or ignore them.
inline bool fitsModel(double value)
{
    return std::abs(value) < 9223372036854775808.0; // 2^63; false for NaN and infinities
}

// One usage limit of one service. Moments are seconds since the Unix epoch.
struct LimitRow
{
    Q_GADGET
    Q_PROPERTY(QString id MEMBER id CONSTANT)
    Q_PROPERTY(QString title MEMBER title CONSTANT)
    Q_PROPERTY(double usedPercent MEMBER usedPercent CONSTANT)
    Q_PROPERTY(double leftPercent READ leftPercent CONSTANT)
    Q_PROPERTY(bool hasResetsAt READ hasResetsAt CONSTANT)
    Q_PROPERTY(double resetsAt READ resetsAtOrZero CONSTANT)
    Q_PROPERTY(bool hasDetail READ hasDetail CONSTANT)
    Q_PROPERTY(QString detail READ detailOrEmpty CONSTANT)

public:
    QString id;
    QString title;
    double usedPercent = 0;
    std::optional<double> resetsAt;
    std::optional<QString> detail;

    // What is left of the limit, clamped to 0…100; a NaN counts as nothing used.
    double leftPercent() const
    {
        const double left = 100.0 - usedPercent;
        if (std::isnan(left) || left >= 100.0)
            return 100.0;
        return std::max(left, 0.0);
    }

    bool hasResetsAt() const { return resetsAt.has_value(); }
    double resetsAtOrZero() const { return resetsAt.value_or(0); }
    bool hasDetail() const { return detail.has_value(); }
    QString detailOrEmpty() const { return detail.value_or(QString()); }

    friend bool operator==(const LimitRow&, const LimitRow&) = default;
};

} // namespace limitra

Q_DECLARE_METATYPE(limitra::LimitRow)
