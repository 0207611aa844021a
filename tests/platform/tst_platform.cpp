// Files, settings, the login entry, HTTP and the keyring, against real files,
// a local HTTP peer, GLib's launcher and a shell, and the private keyring.
#include "model/AppSettings.h"
#include "platform/Defaults.h"
#include "platform/Files.h"
#include "platform/Http.h"
#include "platform/Json.h"
#include "platform/LibsecretStore.h"
#include "platform/LoginItem.h"
#include "support/TestEnv.h"

#include <gio/gdesktopappinfo.h>

#include <QProcess>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QtTest>

#include <csignal>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace limitra;
using namespace limitra::platform;
using namespace limitra::test;

namespace {
const QStringList kKeys { "showClaude", "showCodex", "refreshIntervalMinutes", "menuBarStyle", "percentMode",
    "hasShownWelcome", "lastUpdateCheck" };

QString read(const Defaults& d, const QString& key)
{
    if (key == "interval used")
        return QString::number(d.effectiveRefreshIntervalMinutes());
    return key == "lastUpdateCheck" ? QString::number(d.lastUpdateCheck(), 'f', 3)
                                    : d.property(key.toLatin1().constData()).toString();
}

QStringList entries(const QString& dir)
{
    return QDir(dir).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
}

bool mountOn(const QString& dir, const char* type, unsigned long flags, const char* options = nullptr)
{
    const QByteArray path = QFile::encodeName(dir);
    return ::mount(type ? type : path.constData(), path.constData(), type, flags, options) == 0;
}

// What the started program recorded as the path it was run as.
QString startedAs(const QString& marker, const std::function<bool()>& start)
{
    QFile::remove(marker);
    qputenv("LIMITRA_TEST_MARKER", QFile::encodeName(marker));
    const bool ran = start() && QTest::qWaitFor([&] { return QFileInfo(marker).size() > 0; }, 10000);
    return ran ? QFile::decodeName(readFile(marker)) : QString();
}

// Standard output and "ok" when the program succeeds, else nothing.
QByteArray run(const QString& program, const QStringList& args, const QByteArray& input = {})
{
    QProcess p;
    p.start(program, args);
    p.write(input);
    p.closeWriteChannel();
    return p.waitForFinished() && p.exitCode() == 0 ? p.readAllStandardOutput() + "ok" : QByteArray();
}
} // namespace

