// The unmodified binary as a user without a desktop session runs it, against a TLS peer for every
// production host (sandbox.sh): each journey of journeys.txt is a row (see its header).
#include "model/FormatUtil.h"
#include "support/TestEnv.h"

#include <QDateTime>
#include <QDeadlineTimer>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <filesystem>

#include <csignal>
#include <cstdio>

using namespace limitra::test;
using namespace Qt::StringLiterals;

namespace {
const QRegularExpression kMoment(QStringLiteral(R"(\{(iso|ms|sec)([:~])(-?\d+)\})"));

// {iso:N}, {ms:N} and {sec:N} become the moment N seconds after `at`.
QByteArray timed(const QString& text, double at)
{
    QString result;
    qsizetype done = 0;
    for (auto it = kMoment.globalMatch(text); it.hasNext();) {
        const auto m = it.next();
        const double moment = at + m.captured(3).toDouble();
        result += text.mid(done, m.capturedStart() - done);
        if (m.captured(2) == u"~")
            result += m.captured();
        else if (m.captured(1) == u"iso")
            result
                += QDateTime::fromMSecsSinceEpoch(qint64(moment * 1000), Qt::UTC).toString(Qt::ISODateWithMs);
        else
            result += m.captured(1) == u"ms" ? QString::number(qint64(moment * 1000))
                                             : QString::number(moment, 'f', 3);
        done = m.capturedEnd();
    }
    return (result + text.mid(done)).toUtf8();
}

// Whether `text` is the template with each {iso~N}, {ms~N} and {sec~N} a moment N
// seconds after some instant between `from` and `to`.
bool matches(const QString& pattern, const QString& text, double from, double to)
{
    QString regex;
    QList<QRegularExpressionMatch> slots;
    qsizetype done = 0;
    for (auto it = kMoment.globalMatch(pattern); it.hasNext(); done = slots.last().capturedEnd()) {
        slots.append(it.next());
        regex += QRegularExpression::escape(pattern.mid(done, slots.last().capturedStart() - done))
            + u"(.+?)"_s;
    }
    const auto found = QRegularExpression(
        QRegularExpression::anchoredPattern(regex + QRegularExpression::escape(pattern.mid(done))))
                           .match(text);
    for (qsizetype i = 0; found.hasMatch() && i < slots.size(); ++i) {
        const bool iso = slots[i].captured(1) == u"iso";
        const QString value = found.captured(int(i) + 1);
        const double at = iso
            ? double(QDateTime::fromString(value, Qt::ISODateWithMs).toMSecsSinceEpoch()) / 1000
            : value.toDouble() / (slots[i].captured(1) == u"ms" ? 1000 : 1);
        const double offset = slots[i].captured(3).toDouble();
        if (!(at >= from + offset - 1 && at <= to + offset + 1) || (iso && !value.endsWith(u'Z')))
            return false;
    }
    return found.hasMatch();
}

// Full-width bands of one colour, at least 48 px tall, told apart from the background at both
// edges of the content: C for a card, B for the blue update banner, top to bottom.
QString bands(const QImage& image)
{
    QString found;
    const QRgb background = image.pixel(0, 0);
    for (int y = 0, length = 0; y <= image.height(); ++y) {
        const QRgb colour = y > 0 ? image.pixel(40, y - 1) : background;
        const QRgb left = y < image.height() ? image.pixel(40, y) : background;
        const bool inside = left != background && left == image.pixel(image.width() - 41, y);
        if (inside && (length == 0 || left == colour)) {
            ++length;
            continue;
        }
        if (length >= 48)
            found += qBlue(colour) - qRed(colour) > 80 ? u'B' : u'C';
        length = inside ? 1 : 0;
    }
    return found.isEmpty() ? u"none"_s : found;
}

// --json's document as --check would print it, so that both modes share the expected lines. Each
// moment must agree with the seconds beside it and fall within the run (`from` to `to`).
QStringList asReport(const QByteArray& json, double from, double to)
{
    QStringList lines;
    const auto within = [&](const QJsonValue& iso, qint64 offset) {
        return matches(u"{iso~%1}"_s.arg(offset), iso.toString(), from, to);
    };
    for (const QJsonValue& value : QJsonDocument::fromJson(json).object().value(u"services").toArray()) {
        const QJsonObject service = value.toObject();
        const QJsonValue plan = service[u"plan"], error = service[u"error"], updated = service[u"updatedAt"];
        lines << u"== "_s + service[u"name"].toString() + u" ["_s
                + (plan.isNull() ? u"sin plan"_s : plan.toString()) + u"] =="_s;
        if (!error.isNull())
            lines << u"  ERROR: "_s + error.toString();
        if (updated.isNull() == error.isNull() || (!updated.isNull() && !within(updated, 0)))
            return { u"bad updatedAt: "_s + QString::fromUtf8(json) };
        for (const QJsonValue& r : service[u"rows"].toArray()) {
            const QJsonObject row = r.toObject();
            char numbers[64]; // printf's rounding, as the report's
            std::snprintf(numbers, sizeof numbers, "%.0f%% usado (%.0f%% restante)",
                row[u"usedPercent"].toDouble(), row[u"leftPercent"].toDouble());
            QString line = u"  "_s + row[u"title"].toString() + u" — "_s + QString::fromLatin1(numbers);
            if (!row[u"resetsAt"].isNull()) {
                const qint64 seconds = row[u"resetsInSeconds"].toInteger(-1);
                if (seconds < 0 || (!within(row[u"resetsAt"], seconds) && seconds > 0))
                    return { u"bad reset: "_s + QString::fromUtf8(json) };
                line += u" · se reinicia en "_s + limitra::FormatUtil::countdown(double(seconds), 0);
            }
            if (!row[u"detail"].isNull())
                line += u" · "_s + row[u"detail"].toString();
            lines << line;
        }
    }
    return lines;
}
} // namespace

