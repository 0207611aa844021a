#include "SandboxedJourneys.h"
#include "ServiceFixtures.h"

#include <QDir>
#include <QFile>
#include <QImage>

#include <functional>

using namespace limitra::e2e;
using namespace limitra::e2e::ServiceFixtures;
using limitra::test::PeerAnswer;

namespace {

const QString kClaudeUsage = QStringLiteral("GET api.anthropic.com /api/oauth/usage Bearer SECRET-claude-at");
const QString kCodexUsage = QStringLiteral("GET chatgpt.com /backend-api/wham/usage Bearer SECRET-codex-at");
const QString kFeed = QStringLiteral("GET limitra.app /api/version.json");
constexpr int kWidth = 720;

// What differs from the reference panel (both services answering, no update
// published), and what the picture and the peers must show for it.
struct Scene
{
    std::function<void(const QString& home, TlsPeer&)> arrange;
    int cards = 0;
    bool banner = false;
    int heightVersusReference = 0; // -1 shorter, 0 the same, 1 taller
    QStringList services; // requests as SandboxedJourneys::describe() writes them, sorted
};

// Full-width bands of one colour, told apart from the window background at
// both edges of the content: the cards and the blue update banner. Text,
// icons and buttons never span both edges, and the section titles' emoji and
// badge are too short to count.
struct Bands
{
    int cards = 0;
    int banners = 0;
};

Bands bandsOf(const QImage& image)
{
    constexpr int kInset = 40; // 4 points inside the panel's 16-point padding
    constexpr int kMinimumHeight = 48;
    const QRgb background = image.pixel(0, 0);
    Bands bands;
    int length = 0;
    QRgb colour = 0;
    for (int y = 0; y <= image.height(); ++y) {
        const QRgb left = y < image.height() ? image.pixel(kInset, y) : background;
        const bool inBand = left != background && left == image.pixel(image.width() - 1 - kInset, y);
        if (inBand && (length == 0 || left == colour)) {
            colour = left;
            ++length;
            continue;
        }
        if (length >= kMinimumHeight)
            ++(qBlue(colour) - qRed(colour) > 80 ? bands.banners : bands.cards);
        length = inBand ? 1 : 0;
        colour = left;
    }
    return bands;
}

// Rows of pure background under the last drawn pixel: the panel's bottom
// padding when the height follows the content.
int bottomMargin(const QImage& image)
{
    const QRgb background = image.pixel(0, 0);
    for (int y = image.height() - 1; y >= 0; --y)
        for (int x = 0; x < image.width(); ++x)
            if (image.pixel(x, y) != background)
                return image.height() - 1 - y;
    return image.height();
}

void keepForALook(const QString& file, const QString& name)
{
    const QString folder = qEnvironmentVariable("LIMITRA_E2E_ARTIFACTS");
    if (folder.isEmpty() || !QDir().mkpath(folder))
        return;
    const QString target = QDir(folder).filePath(QString(name).replace(u' ', u'-') + QStringLiteral(".png"));
    QFile::remove(target);
    QFile::copy(file, target);
}

} // namespace

Q_DECLARE_METATYPE(Scene)

// `limitra --snapshot PATH` as a user without a desktop session runs it: the
// PNG of the panel, drawn off screen with nothing set up for it, against the
// sandbox's TLS peer.
class TestSnapshotJourneys : public SandboxedJourneys
{
    Q_OBJECT

public:
    using SandboxedJourneys::SandboxedJourneys;

private Q_SLOTS:
    void pictureFollowsThePanel_data();
    void pictureFollowsThePanel();
    void fileGoesWhereThePathSays_data();
    void fileGoesWhereThePathSays();

private:
    // Takes a snapshot to `path` (relative paths start in the home folder) and
    // gives the decoded image, checking the one line printed and the width.
    QImage shoot(const QString& path)
    {
        const QStringList expected { QStringLiteral("Snapshot: ") + path };
        const QStringList lines = run({ QStringLiteral("--snapshot"), path }).lines();
        [&] { QCOMPARE(lines, expected); }();
        QFile file(QDir(home()).filePath(path));
        const QByteArray png = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
        QImage image;
        [&] {
            QVERIFY2(png.startsWith("\x89PNG\r\n\x1a\n"), qPrintable(path));
            QVERIFY(image.loadFromData(png, "PNG"));
            QCOMPARE(image.width(), kWidth);
        }();
        return image;
    }
};

