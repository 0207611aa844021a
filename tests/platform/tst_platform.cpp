#include "model/AppSettings.h"
#include "platform/Defaults.h"
#include "platform/Files.h"
#include "platform/Http.h"
#include "platform/LoginItem.h"
#include "support/TestEnv.h"

#include <gio/gdesktopappinfo.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QProcessEnvironment>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QtTest>

#include <limits>
#include <memory>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace limitra;
using namespace limitra::platform;
using namespace limitra::test;

namespace {
// A reader of the settings by name; the published ones through their property.
QVariant read(const Defaults& d, const QString& reader)
{
    if (reader == "effectiveRefreshIntervalMinutes")
        return d.effectiveRefreshIntervalMinutes();
    if (reader == "lastUpdateCheck")
        return d.lastUpdateCheck();
    if (reader == "shown percent mode")
        return AppSettings::percentMode(d).rawValue();
    return d.property(reader.toLatin1().constData());
}

const QStringList kKeys { "showClaude", "showCodex", "refreshIntervalMinutes", "menuBarStyle", "percentMode",
    "hasShownWelcome", "lastUpdateCheck" };

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
    if (!QTest::qWaitFor([&] { return QFileInfo(marker).size() > 0; }, 10000))
        return {};
    return QFile::decodeName(readFile(marker));
}

// A program that records the path it was started as.
bool makeProgram(const QString& path)
{
    return writeFile(path,
        "#!/bin/sh\nprintf '%s' \"$0\" > \"$LIMITRA_TEST_MARKER.tmp\" && mv \"$LIMITRA_TEST_MARKER.tmp\" "
        "\"$LIMITRA_TEST_MARKER\"\n",
        QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
}

} // namespace

