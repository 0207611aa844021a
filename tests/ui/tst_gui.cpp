// The whole application's GUI with its real QML, offscreen, on a private bus and keyring.
#include "app/LimitraApp.h"
#include "model/AppSettings.h"
#include "platform/LibsecretStore.h"
#include "platform/LoginItem.h"
#include "ui/DesktopColorScheme.h"
#include "support/TestEnv.h"
#include "ui/settings/SettingsWindow.h"
#include "ui/settings/WelcomeWindow.h"
#include "ui/snapshot/PanelSnapshot.h"
#include "ui/snapshot/SnapshotMode.h"
#include "ui/tray/GaugeIcon.h"
#include "ui/tray/PanelWindow.h"
#include "ui/tray/SniTypes.h"
#include "ui/tray/TrayItem.h"
#include "update/UpdateChecker.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDesktopServices>
#include <QPainter>
#include <QProcess>
#include <QQuickItem>
#include <QSvgRenderer>
#include <QTest>

using namespace limitra;
using namespace limitra::test;

namespace {
constexpr double kNow = 1'700'000'000;
const QString kItem = QStringLiteral("org.kde.StatusNotifierItem");
const QString kDownload = QStringLiteral("https://limitra.app/descargar?os=linux");

QList<QQuickItem*> named(QQuickItem* root, const QString& name, bool visibleOnly = false)
{
    QList<QQuickItem*> found;
    const std::function<void(QQuickItem*)> walk = [&](QQuickItem* item) {
        if (item->objectName() == name && (!visibleOnly || item->isVisible()))
            found.append(item);
        for (QQuickItem* child : item->childItems())
            walk(child);
    };
    walk(root);
    return found;
}
QQuickItem* find(QQuickItem* root, const QString& name)
{
    QQuickItem* item = named(root, name).value(0);
    return item ? item : (qFatal("No item named %s", qPrintable(name)), nullptr);
}
QString textOf(const QQuickItem* item, bool shownOnly = false)
{
    return shownOnly && !item->isVisible() ? QString() : item->property("text").toString();
}
void click(QQuickItem* item)
{
    item->window()->grabWindow(); // polishes, so positions are final
    QTest::mouseClick(
        item->window(), Qt::LeftButton, {}, item->mapToScene(item->boundingRect().center()).toPoint());
}
// A drawn colour as a user names it.
QString colourName(const QQuickItem* item)
{
    const QColor c = item->property("color").value<QColor>();
    const int hue = c.hsvSaturationF() > 0.4 ? c.hsvHue() : -1;
    return hue < 0                ? "plain"
        : hue <= 10 || hue >= 350 ? "red"
        : hue <= 45               ? "orange"
        : hue <= 160              ? "green"
                                  : "blue";
}
// The row's theme, before any window is made.
void useTheme()
{
    QGuiApplication::setPalette(cell("theme") == "dark" ? DesktopColorScheme::darkPalette() : QPalette());
}
// A PNG of a window for a person to look at.
void render(QQuickItem* content, const QString& name)
{
    const QString folder = qEnvironmentVariable("LIMITRA_WINDOW_ARTIFACTS");
    if (!folder.isEmpty() && !cell("theme").isEmpty() && QDir().mkpath(folder))
        QVERIFY(
            content->window()->grabWindow().save(QString("%1/%2-%3.png").arg(folder, name, cell("theme"))));
}
ServiceUsage left(double percent)
{
    return percent < 0 ? usage({}) : usage({ row("Sesión", 100 - percent, kNow + 3600) });
}
std::optional<QString> given(const QString& cell)
{
    return cell.isEmpty() ? std::nullopt : std::optional(cell);
}
// The connection of the tray host, apart from the program's own.
QDBusConnection hostBus()
{
    return QDBusConnection::connectToBus(QDBusConnection::SessionBus, "host");
}
// A signal as the desktop's services send it to the program.
void hostSignal(const QString& path, const QString& interface, const QString& name, const QVariantList& args)
{
    QDBusMessage signal = QDBusMessage::createSignal(path, interface, name);
    signal.setArguments(args);
    hostBus().send(signal);
}
// The application on a store whose fetches return what the test set, with a local version feed.
struct App
{
    TestEnv env { kNow, std::chrono::seconds(3) };
    ServiceUsage claude, codex;
    std::optional<UpdateInfo> update;
    std::atomic<int> fetches { 0 };
    std::unique_ptr<LimitraApp> app;
    explicit App(bool welcomed = true)
    {
        env.env.secrets = std::make_shared<platform::LibsecretStore>();
        env.defaults->setHasShownWelcome(welcomed);
        const auto fetch
            = [this](const ServiceUsage& record) { return [this, &record] { return ++fetches, record; }; };
        app = std::make_unique<LimitraApp>(
            env.env, UsageStore::Services { fetch(claude), fetch(codex), [this] { return update; } });
        app->settingsWindow().setAutostartDirectory(env.path(".config/autostart"));
        // The store's first refresh is queued at its birth, and would refuse the test's.
        QTest::qWait(0);
        QVERIFY(QTest::qWaitFor([&] { return !app->store().isRefreshing(); }, 5000));
        fetches = 0;
    }
    void set(const ServiceUsage& c, const ServiceUsage& x, const std::optional<UpdateInfo>& u = {})
    {
        QVERIFY(!app->store().isRefreshing());
        std::tie(claude, codex, update) = std::tie(c, x, u);
        const QFuture<void> done = app->store().refresh(); // with its update check
        QVERIFY(QTest::qWaitFor([&] { return done.isFinished(); }, 5000));
    }
    // Settings written as key=value pairs; "false" is the boolean.
    void setAll(const QString& pairs)
    {
        for (const QString& pair : pairs.split(' ', Qt::SkipEmptyParts)) {
            const QString value = pair.section('=', 1);
            env.defaults->setValue(pair.section('=', 0, 0), value == "false" ? QVariant(false) : value);
        }
    }
    // Opens the drop-down panel (again: lays it out anew) and returns its content.
    QQuickItem* panel()
    {
        if (!app->panel().isVisible())
            app->panel().open({});
        (void)QTest::qWaitForWindowExposed(&app->panel());
        // Rows a refresh replaced are deleted later, and must not be counted.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        app->panel().grabWindow();
        return app->panel().contentItem();
    }
    // Shows a window and returns its content.
    template <typename W> QQuickItem* open(W& w)
    {
        w.show();
        (void)QTest::qWaitForWindowExposed(w.window());
        w.window()->grabWindow();
        return w.window()->contentItem();
    }
    QDBusMessage call(
        const QString& path, const QString& interface, const QString& method, const QVariantList& args) const
    {
        QDBusMessage m = QDBusMessage::createMethodCall(app->tray().serviceName(), path, interface, method);
        m.setArguments(args);
        return hostBus().call(m, QDBus::BlockWithGui, 5000); // answered by this process
    }
};

// A service row of the welcome guide: 1 for a green check, 0 for a grey cross with its hint.
QString serviceRow(QQuickItem* view, const QString& name)
{
    const QQuickItem* icon = find(find(view, name), "statusIcon");
    const QString look = icon->property("name").toString() + colourName(icon);
    const bool hint = find(find(view, name), "hint")->isVisible();
    return look == "check-circlegreen" && !hint ? "1" : look == "xmark-circleplain" && hint ? "0" : look;
}
} // namespace

