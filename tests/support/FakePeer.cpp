#include "support/FakePeer.h"

#include "support/PeerScript.h"

#include <httplib.h>

#include <thread>

namespace limitra::test {

PeerAnswer PeerAnswer::json(int status, const QByteArray& body)
{
    PeerAnswer a;
    a.status = status;
    a.body = body;
    a.headers = { { "Content-Type", "application/json" } };
    return a;
}

PeerAnswer PeerAnswer::drop()
{
    PeerAnswer a;
    a.kind = Kind::Drop;
    return a;
}

PeerAnswer PeerAnswer::hang()
{
    PeerAnswer a;
    a.kind = Kind::Hang;
    return a;
}

bool RecordedRequest::hasHeader(const QByteArray& lowerName) const
{
    return std::any_of(headers.begin(), headers.end(), [&](const auto& h) { return h.first == lowerName; });
}

QByteArray RecordedRequest::header(const QByteArray& lowerName) const
{
    for (const auto& [name, value] : headers)
        if (name == lowerName)
            return value;
    return {};
}

struct FakePeer::Impl
{
    httplib::Server server;
    std::thread thread;
    int port = 0;
    PeerScript script { notFound() };

    static PeerAnswer notFound()
    {
        PeerAnswer answer;
        answer.status = 404;
        return answer;
    }

    void handle(const httplib::Request& req, httplib::Response& res)
    {
        const PeerScript::Taken taken = script.take(req);
        switch (taken.answer.kind) {
        case PeerAnswer::Kind::Hang:
            script.hang();
            [[fallthrough]];
        case PeerAnswer::Kind::Drop:
            // Headers go out, then the connection is cut before the promised body.
            res.status = 200;
            res.set_content_provider(
                16, "application/json", [](size_t, size_t, httplib::DataSink&) { return false; });
            return;
        case PeerAnswer::Kind::Respond:
            script.respond(taken, res);
            return;
        }
    }
};

FakePeer::FakePeer()
    : d(std::make_unique<Impl>())
{
    const auto handler = [this](const httplib::Request& req, httplib::Response& res) { d->handle(req, res); };
    d->server.Get(".*", handler);
    d->server.Post(".*", handler);
    d->port = d->server.bind_to_any_port("127.0.0.1");
    d->thread = std::thread([this] { d->server.listen_after_bind(); });
    while (!d->server.is_running())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

FakePeer::~FakePeer()
{
    d->script.stop();
    d->server.stop();
    if (d->thread.joinable())
        d->thread.join();
}

QUrl FakePeer::baseUrl() const
{
    return QUrl(QStringLiteral("http://127.0.0.1:%1").arg(d->port));
}

void FakePeer::on(const QByteArray& method, const QByteArray& path, const PeerAnswer& answer)
{
    onSequence(method, path, { answer });
}

void FakePeer::onSequence(const QByteArray& method, const QByteArray& path, const QList<PeerAnswer>& answers)
{
    d->script.set(method + ' ' + path, answers);
}

void FakePeer::clear()
{
    d->script.clear();
}

QList<RecordedRequest> FakePeer::requests() const
{
    return d->script.requests();
}

QList<RecordedRequest> FakePeer::requests(const QByteArray& method, const QByteArray& path) const
{
    QList<RecordedRequest> matching;
    for (const auto& r : d->script.requests())
        if (r.method == method && r.path == path)
            matching.append(r);
    return matching;
}

} // namespace limitra::test
