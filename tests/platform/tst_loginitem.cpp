#include "model/AppSettings.h"
#include "platform/LoginItem.h"

#include <gio/gdesktopappinfo.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace limitra;
namespace LoginItem = limitra::platform::LoginItem;

namespace {
// Starts the entry the way a desktop session does (GLib's launcher, used by
// GNOME and others for autostart) and returns the path the started program
// was run as, or empty when GLib rejects the entry or nothing ran.
QString programStartedBy(const QString& entryPath, const QString& marker)
{
    GDesktopAppInfo* info = g_desktop_app_info_new_from_filename(QFile::encodeName(entryPath).constData());
    if (!info)
        return {};
    qputenv("LIMITRA_TEST_MARKER", QFile::encodeName(marker));
    const bool launched = g_app_info_launch(G_APP_INFO(info), nullptr, nullptr, nullptr);
    g_object_unref(info);
    if (!launched)
        return {};
    QFile file(marker);
    if (!QTest::qWaitFor([&] { return file.exists() && file.size() > 0; }, 10000))
        return {};
    file.open(QIODevice::ReadOnly);
    return QFile::decodeName(file.readAll());
}

// A program that records the path it was started as.
bool makeProgram(const QString& path)
{
    if (!QDir().mkpath(QFileInfo(path).absolutePath()))
        return false;
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    file.write(
        "#!/bin/sh\nprintf '%s' \"$0\" > \"$LIMITRA_TEST_MARKER.tmp\" && mv \"$LIMITRA_TEST_MARKER.tmp\" "
        "\"$LIMITRA_TEST_MARKER\"\n");
    file.close();
    return file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
}

bool writeFile(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

// Restores an environment variable when the test ends.
class EnvGuard
{
public:
    explicit EnvGuard(const char* name)
        : m_name(name)
        , m_had(qEnvironmentVariableIsSet(name))
        , m_old(qgetenv(name))
    {
    }
    ~EnvGuard() { m_had ? qputenv(m_name, m_old) : qunsetenv(m_name); }

private:
    const char* m_name;
    bool m_had;
    QByteArray m_old;
};
} // namespace

class TestLoginItem : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Install paths with characters that the entry must quote or escape.
    void entryStartsTheGivenProgram_data()
    {
        QTest::addColumn<QString>("relativePath");
        QTest::newRow("plain") << "bin/limitra";
        QTest::newRow("space") << "My Apps/limitra";
        QTest::newRow("dollar") << "a$HOME/limitra";
        QTest::newRow("single quote") << "it's/limitra";
        QTest::newRow("double quote") << "say \"hi\"/limitra";
        QTest::newRow("backslash") << "back\\slash/limitra";
        QTest::newRow("backquote") << "a`b`/limitra";
        QTest::newRow("tab") << "tab\there/limitra";
        QTest::newRow("shell characters") << "a;b&c|d<e>f*g?h#i(j)~k/limitra";
        QTest::newRow("equals and brackets") << "x=y[z]/limitra";
        QTest::newRow("non-ASCII") << QString::fromUtf8("Aplicación ñ/limitra");
    }

    void entryStartsTheGivenProgram()
    {
        QFETCH(QString, relativePath);
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const QString program = dir.filePath(relativePath);
        QVERIFY(makeProgram(program));
        const QString autostart = dir.filePath("autostart");

        QVERIFY(LoginItem::enable(autostart, program));

        QVERIFY(LoginItem::isEnabled(autostart));
        QCOMPARE(programStartedBy(LoginItem::entryPath(autostart), dir.filePath("started")), program);
    }

    // A literal % would otherwise be read as a field code such as %f. (GLib
    // looks the program up before expanding %%, so it cannot start such a path.)
    void percentSignsAreDoubled()
    {
        QCOMPARE(LoginItem::execValue("/opt/100%f/limitra"), QStringLiteral("/opt/100%%f/limitra"));
        QCOMPARE(LoginItem::execValue("/opt/a b%/limitra"), QStringLiteral("\"/opt/a b%%/limitra\""));
    }

