// Texts, settings, files, login entry, HTTP, store and update check, on real parts.
#include "model/FormatUtil.h"
#include "model/PercentMode.h"
#include "model/PlanBadge.h"
#include "platform/Defaults.h"
#include "platform/Files.h"
#include "platform/Http.h"
#include "platform/LoginItem.h"
#include "store/MenuBarText.h"
#include "store/UsageStore.h"
#include "support/TestEnv.h"
#include "update/UpdateChecker.h"

#include <gio/gdesktopappinfo.h>

#include <QProcess>
#include <QSemaphore>
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
constexpr double kNow = 1740832496.25;
const QString kUrl = "https://x.test/d";

// kind|input|expected. Moments are read and written back in UTC, "" when refused;
// durations are seconds from now; a label is "style mode showCodex claudeRows codexRows";
// a setting is "[file line] reader", as edited by hand or by an older version; an entry
// is the lines after the login entry's head ("/" starts a line, "none": no file).
const char* const kTexts = R"(date|2025-03-01T12:34:56.789Z|2025-03-01T12:34:56.789Z
date|2025-03-01T12:34:56+02:00|2025-03-01T10:34:56.000Z
date|2025-03-01T22:04:00-05:30|2025-03-02T03:34:00.000Z
date|1969-12-31T23:59:59.250Z|1969-12-31T23:59:59.250Z
date|2025-03-01|
date|2025-03-01T12:34:56+0200|
date|2025-13-01T12:34:56Z|
date|2024-02-30T12:00:00Z|
date|2025-03-01T12:60:00Z|
date|2025-03-01T12:34:61Z|
ago|0|hace 0 s
ago|-59|hace 59 s
ago|-60|hace 1 min
ago|-7530|hace 2 h 5 min
ago|10|hace 0 s
countdown|0.9|ahora
countdown|1|0m
countdown|3600|1h 0m
countdown|183600|2d 3h
percent|remaining 84.5|85
percent|used 84.5|16
percent|remaining 45.6|46
percent|used 0.4|100
raw|used|used
raw|remaining|remaining
raw|Used|-
badge|pro|Pro
badge|équipe max|Équipe max
badge||-
newer|1.2.10 1.2.9|yes
newer|1.2.9 1.2.10|no
newer|2 2.0.0|no
newer|1..2 1.1|yes
newer|1.2.3-beta 1.2.0|no
label|iconAndPercents remaining 1 84.4r,30r|C 30% · X –
label|iconAndPercents used 1 84.4r,30r 61r|C 70% · X 39%
label|iconAndPercents remaining 0 40,50r|C 50%
label|iconAndPercents remaining 1 -30r 110r|C 0% · X 100%
label|IconOnly Used 1 50r 20.5r|C 50% · X 21%
label|iconAndWorst remaining 1 40r 25r,90r|25%
label|iconAndWorst remaining 0 40r 25r|40%
label|iconOnly remaining 1 40r 25r|
setting|showClaude|true
setting|showCodex|true
setting|showCodex=false showCodex|false
setting|intervalUsed|5
setting|refreshIntervalMinutes=3 intervalUsed|3
setting|refreshIntervalMinutes=0 intervalUsed|5
setting|refreshIntervalMinutes=often intervalUsed|5
setting|menuBarStyle|iconAndPercents
setting|hasShownWelcome=yes hasShownWelcome|false
setting|notifyLow=no notifyLow|true
setting|percentMode|remaining
setting|lastUpdateCheck=1740832496.789 lastUpdateCheck|1740832496.789
setting|lastUpdateCheck=never lastUpdateCheck|0.000
entry|none|off
entry||on
entry|Hidden = true|off
entry|[Desktop Action q]/Hidden=true|on)";

// status|body|notes: %1 is a newer version, %2 the running one. Notes are "-" for
// none, "" when no update is announced (a download address not on the web
// included), "!" when the read failed.
const QStringList kFeeds {
    R"(200|{"version":"%1","download_url":"https://x.test/d","release_notes":"Línea 1"}|Línea 1)",
    R"(200|{"version":"%1","download_url":"https://x.test/d","release_notes":null}|-)",
    R"(200|{"version":"%2","download_url":"https://x.test/d"}|)",
    R"(200|{"version":"0.9.9","download_url":"https://x.test/d"}|)",
    R"(404|{"version":"%1","download_url":"https://x.test/d"}|!)",
    R"(200|{"version":"%1"}|!)",
    R"(200|{"version":"%1","download_url":"file:///etc/passwd"}|)",
    R"(200|{"version":"%1","download_url":"javascript://x.test/alert"}|)",
    R"(200|{"version":"%1","download_url":"https://x.test:port/d"}|!)",
};

