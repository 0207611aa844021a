#include "ui/snapshot/PanelSnapshot.h"

#include <QPointer>
#include <QQuickItem>
#include <QQuickRenderControl>
#include <QQuickRenderTarget>
#include <QQuickWindow>

#include <cmath>

namespace limitra {

QImage PanelSnapshot::render(QQuickItem& content, const QColor& background)
{
    // Only effective before the first scene graph is made; the snapshot mode
    // sets it that early, and the software renderer draws without a GPU.
    if (QQuickWindow::sceneGraphBackend() != QLatin1String("software"))
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);

    QQuickRenderControl control;
    QQuickWindow window(&control);
    window.setColor(background);

    const QPointer<QQuickItem> parent = content.parentItem();
    content.setParentItem(window.contentItem());
    content.setPosition(QPointF(0, 0));
    content.setWidth(kWidth);
    // Positioners and text settle their sizes while polishing.
    control.polishItems();
    const int height = std::max(1, int(std::ceil(content.implicitHeight())));
    content.setHeight(height);
    window.resize(kWidth, height);
    window.contentItem()->setSize(QSizeF(kWidth, height));

    QImage image(kWidth * kScale, height * kScale, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(kScale);
    image.fill(background);
    QQuickRenderTarget target = QQuickRenderTarget::fromPaintDevice(&image);
    target.setDevicePixelRatio(kScale);
    window.setRenderTarget(target);

    control.polishItems();
    control.beginFrame();
    control.sync();
    control.render();
    control.endFrame();

    content.setParentItem(parent);
    // Another renderer, chosen before us, would have drawn nothing into the image.
    const QSGRendererInterface* renderer = window.rendererInterface();
    if (!renderer || renderer->graphicsApi() != QSGRendererInterface::Software)
        return {};
    return image;
}

} // namespace limitra
