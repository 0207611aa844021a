// The welcome window's real QML on the offscreen platform, its detection
// against a real keyring on a private bus, and PNGs of every window.
#include "WindowProbe.h"

#include "platform/LibsecretStore.h"
#include "support/TestEnv.h"
#include "ui/UiModule.h"
#include "ui/settings/SettingsWindow.h"
#include "ui/settings/WelcomeWindow.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QElapsedTimer>
#include <QPalette>
#include <QProcess>
#include <QQmlEngine>

#include <csignal>

using namespace limitra;
using namespace limitra::test;

namespace {
const QString kClaudeItem = QStringLiteral("Claude Code-credentials");
const QString kOwnItem = QStringLiteral("Limitra.claude-oauth");
const QString kClaudeHint = QStringLiteral("Instala Claude Code y ejecuta `claude` para iniciar sesión.");
const QString kCodexHint = QStringLiteral("Instala Codex y ejecuta `codex login`.");

// The keyring through secret-tool, an independent client of the same store.
bool secretTool(const QStringList& args, const QByteArray& input = {})
{
    QProcess p;
    p.start(QStringLiteral("secret-tool"), args);
    p.write(input);
    p.closeWriteChannel();
    return p.waitForFinished(10000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
}

QPalette darkPalette()
{
    QPalette p;
    const auto set = [&](QPalette::ColorRole role, const char* colour) { p.setColor(role, QColor(colour)); };
    set(QPalette::Window, "#2b2b2d");
    set(QPalette::WindowText, "#ececec");
    set(QPalette::Base, "#1e1e20");
    set(QPalette::AlternateBase, "#303033");
    set(QPalette::Text, "#ececec");
    set(QPalette::Button, "#3a3a3d");
    set(QPalette::ButtonText, "#ececec");
    set(QPalette::Light, "#505054");
    set(QPalette::Midlight, "#444448");
    set(QPalette::Mid, "#2a2a2c");
    set(QPalette::Dark, "#1c1c1e");
    set(QPalette::Shadow, "#000000");
    set(QPalette::Highlight, "#0a84ff");
    set(QPalette::HighlightedText, "#ffffff");
    set(QPalette::PlaceholderText, "#8e8e93");
    return p;
}
} // namespace

class TestWelcome : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestEnv> t;
    QQmlEngine engine;
    std::unique_ptr<WelcomeWindow> welcome;
    WindowProbe probe;

    void open(WelcomeWindow& w)
    {
        QElapsedTimer timer;
        timer.start();
        w.show();
        probe.window = w.window();
        QVERIFY(QTest::qWaitForWindowExposed(probe.window));
        QVERIFY2(timer.elapsed() < 1500, qPrintable(QString::number(timer.elapsed())));
    }
    void detected() { QTRY_VERIFY_WITH_TIMEOUT(probe.shown("claudeRow"), 10000); }

