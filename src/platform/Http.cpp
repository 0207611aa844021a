#include "platform/Http.h"

#include <curl/curl.h>

#include <algorithm>
#include <memory>
#include <mutex>

namespace limitra::platform::Http {

namespace {
    // Answers larger than this are not usage documents; the transfer is cut.
    constexpr size_t kMaxBody = 8 * 1024 * 1024;

    size_t collect(char* data, size_t size, size_t count, void* user)
    {
        auto* body = static_cast<QByteArray*>(user);
        const size_t n = size * count;
        if (static_cast<size_t>(body->size()) + n > kMaxBody)
            return 0; // makes curl fail the transfer
        body->append(data, static_cast<qsizetype>(n));
        return n;
    }

    bool isControl(char c)
    {
        return (static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7f;
    }

    struct EasyDeleter
    {
        void operator()(CURL* h) const { curl_easy_cleanup(h); }
    };
    struct ListDeleter
    {
        void operator()(curl_slist* l) const { curl_slist_free_all(l); }
    };
} // namespace

void globalInit()
{
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

std::optional<HttpResponse> send(const HttpRequest& request)
{
    // A control character in a header would add a header line or cut one
    // short; such a request is never sent.
    for (const auto& [name, value] : request.headers) {
        if (std::any_of(name.cbegin(), name.cend(), isControl)
            || std::any_of(value.cbegin(), value.cend(), isControl))
            return std::nullopt;
    }
    globalInit();
    std::unique_ptr<CURL, EasyDeleter> easy(curl_easy_init());
    if (!easy)
        return std::nullopt;
    CURL* h = easy.get();

    const QByteArray url = request.url.toEncoded();
    curl_easy_setopt(h, CURLOPT_URL, url.constData());
    curl_easy_setopt(h, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(h, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(h, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(h, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(h, CURLOPT_SSL_VERIFYHOST, 2L);
    const long timeoutMs = static_cast<long>(request.timeout.count());
    curl_easy_setopt(h, CURLOPT_TIMEOUT_MS, timeoutMs);
    curl_easy_setopt(h, CURLOPT_CONNECTTIMEOUT_MS, timeoutMs);

    if (request.method == "GET") {
        curl_easy_setopt(h, CURLOPT_HTTPGET, 1L);
    } else if (request.method == "POST") {
        curl_easy_setopt(h, CURLOPT_POST, 1L);
        curl_easy_setopt(h, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
        curl_easy_setopt(h, CURLOPT_COPYPOSTFIELDS, request.body.constData());
    } else {
        curl_easy_setopt(h, CURLOPT_CUSTOMREQUEST, request.method.constData());
    }

    curl_slist* rawList = nullptr;
    for (const auto& [name, value] : request.headers) {
        const QByteArray line = name + ": " + value;
        rawList = curl_slist_append(rawList, line.constData());
    }
    // curl would otherwise add "Expect: 100-continue" to larger bodies.
    rawList = curl_slist_append(rawList, "Expect:");
    std::unique_ptr<curl_slist, ListDeleter> headers(rawList);
    curl_easy_setopt(h, CURLOPT_HTTPHEADER, headers.get());

    HttpResponse response;
    curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, &collect);
    curl_easy_setopt(h, CURLOPT_WRITEDATA, &response.body);

    if (curl_easy_perform(h) != CURLE_OK)
        return std::nullopt;
    long status = 0;
    curl_easy_getinfo(h, CURLINFO_RESPONSE_CODE, &status);
    if (status <= 0)
        return std::nullopt;
    response.status = static_cast<int>(status);
    return response;
}

} // namespace limitra::platform::Http