// The desktop's notification service: records each warning as "urgency|summary|body".
class Notifications : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    QStringList calls;
    QString first; // everything else the first call carried

public Q_SLOTS:
    uint Notify(const QString& app, uint replaces, const QString& icon, const QString& summary,
        const QString& body, const QStringList& actions, const QVariantMap& hints, int timeout)
    {
        const QVariant byte = hints["urgency"];
        const QString urgency
            = byte.typeId() == QMetaType::UChar ? QString::number(byte.value<uchar>()) : "?";
        if (calls.isEmpty())
            first = QStringList { app, QString::number(replaces), icon, actions.join(','),
                hints["desktop-entry"].toString(), QString::number(timeout) }
                        .join('|');
        calls << QStringList { urgency, summary, body }.join('|');
        return calls.size();
    }
    QStringList GetCapabilities() { return { "actions", "body" }; }
};

// The desktop portal's settings: the colour scheme it reports, as older portals wrap it.
class Portal : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.Settings")

public:
    uint scheme = 0; // no preference

public Q_SLOTS:
    QDBusVariant Read(const QString& group, const QString& key)
    {
        const bool asked = group == "org.freedesktop.appearance" && key == "color-scheme";
        return QDBusVariant(QVariant::fromValue(QDBusVariant(asked ? scheme : 0u)));
    }
};

// The test is also the desktop around the program: the tray watcher every host
// provides, the receiver of the item's signals and the handler of the addresses it opens.
class TestGui : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")

    QStringList registered, seen;
    QList<QUrl> opened;
    std::unique_ptr<App> a;
    Notifications notifications;
    Portal portal;

    App& app(bool welcomed = true) { return *(a.reset(), a = std::make_unique<App>(welcomed)); }

public Q_SLOTS:
    void RegisterStatusNotifierItem(const QString& service) { registered.append(service); }
    void onSignal(const QDBusMessage& m)
    {
        seen << (QStringList { m.member() } + QVariant(m.arguments()).toStringList()).join('|');
    }
    void open(const QUrl& url) { opened.append(url); }

