#pragma once

#include <QByteArray>
#include <QProcess>
#include <QRegularExpression>
#include <QString>
#include <QStringList>

namespace limitra::test {

// The private keyring of tests/support/with-keyring.sh, driven through
// secret-tool and gdbus: independent clients of the same Secret Service.
namespace Keyring {
// Secret-touching tests refuse to run outside the launcher, so that run by
// hand they cannot write to the developer's own keyring.
inline bool isPrivate()
{
    return qEnvironmentVariableIsSet("LIMITRA_PRIVATE_KEYRING");
}

struct Run
{
    int exitCode = -1;
    QByteArray out;
};

inline Run run(const QString& program, const QStringList& args, const QByteArray& input = {})
{
    QProcess p;
    p.start(program, args);
    p.write(input);
    p.closeWriteChannel();
    if (!p.waitForFinished(10000))
        return {};
    return { p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, p.readAllStandardOutput() };
}

// Stores an item the way another program would; an empty account means the
// item carries no account attribute at all.
inline bool store(const QString& service, const QString& account, const QByteArray& data,
    const QStringList& extraAttributes = {})
{
    QStringList args { QStringLiteral("store"), QStringLiteral("--label=other"), QStringLiteral("service"),
        service };
    if (!account.isEmpty())
        args << QStringLiteral("account") << account;
    return run(QStringLiteral("secret-tool"), args + extraAttributes, data).exitCode == 0;
}

inline QByteArray lookup(const QString& service, const QString& account)
{
    return run(QStringLiteral("secret-tool"),
        { QStringLiteral("lookup"), QStringLiteral("service"), service, QStringLiteral("account"), account })
        .out;
}

inline void clear(const QString& service)
{
    run(QStringLiteral("secret-tool"), { QStringLiteral("clear"), QStringLiteral("service"), service });
}

inline Run serviceCall(const QString& method, const QString& argument)
{
    return run(QStringLiteral("gdbus"),
        { QStringLiteral("call"), QStringLiteral("--session"), QStringLiteral("--dest"),
            QStringLiteral("org.freedesktop.secrets"), QStringLiteral("--object-path"),
            QStringLiteral("/org/freedesktop/secrets"), QStringLiteral("--method"),
            QStringLiteral("org.freedesktop.Secret.Service.") + method, argument });
}

// Items of a service, locked ones included (the search does not unlock).
inline int count(const QString& service)
{
    const Run r
        = serviceCall(QStringLiteral("SearchItems"), QStringLiteral("{'service': '%1'}").arg(service));
    if (r.exitCode != 0)
        return -1;
    static const QRegularExpression item(QStringLiteral("'/org/freedesktop/secrets/collection/[^']+'"));
    return int(QString::fromUtf8(r.out).count(item));
}

inline bool lockLogin()
{
    return serviceCall(
               QStringLiteral("Lock"), QStringLiteral("['/org/freedesktop/secrets/collection/login']"))
               .exitCode
        == 0;
}
} // namespace Keyring

} // namespace limitra::test
