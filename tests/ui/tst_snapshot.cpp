#include "PanelHarness.h"

#include "platform/Defaults.h"
#include "store/UsageStore.h"
#include "ui/snapshot/PanelSnapshot.h"
#include "ui/snapshot/SnapshotMode.h"

#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QPalette>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>
#include <QTextStream>

#include <cmath>

using namespace limitra;
using namespace limitra::test;

namespace {
constexpr double kNow = PanelHarness::kNow;

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

class TestSnapshot : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QQuickWindow::setGraphicsApi(QSGRendererInterface::Software); }
    void cleanup() { QGuiApplication::setPalette(QPalette()); }

    void imageIs720WideAndAsTallAsTheContent()
    {
        PanelHarness h;
        h.settings().setShowClaude(false);
        h.settings().setShowCodex(false);
        QList<int> heights;
        for (int step = 0; step < 3; ++step) {
            if (step == 1)
                h.settings().setShowClaude(true);
            if (step == 2)
                h.publish(usage(threeRows(), kNow - 60), {}, UpdateInfo { "1.3", QUrl("https://x.y/"), {} });
            const QImage image = render(h);
            QCOMPARE(image.width(), 720);
            QCOMPARE(image.height(), 2 * int(std::ceil(h.panel().implicitHeight())));
            QVERIFY(heights.isEmpty() || image.height() > heights.last());
            heights.append(image.height());
        }
        // The item goes back where it was.
        QCOMPARE(h.panel().parentItem(), nullptr);
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
        PanelHarness h;
        const QImage image = render(h);
        QCOMPARE(image.pixel(0, 0), window.rgb());
        QCOMPARE(image.pixel(719, image.height() - 1), window.rgb());

        QQuickItem* card = h.find("card", h.find("claudeSection"));
        const QRectF spinner = h.rect(h.find("spinner", card));
        const QPointF cardPoint(h.rect(card).right() - 10, spinner.center().y());
        const int cardLightness = QColor(image.pixel((cardPoint * 2).toPoint())).lightness();
        QVERIFY(pixelsAwayFrom(image, spinner, cardLightness) > 40);
        QVERIFY(pixelsAwayFrom(image, h.rect(h.find("panelTitle")), window.lightness()) > 500);
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
        QFile old(dir.filePath("old.png"));
        QVERIFY(old.open(QIODevice::WriteOnly) && old.write("not a picture") > 0);
        old.close();
        const QString previous = QDir::currentPath();
        QDir::setCurrent(dir.path());

        PanelHarness h;
        h.script(usage(threeRows(), kNow), usage({}, {}, QStringLiteral("Sin sesión de Codex.")));
        QString printed;
        QTextStream out(&printed);
        SnapshotMode::run(h.store(), h.settings(), path, out);
        QDir::setCurrent(previous);

        QCOMPARE(printed, QStringLiteral("Snapshot: %1\n").arg(path));
        // The run waited for its refresh, which fetched the scripted records.
        QCOMPARE(h.store().claude().rows.size(), 3);
        QImage image;
        QCOMPARE(image.load(dir.filePath(path), "PNG"), written);
        QVERIFY(!written || (image.width() == 720 && image.height() > 400));
    }
};

QTEST_MAIN(TestSnapshot)
#include "tst_snapshot.moc"
