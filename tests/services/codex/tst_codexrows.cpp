#include "CodexTestKit.h"

#include "services/codex/CodexProvider.h"

#include <QJsonDocument>
#include <QTest>

using namespace limitra;
using test::codexRow;
using test::kCodexNow;

class TestCodexRows : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void titleFollowsWindowLength_data();
    void titleFollowsWindowLength();
    void rowsFromAnswer_data();
    void rowsFromAnswer();
};

void TestCodexRows::titleFollowsWindowLength_data()
{
    QTest::addColumn<QByteArray>("length"); // the JSON value of "limit_window_seconds"; empty: no member
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("title");

    const QString primary = QStringLiteral("primary_window");
    const QString secondary = QStringLiteral("secondary_window");
    QTest::newRow("half a second") << QByteArray("0.5") << primary << QStringLiteral("Sesión de 5 h");
    QTest::newRow("five hours") << QByteArray("18000") << secondary << QStringLiteral("Sesión de 5 h");
    QTest::newRow("six hours exactly") << QByteArray("21600") << primary << QStringLiteral("Sesión de 5 h");
    QTest::newRow("just over six hours")
        << QByteArray("21600.5") << primary << QStringLiteral("Ventana de 6 h");
    QTest::newRow("21601") << QByteArray("21601") << primary << QStringLiteral("Ventana de 6 h");
    QTest::newRow("eight hours") << QByteArray("28800") << primary << QStringLiteral("Ventana de 8 h");
    QTest::newRow("hours truncated") << QByteArray("30000") << secondary << QStringLiteral("Ventana de 8 h");
    QTest::newRow("one day") << QByteArray("86400") << primary << QStringLiteral("Ventana de 24 h");
    QTest::newRow("just under six days")
        << QByteArray("518399") << primary << QStringLiteral("Ventana de 143 h");
    QTest::newRow("six days exactly") << QByteArray("518400") << primary << QStringLiteral("Semanal");
    QTest::newRow("a week") << QByteArray("604800") << secondary << QStringLiteral("Semanal");
    QTest::newRow("huge") << QByteArray("1e300") << primary << QStringLiteral("Semanal");
    QTest::newRow("zero, primary") << QByteArray("0") << primary << QStringLiteral("Ventana principal");
    QTest::newRow("zero, secondary") << QByteArray("0") << secondary << QStringLiteral("Ventana secundaria");
    QTest::newRow("negative") << QByteArray("-3600") << primary << QStringLiteral("Ventana principal");
    QTest::newRow("missing") << QByteArray() << secondary << QStringLiteral("Ventana secundaria");
    QTest::newRow("string") << QByteArray("\"18000\"") << primary << QStringLiteral("Ventana principal");
    QTest::newRow("null") << QByteArray("null") << secondary << QStringLiteral("Ventana secundaria");
}

void TestCodexRows::titleFollowsWindowLength()
{
    QFETCH(QByteArray, length);
    QFETCH(QString, key);
    QFETCH(QString, title);

    const QByteArray window = length.isEmpty() ? "{}" : "{\"limit_window_seconds\":" + length + "}";
    const QByteArray json = "{\"rate_limit\":{\"" + key.toUtf8() + "\":" + window + "}}";
    const QList<LimitRow> rows = CodexProvider::parseRows(QJsonDocument::fromJson(json).object(), kCodexNow);
    QCOMPARE(rows.size(), 1);
    QCOMPARE(rows.first().title, title);
    QCOMPARE(rows.first().id, QStringLiteral("codex-") + key);
}

void TestCodexRows::rowsFromAnswer_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<QList<LimitRow>>("expected");

    QTest::newRow("both windows, each reset form")
        << QByteArray(R"({"rate_limit":{"secondary_window":{"used_percent":7,"limit_window_seconds":604800,)"
                      R"("reset_after_seconds":86400},"primary_window":{"used_percent":42.5,)"
                      R"("limit_window_seconds":18000,"reset_at":1740840000.25}}})")
        << QList<LimitRow> { codexRow("primary_window", "Sesión de 5 h", 42.5, 1740840000.25),
               codexRow("secondary_window", "Semanal", 7, kCodexNow + 86400) };
    QTest::newRow("reset_at wins over reset_after_seconds")
        << QByteArray(R"({"rate_limit":{"primary_window":{"reset_at":0,"reset_after_seconds":5}}})")
        << QList<LimitRow> { codexRow("primary_window", "Ventana principal", 0, 0.0) };
    QTest::newRow("reset_at of the wrong type falls back")
        << QByteArray(R"({"rate_limit":{"primary_window":{"reset_at":"soon","reset_after_seconds":30.5}}})")
        << QList<LimitRow> { codexRow("primary_window", "Ventana principal", 0, kCodexNow + 30.5) };
    QTest::newRow("no usable reset") << QByteArray(
        R"({"rate_limit":{"primary_window":{"reset_at":null,"reset_after_seconds":"1"}}})")
                                     << QList<LimitRow> { codexRow(
                                            "primary_window", "Ventana principal", 0) };
    QTest::newRow("percentages pass unclamped")
        << QByteArray(R"({"rate_limit":{"primary_window":{"used_percent":120},
                                         "secondary_window":{"used_percent":-5}}})")
        << QList<LimitRow> { codexRow("primary_window", "Ventana principal", 120),
               codexRow("secondary_window", "Ventana secundaria", -5) };
    QTest::newRow("percentage as a string counts as 0")
        << QByteArray(R"({"rate_limit":{"secondary_window":{"used_percent":"50"}}})")
        << QList<LimitRow> { codexRow("secondary_window", "Ventana secundaria", 0) };
    QTest::newRow("primary not an object")
        << QByteArray(R"({"rate_limit":{"primary_window":[1],"secondary_window":{"used_percent":3}}})")
        << QList<LimitRow> { codexRow("secondary_window", "Ventana secundaria", 3) };
    QTest::newRow("no windows") << QByteArray(R"({"rate_limit":{"tertiary_window":{}}})")
                                << QList<LimitRow> {};
    QTest::newRow("rate_limit not an object")
        << QByteArray(R"({"rate_limit":[{"primary_window":{}}]})") << QList<LimitRow> {};
    QTest::newRow("no rate_limit") << QByteArray(R"({"primary_window":{}})") << QList<LimitRow> {};
}

void TestCodexRows::rowsFromAnswer()
{
    QFETCH(QByteArray, answer);
    QFETCH(QList<LimitRow>, expected);

    QJsonParseError error {};
    const QJsonObject object = QJsonDocument::fromJson(answer, &error).object();
    QCOMPARE(error.error, QJsonParseError::NoError);
    QCOMPARE(test::describe(CodexProvider::parseRows(object, kCodexNow)), test::describe(expected));
}

QTEST_GUILESS_MAIN(TestCodexRows)
#include "tst_codexrows.moc"
