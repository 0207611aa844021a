// The settings and welcome windows' real QML on the offscreen platform, with
// settings in a temporary file, a temporary autostart folder, a local version
// feed and the real keyring of the private bus; and PNGs of every window.
#include "WindowProbe.h"

#include "platform/Http.h"
#include "platform/LibsecretStore.h"
#include "platform/LoginItem.h"
#include "support/TestEnv.h"
#include "ui/UiModule.h"
#include "ui/settings/AboutActions.h"
#include "ui/settings/SettingsWindow.h"
#include "ui/settings/WelcomeWindow.h"
#include "update/UpdateChecker.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QPalette>
#include <QProcess>
#include <QQmlEngine>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <csignal>

using namespace limitra;
using namespace limitra::test;

namespace {
const QString kDownload = QStringLiteral("https://limitra.app/descargar?os=linux");
const QString kClaudeItem = QStringLiteral("Claude Code-credentials");
const QString kClaudeHint = QStringLiteral("Instala Claude Code y ejecuta `claude` para iniciar sesión.");
const QString kCodexHint = QStringLiteral("Instala Codex y ejecuta `codex login`.");
const QString kLatest = QStringLiteral("Tienes la versión más reciente");

QByteArray feed(const QString& version)
{
    return QStringLiteral("{\"version\":\"%1\",\"download_url\":\"%2\"}").arg(version, kDownload).toUtf8();
}

// The keyring through secret-tool, an independent client of the same store.
void secretTool(const QStringList& args, const QByteArray& input = {})
{
    QProcess p;
    p.start(QStringLiteral("secret-tool"), args);
    p.write(input);
    p.closeWriteChannel();
    p.waitForFinished(10000);
}
} // namespace

class TestWindows : public QObject
{
    Q_OBJECT

    QQmlEngine engine;
    std::unique_ptr<TestEnv> t;
    std::unique_ptr<QTemporaryDir> config;
    std::unique_ptr<SettingsWindow> settings;
    std::unique_ptr<WelcomeWindow> welcome;
    QList<QUrl> opened;
    WindowProbe probe;

    QString autostart() const { return config->filePath(QStringLiteral("autostart")); }
    QString entry() const { return platform::LoginItem::entryPath(autostart()); }

