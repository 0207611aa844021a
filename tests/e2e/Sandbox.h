#pragma once

#include "TestCertificates.h"

#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <optional>

namespace limitra::e2e {

// The private world in which the unmodified binary meets the fake peers: its
// own network namespace with only loopback, the five production host names
// pointing at 127.0.0.1 through a bind-mounted /etc/hosts, and a trust store
// that holds nothing but a test CA. Mounts and network vanish with the process.
class Sandbox
{
public:
    // CTest's SKIP_RETURN_CODE for the e2e tests.
    static constexpr int kSkipped = 77;

    // The production hosts of the program's endpoints.
    static const QStringList& hostNames();

    // Outside the namespace, runs this same program again inside
    // `unshare --net --mount` (only `--mount` without ownNetwork) and gives
    // its exit status, or kSkipped with a message when that is impossible
    // (not root, no unshare). Inside, gives nothing and the caller carries on.
    static std::optional<int> enter(int argc, char** argv, bool ownNetwork = true);
    // Whether this process runs inside the namespace that enter() made.
    static bool entered();

    Sandbox();

    // Brings loopback up, makes the certificates and mounts the hosts file and
    // the trust store. Only inside the namespace that enter() made.
    bool prepare(QString* error);

    const TestCertificates& certificates() const { return m_certificates; }
    // A scratch directory that lives as long as the sandbox.
    QString scratchPath(const QString& name) const { return m_dir.filePath(name); }

private:
    QTemporaryDir m_dir;
    TestCertificates m_certificates;
};

} // namespace limitra::e2e
