#include "ui/TintedIconProvider.h"

#include <QPainter>
#include <QSvgRenderer>

namespace limitra {

namespace {
    constexpr int kFallbackSize = 16;
    constexpr int kSupersample = 2;
} // namespace

TintedIconProvider::TintedIconProvider()
    : QQuickImageProvider(QQuickImageProvider::Image)
{
}

QUrl TintedIconProvider::url(const QString& name, const QColor& color)
{
    const QString argb = QString::number(color.rgba(), 16).rightJustified(8, QLatin1Char('0'));
    return QUrl(QStringLiteral("image://%1/%2/%3").arg(QLatin1String(kId), name, argb));
}

QImage TintedIconProvider::requestImage(const QString& id, QSize* size, const QSize& requestedSize)
{
    const int slash = id.lastIndexOf(QLatin1Char('/'));
    const QString name = id.left(slash);
    bool ok = false;
    const QColor color = QColor::fromRgba(id.mid(slash + 1).toUInt(&ok, 16));

    QSvgRenderer svg(QStringLiteral(":/qt/qml/Limitra/Panel/icons/%1.svg").arg(name));
    if (slash < 0 || !ok || !svg.isValid())
        return {};

    const QSize logical = requestedSize.isValid() && !requestedSize.isEmpty()
        ? requestedSize
        : QSize(kFallbackSize, kFallbackSize);
    const QSize pixels = logical * kSupersample;
    QImage image(pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    {
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        svg.render(&painter, QRectF(QPointF(0, 0), QSizeF(pixels)));
        // Keep the shape, replace its colour: the icons are drawn in black.
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        painter.fillRect(image.rect(), color);
    }
    if (size)
        *size = image.size();
    return image;
}

} // namespace limitra