void TestSnapshotJourneys::pictureFollowsThePanel_data()
{
    QTest::addColumn<Scene>("scene");
    const auto settings = [](const QByteArray& lines) {
        return [lines](const QString& home, TlsPeer&) {
            QVERIFY(writeOwnerOnly(
                QDir(home).filePath(QStringLiteral(".config/limitra/limitra.conf")), "[General]\n" + lines));
        };
    };
    const auto feed = [](const QByteArray& version) {
        return [version](const QString&, TlsPeer& peer) {
            peer.on("limitra.app", "GET", "/api/version.json",
                PeerAnswer::json(200,
                    R"({"version":")" + version
                        + R"(","download_url":"https://limitra.app/descargar","release_notes":"Notas"})"));
        };
    };

    QTest::newRow("both services answer") << Scene { {}, 2, false, 0, { kClaudeUsage, kCodexUsage } };
    QTest::newRow("Claude hidden") << Scene { settings("showClaude=false\n"), 1, false, -1, { kCodexUsage } };
    QTest::newRow("both hidden") << Scene { settings("showClaude=false\nshowCodex=false\n"), 0, false, -1,
        {} };
    QTest::newRow("Claude without a session")
        << Scene { [](const QString& home, TlsPeer&) { QVERIFY(QFile::remove(claudeCredentialsPath(home))); },
               2, false, -1, { kCodexUsage } };
    QTest::newRow("newer version published")
        << Scene { feed("1.0.1"), 2, true, 1, { kClaudeUsage, kCodexUsage } };
    QTest::newRow("running version published")
        << Scene { feed("1.0.0"), 2, false, 0, { kClaudeUsage, kCodexUsage } };
}

void TestSnapshotJourneys::pictureFollowsThePanel()
{
    QFETCH(Scene, scene);
    QVERIFY(writeFreshSessions(home(), wallClock()));
    serveBothServices(peer(), wallClock());
    const QImage reference = shoot(QStringLiteral("reference.png"));
    if (QTest::currentTestFailed())
        return;
    keepForALook(QDir(home()).filePath(QStringLiteral("reference.png")), QStringLiteral("both-services"));
    const qsizetype before = peer().requests().size();
    if (scene.arrange)
        scene.arrange(home(), peer());

    const QImage image = shoot(QStringLiteral("panel.png"));
    if (QTest::currentTestFailed())
        return;
    keepForALook(
        QDir(home()).filePath(QStringLiteral("panel.png")), QString::fromUtf8(QTest::currentDataTag()));

    // Each shown service is asked once. The feed is asked at least once: twice when,
    // with nothing to fetch, the store's own first refresh finds no refresh under way.
    QStringList requests = describeSorted(peer().requests().mid(before));
    QVERIFY(requests.removeAll(kFeed) >= 1);
    QCOMPARE(requests, scene.services);
    const Bands bands = bandsOf(image);
    QCOMPARE(bands.cards, scene.cards);
    QCOMPARE(bands.banners, scene.banner ? 1 : 0);
    const int difference = image.height() - reference.height();
    QVERIFY2((difference > 0) - (difference < 0) == scene.heightVersusReference,
        qPrintable(QStringLiteral("%1 px against %2 px").arg(image.height()).arg(reference.height())));
    // Neither cut short nor padded out: the footer ends within the panel's padding.
    const int margin = bottomMargin(image);
    QVERIFY2(margin >= 16 && margin <= 64, qPrintable(QString::number(margin)));
}

void TestSnapshotJourneys::fileGoesWhereThePathSays_data()
{
    // "%home" stands for the home folder, which is also the working directory.
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("folder"); // made before the run
    QTest::addColumn<bool>("stale"); // an old file already at the path
    QTest::addColumn<bool>("written");
    QTest::addColumn<QStringList>("homeAfter");

    const QStringList png { QStringLiteral("panel.png") };
    const QStringList shots { QStringLiteral("shots") };
    QTest::newRow("absolute") << QStringLiteral("%home/panel.png") << QString() << false << true << png;
    QTest::newRow("relative") << QStringLiteral("panel.png") << QString() << false << true << png;
    QTest::newRow("relative, in a folder")
        << QStringLiteral("shots/panel.png") << QStringLiteral("shots") << false << true << shots;
    QTest::newRow("replaces an old file") << QStringLiteral("panel.png") << QString() << true << true << png;
    QTest::newRow("missing folder, absolute")
        << QStringLiteral("%home/missing/panel.png") << QString() << false << false << QStringList();
    QTest::newRow("missing folder, relative")
        << QStringLiteral("missing/panel.png") << QString() << false << false << QStringList();
}

void TestSnapshotJourneys::fileGoesWhereThePathSays()
{
    QFETCH(QString, path);
    QFETCH(QString, folder);
    QFETCH(bool, stale);
    QFETCH(bool, written);
    QFETCH(QStringList, homeAfter);
    path.replace(QStringLiteral("%home"), home());
    if (!folder.isEmpty())
        QVERIFY(QDir(home()).mkpath(folder));
    if (stale)
        QVERIFY(writeOwnerOnly(QDir(home()).filePath(path), "not a picture"));

    if (written) {
        // Without sessions both cards show their errors, which is enough here.
        shoot(path);
    } else {
        QCOMPARE(run({ QStringLiteral("--snapshot"), path }).lines(), QStringList { "Snapshot: " + path });
    }
    // Nothing but the picture is left behind: no temporary file, no folder made.
    QCOMPARE(entriesOf(home()), homeAfter);
    if (!folder.isEmpty())
        QCOMPARE(entriesOf(QDir(home()).filePath(folder)), QStringList { QStringLiteral("panel.png") });
}

int main(int argc, char** argv)
{
    return SandboxedJourneys::main<TestSnapshotJourneys>(argc, argv);
}

#include "tst_snapshotjourneys.moc"
