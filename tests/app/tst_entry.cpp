#include "app/CheckReport.h"
#include "app/Entry.h"
#include "store/UsageJson.h"
#include "support/TestEnv.h"

#include <QTest>

using namespace limitra;
using namespace limitra::test;

constexpr double kNow = 1740830400.0; // 2025-03-01T12:00:00Z

class TestEntry : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void argumentsChooseTheMode_data()
    {
        QTest::addColumn<QString>("arguments"); // split at spaces, the program path first
        QTest::addColumn<QString>("expected"); // the mode, then the snapshot path
        const char* const cases[][3] = { { "nothing", "limitra", "app " },
            { "check wins over snapshot", "limitra --snapshot a.png --check", "check " },
            { "check as the program path", "--check", "check " },
            { "snapshot takes the next element", "l -v --snapshot --snapshot b", "snapshot --snapshot" },
            { "snapshot last", "limitra a.png --snapshot", "app " },
            { "exact spellings only", "limitra --CHECK --check=1 --snapshot=a.png --JSON -h", "app " },
            { "check wins over json", "limitra --json --check", "check " },
            { "fetch of a service, then json", "limitra --json --fetch codex --fetch", "fetch codex" },
            { "fetch of no service", "limitra --fetch --json --fetch claude", "json " },
            { "json, then watch", "limitra --version --help --watch --json", "json " },
            { "watch, then help", "limitra --snapshot a.png --version --help --watch", "watch " },
            { "help, then version", "limitra --version --snapshot a.png --help", "help " },
            { "version over snapshot", "limitra --snapshot a.png --version", "version " } };
        for (const auto& c : cases)
            QTest::newRow(c[0]) << QString::fromUtf8(c[1]) << QString::fromUtf8(c[2]);
    }
    void argumentsChooseTheMode()
    {
        QFETCH(QString, arguments);
        QFETCH(QString, expected);
        const Entry::Choice choice = Entry::choose(arguments.split(u' '));
        const char* const modes[] = { "check ", "snapshot ", "app ", "json ", "watch ", "help ", "version ", "fetch " };
        QCOMPARE(modes[int(choice.mode)] + choice.argument, expected);
    }

    void reportLines_data()
    {
        QTest::addColumn<ServiceUsage>("claude");
        QTest::addColumn<ServiceUsage>("codex");
        QTest::addColumn<QString>("expected");
        QTest::newRow("no plan, errors")
            << usage({}, {}, "e1") << usage({}, {}, "%n%")
            << "== Claude Code [sin plan] ==\n  ERROR: e1\n== Codex [sin plan] ==\n  ERROR: %n%";
        QTest::newRow("rows after the error, in order, printf rounding")
            << usage({ row("B", 12.5), row("A", 0.5), row("C", 99.6), row("D", -20), row("E", 1e20) }, {},
                   "HTTP 503", "Max")
            << usage({ row("Z", 130, kNow + 7 * 60 + 30) }, {}, {}, "%1 %s")
            << "== Claude Code [Max] ==\n  ERROR: HTTP 503\n"
               "  B — 12% usado (88% restante)\n  A — 0% usado (100% restante)\n"
               "  C — 100% usado (0% restante)\n  D — -20% usado (100% restante)\n"
               "  E — 100000000000000000000% usado (0% restante)\n"
               "== Codex [%1 %s] ==\n  Z — 130% usado (0% restante) · se reinicia en 7m";
        QTest::newRow("reset, then detail")
            << usage({ row("Créditos", 24.68, {}, "$12.34 / $50.00 USD"),
                   row("Mixta", 50, kNow + 14879, "nota") })
            << usage({ row("100% %d", 40, kNow + 274834) }, {}, {}, "Plus")
            << "== Claude Code [sin plan] ==\n  Créditos — 25% usado (75% restante) · $12.34 / $50.00 USD\n"
               "  Mixta — 50% usado (50% restante) · se reinicia en 4h 7m · nota\n"
               "== Codex [Plus] ==\n  100% %d — 40% usado (60% restante) · se reinicia en 3d 4h";
    }
    void reportLines()
    {
        QFETCH(ServiceUsage, claude);
        QFETCH(ServiceUsage, codex);
        QFETCH(QString, expected);
        QCOMPARE(CheckReport::lines(claude, codex, kNow).join(u'\n'), expected);
        // The tray hands its records to the watch mode in --json's document: nothing may be lost.
        QCOMPARE(UsageJson::parse(UsageJson::document(claude, codex, kNow)), std::pair(claude, codex));
    }
};

QTEST_GUILESS_MAIN(TestEntry)
#include "tst_entry.moc"