class TestPlatform : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { Http::globalInit(); }

    // Runs first, while no other thread exists to be forked with. A writer killed
    // at a random moment leaves the old or the new document, whole, with its owner and mode.
    void killedWriterLeavesAWholeFile()
    {
        QTemporaryDir dir;
        const QString file = dir.filePath("auth.json");
        const QByteArray a(256 * 1024, 'a'), b(256 * 1024, 'b');
        QVERIFY(writeFile(file, a));
        const uint owner = ::geteuid() == 0 ? 65534 : ::geteuid();
        QCOMPARE(::chown(QFile::encodeName(file).constData(), owner, owner), 0);
        QCOMPARE(::chmod(QFile::encodeName(file).constData(), 0640), 0);
        int interrupted = 0;
        for (int kill = 0; kill < 100; ++kill) {
            const pid_t child = ::fork();
            if (child == 0)
                for (int i = 0;; ++i)
                    Files::writeAtomic(file, i % 2 ? a : b);
            ::usleep(QRandomGenerator::global()->bounded(3000u));
            ::kill(child, SIGKILL);
            QCOMPARE(::waitpid(child, nullptr, 0), child);
            const QByteArray now = readFile(file);
            QVERIFY2(now == a || now == b, qPrintable(QString::number(now.size())));
            QCOMPARE(modeOf(file), 0640);
            QCOMPARE(QFileInfo(file).ownerId(), owner);
            // Each write first clears what a killed writer left.
            QVERIFY(entries(dir.path()).size() <= 2);
            interrupted += entries(dir.path()).size() - 1;
        }
        QVERIFY2(interrupted > 0, "no kill landed during a write");
    }

    // kind, mode of the old file (-1: none), written. A file written is read back
    // whole; anything else but a regular file is neither written nor read.
    void atomicWrite_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<int>("mode");
        QTest::addColumn<bool>("written");
        for (const char* row : { "new -1 1", "file 0640 1", "file 0400 1", "link 0600 1", "fifo 0600 0",
                 "dir 0700 0", "nofolder -1 0", "full 0600 0", "readonly 0600 0" }) {
            const QStringList f = QString(row).split(' ');
            QTest::newRow(row) << f[0] << f[1].toInt(nullptr, 8) << (f[2] == "1");
        }
    }
    void atomicWrite()
    {
        QFETCH(QString, kind);
        QFETCH(int, mode);
        QFETCH(bool, written);
        QTemporaryDir home;
        const QString dir = home.filePath("d"), file = dir + "/auth.json";
        const QString real = kind == "link" ? home.filePath("real.json") : file;
        const bool old = kind == "file" || kind == "link" || kind == "full" || kind == "readonly";
        QVERIFY(QDir().mkpath(dir));
        if ((kind == "full" || kind == "readonly") && !qEnvironmentVariableIsSet("LIMITRA_UNSHARED"))
            QSKIP("mounts need root in a private mount namespace");
        QVERIFY(kind != "full" || mountOn(dir, "tmpfs", 0, "size=64k"));
        QVERIFY(!old || writeFile(real, "old"));
        QVERIFY(kind != "link" || QFile::link(real, file));
        QVERIFY(kind != "fifo" || ::mkfifo(QFile::encodeName(file).constData(), 0600) == 0);
        QVERIFY(kind != "dir" || QDir().mkpath(file));
        QVERIFY(mode < 0 || ::chmod(QFile::encodeName(real).constData(), mode_t(mode)) == 0);
        if (kind == "full") {
            QFile filler(dir + "/filler");
            QVERIFY(filler.open(QIODevice::WriteOnly));
            while (filler.write(QByteArray(4096, 'f')) == 4096 && filler.flush()) { }
        }
        QVERIFY(kind != "readonly"
            || (mountOn(dir, nullptr, MS_BIND) && mountOn(dir, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY)));
        const qsizetype before = entries(dir).size();

        const QByteArray data(8192, 'n');
        QCOMPARE(Files::writeAtomic(kind == "nofolder" ? dir + "/no/auth.json" : file, data), written);
        QCOMPARE(entries(dir).size(), before + (kind == "new")); // no temporary left behind
        QCOMPARE(QFileInfo(file).isSymLink(), kind == "link");
        QCOMPARE(QFileInfo(file).isDir(), kind == "dir");
        QCOMPARE(Files::read(file).value_or("-"), written ? data : QByteArray(old ? "old" : "-"));
        QCOMPARE(Files::read(file, 8191).has_value(), old && !written);
        QCOMPARE(QFileInfo::exists(real) ? modeOf(real) : -1, kind == "new" ? 0600 : mode);
        ::umount2(QFile::encodeName(dir).constData(), MNT_DETACH);
    }

    // expected: the status handed back, or -1 for nothing (in time).
    void httpGivesTheAnswerAsItCame_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<int>("expected");
        QTest::newRow("plain answer") << "plain" << 200;
        QTest::newRow("redirect is not followed") << "redirect" << 302;
        QTest::newRow("never answers") << "hang" << -1;
        QTest::newRow("endless answer") << "huge" << -1;
        QTest::newRow("header with a line break") << "newline" << -1;
    }
    void httpGivesTheAnswerAsItCame()
    {
        QFETCH(QString, kind);
        QFETCH(int, expected);
        FakePeer peer;
        PeerAnswer reply = kind == "hang" ? PeerAnswer::hang()
                                          : answer(200, QByteArray(kind == "huge" ? 9 << 20 : 2, 'x'));
        if (kind == "redirect") {
            reply = answer(302);
            reply.headers = { { "Location", "/elsewhere" } };
        }
        peer.on("GET", "/x", reply);
        HttpRequest req { "GET", QUrl(peer.baseUrl().toString() + "/x"),
            { { "Authorization", kind == "newline" ? "Bearer a\r\nX-Evil: 1" : "Bearer a" } }, {},
            std::chrono::milliseconds(800) };
        QElapsedTimer timer;
        timer.start();
        const auto res = Http::send(req);
        QVERIFY(timer.elapsed() < 5000);
        QCOMPARE(res ? res->status : -1, expected);
        QCOMPARE(peer.requests().size(), kind == "newline" ? 0 : 1);
        if (kind != "newline")
            QCOMPARE(peer.requests().first().header("authorization"), QByteArray("Bearer a"));
    }

    void jsonKeepsTypesAndLayout()
    {
        const auto doc = Json::parseObject(R"({"n":1.5,"s":"2","t":{"u":true}})");
        QVERIFY(doc);
        QCOMPARE(Json::number(*doc, u"n"), std::optional(1.5));
        QCOMPARE(Json::number(*doc, u"s"), std::nullopt);
        QCOMPARE(Json::number(*doc, u"none"), std::nullopt);
        // Written back one member a line, as the other tools write these files.
        QCOMPARE(Json::indented(*doc).count('\n'), 7);
        QCOMPARE(Json::parseObject(Json::indented(*doc)), doc);
    }

    // A settings file edited by hand or by an older version: line|reader|value read.
    void storedValuesAreReadWithTheirDefaults_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("expected");
        for (const QString& row : QStringLiteral(R"(|showClaude|true
|showCodex|true
showCodex=false|showCodex|false
showClaude=0|showClaude|true
|interval used|5
refreshIntervalMinutes=3|interval used|3
refreshIntervalMinutes=0|interval used|5
refreshIntervalMinutes=-3|interval used|5
refreshIntervalMinutes=often|interval used|5
|menuBarStyle|iconAndPercents
hasShownWelcome=yes|hasShownWelcome|false
|percentMode|remaining
lastUpdateCheck=1740832496.789|lastUpdateCheck|1740832496.789
lastUpdateCheck=never|lastUpdateCheck|0.000)")
                                      .split('\n')) {
            const QStringList f = row.split('|');
            QTest::newRow(qPrintable(row)) << f[0] << f[1] << f[2];
        }
    }
    void storedValuesAreReadWithTheirDefaults()
    {
        QFETCH(QString, line);
        QFETCH(QString, key);
        QFETCH(QString, expected);
        QTemporaryDir dir;
        QVERIFY(writeFile(dir.filePath("limitra.conf"), "[General]\n" + line.toUtf8() + "\n"));
        QCOMPARE(read(Defaults(dir.filePath("limitra.conf")), key), expected);
    }

    void eachKeySignalsOnlyItsOwnChange_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariant>("value");
        const QVariantList values { false, false, 15, "iconOnly", "used", true, 1740832496.5 };
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
        for (const QString& k : kKeys)
            spies.push_back(
                std::make_unique<QSignalSpy>(&defaults, ("2" + k.toLatin1() + "Changed()").constData()));
        for (int round = 0; round < 2; ++round) // the same value again is no change
            key == "lastUpdateCheck" ? defaults.setLastUpdateCheck(value.toDouble())
                                     : void(defaults.setProperty(key.toLatin1().constData(), value));
        QCOMPARE(read(defaults, key), value);
        // On disk at once: the program may end before Qt would write it.
        QVERIFY(readFile(defaults.filePath()).contains(key.toLatin1() + "="));
        for (qsizetype i = 0; i < kKeys.size(); ++i)
            QCOMPARE(spies[i]->count(), kKeys[i] == key ? 1 : 0);
    }

    // Install paths with characters the entry must quote or escape, started by
    // GLib's launcher and by a shell, as desktop sessions do.
    void entryStartsTheGivenProgram_data()
    {
        QTest::addColumn<QString>("relativePath");
        QTest::newRow("space and tab") << "My Apps/tab\there/limitra";
        QTest::newRow("dollar, backquote, quote") << "a$HOME`b` say \"hi\"/limitra";
        QTest::newRow("quote, backslash, shell characters")
            << "it's back\\slash;b&c|d<e>f*g?h#i(j)~k x=y[z]/limitra";
        QTest::newRow("non-ASCII") << QString::fromUtf8("Aplicación ñ/limitra");
    }
    void entryStartsTheGivenProgram()
    {
        QFETCH(QString, relativePath);
        QTemporaryDir dir;
        const QString program = dir.filePath(relativePath), autostart = dir.filePath("autostart");
        QVERIFY(writeFile(program,
            "#!/bin/sh\nprintf '%s' \"$0\" > \"$LIMITRA_TEST_MARKER.t\" && mv \"$LIMITRA_TEST_MARKER.t\" "
            "\"$LIMITRA_TEST_MARKER\"\n",
            kOwnerOnly | QFileDevice::ExeOwner));
        QVERIFY(LoginItem::enable(autostart, program));
        QVERIFY(LoginItem::isEnabled(autostart));
        GDesktopAppInfo* info = g_desktop_app_info_new_from_filename(
            QFile::encodeName(LoginItem::entryPath(autostart)).constData());
        QVERIFY(info);
        g_autofree char* exec = g_desktop_app_info_get_string(info, "Exec");
        QCOMPARE(startedAs(dir.filePath("m"),
                     [&] { return g_app_info_launch(G_APP_INFO(info), nullptr, nullptr, nullptr); }),
            program);
        g_object_unref(info);
        QCOMPARE(startedAs(dir.filePath("m"),
                     [&] {
                         return QProcess::startDetached("/bin/sh", { "-c", QString::fromUtf8(exec) });
                     }),
            program);
        QCOMPARE(LoginItem::execValue("/opt/100%f/limitra"), "/opt/100%%f/limitra"); // not a field code
    }

    // content: a null array means no entry file at all.
    void enabledStateFollowsTheEntry_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<bool>("enabled");
        const QByteArray head = "[Desktop Entry]\nType=Application\nExec=/usr/bin/limitra\n";
        QTest::newRow("no entry") << QByteArray() << false;
        QTest::newRow("plain entry") << head << true;
        QTest::newRow("spaces around =") << head + "Hidden = true\r\n" << false;
        QTest::newRow("Hidden=false") << head + "Hidden=false\n" << true;
        QTest::newRow("other group") << head + "[Desktop Action quit]\nHidden=true\n" << true;
    }
    void enabledStateFollowsTheEntry()
    {
        QFETCH(QByteArray, content);
        QFETCH(bool, enabled);
        QTemporaryDir dir;
        QVERIFY(content.isNull() || writeFile(LoginItem::entryPath(dir.path()), content));
        QCOMPARE(LoginItem::isEnabled(dir.path()), enabled);
    }

    // Switching off removes limitra.desktop only, even as a dangling link, never
    // what it points to; switching on writes it again.
    void launchAtLoginSwitchesTheEntry()
    {
        QTemporaryDir dir;
        const QString autostart = dir.filePath("autostart"), entry = LoginItem::entryPath(autostart);
        const QString other = autostart + "/app.limitra.Limitra.desktop",
                      target = dir.filePath("gone.desktop");
        QVERIFY(writeFile(other, "[Desktop Entry]\nExec=limitra\n") && QFile::link(target, entry));
        QVERIFY(AppSettings::setLaunchAtLogin(false, autostart));
        QVERIFY(!QFileInfo(entry).isSymLink() && QFile::exists(other));
        QVERIFY(AppSettings::setLaunchAtLogin(false, autostart));
        QVERIFY(AppSettings::setLaunchAtLogin(true, autostart));
        QVERIFY(LoginItem::isEnabled(autostart) && !QFile::exists(target));
        QVERIFY(AppSettings::setLaunchAtLogin(false, autostart));
        QCOMPARE(entries(autostart), QStringList("app.limitra.Limitra.desktop"));
    }

    // Items another tool wrote are found and updated; a locked collection is never
    // read or written, and an update that matched nothing fails.
    void keyringItems()
    {
        if (!qEnvironmentVariableIsSet("LIMITRA_PRIVATE_KEYRING"))
            QSKIP("needs the private keyring of the test launcher");
        LibsecretStore store;
        const QStringList attributes { "service", "svc", "account", "me" };
        QVERIFY(!store.replace("svc", "me", "x"));
        QVERIFY(!store.findFirst("svc"));
        QVERIFY(!run("secret-tool", QStringList { "store", "--label=L" } + attributes, "old").isEmpty());
        QCOMPARE(store.findFirst("svc")->data, QByteArray("old"));
        QVERIFY(store.replace("svc", "me", "new"));
        QCOMPARE(run("secret-tool", QStringList("lookup") + attributes), QByteArray("newok"));

        QVERIFY(!run(
            "secret-tool", QStringList { "store", "--label=L", "--collection=session" } + attributes, "s")
                     .isEmpty());
        QVERIFY(!run("gdbus",
            { "call", "--session", "--dest", "org.freedesktop.secrets", "--object-path",
                "/org/freedesktop/secrets", "--method", "org.freedesktop.Secret.Service.Lock",
                "[objectpath '/org/freedesktop/secrets/collection/login']" })
                     .isEmpty());
        QVERIFY(store.replace("svc", "me", "newer"));
        QCOMPARE(store.findFirst("svc")->data, QByteArray("newer"));
        QCOMPARE(store.findFirst("svc")->account, QString("me"));
    }
};

int main(int argc, char** argv)
{
    // As root, rerun in a private mount namespace where the file system cases can mount.
    if (::geteuid() == 0 && !qEnvironmentVariableIsSet("LIMITRA_UNSHARED")) {
        qputenv("LIMITRA_UNSHARED", "1");
        std::vector<char*> args { const_cast<char*>("unshare"), const_cast<char*>("--mount") };
        args.insert(args.end(), argv, argv + argc + 1);
        ::execvp("unshare", args.data());
        qunsetenv("LIMITRA_UNSHARED");
    }
    QCoreApplication app(argc, argv);
    TestPlatform test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_platform.moc"
