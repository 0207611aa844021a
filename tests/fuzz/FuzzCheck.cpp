#include "FuzzCheck.h"

#include "model/FormatUtil.h"
#include "model/PercentMode.h"
#include "platform/Json.h"

#include <httplib.h>

#include <QHash>
#include <QRegularExpression>

#include <cstdio>
#include <cstdlib>

namespace limitra::fuzz {

namespace {
// The headers the program sets, and those libcurl adds to every request.
const QSet<QByteArray> kKnownHeaders { "host", "accept", "authorization", "anthropic-beta",
    "chatgpt-account-id", "user-agent", "content-type", "content-length" };
} // namespace

bool matches(const char* pattern, const QString& text)
{
    static QHash<const char*, QRegularExpression> compiled;
    auto it = compiled.find(pattern);
    if (it == compiled.end())
        it = compiled.insert(pattern, QRegularExpression(QString::fromLatin1(pattern)));
    return it->match(text).hasMatch();
}

void require(bool holds, const char* rule, const QString& detail)
{
    if (holds)
        return;
    std::fprintf(stderr, "broken rule: %s\n%s\n", rule, qUtf8Printable(detail));
    std::abort();
}

QList<QByteArray> split(const std::uint8_t* data, std::size_t size, int parts)
{
    QByteArray rest(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    QList<QByteArray> out;
    for (qsizetype at = 0; out.size() < parts - 1 && (at = rest.indexOf("\n%%\n")) >= 0;) {
        out.append(rest.left(at));
        rest = rest.mid(at + 4);
    }
    out.append(rest);
    while (out.size() < parts)
        out.append(QByteArray());
    return out;
}

void checkRows(const QList<LimitRow>& rows)
{
    for (const LimitRow& row : rows) {
        const QString id = QStringLiteral("row ") + row.id;
        require(fitsModel(row.usedPercent), "a used percentage fits the model", id);
        const double left = row.leftPercent();
        require(left >= 0 && left <= 100, "the left percentage is clamped to 0…100", id);
        for (const PercentMode mode : PercentMode::allCases()) {
            const int shown = mode.value(left);
            require(shown >= 0 && shown <= 100, "a shown percentage lies in 0…100", id);
        }
        char printed[64];
        const int length = std::snprintf(printed, sizeof printed, "%.0f", row.usedPercent);
        require(length > 0 && length <= 20, "--check prints the used percentage in at most 20 digits", id);
        if (row.resetsAt) {
            require(fitsModel(*row.resetsAt), "a reset moment fits the model", id);
            const QString countdown = FormatUtil::countdown(*row.resetsAt, kNow);
            require(matches(R"(^(ahora|\d{1,2}m|\d{1,2}h \d{1,2}m|\d+d \d{1,2}h)$)", countdown),
                "the countdown reads like 2d 5h, 4h 7m, 12m or ahora", countdown);
        }
        if (row.detail) {
            require(matches(R"(^\$-?\d+\.\d\d / \$\d+\.\d\d USD$)", *row.detail),
                "the extra credits read like $12.34 / $50.00 USD", *row.detail);
        }
    }
}

void checkRequest(const test::RecordedRequest& request, const QSet<QByteArray>& tokens)
{
    QSet<QByteArray> seen;
    for (const auto& [name, value] : request.headers) {
        require(kKnownHeaders.contains(name), "no header line but the program's own",
            QString::fromLatin1(name + ": " + value));
        require(!seen.contains(name), "every header once", QString::fromLatin1(name));
        seen.insert(name);
    }
    if (request.hasHeader("authorization")) {
        const QByteArray bearer = request.header("authorization");
        require(bearer.startsWith("Bearer") && tokens.contains(bearer.mid(6).trimmed()),
            "the bearer token is a stored or granted one, whole", QString::fromLatin1(bearer));
    }
}

QSet<QByteArray> tokens(const QJsonObject& object, std::initializer_list<QStringView> keys)
{
    QSet<QByteArray> out;
    for (const QStringView key : keys) {
        if (const auto text = platform::Json::string(object, key)) {
            // The test server trims header values and decodes %XX in them its own way.
            out.insert(text->toUtf8().trimmed());
            out.insert(QByteArray::fromStdString(httplib::detail::decode_url(text->toStdString(), false))
                           .trimmed());
        }
    }
    return out;
}

bool hasControlToken(const QJsonObject& object, std::initializer_list<QStringView> keys)
{
    for (const QStringView key : keys) {
        if (platform::Json::string(object, key) && !platform::Json::token(object, key))
            return true;
    }
    return false;
}

} // namespace limitra::fuzz
