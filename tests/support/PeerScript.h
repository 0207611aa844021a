#pragma once

#include "support/FakePeer.h"

#include <QByteArray>
#include <QList>
#include <QMap>

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace httplib {
struct Request;
struct Response;
} // namespace httplib

namespace limitra::test {

// What the fake servers share: the scripted answers per key, the record of
// every request, and waits that end at once when the server stops.
class PeerScript
{
public:
    explicit PeerScript(PeerAnswer notFound);

    // Answers used in order for `key`; the last one repeats.
    void set(const QByteArray& key, const QList<PeerAnswer>& answers);

    // Records the request and takes its answer; keyPrefix goes before "METHOD path".
    struct Taken
    {
        qsizetype index;
        PeerAnswer answer;
    };
    Taken take(const httplib::Request& req, QByteArray (*keyPrefix)(const RecordedRequest&) = nullptr);

    // Waits for the answer's delay and fills the response; false when the
    // server stopped meanwhile. Marks when the answer left.
    bool respond(const Taken& taken, httplib::Response& res);
    // Waits until the server stops.
    void hang() { waitFor(std::chrono::hours(1)); }

    QList<RecordedRequest> requests() const;
    void clear();
    // Releases every wait; call before stopping the server.
    void stop();

private:
    bool waitFor(std::chrono::milliseconds delay);

    struct Script
    {
        QList<PeerAnswer> answers;
        qsizetype next = 0;
    };

    const PeerAnswer m_notFound;
    mutable std::mutex m_mutex;
    std::condition_variable m_stopped;
    bool m_stopping = false;
    QMap<QByteArray, Script> m_scripts;
    QList<RecordedRequest> m_log;
};

} // namespace limitra::test
