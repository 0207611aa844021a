#include "support/FakePeer.h"

#include <httplib.h>

#include <QMap>

#include <algorithm>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <thread>

namespace limitra::test {

PeerAnswer answer(int status, const QByteArray& body)
{
    using enum PeerAnswer::Kind;
    return { status, body, {}, {}, status == kDrop ? Drop : status == kHang ? Hang : Respond };
}

bool RecordedRequest::hasHeader(const QByteArray& lowerName) const
{
    return std::any_of(headers.begin(), headers.end(), [&](const auto& h) { return h.first == lowerName; });
}

QByteArray RecordedRequest::header(const QByteArray& lowerName) const
{
    const auto it = std::find_if(headers.begin(), headers.end(), [&](const auto& h) { return h.first == lowerName; });
    return it == headers.end() ? QByteArray() : it->second;
}

struct FakePeer::Impl
{
    std::unique_ptr<httplib::Server> server;
    std::thread thread;
    int port = 0;
    std::mutex mutex;
    std::condition_variable stopped;
    bool stopping = false;
    QMap<QByteArray, QPair<QList<PeerAnswer>, qsizetype>> scripts; // answers, next one
    QList<RecordedRequest> log;

    // Waits up to `delay`; false when the peer stops meanwhile.
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
        rec.body = QByteArray::fromStdString(req.body);
        // REMOTE_ADDR and the like come from the library, not from the client.
        for (const auto& [name, value] : req.headers)
            if (name.find('_') == std::string::npos)
                rec.headers.append(
                    { QByteArray::fromStdString(name).toLower(), QByteArray::fromStdString(value) });
        rec.host = rec.header("host");
        if (const qsizetype colon = rec.host.lastIndexOf(':'); colon > 0)
            rec.host.truncate(colon);

        PeerAnswer answer { 404 };
        qsizetype index = 0;
        {
            std::lock_guard lock(mutex);
            auto it = scripts.find(rec.host + ' ' + rec.method + ' ' + rec.path);
            if (it == scripts.end())
                it = scripts.find(rec.method + ' ' + rec.path);
            if (it != scripts.end() && !it->first.isEmpty())
                answer = it->first.at(std::min(it->second++, it->first.size() - 1));
            log.append(rec);
            index = log.size() - 1;
        }
        if (answer.kind == PeerAnswer::Kind::Hang)
            waitFor(std::chrono::hours(1));
        if (answer.kind != PeerAnswer::Kind::Respond) {
            // Headers go out, then the connection is cut before the promised body.
            res.status = 200;
            res.set_content_provider(
                16, "application/json", [](size_t, size_t, httplib::DataSink&) { return false; });
            return;
        }
        if (answer.delay.count() > 0 && !waitFor(answer.delay))
            return;
        res.status = answer.status;
        for (const auto& [name, value] : answer.headers)
            res.set_header(name.toStdString(), value.toStdString());
        res.set_content(answer.body.toStdString(), "application/json");
        std::lock_guard lock(mutex);
        log[index].answeredAt = std::chrono::steady_clock::now();
    }
};

FakePeer::FakePeer(const QString& certificateFile, const QString& keyFile, int port)
    : d(std::make_unique<Impl>())
{
    // Writing to a connection the client already closed must not end the test.
    std::signal(SIGPIPE, SIG_IGN);
    d->server = certificateFile.isEmpty() ? std::make_unique<httplib::Server>()
                                          : std::make_unique<httplib::SSLServer>(
                                              qPrintable(certificateFile), qPrintable(keyFile));
    if (!d->server->is_valid())
        return;
    const auto handler = [this](const httplib::Request& req, httplib::Response& res) { d->handle(req, res); };
    d->server->Get(".*", handler);
    d->server->Post(".*", handler);
    d->port = port == 0 ? d->server->bind_to_any_port("127.0.0.1")
                        : (d->server->bind_to_port("127.0.0.1", port) ? port : -1);
    if (d->port <= 0)
        return;
    d->thread = std::thread([this] { d->server->listen_after_bind(); });
    while (!d->server->is_running())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

FakePeer::~FakePeer()
{
    {
        std::lock_guard lock(d->mutex);
        d->stopping = true;
    }
    d->stopped.notify_all();
    d->server->stop();
    if (d->thread.joinable())
        d->thread.join();
}

bool FakePeer::isListening() const
{
    return d->thread.joinable();
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
    d->scripts[method + ' ' + path] = { answers, 0 };
}

void FakePeer::clear()
{
    std::lock_guard lock(d->mutex);
    d->scripts.clear();
    d->log.clear();
}

QList<RecordedRequest> FakePeer::requests() const
{
    std::lock_guard lock(d->mutex);
    return d->log;
}

QList<RecordedRequest> FakePeer::requests(const QByteArray& method, const QByteArray& path) const
{
    QList<RecordedRequest> matching = requests();
    matching.removeIf([&](const RecordedRequest& r) { return r.method != method || r.path != path; });
    return matching;
}

} // namespace limitra::test
