#include "platform/BusAddressProbe.h"
#include "platform/LibsecretStore.h"
#include "services/claude/KeychainHelper.h"
#include "support/TestEnv.h"

#include <gio/gio.h>

#include <QElapsedTimer>
#include <QProcess>
#include <QTest>

using namespace limitra;

namespace {
// The four helper operations must each fail, all of them within `limitMs`.
void expectNothingWithin(platform::SecretStore& store, qint64 limitMs)
{
    const QString service = QStringLiteral("Claude Code-credentials"), account = service;
    QElapsedTimer timer;
    timer.start();
    QVERIFY(!KeychainHelper::read(store, service));
    QVERIFY(!KeychainHelper::update(store, service, account, "x"));
    QVERIFY(!KeychainHelper::saveVerified(store, service, account, "x"));
    QVERIFY(!KeychainHelper::upsertOwn(store, service, account, "x"));
    QVERIFY2(timer.elapsed() < limitMs, qPrintable(QStringLiteral("%1 ms").arg(timer.elapsed())));
}

// Drops every method call it receives without an answer.
GDBusMessage* swallowCalls(GDBusConnection*, GDBusMessage* message, gboolean incoming, gpointer)
{
    if (incoming && g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_METHOD_CALL) {
        g_object_unref(message);
        return nullptr;
    }
    return message;
}
} // namespace

class TestKeychainOffline : public QObject
{
    Q_OBJECT

    QTemporaryDir dir, emptyDir;
    QProcess bus; // a private bus with no activatable services at all
    QByteArray busAddress;

private Q_SLOTS:
    void initTestCase()
    {
        const QString config = dir.filePath(QStringLiteral("bus.conf"));
        QVERIFY(test::writeFile(config,
            "<busconfig><type>session</type><listen>unix:path=" + dir.filePath("bus").toUtf8()
                + "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
                  "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/>"
                  "<allow own=\"*\"/></policy></busconfig>"));
        bus.start(QStringLiteral("dbus-daemon"), { "--config-file=" + config, "--nofork", "--print-address=1" });
        QVERIFY(bus.waitForReadyRead(10000));
        busAddress = bus.readLine().trimmed();
        QVERIFY(busAddress.startsWith("unix:"));
    }
    void cleanupTestCase() { bus.terminate(), bus.waitForFinished(5000); }

    void noSecretServiceAnswersAtOnce_data()
    {
        QTest::addColumn<QByteArray>("address"); // empty: the variable is unset
        for (const QByteArray& address : { QByteArray(), QByteArray("unix:path=/nonexistent/bus"),
                 QByteArray("tcp:host=127.0.0.1,port=1"), QByteArray("no address here"), busAddress })
            QTest::newRow(address.constData()) << address;
    }
    void noSecretServiceAnswersAtOnce()
    {
        QFETCH(QByteArray, address);
        address.isEmpty() ? qunsetenv("DBUS_SESSION_BUS_ADDRESS") : qputenv("DBUS_SESSION_BUS_ADDRESS", address);
        qputenv("XDG_RUNTIME_DIR", emptyDir.path().toUtf8());
        QCOMPARE(platform::BusAddressProbe::sessionBusAccepts(), address == busAddress);
        platform::LibsecretStore store;
        expectNothingWithin(store, 1000);
    }

    // A service that takes the name and never answers is cut off at each call's limit.
    void silentSecretServiceIsCutOff()
    {
        qputenv("DBUS_SESSION_BUS_ADDRESS", busAddress);
        GError* error = nullptr;
        GDBusConnection* peer = g_dbus_connection_new_for_address_sync(busAddress.constData(),
            GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT
                | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, &error);
        QVERIFY2(peer, error ? error->message : "");
        GVariant* owned = g_dbus_connection_call_sync(peer, "org.freedesktop.DBus", "/org/freedesktop/DBus",
            "org.freedesktop.DBus", "RequestName", g_variant_new("(su)", "org.freedesktop.secrets", 4u), nullptr,
            G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, &error);
        QVERIFY2(owned, error ? error->message : "");
        g_variant_unref(owned);
        const guint filter = g_dbus_connection_add_filter(peer, swallowCalls, nullptr, nullptr);
        platform::LibsecretStore store(std::chrono::milliseconds(300));
        expectNothingWithin(store, 4 * 1500);
        g_dbus_connection_remove_filter(peer, filter);
        g_dbus_connection_close_sync(peer, nullptr, nullptr);
        g_object_unref(peer);
    }
};

QTEST_GUILESS_MAIN(TestKeychainOffline)
#include "tst_keychainoffline.moc"
