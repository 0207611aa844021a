#include "PanelHarness.h"

#include "platform/Defaults.h"
#include "store/UsageStore.h"
#include "ui/panel/PanelActions.h"
#include "ui/snapshot/PanelSnapshot.h"
#include "ui/snapshot/SnapshotMode.h"

#include <QDesktopServices>
#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QPalette>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QTest>
#include <QTextStream>

#include <cmath>
#include <limits>

using namespace limitra;
using namespace limitra::test;

namespace {
constexpr double kNow = PanelHarness::kNow;
// 360 wide, less the panel's and the card's padding on both sides.
constexpr double kTrackWidth = 360 - 2 * 16 - 2 * 14;

// A drawn colour as a user names it: the palette's text colour, or red, orange or blue by hue.
QString colourName(const QQuickItem* item)
{
    const QColor colour = item->property("color").value<QColor>();
    if (colour == QGuiApplication::palette().color(QPalette::WindowText))
        return QStringLiteral("primary");
    const int hue = colour.hsvSaturationF() > 0.5 ? colour.hsvHue() : -1;
    if (hue >= 0 && (hue <= 10 || hue >= 350))
        return QStringLiteral("red");
    if (hue >= 25 && hue <= 45)
        return QStringLiteral("orange");
    return hue >= 195 && hue <= 225 ? QStringLiteral("blue") : colour.name();
}

QList<LimitRow> threeRows()
{
    return { row("Sesión (5 h)", 42, kNow + 9000, QStringLiteral("$3.20 de $50.00")), row("Semanal", 80),
        row("Semanal · Opus", 95) };
}

QImage render(PanelHarness& h)
{
    return PanelSnapshot::render(h.panel(), QGuiApplication::palette().color(QPalette::Window));
}

// How many pixels of an item's area in the scale-2 image differ clearly in lightness from `lightness`.
int pixelsAwayFrom(const QImage& image, const QRectF& area, int lightness)
{
    const QRect pixels = QRectF(area.topLeft() * 2, area.size() * 2).toRect();
    int count = 0;
    for (int y = pixels.top(); y <= pixels.bottom(); ++y)
        for (int x = pixels.left(); x <= pixels.right(); ++x)
            count += std::abs(QColor(image.pixel(x, y)).lightness() - lightness) > 60;
    return count;
}
} // namespace

// Receives what the desktop is asked to open.
class UrlRecorder : public QObject
{
    Q_OBJECT

public:
    QList<QUrl> opened;

public Q_SLOTS:
    void open(const QUrl& url) { opened.append(url); }
};

class TestPanel : public QObject
{
    Q_OBJECT

    std::unique_ptr<PanelHarness> h;

    // The snapshot takes the panel as it is, never shown in a window.
    PanelHarness& unshown()
    {
        h.reset();
        h = std::make_unique<PanelHarness>();
        return *h;
    }

    QQuickItem* onlyRow()
    {
        const QList<QQuickItem*> rows = h->findVisible(QStringLiteral("limitRow"));
        return rows.size() == 1 ? rows.first() : nullptr;
    }

private Q_SLOTS:
    void initTestCase() { QQuickWindow::setGraphicsApi(QSGRendererInterface::Software); }
    void init()
    {
        h = std::make_unique<PanelHarness>();
        h->show();
    }
    void cleanup()
    {
        h.reset();
        QGuiApplication::setPalette(QPalette());
    }

    void rowShowsValueColourAndFill_data()
    {
        QTest::addColumn<double>("used");
        QTest::addColumn<QString>("mode");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("textColour");
        QTest::addColumn<QString>("barColour");
        QTest::addColumn<double>("fill");

        QTest::newRow("remaining") << 42.0 << "remaining" << "58 % restante" << "primary" << "blue" << 58.0;
        QTest::newRow("used") << 42.0 << "used" << "42 % usado" << "primary" << "blue" << 42.0;
        QTest::newRow("10 left") << 90.0 << "used" << "90 % usado" << "red" << "red" << 90.0;
        QTest::newRow("25 left") << 75.0 << "remaining" << "25 % restante" << "primary" << "orange" << 25.0;
        QTest::newRow("25.1 left") << 74.9 << "remaining" << "25 % restante" << "primary" << "blue" << 25.1;
        QTest::newRow("over 100") << 120.0 << "remaining" << "0 % restante" << "red" << "red" << 0.0;
        QTest::newRow("half left") << 57.5 << "remaining" << "43 % restante" << "primary" << "blue" << 42.5;
        QTest::newRow("below 0") << -5.0 << "remaining" << "100 % restante" << "primary" << "blue" << 100.0;
        QTest::newRow("not a number") << std::numeric_limits<double>::quiet_NaN() << "used" << "0 % usado"
                                      << "primary" << "blue" << 0.0;
        QTest::newRow("unknown mode") << 42.0 << "Used" << "58 % restante" << "primary" << "blue" << 58.0;
    }