    // Shows a window (a fresh one when closed), which must open at once, on the given tab.
    template <typename W> void open(W& w, int tab = -1)
    {
        QElapsedTimer timer;
        timer.start();
        w.show();
        probe.window = w.window();
        QVERIFY(QTest::qWaitForWindowExposed(probe.window));
        QVERIFY2(timer.elapsed() < 1500, qPrintable(QString::number(timer.elapsed())));
        if (tab >= 0)
            probe.click(QStringLiteral("tab%1").arg(tab));
    }
    void reopen()
    {
        probe.window->close();
        open(*settings);
    }
    bool checked(const QString& name) const { return probe.find(name)->property("checked").toBool(); }
    QString shownChoice(const QString& combo) const
    {
        return probe.find(combo)->property("displayText").toString();
    }
    void setFiles(bool codex, const QByteArray& claude = {})
    {
        QFile::remove(t->path(".codex/auth.json"));
        QFile::remove(t->path(".claude/.credentials.json"));
        QVERIFY(!codex || t->write(".codex/auth.json", "{}"));
        QVERIFY(claude.isNull() || t->write(".claude/.credentials.json", claude));
    }
    // A service row as drawn: its status icon and colour, and its hint when shown.
    QString rowState(const QString& row) const
    {
        QQuickItem* icon = probe.find("statusIcon", probe.find(row));
        const QColor c = icon->property("color").value<QColor>();
        const bool green = c.hsvSaturationF() > 0.4 && c.hsvHue() >= 90 && c.hsvHue() <= 160;
        QQuickItem* hint = probe.find("hint", probe.find(row));
        return icon->property("name").toString() + (green ? " green" : " grey")
            + (hint->isVisible() ? " | " + textOf(hint) : QString());
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (!qEnvironmentVariableIsSet("LIMITRA_PRIVATE_KEYRING"))
            QSKIP("needs the private keyring of with-keyring.sh");
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
        platform::Http::globalInit();
        UiModule::prepare(engine);
    }
    void init()
    {
        t = std::make_unique<TestEnv>(1'700'000'000, std::chrono::seconds(3));
        t->env.secrets = std::make_shared<platform::LibsecretStore>();
        config = std::make_unique<QTemporaryDir>();
        settings = std::make_unique<SettingsWindow>(engine, t->env);
        settings->setAutostartDirectory(autostart());
        opened.clear();
        settings->setUrlOpener([this](const QUrl& url) { opened.append(url); });
        welcome = std::make_unique<WelcomeWindow>(engine, t->env);
    }
    void cleanup()
    {
        settings.reset();
        welcome.reset();
        QGuiApplication::setPalette(QPalette());
    }

    // With nothing stored the form shows the defaults, in this order, and writes nothing.
    void generalTabShowsDefaultsInOrder()
    {
        open(*settings);
        QCOMPARE(probe.window->title(), "Ajustes de Limitra");
        QCOMPARE(probe.texts(),
            QStringList({ "General", "Acerca de", "Abrir al iniciar sesión", "Servicios", "Claude Code",
                "Codex", "Barra de menús", "Mostrar", "Icono y porcentajes", "Porcentaje", "Mostrar como",
                "Restante", "Usado", "Se muestra el porcentaje disponible (p. ej. 84 % restante).",
                "Actualización", "Actualizar cada", "5 min" }));
        QVERIFY(!checked("launchAtLogin") && checked("showClaude") && checked("showCodex"));
        QVERIFY(probe.find("segment_remaining")->property("selected").toBool());
        QCOMPARE(probe.window->width(), 440);
        QVERIFY(QFile(t->defaults->filePath()).size() <= 0);
    }

    // Each control writes its key with the key's type, to the file at once.
    void controlsWriteTheirKey_data()
    {
        QTest::addColumn<QString>("control"); // a menu and its entry after a slash
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<QString>("key");
        QTest::newRow("Claude switch") << "showClaude" << QVariant(false) << "showClaude";
        QTest::newRow("Codex switch") << "showCodex" << QVariant(false) << "showCodex";
        QTest::newRow("icon only") << "menuBarStyle/Solo icono" << QVariant("iconOnly") << "menuBarStyle";
        QTest::newRow("lowest") << "menuBarStyle/Icono y el % más bajo" << QVariant("iconAndWorst")
                                << "menuBarStyle";
        QTest::newRow("used") << "segment_used" << QVariant("used") << "percentMode";
        QTest::newRow("30 min") << "refreshInterval/30 min" << QVariant(30) << "refreshIntervalMinutes";
        QTest::newRow("1 min") << "refreshInterval/1 min" << QVariant(1) << "refreshIntervalMinutes";
    }
    void controlsWriteTheirKey()
    {
        QFETCH(QString, control);
        QFETCH(QVariant, stored);
        QFETCH(QString, key);
        const QString choice = control.section(u'/', 1);
        control = control.section(u'/', 0, 0);
        open(*settings);
        QSignalSpy changed(t->defaults.get(), &platform::Defaults::changed);
        choice.isEmpty() ? probe.click(control) : probe.choose(control, choice);
        QCOMPARE(changed.size(), 1);
        QCOMPARE(changed.first().first().toString(), key);
        QCOMPARE(t->defaults->value(key).typeId(), stored.typeId());
        QCOMPARE(t->defaults->value(key), stored);
        QCOMPARE(platform::Defaults(t->defaults->filePath()).value(key).toString(), stored.toString());
        QVERIFY(choice.isEmpty() || shownChoice(control) == choice);
    }

    // The form follows values written by another reader, and never rewrites them.
    void formFollowsStoredValues_data()
    {
        QTest::addColumn<QString>("percentMode");
        QTest::addColumn<QVariant>("interval");
        QTest::addColumn<QString>("segment");
        QTest::addColumn<QString>("explanation");
        QTest::addColumn<QString>("intervalShown");
        QTest::addColumn<int>("choices");
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
        QFETCH(int, choices);
        open(*settings);
        t->defaults->setPercentMode(percentMode);
        t->defaults->setValue("refreshIntervalMinutes", interval);
        probe.settle();
        QVERIFY(probe.find("segment_" + segment)->property("selected").toBool());
        QCOMPARE(probe.find("percentExplanation")->property("label").toString(), explanation);
        QCOMPARE(shownChoice("refreshInterval"), intervalShown);
        QCOMPARE(probe.find("refreshInterval")->property("count").toInt(), choices);
        QCOMPARE(t->defaults->value("refreshIntervalMinutes"), interval);
    }

    // The menus list their choices in order; a stored interval that is none of them is listed in its place.
    void menusListTheirChoicesInOrder()
    {
        t->defaults->setRefreshIntervalMinutes(3);
        open(*settings);
        QCOMPARE(probe.openMenu("menuBarStyle"),
            QStringList({ "Icono y porcentajes", "Solo icono", "Icono y el % más bajo" }));
        QTest::keyClick(probe.window, Qt::Key_Escape);
        QTRY_VERIFY(probe.texts(true).isEmpty());
        QCOMPARE(shownChoice("refreshInterval"), "3 min");
        QCOMPARE(probe.openMenu("refreshInterval"),
            QStringList({ "1 min", "2 min", "3 min", "5 min", "10 min", "15 min", "30 min" }));
        QCOMPARE(t->defaults->value("refreshIntervalMinutes"), QVariant(3));
        QTest::keyClick(probe.window, Qt::Key_Escape);
        QTRY_VERIFY(probe.texts(true).isEmpty());
        probe.choose("refreshInterval", "10 min"); // the odd entry goes, the choice stays shown
        QCOMPARE(shownChoice("refreshInterval"), "10 min");
        QCOMPARE(probe.find("refreshInterval")->property("count").toInt(), 6);
    }

    // On and off in a real folder; a folder that cannot be written keeps the
    // switch off and shows the error line for the rest of the window's life.
    void loginSwitchFollowsTheAutostartEntry()
    {
        open(*settings);
        probe.click("launchAtLogin");
        QVERIFY(checked("launchAtLogin"));
        const QString exec = platform::LoginItem::execValue(QCoreApplication::applicationFilePath());
        QVERIFY(readFile(entry()).contains("\nExec=" + exec.toUtf8() + "\n"));
        probe.click("launchAtLogin");
        QVERIFY(!checked("launchAtLogin"));
        QVERIFY(!QFileInfo::exists(entry()));
        QVERIFY(!probe.shown("loginError"));

        // The entry is read again at each opening.
        QVERIFY(writeFile(entry(), "[Desktop Entry]\nExec=limitra\n"));
        reopen();
        QVERIFY(checked("launchAtLogin"));
        QVERIFY(writeFile(entry(), "[Desktop Entry]\nHidden=true\n"));
        reopen();
        QVERIFY(!checked("launchAtLogin"));

        // A regular file where the folder should be (the tests may run as root).
        QVERIFY(QDir(autostart()).removeRecursively() && writeFile(autostart(), "not a folder"));
        reopen();
        probe.click("launchAtLogin");
        QVERIFY(!checked("launchAtLogin"));
        QVERIFY(probe.shown("loginError"));
        QCOMPARE(probe.find("loginError")->property("label").toString(),
            "No se pudo cambiar. Revisa que puedas escribir en ~/.config/autostart e inténtalo de nuevo.");
        QCOMPARE(readFile(autostart()), QByteArray("not a folder"));

        QVERIFY(QFile::remove(autostart()));
        probe.click("launchAtLogin");
        QVERIFY(checked("launchAtLogin") && QFileInfo::exists(entry()));
        QVERIFY(probe.shown("loginError"));
        reopen();
        QVERIFY(checked("launchAtLogin") && !probe.shown("loginError"));
    }

    void aboutCheckShowsTheOutcome_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("result");
        QTest::addColumn<bool>("opensDownload");
        const QString newer = UpdateChecker::currentVersion() + ".1";
        QTest::newRow("newer") << 200 << feed(newer) << "Nueva versión " + newer + " disponible" << true;
        QTest::newRow("same") << 200 << feed(UpdateChecker::currentVersion()) << kLatest << false;
        QTest::newRow("unreachable") << kDrop << QByteArray() << kLatest << false;
        QTest::newRow("invalid") << 200 << QByteArray("{\"version\":") << kLatest << false;
    }
    void aboutCheckShowsTheOutcome()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QString, result);
        QFETCH(bool, opensDownload);
        t->peer.on("GET", "/api/version.json", answer(status, body));
        open(*settings, 1);
        QCOMPARE(textOf(probe.find("versionLine")), "Versión " + UpdateChecker::currentVersion());
        QVERIFY(!probe.shown("updateResult"));
        probe.click("checkButton");
        QTRY_VERIFY(probe.shown("updateResult"));
        QCOMPARE(textOf(probe.find("updateResult")), result);
        QCOMPARE(opened, opensDownload ? QList<QUrl> { QUrl(kDownload) } : QList<QUrl> {});
        QVERIFY(probe.find("checkButton")->isEnabled());
        QCOMPARE(t->peer.requests().size(), 1);
    }

    void versionLineNamesTheBuild()
    {
        QCOMPARE(AboutActions::versionLine("1.3.0"), "Versión 1.3.0");
        QCOMPARE(AboutActions::versionLine(""), "Versión dev"); // built without a version
    }

    // A slow feed: the button is disabled, its spinner turns, and a second press does nothing.
    void checkInProgressKeepsTheWindowAnimating()
    {
        PeerAnswer slow = PeerAnswer::json(200, feed(UpdateChecker::currentVersion()));
        slow.delay = std::chrono::milliseconds(1000);
        t->peer.on("GET", "/api/version.json", slow);
        open(*settings, 1);
        probe.click("checkButton");
        QQuickItem* spinner = probe.find("checkSpinner");
        QVERIFY(
            spinner->isVisible() && !probe.find("checkButton")->isEnabled() && !probe.shown("updateResult"));
        const QImage shot = probe.window->grabWindow();
        const QRect area = spinner->mapRectToScene(spinner->boundingRect()).toRect();
        int ink = 0;
        for (int y = area.top(); y <= area.bottom(); ++y)
            for (int x = area.left(); x <= area.right(); ++x)
                ink += qGray(shot.pixel(x, y)) < 128;
        QVERIFY2(ink > 10, "the spinner is not drawn");
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
        QCOMPARE(textOf(probe.find("updateResult")), kLatest);
        QCOMPARE(t->peer.requests().size(), 1);
    }

    // Showing an open window raises it; the height follows the selected tab; the link asks for the guide.
    void openWindowIsRaisedNotDoubled()
    {
        open(*settings, 0);
        QQuickWindow* first = settings->window();
        const int generalHeight = first->height();
        probe.click("tab1");
        QTRY_COMPARE(first->height(),
            qRound(probe.find("tabs")->height() + 1 + probe.find("about")->implicitHeight()));
        QVERIFY(first->height() != generalHeight);
        const auto windows = QGuiApplication::topLevelWindows().size();
        settings->show();
        QCOMPARE(settings->window(), first);
        QCOMPARE(QGuiApplication::topLevelWindows().size(), windows);
        QSignalSpy asked(settings.get(), &SettingsWindow::welcomeRequested);
        probe.click("welcomeLink");
        QCOMPARE(asked.size(), 1);
    }

    // One welcome window for every case: each opening must look again.
    void welcomeDetectsEachTool_data()
    {
        QTest::addColumn<bool>("codexFile");
        QTest::addColumn<QByteArray>("claudeFile"); // null: absent
        QTest::addColumn<QString>("item"); // the keyring item present, if any
        QTest::addColumn<bool>("claude");
        QTest::newRow("only Codex's file") << true << QByteArray() << "" << false;
        QTest::newRow("neither") << false << QByteArray() << "" << false;
        QTest::newRow("only Claude Code's item") << false << QByteArray() << kClaudeItem << true;
        QTest::newRow("only the program's own item")
            << false << QByteArray() << "Limitra.claude-oauth" << false;
        QTest::newRow("empty credentials file") << false << QByteArray("") << "" << true;
        QTest::newRow("both files") << true << QByteArray("{}") << "" << true;
    }
    void welcomeDetectsEachTool()
    {
        QFETCH(bool, codexFile);
        QFETCH(QByteArray, claudeFile);
        QFETCH(QString, item);
        QFETCH(bool, claude);
        secretTool({ "clear", "service", kClaudeItem });
        secretTool({ "clear", "service", "Limitra.claude-oauth" });
        setFiles(codexFile, claudeFile);
        if (!item.isEmpty())
            secretTool({ "store", "--label=x", "service", item, "account", "me" }, "{}");
        for (int opening = 0; opening < 2; ++opening) {
            open(*welcome);
            QTRY_VERIFY_WITH_TIMEOUT(probe.shown("claudeRow"), 10000);
            QCOMPARE(probe.window->title(), "Bienvenida");
            QCOMPARE(
                rowState("claudeRow"), claude ? "check-circle green" : "xmark-circle grey | " + kClaudeHint);
            QCOMPARE(
                rowState("codexRow"), codexFile ? "check-circle green" : "xmark-circle grey | " + kCodexHint);
            QStringList texts { "¡Limitra ya está corriendo!",
                "Busca el **velocímetro** en la bandeja del sistema de tu panel y haz clic para ver "
                "tus límites.",
                "¿No lo ves? En GNOME hace falta la extensión AppIndicator para ver íconos de bandeja; "
                "en otros escritorios, revisa que el panel tenga un área de notificación, o elige "
                "\"Solo icono\" en Ajustes.",
                "Servicios detectados en este equipo", "Claude Code" };
            texts << (claude ? QStringList() : QStringList { kClaudeHint }) << "Codex"
                  << (codexFile ? QStringList() : QStringList { kCodexHint });
            if (!claude && !codexFile)
                texts << "La app necesita al menos uno de los dos para tener algo que mostrar.";
            QCOMPARE(probe.texts(), texts << "Entendido");
            // Return closes the first opening, the button the second.
            opening == 0 ? QTest::keyClick(probe.window, Qt::Key_Return) : probe.click("doneButton");
            QTRY_VERIFY(!probe.window->isVisible());
        }
    }

    // A keyring that never answers: the window opens at once and the rows come when the store gives up.
    void hungKeyringNeverFreezesTheWelcome()
    {
        setFiles(false);
        const uint pid = QDBusConnection::sessionBus().interface()->servicePid("org.freedesktop.secrets");
        QVERIFY(pid > 0 && ::kill(pid_t(pid), SIGSTOP) == 0);
        const auto resume = qScopeGuard([pid] { ::kill(pid_t(pid), SIGCONT); });
        QElapsedTimer timer;
        timer.start();
        open(*welcome);
        welcome->show(); // open already: raised, not doubled, and looking again
        QCOMPARE(welcome->window(), probe.window);
        QQuickItem* spinner = probe.find("detecting");
        QVERIFY(spinner->isVisible() && !probe.shown("claudeRow"));
        const int step = spinner->property("step").toInt();
        QTRY_VERIFY(spinner->property("step").toInt() != step);
        QTRY_VERIFY_WITH_TIMEOUT(probe.shown("claudeRow"), 10000);
        QVERIFY2(timer.elapsed() >= 2900, qPrintable(QString::number(timer.elapsed()))); // the store's 3 s
        QCOMPARE(rowState("claudeRow"), "xmark-circle grey | " + kClaudeHint);
        QVERIFY(probe.shown("neitherNote"));
    }

    // PNGs of every window, light and dark, for a person to look at.
    void renderWindows_data()
    {
        QTest::addColumn<bool>("dark");
        QTest::newRow("light") << false;
        QTest::newRow("dark") << true;
    }
    void renderWindows()
    {
        QFETCH(bool, dark);
        const QString folder = qEnvironmentVariable("LIMITRA_WINDOW_ARTIFACTS");
        if (folder.isEmpty() || !QDir().mkpath(folder))
            QSKIP("no artifacts folder");
        if (dark) {
            QPalette p(QColor("#3a3a3d"), QColor("#2b2b2d")); // button, window; the rest derived
            for (const auto role : { QPalette::WindowText, QPalette::Text, QPalette::ButtonText })
                p.setColor(role, QColor("#ececec"));
            p.setColor(QPalette::Base, QColor("#1e1e20"));
            QGuiApplication::setPalette(p);
        }
        const auto save = [&](const QString& name) {
            probe.settle();
            QVERIFY(probe.window->grabWindow().save(
                QDir(folder).filePath(name + (dark ? "-dark.png" : "-light.png"))));
        };
        open(*settings);
        save("settings-general");
        probe.click("tab1");
        PeerAnswer slow = PeerAnswer::json(200, feed(UpdateChecker::currentVersion()));
        slow.delay = std::chrono::milliseconds(600);
        t->peer.on("GET", "/api/version.json", slow);
        probe.click("checkButton");
        save("settings-about-checking");
        QTRY_VERIFY(probe.shown("updateResult"));
        save("settings-about");
        for (const bool found : { false, true }) {
            setFiles(found, found ? QByteArray("{}") : QByteArray());
            open(*welcome);
            QTRY_VERIFY_WITH_TIMEOUT(probe.shown("claudeRow"), 10000);
            save(found ? "welcome-both" : "welcome-neither");
            probe.window->close();
        }
    }
};

QTEST_MAIN(TestWindows)
#include "tst_windows.moc"