    // Status icon and hint of one service row.
    QString rowState(const QString& row) const
    {
        QQuickItem* item = probe.find(row);
        QString state;
        for (QQuickItem* icon : probe.findAll("statusIcon")) {
            if (!item->isAncestorOf(icon))
                continue;
            const QColor colour = icon->property("color").value<QColor>();
            const bool green = colour.hsvSaturationF() > 0.4 && colour.hsvHue() >= 90 && colour.hsvHue() <= 160;
            state = icon->property("name").toString() + (green ? " green" : " grey");
        }
        for (QQuickItem* hint : probe.findAll("hint"))
            if (item->isAncestorOf(hint) && hint->isVisible())
                state += " | " + textOf(hint);
        return state;
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (!qEnvironmentVariableIsSet("LIMITRA_PRIVATE_KEYRING"))
            QSKIP("needs the private keyring of with-keyring.sh");
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
        UiModule::prepare(engine);
        t = std::make_unique<TestEnv>(1'700'000'000);
        t->env.secrets = std::make_shared<platform::LibsecretStore>();
        // One window for every case: each opening must look again.
        welcome = std::make_unique<WelcomeWindow>(engine, t->env);
    }
    void cleanupTestCase() { welcome.reset(); }

    void detectionShowsEachTool_data()
    {
        QTest::addColumn<QByteArray>("codexFile"); // null: absent
        QTest::addColumn<QByteArray>("claudeFile");
        QTest::addColumn<QString>("item"); // the keyring item present, if any
        QTest::addColumn<bool>("claude");
        QTest::addColumn<bool>("codex");
        QTest::newRow("only Codex's file") << QByteArray("{}") << QByteArray() << "" << false << true;
        QTest::newRow("neither") << QByteArray() << QByteArray() << "" << false << false;
        QTest::newRow("only Claude Code's item") << QByteArray() << QByteArray() << kClaudeItem << true << false;
        QTest::newRow("only the program's own item") << QByteArray() << QByteArray() << kOwnItem << false << false;
        QTest::newRow("empty credentials file") << QByteArray() << QByteArray("") << "" << true << false;
        QTest::newRow("both files") << QByteArray("not json") << QByteArray("{}") << "" << true << true;
    }
    void detectionShowsEachTool()
    {
        QFETCH(QByteArray, codexFile);
        QFETCH(QByteArray, claudeFile);
        QFETCH(QString, item);
        QFETCH(bool, claude);
        QFETCH(bool, codex);
        secretTool({ "clear", "service", kClaudeItem });
        secretTool({ "clear", "service", kOwnItem });
        QFile::remove(t->path(".codex/auth.json"));
        QFile::remove(t->path(".claude/.credentials.json"));
        if (!codexFile.isNull())
            QVERIFY(t->write(".codex/auth.json", codexFile));
        if (!claudeFile.isNull())
            QVERIFY(t->write(".claude/.credentials.json", claudeFile));
        if (!item.isEmpty())
            QVERIFY(secretTool({ "store", "--label=x", "service", item, "account", "me" }, "{\"claudeAiOauth\":{}}"));

        open(*welcome);
        detected();
        QCOMPARE(rowState("claudeRow"), claude ? "check-circle green" : "xmark-circle grey | " + kClaudeHint);
        QCOMPARE(rowState("codexRow"), codex ? "check-circle green" : "xmark-circle grey | " + kCodexHint);
        QCOMPARE(probe.shown("neitherNote"), !claude && !codex);
        QStringList expected { "¡Limitra ya está corriendo!",
            "Busca el **velocímetro** en la bandeja del sistema de tu panel y haz clic para ver tus límites.",
            "¿No lo ves? En GNOME hace falta la extensión AppIndicator para ver íconos de bandeja; en otros "
            "escritorios, revisa que el panel tenga un área de notificación, o elige \"Solo icono\" en Ajustes.",
            "Servicios detectados en este equipo", "Claude Code" };
        if (!claude)
            expected << kClaudeHint;
        expected << "Codex";
        if (!codex)
            expected << kCodexHint;
        if (!claude && !codex)
            expected << "La app necesita al menos uno de los dos para tener algo que mostrar.";
        expected << "Entendido";
        QCOMPARE(probe.texts(), expected);
        welcome->window()->close();
    }

    void returnOrTheButtonCloses_data()
    {
        QTest::addColumn<bool>("useReturn");
        QTest::newRow("Return") << true;
        QTest::newRow("Entendido") << false;
    }
    void returnOrTheButtonCloses()
    {
        QFETCH(bool, useReturn);
        open(*welcome);
        QQuickWindow* first = welcome->window();
        welcome->show(); // open already: raised, not doubled
        QCOMPARE(welcome->window(), first);
        QVERIFY(first->isVisible());
        if (useReturn)
            QTest::keyClick(first, Qt::Key_Return);
        else
            probe.click("doneButton");
        QTRY_VERIFY(!first->isVisible());
    }

    // A keyring that never answers: the window opens at once and the rows come when the store gives up.
    void hungKeyringNeverFreezesTheWindow()
    {
        QFile::remove(t->path(".codex/auth.json"));
        QFile::remove(t->path(".claude/.credentials.json"));
        const uint pid = QDBusConnection::sessionBus().interface()->servicePid("org.freedesktop.secrets");
        QVERIFY(pid > 0);
        WelcomeWindow hung(engine, t->env); // the store gives up after 3 s
        QVERIFY(::kill(pid_t(pid), SIGSTOP) == 0);
        const auto resume = qScopeGuard([pid] { ::kill(pid_t(pid), SIGCONT); });
        QElapsedTimer timer;
        timer.start();
        open(hung);
        QVERIFY(probe.shown("detecting"));
        QVERIFY(!probe.shown("claudeRow"));
        QQuickItem* spinner = probe.find("detecting");
        const int step = spinner->property("step").toInt();
        QTRY_VERIFY(spinner->property("step").toInt() != step); // the window keeps animating
        QTRY_VERIFY_WITH_TIMEOUT(probe.shown("claudeRow"), 10000);
        QVERIFY2(timer.elapsed() >= 2900, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(rowState("claudeRow"), "xmark-circle grey | " + kClaudeHint);
        QVERIFY(probe.shown("neitherNote"));
        hung.window()->close();
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
        if (folder.isEmpty())
            QSKIP("no artifacts folder");
        QVERIFY(QDir().mkpath(folder));
        QGuiApplication::setPalette(dark ? darkPalette() : QPalette());
        const auto restore = qScopeGuard([] { QGuiApplication::setPalette(QPalette()); });
        const QString theme = dark ? "dark" : "light";
        const auto save = [&](const QString& name) {
            probe.settle();
            QTest::qWait(50);
            const QImage image = probe.window->grabWindow();
            QVERIFY(!image.isNull());
            QVERIFY(image.save(QDir(folder).filePath(name + "-" + theme + ".png")));
        };

        QTemporaryDir autostart;
        SettingsWindow settings(engine, t->env);
        settings.setAutostartDirectory(autostart.path());
        settings.show();
        probe.window = settings.window();
        QVERIFY(QTest::qWaitForWindowExposed(probe.window));
        save("settings-general");
        probe.click("tab1");
        save("settings-about");

        for (const bool found : { false, true }) {
            QFile::remove(t->path(".codex/auth.json"));
            QFile::remove(t->path(".claude/.credentials.json"));
            if (found) {
                QVERIFY(t->write(".codex/auth.json", "{}"));
                QVERIFY(t->write(".claude/.credentials.json", "{}"));
            }
            WelcomeWindow w(engine, t->env);
            open(w);
            detected();
            save(found ? "welcome-both" : "welcome-neither");
        }
    }
};

QTEST_MAIN(TestWelcome)
#include "tst_welcome.moc"