    void rowShowsValueColourAndFill()
    {
        QFETCH(double, used);
        QFETCH(QString, mode);
        QFETCH(QString, text);
        QFETCH(QString, textColour);
        QFETCH(QString, barColour);
        QFETCH(double, fill);

        h->publish(usage({ row("Sesión", used) }, kNow), {});
        // Switching the mode redraws the open panel.
        h->settings().setPercentMode(mode);
        h->settle();

        QVERIFY(onlyRow());
        QQuickItem* percent = h->find("percentText", onlyRow());
        QCOMPARE(textOf(percent), text);
        QCOMPARE(colourName(percent), textColour);
        QQuickItem* track = h->find("barTrack", onlyRow());
        QQuickItem* bar = h->find("barFill", onlyRow());
        QCOMPARE(track->width(), kTrackWidth);
        QCOMPARE(h->rect(bar).topLeft(), h->rect(track).topLeft());
        QCOMPARE(colourName(bar), barColour);
        // An empty fill still shows a 6-wide dot.
        QCOMPARE(bar->width(), std::max(6.0, kTrackWidth * fill / 100));
    }

    void resetAndDetailLine_data()
    {
        QTest::addColumn<LimitRow>("limit");
        QTest::addColumn<QString>("reset");
        QTest::addColumn<QString>("detail");

        QTest::newRow("reset") << row("S", 1, kNow + 12000) << "Se reinicia en 3h 20m" << "";
        QTest::newRow("detail") << row("S", 1, {}, "$12.50 de $50.00") << "" << "$12.50 de $50.00";
        QTest::newRow("both") << row("S", 1, kNow + 200000, "Opus") << "Se reinicia en 2d 7h" << "Opus";
        QTest::newRow("neither") << row("S", 1) << "" << "";
        const QString longDetail = QStringLiteral("Incluye el uso de Opus y Sonnet en todos los proyectos del equipo");
        QTest::newRow("long detail") << row("S", 1, kNow + 12000, longDetail) << "Se reinicia en 3h 20m" << longDetail;
    }

    void resetAndDetailLine()
    {
        QFETCH(LimitRow, limit);
        QFETCH(QString, reset);
        QFETCH(QString, detail);

        h->publish(usage({ limit }, kNow), {});
        QVERIFY(onlyRow());
        QQuickItem* resetText = h->find("resetText", onlyRow());
        QQuickItem* detailText = h->find("detailText", onlyRow());
        QCOMPARE(resetText->isVisible() ? textOf(resetText) : QString(), reset);
        QCOMPARE(h->find("resetIcon", onlyRow())->isVisible(), !reset.isEmpty());
        QCOMPARE(detailText->isVisible() ? textOf(detailText) : QString(), detail);
        if (!reset.isEmpty() && !detail.isEmpty())
            QVERIFY(h->rect(detailText).left() > h->rect(resetText).right());
        // Shown whole, wrapped inside the row rather than cut.
        QVERIFY(!detailText->property("truncated").toBool());
        QVERIFY(h->rect(detailText).right() <= h->rect(onlyRow()).right() - 14 + 0.5);
        // Below the bar; without either text the row ends at the bar.
        const double barBottom = h->bottom(h->find("barTrack", onlyRow()));
        if (reset.isEmpty() && detail.isEmpty())
            QCOMPARE(h->bottom(onlyRow()), barBottom + 11);
        else
            QCOMPARE(h->top(reset.isEmpty() ? detailText : resetText) >= barBottom + 6, true);
    }

