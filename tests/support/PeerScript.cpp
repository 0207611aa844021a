#include "support/PeerScript.h"

#include <httplib.h>

namespace limitra::test {

PeerScript::PeerScript(PeerAnswer notFound)
    : m_notFound(std::move(notFound))
{
}

void PeerScript::set(const QByteArray& key, const QList<PeerAnswer>& answers)
{
    std::lock_guard lock(m_mutex);
    m_scripts[key] = Script { answers, 0 };
}

PeerScript::Taken PeerScript::take(
    const httplib::Request& req, QByteArray (*keyPrefix)(const RecordedRequest&))
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
    const QByteArray key = (keyPrefix ? keyPrefix(rec) + ' ' : QByteArray()) + rec.method + ' ' + rec.path;

    std::lock_guard lock(m_mutex);
    PeerAnswer answer = m_notFound;
    auto it = m_scripts.find(key);
    if (it != m_scripts.end() && !it->answers.isEmpty()) {
        answer = it->answers.at(std::min(it->next, it->answers.size() - 1));
        ++it->next;
    }
    m_log.append(rec);
    return { m_log.size() - 1, answer };
}

bool PeerScript::respond(const Taken& taken, httplib::Response& res)
{
    const PeerAnswer& answer = taken.answer;
    if (answer.delay.count() > 0 && !waitFor(answer.delay))
        return false;
    res.status = answer.status;
    std::string contentType = "text/plain";
    for (const auto& [name, value] : answer.headers) {
        if (name.toLower() == "content-type")
            contentType = value.toStdString();
        else
            res.set_header(name.toStdString(), value.toStdString());
    }
    res.set_content(answer.body.toStdString(), contentType);
    std::lock_guard lock(m_mutex);
    m_log[taken.index].answeredAt = std::chrono::steady_clock::now();
    return true;
}

bool PeerScript::waitFor(std::chrono::milliseconds delay)
{
    std::unique_lock lock(m_mutex);
    return !m_stopped.wait_for(lock, delay, [this] { return m_stopping; });
}

QList<RecordedRequest> PeerScript::requests() const
{
    std::lock_guard lock(m_mutex);
    return m_log;
}

void PeerScript::clear()
{
    std::lock_guard lock(m_mutex);
    m_scripts.clear();
    m_log.clear();
}

void PeerScript::stop()
{
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_stopped.notify_all();
}

} // namespace limitra::test
