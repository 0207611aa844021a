#include "LimitraRun.h"
#include "ServiceFixtures.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

using namespace limitra::e2e;

namespace {

// Generous for a cold start of a debug build, far below any bus or network time-out.
constexpr qint64 kAtOnceMs = 2000;

} // namespace

// `limitra --check` as a user who has just been created would run it: no
// credentials, no desktop session, no display. Needs neither root nor network.
class TestCheckFreshUser : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void checkWithoutSessionAnswersAtOnce_data();
    void checkWithoutSessionAnswersAtOnce();
    void onlyTheGuiModesMapGuiLibraries_data();
    void onlyTheGuiModesMapGuiLibraries();
};

void TestCheckFreshUser::initTestCase()
{
    QVERIFY2(QFileInfo(LimitraRun::binary()).isExecutable(), "LIMITRA_BINARY names no executable");
}

void TestCheckFreshUser::checkWithoutSessionAnswersAtOnce_data()
{
    // Each row adds one variable to the bare environment; "%home" stands for the home folder.
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("variable");
    QTest::addColumn<QString>("value");

    const QStringList check { QStringLiteral("--check") };
    QTest::newRow("nothing but a home") << check << QString() << QString();
    QTest::newRow("session bus address with no bus behind it")
        << check << QStringLiteral("DBUS_SESSION_BUS_ADDRESS") << QStringLiteral("unix:path=%home/no-bus");
    QTest::newRow("display named but absent") << check << QStringLiteral("DISPLAY") << QStringLiteral(":99");
    QTest::newRow("Wayland display named but absent")
        << check << QStringLiteral("WAYLAND_DISPLAY") << QStringLiteral("wayland-9");
    QTest::newRow("runtime directory without a bus")
        << check << QStringLiteral("XDG_RUNTIME_DIR") << QStringLiteral("%home");
    QTest::newRow("check wins over a snapshot") << QStringList { QStringLiteral("--snapshot"),
        QStringLiteral("%home/shot.png"), QStringLiteral("--check") }
                                                << QString() << QString();
}

void TestCheckFreshUser::checkWithoutSessionAnswersAtOnce()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, variable);
    QFETCH(QString, value);
    QTemporaryDir home;
    QVERIFY(home.isValid());
    arguments.replaceInStrings(QStringLiteral("%home"), home.path());
    QProcessEnvironment environment = LimitraRun::sessionless(home.path());
    if (!variable.isEmpty())
        environment.insert(variable, QString(value).replace(QStringLiteral("%home"), home.path()));

    const LimitraRun run = LimitraRun::start(arguments, environment);
    QVERIFY2(run.finished, run.err.constData());
    QCOMPARE(run.exitCode, 0);
    QVERIFY(run.endsWithNewline());
    QCOMPARE(run.lines(), ServiceFixtures::noCredentialsReport());
    QCOMPARE(run.err, QByteArray());
    QVERIFY2(run.elapsedMs < kAtOnceMs, QByteArray::number(run.elapsedMs) + " ms");
    // Nothing is written for services that have no session, and no snapshot is taken.
    const QStringList written
        = QDir(home.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    QVERIFY2(!written.contains(QStringLiteral(".claude")) && !written.contains(QStringLiteral(".codex"))
            && !written.contains(QStringLiteral("shot.png")),
        qPrintable(written.join(u' ')));
}

void TestCheckFreshUser::onlyTheGuiModesMapGuiLibraries_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("mapsGui");
    QTest::newRow("check") << QStringList { QStringLiteral("--check") } << false;
    QTest::newRow("check beside a snapshot")
        << QStringList { QStringLiteral("--snapshot"), QStringLiteral("shot.png"), QStringLiteral("--check") }
        << false;
    // The same probe must see the GUI where it is loaded, or it proves nothing.
    QTest::newRow("snapshot") << QStringList { QStringLiteral("--snapshot"), QStringLiteral("shot.png") } << true;
}

// Status bars and scripts call the check every few seconds: it must not pay
// for loading the panel's libraries.
void TestCheckFreshUser::onlyTheGuiModesMapGuiLibraries()
{
    QFETCH(QStringList, arguments);
    QFETCH(bool, mapsGui);
    QTemporaryDir home;
    QVERIFY(home.isValid());
    QProcessEnvironment environment = LimitraRun::sessionless(home.path());
    // The dynamic loader lists every object it opens, into files of its own.
    environment.insert(QStringLiteral("LD_DEBUG"), QStringLiteral("files"));
    environment.insert(QStringLiteral("LD_DEBUG_OUTPUT"), home.filePath(QStringLiteral("ld")));
    const LimitraRun run = LimitraRun::start(arguments, environment);
    QVERIFY2(run.finished, run.err.constData());
    QVERIFY(!run.lines().isEmpty());

    QByteArray loaded;
    for (const QString& name : QDir(home.path()).entryList({ QStringLiteral("ld.*") }, QDir::Files)) {
        QFile log(home.filePath(name));
        QVERIFY(log.open(QIODevice::ReadOnly));
        loaded += log.readAll();
    }
    QVERIFY(loaded.contains("libQt6Core"));
    for (const char* library : { "libQt6Gui", "libQt6Quick", "libQt6Qml", "libQt6DBus", "limitra-gui" })
        QVERIFY2(loaded.contains(library) == mapsGui, library);
}

QTEST_GUILESS_MAIN(TestCheckFreshUser)
#include "tst_checkfreshuser.moc"
