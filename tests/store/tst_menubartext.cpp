#include "store/MenuBarText.h"

#include <QtTest>

using namespace limitra;

namespace {
// "84.4r" is a row with 84.4 % left and a reset moment; "30" one without.
ServiceUsage usage(const QStringList& rows)
{
    ServiceUsage u;
    for (const QString& spec : rows) {
        LimitRow row;
        QString number = spec;
        if (number.endsWith('r')) {
            number.chop(1);
            row.resetsAt = 1'700'000'000;
        }
        row.usedPercent = 100.0 - number.toDouble();
        u.rows.append(row);
    }
    return u;
}
} // namespace

class TestMenuBarText : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void composesEveryStyleAndMode_data()
    {
        QTest::addColumn<QString>("style");
        QTest::addColumn<QString>("mode");
        QTest::addColumn<bool>("showClaude");
        QTest::addColumn<bool>("showCodex");
        QTest::addColumn<QStringList>("claude");
        QTest::addColumn<QStringList>("codex");
        QTest::addColumn<QString>("expected");

        const QString percents = "iconAndPercents";
        QTest::newRow("lowest row per service, codex empty")
            << percents << "remaining" << true << true << QStringList { "84.4r", "30r" } << QStringList {}
            << QString::fromUtf8("C 30% · X –");
        QTest::newRow("used mode") << percents << "used" << true << true << QStringList { "84.4r", "30r" }
                                   << QStringList {} << QString::fromUtf8("C 70% · X –");
        QTest::newRow("both with data") << percents << "remaining" << true << true << QStringList { "84r" }
                                        << QStringList { "61r" } << QString::fromUtf8("C 84% · X 61%");
        QTest::newRow("half rounds up when left") << percents << "remaining" << true << false
                                                  << QStringList { "0.5r" } << QStringList {} << "C 1%";
        QTest::newRow("half rounds up when used") << percents << "used" << true << false
                                                  << QStringList { "0.5r" } << QStringList {} << "C 100%";
        QTest::newRow("row without reset ignored") << percents << "remaining" << true << false
                                                   << QStringList { "40" } << QStringList {}
                                                   << QString::fromUtf8("C –");
        QTest::newRow("claude hidden, codex without data")
            << percents << "remaining" << false << true << QStringList { "10r" } << QStringList {}
            << QString::fromUtf8("X –");
        QTest::newRow("both hidden") << percents << "remaining" << false << false << QStringList { "10r" }
                                     << QStringList { "10r" } << QString();
        QTest::newRow("over-used row counts as nothing left")
            << percents << "remaining" << true << true << QStringList { "-30r" } << QStringList { "110r" }
            << QString::fromUtf8("C 0% · X 100%");
        QTest::newRow("unknown style reads as percents")
            << "IconOnly" << "remaining" << true << true << QStringList { "50r" } << QStringList { "20r" }
            << QString::fromUtf8("C 50% · X 20%");
        QTest::newRow("unknown mode reads as remaining")
            << percents << "Used" << true << false << QStringList { "50.5r" } << QStringList {} << "C 51%";

        QTest::newRow("worst across services") << "iconAndWorst" << "remaining" << true << true
                                               << QStringList { "40r" } << QStringList { "25r" } << "25%";
        QTest::newRow("worst in used mode") << "iconAndWorst" << "used" << true << true
                                            << QStringList { "40r" } << QStringList { "12r" } << "88%";
        QTest::newRow("worst skips hidden service") << "iconAndWorst" << "remaining" << true << false
                                                    << QStringList { "40r" } << QStringList { "25r" } << "40%";
        QTest::newRow("worst without data") << "iconAndWorst" << "remaining" << true << true
                                            << QStringList { "40" } << QStringList {} << QString();

        QTest::newRow("icon only") << "iconOnly" << "remaining" << true << true << QStringList { "40r" }
                                   << QStringList { "25r" } << QString();
    }

    void composesEveryStyleAndMode()
    {
        QFETCH(QString, style);
        QFETCH(QString, mode);
        QFETCH(bool, showClaude);
        QFETCH(bool, showCodex);
        QFETCH(QStringList, claude);
        QFETCH(QStringList, codex);
        QFETCH(QString, expected);
        QCOMPARE(MenuBarText::compose(usage(claude), usage(codex), showClaude, showCodex, style, mode), expected);
    }

    void failedRecordIsJudgedByItsRowsOnly()
    {
        ServiceUsage failed = usage({ "70r" });
        failed.error = QStringLiteral("boom");
        QCOMPARE(MenuBarText::worstLeft(failed), std::optional<double>(70.0));
        failed.rows.clear();
        QCOMPARE(MenuBarText::worstLeft(failed), std::nullopt);
    }
};

QTEST_GUILESS_MAIN(TestMenuBarText)
#include "tst_menubartext.moc"
