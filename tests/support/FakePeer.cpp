#include "support/FakePeer.h"

#include <httplib.h>

#include <QMap>

#include <algorithm>
#include <condition_variable>
#include <mutex>
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
    struct Script
    {
        QList<PeerAnswer> answers;
        qsizetype next = 0;
    };

    httplib::Server server;
    std::thread thread;
    int port = 0;

    mutable std::mutex mutex;
    std::condition_variable stopped;
    bool stopping = false;
    QMap<QByteArray, Script> scripts;
    QList<RecordedRequest> log;

    PeerAnswer answerFor(const QByteArray& key)
    {
        auto it = scripts.find(key);
        if (it == scripts.end() || it->answers.isEmpty()) {
            PeerAnswer notFound;
            notFound.status = 404;
            return notFound;
        }
        const PeerAnswer a = it->answers.at(std::min(it->next, it->answers.size() - 1));
        ++it->next;
        return a;
    }

    // Waits up to `delay`, or until the peer stops; false when stopping.
    bool waitFor(std::chrono::milliseconds delay)
    {
        std::unique_lock lock(mutex);
        return !stopped.wait_for(lock, delay, [this] { return stopping; });
    }

    void handle(const httplib::Request& req, httplib::Response& res)
    {
        RecordedRequest rec;
        rec.arrivedAt = std::chrono::steady_clock::now();
        rec.method = QByteArray::fromStdString(req.method);
        rec.path = QByteArray::fromStdString(req.path);
        for (const auto& [name, value] : req.headers) {
            if (name == "REMOTE_ADDR" || name == "REMOTE_PORT" || name == "LOCAL_ADDR" || name == "LOCAL_PORT")
                continue; // added by the server library, not sent by the client
            rec.headers.append({ QByteArray::fromStdString(name).toLower(), QByteArray::fromStdString(value) });
        }
        rec.body = QByteArray::fromStdString(req.body);

        qsizetype index = 0;
        PeerAnswer answer;
        {
            std::lock_guard lock(mutex);
            answer = answerFor(rec.method + ' ' + rec.path);
            index = log.size();
            log.append(rec);
        }

        switch (answer.kind) {
        case PeerAnswer::Kind::Hang:
            waitFor(std::chrono::hours(1));
            [[fallthrough]];
        case PeerAnswer::Kind::Drop:
            // Headers go out, then the connection is cut before the promised body.
            res.status = 200;
            res.set_content_provider(
                16, "application/json", [](size_t, size_t, httplib::DataSink&) { return false; });
            return;
        case PeerAnswer::Kind::Respond:
            break;
        }

        if (answer.delay.count() > 0 && !waitFor(answer.delay))
            return;
        res.status = answer.status;
        std::string contentType = "text/plain";
        for (const auto& [name, value] : answer.headers) {
            if (name.toLower() == "content-type")
                contentType = value.toStdString();
            else
                res.set_header(name.toStdString(), value.toStdString());
        }
        res.set_content(answer.body.toStdString(), contentType);
        std::lock_guard lock(mutex);
        log[index].answeredAt = std::chrono::steady_clock::now();
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
    {
        std::lock_guard lock(d->mutex);
        d->stopping = true;
    }
    d->stopped.notify_all();
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
    std::lock_guard lock(d->mutex);
    d->scripts[method + ' ' + path] = Impl::Script { answers, 0 };
}

QList<RecordedRequest> FakePeer::requests() const
{
    std::lock_guard lock(d->mutex);
    return d->log;
}

QList<RecordedRequest> FakePeer::requests(const QByteArray& method, const QByteArray& path) const
{
    std::lock_guard lock(d->mutex);
    QList<RecordedRequest> matching;
    for (const auto& r : d->log)
        if (r.method == method && r.path == path)
            matching.append(r);
    return matching;
}

} // namespace limitra::test
