#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QUrl>

#include <chrono>
#include <optional>

namespace limitra::platform {

struct HttpRequest
{
    QByteArray method = "GET";
    QUrl url;
    QList<QPair<QByteArray, QByteArray>> headers;
    QByteArray body;
    std::chrono::milliseconds timeout { 60000 };
};

struct HttpResponse
{
    int status = 0;
    QByteArray body;
};

// Blocking HTTPS over libcurl; call it from worker threads only. libcurl keeps
// no response cache, so every request reaches the server. TLS is always
// verified, redirects are never followed, the user's proxy variables apply.
// Any transport failure (no route, TLS, time-out, cut connection) gives nothing.
namespace Http {
    // Once per process, before any thread sends a request.
    void globalInit();
    std::optional<HttpResponse> send(const HttpRequest& request);
    // Ends every transfer under way within about a second and fails every later
    // one, so quitting never waits for a stalled server. Nothing else is cut
    // short: a credentials write that has started runs to its end.
    void stopAll();
} // namespace Http

} // namespace limitra::platform
