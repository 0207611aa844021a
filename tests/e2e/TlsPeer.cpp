#include "TlsPeer.h"

#include <httplib.h>

#include <QMap>

#include <condition_variable>
#include <csignal>
#include <mutex>
#include <sys/socket.h>
#include <thread>

namespace limitra::e2e {

using test::PeerAnswer;
using test::RecordedRequest;

struct TlsPeer::Impl
{
    struct Script
    {
        QList<PeerAnswer> answers;
        qsizetype next = 0;
    };

    Impl(const QString& certificateFile, const QString& keyFile)
        : server(certificateFile.toLocal8Bit().constData(), keyFile.toLocal8Bit().constData())
    {
    }

    httplib::SSLServer server;
    std::thread thread;
    bool listening = false;

    mutable std::mutex mutex;
    std::condition_variable stopped;
    bool stopping = false;
    QMap<QByteArray, Script> scripts;
    QList<RecordedRequest> log;

    static QByteArray key(const QByteArray& host, const QByteArray& method, const QByteArray& path)
    {
        return host + ' ' + method + ' ' + path;
    }

    PeerAnswer answerFor(const QByteArray& scriptKey)
    {
        auto it = scripts.find(scriptKey);
        if (it == scripts.end() || it->answers.isEmpty())
            return PeerAnswer::json(404, "{}");
        const PeerAnswer answer = it->answers.at(std::min(it->next, it->answers.size() - 1));
        ++it->next;
        return answer;
    }

    // Waits up to `delay`, or until the peer stops; false when stopping.
    bool waitFor(std::chrono::milliseconds delay)
    {
        std::unique_lock lock(mutex);
        return !stopped.wait_for(lock, delay, [this] { return stopping; });
    }

    void handle(const httplib::Request& req, httplib::Response& res)
    {
        RecordedRequest record;
        record.arrivedAt = std::chrono::steady_clock::now();
        record.method = QByteArray::fromStdString(req.method);
        record.path = QByteArray::fromStdString(req.path);
        for (const auto& [name, value] : req.headers) {
            if (name == "REMOTE_ADDR" || name == "REMOTE_PORT" || name == "LOCAL_ADDR"
                || name == "LOCAL_PORT")
                continue; // added by the server library, not sent by the client
            record.headers.append(
                { QByteArray::fromStdString(name).toLower(), QByteArray::fromStdString(value) });
        }
        record.body = QByteArray::fromStdString(req.body);
        const QByteArray host = TlsPeer::hostOf(record);

        qsizetype index = 0;
        PeerAnswer answer;
        {
            std::lock_guard lock(mutex);
            answer = answerFor(key(host, record.method, record.path));
            index = log.size();
            log.append(record);
        }

        if (answer.kind == PeerAnswer::Kind::Hang)
            waitFor(std::chrono::hours(1));
        if (answer.kind != PeerAnswer::Kind::Respond) {
            // The client sees the connection end before any answer.
            ::shutdown(SSL_get_fd(req.ssl), SHUT_RDWR);
            return;
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

TlsPeer::TlsPeer(const QString& certificateFile, const QString& keyFile, int port)
    : d(std::make_unique<Impl>(certificateFile, keyFile))
{
    // Writing to a connection the client already closed must not kill the test.
    std::signal(SIGPIPE, SIG_IGN);
    if (!d->server.is_valid())
        return;
    const auto handler = [this](const httplib::Request& req, httplib::Response& res) { d->handle(req, res); };
    d->server.Get(".*", handler);
    d->server.Post(".*", handler);
    d->server.Put(".*", handler);
    d->server.Delete(".*", handler);
    d->server.Patch(".*", handler);
    d->listening = d->server.bind_to_port("127.0.0.1", port);
    if (!d->listening)
        return;
    d->thread = std::thread([this] { d->server.listen_after_bind(); });
    while (!d->server.is_running())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

TlsPeer::~TlsPeer()
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

bool TlsPeer::isListening() const
{
    return d->listening;
}

void TlsPeer::on(
    const QByteArray& host, const QByteArray& method, const QByteArray& path, const PeerAnswer& answer)
{
    onSequence(host, method, path, { answer });
}

void TlsPeer::onSequence(const QByteArray& host, const QByteArray& method, const QByteArray& path,
    const QList<PeerAnswer>& answers)
{
    std::lock_guard lock(d->mutex);
    d->scripts[Impl::key(host, method, path)] = Impl::Script { answers, 0 };
}

QList<RecordedRequest> TlsPeer::requests() const
{
    std::lock_guard lock(d->mutex);
    return d->log;
}

QList<RecordedRequest> TlsPeer::requests(
    const QByteArray& host, const QByteArray& method, const QByteArray& path) const
{
    std::lock_guard lock(d->mutex);
    QList<RecordedRequest> matching;
    for (const RecordedRequest& r : d->log) {
        if (hostOf(r) == host && r.method == method && r.path == path)
            matching.append(r);
    }
    return matching;
}

QByteArray TlsPeer::hostOf(const RecordedRequest& request)
{
    // The default port may be spelt out in the header; scripts name bare hosts.
    QByteArray host = request.header("host");
    if (const qsizetype colon = host.lastIndexOf(':'); colon > 0)
        host.truncate(colon);
    return host;
}

void TlsPeer::reset()
{
    std::lock_guard lock(d->mutex);
    d->scripts.clear();
    d->log.clear();
}

} // namespace limitra::e2e
