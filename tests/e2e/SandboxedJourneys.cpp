#include "SandboxedJourneys.h"

#include "ServiceFixtures.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace limitra::e2e {

SandboxedJourneys::SandboxedJourneys(const Sandbox& sandbox)
    : m_sandbox(sandbox)
{
}

SandboxedJourneys::~SandboxedJourneys() = default;

void SandboxedJourneys::initTestCase()
{
    QVERIFY2(QFileInfo(LimitraRun::binary()).isExecutable(), "LIMITRA_BINARY names no executable");
    m_peer = std::make_unique<TlsPeer>(
        m_sandbox.certificates().certificateFile, m_sandbox.certificates().keyFile);
    QVERIFY2(m_peer->isListening(), "the TLS peer cannot listen on 127.0.0.1:443");
}

void SandboxedJourneys::init()
{
    m_peer->reset();
    m_home = std::make_unique<QTemporaryDir>();
    QVERIFY(m_home->isValid());
}

void SandboxedJourneys::cleanup()
{
    m_home.reset();
}

LimitraRun SandboxedJourneys::run(const QStringList& arguments, const QProcessEnvironment& extra) const
{
    QProcessEnvironment environment = LimitraRun::sessionless(home());
    environment.insert(extra);
    const LimitraRun result = LimitraRun::start(arguments, environment);
    [&] {
        QVERIFY2(result.finished, result.err.constData());
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.endsWithNewline());
        QCOMPARE(result.err, QByteArray());
        QVERIFY2(!result.out.contains(ServiceFixtures::kSecretMarker), result.out.constData());
    }();
    return result;
}

QString SandboxedJourneys::describe(const test::RecordedRequest& request)
{
    QString text = QString::fromUtf8(request.method + ' ' + TlsPeer::hostOf(request) + ' ' + request.path);
    if (request.hasHeader("authorization"))
        text += u' ' + QString::fromUtf8(request.header("authorization"));
    return text;
}

QStringList SandboxedJourneys::describeSorted(const QList<test::RecordedRequest>& requests)
{
    QStringList texts;
    for (const test::RecordedRequest& r : requests)
        texts.append(describe(r));
    texts.sort();
    return texts;
}

double SandboxedJourneys::wallClock()
{
    return static_cast<double>(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
}

QByteArray SandboxedJourneys::readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QStringList SandboxedJourneys::entriesOf(const QString& directory)
{
    return QDir(directory).entryList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}

std::filesystem::perms SandboxedJourneys::permissionsOf(const QString& path)
{
    return std::filesystem::status(path.toStdString()).permissions() & std::filesystem::perms::mask;
}

} // namespace limitra::e2e
