// The settings window's real QML on the offscreen platform: the General tab
// against settings in a temporary file and a temporary autostart folder, the
// About tab against a local version feed.
#include "WindowProbe.h"

#include "platform/Http.h"
#include "platform/LoginItem.h"
#include "support/TestEnv.h"
#include "ui/UiModule.h"
#include "ui/settings/SettingsWindow.h"
#include "update/UpdateChecker.h"

#include <QDir>
#include <QElapsedTimer>
#include <QQmlEngine>
#include <QSignalSpy>
#include <QTemporaryDir>

using namespace limitra;
using namespace limitra::test;

namespace {
const QByteArray kFeedPath = "/api/version.json";
const QString kDownload = QStringLiteral("https://limitra.app/descargar?os=linux");

QByteArray feed(const QString& version)
{
    return QStringLiteral("{\"version\":\"%1\",\"download_url\":\"%2\"}").arg(version, kDownload).toUtf8();
}
} // namespace

class TestSettings : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestEnv> t;
    std::unique_ptr<QTemporaryDir> config;
    std::unique_ptr<QQmlEngine> engine;
    std::unique_ptr<SettingsWindow> settings;
    QList<QUrl> opened;
    WindowProbe probe;

    QString autostart() const { return config->filePath(QStringLiteral("autostart")); }

    // Opens the window (a fresh one when closed) on the given tab.
    void open(int tab = 0)
    {
        settings->show();
        probe.window = settings->window();
        QVERIFY(QTest::qWaitForWindowExposed(probe.window));
        probe.click(QStringLiteral("tab%1").arg(tab));
        QCOMPARE(probe.find(QStringLiteral("tabs"))->property("currentIndex").toInt(), tab);
    }
    void reopen(int tab = 0)
    {
        probe.window->close();
        open(tab);
    }
    bool checked(const QString& name) const { return probe.find(name)->property("checked").toBool(); }
    QString shownChoice(const QString& combo) const
    {
        return probe.find(combo)->property("displayText").toString();
    }
    QString loginEntry() const { return QString::fromUtf8(readFile(platform::LoginItem::entryPath(autostart()))); }

