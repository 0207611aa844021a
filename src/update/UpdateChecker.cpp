#include "update/UpdateChecker.h"

#include "platform/Defaults.h"
#include "platform/Environment.h"
#include "platform/Http.h"
#include "platform/Json.h"

#include <QList>

#include <cstdint>
#include <limits>

namespace limitra::UpdateChecker {

namespace {
constexpr double kCheckPeriodSeconds = 86400;
constexpr std::chrono::seconds kFeedTimeout { 15 };

// The download address as a URL, when it reads as one.
std::optional<QUrl> downloadUrl(const QString& text)
{
    const QUrl url(text, QUrl::StrictMode);
    if (text.isEmpty() || !url.isValid())
        return std::nullopt;
    return url;
}

// The download address is opened in the user's browser, so only absolute web
// addresses are offered; any other announces nothing.
bool isWebAddress(const QUrl& url)
{
    const QString scheme = url.scheme();
    return !(url.host().isEmpty() || (scheme != QLatin1String("https") && scheme != QLatin1String("http")));
}

// An optional sign and ASCII digits within the signed 64-bit range; else 0.
std::int64_t component(QStringView text)
{
    qsizetype i = 0;
    const bool negative = text.startsWith(u'-');
    if (negative || text.startsWith(u'+'))
        ++i;
    if (i == text.size())
        return 0;
    const std::uint64_t limit = negative ? std::uint64_t(std::numeric_limits<std::int64_t>::max()) + 1
                                         : std::numeric_limits<std::int64_t>::max();
    std::uint64_t magnitude = 0;
    for (; i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        if (c < u'0' || c > u'9')
            return 0;
        const std::uint64_t digit = c - u'0';
        if (magnitude > (limit - digit) / 10)
            return 0;
        magnitude = magnitude * 10 + digit;
    }
    if (!negative)
        return static_cast<std::int64_t>(magnitude);
    // -2^63 has no positive counterpart, so it cannot be negated from int64.
    return magnitude == limit ? std::numeric_limits<std::int64_t>::min()
                              : -static_cast<std::int64_t>(magnitude);
}

QList<std::int64_t> components(QStringView version)
{
    QList<std::int64_t> out;
    for (const QStringView part : version.split(u'.', Qt::SkipEmptyParts))
        out.append(component(part));
    return out;
}
} // namespace

QString currentVersion()
{
#ifdef LIMITRA_VERSION
    const QString version = QStringLiteral(LIMITRA_VERSION);
    if (!version.isEmpty())
        return version;
#endif
    return QStringLiteral("0");
}

bool isNewer(QStringView a, QStringView than)
{
    const QList<std::int64_t> left = components(a);
    const QList<std::int64_t> right = components(than);
    const qsizetype n = std::max(left.size(), right.size());
    for (qsizetype i = 0; i < n; ++i) {
        const std::int64_t x = i < left.size() ? left[i] : 0;
        const std::int64_t y = i < right.size() ? right[i] : 0;
        if (x != y)
            return x > y;
    }
    return false;
}

std::optional<UpdateInfo> check(const platform::Environment& env)
{
    platform::HttpRequest request;
    request.url = env.endpoints.versionFeed;
    request.timeout = env.timeout(kFeedTimeout);
    const auto response = platform::Http::send(request);
    if (!response || response->status != 200)
        return std::nullopt;

    const auto feed = platform::Json::parseObject(response->body);
    if (!feed)
        return std::nullopt;
    const auto version = platform::Json::string(*feed, u"version");
    const auto download = platform::Json::string(*feed, u"download_url");
    if (!version || !download)
        return std::nullopt;
    const auto url = downloadUrl(*download);
    if (!url)
        return std::nullopt;

    // A valid feed restarts the one-day period whether or not it is newer or
    // its address one the program opens.
    if (env.defaults)
        env.defaults->setLastUpdateCheck(env.now());
    if (!isWebAddress(*url) || !isNewer(*version, currentVersion()))
        return std::nullopt;
    return UpdateInfo { *version, *url, platform::Json::string(*feed, u"release_notes") };
}

std::optional<UpdateInfo> checkIfDue(const platform::Environment& env)
{
    const double last = env.defaults ? env.defaults->lastUpdateCheck() : 0.0;
    if (!(env.now() - last > kCheckPeriodSeconds))
        return std::nullopt;
    return check(env);
}

} // namespace limitra::UpdateChecker