class TestJourneys : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void journey_data();
    void journey();
    void watchFollowsSignalsSettingsAndTheTray();
};

// Each row holds the lines of one journey, "$NAME" lines already replaced.
void TestJourneys::journey_data()
{
    QTest::addColumn<QStringList>("lines");
    QFile table(QStringLiteral(JOURNEYS));
    QVERIFY(table.open(QIODevice::ReadOnly | QIODevice::Text));
    QStringList lines = QString::fromUtf8(table.readAll()).split(u'\n');
    QMap<QString, QStringList> blocks;
    for (qsizetype i = 0; i < lines.size(); ++i) {
        if (lines[i].startsWith(u"def "_s)) {
            const qsizetype end = lines.indexOf(u"end"_s, i);
            blocks[lines[i].mid(4)] = lines.mid(i + 1, end - i - 1);
            lines.remove(i, end - i + 1);
            --i;
        } else if (lines[i].startsWith(u'$')) {
            QVERIFY2(blocks.contains(lines[i].mid(1)), qPrintable(lines[i]));
            lines = lines.mid(0, i) + blocks[lines[i].mid(1)] + lines.mid(i + 1);
            --i;
        }
    }
    for (qsizetype i = lines.indexOf(QRegularExpression(u"journey .*"_s)); i >= 0;) {
        const qsizetype next = lines.indexOf(QRegularExpression(u"journey .*"_s), i + 1);
        QTest::newRow(qPrintable(lines[i].mid(8))) << lines.mid(i + 1, next < 0 ? -1 : next - i - 1);
        i = next;
    }
}

