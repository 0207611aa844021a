#include "TlsPeer.h"

#include "support/PeerScript.h"

#include <httplib.h>

#include <csignal>
#include <sys/socket.h>
#include <thread>

namespace limitra::e2e {

using test::PeerAnswer;
using test::PeerScript;
using test::RecordedRequest;

struct TlsPeer::Impl
{
    Impl(const QString& certificateFile, const QString& keyFile)
        : server(certificateFile.toLocal8Bit().constData(), keyFile.toLocal8Bit().constData())
    {
    }

    httplib::SSLServer server;
    std::thread thread;
    bool listening = false;
    PeerScript script { PeerAnswer::json(404, "{}") };

    static QByteArray key(const QByteArray& host, const QByteArray& method, const QByteArray& path)
    {
        return host + ' ' + method + ' ' + path;
    }

    void handle(const httplib::Request& req, httplib::Response& res)
    {
        const PeerScript::Taken taken = script.take(req, &TlsPeer::hostOf);
        if (taken.answer.kind == PeerAnswer::Kind::Hang)
            script.hang();
        if (taken.answer.kind != PeerAnswer::Kind::Respond) {
            // The client sees the connection end before any answer.
            ::shutdown(SSL_get_fd(req.ssl), SHUT_RDWR);
            return;
        }
        script.respond(taken, res);
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
    d->script.stop();
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
    d->script.set(Impl::key(host, method, path), answers);
}

QList<RecordedRequest> TlsPeer::requests() const
{
    return d->script.requests();
}

QList<RecordedRequest> TlsPeer::requests(
    const QByteArray& host, const QByteArray& method, const QByteArray& path) const
{
    QList<RecordedRequest> matching;
    for (const RecordedRequest& r : d->script.requests()) {
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
    d->script.clear();
}

} // namespace limitra::e2e
