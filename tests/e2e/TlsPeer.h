#pragma once

#include "support/FakePeer.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <memory>

namespace limitra::e2e {

// A real HTTPS server on 127.0.0.1:443 that stands in for every production
// host at once: it tells them apart by the Host header, answers from a script
// per host, method and path, and records each request with the moments it
// arrived and its answer left. Unscripted requests get 404. A Drop answer cuts
// the connection after reading the request, without a single byte of answer.
// Stopping it (the destructor) releases held and hanging answers at once.
class TlsPeer
{
public:
    TlsPeer(const QString& certificateFile, const QString& keyFile, int port = 443);
    ~TlsPeer();
    TlsPeer(const TlsPeer&) = delete;
    TlsPeer& operator=(const TlsPeer&) = delete;

    bool isListening() const;

    // The same answer to every matching request.
    void on(const QByteArray& host, const QByteArray& method, const QByteArray& path,
        const test::PeerAnswer& answer);
    // Answers used in order; the last one repeats.
    void onSequence(const QByteArray& host, const QByteArray& method, const QByteArray& path,
        const QList<test::PeerAnswer>& answers);

    // Every request so far, in arrival order; the host is the "host" header.
    QList<test::RecordedRequest> requests() const;
    QList<test::RecordedRequest> requests(
        const QByteArray& host, const QByteArray& method, const QByteArray& path) const;
    // The request's host as the script names it: the Host header without a port.
    static QByteArray hostOf(const test::RecordedRequest& request);

    // Forgets every script and every record, for the next journey.
    void reset();

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};

} // namespace limitra::e2e