void TestJourneys::journey()
{
    QFETCH(QStringList, lines);
    QTemporaryDir home;
    QVERIFY(home.isValid());
    // The rest of every line that starts with `word`, "{home}" replaced and "\n" unescaped.
    const auto all = [&](const QString& word) {
        QStringList texts;
        for (const QString& line : std::as_const(lines))
            if (line.section(u' ', 0, 0) == word)
                texts.append(
                    line.section(u' ', 1).replace(u"{home}"_s, home.path()).replace(u"\\n"_s, u"\n"_s));
        return texts;
    };
    const auto first
        = [&](const QString& word) { return all(word).value(0).split(u' ', Qt::SkipEmptyParts); };
    const QString key = QString::fromLatin1(all(u"rogue"_s).isEmpty() ? "LIMITRA_PEER_" : "LIMITRA_ROGUE_");
    FakePeer peer(qEnvironmentVariable(qPrintable(key + u"CERT"_s)),
        qEnvironmentVariable(qPrintable(key + u"KEY"_s)), 443);
    QVERIFY2(peer.isListening(), "no TLS peer on 127.0.0.1:443: run the test through sandbox.sh");

    const double start = QDateTime::currentMSecsSinceEpoch() / 1000.0;
    QMap<QString, QString> expected, before; // file -> its content now: as before unless given after
    for (const QString& f : all(u"file"_s)) {
        QVERIFY(writeFile(home.filePath(f.section(u' ', 0, 0)), timed(f.section(u' ', 1), start)));
        expected[f.section(u' ', 0, 0)] = before[f.section(u' ', 0, 0)] = f.section(u' ', 1);
    }
    QMap<QString, QList<PeerAnswer>> scripts;
    for (const QString& s : all(u"serve"_s)) {
        const QStringList w = s.split(u' ');
        PeerAnswer& a = scripts[s.section(u' ', 0, 2)].emplace_back(
            answer(w[3] == u"drop" ? kDrop : w[3].toInt(), timed(s.section(u' ', 4), start)));
        a.delay = std::chrono::milliseconds(first(u"delay"_s).value(0).toInt());
        peer.onSequence(s.section(u' ', 0, 1).toUtf8(), w[2].toUtf8(), scripts[s.section(u' ', 0, 2)]);
    }

    QProcessEnvironment environment;
    QStringList variables = all(u"env"_s)
        + QStringList { u"HOME="_s + home.path(), u"LANG=C.UTF-8"_s, u"PATH=/usr/local/bin:/usr/bin:/bin"_s };
    const QStringList maps = first(u"maps"_s);
    if (!maps.isEmpty()) // the dynamic loader lists every object it opens
        variables << u"LD_DEBUG=files"_s << u"LD_DEBUG_OUTPUT="_s + home.filePath(u"ld"_s);
    for (const QString& e : std::as_const(variables))
        environment.insert(e.section(u'=', 0, 0), e.section(u'=', 1));
    for (const char* name : { "ASAN_OPTIONS", "UBSAN_OPTIONS" })
        if (qEnvironmentVariableIsSet(name))
            environment.insert(QString::fromLatin1(name), qEnvironmentVariable(name));
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setWorkingDirectory(home.path());
    process.start(qEnvironmentVariable("LIMITRA_BINARY"), first(u"run"_s));
    const bool ended = process.waitForFinished(first(u"limit"_s).value(0, u"30000"_s).toInt());
    const double end = QDateTime::currentMSecsSinceEpoch() / 1000.0;
    process.kill();
    process.waitForFinished();
    const QByteArray out = process.readAllStandardOutput();
    QVERIFY2(ended && process.exitStatus() == QProcess::NormalExit, "did not end in time");
    QCOMPARE(process.exitCode(), 0);
    QCOMPARE(process.readAllStandardError(), QByteArray());
    QVERIFY2(!out.contains("SECRET-"), out.constData());
    QVERIFY(out.isEmpty() || out.endsWith('\n'));
    QStringList printed = QString::fromUtf8(out).split(u'\n');
    printed.removeLast();
    if (first(u"run"_s).contains(u"--json"))
        printed = asReport(out, start, end);
    QCOMPARE(printed, all(u"out"_s));

    QStringList sent, wanted = all(u"sent"_s);
    for (const auto& r : peer.requests()) {
        const QByteArray authorization = r.hasHeader("authorization") ? ' ' + r.header("authorization") : "";
        sent.append(QString::fromUtf8(
            r.method + ' ' + r.host + ' ' + r.path + authorization + (r.body.isEmpty() ? "" : ' ' + r.body)));
    }
    for (const QString& e : wanted.filter(QRegularExpression(u" \\+$"_s))) {
        QVERIFY2(sent.removeAll(e.chopped(2)) > 0, qPrintable(e)); // "+": asked at least once
        wanted.removeAll(e);
    }
    sent.sort();
    wanted.sort();
    QCOMPARE(sent, wanted);
    if (!all(u"overlap"_s).isEmpty()) { // the second request came while the first was held
        const auto r = peer.requests();
        QVERIFY(r.size() == 2
            && std::max(r[0].arrivedAt, r[1].arrivedAt) < std::min(r[0].answeredAt, r[1].answeredAt));
    }

    if (!maps.isEmpty()) {
        QByteArray loaded;
        for (const QString& name : QDir(home.path()).entryList({ u"ld.*"_s })) {
            loaded += readFile(home.filePath(name));
            QVERIFY(QFile::remove(home.filePath(name)));
        }
        for (const QString& library : maps + first(u"unmapped"_s))
            QVERIFY2(loaded.contains(library.toUtf8()) == maps.contains(library), qPrintable(library));
    }

    // Nothing but the files before and after is left, not even a folder.
    for (const QString& f : all(u"after"_s))
        expected[f.section(u' ', 0, 0)] = f.section(u' ', 1);
    QStringList entries;
    for (const QString& path : expected.keys())
        for (qsizetype i = 0; i < path.size(); ++i)
            if (path[i] == u'/' || i == path.size() - 1)
                entries.append(path.left(i + 1));
    entries.removeDuplicates();
    entries.sort();
    QStringList found;
    QDirIterator it(
        home.path(), QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = QDir(home.path()).relativeFilePath(it.next());
        found.append(it.fileInfo().isDir() ? path + u'/' : path);
    }
    found.sort();
    QCOMPARE(found.join(u' '), entries.join(u' '));
    for (auto it = expected.cbegin(); it != expected.cend(); ++it) {
        const QString path = home.filePath(it.key());
        const QByteArray bytes = readFile(path);
        QImage image;
        if (it.value().startsWith(u"png"_s)) {
            QVERIFY(bytes.startsWith("\x89PNG\r\n\x1a\n") && image.loadFromData(bytes, "PNG"));
            QCOMPARE(image.width(), 720);
            QVERIFY(it.value() == u"png" || bands(image) == it.value().mid(4));
        } else {
            QVERIFY2(
                matches(QString::fromUtf8(timed(it.value(), start)), QString::fromUtf8(bytes), start, end),
                bytes.constData());
            // A rewrite keeps a private file private.
            using std::filesystem::perms;
            if (before.contains(it.key()))
                QCOMPARE(std::filesystem::status(path.toStdString()).permissions() & perms::all,
                    perms::owner_read | perms::owner_write);
        }
    }
}

