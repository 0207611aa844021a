#include "platform/BusAddressProbe.h"

#include <QList>

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace limitra::platform::BusAddressProbe {

namespace {
class Socket
{
public:
    explicit Socket(int family)
        : m_fd(::socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
    {
    }
    ~Socket()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    int fd() const { return m_fd; }

private:
    int m_fd;
};

bool unixAccepts(const QByteArray& name, bool abstract)
{
    sockaddr_un addr {};
    addr.sun_family = AF_UNIX;
    const qsizetype offset = abstract ? 1 : 0;
    if (name.isEmpty() || name.size() + offset >= qsizetype(sizeof(addr.sun_path)))
        return false;
    std::memcpy(addr.sun_path + offset, name.constData(), size_t(name.size()));
    const auto length
        = socklen_t(offsetof(sockaddr_un, sun_path) + size_t(offset + name.size()) + (abstract ? 0 : 1));
    Socket socket(AF_UNIX);
    if (socket.fd() < 0)
        return false;
    // A local socket connects or fails at once; a full backlog (EAGAIN) counts as busy.
    return ::connect(socket.fd(), reinterpret_cast<const sockaddr*>(&addr), length) == 0;
}

bool tcpAccepts(const QByteArray& host, const QByteArray& port, std::chrono::milliseconds wait)
{
    // Only literal addresses: a name lookup could block for long.
    addrinfo hints {};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    const QByteArray literal = (host.isEmpty() || host == "localhost") ? QByteArray("127.0.0.1") : host;
    addrinfo* found = nullptr;
    if (::getaddrinfo(literal.constData(), port.constData(), &hints, &found) != 0)
        return false;
    bool accepted = false;
    for (addrinfo* a = found; a && !accepted; a = a->ai_next) {
        Socket socket(a->ai_family);
        if (socket.fd() < 0)
            continue;
        if (::connect(socket.fd(), a->ai_addr, a->ai_addrlen) == 0) {
            accepted = true;
        } else if (errno == EINPROGRESS) {
            pollfd p { socket.fd(), POLLOUT, 0 };
            int error = 0;
            socklen_t size = sizeof(error);
            accepted = ::poll(&p, 1, int(wait.count())) == 1
                && ::getsockopt(socket.fd(), SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
        }
    }
    ::freeaddrinfo(found);
    return accepted;
}

QByteArray parameter(const QList<QByteArray>& pairs, const QByteArray& key)
{
    for (const QByteArray& pair : pairs) {
        if (pair.startsWith(key + '='))
            return QByteArray::fromPercentEncoding(pair.mid(key.size() + 1));
    }
    return {};
}
} // namespace

bool accepts(const QByteArray& address, std::chrono::milliseconds tcpWait)
{
    for (const QByteArray& entry : address.split(';')) {
        const qsizetype colon = entry.indexOf(':');
        if (colon <= 0)
            continue;
        const QByteArray transport = entry.left(colon);
        const QList<QByteArray> pairs = entry.mid(colon + 1).split(',');
        if (transport == "unix") {
            const QByteArray path = parameter(pairs, "path");
            const QByteArray abstract = parameter(pairs, "abstract");
            if ((!path.isEmpty() && unixAccepts(path, false))
                || (!abstract.isEmpty() && unixAccepts(abstract, true)))
                return true;
        } else if (transport == "tcp") {
            if (tcpAccepts(parameter(pairs, "host"), parameter(pairs, "port"), tcpWait))
                return true;
        }
    }
    return false;
}

bool sessionBusAccepts()
{
    const QByteArray address = qgetenv("DBUS_SESSION_BUS_ADDRESS");
    if (!address.isEmpty())
        return accepts(address);
    const QByteArray runtime = qgetenv("XDG_RUNTIME_DIR");
    if (runtime.isEmpty())
        return false;
    return unixAccepts(runtime + "/bus", false);
}

} // namespace limitra::platform::BusAddressProbe
