#pragma once

#include <QObject>
#include <QPointer>
#include <QSize>
#include <QWindow>
#include <QtQml/qqml.h>

namespace limitra {

// Keeps a window exactly as large as its content, under any window manager: the
// window's size limits are moved together with its size, so a window manager
// that enforces the old limits never keeps the old size (a welcome guide cut off
// below its first row, a settings tab clipped). The panel and the QML windows
// share it.
class WindowFit : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QWindow* window READ window WRITE setWindow NOTIFY windowChanged)
    Q_PROPERTY(QSize size READ size WRITE setSize NOTIFY sizeChanged)

public:
    using QObject::QObject;

    QWindow* window() const { return m_window; }
    void setWindow(QWindow* window);
    QSize size() const { return m_size; }
    void setSize(QSize size);

    // Makes `window` exactly `size` and no other size. An empty size is ignored.
    static void fit(QWindow& window, QSize size);

Q_SIGNALS:
    void windowChanged();
    void sizeChanged();

private:
    void apply();

    QPointer<QWindow> m_window;
    QSize m_size;
};

} // namespace limitra
