#pragma once

#include <QColor>
#include <QQuickImageProvider>
#include <QString>
#include <QUrl>

namespace limitra {

// Draws the bundled monochrome icons (icons/<name>.svg) in any colour, so the
// views tint them without shader effects that the software renderer lacks.
// Icons are drawn at twice the asked size, so they stay sharp in a scale-2
// snapshot even though its off-screen window reports scale 1.
class TintedIconProvider : public QQuickImageProvider
{
public:
    static constexpr const char* kId = "limitraicon";

    TintedIconProvider();

    // image://limitraicon/<name>/<aarrggbb>
    static QUrl url(const QString& name, const QColor& color);

    QImage requestImage(const QString& id, QSize* size, const QSize& requestedSize) override;
};

} // namespace limitra
