#include "model/AppSettings.h"
#include "model/MenuBarStyle.h"
#include "model/PercentMode.h"
#include "platform/Defaults.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <limits>

using namespace limitra;

Q_DECLARE_METATYPE(limitra::PercentMode::Case)

class TestPercentMode : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void shownValueRoundsHalvesAwayFromZero_data()
    {
        QTest::addColumn<PercentMode::Case>("mode");
        QTest::addColumn<double>("left");
        QTest::addColumn<int>("expected");
        QTest::newRow("remaining 84.5") << PercentMode::Remaining << 84.5 << 85;
        QTest::newRow("used 84.5") << PercentMode::Used << 84.5 << 16;
        QTest::newRow("remaining 0.4") << PercentMode::Remaining << 0.4 << 0;
        QTest::newRow("used 0.4") << PercentMode::Used << 0.4 << 100;
        QTest::newRow("remaining 0.5") << PercentMode::Remaining << 0.5 << 1;
        QTest::newRow("used 99.5") << PercentMode::Used << 99.5 << 1;
        QTest::newRow("remaining 49.49") << PercentMode::Remaining << 49.49 << 49;
        QTest::newRow("used 100") << PercentMode::Used << 100.0 << 0;
        QTest::newRow("NaN") << PercentMode::Remaining << std::numeric_limits<double>::quiet_NaN() << 0;
        QTest::newRow("huge") << PercentMode::Remaining << 1e300 << std::numeric_limits<int>::max();
        QTest::newRow("used, huge") << PercentMode::Used << 1e300 << std::numeric_limits<int>::min();
    }

    void shownValueRoundsHalvesAwayFromZero()
    {
        QFETCH(PercentMode::Case, mode);
        QFETCH(double, left);
        QFETCH(int, expected);
        QCOMPARE(PercentMode { mode }.value(left), expected);
    }

    void casesAreListedInOrderWithTheirRawValues()
    {
        QStringList percentRaw;
        for (const PercentMode& m : PercentMode::allCases()) {
            percentRaw << m.rawValue();
            QCOMPARE(PercentMode::fromRawValue(m.rawValue()), m);
        }
        QCOMPARE(percentRaw, (QStringList { "remaining", "used" }));

        QStringList styleRaw;
        for (const MenuBarStyle& s : MenuBarStyle::allCases()) {
            styleRaw << s.rawValue();
            QCOMPARE(MenuBarStyle::fromRawValue(s.rawValue()), s);
        }
        QCOMPARE(styleRaw, (QStringList { "iconAndPercents", "iconOnly", "iconAndWorst" }));
    }

    // Columns hold the raw value of the case the text names, or "" for none.
    void onlyExactRawValuesNameACase_data()
    {
        QTest::addColumn<QString>("raw");
        QTest::addColumn<QString>("percentMode");
        QTest::addColumn<QString>("menuBarStyle");
        QTest::newRow("used") << "used"
                              << "used"
                              << "";
        QTest::newRow("remaining") << "remaining"
                                   << "remaining"
                                   << "";
        QTest::newRow("iconOnly") << "iconOnly"
                                  << ""
                                  << "iconOnly";
        QTest::newRow("iconAndWorst") << "iconAndWorst"
                                      << ""
                                      << "iconAndWorst";
        QTest::newRow("capitalised") << "Used"
                                     << ""
                                     << "";
        QTest::newRow("upper case") << "ICONONLY"
                                    << ""
                                    << "";
        QTest::newRow("leading space") << " used"
                                       << ""
                                       << "";
        QTest::newRow("trailing space") << "iconOnly "
                                        << ""
                                        << "";
        QTest::newRow("empty") << ""
                               << ""
                               << "";
    }

    void onlyExactRawValuesNameACase()
    {
        QFETCH(QString, raw);
        QFETCH(QString, percentMode);
        QFETCH(QString, menuBarStyle);
        const auto mode = PercentMode::fromRawValue(raw);
        QCOMPARE(mode ? mode->rawValue() : QString(), percentMode);
        const auto style = MenuBarStyle::fromRawValue(raw);
        QCOMPARE(style ? style->rawValue() : QString(), menuBarStyle);
    }

    // The settings file may have been edited by hand; only "used" means used.
    void storedPercentModeReadsAsRemainingUnlessExactlyUsed_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<bool>("used");
        QTest::newRow("absent") << QByteArray() << false;
        QTest::newRow("used") << QByteArray("percentMode=used") << true;
        QTest::newRow("spaces around") << QByteArray("percentMode = used ") << true;
        QTest::newRow("remaining") << QByteArray("percentMode=remaining") << false;
        QTest::newRow("capitalised") << QByteArray("percentMode=Used") << false;
        QTest::newRow("upper case") << QByteArray("percentMode=USED") << false;
        QTest::newRow("quoted space") << QByteArray("percentMode=\" used\"") << false;
        QTest::newRow("list") << QByteArray("percentMode=used, used") << false;
        QTest::newRow("number") << QByteArray("percentMode=1") << false;
        QTest::newRow("empty") << QByteArray("percentMode=") << false;
    }

    void storedPercentModeReadsAsRemainingUnlessExactlyUsed()
    {
        QFETCH(QByteArray, line);
        QFETCH(bool, used);
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const QString path = dir.filePath("limitra.conf");
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("[General]\nshowClaude=true\n" + line + "\n");
        file.close();

        const platform::Defaults defaults(path);
        const PercentMode expected { used ? PercentMode::Used : PercentMode::Remaining };
        QCOMPARE(AppSettings::percentMode(defaults), expected);
    }
};

QTEST_GUILESS_MAIN(TestPercentMode)
#include "tst_percentmode.moc"