namespace {
// The next line of a running `limitra --watch` as "text|class|percentage|tooltip"; fields empty when
// no line comes in time.
QString nextLine(QProcess& process, int ms)
{
    QDeadlineTimer deadline(ms);
    while (!process.canReadLine() && !deadline.hasExpired())
        process.waitForReadyRead(int(std::max<qint64>(deadline.remainingTime(), 1)));
    const QJsonObject line
        = QJsonDocument::fromJson(process.canReadLine() ? process.readLine() : "").object();
    return QStringList { line[u"text"].toString(), line[u"class"].toString(),
        QString::number(line[u"percentage"].toInt(-1)), line[u"tooltip"].toString() }
        .join(u'|');
}
} // namespace

// The status bar mode: a line per refresh, SIGUSR1, a settings edit at the next tick, SIGTERM; and
// beside a tray application on the same bus, the tray's records and refreshes, never its own.
void TestJourneys::watchFollowsSignalsSettingsAndTheTray()
{
    QTemporaryDir home;
    const double start = QDateTime::currentMSecsSinceEpoch() / 1000.0;
    QVERIFY(writeFile(home.filePath(u".claude/.credentials.json"_s),
        timed(
            u"{\"claudeAiOauth\":{\"accessToken\":\"SECRET-c\",\"refreshToken\":\"r\",\"expiresAt\":{ms:28800}}}"_s,
            start)));
    QVERIFY(writeFile(
        home.filePath(u".codex/auth.json"_s), R"({"tokens":{"access_token":"SECRET-x","account_id":"a"}})"));
    FakePeer peer(qEnvironmentVariable("LIMITRA_PEER_CERT"), qEnvironmentVariable("LIMITRA_PEER_KEY"), 443);
    QVERIFY2(peer.isListening(), "no TLS peer on 127.0.0.1:443: run the test through sandbox.sh");
    const auto claudeAt = [&](int percent) {
        peer.on("GET", "/api/oauth/usage",
            answer(200,
                timed(u"{\"limits\":[{\"kind\":\"session\",\"percent\":%1,\"resets_at\":\"{iso:3659}\"}]}"_s
                          .arg(percent),
                    start)));
    };
    claudeAt(80);
    peer.on("GET", "/backend-api/wham/usage",
        answer(200,
            R"({"rate_limit":{"primary_window":{"used_percent":7,"limit_window_seconds":18000,"reset_after_seconds":11430}}})"));
    const auto fetched = [&] {
        return peer.requests("GET", "/api/oauth/usage").size()
            + peer.requests("GET", "/backend-api/wham/usage").size();
    };
    const auto claude = [](const QString& percent) {
        return u"Claude Code · Sesión de 5 h · %1 · Se reinicia en 1h 0m"_s.arg(percent);
    };
    // A line with both services, after so many requests to the peers.
    const auto both = [&](int requests, int left, const char* band) {
        return u"%1|C %2% · X 93%|%3|%2|"_s.arg(requests).arg(left).arg(band)
            + claude(u"%1 % restante"_s.arg(left))
            + u"\nCodex · Sesión de 5 h · 93 % restante · Se reinicia en 3h 10m"_s;
    };

    QProcessEnvironment environment;
    for (const QString& e : { u"HOME="_s + home.path(), u"LANG=C.UTF-8"_s, u"PATH=/usr/bin:/bin"_s })
        environment.insert(e.section(u'=', 0, 0), e.section(u'=', 1));
    QProcess watch;
    const auto startWatch = [&] {
        watch.setProcessEnvironment(environment);
        watch.start(qEnvironmentVariable("LIMITRA_BINARY"), { u"--watch"_s });
        return watch.waitForStarted();
    };
    // The next line after the signal (0: none), behind the requests the peers have seen by then.
    const auto next = [&](int signal = 0, int ms = 10000) {
        if (signal)
            ::kill(pid_t(watch.processId()), signal);
        const QString line = nextLine(watch, ms);
        return QString::number(fetched()) + u'|' + line;
    };
    QVERIFY(startWatch());
    QCOMPARE(next(), both(2, 20, "warning"));
    QFile maps(u"/proc/%1/maps"_s.arg(watch.processId()));
    QVERIFY(maps.open(QIODevice::ReadOnly));
    const QByteArray mapped = maps.readAll();
    // Fetches run in a child, so nothing of the network stays mapped between refreshes.
    QVERIFY(mapped.contains("limitra-watch.so") && !mapped.contains("libQt6Gui")
        && !mapped.contains("limitra-gui") && !mapped.contains("libcurl") && !mapped.contains("libsecret"));

    claudeAt(95);
    QCOMPARE(next(SIGUSR1), both(4, 5, "critical"));
    QVERIFY(writeFile(home.filePath(u".config/limitra/limitra.conf"_s),
        "[General]\nshowCodex=false\nmenuBarStyle=iconOnly\npercentMode=used\n"));
    const QString used95 = u"95%|critical|5|"_s + claude(u"95 % usado"_s);
    QCOMPARE(next(0, 35000), u"4|"_s + used95);
    QCOMPARE(next(SIGUSR1), u"5|"_s + used95); // a hidden service is not fetched
    QElapsedTimer ending;
    ending.start();
    watch.terminate();
    QVERIFY(watch.waitForFinished(1000) && ending.elapsed() < 1000);
    QCOMPARE(watch.exitCode(), 0);
    QCOMPARE(watch.readAllStandardError(), QByteArray());

    // A tray application on a bus of this test's own.
    QVERIFY(QFile::remove(home.filePath(u".config/limitra/limitra.conf"_s)));
    QProcess bus, tray;
    bus.start(u"dbus-daemon"_s, { u"--session"_s, u"--nofork"_s, u"--print-address"_s });
    QVERIFY(bus.waitForReadyRead(5000));
    environment.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, QString::fromUtf8(bus.readLine().trimmed()));
    QProcessEnvironment trayEnvironment = environment;
    trayEnvironment.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
    tray.setProcessEnvironment(trayEnvironment);
    tray.start(qEnvironmentVariable("LIMITRA_BINARY"), QStringList());
    QTRY_COMPARE_WITH_TIMEOUT(fetched(), 7, 10000);
    QVERIFY(startWatch());
    QString line = next();
    if (line != both(7, 5, "critical")) // the tray was still publishing its first refresh
        line = next();
    QCOMPARE(line, both(7, 5, "critical"));
    claudeAt(80);
    QCOMPARE(next(SIGUSR1), both(9, 20, "warning")); // the tray refreshes, the watch shows its records
    tray.terminate();
    QVERIFY(tray.waitForFinished(5000));
    claudeAt(95);
    QCOMPARE(next(SIGUSR1), both(11, 5, "critical")); // no tray now: the watch fetches itself
    watch.terminate();
    QVERIFY(watch.waitForFinished(1000));
    // A bar that goes away closes the pipe it read, and the watch ends at once (the shell waits for it).
    QProcess bar;
    bar.setProcessEnvironment(environment);
    bar.start(u"timeout"_s, { u"5"_s, u"sh"_s, u"-c"_s, u"\"$0\" --watch | head -n 1"_s, qEnvironmentVariable("LIMITRA_BINARY") });
    QVERIFY(bar.waitForFinished(10000) && bar.exitCode() == 0);
    bus.kill();
    bus.waitForFinished();
}

QTEST_GUILESS_MAIN(TestJourneys)
#include "tst_journeys.moc"
