#include "platform/Http.h"

#include "platform/LazyLibrary.h"

// Called through pointers: the macros that check option types would hide them.
#define CURL_DISABLE_TYPECHECK
#include <curl/curl.h>

#include <algorithm>
#include <atomic>
#include <memory>

namespace limitra::platform::Http {

namespace {
#define LIMITRA_CURL_API(X)                                                                                  \
    X(curl_global_init)                                                                                      \
    X(curl_easy_init) X(curl_easy_cleanup) X(curl_easy_setopt) X(curl_easy_perform) X(curl_easy_getinfo)      \
        X(curl_slist_append) X(curl_slist_free_all)

    struct Curl
    {
        LIMITRA_CURL_API(LIMITRA_LAZY_POINTER)
    };

    // libcurl and its TLS stack are loaded and initialised with the first
    // request, so a run that sends none never pays for them.
    const Curl* curl()
    {
        static const Curl* const loaded = [] {
            static Curl api;
            const bool ok = LazyLibrary::load("libcurl.so.4", { LIMITRA_CURL_API(LIMITRA_LAZY_SLOT) })
                && api.curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
            return ok ? &api : nullptr;
        }();
        return loaded;
    }

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

    // Set once the program is quitting: transfers under way end at their next
    // progress tick (about a second on a stalled link) and no new one starts.
    std::atomic<bool> stopped { false };

    int stopWhenQuitting(void*, curl_off_t, curl_off_t, curl_off_t, curl_off_t)
    {
        return stopped.load() ? 1 : 0;
    }

    bool isControl(char c)
    {
        return (static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7f;
    }

    struct EasyDeleter
    {
        void operator()(CURL* h) const { curl()->curl_easy_cleanup(h); }
    };
    struct ListDeleter
    {
        void operator()(curl_slist* l) const { curl()->curl_slist_free_all(l); }
    };
} // namespace

void globalInit()
{
    curl();
}

void stopAll()
{
    stopped.store(true);
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
    const Curl* api = stopped.load() ? nullptr : curl();
    if (!api)
        return std::nullopt;
    std::unique_ptr<CURL, EasyDeleter> easy(api->curl_easy_init());
    if (!easy)
        return std::nullopt;
    CURL* h = easy.get();

    const QByteArray url = request.url.toEncoded();
    api->curl_easy_setopt(h, CURLOPT_URL, url.constData());
    api->curl_easy_setopt(h, CURLOPT_PROTOCOLS_STR, "http,https");
    api->curl_easy_setopt(h, CURLOPT_NOSIGNAL, 1L);
    api->curl_easy_setopt(h, CURLOPT_FOLLOWLOCATION, 0L);
    api->curl_easy_setopt(h, CURLOPT_SSL_VERIFYPEER, 1L);
    api->curl_easy_setopt(h, CURLOPT_SSL_VERIFYHOST, 2L);
    const long timeoutMs = static_cast<long>(request.timeout.count());
    api->curl_easy_setopt(h, CURLOPT_TIMEOUT_MS, timeoutMs);
    api->curl_easy_setopt(h, CURLOPT_CONNECTTIMEOUT_MS, timeoutMs);
    api->curl_easy_setopt(h, CURLOPT_NOPROGRESS, 0L);
    api->curl_easy_setopt(h, CURLOPT_XFERINFOFUNCTION, &stopWhenQuitting);

    if (request.method == "GET") {
        api->curl_easy_setopt(h, CURLOPT_HTTPGET, 1L);
    } else if (request.method == "POST") {
        api->curl_easy_setopt(h, CURLOPT_POST, 1L);
        api->curl_easy_setopt(h, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
        api->curl_easy_setopt(h, CURLOPT_COPYPOSTFIELDS, request.body.constData());
    } else {
        api->curl_easy_setopt(h, CURLOPT_CUSTOMREQUEST, request.method.constData());
    }

    curl_slist* rawList = nullptr;
    for (const auto& [name, value] : request.headers) {
        const QByteArray line = name + ": " + value;
        rawList = api->curl_slist_append(rawList, line.constData());
    }
    // curl would otherwise add "Expect: 100-continue" to larger bodies.
    rawList = api->curl_slist_append(rawList, "Expect:");
    std::unique_ptr<curl_slist, ListDeleter> headers(rawList);
    api->curl_easy_setopt(h, CURLOPT_HTTPHEADER, headers.get());

    HttpResponse response;
    api->curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, &collect);
    api->curl_easy_setopt(h, CURLOPT_WRITEDATA, &response.body);

    if (api->curl_easy_perform(h) != CURLE_OK)
        return std::nullopt;
    long status = 0;
    api->curl_easy_getinfo(h, CURLINFO_RESPONSE_CODE, &status);
    if (status <= 0)
        return std::nullopt;
    response.status = static_cast<int>(status);
    return response;
}

} // namespace limitra::platform::Http
