#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>
#include <QUrl>

#include <algorithm>
#include <chrono>
#include <memory>

namespace limitra::test {

// One scripted answer of the fake peer.
struct PeerAnswer
{
    enum class Kind {
        Respond, // send status, headers and body after `delay`
        Drop, // read the request, then cut the connection without an answer
        Hang, // read the request and never answer (until the peer stops)
    };

    int status = 200;
    QByteArray body {};
    QList<QPair<QByteArray, QByteArray>> headers {};
    std::chrono::milliseconds delay { 0 };
    Kind kind = Kind::Respond;

    static PeerAnswer json(int status, const QByteArray& body)
    {
        return { .status = status, .body = body, .headers = { { "Content-Type", "application/json" } } };
    }
    static PeerAnswer drop() { return { .kind = Kind::Drop }; }
    static PeerAnswer hang() { return { .kind = Kind::Hang }; }
};

struct RecordedRequest
{
    QByteArray method;
    QByteArray host; // the Host header without its port
    QByteArray path; // without the query
    QByteArray query;
    QList<QPair<QByteArray, QByteArray>> headers; // names in lower case, sorted by name
    QByteArray body;
    std::chrono::steady_clock::time_point arrivedAt;
    std::chrono::steady_clock::time_point answeredAt; // when the answer left (Respond only)

    bool hasHeader(const QByteArray& lowerName) const
    {
        return std::any_of(
            headers.begin(), headers.end(), [&](const auto& h) { return h.first == lowerName; });
    }
    QByteArray header(const QByteArray& lowerName) const;
};

// A real HTTP server on 127.0.0.1, HTTPS given a certificate and key, on a free
// port unless given one, answering from a script per method and path (404 when
// unscripted) and recording every request. Stopping it (the destructor)
// releases held and hanging requests at once.
class FakePeer
{
public:
    explicit FakePeer(const QString& certificateFile = {}, const QString& keyFile = {}, int port = 0);
    ~FakePeer();
    FakePeer(const FakePeer&) = delete;
    FakePeer& operator=(const FakePeer&) = delete;

    bool isListening() const;
    QUrl baseUrl() const; // http://127.0.0.1:PORT

    // The same answer to every matching request. A host before the method
    // ("chatgpt.com GET") matches only requests whose Host header names it.
    void on(const QByteArray& method, const QByteArray& path, const PeerAnswer& answer);
    // Answers used in order; the last one repeats.
    void onSequence(const QByteArray& method, const QByteArray& path, const QList<PeerAnswer>& answers);
    // Forgets every script and recorded request.
    void clear();

    QList<RecordedRequest> requests() const;
    QList<RecordedRequest> requests(const QByteArray& method, const QByteArray& path) const;

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};

} // namespace limitra::test
