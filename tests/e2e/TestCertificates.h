#pragma once

#include <QString>
#include <QStringList>

#include <optional>

namespace limitra::e2e {

// A throw-away certificate authority and one server certificate signed by it
// that names every given host, made with the openssl tool. Nothing here is
// trusted anywhere until the sandbox mounts the CA as the system trust store.
struct TestCertificates
{
    QString caFile; // PEM, the only certificate the sandbox trusts
    QString caHash; // OpenSSL's subject hash, for the hashed trust directory
    QString certificateFile; // PEM, the server's certificate
    QString keyFile; // PEM, the server's private key

    // Writes the files into `directory`. Gives nothing and explains in `error`
    // when openssl is missing or fails.
    static std::optional<TestCertificates> generate(
        const QString& directory, const QStringList& hosts, QString* error);
};

} // namespace limitra::e2e