private Q_SLOTS:
    void initTestCase()
    {
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
        platform::Http::globalInit();
    }
    void init()
    {
        t = std::make_unique<TestEnv>(1'700'000'000, std::chrono::seconds(3));
        config = std::make_unique<QTemporaryDir>();
        engine = std::make_unique<QQmlEngine>();
        UiModule::prepare(*engine);
        settings = std::make_unique<SettingsWindow>(*engine, t->env);
        settings->setAutostartDirectory(autostart());
        opened.clear();
        settings->setUrlOpener([this](const QUrl& url) { opened.append(url); });
    }
    void cleanup()
    {
        settings.reset();
        engine.reset();
        t.reset();
    }

    // With nothing stored the form shows the defaults, in this order, with no error line.
    void generalTabShowsDefaultsInOrder()
    {
        open();
        QCOMPARE(probe.texts(),
            QStringList({ "General", "Acerca de", "Abrir al iniciar sesión", "Servicios", "Claude Code", "Codex",
                "Barra de menús", "Mostrar", "Icono y porcentajes", "Porcentaje", "Mostrar como", "Restante",
                "Usado", "Se muestra el porcentaje disponible (p. ej. 84 % restante).", "Actualización",
                "Actualizar cada", "5 min" }));
        QVERIFY(!checked("launchAtLogin"));
        QVERIFY(checked("showClaude"));
        QVERIFY(checked("showCodex"));
        QVERIFY(probe.find("segment_remaining")->property("selected").toBool());
        QCOMPARE(probe.window->width(), 440);
        QVERIFY(t->defaults->value("showClaude").isNull()); // showing writes nothing
    }

    // Each control writes its key, with the key's type, at once; the form follows.
    void controlsWriteTheirKey_data()
    {
        QTest::addColumn<QString>("control");
        QTest::addColumn<QString>("choice"); // empty: a switch or segment is clicked
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariant>("stored");
        QTest::newRow("Claude switch") << "showClaude" << "" << "showClaude" << QVariant(false);
        QTest::newRow("Codex switch") << "showCodex" << "" << "showCodex" << QVariant(false);
        QTest::newRow("icon only") << "menuBarStyle" << "Solo icono" << "menuBarStyle" << QVariant("iconOnly");
        QTest::newRow("lowest %") << "menuBarStyle" << "Icono y el % más bajo" << "menuBarStyle"
                                  << QVariant("iconAndWorst");
        QTest::newRow("used") << "segment_used" << "" << "percentMode" << QVariant("used");
        QTest::newRow("30 min") << "refreshInterval" << "30 min" << "refreshIntervalMinutes" << QVariant(30);
        QTest::newRow("1 min") << "refreshInterval" << "1 min" << "refreshIntervalMinutes" << QVariant(1);
    }
    void controlsWriteTheirKey()
    {
        QFETCH(QString, control);
        QFETCH(QString, choice);
        QFETCH(QString, key);
        QFETCH(QVariant, stored);
        open();
        QSignalSpy changed(t->defaults.get(), &platform::Defaults::changed);
        choice.isEmpty() ? probe.click(control) : probe.choose(control, choice);
        QCOMPARE(changed.size(), 1);
        QCOMPARE(changed.first().first().toString(), key);
        const QVariant value = t->defaults->value(key);
        QCOMPARE(value.typeId(), stored.typeId());
        QCOMPARE(value, stored);
        // On disk at once: another reader of the file sees it.
        QCOMPARE(platform::Defaults(t->defaults->filePath()).value(key).toString(), stored.toString());
        if (!choice.isEmpty())
            QCOMPARE(shownChoice(control), choice);
    }

    // What the form shows follows the stored values, also when another reader writes them.
    void formFollowsStoredValues_data()
    {
        QTest::addColumn<QString>("percentMode");
        QTest::addColumn<QVariant>("interval");
        QTest::addColumn<QString>("segment");
        QTest::addColumn<QString>("explanation");
        QTest::addColumn<QString>("intervalShown");
        QTest::addColumn<int>("intervalChoices");
        const QString used = QStringLiteral("Se muestra el porcentaje consumido (p. ej. 16 % usado).");
        const QString left = QStringLiteral("Se muestra el porcentaje disponible (p. ej. 84 % restante).");
        QTest::newRow("used, 15") << "used" << QVariant(15) << "used" << used << "15 min" << 6;
        QTest::newRow("remaining, 3") << "remaining" << QVariant(3) << "remaining" << left << "3 min" << 7;
        QTest::newRow("Used, 45") << "Used" << QVariant(45) << "remaining" << left << "45 min" << 7;
        QTest::newRow("empty, 0") << "" << QVariant(0) << "remaining" << left << "0 min" << 7;
        QTest::newRow("used, text") << "used" << QVariant("often") << "used" << used << "5 min" << 6;
    }
    void formFollowsStoredValues()
    {
        QFETCH(QString, percentMode);
        QFETCH(QVariant, interval);
        QFETCH(QString, segment);
        QFETCH(QString, explanation);
        QFETCH(QString, intervalShown);
        QFETCH(int, intervalChoices);
        open();
        t->defaults->setPercentMode(percentMode);
        t->defaults->setValue("refreshIntervalMinutes", interval);
        probe.settle();
        QVERIFY(probe.find("segment_" + segment)->property("selected").toBool());
        QCOMPARE(probe.find("percentExplanation")->property("label").toString(), explanation);
        QCOMPARE(shownChoice("refreshInterval"), intervalShown);
        QCOMPARE(probe.find("refreshInterval")->property("count").toInt(), intervalChoices);
        // Shown, never rewritten.
        QCOMPARE(t->defaults->value("refreshIntervalMinutes"), interval);
    }

    // The pop-up menus list their choices in order; a stored interval that is
    // none of them is listed in its place and left as it is.
    void menusListTheirChoicesInOrder()
    {
        t->defaults->setRefreshIntervalMinutes(3);
        open();
        QCOMPARE(probe.openMenu("menuBarStyle"),
            QStringList({ "Icono y porcentajes", "Solo icono", "Icono y el % más bajo" }));
        QTest::keyClick(probe.window, Qt::Key_Escape);
        QTRY_VERIFY(probe.menuEntries().isEmpty());
        QCOMPARE(shownChoice("refreshInterval"), "3 min");
        QCOMPARE(probe.openMenu("refreshInterval"),
            QStringList({ "1 min", "2 min", "3 min", "5 min", "10 min", "15 min", "30 min" }));
        QCOMPARE(t->defaults->value("refreshIntervalMinutes"), QVariant(3));
    }

    // On and off against a real folder; a folder that cannot be written keeps
    // the switch off and shows the error line for the rest of the pane's life.
    void loginSwitchFollowsTheAutostartEntry()
    {
        open();
        probe.click("launchAtLogin");
        QVERIFY(checked("launchAtLogin"));
        QVERIFY(loginEntry().contains(
            "\nExec=" + platform::LoginItem::execValue(QCoreApplication::applicationFilePath()) + "\n"));
        probe.click("launchAtLogin");
        QVERIFY(!checked("launchAtLogin"));
        QVERIFY(!QFileInfo::exists(platform::LoginItem::entryPath(autostart())));
        QVERIFY(!probe.shown("loginError"));

        // An entry written elsewhere is read when the window opens again.
        QVERIFY(writeFile(platform::LoginItem::entryPath(autostart()), "[Desktop Entry]\nExec=limitra\n"));
        reopen();
        QVERIFY(checked("launchAtLogin"));
        QVERIFY(writeFile(platform::LoginItem::entryPath(autostart()), "[Desktop Entry]\nHidden=true\n"));
        reopen();
        QVERIFY(!checked("launchAtLogin"));

        // A regular file where the folder should be: root can write anywhere else.
        QVERIFY(QDir(autostart()).removeRecursively());
        QVERIFY(writeFile(autostart(), "not a folder"));
        reopen();
        probe.click("launchAtLogin");
        QVERIFY(!checked("launchAtLogin"));
        QTRY_VERIFY(probe.shown("loginError"));
        QCOMPARE(probe.find("loginError")->property("label").toString(),
            "No se pudo cambiar. Revisa que puedas escribir en ~/.config/autostart e inténtalo de nuevo.");
        QCOMPARE(readFile(autostart()), QByteArray("not a folder"));

        QVERIFY(QFile::remove(autostart()));
        probe.click("launchAtLogin");
        QVERIFY(checked("launchAtLogin"));
        QVERIFY(QFileInfo::exists(platform::LoginItem::entryPath(autostart())));
        QVERIFY(probe.shown("loginError"));
        reopen();
        QVERIFY(checked("launchAtLogin"));
        QVERIFY(!probe.shown("loginError"));
    }

    void aboutTabCheckShowsTheOutcome_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("result");
        QTest::addColumn<bool>("opensDownload");
        const QString newer = UpdateChecker::currentVersion() + ".1";
        const QString latest = QStringLiteral("Tienes la versión más reciente");
        QTest::newRow("newer") << 200 << feed(newer) << "Nueva versión " + newer + " disponible" << true;
        QTest::newRow("same") << 200 << feed(UpdateChecker::currentVersion()) << latest << false;
        QTest::newRow("unreachable") << kDrop << QByteArray() << latest << false;
        QTest::newRow("invalid") << 200 << QByteArray("{\"version\":") << latest << false;
    }
    void aboutTabCheckShowsTheOutcome()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QString, result);
        QFETCH(bool, opensDownload);
        t->peer.on("GET", kFeedPath, answer(status, body));
        open(1);
        QCOMPARE(textOf(probe.find("versionLine")), "Versión " + UpdateChecker::currentVersion());
        QVERIFY(!probe.shown("updateResult"));
        probe.click("checkButton");
        QTRY_VERIFY(probe.shown("updateResult"));
        QCOMPARE(textOf(probe.find("updateResult")), result);
        QCOMPARE(opened, opensDownload ? QList<QUrl> { QUrl(kDownload) } : QList<QUrl> {});
        QVERIFY(probe.find("checkButton")->isEnabled());
        QCOMPARE(t->peer.requests("GET", kFeedPath).size(), 1);
    }

    // A slow feed: the button is disabled with its spinner turning, and a second press does nothing.
    void checkInProgressDisablesTheButtonWhileTheWindowAnimates()
    {
        PeerAnswer slow = PeerAnswer::json(200, feed(UpdateChecker::currentVersion()));
        slow.delay = std::chrono::milliseconds(1000);
        t->peer.on("GET", kFeedPath, slow);
        open(1);
        probe.click("checkButton");
        QQuickItem* spinner = probe.find("checkSpinner");
        QVERIFY(spinner->isVisible());
        QVERIFY(!probe.find("checkButton")->isEnabled());
        QVERIFY(!probe.shown("updateResult"));
        probe.click("checkButton");
        QSet<int> steps;
        QElapsedTimer timer;
        timer.start();
        while (spinner->isVisible() && timer.elapsed() < 5000) {
            steps.insert(spinner->property("step").toInt());
            QTest::qWait(20);
        }
        QVERIFY2(timer.elapsed() >= 800, "the answer came before the feed sent it");
        QVERIFY2(steps.size() >= 5, "the spinner stood still while the feed answered");
        QVERIFY(probe.find("checkButton")->isEnabled());
        QCOMPARE(textOf(probe.find("updateResult")), "Tienes la versión más reciente");
        QCOMPARE(t->peer.requests("GET", kFeedPath).size(), 1);
    }

    void welcomeLinkAsksForTheGuide()
    {
        open(1);
        QSignalSpy asked(settings.get(), &SettingsWindow::welcomeRequested);
        probe.click("welcomeLink");
        QCOMPARE(asked.size(), 1);
    }

    // Showing an open window raises it; the height follows the selected tab.
    void openWindowIsRaisedNotDuplicated()
    {
        open(0);
        QQuickWindow* first = settings->window();
        const int generalHeight = first->height();
        probe.click("tab1");
        QTRY_VERIFY(first->height() != generalHeight);
        const auto windows = QGuiApplication::topLevelWindows().size();
        settings->show();
        QCOMPARE(settings->window(), first);
        QCOMPARE(QGuiApplication::topLevelWindows().size(), windows);
        QCOMPARE(first->height(), qRound(probe.find("tabs")->height() + 1 + probe.find("about")->implicitHeight()));
    }
};

QTEST_MAIN(TestSettings)
#include "tst_settings.moc"