    void cardShowsExactlyOneState_data()
    {
        QTest::addColumn<ServiceUsage>("record");
        QTest::addColumn<QString>("shown");
        QTest::addColumn<QStringList>("titles");
        QTest::addColumn<QString>("updated");

        const QList<LimitRow> three { row("Sesión (5 h)", 10), row("Semanal", 20),
            row("Semanal · Opus", 30) };
        const QStringList titles { "Sesión (5 h)", "Semanal", "Semanal · Opus" };
        const QString error = QStringLiteral("No pude leer tu sesión de Claude Code.");
        const QString longError = QStringLiteral(
            "La sesión caducó y no pude renovarla. Abre Claude Code en la terminal, inicia sesión "
            "de nuevo y vuelve a intentarlo dentro de unos minutos; si sigue, revisa tus credenciales.");

        QTest::newRow("error hides rows") << usage(three, kNow, error) << error << QStringList() << "";
        QTest::newRow("long error wraps") << usage({}, {}, longError) << longError << QStringList() << "";
        QTest::newRow("empty") << usage({}) << "Cargando…" << QStringList() << "";
        QTest::newRow("loaded, no rows") << usage({}, kNow - 60) << "Cargando…" << QStringList() << "";
        QTest::newRow("one row") << usage({ three.first() }, kNow - 180) << "" << titles.mid(0, 1)
                                 << "Actualizado hace 3 min";
        QTest::newRow("three rows") << usage(three, kNow - 7530) << "" << titles
                                    << "Actualizado hace 2 h 5 min";
        QTest::newRow("no update time") << usage(three) << "" << titles << "";
    }

    void cardShowsExactlyOneState()
    {
        QFETCH(ServiceUsage, record);
        QFETCH(QString, shown);
        QFETCH(QStringList, titles);
        QFETCH(QString, updated);

        record.planBadge = QStringLiteral("Max");
        h->publish(record, usage({ row("Otra", 50) }, kNow));
        QQuickItem* section = h->find("claudeSection");
        QQuickItem* card = h->find("card", section);
        QQuickItem* error = h->find("errorText", section);
        QQuickItem* loading = h->find("loadingText", section);
        const QQuickItem* message = error->isVisible() ? error : loading->isVisible() ? loading : nullptr;
        QCOMPARE(message ? textOf(message) : QString(), shown);
        // An error of any length wraps inside the card, which keeps the panel's width.
        QCOMPARE(card->width(), 360.0 - 2 * 16);
        QVERIFY(error->property("contentWidth").toDouble() <= error->width());
        QVERIFY(!error->isVisible() || h->rect(card).adjusted(14, 14, -14, -14).contains(h->rect(error)));
        QCOMPARE(h->findVisible("spinner", section).size(), int(loading->isVisible()));

        QStringList rowTitles;
        for (QQuickItem* title : h->findVisible("rowTitle", section))
            rowTitles.append(textOf(title));
        QCOMPARE(rowTitles, titles);
        // One divider between consecutive rows, none above the first.
        const QList<QQuickItem*> rows = h->findVisible("limitRow", section);
        const QList<QQuickItem*> dividers = h->findVisible("rowDivider", section);
        QCOMPARE(dividers.size(), std::max(0, int(rows.size()) - 1));
        for (int i = 1; i < rows.size(); ++i) {
            QVERIFY(h->bottom(rows[i - 1]) <= h->top(dividers[i - 1]));
            QVERIFY(h->bottom(dividers[i - 1]) <= h->top(rows[i]));
        }

        QQuickItem* updatedText = h->find("updatedText", section);
        QCOMPARE(updatedText->isVisible() ? textOf(updatedText) : QString(), updated);
        QCOMPARE(h->find("updatedDivider", section)->isVisible(), !updated.isEmpty());
        // The card ends with its last visible line.
        QQuickItem* last = !updated.isEmpty() ? updatedText : !rows.isEmpty() ? rows.last()
            : error->isVisible() ? h->find("errorLabel", section) : h->find("loadingIndicator", section);
        QCOMPARE(h->bottom(card), h->bottom(last));

        // The plan badge ends the title row, in line with the card; no plan, no badge.
        QCOMPARE(textOf(h->find("planBadgeText", section)), QStringLiteral("Max"));
        QCOMPARE(h->rect(h->find("planBadge", section)).right(), h->rect(card).right());
        QVERIFY(!h->find("planBadge", h->find("codexSection"))->isVisible());
    }

    void servicesFollowSettings_data()
    {
        QTest::addColumn<bool>("claude");
        QTest::addColumn<bool>("codex");
        QTest::newRow("both") << true << true;
        QTest::newRow("only Codex") << false << true;
        QTest::newRow("neither") << false << false;
    }

