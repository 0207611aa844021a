#include "platform/Defaults.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <limits>
#include <memory>

using limitra::platform::Defaults;

namespace {
QVariant read(const Defaults& d, const QString& reader)
{
    if (reader == "showClaude")
        return d.showClaude();
    if (reader == "showCodex")
        return d.showCodex();
    if (reader == "refreshIntervalMinutes")
        return d.refreshIntervalMinutes();
    if (reader == "effectiveRefreshIntervalMinutes")
        return d.effectiveRefreshIntervalMinutes();
    if (reader == "menuBarStyle")
        return d.menuBarStyle();
    if (reader == "percentMode")
        return d.percentMode();
    if (reader == "hasShownWelcome")
        return d.hasShownWelcome();
    if (reader == "lastUpdateCheck")
        return d.lastUpdateCheck();
    return {};
}

const QStringList kKeys { "showClaude", "showCodex", "refreshIntervalMinutes", "menuBarStyle", "percentMode",
    "hasShownWelcome", "lastUpdateCheck" };
} // namespace

class TestDefaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // A settings file edited by hand or by an older version: each reader applies
    // its default to absent and wrong-typed values.
    void storedValuesAreReadWithTheirDefaults_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<QString>("reader");
        QTest::addColumn<QVariant>("expected");
        const int maxInt = std::numeric_limits<int>::max();

        QTest::newRow("showClaude absent") << QByteArray() << "showClaude" << QVariant(true);
        QTest::newRow("showClaude false")
            << QByteArray("showClaude=false") << "showClaude" << QVariant(false);
        QTest::newRow("showClaude 0") << QByteArray("showClaude=0") << "showClaude" << QVariant(true);
        QTest::newRow("showClaude off") << QByteArray("showClaude=off") << "showClaude" << QVariant(true);
        QTest::newRow("showCodex false") << QByteArray("showCodex=false") << "showCodex" << QVariant(false);
        QTest::newRow("showCodex list")
            << QByteArray("showCodex=false, false") << "showCodex" << QVariant(true);

        QTest::newRow("interval absent") << QByteArray() << "refreshIntervalMinutes" << QVariant(5);
        QTest::newRow("interval 3, not offered")
            << QByteArray("refreshIntervalMinutes=3") << "effectiveRefreshIntervalMinutes" << QVariant(3);
        QTest::newRow("interval 0 shown")
            << QByteArray("refreshIntervalMinutes=0") << "refreshIntervalMinutes" << QVariant(0);
        QTest::newRow("interval 0 used as 5")
            << QByteArray("refreshIntervalMinutes=0") << "effectiveRefreshIntervalMinutes" << QVariant(5);
        QTest::newRow("interval negative used as 5")
            << QByteArray("refreshIntervalMinutes=-3") << "effectiveRefreshIntervalMinutes" << QVariant(5);
        QTest::newRow("interval fraction truncated")
            << QByteArray("refreshIntervalMinutes=2.7") << "refreshIntervalMinutes" << QVariant(2);
        QTest::newRow("interval text")
            << QByteArray("refreshIntervalMinutes=often") << "refreshIntervalMinutes" << QVariant(5);
        QTest::newRow("interval boolean")
            << QByteArray("refreshIntervalMinutes=true") << "effectiveRefreshIntervalMinutes" << QVariant(5);
        QTest::newRow("interval huge") << QByteArray("refreshIntervalMinutes=1e12")
                                       << "effectiveRefreshIntervalMinutes" << QVariant(maxInt);
        QTest::newRow("interval not finite")
            << QByteArray("refreshIntervalMinutes=inf") << "effectiveRefreshIntervalMinutes" << QVariant(5);

        QTest::newRow("style raw") << QByteArray("menuBarStyle=iconOnly") << "menuBarStyle"
                                   << QVariant("iconOnly");
        QTest::newRow("style unknown kept raw")
            << QByteArray("menuBarStyle=Bars") << "menuBarStyle" << QVariant("Bars");
        QTest::newRow("style list") << QByteArray("menuBarStyle=iconOnly, iconAndWorst") << "menuBarStyle"
                                    << QVariant("iconAndPercents");

        QTest::newRow("welcome true")
            << QByteArray("hasShownWelcome=true") << "hasShownWelcome" << QVariant(true);
        QTest::newRow("welcome yes") << QByteArray("hasShownWelcome=yes") << "hasShownWelcome"
                                     << QVariant(false);

        QTest::newRow("stamp absent") << QByteArray() << "lastUpdateCheck" << QVariant(0.0);
        QTest::newRow("stamp fraction")
            << QByteArray("lastUpdateCheck=1740832496.789") << "lastUpdateCheck" << QVariant(1740832496.789);
        QTest::newRow("stamp text") << QByteArray("lastUpdateCheck=never") << "lastUpdateCheck"
                                    << QVariant(0.0);
        QTest::newRow("stamp nan") << QByteArray("lastUpdateCheck=nan") << "lastUpdateCheck" << QVariant(0.0);
        QTest::newRow("stamp boolean")
            << QByteArray("lastUpdateCheck=true") << "lastUpdateCheck" << QVariant(0.0);
    }

    void storedValuesAreReadWithTheirDefaults()
    {
        QFETCH(QByteArray, line);
        QFETCH(QString, reader);
        QFETCH(QVariant, expected);
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const QString path = dir.filePath("limitra.conf");
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("[General]\n" + line + "\n");
        file.close();

        const Defaults defaults(path);
        QCOMPARE(read(defaults, reader), expected);
    }

    void writtenValuesSurviveARestart()
    {
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const QString path = dir.filePath("limitra.conf");
        {
            Defaults d(path);
            d.setShowClaude(false);
            d.setShowCodex(false);
            d.setRefreshIntervalMinutes(30);
            d.setMenuBarStyle("iconAndWorst");
            d.setPercentMode("used");
            d.setHasShownWelcome(true);
            d.setLastUpdateCheck(1740832496.789123);
        }
        const Defaults d(path);
        QCOMPARE(d.showClaude(), false);
        QCOMPARE(d.showCodex(), false);
        QCOMPARE(d.refreshIntervalMinutes(), 30);
        QCOMPARE(d.menuBarStyle(), QStringLiteral("iconAndWorst"));
        QCOMPARE(d.percentMode(), QStringLiteral("used"));
        QCOMPARE(d.hasShownWelcome(), true);
        QCOMPARE(d.lastUpdateCheck(), 1740832496.789123);
    }

    void eachKeySignalsOnlyItsOwnChange_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariant>("value");
        QTest::newRow("showClaude") << "showClaude" << QVariant(false);
        QTest::newRow("showCodex") << "showCodex" << QVariant(false);
        QTest::newRow("refreshIntervalMinutes") << "refreshIntervalMinutes" << QVariant(15);
        QTest::newRow("menuBarStyle") << "menuBarStyle" << QVariant("iconOnly");
        QTest::newRow("percentMode") << "percentMode" << QVariant("used");
        QTest::newRow("hasShownWelcome") << "hasShownWelcome" << QVariant(true);
        QTest::newRow("lastUpdateCheck") << "lastUpdateCheck" << QVariant(1740832496.5);
    }

    void eachKeySignalsOnlyItsOwnChange()
    {
        QFETCH(QString, key);
        QFETCH(QVariant, value);
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
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
};

QTEST_GUILESS_MAIN(TestDefaults)
#include "tst_defaults.moc"