private Q_SLOTS:
    void initTestCase()
    {
        if (!qEnvironmentVariableIsSet("LIMITRA_PRIVATE_KEYRING"))
            QSKIP("needs the private keyring of with-keyring.sh");
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
        registerSniTypes();
        QDesktopServices::setUrlHandler("https", this, "open");
        QVERIFY(hostBus().registerObject("/StatusNotifierWatcher", this,
                    QDBusConnection::ExportScriptableSlots | QDBusConnection::ExportNonScriptableSlots)
            && hostBus().registerService("org.kde.StatusNotifierWatcher"));
        QVERIFY(hostBus().registerObject(
                    "/org/freedesktop/Notifications", &notifications, QDBusConnection::ExportAllSlots)
            && hostBus().registerService("org.freedesktop.Notifications"));
        QVERIFY(hostBus().registerObject(
                    "/org/freedesktop/portal/desktop", &portal, QDBusConnection::ExportAllSlots)
            && hostBus().registerService("org.freedesktop.portal.Desktop"));
    }
    void cleanupTestCase() { QDesktopServices::unsetUrlHandler("https"); }
    void cleanup()
    {
        a.reset();
        registered.clear();
        seen.clear();
        opened.clear();
        notifications.calls.clear();
        portal.scheme = 0;
        QGuiApplication::setPalette(QPalette());
    }

    void limitRowShowsValueColourAndFill_data() { table(R"(
        | used | reset  | detail        | mode      | text          | textColour | bar    | fill | resetLine
        remaining     | 42  | 12000  | $3.20 de $50 | remaining | 58 % restante | plain | blue   | 58   | Se reinicia en 3h 20m
        10 left, used | 90  |        | $3.20 de $50 | used      | 90 % usado    | red   | red    | 90   |
        25 left       | 75  | 200000 |              | remaining | 25 % restante | plain | orange | 25   | Se reinicia en 2d 7h
        exhausted     | 120 |        |              | remaining | 0 % restante  | red   | red    | 0    |
        unknown mode  | 42  |        |              | Used      | 58 % restante | plain | blue   | 58   |
    )"); }
    void limitRowShowsValueColourAndFill()
    {
        App& t = app();
        const std::optional<double> reset
            = given(cell("reset")) ? std::optional(kNow + cell("reset").toDouble()) : std::nullopt;
        t.set(usage({ row("S", cell("used").toDouble(), reset, given(cell("detail"))) }, kNow), {});
        t.env.defaults->setPercentMode(cell("mode")); // the open panel follows
        const QList<QQuickItem*> rows = named(t.panel(), "limitRow", true);
        QCOMPARE(rows.size(), 1);
        QQuickItem* percent = find(rows[0], "percentText");
        QTEST(textOf(percent), "text");
        QTEST(colourName(percent), "textColour");
        QQuickItem* bar = find(rows[0], "barFill");
        QTEST(colourName(bar), "bar");
        // An exhausted limit still shows a sliver of 6.
        QCOMPARE(
            bar->width(), std::max(6.0, find(rows[0], "barTrack")->width() * cell("fill").toDouble() / 100));
        QTEST(textOf(find(rows[0], "resetText"), true), "resetLine");
        QTEST(textOf(find(rows[0], "detailText"), true), "detail");
    }

    void cardShowsOneState_data() { table(R"(
        | rows | updated | error             | plan | message           | updatedLine
        error hides rows | 3 | 0    | No pude leer tu sesión. | Max | No pude leer tu sesión. |
        loading          | 0 | 60   |                   | Pro  | Cargando…         |
        one row          | 1 | 180  |                   |      |                   | Actualizado hace 3 min
        three rows       | 3 | 7530 |                   | Max  |                   | Actualizado hace 2 h 5 min
    )"); }
    void cardShowsOneState()
    {
        App& t = app();
        const QStringList titles = QStringList { "Sesión", "Semanal", "Opus" }.mid(0, cell("rows").toInt());
        QList<LimitRow> rows;
        for (const QString& title : titles)
            rows.append(row(title, 10));
        t.set(usage(rows, kNow - cell("updated").toDouble(), given(cell("error")), given(cell("plan"))),
            usage({ row("Otra", 50) }, kNow));
        QQuickItem* section = find(t.panel(), "claudeSection");
        QQuickItem* error = find(section, "errorText");
        const QString message = textOf(error, true) + textOf(find(section, "loadingText"), true);
        QTEST(message, "message");
        QCOMPARE(colourName(error), "orange");
        QStringList shown;
        for (QQuickItem* title : named(section, "rowTitle", true))
            shown.append(textOf(title));
        QCOMPARE(shown, message.isEmpty() ? titles : QStringList());
        // One divider between consecutive rows, none above the first.
        QCOMPARE(named(section, "rowDivider", true).size(), std::max(0, int(shown.size()) - 1));
        QTEST(textOf(find(section, "updatedText"), true), "updatedLine");
        QTEST(textOf(find(section, "planBadgeText"), true), "plan");
        QCOMPARE(find(section, "planBadge")->isVisible(), !cell("plan").isEmpty());
    }

    void panelFollowsSettings_data() { table(R"(
        | claude | codex | interval | shown                       | footer
        both        | 1 | 1 | 1  | claudeSection codexSection  | Se actualiza cada minuto
        only Codex  | 0 | 1 | 2  | codexSection                | Se actualiza cada 2 min
        only Claude | 1 | 0 |    | claudeSection               | Se actualiza cada 5 min
        neither     | 0 | 0 | 30 | hiddenServicesMessage       | Se actualiza cada 30 min
    )"); }
    void panelFollowsSettings()
    {
        App& t = app();
        t.set(usage({ row("Claude fila", 5) }, kNow), usage({ row("Codex fila", 5) }, kNow));
        QQuickItem* panel = t.panel();
        t.env.defaults->setShowClaude(cell("claude") == "1");
        t.env.defaults->setShowCodex(cell("codex") == "1");
        t.env.defaults->setValue(
            "refreshIntervalMinutes", cell("interval").isEmpty() ? QVariant() : cell("interval"));
        t.panel();
        QTEST(textOf(find(panel, "footerText")), "footer");
        QStringList shown;
        for (const QString name : { "claudeSection", "codexSection", "hiddenServicesMessage" })
            if (find(panel, name)->isVisible())
                shown << name;
        QTEST(shown.join(" "), "shown");
        QCOMPARE(textOf(find(panel, "hiddenServicesMessage")),
            "Ambos servicios están ocultos. Actívalos en Ajustes.");
    }

    void bannerAndButtonsAct()
    {
        App& t = app();
        QQuickItem* panel = t.panel();
        QQuickItem* banner = find(panel, "updateBanner");
        QVERIFY(!banner->isVisible());
        const QUrl url("https://limitra.app/download/1.3.0");
        t.set({}, {}, UpdateInfo { "1.3.0", url, QStringLiteral("Notas") });
        QCOMPARE(textOf(find(panel, "bannerTitle"), true), "Nueva versión 1.3.0 disponible");
        QCOMPARE(textOf(find(panel, "bannerSubtitle"), true), "Haz clic para descargar");
        click(banner);
        QCOMPARE(opened, QList<QUrl> { url });
        QCOMPARE(textOf(find(panel, "panelTitle")), "Límites");
        click(find(panel, "settingsButton"));
        QVERIFY(t.app->settingsWindow().window() && t.app->settingsWindow().window()->isVisible());
        QVERIFY(!t.app->panel().isVisible());
    }

    // The snapshot: written over an old file, 720 wide, on the theme's background, the content's whole height.
    void snapshotIsWrittenWhole_data() { table("| theme\nlight | light\ndark | dark"); }
    void snapshotIsWrittenWhole()
    {
        useTheme();
        App& t = app();
        QTemporaryDir dir;
        const QString path = dir.filePath("old.png");
        QVERIFY(writeFile(path, "not a picture"));
        t.claude = usage({ row("Sesión", 30) }, kNow);
        QString printed;
        QTextStream out(&printed);
        SnapshotMode::run(t.app->store(), *t.env.defaults, path, out);
        QCOMPARE(printed, "Snapshot: " + path + "\n");
        QCOMPARE(t.app->store().claude().rows.size(), 1); // it waited for its refresh
        const QImage image(path);
        const QRgb window = QGuiApplication::palette().color(QPalette::Window).rgb();
        QVERIFY(image.width() == 720 && image.pixel(0, 0) == window && image.pixel(719, image.height() - 1) == window);
        QQuickItem fractional; // a bottom edge half a pixel down is kept
        fractional.setImplicitHeight(40.5);
        QVERIFY(PanelSnapshot::render(fractional, Qt::red).height() >= 81);
    }

    // The form shows another reader's values as they are, never rewriting them.
    void settingsFormShowsAndWrites_data() { table(R"(
        | mode | interval | segment | intervalShown | choices | explanation | theme
        used, 15     | used      | 15    | used      | 15 min | 6 | consumido (p. ej. 16 % usado).     | dark
        remaining, 3 | remaining | 3     | remaining | 3 min  | 7 | disponible (p. ej. 84 % restante). | light
        Used, 45     | Used      | 45    | remaining | 45 min | 7 | disponible (p. ej. 84 % restante). |
        text         | used      | often | used      | 5 min  | 6 | consumido (p. ej. 16 % usado).     |
    )"); }
    void settingsFormShowsAndWrites()
    {
        useTheme();
        App& t = app();
        const QVariant interval
            = cell("interval").toInt() ? QVariant(cell("interval").toInt()) : cell("interval");
        t.env.defaults->setPercentMode(cell("mode"));
        t.env.defaults->setValue("refreshIntervalMinutes", interval);
        QQuickItem* form = t.open(t.app->settingsWindow());
        render(form, "settings-general");
        QCOMPARE(form->window()->title(), "Ajustes de Limitra");
        QVERIFY(find(form, "segment_" + cell("segment"))->property("selected").toBool());
        QCOMPARE(find(form, "percentExplanation")->property("label"),
            "Se muestra el porcentaje " + cell("explanation"));
        QTEST(find(form, "refreshInterval")->property("displayText").toString(), "intervalShown");
        QCOMPARE(find(form, "refreshInterval")->property("count").toString(), cell("choices"));
        QCOMPARE(t.env.defaults->value("refreshIntervalMinutes").toString(), interval.toString());
        click(find(form, "showCodex")); // a control writes its key at once
        click(find(form, "notifyLow"));
        const platform::Defaults written(t.env.defaults->filePath());
        QCOMPARE(written.value("showCodex"), QVariant(false));
        QCOMPARE(written.value("notifyLow"), QVariant(false)); // on until switched off
    }

    // On and off in a real folder beside another program's entry; an entry that is a link is
    // written through, and switching off removes the link only, dangling or not, never what it
    // points to. A refused change leaves the switch off with the error line.
    void loginSwitchFollowsTheEntry()
    {
        App& t = app();
        const QString folder = t.env.path(".config/autostart"), entry = platform::LoginItem::entryPath(folder);
        const QString target = t.env.path("entry");
        QVERIFY(writeFile(folder + "/app.limitra.Limitra.desktop", "[Desktop Entry]\nExec=limitra\n"));
        QVERIFY(QFile::link(target, entry) && AppSettings::setLaunchAtLogin(false, folder));
        QVERIFY(!QFileInfo(entry).isSymLink() && AppSettings::setLaunchAtLogin(false, folder));
        QVERIFY(QFile::link(target, entry));
        QQuickItem* form = t.open(t.app->settingsWindow());
        const auto on = [&] { return find(form, "launchAtLogin")->property("checked").toBool(); };
        click(find(form, "launchAtLogin"));
        QVERIFY(on() && readFile(target).contains("\nExec="));
        click(find(form, "launchAtLogin"));
        QVERIFY(!on() && !find(form, "loginError")->isVisible() && QFile::exists(target));
        QCOMPARE(QDir(folder).entryList(QDir::Files | QDir::System | QDir::Hidden), QStringList("app.limitra.Limitra.desktop"));
        QVERIFY(QDir(folder).removeRecursively() && writeFile(folder, "not a folder"));
        click(find(form, "launchAtLogin"));
        QVERIFY(!on() && find(form, "loginError")->isVisible());
        QCOMPARE(readFile(folder), QByteArray("not a folder"));
    }

    // A slow feed: the button waits while checking, then the outcome shows.
    void updateCheckShowsTheOutcome_data() { table(R"(
        | status | version | result | opens | theme
        newer        | 200 | 9.9.9 | Nueva versión 9.9.9 disponible | 1 | light
        same         | 200 |       | Tienes la versión más reciente | 0 | dark
        server error | 500 |       | Tienes la versión más reciente | 0 |
    )"); }
    void updateCheckShowsTheOutcome()
    {
        useTheme();
        App& t = app();
        const QString version = cell("version").isEmpty() ? UpdateChecker::currentVersion() : cell("version");
        PeerAnswer slow = answer(cell("status").toInt(),
            QString(R"({"version":"%1","download_url":"%2"})").arg(version, kDownload).toUtf8());
        slow.delay = std::chrono::milliseconds(600);
        t.env.peer.on("GET", "/api/version.json", slow);
        QQuickItem* about = t.open(t.app->settingsWindow());
        click(find(about, "tab1"));
        click(find(about, "checkButton"));
        QVERIFY(find(about, "checkSpinner")->isVisible() && !find(about, "checkButton")->isEnabled());
        render(about, "settings-about-checking");
        click(find(about, "checkButton"));
        QTRY_VERIFY(find(about, "updateResult")->isVisible());
        render(about, "settings-about");
        QTEST(textOf(find(about, "updateResult")), "result");
        QCOMPARE(opened, cell("opens") == "1" ? QList<QUrl> { QUrl(kDownload) } : QList<QUrl> {});
        QCOMPARE(t.env.peer.requests().size(), 1);
    }

    // The guide opens by itself at the first start.
    void welcomeFindsEachTool_data() { table(R"(
        | codex | claude | item | found | theme
        only Codex's file       | 1 | 0 |                         | 01 |
        only Claude Code's item | 0 | 0 | Claude Code-credentials | 10 |
        only our own item       | 0 | 0 | Limitra.claude-oauth    | 00 | light
        both files              | 1 | 1 |                         | 11 | dark
    )"); }
    void welcomeFindsEachTool()
    {
        useTheme();
        for (const QString service : { "Claude Code-credentials", "Limitra.claude-oauth" })
            QProcess::execute("secret-tool", { "clear", "service", service });
        if (!cell("item").isEmpty())
            QProcess::execute("sh",
                { "-c", "printf {} | secret-tool store --label=x service \"$0\" account me", cell("item") });
        App& t = app(false);
        QVERIFY(cell("codex") == "0" || t.env.write(".codex/auth.json", "{}"));
        QVERIFY(cell("claude") == "0" || t.env.write(".claude/.credentials.json", "")); // empty still counts
        t.app->start();
        QTRY_VERIFY(t.app->welcomeWindow().window()); // once the detection answered
        QVERIFY(QTest::qWaitForWindowExposed(t.app->welcomeWindow().window()));
        QQuickItem* view = t.app->welcomeWindow().window()->contentItem();
        QVERIFY(platform::Defaults(t.env.defaults->filePath()).hasShownWelcome());
        QTRY_VERIFY_WITH_TIMEOUT(find(view, "claudeRow")->isVisible(), 10000);
        render(view, cell("found") == "11" ? "welcome-both" : "welcome-neither");
        QTEST(serviceRow(view, "claudeRow") + serviceRow(view, "codexRow"), "found");
        QCOMPARE(find(view, "neitherNote")->isVisible(), cell("found") == "00");
    }

    // From C 30 % · X 55 % left, a new record or setting reaches the host with the signals it waits for.
    // Hidden services count nowhere: not in the needle, not in the tooltip.
    void trayFollowsRecordsAndSettings_data() { table(R"(
                            | left  | settings                              | label         | toolTip       | icon
        new record          | 96 57 |                                       | C 96% · X 57% | C 96% · X 57% | 60
        same step           | 34 55 |                                       | C 34% · X 55% | C 34% · X 55% | 30
        no data             | -1 -1 |                                       | C – · X –     | C – · X –     | none
        used                |       | percentMode=used                      | C 70% · X 45% | C 70% · X 45% | 30
        worst               |       | menuBarStyle=iconAndWorst             | 30%           | 30%           | 30
        icon only           |       | menuBarStyle=iconOnly                 |               | C 30% · X 55% | 30
        no Claude           |       | showClaude=false                      | X 55%         | X 55%         | 60
        icon only, no Codex | 55 30 | menuBarStyle=iconOnly showCodex=false |               | C 55%         | 60
        neither             |       | showClaude=false showCodex=false      |               |               | none
    )"); }
    void trayFollowsRecordsAndSettings()
    {
        App& t = app();
        t.app->start();
        QTRY_COMPARE(registered, QStringList { t.app->tray().serviceName() });
        QVERIFY(!t.app->welcomeWindow().window()); // not at later starts
        for (const char* name : { "NewIcon", "NewToolTip", "XAyatanaNewLabel" })
            hostBus().connect(
                t.app->tray().serviceName(), {}, kItem, name, this, SLOT(onSignal(QDBusMessage)));
        t.set(left(30), left(55));
        QTRY_VERIFY(seen.contains("XAyatanaNewLabel|C 30% · X 55%|C 100% · X 100%"));
        seen.clear();
        if (const QStringList left = cell("left").split(' '); left.size() == 2)
            t.set(::left(left[0].toDouble()), ::left(left[1].toDouble()));
        t.setAll(cell("settings"));
        const QVariantMap all = qdbus_cast<QVariantMap>(
            t.call("/StatusNotifierItem", "org.freedesktop.DBus.Properties", "GetAll", { kItem })
                .arguments()[0]);
        QTEST(all["XAyatanaLabel"].toString(), "label");
        QTEST(qdbus_cast<SniToolTip>(all["ToolTip"].value<QDBusArgument>()).text, "toolTip");
        QCOMPARE(all["IconName"].toString(), "limitra-gauge-" + cell("icon") + "-symbolic");
        QTRY_VERIFY2(
            !seen.filter("XAyatanaNewLabel|" + cell("label") + "|").isEmpty(), qPrintable(seen.join("; ")));
        QTest::qWait(100);
        QCOMPARE(seen.contains("NewToolTip"), cell("toolTip") != "C 30% · X 55%");
        QCOMPARE(seen.contains("NewIcon"), cell("icon") != "30");
    }

    // The menu starts with what the panel shows, renewed after every refresh; a line opens the panel.
    void trayMenuListsTheLimits_data() { table(R"(
                    | settings                         | codex             | entries
        both shown  |                                  | No pude (HTTP 500). | Claude Code · Sesión de 5 h — 63 % restante · 2h 5m / Claude Code · weekly__extra — 10 % restante / Codex · No pude (HTTP 500).
        used        | percentMode=used                 |                   | Claude Code · Sesión de 5 h — 37 % usado · 2h 5m / Claude Code · weekly__extra — 90 % usado / Codex · Cargando…
        no Claude   | showClaude=false                 | No pude (HTTP 500). | Codex · No pude (HTTP 500).
        neither     | showClaude=false showCodex=false |                   |
    )"); }
    void trayMenuListsTheLimits()
    {
        App& t = app();
        t.app->start();
        hostBus().connect(t.app->tray().serviceName(), "/MenuBar", "com.canonical.dbusmenu", "LayoutUpdated",
            this, SLOT(onSignal(QDBusMessage)));
        t.set(usage({ row("Sesión de 5 h", 37, kNow + 7500), row("weekly_extra", 90) }, kNow),
            usage({}, {}, given(cell("codex"))));
        t.setAll(cell("settings"));
        const QDBusMessage reply
            = t.call("/MenuBar", "com.canonical.dbusmenu", "GetLayout", { 0, -1, QStringList() });
        QTRY_VERIFY(seen.contains("LayoutUpdated|" + reply.arguments().value(0).toString() + "|0"));
        QStringList labels;
        QList<int> ids;
        for (const QVariant& child : qdbus_cast<MenuLayout>(reply.arguments().value(1)).children) {
            const MenuLayout entry = qdbus_cast<MenuLayout>(child.value<QDBusVariant>().variant());
            labels << entry.properties.value("label", "-").toString();
            ids << entry.id;
        }
        const QString actions = "Límites / Actualizar ahora / Ajustes / - / Salir";
        QCOMPARE(
            labels.join(" / "), cell("entries").isEmpty() ? actions : cell("entries") + " / - / " + actions);
        t.call("/MenuBar", "com.canonical.dbusmenu", "Event",
            { ids[0], QStringLiteral("clicked"), QVariant::fromValue(QDBusVariant(0)), 0u });
        QTRY_VERIFY(t.app->panel().isVisible());
    }

    // A host that drops the item (GNOME's extension does, for items that come while the shell starts)
    // hears from it again; another item's leaving is not its business.
    void trayComesBackWhenTheHostDropsIt()
    {
        App& t = app();
        t.app->start();
        const QString name = t.app->tray().serviceName();
        QTRY_COMPARE(registered, QStringList { name });
        const auto drop = [](const QString& item) {
            hostSignal("/StatusNotifierWatcher", "org.kde.StatusNotifierWatcher", "StatusNotifierItemUnregistered",
                { item });
        };
        drop("org.kde.StatusNotifierItem-1-1");
        QTest::qWait(1500);
        QCOMPARE(registered.size(), 1);
        drop(name);
        QTRY_COMPARE_WITH_TIMEOUT(registered, (QStringList { name, name }), 3000);
    }

    // The dial itself carries the level: each step draws more of it solid, in the icon hosts
    // recolour and in the pixmaps alike. Strips of every gauge, on a light and a dark panel (the
    // recoloured icon above the pixmap), go to artifacts/tray/ for a person to look at.
    void gaugeDialCarriesTheLevel()
    {
        // How much light the icon puts on a black panel.
        const auto light = [](const QImage& image) {
            qint64 sum = 0;
            for (int y = 0; y < image.height(); ++y)
                for (int x = 0; x < image.width(); ++x)
                    sum += qGray(image.pixel(x, y)) * qAlpha(image.pixel(x, y));
            return sum;
        };
        const QList<int> steps { GaugeIcon::kNoData, 0, 10, 20, 30, 40, 50, 60, 70, 80, 90, 100 };
        for (const int size : { 16, 22 }) {
            const int cell = size + 6;
            QImage strip(cell * int(steps.size()), cell * 4, QImage::Format_RGB32);
            QPainter painter(&strip);
            qint64 last[2] {}; // of the white icon and the pixmap
            for (int i = 0; i < steps.size(); ++i)
                for (const auto& [row, panel, ink] : { std::tuple { 0, "#f6f5f4", "#2e3436" }, { 2, "#2b2b2b", "#ffffff" } }) {
                    QImage icon(size, size, QImage::Format_ARGB32_Premultiplied);
                    icon.fill(Qt::transparent);
                    QPainter iconPainter(&icon);
                    QSvgRenderer(GaugeIcon::svg(steps[i]).replace("currentColor", ink)).render(&iconPainter);
                    iconPainter.end();
                    const QImage pixmap = GaugeIcon::image(steps[i], size);
                    painter.fillRect(i * cell, row * cell, cell, 2 * cell, QColor(panel));
                    painter.drawImage(i * cell + 3, row * cell + 3, icon);
                    painter.drawImage(i * cell + 3, (row + 1) * cell + 3, pixmap);
                    const qint64 now[2] { light(icon), light(pixmap) };
                    QVERIFY2(row == 0 || i < 2 || (now[0] > last[0] && now[1] > last[1]), qPrintable(QString::number(steps[i])));
                    if (row == 2)
                        std::copy(now, now + 2, last);
                }
            painter.end();
            const QString folder = qEnvironmentVariable("LIMITRA_TRAY_ARTIFACTS");
            QVERIFY(folder.isEmpty()
                || (QDir().mkpath(folder) && strip.save(QString("%1/gauge-%2.png").arg(folder).arg(size))));
        }
    }

    // The menu's actions as a host sends them, in a group; the panel closes on Escape and on focus
    // elsewhere, and the click on the icon that took the focus does not reopen it.
    void trayMenuAndPanelFocus()
    {
        // A start prints nothing, whatever the host reads (the offscreen platform's own notes aside).
        QTest::failOnWarning(QRegularExpression("^(?!This plugin does not support )"));
        App& t = app();
        t.app->start();
        PanelWindow& panel = t.app->panel();
        const auto menuClick = [&](int id) {
            const MenuEvents events { { id, QStringLiteral("clicked"), QDBusVariant(0), 0u } };
            QCOMPARE(
                t.call("/MenuBar", "com.canonical.dbusmenu", "EventGroup", { QVariant::fromValue(events) })
                    .type(),
                QDBusMessage::ReplyMessage);
        };
        menuClick(2);
        QTRY_COMPARE(t.fetches, 2);
        menuClick(1);
        QTRY_VERIFY(panel.isVisible());
        menuClick(3); // the settings take the panel's place
        QTRY_VERIFY(t.app->settingsWindow().window() && t.app->settingsWindow().window()->isVisible());
        QVERIFY(!panel.isVisible());
        panel.toggle({});
        QVERIFY(QTest::qWaitForWindowActive(&panel));
        t.app->settingsWindow().window()->requestActivate();
        QTRY_VERIFY(!panel.isVisible());
        panel.toggle({});
        QVERIFY(!panel.isVisible());
        QTest::qWait(450);
        panel.toggle({});
        QVERIFY(panel.isVisible());
        QTest::keyClick(&panel, Qt::Key_Escape);
        QVERIFY(!panel.isVisible());
    }

    // A dark desktop darkens the light windows at the start and at each change of its mind; a theme
    // that is dark of its own is left as it is.
    void windowsFollowTheDesktopsDarkPreference()
    {
        const auto change = [](uint scheme) {
            hostSignal("/org/freedesktop/portal/desktop", "org.freedesktop.portal.Settings", "SettingChanged",
                { "org.freedesktop.appearance", "color-scheme", QVariant::fromValue(QDBusVariant(scheme)) });
        };
        portal.scheme = 1;
        App& t = app();
        t.app->start();
        const auto drawnDark
            = [&] { return QColor(t.panel()->window()->grabWindow().pixel(4, 4)).lightnessF() < 0.5; };
        QTRY_VERIFY(drawnDark());
        change(0);
        QTRY_VERIFY(!drawnDark());
        change(1);
        QTRY_VERIFY(drawnDark());
        QGuiApplication::setPalette(QPalette(Qt::black)); // a theme dark of its own
        app().app->start();
        change(0);
        QTest::qWait(100);
        QCOMPARE(QGuiApplication::palette().color(QPalette::Window), QColor(Qt::black));
    }

    // On a 1280 × 800 screen; the work area leaves out the panel that holds the tray. With no
    // click point ("-") the panel hangs from the tray's corner.
    void panelOpensBesideTheIcon_data() { table(R"(
        | x    | y   | area            | corner
        top panel, middle         | 640  | 14  | 0 28 1280 772 | 460 28
        top panel, right edge     | 1270 | 14  | 0 28 1280 772 | 920 28
        bottom panel              | 10   | 790 | 0 0 1280 772  | 0 272
        top panel, no click       | -    | -   | 0 28 1280 772 | 920 34
        bottom panel, no click    | -    | -   | 0 0 1280 772  | 920 265
        bar X11 cannot see, no click | - | -   | 0 0 1280 800  | 920 38
    )"); }
    void panelOpensBesideTheIcon()
    {
        const QStringList a = cell("area").split(' ');
        const QRect area(a[0].toInt(), a[1].toInt(), a[2].toInt(), a[3].toInt());
        const QPoint anchor = cell("x") == u"-" ? PanelWindow::trayCorner({ 0, 0, 1280, 800 }, area)
                                                : QPoint(cell("x").toInt(), cell("y").toInt());
        const QPoint corner = PanelWindow::place(anchor, { 360, 500 }, area);
        QTEST(QString("%1 %2").arg(corner.x()).arg(corner.y()), "corner");
    }

    // The panel's window by the Qt platform, the session and the X11 window manager: a grab where
    // the X server honours it, a window mutter manages (and so focuses) where it ignores grabs.
    void panelWindowSuitsTheDesktop_data() { table(R"(
        | platform | wayland | manager     | kind
        XFCE                  | xcb     | no  | Xfwm4       | unmanaged
        KDE Plasma, X11       | xcb     | no  | KWin        | unmanaged
        KDE Plasma, Wayland   | xcb     | yes | KWin        | managed
        GNOME, X11            | xcb     | no  | GNOME Shell | grabbing
        GNOME, Wayland        | xcb     | yes | GNOME Shell | managed
        mutter alone, Wayland | xcb     | yes | Mutter      | managed
        sway                  | xcb     | yes | wlroots wm  | grabbing
        no window manager yet | xcb     | no  | -           | unmanaged
        native Wayland client | wayland | yes | GNOME Shell | tool
    )"); }
    void panelWindowSuitsTheDesktop()
    {
        const QString manager = cell("manager") == u"-" ? QString() : cell("manager");
        const auto kind = PanelWindow::kindFor(cell("platform"), cell("wayland") == u"yes", manager);
        const char* const names[] = { "tool", "unmanaged", "grabbing", "managed" };
        QTEST(QString(names[int(kind)]), "kind");
    }

    // Claude's session through the bands, as the steps set it: one warning per band and
    // window, none again after a restart, none for a failed, hidden or resetless row.
    void lowLimitsWarnOncePerBandAndWindow()
    {
        const QString file = qEnvironmentVariable("XDG_STATE_HOME") + "/limitra/warnings.json";
        QFile::remove(file);
        const struct
        {
            const char* step;
            double left, hours;
            const char* sent;
        } steps[] = {
            { "", 26, 1, "" },
            { "", 25, 1, "1|Claude Code · Sesión de 5 h|25 % restante · Se reinicia en 1h 0m" },
            { "", 11, 1, "" },
            { "", 10, 1, "2|Claude Code · Sesión de 5 h|10 % restante · Se reinicia en 1h 0m" },
            { "", 3, 1, "" },
            { "", 3, 1, "" },
            { "", 26, 1, "" },
            { "", 24, 1, "" },
            { "restart", 3, 1, "" },
            { "used", 3, 2, "2|Claude Code · Sesión de 5 h|97 % usado · Se reinicia en 2h 0m" },
            { "off", 20, 3, "" },
            { "hidden", 20, 3, "1|Claude Code · Sesión de 5 h|80 % usado · Se reinicia en 3h 0m" },
            { "later", 20, 3, "1|Codex · Semanal|80 % usado · Se reinicia en 21h 59m" },
        };
        std::optional<QString> codexError = "Sin conexión.";
        QStringList expected;
        App* t = &app();
        for (const auto& s : steps) {
            const QString step = s.step;
            if (step == "restart")
                t = &app();
            t->env.defaults->setPercentMode(step == "" || step == "restart" ? "remaining" : "used");
            if (step == "off")
                codexError.reset();
            t->env.defaults->setShowCodex(step != "hidden");
            t->env.defaults->setNotifyLow(step != "off");
            if (step == "later")
                *t->env.clock = kNow + 2 * 3600 + 1; // both earlier windows have reset
            t->set(usage({ row("Sesión de 5 h", 100 - s.left, kNow + s.hours * 3600, {}, "claude-5h"),
                       row("Semanal", 98, {}, {}, "claude-7d") }),
                usage({ row("Semanal", 80, kNow + 86400, {}, "codex-secondary") }, {}, codexError));
            // Answered after every warning sent before it.
            QDBusConnection::sessionBus().call(
                QDBusMessage::createMethodCall(hostBus().baseService(), "/org/freedesktop/Notifications",
                    "org.freedesktop.Notifications", "GetCapabilities"),
                QDBus::BlockWithGui, 5000);
            if (*s.sent)
                expected << s.sent;
            QVERIFY2(
                notifications.calls == expected, qPrintable(step + ": " + notifications.calls.join("; ")));
        }
        QCOMPARE(notifications.first, "Limitra|0|app.limitra.Limitra|default,Límites|app.limitra.Limitra|-1");
        QCOMPARE(modeOf(file), 0600);
        QCOMPARE(readFile(file).count("claude-5h"), 1); // only the open window is kept
        hostSignal("/org/freedesktop/Notifications", "org.freedesktop.Notifications", "ActionInvoked",
            { uint(notifications.calls.size()), "default" });
        QTRY_VERIFY(t->app->panel().isVisible());
    }
};

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    TestGui test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_gui.moc"
