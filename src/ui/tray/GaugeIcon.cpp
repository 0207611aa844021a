#include "ui/tray/GaugeIcon.h"

#include "platform/Files.h"
#include "store/MenuBarText.h"
#include "store/UsageStore.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QPainter>
#include <QStandardPaths>
#include <QSvgRenderer>
#include <QtEndian>

#include <algorithm>
#include <cmath>

namespace limitra::GaugeIcon {

namespace {
const QString kAppsFolder = QStringLiteral("hicolor/symbolic/apps");

QList<int> allSteps()
{
    QList<int> steps { kNoData };
    for (int s = 0; s <= 100; s += 10)
        steps.append(s);
    return steps;
}

// `whole` draws the faint part of the dial as solid as the rest.
QImage render(int step, int size, const char* colour, bool whole = false)
{
    QByteArray source = svg(step);
    source.replace("currentColor", colour);
    if (whole)
        source.replace("fill-opacity=", "data-opacity=");
    QSvgRenderer renderer(source);
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    renderer.render(&painter);
    return image;
}
} // namespace

int step(std::optional<double> worstLeft)
{
    if (!worstLeft || std::isnan(*worstLeft))
        return kNoData;
    const double left = std::clamp(*worstLeft, 0.0, 100.0);
    return int(std::floor(left / 10.0 + 0.5)) * 10;
}

int stepOf(const UsageStore& store)
{
    return step(MenuBarText::lowestLeft(store.claude(), store.codex(), store.showClaude(), store.showCodex()));
}

QString name(int step)
{
    if (step == kNoData)
        return QStringLiteral("limitra-gauge-none-symbolic");
    return QStringLiteral("limitra-gauge-%1-symbolic").arg(step);
}

QByteArray svg(int step)
{
    QFile file(QStringLiteral(":/limitra/icons/%1.svg").arg(name(step)));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QImage image(int step, int size)
{
    // A dark copy nudged one pixel each way makes the rim; the light copy on top
    // is the gauge itself. The rim outlines the whole dial, so its faint part
    // reads dark and its solid part light on any panel.
    const QImage rim = render(step, size, "#1e1e1e", true);
    const QImage face = render(step, size, "#f2f2f2");
    QImage out(size, size, QImage::Format_ARGB32_Premultiplied);
    out.fill(Qt::transparent);
    QPainter painter(&out);
    const int reach = std::max(1, size / 22);
    for (int dx = -reach; dx <= reach; dx += reach)
        for (int dy = -reach; dy <= reach; dy += reach)
            painter.drawImage(dx, dy, rim);
    painter.drawImage(0, 0, face);
    return out;
}

SniPixmaps pixmaps(int step)
{
    SniPixmaps list;
    for (int size : { 16, 22, 32, 48 }) {
        const QImage argb = image(step, size).convertToFormat(QImage::Format_ARGB32);
        SniPixmap pixmap { size, size, QByteArray(argb.sizeInBytes(), Qt::Uninitialized) };
        auto* out = reinterpret_cast<quint32*>(pixmap.argb.data());
        for (int y = 0; y < size; ++y) {
            const auto* line = reinterpret_cast<const quint32*>(argb.constScanLine(y));
            for (int x = 0; x < size; ++x)
                *out++ = qToBigEndian(line[x]);
        }
        list.append(pixmap);
    }
    return list;
}

QString themePath()
{
    const QString installed
        = QDir(QCoreApplication::applicationDirPath()).absoluteFilePath(QStringLiteral("../share/icons"));
    if (QFile::exists(installed + u'/' + kAppsFolder + u'/' + name(kNoData) + QStringLiteral(".svg")))
        return QDir::cleanPath(installed);

    QString base = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (base.isEmpty())
        base = QDir::tempPath();
    const QString root = base + QStringLiteral("/limitra/icons");
    if (!QDir().mkpath(root + u'/' + kAppsFolder))
        return {};
    // Hosts look names up both in the theme folder and loose in the path itself.
    for (int s : allSteps()) {
        const QByteArray bytes = svg(s);
        const QString file = name(s) + QStringLiteral(".svg");
        for (const QString& path : { root + u'/' + kAppsFolder + u'/' + file, root + u'/' + file }) {
            if (platform::Files::read(path) != bytes && !platform::Files::writeAtomic(path, bytes))
                return {};
        }
    }
    return root;
}

} // namespace limitra::GaugeIcon