    void servicesFollowSettings()
    {
        QFETCH(bool, claude);
        QFETCH(bool, codex);
        h->publish(usage({ row("Claude fila", 5) }, kNow), usage({ row("Codex fila", 5) }, kNow));
        h->settings().setShowClaude(claude);
        h->settings().setShowCodex(codex);
        h->settle();

        QQuickItem* message = h->find("hiddenServicesMessage");
        QList<QQuickItem*> shown;
        for (QQuickItem* item : { h->find("claudeSection"), h->find("codexSection"), message })
            if (item->isVisible())
                shown.append(item);
        QCOMPARE(shown.size(), std::max(1, int(claude) + int(codex)));
        QCOMPARE(h->find("claudeSection")->isVisible(), claude);
        QCOMPARE(h->find("codexSection")->isVisible(), codex);
        QCOMPARE(textOf(message), QStringLiteral("Ambos servicios están ocultos. Actívalos en Ajustes."));

        // 14 below the header, 18 between cards, footer 18 below the last, 16 of padding.
        QCOMPARE(h->top(shown.first()), h->bottom(h->find("header")) + 14);
        for (int i = 1; i < shown.size(); ++i)
            QCOMPARE(h->top(shown[i]), h->bottom(shown[i - 1]) + 18);
        QCOMPARE(h->top(h->find("footer")), h->bottom(shown.last()) + 18);
        QCOMPARE(h->panel().height(), h->bottom(h->find("footer")) + 16);
    }

    void footerTellsTheInterval_data()
    {
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<QString>("text");
        QTest::newRow("1") << QVariant(1) << "Se actualiza cada minuto";
        QTest::newRow("2") << QVariant(2) << "Se actualiza cada 2 min";
        QTest::newRow("absent") << QVariant() << "Se actualiza cada 5 min";
    }

    void footerTellsTheInterval()
    {
        QFETCH(QVariant, stored);
        QFETCH(QString, text);
        h->settings().setRefreshIntervalMinutes(7);
        if (stored.isValid())
            h->settings().setRefreshIntervalMinutes(stored.toInt());
        else
            h->settings().remove(QStringLiteral("refreshIntervalMinutes"));
        QCOMPARE(textOf(h->find("footerText")), text);
    }

    void bannerShowsTheUpdateAndOpensItsUrl()
    {
        UrlRecorder recorder;
        QDesktopServices::setUrlHandler(QStringLiteral("https"), &recorder, "open");
        QQuickItem* banner = h->find("updateBanner");
        QQuickItem* claude = h->find("claudeSection");
        QVERIFY(!banner->isVisible());
        QCOMPARE(h->top(claude), h->bottom(h->find("header")) + 14);

        const QUrl first(QStringLiteral("https://limitra.app/download/1.3.0"));
        h->publish(usage({}), usage({}), UpdateInfo { "1.3.0", first, QStringLiteral("Notas") });
        QVERIFY(banner->isVisible());
        QCOMPARE(textOf(h->find("bannerTitle")), QStringLiteral("Nueva versión 1.3.0 disponible"));
        QCOMPARE(textOf(h->find("bannerSubtitle")), QStringLiteral("Haz clic para descargar"));
        QCOMPARE(h->top(banner), h->bottom(h->find("header")) + 14);
        QCOMPARE(h->top(claude), h->bottom(banner) + 14);
        h->click(banner);
        h->click(banner);
        QCOMPARE(recorder.opened, (QList<QUrl> { first, first }));

        const QUrl later(QStringLiteral("https://limitra.app/download/1.4.0"));
        h->publish(usage({}), usage({}), UpdateInfo { "1.4.0", later, std::nullopt });
        QCOMPARE(textOf(h->find("bannerTitle")), QStringLiteral("Nueva versión 1.4.0 disponible"));
        h->click(banner);
        QCOMPARE(recorder.opened.last(), later);
        QDesktopServices::unsetUrlHandler(QStringLiteral("https"));
    }

    void buttonsReachTheApplicationAndTheStore()
    {
        QCOMPARE(textOf(h->find("panelTitle")), QStringLiteral("Límites"));
        QSignalSpy settings(&h->actions(), &PanelActions::settingsRequested);
        QSignalSpy quit(&h->actions(), &PanelActions::quitRequested);
        h->click(h->find("settingsButton"));
        QCOMPARE(textOf(h->find("quitButton")), QStringLiteral("Salir"));
        h->click(h->find("quitButton"));
        QCOMPARE(settings.count(), 1);
        QCOMPARE(quit.count(), 1);

        // Refresh turns the glyph into a spinner until the store is done.
        QQuickItem* refresh = h->find("refreshButton");
        h->holdFetches(true);
        h->click(refresh);
        QTRY_COMPARE(h->fetchCount(), 2);
        h->settle();
        QVERIFY(!h->find("glyph", refresh)->isVisible() && h->find("spinner", refresh)->isVisible());
        h->click(refresh);
        h->holdFetches(false);
        QTRY_VERIFY(!h->store().isRefreshing());
        h->settle();
        QVERIFY(h->find("glyph", refresh)->isVisible() && !h->find("spinner", refresh)->isVisible());
        // The click during the refresh was absorbed by it.
        QCOMPARE(h->fetchCount(), 2);
    }