const QStringList kSettings { "showClaude|false", "showCodex|false", "refreshIntervalMinutes|15",
    "menuBarStyle|iconOnly", "percentMode|used", "hasShownWelcome|true", "notifyLow|false",
    "lastUpdateCheck|1740832496.500" };

// One QTest row per line of a table, named by the line.
void addRows(const QStringList& table)
{
    QTest::addColumn<QString>("row");
    for (const QString& line : table)
        QTest::newRow(qPrintable(line)) << line;
}

QString read(const Defaults& d, const QString& key)
{
    if (key == "intervalUsed")
        return QString::number(d.effectiveRefreshIntervalMinutes());
    return key == "lastUpdateCheck" ? QString::number(d.lastUpdateCheck(), 'f', 3)
                                    : d.property(qPrintable(key)).toString();
}

// "84.4r,30" are rows with 84.4 % left and a reset moment, and 30 % left without.
ServiceUsage leftRows(const QString& rows)
{
    ServiceUsage u;
    for (QString text : rows.split(',', Qt::SkipEmptyParts)) {
        const bool resets = text.endsWith('r');
        text.remove('r');
        u.rows.append(row(text, 100.0 - text.toDouble(), resets ? std::optional(1.7e9) : std::nullopt));
    }
    return u;
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

// Scripted services: each fetch counts its calls, can be held at a gate, and
// answers with a record whose plan and usage name the call.
struct Fixture
{
    TestEnv t { kNow };
    std::atomic<int> calls[3] { 0, 0, 0 }; // Claude, Codex, update checks
    QSemaphore gate { 1000 }; // open unless a test takes the permits

    std::function<ServiceUsage()> fetch(int service)
    {
        return [this, service] {
            const int n = ++calls[service];
            gate.acquire();
            gate.release();
            return usage({ row("w", 10.0 * n, 1.7e9) }, 1, {}, QStringLiteral("%1-%2").arg(service).arg(n));
        };
    }
    std::unique_ptr<UsageStore> store()
    {
        const auto update = [this]() -> std::optional<UpdateInfo> {
            const int n = ++calls[2];
            return n == 2 ? std::nullopt : std::optional(UpdateInfo { QString::number(n), QUrl(kUrl), {} });
        };
        return std::make_unique<UsageStore>(t.env, UsageStore::Services { fetch(0), fetch(1), update });
    }
};

void settle(UsageStore& store)
{
    QTRY_VERIFY(!store.isRefreshing());
    QTest::qWait(20); // lets the update check of the refresh finish
}
} // namespace

