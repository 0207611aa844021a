#include "KeyringKit.h"

#include "platform/LibsecretStore.h"
#include "services/claude/KeychainHelper.h"

#include <QElapsedTimer>
#include <QTest>

using namespace limitra;
using namespace limitra::test;

namespace {
const QString kService = QStringLiteral("Limitra.test-service");
const QString kOther = QStringLiteral("Limitra.test-other");
} // namespace

class TestKeychainHelper : public QObject
{
    Q_OBJECT

    platform::LibsecretStore store;

private Q_SLOTS:
    void initTestCase() { QVERIFY2(Keyring::isPrivate(), "run through tests/support/with-keyring.sh"); }
    void init()
    {
        Keyring::clear(kService);
        Keyring::clear(kOther);
    }

    void readFindsItemsOfOtherClients_data()
    {
        QTest::addColumn<QString>("account"); // empty: stored without an account attribute
        QTest::addColumn<QStringList>("extra");
        QTest::addColumn<QByteArray>("data");

        QTest::newRow("with account") << "someone" << QStringList() << QByteArray(R"({"a":1})");
        QTest::newRow("without account") << "" << QStringList() << QByteArray("plain");
        QTest::newRow("another schema name")
            << "someone" << QStringList { "xdg:schema", "com.example.Other" } << QByteArray("x");
        QTest::newRow("utf-8 value") << "ñandú" << QStringList() << QByteArray("{\"k\":\"ñ €\"}");
    }
    void readFindsItemsOfOtherClients()
    {
        QFETCH(QString, account);
        QFETCH(QStringList, extra);
        QFETCH(QByteArray, data);
        QVERIFY(Keyring::store(kService, account, data, extra));
        QVERIFY(Keyring::store(kOther, QStringLiteral("unrelated"), "other service"));

        const auto item = KeychainHelper::read(store, kService);
        QVERIFY(item);
        QCOMPARE(item->account, account);
        QCOMPARE(item->data, data);
    }

    void readOfEmptyServiceYieldsNothing()
    {
        QVERIFY(Keyring::store(kOther, QStringLiteral("a"), "x"));
        QVERIFY(!KeychainHelper::read(store, kService));
    }

    void addedItemIsSeenByOtherClients()
    {
        QVERIFY(KeychainHelper::upsertOwn(store, kService, QStringLiteral("oauth"), R"({"n":1})"));
        QCOMPARE(Keyring::lookup(kService, QStringLiteral("oauth")), QByteArray(R"({"n":1})"));
        const auto listing = Keyring::run("secret-tool", { "search", "--all", "service", kService });
        QVERIFY(listing.out.contains("label = " + kService.toUtf8()));

        QVERIFY(KeychainHelper::upsertOwn(store, kService, QStringLiteral("oauth"), R"({"n":2})"));
        QCOMPARE(Keyring::lookup(kService, QStringLiteral("oauth")), QByteArray(R"({"n":2})"));
        QCOMPARE(Keyring::count(kService), 1);
    }

    // Each row starts from one item (or none) and writes `data` under `account`.
    void writesOnlyTouchTheAddressedItem_data()
    {
        QTest::addColumn<QString>("storedAccount"); // empty: no item at all
        QTest::addColumn<QString>("account");
        QTest::addColumn<bool>("verified");
        QTest::addColumn<bool>("upserted");
        QTest::addColumn<QByteArray>("afterwards"); // under storedAccount; empty: nothing stored

        QTest::newRow("no item") << ""
                                 << "me" << false << true << QByteArray();
        QTest::newRow("same account") << "me"
                                      << "me" << true << true << QByteArray("new");
        QTest::newRow("other account") << "them"
                                       << "me" << false << false << QByteArray("old");
    }
    void writesOnlyTouchTheAddressedItem()
    {
        QFETCH(QString, storedAccount);
        QFETCH(QString, account);
        QFETCH(bool, verified);
        QFETCH(bool, upserted);
        QFETCH(QByteArray, afterwards);
        if (!storedAccount.isEmpty())
            QVERIFY(Keyring::store(kService, storedAccount, "old"));

        QCOMPARE(KeychainHelper::saveVerified(store, kService, account, "new"), verified);
        QCOMPARE(Keyring::count(kService), storedAccount.isEmpty() ? 0 : 1);
        if (!storedAccount.isEmpty())
            QCOMPARE(Keyring::lookup(kService, storedAccount), afterwards);

        QCOMPARE(KeychainHelper::upsertOwn(store, kService, account, "newer"), upserted);
        QCOMPARE(Keyring::count(kService), 1);
        const QString holder = storedAccount.isEmpty() ? account : storedAccount;
        QCOMPARE(Keyring::lookup(kService, holder), upserted ? QByteArray("newer") : afterwards);
    }

    // Last: the collection stays locked, since unlocking would need a prompt.
    void lockedCollectionLooksEmptyAndNeverPrompts()
    {
        QVERIFY(Keyring::store(kService, QStringLiteral("me"), "secret"));
        QVERIFY(Keyring::lockLogin());

        QElapsedTimer timer;
        timer.start();
        QVERIFY(!KeychainHelper::read(store, kService));
        QVERIFY(!KeychainHelper::saveVerified(store, kService, QStringLiteral("me"), "x"));
        QVERIFY(!KeychainHelper::upsertOwn(store, kOther, QStringLiteral("me"), "x"));
        QVERIFY2(timer.elapsed() < 1000, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(Keyring::count(kService), 1);
        QCOMPARE(Keyring::count(kOther), 0);
    }
};

QTEST_GUILESS_MAIN(TestKeychainHelper)
#include "tst_keychainhelper.moc"
