#include "KeyringKit.h"

#include "platform/Environment.h"
#include "platform/Json.h"
#include "platform/LibsecretStore.h"
#include "services/claude/ClaudeProvider.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <filesystem>

using namespace limitra;
using namespace limitra::test;

namespace {

const QString kCode = QString(ClaudeProvider::claudeCodeService);
const QString kOwn = QString(ClaudeProvider::ownService);

// A credentials document whose top-level "source" tells where a lineage came from.
QByteArray doc(const char* source, const char* expiresAt)
{
    return QStringLiteral(R"({"source":"%1","claudeAiOauth":{"refreshToken":"rt-%1","expiresAt":%2}})")
        .arg(QLatin1String(source), QLatin1String(expiresAt))
        .toUtf8();
}

} // namespace

class TestClaudeCredentials : public QObject
{
    Q_OBJECT

    QTemporaryDir home;
    platform::Environment env;

    QString filePath() const { return env.homePath(QString(ClaudeProvider::credentialsFile)); }

    bool writeFile(const QByteArray& bytes, QFile::Permissions mode = QFile::ReadOwner | QFile::WriteOwner)
    {
        QDir().mkpath(QFileInfo(filePath()).path());
        QFile file(filePath());
        return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size()
            && file.setPermissions(mode);
    }

    QByteArray readFile() const
    {
        QFile file(filePath());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(Keyring::isPrivate(), "run through tests/support/with-keyring.sh");
        env.home = home.path();
        env.loginName = QStringLiteral("tester");
        env.secrets = std::make_shared<platform::LibsecretStore>();
    }
    void init()
    {
        Keyring::clear(kCode);
        Keyring::clear(kOwn);
        QFile::remove(filePath());
    }

    void lineagesAreRankedByExpiry_data()
    {
        QTest::addColumn<QByteArray>("codeItem"); // empty: absent
        QTest::addColumn<QByteArray>("ownItem");
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QStringList>("order");

        QTest::newRow("only the file")
            << QByteArray() << QByteArray() << doc("file", "5") << QStringList { "file" };
        QTest::newRow("latest first") << doc("code", "1000") << doc("own", "3000") << doc("file", "2000")
                                      << QStringList { "own", "file", "code" };
        QTest::newRow("ties keep reading order") << doc("code", "7") << doc("own", "7") << doc("file", "7")
                                                 << QStringList { "code", "own", "file" };
        QTest::newRow("missing or text expiry counts as 0") << doc("code", R"("9999")") << doc("own", "1")
                                                            << QByteArray(R"({"source":"file",
                "claudeAiOauth":{"refreshToken":""}})") << QStringList { "own", "code", "file" };
        QTest::newRow("unusable documents are skipped")
            << QByteArray(R"({"source":"code","claudeAiOauth":{"accessToken":"a","expiresAt":9}})")
            << QByteArray(R"([{"claudeAiOauth":{"refreshToken":"r"}}])") << QByteArray("{not json")
            << QStringList {};
        QTest::newRow("session of the wrong types") << QByteArray(R"({"claudeAiOauth":"text"})")
                                                    << QByteArray(R"({"claudeAiOauth":{"refreshToken":5}})")
                                                    << doc("file", "1") << QStringList { "file" };
    }
    void lineagesAreRankedByExpiry()
    {
        QFETCH(QByteArray, codeItem);
        QFETCH(QByteArray, ownItem);
        QFETCH(QByteArray, file);
        QFETCH(QStringList, order);
        if (!codeItem.isEmpty())
            QVERIFY(Keyring::store(kCode, QStringLiteral("someone"), codeItem));
        if (!ownItem.isEmpty())
            QVERIFY(Keyring::store(kOwn, QStringLiteral("oauth"), ownItem));
        if (!file.isEmpty())
            QVERIFY(writeFile(file));

        QStringList sources;
        for (const auto& lineage : ClaudeProvider::loadLineages(env)) {
            sources << lineage.creds.value(u"source").toString();
            QCOMPARE(lineage.creds.value(u"claudeAiOauth").toObject(), lineage.oauth);
        }
        QCOMPARE(sources, order);
    }

    // The refreshed document goes where a session already was, and always to the own item.
    void persistWritesEveryExistingPlace_data()
    {
        QTest::addColumn<bool>("codeItem");
        QTest::addColumn<bool>("file");
        QTest::addColumn<bool>("ownItem");

        QTest::newRow("nothing yet") << false << false << false;
        QTest::newRow("Claude Code's item only") << true << false << false;
        QTest::newRow("file only") << false << true << true;
        QTest::newRow("everywhere") << true << true << true;
    }
    void persistWritesEveryExistingPlace()
    {
        QFETCH(bool, codeItem);
        QFETCH(bool, file);
        QFETCH(bool, ownItem);
        // Claude Code's item sits under an account that is not the login name.
        if (codeItem)
            QVERIFY(Keyring::store(kCode, QStringLiteral("claude-user"), doc("code", "1")));
        if (ownItem)
            QVERIFY(Keyring::store(kOwn, QStringLiteral("oauth"), doc("own", "1")));
        if (file)
            QVERIFY(writeFile(doc("file", "1")));

        const QByteArray written = doc("new", "1732000000000");
        ClaudeProvider::persist(env, *platform::Json::parseObject(written));
        const QByteArray expected = platform::Json::compact(*platform::Json::parseObject(written));

        QCOMPARE(Keyring::count(kCode), codeItem ? 1 : 0);
        if (codeItem)
            QCOMPARE(Keyring::lookup(kCode, QStringLiteral("claude-user")), expected);
        QCOMPARE(QFile::exists(filePath()), file);
        if (file) {
            QCOMPARE(readFile(), expected);
            namespace fs = std::filesystem;
            QCOMPARE(fs::status(filePath().toStdString()).permissions(),
                fs::perms::owner_read | fs::perms::owner_write);
        }
        QCOMPARE(Keyring::count(kOwn), 1);
        QCOMPARE(Keyring::lookup(kOwn, QStringLiteral("oauth")), expected);
    }

    void persistKeepsUnknownValuesAsTheyWere()
    {
        QVERIFY(writeFile("{}"));
        const QByteArray original = R"({"zz":{"list":[1,2.5,"x",null,true],"big":12345678901234567},
            "claudeAiOauth":{"refreshToken":"r","expiresAt":1732000000000,"count":42,"rate":0.5,
            "subscriptionType":"max","extra":{"deep":[{}]}},"flag":false})";
        ClaudeProvider::persist(env, *platform::Json::parseObject(original));

        const QByteArray file = readFile();
        QVERIFY2(file.contains(R"("expiresAt":1732000000000)"), file.constData());
        QVERIFY2(file.contains(R"("count":42,)"), file.constData());
        QVERIFY2(file.contains(R"("big":12345678901234567)"), file.constData());
        QCOMPARE(platform::Json::parseObject(file), platform::Json::parseObject(original));
        QCOMPARE(Keyring::lookup(kOwn, QStringLiteral("oauth")), file);
    }
};

QTEST_GUILESS_MAIN(TestClaudeCredentials)
#include "tst_claudecredentials.moc"
