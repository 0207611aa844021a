#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QUrl>

#include <chrono>
#include <memory>

namespace limitra::test {

using Headers = QList<QPair<QByteArray, QByteArray>>;

// One scripted answer of the fake peer: status, headers and JSON body after `delay`; or Drop (read the
// request, send the headers, cut the connection before the body) or Hang (never answer until the peer stops).
struct PeerAnswer
{
    int status = 200;
    QByteArray body {};
    Headers headers {};
    std::chrono::milliseconds delay { 0 };
    enum class Kind { Respond, Drop, Hang } kind = Kind::Respond;
};
// The statuses kDrop and kHang script a transport failure instead of an answer.
inline constexpr int kDrop = -1, kHang = -2;
PeerAnswer answer(int status, const QByteArray& body = {});

struct RecordedRequest
{
    QByteArray method, host, path, body; // the host without its port, the path without the query
    Headers headers; // names in lower case, sorted by name
    std::chrono::steady_clock::time_point arrivedAt, answeredAt; // answered: when the answer left

    bool hasHeader(const QByteArray& lowerName) const;
    QByteArray header(const QByteArray& lowerName) const;
};

// A real HTTP server on 127.0.0.1, HTTPS given a certificate and key, on a free port unless given
// one, answering from a script per method and path (404 when unscripted) and recording every
// request. Stopping it (the destructor) releases held and hanging requests at once.
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