class TestCore : public QObject
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
            // Once the child writes (a temporary beside the file), so a slow start on a
            // loaded machine never lets every kill land before the first write.
            for (int wait = 0; wait < 10000 && entries(dir.path()).size() < 2; ++wait)
                ::usleep(100);
            ::usleep(kill * 29 % 3000); // spread over a write
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
    void atomicWrite_data() { addRows({ "new -1 1", "file 0640 1", "file 0400 1", "link 0600 1", "fifo 0600 0",
        "dir 0700 0", "nofolder -1 0", "full 0600 0", "readonly 0600 0" }); }
    void atomicWrite()
    {
        QFETCH(QString, row);
        const QString kind = row.section(' ', 0, 0);
        const int mode = row.section(' ', 1, 1).toInt(nullptr, 8);
        const bool written = row.endsWith('1');
        const bool old = kind == "file" || kind == "link" || kind == "full" || kind == "readonly";
        QTemporaryDir home;
        const QString dir = home.filePath("d"), file = dir + "/auth.json";
        const QString real = kind == "link" ? home.filePath("real.json") : file;
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

    // The status handed back, or -1 for nothing (in time).
    void httpGivesTheAnswerAsItCame_data() { addRows({ "plain 200", "redirect 302", "hang -1", "huge -1", "newline -1" }); }
    void httpGivesTheAnswerAsItCame()
    {
        QFETCH(QString, row);
        const QString kind = row.section(' ', 0, 0);
        FakePeer peer;
        PeerAnswer reply = answer(kind == "hang" ? kHang : kind == "redirect" ? 302 : 200,
            QByteArray(kind == "huge" ? 9 << 20 : 2, 'x'));
        reply.headers = { { "Location", "/elsewhere" } };
        peer.on("GET", "/x", reply);
        HttpRequest req { "GET", QUrl(peer.baseUrl().toString() + "/x"),
            { { "Authorization", kind == "newline" ? "Bearer a\r\nX-Evil: 1" : "Bearer a" } }, {},
            std::chrono::milliseconds(800) };
        QElapsedTimer timer;
        timer.start();
        const auto res = Http::send(req);
        QVERIFY(timer.elapsed() < 5000);
        QCOMPARE(res ? res->status : -1, row.section(' ', 1).toInt());
        QCOMPARE(peer.requests().size(), kind == "newline" ? 0 : 1);
        QVERIFY(kind == "newline" || peer.requests().first().header("authorization") == "Bearer a");
    }

    void eachKeySignalsOnlyItsOwnChange_data() { addRows(kSettings); }
    void eachKeySignalsOnlyItsOwnChange()
    {
        QFETCH(QString, row);
        const QString key = row.section('|', 0, 0), value = row.section('|', 1);
        QTemporaryDir dir;
        Defaults defaults(dir.filePath("limitra.conf"));
        std::vector<std::unique_ptr<QSignalSpy>> spies;
        for (const QString& setting : kSettings)
            spies.push_back(std::make_unique<QSignalSpy>(
                &defaults, ("2" + setting.section('|', 0, 0).toLatin1() + "Changed()").constData()));
        for (int round = 0; round < 2; ++round) // the same value again is no change
            key == "lastUpdateCheck" ? defaults.setLastUpdateCheck(value.toDouble())
                                     : void(defaults.setProperty(qPrintable(key), value));
        QCOMPARE(read(defaults, key), value);
        // On disk at once: the program may end before Qt would write it.
        QVERIFY(readFile(defaults.filePath()).contains(key.toLatin1() + "="));
        for (qsizetype i = 0; i < kSettings.size(); ++i)
            QCOMPARE(spies[i]->count(), kSettings[i] == row ? 1 : 0);
    }

    // Install paths the entry must quote or escape, started by GLib's launcher
    // and by a shell, as desktop sessions do.
    void entryStartsTheGivenProgram_data() { addRows({ "My Apps/tab\there/limitra", "a$HOME`b` say \"hi\"/limitra",
        "it's back\\slash;b&c|d<e>f*g?h#i(j)~k x=y[z]/limitra", "Aplicación ñ/limitra" }); }
    void entryStartsTheGivenProgram()
    {
        QFETCH(QString, row);
        QTemporaryDir dir;
        const QString program = dir.filePath(row), autostart = dir.filePath("autostart");
        QVERIFY(writeFile(program,
            "#!/bin/sh\nprintf '%s' \"$0\" > \"$LIMITRA_TEST_MARKER.t\" && mv \"$LIMITRA_TEST_MARKER.t\" "
            "\"$LIMITRA_TEST_MARKER\"\n",
            kOwnerOnly | QFileDevice::ExeOwner));
        QVERIFY(LoginItem::enable(autostart, program));
        GDesktopAppInfo* info = g_desktop_app_info_new_from_filename(
            QFile::encodeName(LoginItem::entryPath(autostart)).constData());
        QVERIFY(info);
        g_autofree char* exec = g_desktop_app_info_get_string(info, "Exec");
        const QString marker = dir.filePath("m");
        QCOMPARE(
            startedAs(marker, [&] { return g_app_info_launch(G_APP_INFO(info), nullptr, nullptr, nullptr); }),
            program);
        g_object_unref(info);
        QCOMPARE(startedAs(marker, [&] { return QProcess::startDetached("/bin/sh", { "-c", exec }); }), program);
        QCOMPARE(LoginItem::execValue("/opt/100%f/limitra"), "/opt/100%%f/limitra"); // not a field code
    }

    void texts_data() { addRows(QString::fromUtf8(kTexts).split('\n')); }
    void texts()
    {
        QFETCH(QString, row);
        const QString kind = row.section('|', 0, 0), input = row.section('|', 1, 1);
        const QStringList in = input.split(' ');
        const double n = in.last().toDouble();
        QString got;
        if (kind == "date") {
            const auto moment = FormatUtil::parseISODate(input);
            got = moment ? FormatUtil::iso8601Fractional(*moment) : QString();
        } else if (kind == "ago" || kind == "countdown") {
            got = kind == "ago" ? FormatUtil::ago(kNow + n, kNow) : FormatUtil::countdown(kNow + n, kNow);
        } else if (kind == "percent") {
            got = QString::number(PercentMode::fromRawValue(in[0])->value(n));
        } else if (kind == "raw") {
            got = PercentMode::fromRawValue(input) ? PercentMode::fromRawValue(input)->rawValue() : "-";
        } else if (kind == "badge") {
            got = planBadge(input).value_or("-");
        } else if (kind == "setting") {
            QTemporaryDir dir;
            QVERIFY(writeFile(dir.filePath("l.conf"), "[General]\n" + (in.size() > 1 ? in[0] : "").toUtf8()));
            got = read(Defaults(dir.filePath("l.conf")), in.last());
        } else if (kind == "entry") {
            QTemporaryDir dir;
            QString lines = "[Desktop Entry]/Exec=limitra/" + input;
            QVERIFY(input == "none"
                || writeFile(LoginItem::entryPath(dir.path()), lines.replace('/', '\n').toUtf8()));
            got = LoginItem::isEnabled(dir.path()) ? "on" : "off";
        } else if (kind == "newer") {
            got = UpdateChecker::isNewer(in[0], in[1]) ? "yes" : "no";
        } else {
            got = MenuBarText::compose(
                leftRows(in[3]), leftRows(in.value(4)), true, in[2] == "1", in[0], in[1]);
        }
        QCOMPARE(got, row.section('|', 2));
    }

    // Both services are fetched at once, a second refresh meanwhile does nothing,
    // and the records, the label and a found update are published when done.
    void refreshPublishesBothRecords()
    {
        Fixture f;
        f.gate.acquire(1000);
        auto store = f.store();
        const auto open = qScopeGuard([&] { f.gate.release(1000 - f.gate.available()); }); // even on failure
        QSignalSpy text(store.get(), &UsageStore::menuBarTextChanged);
        QSignalSpy update(store.get(), &UsageStore::updateAvailableChanged);
        QTRY_COMPARE(f.calls[0] + f.calls[1], 2);
        QVERIFY(store->isRefreshing());
        *f.t.clock += 10;
        QVERIFY(store->refresh().isFinished());
        f.gate.release(1000);
        settle(*store);
        QCOMPARE(f.calls[0] + f.calls[1], 2);
        QCOMPARE(store->claude().planBadge, "0-1");
        QCOMPARE(store->codex().planBadge, "1-1");
        QCOMPARE(store->lastRefresh(), kNow);
        QCOMPARE(text.count(), 1);
        QCOMPARE(store->menuBarText(), QString::fromUtf8("C 90% · X 90%"));
        QCOMPARE(update.count(), 1);
        // An update once found stays until a newer one is found.
        store->refresh();
        settle(*store);
        QCOMPARE(store->updateAvailable()->version, "1");
        QCOMPARE(store->menuBarText(), QString::fromUtf8("C 80% · X 80%"));
        f.t.defaults->setMenuBarStyle("iconOnly"); // the label follows at once
        QCOMPARE(text.count(), 3);
        QCOMPARE(store->menuBarText(), QString());
        // The clock ticks on; a refresh comes 5 minutes (nothing chosen) after the last.
        const double last = store->lastRefresh();
        for (const double after : { 299.999, 300.0 }) {
            *f.t.clock = last + after;
            store->tick();
            settle(*store);
            QCOMPARE(store->now(), *f.t.clock);
        }
        QCOMPARE(f.calls[0], 3);
        QTRY_COMPARE(store->updateAvailable()->version, "3");
    }

    void feedIsJudged_data() { addRows(kFeeds); }
    void feedIsJudged()
    {
        QFETCH(QString, row);
        const QString v = UpdateChecker::currentVersion(), notes = row.section('|', 2);
        TestEnv t(kNow);
        const QString body = row.section('|', 1, 1).replace("%1", v + ".1").replace("%2", v);
        t.peer.on("GET", "/api/version.json", answer(row.section('|', 0, 0).toInt(), body.toUtf8()));
        const auto info = UpdateChecker::checkIfDue(t.env);
        QCOMPARE(info.has_value(), !notes.isEmpty() && notes != "!");
        if (info)
            QCOMPARE(*info,
                (UpdateInfo { v + ".1", QUrl(kUrl), notes == "-" ? std::nullopt : std::optional(notes) }));
        // Asked again only more than a day after the last good read.
        for (const double later : { 86400.0, 0.001 }) {
            *t.clock += later;
            UpdateChecker::checkIfDue(t.env);
        }
        QCOMPARE(t.defaults->lastUpdateCheck(), notes == "!" ? 0.0 : kNow + 86400.001);
        QCOMPARE(t.peer.requests("GET", "/api/version.json").size(), notes == "!" ? 3 : 2);
    }
};

int main(int argc, char** argv)
{
    limitra::test::rerunInPrivateMountNamespace(argc, argv);
    QCoreApplication app(argc, argv);
    TestCore test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_core.moc"
