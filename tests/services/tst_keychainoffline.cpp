#include "platform/BusAddressProbe.h"
#include "platform/LibsecretStore.h"
#include "services/claude/KeychainHelper.h"
#include "support/TestEnv.h"

#include <gio/gio.h>

#include <QElapsedTimer>
#include <QProcess>
#include <QTest>

using namespace limitra;

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

    // Each of the four helper operations fails, and soon: at once without a Secret Service ("bus" has
    // none), each cut at its 300 ms limit when the service takes its name but never answers ("silent").
    void noSecretServiceFailsInTime_data()
    {
        QTest::addColumn<QByteArray>("address"); // empty: the variable is unset
        for (const char* address :
            { "", "unix:path=/nonexistent/bus", "tcp:host=127.0.0.1,port=1", "no address here", "bus", "silent" })
            QTest::newRow(*address ? address : "unset") << QByteArray(address);
    }
    void noSecretServiceFailsInTime()
    {
        QFETCH(QByteArray, address);
        const bool silent = address == "silent", onBus = silent || address == "bus";
        address = onBus ? busAddress : address;
        address.isEmpty() ? qunsetenv("DBUS_SESSION_BUS_ADDRESS") : qputenv("DBUS_SESSION_BUS_ADDRESS", address);
        qputenv("XDG_RUNTIME_DIR", emptyDir.path().toUtf8());
        QCOMPARE(platform::BusAddressProbe::sessionBusAccepts(), onBus);
        GError* error = nullptr;
        GDBusConnection* peer = silent ? g_dbus_connection_new_for_address_sync(busAddress.constData(),
                                    GDBusConnectionFlags(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT
                                        | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
                                    nullptr, nullptr, &error)
                                       : nullptr;
        QVERIFY2(peer || !silent, error ? error->message : "");
        if (silent) {
            GVariant* owned = g_dbus_connection_call_sync(peer, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                "org.freedesktop.DBus", "RequestName", g_variant_new("(su)", "org.freedesktop.secrets", 4u),
                nullptr, G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, &error);
            QVERIFY2(owned, error ? error->message : "");
            g_variant_unref(owned);
            // Drops every method call without an answer.
            g_dbus_connection_add_filter(peer, [](GDBusConnection*, GDBusMessage* message, gboolean in, gpointer) {
                const bool call = in && g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_METHOD_CALL;
                return call ? (g_object_unref(message), nullptr) : message;
            }, nullptr, nullptr);
        }
        auto store = silent ? std::make_unique<platform::LibsecretStore>(std::chrono::milliseconds(300))
                            : std::make_unique<platform::LibsecretStore>();
        const QString service = QStringLiteral("Claude Code-credentials");
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!KeychainHelper::read(*store, service));
        QVERIFY(!KeychainHelper::update(*store, service, service, "x"));
        QVERIFY(!KeychainHelper::saveVerified(*store, service, service, "x"));
        QVERIFY(!KeychainHelper::upsertOwn(*store, service, service, "x"));
        QVERIFY2(timer.elapsed() < (silent ? 4 * 1500 : 1000), qPrintable(QString::number(timer.elapsed())));
        if (peer) {
            g_dbus_connection_close_sync(peer, nullptr, nullptr);
            g_object_unref(peer);
        }
    }
};

QTEST_GUILESS_MAIN(TestKeychainOffline)
#include "tst_keychainoffline.moc"
