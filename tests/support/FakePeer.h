#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>
#include <QUrl>

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
    QByteArray body;
    QList<QPair<QByteArray, QByteArray>> headers;
    std::chrono::milliseconds delay { 0 };
    Kind kind = Kind::Respond;

    static PeerAnswer json(int status, const QByteArray& body);
    static PeerAnswer drop();
    static PeerAnswer hang();
};

struct RecordedRequest
{
    QByteArray method;
    QByteArray path; // without the query
    QByteArray query;
    QList<QPair<QByteArray, QByteArray>> headers; // names in lower case, sorted by name
    QByteArray body;
    std::chrono::steady_clock::time_point arrivedAt;
    std::chrono::steady_clock::time_point answeredAt; // when the answer left (Respond only)

    bool hasHeader(const QByteArray& lowerName) const;
    QByteArray header(const QByteArray& lowerName) const;
};

// A real HTTP server on 127.0.0.1 on a free port, answering from a script per
// method and path and recording every request it receives. Unscripted paths
// answer 404. Stopping it (the destructor) releases hanging requests at once.
class FakePeer
{
public:
    FakePeer();
    ~FakePeer();
    FakePeer(const FakePeer&) = delete;
    FakePeer& operator=(const FakePeer&) = delete;

    QUrl baseUrl() const; // http://127.0.0.1:PORT

    // The same answer to every matching request.
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