    void imageIs720WideAndAsTallAsTheContent()
    {
        PanelHarness& p = unshown();
        p.settings().setShowClaude(false);
        p.settings().setShowCodex(false);
        QList<int> heights;
        for (int step = 0; step < 3; ++step) {
            if (step == 1)
                p.settings().setShowClaude(true);
            if (step == 2)
                p.publish(usage(threeRows(), kNow - 60), {}, UpdateInfo { "1.3", QUrl("https://x.y/"), {} });
            const QImage image = render(p);
            QCOMPARE(image.width(), 720);
            QCOMPARE(image.height(), 2 * int(std::ceil(p.panel().implicitHeight())));
            QVERIFY(heights.isEmpty() || image.height() > heights.last());
            heights.append(image.height());
        }
        // The item goes back where it was.
        QCOMPARE(p.panel().parentItem(), nullptr);
    }

    void backgroundSpinnerAndTextReadInBothThemes_data()
    {
        QTest::addColumn<QColor>("window");
        QTest::addColumn<QColor>("text");
        QTest::newRow("light") << QColor(0xec, 0xec, 0xec) << QColor(Qt::black);
        QTest::newRow("dark") << QColor(0x2b, 0x2b, 0x2e) << QColor(0xea, 0xea, 0xea);
    }

    void backgroundSpinnerAndTextReadInBothThemes()
    {
        QFETCH(QColor, window);
        QFETCH(QColor, text);
        QPalette palette(window);
        palette.setColor(QPalette::WindowText, text);
        palette.setColor(QPalette::Base, window.lightness() < 128 ? window.darker(140) : QColor(Qt::white));
        QGuiApplication::setPalette(palette);
        PanelHarness& p = unshown();
        const QImage image = render(p);
        QCOMPARE(image.pixel(0, 0), window.rgb());
        QCOMPARE(image.pixel(719, image.height() - 1), window.rgb());

        QQuickItem* card = p.find("card", p.find("claudeSection"));
        const QRectF spinner = p.rect(p.find("spinner", card));
        const QPointF cardPoint(p.rect(card).right() - 10, spinner.center().y());
        const int cardLightness = QColor(image.pixel((cardPoint * 2).toPoint())).lightness();
        QVERIFY(pixelsAwayFrom(image, spinner, cardLightness) > 40);
        QVERIFY(pixelsAwayFrom(image, p.rect(p.find("panelTitle")), window.lightness()) > 500);
    }

    void runWritesThePngAndSaysWhere_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("written");
        QTest::newRow("new file") << "panel.png" << true;
        QTest::newRow("replaces a file") << "old.png" << true;
        QTest::newRow("missing folder") << "missing/panel.png" << false;
    }

    void runWritesThePngAndSaysWhere()
    {
        QFETCH(QString, path);
        QFETCH(bool, written);
        QTemporaryDir dir;
        QVERIFY(writeFile(dir.filePath("old.png"), "not a picture"));
        const QString previous = QDir::currentPath();
        QDir::setCurrent(dir.path());
        PanelHarness& p = unshown();
        p.script(usage(threeRows(), kNow), usage({}, {}, QStringLiteral("Sin sesión de Codex.")));
        QString printed;
        QTextStream out(&printed);
        SnapshotMode::run(p.store(), p.settings(), path, out);
        QDir::setCurrent(previous);

        QCOMPARE(printed, QStringLiteral("Snapshot: %1\n").arg(path));
        // The run waited for its refresh, which fetched the scripted records.
        QCOMPARE(p.store().claude().rows.size(), 3);
        QImage image;
        QCOMPARE(image.load(dir.filePath(path), "PNG"), written);
        QVERIFY(!written || (image.width() == 720 && image.height() > 400));
    }
};

QTEST_MAIN(TestPanel)
#include "tst_panel.moc"
