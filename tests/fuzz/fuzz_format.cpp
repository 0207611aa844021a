// The date parser on any text, and the relative-time texts, the timestamp
// and the percent rounding on any two doubles (the input's first 16 bytes).
#include "FuzzCheck.h"

#include "model/FormatUtil.h"
#include "model/PercentMode.h"

#include <cmath>
#include <cstring>

using namespace limitra;

namespace {
// Moments that a four-digit year can write: 0000-01-01 to 9999-12-31.
bool writable(double moment)
{
    return moment >= -62167219200.0 && moment < 253402300800.0;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    if (const auto parsed = FormatUtil::parseISODate(text); parsed && writable(*parsed)) {
        const QString written = FormatUtil::iso8601Fractional(*parsed);
        // Written to the millisecond: half of one, and the doubles' own rounding, may be lost.
        const auto again = FormatUtil::parseISODate(written);
        fuzz::require(again && std::abs(*again - *parsed) <= 0.0006, "a parsed date writes and reads back",
            text + QStringLiteral(" → ") + written);
    }

    double a = 0, b = 0;
    if (size >= 16) {
        std::memcpy(&a, data, sizeof a);
        std::memcpy(&b, data + 8, sizeof b);
    }
    fuzz::require(fuzz::matches(R"(^hace (\d{1,2} s|\d{1,2} min|\d+ h \d{1,2} min)$)", FormatUtil::ago(a, b)),
        "ago reads like hace 2 h 5 min", FormatUtil::ago(a, b));
    const QString countdown = FormatUtil::countdown(a, b);
    fuzz::require(fuzz::matches(R"(^(ahora|\d{1,2}m|\d{1,2}h \d{1,2}m|\d+d \d{1,2}h)$)", countdown),
        "the countdown reads like 2d 5h, 4h 7m, 12m or ahora", countdown);
    const QString stamp = FormatUtil::iso8601Fractional(a);
    fuzz::require(fuzz::matches(R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$)", stamp)
            && FormatUtil::parseISODate(stamp),
        "the refresh time stamp is a readable date", stamp);

    const LimitRow row { QStringLiteral("x"), QStringLiteral("x"), a, b, std::nullopt };
    const double left = row.leftPercent();
    fuzz::require(left >= 0 && left <= 100, "the left percentage is clamped to 0…100");
    for (const PercentMode mode : PercentMode::allCases()) {
        fuzz::require(mode.value(left) >= 0 && mode.value(left) <= 100, "a shown percentage lies in 0…100");
        mode.value(a); // any double at all must round without undefined behaviour
    }
    if (fitsModel(a) && fitsModel(b))
        fuzz::checkRows({ row });
    return 0;
}
