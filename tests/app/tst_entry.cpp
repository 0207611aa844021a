#include "app/Entry.h"

#include <QTest>

using namespace limitra;
using Mode = Entry::Mode;

Q_DECLARE_METATYPE(Entry::Mode)

class TestEntry : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void argumentsChooseTheMode_data();
    void argumentsChooseTheMode();
};

void TestEntry::argumentsChooseTheMode_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<Mode>("mode");
    QTest::addColumn<QString>("path");

    const QString app = QStringLiteral("/usr/bin/limitra");
    const auto args = [&](std::initializer_list<const char*> rest) {
        QStringList list { app };
        for (const char* a : rest)
            list.append(QString::fromUtf8(a));
        return list;
    };

    QTest::newRow("nothing starts the application") << args({}) << Mode::Application << QString();
    QTest::newRow("check") << args({ "--check" }) << Mode::Check << QString();
    QTest::newRow("check as the program path")
        << QStringList { QStringLiteral("--check") } << Mode::Check << QString();
    QTest::newRow("check after a snapshot path wins")
        << args({ "--snapshot", "out.png", "--check" }) << Mode::Check << QString();
    QTest::newRow("check before a snapshot wins")
        << args({ "--check", "--snapshot", "out.png" }) << Mode::Check << QString();
    QTest::newRow("check as the snapshot's path still wins")
        << args({ "--snapshot", "--check" }) << Mode::Check << QString();
    QTest::newRow("snapshot with a path")
        << args({ "--snapshot", "out.png" }) << Mode::Snapshot << QStringLiteral("out.png");
    QTest::newRow("snapshot after other arguments") << args({ "-v", "x", "--snapshot", "/tmp/a b.png", "y" })
                                                    << Mode::Snapshot << QStringLiteral("/tmp/a b.png");
    QTest::newRow("the first snapshot takes the next element")
        << args({ "--snapshot", "--snapshot", "b.png" }) << Mode::Snapshot << QStringLiteral("--snapshot");
    QTest::newRow("snapshot alone starts the application")
        << args({ "--snapshot" }) << Mode::Application << QString();
    QTest::newRow("snapshot last starts the application")
        << args({ "out.png", "--snapshot" }) << Mode::Application << QString();
    QTest::newRow("only exact spellings count")
        << args({ "-check", "--CHECK", "--check=1", " --check", "--snapshot=out.png" }) << Mode::Application
        << QString();
    QTest::newRow("the program path is no snapshot path")
        << QStringList { QStringLiteral("--snapshot") } << Mode::Application << QString();
}

void TestEntry::argumentsChooseTheMode()
{
    QFETCH(QStringList, arguments);
    QFETCH(Mode, mode);
    QFETCH(QString, path);
    const Entry::Choice choice = Entry::choose(arguments);
    QCOMPARE(choice.mode, mode);
    QCOMPARE(choice.snapshotPath, path);
}

QTEST_GUILESS_MAIN(TestEntry)
#include "tst_entry.moc"