class TestPlatform : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { Http::globalInit(); }

    // expected: the status handed back, or -1 for nothing (in time).
    void httpGivesTheAnswerAsItCameOrNothingWithinTheTimeout_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<int>("expected");
        QTest::newRow("redirect is not followed") << "redirect" << 302;
        QTest::newRow("nobody listening") << "closed" << -1;
        QTest::newRow("tls against plain http") << "tls" << -1;
        QTest::newRow("header with a line break is never sent") << "newline" << -1;
    }
    void httpGivesTheAnswerAsItCameOrNothingWithinTheTimeout()
    {
        QFETCH(QString, kind);
        QFETCH(int, expected);
        FakePeer peer;
        PeerAnswer moved = answer(302);
        moved.headers = { { "Location", "/elsewhere" } };
        // Dropped and silent connections are the services' cases; these are the transport's own.
        peer.on("GET", "/x", kind == "redirect" ? moved : answer(200, "{}"));
        HttpRequest req;
        req.timeout = std::chrono::milliseconds(400);
        req.url = QUrl(peer.baseUrl().toString() + "/x");
        if (kind == "closed")
            req.url.setPort(1); // reserved port, nothing listens
        if (kind == "tls")
            req.url.setScheme(QStringLiteral("https"));
        if (kind == "newline")
            req.headers = { { "Authorization", "Bearer a\r\nX-Evil: 1" } };
        QElapsedTimer timer;
        timer.start();
        const auto res = Http::send(req);
        QVERIFY2(timer.elapsed() < 3000, "a failed request must end within its time-out");
        QCOMPARE(res ? res->status : -1, expected);
        QCOMPARE(peer.requests().size(), expected < 0 ? 0 : 1);
    }

    void readGivesWholeRegularFilesOnly()
    {
        QTemporaryDir dir;
        const QString file = dir.filePath("f.json");
        const QByteArray binary("\x00\xff{\"a\":1}\x00", 10);
        QVERIFY(writeFile(file, binary));
        QCOMPARE(Files::read(file), std::optional<QByteArray>(binary));

        QVERIFY(!Files::read(dir.filePath("missing")));
        QVERIFY(!Files::read(dir.path())); // a directory
        QCOMPARE(::mkfifo(QFile::encodeName(dir.filePath("fifo")).constData(), 0600), 0);
        QVERIFY(!Files::read(dir.filePath("fifo"))); // would block forever if opened
        QVERIFY(QFile::link(dir.filePath("loop"), dir.filePath("loop")));
        QVERIFY(!Files::read(dir.filePath("loop")));

        QVERIFY(writeFile(file, QByteArray(2048, 'x')));
        QVERIFY(!Files::read(file, 2047));
        QCOMPARE(Files::read(file, 2048)->size(), 2048);
        // A small document holds a buffer of its own size, not of the bound.
        QVERIFY(Files::read(file)->capacity() < 64 * 1024);
    }

    // before: the old file's mode; -1 for no old file.
    void atomicWriteKeepsPermissionBits_data()
    {
        QTest::addColumn<int>("before");
        QTest::addColumn<int>("after");
        QTest::newRow("new file is owner only") << -1 << 0600;
        QTest::newRow("group readable") << 0640 << 0640;
        QTest::newRow("read only for the owner") << 0400 << 0400;
    }
    void atomicWriteKeepsPermissionBits()
    {
        QFETCH(int, before);
        QFETCH(int, after);
        QTemporaryDir dir;
        const QString file = dir.filePath("auth.json");
        if (before >= 0) {
            QVERIFY(writeFile(file, "old"));
            QCOMPARE(::chmod(QFile::encodeName(file).constData(), mode_t(before)), 0);
        }
        QVERIFY(Files::writeAtomic(file, "new content"));
        QCOMPARE(*Files::read(file), QByteArray("new content"));
        QCOMPARE(modeOf(file), after);
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden).size(), 1); // no temp left behind
    }

    void atomicWriteFollowsASymlinkAndKeepsIt()
    {
        QTemporaryDir dir;
        const QString real = dir.filePath("real.json");
        const QString link = dir.filePath("link.json");
        QVERIFY(writeFile(real, "old"));
        QVERIFY(QFile::link(real, link));
        QVERIFY(Files::writeAtomic(link, "new"));
        QVERIFY(QFileInfo(link).isSymLink());
        QCOMPARE(*Files::read(real), QByteArray("new"));
    }

    // A writer killed mid-write leaves its temporary file unlocked; the next write
    // removes it, but never the locked one of a writer still at work.
    void staleTemporariesGoLiveOnesStay()
    {
        QTemporaryDir dir;
        const QString stale = dir.filePath(".auth.json.limitra-Ab12Cd");
        const QString live = dir.filePath(".auth.json.limitra-Ef34Gh");
        const QString foreign = dir.filePath(".auth.json.other-Ab12Cd");
        for (const QString& path : { stale, live, foreign })
            QVERIFY(writeFile(path, "partial"));
        const int held = ::open(QFile::encodeName(live).constData(), O_RDONLY);
        QVERIFY(held >= 0);
        const auto release = qScopeGuard([held] { ::close(held); });
        QCOMPARE(::flock(held, LOCK_EX), 0);

        QVERIFY(Files::writeAtomic(dir.filePath("auth.json"), "{}"));
        QVERIFY(!QFile::exists(stale));
        QVERIFY(QFile::exists(live));
        QVERIFY(QFile::exists(foreign));
    }

    // As root the write keeps a file that belongs to someone else theirs.
    void atomicWriteKeepsTheOwner()
    {
        if (::geteuid() != 0)
            QSKIP("changing a file's owner needs root");
        QTemporaryDir dir;
        const QString file = dir.filePath("auth.json");
        QVERIFY(writeFile(file, "old"));
        QCOMPARE(::chown(QFile::encodeName(file).constData(), 65534, 65534), 0);
        QVERIFY(Files::writeAtomic(file, "new"));
        QCOMPARE(QFileInfo(file).ownerId(), 65534u);
        QCOMPARE(QFileInfo(file).groupId(), 65534u);
        QCOMPARE(modeOf(file), 0600);
    }

    void failedWriteLeavesNothingBehind()
    {
        QTemporaryDir dir;
        QVERIFY(!Files::writeAtomic(dir.filePath("no/such/dir/file.json"), "x"));
        // A directory in the way is never replaced.
        QVERIFY(QDir(dir.path()).mkdir("taken"));
        QVERIFY(!Files::writeAtomic(dir.filePath("taken"), "x"));
        QVERIFY(QFileInfo(dir.filePath("taken")).isDir());
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden).size(), 0);
    }

    // A settings file edited by hand or by an older version: each reader applies
    // its default to absent and wrong-typed values.
    void storedValuesAreReadWithTheirDefaults_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<QString>("reader");
        QTest::addColumn<QVariant>("expected");
        const QString interval = QStringLiteral("refreshIntervalMinutes");
        const QString used = QStringLiteral("effectiveRefreshIntervalMinutes");
        const struct
        {
            const char* line;
            QString reader;
            QVariant expected;
        } cases[] = {
            { "", "showClaude", true },
            { "showClaude=false", "showClaude", false },
            { "showClaude=0", "showClaude", true }, // any other type counts as true
            { "showCodex=false, false", "showCodex", true }, // a list
            { "", interval, 5 },
            { "refreshIntervalMinutes=3", used, 3 }, // not offered, still used
            { "refreshIntervalMinutes=0", interval, 0 },
            { "refreshIntervalMinutes=0", used, 5 },
            { "refreshIntervalMinutes=-3", used, 5 },
            { "refreshIntervalMinutes=2.7", interval, 2 },
            { "refreshIntervalMinutes=often", interval, 5 },
            { "refreshIntervalMinutes=1e12", used, std::numeric_limits<int>::max() },
            { "refreshIntervalMinutes=inf", used, 5 },
            { "menuBarStyle=Bars", "menuBarStyle", "Bars" },
            { "menuBarStyle=iconOnly, iconAndWorst", "menuBarStyle", "iconAndPercents" },
            { "hasShownWelcome=yes", "hasShownWelcome", false },
            // Only exactly "used" shows what is used; the file may have been edited by hand.
            { "", "shown percent mode", "remaining" }, { "percentMode = used ", "shown percent mode", "used" },
            { "percentMode=Used", "shown percent mode", "remaining" },
            { "percentMode=used, used", "shown percent mode", "remaining" },
            { "lastUpdateCheck=1740832496.789", "lastUpdateCheck", 1740832496.789 },
            { "lastUpdateCheck=never", "lastUpdateCheck", 0.0 },
            { "lastUpdateCheck=nan", "lastUpdateCheck", 0.0 },
        };
        for (const auto& c : cases)
            QTest::addRow("%s: '%s'", qPrintable(c.reader), c.line)
                << QByteArray(c.line) << c.reader << c.expected;
    }
    void storedValuesAreReadWithTheirDefaults()
    {
        QFETCH(QByteArray, line);
        QFETCH(QString, reader);
        QFETCH(QVariant, expected);
        QTemporaryDir dir;
        QVERIFY(writeFile(dir.filePath("limitra.conf"), "[General]\n" + line + "\n"));
        const Defaults defaults(dir.filePath("limitra.conf"));
        QCOMPARE(read(defaults, reader), expected);
    }

    void eachKeySignalsOnlyItsOwnChange_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariant>("value");
        const QVariantList values { false, false, 15, "iconOnly", "used", true, 1740832496.789123 };
        for (qsizetype i = 0; i < kKeys.size(); ++i)
            QTest::newRow(qPrintable(kKeys[i])) << kKeys[i] << values[i];
    }

    void eachKeySignalsOnlyItsOwnChange()
    {
        QFETCH(QString, key);
        QFETCH(QVariant, value);
        QTemporaryDir dir;
        Defaults defaults(dir.filePath("limitra.conf"));
        std::vector<std::unique_ptr<QSignalSpy>> spies;
        for (const QString& k : kKeys) {
            const QByteArray signal = "2" + k.toLatin1() + "Changed()";
            spies.push_back(std::make_unique<QSignalSpy>(&defaults, signal.constData()));
            QVERIFY(spies.back()->isValid());
        }
        QSignalSpy any(&defaults, &Defaults::changed);

        const auto write = [&] {
            if (key == "lastUpdateCheck")
                defaults.setLastUpdateCheck(value.toDouble());
            else
                QVERIFY(defaults.setProperty(key.toLatin1().constData(), value));
        };
        write();
        QCOMPARE(read(defaults, key), value);
        QCOMPARE(read(Defaults(defaults.filePath()), key), value); // kept in the file
        for (qsizetype i = 0; i < kKeys.size(); ++i)
            QCOMPARE(spies[i]->count(), kKeys[i] == key ? 1 : 0);
        QCOMPARE(any.count(), 1);
        QCOMPARE(any.first().first().toString(), key);

        // The same value again is no change.
        write();
        QCOMPARE(any.count(), 1);

        defaults.remove(key);
        QCOMPARE(any.count(), 2);
        QCOMPARE(spies[kKeys.indexOf(key)]->count(), 2);
        QVERIFY(read(defaults, key) != value);
    }

    // Install paths with characters that the entry must quote or escape.
    void entryStartsTheGivenProgram_data()
    {
        QTest::addColumn<QString>("relativePath");
        QTest::newRow("space and tab") << "My Apps/tab\there/limitra";
        QTest::newRow("dollar, backquote, double quote") << "a$HOME`b` say \"hi\"/limitra";
        QTest::newRow("single quote, backslash") << "it's back\\slash/limitra";
        QTest::newRow("shell characters") << "a;b&c|d<e>f*g?h#i(j)~k x=y[z]/limitra";
        QTest::newRow("non-ASCII") << QString::fromUtf8("Aplicación ñ/limitra");
    }

    void entryStartsTheGivenProgram()
    {
        QFETCH(QString, relativePath);
        QTemporaryDir dir;
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
        QTest::newRow("other group") << head + "[Desktop Action quit]\nHidden=true\n" << true;
        QTest::newRow("empty file") << QByteArray("") << true;
    }

    void enabledStateFollowsTheEntry()
    {
        QFETCH(QByteArray, content);
        QFETCH(bool, enabled);
        QTemporaryDir dir;
        if (!content.isNull())
            QVERIFY(writeFile(LoginItem::entryPath(dir.path()), content));
        QCOMPARE(LoginItem::isEnabled(dir.path()), enabled);
    }

    void failuresAreReported()
    {
        QTemporaryDir dir;
        QVERIFY(!LoginItem::enable(dir.path(), QString()));
        QVERIFY(!QFile::exists(LoginItem::entryPath(dir.path())));

        const QString notAFolder = dir.filePath("file");
        QVERIFY(writeFile(notAFolder, "x"));
        QVERIFY(!LoginItem::enable(notAFolder, "/usr/bin/limitra"));

        QVERIFY(QDir().mkpath(LoginItem::entryPath(dir.path())));
        QVERIFY(!LoginItem::disable(dir.path()));
        QVERIFY(!LoginItem::isEnabled(dir.path()));
    }

    // In a tree with usr/bin/limitra installed, bin -> usr/bin (merged /usr) and
    // a build elsewhere: which program the login entry starts. Paths are relative
    // to the tree; "-" is an empty path.
    void loginEntryNamesTheInstalledProgram_data()
    {
        QTest::addColumn<QString>("running");
        QTest::addColumn<QString>("installed");
        QTest::addColumn<QString>("started");
        QTest::newRow("the installed file") << "usr/bin/limitra" << "usr/bin/limitra" << "usr/bin/limitra";
        QTest::newRow("reached through /bin") << "bin/limitra" << "usr/bin/limitra" << "usr/bin/limitra";
        QTest::newRow("installed under /bin") << "usr/bin/limitra" << "bin/limitra" << "bin/limitra";
        QTest::newRow("a link to it") << "link/limitra" << "usr/bin/limitra" << "usr/bin/limitra";
        QTest::newRow("a build") << "build/limitra" << "usr/bin/limitra" << "build/limitra";
        QTest::newRow("not installed") << "build/limitra" << "opt/limitra" << "build/limitra";
        QTest::newRow("running program unknown") << "-" << "opt/limitra" << "-";
    }

    void loginEntryNamesTheInstalledProgram()
    {
        QFETCH(QString, running);
        QFETCH(QString, installed);
        QFETCH(QString, started);
        QTemporaryDir dir;
        QVERIFY(makeProgram(dir.filePath("usr/bin/limitra")) && makeProgram(dir.filePath("build/limitra")));
        QVERIFY(QFile::link("usr/bin", dir.filePath("bin")) && QDir(dir.path()).mkdir("link"));
        QVERIFY(QFile::link("../usr/bin/limitra", dir.filePath("link/limitra")));
        const auto path = [&](const QString& p) { return p == u'-' ? QString() : dir.filePath(p); };

        QCOMPARE(LoginItem::programToStart(path(running), path(installed)), path(started));
    }

    // Switching off removes limitra.desktop only: a link goes, not what it
    // points to, and another entry that starts Limitra stays.
    void disableRemovesOnlyItsOwnEntry()
    {
        QTemporaryDir dir;
        const QString autostart = dir.filePath("autostart");
        const QString menuEntry = dir.filePath("applications/app.limitra.Limitra.desktop");
        const QByteArray entry = "[Desktop Entry]\nType=Application\nName=Limitra\nExec=limitra\n";
        QVERIFY(writeFile(menuEntry, entry) && writeFile(autostart + "/app.limitra.Limitra.desktop", entry));
        QVERIFY(QFile::link(menuEntry, LoginItem::entryPath(autostart)));
        QVERIFY(LoginItem::isEnabled(autostart));

        QVERIFY(LoginItem::disable(autostart));

        QVERIFY(!QFileInfo(LoginItem::entryPath(autostart)).isSymLink());
        QVERIFY(!LoginItem::isEnabled(autostart));
        QCOMPARE(readFile(menuEntry), entry);
        QCOMPARE(readFile(autostart + "/app.limitra.Limitra.desktop"), entry);
    }

    // configHome: the XDG_CONFIG_HOME value, relative to the temporary folder
    // when it starts with "@"; autostart: where the entry must appear.
    void launchAtLoginUsesTheUsersAutostartFolder_data()
    {
        QTest::addColumn<QString>("configHome");
        QTest::addColumn<QString>("autostart");
        QTest::addColumn<bool>("hiddenBefore");
        QTest::newRow("XDG_CONFIG_HOME set") << QString("@xdg") << "xdg/autostart" << true;
        QTest::newRow("XDG_CONFIG_HOME empty") << QString("") << "home/.config/autostart" << false;
        QTest::newRow("XDG_CONFIG_HOME relative") << QString("relative/config") << "home/.config/autostart"
                                                  << false;
    }

    void launchAtLoginUsesTheUsersAutostartFolder()
    {
        QFETCH(QString, configHome);
        QFETCH(QString, autostart);
        QFETCH(bool, hiddenBefore);
        QTemporaryDir dir;
        const QProcessEnvironment saved = QProcessEnvironment::systemEnvironment();
        const auto restore = qScopeGuard([&] {
            for (const char* name : { "HOME", "XDG_CONFIG_HOME", "APPIMAGE" })
                saved.contains(name) ? qputenv(name, saved.value(name).toLocal8Bit()) : qunsetenv(name);
        });
        qunsetenv("APPIMAGE");
        qputenv("HOME", QFile::encodeName(dir.filePath("home")));
        if (configHome.startsWith('@'))
            configHome = dir.filePath(configHome.mid(1));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(configHome));
        const QString entry = LoginItem::entryPath(dir.filePath(autostart));
        QCOMPARE(entry, dir.filePath(autostart) + "/limitra.desktop");
        // An entry the user switched off is replaced; otherwise the folders are made.
        QVERIFY(!hiddenBefore || writeFile(entry, "[Desktop Entry]\nExec=/old/limitra\nHidden=true\n"));
        QVERIFY(!LoginItem::isEnabled());

        QVERIFY(AppSettings::setLaunchAtLogin(true));
        QVERIFY(LoginItem::isEnabled());
        const QByteArray written = readFile(entry);
        QVERIFY(written.startsWith("[Desktop Entry]\n"));
        QVERIFY(written.contains("\nType=Application\n"));
        const QString exec = "Exec=" + LoginItem::execValue(QCoreApplication::applicationFilePath());
        QVERIFY(QString::fromUtf8(written).split('\n').contains(exec));
        QVERIFY(!written.contains("Hidden"));

        QVERIFY(AppSettings::setLaunchAtLogin(false));
        QVERIFY(!QFile::exists(entry));
        QVERIFY(AppSettings::setLaunchAtLogin(false)); // nothing left to remove is no failure
        QVERIFY(!LoginItem::isEnabled());
    }
};

QTEST_GUILESS_MAIN(TestPlatform)
#include "tst_platform.moc"
