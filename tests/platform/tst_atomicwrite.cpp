// A killed or failing write of a credentials file never loses the session.
// As root the test runs in a private mount namespace (Sandbox.h), where it
// fills a small tmpfs and mounts a folder read-only; elsewhere those cases skip.
#include "Sandbox.h"
#include "platform/Files.h"
#include "platform/Json.h"
#include "services/claude/ClaudeProvider.h"
#include "services/codex/CodexProvider.h"
#include "support/TestEnv.h"

#include <QDir>
#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QtTest>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace limitra;
using namespace limitra::test;

namespace {
constexpr double kNow = 1732000000.0;
const QString kClaudeFile = QString(ClaudeProvider::credentialsFile);
const QString kCodexFile = QStringLiteral(".codex/auth.json");
const QByteArray kUsage = R"({"five_hour":{"utilization":10},"seven_day":{"utilization":20}})";
const QByteArray kCodexUsage = R"({"rate_limit":{"primary_window":{"used_percent":42}}})";

// A Claude Code document big enough that writing it takes a while.
QJsonObject claudeDocument(const QString& token)
{
    return QJsonObject {
        { "claudeAiOauth",
            QJsonObject { { "accessToken", token }, { "refreshToken", "rt-" + token }, { "expiresAt", 0 } } },
        { "padding", QString(64 * 1024, u'x') }
    };
}

QStringList entries(const QString& dir)
{
    return QDir(dir).entryList(QDir::Files | QDir::Hidden | QDir::System, QDir::Name);
}

bool mountOrWarn(const char* source, const QString& target, const char* type, unsigned long flags,
    const char* options = nullptr)
{
    if (::mount(source, QFile::encodeName(target).constData(), type, flags, options) == 0)
        return true;
    qWarning("mount on %s: %s", qPrintable(target), std::strerror(errno));
    return false;
}
} // namespace

class TestAtomicWrite : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // A child replaces Claude Code's file in a loop, the way a refresh writes it
    // back, and is killed at a random moment, hundreds of times. After every
    // kill the file is one of the two documents, whole, owner-only and still
    // its owner's; the next write leaves no temporary file behind.
    void killedWriterNeverLeavesAPartialFile()
    {
        // No peer here: the child is forked from a process without other threads.
        QTemporaryDir home;
        platform::Environment env;
        env.home = home.path();
        const QByteArray old = platform::Json::compact(claudeDocument("old"));
        const QByteArray renewed = platform::Json::compact(claudeDocument("new"));
        const QString file = env.homePath(kClaudeFile);
        QVERIFY(writeFile(file, old));
        const uint owner = ::geteuid() == 0 ? 65534 : ::geteuid();
        QCOMPARE(::chown(QFile::encodeName(file).constData(), owner, owner), 0);

        QElapsedTimer clock;
        clock.start();
        int kills = 0, interrupted = 0;
        for (; kills < 300 && clock.elapsed() < 15000; ++kills) {
            const pid_t child = ::fork();
            QVERIFY(child >= 0);
            if (child == 0) {
                for (int i = 0;; ++i)
                    ClaudeProvider::persist(env, claudeDocument(i % 2 ? "old" : "new"));
            }
            ::usleep(QRandomGenerator::global()->bounded(3000u));
            ::kill(child, SIGKILL);
            int status = 0;
            QCOMPARE(::waitpid(child, &status, 0), child);
            QVERIFY(WIFSIGNALED(status));

            const QByteArray now = readFile(file);
            QVERIFY2(now == old || now == renewed,
                qPrintable(
                    QStringLiteral("partial file after kill %1: %2 bytes").arg(kills).arg(now.size())));
            QVERIFY(platform::Json::parseObject(now));
            QCOMPARE(modeOf(file), 0600);
            QCOMPARE(QFileInfo(file).ownerId(), owner);
            // Each write first clears what a killed writer left, so at most the last one's remains.
            const qsizetype left = entries(QFileInfo(file).path()).size() - 1;
            QVERIFY2(left <= 1, qPrintable(entries(QFileInfo(file).path()).join(u' ')));
            interrupted += left;
        }
        qInfo("%d kills in %lld ms, %d of them during a write", kills, clock.elapsed(), interrupted);
        QVERIFY2(kills >= 100, "too few kills to mean anything");
        QVERIFY2(interrupted > 0, "no kill landed during a write");

        QVERIFY(platform::Files::writeAtomic(file, old));
        QCOMPARE(entries(QFileInfo(file).path()), QStringList { ".credentials.json" });
    }

    // mount: how the folder of the credentials file refuses the new document.
    void failedWriteKeepsTheOldFileAndTheUsage_data()
    {
        QTest::addColumn<QString>("service");
        QTest::addColumn<QString>("mount");
        for (const char* service : { "claude", "codex" }) {
            QTest::addRow("%s, full file system", service) << service << "full";
            QTest::addRow("%s, read-only folder", service) << service << "readonly";
        }
    }
    void failedWriteKeepsTheOldFileAndTheUsage()
    {
        QFETCH(QString, service);
        QFETCH(QString, mount);
        if (!e2e::Sandbox::entered())
            QSKIP("needs root, in a private mount namespace");
        TestEnv t(kNow);
        const bool claude = service == u"claude";
        const QString relative = claude ? kClaudeFile : kCodexFile;
        const QString dir = QFileInfo(t.path(relative)).path();
        QVERIFY(QDir().mkpath(dir));
        if (mount == u"full")
            QVERIFY(mountOrWarn("tmpfs", dir, "tmpfs", 0, "size=128k,mode=0700"));

        const QByteArray old = claude
            ? platform::Json::compact(claudeDocument("old"))
            : QByteArray(R"({"tokens":{"access_token":"at-1","refresh_token":"rt-1"}})");
        QVERIFY(t.write(relative, old));
        if (mount == u"full") {
            QFile filler(QDir(dir).filePath("filler"));
            QVERIFY(filler.open(QIODevice::WriteOnly));
            while (filler.write(QByteArray(4096, 'f')) == 4096 && filler.flush()) { }
        } else {
            QVERIFY(mountOrWarn(QFile::encodeName(dir).constData(), dir, nullptr, MS_BIND));
            QVERIFY(mountOrWarn(nullptr, dir, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY));
        }
        const QStringList before = entries(dir);

        t.peer.on("POST", claude ? "/v1/oauth/token" : "/oauth/token",
            answer(200, R"({"access_token":"renewed","refresh_token":"rt-2","expires_in":3600})"));
        t.peer.onSequence("GET", claude ? "/api/oauth/usage" : "/backend-api/wham/usage",
            { answer(401), answer(200, claude ? kUsage : kCodexUsage) });
        const ServiceUsage usage = claude ? ClaudeProvider::fetch(t.env) : CodexProvider::fetch(t.env);

        QCOMPARE(usage.errorOrEmpty(), QString());
        QCOMPARE(usage.rows.size(), claude ? 2 : 1);
        QCOMPARE(t.peer.requests().last().header("authorization"), QByteArray("Bearer renewed"));
        QCOMPARE(t.read(relative), old);
        QCOMPARE(entries(dir), before);
        ::umount2(QFile::encodeName(dir).constData(), MNT_DETACH);
    }
};

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    // Where no private mount namespace can be made, the kills still run.
    if (::geteuid() == 0) {
        const std::optional<int> status = e2e::Sandbox::enter(argc, argv, false);
        if (status && *status != e2e::Sandbox::kSkipped)
            return *status;
    }
    TestAtomicWrite test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_atomicwrite.moc"
