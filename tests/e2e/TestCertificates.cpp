#include "TestCertificates.h"

#include <QDir>
#include <QFile>
#include <QProcess>

namespace limitra::e2e {

namespace {
// Our own configuration, so the system's openssl.cnf adds no extensions of its own.
QByteArray configuration(const QStringList& hosts)
{
    QStringList names;
    for (const QString& host : hosts)
        names.append(QStringLiteral("DNS:") + host);
    return "[req]\n"
           "prompt = no\n"
           "distinguished_name = dn\n"
           "[dn]\n"
           "CN = Limitra e2e\n"
           "[ca_ext]\n"
           "basicConstraints = critical,CA:TRUE\n"
           "keyUsage = critical,keyCertSign,cRLSign\n"
           "subjectKeyIdentifier = hash\n"
           "[server_ext]\n"
           "basicConstraints = critical,CA:FALSE\n"
           "keyUsage = critical,digitalSignature\n"
           "extendedKeyUsage = serverAuth\n"
           "subjectKeyIdentifier = hash\n"
           "authorityKeyIdentifier = keyid\n"
           "subjectAltName = "
        + names.join(u',').toUtf8() + "\n";
}

bool openssl(const QString& directory, const QStringList& arguments, QByteArray* output, QString* error)
{
    QProcess process;
    process.setWorkingDirectory(directory);
    process.start(QStringLiteral("openssl"), arguments);
    if (!process.waitForFinished(60000) || process.exitStatus() != QProcess::NormalExit
        || process.exitCode() != 0) {
        *error = QStringLiteral("openssl %1 failed: %2 %3")
                     .arg(arguments.value(0), process.errorString(),
                         QString::fromLocal8Bit(process.readAllStandardError()));
        return false;
    }
    if (output)
        *output = process.readAllStandardOutput();
    return true;
}
} // namespace

std::optional<TestCertificates> TestCertificates::generate(
    const QString& directory, const QStringList& hosts, QString* error)
{
    const QDir dir(directory);
    QFile config(dir.filePath(QStringLiteral("openssl.cnf")));
    if (!config.open(QIODevice::WriteOnly | QIODevice::Truncate) || config.write(configuration(hosts)) < 0) {
        *error = QStringLiteral("cannot write %1").arg(config.fileName());
        return std::nullopt;
    }
    config.close();

    const QStringList newKey { QStringLiteral("-newkey"), QStringLiteral("ec"), QStringLiteral("-pkeyopt"),
        QStringLiteral("ec_paramgen_curve:prime256v1"), QStringLiteral("-nodes"), QStringLiteral("-config"),
        QStringLiteral("openssl.cnf") };
    TestCertificates certs;
    certs.caFile = dir.filePath(QStringLiteral("ca.pem"));
    certs.certificateFile = dir.filePath(QStringLiteral("server.pem"));
    certs.keyFile = dir.filePath(QStringLiteral("server.key"));

    QByteArray hash;
    const bool made = openssl(directory,
                          QStringList { QStringLiteral("req"), QStringLiteral("-x509"),
                              QStringLiteral("-extensions"), QStringLiteral("ca_ext"),
                              QStringLiteral("-days"), QStringLiteral("2"), QStringLiteral("-keyout"),
                              QStringLiteral("ca.key"), QStringLiteral("-out"), QStringLiteral("ca.pem") }
                              + newKey,
                          nullptr, error)
        && openssl(directory,
            QStringList { QStringLiteral("req"), QStringLiteral("-new"), QStringLiteral("-keyout"),
                QStringLiteral("server.key"), QStringLiteral("-out"), QStringLiteral("server.csr") }
                + newKey,
            nullptr, error)
        && openssl(directory,
            { QStringLiteral("x509"), QStringLiteral("-req"), QStringLiteral("-in"),
                QStringLiteral("server.csr"), QStringLiteral("-CA"), QStringLiteral("ca.pem"),
                QStringLiteral("-CAkey"), QStringLiteral("ca.key"), QStringLiteral("-set_serial"),
                QStringLiteral("2"), QStringLiteral("-days"), QStringLiteral("2"), QStringLiteral("-extfile"),
                QStringLiteral("openssl.cnf"), QStringLiteral("-extensions"), QStringLiteral("server_ext"),
                QStringLiteral("-out"), QStringLiteral("server.pem") },
            nullptr, error)
        && openssl(directory,
            { QStringLiteral("x509"), QStringLiteral("-hash"), QStringLiteral("-noout"),
                QStringLiteral("-in"), QStringLiteral("ca.pem") },
            &hash, error);
    if (!made)
        return std::nullopt;
    certs.caHash = QString::fromLatin1(hash.trimmed());
    return certs;
}

} // namespace limitra::e2e
