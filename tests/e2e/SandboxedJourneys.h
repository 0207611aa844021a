#pragma once

#include "LimitraRun.h"
#include "Sandbox.h"
#include "TlsPeer.h"

#include <QObject>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <QTest>

#include <cstdio>
#include <filesystem>
#include <memory>

namespace limitra::e2e {

// Base of the whole-program tests inside the sandbox: one TLS peer for every
// host, a fresh home per test function, and what a test needs to run the
// binary and inspect what it sent and what it left on disk.
class SandboxedJourneys : public QObject
{
    Q_OBJECT

public:
    explicit SandboxedJourneys(const Sandbox& sandbox);
    ~SandboxedJourneys() override;

    // The main() of a sandboxed test: enters the namespace (or skips), prepares
    // it and runs the test object T inside.
    template <typename T> static int main(int argc, char** argv)
    {
        QCoreApplication app(argc, argv);
        if (const std::optional<int> status = Sandbox::enter(argc, argv))
            return *status;
        Sandbox sandbox;
        QString error;
        if (!sandbox.prepare(&error)) {
            std::fprintf(stderr, "cannot prepare the sandbox: %s\n", qPrintable(error));
            return 1;
        }
        T test(sandbox);
        return QTest::qExec(&test, argc, argv);
    }

protected:
    TlsPeer& peer() const { return *m_peer; }
    QString home() const { return m_home->path(); }

    // Runs limitra as a user without a desktop session, plus `extra`. A run that
    // does not end with status 0, writes to stderr or shows a token fails the test.
    LimitraRun run(const QStringList& arguments, const QProcessEnvironment& extra = {}) const;

    // "METHOD host path", and the Authorization header when one was sent.
    static QString describe(const test::RecordedRequest& request);
    static QStringList describeSorted(const QList<test::RecordedRequest>& requests);

    static double wallClock();
    static QByteArray readAll(const QString& path);
    static QStringList entriesOf(const QString& directory);
    static std::filesystem::perms permissionsOf(const QString& path);
    static constexpr std::filesystem::perms kOwnerOnly
        = std::filesystem::perms::owner_read | std::filesystem::perms::owner_write;

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

private:
    const Sandbox& m_sandbox;
    std::unique_ptr<TlsPeer> m_peer;
    std::unique_ptr<QTemporaryDir> m_home;
};

} // namespace limitra::e2e
