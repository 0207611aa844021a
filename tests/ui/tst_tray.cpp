// The tray item as a host sees it, over a private session bus: a watcher written
// here registers the item and reads it through a connection of its own.
#include "app/LimitraApp.h"
#include "platform/Defaults.h"
#include "support/TestEnv.h"
#include "ui/settings/SettingsWindow.h"
#include "ui/settings/WelcomeWindow.h"
#include "ui/tray/PanelWindow.h"
#include "ui/tray/SniTypes.h"
#include "ui/tray/TrayItem.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusReply>
#include <QFile>
#include <QSignalSpy>
#include <QSystemTrayIcon>
#include <QTest>

using namespace limitra;
using namespace limitra::test;

namespace {
constexpr double kNow = 1'700'000'000;
const QString kWatcherName = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString kItemInterface = QStringLiteral("org.kde.StatusNotifierItem");

QDBusConnection hostBus()
{
    return QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("host"));
}

// The item answers from this same process, so the caller keeps the event loop turning.
QDBusMessage callItem(const QDBusMessage& message)
{
    return hostBus().call(message, QDBus::BlockWithGui, 5000);
}

// The host's side: the watcher every panel provides, and the signals it listens to.
class Watcher : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")

public:
    QStringList registered;
    QStringList signalsSeen;

    bool start()
    {
        QDBusConnection bus = hostBus();
        return bus.registerObject(
                   QStringLiteral("/StatusNotifierWatcher"), this, QDBusConnection::ExportAllSlots)
            && bus.registerService(kWatcherName);
    }
    void stop()
    {
        hostBus().unregisterService(kWatcherName);
        hostBus().unregisterObject(QStringLiteral("/StatusNotifierWatcher"));
    }
    void listen(const QString& service)
    {
        for (const char* name : { "NewIcon", "NewToolTip", "NewTitle" })
            hostBus().connect(
                service, {}, kItemInterface, QLatin1String(name), this, SLOT(onSignal(QDBusMessage)));
        hostBus().connect(service, {}, kItemInterface, QStringLiteral("XAyatanaNewLabel"), this,
            SLOT(onSignal(QDBusMessage)));
    }

public Q_SLOTS:
    void RegisterStatusNotifierItem(const QString& service) { registered.append(service); }
    void onSignal(const QDBusMessage& message)
    {
        QStringList words { message.member() };
        for (const QVariant& argument : message.arguments())
            words.append(argument.toString());
        signalsSeen.append(words.join(u'|'));
    }
};

// The application on a store whose fetches return what the test scripted.
struct App
{
    struct Script
    {
        ServiceUsage claude;
        ServiceUsage codex;
        std::atomic<int> fetches { 0 };
    };

    TestEnv env { kNow };
    std::shared_ptr<Script> script = std::make_shared<Script>();
    std::unique_ptr<LimitraApp> app;

    explicit App(bool start = true)
    {
        const auto fetch = [s = script](ServiceUsage Script::*record) {
            return [s, record] {
                ++s->fetches;
                return (*s).*record;
            };
        };
        app = std::make_unique<LimitraApp>(env.env,
            UsageStore::Services {
                fetch(&Script::claude), fetch(&Script::codex), [] { return std::nullopt; } });
        if (start)
            app->start();
        publish({}, {});
    }
    platform::Defaults& settings() { return *env.defaults; }
    void publish(const ServiceUsage& claude, const ServiceUsage& codex)
    {
        script->claude = claude;
        script->codex = codex;
        const QFuture<void> done = app->store().refresh();
        QVERIFY(QTest::qWaitFor([&] { return done.isFinished() && !app->store().isRefreshing(); }, 5000));
    }
    QDBusMessage properties()
    {
        return callItem(
            QDBusMessage::createMethodCall(app->tray().serviceName(), QStringLiteral("/StatusNotifierItem"),
                QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("GetAll"))
            << kItemInterface);
    }
    void call(const QString& path, const QString& interface, const QString& method, const QVariantList& args)
    {
        QDBusMessage message
            = QDBusMessage::createMethodCall(app->tray().serviceName(), path, interface, method);
        message.setArguments(args);
        QCOMPARE(callItem(message).type(), QDBusMessage::ReplyMessage);
    }
};

ServiceUsage left(double percent)
{
    return usage({ row(QStringLiteral("Sesión"), 100 - percent, kNow + 3600) });
}
} // namespace

class TrayTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        QVERIFY(m_watcher.start());
        m_watcher.registered.clear();
        m_watcher.signalsSeen.clear();
    }
    void cleanup() { m_watcher.stop(); }

    void hostReadsEveryPropertyWithItsType()
    {
        App a;
        QTRY_COMPARE(m_watcher.registered, QStringList { a.app->tray().serviceName() });
        QCOMPARE(a.app->tray().host(), TrayItem::Host::StatusNotifier);
        a.publish(left(84), left(61));

        const QDBusMessage reply = a.properties();
        QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
        const QVariantMap all = qdbus_cast<QVariantMap>(reply.arguments().at(0));
        const auto signature = [&](const QString& name) {
            const QVariant value = all.value(name);
            return value.canConvert<QDBusArgument>()
                ? value.value<QDBusArgument>().currentSignature()
                : QString::fromLatin1(QDBusMetaType::typeToSignature(value.metaType()));
        };
        const QList<std::pair<QString, QString>> types { { "Category", "s" }, { "Id", "s" }, { "Title", "s" },
            { "Status", "s" }, { "IconName", "s" }, { "IconThemePath", "s" }, { "IconPixmap", "a(iiay)" },
            { "ToolTip", "(sa(iiay)ss)" }, { "ItemIsMenu", "b" }, { "Menu", "o" }, { "XAyatanaLabel", "s" },
            { "XAyatanaLabelGuide", "s" } };
        for (const auto& [name, type] : types)
            QVERIFY2(signature(name) == type, qPrintable(name + u' ' + signature(name)));

        QCOMPARE(all.value("Category").toString(), "ApplicationStatus");
        QCOMPARE(all.value("Id").toString(), "limitra");
        QCOMPARE(all.value("Title").toString(), "Limitra");
        QCOMPARE(all.value("Status").toString(), "Active");
        QCOMPARE(all.value("ItemIsMenu").toBool(), false);
        QCOMPARE(all.value("XAyatanaLabel").toString(), "C 84% · X 61%");
        QCOMPARE(all.value("XAyatanaLabelGuide").toString(), "C 100% · X 100%");
        QCOMPARE(all.value("IconName").toString(), "limitra-gauge-60-symbolic");
        const QString svg
            = all.value("IconThemePath").toString() + "/hicolor/symbolic/apps/limitra-gauge-60-symbolic.svg";
        QVERIFY2(QFile(svg).size() > 0, qPrintable(svg));

        const auto tip = qdbus_cast<SniToolTip>(all.value("ToolTip").value<QDBusArgument>());
        QCOMPARE(tip.title, "Limitra");
        QCOMPARE(tip.text, "C 84% · X 61%");
        QList<int> sizes;
        for (const SniPixmap& p : qdbus_cast<SniPixmaps>(all.value("IconPixmap").value<QDBusArgument>())) {
            QCOMPARE(p.argb.size(), p.width * p.height * 4);
            // Light strokes with a dark rim: both show on light and on dark panels.
            int light = 0, dark = 0;
            for (qsizetype i = 0; i + 3 < p.argb.size(); i += 4) {
                const auto alpha = uchar(p.argb[i]), green = uchar(p.argb[i + 2]);
                light += alpha > 200 && green > 200;
                dark += alpha > 200 && green < 60;
            }
            QVERIFY2(light > p.width && dark > p.width, qPrintable(QString("%1 %2").arg(light).arg(dark)));
            sizes.append(p.width);
        }
        QCOMPARE(sizes, (QList<int> { 16, 22, 32, 48 }));

        // The menu a click shows on Ayatana hosts, read as they read it.
        QDBusMessage layout = QDBusMessage::createMethodCall(
            a.app->tray().serviceName(), "/MenuBar", "com.canonical.dbusmenu", "GetLayout");
        layout << 0 << -1 << QStringList();
        const QDBusMessage menu = callItem(layout);
        QCOMPARE(menu.type(), QDBusMessage::ReplyMessage);
        QStringList labels;
        for (const QVariant& child : qdbus_cast<MenuLayout>(menu.arguments().at(1)).children) {
            const auto entry
                = qdbus_cast<MenuLayout>(child.value<QDBusVariant>().variant().value<QDBusArgument>());
            labels.append(entry.properties.value("label", "—").toString());
        }
        QCOMPARE(labels, (QStringList { "Límites", "Actualizar ahora", "Ajustes", "—", "Salir" }));
    }

    void labelAndToolTipFollowStoreAndSettings_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QString>("label");
        QTest::addColumn<QString>("toolTip");
        QTest::newRow("publish") << "" << QVariant() << "C 30% · X 55%"
                                 << "C 30% · X 55%";
        QTest::newRow("used") << "percentMode" << QVariant("used") << "C 70% · X 45%"
                              << "C 70% · X 45%";
        QTest::newRow("worst") << "menuBarStyle" << QVariant("iconAndWorst") << "30%"
                               << "30%";
        QTest::newRow("icon only") << "menuBarStyle" << QVariant("iconOnly") << ""
                                   << "C 30% · X 55%";
        QTest::newRow("no claude") << "showClaude" << QVariant(false) << "X 55%"
                                   << "X 55%";
        QTest::newRow("no codex") << "showCodex" << QVariant(false) << "C 30%"
                                  << "C 30%";
    }
    void labelAndToolTipFollowStoreAndSettings()
    {
        QFETCH(QString, key);
        QFETCH(QVariant, value);
        QFETCH(QString, label);
        QFETCH(QString, toolTip);
        App a;
        QTRY_VERIFY(!m_watcher.registered.isEmpty());
        m_watcher.listen(a.app->tray().serviceName());
        const auto labelSeen = [&](const QString& text) {
            return m_watcher.signalsSeen.contains("XAyatanaNewLabel|" + text + "|C 100% · X 100%")
                || m_watcher.signalsSeen.contains("XAyatanaNewLabel|" + text + "|" + text);
        };
        const double first = key.isEmpty() ? 10 : 30;
        a.publish(left(first), left(key.isEmpty() ? 10 : 55));
        QTRY_VERIFY(labelSeen(key.isEmpty() ? "C 10% · X 10%" : "C 30% · X 55%"));
        m_watcher.signalsSeen.clear();

        if (key.isEmpty())
            a.publish(left(30), left(55));
        else
            a.settings().setValue(key, value);
        QTRY_VERIFY2(std::any_of(m_watcher.signalsSeen.begin(), m_watcher.signalsSeen.end(),
                         [&](const QString& s) { return s.startsWith("XAyatanaNewLabel|" + label + "|"); }),
            qPrintable(m_watcher.signalsSeen.join("; ")));
        QTest::qWait(100);
        QCOMPARE(m_watcher.signalsSeen.contains("NewToolTip"), key.isEmpty() || toolTip != "C 30% · X 55%");
        const QVariantMap all = qdbus_cast<QVariantMap>(a.properties().arguments().at(0));
        QCOMPARE(all.value("XAyatanaLabel").toString(), label);
        QCOMPARE(qdbus_cast<SniToolTip>(all.value("ToolTip").value<QDBusArgument>()).text, toolTip);
        QVERIFY(!m_watcher.signalsSeen.contains("NewTitle"));
    }

    void iconChangesOnlyWithTheNeedlesStep_data()
    {
        QTest::addColumn<double>("claudeLeft");
        QTest::addColumn<double>("codexLeft");
        QTest::addColumn<QString>("icon");
        QTest::addColumn<bool>("newIcon");
        QTest::newRow("same step") << 82.0 << 90.0 << "limitra-gauge-80-symbolic" << false;
        QTest::newRow("lower step") << 74.0 << 90.0 << "limitra-gauge-70-symbolic" << true;
        QTest::newRow("codex is lowest") << 90.0 << 4.0 << "limitra-gauge-0-symbolic" << true;
        QTest::newRow("no data") << -1.0 << -1.0 << "limitra-gauge-none-symbolic" << true;
    }
    void iconChangesOnlyWithTheNeedlesStep()
    {
        QFETCH(double, claudeLeft);
        QFETCH(double, codexLeft);
        QFETCH(QString, icon);
        QFETCH(bool, newIcon);
        App a;
        QTRY_VERIFY(!m_watcher.registered.isEmpty());
        m_watcher.listen(a.app->tray().serviceName());
        a.publish(left(80), left(95));
        QTRY_VERIFY(m_watcher.signalsSeen.contains("NewIcon"));
        m_watcher.signalsSeen.clear();

        a.publish(claudeLeft < 0 ? usage({}) : left(claudeLeft), codexLeft < 0 ? usage({}) : left(codexLeft));
        QTRY_VERIFY(m_watcher.signalsSeen.contains("NewToolTip"));
        QTest::qWait(100);
        QCOMPARE(m_watcher.signalsSeen.contains("NewIcon"), newIcon);
        QCOMPARE(
            qdbus_cast<QVariantMap>(a.properties().arguments().at(0)).value("IconName").toString(), icon);
    }

    void activateAndMenuEntriesReachTheApplication()
    {
        App a;
        QTRY_VERIFY(!m_watcher.registered.isEmpty());
        PanelWindow& panel = a.app->panel();
        a.call("/StatusNotifierItem", kItemInterface, "Activate", { 0, 0 });
        QTRY_VERIFY(panel.isVisible());
        QTest::qWait(500); // past the guard against the closing click's own focus loss
        a.call("/StatusNotifierItem", kItemInterface, "SecondaryActivate", { 0, 0 });
        QTRY_VERIFY(!panel.isVisible());

        const auto click = [&](int id) {
            a.call("/MenuBar", "com.canonical.dbusmenu", "Event",
                { id, QStringLiteral("clicked"), QVariant::fromValue(QDBusVariant(0)), 0u });
        };
        click(1);
        QTRY_VERIFY(panel.isVisible());
        const int fetches = a.script->fetches;
        click(2);
        QTRY_COMPARE(a.script->fetches, fetches + 2);
        click(3);
        QTRY_VERIFY(a.app->settingsWindow().window() && a.app->settingsWindow().window()->isVisible());
        QVERIFY(!panel.isVisible()); // settings take the panel's place
    }

    void panelClosesOnFocusLossAndEscape()
    {
        App a;
        PanelWindow& panel = a.app->panel();
        panel.toggle({});
        QVERIFY(QTest::qWaitForWindowActive(&panel));
        QWindow elsewhere;
        elsewhere.show();
        elsewhere.requestActivate();
        QTRY_VERIFY(!panel.isVisible());
        // The click on the item that took the focus away arrives next: it must not reopen.
        panel.toggle({});
        QVERIFY(!panel.isVisible());
        QTest::qWait(450);
        panel.toggle({});
        QVERIFY(panel.isVisible());
        QVERIFY(QTest::qWaitForWindowActive(&panel));
        QTest::keyClick(&panel, Qt::Key_Escape);
        QVERIFY(!panel.isVisible());
    }

    void registersAgainWhenTheWatcherReturns()
    {
        App a;
        QTRY_COMPARE(m_watcher.registered.size(), 1);
        m_watcher.stop();
        QTest::qWait(100);
        QVERIFY(m_watcher.start());
        QTRY_COMPARE(m_watcher.registered.size(), 2);
        QCOMPARE(m_watcher.registered.last(), a.app->tray().serviceName());
        QCOMPARE(a.app->tray().host(), TrayItem::Host::StatusNotifier);
    }

    void withoutWatcherFallsBackToTheSystemTray()
    {
        m_watcher.stop();
        App a;
        const TrayItem::Host expected
            = QSystemTrayIcon::isSystemTrayAvailable() ? TrayItem::Host::SystemTray : TrayItem::Host::None;
        QTRY_COMPARE(a.app->tray().host(), expected);
        QVERIFY(m_watcher.registered.isEmpty());
        // A watcher that appears later gets the item, and the fallback goes.
        QVERIFY(m_watcher.start());
        QTRY_COMPARE(a.app->tray().host(), TrayItem::Host::StatusNotifier);
    }

    void welcomeOpensAtTheFirstLaunchOnly()
    {
        App first(false);
        QVERIFY(!first.settings().hasShownWelcome());
        first.app->start();
        QVERIFY(first.app->welcomeWindow().window() && first.app->welcomeWindow().window()->isVisible());
        QVERIFY(first.settings().hasShownWelcome());
        first.app.reset();

        // The next launch reads the same settings file.
        App second(false);
        platform::Defaults again(first.settings().filePath());
        QVERIFY(again.hasShownWelcome());
        second.settings().setHasShownWelcome(again.hasShownWelcome());
        second.app->start();
        QCOMPARE(second.app->welcomeWindow().window(), nullptr);
    }

    void panelOpensBesideTheIconAndOnScreen_data()
    {
        QTest::addColumn<QPoint>("click");
        QTest::addColumn<QPoint>("corner");
        // A 28 px panel at the top of a 1280 × 800 screen.
        QTest::newRow("top panel, middle") << QPoint(640, 14) << QPoint(460, 28);
        QTest::newRow("top panel, right edge") << QPoint(1270, 14) << QPoint(920, 28);
        QTest::newRow("no struts, below the point") << QPoint(300, 100) << QPoint(120, 106);
        QTest::newRow("bottom panel") << QPoint(10, 790) << QPoint(0, 284);
        QTest::newRow("click off the screen") << QPoint(-50, -40) << QPoint(0, 28);
    }
    void panelOpensBesideTheIconAndOnScreen()
    {
        QFETCH(QPoint, click);
        QFETCH(QPoint, corner);
        QCOMPARE(PanelWindow::place(click, QSize(360, 500), QRect(0, 28, 1280, 772)), corner);
    }

private:
    Watcher m_watcher;
};

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    registerSniTypes();
    TrayTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_tray.moc"