    // content: a null array means no entry file at all.
    void enabledStateFollowsTheEntry_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<bool>("enabled");
        const QByteArray head = "[Desktop Entry]\nType=Application\nName=Limitra\nExec=/usr/bin/limitra\n";
        QTest::newRow("no entry") << QByteArray() << false;
        QTest::newRow("plain entry") << head << true;
        QTest::newRow("Hidden=true") << head + "Hidden=true\n" << false;
        QTest::newRow("spaces around =") << head + "Hidden = true\n" << false;
        QTest::newRow("CRLF line") << head + "Hidden=true\r\n" << false;
        QTest::newRow("Hidden=false") << head + "Hidden=false\n" << true;
        QTest::newRow("other key") << head + "X-Hidden=true\n" << true;
        QTest::newRow("comment") << head + "#Hidden=true\n" << true;
        QTest::newRow("other group") << head + "[Desktop Action quit]\nHidden=true\n" << true;
        QTest::newRow("empty file") << QByteArray("") << true;
    }

    void enabledStateFollowsTheEntry()
    {
        QFETCH(QByteArray, content);
        QFETCH(bool, enabled);
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        if (!content.isNull())
            QVERIFY(writeFile(LoginItem::entryPath(dir.path()), content));
        QCOMPARE(LoginItem::isEnabled(dir.path()), enabled);
    }

    void enableReplacesAHiddenEntryAndDisableRemovesIt()
    {
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const QString autostart = dir.filePath("deep/config/autostart");
        const QString entry = LoginItem::entryPath(autostart);
        QCOMPARE(entry, autostart + "/limitra.desktop");
        QVERIFY(writeFile(entry, "[Desktop Entry]\nExec=/old/limitra\nHidden=true\n"));
        QVERIFY(!LoginItem::isEnabled(autostart));

        QVERIFY(LoginItem::enable(autostart, "/usr/bin/limitra"));
        QVERIFY(LoginItem::isEnabled(autostart));
        QFile file(entry);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray written = file.readAll();
        QVERIFY(written.startsWith("[Desktop Entry]\n"));
        QVERIFY(written.contains("\nType=Application\n"));
        QVERIFY(written.contains("\nExec=/usr/bin/limitra\n"));
        QVERIFY(!written.contains("Hidden"));

        QVERIFY(LoginItem::disable(autostart));
        QVERIFY(!QFile::exists(entry));
        QVERIFY(!LoginItem::isEnabled(autostart));
        QVERIFY(LoginItem::disable(autostart));
    }

    void failuresAreReported()
    {
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        QVERIFY(!LoginItem::enable(dir.path(), QString()));
        QVERIFY(!QFile::exists(LoginItem::entryPath(dir.path())));

        const QString notAFolder = dir.filePath("file");
        QVERIFY(writeFile(notAFolder, "x"));
        QVERIFY(!LoginItem::enable(notAFolder, "/usr/bin/limitra"));

        QVERIFY(QDir().mkpath(LoginItem::entryPath(dir.path())));
        QVERIFY(!LoginItem::disable(dir.path()));
        QVERIFY(!LoginItem::isEnabled(dir.path()));
    }

    // configHome: the XDG_CONFIG_HOME value, relative to the temporary folder
    // when it starts with "@"; autostart: where the entry must appear.
    void launchAtLoginUsesTheUsersAutostartFolder_data()
    {
        QTest::addColumn<QString>("configHome");
        QTest::addColumn<QString>("autostart");
        QTest::newRow("XDG_CONFIG_HOME set") << "@xdg"
                                             << "xdg/autostart";
        QTest::newRow("XDG_CONFIG_HOME empty") << ""
                                               << "home/.config/autostart";
        QTest::newRow("XDG_CONFIG_HOME relative") << "relative/config"
                                                  << "home/.config/autostart";
    }

    void launchAtLoginUsesTheUsersAutostartFolder()
    {
        QFETCH(QString, configHome);
        QFETCH(QString, autostart);
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        EnvGuard home("HOME"), xdg("XDG_CONFIG_HOME"), appImage("APPIMAGE");
        qunsetenv("APPIMAGE");
        qputenv("HOME", QFile::encodeName(dir.filePath("home")));
        if (configHome.startsWith('@'))
            configHome = dir.filePath(configHome.mid(1));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(configHome));
        const QString entry = LoginItem::entryPath(dir.filePath(autostart));

        QVERIFY(AppSettings::setLaunchAtLogin(true));
        QVERIFY(QFile::exists(entry));
        QVERIFY(LoginItem::isEnabled());
        QFile file(entry);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QString exec = "Exec=" + LoginItem::execValue(QCoreApplication::applicationFilePath());
        QVERIFY(QString::fromUtf8(file.readAll()).split('\n').contains(exec));

        QVERIFY(AppSettings::setLaunchAtLogin(false));
        QVERIFY(!QFile::exists(entry));
        QVERIFY(!LoginItem::isEnabled());
    }
};

QTEST_GUILESS_MAIN(TestLoginItem)
#include "tst_loginitem.moc"
