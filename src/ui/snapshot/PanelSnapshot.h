#pragma once

#include <QColor>
#include <QImage>

class QQuickItem;

namespace limitra {

// Draws the panel's content off screen with the software renderer: 360 wide,
// as tall as the content needs, at scale 2 over a background filling the image.
struct PanelSnapshot
{
    static constexpr int kWidth = 360;
    static constexpr int kScale = 2;

    // Lends `content` to an off-screen window for the time of the render and then
    // hands it back to its parent. A null image when nothing could be drawn.
    static QImage render(QQuickItem& content, const QColor& background);
};

} // namespace limitra
