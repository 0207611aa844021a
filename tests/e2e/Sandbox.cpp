#include "Sandbox.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/mount.h>
#include <unistd.h>
#include <vector>

namespace limitra::e2e {

namespace {
// Carries the namespaces of the outer process, so the inner one can prove
// that it really is somewhere else before it mounts anything.
const char* const kMarker = "LIMITRA_E2E_OUTER_NAMESPACES";
const QString kTrustDirectory = QStringLiteral("/etc/ssl/certs");

QByteArray currentNamespaces()
{
    return QFile::symLinkTarget(QStringLiteral("/proc/self/ns/net")).toUtf8() + ' '
        + QFile::symLinkTarget(QStringLiteral("/proc/self/ns/mnt")).toUtf8();
}

int skip(const char* why)
{
    std::fprintf(stderr, "SKIP: this test needs root and unshare(1): %s\n", why);
    return Sandbox::kSkipped;
}

bool run(const QString& program, const QStringList& arguments, QString* error)
{
    QProcess process;
    process.start(program, arguments);
    if (process.waitForFinished(30000) && process.exitStatus() == QProcess::NormalExit
        && process.exitCode() == 0)
        return true;
    *error = QStringLiteral("%1 %2 failed: %3 %4")
                 .arg(program, arguments.join(u' '), process.errorString(),
                     QString::fromLocal8Bit(process.readAllStandardError()));
    return false;
}

bool bindMount(const QString& source, const QString& target, QString* error)
{
    if (::mount(QFile::encodeName(source).constData(), QFile::encodeName(target).constData(), nullptr,
            MS_BIND, nullptr)
        == 0)
        return true;
    *error = QStringLiteral("cannot mount %1 over %2: %3")
                 .arg(source, target, QString::fromLocal8Bit(std::strerror(errno)));
    return false;
}

bool writeFile(const QString& path, const QByteArray& bytes, QString* error)
{
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size())
        return true;
    *error = QStringLiteral("cannot write %1").arg(path);
    return false;
}

// libcurl may read its bundle from outside the trust directory.
QString curlBundle()
{
    QProcess process;
    process.start(QStringLiteral("curl-config"), { QStringLiteral("--ca") });
    if (!process.waitForFinished(10000) || process.exitCode() != 0)
        return {};
    return QString::fromLocal8Bit(process.readAllStandardOutput().trimmed());
}
} // namespace

const QStringList& Sandbox::hostNames()
{
    static const QStringList names { QStringLiteral("api.anthropic.com"),
        QStringLiteral("platform.claude.com"), QStringLiteral("chatgpt.com"),
        QStringLiteral("auth.openai.com"), QStringLiteral("limitra.app") };
    return names;
}

std::optional<int> Sandbox::enter(int argc, char** argv, bool ownNetwork)
{
    if (const char* outer = std::getenv(kMarker)) {
        const QList<QByteArray> before = QByteArray(outer).split(' ');
        const QList<QByteArray> now = currentNamespaces().split(' ');
        if (before.size() != 2 || now.size() != 2 || (ownNetwork && now[0] == before[0])
            || now[1] == before[1]) {
            std::fprintf(stderr, "refusing to prepare the sandbox: still in the outer namespaces\n");
            return 1;
        }
        return std::nullopt;
    }
    if (::geteuid() != 0)
        return skip("not running as root");
    const QString unshare = QStandardPaths::findExecutable(QStringLiteral("unshare"));
    if (unshare.isEmpty())
        return skip("unshare is not installed");
    QStringList namespaces { QStringLiteral("--mount") };
    if (ownNetwork)
        namespaces.prepend(QStringLiteral("--net"));
    if (QProcess::execute(unshare, namespaces + QStringList { QStringLiteral("true") }) != 0)
        return skip("unshare is refused here");

    const QByteArray self = QFile::encodeName(QCoreApplication::applicationFilePath());
    const QByteArray unshareName = QFile::encodeName(unshare);
    std::vector<char*> arguments { const_cast<char*>(unshareName.constData()) };
    if (ownNetwork)
        arguments.push_back(const_cast<char*>("--net"));
    for (const char* option : { "--mount", "--propagation", "private", "--" })
        arguments.push_back(const_cast<char*>(option));
    arguments.push_back(const_cast<char*>(self.constData()));
    for (int i = 1; i < argc; ++i)
        arguments.push_back(argv[i]);
    arguments.push_back(nullptr);
    ::setenv(kMarker, currentNamespaces().constData(), 1);
    std::fflush(nullptr);
    ::execv(unshareName.constData(), arguments.data());
    std::fprintf(stderr, "cannot run %s: %s\n", unshareName.constData(), std::strerror(errno));
    return 1;
}

bool Sandbox::entered()
{
    return std::getenv(kMarker) != nullptr;
}

Sandbox::Sandbox() = default;

bool Sandbox::prepare(QString* error)
{
    if (!m_dir.isValid()) {
        *error = QStringLiteral("no scratch directory");
        return false;
    }
    if (!run(QStringLiteral("ip"),
            { QStringLiteral("link"), QStringLiteral("set"), QStringLiteral("lo"), QStringLiteral("up") },
            error))
        return false;

    const auto certificates = TestCertificates::generate(m_dir.path(), hostNames(), error);
    if (!certificates)
        return false;
    m_certificates = *certificates;

    const QByteArray hosts
        = "127.0.0.1 localhost\n::1 localhost\n127.0.0.1 " + hostNames().join(u' ').toUtf8() + "\n";
    if (!writeFile(scratchPath(QStringLiteral("hosts")), hosts, error)
        || !bindMount(scratchPath(QStringLiteral("hosts")), QStringLiteral("/etc/hosts"), error))
        return false;

    // A trust directory with the CA as the bundle and under its hashed name, so
    // that a client reading either the bundle file or the directory finds it.
    const QString trust = scratchPath(QStringLiteral("trust"));
    QFile ca(m_certificates.caFile);
    if (!QDir().mkpath(trust) || !ca.open(QIODevice::ReadOnly)
        || !writeFile(QDir(trust).filePath(QStringLiteral("ca-certificates.crt")), ca.readAll(), error)
        || !QFile::link(QDir(trust).filePath(QStringLiteral("ca-certificates.crt")),
            QDir(trust).filePath(m_certificates.caHash + QStringLiteral(".0")))) {
        if (error->isEmpty())
            *error = QStringLiteral("cannot build the trust directory");
        return false;
    }
    if (!bindMount(trust, kTrustDirectory, error))
        return false;
    const QString bundle = curlBundle();
    if (!bundle.isEmpty() && !bundle.startsWith(kTrustDirectory + u'/') && QFileInfo::exists(bundle)
        && !bindMount(m_certificates.caFile, bundle, error))
        return false;
    return true;
}

} // namespace limitra::e2e
