#include "platform/Files.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/stat.h>
#include <sys/types.h>

using namespace limitra::platform;

namespace {
mode_t modeOf(const QString& path)
{
    struct stat st {};
    ::stat(QFile::encodeName(path).constData(), &st);
    return st.st_mode & 07777;
}

void writePlain(const QString& path, const QByteArray& data, mode_t mode)
{
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    f.write(data);
    f.close();
    ::chmod(QFile::encodeName(path).constData(), mode);
}
} // namespace

class TestFiles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readGivesWholeRegularFilesOnly()
    {
        QTemporaryDir dir;
        const QString file = dir.filePath("f.json");
        const QByteArray binary("\x00\xff{\"a\":1}\x00", 10);
        writePlain(file, binary, 0600);
        QCOMPARE(Files::read(file), std::optional<QByteArray>(binary));

        QVERIFY(!Files::read(dir.filePath("missing")));
        QVERIFY(!Files::read(dir.path())); // a directory

        const QByteArray fifo = QFile::encodeName(dir.filePath("fifo"));
        QCOMPARE(::mkfifo(fifo.constData(), 0600), 0);
        QVERIFY(!Files::read(dir.filePath("fifo"))); // would block forever if opened

        QVERIFY(QFile::link(dir.filePath("loop"), dir.filePath("loop")));
        QVERIFY(!Files::read(dir.filePath("loop")));

        writePlain(file, QByteArray(2048, 'x'), 0600);
        QVERIFY(!Files::read(file, 1024));
        QCOMPARE(Files::read(file, 2048)->size(), 2048);
    }

    void atomicWriteKeepsPermissionBits_data()
    {
        QTest::addColumn<int>("before");
        QTest::newRow("owner only") << 0600;
        QTest::newRow("group readable") << 0640;
        QTest::newRow("read only for the owner") << 0400;
    }

    void atomicWriteKeepsPermissionBits()
    {
        QFETCH(int, before);
        QTemporaryDir dir;
        const QString file = dir.filePath("auth.json");
        writePlain(file, "old", static_cast<mode_t>(before));
        QVERIFY(Files::writeAtomic(file, "new content"));
        QCOMPARE(*Files::read(file), QByteArray("new content"));
        QCOMPARE(int(modeOf(file)), before);
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden).size(), 1); // no temp left behind
    }

    void atomicWriteOfANewFileIsOwnerOnly()
    {
        QTemporaryDir dir;
        const QString file = dir.filePath("new.json");
        QVERIFY(Files::writeAtomic(file, "{}"));
        QCOMPARE(int(modeOf(file)), 0600);
    }

    void atomicWriteFollowsASymlinkAndKeepsIt()
    {
        QTemporaryDir dir;
        const QString real = dir.filePath("real.json");
        const QString link = dir.filePath("link.json");
        writePlain(real, "old", 0600);
        QVERIFY(QFile::link(real, link));
        QVERIFY(Files::writeAtomic(link, "new"));
        QVERIFY(QFileInfo(link).isSymLink());
        QCOMPARE(*Files::read(real), QByteArray("new"));
    }

    void failedWriteLeavesNothingBehind()
    {
        QTemporaryDir dir;
        QVERIFY(!Files::writeAtomic(dir.filePath("no/such/dir/file.json"), "x"));
        // A directory in the way is never replaced.
        QVERIFY(QDir(dir.path()).mkdir("taken"));
        QVERIFY(!Files::writeAtomic(dir.filePath("taken"), "x"));
        QVERIFY(QFileInfo(dir.filePath("taken")).isDir());
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden).size(), 0);
    }
};

QTEST_GUILESS_MAIN(TestFiles)
#include "tst_files.moc"
